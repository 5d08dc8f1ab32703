// The loops have no branch and read each pixel before they write it, so that the compiler makes vectors of them.
#include "platform/common/GScreenPixels.h"

#include <cstring>

namespace
{
template <typename Pixel, typename Work>
void forEach( const char* from, char* to, size_t count, Work work )
{
    for( size_t i = 0; i < count; ++i )
    {
        Pixel pixel;
        std::memcpy( &pixel, from + i * sizeof( Pixel ), sizeof( Pixel ) );
        pixel = static_cast<Pixel>( work( pixel ) );
        std::memcpy( to + i * sizeof( Pixel ), &pixel, sizeof( Pixel ) );
    }
}

// A display leaves the fourth byte to chance; a picture of it is opaque.
constexpr uint32_t OPAQUE_ALPHA = 0xFF000000;

void makeOpaque( const char* from, char* to, size_t count )
{
    forEach<uint32_t>( from, to, count, []( uint32_t pixel ) { return pixel | OPAQUE_ALPHA; } );
}
void swapAndMakeOpaque( const char* from, char* to, size_t count )
{
    forEach<uint32_t>( from, to, count,
                       []( uint32_t pixel ) {
                           return OPAQUE_ALPHA | ( pixel & 0xFF00 ) | ( pixel & 0xFF ) << 16 | ( pixel >> 16 & 0xFF );
                       } );
}
void dropTenthBits( const char* from, char* to, size_t count )
{
    forEach<uint32_t>( from, to, count,
                       []( uint32_t pixel ) {
                           return OPAQUE_ALPHA | ( pixel >> 6 & 0xFF0000 ) | ( pixel >> 4 & 0xFF00 ) |
                                  ( pixel >> 2 & 0xFF );
                       } );
}
// Red and the upper five bits of green go one down.
void dropSixthBit( const char* from, char* to, size_t count )
{
    forEach<uint16_t>( from, to, count, []( uint32_t pixel ) { return ( pixel >> 1 & 0x7FE0 ) | ( pixel & 0x1F ); } );
}
void keepShorts( const char* from, char* to, size_t count )
{
    forEach<uint16_t>( from, to, count, []( uint32_t pixel ) { return pixel & 0x7FFF; } );
}
void keepTriples( const char* from, char* to, size_t count )
{
    std::memmove( to, from, count * 3 );
}
void swapTriples( const char* from, char* to, size_t count )
{
    for( size_t i = 0; i < count * 3; i += 3 )
    {
        const char first = from[i];
        const char second = from[i + 1];
        to[i] = from[i + 2];
        to[i + 1] = second;
        to[i + 2] = first;
    }
}

constexpr GScreenPixels KINDS[] = {
    { 32, 0xFF0000, 0x00FF00, 0x0000FF, GIT_BGRA32, makeOpaque },
    { 32, 0x0000FF, 0x00FF00, 0xFF0000, GIT_BGRA32, swapAndMakeOpaque },
    { 32, 0x3FF00000, 0xFFC00, 0x3FF, GIT_BGRA32, dropTenthBits },
    { 24, 0xFF0000, 0x00FF00, 0x0000FF, GIT_BGR24, keepTriples },
    { 24, 0x0000FF, 0x00FF00, 0xFF0000, GIT_BGR24, swapTriples },
    { 16, 0x7C00, 0x03E0, 0x001F, GIT_RGB555, keepShorts },
    { 16, 0xF800, 0x07E0, 0x001F, GIT_RGB555, dropSixthBit },
};
} // namespace

const GScreenPixels* GScreenFindPixels( int bits, uint32_t redMask, uint32_t greenMask, uint32_t blueMask )
{
    for( const GScreenPixels& kind : KINDS )
        if( kind.bits == bits && kind.redMask == redMask && kind.greenMask == greenMask && kind.blueMask == blueMask )
            return &kind;
    return nullptr;
}

void GScreenCopyRows( const GScreenPixels& pixels, const char* from, size_t fromStride, char* to, size_t toStride,
                      int width, int height )
{
    for( int y = 0; y < height; ++y, from += fromStride, to += toStride )
        pixels.convert( from, to, static_cast<size_t>( width ) );
}
