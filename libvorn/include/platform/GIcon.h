// The tray icon with its six states, tool tip and balloon, and the popup menu. User-interface thread only; quiet once the platform
// shuts down. Listeners are called from the message loop, never from within one of these functions.
#pragma once

#include "base/GTypes.h"

// Each state has a picture of its own: skin/images/tray_<state>.png, or tray_<state>_<16|22|24|32>.png beside it.
enum GIconState
{
    GIS_PUBLIC_OFFLINE = 0,
    GIS_PUBLIC_BUSY = 1,
    GIS_PUBLIC_ONLINE = 2,
    GIS_PRIVATE_OFFLINE = 3,
    GIS_PRIVATE_BUSY = 4,
    GIS_PRIVATE_ONLINE = 5
};
struct GIconRecord;
using GIcon = GIconRecord*;
class IGIconListener
{
public:
    virtual ~IGIconListener( ) = default;
    virtual void onLButtonDown( GIcon ) {}
    virtual void onLButtonDblClk( GIcon ) {}
    virtual void onRButtonDown( GIcon ) {}
    // `cookie`: that of the last balloon.
    virtual void onBubbleClick( GIcon, int /*cookie*/ ) {}
};
// The icon belongs to the caller until GIconClose; the listener, which must not be null, has to outlive it. It shows itself as soon
// as there is a tray host, and again whenever a new one comes.
GIcon GIconOpen( IGIconListener* listener );
// Takes the icon and its balloon away. What is on its way to the listener is dropped.
void GIconClose( GIcon icon );
// Asserts GWITHIN( GIS_PUBLIC_OFFLINE, state, GIS_PRIVATE_ONLINE ); changes the icon only if it differs.
void GIconSetState( GIcon icon, int state );
// Tool tip, cut to 62 characters; the same text again does nothing.
void GIconSetText( GIcon icon, const GWString& text );
// Balloon for 10 seconds: the title cut to 62 characters, the text to 254; the same text as the last one does nothing. Both are plain
// text. The desktop's notification service shows it, in the place of the last one; without a service the tray does, and without a tray
// a window in the corner of the screen.
void GIconSetBubble( GIcon icon, const GWString& title, const GWString& text, int cookie );
// True while a tray host is there to show icons. Without one nothing leads back to a hidden window.
bool GIconHasHost( );

// Popup menu with its bottom at the pointer; returns once something was chosen or the menu was left: the index from 0, or a negative
// value. Timers and notifications arrive meanwhile. '&' marks a mnemonic. Not shown without labels or once the platform shuts down.
int GMenuExecute( const GStringVector& labels );
