#include "client/signalling/GStunTest.h"

#include "client/signalling/GNatRefresh.h"
#include "client/signalling/GUPnPTask.h"
#include "support/TestClock.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{
const GStringList HOSTS{ u"1.0.0.1:1", u"1.0.0.2:2", u"1.0.0.3:3", u"1.0.0.4:4", u"1.0.0.5:5" };

GHTTPHeaders makeResponse( int code, const GWString& globalHost = { } )
{
    GHTTPHeaders response;
    response.setResponse( code, u"text" );
    if( !globalHost.empty( ) ) response.set( u"Global-Host", globalHost );
    return response;
}
std::atomic<int> closed_ = 0;
} // namespace

TEST( StunTest, TakesTheFirstFourHosts )
{
    GStunTest test;
    test.setHosts( HOSTS );
    EXPECT_EQ( test.getDirectHost( ), u"1.0.0.1:1" );
    EXPECT_EQ( test.getPunchedHost( ), u"1.0.0.2:2" );
    EXPECT_EQ( test.getUnpunchedHost( ), u"1.0.0.3:3" );
    EXPECT_EQ( test.getRefreshHost( ), u"1.0.0.4:4" );
    test.clear( );
    EXPECT_EQ( test.getDirectHost( ), u"" );
}

TEST( StunTest, ClassFollowsFromTheThreeAnswers )
{
    struct Case
    {
        int direct, punched, unpunched;
        GWString localHost;
        GWString expected;
    };
    const GWString global = u"5.5.5.5:5";
    for( const Case& c :
         { Case{ 200, 200, 200, global, u"PUBLIC" }, Case{ 200, 200, 200, u"10.0.0.1:5", u"UNRESTRICTED" },
           Case{ 200, 200, 0, u"10.0.0.1:5", u"RESTRICTED" }, Case{ 200, 0, 0, u"10.0.0.1:5", u"SYMMETRIC" },
           Case{ 200, 500, 500, u"10.0.0.1:5", u"SYMMETRIC" }, Case{ 0, 0, 0, global, u"FIREWALL" },
           Case{ 500, 0, 0, global, u"FIREWALL" } } )
    {
        GStunTest test;
        test.setHosts( HOSTS );
        EXPECT_EQ( c.direct != 0 && test.store( test.getDirectHost( ), makeResponse( c.direct, global ) ),
                   c.direct != 0 );
        EXPECT_EQ( c.punched != 0 && test.store( test.getPunchedHost( ), makeResponse( c.punched ) ), c.punched != 0 );
        EXPECT_EQ( c.unpunched != 0 && test.store( test.getUnpunchedHost( ), makeResponse( c.unpunched ) ),
                   c.unpunched != 0 );
        EXPECT_EQ( test.classify( c.localHost ), c.expected );
        EXPECT_EQ( test.isComplete( ), c.direct == 200 && c.punched == 200 && c.unpunched == 200 );
    }
}

TEST( StunTest, IndirectAnswersWithoutTheDirectOneWarn )
{
    GStunTest test;
    test.setHosts( HOSTS );
    test.store( test.getUnpunchedHost( ), makeResponse( 200 ) );
    TestLog::expect( "!_indirectUnpunchedSTUNResponse.succeeded( )" );
    EXPECT_EQ( test.classify( u"10.0.0.1:5" ), u"FIREWALL" );
}

TEST( NatRefresh, DelayIsAThirtyTwoBitNumber )
{
    GNatRefresh search;
    EXPECT_EQ( search.afterSuccess( 1000000 ), 2000000 );
    EXPECT_EQ( search.afterSuccess( 1073741824 ), 2147483648 );
    // From there on the reader of the message sees a negative number.
    EXPECT_EQ( search.afterSuccess( static_cast<int32_t>( 2147483648 ) ), -4294967296 );
}

TEST( NatRefresh, FailureHalvesAndNeverFallsBelowASecond )
{
    TestClock clock;
    GNatRefresh search;
    search.begin( 8000000, 1 );
    EXPECT_FALSE( search.hasFailed( ) );
    clock.advance( 10000001 );
    EXPECT_TRUE( search.hasFailed( ) );
    EXPECT_EQ( search.afterFailure( ), 4000000 );
    search.begin( 1000000, 2 );
    EXPECT_EQ( search.afterFailure( ), 1000000 );
}

TEST( NatRefresh, RemedyBoundsTrialsAndPings )
{
    GNatRefresh search;
    search.setRobust( true );
    EXPECT_EQ( search.getPingPeriod( 64 ), 1 );
    EXPECT_EQ( search.afterSuccess( 64000000 ), 64000000 );
    EXPECT_EQ( search.getPingPeriod( 64 ), 25 );
    search.begin( 64000000, 7 );
    EXPECT_TRUE( search.isNewest( 7 ) );
    EXPECT_FALSE( search.isNewest( 6 ) );
    search.setRobust( false );
    EXPECT_EQ( search.getPingPeriod( 64 ), 64 );
    EXPECT_TRUE( search.isNewest( 6 ) );
}

TEST( UPnPTask, OpensOnAThreadOfItsOwnAndClosesWhenItIsAbandoned )
{
    closed_ = 0;
    GUPnPFunctions gateway;
    gateway.open = []( const GWString& host, int low, int high )
    { return host == u"127.0.0.1:5" && low == 7 && high == 8 ? reinterpret_cast<GNetUPnPMapping*>( 1 ) : nullptr; };
    gateway.getGlobalHost = []( const GNetUPnPMapping* ) { return GWString( ); };
    gateway.close = []( GNetUPnPMapping* ) { ++closed_; };
    {
        // A range of no port becomes one of a single port.
        const std::unique_ptr<GUPnPTask> task( GSAFENEW( GUPnPTask, ( u"127.0.0.1:5", 7, 7, gateway ) ) );
        GWString host;
        for( int i = 0; i < 5000 && !task->poll( host ); ++i ) GThreadSleep( 1000 );
        EXPECT_EQ( host, u"0.0.0.0:0" );
        EXPECT_FALSE( task->poll( host ) );
        EXPECT_FALSE( task->isDone( ) );
    }
    EXPECT_EQ( closed_, 1 );
}
