#include "libvorn/src/platform/window/GLayer.h"

#include "base/GTypes.h"

#include <gtest/gtest.h>

namespace
{
GString layerOf( const std::vector<std::string>& rows )
{
    GString pixels;
    for( const std::string& row : rows )
        for( const char c : row ) pixels += GString( 3, '\x10' ) + ( c == '#' ? '\xFF' : c == '+' ? '\x40' : '\0' );
    return pixels;
}
} // namespace

TEST( GLayer, RedAndBlueChangePlaces )
{
    uint32_t target = 0;
    GLayerCopy( "\x11\x22\x33\x44", &target, 1, { 0, 0, 1, 1 }, 255 );
    EXPECT_EQ( 0x44112233u, target );
}

TEST( GLayer, ConstantAlphaScalesEveryChannel )
{
    uint32_t target[2] = { };
    GLayerCopy( "\xFF\x80\x00\xFF\x10\x20\x30\x40", target, 2, { 0, 0, 2, 1 }, 128 );
    EXPECT_EQ( 0x80804000u, target[0] );
    EXPECT_EQ( 0x20081018u, target[1] );
    GLayerCopy( "\xFF\x80\x00\xFF", target, 1, { 0, 0, 1, 1 }, 0 );
    EXPECT_EQ( 0u, target[0] );
}

TEST( GLayer, APartIsCopiedAndNothingBesideIt )
{
    std::vector<uint32_t> target( 6, 7 );
    const GString layer = layerOf( { "###", "###" } );
    GLayerCopy( layer.data( ), target.data( ), 3, { 1, 1, 3, 2 }, 255 );
    EXPECT_EQ( ( std::vector<uint32_t>{ 7, 7, 7, 7, 0xFF101010, 0xFF101010 } ), target );
}

TEST( GLayer, ACopyTellsWhetherTheShapesStay )
{
    std::vector<uint32_t> target( 2, 0 );
    const auto copy = [&]( const std::string& row ) {
        return GLayerCopy( layerOf( { row } ).data( ), target.data( ), 2, { 0, 0, 2, 1 }, 255 );
    };
    EXPECT_TRUE( copy( ".." ) );
    EXPECT_FALSE( copy( ".+" ) ); // It takes clicks now,
    EXPECT_TRUE( copy( ".+" ) );
    EXPECT_FALSE( copy( ".#" ) ); // and now it shows without a compositor.
    EXPECT_FALSE( copy( "##" ) );
    EXPECT_FALSE( copy( "#+" ) );
    EXPECT_FALSE( copy( "#." ) );
    for( const auto& [from, to] : { std::pair{ 1, 127 }, { 128, 255 }, { 129, 128 } } )
    {
        const GString before = GString( 3, '\0' ) + static_cast<char>( from );
        const GString after = GString( 3, '\0' ) + static_cast<char>( to );
        GLayerCopy( before.data( ), target.data( ), 1, { 0, 0, 1, 1 }, 255 );
        EXPECT_TRUE( GLayerCopy( after.data( ), target.data( ), 1, { 0, 0, 1, 1 }, 255 ) ) << from << " to " << to;
    }
}

TEST( GLayer, EqualRowsAreOneBand )
{
    std::vector<GRect> bands;
    GLayerFindBands( layerOf( { "..##", "..##", "#..#", "...." } ).data( ), 4, 4, 128, bands );
    const std::vector<GRect> expected = { { 2, 0, 4, 2 }, { 0, 2, 1, 3 }, { 3, 2, 4, 3 } };
    EXPECT_EQ( expected, bands );
}

TEST( GLayer, ThresholdDecides )
{
    std::vector<GRect> bands;
    const GString layer = layerOf( { "+#" } );
    GLayerFindBands( layer.data( ), 2, 1, 1, bands );
    EXPECT_EQ( ( std::vector<GRect>{ { 0, 0, 2, 1 } } ), bands );
    GLayerFindBands( layer.data( ), 2, 1, 128, bands );
    EXPECT_EQ( ( std::vector<GRect>{ { 1, 0, 2, 1 } } ), bands );
    GLayerFindBands( layerOf( { ".." } ).data( ), 2, 1, 1, bands );
    EXPECT_TRUE( bands.empty( ) );
}

TEST( GLayer, NoiseIsBounded )
{
    const int size = 1000;
    std::vector<GRect> bands;
    GString pixels( static_cast<size_t>( size ) * size * 4, '\0' );
    for( int i = 0; i < size * size; ++i ) pixels[4 * i + 3] = ( i + i / size ) % 2 ? '\xFF' : '\0';
    GLayerFindBands( pixels.data( ), size, size, 1, bands );
    EXPECT_LT( bands.size( ), 12000u );
    EXPECT_EQ( size, bands.back( ).bottom );
}
