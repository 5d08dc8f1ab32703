// Pixels as displays store them, and how they become one of the three types that a capture has.
#pragma once

#include "image/GImageFormat.h"

#include <cstddef>
#include <cstdint>

struct GScreenPixels
{
    int bits = 0; // Of one pixel in memory, padding included.
    uint32_t redMask = 0;
    uint32_t greenMask = 0;
    uint32_t blueMask = 0;
    int32_t type = 0; // Of the capture: GIT_RGB555, GIT_BGR24 or GIT_BGRA32, with as many bits a pixel.
    // Makes `count` pixels of that type; both sides may be the same.
    void ( *convert )( const char* from, char* to, size_t count ) = nullptr;
};

// The display's pixels by their bits and masks, the low byte first in memory; null when they are of a kind that is not known.
// Displays of 16 bits have masks for 5-6-5 or for 5-5-5; those of 10 bits a colour lose two.
const GScreenPixels* GScreenFindPixels( int bits, uint32_t redMask, uint32_t greenMask, uint32_t blueMask );
// Copies a rectangle. Strides are in bytes.
void GScreenCopyRows( const GScreenPixels& pixels, const char* from, size_t fromStride, char* to, size_t toStride,
                      int width, int height );
