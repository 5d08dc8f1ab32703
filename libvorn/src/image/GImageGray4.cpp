#include "GImageRows.h"
#include "GImageWide.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <libyuv.h>

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
    static constexpr auto WIDEN = libyuv::RGB24ToARGB;
    static uint32_t gray( const uint8_t* p ) { return nibble( p[2], p[1], p[0] ); }
};
// Not among the layouts of a screen, but what a decoded picture has: it goes back the way it came.
struct RGB
{
    static constexpr int BYTES = 3;
    static constexpr auto WIDEN = libyuv::RAWToARGB;
    static uint32_t gray( const uint8_t* p ) { return nibble( p[0], p[1], p[2] ); }
};
struct RGB555
{
    static constexpr int BYTES = 2;
    static constexpr auto WIDEN = libyuv::ARGB1555ToARGB;
    static uint32_t expand( uint32_t five ) { return five << 3 | five >> 2; }
    static uint32_t gray( const uint8_t* p )
    {
        const uint32_t word = p[0] | static_cast<uint32_t>( p[1] ) << 8;
        return nibble( expand( word >> 10 & 31 ), expand( word >> 5 & 31 ), expand( word & 31 ) );
    }
};

#ifdef GIMAGE_WIDE
constexpr int ROUND = 32;

GIMAGE_AVX2 inline __m256i load( const uint8_t* from )
{
    return _mm256_loadu_si256( reinterpret_cast<const __m256i*>( from ) );
}

// The gray nibbles of 16 pixels of BGRA32 as words, by turns one of the first and one of the last eight. Loads that begin a byte or
// two beside the pixels bring the channels into their words. The weights 299, 587, 114 are 128 * (2, 4, 0) + (43, 75, 114): what
// stands behind 128 needs no shift, and the sum of the rest stays below 65536.
GIMAGE_AVX2 inline __m256i nibblesOf( const uint8_t* from )
{
    const __m256i greenRed = _mm256_blend_epi16( load( from + 1 ), load( from + 32 - 1 ), 0xAA );
    const __m256i blue = _mm256_blend_epi16( load( from ), load( from + 32 - 2 ), 0xAA );
    const __m256i whole = _mm256_maddubs_epi16( greenRed, _mm256_set1_epi16( 0x0204 ) );
    const __m256i rest = _mm256_add_epi16( _mm256_maddubs_epi16( greenRed, _mm256_set1_epi16( 43 << 8 | 75 ) ),
                                           _mm256_maddubs_epi16( blue, _mm256_set1_epi16( 114 ) ) );
    const __m256i sum = _mm256_add_epi16( whole, _mm256_srli_epi16( rest, 7 ) );
    return _mm256_srli_epi16( _mm256_mulhi_epu16( sum, _mm256_set1_epi16( 2098 ) ), 2 );
}

// An even number of pixels, at least 32 and as many a round; the last round begins early and does some of them again.
GIMAGE_AVX2 void encodeWide( const uint8_t* from, uint8_t* to, int width )
{
    const __m256i pair = _mm256_set1_epi16( 0x0110 ); // 16 times the first and once the second.
    const __m256i untangle =
        _mm256_broadcastsi128_si256( _mm_setr_epi8( 0, 2, 4, 6, 1, 3, 5, 7, 8, 10, 12, 14, 9, 11, 13, 15 ) );
    for( int x = 0; x < width; x += ROUND )
    {
        const int begin = std::min( x, width - ROUND );
        const uint8_t* place = from + static_cast<ptrdiff_t>( begin ) * 4;
        const __m256i nibbles =
            _mm256_shuffle_epi8( _mm256_packus_epi16( nibblesOf( place ), nibblesOf( place + 64 ) ), untangle );
        const __m256i words = _mm256_maddubs_epi16( nibbles, pair );
        const __m256i bytes = _mm256_packus_epi16( words, words );
        // Each half holds every other two bytes.
        const __m128i ordered =
            _mm_unpacklo_epi16( _mm256_castsi256_si128( bytes ), _mm256_extracti128_si256( bytes, 1 ) );
        _mm_storeu_si128( reinterpret_cast<__m128i*>( to + begin / 2 ), ordered );
    }
}

