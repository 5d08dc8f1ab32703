#include "platform/tray/GTrayHost_X11.h"

#include "platform/desktop/GDesktop_Qt.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QElapsedTimer>
#include <QSystemTrayIcon>

#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

namespace
{
struct Free
{
    void operator( )( void* reply ) const { std::free( reply ); }
};
constexpr qint64 ASK_AGAIN_MILLISECONDS = 500;
// The tray of the first screen, by the system tray protocol; and the meeting place of hosts on the bus, by the protocol of status
// notifiers.
constexpr char SELECTION[] = "_NET_SYSTEM_TRAY_S0";
const QString WATCHER = QStringLiteral( "org.kde.StatusNotifierWatcher" );

bool isEmbedding( xcb_connection_t* connection )
{
    static const xcb_atom_t atom = [connection]( )
    {
        const std::unique_ptr<xcb_intern_atom_reply_t, Free> reply( xcb_intern_atom_reply(
            connection, xcb_intern_atom( connection, 0, sizeof( SELECTION ) - 1, SELECTION ), nullptr ) );
        return reply ? reply->atom : xcb_atom_t{ XCB_ATOM_NONE };
    }( );
    const std::unique_ptr<xcb_get_selection_owner_reply_t, Free> reply(
        xcb_get_selection_owner_reply( connection, xcb_get_selection_owner( connection, atom ), nullptr ) );
    return reply && reply->owner != XCB_WINDOW_NONE;
}

bool isOnBus( )
{
    const QDBusConnection bus = QDBusConnection::sessionBus( );
    return bus.isConnected( ) && bus.interface( )->isServiceRegistered( WATCHER ).value( );
}

bool ask( )
{
    if( !QSystemTrayIcon::isSystemTrayAvailable( ) ) return false;
    // The toolkit does not notice when a host on the bus goes.
    xcb_connection_t* connection = GDesktopGetConnection( );
    return !connection || isEmbedding( connection ) || isOnBus( );
}
} // namespace

bool GTrayHostIsThere( )
{
    static QElapsedTimer asked;
    static bool there = false;
    if( asked.isValid( ) && asked.elapsed( ) < ASK_AGAIN_MILLISECONDS ) return there;
    there = ask( );
    asked.start( );
    return there;
}
