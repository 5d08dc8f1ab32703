// What the operating system refuses, call by call: the warning, the alive flag and the result of each.
#include "platform/GNet.h"

#include "base/GPortable.h"
#include "base/GUtil.h"
#include "support/TestLog.h"
#include "unit/platform/FailingCalls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

namespace
{
using FailingCalls::Call;

struct Closer
{
    void operator( )( GNetUDPPort* port ) const { GNetUDPPortClose( port ); }
    void operator( )( GNetTCPSocket* socket ) const { GNetTCPSocketClose( socket ); }
};
using Port = std::unique_ptr<GNetUDPPort, Closer>;
using Socket = std::unique_ptr<GNetTCPSocket, Closer>;

constexpr int64_t DEADLINE = 5000000;
constexpr char16_t NOBODY[] = u"127.0.0.1:9";
// Never to be looked up in earnest; so many signs that no short text holds it in place.
constexpr char16_t NAME[] = u"a-rather-long-name.example:4000";

class GNetFailure : public testing::Test
{
protected:
    ~GNetFailure( ) override { FailingCalls::reset( ); }
    static Port openPort( ) { return Port( GNetUDPPortOpen( u"127.0.0.1:0" ) ); }
    static std::string nameOf( const GNetSource& source ) { return GWideToUTF8( source.host ); }
};
} // namespace

TEST_F( GNetFailure, APortThatCanNotBeMadeIsNoPort )
{
    const std::pair<Call, std::string> rows[] = {
        { Call::SOCKET, "WARNING Could not open port on 127.0.0.1:0, ignoring. (Permission denied)" },
        { Call::SETSOCKOPT, "WARNING Could not set REUSEADDR on port 127.0.0.1:0, closing. (Permission denied)" },
        { Call::FCNTL, "WARNING Could not set port 127.0.0.1:0 to be non-blocking, closing. (Permission denied)" },
        { Call::BIND, "WARNING Could not bind port 127.0.0.1:0, closing. (Permission denied)" },
        { Call::GETSOCKNAME, "WARNING Could not 'getsockname' on port 127.0.0.1:0, closing. (Permission denied)" } };
    for( const auto& [call, warning] : rows )
    {
        TestLog::expect( warning );
        FailingCalls::fail( call, EACCES );
        EXPECT_EQ( GNetUDPPortOpen( u"127.0.0.1:0" ), nullptr ) << warning;
    }
}
TEST_F( GNetFailure, ASocketThatCanNotBeMadeIsNoSocket )
{
    const std::pair<Call, std::string> rows[] = {
        { Call::SOCKET, "WARNING Could not open socket to 127.0.0.1:9, ignoring. (Permission denied)" },
        { Call::FCNTL, "WARNING Could not set non-blocking mode on 127.0.0.1:9, closing. (Permission denied)" },
        { Call::CONNECT, "WARNING Could not connect to 127.0.0.1:9, closing. (Permission denied)" } };
    for( const auto& [call, warning] : rows )
    {
        TestLog::expect( warning );
        FailingCalls::fail( call, EACCES );
        EXPECT_EQ( GNetTCPSocketOpen( NOBODY ), nullptr ) << warning;
    }
}

