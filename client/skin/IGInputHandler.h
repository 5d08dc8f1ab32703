// What a node that takes input answers to: the events of its window, plus focus and pointer changes. The window's input map holds
// one handler a pixel; events reach the handler below the pointer, the one that captured the mouse, or the one with the focus.
#pragma once

#include "platform/GWin.h"

// The answer of every input event, and what GWindowNode does with it.
enum GResponse
{
    GRESPONSE_NONE = 0,
    GRESPONSE_RENDER = 1,  // repaint the window
    GRESPONSE_UPDATE = 2,  // run the window's update pass, then repaint if it reports a change
    GRESPONSE_CAPTURE = 4, // capture the mouse to the handler
    GRESPONSE_RELEASE = 8  // release the mouse
};

// Positions are in the coordinates of the window's layer. User-interface thread.
class IGInputHandler : public IGWinListener
{
public:
    // True when the handler takes the keyboard focus, by a click or by tab.
    virtual bool wantsKeyboardFocus( ) { return false; }
    virtual int onKeyboardFocusChanged( bool /*focus*/ ) { return GRESPONSE_NONE; }
    virtual int onMouseoverChanged( bool /*mouseover*/ ) { return GRESPONSE_NONE; }
    // What a small window says of it once the pointer rests on it; none when empty.
    virtual GWStringView getHint( ) const { return { }; }
};
