// Scaling by interpolation between the four nearest pixels, to the nearest value: a flat colour stays what it is. A pixel stands for
// its middle, and beyond the outermost middles the edge goes on.
#include "GImageRows.h"
#include "GImageWide.h"

#include <algorithm>
#include <cstring>

namespace
{
// Weights of the two neighbours add up to this; products of a weight and a byte stay positive as words with a sign.
constexpr int BITS = 7;
constexpr int ONE = 1 << BITS;

// Two neighbours in one direction and their weights, as words side by side.
struct Place
{
    int first;
    int second;
    int weights;

    int firstWeight( ) const { return weights & 0xFFFF; }
    int secondWeight( ) const { return weights >> 16; }
};

Place placeOf( int i, int from, int to )
{
    // The middle of target pixel i, less half a source pixel, in parts of ONE.
    const int64_t at = ( ( 2 * int64_t{ i } + 1 ) * from - to ) * ONE / ( 2 * int64_t{ to } );
    const int64_t held = std::clamp<int64_t>( at, 0, int64_t{ from - 1 } * ONE );
    const int first = static_cast<int>( held >> BITS );
    const int weight = static_cast<int>( held & ( ONE - 1 ) );
    return { first, std::min( first + 1, from - 1 ), weight << 16 | ( ONE - weight ) };
}

void blendRows( const uint8_t* first, const uint8_t* second, const Place& place, int bytes, uint16_t* out )
{
    const uint16_t one = static_cast<uint16_t>( place.firstWeight( ) ),
                   two = static_cast<uint16_t>( place.secondWeight( ) );
    for( int x = 0; x < bytes; x++ ) out[x] = static_cast<uint16_t>( first[x] * one + second[x] * two );
}

template <int CHANNELS>
void blendColumns( const uint16_t* row, const Place* places, uint8_t* to, int toWidth )
{
    for( int x = 0; x < toWidth; x++, to += CHANNELS )
    {
        const Place& place = places[x];
        const uint16_t* first = row + static_cast<ptrdiff_t>( place.first ) * CHANNELS;
        const uint16_t* second = row + static_cast<ptrdiff_t>( place.second ) * CHANNELS;
        for( int channel = 0; channel < CHANNELS; channel++ )
        {
            const int sum = first[channel] * place.firstWeight( ) + second[channel] * place.secondWeight( );
            to[channel] = static_cast<uint8_t>( ( sum + ONE * ONE / 2 ) >> ( 2 * BITS ) );
        }
    }
}

#ifdef GIMAGE_WIDE
// The pixels at two places, one in each half.
inline __m128i loadTwo( const uint16_t* one, const uint16_t* two )
{
    const __m128i low = _mm_loadl_epi64( reinterpret_cast<const __m128i*>( one ) );
    return _mm_castps_si128( _mm_loadh_pi( _mm_castsi128_ps( low ), reinterpret_cast<const __m64*>( two ) ) );
}
inline __m128i weigh( __m128i pairs, int weights )
{
    const __m128i sum = _mm_madd_epi16( pairs, _mm_set1_epi32( weights ) );
    return _mm_srli_epi32( _mm_add_epi32( sum, _mm_set1_epi32( ONE * ONE / 2 ) ), 2 * BITS );
}

// Two pixels a round, all their channels at once. Three channels are written as four, so that the last pixel is left. The pixels done.
template <int CHANNELS>
int blendColumnsWide( const uint16_t* row, const Place* places, uint8_t* to, int toWidth )
{
    const int count = ( CHANNELS == 4 ? toWidth : toWidth - 1 ) & ~1;
    const auto at = [row]( int x ) { return row + static_cast<ptrdiff_t>( x ) * CHANNELS; };
    for( int x = 0; x < count; x += 2, to += 2 * CHANNELS )
    {
        const Place &one = places[x], &two = places[x + 1];
        const __m128i first = loadTwo( at( one.first ), at( two.first ) );
        const __m128i second = loadTwo( at( one.second ), at( two.second ) );
        const __m128i words = _mm_packs_epi32( weigh( _mm_unpacklo_epi16( first, second ), one.weights ),
                                               weigh( _mm_unpackhi_epi16( first, second ), two.weights ) );
        const __m128i pixels = _mm_packus_epi16( words, words );
        if constexpr( CHANNELS == 4 )
        {
            _mm_storel_epi64( reinterpret_cast<__m128i*>( to ), pixels );
            continue;
        }
        const int low = _mm_cvtsi128_si32( pixels ), high = _mm_cvtsi128_si32( _mm_srli_si128( pixels, 4 ) );
        std::memcpy( to, &low, 4 );
        std::memcpy( to + CHANNELS, &high, 4 );
    }
    return count;
}
#endif

template <int CHANNELS>
void interpolate( const GImageRows& from, uint8_t* to, int toStride, int toWidth, int toHeight )
{
    const int bytes = from.width * CHANNELS;
    const size_t placeBytes = sizeof( Place ) * static_cast<size_t>( toWidth );
    // A row's last pixel of three channels is read like one of four.
    uint8_t* const scratch = GImageScratch( 4, placeBytes + static_cast<size_t>( bytes + 1 ) * sizeof( uint16_t ) );
    Place* const places = reinterpret_cast<Place*>( scratch );
    uint16_t* const row = reinterpret_cast<uint16_t*>( scratch + placeBytes );
    row[bytes] = 0;
    for( int x = 0; x < toWidth; x++ ) places[x] = placeOf( x, from.width, toWidth );
    for( int y = 0; y < toHeight; y++, to += toStride )
    {
        const Place place = placeOf( y, from.height, toHeight );
        const auto rowAt = [&from]( int at ) { return from.data + static_cast<ptrdiff_t>( at ) * from.stride; };
        blendRows( rowAt( place.first ), rowAt( place.second ), place, bytes, row );
        int done = 0;
#ifdef GIMAGE_WIDE
        if constexpr( CHANNELS > 1 )
            if( GImageHasWide( ) ) done = blendColumnsWide<CHANNELS>( row, places, to, toWidth );
#endif
        blendColumns<CHANNELS>( row, places + done, to + static_cast<ptrdiff_t>( done ) * CHANNELS, toWidth - done );
    }
}
} // namespace

bool GImageScaleLinear( int channels, const GImageRows& from, uint8_t* to, int toStride, int toWidth, int toHeight )
{
    switch( channels )
    {
    case 1: interpolate<1>( from, to, toStride, toWidth, toHeight ); return true;
    case 3: interpolate<3>( from, to, toStride, toWidth, toHeight ); return true;
    case 4: interpolate<4>( from, to, toStride, toWidth, toHeight ); return true;
    default: return false;
    }
}
