#include "GImagePNGRows.h"
#include "GImageWide.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <libdeflate.h>
#include <memory>

namespace
{
// Packs tiles of a screen as small as the sixth level of zlib does, in half the time.
constexpr int LEVEL = 5;
constexpr int PIXEL = 3;
// What a row of pixels may be written past its end.
constexpr size_t PADDING = 16;

// Filter types as a row's first byte names them.
enum Filter : uint8_t
{
    NONE,
    SUB,
    UP,
    AVERAGE,
    PAETH
};

struct FreeCompressor
{
    void operator( )( libdeflate_compressor* compressor ) const { libdeflate_free_compressor( compressor ); }
};
// Large, so that each thread keeps one.
libdeflate_compressor* compressor( )
{
    thread_local const std::unique_ptr<libdeflate_compressor, FreeCompressor> own(
        libdeflate_alloc_compressor( LEVEL ) );
    return own.get( );
}

#ifdef GIMAGE_WIDE
// Four-byte pixels without their alpha, red first; the pixels done. For rows as short as a tile's the library's own loop takes ten
// times as long.
GIMAGE_AVX2 int dropAlphaWide( bool redFirst, const uint8_t* from, uint8_t* to, int width )
{
    const __m128i order = redFirst ? _mm_setr_epi8( 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1 )
                                   : _mm_setr_epi8( 2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1 );
    int x = 0;
    for( ; x + 4 <= width; x += 4, from += 16, to += 12 )
    {
        const __m128i pixels = _mm_loadu_si128( reinterpret_cast<const __m128i*>( from ) );
        _mm_storeu_si128( reinterpret_cast<__m128i*>( to ), _mm_shuffle_epi8( pixels, order ) );
    }
    return x;
}
#endif

// One row as red, green, blue. Up to PADDING bytes behind it are overwritten.
void takeRow( int type, const GImageRows& from, uint8_t* to )
{
    GImageRows rest = from;
#ifdef GIMAGE_WIDE
    if( ( type == GIT_RGBA32 || type == GIT_BGRA32 ) && GImageHasWide( ) )
    {
        const int done = dropAlphaWide( type == GIT_RGBA32, from.data, to, from.width );
        rest.data += static_cast<ptrdiff_t>( done ) * 4;
        rest.width -= done;
        to += static_cast<ptrdiff_t>( done ) * PIXEL;
        if( rest.width == 0 ) return;
    }
#endif
    GImageConvertRows( type, rest, GIT_RGB24, to, rest.width * PIXEL );
}

int paeth( int left, int above, int corner )
{
    const int byLeft = std::abs( above - corner ), byAbove = std::abs( left - corner );
    const int byCorner = std::abs( left + above - 2 * corner );
    const int upper = byAbove <= byCorner ? above : corner;
    return byLeft <= byAbove && byLeft <= byCorner ? left : upper;
}

int predict( Filter filter, int left, int above, int corner )
{
    switch( filter )
    {
    case SUB: return left;
    case UP: return above;
    case AVERAGE: return ( left + above ) / 2;
    case PAETH: return paeth( left, above, corner );
    default: return 0;
    }
}

// Writes the differences from what a filter predicts; their sum, each taken as a signed byte without its sign.
template <Filter FILTER>
uint32_t apply( const uint8_t* row, const uint8_t* above, int bytes, uint8_t* out )
{
    for( int x = 0; x < PIXEL; x++ ) out[x] = static_cast<uint8_t>( row[x] - predict( FILTER, 0, above[x], 0 ) );
    for( int x = PIXEL; x < bytes; x++ )
        out[x] = static_cast<uint8_t>( row[x] - predict( FILTER, row[x - PIXEL], above[x], above[x - PIXEL] ) );
    uint32_t sum = 0;
    for( int x = 0; x < bytes; x++ ) sum += static_cast<uint32_t>( std::abs( static_cast<int8_t>( out[x] ) ) );
    return sum;
}

// Writes the filter's number and the row under the filter whose sum is least, the first of equals. `trial` is room for a row.
void filterBest( const uint8_t* row, const uint8_t* above, int bytes, uint8_t* out, uint8_t* trial )
{
    using Apply = uint32_t ( * )( const uint8_t*, const uint8_t*, int, uint8_t* );
    constexpr Apply FILTERS[] = { apply<NONE>, apply<SUB>, apply<UP>, apply<AVERAGE>, apply<PAETH> };
    uint32_t least = UINT32_MAX;
    for( uint8_t filter = NONE; filter <= PAETH; filter++ )
    {
        const uint32_t sum = FILTERS[filter]( row, above, bytes, trial );
        if( sum >= least ) continue;
        least = sum;
        out[0] = filter;
        std::memcpy( out + 1, trial, static_cast<size_t>( bytes ) );
    }
}
} // namespace

bool GImagePNGIsFlat( const GImageRows& rows, int bytesPerPixel )
{
    int same = 0, seen = 0;
    const int step = std::max( 1, rows.height / 8 );
    for( int y = 0; y < rows.height; y += step )
    {
        const uint8_t* p = rows.data + static_cast<ptrdiff_t>( y ) * rows.stride;
        for( int x = 1; x < rows.width; x++, p += bytesPerPixel )
            same += std::memcmp( p, p + bytesPerPixel, static_cast<size_t>( bytesPerPixel ) ) == 0;
        seen += rows.width - 1;
    }
    return same * 3 >= seen;
}

const uint8_t* GImagePNGPack( int type, const GImageRows& rows, bool flat, size_t& length )
{
    libdeflate_compressor* const packer = compressor( );
    if( !packer ) return nullptr;
    const int bytes = rows.width * PIXEL;
    const size_t rowBytes = static_cast<size_t>( bytes );
    const size_t size = ( rowBytes + 1 ) * static_cast<size_t>( rows.height );
    const size_t most = libdeflate_zlib_compress_bound( packer, size );
    // The filtered rows, the two rows in work and one on trial, then the stream.
    uint8_t* const filtered = GImageScratch( 3, size + ( rowBytes + PADDING ) * 3 + PADDING + most );
    uint8_t* row = filtered + size + PADDING;
    uint8_t* above = row + rowBytes + PADDING;
    uint8_t* const trial = above + rowBytes + PADDING;
    uint8_t* const stream = trial + rowBytes + PADDING;
    std::memset( above, 0, rowBytes );
    uint8_t* out = filtered;
    GImageRows from{ rows.data, rows.stride, rows.width, 1 };
    for( int y = 0; y < rows.height; y++, from.data += rows.stride, out += rowBytes + 1 )
    {
        if( flat )
        {
            out[0] = NONE;
            takeRow( type, from, out + 1 );
            continue;
        }
        takeRow( type, from, row );
        filterBest( row, above, bytes, out, trial );
        std::swap( row, above );
    }
    length = libdeflate_zlib_compress( packer, filtered, size, stream, most );
    return length > 0 ? stream : nullptr;
}
