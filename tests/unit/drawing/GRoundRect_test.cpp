#include "client/drawing/GRoundRect.h"

#include "base/GTypes.h"

#include <gtest/gtest.h>

namespace
{
constexpr int EDGE = 24;

class GRoundRectTest : public testing::Test
{
protected:
    // 0xAARRGGBB as the layer holds it.
    uint32_t at( int x, int y ) const
    {
        const auto* pixel = reinterpret_cast<const uint8_t*>( pixels.data( ) ) + ( y * EDGE + x ) * 4;
        return uint32_t{ pixel[3] } << 24 | uint32_t{ pixel[0] } << 16 | uint32_t{ pixel[1] } << 8 | pixel[2];
    }
    uint32_t alpha( int x, int y ) const { return at( x, y ) >> 24; }

    const GImageFormat format{ GIT_RGBA32, EDGE, EDGE };
    const GRect whole{ 0, 0, EDGE, EDGE };
    GString pixels = GString( static_cast<size_t>( EDGE ) * EDGE * 4, '\0' );
};
} // namespace

TEST_F( GRoundRectTest, CornersAreRoundSmoothAndAlike )
{
    const GRect rect{ 2, 2, 22, 20 };
    EXPECT_EQ( GRoundRectFill( format, pixels.data( ), rect, whole, 6, 0xFF102030 ), rect );
    EXPECT_EQ( at( 12, 10 ), 0xFF102030u );
    EXPECT_EQ( at( 2, 10 ), 0xFF102030u );
    EXPECT_EQ( at( 2, 2 ), 0u );
    EXPECT_GT( alpha( 3, 4 ), 0u );
    EXPECT_LT( alpha( 3, 4 ), 255u );
    for( int y = 0; y < 6; y++ )
        for( int x = 0; x < 6; x++ )
        {
            EXPECT_EQ( at( 2 + x, 2 + y ), at( 21 - x, 2 + y ) );
            EXPECT_EQ( at( 2 + x, 2 + y ), at( 2 + x, 19 - y ) );
        }
}

TEST_F( GRoundRectTest, WithoutARadiusItIsARectangle )
{
    GRoundRectFill( format, pixels.data( ), { 2, 2, 6, 6 }, whole, 0, 0xFFFFFFFF );
    EXPECT_EQ( at( 2, 2 ), 0xFFFFFFFFu );
    EXPECT_EQ( at( 5, 5 ), 0xFFFFFFFFu );
    EXPECT_EQ( at( 6, 5 ), 0u );
}

TEST_F( GRoundRectTest, AHugeRadiusMakesACircleAndATransparentColourIsBlended )
{
    GRoundRectFill( format, pixels.data( ), { 0, 0, 10, 10 }, whole, 1000, 0xFF000000 );
    EXPECT_EQ( at( 0, 0 ), 0u );
    EXPECT_EQ( at( 5, 5 ), 0xFF000000u );
    GRoundRectFill( format, pixels.data( ), { 0, 0, 10, 10 }, whole, 0, 0x80FFFFFF );
    EXPECT_EQ( at( 5, 5 ), 0xFF808080u );
    EXPECT_EQ( at( 0, 0 ), 0x80808080u );
}

TEST_F( GRoundRectTest, AnOutlineLeavesItsInsideAlone )
{
    GRoundRectDraw( format, pixels.data( ), { 2, 2, 22, 22 }, whole, 6, 2, 0xFFFFFFFF );
    EXPECT_EQ( at( 2, 12 ), 0xFFFFFFFFu );
    EXPECT_EQ( at( 3, 12 ), 0xFFFFFFFFu );
    EXPECT_EQ( at( 4, 12 ), 0u );
    EXPECT_EQ( at( 12, 12 ), 0u );
    EXPECT_EQ( at( 2, 2 ), 0u );
}

TEST_F( GRoundRectTest, WhatLiesOutsideIsCut )
{
    EXPECT_EQ( GRoundRectFill( format, pixels.data( ), { -10, -10, 50, 50 }, { 4, 4, 8, 8 }, 3, 0xFFFFFFFF ),
               ( GRect{ 4, 4, 8, 8 } ) );
    EXPECT_EQ( alpha( 3, 4 ), 0u );
    EXPECT_EQ( alpha( 4, 4 ), 255u );
    EXPECT_EQ( GRoundRectFill( format, pixels.data( ), { 30, 30, 50, 50 }, whole, 3, 0xFFFFFFFF ),
               GRectAccumulator( ) );
}
