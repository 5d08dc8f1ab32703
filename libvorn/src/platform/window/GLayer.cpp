#include "platform/window/GLayer.h"

#include <cstring>

namespace
{
constexpr size_t MOST_PIECES = 8192;

uint32_t scale( uint32_t pixel, uint32_t alpha )
{
    // Two channels at a time; x * a / 255 rounded.
    uint32_t even = ( pixel & 0x00FF00FF ) * alpha + 0x00800080;
    even = ( ( even + ( ( even >> 8 ) & 0x00FF00FF ) ) >> 8 ) & 0x00FF00FF;
    uint32_t odd = ( ( pixel >> 8 ) & 0x00FF00FF ) * alpha + 0x00800080;
    odd = ( odd + ( ( odd >> 8 ) & 0x00FF00FF ) ) & 0xFF00FF00;
    return even | odd;
}

// Bits that tell whether a pixel shows at all, and whether it shows without a compositor.
uint32_t shapeOf( uint32_t pixel )
{
    const uint32_t opacity = pixel >> 24;
    return ( ( opacity + 0x7F ) | opacity ) >> 7 | ( opacity >> 7 ) << 1;
}

// The bits of the shapes that are others now.
uint32_t copyRow( const char* source, uint32_t* target, int count, uint32_t factor )
{
    uint32_t crossed = 0;
    for( int i = 0; i < count; ++i )
    {
        uint32_t pixel;
        std::memcpy( &pixel, source + static_cast<size_t>( i ) * 4, 4 );
        pixel = ( pixel & 0xFF00FF00 ) | ( ( pixel & 0xFF ) << 16 ) | ( ( pixel >> 16 ) & 0xFF );
        if( factor != 255 ) pixel = scale( pixel, factor );
        if( ( pixel ^ target[i] ) & 0xFF000000 ) crossed |= shapeOf( pixel ) ^ shapeOf( target[i] );
        target[i] = pixel;
    }
    return crossed;
}

void findRow( const unsigned char* row, int width, int y, int threshold, bool coarse, std::vector<GRect>& bands )
{
    const size_t first = bands.size( );
    for( int x = 0; x < width; )
    {
        while( x < width && row[4 * x + 3] < threshold ) ++x;
        if( x == width ) break;
        const int left = x;
        while( x < width && row[4 * x + 3] >= threshold ) ++x;
        if( coarse && bands.size( ) > first )
            bands.back( ).right = x;
        else
            bands.push_back( { left, y, x, y + 1 } );
    }
}

// Joins the row that begins at `current` with the band that begins at `last` when both have the same pieces.
bool joinRow( std::vector<GRect>& bands, size_t last, size_t current )
{
    const size_t pieces = current - last;
    if( !pieces || bands.size( ) - current != pieces || bands[last].bottom != bands[current].top ) return false;
    for( size_t i = 0; i < pieces; ++i )
        if( bands[last + i].left != bands[current + i].left || bands[last + i].right != bands[current + i].right )
            return false;
    for( size_t i = 0; i < pieces; ++i ) ++bands[last + i].bottom;
    bands.resize( current );
    return true;
}
} // namespace

bool GLayerCopy( const char* source, uint32_t* target, int width, const GRect& rect, int alpha )
{
    const auto factor = static_cast<uint32_t>( alpha );
    uint32_t crossed = 0;
    for( int y = rect.top; y < rect.bottom; ++y )
    {
        const size_t first = static_cast<size_t>( y ) * static_cast<size_t>( width ) + static_cast<size_t>( rect.left );
        crossed |= copyRow( source + first * 4, target + first, rect.width( ), factor );
    }
    return !crossed;
}

void GLayerFindBands( const char* pixels, int width, int height, int threshold, std::vector<GRect>& bands )
{
    bands.clear( );
    size_t last = 0;
    for( int y = 0; y < height; ++y )
    {
        const auto* row = reinterpret_cast<const unsigned char*>( pixels ) + static_cast<size_t>( y ) * width * 4;
        const size_t current = bands.size( );
        findRow( row, width, y, threshold, current > MOST_PIECES, bands );
        if( !joinRow( bands, last, current ) ) last = current;
    }
}
