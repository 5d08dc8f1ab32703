#include "client/transport/GHTTPClient.h"

#include "support/CountAllocations.h"
#include "support/TestClock.h"
#include "support/TestLog.h"
#include "support/TestTcpServer.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
std::unique_ptr<GHTTPClient> makeClient( const GWString& host, const GHTTPHeaders& request )
{
    return std::unique_ptr<GHTTPClient>( GSAFENEW( GHTTPClient, ( host, request ) ) );
}
GHTTPHeaders makeResponse( const GString& content )
{
    GHTTPHeaders response;
    response.setResponse( 200, u"OK" );
    response.addContent( content );
    return response;
}
// Polls as an owner does, until a message is there or the socket has been silent for 2 s.
bool receive( GHTTPClient& client, GHTTPHeaders& response )
{
    for( int i = 0; i < 40; ++i )
    {
        if( client.recv( response ) ) return true;
        client.update( 50000 );
    }
    return false;
}
// A listener that takes one connection into its queue and answers no further one.
class FullListener
{
public:
    FullListener( ) : _listener( ::socket( AF_INET, SOCK_STREAM, 0 ) ), _filler( ::socket( AF_INET, SOCK_STREAM, 0 ) )
    {
        sockaddr_in address{ };
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
        socklen_t size = sizeof( address );
        auto* generic = reinterpret_cast<sockaddr*>( &address );
        EXPECT_EQ( 0, ::bind( _listener, generic, size ) );
        EXPECT_EQ( 0, ::getsockname( _listener, generic, &size ) );
        EXPECT_EQ( 0, ::listen( _listener, 0 ) );
        EXPECT_EQ( 0, ::connect( _filler, generic, size ) );
        host = GConcat( u"127.0.0.1:", ntohs( address.sin_port ) );
    }
    ~FullListener( )
    {
        ::close( _filler );
        ::close( _listener );
    }
    FullListener( const FullListener& ) = delete;
    FullListener& operator=( const FullListener& ) = delete;
    GWString host;

private:
    int _listener;
    int _filler;
};
} // namespace

TEST( HTTPClient, SendsItsRequestAndTakesTheAnswer )
{
    TestTcpServer server;
    const auto client = makeClient( server.host( ), GHTTPHeaders( u"AUTHENTICATE" ) );
    ASSERT_TRUE( server.accept( ) );
    client->update( 0 );
    GHTTPHeaders heard;
    ASSERT_TRUE( server.hear( heard ) );
    EXPECT_TRUE( heard.isMethod( u"AUTHENTICATE" ) );
    server.say( makeResponse( "hello" ) );
    GHTTPHeaders response;
    ASSERT_TRUE( receive( *client, response ) );
    EXPECT_EQ( response.getResponse( ), 200 );
    EXPECT_EQ( response.getContent( 0 ), "hello" );
    EXPECT_TRUE( client->isAlive( ) );
    EXPECT_EQ( client->getRemoteHost( ), server.host( ) );
    EXPECT_EQ( client->getLocalHost( ).substr( 0, 10 ), u"127.0.0.1:" );
}

TEST( HTTPClient, AnswerSplitOverManyReadsComesOnceWholeAndTheNextOneStays )
{
    TestTcpServer server;
    const auto client = makeClient( server.host( ), GHTTPHeaders( u"A" ) );
    ASSERT_TRUE( server.accept( ) );
    const GString text = makeResponse( "first" ).serialize( ) + makeResponse( "second" ).serialize( );
    const size_t firstLength = makeResponse( "first" ).serialize( ).size( );
    GHTTPHeaders response;
    for( size_t i = 0; i + 1 < firstLength; i += 7 )
    {
        server.say( text.substr( i, std::min<size_t>( 7, firstLength - 1 - i ) ) );
        client->update( 50000 );
        ASSERT_FALSE( client->recv( response ) ) << i;
    }
    server.say( text.substr( firstLength - 1 ) );
    ASSERT_TRUE( receive( *client, response ) );
    EXPECT_EQ( response.getContent( 0 ), "first" );
    server.hangUp( );
    ASSERT_TRUE( receive( *client, response ) );
    EXPECT_EQ( response.getContent( 0 ), "second" );
    EXPECT_FALSE( client->recv( response ) );
    EXPECT_FALSE( client->isAlive( ) );
}

TEST( HTTPClient, PartOfAnAnswerIsLostWhenTheServerHangsUp )
{
    TestTcpServer server;
    const auto client = makeClient( server.host( ), GHTTPHeaders( u"A" ) );
    ASSERT_TRUE( server.accept( ) );
    const GString text = makeResponse( "content" ).serialize( );
    server.say( text.substr( 0, text.size( ) - 1 ) );
    server.hangUp( );
    GHTTPHeaders response;
    EXPECT_FALSE( receive( *client, response ) );
    EXPECT_FALSE( client->isAlive( ) );
}

