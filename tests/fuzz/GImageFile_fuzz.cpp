// A picture file of any bytes loads as whole pixels or is refused, by the reader of files and by that of a peer's tiles. A tile that
// loads is packed again and comes back the same.
#include "Fuzz.h"
#include "image/GImage.h"

#include <sanitizer/lsan_interface.h>

namespace
{
constexpr int64_t MOST_PIXELS = 1 << 20;

void requireWhole( const GImageFormat& format, const GString& pixels )
{
    Fuzz::require( format.width > 0 && format.height > 0 );
    Fuzz::require( format.type == GIT_RGB24 || format.type == GIT_RGBA32 );
    Fuzz::require( static_cast<int64_t>( pixels.size( ) ) == GImageSize( format ) );
}

void requireSameAfterPacking( const GImageFormat& format, const GString& pixels )
{
    GString png, again, expected = pixels;
    GImageConvert( format, pixels.data( ), { 0, 0, format.width, format.height }, GIT_PNG, png );
    GImageFormat packed;
    Fuzz::require( GImageLoadPNG( png.data( ), static_cast<int>( png.size( ) ), MOST_PIXELS, packed, again ) );
    if( format.type == GIT_RGBA32 ) GImageConvert( format, pixels.data( ), GIT_RGB24, expected );
    Fuzz::require( packed.type == GIT_RGB24 && again == expected );
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    const std::vector<char> file = Fuzz::Input( data, size ).rest( );
    if( file.empty( ) ) return 0;
    const int length = static_cast<int>( file.size( ) );
    GImageFormat format;
    GString pixels;
    if( GImageLoadPNG( file.data( ), length, MOST_PIXELS, format, pixels ) )
    {
        requireWhole( format, pixels );
        Fuzz::require( int64_t{ format.width } * format.height <= MOST_PIXELS );
        if( pixels.size( ) < 1 << 16 ) requireSameAfterPacking( format, pixels );
    }
    format = GImageFormat( );
    pixels.clear( );
    // The library's own readers leak some bytes of files that they refuse.
    const __lsan::ScopedDisabler leaks;
    if( GImageLoad( file.data( ), length, format, pixels ) ) requireWhole( format, pixels );
    return 0;
}
