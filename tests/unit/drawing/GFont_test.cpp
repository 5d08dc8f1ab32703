#include "client/drawing/GFont.h"

#include "base/GForeignText.h"
#include "base/GUtil.h"
#include "image/GImage.h"
#include "platform/GText.h"
#include "support/CountAllocations.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <array>
#include <memory>

namespace
{
class GFontTest : public testing::Test
{
protected:
    static void SetUpTestSuite( )
    {
        static int count = 1;
        static char name[] = "test", *arguments[] = { name, nullptr };
        if( !qGuiApp ) new QGuiApplication( count, arguments );
    }
    GFontTest( ) : pixels( static_cast<size_t>( GImageSize( format ) ), 0 ) {}
    int draw( const GWString& text, const GRect& rect )
    {
        touched = GRectAccumulator( );
        return font.drawText( format, pixels.data( ), text, rect, { 0, 0, format.width, format.height }, &touched );
    }
    // Columns that hold any ink: the first and the one after the last.
    std::pair<int, int> ink( ) const { return { box( ).left, box( ).right }; }
    // All ink, from column `from` up to `to`.
    GRect box( int from = 0, int to = 1000 ) const
    {
        GRect found = GRectAccumulator( );
        for( int y = 0; y < format.height; y++ )
            for( int x = from; x < std::min( to, format.width ); x++ )
                if( alpha( x, y ) ) found = GRectUnion( found, { x, y, x + 1, y + 1 } );
        return found.left > found.right ? GRect{ format.width, format.height, 0, 0 } : found;
    }
    int alpha( int x, int y ) const
    {
        return static_cast<unsigned char>( pixels[static_cast<size_t>( ( y * format.width + x ) * 4 + 3 )] );
    }
    // The coverage of a text alone on the layer, its left edge at 0.
    GString pictureOf( const GWString& text )
    {
        pixels.assign( pixels.size( ), 0 );
        draw( text, { 0, 0, 200, 40 } );
        return pixels;
    }
    int widthOf( const GWString& text )
    {
        int width = 0, height = 0;
        font.measureText( text, width, height );
        return width;
    }
    const GImageFormat format{ GIT_RGBA32, 200, 60 };
    GString pixels;
    const std::unique_ptr<GFont> owner{ GSAFENEW( GFont, ( ) ) };
    GFont& font = *owner;
    GRect touched;
};
} // namespace

TEST_F( GFontTest, ASizeAloneIsTahomaInBlack )
{
    EXPECT_TRUE( font.update( u"12" ) );
    EXPECT_EQ( font.getFace( ), u"Tahoma" );
    EXPECT_EQ( font.getSize( ), 12 );
    EXPECT_EQ( font.getColour( ), 0xFF000000U );
    EXPECT_FALSE( font.isBold( ) || font.isItalic( ) || font.isUnderlined( ) || font.isStruckOut( ) );
    EXPECT_TRUE( font.isAntialiased( ) );
}

TEST_F( GFontTest, StyleLettersCountInEitherCase )
{
    EXPECT_TRUE( font.update( u"12,bi" ) );
    EXPECT_TRUE( font.isBold( ) && font.isItalic( ) );
    EXPECT_TRUE( font.update( u"12,USNM" ) );
    EXPECT_TRUE( font.isUnderlined( ) && font.isStruckOut( ) && font.isMultiLine( ) );
    EXPECT_FALSE( font.isAntialiased( ) || font.isBold( ) );
}

TEST_F( GFontTest, EmptyFieldsKeepTheirDefaults )
{
    EXPECT_TRUE( font.update( u"12,,#FF0000FF,Arial" ) );
    EXPECT_EQ( font.getFace( ), u"Arial" );
    EXPECT_EQ( font.getColour( ), 0xFFFF0000U );
    EXPECT_FALSE( font.isBold( ) || font.isItalic( ) || font.isCentred( ) || font.isRightAligned( ) );
    EXPECT_TRUE( font.update( u"" ) );
    EXPECT_EQ( font.getSize( ), 16 );
}

TEST_F( GFontTest, CentreComesBeforeRight )
{
    font.update( u"12,cr" );
    EXPECT_TRUE( font.isCentred( ) );
    EXPECT_FALSE( font.isRightAligned( ) );
    font.update( u"12,r" );
    EXPECT_TRUE( font.isRightAligned( ) );
}

TEST_F( GFontTest, AnEqualStringChangesNothingWhateverItsCase )
{
    EXPECT_TRUE( font.update( u"12,b,#FF0000FF,Arial" ) );
    EXPECT_FALSE( font.update( u"12,B,#ff0000ff,ARIAL" ) );
    EXPECT_TRUE( font.update( u"13,B,#ff0000ff,ARIAL" ) );
}

