// A camera's picture on its way to the video codec: cut out, scaled and parted into planes with as few looks at its pixels as can be.
#include "GImageRows.h"

namespace
{
// Planes of even size in one buffer.
struct Planes
{
    Planes( uint8_t* buffer, int planeWidth, int planeHeight )
        : width( planeWidth ), height( planeHeight ), y( buffer ), u( y + static_cast<ptrdiff_t>( width ) * height ),
          v( u + static_cast<ptrdiff_t>( width / 2 ) * ( height / 2 ) )
    {
    }
    int width;
    int height;
    uint8_t* y;
    uint8_t* u;
    uint8_t* v;
};

void part( int type, const GImageRows& from, const Planes& to )
{
    GVERIFY( GImageRowsToPlanes( type, from, { to.y, to.u, to.v, to.width, to.width / 2 } ) );
}

// Pixels of which each was made from pairs: two of brightness, which become one, beside the colours.
void partPairs( const uint8_t* pairs, const Planes& to )
{
    const int width = to.width;
    for( int row = 0; row < to.height; row++ )
    {
        const uint8_t* from = pairs + static_cast<ptrdiff_t>( row ) * width * 4;
        uint8_t* y = to.y + static_cast<ptrdiff_t>( row ) * width;
        for( int x = 0; x < width; x++, from += 4 ) y[x] = static_cast<uint8_t>( ( from[0] + from[2] + 1 ) >> 1 );
    }
    for( int row = 0; row < to.height / 2; row++ )
    {
        const uint8_t* from = pairs + static_cast<ptrdiff_t>( row ) * 2 * width * 4;
        const uint8_t* below = from + static_cast<ptrdiff_t>( width ) * 4;
        const ptrdiff_t begin = static_cast<ptrdiff_t>( row ) * ( width / 2 );
        for( int x = 0; x < width / 2; x++, from += 8, below += 8 )
        {
            to.u[begin + x] = static_cast<uint8_t>( ( from[1] + from[5] + below[1] + below[5] + 2 ) >> 2 );
            to.v[begin + x] = static_cast<uint8_t>( ( from[3] + from[7] + below[3] + below[7] + 2 ) >> 2 );
        }
    }
}

// Where a picture shrinks enough, its pixels are summed up as they lie and only the few that are left are parted.
bool shrinkPairs( const GImageRows& from, const Planes& to )
{
    const size_t size = static_cast<size_t>( to.width ) * static_cast<size_t>( to.height ) * 4;
    uint8_t* small = GImageScratch( 2, size );
    const GImageRows pairs = { from.data, from.stride, from.width / 2, from.height };
    if( !GImageScaleBox( 4, pairs, small, to.width * 4, to.width, to.height ) ) return false;
    partPairs( small, to );
    return true;
}

void scalePixels( int type, const GImageRows& from, const Planes& to )
{
    const int stride = GImageRowStride( type, to.width );
    uint8_t* scaled = GImageScratch( 2, static_cast<size_t>( stride ) * static_cast<size_t>( to.height ) );
    GVERIFY( GImageScaleRows( type, from, scaled, stride, to.width, to.height ) );
    part( type, { scaled, stride, to.width, to.height }, to );
}

void scalePlane( const uint8_t* plane, int width, int height, uint8_t* to, int toWidth, int toHeight )
{
    const GImageRows from = { plane, width, width, height };
    if( !GImageScaleBox( 1, from, to, toWidth, toWidth, toHeight ) )
        GImageScaleLinear( 1, from, to, toWidth, toWidth, toHeight );
}

// The other pairs: each plane by itself.
void scalePlanes( const GImageRows& from, const Planes& to )
{
    const size_t size = static_cast<size_t>( GImageSizeIYUY( from.width, from.height ) );
    const Planes whole( GImageScratch( 2, size ), from.width, from.height );
    part( GIT_YUY2, from, whole );
    scalePlane( whole.y, from.width, from.height, to.y, to.width, to.height );
    scalePlane( whole.u, from.width / 2, from.height / 2, to.u, to.width / 2, to.height / 2 );
    scalePlane( whole.v, from.width / 2, from.height / 2, to.v, to.width / 2, to.height / 2 );
}
} // namespace

void GImageCropToIYUY( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& rect,
                       const GImageFormat& toFormat, GString& out )
{
    GPRECONDITION( fromBuffer && GRectHasVolume( rect ) );
    GPRECONDITION( GRectWithin( rect, fromFormat.width, fromFormat.height ) );
    GPRECONDITION( toFormat.type == GIT_IYUY && toFormat.width > 0 && toFormat.height > 0 );
    GPRECONDITION( toFormat.width % 2 == 0 && toFormat.height % 2 == 0 );
    if( !GImageRowsToPlanes( fromFormat.type, { }, { } ) ) return GImageUnsupported( fromFormat.type, GIT_IYUY );
    // Pairs share their colours: they are never torn apart.
    GRect whole = rect;
    if( fromFormat.type == GIT_YUY2 )
    {
        whole.left &= ~1;
        whole.right &= ~1;
        whole.bottom -= rect.height( ) % 2;
        GPRECONDITION( GRectHasVolume( whole ) );
    }
    const GImageRows from = GImageRowsOf( fromFormat, fromBuffer, whole );
    out.resize( static_cast<size_t>( GImageSizeIYUY( toFormat.width, toFormat.height ) ) );
    const Planes to( reinterpret_cast<uint8_t*>( out.data( ) ), toFormat.width, toFormat.height );
    if( from.width == to.width && from.height == to.height )
        part( fromFormat.type, from, to );
    else if( fromFormat.type != GIT_YUY2 )
        scalePixels( fromFormat.type, from, to );
    else if( !shrinkPairs( from, to ) )
        scalePlanes( from, to );
}
