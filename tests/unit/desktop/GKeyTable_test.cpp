#include "libvorn/src/platform/input/GKeyTable.h"

#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GSystem.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <set>

namespace
{
GWString lower( GWString name )
{
    for( char16_t& letter : name )
        if( GWITHIN( u'A', letter, u'Z' ) ) letter += 32;
    return name;
}
} // namespace

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

TEST( GKeyTable, EveryRowLeadsFromEachOfItsColumnsToTheOthers )
{
    for( const GKeyRow* row = GKeyTableBegin( ); row->name; ++row )
    {
        const GString name = GWideToUTF8( row->name );
        EXPECT_EQ( row->key, GKeyFromName( row->name ) ) << name;
        EXPECT_EQ( row->key, GKeyFromName( GUTF8ToWide( " " + name + "\t" ) ) ) << name;
        EXPECT_EQ( row->name, GKeyGetName( row->key ) ) << name;
        EXPECT_EQ( row, GKeyTableFind( row->key ) ) << name;
        EXPECT_EQ( row->key, GKeyFromKeysym( row->keysym ) ) << name;
        EXPECT_EQ( row->otherKeysym ? row->key : 0, GKeyFromKeysym( row->otherKeysym ) ) << name;
    }
    EXPECT_EQ( u"", GKeyGetName( 7 ) );
    EXPECT_EQ( nullptr, GKeyTableFind( 7 ) );
}

TEST( GKeyTable, NothingStandsInItTwice )
{
    std::set<GWString> names;
    std::set<int> keys;
    std::set<uint32_t> keysyms;
    for( const GKeyRow* row = GKeyTableBegin( ); row->name; ++row )
    {
        EXPECT_TRUE( names.insert( lower( row->name ) ).second ) << GWideToUTF8( row->name );
        EXPECT_TRUE( keys.insert( row->key ).second ) << row->key;
        EXPECT_TRUE( GWITHIN( 1, row->key, 254 ) ) << row->key;
        for( const uint32_t keysym : { row->keysym, row->otherKeysym } )
            EXPECT_TRUE( !keysym || keysyms.insert( keysym ).second ) << keysym;
        EXPECT_NE( 0u, row->keysym ) << row->key;
    }
    EXPECT_GT( keys.size( ), 100u );
}

TEST( GKeyTable, EveryKeyReadsBackFromAHotkeysText )
{
    for( const GKeyRow* row = GKeyTableBegin( ); row->name; ++row )
    {
        int modifiers = 0;
        int key = 0;
        GKeyParseHotkey( GConcat( u"ALT+", row->name ), modifiers, key );
        const int modifier = GKeyGetModifier( row->key );
        EXPECT_EQ( GKM_ALT | modifier, modifiers ) << row->key;
        EXPECT_EQ( modifier ? 0 : row->key, key ) << row->key;
        // A name that held the sign between names could not.
        EXPECT_EQ( GWString::npos, GWString( row->name ).find( u'+' ) ) << row->key;
    }
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
