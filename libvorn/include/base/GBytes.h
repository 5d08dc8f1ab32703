// Little-endian fields at fixed offsets: the one reader and writer of every binary packet. The caller has tested the length; the
// accessors themselves are plain loads and stores and never allocate.
#pragma once

#include <cstdint>

inline uint8_t GReadU8( const char* p )
{
    return static_cast<uint8_t>( *p );
}
inline uint16_t GReadU16( const char* p )
{
    return static_cast<uint16_t>( GReadU8( p ) | GReadU8( p + 1 ) << 8 );
}
inline uint32_t GReadU32( const char* p )
{
    return GReadU16( p ) | static_cast<uint32_t>( GReadU16( p + 2 ) ) << 16;
}
inline uint64_t GReadU64( const char* p )
{
    return GReadU32( p ) | static_cast<uint64_t>( GReadU32( p + 4 ) ) << 32;
}
inline void GWriteU8( char* p, uint8_t value )
{
    *p = static_cast<char>( value );
}
inline void GWriteU16( char* p, uint16_t value )
{
    GWriteU8( p, static_cast<uint8_t>( value ) );
    GWriteU8( p + 1, static_cast<uint8_t>( value >> 8 ) );
}
inline void GWriteU32( char* p, uint32_t value )
{
    GWriteU16( p, static_cast<uint16_t>( value ) );
    GWriteU16( p + 2, static_cast<uint16_t>( value >> 16 ) );
}
inline void GWriteU64( char* p, uint64_t value )
{
    GWriteU32( p, static_cast<uint32_t>( value ) );
    GWriteU32( p + 4, static_cast<uint32_t>( value >> 32 ) );
}
