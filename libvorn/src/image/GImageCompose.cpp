// Alpha composition of rows. Division by 255 is exact to the nearest: with t = x + 128 it is ( t + ( t >> 8 ) ) >> 8, which equals
// t * 257 >> 16.
#include "GImageRows.h"
#include "GImageWide.h"

#include <cstring>

namespace
{
uint32_t divide255( uint32_t value )
{
    const uint32_t t = value + 128;
    return ( t + ( t >> 8 ) ) >> 8;
}

void premultipliedPixel( const uint8_t* from, uint8_t* to )
{
    const uint32_t alpha = from[3];
    for( int i = 0; i < 3; i++ ) to[i] = static_cast<uint8_t>( divide255( from[i] * alpha + to[i] * ( 255 - alpha ) ) );
    to[3] = static_cast<uint8_t>( divide255( 255 * alpha + to[3] * ( 255 - alpha ) ) );
}

void straightPixel( const uint8_t* from, uint8_t* to )
{
    const uint32_t alpha = from[3];
    if( alpha == 0 ) return;
    const uint32_t below = to[3] * ( 255 - alpha );
    const uint32_t whole = alpha * 255 + below;
    for( int i = 0; i < 3; i++ )
        to[i] = static_cast<uint8_t>( ( from[i] * alpha * 255 + to[i] * below + whole / 2 ) / whole );
    to[3] = static_cast<uint8_t>( divide255( whole ) );
}

#ifdef GIMAGE_WIDE
constexpr int ROUND = 8;

GIMAGE_AVX2 inline __m256i load( const uint8_t* from )
{
    return _mm256_loadu_si256( reinterpret_cast<const __m256i*>( from ) );
}
GIMAGE_AVX2 inline void store( uint8_t* to, __m256i value )
{
    _mm256_storeu_si256( reinterpret_cast<__m256i*>( to ), value );
}

// (from * alpha + to * (255 - alpha)) / 255 of bytes that lie beside each other and are smaller by 128, so that the sum of products
// fits into a word with its sign. `alphas` spreads each pixel's alpha over its four words.
GIMAGE_AVX2 inline __m256i blendHalf( __m256i pairs, __m256i source, __m256i alphas )
{
    const __m256i weights =
        _mm256_xor_si256( _mm256_shuffle_epi8( source, alphas ), _mm256_set1_epi16( static_cast<short>( 0xFF00 ) ) );
    // The offset of 128 * 255 and the half of 255 make 0x8000 together.
    const __m256i sum =
        _mm256_xor_si256( _mm256_maddubs_epi16( weights, pairs ), _mm256_set1_epi16( static_cast<short>( 0x8000 ) ) );
    return _mm256_mulhi_epu16( sum, _mm256_set1_epi16( 257 ) );
}

// Eight pixels over as many of a layer whose colour is premultiplied or whose alpha is 255.
GIMAGE_AVX2 inline __m256i blend( __m256i source, __m256i target )
{
    const __m256i middle = _mm256_set1_epi8( static_cast<char>( 0x80 ) );
    const __m256i front =
        _mm256_broadcastsi128_si256( _mm_setr_epi8( 3, 3, 3, 3, 3, 3, 3, 3, 7, 7, 7, 7, 7, 7, 7, 7 ) );
    const __m256i back =
        _mm256_broadcastsi128_si256( _mm_setr_epi8( 11, 11, 11, 11, 11, 11, 11, 11, 15, 15, 15, 15, 15, 15, 15, 15 ) );
    // The source's own alpha counts 255.
    const __m256i from =
        _mm256_xor_si256( _mm256_or_si256( source, _mm256_set1_epi32( static_cast<int>( 0xFF000000U ) ) ), middle );
    const __m256i to = _mm256_xor_si256( target, middle );
    return _mm256_packus_epi16( blendHalf( _mm256_unpacklo_epi8( from, to ), source, front ),
                                blendHalf( _mm256_unpackhi_epi8( from, to ), source, back ) );
}

// One channel of straight pixels; all sums are whole numbers below 2 to the 24, and no quotient comes nearer than 1 / 65025 to the
// next whole number, so that single precision is exact.
template <int SHIFT>
GIMAGE_AVX2 inline __m256i straightChannel( __m256i source, __m256i target, __m256 above, __m256 below, __m256 half,
                                            __m256 whole )
{
    const __m256i byte = _mm256_set1_epi32( 255 );
    const __m256 from = _mm256_cvtepi32_ps( _mm256_and_si256( _mm256_srli_epi32( source, SHIFT ), byte ) );
    const __m256 to = _mm256_cvtepi32_ps( _mm256_and_si256( _mm256_srli_epi32( target, SHIFT ), byte ) );
    const __m256 sum = _mm256_add_ps( _mm256_add_ps( _mm256_mul_ps( from, above ), _mm256_mul_ps( to, below ) ), half );
    return _mm256_slli_epi32( _mm256_cvttps_epi32( _mm256_div_ps( sum, whole ) ), SHIFT );
}

GIMAGE_AVX2 inline __m256i blendStraight( __m256i source, __m256i target )
{
    const __m256i full = _mm256_set1_epi32( 255 );
    const __m256i alpha = _mm256_srli_epi32( source, 24 );
    const __m256i above = _mm256_madd_epi16( alpha, full );
    const __m256i below = _mm256_madd_epi16( _mm256_srli_epi32( target, 24 ), _mm256_sub_epi32( full, alpha ) );
    const __m256i sum = _mm256_add_epi32( above, below );
    // Where the source is clear the target stays; the 1 only keeps the division from 0 / 0.
    const __m256i clear = _mm256_cmpeq_epi32( alpha, _mm256_setzero_si256( ) );
    const __m256 whole = _mm256_cvtepi32_ps( _mm256_max_epi32( sum, _mm256_set1_epi32( 1 ) ) );
    const __m256 half = _mm256_cvtepi32_ps( _mm256_srli_epi32( sum, 1 ) );
    const __m256 aboves = _mm256_cvtepi32_ps( above ), belows = _mm256_cvtepi32_ps( below );
    const __m256i rounded = _mm256_add_epi32( sum, _mm256_set1_epi32( 128 ) );
    __m256i out =
        _mm256_slli_epi32( _mm256_srli_epi32( _mm256_add_epi32( rounded, _mm256_srli_epi32( rounded, 8 ) ), 8 ), 24 );
    out = _mm256_or_si256( out, straightChannel<0>( source, target, aboves, belows, half, whole ) );
    out = _mm256_or_si256( out, straightChannel<8>( source, target, aboves, belows, half, whole ) );
    out = _mm256_or_si256( out, straightChannel<16>( source, target, aboves, belows, half, whole ) );
    return _mm256_blendv_epi8( out, target, clear );
}

// The pixels done. Rounds that are wholly opaque or wholly clear skip the arithmetic.
template <bool STRAIGHT>
GIMAGE_AVX2 int composeWide( const uint8_t* from, uint8_t* to, int width )
{
    const __m256i alphaMask = _mm256_set1_epi32( static_cast<int>( 0xFF000000U ) );
    int x = 0;
    for( ; x + ROUND <= width; x += ROUND, from += ROUND * 4, to += ROUND * 4 )
    {
        const __m256i source = load( from );
        if( _mm256_testz_si256( source, alphaMask ) ) continue;
        if( _mm256_testc_si256( source, alphaMask ) )
        {
            store( to, source );
            continue;
        }
        const __m256i target = load( to );
        if( STRAIGHT && !_mm256_testc_si256( target, alphaMask ) )
            store( to, blendStraight( source, target ) );
        else
            store( to, blend( source, target ) );
    }
    return x;
}

GIMAGE_AVX2 int premultiplyWide( const uint8_t* from, uint8_t* to, int width )
{
    int x = 0;
    for( ; x + ROUND <= width; x += ROUND, from += ROUND * 4, to += ROUND * 4 )
        store( to, blend( load( from ), _mm256_setzero_si256( ) ) );
    return x;
}
#else
template <bool STRAIGHT>
int composeWide( const uint8_t*, uint8_t*, int )
{
    return 0;
}
int premultiplyWide( const uint8_t*, uint8_t*, int )
{
    return 0;
}
#endif
} // namespace

