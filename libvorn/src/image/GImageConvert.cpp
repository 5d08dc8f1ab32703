#include "GImageRows.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <libyuv.h>
#include <utility>

namespace
{
using Pair = std::pair<int, int>;
constexpr std::array WHOLE_PAIRS = {
    Pair{ GIT_RGB24, GIT_RGBA32 }, Pair{ GIT_RGBA32, GIT_RGB24 }, Pair{ GIT_BGRA32, GIT_BGR24 },
    Pair{ GIT_BGR24, GIT_RGB24 },  Pair{ GIT_RGB24, GIT_BGR24 },  Pair{ GIT_BGRA32, GIT_RGB24 },
    Pair{ GIT_RGBA32, GIT_BGR24 }, Pair{ GIT_RGB565, GIT_BGR24 }, Pair{ GIT_YUY2, GIT_RGB24 },
    Pair{ GIT_RGB24, GIT_GRAY8 },  Pair{ GIT_RGBA32, GIT_GRAY8 }, Pair{ GIT_GRAY8, GIT_RGBA32 },
};
constexpr std::array RECT_PAIRS = {
    Pair{ GIT_BGR24, GIT_RGB565 }, Pair{ GIT_BGRA32, GIT_RGB565 }, Pair{ GIT_RGB24, GIT_GRAY8 },
    Pair{ GIT_BGRA32, GIT_BGR24 }, Pair{ GIT_RGB24, GIT_BGR24 },   Pair{ GIT_BGR24, GIT_RGB24 },
};

// A pair of equal types is a copy: a camera may deliver what the caller wants already.
template <typename Pairs>
bool offers( const Pairs& pairs, int from, int to )
{
    if( from == to ) return GImageBytesPerPixel( from ) > 0;
    for( const Pair& pair : pairs )
        if( pair.first == from && pair.second == to ) return true;
    return false;
}

void convertBlock( int fromType, const GImageRows& from, int targetType, GString& out )
{
    const int stride = GImageRowStride( targetType, from.width );
    out.resize( static_cast<size_t>( stride ) * static_cast<size_t>( from.height ) );
    if( !GImageConvertRows( fromType, from, targetType, reinterpret_cast<uint8_t*>( out.data( ) ), stride ) )
        GImageUnsupported( fromType, targetType );
}

bool isRGB( int type )
{
    return type >= GIT_RGB24 && type <= GIT_BGRA32;
}

// Planes of a packed planar buffer whose chroma planes are half as wide and half as high, rounded down.
struct Planes
{
    Planes( const char* buffer, int width, int height )
        : y( reinterpret_cast<uint8_t*>( const_cast<char*>( buffer ) ) ), chromaWidth( width / 2 ),
          chromaHeight( height / 2 )
    {
        u = y + static_cast<ptrdiff_t>( width ) * height;
        v = u + static_cast<ptrdiff_t>( chromaWidth ) * chromaHeight;
    }
    uint8_t* y;
    uint8_t* u;
    uint8_t* v;
    int chromaWidth;
    int chromaHeight;
};

// The library rounds odd chroma up, so odd sizes pass through chroma planes of their own.
struct RoundedChroma
{
    RoundedChroma( int width, int height ) : chromaWidth( ( width + 1 ) / 2 ), chromaHeight( ( height + 1 ) / 2 )
    {
        const size_t size = static_cast<size_t>( chromaWidth ) * static_cast<size_t>( chromaHeight );
        u = GImageScratch( 2, size * 2 );
        v = u + size;
    }
    void take( const Planes& planes )
    {
        const size_t size = static_cast<size_t>( chromaWidth ) * static_cast<size_t>( chromaHeight );
        std::memset( u, 128, size * 2 );
        if( planes.chromaWidth < 1 || planes.chromaHeight < 1 ) return;
        for( int row = 0; row < chromaHeight; row++ )
        {
            const ptrdiff_t from = static_cast<ptrdiff_t>( row < planes.chromaHeight ? row : planes.chromaHeight - 1 ) *
                                   planes.chromaWidth;
            extend( planes.u + from, u + static_cast<ptrdiff_t>( row ) * chromaWidth, planes.chromaWidth );
            extend( planes.v + from, v + static_cast<ptrdiff_t>( row ) * chromaWidth, planes.chromaWidth );
        }
    }
    void give( const Planes& planes ) const
    {
        libyuv::CopyPlane( u, chromaWidth, planes.u, planes.chromaWidth, planes.chromaWidth, planes.chromaHeight );
        libyuv::CopyPlane( v, chromaWidth, planes.v, planes.chromaWidth, planes.chromaWidth, planes.chromaHeight );
    }
    void extend( const uint8_t* from, uint8_t* to, int width ) const
    {
        std::memcpy( to, from, static_cast<size_t>( width ) );
        if( chromaWidth > width ) to[width] = from[width - 1];
    }
    uint8_t* u;
    uint8_t* v;
    int chromaWidth;
    int chromaHeight;
};

using ToPlanar = int ( * )( const uint8_t*, int, uint8_t*, int, uint8_t*, int, uint8_t*, int, int, int );
using FromPlanar = int ( * )( const uint8_t*, int, const uint8_t*, int, const uint8_t*, int, uint8_t*, int, int, int );

constexpr int NEAREST_CACHE = 16 << 10;

// Three bytes a pixel pass through four, a few rows at a time, as many as stay in the nearest cache. `step( row, half, rows, four,
// fourStride )` converts `rows` rows from `row` on, where `half` is the row of the chroma; it answers 0, or what ends the work.
template <typename STEP>
int throughFour( int width, int height, const STEP& step )
{
    const int fourStride = width * 4;
    const int chunk = std::max( NEAREST_CACHE / fourStride & ~1, 2 );
    uint8_t* const four = GImageScratch( 0, static_cast<size_t>( fourStride ) * static_cast<size_t>( chunk ) );
    int result = 0;
    for( int row = 0; row < height && result == 0; row += chunk )
        result = step( static_cast<ptrdiff_t>( row ), static_cast<ptrdiff_t>( row / 2 ),
                       std::min( chunk, height - row ), four, fourStride );
    return result;
}

// The library does the same with two rows, but takes them from the heap.
template <auto WIDEN>
int threeToPlanar( const uint8_t* from, int stride, uint8_t* y, int yStride, uint8_t* u, int uStride, uint8_t* v,
                   int vStride, int width, int height )
{
    const auto step = [&]( ptrdiff_t row, ptrdiff_t half, int rows, uint8_t* four, int fourStride )
    {
        const int result = WIDEN( from + row * stride, stride, four, fourStride, width, rows );
        if( result ) return result;
        return libyuv::ARGBToI420( four, fourStride, y + row * yStride, yStride, u + half * uStride, uStride,
                                   v + half * vStride, vStride, width, rows );
    };
    return throughFour( width, height, step );
}

ToPlanar toPlanar( int type )
{
    switch( type )
    {
    case GIT_RGB24: return threeToPlanar<libyuv::RAWToARGB>;
    case GIT_BGR24: return threeToPlanar<libyuv::RGB24ToARGB>;
    case GIT_RGBA32: return libyuv::ABGRToI420;
    case GIT_BGRA32: return libyuv::ARGBToI420;
    case GIT_YUY2: return libyuv::YUY2ToI420;
    default: return nullptr;
    }
}

// The way back: the library's own one to three bytes takes four times as long where rows end in less than 32 pixels.
template <auto WHOLE, auto NARROW>
int planarToThree( const uint8_t* y, int yStride, const uint8_t* u, int uStride, const uint8_t* v, int vStride,
                   uint8_t* to, int stride, int width, int height )
{
    if( width % 32 == 0 ) return WHOLE( y, yStride, u, uStride, v, vStride, to, stride, width, height );
    const auto step = [&]( ptrdiff_t row, ptrdiff_t half, int rows, uint8_t* four, int fourStride )
    {
        const int result = libyuv::I420ToARGB( y + row * yStride, yStride, u + half * uStride, uStride,
                                               v + half * vStride, vStride, four, fourStride, width, rows );
        if( result ) return result;
        return NARROW( four, fourStride, to + row * stride, stride, width, rows );
    };
    return throughFour( width, height, step );
}

FromPlanar fromPlanar( int type )
{
    switch( type )
    {
    case GIT_RGB24: return planarToThree<libyuv::I420ToRAW, libyuv::ARGBToRAW>;
    case GIT_BGR24: return planarToThree<libyuv::I420ToRGB24, libyuv::ARGBToRGB24>;
    case GIT_RGBA32: return libyuv::I420ToABGR;
    case GIT_BGRA32: return libyuv::I420ToARGB;
    default: return nullptr;
    }
}

// Rows of an odd packed image end in half a pair; the copy completes it.
const uint8_t* padPairs( const GImageFormat& format, const char* buffer, int& stride )
{
    const int bytes = format.width * 2;
    stride = bytes + 2;
    uint8_t* copy = GImageScratch( 1, static_cast<size_t>( stride ) * static_cast<size_t>( format.height ) );
    for( int y = 0; y < format.height; y++ )
    {
        uint8_t* row = copy + static_cast<ptrdiff_t>( y ) * stride;
        std::memcpy( row, buffer + static_cast<ptrdiff_t>( y ) * bytes, static_cast<size_t>( bytes ) );
        row[bytes] = row[bytes - 2];
        row[bytes + 1] = format.width > 1 ? row[bytes - 3] : 128;
    }
    return copy;
}
} // namespace

