// Real sockets on loopback; waiting ends on an event or after a bounded number of polls.
#include "platform/GNet.h"

#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GThread.h"
#include "support/CountAllocations.h"
#include "support/TestLog.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <vector>

namespace
{
struct Closer
{
    void operator( )( GNetUDPPort* port ) const { GNetUDPPortClose( port ); }
    void operator( )( GNetTCPSocket* socket ) const { GNetTCPSocketClose( socket ); }
};
using Port = std::unique_ptr<GNetUDPPort, Closer>;
using Socket = std::unique_ptr<GNetTCPSocket, Closer>;

constexpr int64_t DEADLINE = 5000000;

Port openPort( )
{
    return Port( GNetUDPPortOpen( u"127.0.0.1:0" ) );
}
bool recvSoon( GNetUDPPort* port, GString& buffer, GWString& host )
{
    GNetWait( { port }, { }, { }, DEADLINE );
    return GNetUDPPortRecv( port, buffer, host );
}
sockaddr_in addressOf( const GWString& host )
{
    GWString ip;
    int port = 0;
    uint32_t value = 0;
    EXPECT_TRUE( GNetSplitHost( host, ip, port ) && GNetParseAddress( ip, value ) );
    sockaddr_in address{ };
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl( value );
    address.sin_port = htons( static_cast<uint16_t>( port ) );
    return address;
}

// A plain listener, so that the sockets under test have another side.
class Listener
{
public:
    Listener( ) : _handle( ::socket( AF_INET, SOCK_STREAM, 0 ) )
    {
        sockaddr_in address{ };
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
        socklen_t size = sizeof( address );
        EXPECT_EQ( ::bind( _handle, reinterpret_cast<sockaddr*>( &address ), size ), 0 );
        EXPECT_EQ( ::listen( _handle, 4 ), 0 );
        EXPECT_EQ( ::getsockname( _handle, reinterpret_cast<sockaddr*>( &address ), &size ), 0 );
        host = GConcat( u"127.0.0.1:", ntohs( address.sin_port ) );
    }
    ~Listener( ) { ::close( _handle ); }
    int accept( ) const { return ::accept( _handle, nullptr, nullptr ); }
    GWString host;

private:
    int _handle;
};

int64_t slept_ = 0;
void recordSleep( int64_t duration )
{
    slept_ += duration;
}
struct SleepRecorder
{
    SleepRecorder( )
    {
        slept_ = 0;
        GThreadSetSleep( recordSleep );
    }
    ~SleepRecorder( ) { GThreadSetSleep( nullptr ); }
};
struct ShutdownScope
{
    ShutdownScope( ) { GSetShuttingDown( true ); }
    ~ShutdownScope( ) { GSetShuttingDown( false ); }
};
} // namespace

// ---- UDP.
TEST( GNetUDPPort, PortZeroShowsThePortThatTheSystemChose )
{
    const Port port = openPort( );
    ASSERT_TRUE( port );
    EXPECT_TRUE( GNetUDPPortIsAlive( port.get( ) ) );
    EXPECT_EQ( GNetUDPPortGetMTU( port.get( ) ), 1472 );
    const GWString host = GNetUDPPortGetLocalHost( port.get( ) );
    EXPECT_TRUE( host.starts_with( u"127.0.0.1:" ) );
    EXPECT_NE( host, u"127.0.0.1:0" );
    EXPECT_TRUE( TestLog::contains( "Opening port to host '127.0.0.1:0'" ) );
}

// So many that two of them would nearly always be the same if the system were free to choose one twice.
TEST( GNetUDPPort, APortThatTheSystemChoseBelongsToOneAlone )
{
    std::set<GWString> hosts;
    std::vector<GNetUDPPort*> ports;
    for( int i = 0; i < 600; ++i )
    {
        ports.push_back( GNetUDPPortOpen( u"127.0.0.1:0" ) );
        ASSERT_TRUE( ports.back( ) );
        hosts.insert( GNetUDPPortGetLocalHost( ports.back( ) ) );
    }
    EXPECT_EQ( hosts.size( ), ports.size( ) );
    std::for_each( ports.begin( ), ports.end( ), GNetUDPPortClose );
}

