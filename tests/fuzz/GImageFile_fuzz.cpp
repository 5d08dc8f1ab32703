// A picture file of any bytes loads as whole pixels or is refused. Only the formats that skins and cameras bring are looked at: the
// library's readers of rarer ones have faults of their own, and no file of a peer is decoded by it.
#include "Fuzz.h"
#include "image/GImage.h"

#include <sanitizer/lsan_interface.h>

namespace
{
bool isCommon( std::string_view file )
{
    constexpr std::string_view BEGINS[] = { "\x89PNG", "\xFF\xD8\xFF", "GIF8", "BM" };
    return std::any_of( std::begin( BEGINS ), std::end( BEGINS ),
                        [file]( std::string_view begin ) { return file.starts_with( begin ); } );
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    const std::vector<char> file = Fuzz::Input( data, size ).rest( );
    if( file.empty( ) ) return 0;
    const int length = static_cast<int>( file.size( ) );
    constexpr int64_t MOST_PIXELS = 1 << 20;
    GImageFormat format;
    GString pixels;
    if( GImageLoadPNG( file.data( ), length, MOST_PIXELS, format, pixels ) )
    {
        Fuzz::require( int64_t{ format.width } * format.height <= MOST_PIXELS );
        Fuzz::require( static_cast<int64_t>( pixels.size( ) ) == GImageSize( format ) );
    }
    if( !isCommon( { file.data( ), file.size( ) } ) ) return 0;
    format = GImageFormat( );
    pixels.clear( );
    // The library's own readers leak some bytes of files that they refuse.
    const __lsan::ScopedDisabler leaks;
    if( GImageLoad( file.data( ), length, format, pixels ) )
        Fuzz::require( static_cast<int64_t>( pixels.size( ) ) == GImageSize( format ) );
    return 0;
}
