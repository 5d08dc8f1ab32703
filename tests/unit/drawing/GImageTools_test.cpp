#include "client/drawing/GImageTools.h"

#include "client/drawing/GImageGDI.h"
#include "image/GImage.h"
#include "support/TestFolder.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{
class GImageToolsTest : public TestFolder
{
protected:
    void SetUp( ) override
    {
        TestFolder::SetUp( );
        instance.reset( GSAFENEW( GInstance, ( u"drawing_test.ini" ) ) );
        for( int i = 0; i < 6 * 4; i++ ) image += GString( 3, static_cast<char>( i + 1 ) );
        GImageTools_instanceWrite( instance.get( ), u"Picture", sheet, image );
    }
    void TearDown( ) override
    {
        instance.reset( ); // It saves into the folder.
        TestFolder::TearDown( );
    }
    // What a source gives, or an empty rectangle that no source can give when there is none.
    GRect read( const GWString& source, int column = 0, int row = 0 )
    {
        GRect rect{ -1, -1, -1, -1 };
        const char* pixels = GImageTools_instanceReadOpen( instance.get( ), source, format, rect, column, row );
        if( !pixels ) return { -1, -1, -1, -1 };
        GImageTools_instanceReadClose( instance.get( ), source );
        return rect;
    }
    const GRect missing{ -1, -1, -1, -1 };
    const GImageFormat sheet{ GIT_RGB24, 6, 4 };
    GImageFormat format;
    GString image;
    std::unique_ptr<GInstance> instance;
};
} // namespace

TEST_F( GImageToolsTest, WhatIsWrittenIsRead )
{
    GRect rect;
    const char* pixels = GImageTools_instanceReadOpen( instance.get( ), u"picture", format, rect );
    ASSERT_TRUE( pixels );
    EXPECT_EQ( GString( pixels, image.size( ) ), image );
    EXPECT_EQ( format, sheet );
    EXPECT_EQ( rect, ( GRect{ 0, 0, 6, 4 } ) );
    GImageTools_instanceReadClose( instance.get( ), u"picture" );
    GRect dirty;
    EXPECT_TRUE( GImageTools_instanceReadDirtyRect( instance.get( ), u"Picture", dirty ) );
    EXPECT_EQ( dirty, ( GRect{ 0, 0, 6, 4 } ) );
}

TEST_F( GImageToolsTest, ASourceMayNameARectangle )
{
    EXPECT_EQ( read( u"Picture(1,1,3,2)" ), ( GRect{ 1, 1, 3, 2 } ) );
    EXPECT_EQ( read( u"Picture(4,2,99,99)" ), ( GRect{ 4, 2, 6, 4 } ) );
    EXPECT_EQ( read( u"Picture(2,2,2,2)" ), ( GRect{ 0, 0, 6, 4 } ) );
}

TEST_F( GImageToolsTest, RectanglesBeyondMeasureAreClipped )
{
    for( const GWString rect :
         { u"(0,0,99999999999999999999,9999999999)", u"(-9999999999,-2147483648,2147483647,2147483647)" } )
        EXPECT_EQ( read( u"Picture" + rect ), read( u"Picture" ) );
    for( const GWString rect : { u"(2147483646,0,2147483647,1)", u"(5,5,-5,-5)", u"(-2147483648,0,-2147483647,1)" } )
        for( const int cell : { 0, 1, 2147483647, -2147483647 } ) read( u"Picture" + rect, cell, cell );
}

TEST_F( GImageToolsTest, ColumnAndRowMoveToACellOfTheSheet )
{
    EXPECT_EQ( read( u"Picture(0,0,2,2)", 1, 1 ), ( GRect{ 2, 2, 4, 4 } ) );
    EXPECT_EQ( read( u"Picture(0,0,2,2)", 2, 0 ), ( GRect{ 4, 0, 6, 2 } ) );
    EXPECT_TRUE( GRectEmpty( read( u"Picture(0,0,2,2)", 9, 0 ) ) );
}

TEST_F( GImageToolsTest, AMissingImageIsNoError )
{
    EXPECT_EQ( read( u"Nobody_Image" ), missing );
    GRect rect;
    EXPECT_FALSE( GImageTools_instanceReadCheck( instance.get( ), u"Nobody_Image", format, rect ) );
    EXPECT_FALSE( GImageTools_instanceCopy( instance.get( ), u"Nobody_Image", u"Other" ) );
    EXPECT_FALSE( GImageTools_instanceReadDirtyRect( instance.get( ), u"Nobody_Image", rect ) );
}

