#include "client/drawing/GFont.h"

#include "image/GImage.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
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
    std::pair<int, int> ink( ) const
    {
        int first = format.width, last = 0;
        for( int i = 0; i < format.width * format.height; i++ )
            if( pixels[static_cast<size_t>( i * 4 + 3 )] )
            {
                first = std::min( first, i % format.width );
                last = std::max( last, i % format.width + 1 );
            }
        return { first, last };
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
