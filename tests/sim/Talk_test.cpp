// Chat lines through sessions, over links that lose and double them.
#include "sim/SimWorld.h"

#include <gtest/gtest.h>

TEST( Talk, NoLineIsLostThatARouteCarries )
{
    constexpr int64_t SECOND = SimWorld::SECOND;
    constexpr GSimNat KINDS[] = { GSimNat::PUBLIC,          GSimNat::UNRESTRICTED, GSimNat::ADDRESS_RESTRICTED,
                                  GSimNat::PORT_RESTRICTED, GSimNat::SYMMETRIC,    GSimNat::BLOCKED };
    const GString users[] = { "ann@velmora.local", "bob@velmora.local", "eve@velmora.local" };
    const uint32_t first = SimSeeds::first( );
    const int count = SimSeeds::count( 12 );
    for( uint32_t seed = first; seed < first + static_cast<uint32_t>( count ); ++seed )
    {
        SimWorld world( seed );
        world.allowTrouble( );
        for( const GString& user : users )
        {
            const int host = world.addHome( KINDS[world.clock.draw( std::size( KINDS ) )] );
            world.addClient( user, host );
            GSimLink& link = world.net.link( host );
            link.lossPercent = static_cast<int>( world.clock.draw( 17 ) );
            link.duplicatePercent = static_cast<int>( world.clock.draw( 10 ) );
            link.reorderPercent = static_cast<int>( world.clock.draw( 10 ) );
            link.delay = 5000 + world.clock.draw( 200000 );
        }
        for( const GString& user : users )
            for( const GString& other : users )
                if( user < other ) world.befriend( user, other );
        world.startWithin( 10 * SECOND );
        world.run( 60 * SECOND );
        for( int i = 0; i < 300; ++i )
        {
            const auto from = static_cast<size_t>( world.clock.draw( 3 ) );
            const auto to = static_cast<size_t>( world.clock.draw( 3 ) );
            if( from != to ) world.sayAt( *world.clients[from], users[to] );
            world.run( SECOND );
            world.checkChat( );
        }
        world.run( 25 * SECOND );
        world.checkChat( );
        EXPECT_GT( world.getSaidCount( ), 50 ) << world.describe( );
        EXPECT_EQ( world.verdict( ), "" ) << world.describe( );
    }
}
