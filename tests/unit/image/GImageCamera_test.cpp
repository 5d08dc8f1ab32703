// A camera's picture on its way to the codec, beside the same done step by step, and planes with padded rows.
#include "image/GImage.h"

#include "support/CountAllocations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace
{
// Soft waves of brightness and colour, so that another place of a sample shows little and another sample shows much.
GString waves( const GImageFormat& format )
{
    const int bytes = GImageBytesPerPixel( format.type );
    GString out;
    for( int y = 0; y < format.height; ++y )
        for( int x = 0; x < format.width; ++x )
            for( int c = 0; c < bytes; ++c )
            {
                const bool chroma = format.type == GIT_YUY2 && c == 1;
                const double phase = chroma ? ( x & ~1 ) * 0.03 + ( x % 2 ) * 2 : x * 0.04 + c;
                out += static_cast<char>( std::lround( 128 + 80 * std::sin( phase + y * 0.05 ) ) );
            }
    return out;
}

GString stepByStep( const GImageFormat& format, const GString& pixels, const GRect& rect, const GImageFormat& to )
{
    GString crop, planes, scaled;
    const GImageFormat part = { format.type, rect.width( ), rect.height( ) };
    GImageCrop( format, pixels.data( ), rect, crop );
    GImageConvertToIYUY( part, crop.data( ), planes );
    GImageResizeIYUY( { GIT_IYUY, part.width, part.height }, planes.data( ), to, scaled );
    return scaled;
}

int furthest( const GString& a, const GString& b )
{
    int most = 0;
    for( size_t i = 0; i < a.size( ); ++i )
        most = std::max( most, std::abs( static_cast<uint8_t>( a[i] ) - static_cast<uint8_t>( b[i] ) ) );
    return most;
}
} // namespace

TEST( GImageCamera, CutScaledAndPartedIsWhatTheStepsGive )
{
    const GImageFormat targets[] = { { GIT_IYUY, 48, 48 }, { GIT_IYUY, 64, 32 }, { GIT_IYUY, 112, 112 } };
    const GRect rects[] = { { 0, 0, 160, 120 },    { 24, 4, 136, 116 }, { 0, 0, 48, 48 },  { 2, 1, 98, 97 },
                            { 100, 60, 160, 120 }, { 0, 0, 112, 112 },  { 10, 0, 42, 120 } };
    for( const int type : { GIT_RGB24, GIT_RGBA32, GIT_BGR24, GIT_BGRA32, GIT_YUY2 } )
        for( const GImageFormat& to : targets )
            for( const GRect& rect : rects )
            {
                const GImageFormat format = { type, 160, 120 };
                const GString pixels = waves( format );
                GString out = "what was there";
                GImageCropToIYUY( format, pixels.data( ), rect, to, out );
                const GString expected = stepByStep( format, pixels, rect, to );
                ASSERT_EQ( expected.size( ), out.size( ) );
                EXPECT_LE( furthest( expected, out ), 8 )
                    << type << " " << rect.left << "," << rect.top << " " << rect.width( ) << "x" << rect.height( )
                    << " to " << to.width << "x" << to.height;
            }
}

TEST( GImageCamera, PictureOfTheRightSizeIsOnlyParted )
{
    for( const int type : { GIT_RGB24, GIT_YUY2 } )
    {
        const GImageFormat format = { type, 64, 32 };
        const GString pixels = waves( format );
        GString out, expected;
        GImageCropToIYUY( format, pixels.data( ), { 0, 0, 64, 32 }, { GIT_IYUY, 64, 32 }, out );
        GImageConvertToIYUY( format, pixels.data( ), expected );
        EXPECT_EQ( expected, out );
    }
}

TEST( GImageCamera, NothingOutsideTheCropIsSeen )
{
    // Gray inside, the ends of the scale outside.
    for( const int type : { GIT_RGB24, GIT_YUY2 } )
        for( const int edge : { 32, 40, 64, 80, 200 } )
        {
            const GImageFormat format = { type, 256, 256 };
            const GRect rect = { 20, 30, 20 + edge, 30 + edge };
            const int bytes = GImageBytesPerPixel( type );
            GString pixels;
            for( int y = 0; y < 256; ++y )
                for( int x = 0; x < 256; ++x )
                    pixels.append( static_cast<size_t>( bytes ), rect.contains( x, y ) ? '\x80' : '\xFF' );
            GString out;
            GImageCropToIYUY( format, pixels.data( ), rect, { GIT_IYUY, 32, 32 }, out );
            const auto [least, most] = std::minmax_element(
                out.begin( ), out.begin( ) + 1024,
                []( char a, char b ) { return static_cast<uint8_t>( a ) < static_cast<uint8_t>( b ); } );
            EXPECT_EQ( *least, *most ) << type << " " << edge;
            EXPECT_NEAR( type == GIT_YUY2 ? 128 : 126, static_cast<uint8_t>( *most ), 1 );
            EXPECT_EQ( GString( 512, '\x80' ), out.substr( 1024 ) );
        }
}

