// Pixel work of layered windows: taking over the skin's layer, and the bands of pixels that show.
#pragma once

#include "base/GRect.h"

#include <cstdint>
#include <vector>

// Copies `count` premultiplied pixels R,G,B,A to B,G,R,A, every channel scaled by `alpha` of 255.
void GLayerCopy( const char* source, uint32_t* target, int count, int alpha );
// The rectangles of all pixels R,G,B,A whose alpha is at least `threshold`: sorted from the top, side by side within a band, as X
// shapes and toolkit regions want them. A picture of very many pieces gets one rectangle a row and band.
void GLayerFindBands( const char* pixels, int width, int height, int threshold, std::vector<GRect>& bands );