TEST( HTTPClient, RequestThatStallsIsClosedAfterFiveSeconds )
{
    TestClock clock;
    TestTcpServer server( 4096 );
    GHTTPHeaders request( u"LOGFILE" );
    request.addContent( GString( 32 * 1024 * 1024, 'x' ) );
    const auto client = makeClient( server.host( ), request );
    ASSERT_TRUE( server.accept( ) );
    // The kernel's buffers take a part, and then nothing moves any more.
    int unsent = -1;
    while( unsent != client->getUnsent( ) )
    {
        unsent = client->getUnsent( );
        client->update( 0 );
    }
    ASSERT_GT( unsent, 0 );
    clock.advance( 4900000 );
    client->update( 0 );
    EXPECT_TRUE( client->isAlive( ) );
    TestLog::expect( "timed out, cancelling." );
    clock.advance( 200000 );
    client->update( 0 );
    EXPECT_FALSE( client->isAlive( ) );
    EXPECT_EQ( client->getLocalHost( ), u"0.0.0.0:0" );
}

TEST( HTTPClient, ConnectionThatIsNeverMadeIsClosedAfterFiveSeconds )
{
    TestClock clock;
    const FullListener listener;
    const auto client = makeClient( listener.host, GHTTPHeaders( u"A" ) );
    clock.advance( 4900000 );
    client->update( 0 );
    EXPECT_TRUE( client->isAlive( ) );
    EXPECT_GT( client->getUnsent( ), 0 );
    TestLog::expect( "timed out, cancelling." );
    clock.advance( 200000 );
    client->update( 0 );
    EXPECT_FALSE( client->isAlive( ) );
}

TEST( HTTPClient, BytesThatMoveEndTheWaitOfFiveSeconds )
{
    TestClock clock;
    TestTcpServer server;
    const auto client = makeClient( server.host( ), GHTTPHeaders( u"A" ) );
    ASSERT_TRUE( server.accept( ) );
    for( int i = 0; i < 100 && client->getUnsent( ); ++i ) client->update( 10000 );
    ASSERT_EQ( client->getUnsent( ), 0 );
    // From now on no time-out applies: the server may think as long as it likes.
    clock.advance( 3600000000LL );
    client->update( 0 );
    EXPECT_TRUE( client->isAlive( ) );
    server.say( makeResponse( "late" ) );
    GHTTPHeaders response;
    EXPECT_TRUE( receive( *client, response ) );
}

TEST( HTTPClient, RefusedConnectionDies )
{
    GWString host;
    {
        const TestTcpServer server;
        host = server.host( );
    }
    TestLog::allow( "WARNING" );
    const auto client = makeClient( host, GHTTPHeaders( u"A" ) );
    for( int i = 0; i < 100 && client->isAlive( ); ++i ) client->update( 10000 );
    EXPECT_FALSE( client->isAlive( ) );
    GHTTPHeaders response;
    EXPECT_FALSE( client->recv( response ) );
}

TEST( HTTPClient, AnExchangeWithoutAByteEndsAfterThirtySecondsOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        TestClock clock;
        TestTcpServer server;
        const auto client = makeClient( server.host( ), GHTTPHeaders( u"A" ) );
        client->setRobust( robust );
        ASSERT_TRUE( server.accept( ) );
        client->update( 0 );
        clock.advance( 29000000 );
        client->update( 0 );
        EXPECT_TRUE( client->isAlive( ) );
        if( robust ) TestLog::expect( "timed out, cancelling." );
        clock.advance( 2000000 );
        client->update( 0 );
        EXPECT_EQ( client->isAlive( ), !robust );
    }
}

TEST( HTTPClient, UpdateOfZeroNeverBlocks )
{
    // A virtual clock that any sleep would move.
    TestClock clock;
    TestTcpServer server;
    const auto client = makeClient( server.host( ), GHTTPHeaders( u"A" ) );
    const uint64_t before = TestClock::now( );
    for( int i = 0; i < 1000; ++i ) client->update( 0 );
    EXPECT_EQ( TestClock::now( ), before );
    EXPECT_TRUE( client->isAlive( ) );
}

TEST( HTTPClient, UnusableHostGivesAnObjectWithoutASocketThatSleeps )
{
    TestClock clock;
    TestLog::expect( "WARNING Cannot contact '999.1.1.1:80', ignoring request." );
    TestLog::allow( "WARNING" );
    const auto client = makeClient( u"999.1.1.1:80", GHTTPHeaders( u"A" ) );
    EXPECT_FALSE( client->isAlive( ) );
    EXPECT_EQ( client->getTCPSocket( ), nullptr );
    EXPECT_EQ( client->getLocalHost( ), u"0.0.0.0:0" );
    const uint64_t before = TestClock::now( );
    client->update( 20000 );
    EXPECT_EQ( TestClock::now( ), before + 20000 );
    GHTTPHeaders response;
    EXPECT_FALSE( client->recv( response ) );
    client->shutdown( );
}

