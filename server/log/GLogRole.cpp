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
constexpr int64_t BLOCK = 4096;

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
        if( it->is_regular_file( ignored ) )
            size += GLogRole::costOf( static_cast<int64_t>( it->file_size( ignored ) ) );
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
void GLogRole::reload( )
{
    _server.setLimits( limitsOf( _config ) );
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

int64_t GLogRole::costOf( int64_t bytes )
{
    return ( bytes / BLOCK + 1 ) * BLOCK;
}

int GLogRole::_test( const GString& address, const GHTTPHeaders& request, Upload& upload )
{
    GString device;
    upload.name = sanitize( GWideToUTF8( request.get( GProtocol::FILENAME ) ) );
    if( upload.name.empty( ) || !splitSender( GWideToUTF8( request.get( GProtocol::FROM ) ), upload.user, device ) )
        return 400;
    const uint64_t since = GTimeGetTime( ) - static_cast<uint64_t>( _config.logonSeconds ) * SECOND;
    if( !_store.hasLogon( upload.user, address, since ) ) return 403;
    const auto size = static_cast<int64_t>( request.getContent( 0 ).size( ) );
    if( size > _config.logBytes ) return 413;
    if( _stored + costOf( size ) > _config.logQuota ) return 507;
    upload.directory = _config.logDirectory + "/" + upload.user + "/" + device;
    upload.userQuota = _config.logQuotaPerUser;
    return GHTTP_SUCCESS;
}

void GLogRole::_onMessage( const GStreamServer::Connection& connection, const GHTTPHeaders& message )
{
    if( !message.isMethod( GProtocol::LOGFILE ) || message.getContentCount( ) != 1 )
    {
        _metrics.count( "log", GServerMessage::methodLabel( message ), "dropped" );
        return connection->finish( );
    }
    auto upload = std::make_shared<Upload>( );
    upload->code = _test( connection->remoteAddress( ), message, *upload );
    if( upload->code != GHTTP_SUCCESS ) return _answer( connection, message, *upload );
    ++_pending;
    upload->bytes = message.getContent( 0 );
    _stored += costOf( static_cast<int64_t>( upload->bytes.size( ) ) );
    connection->setBusy( true );
    GHTTPHeaders header;
    if( message.contains( GProtocol::CSEQ ) ) header.set( GProtocol::CSEQ, message.get( GProtocol::CSEQ ) );
    boost::asio::post( _pool,
                       [this, connection, upload, header, root = _config.logDirectory]
                       {
                           _write( *upload, root );
                           boost::asio::post( _io, [this, connection, upload, header]
                                              { _answer( connection, header, *upload ); } );
                       } );
}
void GLogRole::_write( Upload& upload, const GString& root )
{
    const auto size = static_cast<int64_t>( upload.bytes.size( ) );
    if( sizeBelow( root + "/" + upload.user ) + costOf( size ) > upload.userQuota )
    {
        upload.code = 507;
        return;
    }
    std::error_code none;
    const uintmax_t replaced = std::filesystem::file_size( upload.directory + "/" + upload.name, none );
    if( !writeFile( upload.directory, upload.name, upload.bytes, upload.error ) )
        upload.code = 500;
    else if( !none )
        upload.freed = costOf( static_cast<int64_t>( replaced ) );
}
void GLogRole::_answer( const GStreamServer::Connection& connection, const GHTTPHeaders& request, const Upload& upload )
{
    const bool good = upload.code == GHTTP_SUCCESS;
    const auto size = static_cast<int64_t>( upload.bytes.size( ) );
    if( !upload.directory.empty( ) )
    {
        --_pending;
        _stored -= good ? upload.freed : costOf( size );
    }
    GLOGPLAIN( u"logfile from=", connection->remoteHost( ), u" path='",
               upload.directory.empty( ) ? GString( ) : upload.directory + "/" + upload.name, u"' bytes=", size,
               u" result=", upload.code, upload.error.empty( ) ? u"" : u" text=", upload.error );
    _metrics.count( "log", "LOGFILE", std::to_string( upload.code ) );
    connection->send( GServerMessage::compose( request, upload.code, good ? u"OK" : u"Refused" ) );
    connection->setBusy( false );
    connection->finish( );
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
