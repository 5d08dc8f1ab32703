#include "platform/GText.h"

#include "unit/desktop/DesktopFixture.h"

#include <algorithm>

namespace
{
class GTextTest : public DesktopFixture
{
protected:
    void SetUp( ) override
    {
        DesktopFixture::SetUp( );
        open( { } );
    }
    void TearDown( ) override { GTextClose( text ); }
    void open( const GTextFont& font )
    {
        if( text ) GTextClose( text );
        text = GTextOpen( font );
    }
    int widthOf( const GWString& string )
    {
        int width = 0;
        int height = 0;
        GTextMeasure( text, string, 0, 0, width, height );
        return width;
    }
    // Draws and keeps the columns' greatest coverage.
    int draw( const GWString& string, int flags, int width, int height )
    {
        coverage.assign( static_cast<size_t>( width ) * height, 77 );
        const int result = GTextDraw( text, string, flags, width, height, coverage.data( ), width );
        first = width;
        last = -1;
        for( int x = 0; x < width; ++x )
            for( int y = 0; y < height; ++y )
                if( coverage[static_cast<size_t>( y ) * width + x] > 0 )
                {
                    first = std::min( first, x );
                    last = std::max( last, x );
                }
        return result;
    }
    GText text = nullptr;
    std::vector<uint8_t> coverage;
    int first = 0;
    int last = 0;
};
} // namespace

TEST_F( GTextTest, EmptyTextIsOneLineHigh )
{
    int width = 1;
    int height = 1;
    GTextMeasure( text, u"", 0, 0, width, height );
    EXPECT_EQ( 0, width );
    EXPECT_EQ( GTextGetHeight( text ), height );
    EXPECT_GT( GTextGetHeight( text ), GTextGetAscent( text ) );
}

TEST_F( GTextTest, BlanksAtTheEndCount )
{
    EXPECT_GT( widthOf( u"one  " ), widthOf( u"one" ) );
}

TEST_F( GTextTest, AllPixelsAreWrittenAndTextIsCoverage )
{
    draw( u"Hello", 0, 200, 40 );
    EXPECT_EQ( 0, std::count( coverage.begin( ), coverage.end( ), 77 ) );
    EXPECT_GT( *std::max_element( coverage.begin( ), coverage.end( ) ), 200 );
    EXPECT_EQ( 0, coverage[199] );
    EXPECT_LE( last, widthOf( u"Hello" ) );
}

TEST_F( GTextTest, AlignmentMovesTheText )
{
    draw( u"Hello", 0, 200, 40 );
    const int left = first;
    draw( u"Hello", GTEXT_CENTER, 200, 40 );
    EXPECT_NEAR( 100, ( first + last ) / 2, 3 );
    draw( u"Hello", GTEXT_RIGHT, 200, 40 );
    EXPECT_GT( last, 195 );
    EXPECT_LT( left, 5 );
}

TEST_F( GTextTest, LongLineEndsInAnEllipsis )
{
    const GWString lengthy( 60, u'i' );
    draw( lengthy, GTEXT_END_ELLIPSIS, 80, 40 );
    const std::vector<uint8_t> elided = coverage;
    EXPECT_LT( last, 80 );
    draw( lengthy, 0, 80, 40 );
    EXPECT_NE( elided, coverage );
}

TEST_F( GTextTest, WordsBreakAtTheWidth )
{
    int width = 0;
    int height = 0;
    GTextMeasure( text, u"one two three four", GTEXT_WORDBREAK, widthOf( u"one two" ) + 2, width, height );
    EXPECT_LE( width, widthOf( u"one two" ) + 2 );
    EXPECT_GE( height, 2 * GTextGetHeight( text ) );
    EXPECT_EQ( height, draw( u"one two three four", GTEXT_WORDBREAK, widthOf( u"one two" ) + 2, 20 ) );
}

TEST_F( GTextTest, LineEndsBreakOnlySeveralLines )
{
    int width = 0;
    int height = 0;
    GTextMeasure( text, u"a\r\nb\nc", GTEXT_WORDBREAK, 0, width, height );
    EXPECT_EQ( 3 * GTextGetHeight( text ), height );
    GTextMeasure( text, u"a\r\nb\nc", GTEXT_END_ELLIPSIS, 0, width, height );
    EXPECT_EQ( GTextGetHeight( text ), height );
}

TEST_F( GTextTest, WithoutSmoothingCoverageIsAllOrNothing )
{
    GTextFont font;
    font.antialiased = false;
    open( font );
    draw( u"Curves SOS", 0, 200, 40 );
    EXPECT_TRUE(
        std::all_of( coverage.begin( ), coverage.end( ), []( uint8_t value ) { return value == 0 || value == 255; } ) );
    EXPECT_GE( last, 0 );
}

TEST_F( GTextTest, BoldIsWiderAndUnderlineReachesTheEnd )
{
    const int plain = widthOf( u"wwwww" );
    GTextFont font;
    font.weight = 700;
    font.face = u"DejaVu Sans";
    open( font );
    EXPECT_GT( widthOf( u"wwwww" ), plain );
    font.weight = 400;
    font.underline = true;
    open( font );
    draw( u"a a", 0, 100, 30 );
    const int end = widthOf( u"a a" );
    EXPECT_GE( last, end - 2 );
}

TEST_F( GTextTest, RightToLeftTextIsShapedAndFits )
{
    const GWString hebrew = u"\u05E9\u05DC\u05D5\u05DD";
    draw( hebrew, 0, 200, 40 );
    EXPECT_LT( first, 8 );
    EXPECT_LE( last, widthOf( hebrew ) + 1 );
    EXPECT_GT( last, 10 );
    draw( hebrew, GTEXT_RIGHT, 200, 40 );
    EXPECT_GT( last, 190 );
}

TEST_F( GTextTest, StrangeInputIsHarmless )
{
    draw( GWString( 200000, u'x' ), GTEXT_WORDBREAK, 30, 30 );
    draw( GWString( { 0xD800, 0, 0xFFFF, 0x202E, 0xDC00, 9 } ), GTEXT_END_ELLIPSIS, 30, 30 );
    draw( u"x", GTEXT_CENTER | GTEXT_END_ELLIPSIS, 1, 1 );
    GTextFont font;
    font.size = -5;
    font.weight = 100000;
    open( font );
    EXPECT_GE( GTextGetHeight( text ), 1 );
}

TEST_F( GTextTest, FontFilesAreAddedOrRefused )
{
    EXPECT_FALSE( GTextAddFontFile( u"no-such-font.ttf" ) );
    EXPECT_FALSE( GTextHasFace( u"No Such Face" ) );
    EXPECT_TRUE( GTextHasFace( u"DejaVu Sans" ) );
}
