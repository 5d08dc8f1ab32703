// A tray host on the session's bus, as a panel has one: takes one icon, passes clicks on, and ends with the name "test.Parent".
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QDBusVirtualObject>

namespace
{
const QString WATCHER = QStringLiteral( "org.kde.StatusNotifierWatcher" );
const QString ITEM = QStringLiteral( "org.kde.StatusNotifierItem" );

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
} // namespace

int main( int argc, char** argv )
{
    QCoreApplication application( argc, argv );
    QDBusConnection bus = QDBusConnection::sessionBus( );
    Watcher watcher;
    if( !bus.registerVirtualObject( QStringLiteral( "/StatusNotifierWatcher" ), &watcher ) ||
        !bus.registerService( WATCHER ) )
        return 1;
    QDBusServiceWatcher parent( QStringLiteral( "test.Parent" ), bus, QDBusServiceWatcher::WatchForUnregistration );
    QObject::connect( &parent, &QDBusServiceWatcher::serviceUnregistered, &application, &QCoreApplication::quit );
    return application.exec( );
}
