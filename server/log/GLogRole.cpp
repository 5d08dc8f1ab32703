#include "server/log/GLogRole.h"

#include "platform/GTime.h"
#include "protocol/GProtocol.h"
#include "server/core/GServerMessage.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include <boost/asio/post.hpp>

namespace
{
constexpr uint64_t SECOND = 1000000;
constexpr size_t MAX_FILENAME = 100;
// Each may hold a whole file in memory.
constexpr int64_t MAX_CONNECTIONS = 64;

GStreamLimits limitsOf( const GServerConfig& config )
{
    GStreamLimits limits;
    limits.messageBytes = static_cast<size_t>( config.logBytes ) + limits.headerBytes;
    limits.connections = std::min( config.connections, MAX_CONNECTIONS );
    limits.connectionsPerAddress = std::min( config.connectionsPerAddress, MAX_CONNECTIONS / 4 );
    return limits;
}
int64_t sizeBelow( const GString& directory )
{
    int64_t size = 0;
    std::error_code error;
    for( auto it = std::filesystem::recursive_directory_iterator( directory, error );
         !error && it != std::filesystem::recursive_directory_iterator( ); it.increment( error ) )
    {
        std::error_code ignored;
        if( it->is_regular_file( ignored ) ) size += static_cast<int64_t>( it->file_size( ignored ) );
    }
    return size;
}
bool writeAll( int handle, const GString& bytes )
{
    size_t offset = 0;
    while( offset < bytes.size( ) )
    {
        const ssize_t written = ::write( handle, bytes.data( ) + offset, bytes.size( ) - offset );
        if( written < 0 && errno == EINTR ) continue;
        if( written <= 0 ) return false;
        offset += static_cast<size_t>( written );
    }
    return ::fsync( handle ) == 0;
}
} // namespace

GLogRole::GLogRole( boost::asio::io_context& io, const GServerConfig& config, GServerStore& store, GMetrics& metrics )
    : _io( io ), _config( config ), _store( store ), _metrics( metrics ), _server( io, limitsOf( config ) ), _pool( 1 )
{
}
GLogRole::~GLogRole( )
{
    _pool.join( );
}
bool GLogRole::open( GString& error )
{
    _stored = sizeBelow( _config.logDirectory );
    return _server.open( GServerHost::split( _config.log ).bind, error );
}
void GLogRole::start( )
{
    _server.start( [this]( const auto& connection, const GHTTPHeaders& message ) { _onMessage( connection, message ); },
                   nullptr, [this]( std::string_view reason ) { _metrics.count( "log", "any", reason ); } );
}

GString GLogRole::sanitize( const GString& filename )
{
    GString name;
    for( const char c : filename.substr( filename.find_last_of( "/\\" ) + 1 ) )
    {
        const bool plain = ( c >= 'a' && c <= 'z' ) || ( c >= 'A' && c <= 'Z' ) || ( c >= '0' && c <= '9' ) ||
                           c == '-' || c == '_' || c == '.';
        if( name.empty( ) && c == '.' ) continue;
        if( name.size( ) < MAX_FILENAME ) name += plain ? c : '_';
    }
    return name;
}
bool GLogRole::splitSender( const GString& from, GString& user, GString& device )
{
    const size_t at = from.rfind( '@' );
    if( at == GString::npos ) return false;
    user = from.substr( 0, at );
    device = from.substr( at + 1 );
    if( device.empty( ) ) device = "unknown";
    return GValidUserID( GUTF8ToWide( user ) ) && user[0] != '.' && GValidDeviceID( GUTF8ToWide( device ) );
}

int GLogRole::_test( const GString& address, const GHTTPHeaders& request, GString& directory, GString& name )
{
    GString user;
    GString device;
    name = sanitize( GWideToUTF8( request.get( GProtocol::FILENAME ) ) );
    if( name.empty( ) || !splitSender( GWideToUTF8( request.get( GProtocol::FROM ) ), user, device ) ) return 400;
    if( !_store.hasLogon( user, address, GTimeGetTime( ) - static_cast<uint64_t>( _config.logonSeconds ) * SECOND ) )
        return 403;
    const auto size = static_cast<int64_t>( request.getContent( 0 ).size( ) );
    if( size > _config.logBytes ) return 413;
    if( _stored + size > _config.logQuota ) return 507;
    directory = _config.logDirectory + "/" + user + "/" + device;
    return GHTTP_SUCCESS;
}

void GLogRole::_onMessage( const GStreamServer::Connection& connection, const GHTTPHeaders& message )
{
    if( !message.isMethod( GProtocol::LOGFILE ) || message.getContentCount( ) != 1 )
    {
        _metrics.count( "log", GServerMessage::methodLabel( message ), "dropped" );
        return connection->finish( );
    }
    GString directory;
    GString name;
    const int code = _test( connection->remoteAddress( ), message, directory, name );
    if( code != GHTTP_SUCCESS )
    {
        _metrics.count( "log", "LOGFILE", std::to_string( code ) );
        GLOGPLAIN( u"logfile from=", connection->remoteHost( ), u" result=", code );
        connection->send( GServerMessage::compose( message, code, u"Refused" ) );
        return connection->finish( );
    }
    ++_pending;
    _stored += static_cast<int64_t>( message.getContent( 0 ).size( ) );
    connection->setBusy( true );
    boost::asio::post( _pool,
                       [this, connection, message, directory, name]
                       {
                           GString error;
                           const bool good = writeFile( directory, name, message.getContent( 0 ), error );
                           boost::asio::post( _io,
                                              [this, connection, message, directory, name, good, error]
                                              {
                                                  --_pending;
                                                  if( !good )
                                                      _stored -=
                                                          static_cast<int64_t>( message.getContent( 0 ).size( ) );
                                                  GLOGPLAIN( u"logfile path=", directory, u"/", name, u" bytes=",
                                                             message.getContent( 0 ).size( ),
                                                             good ? u" result=200" : u" result=500 text=", error );
                                                  _metrics.count( "log", "LOGFILE", good ? "200" : "500" );
                                                  connection->send( GServerMessage::compose(
                                                      message, good ? GHTTP_SUCCESS : 500, good ? u"OK" : u"Failed" ) );
                                                  connection->setBusy( false );
                                              } );
                       } );
}

bool GLogRole::writeFile( const GString& directory, const GString& name, const GString& bytes, GString& error )
{
    std::error_code code;
    std::filesystem::create_directories( directory, code );
    const GString path = directory + "/" + name;
    // Its own suffix keeps an unfinished file from passing for a whole one; no upload can be called so.
    const GString partial = path + "~";
    const int handle = ::open( partial.c_str( ), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0640 );
    bool good = handle >= 0 && writeAll( handle, bytes );
    if( !good ) error = std::strerror( errno );
    if( handle >= 0 ) ::close( handle );
    if( good && ::rename( partial.c_str( ), path.c_str( ) ) != 0 )
    {
        good = false;
        error = std::strerror( errno );
    }
    if( !good ) ::unlink( partial.c_str( ) );
    const int folder = good ? ::open( directory.c_str( ), O_RDONLY | O_DIRECTORY | O_CLOEXEC ) : -1;
    if( folder >= 0 )
    {
        ::fsync( folder );
        ::close( folder );
    }
    return good;
}
