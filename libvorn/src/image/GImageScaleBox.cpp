// Scaling down by areas: each pixel of the target is the mean, to the nearest, of the whole source pixels between its edges. Rows
// are summed up column by column first, then the columns of each box.
#include "GImageRows.h"
#include "GImageWide.h"

#include <algorithm>
#include <array>

namespace
{
// Where the boxes of one direction begin: box i at i * from / to rounded down, stepped through without a division.
class Boxes
{
public:
    Boxes( int from, int to ) : _size( from / to ), _rest( from % to ), _to( to ) {}
    int shorter( ) const { return _size; }
    // The length of the next box: the shorter one or one more.
    int next( )
    {
        _error += _rest;
        if( _error < _to ) return _size;
        _error -= _to;
        return _size + 1;
    }

private:
    int _size;
    int _rest;
    int _to;
    int _error = 0;
};

// Division by the number of pixels of a box, rounded to the nearest. Good for sums of up to 255 times 2 to the 26.
class Mean
{
public:
    explicit Mean( int64_t area )
        : _factor( ( ONE + static_cast<uint64_t>( area ) / 2 ) / static_cast<uint64_t>( area ) )
    {
    }
    uint8_t of( uint64_t sum ) const { return static_cast<uint8_t>( ( sum * _factor + ONE / 2 ) >> 40 ); }

private:
    static constexpr uint64_t ONE = 1ULL << 40;
    uint64_t _factor;
};

void sumRows( const uint8_t* from, ptrdiff_t stride, int rows, int bytes, uint32_t* columns )
{
    std::fill( columns, columns + bytes, 0 );
    for( int y = 0; y < rows; y++, from += stride )
        for( int x = 0; x < bytes; x++ ) columns[x] += from[x];
}

template <int CHANNELS>
void shrinkColumns( const uint32_t* columns, Boxes boxes, int rows, uint8_t* to, int toWidth )
{
    const Mean means[2] = { Mean( int64_t{ rows } * boxes.shorter( ) ),
                            Mean( int64_t{ rows } * ( boxes.shorter( ) + 1 ) ) };
    for( int i = 0; i < toWidth; i++, to += CHANNELS )
    {
        const int length = boxes.next( );
        uint64_t sums[CHANNELS] = { };
        for( int x = 0; x < length; x++, columns += CHANNELS )
            for( int channel = 0; channel < CHANNELS; channel++ ) sums[channel] += columns[channel];
        for( int channel = 0; channel < CHANNELS; channel++ )
            to[channel] = means[length - boxes.shorter( )].of( sums[channel] );
    }
}

#ifdef GIMAGE_WIDE
constexpr int ROUND = 64;
// Sums of a column stay positive as words with a sign.
constexpr int MOST_ROWS = 128;
// What a load may read behind the last column.
constexpr int PADDING = 16;

GIMAGE_AVX2 inline __m256i load( const void* from )
{
    return _mm256_loadu_si256( static_cast<const __m256i*>( from ) );
}
GIMAGE_AVX2 inline void store( uint16_t* to, __m256i value )
{
    _mm256_storeu_si256( reinterpret_cast<__m256i*>( to ), value );
}

// Thirty-two columns: two rows side by side in bytes add up to words in one step.
struct Columns
{
    GIMAGE_AVX2 void add( __m256i a, __m256i b )
    {
        const __m256i one = _mm256_set1_epi8( 1 );
        low = _mm256_add_epi16( low, _mm256_maddubs_epi16( _mm256_unpacklo_epi8( a, b ), one ) );
        high = _mm256_add_epi16( high, _mm256_maddubs_epi16( _mm256_unpackhi_epi8( a, b ), one ) );
    }
    GIMAGE_AVX2 void give( uint16_t* to ) const
    {
        store( to, _mm256_permute2x128_si256( low, high, 0x20 ) );
        store( to + 16, _mm256_permute2x128_si256( low, high, 0x31 ) );
    }
    __m256i low;
    __m256i high;
};

// At least a round of bytes; the last round begins early and does some of them again.
GIMAGE_AVX2 void sumRowsWide( const uint8_t* from, ptrdiff_t stride, int rows, int bytes, uint16_t* columns )
{
    const __m256i zero = _mm256_setzero_si256( );
    for( int x = 0; x < bytes; x += ROUND )
    {
        const int begin = std::min( x, bytes - ROUND );
        const uint8_t* row = from + begin;
        Columns left{ zero, zero }, right{ zero, zero };
        int y = 0;
        for( ; y + 2 <= rows; y += 2, row += stride * 2 )
        {
            left.add( load( row ), load( row + stride ) );
            right.add( load( row + 32 ), load( row + stride + 32 ) );
        }
        if( y < rows )
        {
            left.add( load( row ), zero );
            right.add( load( row + 32 ), zero );
        }
        left.give( columns + begin );
        right.give( columns + begin + 32 );
    }
}

// As many ones as are wanted and then zeros, from the right place on.
constexpr std::array<int16_t, 32> ONES = { 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1 };

GIMAGE_AVX2 inline uint32_t sumOne( const uint16_t* columns, int length )
{
    __m256i sums = _mm256_setzero_si256( );
    for( int left = length; left > 0; left -= 16, columns += 16 )
        sums = _mm256_add_epi32(
            sums, _mm256_madd_epi16( load( columns ), load( ONES.data( ) + 16 - std::min( left, 16 ) ) ) );
    __m128i sum = _mm_add_epi32( _mm256_castsi256_si128( sums ), _mm256_extracti128_si256( sums, 1 ) );
    sum = _mm_add_epi32( sum, _mm_shuffle_epi32( sum, 0x4E ) );
    sum = _mm_add_epi32( sum, _mm_shuffle_epi32( sum, 0xB1 ) );
    return static_cast<uint32_t>( _mm_cvtsi128_si32( sum ) );
}

// Three channels are summed up like four: what the fourth gathers is dropped.
template <int CHANNELS>
GIMAGE_AVX2 inline void sumFour( const uint16_t* columns, int length, uint32_t sums[4] )
{
    __m128i sum = _mm_setzero_si128( );
    for( int x = 0; x < length; x++, columns += CHANNELS )
        sum =
            _mm_add_epi32( sum, _mm_cvtepu16_epi32( _mm_loadl_epi64( reinterpret_cast<const __m128i*>( columns ) ) ) );
    _mm_storeu_si128( reinterpret_cast<__m128i*>( sums ), sum );
}

template <int CHANNELS>
GIMAGE_AVX2 void shrinkColumnsWide( const uint16_t* columns, Boxes boxes, int rows, uint8_t* to, int toWidth )
{
    const Mean means[2] = { Mean( int64_t{ rows } * boxes.shorter( ) ),
                            Mean( int64_t{ rows } * ( boxes.shorter( ) + 1 ) ) };
    for( int i = 0; i < toWidth; i++, to += CHANNELS )
    {
        const int length = boxes.next( );
        const Mean& mean = means[length - boxes.shorter( )];
        if constexpr( CHANNELS == 1 )
            *to = mean.of( sumOne( columns, length ) );
        else
        {
            uint32_t sums[4];
            sumFour<CHANNELS>( columns, length, sums );
            for( int channel = 0; channel < CHANNELS; channel++ ) to[channel] = mean.of( sums[channel] );
        }
        columns += static_cast<ptrdiff_t>( length ) * CHANNELS;
    }
}

template <int CHANNELS>
void shrinkWide( const GImageRows& from, uint8_t* to, int toStride, int toWidth, int toHeight )
{
    const int bytes = from.width * CHANNELS;
    uint16_t* columns = reinterpret_cast<uint16_t*>( GImageScratch( 4, static_cast<size_t>( bytes + PADDING ) * 2 ) );
    std::fill( columns + bytes, columns + bytes + PADDING, 0 );
    Boxes down( from.height, toHeight );
    const uint8_t* row = from.data;
    for( int y = 0; y < toHeight; y++, to += toStride )
    {
        const int rows = down.next( );
        sumRowsWide( row, from.stride, rows, bytes, columns );
        shrinkColumnsWide<CHANNELS>( columns, Boxes( from.width, toWidth ), rows, to, toWidth );
        row += static_cast<ptrdiff_t>( rows ) * from.stride;
    }
}
#endif

template <int CHANNELS>
void shrink( const GImageRows& from, uint8_t* to, int toStride, int toWidth, int toHeight )
{
    const int bytes = from.width * CHANNELS;
#ifdef GIMAGE_WIDE
    if( GImageHasWide( ) && bytes >= ROUND && from.height / toHeight < MOST_ROWS )
        return shrinkWide<CHANNELS>( from, to, toStride, toWidth, toHeight );
#endif
    uint32_t* columns = reinterpret_cast<uint32_t*>( GImageScratch( 4, static_cast<size_t>( bytes ) * 4 ) );
    Boxes down( from.height, toHeight );
    const uint8_t* row = from.data;
    for( int y = 0; y < toHeight; y++, to += toStride )
    {
        const int rows = down.next( );
        sumRows( row, from.stride, rows, bytes, columns );
        shrinkColumns<CHANNELS>( columns, Boxes( from.width, toWidth ), rows, to, toWidth );
        row += static_cast<ptrdiff_t>( rows ) * from.stride;
    }
}
// Boxes of whole pixels serve a length that stays or becomes half or less; between them they would be too uneven.
bool isWhole( int from, int to )
{
    return to == from || to <= from / 2;
}
} // namespace

bool GImageScaleBox( int channels, const GImageRows& from, uint8_t* to, int toStride, int toWidth, int toHeight )
{
    if( !isWhole( from.width, toWidth ) || !isWhole( from.height, toHeight ) ) return false;
    switch( channels )
    {
    case 1: shrink<1>( from, to, toStride, toWidth, toHeight ); return true;
    case 3: shrink<3>( from, to, toStride, toWidth, toHeight ); return true;
    case 4: shrink<4>( from, to, toStride, toWidth, toHeight ); return true;
    default: return false;
    }
}
