// Clients that meet: by every pairing of networks, over good and bad links.
#include "sim/SimWorld.h"

#include <gtest/gtest.h>

namespace
{
constexpr int64_t SECOND = SimWorld::SECOND;
constexpr char ANN[] = "ann@velmora.local";
constexpr char BOB[] = "bob@velmora.local";
} // namespace

TEST( Meeting, TwoOnTheInternetConnect )
{
    for( const bool robust : { true, false } )
    {
        SimWorld world( SimSeeds::first( ), robust );
        // The caller's second ACK, under a number of its own, finds the callee connected.
        world.log.allow( "WARNING Request 'ACK' from" );
        world.addClient( ANN, world.addHome( GSimNat::PUBLIC ) );
        world.addClient( BOB, world.addHome( GSimNat::PUBLIC ) );
        world.befriend( ANN, BOB );
        world.clients[0]->start( );
        world.run( 20 * SECOND );
        EXPECT_TRUE( world.clients[0]->isOnline( ) );
        world.clients[1]->start( );
        EXPECT_TRUE( world.runUntil( [&] { return world.areAllOnline( ) && world.areAllConnected( ); }, 30 * SECOND ) )
            << world.describeMissing( );
        world.run( 60 * SECOND );
        EXPECT_TRUE( world.areAllConnected( ) ) << world.describeMissing( );
        EXPECT_EQ( world.verdict( ), "" );
    }
}