TEST_F( GFontTest, TextIsDrawnInItsColourWithCoverageAsAlpha )
{
    font.update( u"20,,#FF0000FF" );
    EXPECT_GT( draw( u"Hill", { 0, 0, 200, 40 } ), 10 );
    EXPECT_TRUE( GRectHasVolume( touched ) );
    int solid = 0;
    for( size_t i = 0; i < pixels.size( ); i += 4 )
    {
        ASSERT_EQ( pixels[i], pixels[i + 3] ) << "premultiplied red";
        ASSERT_EQ( pixels[i + 1], 0 );
        solid += static_cast<unsigned char>( pixels[i + 3] ) > 200;
    }
    EXPECT_GT( solid, 10 );
}

TEST_F( GFontTest, TheSameTextIsRenderedOnce )
{
    draw( u"Hello", { 0, 0, 200, 20 } );
    draw( u"Hello", { 10, 20, 200, 40 } );
    // Narrower than the text: cut, and not made anew.
    draw( u"Hello", { 0, 0, 10, 20 } );
    EXPECT_EQ( font.getRenderCount( ), 1 );
    draw( u"World", { 0, 0, 200, 20 } );
    EXPECT_EQ( font.getRenderCount( ), 2 );
}

TEST_F( GFontTest, AnEmptyRectangleGivesTheCachedHeight )
{
    const int height = draw( u"Hello", { 0, 0, 200, 20 } );
    EXPECT_GT( height, 0 );
    EXPECT_EQ( draw( u"Other", { 5, 5, 5, 20 } ), height );
    EXPECT_EQ( draw( u"Other", { 5, 5, 50, 5 } ), height );
    EXPECT_EQ( font.getRenderCount( ), 1 );
}

TEST_F( GFontTest, CentredAndRightTextLieWhereTheyShould )
{
    font.update( u"16,c" );
    draw( u"ii", { 0, 0, 200, 30 } );
    auto [first, last] = ink( );
    EXPECT_NEAR( ( first + last ) / 2, 100, 4 );
    pixels.assign( pixels.size( ), 0 );
    font.update( u"16,r" );
    draw( u"ii", { 0, 0, 200, 30 } );
    EXPECT_GT( ink( ).second, 190 );
    EXPECT_GT( ink( ).first, 150 );
}

TEST_F( GFontTest, NothingIsDrawnOutsideTheClip )
{
    font.drawText( format, pixels.data( ), u"HHHHHHHHHHHHHHHH", { 0, 0, 200, 30 }, { 20, 0, 60, 60 } );
    EXPECT_GE( ink( ).first, 20 );
    EXPECT_LE( ink( ).second, 60 );
    EXPECT_GT( ink( ).second, 50 );
}

TEST_F( GFontTest, SeveralLinesAreBrokenAtTheWidth )
{
    int width = 0, oneLine = 0, wrapped = 60, lines = 0;
    font.measureText( u"one two three four five six", width, oneLine );
    font.update( u"16,m" );
    font.measureText( u"one two three four five six", wrapped, lines );
    EXPECT_GT( width, 60 );
    EXPECT_LE( wrapped, 60 );
    EXPECT_GE( lines, oneLine * 3 );
    EXPECT_EQ( draw( u"one two three four five six", { 0, 0, 60, 60 } ), lines );
}

TEST_F( GFontTest, AnEmptyTextDrawsNothing )
{
    draw( u"", { 0, 0, 200, 30 } );
    EXPECT_EQ( touched, GRectAccumulator( ) );
    EXPECT_GT( font.getHeight( ), 8 );
}

// ---- Scripts, with a face that is there wherever the tests are.

TEST_F( GFontTest, ARightToLeftTextBeginsAtItsRightEnd )
{
    ASSERT_TRUE( GTextHasFace( u"DejaVu Sans" ) );
    for( const auto& [first, rest] : { std::pair<GWString, GWString>( u"\u05D9", u"\u05DE\u05DE\u05DE" ),
                                       std::pair<GWString, GWString>( u"\u0627", u" \u0633\u0633\u0633" ) } )
    {
        font.update( u"20,,#000000FF,DejaVu Sans" );
        const GString letter = pictureOf( first );
        const GRect its = box( );
        const GString whole = pictureOf( first + rest );
        const int shift = box( ).right - its.right;
        ASSERT_GT( shift, its.width( ) );
        for( int y = 0; y < 40; y++ )
            for( int x = its.left; x < its.right; x++ )
                ASSERT_NEAR( static_cast<unsigned char>( letter[static_cast<size_t>( ( y * 200 + x ) * 4 + 3 )] ),
                             alpha( x + shift, y ), 1 )
                    << "at " << x << ", " << y;
    }
}