TEST( GNetUDPPort, ANamedPortOpensBesideOneThatIsOpen )
{
    GNetUDPPort* first = GNetUDPPortOpen( u"127.0.0.1:0" );
    GNetUDPPort* second = GNetUDPPortOpen( GNetUDPPortGetLocalHost( first ) );
    EXPECT_TRUE( second );
    GNetUDPPortClose( first );
    if( second ) GNetUDPPortClose( second );
}

TEST( GNetUDPPort, CarriesADatagramAndItsSource )
{
    const Port a = openPort( );
    const Port b = openPort( );
    GNetUDPPortSend( a.get( ), b->host, "hello", 5 );
    GString buffer = "old";
    GWString host = u"old";
    ASSERT_TRUE( recvSoon( b.get( ), buffer, host ) );
    EXPECT_EQ( buffer, "hello" );
    EXPECT_EQ( host, a->host );
    EXPECT_FALSE( GNetUDPPortRecv( b.get( ), buffer, host ) );
    EXPECT_TRUE( buffer.empty( ) );
    EXPECT_TRUE( host.empty( ) );
    EXPECT_TRUE( b->alive );
}
TEST( GNetUDPPort, NoAddressCannotBeOpened )
{
    TestLog::expect( "WARNING Could not resolve host '0.0.0.0:0', ignoring." );
    EXPECT_EQ( GNetUDPPortOpen( u"0.0.0.0:0" ), nullptr );
}
TEST( GNetUDPPort, AnAddressThatIsNotOursCannotBeBound )
{
    TestLog::expect( "WARNING Could not bind port 203.0.113.9:0, closing. (" );
    EXPECT_EQ( GNetUDPPortOpen( u"203.0.113.9:0" ), nullptr );
}
TEST( GNetUDPPort, AResetByThePeerLeavesThePortAlive )
{
    const Port port = openPort( );
    GWString closed;
    {
        const Port other = openPort( );
        closed = other->host;
    }
    // A connected datagram socket is told of an unreachable port; that is how the reset of a peer looks to the reader.
    const sockaddr_in address = addressOf( closed );
    ASSERT_EQ( ::connect( port->handle, reinterpret_cast<const sockaddr*>( &address ), sizeof( address ) ), 0 );
    ASSERT_EQ( ::send( port->handle, "x", 1, 0 ), 1 );
    ASSERT_TRUE( GNetWait( { port.get( ) }, { }, { }, DEADLINE ) );
    int error = 0;
    GString buffer;
    GWString host;
    EXPECT_FALSE( GNetUDPPortRecv( port.get( ), buffer, host ) );
    EXPECT_TRUE( buffer.empty( ) );
    EXPECT_TRUE( port->alive );
    socklen_t size = sizeof( error );
    EXPECT_EQ( ::getsockopt( port->handle, SOL_SOCKET, SO_ERROR, &error, &size ), 0 );
    EXPECT_EQ( error, 0 ) << "the receive above took the error";
}
TEST( GNetUDPPort, MoreThanTheMTUWarnsAndIsSent )
{
    TestLog::expect( "WARNING Packet size (1473) exceeds recommended MTU (1472)" );
    const Port a = openPort( );
    const Port b = openPort( );
    const GString data( 1473, 'x' );
    GNetUDPPortSend( a.get( ), b->host, data.data( ), 1473 );
    GString buffer;
    GWString host;
    ASSERT_TRUE( recvSoon( b.get( ), buffer, host ) );
    EXPECT_EQ( buffer, data );
}
TEST( GNetUDPPort, TheMTUItselfDoesNotWarn )
{
    const Port a = openPort( );
    const Port b = openPort( );
    const GString data( 1472, 'x' );
    GNetUDPPortSend( a.get( ), b->host, data.data( ), 1472 );
    GString buffer;
    GWString host;
    EXPECT_TRUE( recvSoon( b.get( ), buffer, host ) );
}
TEST( GNetUDPPort, NoBytesWarnByAssertionAndAreSent )
{
    TestLog::expect( "length > 0" );
    const Port a = openPort( );
    const Port b = openPort( );
    GNetUDPPortSend( a.get( ), b->host, "", 0 );
    ASSERT_TRUE( GNetWait( { b.get( ) }, { }, { }, DEADLINE ) ) << "an empty datagram arrived";
    GString buffer;
    GWString host;
    EXPECT_FALSE( GNetUDPPortRecv( b.get( ), buffer, host ) );
    EXPECT_FALSE( GNetWait( { b.get( ) }, { }, { }, 0 ) ) << "and was taken";
    EXPECT_TRUE( b->alive );
}
TEST( GNetUDPPort, AHostWithoutAPortIsNotSentTo )
{
    TestLog::expect( "hostIP && hostPort" );
    TestLog::expect( "WARNING Could not resolve host '127.0.0.1:0', ignoring." );
    const Port a = openPort( );
    GNetUDPPortSend( a.get( ), u"127.0.0.1:0", "x", 1 );
    EXPECT_TRUE( a->alive );
}
TEST( GNetUDPPort, AnErrorWhenSendingClosesThePortUnlessItForgives )
{
    const GString tooLong( 65508, 'x' );
    const Port strict = openPort( );
    const Port forgiving = openPort( );
    GNetUDPPortSetForgiving( forgiving.get( ), true );
    TestLog::expect( "exceeds recommended MTU" );
    TestLog::expect( "WARNING Error when sending via port '" + GWideToUTF8( strict->host ) + ", closing. (" );
    TestLog::expect( "WARNING Error when sending via port '" + GWideToUTF8( forgiving->host ) + ", ignoring. (" );
    GNetUDPPortSend( strict.get( ), forgiving->host, tooLong.data( ), static_cast<int>( tooLong.size( ) ) );
    GNetUDPPortSend( forgiving.get( ), strict->host, tooLong.data( ), static_cast<int>( tooLong.size( ) ) );
    EXPECT_FALSE( strict->alive );
    EXPECT_TRUE( forgiving->alive );
}
TEST( GNetUDPPort, LargeReadsTakeWholeDatagrams )
{
    TestLog::expect( "exceeds recommended MTU" );
    const Port a = openPort( );
    const Port b = openPort( );
    const GString data( 20000, 'y' );
    GString buffer;
    GWString host;
    GNetUDPPortSend( a.get( ), b->host, data.data( ), 20000 );
    ASSERT_TRUE( recvSoon( b.get( ), buffer, host ) );
    EXPECT_EQ( buffer.size( ), 5888u );
    GNetUDPPortSetLargeReads( b.get( ), true );
    GNetUDPPortSend( a.get( ), b->host, data.data( ), 20000 );
    ASSERT_TRUE( recvSoon( b.get( ), buffer, host ) );
    EXPECT_EQ( buffer, data );
}
TEST( GNetUDPPort, ABrokenHandleEndsThePort )
{
    const Port port = openPort( );
    TestLog::expect( "WARNING Error when receiving via port '" + GWideToUTF8( port->host ) + ", closing. (" );
    const int handle = port->handle;
    port->handle = -1;
    GString buffer;
    GWString host;
    EXPECT_FALSE( GNetUDPPortRecv( port.get( ), buffer, host ) );
    EXPECT_FALSE( port->alive );
    // Dead: everything is a quiet no-op from now on.
    GNetUDPPortSend( port.get( ), u"127.0.0.1:9", "x", 1 );
    EXPECT_FALSE( GNetUDPPortRecv( port.get( ), buffer, host ) );
    port->handle = handle;
}

