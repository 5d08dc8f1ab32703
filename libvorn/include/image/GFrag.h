// A fragment is the unit of change on the screen: a rectangle in a numbered window. A fragment list is a work queue in insertion
// order, in the coordinates of its owner. The functions change the caller's list in place, keep no state and no reference to what
// they are given, and run on any thread that owns the list. Only rectangles with right >= left and bottom >= top are meant; an
// empty one covers nothing.
#pragma once

#include "base/GRect.h"

#include <cstdint>
#include <list>

struct GFrag
{
    uint32_t id = 0; // The window.
    GRect rect;
    friend bool operator==( const GFrag&, const GFrag& ) = default;
};
using GFragList = std::list<GFrag>;

// Cuts every fragment that is larger than a tile into tiles, row by row from the top left, in the place of the original; the last
// tile of a row or column is cut off at the fragment's edge. A tile has at least one pixel; a fragment without area that is longer
// than a tile aborts.
void GFragExplodeList( GFragList& list, int tileWidth, int tileHeight );
// Removes the area of `subFrag` from every fragment, whatever its window. What is left of a fragment that overlaps stands in its
// place as up to four pieces: above, below, left and right of the area, the first two as wide as the fragment.
void GFragSubtract( GFragList& list, GFrag subFrag );
// Adds a fragment that replaces what it covers. Nothing happens when one fragment of the same window contains it already.
void GFragAddOver( GFragList& list, GFrag frag );
// Adds only what the list, whatever the windows, does not cover yet. Walking over windows from the front to the back with it gives
// the visible area of each.
void GFragAddUnder( GFragList& list, GFrag frag );