TEST_F( GFontTest, MixedDirectionsKeepTheirOrder )
{
    font.update( u"20,,#000000FF,DejaVu Sans" );
    // Latin around Hebrew: the Latin letters stand outside, in their own places.
    const int lead = widthOf( u"ab " );
    pictureOf( u"ab " );
    const GRect latin = box( );
    pictureOf( u"ab \u05D0\u05D1 cd" );
    EXPECT_EQ( box( 0, latin.right ).left, latin.left );
    EXPECT_EQ( box( 0, latin.right ).right, latin.right );
    EXPECT_NEAR( box( ).right, widthOf( u"ab \u05D0\u05D1 cd" ), 2 );
    EXPECT_GT( box( lead, 1000 ).left, lead - 2 );
}

TEST_F( GFontTest, ACombiningMarkChangesNoAdvance )
{
    font.update( u"20,,#000000FF,DejaVu Sans" );
    EXPECT_EQ( widthOf( u"xe\u0301x" ), widthOf( u"xex" ) );
    pictureOf( u"e" );
    const int plain = box( ).top;
    pictureOf( u"e\u0301" );
    EXPECT_LT( box( ).top, plain - 1 ) << "the accent stands above";
}

TEST_F( GFontTest, CharactersBeyondThePlaneAreOne )
{
    font.update( u"20,,#000000FF,DejaVu Sans" );
    const int one = widthOf( u"\U0001F600" );
    EXPECT_GT( one, 8 );
    EXPECT_LT( one, 40 );
    EXPECT_NEAR( widthOf( u"\U0001F600\U0001F600" ), 2 * one, 2 );
    pictureOf( u"\U0001F600" );
    EXPECT_GT( box( ).width( ), 5 );
    // Half of a pair is drawn as something and breaks nothing.
    pictureOf( u"a\xD83D"
               u"b" );
    EXPECT_GT( box( ).width( ), widthOf( u"ab" ) - 3 );
}

TEST_F( GFontTest, ControlCharactersHaveNoLook )
{
    EXPECT_EQ( pictureOf( u"a\x01\x1B\u009Bb" ), pictureOf( u"ab" ) );
    EXPECT_EQ( pictureOf( u"a\tb" ), pictureOf( u"a b" ) );
    for( const GWStringView lineEnd : { u"\n", u"\r\n", u"\r", u"\u2028", u"\u2029", u"\x0B" } )
        EXPECT_EQ( pictureOf( GConcat( u"a", lineEnd, u"b" ) ), pictureOf( u"a b" ) ) << "one line stays one line";
    int width = 100, one = 0, two = 0;
    font.update( u"16,m" );
    font.measureText( u"a", width, one );
    width = 100;
    font.measureText( u"a\u2029b", width, two );
    EXPECT_EQ( two, 2 * one );
}

TEST_F( GFontTest, TheMarksOfForeignTextLookLikeWhatTheyStandFor )
{
    const GString plain = pictureOf( u"$a;(b)/c" );
    EXPECT_EQ( pictureOf( GForeignText( u"$a;(b)/c" ) ), plain );
    EXPECT_EQ( widthOf( GForeignText( u"$a;(b)/c" ) ), widthOf( u"$a;(b)/c" ) );
}

// ---- Cutting and breaking.

TEST_F( GFontTest, WhatIsMeasuredIsDrawn )
{
    font.update( u"16,,#000000FF,DejaVu Sans" );
    for( const GWString text :
         { u"Hill", u"W", u"A longer text, words", u"\u05E9\u05DC\u05D5\u05DD", u"mixed \u05D0\u05D1" } )
    {
        pictureOf( text );
        EXPECT_NEAR( box( ).right, std::min( 200, widthOf( text ) ), 3 ) << GWideToUTF8( text );
    }
}

TEST_F( GFontTest, ACentredLineThatIsTooWideEndsInAnEllipsis )
{
    font.update( u"16,c,#000000FF,DejaVu Sans" );
    draw( u"HHHHHHHHHHHHHHHHHH", { 0, 0, 60, 30 } );
    // Only the three dots stand at its end: nothing above the foot of the letters.
    EXPECT_LE( ink( ).second, 60 );
    EXPECT_GT( box( ink( ).second - 6 ).top, box( 0, 20 ).top + 5 );
}