// ---- Waiting.
TEST( GNetWait, WithoutLiveSourcesSleepsTheWholeTime )
{
    const SleepRecorder recorder;
    const Port dead = openPort( );
    dead->alive = false;
    EXPECT_FALSE( GNetWait( { }, { }, { }, 1234567 ) );
    EXPECT_EQ( slept_, 1234567 );
    EXPECT_FALSE( GNetWait( { dead.get( ) }, { }, { dead.get( ) }, 1000 ) );
    EXPECT_EQ( slept_, 1235567 );
}
TEST( GNetWait, TheSixtyFifthSourceIsNotPolled )
{
    std::vector<Port> ports;
    GNetSourceList first;
    GNetSourceList second;
    for( int i = 0; i < 65; ++i )
    {
        ports.push_back( openPort( ) );
        ( i < 40 ? first : second ).push_back( ports.back( ).get( ) );
    }
    GNetUDPPortSend( ports[0].get( ), ports[64]->host, "x", 1 );
    ASSERT_TRUE( GNetWait( { ports[64].get( ) }, { }, { }, DEADLINE ) );
    EXPECT_FALSE( GNetWait( first, second, { }, 0 ) );
    GNetUDPPortSend( ports[0].get( ), ports[63]->host, "x", 1 );
    EXPECT_TRUE( GNetWait( first, second, { }, DEADLINE ) );
}
TEST( GNetWait, AFailedPollResetsEverything )
{
    TestLog::expect( "WARNING Error while polling, resetting everything . (" );
    const Port good = openPort( );
    const Port broken = openPort( );
    const int handle = broken->handle;
    broken->handle = 100000;
    EXPECT_TRUE( GNetWait( { good.get( ) }, { }, { broken.get( ) }, 0 ) );
    EXPECT_FALSE( good->alive );
    EXPECT_FALSE( broken->alive );
    broken->handle = handle;
}