// Layouts of two or three bytes pass through some pixels of four, which stay in the cache.
template <typename Layout>
void encodeWidened( const uint8_t* from, uint8_t* to, int width )
{
    constexpr int PIECE = 1024;
    alignas( 32 ) std::array<uint8_t, PIECE * 4> four;
    for( int done = 0; done < width; )
    {
        const int begin = std::min( done, width - ROUND );
        const int count = std::min( width - begin, PIECE );
        Layout::WIDEN( from + static_cast<ptrdiff_t>( begin ) * Layout::BYTES, 0, four.data( ), 0, count, 1 );
        encodeWide( four.data( ), to + begin / 2, count );
        done = begin + count;
    }
}
#endif

// The pixels that the wide registers did, all but a lone last one or none; the rest of the row is left to the caller.
template <typename Layout>
int encodeFront( [[maybe_unused]] const uint8_t* from, [[maybe_unused]] uint8_t* to, [[maybe_unused]] int width )
{
#ifdef GIMAGE_WIDE
    const int even = width & ~1;
    if( even < ROUND || !GImageHasWide( ) ) return 0;
    if constexpr( Layout::BYTES == 4 )
        encodeWide( from, to, even );
    else
        encodeWidened<Layout>( from, to, even );
    return even;
#else
    return 0;
#endif
}

template <typename Layout>
void encode( const GImageRows& from, uint8_t* to )
{
    for( int y = 0; y < from.height; y++ )
    {
        const uint8_t* src = from.data + static_cast<ptrdiff_t>( y ) * from.stride;
        const uint8_t* evenEnd = src + static_cast<ptrdiff_t>( from.width / 2 ) * 2 * Layout::BYTES;
        const uint8_t* oddEnd = src + static_cast<ptrdiff_t>( from.width ) * Layout::BYTES;
        const int done = encodeFront<Layout>( src, to, from.width );
        src += static_cast<ptrdiff_t>( done ) * Layout::BYTES;
        to += done / 2;
        for( int pairs = from.width / 2 - done / 2; pairs > 0; pairs--, src += 2 * Layout::BYTES )
            *to++ = static_cast<uint8_t>( Layout::gray( src ) << 4 | Layout::gray( src + Layout::BYTES ) );
        GASSERT( src == evenEnd );
        if( from.width % 2 )
        {
            *to++ = static_cast<uint8_t>( Layout::gray( src ) << 4 );
            src += Layout::BYTES;
        }
        GASSERT( src == oddEnd );
    }
}

// Both pixels of every byte in three channels.
using PixelPair = std::array<uint8_t, 6>;
const std::array<PixelPair, 256>& pixelPairs( )
{
    static const std::array<PixelPair, 256> pairs = []
    {
        std::array<PixelPair, 256> out;
        for( uint32_t byte = 0; byte < out.size( ); byte++ )
        {
            out[byte].fill( static_cast<uint8_t>( ( byte >> 4 ) * 17 ) );
            std::fill( out[byte].begin( ) + 3, out[byte].end( ), static_cast<uint8_t>( ( byte & 15 ) * 17 ) );
        }
        return out;
    }( );
    return pairs;
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
    const std::array<PixelPair, 256>& pairs = pixelPairs( );
    const int stride = GImageRowStride( GIT_GRAY4, format.width );
    out.resize( static_cast<size_t>( GImageSize( { toType, rect.width( ), rect.height( ) } ) ) );
    uint8_t* to = reinterpret_cast<uint8_t*>( out.data( ) );
    for( int y = rect.top; y < rect.bottom; y++ )
    {
        const uint8_t* row = reinterpret_cast<const uint8_t*>( buffer ) + static_cast<ptrdiff_t>( y ) * stride;
        int x = rect.left;
        if( x % 2 )
        {
            std::memcpy( to, pairs[row[x++ / 2]].data( ) + 3, 3 );
            to += 3;
        }
        for( ; x + 2 <= rect.right; x += 2, to += 6 ) std::memcpy( to, pairs[row[x / 2]].data( ), 6 );
        if( x < rect.right )
        {
            std::memcpy( to, pairs[row[x / 2]].data( ), 3 );
            to += 3;
        }
    }
}
