// Many at once: one user with fifty buddies, each of them on three devices.
#include "sim/SimWorld.h"

#include <gtest/gtest.h>

TEST( Crowd, FiftyBuddiesOnThreeDevicesEach )
{
    constexpr int64_t SECOND = SimWorld::SECOND;
    constexpr GSimNat KINDS[] = { GSimNat::PUBLIC, GSimNat::ADDRESS_RESTRICTED, GSimNat::PORT_RESTRICTED,
                                  GSimNat::SYMMETRIC };
    constexpr int BUDDIES = 50;
    constexpr size_t SESSIONS = 3 * BUDDIES;
    const GString hub = "hub@velmora.local";
    SimWorld world( SimSeeds::first( ) );
    world.addClient( hub, world.addHome( GSimNat::PORT_RESTRICTED ) );
    for( int i = 0; i < BUDDIES; ++i )
    {
        const GString buddy = "buddy" + std::to_string( i ) + "@velmora.local";
        for( int device = 0; device < 3; ++device )
            world.addClient( buddy, world.addHome( KINDS[world.clock.draw( std::size( KINDS ) )] ) );
        world.befriend( hub, buddy );
    }
    world.allowCrossing( );
    world.startWithin( 30 * SECOND );
    world.run( 30 * SECOND );
    EXPECT_TRUE( world.meets( 120 * SECOND ) ) << world.describeMissing( );
    world.run( 30 * SECOND );
    EXPECT_TRUE( world.areAllConnected( ) ) << world.describeMissing( );
    // A PING a second and its answer, kept for a minute.
    world.checkFigures( { SESSIONS * 66, SESSIONS * 66, 200, 8 * SESSIONS, SESSIONS * 40, SESSIONS * 40, SESSIONS + 1,
                          SESSIONS, 2 * SESSIONS } );
    world.logOffAll( );
    EXPECT_EQ( world.verdict( ), "" );
}
