#include "GImageRows.h"

#include <algorithm>
#include <cstring>

namespace
{
bool isDrawable( int type )
{
    return type == GIT_RGB24 || type == GIT_RGBA32 || type == GIT_BGR24 || type == GIT_BGRA32;
}

// The bytes of a colour in the order of the layout.
void layOut( int type, uint32_t colour, uint8_t bytes[4] )
{
    const bool redFirst = type == GIT_RGB24 || type == GIT_RGBA32;
    const uint8_t red = static_cast<uint8_t>( colour >> 16 );
    const uint8_t blue = static_cast<uint8_t>( colour );
    bytes[0] = redFirst ? red : blue;
    bytes[1] = static_cast<uint8_t>( colour >> 8 );
    bytes[2] = redFirst ? blue : red;
    bytes[3] = static_cast<uint8_t>( colour >> 24 );
}

uint8_t* pixelAt( const GImageFormat& format, char* buffer, int x, int y )
{
    const int bytes = GImageBytesPerPixel( format.type );
    return reinterpret_cast<uint8_t*>( buffer ) + ( static_cast<ptrdiff_t>( y ) * format.width + x ) * bytes;
}

GRect clipped( const GImageFormat& format, const GRect& rect )
{
    return GRectIntersect( rect, { 0, 0, format.width, format.height } );
}
} // namespace

void GImageDrawHorizLine( const GImageFormat& format, char* buffer, int left, int right, int y, uint32_t colour )
{
    GPRECONDITION( buffer && format.width > 0 && format.height > 0 );
    if( !isDrawable( format.type ) )
    {
        GLOG( u"WARNING Attempting drawHorizLine on unsupported type #", format.type, u", ignoring." );
        return;
    }
    left = std::max( left, 0 );
    right = std::min( right, format.width );
    if( y < 0 || y >= format.height || left >= right ) return;
    uint8_t bytes[4];
    layOut( format.type, colour, bytes );
    uint8_t* to = pixelAt( format, buffer, left, y );
    if( GImageBytesPerPixel( format.type ) == 4 )
    {
        uint32_t word;
        std::memcpy( &word, bytes, 4 );
        for( int x = left; x < right; x++, to += 4 ) std::memcpy( to, &word, 4 );
        return;
    }
    for( int x = left; x < right; x++, to += 3 ) std::memcpy( to, bytes, 3 );
}

void GImageDrawVertLine( const GImageFormat& format, char* buffer, int x, int top, int bottom, uint32_t colour )
{
    GPRECONDITION( buffer && format.width > 0 && format.height > 0 );
    if( !isDrawable( format.type ) )
    {
        GLOG( u"WARNING Attempting drawVertLine on unsupported type #", format.type, u", ignoring." );
        return;
    }
    top = std::max( top, 0 );
    bottom = std::min( bottom, format.height );
    if( x < 0 || x >= format.width ) return;
    uint8_t bytes[4];
    layOut( format.type, colour, bytes );
    const size_t size = static_cast<size_t>( GImageBytesPerPixel( format.type ) );
    for( int y = top; y < bottom; y++ ) std::memcpy( pixelAt( format, buffer, x, y ), bytes, size );
}

void GImageInvertHorizLine( const GImageFormat& format, char* buffer, int left, int right, int y )
{
    GPRECONDITION( buffer && format.width > 0 && format.height > 0 );
    if( !isDrawable( format.type ) )
    {
        GLOG( u"WARNING Attempting invertHorizLine on unsupported type #", format.type, u", ignoring." );
        return;
    }
    left = std::max( left, 0 );
    right = std::min( right, format.width );
    if( y < 0 || y >= format.height || left >= right ) return;
    const int bytes = GImageBytesPerPixel( format.type );
    uint8_t* to = pixelAt( format, buffer, left, y );
    for( int x = left; x < right; x++, to += bytes )
        for( int channel = 0; channel < 3; channel++ ) to[channel] = static_cast<uint8_t>( ~to[channel] );
}

void GImageDrawRect( const GImageFormat& format, char* buffer, const GRect& rect, uint32_t colour )
{
    GPRECONDITION( buffer && format.width > 0 && format.height > 0 );
    if( GRectEmpty( rect ) ) return;
    GImageDrawHorizLine( format, buffer, rect.left, rect.right, rect.top, colour );
    GImageDrawHorizLine( format, buffer, rect.left, rect.right, rect.bottom - 1, colour );
    GImageDrawVertLine( format, buffer, rect.left, rect.top, rect.bottom, colour );
    GImageDrawVertLine( format, buffer, rect.right - 1, rect.top, rect.bottom, colour );
}

void GImageFillRect( const GImageFormat& format, char* buffer, const GRect& rect, uint32_t colour )
{
    GPRECONDITION( buffer && format.width > 0 && format.height > 0 );
    const GRect area = clipped( format, rect );
    if( GRectEmpty( area ) ) return;
    for( int y = area.top; y < area.bottom; y++ )
        GImageDrawHorizLine( format, buffer, area.left, area.right, y, colour );
}

void GImageInvertRect( const GImageFormat& format, char* buffer, const GRect& rect )
{
    GPRECONDITION( buffer && format.width > 0 && format.height > 0 );
    const GRect area = clipped( format, rect );
    if( GRectEmpty( area ) ) return;
    for( int y = area.top; y < area.bottom; y++ ) GImageInvertHorizLine( format, buffer, area.left, area.right, y );
}

void GImageVertMirror( const GImageFormat& format, char* buffer )
{
    GPRECONDITION( buffer && format.width > 0 && format.height > 0 );
    const size_t stride = static_cast<size_t>( GImageRowStride( format.type, format.width ) );
    if( !GImageBytesPerPixel( format.type ) )
    {
        GLOG( u"WARNING Attempting unsupported vertical mirror on unsupported type #", format.type, u", ignoring." );
        return;
    }
    char* top = buffer;
    char* bottom = buffer + stride * static_cast<size_t>( format.height - 1 );
    for( ; top < bottom; top += stride, bottom -= stride ) std::swap_ranges( top, top + stride, bottom );
}