TEST_F( GImageToolsTest, AFileIsLoadedOnceAndKept )
{
    GString png;
    GImageConvert( sheet, image.data( ), { 0, 0, 6, 4 }, GIT_PNG, png );
    ASSERT_TRUE( GFileSave( u"drawing_test.png", png.data( ), static_cast<int64_t>( png.size( ) ) ) );
    EXPECT_EQ( read( u"drawing_test.png(0,0,3,4)" ), ( GRect{ 0, 0, 3, 4 } ) );
    EXPECT_EQ( format, sheet );
    ASSERT_TRUE( GFileDelete( u"drawing_test.png" ) );
    EXPECT_EQ( read( u"drawing_test.png" ), ( GRect{ 0, 0, 6, 4 } ) );
    EXPECT_EQ( instance->getRaw( u"drawing_test.png" ), image );
}

TEST_F( GImageToolsTest, PixelsThatDisagreeWithTheFormatAreNoImage )
{
    instance->setRaw( u"Picture", "short", 5 );
    EXPECT_EQ( read( u"Picture" ), missing );
    instance->set( u"Text", u"no image" );
    EXPECT_EQ( read( u"Text" ), missing );
}

TEST_F( GImageToolsTest, WritingInPlaceKeepsWhatWasThere )
{
    char* pixels = GImageTools_instanceWriteOpen( instance.get( ), u"Picture", sheet );
    EXPECT_EQ( pixels[3], 2 );
    pixels[3] = 77;
    GImageTools_instanceWriteClose( instance.get( ), u"Picture", sheet, { 1, 0, 2, 1 } );
    GRect dirty;
    ASSERT_TRUE( GImageTools_instanceReadDirtyRect( instance.get( ), u"Picture", dirty ) );
    EXPECT_EQ( dirty, ( GRect{ 1, 0, 2, 1 } ) );
    EXPECT_EQ( instance->getRaw( u"Picture" )[3], 77 );
}

TEST_F( GImageToolsTest, ACopyTakesTheRectangleOfItsSource )
{
    ASSERT_TRUE( GImageTools_instanceCopy( instance.get( ), u"Picture(1,1,3,3)", u"Other" ) );
    EXPECT_EQ( read( u"Other" ), ( GRect{ 0, 0, 2, 2 } ) );
    EXPECT_EQ( instance->getRaw( u"Other" )[0], 8 );
}

TEST_F( GImageToolsTest, NullAndEmptyNamesAbort )
{
    GRect rect;
    EXPECT_DEATH( GImageTools_instanceReadOpen( nullptr, u"Picture", format, rect ), "instance && source.size" );
    EXPECT_DEATH( GImageTools_instanceReadOpen( instance.get( ), u"", format, rect ), "instance && source.size" );
    EXPECT_DEATH( GImageTools_instanceReadOpen( instance.get( ), u"(0,0,1,1)", format, rect ), "name.size" );
}

TEST( GImageGDI, ClearsAndDrawsLinesWithBothEnds )
{
    GImageGDI board;
    const GImageFormat format{ GIT_BGRA32, 5, 3 };
    board.resize( format );
    board.clear( u"#000000FF" );
    board.setColor( u"#00FF00" );
    board.drawLine( 0, 1, 4, 1 );
    board.setColor( u"#FF0000" );
    board.drawLine( 0, 0, 9, 6 );
    GImageFormat rgbFormat;
    GString rgb;
    board.convertToRGB( rgbFormat, rgb );
    EXPECT_EQ( rgbFormat, ( GImageFormat{ GIT_RGB24, 5, 3 } ) );
    EXPECT_EQ( rgb.substr( 0, 3 ), GString( "\xFF\0\0", 3 ) );
    EXPECT_EQ( rgb.substr( 5 * 3, 3 ), GString( "\0\xFF\0", 3 ) );
    EXPECT_EQ( rgb.substr( 9 * 3, 3 ), GString( "\0\xFF\0", 3 ) );
    EXPECT_EQ( rgb.substr( 10 * 3, 3 ), GString( 3, 0 ) );
}

TEST( GImageGDI, ASizeThatStaysKeepsThePixels )
{
    GImageGDI board;
    board.resize( { GIT_BGRA32, 2, 2 } );
    board.clear( u"#FFFFFF" );
    const GString before = board.getPixels( );
    board.resize( { GIT_BGRA32, 2, 2 } );
    EXPECT_EQ( board.getPixels( ), before );
    board.resize( { GIT_BGRA32, 3, 2 } );
    EXPECT_EQ( board.getPixels( ), GString( 24, 0 ) );
    const GImageFormat wrong{ GIT_RGB24, 2, 2 };
    EXPECT_DEATH( board.resize( wrong ), "format.type == GIT_BGRA32" );
}
