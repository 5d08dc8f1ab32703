#include "client/signalling/GRoute.h"

#include "support/TestLog.h"

#include <gtest/gtest.h>

namespace
{
const GStringList OWN = { u"10.0.0.1:5000", u"20.0.0.1:6000" };

GStringList filter( const GStringList& routes, const GWString& from = u"30.0.0.1:700" )
{
    return GRouteListFilter( routes, from, OWN );
}
} // namespace

TEST( Route, SplitsAtTheSeparator )
{
    GRoute route;
    ASSERT_TRUE( GRouteSplit( u"local://10.0.0.2:80", route ) );
    EXPECT_EQ( u"local", route.scheme );
    EXPECT_EQ( u"10.0.0.2:80", route.host );
    EXPECT_EQ( u"local://10.0.0.2:80", GRouteCompose( route.scheme, route.host ) );
    for( const char16_t* text : { u"", u"local", u"local:/10.0.0.2:80", u"://10.0.0.2:80", u"local://" } )
        EXPECT_FALSE( GRouteSplit( text, route ) );
}

TEST( Route, UsableRoutesStayInOrder )
{
    const GStringList routes = { u"local://10.0.0.2:80", u"restricted://40.0.0.1:81", u"turn://50.0.0.1:82" };
    EXPECT_EQ( routes, filter( routes ) );
}

TEST( Route, StrangersHostsAreRefusedWithAWarning )
{
    const GStringList bad = { u"local://224.0.0.1:80", u"local://255.255.255.255:80", u"local://0.0.0.0:0",
                              u"local://10.0.0.2:0",   u"local://10.0.0.2:70000",     u"local://10.0.0.2",
                              u"local://host.test:80", u"lo cal://10.0.0.2:80",       u"10.0.0.2:80",
                              u"local://127.0.0.1:80" };
    for( const GWString& route : bad )
    {
        TestLog::expect( "WARNING Received invalid route" );
        EXPECT_TRUE( filter( { route } ).empty( ) ) << GWideToUTF8( route );
    }
    EXPECT_EQ( static_cast<int>( bad.size( ) ), TestLog::count( "WARNING Received invalid route" ) );
}

TEST( Route, LoopbackIsTakenFromLoopback )
{
    EXPECT_EQ( 1u, filter( { u"local://127.0.0.1:80" }, u"127.0.0.1:9" ).size( ) );
}

TEST( Route, OwnHostsAreNeverTried )
{
    const GStringList routes = { u"local://10.0.0.1:5000", u"turn://20.0.0.1:6000", u"local://10.0.0.1:5001" };
    EXPECT_EQ( GStringList{ u"local://10.0.0.1:5001" }, filter( routes ) );
}

TEST( Route, EachRouteCountsOnceAndAtMostEight )
{
    TestLog::expect( "WARNING Received more than 8 routes" );
    GStringList routes = { u"local://10.0.0.2:1", u"local://10.0.0.2:1" };
    for( int port = 1; port <= 12; ++port ) routes.push_back( GConcat( u"local://10.0.0.2:", port ) );
    const GStringList out = filter( routes );
    EXPECT_EQ( GROUTE_MAX_COUNT, out.size( ) );
    EXPECT_EQ( u"local://10.0.0.2:8", out.back( ) );
}

TEST( Route, SchemesAreShortWords )
{
    EXPECT_TRUE( GRouteIsScheme( u"unrestricted" ) );
    EXPECT_FALSE( GRouteIsScheme( u"" ) );
    EXPECT_FALSE( GRouteIsScheme( u"a\nb" ) );
    EXPECT_FALSE( GRouteIsScheme( GWString( 33, u'a' ) ) );
}

TEST( Route, TextOfPeersIsPrintableAndShort )
{
    EXPECT_EQ( u"Central ", GRouteCleanText( u"\nCentral\x7F European", 8 ) );
}