TEST( GImageCamera, OddPartsStayInsideThePicture )
{
    // Exact copies on the heap, so that a sanitizer sees a read past the end; pairs are taken whole.
    for( const int type : { GIT_RGB24, GIT_YUY2 } )
        for( const GRect& rect : { GRect{ 1, 1, 97, 97 }, GRect{ 3, 0, 98, 99 }, GRect{ 0, 0, 99, 99 },
                                   GRect{ 95, 90, 99, 99 }, GRect{ 0, 98, 99, 99 }, GRect{ 97, 0, 99, 99 } } )
            for( const int edge : { 16, 48, 128 } )
            {
                const GImageFormat format = { type, 99, 99 };
                const GString wave = waves( format );
                const std::vector<char> pixels( wave.begin( ), wave.end( ) );
                if( type == GIT_YUY2 && rect.height( ) < 2 ) continue;
                GString out;
                GImageCropToIYUY( format, pixels.data( ), rect, { GIT_IYUY, edge, edge }, out );
                EXPECT_EQ( static_cast<size_t>( edge * edge * 3 / 2 ), out.size( ) );
            }
}

TEST( GImageCamera, PicturesTakeNothingFromTheHeap )
{
    for( const int type : { GIT_RGB24, GIT_YUY2 } )
        for( const int edge : { 48, 96, 120, 256 } )
        {
            const GImageFormat format = { type, 160, 120 };
            const GString pixels = waves( format );
            GString out;
            const auto crop = [&] {
                GImageCropToIYUY( format, pixels.data( ), { 20, 0, 140, 120 }, { GIT_IYUY, edge, edge }, out );
            };
            crop( );
            EXPECT_EQ( 0, countAllocations( crop ) ) << type << " " << edge;
        }
}

TEST( GImageCamera, PlanesWithPaddedRowsAreThoseWithout )
{
    GString plain( 48 * 32 * 3 / 2, 0 );
    for( size_t i = 0; i < plain.size( ); ++i ) plain[i] = static_cast<char>( i * 7 );
    const uint8_t* from = reinterpret_cast<const uint8_t*>( plain.data( ) );
    std::vector<uint8_t> y( 80 * 32, 0xEE ), u( 40 * 16, 0xEE ), v( 40 * 16, 0xEE );
    for( int row = 0; row < 32; ++row ) std::copy_n( from + row * 48, 48, y.begin( ) + row * 80 );
    for( int row = 0; row < 16; ++row )
    {
        std::copy_n( from + 48 * 32 + row * 24, 24, u.begin( ) + row * 40 );
        std::copy_n( from + 48 * 32 * 5 / 4 + row * 24, 24, v.begin( ) + row * 40 );
    }
    for( const int type : { GIT_RGB24, GIT_RGBA32, GIT_BGR24, GIT_BGRA32 } )
    {
        GImageFormat format{ type, 0, 0 }, expectedFormat{ type, 0, 0 };
        GString out, expected;
        GImageConvertFromPlanes( { y.data( ), u.data( ), v.data( ), 80, 40, 48, 32 }, format, out );
        GImageConvertFromIYUY( { GIT_IYUY, 48, 32 }, plain.data( ), expectedFormat, expected );
        EXPECT_EQ( expected, out ) << type;
        EXPECT_EQ( expectedFormat, format );
    }
}

TEST( GImageCameraDeathTest, TakesOnlyWhatItCanScale )
{
    const GString pixels( 64 * 64 * 3, 0 );
    GString out;
    GImageFormat gray{ GIT_GRAY8, 0, 0 };
    const auto crop = [&]( const GImageFormat& format, const GRect& rect, const GImageFormat& to )
    { GImageCropToIYUY( format, pixels.data( ), rect, to, out ); };
    const GImageFormat rgb{ GIT_RGB24, 64, 64 }, to{ GIT_IYUY, 16, 16 };
    EXPECT_DEATH( crop( rgb, { 0, 0, 0, 16 }, to ), "GRectHasVolume\\( rect \\)" );
    EXPECT_DEATH( crop( rgb, { 0, 0, 65, 16 }, to ), "GRectWithin\\( rect, fromFormat.width, fromFormat.height \\)" );
    EXPECT_DEATH( crop( rgb, { 0, 0, 16, 16 }, { GIT_IYUY, 0, 16 } ), "toFormat.width > 0" );
    EXPECT_DEATH( crop( rgb, { 0, 0, 16, 16 }, { GIT_IYUY, 15, 16 } ), "toFormat.width % 2 == 0" );
    EXPECT_DEATH( crop( rgb, { 0, 0, 16, 16 }, { GIT_RGB24, 16, 16 } ), "toFormat.type == GIT_IYUY" );
    EXPECT_DEATH( crop( { GIT_GRAY8, 64, 64 }, { 0, 0, 16, 16 }, to ), "from #23 to #22" );
    EXPECT_DEATH( crop( { GIT_YUY2, 64, 64 }, { 1, 0, 2, 1 }, to ), "GRectHasVolume\\( whole \\)" );
    EXPECT_DEATH( GImageConvertFromPlanes( { }, gray, out ), "from.y && from.u && from.v" );
    const uint8_t* plane = reinterpret_cast<const uint8_t*>( pixels.data( ) );
    EXPECT_DEATH( GImageConvertFromPlanes( { plane, plane, plane, 16, 8, 16, 16 }, gray, out ), "from #22 to #23" );
}
