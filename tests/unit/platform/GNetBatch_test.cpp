// Many datagrams at once: what the system's own calls for batches do is the same as one call each.
#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GNet.h"
#include "platform/common/GNetBatch.h"
#include "support/CountAllocations.h"
#include "support/TestLog.h"
#include "unit/platform/FailingCalls.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <sys/socket.h>

namespace
{
using FailingCalls::Call;
constexpr int64_t DEADLINE = 5000000;
constexpr char16_t NOBODY[] = u"127.0.0.1:9";

// Two ports on loopback and room for what one of them hears.
class GNetBatch : public testing::Test
{
protected:
    static constexpr int ROOM = 100;
    GNetBatch( )
    {
        for( GNetDatagram& datagram : room ) list.push_back( &datagram );
    }
    ~GNetBatch( ) override
    {
        FailingCalls::reset( );
        GNetUDPPortClose( a );
        GNetUDPPortClose( b );
    }
    int receive( int count = ROOM )
    {
        GNetWait( { b }, { }, { }, DEADLINE );
        return GNetUDPPortRecvBatch( b, list.data( ), count );
    }
    void send( const std::vector<GString>& texts )
    {
        std::vector<GNetOutgoing> batch;
        for( const GString& text : texts ) batch.push_back( { b->host, text } );
        GNetUDPPortSendBatch( a, batch.data( ), static_cast<int>( batch.size( ) ) );
    }
    std::vector<GString> numbered( int count )
    {
        std::vector<GString> texts;
        for( int i = 0; i < count; ++i ) texts.push_back( "datagram " + std::to_string( i ) );
        return texts;
    }
    GNetUDPPort* a = GNetUDPPortOpen( u"127.0.0.1:0" );
    GNetUDPPort* b = GNetUDPPortOpen( u"127.0.0.1:0" );
    std::array<GNetDatagram, ROOM> room;
    std::vector<GNetDatagram*> list;
};
} // namespace

