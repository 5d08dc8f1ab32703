#include "GImageRows.h"

#include <cstring>

namespace
{
// The top four bits of (299 * red + 587 * green + 114 * blue) / 1000, that is the sum over 16000 rounded down. With s = sum >> 7
// (below 2048) the rest is s / 125, and s * 2098 >> 18 equals that for every such s.
inline uint32_t nibble( uint32_t red, uint32_t green, uint32_t blue )
{
    return ( ( 299 * red + 587 * green + 114 * blue ) >> 7 ) * 2098 >> 18;
}

struct BGRA
{
    static constexpr int BYTES = 4;
    static uint32_t gray( const uint8_t* p ) { return nibble( p[2], p[1], p[0] ); }
};
struct BGR
{
    static constexpr int BYTES = 3;
    static uint32_t gray( const uint8_t* p ) { return nibble( p[2], p[1], p[0] ); }
};
// Not among the layouts of a screen, but what a decoded picture has: it goes back the way it came.
struct RGB
{
    static constexpr int BYTES = 3;
    static uint32_t gray( const uint8_t* p ) { return nibble( p[0], p[1], p[2] ); }
};
struct RGB555
{
    static constexpr int BYTES = 2;
    static uint32_t expand( uint32_t five ) { return five << 3 | five >> 2; }
    static uint32_t gray( const uint8_t* p )
    {
        const uint32_t word = p[0] | static_cast<uint32_t>( p[1] ) << 8;
        return nibble( expand( word >> 10 & 31 ), expand( word >> 5 & 31 ), expand( word & 31 ) );
    }
};

template <typename Layout>
void encode( const GImageRows& from, uint8_t* to )
{
    for( int y = 0; y < from.height; y++ )
    {
        const uint8_t* src = from.data + static_cast<ptrdiff_t>( y ) * from.stride;
        const uint8_t* evenEnd = src + static_cast<ptrdiff_t>( from.width / 2 ) * 2 * Layout::BYTES;
        const uint8_t* oddEnd = src + static_cast<ptrdiff_t>( from.width ) * Layout::BYTES;
        const int pairs = from.width / 2;
        for( int x = 0; x < pairs; x++ )
            to[x] = static_cast<uint8_t>(
                Layout::gray( src + static_cast<ptrdiff_t>( x ) * 2 * Layout::BYTES ) << 4 |
                Layout::gray( src + static_cast<ptrdiff_t>( x ) * 2 * Layout::BYTES + Layout::BYTES ) );
        to += pairs;
        src += static_cast<ptrdiff_t>( pairs ) * 2 * Layout::BYTES;
        GASSERT( src == evenEnd );
        if( from.width % 2 )
        {
            *to++ = static_cast<uint8_t>( Layout::gray( src ) << 4 );
            src += Layout::BYTES;
        }
        GASSERT( src == oddEnd );
    }
}
} // namespace

void GImageEncodeGray4( int fromType, const GImageRows& from, GString& out )
{
    out.resize( static_cast<size_t>( GImageSizeGray4( from.width, from.height ) ) );
    uint8_t* to = reinterpret_cast<uint8_t*>( out.data( ) );
    switch( fromType )
    {
    case GIT_RGB555: return encode<RGB555>( from, to );
    case GIT_BGR24: return encode<BGR>( from, to );
    case GIT_BGRA32: return encode<BGRA>( from, to );
    case GIT_RGB24: return encode<RGB>( from, to );
    default: break;
    }
    GLOG( u"ERROR Unsupported conversion from #", fromType, u" to GRAY4" );
    GAbort( );
}

void GImageDecodeGray4( const GImageFormat& format, const char* buffer, const GRect& rect, int toType, GString& out )
{
    const int stride = GImageRowStride( GIT_GRAY4, format.width );
    out.resize( static_cast<size_t>( GImageSize( { toType, rect.width( ), rect.height( ) } ) ) );
    uint8_t* to = reinterpret_cast<uint8_t*>( out.data( ) );
    for( int y = rect.top; y < rect.bottom; y++ )
    {
        const char* row = buffer + static_cast<ptrdiff_t>( y ) * stride;
        for( int x = rect.left; x < rect.right; x++ )
        {
            const uint8_t pair = static_cast<uint8_t>( row[x / 2] );
            const uint8_t value = static_cast<uint8_t>( ( x % 2 ? pair & 15 : pair >> 4 ) * 17 );
            to[0] = to[1] = to[2] = value;
            to += 3;
        }
    }
}
