#include "GImageRows.h"

#include <libyuv.h>

bool GImageScaleRows( int type, const GImageRows& from, uint8_t* to, int toStride, int toWidth, int toHeight )
{
    const int channels = type == GIT_RGB565 || type == GIT_RGB555 || type == GIT_YUY2 ? 0 : GImageBytesPerPixel( type );
    if( GImageScaleBox( channels, from, to, toStride, toWidth, toHeight ) ) return true;
    // The library's own loops for packed pixels round down: white would come out gray and what is opaque would shine through.
    if( channels != 1 ) return GImageScaleLinear( channels, from, to, toStride, toWidth, toHeight );
    libyuv::ScalePlane( from.data, from.stride, from.width, from.height, to, toStride, toWidth, toHeight,
                        libyuv::kFilterBox );
    return true;
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
