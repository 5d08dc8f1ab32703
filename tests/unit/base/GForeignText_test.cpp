#include "base/GForeignText.h"

#include "base/GUtil.h"

#include <gtest/gtest.h>

TEST( GForeignText, APlainTextIsUnchanged )
{
    for( const GWStringView text :
         { u"", u"CET", u"Velmora 765", u"a-name_of.somebody@x.org", u"\u05E9\u05DC\u05D5\u05DD" } )
    {
        EXPECT_EQ( GForeignText( text ), text );
        EXPECT_FALSE( GForeignTextIsMarked( text ) );
        EXPECT_EQ( GForeignTextShown( text ), text );
    }
}

TEST( GForeignText, NoCharacterWithAMeaningIsLeft )
{
    const GWString hostile = u"$Local_Password {a}(/system?exit);b,c+d&e=f ../x\\y*%1\"";
    const GWString text = GForeignText( hostile );
    EXPECT_TRUE( GForeignTextIsMarked( text ) );
    EXPECT_EQ( text.find_first_of( u"${}();,?+&=/\\*%\"" ), GWString::npos );
    EXPECT_EQ( text.size( ), hostile.size( ) );
    EXPECT_EQ( GForeignTextShown( text ), hostile );
    EXPECT_EQ( GForeignText( text ).find( u'$' ), GWString::npos );
}

TEST( GForeignText, TheMarksOutliveTheirWayThroughBytes )
{
    const GWString text = GForeignText( u"$a(b)" );
    EXPECT_EQ( GUTF8ToWide( GWideToUTF8( text ) ), text );
}

TEST( GForeignText, AStrangersOwnMarksAndControlsAreGone )
{
    GWString forged( 1, u'a' );
    for( char16_t unit = 0xFDD0; unit <= 0xFDEF; ++unit ) forged += unit;
    EXPECT_EQ( GForeignText( forged + u"b" ), u"ab" );
    EXPECT_EQ( GForeignText( u"C\x07"
                             u"E\x9bT\uFFFF" ),
               u"CET" );
    EXPECT_EQ( GForeignText( u"one\ttwo\r\nthree\u2028four" ), u"one two  three four" );
}

TEST( GForeignText, IsCutBetweenCharacters )
{
    EXPECT_EQ( GForeignText( u"abcdef", 3 ), u"abc" );
    EXPECT_EQ( GForeignText( u"ab\U0001F600", 3 ), u"ab" );
    EXPECT_EQ( GForeignText( GWString( 5000, u'x' ) ).size( ), 1024u );
}

TEST( GForeignText, OneMarkStandsForOneCharacter )
{
    EXPECT_EQ( GForeignTextShown( GWString( 1, GForeignTextMark( u'$' ) ) ), u"$" );
    EXPECT_NE( GForeignTextMark( u'$' ), u'$' );
    EXPECT_EQ( GForeignTextMark( u'a' ), u'a' );
}