TEST_F( GNetBatch, CarriesMoreThanOneCallTakesInTheirOrder )
{
    const std::vector<GString> texts = numbered( 80 );
    send( texts );
    ASSERT_EQ( receive( ), 80 );
    for( size_t i = 0; i < texts.size( ); ++i )
    {
        EXPECT_EQ( room[i].buffer, texts[i] );
        EXPECT_EQ( room[i].remoteHost, a->host );
    }
    EXPECT_EQ( GNetUDPPortRecvBatch( b, list.data( ), ROOM ), 0 );
    EXPECT_TRUE( b->alive );
}
TEST_F( GNetBatch, TakesNoMoreThanItWasAskedForAndLeavesTheRestOfTheRecords )
{
    room[40].buffer = "mine";
    send( numbered( 50 ) );
    EXPECT_EQ( receive( 40 ), 40 );
    EXPECT_EQ( room[40].buffer, "mine" );
    EXPECT_EQ( receive( 1 ), 1 );
    EXPECT_EQ( room[0].buffer, "datagram 40" );
    EXPECT_EQ( receive( ), 9 );
    EXPECT_EQ( GNetUDPPortRecvBatch( b, list.data( ), 0 ), 0 );
}
TEST_F( GNetBatch, DatagramsWithoutAByteArePassedOver )
{
    TestLog::expect( "length > 0" );
    send( { "one", "", "two", "" } );
    ASSERT_EQ( receive( ), 2 );
    EXPECT_EQ( room[0].buffer, "one" );
    EXPECT_EQ( room[1].buffer, "two" );
}
TEST_F( GNetBatch, EachGoesToItsOwnHost )
{
    GNetUDPPort* c = GNetUDPPortOpen( u"127.0.0.1:0" );
    const std::array<GNetOutgoing, 3> batch{ { { b->host, "b1" }, { c->host, "c" }, { b->host, "b2" } } };
    GNetUDPPortSendBatch( a, batch.data( ), 3 );
    EXPECT_EQ( receive( ), 2 );
    EXPECT_EQ( room[1].buffer, "b2" );
    ASSERT_TRUE( GNetWait( { c }, { }, { }, DEADLINE ) );
    EXPECT_EQ( GNetUDPPortRecvBatch( c, list.data( ), ROOM ), 1 );
    EXPECT_EQ( room[0].buffer, "c" );
    GNetUDPPortClose( c );
}
TEST_F( GNetBatch, OneWithoutAHostAndALargeOneAreToldOfAndTheOthersGo )
{
    TestLog::expect( "hostIP && hostPort" );
    TestLog::expect( "WARNING Could not resolve host '127.0.0.1:0', ignoring." );
    TestLog::expect( "WARNING Packet size (1473) exceeds recommended MTU (1472)" );
    const GString large( 1473, 'l' );
    const std::array<GNetOutgoing, 3> batch{ { { b->host, large }, { u"127.0.0.1:0", "x" }, { b->host, "last" } } };
    GNetUDPPortSendBatch( a, batch.data( ), 3 );
    ASSERT_EQ( receive( ), 2 );
    EXPECT_EQ( room[0].buffer, large );
    EXPECT_EQ( room[1].buffer, "last" );
}
TEST_F( GNetBatch, LargeReadsTakeWholeDatagramsAndOthersAreCut )
{
    TestLog::allow( "exceeds recommended MTU" );
    GString large( 65507, 'x' );
    large[1471] = 'y'; // The seam between the two rooms of a datagram.
    large[1472] = 'z';
    send( { large, "small" } );
    ASSERT_EQ( receive( ), 2 );
    EXPECT_EQ( room[0].buffer, large.substr( 0, 5888 ) );
    EXPECT_EQ( room[1].buffer, "small" );
    GNetUDPPortSetLargeReads( b, true );
    send( { large, large } );
    ASSERT_EQ( receive( ), 2 );
    EXPECT_EQ( room[0].buffer, large );
    EXPECT_EQ( room[1].buffer, large );
}
TEST_F( GNetBatch, TheErrorFiltersAreThoseOfOneCallEach )
{
    for( const int error : { EWOULDBLOCK, ECONNRESET, ECONNREFUSED, EHOSTUNREACH, ENOTCONN } )
    {
        FailingCalls::fail( Call::RECVMMSG, error );
        EXPECT_EQ( GNetUDPPortRecvBatch( b, list.data( ), ROOM ), 0 );
        FailingCalls::fail( Call::SENDMMSG, error );
        send( { "x" } );
        EXPECT_TRUE( a->alive && b->alive ) << error;
    }
    TestLog::expect( "WARNING Error when receiving via port '" + GWideToUTF8( b->host ) +
                     ", closing. (Network is unreachable)" );
    FailingCalls::fail( Call::RECVMMSG, ENETUNREACH );
    EXPECT_EQ( GNetUDPPortRecvBatch( b, list.data( ), ROOM ), 0 );
    EXPECT_FALSE( b->alive );
    TestLog::expect( "WARNING Error when sending via port '" + GWideToUTF8( a->host ) +
                     ", closing. (Network is unreachable)" );
    FailingCalls::fail( Call::SENDMMSG, ENETUNREACH );
    send( { "x", "y" } );
    EXPECT_FALSE( a->alive );
    // Dead: everything is a quiet no-op from now on.
    send( { "x" } );
    EXPECT_EQ( GNetUDPPortRecvBatch( b, list.data( ), ROOM ), 0 );
}
TEST_F( GNetBatch, OfAForgivingPortOneThatFailsIsLostAndTheNextOnesGo )
{
    GNetUDPPortSetForgiving( a, true );
    GNetUDPPortSetForgiving( b, true );
    TestLog::expect( "WARNING Error when sending via port '" + GWideToUTF8( a->host ) +
                     ", ignoring. (Network is unreachable)" );
    FailingCalls::fail( Call::SENDMMSG, ENETUNREACH );
    send( { "lost", "one", "two" } );
    ASSERT_EQ( receive( ), 2 );
    EXPECT_EQ( room[0].buffer, "one" );
    FailingCalls::fail( Call::RECVMMSG, ENETUNREACH );
    EXPECT_EQ( GNetUDPPortRecvBatch( b, list.data( ), ROOM ), 0 );
    EXPECT_TRUE( a->alive && b->alive );
    TestLog::expect( "closing. (Bad file descriptor)" );
    FailingCalls::fail( Call::RECVMMSG, EBADF );
    EXPECT_EQ( GNetUDPPortRecvBatch( b, list.data( ), ROOM ), 0 );
    EXPECT_FALSE( b->alive );
}
TEST_F( GNetBatch, AFailureInTheMiddleCostsThatDatagramAlone )
{
    GNetUDPPortSetForgiving( a, true );
    TestLog::allow( "exceeds recommended MTU" );
    TestLog::expect( ", ignoring. (Message too long)" );
    send( { "one", GString( 65508, 'x' ), "two" } );
    ASSERT_EQ( receive( ), 2 );
    EXPECT_EQ( room[1].buffer, "two" );
}
TEST_F( GNetBatch, OneByOneDoesTheSame )
{
    const std::vector<GString> texts = numbered( 5 );
    std::vector<GNetOutgoing> batch;
    for( const GString& text : texts ) batch.push_back( { b->host, text } );
    GNetSendOneByOne( a, batch.data( ), 5 );
    ASSERT_TRUE( GNetWait( { b }, { }, { }, DEADLINE ) );
    EXPECT_EQ( GNetRecvOneByOne( b, list.data( ), 3 ), 3 );
    EXPECT_EQ( room[2].buffer, texts[2] );
    EXPECT_EQ( room[2].remoteHost, a->host );
    EXPECT_EQ( GNetRecvOneByOne( b, list.data( ), ROOM ), 2 );
    EXPECT_EQ( room[1].buffer, texts[4] );
}
TEST_F( GNetBatch, TakesNothingFromTheHeap )
{
    const GString data( 1472, 'x' );
    const std::vector<GNetOutgoing> batch( 64, { b->host, data } );
    const GNetSourceList sources{ b };
    const GNetSourceList none;
    int received = 0;
    const auto exchange = [&]
    {
        GNetUDPPortSendBatch( a, batch.data( ), 64 );
        GNetWait( sources, none, none, DEADLINE );
        received += GNetUDPPortRecvBatch( b, list.data( ), ROOM );
    };
    exchange( );
    EXPECT_EQ( countAllocations( exchange ), 0 );
    EXPECT_EQ( received, 128 );
}
TEST_F( GNetBatch, AnUncleanShutdownStopsIt )
{
    send( { "x" } );
    ASSERT_TRUE( GNetWait( { b }, { }, { }, DEADLINE ) );
    GSetShuttingDown( true );
    send( { "y" } );
    EXPECT_EQ( GNetUDPPortRecvBatch( b, list.data( ), ROOM ), 0 );
    GSetShuttingDown( false );
    ASSERT_EQ( receive( ), 1 );
    EXPECT_EQ( room[0].buffer, "x" );
}
TEST( GNetBatchDeath, NullAborts )
{
    GNetDatagram datagram;
    GNetDatagram* list = &datagram;
    const GNetOutgoing one{ NOBODY, "x" };
    EXPECT_DEATH( GNetUDPPortRecvBatch( nullptr, &list, 1 ), "port && datagrams" );
    EXPECT_DEATH( GNetUDPPortSendBatch( nullptr, &one, 1 ), "port && datagrams" );
}
