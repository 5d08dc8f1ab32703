// The desktop as others see it: its pixels, its windows and its pointer. A handle belongs to the thread that uses it; operations
// without one may be called by any thread. Coordinates are desktop pixels from the top left. What the display server sends is
// input: a server that dies, restarts or answers strangely gives null, false or an empty list, and the next call tries again.
#pragma once

#include "base/GRect.h"
#include "base/GTypes.h"
#include "image/GFrag.h"
#include "image/GImageFormat.h"

#include <map>

struct GScreenRecord;
using GScreen = GScreenRecord*;

// ---- Pixels.
// Never fails and captures nothing yet; the caller closes.
GScreen GScreenOpen( );
// Copies `dirtyRect`, clipped to the desktop, into the frame buffer of the whole desktop at the same position, layered windows
// included and the pointer left out. All pixels outside stay as earlier captures left them, so small captures keep one picture
// current; after a change of the desktop's size or depth the buffer is a new one, which begins with zeros.
// Returns the buffer, which belongs to the handle and is valid until its next call, with type and size in `format`. The type
// follows the display: 16 bits a pixel give GIT_RGB555 (of 5-6-5 the last bit of green is dropped, so that the type holds), 24
// GIT_BGR24, 32 GIT_BGRA32, whose alpha is always 255. Null, a normal case, without a display or when it can't be read; `format`
// is zero then. A display that stores its pixels in another way is unsupported: a warning, and null.
// Allocates nothing while the display stays as it is. Precondition: GVALIDRECT( dirtyRect ).
const char* GScreenCapture( GScreen screen, const GRect& dirtyRect, GImageFormat& format );
void GScreenClose( GScreen screen );

// ---- Change, for captures that follow what is drawn.
// What was drawn on the desktop since the last ask, as rectangles within it that do not overlap; a compositor may draw more than
// has changed. The first ask gives the whole desktop, as does one after a change of its size or of the display. Ask first and
// capture then: what is drawn in between is told the next time. Costs no round trip when nothing was drawn, and allocates nothing
// once `rects` has its room. False, with no rectangles, where the display can't tell: then all may have changed.
bool GScreenGetDamage( GScreen screen, std::vector<GRect>& rects );
// Sleeps until there is something to ask for, and is true then, or until that time is over. A display that goes away wakes it, one
// that can't tell does not. A thread that watches needs a handle of its own.
bool GScreenWaitForDamage( GScreen screen, int64_t microseconds );

// ---- Windows. A window's number is stable while it lives and never 0. Numbers are the same in the layout and in the list.
// The visible windows from the front to the back with their whole rectangles, and for each its regions in window coordinates:
// first the children of its contents, clipped, then the rest of the window, without overlap. Windows that are hidden, minimised,
// without area or wholly off the desktop are left out. The desktop itself is the last one. Both are empty without a display.
// At most 1024 windows, and 63 children of each.
void GScreenGetLayout( GScreen screen, GFragList& windowList, std::map<uint32_t, GFragList>& windowFragMap );
// Number and title of the visible windows that a user can pick to share: those with a title that are neither the desktop nor a
// panel. A title has no control characters and at most 256 units. Precondition: "windowIDNameMap".
void GScreenGetWindowList( std::map<uint32_t, GWString>* windowIDNameMap );
// Asks for a window to be brought to the front and to get the keyboard. False when there is no such window; whether the window
// manager follows shows later.
bool GScreenRaiseWindow( uint32_t windowID );

// ---- Pointer. False without a display; the position is then left as it was.
bool GScreenGetPointerPosition( int& x, int& y );
// A position off the desktop is held at its edge.
bool GScreenSetPointerPosition( int x, int y );
