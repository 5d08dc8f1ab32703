#include "platform/common/GBitmapInfoHeader.h"

#include "base/GPortable.h"

#include <cstdlib>

namespace
{
// Above this an edge is a mistake of the driver, and sums of pixels could leave 31 bits.
constexpr int32_t GREATEST_EDGE = 16384;

struct Layout
{
    int bitCount;
    uint32_t redMask;
    uint32_t greenMask;
    int type;
};
constexpr Layout LAYOUTS[] = {
    { 16, 0xF800, 0x07E0, GIT_RGB565 },     { 16, 0x7C00, 0x03E0, GIT_RGB555 },
    { 24, 0x0000FF, 0x00FF00, GIT_RGB24 },  { 24, 0xFF0000, 0x00FF00, GIT_BGR24 },
    { 32, 0x0000FF, 0x00FF00, GIT_RGBA32 }, { 32, 0xFF0000, 0x00FF00, GIT_BGRA32 },
};

int typeOfPlain( int bitCount )
{
    return bitCount == 16 ? GIT_RGB555 : bitCount == 24 ? GIT_RGB24 : GIT_RGBA32;
}

// The image type of a layout; 0 when there is none.
int typeOf( const GBitmapInfoHeader& header )
{
    if( header.compression == GBC_YUY2 ) return GIT_YUY2;
    if( header.compression != GBC_RGB && header.compression != GBC_BITFIELDS )
    {
        GLOG( u"ERROR Unsupported compression: ", header.compression );
        return 0;
    }
    if( header.bitCount != 16 && header.bitCount != 24 && header.bitCount != 32 )
    {
        GLOG( u"ERROR Unsupported bitdepth: ", header.bitCount );
        return 0;
    }
    if( header.compression == GBC_RGB ) return typeOfPlain( header.bitCount );
    for( const Layout& layout : LAYOUTS )
        if( layout.bitCount == header.bitCount && layout.redMask == header.redMask &&
            layout.greenMask == header.greenMask )
            return layout.type;
    GLOG( u"ERROR Unsupported bitfields: ", header.redMask, u", ", header.greenMask );
    return 0;
}
} // namespace

bool GImageTools_set( GImageFormat& format, bool& bottomUp, const GBitmapInfoHeader& header )
{
    const int64_t rows = std::abs( static_cast<int64_t>( header.height ) );
    if( header.width < 1 || header.width > GREATEST_EDGE || rows < 1 || rows > GREATEST_EDGE )
    {
        GLOG( u"WARNING Unsupported image size ", header.width, u"x", header.height, u", ignoring." );
        return false;
    }
    const int type = typeOf( header );
    if( !type ) return false;
    format = { type, header.width, static_cast<int32_t>( rows ) };
    bottomUp = header.height > 0;
    return true;
}
