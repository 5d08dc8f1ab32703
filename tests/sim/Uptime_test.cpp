// Long runs: a day on line, a server that restarts, boxes that forget.
#include "sim/SimWorld.h"

#include <gtest/gtest.h>

namespace
{
constexpr int64_t SECOND = SimWorld::SECOND;
constexpr int64_t MINUTE = 60 * SECOND;
constexpr int64_t HOUR = 60 * MINUTE;
constexpr char ANN[] = "ann@velmora.local";
constexpr char BOB[] = "bob@velmora.local";
constexpr char EVE[] = "eve@velmora.local";
} // namespace

TEST( Uptime, ADayOnLineLeavesNothingBehind )
{
    SimWorld world( SimSeeds::first( ) );
    world.addClient( ANN, world.addHome( GSimNat::PORT_RESTRICTED, 2 * MINUTE ) );
    world.addClient( BOB, world.addHome( GSimNat::SYMMETRIC, 2 * MINUTE ) );
    world.befriend( ANN, BOB );
    world.startAll( );
    ASSERT_TRUE( world.meets( MINUTE ) ) << world.describeMissing( );
    world.run( 10 * MINUTE );
    SimWorld::Figures bound = world.figures( );
    for( int hour = 0; hour < 26; ++hour )
    {
        world.run( HOUR );
        EXPECT_TRUE( world.areAllConnected( ) ) << world.describeMissing( );
        EXPECT_EQ( world.server.registrationCount( ), 2u ) << "hour " << hour;
    }
    // What comes at the same moment now and then.
    bound.requests += 8;
    bound.responses += 8;
    bound.own += 8;
    bound.buckets += 4;
    bound.planned += 8;
    bound.pending += 2;
    world.checkFigures( bound );
    world.logOffAll( );
    EXPECT_EQ( world.verdict( ), "" );
}

TEST( Uptime, AServerThatRestartsIsHardlyNoticed )
{
    const uint32_t first = SimSeeds::first( );
    const int count = SimSeeds::count( 6 );
    for( uint32_t seed = first; seed < first + static_cast<uint32_t>( count ); ++seed )
    {
        SimWorld world( seed );
        world.allowTrouble( );
        world.addClient( ANN, world.addHome( GSimNat::PORT_RESTRICTED ) );
        world.addClient( BOB, world.addHome( GSimNat::SYMMETRIC ) );
        world.addClient( EVE, world.addHome( GSimNat::PUBLIC ) );
        world.befriend( ANN, BOB );
        world.befriend( ANN, EVE );
        world.befriend( BOB, EVE );
        world.startAll( );
        EXPECT_TRUE( world.meets( MINUTE ) ) << world.describeMissing( );
        for( int i = 0; i < 5; ++i )
        {
            world.run( world.clock.draw( 5 * MINUTE ) );
            world.server.stop( );
            world.run( SECOND + world.clock.draw( i < 3 ? 3 * SECOND : 3 * MINUTE ) );
            world.server.start( );
            EXPECT_TRUE( world.meets( 8 * MINUTE ) ) << world.describe( ) << world.describeMissing( );
            EXPECT_EQ( world.server.registrationCount( ), 3u ) << world.describe( );
        }
        world.logOffAll( );
        EXPECT_EQ( world.verdict( ), "" ) << world.describe( );
    }
}

TEST( Uptime, MappingsThatEndAreKeptOrFoundAnew )
{
    const uint32_t first = SimSeeds::first( );
    const int count = SimSeeds::count( 8 );
    for( uint32_t seed = first; seed < first + static_cast<uint32_t>( count ); ++seed )
    {
        SimWorld world( seed );
        world.allowTrouble( );
        constexpr GSimNat KINDS[] = { GSimNat::UNRESTRICTED, GSimNat::ADDRESS_RESTRICTED, GSimNat::PORT_RESTRICTED,
                                      GSimNat::SYMMETRIC };
        for( const char* user : { ANN, BOB } )
            world.addClient( user, world.addHome( KINDS[world.clock.draw( std::size( KINDS ) )],
                                                  15 * SECOND + world.clock.draw( 3 * MINUTE ) ) );
        world.befriend( ANN, BOB );
        world.startAll( );
        EXPECT_TRUE( world.meets( 2 * MINUTE ) ) << world.describe( ) << world.describeMissing( );
        // While nobody meddles the mappings hold.
        world.run( 20 * MINUTE );
        EXPECT_TRUE( world.areAllConnected( ) ) << world.describe( ) << world.describeMissing( );
        for( int i = 0; i < 4; ++i )
        {
            world.net.restartBox( static_cast<int>( world.clock.draw( 2 ) ) );
            world.run( 30 * SECOND + world.clock.draw( MINUTE ) );
            EXPECT_TRUE( world.meets( 8 * MINUTE ) ) << world.describe( ) << world.describeMissing( );
        }
        EXPECT_EQ( world.verdict( ), "" ) << world.describe( );
    }
}