// ---- The error filters.
TEST_F( GNetFailure, APortOutlivesPeersThatComeAndGo )
{
    const Port port = openPort( );
    GString buffer;
    GWString host;
    for( const int error : { EWOULDBLOCK, ECONNRESET, ECONNREFUSED, EHOSTUNREACH, ENOTCONN } )
    {
        FailingCalls::fail( Call::RECVFROM, error );
        EXPECT_FALSE( GNetUDPPortRecv( port.get( ), buffer, host ) );
        FailingCalls::fail( Call::SENDTO, error );
        GNetUDPPortSend( port.get( ), NOBODY, "x", 1 );
        EXPECT_TRUE( port->alive ) << error;
    }
}
TEST_F( GNetFailure, AnyOtherErrorEndsThePort )
{
    const Port receiver = openPort( );
    const Port sender = openPort( );
    GString buffer = "old";
    GWString host = u"old";
    TestLog::expect( "WARNING Error when receiving via port '" + nameOf( *receiver ) +
                     ", closing. (Network is unreachable)" );
    FailingCalls::fail( Call::RECVFROM, ENETUNREACH );
    EXPECT_FALSE( GNetUDPPortRecv( receiver.get( ), buffer, host ) );
    EXPECT_FALSE( receiver->alive );
    EXPECT_TRUE( buffer.empty( ) && host.empty( ) );
    TestLog::expect( "WARNING Error when sending via port '" + nameOf( *sender ) +
                     ", closing. (Network is unreachable)" );
    FailingCalls::fail( Call::SENDTO, ENETUNREACH );
    GNetUDPPortSend( sender.get( ), NOBODY, "x", 1 );
    EXPECT_FALSE( sender->alive );
}
TEST_F( GNetFailure, AForgivingPortEndsOnlyWithItsSocket )
{
    const Port port = openPort( );
    GNetUDPPortSetForgiving( port.get( ), true );
    GString buffer;
    GWString host;
    FailingCalls::fail( Call::RECVFROM, ENETUNREACH );
    EXPECT_FALSE( GNetUDPPortRecv( port.get( ), buffer, host ) );
    EXPECT_TRUE( port->alive );
    TestLog::expect( "WARNING Error when receiving via port '" + nameOf( *port ) + ", closing. (Bad file descriptor)" );
    FailingCalls::fail( Call::RECVFROM, EBADF );
    EXPECT_FALSE( GNetUDPPortRecv( port.get( ), buffer, host ) );
    EXPECT_FALSE( port->alive );
}
TEST_F( GNetFailure, APartOfADatagramIsTold )
{
    const Port port = openPort( );
    TestLog::expect( "WARNING Send buffer overflow; 2 of 5 bytes sent, ignoring." );
    FailingCalls::tell( Call::SENDTO, 2 );
    GNetUDPPortSend( port.get( ), NOBODY, "hello", 5 );
    EXPECT_TRUE( port->alive );
}
TEST_F( GNetFailure, AStreamForgivesOnlyThatItIsBusyOrNotYetConnected )
{
    const Socket socket( GNetTCPSocketOpen( NOBODY ) );
    GString buffer;
    for( const int error : { EWOULDBLOCK, ENOTCONN } )
    {
        FailingCalls::fail( Call::SEND, error );
        EXPECT_EQ( GNetTCPSocketSend( socket.get( ), "x", 1 ), 0 );
        FailingCalls::fail( Call::RECV, error );
        EXPECT_FALSE( GNetTCPSocketRecv( socket.get( ), buffer ) );
        EXPECT_TRUE( socket->alive ) << error;
        FailingCalls::fail( Call::GETSOCKNAME, error );
        EXPECT_EQ( GNetTCPSocketGetLocalHost( socket.get( ) ), u"0.0.0.0:0" );
    }
    for( const int error : { ECONNRESET, EHOSTUNREACH } )
    {
        socket->alive = true;
        FailingCalls::fail( Call::RECV, error );
        EXPECT_FALSE( GNetTCPSocketRecv( socket.get( ), buffer ) );
        EXPECT_FALSE( socket->alive ) << error;
    }
    TestLog::expect( "WARNING Connection failed on send, error 'Connection reset by peer'" );
    socket->alive = true;
    FailingCalls::fail( Call::SEND, ECONNRESET );
    EXPECT_EQ( GNetTCPSocketSend( socket.get( ), "x", 1 ), 0 );
    EXPECT_FALSE( socket->alive );
}
TEST_F( GNetFailure, MoreSentThanAskedFailsTheAssertion )
{
    const Socket socket( GNetTCPSocketOpen( NOBODY ) );
    TestLog::expect( "WARNING: Assertion failed. (numSent <= length)" );
    FailingCalls::tell( Call::SEND, 6 );
    EXPECT_EQ( GNetTCPSocketSend( socket.get( ), "hello", 5 ), 6 );
}
TEST_F( GNetFailure, AConnectionThatNeverPausesIsReadInPieces )
{
    const Socket socket( GNetTCPSocketOpen( NOBODY ) );
    constexpr size_t MOST = 16 << 20;
    GString buffer;
    FailingCalls::tell( Call::RECV, 2048, 2 * MOST / 2048 );
    EXPECT_TRUE( GNetTCPSocketRecv( socket.get( ), buffer ) );
    EXPECT_EQ( buffer.size( ), MOST );
    buffer.clear( );
    EXPECT_TRUE( GNetTCPSocketRecv( socket.get( ), buffer ) ) << "the rest comes with the next call";
    EXPECT_EQ( buffer.size( ), MOST );
    EXPECT_TRUE( socket->alive );
}
TEST_F( GNetFailure, AForgivenErrorOfThePollHarmsNobody )
{
    const Port port = openPort( );
    for( const int error : { EWOULDBLOCK, ECONNRESET, EHOSTUNREACH, ENOTCONN } )
    {
        FailingCalls::fail( Call::PPOLL, error );
        EXPECT_TRUE( GNetWait( { port.get( ) }, { }, { }, 0 ) ) << "the poll gave something other than 0";
        EXPECT_TRUE( port->alive );
    }
    FailingCalls::fail( Call::PPOLL, EINTR );
    EXPECT_FALSE( GNetWait( { port.get( ) }, { }, { }, 0 ) );
    EXPECT_TRUE( port->alive );
    TestLog::expect( "WARNING Error while polling, resetting everything . (Invalid argument)" );
    FailingCalls::fail( Call::PPOLL, EINVAL );
    EXPECT_TRUE( GNetWait( { }, { port.get( ) }, { }, 0 ) );
    EXPECT_FALSE( port->alive );
}

