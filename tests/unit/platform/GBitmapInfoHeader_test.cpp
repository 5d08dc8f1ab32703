#include "platform/common/GBitmapInfoHeader.h"

#include "support/TestLog.h"

#include <gtest/gtest.h>

namespace
{
// The image type of a layout; 0 when it is refused.
int typeOf( int bitCount, uint32_t compression, uint32_t red = 0, uint32_t green = 0 )
{
    GImageFormat format;
    bool bottomUp = false;
    return GImageTools_set( format, bottomUp, { 4, -4, bitCount, compression, red, green } ) ? format.type : 0;
}
} // namespace

TEST( GBitmapInfoHeader, EachLayoutHasItsType )
{
    EXPECT_EQ( typeOf( 16, GBC_YUY2 ), GIT_YUY2 );
    EXPECT_EQ( typeOf( 16, GBC_BITFIELDS, 0xF800, 0x07E0 ), GIT_RGB565 );
    EXPECT_EQ( typeOf( 16, GBC_BITFIELDS, 0x7C00, 0x03E0 ), GIT_RGB555 );
    EXPECT_EQ( typeOf( 16, GBC_RGB ), GIT_RGB555 );
    EXPECT_EQ( typeOf( 24, GBC_RGB ), GIT_RGB24 );
    EXPECT_EQ( typeOf( 24, GBC_BITFIELDS, 0x0000FF, 0x00FF00 ), GIT_RGB24 );
    EXPECT_EQ( typeOf( 24, GBC_BITFIELDS, 0xFF0000, 0x00FF00 ), GIT_BGR24 );
    EXPECT_EQ( typeOf( 32, GBC_RGB ), GIT_RGBA32 );
    EXPECT_EQ( typeOf( 32, GBC_BITFIELDS, 0xFF0000, 0x00FF00 ), GIT_BGRA32 );
}

TEST( GBitmapInfoHeader, OtherLayoutsAreReported )
{
    TestLog::expect( "ERROR Unsupported bitdepth: 8" );
    TestLog::expect( "ERROR Unsupported compression: 808596553" );
    TestLog::expect( "ERROR Unsupported bitfields: 63488, 992" );
    EXPECT_EQ( typeOf( 8, GBC_RGB ), 0 );
    EXPECT_EQ( typeOf( 12, 0x30323449 ), 0 );
    EXPECT_EQ( typeOf( 16, GBC_BITFIELDS, 0xF800, 0x03E0 ), 0 );
}

TEST( GBitmapInfoHeader, SignOfTheHeightTellsWhereTheRowsBegin )
{
    GImageFormat format;
    bool bottomUp = false;
    ASSERT_TRUE( GImageTools_set( format, bottomUp, { 8, 6, 24, GBC_RGB, 0, 0 } ) );
    EXPECT_TRUE( bottomUp );
    EXPECT_EQ( format, ( GImageFormat{ GIT_RGB24, 8, 6 } ) );
    ASSERT_TRUE( GImageTools_set( format, bottomUp, { 8, -6, 24, GBC_RGB, 0, 0 } ) );
    EXPECT_FALSE( bottomUp );
    EXPECT_EQ( format, ( GImageFormat{ GIT_RGB24, 8, 6 } ) );
}

TEST( GBitmapInfoHeader, SizesThatNoPictureHasAreRefused )
{
    TestLog::expect( "WARNING Unsupported image size " );
    GImageFormat format{ GIT_YUY2, 1, 2 };
    bool bottomUp = true;
    for( const auto& [width, height] : std::vector<std::pair<int, int>>{ { 0, 8 },
                                                                         { 8, 0 },
                                                                         { -8, 8 },
                                                                         { 16385, 8 },
                                                                         { 8, 16385 },
                                                                         { 8, -16385 },
                                                                         { 8, INT32_MIN },
                                                                         { INT32_MAX, 8 } } )
        EXPECT_FALSE( GImageTools_set( format, bottomUp, { width, height, 24, GBC_RGB, 0, 0 } ) );
    EXPECT_EQ( format, ( GImageFormat{ GIT_YUY2, 1, 2 } ) );
    EXPECT_TRUE( bottomUp );
}
