// Stands in for the session manager on the system's bus: takes the word "sleep" or "wake" on its input and announces it. Its output
// tells "held" when somebody holds the machine's sleep up, and "free" when nobody does any more. Ends with its input.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QDBusVirtualObject>
#include <QSocketNotifier>

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace
{
const QString SERVICE = QStringLiteral( "org.freedesktop.login1" );
const QString PATH = QStringLiteral( "/org/freedesktop/login1" );
const QString INTERFACE = QStringLiteral( "org.freedesktop.login1.Manager" );

void say( const char* word )
{
    std::puts( word );
    std::fflush( stdout );
}

class Manager : public QDBusVirtualObject
{
public:
    ~Manager( ) override { _forget( ); }
    QString introspect( const QString& ) const override { return { }; }
    bool handleMessage( const QDBusMessage& message, const QDBusConnection& connection ) override
    {
        if( message.member( ) != QLatin1String( "Inhibit" ) ) return false;
        int ends[2];
        if( pipe2( ends, O_CLOEXEC ) ) return false;
        connection.send( message.createReply( QVariant::fromValue( QDBusUnixFileDescriptor( ends[1] ) ) ) );
        close( ends[1] );
        _watch( ends[0] );
        say( "held" );
        return true;
    }

private:
    // Nothing is ever written to it: when it can be read, the other end is closed.
    void _watch( int end )
    {
        _forget( );
        _end = end;
        _notifier = std::make_unique<QSocketNotifier>( end, QSocketNotifier::Read );
        QObject::connect( _notifier.get( ), &QSocketNotifier::activated, _notifier.get( ),
                          [this]( )
                          {
                              _notifier->setEnabled( false );
                              say( "free" );
                          } );
    }
    void _forget( )
    {
        _notifier.reset( );
        if( _end >= 0 ) close( _end );
        _end = -1;
    }
    std::unique_ptr<QSocketNotifier> _notifier;
    int _end = -1;
};

void announce( const QDBusConnection& bus, bool before )
{
    QDBusMessage signal = QDBusMessage::createSignal( PATH, INTERFACE, QStringLiteral( "PrepareForSleep" ) );
    signal.setArguments( { before } );
    bus.send( signal );
}
} // namespace

int main( int argc, char** argv )
{
    QCoreApplication application( argc, argv );
    QDBusConnection bus = QDBusConnection::systemBus( );
    Manager manager;
    if( !bus.registerVirtualObject( PATH, &manager ) || !bus.registerService( SERVICE ) ) return 1;
    QSocketNotifier input( STDIN_FILENO, QSocketNotifier::Read );
    QObject::connect( &input, &QSocketNotifier::activated, &application,
                      [&]( )
                      {
                          char word[64] = { };
                          const ssize_t length = read( STDIN_FILENO, word, sizeof( word ) - 1 );
                          if( length <= 0 ) return application.quit( );
                          announce( bus, QByteArray( word ).startsWith( "sleep" ) );
                      } );
    say( "ready" );
    return application.exec( );
}
