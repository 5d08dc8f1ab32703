// What a stream of raw pictures tells about its memory, in the terms of a bitmap's header, and the image format that this is.
// Pure, any thread.
#pragma once

#include "base/GTypes.h"
#include "image/GImageFormat.h"

// How the pixels are packed: a small number, or the four letters of a format, the first one lowest.
enum GBitmapCompression : uint32_t
{
    GBC_RGB = 0,       // 5-5-5 for 16 bits a pixel, one byte a channel and red first for 24 and 32.
    GBC_BITFIELDS = 3, // As the masks say.
    GBC_YUY2 = 0x32595559
};

struct GBitmapInfoHeader
{
    int32_t width = 0;
    int32_t height = 0; // Above 0 the rows come bottom-up, below 0 top-down.
    int32_t bitCount = 0;
    uint32_t compression = GBC_RGB;
    // Of a pixel read as a number, its first byte lowest. Blue follows from the other two.
    uint32_t redMask = 0;
    uint32_t greenMask = 0;
    friend bool operator==( const GBitmapInfoHeader&, const GBitmapInfoHeader& ) = default;
};

// Fills in `format`, whose height is always above 0, and whether the rows come bottom-up. False, with an ERROR in the log and
// nothing changed, for a layout that no image type has; sizes that no picture has are refused with a WARNING.
bool GImageTools_set( GImageFormat& format, bool& bottomUp, const GBitmapInfoHeader& header );
