// The whole server on loopback sockets, asked by several connections and a peer of the relay in one sequence, in pieces of any length
// and with a clock that jumps: bytes that are no message are answered by nothing, nothing reaches a place that the relay must not
// send to, and what it keeps has limits.
#include "ServerFuzz.h"
#include "platform/GTime.h"
#include "server/GServer.h"

#include <boost/asio/write.hpp>
#include <filesystem>

namespace
{
namespace ip = boost::asio::ip;
constexpr size_t STREAMS = 4;
constexpr size_t MAX_ALLOCATIONS = 6;

uint64_t now_ = Fuzz::START;
uint64_t now( )
{
    return now_;
}

GServerConfig settings( )
{
    GServerConfig config;
    GString error;
    config.portBase = 0;
    config.store = ":memory:";
    config.passwordMemoryKiB = 8;
    config.passwordPasses = 1;
    config.passwordThreads = 1;
    config.relayAllocations = MAX_ALLOCATIONS;
    config.logBytes = 4096;
    config.logQuota = 65536;
    std::filesystem::create_directories( config.upgradeDirectory );
    Fuzz::require( config.finish( error ) );
    return config;
}
struct World
{
    World( ) : server( settings( ), { } ), inside( outside, ip::udp::endpoint( ip::make_address( "127.0.0.1" ), 0 ) )
    {
        GTimeSetSource( now );
        GString error;
        Fuzz::require( GPasswordInitialize( ) && server.open( error ) );
        server.store( ).addAccount( { "ann@velmora.local", "hash", "", Fuzz::START } );
        inside.non_blocking( true );
        const GString line = " " + server.readyLine( );
        for( const char* role : { " relay=", " log=", " upgrade=", " logon=" } )
        {
            const size_t at = line.find( role ) + GString( role ).size( );
            ip::tcp::endpoint endpoint;
            Fuzz::require( GEndpoint::parse( line.substr( at, line.find( ' ', at ) - at ), endpoint ) );
            roles.push_back( endpoint );
        }
    }
    void turn( )
    {
        server.io( ).restart( );
        server.io( ).poll( );
    }
    GServer server;
    boost::asio::io_context outside;
    ip::udp::socket inside; // Nobody may be made to send here.
    std::vector<ip::tcp::endpoint> roles;
};
World& world( )
{
    static World it;
    return it;
}

// A connection to one role.
struct Stream
{
    Stream( World& world, uint8_t role ) : socket( world.outside )
    {
        boost::system::error_code code;
        socket.connect( world.roles[role % world.roles.size( )], code );
        socket.non_blocking( true, code );
        world.turn( );
    }
    void send( const GString& bytes )
    {
        boost::system::error_code ignored;
        socket.write_some( boost::asio::buffer( bytes ), ignored );
    }
    GString received( )
    {
        boost::system::error_code code;
        GString out( 16384, '\0' );
        out.resize( socket.read_some( boost::asio::buffer( out ), code ) );
        return out;
    }
    ip::tcp::socket socket;
};

GString messageOf( Fuzz::Input& input, World& world )
{
    const uint8_t form = input.byte( );
    if( form % 4 == 0 ) return input.line( );
    GHTTPHeaders message = input.message( );
    if( form % 4 == 2 ) message = GHTTPHeaders( form & 8 ? u"OPENTURN" : u"SENDUDP" );
    if( form % 4 == 2 ) message.set( u"CSeq", u"1" );
    if( form & 16 ) message.set( u"Remote-Host", GUTF8ToWide( GEndpoint::compose( world.inside.local_endpoint( ) ) ) );
    if( form & 32 ) message.addContent( input.line( ) );
    return message.serialize( );
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    World& world = ::world( );
    Fuzz::Input input( data, size );
    world.server.store( ).addLogon( "ann@velmora.local", "127.0.0.1", now_ );
    {
        std::vector<std::unique_ptr<Stream>> streams;
        GString relayed;
        for( int steps = 0; steps < 24 && !input.empty( ); ++steps )
        {
            const uint8_t what = input.byte( );
            if( streams.size( ) < STREAMS && ( streams.empty( ) || what % 8 == 0 ) )
                streams.push_back( std::make_unique<Stream>( world, input.byte( ) ) );
            Stream& stream = *streams[what % streams.size( )];
            const GString bytes = messageOf( input, world );
            const size_t cut = bytes.empty( ) ? 0 : input.byte( ) % bytes.size( );
            stream.send( bytes.substr( 0, cut ) );
            world.turn( );
            stream.send( bytes.substr( cut ) );
            world.turn( );
            GHTTPHeaders answer;
            const GString received = stream.received( );
            Fuzz::require( received.empty( ) || answer.deserialize( received ) > 0 || received.size( ) == 16384 );
            if( answer.contains( u"Global-Host" ) ) relayed = GWideToUTF8( answer.get( u"Global-Host" ) );
            ip::udp::endpoint to;
            if( what & 64 && GEndpoint::parse( relayed, to ) )
            {
                boost::system::error_code ignored;
                world.inside.send_to( boost::asio::buffer( bytes ), to, 0, ignored );
                world.turn( );
            }
            now_ += input.byte( ) * 10000u;
            Fuzz::require( world.server.store( ).countAllocations( ) <= static_cast<int64_t>( 2 * MAX_ALLOCATIONS ) );
        }
    }
    world.turn( );
    char byte = 0;
    boost::system::error_code code;
    world.inside.receive( boost::asio::buffer( &byte, 1 ), 0, code );
    Fuzz::require( code == boost::asio::error::would_block );
    return 0;
}
