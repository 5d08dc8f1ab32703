// Pixel operations beside the libraries that stand for what the machine can do: memcmp, libyuv, pixman and libpng.
#include "Bench.h"

#include "base/GUtil.h"
#include "image/GImage.h"
#include "image/GImageCompare.h"
#include "image/GImageRows.h"

#include <cstdlib>
#include <cstring>
#include <libyuv.h>
#include <libyuv/scale_rgb.h>
#include <pixman.h>
#include <png.h>
#include <random>

namespace
{
constexpr int WIDTH = 1920;
constexpr int HEIGHT = 1080;
constexpr int PIXELS = WIDTH * HEIGHT;
constexpr double MEGAPIXELS = PIXELS * 1e-6;
constexpr int TILE = 48;

uint8_t* bytesOf( GString& text )
{
    return reinterpret_cast<uint8_t*>( text.data( ) );
}
const uint8_t* bytesOf( const GString& text )
{
    return reinterpret_cast<const uint8_t*>( text.data( ) );
}

GString noise( const GImageFormat& format )
{
    std::mt19937 random( 5 );
    GString out( static_cast<size_t>( GImageSize( format ) ), 0 );
    for( char& byte : out ) byte = static_cast<char>( random( ) >> 13 );
    return out;
}

// ---- Comparison.

void compareScreens( Bench::Suite& suite )
{
    const GImageFormat screen{ GIT_BGRA32, WIDTH, HEIGHT };
    const GRect whole{ 0, 0, WIDTH, HEIGHT };
    const GString before = noise( screen ), after = before;
    GRect diff;
    const auto compare = [&]
    { Bench::keep( GImageCompare( screen, before.data( ), whole, screen, after.data( ), whole, diff ) ); };
    suite.rate( "equal compare of a screen", "Mpx/s", MEGAPIXELS, { 0.9, 1.0 }, compare,
                [&] { Bench::keep( std::memcmp( before.data( ), after.data( ), before.size( ) ) ); } );
    suite.allocationsOf( "equal compare of a screen", 0, compare );
}

// ---- Layouts.

// Planes inside a buffer. Both sides of a case write to the same place, since where memory lies tells in its speed.
struct Planes
{
    Planes( GString& planes, int width, int height )
        : y( bytesOf( planes ) ), u( y + static_cast<ptrdiff_t>( width ) * height ),
          v( u + static_cast<ptrdiff_t>( width ) * height / 4 )
    {
    }
    uint8_t* y;
    uint8_t* u;
    uint8_t* v;
};
GString planesOf( int width, int height )
{
    return GString( static_cast<size_t>( GImageSizeIYUY( width, height ) ), 90 );
}

void convertToPlanar( Bench::Suite& suite )
{
    for( const int type : { GIT_RGB24, GIT_YUY2 } )
    {
        const GImageFormat format{ type, WIDTH, HEIGHT };
        const GString image = noise( format );
        GString out = planesOf( WIDTH, HEIGHT );
        const Planes to( out, WIDTH, HEIGHT );
        const int stride = WIDTH * GImageBytesPerPixel( type );
        const auto convert = [&] { GImageConvertToIYUY( format, image.data( ), out ); };
        const auto library = type == GIT_RGB24 ? libyuv::RAWToI420 : libyuv::YUY2ToI420;
        const char* name = type == GIT_RGB24 ? "RGB24 to I420" : "YUY2 to I420";
        suite.rate(
            name, "Mpx/s", MEGAPIXELS, { 0.9, 1.0 }, convert,
            [&]
            { library( bytesOf( image ), stride, to.y, WIDTH, to.u, WIDTH / 2, to.v, WIDTH / 2, WIDTH, HEIGHT ); } );
        suite.allocationsOf( name, 0, convert );
    }
}

void convertFromPlanar( Bench::Suite& suite )
{
    GString image = planesOf( WIDTH, HEIGHT );
    const Planes from( image, WIDTH, HEIGHT );
    GImageFormat format{ GIT_RGB24, 0, 0 };
    GString out( static_cast<size_t>( PIXELS * 3 ), 0 );
    const auto convert = [&] { GImageConvertFromIYUY( { GIT_IYUY, WIDTH, HEIGHT }, image.data( ), format, out ); };
    suite.rate( "I420 to RGB24", "Mpx/s", MEGAPIXELS, { 0.9, 1.0 }, convert,
                [&]
                {
                    libyuv::I420ToRAW( from.y, WIDTH, from.u, WIDTH / 2, from.v, WIDTH / 2, bytesOf( out ), WIDTH * 3,
                                       WIDTH, HEIGHT );
                } );
    suite.allocationsOf( "I420 to RGB24", 0, convert );
}

void convertToGray( Bench::Suite& suite )
{
    const GImageFormat rgb{ GIT_RGB24, WIDTH, HEIGHT }, bgra{ GIT_BGRA32, WIDTH, HEIGHT };
    const GString three = noise( rgb ), four = noise( bgra );
    GString out( PIXELS, 0 ), out4( PIXELS, 0 );
    const auto gray = [&] { GImageConvert( rgb, three.data( ), GIT_GRAY8, out ); };
    suite.rate( "RGB24 to GRAY8", "Mpx/s", MEGAPIXELS, { 0.9, 1.0 }, gray,
                [&] { libyuv::RAWToJ400( bytesOf( three ), WIDTH * 3, bytesOf( out ), WIDTH, WIDTH, HEIGHT ); } );
    suite.allocationsOf( "RGB24 to GRAY8", 0, gray );
    const auto gray4 = [&] { GImageConvert( bgra, four.data( ), { 0, 0, WIDTH, HEIGHT }, GIT_GRAY4, out4 ); };
    suite.rate( "BGRA32 to GRAY4", "Mpx/s", MEGAPIXELS, { 0.8, 1.0 }, gray4,
                [&] { libyuv::ARGBToJ400( bytesOf( four ), WIDTH * 4, bytesOf( out ), WIDTH, WIDTH, HEIGHT ); } );
    suite.allocationsOf( "BGRA32 to GRAY4", 0, gray4 );
}

// ---- Scaling of a camera's picture to what is sent.

void scalePlanar( Bench::Suite& suite )
{
    GString image = planesOf( 640, 480 ), out = planesOf( TILE, TILE );
    const Planes from( image, 640, 480 ), to( out, TILE, TILE );
    const auto scale = [&] {
        GImageResizeIYUY( { GIT_IYUY, 640, 480 }, image.data( ), { GIT_IYUY, TILE, TILE }, out );
    };
    suite.time( "640x480 to 48x48, I420", "us", { 1.1, 0.9 }, scale,
                [&]
                {
                    libyuv::I420Scale( from.y, 640, from.u, 320, from.v, 320, 640, 480, to.y, TILE, to.u, TILE / 2,
                                       to.v, TILE / 2, TILE, TILE, libyuv::kFilterBox );
                } );
    suite.allocationsOf( "640x480 to 48x48, I420", 0, scale );
}

// The library scales packed pixels by four samples each, whatever filter it is told. Of three channels that costs it a pass over all
// pixels; four channels stand beside its mean of areas over as many planes.
void scalePacked( Bench::Suite& suite )
{
    for( const int type : { GIT_RGB24, GIT_BGRA32 } )
    {
        const GImageFormat format{ type, 640, 480 };
        const GString image = noise( format );
        GString out, there( static_cast<size_t>( TILE * TILE * 4 ), 0 );
        const auto scale = [&] { GImageResize( format, image.data( ), { type, TILE, TILE }, out ); };
        const std::string name = type == GIT_RGB24 ? "640x480 to 48x48, RGB24" : "640x480 to 48x48, BGRA32";
        const auto library = [&]
        {
            if( type == GIT_RGB24 )
            {
                libyuv::RGBScale( bytesOf( image ), 640 * 3, 640, 480, bytesOf( there ), TILE * 3, TILE, TILE,
                                  libyuv::kFilterBox );
                return;
            }
            for( int plane = 0; plane < 4; plane++ )
                libyuv::ScalePlane( bytesOf( image ) + plane * 640 * 480, 640, 640, 480,
                                    bytesOf( there ) + plane * TILE * TILE, TILE, TILE, TILE, libyuv::kFilterBox );
        };
        suite.time( name, "us", { 1.1, 0.9 }, scale, library );
        suite.allocationsOf( name, 0, scale );
    }
}

// A skin's picture stretched over a window.
void stretch( Bench::Suite& suite )
{
    const GImageFormat from{ GIT_BGRA32, 400, 300 }, to{ GIT_BGRA32, 800, 600 };
    const GString image = noise( from );
    GString out( static_cast<size_t>( GImageSize( to ) ), 0 );
    suite.rate(
        "400x300 to 800x600, BGRA32", "Mpx/s", 0.48, { 0.35, 1.0 },
        [&] { GImageResize( from, image.data( ), to, out ); },
        [&]
        {
            libyuv::ARGBScale( bytesOf( image ), 400 * 4, 400, 300, bytesOf( out ), 800 * 4, 800, 600,
                               libyuv::kFilterBilinear );
        } );
}

// ---- Composition of a picture of random alpha over a window's layer.

void compose( Bench::Suite& suite )
{
    const GImageFormat format{ GIT_BGRA32, WIDTH, HEIGHT };
    const GRect whole{ 0, 0, WIDTH, HEIGHT };
    const GString picture = noise( format );
    GString layer = noise( format );
    GString& there = layer;
    const auto over = [&]( int flags )
    { GImageCopy( format, picture.data( ), whole, format, layer.data( ), whole, flags ); };
    suite.rate(
        "composition over a layer", "Mpx/s", MEGAPIXELS, { 0.9, 1.1 }, [&] { over( GIC_PREMULTIPLIED ); },
        [&]
        {
            libyuv::ARGBBlend( bytesOf( picture ), WIDTH * 4, bytesOf( there ), WIDTH * 4, bytesOf( there ), WIDTH * 4,
                               WIDTH, HEIGHT );
        } );
    pixman_image_t* source =
        pixman_image_create_bits( PIXMAN_a8r8g8b8, WIDTH, HEIGHT,
                                  reinterpret_cast<uint32_t*>( const_cast<char*>( picture.data( ) ) ), WIDTH * 4 );
    pixman_image_t* target = pixman_image_create_bits( PIXMAN_a8r8g8b8, WIDTH, HEIGHT,
                                                       reinterpret_cast<uint32_t*>( there.data( ) ), WIDTH * 4 );
    suite.rate(
        "composition over a layer, pixman", "Mpx/s", MEGAPIXELS, { 1.0, 2.0 }, [&] { over( GIC_PREMULTIPLIED ); },
        [&] { pixman_image_composite32( PIXMAN_OP_OVER, source, nullptr, target, 0, 0, 0, 0, 0, 0, WIDTH, HEIGHT ); } );
    pixman_image_unref( source );
    pixman_image_unref( target );
    suite.rate(
        "opaque copy", "Mpx/s", MEGAPIXELS, { 0.9, 1.0 }, [&] { over( GIC_OPAQUE ); },
        [&] { std::memcpy( there.data( ), picture.data( ), there.size( ) ); } );
    for( const int flags : { 0, +GIC_PREMULTIPLIED, +GIC_OPAQUE, GIC_PREMULTIPLIED | GIC_OPAQUE } )
        suite.allocationsOf( "copy with flags " + std::to_string( flags ), 0, [&] { over( flags ); } );
}

// ---- Tiles of a screen of text.

// libpng as it comes, at the level that tiles are written with.
void writePlainly( const GImageRows& rows, GString& out )
{
    png_structp png = png_create_write_struct( PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr );
    png_infop info = png_create_info_struct( png );
    const auto append = []( png_structp writer, png_bytep data, png_size_t length )
    { static_cast<GString*>( png_get_io_ptr( writer ) )->append( reinterpret_cast<const char*>( data ), length ); };
    out.clear( );
    png_set_write_fn( png, &out, append, []( png_structp ) {} );
    png_set_compression_level( png, 6 );
    png_set_IHDR( png, info, static_cast<png_uint_32>( rows.width ), static_cast<png_uint_32>( rows.height ), 8,
                  PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT );
    png_write_info( png, info );
    png_set_filler( png, 0, PNG_FILLER_AFTER );
    png_set_bgr( png );
    for( int y = 0; y < rows.height; y++ )
        png_write_row( png, const_cast<png_bytep>( rows.data + static_cast<ptrdiff_t>( y ) * rows.stride ) );
    png_write_end( png, info );
    png_destroy_write_struct( &png, &info );
}

void encodeTiles( Bench::Suite& suite )
{
    GString file, pixels, screen;
    GImageFormat format;
    if( !GFileLoad( u"" VELMORA_BENCH_DATA "/text.png", file ) ||
        !GImageLoad( file.data( ), static_cast<int>( file.size( ) ), format, pixels ) )
        std::abort( );
    GImageConvert( format, pixels.data( ), GIT_RGBA32, screen );
    format.type = GIT_RGBA32;
    GImageConvert( format, screen.data( ), GIT_BGRA32 );

    std::vector<GRect> tiles;
    for( int y = 0; y + TILE <= format.height; y += TILE )
        for( int x = 0; x + TILE <= format.width; x += TILE ) tiles.push_back( { x, y, x + TILE, y + TILE } );
    GString out;
    size_t next = 0, bytes = 0, plainBytes = 0;
    const auto encode = [&]( const GRect& tile ) { GImageConvert( format, screen.data( ), tile, GIT_PNG, out ); };
    const auto encodePlainly = [&]( const GRect& tile )
    { writePlainly( GImageRowsOf( format, screen.data( ), tile ), out ); };
    for( const GRect& tile : tiles )
    {
        encode( tile );
        bytes += out.size( );
        encodePlainly( tile );
        plainBytes += out.size( );
    }
    const double count = static_cast<double>( tiles.size( ) );
    suite.time(
        "PNG tile of text", "us", { 0.7, 0.35 }, [&] { encode( tiles[next++ % tiles.size( )] ); },
        [&] { encodePlainly( tiles[next++ % tiles.size( )] ); } );
    suite.size( "PNG tile of text, size", "bytes", { 0.85, 0.82 }, static_cast<double>( bytes ) / count,
                static_cast<double>( plainBytes ) / count );
}
} // namespace

int main( int argc, char** argv )
{
    Bench::Suite suite( "image", argc, argv );
    compareScreens( suite );
    convertToPlanar( suite );
    convertFromPlanar( suite );
    convertToGray( suite );
    scalePlanar( suite );
    scalePacked( suite );
    stretch( suite );
    compose( suite );
    encodeTiles( suite );
    return suite.finish( );
}
