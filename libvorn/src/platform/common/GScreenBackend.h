// What a backend of GScreen gives. GScreen.cpp calls it after its checks, so that arguments are good here, and makes layouts and
// lists of what it gets. Threads as in GScreen.h.
#pragma once

#include "base/GRect.h"
#include "base/GTypes.h"
#include "image/GImageFormat.h"

#include <memory>

struct GScreenWindow
{
    uint32_t id = 0;
    GRect rect;                  // On the desktop, not clipped.
    std::vector<GRect> children; // In window coordinates, front first, not clipped.
};
struct GScreenTitle
{
    uint32_t id = 0;
    GRect rect;
    GWString title;
    bool isDesktop = false; // The desktop's own window or a panel: not for picking.
};

class IGScreenBackend
{
public:
    virtual ~IGScreenBackend( ) = default;
    // As GScreenCapture. The rectangle is valid but not clipped.
    virtual const char* capture( const GRect& dirtyRect, GImageFormat& format ) = 0;
    // The desktop's size and its shown windows, front first and the desktop itself last. False without a display.
    virtual bool getWindows( int& width, int& height, std::vector<GScreenWindow>& windows ) = 0;
    // As GScreenGetDamage and GScreenWaitForDamage.
    virtual bool getDamage( std::vector<GRect>& rects ) = 0;
    virtual bool waitForDamage( int64_t microseconds ) = 0;
};

// Never null.
std::unique_ptr<IGScreenBackend> GScreenBackendOpen( );
// The desktop's size and its shown windows with their titles.
bool GScreenBackendGetTitles( int& width, int& height, std::vector<GScreenTitle>& titles );
bool GScreenBackendRaise( uint32_t windowID );
bool GScreenBackendGetPointer( int& x, int& y );
bool GScreenBackendSetPointer( int x, int y );
// Ends what the calls without a handle share. They may begin it again.
void GScreenBackendClose( );
