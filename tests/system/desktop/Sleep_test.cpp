// Suspend and resume as the session manager tells of them on a real bus. with-desktop gives the program a system bus of its own.
#include "libvorn/src/platform/system/GSystem_Logind.h"
#include "system/desktop/OnDesktop.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QElapsedTimer>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{
const QString SERVICE = QStringLiteral( "org.freedesktop.login1" );
const QString PATH = QStringLiteral( "/org/freedesktop/login1" );
const QString INTERFACE = QStringLiteral( "org.freedesktop.login1.Manager" );

QString busAddress( )
{
    return qEnvironmentVariable( "DBUS_SYSTEM_BUS_ADDRESS" );
}

// Somebody else on the bus.
class Party
{
public:
    explicit Party( const QString& name ) : _name( name ), _bus( QDBusConnection::connectToBus( busAddress( ), name ) )
    {
    }
    ~Party( ) { QDBusConnection::disconnectFromBus( _name ); }
    void announce( bool before )
    {
        QDBusMessage signal = QDBusMessage::createSignal( PATH, INTERFACE, QStringLiteral( "PrepareForSleep" ) );
        signal.setArguments( { before } );
        EXPECT_TRUE( _bus.send( signal ) );
    }
    QDBusConnection& bus( ) { return _bus; }

private:
    QString _name;
    QDBusConnection _bus;
};

// The session manager: hands out what holds sleep up, and knows when it was let go.
class Manager : public QDBusVirtualObject
{
public:
    Manager( ) : party( QStringLiteral( "manager" ) )
    {
        EXPECT_TRUE( party.bus( ).registerVirtualObject( PATH, this ) );
        EXPECT_TRUE( party.bus( ).registerService( SERVICE ) );
    }
    ~Manager( ) override
    {
        party.bus( ).unregisterService( SERVICE );
        party.bus( ).unregisterObject( PATH );
        if( _end >= 0 ) close( _end );
    }
    QString introspect( const QString& ) const override { return { }; }
    bool handleMessage( const QDBusMessage& message, const QDBusConnection& connection ) override
    {
        if( message.member( ) != QLatin1String( "Inhibit" ) ) return false;
        asked = message.arguments( );
        int ends[2];
        if( pipe2( ends, O_CLOEXEC ) ) return false;
        if( _end >= 0 ) close( _end );
        _end = ends[0];
        connection.send( message.createReply( QVariant::fromValue( QDBusUnixFileDescriptor( ends[1] ) ) ) );
        close( ends[1] );
        ++handed;
        return true;
    }
    // True while somebody holds the machine's sleep up.
    bool isHeld( ) const
    {
        pollfd end{ _end, POLLIN, 0 };
        return _end >= 0 && poll( &end, 1, 0 ) == 0;
    }

    Party party;
    QVariantList asked;
    int handed = 0;

private:
    int _end = -1;
};

class SleepOnDesktop : public OnDesktop
{
protected:
    bool isTold( int suspends, int resumes )
    {
        return pumpUntil( [&]( ) { return listener.suspends >= suspends && listener.resumes >= resumes; } ) &&
               listener.suspends == suspends && listener.resumes == resumes;
    }
    SystemListener listener;
};
} // namespace

TEST_F( SleepOnDesktop, SessionManagerIsHeardOnTheSystemBus )
{
    Manager manager;
    GSleepWatchOpen( );
    ASSERT_TRUE( pumpUntil( [&]( ) { return manager.isHeld( ); } ) );
    manager.party.announce( true );
    EXPECT_TRUE( isTold( 1, 0 ) );
    manager.party.announce( false );
    EXPECT_TRUE( isTold( 1, 1 ) );
    // Ready for the next time.
    EXPECT_TRUE( pumpUntil( [&]( ) { return manager.handed == 2 && manager.isHeld( ); } ) );
    delete GDesktopGetHidden( )->findChild<GSleepWatch*>( );
}

TEST_F( SleepOnDesktop, SleepIsHeldUpUntilWhatWasBegunIsOnItsWay )
{
    Manager manager;
    GSleepWatch watch( manager.party.bus( ), nullptr );
    ASSERT_TRUE( pumpUntil( [&]( ) { return manager.isHeld( ); } ) );
    EXPECT_EQ( QStringLiteral( "sleep" ), manager.asked.value( 0 ).toString( ) );
    EXPECT_EQ( QStringLiteral( "delay" ), manager.asked.value( 3 ).toString( ) );
    manager.party.announce( true );
    EXPECT_TRUE( isTold( 1, 0 ) );
    QElapsedTimer held;
    held.start( );
    EXPECT_TRUE( manager.isHeld( ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !manager.isHeld( ); } ) );
    EXPECT_GT( held.elapsed( ), 1500 );
    manager.party.announce( false );
    EXPECT_TRUE( isTold( 1, 1 ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return manager.isHeld( ); } ) );
}

TEST_F( SleepOnDesktop, StrangersAreIgnored )
{
    Manager manager;
    Party stranger( QStringLiteral( "stranger" ) );
    Party listening( QStringLiteral( "listening" ) );
    GSleepWatch watch( listening.bus( ), nullptr );
    ASSERT_TRUE( pumpUntil( [&]( ) { return manager.isHeld( ); } ) );
    stranger.announce( true );
    stranger.announce( false );
    // A bus has one order for all, so his words would come before these.
    QDBusConnection( stranger.bus( ) )
        .call( QDBusMessage::createMethodCall( QStringLiteral( "org.freedesktop.DBus" ),
                                               QStringLiteral( "/org/freedesktop/DBus" ),
                                               QStringLiteral( "org.freedesktop.DBus" ), QStringLiteral( "GetId" ) ) );
    manager.party.announce( true );
    EXPECT_TRUE( isTold( 1, 0 ) );
}

TEST_F( SleepOnDesktop, ManagerMayStartLateAndComeAgain )
{
    Party listening( QStringLiteral( "listening" ) );
    GSleepWatch watch( listening.bus( ), nullptr );
    for( int i = 1; i <= 2; ++i )
    {
        Manager manager;
        EXPECT_TRUE( pumpUntil(
            [&]( )
            {
                // Until the bus has told who owns the name now.
                if( listener.suspends < i ) manager.party.announce( true );
                pumpAll( );
                return listener.suspends >= i;
            } ) );
        listener.suspends = i;
    }
}

TEST_F( SleepOnDesktop, WithoutABusNothingIsAnnounced )
{
    GSleepWatch watch(
        QDBusConnection::connectToBus( QStringLiteral( "unix:path=/nonexistent/bus" ), QStringLiteral( "none" ) ),
        nullptr );
    pumpAll( );
    watch.onPrepareForSleep( true );
    EXPECT_EQ( 1, listener.suspends );
    QDBusConnection::disconnectFromBus( QStringLiteral( "none" ) );
}
