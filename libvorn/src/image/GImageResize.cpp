#include "GImageRows.h"

#include <libyuv.h>
#include <libyuv/scale_rgb.h>

namespace
{
bool isOpaque( const GImageRows& rows )
{
    for( int y = 0; y < rows.height; y++ )
    {
        const uint8_t* row = rows.data + static_cast<ptrdiff_t>( y ) * rows.stride;
        uint8_t all = 255;
        for( int x = 0; x < rows.width; x++ ) all &= row[x * 4 + 3];
        if( all != 255 ) return false;
    }
    return true;
}

// Averages are rounded down: without this an opaque picture would shine through by one step of 255.
void makeOpaque( uint8_t* pixels, int stride, int width, int height )
{
    for( int y = 0; y < height; y++, pixels += stride )
        for( int x = 0; x < width; x++ ) pixels[x * 4 + 3] = 255;
}
} // namespace

bool GImageScaleRows( int type, const GImageRows& from, uint8_t* to, int toStride, int toWidth, int toHeight )
{
    const int channels = type == GIT_RGB565 || type == GIT_RGB555 || type == GIT_YUY2 ? 0 : GImageBytesPerPixel( type );
    if( GImageScaleBox( channels, from, to, toStride, toWidth, toHeight ) ) return true;
    switch( type )
    {
    case GIT_RGB24:
    case GIT_BGR24:
        return libyuv::RGBScale( from.data, from.stride, from.width, from.height, to, toStride, toWidth, toHeight,
                                 libyuv::kFilterBox ) == 0;
    case GIT_RGBA32:
    case GIT_BGRA32:
        libyuv::ARGBScale( from.data, from.stride, from.width, from.height, to, toStride, toWidth, toHeight,
                           libyuv::kFilterBox );
        if( isOpaque( from ) ) makeOpaque( to, toStride, toWidth, toHeight );
        return true;
    case GIT_GRAY8:
        libyuv::ScalePlane( from.data, from.stride, from.width, from.height, to, toStride, toWidth, toHeight,
                            libyuv::kFilterBox );
        return true;
    default: return false;
    }
}

void GImageResize( const GImageFormat& fromFormat, const char* fromBuffer, const GImageFormat& toFormat, GString& out )
{
    GPRECONDITION( fromBuffer && fromFormat.width > 0 && fromFormat.height > 0 );
    GPRECONDITION( toFormat.width > 0 && toFormat.height > 0 );
    GPRECONDITION( fromFormat.type == toFormat.type );
    const GImageRows rows = GImageRowsOf( fromFormat, fromBuffer, { 0, 0, fromFormat.width, fromFormat.height } );
    out.resize( static_cast<size_t>( GImageSize( toFormat ) ) );
    if( GImageScaleRows( fromFormat.type, rows, reinterpret_cast<uint8_t*>( out.data( ) ),
                         GImageRowStride( toFormat.type, toFormat.width ), toFormat.width, toFormat.height ) )
        return;
    GLOG( u"ERROR: Attempting to resize unsupported image type #", fromFormat.type, u", aborting." );
    GAbort( );
}

void GImageResizeIYUY( const GImageFormat& fromFormat, const char* fromBuffer, const GImageFormat& toFormat,
                       GString& out )
{
    GPRECONDITION( fromBuffer && fromFormat.width > 0 && fromFormat.height > 0 );
    GPRECONDITION( toFormat.width > 0 && toFormat.height > 0 );
    GASSERT( fromFormat.type == GIT_IYUY );
    out.resize( static_cast<size_t>( GImageSizeIYUY( toFormat.width, toFormat.height ) ) );
    const uint8_t* from = reinterpret_cast<const uint8_t*>( fromBuffer );
    uint8_t* to = reinterpret_cast<uint8_t*>( out.data( ) );
    for( int plane = 0; plane < 3; plane++ )
    {
        const int half = plane ? 2 : 1;
        const int fromWidth = fromFormat.width / half, fromHeight = fromFormat.height / half;
        const int toWidth = toFormat.width / half, toHeight = toFormat.height / half;
        if( fromWidth > 0 && fromHeight > 0 && toWidth > 0 && toHeight > 0 )
            GImageScaleRows( GIT_GRAY8, { from, fromWidth, fromWidth, fromHeight }, to, toWidth, toWidth, toHeight );
        from += static_cast<ptrdiff_t>( fromWidth ) * fromHeight;
        to += static_cast<ptrdiff_t>( toWidth ) * toHeight;
    }
}
