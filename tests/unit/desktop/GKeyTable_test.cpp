#include "libvorn/src/platform/input/GKeyTable.h"

#include "platform/GSystem.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <set>

TEST( GKeyTable, NamesAreReadInEitherCase )
{
    EXPECT_EQ( 32, GKeyFromName( u"SPACE" ) );
    EXPECT_EQ( 32, GKeyFromName( u" space " ) );
    EXPECT_EQ( 18, GKeyFromName( u"Alt" ) );
    EXPECT_EQ( 65, GKeyFromName( u"a" ) );
    EXPECT_EQ( 48, GKeyFromName( u"0" ) );
    EXPECT_EQ( 123, GKeyFromName( u"F12" ) );
    EXPECT_EQ( 0, GKeyFromName( u"NOSUCHKEY" ) );
    EXPECT_EQ( 0, GKeyFromName( u"" ) );
}

TEST( GKeyTable, EveryNameLeadsBackToItsKey )
{
    std::set<int> keys;
    for( const GKeyRow* row = GKeyTableBegin( ); row->name; ++row )
    {
        EXPECT_EQ( row->key, GKeyFromName( row->name ) );
        EXPECT_EQ( row->name, GKeyGetName( row->key ) );
        EXPECT_TRUE( keys.insert( row->key ).second ) << row->key;
        EXPECT_EQ( row->key, GKeyFromKeysym( row->keysym ) );
    }
    EXPECT_EQ( u"", GKeyGetName( 7 ) );
}

TEST( GKeyTable, CapitalKeysymsAreTheSameKey )
{
    EXPECT_EQ( 65, GKeyFromKeysym( 'a' ) );
    EXPECT_EQ( 65, GKeyFromKeysym( 'A' ) );
    EXPECT_EQ( 0, GKeyFromKeysym( 0 ) );
}

TEST( GKeyTable, HotkeyTextHoldsModifiersAndOneMainKey )
{
    int modifiers = 0;
    int key = 0;
    GKeyParseHotkey( u"CONTROL+SPACE", modifiers, key );
    EXPECT_EQ( 2, modifiers );
    EXPECT_EQ( 32, key );
    GKeyParseHotkey( u"alt+control+shift+windows+F1", modifiers, key );
    EXPECT_EQ( 1 | 2 | 4 | 8, modifiers );
    EXPECT_EQ( 112, key );
    GKeyParseHotkey( u"RIGHTWINDOWS+nothing+A", modifiers, key );
    EXPECT_EQ( 8, modifiers );
    EXPECT_EQ( 65, key );
}

TEST( GKeyTable, AltAloneHasNoMainKey )
{
    int modifiers = 0;
    int key = 1;
    GKeyParseHotkey( u"Alt", modifiers, key );
    EXPECT_EQ( 1, modifiers );
    EXPECT_EQ( 0, key );
}

TEST( GKeyTable, TheSameFormatGoesInAndOut )
{
    for( const GWString text : { u"CONTROL+SPACE", u"ALT+CONTROL+SHIFT+WINDOWS+A", u"F12", u"ALT", u"SHIFT+NUMPAD7" } )
    {
        int modifiers = 0;
        int key = 0;
        GKeyParseHotkey( text, modifiers, key );
        EXPECT_EQ( text, GKeyComposeHotkey( modifiers, key ) );
    }
    EXPECT_EQ( u"", GKeyComposeHotkey( 0, 0 ) );
}
