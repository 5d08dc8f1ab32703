// The tray icon with its six states, tool tip and balloon. User-interface thread.
#pragma once

#include "base/GTypes.h"

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
    virtual void onBubbleClick( GIcon, int /*cookie*/ ) {}
};
GIcon GIconOpen( IGIconListener* listener );
void GIconClose( GIcon icon );
// Asserts GWITHIN( GIS_PUBLIC_OFFLINE, state, GIS_PRIVATE_ONLINE ); changes the icon only if it differs.
void GIconSetState( GIcon icon, int state );
void GIconSetText( GIcon icon, const GWString& text );                                      // Cut to 62 characters.
void GIconSetBubble( GIcon icon, const GWString& title, const GWString& text, int cookie ); // Title 62, text 254, 10 s.
// True when a tray host shows the icon; without one windows must not hide into nothing.
bool GIconIsShown( GIcon icon );
// Popup menu with its bottom at the pointer; the index chosen from 0, or a negative value. '&' marks a mnemonic.
int GMenuExecute( const GStringVector& labels );
