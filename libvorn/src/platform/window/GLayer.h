// Pixel work of layered windows: taking over the skin's layer, and the bands of pixels that show.
#pragma once

#include "base/GRect.h"

#include <cstdint>
#include <vector>

// Copies `rect` of two pictures of that width from premultiplied R,G,B,A to B,G,R,A, every channel scaled by `alpha` of 255. True when
// the target had, at the same places, pixels of alpha 0 and pixels of alpha 128 and more: its shapes stay.
bool GLayerCopy( const char* source, uint32_t* target, int width, const GRect& rect, int alpha );
// The rectangles of all pixels R,G,B,A whose alpha is at least `threshold`: sorted from the top, side by side within a band, as X
// shapes and toolkit regions want them. A picture of very many pieces gets one rectangle a row and band.
void GLayerFindBands( const char* pixels, int width, int height, int threshold, std::vector<GRect>& bands );