TEST( HTTPClient, StreamThatIsNoMessageIsClosed )
{
    TestTcpServer server;
    const auto client = makeClient( server.host( ), GHTTPHeaders( u"A" ) );
    ASSERT_TRUE( server.accept( ) );
    TestLog::expect( "sends what is no message, closing." );
    server.say( GString( 80 * 1024, 'y' ) );
    GHTTPHeaders response;
    for( int i = 0; i < 100 && client->isAlive( ); ++i )
    {
        EXPECT_FALSE( client->recv( response ) );
        client->update( 50000 );
    }
    EXPECT_FALSE( client->isAlive( ) );
}

namespace
{
// What the client makes of a stream: whether it lives, and how many messages it took.
struct Outcome
{
    bool alive;
    int messages;
    bool operator==( const Outcome& ) const = default;
};
Outcome read( const GString& stream )
{
    TestTcpServer server;
    const auto client = makeClient( server.host( ), GHTTPHeaders( u"A" ) );
    EXPECT_TRUE( server.accept( ) );
    // What follows is a good message of 3 bytes: a stream that is in order gives it.
    const GString last = "HTTP/1.1 200 END\r\nContent-Length: 3\r\n\r\nend";
    server.say( stream + last );
    int messages = 0;
    bool ended = false;
    GHTTPHeaders response;
    for( int i = 0; i < 200 && client->isAlive( ) && !ended; ++i )
    {
        client->update( 20000 );
        while( client->recv( response ) )
        {
            GWString text;
            response.getResponse( text );
            ended = text == u"END";
            ++messages;
        }
    }
    return { client->isAlive( ), messages };
}
} // namespace

TEST( HTTPClient, HeaderThatEndsWithoutParsingOrIsTooLongIsClosed )
{
    const GString good = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi";
    EXPECT_EQ( read( good ), ( Outcome{ true, 2 } ) );
    EXPECT_EQ( read( "HTTP/1.1 200 OK\r\nX: " + GString( 60000, 'x' ) + "\r\n\r\n" ), ( Outcome{ true, 2 } ) );
    const Outcome closed{ false, 0 };
    TestLog::expect( "sends what is no message, closing." );
    EXPECT_EQ( read( "HTTP/1.1 200 OK\r\nno colon\r\n\r\n" ), closed );
    EXPECT_EQ( read( "HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n" ), closed );
    EXPECT_EQ( read( "HTTP/1.1 200 OK\r\nContent-Length: 999999999\r\n\r\n" ), closed );
    EXPECT_EQ( read( "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\n" ), closed );
    // A header beyond 64 KiB, though it is whole and would parse.
    EXPECT_EQ( read( "HTTP/1.1 200 OK\r\nX: " + GString( 70000, 'x' ) + "\r\n\r\n" ), closed );
    // Bad news behind good.
    EXPECT_EQ( read( good + good + "x\r\n:\r\n\r\n" ), ( Outcome{ false, 2 } ) );
    EXPECT_EQ( TestLog::count( "sends what is no message, closing." ), 6 );
}

TEST( HTTPClient, ManySmallMessagesInOneReadAreTakenOneByOne )
{
    GString stream;
    for( int i = 0; i < 5000; ++i ) stream += "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx";
    EXPECT_EQ( read( stream ), ( Outcome{ true, 5001 } ) );
}

TEST( HTTPClient, RelayedMessagesTakeNothingFromTheHeap )
{
    TestTcpServer server;
    const auto client = makeClient( server.host( ), GHTTPHeaders( u"A" ) );
    ASSERT_TRUE( server.accept( ) );
    GString stream;
    for( int i = 0; i < 20; ++i )
        stream += "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\nRemote-Host: 1.2.3.4:5\r\n\r\n" + GString( 1000, 'x' );
    const GNetSourceList sources{ client->getTCPSocket( ) };
    const GNetSourceList none;
    GHTTPHeaders response;
    int taken = 0;
    const auto take = [&]
    {
        for( const int end = taken + 20; taken < end; )
        {
            GNetWait( none, none, sources, 5000000 );
            while( client->recv( response ) ) ++taken;
        }
    };
    server.say( stream );
    take( );
    server.say( stream );
    take( );
    server.say( stream );
    EXPECT_EQ( countAllocations( take ), 0 );
}

TEST( HTTPClient, ShutdownTellsTheServerThatNothingMoreComes )
{
    TestTcpServer server;
    const auto client = makeClient( server.host( ), GHTTPHeaders( u"A" ) );
    ASSERT_TRUE( server.accept( ) );
    GHTTPHeaders heard;
    ASSERT_TRUE( server.hear( heard ) );
    client->shutdown( );
    EXPECT_FALSE( server.hear( heard ) );
    server.say( makeResponse( "late" ) );
    GHTTPHeaders response;
    EXPECT_TRUE( receive( *client, response ) );
}

TEST( HTTPClientDeathTest, NegativeTimeoutAborts )
{
    TestTcpServer server;
    EXPECT_DEATH( makeClient( server.host( ), GHTTPHeaders( u"A" ) )->update( -1 ), "timeout >= 0" );
}
