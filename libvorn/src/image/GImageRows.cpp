#include "GImageRows.h"

#include <array>
#include <cstring>
#include <libyuv.h>
#include <vector>

namespace
{
constexpr std::array<int, 25> BYTES_PER_PIXEL = { 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                  0, 2, 3, 4, 2, 2, 3, 4, 2, 0, 1, 0 };

using Converter = int ( * )( const uint8_t*, int, uint8_t*, int, int, int );

// Names of the library are little-endian words: its ARGB lies in memory as blue, green, red, alpha.
Converter directConverter( int from, int to )
{
    switch( from * 100 + to )
    {
    case 1516: return libyuv::RGB24ToARGB;
    case 1920: return libyuv::RGB24ToARGB;
    case 1615: return libyuv::ARGBToRGB24;
    case 2019: return libyuv::ARGBToRGB24;
    case 1519: return libyuv::RAWToRGB24;
    case 1915: return libyuv::RAWToRGB24;
    case 1520: return libyuv::RAWToARGB;
    case 1916: return libyuv::RAWToARGB;
    case 2015: return libyuv::ARGBToRAW;
    case 1619: return libyuv::ARGBToRAW;
    case 1620: return libyuv::ARGBToABGR;
    case 2016: return libyuv::ARGBToABGR;
    case 1720: return libyuv::RGB565ToARGB;
    case 1820: return libyuv::ARGB1555ToARGB;
    case 2017: return libyuv::ARGBToRGB565;
    case 1523: return libyuv::RAWToJ400;
    case 1923: return libyuv::RGB24ToJ400;
    case 1623: return libyuv::ABGRToJ400;
    case 2023: return libyuv::ARGBToJ400;
    case 2316: return libyuv::J400ToARGB;
    case 2320: return libyuv::J400ToARGB;
    default: return nullptr;
    }
}

// The layout that a conversion without a direct road passes through; 0 when there is no road.
int stepBetween( int from, int to )
{
    if( from == GIT_RGB565 || from == GIT_RGB555 || from == GIT_YUY2 || to == GIT_RGB565 ) return GIT_BGRA32;
    return from == GIT_GRAY8 ? GIT_RGBA32 : 0;
}

// An odd row ends in half a pair; the library reads the whole pair.
const uint8_t* wholePairs( const uint8_t* row, int width )
{
    if( width % 2 == 0 ) return row;
    const size_t bytes = static_cast<size_t>( width ) * 2;
    uint8_t* copy = GImageScratch( 1, bytes + 2 );
    std::memcpy( copy, row, bytes );
    copy[bytes] = copy[bytes - 2];
    copy[bytes + 1] = width > 1 ? copy[bytes - 3] : 128;
    return copy;
}

bool toBGRA( int fromType, const uint8_t* row, uint8_t* to, int width )
{
    if( fromType == GIT_YUY2 )
        return libyuv::YUY2ToARGB( wholePairs( row, width ), width * 2 + 2, to, width * 4, width, 1 ) == 0;
    const Converter convert = directConverter( fromType, GIT_BGRA32 );
    return convert && convert( row, 0, to, width * 4, width, 1 ) == 0;
}

// Two steps a row, so that the intermediate stays in the cache.
bool convertInSteps( int fromType, const GImageRows& from, int step, int toType, uint8_t* to, int toStride )
{
    uint8_t* between = GImageScratch( 0, static_cast<size_t>( from.width ) * 4 );
    const Converter first = directConverter( fromType, step );
    const Converter second = step == toType ? nullptr : directConverter( step, toType );
    if( ( step != GIT_BGRA32 && !first ) || ( step != toType && !second ) ) return false;
    for( int y = 0; y < from.height; y++ )
    {
        const uint8_t* row = from.data + static_cast<ptrdiff_t>( y ) * from.stride;
        uint8_t* target = second ? between : to;
        const bool converted = step == GIT_BGRA32 ? toBGRA( fromType, row, target, from.width )
                                                  : first( row, from.stride, target, 0, from.width, 1 ) == 0;
        if( !converted ) return false;
        if( second ) second( between, from.width * 4, to, toStride, from.width, 1 );
        to += toStride;
    }
    return true;
}
} // namespace

int GImageBytesPerPixel( int type )
{
    return type < 0 || type >= static_cast<int>( BYTES_PER_PIXEL.size( ) )
               ? 0
               : BYTES_PER_PIXEL[static_cast<size_t>( type )];
}

int64_t GImageSize( const GImageFormat& format )
{
    return static_cast<int64_t>( GImageBytesPerPixel( format.type ) ) * format.width * format.height;
}

int64_t GImageSizeIYUY( int width, int height )
{
    return static_cast<int64_t>( width ) * height * 3 / 2;
}

int64_t GImageSizeGray4( int width, int height )
{
    return static_cast<int64_t>( width + width % 2 ) * height / 2;
}

int GImageRowStride( int type, int width )
{
    return type == GIT_GRAY4 ? ( width + 1 ) / 2 : width * GImageBytesPerPixel( type );
}

GImageRows GImageRowsOf( const GImageFormat& format, const char* buffer, const GRect& rect )
{
    const int stride = GImageRowStride( format.type, format.width );
    const ptrdiff_t offset = static_cast<ptrdiff_t>( rect.top ) * stride +
                             static_cast<ptrdiff_t>( rect.left ) * GImageBytesPerPixel( format.type );
    return { reinterpret_cast<const uint8_t*>( buffer ) + offset, stride, rect.width( ), rect.height( ) };
}

void GImageUnsupported( int fromType, int toType )
{
    GLOG( u"ERROR Unsupported conversion format, from #", fromType, u" to #", toType, u", aborting." );
    GAbort( );
}

bool GImageConvertRows( int fromType, const GImageRows& from, int toType, uint8_t* to, int toStride )
{
    if( fromType == toType )
    {
        const int bytes = from.width * GImageBytesPerPixel( fromType );
        libyuv::CopyPlane( from.data, from.stride, to, toStride, bytes, from.height );
        return bytes > 0;
    }
    if( const Converter convert = directConverter( fromType, toType ) )
        return convert( from.data, from.stride, to, toStride, from.width, from.height ) == 0;
    const int step = stepBetween( fromType, toType );
    return step && convertInSteps( fromType, from, step, toType, to, toStride );
}

uint8_t* GImageScratch( int slot, size_t size )
{
    thread_local std::array<std::vector<uint8_t>, 5> buffers;
    std::vector<uint8_t>& buffer = buffers[static_cast<size_t>( slot )];
    if( buffer.size( ) < size ) buffer.resize( size );
    return buffer.data( );
}