void GImageConvert( GImageFormat& format, char* buffer, int targetType )
{
    GPRECONDITION( buffer && format.width > 0 && format.height > 0 );
    const Pair pair( format.type, targetType );
    const bool swap = pair == Pair( GIT_RGBA32, GIT_BGRA32 ) || pair == Pair( GIT_BGRA32, GIT_RGBA32 ) ||
                      pair == Pair( GIT_RGB24, GIT_BGR24 ) || pair == Pair( GIT_BGR24, GIT_RGB24 );
    if( !swap )
    {
        GLOG( u"ERROR Attepting unsupported in-place conversion, from #", format.type, u" to #", targetType,
              u", aborting." );
        GAbort( );
        return;
    }
    const GImageRows rows = GImageRowsOf( format, buffer, { 0, 0, format.width, format.height } );
    GImageConvertRows( format.type, rows, targetType, reinterpret_cast<uint8_t*>( buffer ), rows.stride );
    format.type = targetType;
}

void GImageConvert( const GImageFormat& fromFormat, const char* fromBuffer, int targetType, GString& out )
{
    GPRECONDITION( fromBuffer && fromFormat.width > 0 && fromFormat.height > 0 );
    const GRect whole{ 0, 0, fromFormat.width, fromFormat.height };
    if( offers( WHOLE_PAIRS, fromFormat.type, targetType ) )
        convertBlock( fromFormat.type, GImageRowsOf( fromFormat, fromBuffer, whole ), targetType, out );
    else
        GImageConvert( fromFormat, fromBuffer, whole, targetType, out );
}

