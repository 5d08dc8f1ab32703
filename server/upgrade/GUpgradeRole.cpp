#include "server/upgrade/GUpgradeRole.h"

#include "server/core/GServerMessage.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <boost/asio/post.hpp>

namespace
{
// Each may hold a whole file in memory.
constexpr int64_t MAX_CONNECTIONS = 64;
constexpr uintmax_t MAX_FILE = 512 << 20;

GStreamLimits limitsOf( const GServerConfig& config )
{
    GStreamLimits limits;
    limits.messageBytes = limits.headerBytes;
    limits.connections = std::min( config.connections, MAX_CONNECTIONS );
    limits.connectionsPerAddress = std::min( config.connectionsPerAddress, MAX_CONNECTIONS / 4 );
    return limits;
}
} // namespace

GUpgradeRole::GUpgradeRole( boost::asio::io_context& io, const GServerConfig& config, GMetrics& metrics )
    : _io( io ), _config( config ), _metrics( metrics ), _server( io, limitsOf( config ) ), _pool( 1 )
{
}
GUpgradeRole::~GUpgradeRole( )
{
    _pool.join( );
}
bool GUpgradeRole::open( GString& error )
{
    return _server.open( GServerHost::split( _config.upgrade ).bind, error );
}
void GUpgradeRole::reload( )
{
    _server.setLimits( limitsOf( _config ) );
}
void GUpgradeRole::start( )
{
    _server.start( [this]( const auto& connection, const GHTTPHeaders& message ) { _onMessage( connection, message ); },
                   nullptr, [this]( std::string_view reason ) { _metrics.count( "upgrade", "any", reason ); } );
}

GString GUpgradeRole::fileOf( const GString& directory, const GString& path )
{
    const GString name = path.substr( 0, path.find( '?' ) );
    if( name.size( ) < 2 || name[0] != '/' || name[1] == '.' || name.find_first_of( "/\\", 1 ) != GString::npos ||
        std::any_of( name.begin( ), name.end( ), []( char c ) { return static_cast<unsigned char>( c ) <= ' '; } ) )
        return { };
    const GString file = directory + name;
    std::error_code error;
    const bool good =
        std::filesystem::is_regular_file( file, error ) && std::filesystem::file_size( file, error ) <= MAX_FILE;
    return good && !error ? file : GString( );
}
GString GUpgradeRole::answer( const GHTTPHeaders& request, const GString& file )
{
    std::ifstream stream( file, std::ios::binary );
    if( file.empty( ) || !stream )
    {
        GHTTPHeaders reply = GServerMessage::reply( request, 404, u"Not Found" );
        reply.addContent( GString( ) );
        return reply.serialize( );
    }
    GHTTPHeaders reply = GServerMessage::reply( request, GHTTP_SUCCESS, u"OK" );
    reply.addContent( GString( std::istreambuf_iterator<char>( stream ), std::istreambuf_iterator<char>( ) ) );
    return reply.serialize( );
}

void GUpgradeRole::_onMessage( const GStreamServer::Connection& connection, const GHTTPHeaders& message )
{
    GWString uri;
    if( message.getMethod( uri ) != u"GET" )
    {
        _metrics.count( "upgrade", GServerMessage::methodLabel( message ), "dropped" );
        return connection->finish( );
    }
    const GString file = fileOf( _config.upgradeDirectory, GWideToUTF8( uri ) );
    _metrics.count( "upgrade", "GET", file.empty( ) ? "404" : "200" );
    GLOGPLAIN( u"upgrade path='", GServerMessage::loggable( uri ), u"' from=", connection->remoteHost( ),
               file.empty( ) ? u" result=404" : u" result=200" );
    connection->setBusy( true );
    boost::asio::post( _pool,
                       [this, connection, message, file]
                       {
                           auto bytes = std::make_shared<GString>( answer( message, file ) );
                           boost::asio::post( _io,
                                              [connection, bytes]
                                              {
                                                  connection->send( *bytes );
                                                  connection->setBusy( false );
                                                  connection->finish( );
                                              } );
                       } );
}
