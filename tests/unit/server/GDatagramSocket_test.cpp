// Real sockets on loopback; the loop runs in the test's own thread until what is awaited has come, or for ten seconds.
#include "server/core/GDatagramSocket.h"

#include <gtest/gtest.h>

namespace
{
constexpr auto DEADLINE = std::chrono::seconds( 10 );

class GDatagramSocketTest : public testing::Test
{
protected:
    GDatagramSocketTest( )
    {
        GString error;
        EXPECT_TRUE( sender.open( "127.0.0.1:0", error ) ) << error;
        EXPECT_TRUE( receiver.open( "127.0.0.1:0", error ) ) << error;
        EXPECT_TRUE( GEndpoint::parse( receiver.host( ), to ) );
        receiver.start(
            [this]( const GDatagramSocket::Endpoint& from, const char* data, size_t length )
            {
                EXPECT_EQ( GEndpoint::compose( from ), sender.host( ) );
                received.emplace_back( data, length );
            },
            [this] { batches.push_back( received.size( ) ); } );
    }
    void await( size_t count )
    {
        const auto end = std::chrono::steady_clock::now( ) + DEADLINE;
        while( received.size( ) < count && io.run_one_until( end ) )
        {
        }
        ASSERT_EQ( received.size( ), count );
    }
    std::vector<GDatagramSocket::Datagram> datagramsOf( const std::vector<GString>& texts ) const
    {
        std::vector<GDatagramSocket::Datagram> datagrams;
        for( const GString& text : texts ) datagrams.push_back( { to, text.data( ), text.size( ) } );
        return datagrams;
    }
    boost::asio::io_context io;
    GDatagramSocket sender{ io };
    GDatagramSocket receiver{ io };
    GDatagramSocket::Endpoint to;
    std::vector<GString> received;
    std::vector<size_t> batches;
};
} // namespace

TEST_F( GDatagramSocketTest, BatchesArriveWholeAndInOrder )
{
    std::vector<GString> texts;
    for( int i = 0; i < 150; ++i ) texts.push_back( std::to_string( i ) + GString( static_cast<size_t>( i ), 'x' ) );
    const auto datagrams = datagramsOf( texts );
    EXPECT_EQ( sender.send( datagrams.data( ), datagrams.size( ) ), 150u );
    await( 150 );
    EXPECT_EQ( received, texts );
    EXPECT_LE( batches.size( ), 3u ) << "they were there when the socket looked";
    EXPECT_EQ( batches.back( ), 150u );
}
TEST_F( GDatagramSocketTest, NeighboursOfOneLengthLeaveInOnePieceAndArriveAsTheyWere )
{
    std::vector<GString> texts;
    for( int i = 0; i < 200; ++i )
        texts.push_back( GString( i % 70 == 69 ? 7 : i % 50 == 0 ? 1200 : 1052, static_cast<char>( 'a' + i % 26 ) ) );
    const auto datagrams = datagramsOf( texts );
    EXPECT_EQ( sender.send( datagrams.data( ), datagrams.size( ), true ), 200u );
    await( 200 );
    EXPECT_EQ( received, texts );
}
TEST_F( GDatagramSocketTest, APieceThatTheWayCannotCutLeavesAsDatagrams )
{
    // Longer than a packet of any interface may be once it is cut.
    const std::vector<GString> texts( 3, GString( 21000, 'x' ) );
    std::vector<GString> large = texts;
    large.push_back( GString( 65507, 'y' ) );
    const auto datagrams = datagramsOf( large );
    EXPECT_EQ( sender.send( datagrams.data( ), datagrams.size( ), true ), 4u );
    await( 4 );
    EXPECT_EQ( received, large );
}
TEST_F( GDatagramSocketTest, ADatagramThatCannotLeaveKeepsNoOtherBack )
{
    const std::vector<GString> texts = { "first", GString( 70000, 'x' ), "last" };
    const auto datagrams = datagramsOf( texts );
    EXPECT_EQ( sender.send( datagrams.data( ), datagrams.size( ) ), 2u );
    await( 2 );
    EXPECT_EQ( received, ( std::vector<GString>{ "first", "last" } ) );
}
TEST_F( GDatagramSocketTest, AClosedSocketSendsNothing )
{
    sender.close( );
    EXPECT_FALSE( sender.send( to, "x", 1 ) );
}
TEST_F( GDatagramSocketTest, AListGoesOutBySeveralSockets )
{
    std::vector<std::unique_ptr<GDatagramSocket>> sockets;
    GString error;
    for( int i = 0; i < 2; ++i )
    {
        sockets.push_back( std::make_unique<GDatagramSocket>( io ) );
        ASSERT_TRUE( sockets.back( )->open( "127.0.0.1:0", error ) ) << error;
    }
    GDatagramSocket other( io );
    ASSERT_TRUE( other.open( "127.0.0.1:0", error ) ) << error;
    std::vector<GString> got;
    other.start( [&got]( const GDatagramSocket::Endpoint& from, const char* data, size_t length )
                 { got.push_back( GEndpoint::compose( from ) + " " + GString( data, length ) ); } );
    GDatagramList list;
    list.add( 1, other.host( ), "one" );
    list.add( 0, "no host", "nothing" );
    list.add( 0, other.host( ), "two" );
    GDatagramSendAll( sockets, list );
    const auto end = std::chrono::steady_clock::now( ) + DEADLINE;
    while( got.size( ) < 2 && io.run_one_until( end ) )
    {
    }
    EXPECT_EQ( got, ( std::vector<GString>{ sockets[0]->host( ) + " two", sockets[1]->host( ) + " one" } ) );
}
