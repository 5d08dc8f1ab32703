// The tray icon with a host on the session's bus. The host is this program once more, since the toolkit asks it while it waits.
#include "system/desktop/OnDesktop.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVirtualObject>

namespace
{
const QString WATCHER = QStringLiteral( "org.kde.StatusNotifierWatcher" );
const QString ITEM = QStringLiteral( "org.kde.StatusNotifierItem" );
const QString PROPERTIES = QStringLiteral( "org.freedesktop.DBus.Properties" );

class Watcher : public QDBusVirtualObject
{
public:
    QString introspect( const QString& ) const override
    {
        return QStringLiteral( "<interface name='org.kde.StatusNotifierWatcher'>"
                               "<property name='IsStatusNotifierHostRegistered' type='b' access='read'/>"
                               "<property name='ProtocolVersion' type='i' access='read'/>"
                               "<method name='RegisterStatusNotifierItem'><arg type='s' direction='in'/></method>"
                               "</interface>" );
    }
    bool handleMessage( const QDBusMessage& message, const QDBusConnection& connection ) override
    {
        if( message.member( ) == QLatin1String( "Get" ) )
        {
            const QVariant value = message.arguments( ).value( 1 ).toString( ) == QLatin1String( "ProtocolVersion" )
                                       ? QVariant( 0 )
                                       : QVariant( true );
            connection.send( message.createReply( QVariant::fromValue( QDBusVariant( value ) ) ) );
        }
        else if( message.member( ) == QLatin1String( "RegisterStatusNotifierItem" ) )
        {
            connection.send( message.createReply( ) );
            _item = message.service( );
            // A click for the item that came, and the right button, as a panel passes them on.
            _click( connection, QStringLiteral( "Activate" ) );
            _click( connection, QStringLiteral( "ContextMenu" ) );
        }
        else if( message.member( ) == QLatin1String( "ClickTwice" ) )
            for( int i = 0; i < 2; ++i ) _click( connection, QStringLiteral( "Activate" ) );
        else
            return false;
        return true;
    }

private:
    void _click( const QDBusConnection& bus, const QString& method ) const
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall( _item, QStringLiteral( "/StatusNotifierItem" ), ITEM, method );
        call.setArguments( { 10, 10 } );
        bus.send( call );
    }
    QString _item;
};

class BusTrayOnDesktop : public OnDesktop
{
};
} // namespace

// Run by the test below, in a process of its own.
TEST_F( BusTrayOnDesktop, DISABLED_BeTheHost )
{
    QDBusConnection bus = QDBusConnection::sessionBus( );
    Watcher watcher;
    ASSERT_TRUE( bus.registerVirtualObject( QStringLiteral( "/StatusNotifierWatcher" ), &watcher ) );
    ASSERT_TRUE( bus.registerService( WATCHER ) );
    bool ended = false;
    QDBusServiceWatcher parent( QStringLiteral( "test.Parent" ), bus, QDBusServiceWatcher::WatchForUnregistration );
    QObject::connect( &parent, &QDBusServiceWatcher::serviceUnregistered, [&]( ) { ended = true; } );
    while( !ended ) QCoreApplication::processEvents( QEventLoop::WaitForMoreEvents );
}

TEST_F( BusTrayOnDesktop, ClicksComeFromAHostOnTheBusAndItMayGo )
{
    QDBusConnection bus = QDBusConnection::sessionBus( );
    ASSERT_TRUE( bus.registerService( QStringLiteral( "test.Parent" ) ) );
    Program host( QCoreApplication::applicationFilePath( ) +
                  QStringLiteral( " --gtest_also_run_disabled_tests --gtest_filter=*DISABLED_BeTheHost" ) );
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
