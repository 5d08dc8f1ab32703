// Alpha composition of rows. Division by 255 is exact to the nearest: with t = x + 128 it is ( t + ( t >> 8 ) ) >> 8.
#include "GImageRows.h"

#include <cstring>

#if defined( __x86_64__ ) && defined( __GNUC__ )
#include <immintrin.h>
#define GIMAGE_X86 1
#endif

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
    if( to[3] == 255 ) return premultipliedPixel( from, to );
    if( alpha == 0 ) return;
    const uint32_t below = to[3] * ( 255 - alpha );
    const uint32_t whole = alpha * 255 + below;
    for( int i = 0; i < 3; i++ )
        to[i] = static_cast<uint8_t>( ( from[i] * alpha * 255 + to[i] * below + whole / 2 ) / whole );
    to[3] = static_cast<uint8_t>( divide255( whole ) );
}

#ifdef GIMAGE_X86
// One half of the pixels as 16-bit channels: (from * alpha + to * (255 - alpha)) / 255, where the source's own alpha counts 255.
__attribute__( ( target( "avx2" ) ) ) inline __m256i blendHalf( __m256i from, __m256i to )
{
    const __m256i full = _mm256_set1_epi16( 255 );
    const __m256i alpha = _mm256_shufflehi_epi16( _mm256_shufflelo_epi16( from, 0xFF ), 0xFF );
    const __m256i source = _mm256_blend_epi16( from, full, 0x88 );
    __m256i sum = _mm256_add_epi16( _mm256_mullo_epi16( source, alpha ),
                                    _mm256_mullo_epi16( to, _mm256_sub_epi16( full, alpha ) ) );
    sum = _mm256_add_epi16( sum, _mm256_set1_epi16( 128 ) );
    return _mm256_srli_epi16( _mm256_add_epi16( sum, _mm256_srli_epi16( sum, 8 ) ), 8 );
}

// Eight pixels a round; the pixels done. Rounds that are wholly opaque or wholly clear skip the arithmetic.
__attribute__( ( target( "avx2" ) ) ) int composeWide( const uint8_t* from, uint8_t* to, int width )
{
    const __m256i zero = _mm256_setzero_si256( );
    const __m256i alphaMask = _mm256_set1_epi32( static_cast<int>( 0xFF000000U ) );
    int x = 0;
    for( ; x + 8 <= width; x += 8 )
    {
        const __m256i source = _mm256_loadu_si256( reinterpret_cast<const __m256i*>( from + x * 4 ) );
        __m256i* place = reinterpret_cast<__m256i*>( to + x * 4 );
        if( _mm256_testz_si256( source, alphaMask ) ) continue;
        if( _mm256_testc_si256( source, alphaMask ) )
        {
            _mm256_storeu_si256( place, source );
            continue;
        }
        const __m256i target = _mm256_loadu_si256( place );
        const __m256i low = blendHalf( _mm256_unpacklo_epi8( source, zero ), _mm256_unpacklo_epi8( target, zero ) );
        const __m256i high = blendHalf( _mm256_unpackhi_epi8( source, zero ), _mm256_unpackhi_epi8( target, zero ) );
        _mm256_storeu_si256( place, _mm256_packus_epi16( low, high ) );
    }
    return x;
}

bool hasWide( )
{
    static const bool has = __builtin_cpu_supports( "avx2" );
    return has;
}
#endif
} // namespace

void GImageComposeStraight( const uint8_t* from, uint8_t* to, int width )
{
    for( int x = 0; x < width; x++, from += 4, to += 4 )
    {
        if( from[3] == 255 )
            std::memcpy( to, from, 4 );
        else
            straightPixel( from, to );
    }
}

void GImageComposePremultiplied( const uint8_t* from, uint8_t* to, int width )
{
    int x = 0;
#ifdef GIMAGE_X86
    if( hasWide( ) ) x = composeWide( from, to, width );
#endif
    for( ; x < width; x++ )
        premultipliedPixel( from + static_cast<ptrdiff_t>( x ) * 4, to + static_cast<ptrdiff_t>( x ) * 4 );
}

void GImagePremultiplyRow( const uint8_t* from, uint8_t* to, int width )
{
    for( int x = 0; x < width; x++, from += 4, to += 4 )
    {
        const uint32_t alpha = from[3];
        for( int i = 0; i < 3; i++ ) to[i] = static_cast<uint8_t>( divide255( from[i] * alpha ) );
        to[3] = static_cast<uint8_t>( alpha );
    }
}