void GImageConvert( const GImageFormat& fromFormat, const char* fromBuffer, const GRect& rect, int targetType,
                    GString& out )
{
    GPRECONDITION( fromBuffer && fromFormat.width > 0 && fromFormat.height > 0 );
    GPRECONDITION( GRectHasVolume( rect ) && GRectWithin( rect, fromFormat.width, fromFormat.height ) );
    const int from = fromFormat.type;
    const GImageRows rows = GImageRowsOf( fromFormat, fromBuffer, rect );
    if( targetType == GIT_GRAY4 ) return GImageEncodeGray4( from, rows, out );
    if( from == GIT_GRAY4 && ( targetType == GIT_RGB24 || targetType == GIT_BGR24 ) )
        return GImageDecodeGray4( fromFormat, fromBuffer, rect, targetType, out );
    if( targetType == GIT_PNG )
    {
        GImageEncodePNG( from, rows, out );
        return;
    }
    if( targetType == GIT_JPEG )
    {
        if( isRGB( from ) ) return void( GImageEncodeJPEG( from, rows, out ) );
        GLOG( u"ERROR: Unsupported format #", from );
        return GAbort( );
    }
    if( offers( RECT_PAIRS, from, targetType ) ) return convertBlock( from, rows, targetType, out );
    GImageUnsupported( from, targetType );
}

