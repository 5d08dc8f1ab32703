#include "client/drawing/GRoundRect.h"

#include <algorithm>
#include <cstddef>

namespace
{
// Corners are sums of this many samples a side and pixel.
constexpr int SAMPLES = 4;
constexpr int FULL = SAMPLES * SAMPLES;

// A rectangle in samples, and its radius.
struct Shape
{
    int left;
    int top;
    int right;
    int bottom;
    int radius;

    Shape( const GRect& rect, int inset, int corner )
        : left( ( rect.left + inset ) * SAMPLES ), top( ( rect.top + inset ) * SAMPLES ),
          right( ( rect.right - inset ) * SAMPLES ), bottom( ( rect.bottom - inset ) * SAMPLES ),
          radius( std::max( 0, corner - inset ) * SAMPLES )
    {
    }
    bool contains( int x, int y ) const
    {
        if( x < left || y < top || x >= right || y >= bottom ) return false;
        // Twice the distance of the sample's middle to the nearest corner's centre, where there is one.
        const int dx = 2 * std::max( { left + radius - x, x + 1 - right + radius, 0 } ) - 1;
        const int dy = 2 * std::max( { top + radius - y, y + 1 - bottom + radius, 0 } ) - 1;
        if( dx < 0 || dy < 0 ) return true;
        return dx * dx + dy * dy <= 4 * radius * radius;
    }
    // How many samples of a pixel lie inside.
    int cover( int x, int y ) const
    {
        const int x0 = x * SAMPLES, y0 = y * SAMPLES, last = SAMPLES - 1;
        // The shape bulges outward: a pixel with all its corners inside is full.
        if( contains( x0, y0 ) && contains( x0 + last, y0 ) && contains( x0, y0 + last ) &&
            contains( x0 + last, y0 + last ) )
            return FULL;
        int count = 0;
        for( int j = 0; j < SAMPLES; j++ )
            for( int i = 0; i < SAMPLES; i++ ) count += contains( x0 + i, y0 + j );
        return count;
    }
};

void blend( uint8_t* pixel, uint32_t colour, int cover )
{
    const uint32_t alpha = ( ( colour >> 24 ) * static_cast<uint32_t>( cover ) + FULL / 2 ) / FULL;
    const uint32_t channels[4] = { colour >> 16 & 255, colour >> 8 & 255, colour & 255, 255 };
    for( int i = 0; i < 4; i++ )
        pixel[i] = static_cast<uint8_t>( ( channels[i] * alpha + pixel[i] * ( 255 - alpha ) + 127 ) / 255 );
}

template <typename Cover>
GRect paint( const GImageFormat& format, char* pixels, const GRect& rect, const GRect& clip, uint32_t colour,
             Cover cover )
{
    const GRect area = GRectIntersect( GRectIntersect( rect, clip ), { 0, 0, format.width, format.height } );
    if( GRectEmpty( area ) ) return GRectAccumulator( );
    for( int y = area.top; y < area.bottom; y++ )
    {
        uint8_t* row = reinterpret_cast<uint8_t*>( pixels ) + static_cast<ptrdiff_t>( y ) * format.width * 4;
        for( int x = area.left; x < area.right; x++ )
            if( const int part = cover( x, y ) ) blend( row + static_cast<ptrdiff_t>( x ) * 4, colour, part );
    }
    return area;
}

int held( const GRect& rect, int radius )
{
    return std::clamp( radius, 0, std::min( rect.width( ), rect.height( ) ) / 2 );
}
} // namespace

GRect GRoundRectFill( const GImageFormat& format, char* pixels, const GRect& rect, const GRect& clip, int radius,
                      uint32_t colour )
{
    const Shape shape( rect, 0, held( rect, radius ) );
    return paint( format, pixels, rect, clip, colour, [&]( int x, int y ) { return shape.cover( x, y ); } );
}

GRect GRoundRectDraw( const GImageFormat& format, char* pixels, const GRect& rect, const GRect& clip, int radius,
                      int width, uint32_t colour )
{
    const int corner = held( rect, radius );
    const Shape outer( rect, 0, corner );
    const Shape inner( rect, std::max( 0, width ), corner );
    return paint( format, pixels, rect, clip, colour,
                  [&]( int x, int y ) { return outer.cover( x, y ) - inner.cover( x, y ); } );
}
