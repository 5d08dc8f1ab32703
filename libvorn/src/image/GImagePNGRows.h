// The contents of a small PNG, packed at once: three bytes a pixel, filtered row by row and deflated in one piece.
#pragma once

#include "GImageRows.h"

// The largest contents, in bytes, that are packed at once; larger pictures go through the library row by row.
constexpr int64_t GIMAGE_PNG_AT_ONCE = 1 << 20;

// Screens are flat: where many pixels repeat their left neighbour, plain rows are smaller than filtered ones and faster to make.
bool GImagePNGIsFlat( const GImageRows& rows, int bytesPerPixel );
// The zlib stream for an IDAT chunk, and its length in `length`; null when memory is short. It stays until the next call in the same
// thread. `flat` leaves the rows unfiltered, otherwise each gets the filter with the least sum of differences.
const uint8_t* GImagePNGPack( int type, const GImageRows& rows, bool flat, size_t& length );
