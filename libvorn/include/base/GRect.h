// A rectangle of four signed numbers; right and bottom are exclusive.
// The helpers are total: they never overflow for coordinates within 31 bits and never assert.
#pragma once

#include <cstdint>

struct GRect
{
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;

    int width( ) const { return right - left; }
    int height( ) const { return bottom - top; }
    bool contains( int x, int y ) const { return x >= left && x < right && y >= top && y < bottom; }
    friend bool operator==( const GRect&, const GRect& ) = default;
};

// True when neither side lies before its opposite.
constexpr bool GVALIDRECT( const GRect& rect )
{
    return rect.right >= rect.left && rect.bottom >= rect.top;
}
constexpr bool GRectHasVolume( const GRect& rect )
{
    return rect.right > rect.left && rect.bottom > rect.top;
}
constexpr bool GRectEmpty( const GRect& rect )
{
    return !GRectHasVolume( rect );
}
// True when the rectangle lies inside 0 .. width, 0 .. height; touching the edge is inside.
constexpr bool GRectWithin( const GRect& rect, int width, int height )
{
    return rect.left >= 0 && rect.top >= 0 && rect.right <= width && rect.bottom <= height;
}
constexpr bool GRectContains( const GRect& outer, const GRect& inner )
{
    return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
           inner.bottom <= outer.bottom;
}
constexpr GRect GRectIntersect( const GRect& a, const GRect& b )
{
    return { a.left > b.left ? a.left : b.left, a.top > b.top ? a.top : b.top, a.right < b.right ? a.right : b.right,
             a.bottom < b.bottom ? a.bottom : b.bottom };
}
constexpr GRect GRectUnion( const GRect& a, const GRect& b )
{
    return { a.left < b.left ? a.left : b.left, a.top < b.top ? a.top : b.top, a.right > b.right ? a.right : b.right,
             a.bottom > b.bottom ? a.bottom : b.bottom };
}
// The empty accumulator: its union with any rectangle is that rectangle.
constexpr GRect GRectAccumulator( )
{
    return { INT32_MAX, INT32_MAX, INT32_MIN, INT32_MIN };
}