void GImageConvertFromIYUY( const GImageFormat& fromFormat, const char* fromBuffer, GImageFormat& toFormat,
                            GString& out )
{
    GPRECONDITION( fromBuffer && fromFormat.width > 0 && fromFormat.height > 0 );
    GPRECONDITION( fromFormat.type == GIT_IYUY );
    const FromPlanar convert = fromPlanar( toFormat.type );
    if( !convert ) return GImageUnsupported( fromFormat.type, toFormat.type );
    const int width = toFormat.width = fromFormat.width;
    const int height = toFormat.height = fromFormat.height;
    out.resize( static_cast<size_t>( GImageSize( toFormat ) ) );
    uint8_t* to = reinterpret_cast<uint8_t*>( out.data( ) );
    const int stride = GImageRowStride( toFormat.type, width );
    const Planes from( fromBuffer, width, height );
    if( width % 2 || height % 2 )
    {
        RoundedChroma chroma( width, height );
        chroma.take( from );
        const int result = convert( from.y, width, chroma.u, chroma.chromaWidth, chroma.v, chroma.chromaWidth, to,
                                    stride, width, height );
        GASSERT_TEXT( result == 0, "result == ippStsNoErr" );
        return;
    }
    const int result = convert( from.y, width, from.u, width / 2, from.v, width / 2, to, stride, width, height );
    GASSERT_TEXT( result == 0, "result == ippStsNoErr" );
}

void GImageConvertToIYUY( const GImageFormat& fromFormat, const char* fromBuffer, GString& out )
{
    GPRECONDITION( fromBuffer && fromFormat.width > 0 && fromFormat.height > 0 );
    const ToPlanar convert = toPlanar( fromFormat.type );
    if( !convert ) return GImageUnsupported( fromFormat.type, GIT_IYUY );
    const int width = fromFormat.width;
    const int height = fromFormat.height;
    out.resize( static_cast<size_t>( GImageSizeIYUY( width, height ) ) );
    const Planes to( out.data( ), width, height );
    const uint8_t* from = reinterpret_cast<const uint8_t*>( fromBuffer );
    int stride = GImageRowStride( fromFormat.type, width );
    if( fromFormat.type == GIT_YUY2 && width % 2 ) from = padPairs( fromFormat, fromBuffer, stride );
    if( width % 2 || height % 2 )
    {
        RoundedChroma chroma( width, height );
        const int result = convert( from, stride, to.y, width, chroma.u, chroma.chromaWidth, chroma.v,
                                    chroma.chromaWidth, width, height );
        GASSERT_TEXT( result == 0, "result == ippStsNoErr" );
        chroma.give( to );
        return;
    }
    const int result = convert( from, stride, to.y, width, to.u, width / 2, to.v, width / 2, width, height );
    GASSERT_TEXT( result == 0, "result == ippStsNoErr" );
}

bool GImageRowsToPlanes( int type, const GImageRows& from, const GImagePlaneRows& to )
{
    const ToPlanar convert = toPlanar( type );
    if( !convert || !from.data ) return convert != nullptr;
    return convert( from.data, from.stride, to.y, to.yStride, to.u, to.uvStride, to.v, to.uvStride, from.width,
                    from.height ) == 0;
}

void GImageConvertFromPlanes( const GImagePlanes& from, GImageFormat& toFormat, GString& out )
{
    GPRECONDITION( from.y && from.u && from.v && from.width > 0 && from.height > 0 );
    const FromPlanar convert = fromPlanar( toFormat.type );
    if( !convert ) return GImageUnsupported( GIT_IYUY, toFormat.type );
    toFormat.width = from.width;
    toFormat.height = from.height;
    out.resize( static_cast<size_t>( GImageSize( toFormat ) ) );
    const int result = convert( from.y, from.yStride, from.u, from.uvStride, from.v, from.uvStride,
                                reinterpret_cast<uint8_t*>( out.data( ) ), GImageRowStride( toFormat.type, from.width ),
                                from.width, from.height );
    GASSERT_TEXT( result == 0, "result == ippStsNoErr" );
}