TEST_F( GFontTest, AnEllipsisStandsWhereTheTextWouldGoOn )
{
    font.update( u"16,e,#000000FF,DejaVu Sans" );
    EXPECT_TRUE( font.endsInEllipsis( ) );
    draw( u"HHHHHHHHHHHHHHHHHH", { 0, 0, 60, 30 } );
    EXPECT_LE( ink( ).second, 60 );
    EXPECT_GT( box( ink( ).second - 6 ).top, box( 0, 20 ).top + 5 ) << "at the right of a left-to-right text";
    pixels.assign( pixels.size( ), 0 );
    draw( GWString( 18, u'\u05D3' ), { 0, 0, 60, 30 } );
    EXPECT_GT( box( 0, box( ).left + 6 ).top, box( 40 ).top + 4 ) << "at the left of a right-to-left text";
    // What has the room is drawn whole, and whole again when there is room again.
    pixels.assign( pixels.size( ), 0 );
    draw( u"HHHHHHHHHHHHHHHHHH", { 0, 0, 200, 30 } );
    EXPECT_GT( ink( ).second, 150 );
    draw( u"HH", { 0, 0, 60, 30 } );
    EXPECT_EQ( font.getRenderCount( ), 4 );
}

TEST_F( GFontTest, AVeryLongWordIsBrokenAnywhere )
{
    font.update( u"16,m,#000000FF,DejaVu Sans" );
    int width = 50, height = 0;
    font.measureText( GWString( 40, u'w' ), width, height );
    EXPECT_LE( width, 50 );
    EXPECT_GT( height, 5 * font.getHeight( ) );
    draw( GWString( 40, u'w' ), { 0, 0, 50, 60 } );
    EXPECT_LE( ink( ).second, 50 );
}

// ---- Keeping.

TEST_F( GFontTest, ManyTextsOfOneFontAreRenderedOnceEach )
{
    for( int round = 0; round < 3; round++ )
        for( int i = 0; i < 40; i++ ) draw( GConcat( u"Buddy ", i ), { round, round, 200, 40 } );
    EXPECT_EQ( font.getRenderCount( ), 40 );
}

TEST_F( GFontTest, ATextThatOnlyMovedOrWasClippedIsNotRenderedAnew )
{
    for( const auto* style : { u"16", u"16,c", u"16,r", u"16,m", u"16,e" } )
    {
        font.update( style );
        const int before = font.getRenderCount( );
        for( int i = 0; i < 20; i++ )
            font.drawText( format, pixels.data( ), u"some words to move about", { i, -i, i + 90, 60 - i },
                           { 0, 0, 100 - 4 * i, 60 - 2 * i } );
        EXPECT_EQ( font.getRenderCount( ), before + 1 ) << GWideToUTF8( style );
    }
}

TEST_F( GFontTest, WhatIsKeptIsBounded )
{
    for( int i = 0; i < 2000; i++ ) draw( GConcat( u"A text of some length, ", i ), { 0, 0, 200, 40 } );
    EXPECT_LE( font.getPictureCount( ), GFont::MAX_PICTURES );
    draw( GWString( 3000, u'W' ), { 0, 0, 200, 40 } );
    EXPECT_EQ( font.getPictureCount( ), 1u ) << "one that is too large for the rest is kept alone";
    const int before = font.getRenderCount( );
    draw( GWString( 3000, u'W' ), { 0, 0, 200, 40 } );
    EXPECT_EQ( font.getRenderCount( ), before );
}

TEST_F( GFontTest, ARepeatedDrawTakesNoMemory )
{
    const GWString one = u"a first text of some length", two = u"a second text of some length";
    const auto both = [&]
    {
        int width = 0, height = 0;
        for( const GWString& text : { std::cref( one ), std::cref( two ) } )
        {
            draw( text, { 0, 0, 200, 40 } );
            font.measureText( text, width, height );
        }
    };
    both( );
    EXPECT_EQ( countAllocations( both ), 0 );
}

// ---- Over any ground.

TEST_F( GFontTest, CoverageIsAlphaOverAnyGround )
{
    font.update( u"20,,#E08040C0,DejaVu Sans" );
    const GString alone = pictureOf( u"Agx" );
    const auto divided = []( int value ) { return ( 2 * value + 255 ) / 510; };
    const int colour[4] = { 0xE0, 0x80, 0x40, 255 };
    // Premultiplied grounds: clear, half, opaque.
    for( const auto& ground : { std::array<int, 4>{ 0, 0, 0, 0 }, { 10, 60, 128, 128 }, { 250, 30, 90, 255 } } )
    {
        for( size_t i = 0; i < pixels.size( ); i++ ) pixels[i] = static_cast<char>( ground[i % 4] );
        draw( u"Agx", { 0, 0, 200, 40 } );
        for( size_t i = 0; i < pixels.size( ); i++ )
        {
            const int coverage = static_cast<unsigned char>( alone[i / 4 * 4 + 3] );
            ASSERT_EQ( static_cast<unsigned char>( pixels[i] ),
                       divided( colour[i % 4] * coverage + ground[i % 4] * ( 255 - coverage ) ) )
                << "byte " << i << " over " << ground[3];
        }
    }
}
