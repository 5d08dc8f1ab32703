// Clients that meet: by every pairing of networks, over good and bad links, and both at the same moment.
#include "sim/SimWorld.h"

#include <gtest/gtest.h>

namespace
{
constexpr int64_t SECOND = SimWorld::SECOND;
constexpr char ANN[] = "ann@velmora.local";
constexpr char BOB[] = "bob@velmora.local";
constexpr GSimNat KINDS[] = { GSimNat::PUBLIC,          GSimNat::UNRESTRICTED, GSimNat::ADDRESS_RESTRICTED,
                              GSimNat::PORT_RESTRICTED, GSimNat::SYMMETRIC,    GSimNat::BLOCKED };

GSimNat drawKind( SimWorld& world )
{
    return KINDS[world.clock.draw( std::size( KINDS ) )];
}
// Up to three of ten datagrams are lost on the whole way, and it takes up to 2 s.
GSimLink drawBadLink( SimWorld& world )
{
    GSimLink link;
    link.lossPercent = static_cast<int>( world.clock.draw( 17 ) );
    link.duplicatePercent = static_cast<int>( world.clock.draw( 10 ) );
    link.reorderPercent = static_cast<int>( world.clock.draw( 10 ) );
    link.delay = 5000 + world.clock.draw( 250000 );
    link.jitter = world.clock.draw( 250000 );
    return link;
}
} // namespace

TEST( Meeting, TwoOnTheInternetConnect )
{
    for( const bool robust : { true, false } )
    {
        SimWorld world( SimSeeds::first( ), robust );
        world.addClient( ANN, world.addHome( GSimNat::PUBLIC ) );
        world.addClient( BOB, world.addHome( GSimNat::PUBLIC ) );
        world.befriend( ANN, BOB );
        world.clients[0]->start( );
        world.run( 20 * SECOND );
        EXPECT_TRUE( world.clients[0]->isOnline( ) );
        world.clients[1]->start( );
        EXPECT_TRUE( world.meets( 30 * SECOND ) ) << world.describeMissing( );
        world.run( 60 * SECOND );
        EXPECT_TRUE( world.areAllConnected( ) ) << world.describeMissing( );
        EXPECT_EQ( world.verdict( ), "" );
    }
}

TEST( Meeting, EveryPairingOfNetworksConnects )
{
    uint32_t seed = SimSeeds::first( );
    for( const bool robust : { true, false } )
        for( const GSimNat a : KINDS )
            for( const GSimNat b : KINDS )
            {
                SimWorld world( seed++, robust );
                world.addClient( ANN, world.addHome( a ) );
                world.addClient( BOB, world.addHome( b ) );
                world.befriend( ANN, BOB );
                world.clients[0]->start( );
                world.run( 20 * SECOND );
                world.clients[1]->start( );
                EXPECT_TRUE( world.meets( 60 * SECOND ) ) << world.describe( ) << world.describeMissing( );
                world.run( 60 * SECOND );
                EXPECT_TRUE( world.areAllConnected( ) ) << world.describe( ) << world.describeMissing( );
                EXPECT_EQ( world.verdict( ), "" ) << world.describe( );
            }
}

TEST( Meeting, TwoBehindOneBoxConnect )
{
    // Their answers overtake the server's, which by the letter may end in silence.
    uint32_t seed = SimSeeds::first( );
    for( const GSimNat kind : KINDS )
    {
        if( kind == GSimNat::PUBLIC ) continue;
        SimWorld world( seed++ );
        const int home = world.addHome( kind );
        world.addClient( ANN, home );
        world.addClient( BOB, world.addNeighbour( home ) );
        world.befriend( ANN, BOB );
        world.clients[0]->start( );
        world.run( 20 * SECOND );
        world.clients[1]->start( );
        EXPECT_TRUE( world.meets( 10 * SECOND ) ) << world.describe( ) << world.describeMissing( );
        world.run( 60 * SECOND );
        EXPECT_TRUE( world.areAllConnected( ) ) << world.describe( ) << world.describeMissing( );
        EXPECT_EQ( world.verdict( ), "" ) << world.describe( );
    }
}

TEST( Meeting, BothInvitingAtOnceConnect )
{
    const uint32_t first = SimSeeds::first( );
    const int count = SimSeeds::count( 40 );
    for( uint32_t seed = first; seed < first + static_cast<uint32_t>( count ); ++seed )
    {
        SimWorld world( seed, seed % 2 );
        world.allowCrossing( );
        world.addClient( ANN, world.addHome( drawKind( world ) ) );
        world.addClient( BOB, world.addHome( drawKind( world ) ) );
        world.befriend( ANN, BOB );
        world.startAll( );
        world.meets( 30 * SECOND );
        // Both at the same moment, out of nothing.
        world.clients[0]->command( u"RECONNECTBUDDY", world.clients[1]->user( ) );
        world.clients[1]->command( u"RECONNECTBUDDY", world.clients[0]->user( ) );
        world.run( 2 * SECOND );
        EXPECT_TRUE( world.meets( 120 * SECOND ) ) << world.describe( ) << world.describeMissing( );
        EXPECT_EQ( world.verdict( ), "" ) << world.describe( );
    }
}

TEST( Meeting, BadLinksOnlyTakeLonger )
{
    const uint32_t first = SimSeeds::first( );
    const int count = SimSeeds::count( 40 );
    for( uint32_t seed = first; seed < first + static_cast<uint32_t>( count ); ++seed )
    {
        SimWorld world( seed );
        world.allowTrouble( );
        for( const char* user : { ANN, BOB } )
        {
            const int host = world.addHome( drawKind( world ) );
            world.addClient( user, host );
            world.net.link( host ) = drawBadLink( world );
        }
        world.befriend( ANN, BOB );
        world.startWithin( 10 * SECOND );
        world.run( 180 * SECOND );
        world.setLinks( GSimLink( ) );
        EXPECT_TRUE( world.meets( 420 * SECOND ) ) << world.describe( ) << world.describeMissing( );
        EXPECT_EQ( world.verdict( ), "" ) << world.describe( );
    }
}

TEST( Meeting, TheSameSeedGivesTheSameTraffic )
{
    uint64_t hash[2] = { };
    uint64_t count[2] = { };
    for( const size_t run : { 0u, 1u } )
    {
        SimWorld world( SimSeeds::first( ) );
        world.allowTrouble( );
        for( const char* user : { ANN, BOB, BOB } )
        {
            const int host = world.addHome( drawKind( world ) );
            world.addClient( user, host );
            world.net.link( host ) = drawBadLink( world );
        }
        world.befriend( ANN, BOB );
        world.startWithin( 10 * SECOND );
        world.run( 120 * SECOND );
        hash[run] = world.net.getTraceHash( );
        count[run] = world.net.getSentCount( );
    }
    EXPECT_GT( count[0], 500u );
    EXPECT_EQ( count[0], count[1] );
    EXPECT_EQ( hash[0], hash[1] );
}
