// The server beside others of its kind, each in a process of its own on loopback: answers, relayed frames and registrations for each
// second of processor time, and memory. What the hot paths take from the heap is counted in this process.
#include "Bench.h"
#include "ServerClients.h"
#include "ServerPeers.h"

#include "server/core/GPassword.h"
#include "server/relay/GRelayFrame.h"
#include "server/relay/GRelayPolicy.h"
#include "server/signalling/GSignallingService.h"
#include "server/stun/GStunService.h"

#include <functional>

namespace
{
constexpr int ROUNDS = 9;
constexpr long REQUESTS = 40960;
constexpr long FRAMES = 20480;
constexpr int DEVICES = 320;
constexpr int MANY = 1000;
constexpr double MURMUR_CLIENT_KIB = 102; // What one costs there, as a fixed figure: Murmur is not run here.

using Rounds = std::vector<std::pair<double, double>>;

// Units of work for each second of processor time that a server takes for them.
double rateOf( const Bench::Process& server, const std::function<long( )>& work )
{
    const double before = server.cpuSeconds( );
    const long units = work( );
    return static_cast<double>( units ) / ( server.cpuSeconds( ) - before );
}
// Both sides by turns, the first round for warming up.
Rounds alternate( const std::function<double( )>& project, const std::function<double( )>& anchor )
{
    Rounds rounds;
    for( int i = 0; i <= ROUNDS; ++i )
    {
        double ours = 0, theirs = 0;
        if( i % 2 ) ours = project( );
        theirs = anchor( );
        if( i % 2 == 0 ) ours = project( );
        if( i ) rounds.emplace_back( ours, theirs );
    }
    return rounds;
}

void timeAnswers( Bench::Suite& suite )
{
    const bool stun = suite.wants( "STUN answers" ), ping = suite.wants( "PING answers" );
    if( !stun && !ping ) return;
    Bench::VelmoraServer velmora;
    Bench::TurnServer turn;
    Bench::EchoServer echo;
    const std::string stunRequest = Bench::message(
        u"STUN", 1, { { u"Indirect-Host-List", velmora.hosts["stun"][1] + ", " + velmora.hosts["stun"][2] } } );
    const std::string pingRequest = Bench::message( u"PING", 1, { { u"Global-Host", "198.51.100.7:40000" } } );
    const std::string binding = Bench::stunBinding( 1 );
    const auto answers = []( Bench::Process& server, const std::string& host, const std::string& request, int each )
    {
        return [&server, host, &request, each]
        { return rateOf( server, [&] { return Bench::ask( host, request, REQUESTS, each ); } ) / 1000; };
    };
    const auto ourStun = answers( velmora.process, velmora.hosts["stun"][0], stunRequest, 3 );
    const auto ourPing = answers( velmora.process, velmora.hosts["signalling"][0], pingRequest, 1 );
    const auto theirs = answers( turn.process, turn.host, binding, 1 );
    const auto echoed = answers( echo.process, echo.host, pingRequest, 1 );
    if( stun ) suite.measured( "STUN answers, coturn's binding", "k/s", { 1, 1.7 }, alternate( ourStun, theirs ) );
    if( stun ) suite.measured( "STUN answers, bare echo", "k/s", { 0.5, 1 }, alternate( ourStun, echoed ) );
    if( ping ) suite.measured( "PING answers, coturn's binding", "k/s", { 1, 1.7 }, alternate( ourPing, theirs ) );
    if( ping ) suite.measured( "PING answers, bare echo", "k/s", { 0.5, 1 }, alternate( ourPing, echoed ) );
}

void timeRelay( Bench::Suite& suite )
{
    if( !suite.wants( "relayed frames" ) ) return;
    Bench::VelmoraServer velmora;
    Bench::TurnServer turn;
    Bench::VelmoraRelayClient ours( velmora.hosts["logon"][0], velmora.hosts["relay"][0] );
    Bench::TurnRelayClient theirs( turn.host );
    const auto carry = []( Bench::Process& server, Bench::RelayClient& client, bool outward )
    {
        return [&server, &client, outward] {
            return rateOf( server, [&] { return outward ? client.outward( FRAMES ) : client.inward( FRAMES ); } ) /
                   1000;
        };
    };
    for( const bool outward : { true, false } )
        suite.measured( outward ? "relayed frames, client to world" : "relayed frames, world to client", "k/s",
                        { 0.7, 1.2 },
                        alternate( carry( velmora.process, ours, outward ), carry( turn.process, theirs, outward ) ) );
}

void timeRegistrations( Bench::Suite& suite )
{
    if( !suite.wants( "registration" ) ) return;
    Bench::VelmoraServer velmora;
    Bench::Registrar registrar;
    Bench::Devices devices( velmora.hosts["logon"][0], velmora.hosts["signalling"][0], DEVICES );
    Bench::SipUsers users( registrar.host, DEVICES );
    const auto cost = []( Bench::Process& server, auto& clients, int atOnce )
    {
        return [&server, &clients, atOnce]
        {
            return 1e6 / rateOf( server,
                                 [&]
                                 {
                                     clients.registerAll( atOnce );
                                     clients.registerAll( atOnce );
                                     return 2L * DEVICES;
                                 } );
        };
    };
    for( const int atOnce : { 32, 1 } )
        suite.measured(
            atOnce == 1 ? "CPU a registration, one at a time" : "CPU a registration, 32 at once", "us", { 1, 0.4 },
            alternate( cost( velmora.process, devices, atOnce ), cost( registrar.process, users, atOnce ) ) );
}

void measureMemory( Bench::Suite& suite )
{
    if( !suite.wants( "memory" ) ) return;
    Rounds clients, servers;
    for( int i = 0; i < 5; ++i )
    {
        Bench::VelmoraServer velmora;
        Bench::TurnServer turn;
        const double empty = velmora.process.pssKiB( );
        const Bench::Devices devices( velmora.hosts["logon"][0], velmora.hosts["signalling"][0], MANY );
        const double full = velmora.process.pssKiB( );
        clients.emplace_back( ( full - empty ) / MANY, MURMUR_CLIENT_KIB );
        servers.emplace_back( full / 1024, turn.process.pssKiB( ) / 1024 );
    }
    suite.measured( "memory a logged-on client, Murmur's", "KiB", { 0.25, 0.05 }, clients );
    // 30 and 15 MiB beside the 14.7 of an empty coturn.
    suite.measured( "memory with 1,000 clients, coturn empty", "MiB", { 30 / 14.7, 15 / 14.7 }, servers );
}

void countAllocations( Bench::Suite& suite )
{
    GServerConfig config;
    GMetrics metrics;
    GServerStore store;
    GString error;
    if( !config.finish( error ) || !store.open( ":memory:", error ) ) Bench::fail( error );
    const GString from = "198.51.100.100:40000";
    GStunService stun( config, metrics );
    GSignallingService signalling( config, store, metrics );
    signalling.setListeners( { "198.51.100.1:4435" } );
    GDatagramList out;
    const GString stunRequest =
        Bench::message( u"STUN", 1, { { u"Indirect-Host-List", "198.51.100.2:4432, 198.51.100.3:4433" } } );
    suite.allocationsOf( "STUN request", 0,
                         [&]
                         {
                             out.clear( );
                             stun.onDatagram( STUN_DIRECT, from, stunRequest, 1, out );
                         } );
    const GString ping = Bench::message( u"PING", 1, { { u"Global-Host", "198.51.100.7:40000" } } );
    suite.allocationsOf( "PING request", 0,
                         [&]
                         {
                             out.clear( );
                             signalling.onDatagram( 0, from, ping, 1, out );
                         } );
    const GRelayPolicy policy( config );
    GRelayShare share;
    GHTTPHeaders message( u"SENDUDP" );
    message.set( u"Remote-Host", u"198.51.100.100:40000" );
    message.addContent( GString( 1000, 'x' ) );
    const GString bytes = message.serialize( );
    GString relayed;
    suite.allocationsOf( "relayed frame, both directions", 0,
                         [&]
                         {
                             GRelayFrame frame;
                             frame.read( bytes.data( ), bytes.size( ) );
                             policy.take( share.outward, frame.contentLength, 1 );
                             relayed.clear( );
                             GRelayFrame::append( relayed, { boost::asio::ip::address_v4( frame.address ), frame.port },
                                                  frame.content, frame.contentLength );
                         } );
}
} // namespace

int main( int argc, char** argv )
{
    Bench::Suite suite( "server", argc, argv );
    countAllocations( suite );
    timeAnswers( suite );
    timeRelay( suite );
    timeRegistrations( suite );
    measureMemory( suite );
    return suite.finish( );
}
