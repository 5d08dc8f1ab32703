// The tray icon with a host on the session's bus. The host is a program of its own, since the toolkit asks it while it waits.
#include "system/desktop/OnDesktop.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace
{
const QString WATCHER = QStringLiteral( "org.kde.StatusNotifierWatcher" );

class BusTrayOnDesktop : public OnDesktop
{
};
} // namespace

TEST_F( BusTrayOnDesktop, ClicksComeFromAHostOnTheBusAndItMayGo )
{
    QDBusConnection bus = QDBusConnection::sessionBus( );
    ASSERT_TRUE( bus.registerService( QStringLiteral( "test.Parent" ) ) );
    Program host( QCoreApplication::applicationDirPath( ) + QStringLiteral( "/bus_tray_host" ) );
    ASSERT_TRUE( pumpUntil( [&]( ) { return bus.interface( )->isServiceRegistered( WATCHER ).value( ); } ) );
    IconListener listener;
    GIcon icon = GIconOpen( &listener );
    EXPECT_TRUE( awaitTray( true ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.left == 1 && listener.right == 1; } ) );
    // Two clicks in short order are a double click: the host has no word for it.
    drive( QStringLiteral( "sleep 0.6" ) );
    bus.send( QDBusMessage::createMethodCall( WATCHER, QStringLiteral( "/StatusNotifierWatcher" ), WATCHER,
                                              QStringLiteral( "ClickTwice" ) ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.twice == 1; } ) );
    EXPECT_EQ( 2, listener.left );
    host.stop( );
    EXPECT_TRUE( awaitTray( false ) );
    GIconClose( icon );
    bus.unregisterService( QStringLiteral( "test.Parent" ) );
}
