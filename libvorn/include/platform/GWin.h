// Layered windows with per-pixel alpha, and the message pump. User-interface thread only, but for GWinPostQuit.
// Positions are desktop pixels, a rectangle's right and bottom lie outside of it; hit codes and key numbers are the values that the
// skin engine's tables use. A null window and arguments out of range are failed assertions.
#pragma once

#include "base/GRect.h"
#include "base/GTypes.h"

#include <functional>

struct GWinRecord;
using GWin = GWinRecord*;

// Hit codes that getNCHITTEST answers; the window moves or sizes itself by them.
enum GHitCode
{
    GHIT_TRANSPARENT = -1,
    GHIT_NOWHERE = 0,
    GHIT_CLIENT = 1,
    GHIT_CAPTION = 2,
    GHIT_LEFT = 10,
    GHIT_RIGHT = 11,
    GHIT_TOP = 12,
    GHIT_TOPLEFT = 13,
    GHIT_TOPRIGHT = 14,
    GHIT_BOTTOM = 15,
    GHIT_BOTTOMLEFT = 16,
    GHIT_BOTTOMRIGHT = 17
};

// Called in the message loop, `onReposition` also from within GWinMove. A listener may close its window from any of these. Points are
// relative to the window's left top corner. Input events answer with response flags, which a window hands on from the handler below
// the pointer; the platform itself pays no heed to them.
class IGWinListener
{
public:
    virtual ~IGWinListener( ) = default;
    // Asked before each pointer event without mouse capture: events reach the listener only where this is GHIT_CLIENT.
    virtual int getNCHITTEST( GWin, int /*x*/, int /*y*/ ) { return GHIT_CLIENT; }
    // The smallest size to which the user may drag the window, where a side above 1000 counts as 100; false for none.
    virtual bool getMinSize( GWin, int& /*width*/, int& /*height*/ ) { return false; }
    // The rectangle proposed while the user moves or sizes the window, and the one that it has got.
    virtual void onReposition( GWin, const GRect& ) {}
    // Virtual keys; onKeyDown repeats while the key is held.
    virtual int onKeyDown( GWin, int /*key*/ ) { return 0; }
    virtual int onKeyUp( GWin, int /*key*/ ) { return 0; }
    // One UTF-16 unit of what was typed.
    virtual int onKeyPressed( GWin, char16_t /*character*/ ) { return 0; }
    virtual int onMouseMove( GWin, int /*x*/, int /*y*/ ) { return 0; }
    // Once after moves, when the pointer has gone elsewhere.
    virtual void onMouseLeft( GWin ) {}
    virtual int onLButtonDown( GWin, int /*x*/, int /*y*/ ) { return 0; }
    virtual int onLButtonUp( GWin, int /*x*/, int /*y*/ ) { return 0; }
    // In the place of the second onLButtonDown.
    virtual int onLButtonDblClk( GWin, int /*x*/, int /*y*/ ) { return 0; }
    virtual int onRButtonDown( GWin, int /*x*/, int /*y*/ ) { return 0; }
    // The user wants it closed; it stays until GWinClose.
    virtual void onClose( GWin ) {}
    // Shown, hidden, or the keyboard focus came or went.
    virtual void onShow( GWin ) {}
    virtual void onReserved( GWin ) {}
    // Control-V, with the clipboard's text; not called when the clipboard holds none.
    virtual int onPaste( GWin, const GWString& /*text*/ ) { return 0; }
    // Wheel steps away from the user are positive.
    virtual int onMouseWheel( GWin, int /*steps*/ ) { return 0; }
};

// Created hidden. With `topmost` it stays above others and never takes the focus. The window belongs to the caller until GWinClose;
// the listener, which must not be null, has to outlive it.
GWin GWinOpen( const GWString& title, const GRect& rect, bool topmost, IGWinListener* listener );
void GWinClose( GWin win );
// Without activating it.
void GWinShow( GWin win );
void GWinHide( GWin win );
void GWinMinimize( GWin win );
void GWinMaximize( GWin win );
// Back from being minimized, to maximized where it was, in front and active; else back from being maximized. Shows the window.
void GWinRestore( GWin win );
bool GWinIsMaximized( GWin win );
bool GWinIsMinimized( GWin win );
// True also while minimized.
bool GWinIsVisible( GWin win );
bool GWinHasKeyFocus( GWin win );
// In front of others and, unless topmost, with the keyboard focus. The window manager may have its own mind.
void GWinSetForeground( GWin win );
// `rect` must have its corners in order; an empty one becomes one pixel.
void GWinMove( GWin win, const GRect& rect );
// With the capture all pointer events go to this window, also from outside of it, and no hit test is made.
void GWinMouseCapture( GWin win );
void GWinMouseRelease( GWin win );
void GWinGetScreenPosition( GWin win, GRect& rect );
// Flashes the task bar's entry for two seconds; nothing while the window is active.
void GWinFlash( GWin win );
// Shows `pixels` (GIT_RGBA32, premultiplied, width * height * 4 bytes, read during the call) with constant alpha 0 to 255. The window
// takes the size of the picture, unless it is maximized or minimized. Pixels of alpha 0 let clicks through. Without a compositor
// pixels of alpha 128 and more show, opaque.
void GWinRepaint( GWin win, int width, int height, const char* pixels, int alpha );
// The same when nothing outside of `changed` differs from the last repaint; the rest is not looked at where that can be.
void GWinRepaintPart( GWin win, int width, int height, const char* pixels, int alpha, const GRect& changed );
void GWinSetTitle( GWin win, const GWString& title );

// Runs `task` on the user-interface thread as soon as a window has been painted: at once when one was, and half a second later when
// none is. What the first look at the program does not need waits here. Dropped when the desktop goes down.
void GWinWhenShown( std::function<void( )> task );

// Runs the message pump until a quit message; `quit` receives its parameter. False when the pump has ended.
bool GWinUpdate( bool& quit );
// Posts the quit message. Any thread.
void GWinPostQuit( int parameter );
// True when any window but a topmost one is visible, minimized or not: the user has something to go on from.
bool GWinIsAnyShown( );
// What panels leave free of the screen at a point, or of the first screen when the point lies on none.
GRect GWinGetWorkArea( int x, int y );
// The desktop's scale, 1.0 at 96 dots an inch, held to 0.5 to 4: the environment's VELMORA_SCALE, else the X resource Xft.dpi.
double GWinGetScale( );
// Called in the message loop when that has changed. One for the process; an empty function ends it. Only X tells of changes.
void GWinFollowScale( std::function<void( )> onChange );