void GImageComposeStraight( const uint8_t* from, uint8_t* to, int width )
{
    const int done = GImageHasWide( ) ? composeWide<true>( from, to, width ) : 0;
    from += static_cast<ptrdiff_t>( done ) * 4;
    to += static_cast<ptrdiff_t>( done ) * 4;
    for( int x = done; x < width; x++, from += 4, to += 4 )
    {
        if( from[3] == 255 )
            std::memcpy( to, from, 4 );
        else if( to[3] == 255 )
            premultipliedPixel( from, to );
        else
            straightPixel( from, to );
    }
}

void GImageComposePremultiplied( const uint8_t* from, uint8_t* to, int width )
{
    const int done = GImageHasWide( ) ? composeWide<false>( from, to, width ) : 0;
    from += static_cast<ptrdiff_t>( done ) * 4;
    to += static_cast<ptrdiff_t>( done ) * 4;
    for( int x = done; x < width; x++, from += 4, to += 4 ) premultipliedPixel( from, to );
}

void GImagePremultiplyRow( const uint8_t* from, uint8_t* to, int width )
{
    const int done = GImageHasWide( ) ? premultiplyWide( from, to, width ) : 0;
    from += static_cast<ptrdiff_t>( done ) * 4;
    to += static_cast<ptrdiff_t>( done ) * 4;
    for( int x = done; x < width; x++, from += 4, to += 4 )
    {
        const uint32_t alpha = from[3];
        for( int i = 0; i < 3; i++ ) to[i] = static_cast<uint8_t>( divide255( from[i] * alpha ) );
        to[3] = static_cast<uint8_t>( alpha );
    }
}
