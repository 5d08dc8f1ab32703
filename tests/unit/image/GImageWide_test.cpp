// The loops for wide registers give the same bytes as the plain ones, whatever the width and the place of a row.
#include "image/GImage.h"
#include "libvorn/src/image/GImageWide.h"

#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <random>

namespace
{
GString noise( size_t size, unsigned seed )
{
    std::mt19937 random( seed );
    GString out( size, 0 );
    for( char& byte : out ) byte = static_cast<char>( random( ) >> 11 );
    return out;
}

// What `work` gives with and without wide registers.
template <typename Work>
void expectSame( Work work, const std::string& what )
{
    GImageAllowWide( false );
    const GString plain = work( );
    GImageAllowWide( true );
    EXPECT_EQ( work( ), plain ) << what;
}
} // namespace

TEST( GImageWide, CanBeTurnedOff )
{
    GImageAllowWide( false );
    EXPECT_FALSE( GImageHasWide( ) );
    GImageAllowWide( true );
}

TEST( GImageWide, CompositionIsTheSame )
{
    // Runs of clear and of opaque pixels in either picture, and all alphas between.
    constexpr int WIDTH = 1021;
    GString source = noise( WIDTH * 4, 1 ), layer = noise( WIDTH * 4, 2 );
    for( size_t i = 0; i < WIDTH; i++ )
    {
        if( i / 24 % 4 == 1 ) source[i * 4 + 3] = 0;
        if( i / 24 % 4 == 2 ) source[i * 4 + 3] = static_cast<char>( 255 );
        if( i / 100 % 3 == 1 ) layer[i * 4 + 3] = 0;
        if( i / 100 % 3 == 2 ) layer[i * 4 + 3] = static_cast<char>( 255 );
    }
    const GImageFormat format{ GIT_BGRA32, WIDTH, 1 };
    for( const int flags : { 0, +GIC_PREMULTIPLIED, +GIC_OPAQUE, GIC_OPAQUE | GIC_PREMULTIPLIED } )
    {
        const auto copy = [&]
        {
            GString out = layer;
            GImageCopy( format, source.data( ), { 0, 0, WIDTH, 1 }, format, out.data( ), { 0, 0, WIDTH, 1 }, flags );
            return out;
        };
        expectSame( copy, "flags " + std::to_string( flags ) );
    }
}

TEST( GImageWide, StraightCompositionIsTheSameForEveryPairOfAlphas )
{
    const GImageFormat format{ GIT_RGBA32, 256, 256 };
    const GRect whole{ 0, 0, 256, 256 };
    for( unsigned round = 0; round < 20; round++ )
    {
        GString source = noise( 256 * 256 * 4, round ), layer = noise( 256 * 256 * 4, round + 100 );
        for( size_t i = 0; i < 256 * 256; i++ )
        {
            source[i * 4 + 3] = static_cast<char>( i / 256 );
            layer[i * 4 + 3] = static_cast<char>( i % 256 );
            if( round == 0 ) source[i * 4] = layer[i * 4] = static_cast<char>( 255 );
        }
        const auto copy = [&]
        {
            GString out = layer;
            GImageCopy( format, source.data( ), whole, format, out.data( ), whole, 0 );
            return out;
        };
        expectSame( copy, std::to_string( round ) );
    }
}

TEST( GImageWide, TilesArePackedTheSame )
{
    for( const int type : { GIT_RGBA32, GIT_BGRA32 } )
        for( int width = 1; width < 50; width++ )
        {
            const GImageFormat format{ type, width, 9 };
            const GString image = noise( static_cast<size_t>( GImageSize( format ) ), static_cast<unsigned>( width ) );
            const auto encode = [&]
            {
                GString out;
                GImageConvert( format, image.data( ), { 0, 0, width, 9 }, GIT_PNG, out );
                return out;
            };
            expectSame( encode, std::to_string( type ) + " " + std::to_string( width ) );
        }
}

