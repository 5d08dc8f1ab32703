// Where two pictures of the same layout differ: the inner loop of screen sharing. Runs on the raw buffers without conversion or
// allocation, stops at the first difference from each side, and costs one pass over memory when nothing changed. Any thread.
#pragma once

#include "base/GRect.h"
#include "image/GImageFormat.h"

// True when the two rectangles, of equal size, differ in any byte; `diffRect` is then the bounding box of the differences relative
// to their top left corners, and the empty accumulator otherwise. Rectangles without area are equal.
// `downsampleFactor`, a power of two, looks at every so manieth pixel across and down only. A sample's place in the left picture is
// rounded down to a multiple of it, its place in the right one is not: the left picture acts as one of which each sample stands for
// a square of that edge. The box then is as coarse, and may pass the rectangle by one: callers clip it.
// Types without whole bytes a pixel, different types or sizes, and rectangles outside their pictures abort.
bool GImageCompare( const GImageFormat& lhsFormat, const char* lhsBuffer, const GRect& lhsRect,
                    const GImageFormat& rhsFormat, const char* rhsBuffer, const GRect& rhsRect, GRect& diffRect,
                    int downsampleFactor = 1 );
