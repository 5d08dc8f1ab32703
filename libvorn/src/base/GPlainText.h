// Runs of plain text, sixteen characters at a time: nearly all text of messages, names and values is made of them, and whatever is
// not is left to the careful loops. Nothing is read behind `length`, and no more than `length` units are written.
#pragma once

#include <cstddef>
#include <cstdint>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace GPlainText
{
enum class Kind
{
    Ascii, // 0 to 0x7F.
    Value, // 0x20 to 0x7F without the backslash: what the value of a line holds as it stands.
    Name   // The same without blank and colon.
};

template <Kind kind>
constexpr bool isPlain( unsigned unit )
{
    if constexpr( kind == Kind::Ascii ) return unit < 0x80;
    if constexpr( kind == Kind::Value ) return unit >= 0x20 && unit < 0x80 && unit != '\\';
    return unit > 0x20 && unit < 0x80 && unit != '\\' && unit != ':';
}

#ifdef __SSE2__
constexpr size_t BLOCK = 16;
// One bit a byte that is not plain.
template <Kind kind>
unsigned unplain( __m128i bytes )
{
    // Bytes from 0x80 on are negative.
    if constexpr( kind == Kind::Ascii ) return static_cast<unsigned>( _mm_movemask_epi8( bytes ) );
    const __m128i least = _mm_set1_epi8( kind == Kind::Value ? 0x1F : 0x20 );
    __m128i others = _mm_cmpeq_epi8( bytes, _mm_set1_epi8( '\\' ) );
    if constexpr( kind == Kind::Name ) others = _mm_or_si128( others, _mm_cmpeq_epi8( bytes, _mm_set1_epi8( ':' ) ) );
    const __m128i plain = _mm_andnot_si128( others, _mm_cmpgt_epi8( bytes, least ) );
    return static_cast<unsigned>( _mm_movemask_epi8( plain ) ) ^ 0xFFFFu;
}
#endif

// How many of the first bytes are plain.
template <Kind kind>
size_t count( const char* in, size_t length )
{
    size_t i = 0;
#ifdef __SSE2__
    for( ; i + BLOCK <= length; i += BLOCK )
    {
        const unsigned stops = unplain<kind>( _mm_loadu_si128( reinterpret_cast<const __m128i*>( in + i ) ) );
        if( stops ) return i + static_cast<size_t>( __builtin_ctz( stops ) );
    }
#endif
    while( i < length && isPlain<kind>( static_cast<unsigned char>( in[i] ) ) ) ++i;
    return i;
}

// The same, and widens them; what lies behind them in `out` may be overwritten.
template <Kind kind>
size_t widen( const char* in, size_t length, char16_t* out )
{
    size_t i = 0;
#ifdef __SSE2__
    for( ; i + BLOCK <= length; i += BLOCK )
    {
        const __m128i bytes = _mm_loadu_si128( reinterpret_cast<const __m128i*>( in + i ) );
        _mm_storeu_si128( reinterpret_cast<__m128i*>( out + i ), _mm_unpacklo_epi8( bytes, _mm_setzero_si128( ) ) );
        _mm_storeu_si128( reinterpret_cast<__m128i*>( out + i + BLOCK / 2 ),
                          _mm_unpackhi_epi8( bytes, _mm_setzero_si128( ) ) );
        const unsigned stops = unplain<kind>( bytes );
        if( stops ) return i + static_cast<size_t>( __builtin_ctz( stops ) );
    }
#endif
    for( ; i < length && isPlain<kind>( static_cast<unsigned char>( in[i] ) ); ++i )
        out[i] = static_cast<unsigned char>( in[i] );
    return i;
}

// Narrows the first units that are below 0x80, and says how many there are.
inline size_t narrow( const char16_t* in, size_t length, char* out )
{
    size_t i = 0;
#ifdef __SSE2__
    for( ; i + BLOCK <= length; i += BLOCK )
    {
        const __m128i low = _mm_loadu_si128( reinterpret_cast<const __m128i*>( in + i ) );
        const __m128i high = _mm_loadu_si128( reinterpret_cast<const __m128i*>( in + i + BLOCK / 2 ) );
        const __m128i large = _mm_and_si128( _mm_or_si128( low, high ), _mm_set1_epi16( -0x80 ) );
        if( _mm_movemask_epi8( _mm_cmpeq_epi16( large, _mm_setzero_si128( ) ) ) != 0xFFFF ) break;
        _mm_storeu_si128( reinterpret_cast<__m128i*>( out + i ), _mm_packus_epi16( low, high ) );
    }
#endif
    for( ; i < length && in[i] < 0x80; ++i ) out[i] = static_cast<char>( in[i] );
    return i;
}
} // namespace GPlainText