TEST( GImageWide, InterpolationIsTheSame )
{
    std::mt19937 random( 8 );
    const auto upTo = [&random]( int most )
    { return 1 + static_cast<int>( random( ) % static_cast<unsigned>( most ) ); };
    for( const int type : { GIT_RGB24, GIT_BGRA32 } )
        for( int round = 0; round < 200; round++ )
        {
            const GImageFormat from{ type, upTo( 40 ), upTo( 40 ) }, to{ type, upTo( 90 ), 40 + upTo( 50 ) };
            const GString image = noise( static_cast<size_t>( GImageSize( from ) ), static_cast<unsigned>( round ) );
            const auto resize = [&]
            {
                GString out;
                GImageResize( from, image.data( ), to, out );
                return out;
            };
            expectSame( resize, std::to_string( type ) + " " + std::to_string( round ) );
        }
}

TEST( GImageWide, ScalingDownIsTheSame )
{
    std::mt19937 random( 9 );
    const auto upTo = [&random]( int most )
    { return 1 + static_cast<int>( random( ) % static_cast<unsigned>( most ) ); };
    for( const int type : { GIT_GRAY8, GIT_RGB24, GIT_BGRA32 } )
        for( int round = 0; round < 200; round++ )
        {
            const GImageFormat from{ type, 1 + upTo( 300 ), 1 + upTo( round % 10 ? 60 : 600 ) };
            const GImageFormat to{ type, round % 7 ? upTo( from.width / 2 ) : from.width, upTo( from.height / 2 ) };
            const GString image = noise( static_cast<size_t>( GImageSize( from ) ), static_cast<unsigned>( round ) );
            const auto resize = [&]
            {
                GString out;
                GImageResize( from, image.data( ), to, out );
                return out;
            };
            expectSame( resize, std::to_string( type ) + " " + std::to_string( round ) );
        }
}

TEST( GImageWide, Gray4IsTheSame )
{
    for( const int type : { GIT_BGRA32, GIT_BGR24, GIT_RGB24, GIT_RGB555 } )
        for( int width = 1; width < 140; width++ )
        {
            const GImageFormat format{ type, width + 3, 4 };
            const GString image = noise( static_cast<size_t>( GImageSize( format ) ), static_cast<unsigned>( width ) );
            const auto encode = [&]
            {
                GString out;
                GImageConvert( format, image.data( ), { 2, 1, 2 + width, 4 }, GIT_GRAY4, out );
                return out;
            };
            expectSame( encode, std::to_string( type ) + " " + std::to_string( width ) );
        }
    const GImageFormat wide{ GIT_RGB24, 5003, 2 };
    const GString image = noise( static_cast<size_t>( GImageSize( wide ) ), 1 );
    const auto encode = [&]
    {
        GString out;
        GImageConvert( wide, image.data( ), GIT_GRAY4, out );
        return out;
    };
    expectSame( encode, "pieces" );
}

TEST( GImageWide, Gray4KeepsTheRuleForEveryColour )
{
    GString row( 256 * 4, 0 ), out;
    for( int green = 0; green < 256; green++ )
        for( int red = 0; red < 256; red++ )
        {
            for( int blue = 0; blue < 256; blue++ )
            {
                char* p = row.data( ) + blue * 4;
                p[0] = static_cast<char>( blue );
                p[1] = static_cast<char>( green );
                p[2] = static_cast<char>( red );
                p[3] = static_cast<char>( red + green );
            }
            GImageConvert( { GIT_BGRA32, 256, 1 }, row.data( ), { 0, 0, 256, 1 }, GIT_GRAY4, out );
            for( int blue = 0; blue < 256; blue += 2 )
            {
                const int first = ( 299 * red + 587 * green + 114 * blue ) / 1000 >> 4;
                const int second = ( 299 * red + 587 * green + 114 * ( blue + 1 ) ) / 1000 >> 4;
                ASSERT_EQ( static_cast<unsigned char>( out[static_cast<size_t>( blue / 2 )] ), first << 4 | second )
                    << red << " " << green << " " << blue;
            }
        }
}
