#include "runtime/GNameIndex.h"

#include "base/GPortable.h"
#include "platform/GTime.h"

#include <algorithm>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace
{
// Units that are folded and hashed at a time.
constexpr size_t BLOCK = 8;

struct Seeds
{
    uint64_t first;
    uint64_t second;
};
// The clock and the place of the program in memory: no two runs agree, and nobody outside knows.
uint64_t seed( uint64_t salt )
{
    static const char here = 0;
    uint64_t value =
        GTimeGetTime( ) ^ salt ^ reinterpret_cast<uintptr_t>( &here ) ^ reinterpret_cast<uintptr_t>( &value ) << 20;
    for( int i = 0; i < 3; ++i ) value = ( value ^ value >> 31 ) * 0x9E3779B97F4A7C15u;
    return value;
}
const Seeds& seeds( )
{
    static const Seeds both = { seed( 1 ), seed( 2 ) };
    return both;
}

// Both halves of a product: each bit of the factors reaches each bit of the hash.
uint64_t mix( uint64_t a, uint64_t b )
{
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>( a ) * b;
    return static_cast<uint64_t>( product ) ^ static_cast<uint64_t>( product >> 64 );
}
uint64_t word( const char16_t* units )
{
    uint64_t value;
    std::memcpy( &value, units, sizeof( value ) );
    return value;
}

void foldBlock( const char16_t* in, char16_t* out )
{
#ifdef __SSE2__
    const __m128i units = _mm_loadu_si128( reinterpret_cast<const __m128i*>( in ) );
    // Units from 0x8000 on are negative and thus no capitals.
    const __m128i capital = _mm_and_si128( _mm_cmpgt_epi16( units, _mm_set1_epi16( 'A' - 1 ) ),
                                           _mm_cmplt_epi16( units, _mm_set1_epi16( 'Z' + 1 ) ) );
    const __m128i lowered = _mm_add_epi16( units, _mm_and_si128( capital, _mm_set1_epi16( 'a' - 'A' ) ) );
    _mm_storeu_si128( reinterpret_cast<__m128i*>( out ), lowered );
#else
    std::transform( in, in + BLOCK, out,
                    []( char16_t unit )
                    { return GWITHIN( u'A', unit, u'Z' ) ? static_cast<char16_t>( unit + 0x20 ) : unit; } );
#endif
}

// Folds into room for whole blocks; the hash.
uint64_t fold( GWStringView name, char16_t* out )
{
    const Seeds& secret = seeds( );
    uint64_t hash = secret.first ^ name.size( );
    size_t i = 0;
    for( ; i < name.size( ); i += BLOCK )
    {
        if( i + BLOCK <= name.size( ) )
            foldBlock( name.data( ) + i, out + i );
        else
        {
            char16_t last[BLOCK] = { };
            std::copy( name.begin( ) + static_cast<ptrdiff_t>( i ), name.end( ), last );
            foldBlock( last, out + i );
        }
        hash = mix( hash ^ word( out + i ), secret.second ^ word( out + i + BLOCK / 2 ) );
    }
    return mix( hash, secret.second );
}
} // namespace

GFoldedName::GFoldedName( GWStringView name )
{
    char16_t* out = _short;
    if( name.size( ) > MAX_SHORT )
    {
        _long.resize( name.size( ) + BLOCK );
        out = _long.data( );
    }
    _hash = fold( name, out );
    _view = GWStringView( out, name.size( ) );
}