// ---- TCP.
TEST( GNetTCPSocket, ExchangesBytesAndSeesTheEnd )
{
    const Listener listener;
    const Socket socket( GNetTCPSocketOpen( listener.host ) );
    ASSERT_TRUE( socket );
    EXPECT_EQ( socket->host, listener.host );
    const int other = listener.accept( );
    EXPECT_TRUE( GNetTCPSocketGetLocalHost( socket.get( ) ).starts_with( u"127.0.0.1:" ) );
    EXPECT_EQ( GNetTCPSocketSend( socket.get( ), "ping", 4 ), 4 );
    char bytes[4];
    EXPECT_EQ( ::recv( other, bytes, 4, MSG_WAITALL ), 4 );
    const GString reply( 5000, 'r' );
    EXPECT_EQ( ::send( other, reply.data( ), reply.size( ), 0 ), 5000 );
    GString buffer = "before";
    while( buffer.size( ) < 5006 && GNetWait( { }, { }, { socket.get( ) }, DEADLINE ) )
        GNetTCPSocketRecv( socket.get( ), buffer );
    EXPECT_EQ( buffer, "before" + reply );
    EXPECT_FALSE( GNetTCPSocketRecv( socket.get( ), buffer ) );
    EXPECT_TRUE( GNetTCPSocketIsAlive( socket.get( ) ) );
    GNetTCPSocketShutdown( socket.get( ) );
    EXPECT_EQ( ::recv( other, bytes, 1, 0 ), 0 ) << "the send side is half-closed";
    ::close( other );
    ASSERT_TRUE( GNetWait( { socket.get( ) }, { }, { }, DEADLINE ) );
    EXPECT_FALSE( GNetTCPSocketRecv( socket.get( ), buffer ) );
    EXPECT_FALSE( GNetTCPSocketIsAlive( socket.get( ) ) );
    EXPECT_EQ( GNetTCPSocketSend( socket.get( ), "x", 1 ), 0 );
}
// A line that has gone dead is found out while what is on it is still worth something.
TEST( GNetTCPSocket, FailsAfterTwentySecondsWithoutConfirmation )
{
    const Listener listener;
    const Socket socket( GNetTCPSocketOpen( listener.host ) );
    unsigned milliseconds = 0;
    socklen_t size = sizeof( milliseconds );
    ASSERT_EQ( ::getsockopt( socket->handle, IPPROTO_TCP, TCP_USER_TIMEOUT, &milliseconds, &size ), 0 );
    EXPECT_EQ( milliseconds, 20000u );
}
TEST( GNetTCPSocket, ARefusedConnectionShowsLater )
{
    GWString host;
    {
        const Listener listener;
        host = listener.host;
    }
    const Socket socket( GNetTCPSocketOpen( host ) );
    ASSERT_TRUE( socket );
    EXPECT_TRUE( socket->alive );
    GNetWait( { socket.get( ) }, { }, { }, DEADLINE );
    GString buffer;
    EXPECT_FALSE( GNetTCPSocketRecv( socket.get( ), buffer ) );
    EXPECT_FALSE( socket->alive );
}
TEST( GNetTCPSocket, AFullBufferSendsNothingAndDoesNoHarm )
{
    const Listener listener;
    const Socket socket( GNetTCPSocketOpen( listener.host ) );
    const int other = listener.accept( );
    const GString block( 65536, 'b' );
    int sent = 1;
    for( int i = 0; sent && i < 10000; ++i ) sent = GNetTCPSocketSend( socket.get( ), block.data( ), 65536 );
    EXPECT_EQ( sent, 0 );
    EXPECT_TRUE( socket->alive );
    ::close( other );
}
TEST( GNetTCPSocket, SendingToAClosedPeerFailsAloud )
{
    TestLog::expect( "WARNING Connection failed on send, error '" );
    const Listener listener;
    const Socket socket( GNetTCPSocketOpen( listener.host ) );
    ASSERT_EQ( ::shutdown( socket->handle, SHUT_WR ), 0 );
    EXPECT_EQ( GNetTCPSocketSend( socket.get( ), "x", 1 ), 0 );
    EXPECT_FALSE( socket->alive );
}
TEST( GNetTCPSocket, AFailedSocketHasNoLocalHost )
{
    const Listener listener;
    const Socket socket( GNetTCPSocketOpen( listener.host ) );
    TestLog::expect( "WARNING Could not 'getsockname' on socket " + GWideToUTF8( listener.host ) + ", closing. (" );
    const int handle = socket->handle;
    socket->handle = -1;
    EXPECT_EQ( GNetTCPSocketGetLocalHost( socket.get( ) ), u"0.0.0.0:0" );
    socket->handle = handle;
}
TEST( GNetTCPSocket, NoHostWarnsAndOpensNothing )
{
    TestLog::expect( "GValidHost( remoteHost )" );
    TestLog::expect( "WARNING Could not resolve host '0.0.0.0:0', ignoring." );
    EXPECT_EQ( GNetTCPSocketOpen( u"0.0.0.0:0" ), nullptr );
}

