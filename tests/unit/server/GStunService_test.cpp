#include "server/stun/GStunService.h"

#include "support/CountAllocations.h"
#include "unit/server/ServerFixture.h"

namespace
{
constexpr char CLIENT[] = "198.51.100.1:4000";

class GStunServiceTest : public ServerFixture
{
protected:
    GStunServiceTest( ) : service( config, metrics ) {}
    GDatagramList send( GStunSocket socket, const GString& bytes, const GString& from = CLIENT )
    {
        GDatagramList out;
        service.onDatagram( socket, from, bytes, now, out );
        return out;
    }
    GDatagramList due( )
    {
        GDatagramList out;
        service.onTime( now, out );
        return out;
    }
    GString refresh( int cseq, const GWString& delay )
    {
        return request( u"STUN", cseq, { { u"Delay", delay } } ).serialize( );
    }
    GStunService service;
};
} // namespace

TEST_F( GStunServiceTest, TheDirectHostAnswersFromAllThree )
{
    const auto out =
        send( STUN_DIRECT,
              request( u"STUN", 5, { { u"Indirect-Host-List", u"203.0.113.1:1, 203.0.113.2:2" } } ).serialize( ) );
    ASSERT_EQ( out.size( ), 3u );
    const GStunSocket sockets[] = { STUN_DIRECT, STUN_PUNCHED, STUN_UNPUNCHED };
    for( size_t i = 0; i < 3; ++i )
    {
        EXPECT_EQ( out[i].socket, sockets[i] );
        EXPECT_EQ( out[i].to, CLIENT ) << "never to a host that the request names";
        EXPECT_EQ( parsed( out[i].bytes ).getResponse( ), 200 );
        EXPECT_EQ( parsed( out[i].bytes ).get( u"CSeq" ), u"5 (GDispatchService)" );
    }
    EXPECT_EQ( parsed( out[0].bytes ).get( u"Global-Host" ), u"198.51.100.1:4000" );
}
TEST_F( GStunServiceTest, ARequestTakesNothingFromTheHeap )
{
    const GString from = "198.51.100.100:40000";
    const GString bytes =
        request( u"STUN", 5, { { u"Indirect-Host-List", u"203.0.113.1:1, 203.0.113.2:2" } } ).serialize( );
    GDatagramList out;
    const auto ask = [&]
    {
        service.onDatagram( STUN_DIRECT, from, bytes, now, out );
        service.onDatagram( STUN_PUNCHED, from, "HOLEPUNCH", now, out );
        service.onDatagram( STUN_DIRECT, from, "nonsense", now, out );
        EXPECT_EQ( out.size( ), 3u );
        out.clear( );
    };
    ask( );
    EXPECT_EQ( countAllocations( ask ), 0 );
}
TEST_F( GStunServiceTest, HolepunchIsTakenInSilence )
{
    EXPECT_TRUE( send( STUN_PUNCHED, "HOLEPUNCH" ).empty( ) );
    EXPECT_EQ( metrics.get( "stun", "HOLEPUNCH", "taken" ), 1u );
}
TEST_F( GStunServiceTest, OnlyTheDirectAndRefreshHostsAreAsked )
{
    const GString bytes = request( u"STUN", 5, { { u"Delay", u"0" } } ).serialize( );
    EXPECT_TRUE( send( STUN_PUNCHED, bytes ).empty( ) );
    EXPECT_TRUE( send( STUN_UNPUNCHED, bytes ).empty( ) );
    EXPECT_TRUE( send( STUN_REFRESH, request( u"STUN", 5 ).serialize( ) ).empty( ) ) << "without a delay";
    EXPECT_EQ( service.pendingCount( ), 0u );
}
TEST_F( GStunServiceTest, TheRefreshHostAnswersAfterTheDelay )
{
    EXPECT_TRUE( send( STUN_REFRESH, refresh( 6, u"4000000" ) ).empty( ) );
    EXPECT_EQ( service.nextDue( now ), 4000000 );
    now += 3999999;
    EXPECT_TRUE( due( ).empty( ) );
    now += 1;
    const auto out = due( );
    ASSERT_EQ( out.size( ), 1u );
    EXPECT_EQ( out[0].socket, STUN_REFRESH );
    EXPECT_EQ( out[0].to, CLIENT );
    EXPECT_EQ( parsed( out[0].bytes ).get( u"CSeq" ), u"6 (GDispatchService)" );
    EXPECT_EQ( service.nextDue( now ), -1 );
}
TEST_F( GStunServiceTest, DelaysAreCappedAtADayAndNegativeOnesDropped )
{
    send( STUN_REFRESH, refresh( 1, u"9223372036854775807" ) );
    EXPECT_EQ( service.nextDue( now ), 86400LL * 1000000 );
    send( STUN_REFRESH, refresh( 2, u"-1" ) );
    EXPECT_EQ( service.pendingCount( ), 1u );
}
TEST_F( GStunServiceTest, PendingAnswersAreLimitedPerSourceAndInAll )
{
    for( int i = 1; i <= 100; ++i ) send( STUN_REFRESH, refresh( i, u"1000000" ) );
    EXPECT_EQ( service.pendingCount( ), 64u );
    config.stunPending = 70;
    for( int i = 1; i <= 100; ++i ) send( STUN_REFRESH, refresh( i, u"1000000" ), "198.51.100.2:4000" );
    EXPECT_EQ( service.pendingCount( ), 70u );
    now += 1000000;
    EXPECT_EQ( due( ).size( ), 70u );
    send( STUN_REFRESH, refresh( 1, u"1000000" ) );
    EXPECT_EQ( service.pendingCount( ), 1u ) << "answered ones count no more";
}
TEST_F( GStunServiceTest, HostileBytesAreNeverAnswered )
{
    const GString good = request( u"STUN", 5 ).serialize( );
    for( size_t cut = 0; cut < good.size( ); ++cut ) EXPECT_TRUE( send( STUN_DIRECT, good.substr( 0, cut ) ).empty( ) );
    EXPECT_TRUE( send( STUN_DIRECT, request( u"STUN", 0 ).serialize( ) ).empty( ) ) << "no CSeq";
    EXPECT_TRUE( send( STUN_DIRECT, request( u"PING", 5 ).serialize( ) ).empty( ) );
    EXPECT_TRUE( send( STUN_DIRECT, GString( 8193, '\r' ) ).empty( ) );
    GHTTPHeaders response;
    response.setResponse( 200, u"OK" );
    response.set( u"CSeq", u"1" );
    EXPECT_TRUE( send( STUN_DIRECT, response.serialize( ) ).empty( ) ) << "two servers never answer each other";
}
