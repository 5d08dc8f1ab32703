// Rectangles with round corners in premultiplied GIT_RGBA32 images, blended and with smooth edges. No state, any thread.
#pragma once

#include "base/GRect.h"
#include "image/GImageFormat.h"

#include <cstdint>

// Fills, clipped by `clip` and the image; the changed rectangle. Colours are 0xAARRGGBB, not premultiplied; a radius is held to half
// of the shorter side.
GRect GRoundRectFill( const GImageFormat& format, char* pixels, const GRect& rect, const GRect& clip, int radius,
                      uint32_t colour );
// Draws the outline, `width` pixels inside the rectangle.
GRect GRoundRectDraw( const GImageFormat& format, char* pixels, const GRect& rect, const GRect& clip, int radius,
                      int width, uint32_t colour );
