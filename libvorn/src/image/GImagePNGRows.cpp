#include "GImagePNGRows.h"

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
    uint8_t* const filtered = GImageScratch( 3, size + rowBytes * 3 + most );
    uint8_t* row = filtered + size;
    uint8_t* above = row + rowBytes;
    uint8_t* const trial = above + rowBytes;
    uint8_t* const stream = trial + rowBytes;
    std::memset( above, 0, rowBytes );
    uint8_t* out = filtered;
    GImageRows from{ rows.data, rows.stride, rows.width, 1 };
    for( int y = 0; y < rows.height; y++, from.data += rows.stride, out += rowBytes + 1 )
    {
        if( flat )
        {
            out[0] = NONE;
            GImageConvertRows( type, from, GIT_RGB24, out + 1, bytes );
            continue;
        }
        GImageConvertRows( type, from, GIT_RGB24, row, bytes );
        filterBest( row, above, bytes, out, trial );
        std::swap( row, above );
    }
    length = libdeflate_zlib_compress( packer, filtered, size, stream, most );
    return length > 0 ? stream : nullptr;
}
