// What the toolkit's families share: the application object, the hidden target of all that belongs to no window, the display
// connection. User-interface thread only, but for GDesktopPost and GDesktopIsDown.
#pragma once

#include "base/GTypes.h"

#include <QString>

#include <functional>

struct xcb_connection_t;
class QObject;

// Makes the application object when there is none yet. Without a display to show anything on, says so and ends the program: the
// toolkit itself would only abort.
void GDesktopOpen( );
// Ends what GDesktopOpen began; nothing of the desktop may be used after it.
void GDesktopClose( );
// True from the start of the crash handler, or from GDesktopClose: notifications, timers and the tray are quiet then.
bool GDesktopIsDown( );

// Runs `task` on the user-interface thread in the message loop; dropped when the desktop is down. Any thread.
void GDesktopPost( std::function<void( )> task );
// Owner of what must end with the desktop.
QObject* GDesktopGetHidden( );
// Runs `tick` on the hidden window's timer of 100 milliseconds for as long as it answers that it has more to do; asked again, it goes
// on. The timer runs only while there is somebody to call.
void GDesktopOnTick( bool ( *tick )( ) );

// Runs `task` when a window has been painted, or after half a second without one; at once when that is over.
void GDesktopWhenShown( std::function<void( )> task );
// A window has been painted.
void GDesktopTellShown( );

// The toolkit's own connection to the X server; null on other platforms. Every request sent on it needs GDesktopFlush after it.
xcb_connection_t* GDesktopGetConnection( );
void GDesktopFlush( );

QString GDesktopText( const GWString& text );
GWString GDesktopText( const QString& text );