// ---- Names.
TEST_F( GNetFailure, ANameIsLookedUpAndItsFirstAddressCounts )
{
    const Port port = openPort( );
    const Port other = openPort( );
    FailingCalls::answerLookUp( { "127.0.0.1", "127.0.0.2" } );
    const GWString host = GConcat( u"peer.example", GWStringView( other->host ).substr( other->host.find( u':' ) ) );
    GNetUDPPortSend( port.get( ), host, "hello", 5 );
    EXPECT_EQ( FailingCalls::lookedUp( ), "peer.example" );
    GString buffer;
    GWString from;
    ASSERT_TRUE( GNetWait( { other.get( ) }, { }, { }, DEADLINE ) );
    EXPECT_TRUE( GNetUDPPortRecv( other.get( ), buffer, from ) );
    EXPECT_EQ( buffer, "hello" );
}
TEST_F( GNetFailure, ANameThatNobodyKnowsIsNotResolved )
{
    const Port port = openPort( );
    const std::string warning = "WARNING Could not resolve host 'a-rather-long-name.example:4000', ignoring.";
    TestLog::expect( warning );
    TestLog::expect( "WARNING: Assertion failed. (hostIP && hostPort)" );
    EXPECT_EQ( GNetUDPPortOpen( NAME ), nullptr );
    EXPECT_EQ( GNetTCPSocketOpen( NAME ), nullptr );
    GNetUDPPortSend( port.get( ), NAME, "x", 1 );
    EXPECT_EQ( TestLog::count( warning ), 3 );
    EXPECT_EQ( FailingCalls::lookedUp( ), "a-rather-long-name.example" );
    EXPECT_TRUE( port->alive );
}
TEST_F( GNetFailure, TextThatCanNotBeANameIsNotLookedUp )
{
    const Port port = openPort( );
    TestLog::expect( "WARNING Could not resolve host '" );
    TestLog::expect( "WARNING: Assertion failed. (hostIP && hostPort)" );
    const GWString hosts[] = {
        u"two words:80", u"\u00E4.example:80", u":80",        u"",         GWString( 300, u'a' ) + u":80",
        u"1.2.3.4\n:80", u"[::1]:80",          u"0.0.0.0:80", u"0.0.0.0:0" };
    for( const GWString& host : hosts ) GNetUDPPortSend( port.get( ), host, "x", 1 );
    EXPECT_EQ( TestLog::count( "WARNING Could not resolve host '" ), static_cast<int>( std::size( hosts ) ) );
    EXPECT_EQ( FailingCalls::lookedUp( ), "" );
}
TEST_F( GNetFailure, DottedAddressesAreNeverLookedUp )
{
    const Port port = openPort( );
    GNetUDPPortSend( port.get( ), NOBODY, "x", 1 );
    // The short forms that the system itself reads count as addresses too.
    GNetUDPPortSend( port.get( ), u"127.1:9", "x", 1 );
    EXPECT_EQ( FailingCalls::lookedUp( ), "" );
}

// ---- The machine's own addresses.
TEST_F( GNetFailure, TheMachinesNameGivesItsAddressesInOrder )
{
    FailingCalls::answerLookUp( { "192.168.7.2", "10.1.2.3" } );
    GStringList list{ u"old" };
    EXPECT_TRUE( GNetListIPs( list ) );
    EXPECT_EQ( list, ( GStringList{ u"192.168.7.2", u"10.1.2.3" } ) );
    EXPECT_NE( FailingCalls::lookedUp( ), "" );
}
TEST_F( GNetFailure, AMachineWithoutANameOrAnAddressHasNoList )
{
    GStringList list{ u"old" };
    TestLog::expect( "WARNING Unable to 'gethostname', ignoring." );
    FailingCalls::fail( Call::GETHOSTNAME, ENAMETOOLONG );
    EXPECT_FALSE( GNetListIPs( list ) );
    EXPECT_TRUE( list.empty( ) );
    EXPECT_EQ( FailingCalls::lookedUp( ), "" );
    list = { u"old" };
    TestLog::expect( "WARNING Unable to 'gethostbyname', ignoring." );
    EXPECT_FALSE( GNetListIPs( list ) );
    EXPECT_TRUE( list.empty( ) );
    list = { u"old" };
    TestLog::expect( "WARNING Unable to list the interfaces, ignoring. (Permission denied)" );
    FailingCalls::fail( Call::GETIFADDRS, EACCES );
    EXPECT_FALSE( GNetListInterfaceIPs( list ) );
    EXPECT_TRUE( list.empty( ) );
}
