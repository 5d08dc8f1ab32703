// Everything at once: programs, boxes and the server come and go, links are cut, people log off, change networks and talk. When it is
// over all find each other again, and when they leave nothing of them is left.
#include "sim/SimWorld.h"

#include <gtest/gtest.h>

namespace
{
constexpr int64_t SECOND = SimWorld::SECOND;
constexpr int USERS = 5;
constexpr GSimNat KINDS[] = { GSimNat::PUBLIC,          GSimNat::UNRESTRICTED, GSimNat::ADDRESS_RESTRICTED,
                              GSimNat::PORT_RESTRICTED, GSimNat::SYMMETRIC,    GSimNat::BLOCKED };

GString userName( int64_t i )
{
    return "user" + std::to_string( i ) + "@velmora.local";
}

void build( SimWorld& world )
{
    world.allowTrouble( );
    for( int i = 0; i < USERS; ++i )
        for( int64_t device = 0; device <= world.clock.draw( 2 ); ++device )
        {
            const int host = world.addHome( KINDS[world.clock.draw( std::size( KINDS ) )],
                                            20 * SECOND + world.clock.draw( 300 * SECOND ) );
            world.addClient( userName( i ), host );
        }
    for( int i = 0; i < USERS; ++i )
        for( int j = i + 1; j < USERS; ++j )
            if( world.clock.draw( 4 ) ) world.befriend( userName( i ), userName( j ) );
}

void cut( SimWorld& world, const SimClient& client )
{
    GSimLink& link = world.net.link( client.host( ) );
    link.lossPercent = 100;
    world.clock.after( world.clock.draw( 40 * SECOND ), [&link] { link.lossPercent = 0; } );
}

void reconnectBuddy( SimClient& client, const GWString& buddy )
{
    if( client.isOnline( ) && client.sip( ).findBuddy( buddy ) ) client.command( u"RECONNECTBUDDY", buddy );
}

// One of the things that happen.
void strike( SimWorld& world )
{
    SimClient& client =
        *world.clients[static_cast<size_t>( world.clock.draw( static_cast<int64_t>( world.clients.size( ) ) ) )];
    switch( world.clock.draw( 12 ) )
    {
    case 0: return client.kill( );
    case 1: return client.logOff( );
    case 2: return client.reconnect( );
    case 3: return cut( world, client );
    case 4: return world.restartBoxOf( client );
    case 5:
        world.server.stop( );
        world.clock.after( world.clock.draw( 30 * SECOND ), [&world] { world.server.start( ); } );
        return;
    case 6: world.net.link( client.host( ) ).lossPercent = static_cast<int>( world.clock.draw( 30 ) ); return;
    case 7:
    case 8: return client.start( );
    case 9: reconnectBuddy( client, GUTF8ToWide( userName( world.clock.draw( USERS ) ) ) ); return;
    default: return world.sayAt( client, userName( world.clock.draw( USERS ) ) );
    }
}
} // namespace

TEST( Storm, WhenItIsOverAllFindEachOther )
{
    const uint32_t first = SimSeeds::first( );
    const int count = SimSeeds::count( 12 );
    for( uint32_t seed = first; seed < first + static_cast<uint32_t>( count ); ++seed )
    {
        SimWorld world( seed );
        build( world );
        world.startWithin( 30 * SECOND );
        for( int i = 0; i < 150; ++i )
        {
            world.run( SECOND + world.clock.draw( 8 * SECOND ) );
            strike( world );
            world.checkChat( );
        }
        world.run( 45 * SECOND );
        world.server.start( );
        world.setLinks( GSimLink( ) );
        world.restartStopped( );
        EXPECT_TRUE( world.meets( 480 * SECOND ) ) << world.describe( ) << world.describeMissing( );
        world.logOffAll( );
        EXPECT_EQ( world.verdict( ), "" ) << world.describe( );
    }
}
