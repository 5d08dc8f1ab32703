#include "client/drawing/GImageGDI.h"

#include "base/GPortable.h"
#include "image/GColor.h"
#include "image/GImage.h"

#include <algorithm>
#include <cstdlib>

void GImageGDI::resize( const GImageFormat& format )
{
    GPRECONDITION( format.type == GIT_BGRA32 && format.width > 0 && format.height > 0 );
    if( format == _format ) return;
    _format = format;
    _pixels.assign( static_cast<size_t>( GImageSize( format ) ), 0 );
}

void GImageGDI::clear( GWStringView colour )
{
    GPRECONDITION( _format.width > 0 );
    GImageFillRect( _format, _pixels.data( ), { 0, 0, _format.width, _format.height }, GColorFromText( colour ) );
}

void GImageGDI::setColor( GWStringView colour )
{
    _colour = GColorFromText( colour );
}

void GImageGDI::_setPixel( int x, int y )
{
    if( x >= 0 && x < _format.width ) GImageDrawHorizLine( _format, _pixels.data( ), x, x + 1, y, _colour );
}

void GImageGDI::drawLine( int x1, int y1, int x2, int y2 )
{
    GPRECONDITION( _format.width > 0 );
    const int width = std::abs( x2 - x1 ), height = std::abs( y2 - y1 );
    const int stepX = x1 < x2 ? 1 : -1, stepY = y1 < y2 ? 1 : -1;
    int error = width - height;
    for( int left = std::max( width, height ); left >= 0; left-- )
    {
        _setPixel( x1, y1 );
        const int twice = error * 2;
        if( twice > -height )
        {
            error -= height;
            x1 += stepX;
        }
        if( twice < width )
        {
            error += width;
            y1 += stepY;
        }
    }
}

void GImageGDI::convertToRGB( GImageFormat& format, GString& pixels ) const
{
    GPRECONDITION( _format.width > 0 );
    GImageConvert( _format, _pixels.data( ), GIT_RGB24, pixels );
    format = { GIT_RGB24, _format.width, _format.height };
}
