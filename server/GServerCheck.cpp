#include "server/GServerCheck.h"

#include "base/GUtil.h"
#include "server/core/GEndpoint.h"
#include "server/core/GTlsFront.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

#include <boost/asio/io_context.hpp>

namespace
{
namespace asio = boost::asio;
using Findings = std::vector<GFinding>;

std::vector<GServerHost> hostsOf( const GServerConfig& config, const GServerPlace& place )
{
    std::vector<GServerHost> hosts;
    for( const GWString& item : GSplitList( GUTF8ToWide( config.*place.host ) ) )
        hosts.push_back( GServerHost::split( GWideToUTF8( item ) ) );
    return hosts;
}
bool isPublic( const GString& host )
{
    uint32_t address = 0;
    unsigned short port = 0;
    return GEndpoint::parse( host, address, port ) && GEndpoint::isPublic( address );
}

void checkRoles( const GServerConfig& config, Findings& findings )
{
    const GStringList roles = GSplitList( GUTF8ToWide( config.roles ) );
    if( roles.empty( ) ) findings.push_back( { GFINDING_ERROR, "roles names none, so that nothing would run" } );
    for( const GWString& wide : roles )
    {
        const GString role = GWideToUTF8( wide );
        const bool known = std::any_of( std::begin( SERVER_PLACES ), std::end( SERVER_PLACES ),
                                        [&]( const GServerPlace& p ) { return p.role == role; } );
        if( !known ) findings.push_back( { GFINDING_ERROR, "roles names '" + role + "', which there is not" } );
    }
}

template <typename Protocol>
boost::system::error_code tryToBind( const GString& host )
{
    typename Protocol::endpoint endpoint;
    boost::system::error_code code;
    asio::io_context io;
    typename Protocol::socket socket( io );
    if( !GEndpoint::parse( host, endpoint ) ) return asio::error::invalid_argument;
    socket.open( endpoint.protocol( ), code );
    // A stream's port that was closed a moment ago is free for the server, too.
    if( !code && endpoint.protocol( ).type( ) == SOCK_STREAM )
        socket.set_option( asio::socket_base::reuse_address( true ), code );
    if( !code ) socket.bind( endpoint, code );
    return code;
}
void checkBind( std::string_view key, const GString& host, bool stream, Findings& findings )
{
    const auto code = stream ? tryToBind<asio::ip::tcp>( host ) : tryToBind<asio::ip::udp>( host );
    if( !code ) return;
    const GString what = GString( key ) + ": " + host + " ";
    if( code == asio::error::address_in_use )
        findings.push_back( { GFINDING_WARNING, what + "is in use, by a running server or another program" } );
    else if( code == boost::system::errc::address_not_available )
        findings.push_back( { GFINDING_ERROR, what + "is no address of this machine; behind a router write "
                                                     "'ip of this machine:port/ip of the router:port'" } );
    else if( code == asio::error::access_denied )
        findings.push_back( { GFINDING_ERROR, what + "needs the right to listen on ports below 1024" } );
    else
        findings.push_back( { GFINDING_ERROR, what + "can't be opened: " + code.message( ) } );
}

// Two hosts of one kind at one place: the second would fail to open.
void checkHosts( const GServerConfig& config, Findings& findings )
{
    std::set<std::pair<bool, GString>> seen;
    for( const GServerPlace& place : SERVER_PLACES )
    {
        if( !config.hasRole( place.role ) ) continue;
        for( const GServerHost& host : hostsOf( config, place ) )
        {
            const bool chosenBySystem = host.bind.ends_with( ":0" );
            if( !chosenBySystem && !seen.insert( { place.stream, host.bind } ).second )
                findings.push_back( { GFINDING_ERROR, GString( place.key ) + ": " + host.bind + " is named twice" } );
            else
                checkBind( place.key, host.bind, place.stream, findings );
        }
    }
}

void checkReach( const GServerConfig& config, Findings& findings )
{
    std::vector<GString> far;
    std::vector<GString> near;
    for( const GServerPlace& place : SERVER_PLACES )
    {
        if( !config.hasRole( place.role ) ) continue;
        for( const GServerHost& host : hostsOf( config, place ) )
        {
            if( place.role != ROLE_METRICS )
                ( isPublic( host.reached ) ? far : near ).push_back( GString( place.key ) + " (" + host.reached + ")" );
            else if( !GEndpoint::isLoopback( GEndpoint::addressOf( host.bind ) ) )
                findings.push_back(
                    { GFINDING_WARNING, "metrics: whoever reaches " + host.bind + " reads the figures" } );
        }
    }
    if( far.empty( ) && !near.empty( ) )
        findings.push_back(
            { GFINDING_NOTE, "no host is public: only this machine or its own network can reach the server" } );
    if( !far.empty( ) )
        for( const GString& host : near )
            findings.push_back( { GFINDING_WARNING, host + " can't be reached from outside, while other hosts can" } );
}

// A client tells the kinds of network apart by what reaches it from where it has and has not been.
void checkStun( const GServerConfig& config, Findings& findings )
{
    if( !config.hasRole( "stun" ) ) return;
    std::set<GString> addresses;
    for( const GString* hosts : { &config.stunDirect, &config.stunPunched, &config.stunUnpunched } )
        addresses.insert( GEndpoint::addressOf( GServerHost::split( *hosts ).reached ) );
    if( addresses.size( ) < 3 )
        findings.push_back(
            { GFINDING_WARNING, "stun: the direct, punched and unpunched hosts stand on " +
                                    std::to_string( addresses.size( ) ) +
                                    " of three addresses, so that clients can't tell all kinds of network apart" } );
}

void checkContacts( const GServerConfig& config, Findings& findings )
{
    const bool far = config.hasRole( "signalling" ) && isPublic( GServerHost::split( config.signalling ).reached );
    if( far && !config.isAgreed( ) )
        findings.push_back( { GFINDING_NOTE, "contacts = open: every account can call every other, and anyone can "
                                             "create an account" } );
}

void checkRelay( const GServerConfig& config, Findings& findings )
{
    if( !config.hasRole( "relay" ) ) return;
    const GServerHost udp = GServerHost::split( config.relayUDP );
    checkBind( "relay_udp", udp.bind + ":0", false, findings );
    if( config.relayAllowPrivate && isPublic( udp.reached + ":0" ) )
        findings.push_back(
            { GFINDING_WARNING, "relay_allow_private lets clients send into the server's own network" } );
    const int64_t ports = config.relayPortHigh - config.relayPortLow + 1;
    if( config.relayPortHigh && ports < config.relayAllocations )
        findings.push_back( { GFINDING_WARNING, "relay_port_low to relay_port_high hold " + std::to_string( ports ) +
                                                    " ports for " + std::to_string( config.relayAllocations ) +
                                                    " relay_allocations" } );
}

// A folder that is there or can be made: the nearest one that exists takes a file.
void checkFolder( std::string_view key, std::filesystem::path folder, Findings& findings )
{
    std::error_code code;
    if( folder.empty( ) ) folder = ".";
    while( !std::filesystem::exists( folder, code ) && folder.has_parent_path( ) ) folder = folder.parent_path( );
    if( !std::filesystem::exists( folder, code ) ) folder = ".";
    const std::filesystem::path probe = folder / ".velmora-server-check";
    const bool writable =
        std::filesystem::is_directory( folder, code ) && std::ofstream( probe ).put( ' ' ).flush( ).good( );
    std::filesystem::remove( probe, code );
    if( !writable )
        findings.push_back( { GFINDING_ERROR, GString( key ) + ": can't write to '" + folder.string( ) + "'" } );
}

void checkFiles( const GServerConfig& config, Findings& findings )
{
    checkFolder( "store", std::filesystem::path( config.store ).parent_path( ), findings );
    if( config.hasRole( "log" ) ) checkFolder( "log_directory", config.logDirectory, findings );
    GString error;
    if( !config.tlsCertificate.empty( ) && !GTlsFront::load( config.tlsCertificate, config.tlsKey, error ) )
        findings.push_back( { GFINDING_ERROR, error } );
    std::error_code code;
    const std::filesystem::path offered = std::filesystem::path( config.upgradeDirectory ) / config.upgradeFile;
    if( config.hasRole( "upgrade" ) && config.upgradeVersion > 0 && config.upgradeURL.empty( ) &&
        !std::filesystem::is_regular_file( offered, code ) )
        findings.push_back( { GFINDING_ERROR, "upgrade_version offers " + std::to_string( config.upgradeVersion ) +
                                                  ", but there is no file '" + offered.string( ) + "'" } );
}
} // namespace

namespace GServerCheck
{
std::vector<GFinding> run( const GServerConfig& config )
{
    Findings findings;
    checkRoles( config, findings );
    checkHosts( config, findings );
    checkReach( config, findings );
    checkStun( config, findings );
    checkContacts( config, findings );
    checkRelay( config, findings );
    checkFiles( config, findings );
    return findings;
}

GString compose( const GFinding& finding )
{
    constexpr const char* KINDS[] = { "NOTE ", "WARNING ", "ERROR " };
    return KINDS[finding.kind] + finding.text;
}
} // namespace GServerCheck
