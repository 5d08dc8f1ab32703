#include "server/upgrade/GUpgradeRole.h"

#include "protocol/GProtocol.h"
#include "server/core/GServerMessage.h"
#include "server/upgrade/GUpgradeDownload.h"

#include <algorithm>
#include <filesystem>

namespace
{
constexpr int64_t MAX_CONNECTIONS = 64;
constexpr uintmax_t MAX_FILE = INT32_MAX; // What a client can take in one message.

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
GString GUpgradeRole::headerOf( const GHTTPHeaders& request, const GString& file, uint64_t& size )
{
    std::error_code none = std::make_error_code( std::errc::no_such_file_or_directory );
    size = file.empty( ) ? 0 : std::filesystem::file_size( file, none );
    GHTTPHeaders reply = GServerMessage::reply( request, none ? 404 : GHTTP_SUCCESS, none ? u"Not Found" : u"OK" );
    if( none ) size = 0;
    reply.set( GProtocol::CONTENT_LENGTH, static_cast<int64_t>( size ) );
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
    uint64_t size = 0;
    const GString header = headerOf( message, file, size );
    std::make_shared<GUpgradeDownload>( _io, _pool, connection, file )->start( header, size );
}
