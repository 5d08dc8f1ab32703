// Layered windows with per-pixel alpha, and the message pump. User-interface thread only.
// Positions are desktop pixels; hit codes and key numbers are the values that the skin engine's tables use.
#pragma once

#include "base/GRect.h"
#include "base/GTypes.h"

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

// Input events answer with response flags, which a window hands on from the handler below the pointer; the platform itself pays
// no heed to them.
class IGWinListener
{
public:
    virtual ~IGWinListener( ) = default;
    virtual int getNCHITTEST( GWin, int /*x*/, int /*y*/ ) { return GHIT_CLIENT; }
    virtual bool getMinSize( GWin, int& /*width*/, int& /*height*/ ) { return false; }
    virtual void onReposition( GWin, const GRect& ) {}
    virtual int onKeyDown( GWin, int /*key*/ ) { return 0; }
    virtual int onKeyUp( GWin, int /*key*/ ) { return 0; }
    virtual int onKeyPressed( GWin, char16_t /*character*/ ) { return 0; }
    virtual int onMouseMove( GWin, int /*x*/, int /*y*/ ) { return 0; }
    virtual void onMouseLeft( GWin ) {}
    virtual int onLButtonDown( GWin, int /*x*/, int /*y*/ ) { return 0; }
    virtual int onLButtonUp( GWin, int /*x*/, int /*y*/ ) { return 0; }
    virtual int onLButtonDblClk( GWin, int /*x*/, int /*y*/ ) { return 0; }
    virtual int onRButtonDown( GWin, int /*x*/, int /*y*/ ) { return 0; }
    virtual void onClose( GWin ) {}
    virtual void onShow( GWin ) {}
    virtual void onReserved( GWin ) {}
    virtual int onPaste( GWin, const GWString& /*text*/ ) { return 0; }
    // Wheel steps away from the user are positive.
    virtual int onMouseWheel( GWin, int /*steps*/ ) { return 0; }
};

// Created hidden. With `topmost` it stays above others and never takes the focus. The listener must not be null.
GWin GWinOpen( const GWString& title, const GRect& rect, bool topmost, IGWinListener* listener );
void GWinClose( GWin win );
void GWinShow( GWin win );
void GWinHide( GWin win );
void GWinMinimize( GWin win );
void GWinMaximize( GWin win );
void GWinRestore( GWin win );
bool GWinIsMaximized( GWin win );
bool GWinIsMinimized( GWin win );
bool GWinIsVisible( GWin win );
bool GWinHasKeyFocus( GWin win );
void GWinSetForeground( GWin win );
void GWinMove( GWin win, const GRect& rect );
void GWinMouseCapture( GWin win );
void GWinMouseRelease( GWin win );
void GWinGetScreenPosition( GWin win, GRect& rect );
void GWinFlash( GWin win );
// Shows `pixels` (GIT_RGBA32, premultiplied, width * height * 4 bytes, read during the call) with constant alpha 0 to 255.
void GWinRepaint( GWin win, int width, int height, const char* pixels, int alpha );
void GWinSetTitle( GWin win, const GWString& title );

// Runs the message pump until a quit message; `quit` receives its parameter. False when the pump has ended.
bool GWinUpdate( bool& quit );
// Posts the quit message. Any thread.
void GWinPostQuit( int parameter );
// Work area of the screen at a point, and the desktop's scale there (1.0 at 96 dots an inch).
GRect GWinGetWorkArea( int x, int y );
double GWinGetScale( );