TEST( GNetTCPSocket, ADeadSocketIsNotShutDown )
{
    const Listener listener;
    const Socket socket( GNetTCPSocketOpen( listener.host ) );
    const int other = listener.accept( );
    socket->alive = false;
    GNetTCPSocketShutdown( socket.get( ) );
    EXPECT_FALSE( TestLog::contains( "Shutting down socket" ) );
    char byte = 0;
    EXPECT_EQ( ::recv( other, &byte, 1, MSG_DONTWAIT ), -1 ) << "the other side sees no end";
    socket->alive = true;
    GNetTCPSocketShutdown( socket.get( ) );
    EXPECT_TRUE( TestLog::contains( "Shutting down socket '" + GWideToUTF8( listener.host ) + "'" ) );
    EXPECT_EQ( ::recv( other, &byte, 1, 0 ), 0 );
    ::close( other );
}

// ---- Odds.
TEST( GNet, ListsTheAddressesOfItsInterfaces )
{
    GStringList list{ u"old" };
    ASSERT_TRUE( GNetListInterfaceIPs( list ) );
    for( const GWString& ip : list )
    {
        uint32_t value = 0;
        EXPECT_TRUE( GNetParseAddress( ip, value ) );
    }
}
TEST( GNet, LogsWhatItOpensAndCloses )
{
    const Listener listener;
    GNetUDPPort* port = GNetUDPPortOpen( u"127.0.0.1:0" );
    const std::string local = GWideToUTF8( port->host );
    GNetUDPPortClose( port );
    EXPECT_TRUE( TestLog::contains( "Closing port bound to '" + local + "'" ) );
    GNetTCPSocketClose( GNetTCPSocketOpen( listener.host ) );
    const std::string remote = GWideToUTF8( listener.host );
    EXPECT_TRUE( TestLog::contains( "Opening socket to '" + remote + "'" ) );
    EXPECT_TRUE( TestLog::contains( "Closing socket '" + remote + "'" ) );
}
TEST( GNet, AnUncleanShutdownStopsEveryOperation )
{
    const Listener listener;
    const Port a = openPort( );
    const Port b = openPort( );
    const Socket socket( GNetTCPSocketOpen( listener.host ) );
    const int other = listener.accept( );
    GNetUDPPortSend( a.get( ), b->host, "x", 1 );
    ASSERT_TRUE( GNetWait( { b.get( ) }, { }, { }, DEADLINE ) );
    ASSERT_EQ( ::send( other, "y", 1, 0 ), 1 );
    ASSERT_TRUE( GNetWait( { }, { socket.get( ) }, { }, DEADLINE ) );
    TestLog::clear( );
    GString buffer;
    GWString host;
    GStringList list{ u"old" };
    {
        const SleepRecorder recorder;
        const ShutdownScope scope;
        EXPECT_EQ( GNetUDPPortOpen( u"127.0.0.1:0" ), nullptr );
        EXPECT_EQ( GNetTCPSocketOpen( u"" ), nullptr );
        EXPECT_FALSE( GNetUDPPortRecv( b.get( ), buffer, host ) );
        GNetUDPPortSend( b.get( ), a->host, "", 0 );
        EXPECT_FALSE( GNetWait( { b.get( ) }, { }, { }, DEADLINE ) );
        EXPECT_FALSE( GNetWait( { }, { }, { }, DEADLINE ) );
        EXPECT_EQ( slept_, 0 );
        EXPECT_EQ( GNetTCPSocketSend( socket.get( ), "x", 1 ), 0 );
        EXPECT_FALSE( GNetTCPSocketRecv( socket.get( ), buffer ) );
        EXPECT_EQ( GNetTCPSocketGetLocalHost( socket.get( ) ), u"0.0.0.0:0" );
        GNetTCPSocketShutdown( socket.get( ) );
        GNetTCPSocketClose( socket.get( ) );
        GNetUDPPortClose( b.get( ) );
        EXPECT_FALSE( GNetListIPs( list ) );
        EXPECT_TRUE( list.empty( ) );
        EXPECT_FALSE( GNetListInterfaceIPs( list ) );
        EXPECT_EQ( GNetUDPPortGetMTU( b.get( ) ), 1472 );
        EXPECT_TRUE( GNetUDPPortIsAlive( b.get( ) ) );
        EXPECT_TRUE( GNetTCPSocketIsAlive( socket.get( ) ) );
    }
    EXPECT_TRUE( TestLog::lines( ).empty( ) );
    EXPECT_TRUE( GNetUDPPortRecv( b.get( ), buffer, host ) ) << "nothing was taken or closed";
    EXPECT_TRUE( GNetTCPSocketRecv( socket.get( ), buffer ) );
    EXPECT_FALSE( GNetWait( { a.get( ) }, { }, { }, 0 ) ) << "nothing was sent";
    char byte = 0;
    EXPECT_EQ( ::recv( other, &byte, 1, MSG_DONTWAIT ), -1 );
    ::close( other );
}
// A port can hold a thousand datagrams a second for hours.
TEST( GNet, DatagramsTakeNothingFromTheHeap )
{
    const Port a = openPort( );
    const Port b = openPort( );
    GNetUDPPortSetLargeReads( b.get( ), true );
    const GNetSourceList sources{ b.get( ) };
    const GNetSourceList none;
    const GString data( 1472, 'x' );
    GString buffer;
    GWString host;
    int received = 0;
    const auto exchange = [&]
    {
        for( int i = 0; i < 50; ++i )
        {
            GNetUDPPortSend( a.get( ), b->host, data.data( ), 1472 );
            GNetWait( sources, none, none, DEADLINE );
            received += GNetUDPPortRecv( b.get( ), buffer, host );
        }
    };
    exchange( );
    EXPECT_EQ( countAllocations( exchange ), 0 );
    EXPECT_EQ( received, 100 );
}
TEST( GNetDeath, NullAndNegativeArgumentsAbort )
{
    GString buffer;
    GWString host;
    EXPECT_DEATH( GNetUDPPortRecv( nullptr, buffer, host ), "port" );
    EXPECT_DEATH( GNetUDPPortSend( nullptr, u"127.0.0.1:9", "x", 1 ), "p && buffer" );
    EXPECT_DEATH( GNetWait( { }, { }, { }, -1 ), "timeout >= 0" );
    EXPECT_DEATH( GNetUDPPortGetMTU( nullptr ), "port" );
    EXPECT_DEATH( GNetUDPPortIsAlive( nullptr ), "port" );
    EXPECT_DEATH( GNetUDPPortGetLocalHost( nullptr ), "port" );
    EXPECT_DEATH( GNetUDPPortClose( nullptr ), "port" );
    EXPECT_DEATH( GNetTCPSocketGetLocalHost( nullptr ), "socket" );
    EXPECT_DEATH( GNetTCPSocketSend( nullptr, "x", 1 ), "socket" );
    EXPECT_DEATH( GNetTCPSocketRecv( nullptr, buffer ), "socket" );
    EXPECT_DEATH( GNetTCPSocketShutdown( nullptr ), "socket" );
    EXPECT_DEATH( GNetTCPSocketIsAlive( nullptr ), "socket" );
    EXPECT_DEATH( GNetTCPSocketClose( nullptr ), "socket" );
    const Port port = openPort( );
    EXPECT_DEATH( GNetUDPPortSend( port.get( ), u"127.0.0.1:9", nullptr, 1 ), "p && buffer" );
}
