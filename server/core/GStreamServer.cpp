#include "server/core/GStreamServer.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>

namespace
{
constexpr size_t BLOCK_SIZE = 16384;
constexpr std::string_view HEADER_END = "\r\n\r\n";
constexpr std::string_view CONTENT_LENGTH = "\r\nContent-Length:";
} // namespace

GStreamConnection::GStreamConnection( GStreamServer& server, boost::asio::ip::tcp::socket socket )
    : _server( server ), _socket( std::move( socket ) ), _idleTimer( server.io( ) ), _block( BLOCK_SIZE, '\0' ),
      _idleSeconds( server._limits.idleSeconds )
{
    boost::system::error_code code;
    const auto remote = _socket.remote_endpoint( code );
    _remoteHost = GEndpoint::compose( remote );
    _remoteAddress = remote.address( ).to_string( );
    _socket.set_option( boost::asio::ip::tcp::no_delay( true ), code );
    _socket.set_option( boost::asio::socket_base::keep_alive( true ), code );
}

void GStreamConnection::_start( )
{
    _restartIdle( );
    _read( );
}

void GStreamConnection::_read( )
{
    _socket.async_read_some( boost::asio::buffer( _block ),
                             [self = shared_from_this( )]( const boost::system::error_code& code, size_t length )
                             {
                                 if( !self->_socket.is_open( ) ) return;
                                 if( !code ) return self->_onRead( length );
                                 self->_ended = true;
                                 const bool answering =
                                     self->_busy || !self->_writing.empty( ) || !self->_queue.empty( );
                                 if( !answering || !self->_server._limits.halfClose ) return self->close( );
                                 if( !self->_busy ) self->finish( );
                             } );
}
void GStreamConnection::_onRead( size_t length )
{
    _restartIdle( );
    _received.append( _block, 0, length );
    if( _parse( ) && _socket.is_open( ) ) return _read( );
    if( !_socket.is_open( ) || _finishing ) return;
    _server._drop( "malformed" );
    close( );
}

// Hands out every whole message; false when what is there can't become one.
bool GStreamConnection::_parse( )
{
    size_t offset = 0;
    GHTTPHeaders message;
    while( _socket.is_open( ) && offset < _received.size( ) )
    {
        const char* begin = _received.data( ) + offset;
        const int taken = message.deserialize( begin, static_cast<int>( _received.size( ) - offset ) );
        if( !taken ) break;
        offset += static_cast<size_t>( taken );
        _server._onMessage( shared_from_this( ), message );
        if( _finishing ) return false;
    }
    _received.erase( 0, offset );
    const GStreamLimits& limits = _server._limits;
    if( _received.size( ) > limits.messageBytes ) return false;
    const size_t end = _received.find( HEADER_END );
    if( end == GString::npos ) return _received.size( ) <= limits.headerBytes;
    if( end > limits.headerBytes ) return false;
    // The header is whole: cut off from its content it must parse, and the content must be one that may come.
    const size_t mark = _received.find( CONTENT_LENGTH );
    if( mark >= end ) return false;
    int64_t total = 0;
    const size_t value = mark + CONTENT_LENGTH.size( );
    const GString sizes = _received.substr( value, _received.find( '\r', value ) - value );
    for( const GWString& size : GSplitList( GUTF8ToWide( sizes ) ) )
    {
        const int64_t part = GCalc( size );
        if( part < 0 || part > static_cast<int64_t>( limits.messageBytes ) ) return false;
        total += part;
        if( total > static_cast<int64_t>( limits.messageBytes ) ) return false;
    }
    return static_cast<int64_t>( _received.size( ) - end - HEADER_END.size( ) ) < total;
}

bool GStreamConnection::send( const GString& bytes )
{
    if( !_socket.is_open( ) ) return false;
    const size_t waiting = _queue.size( ) + _writing.size( );
    if( waiting && waiting + bytes.size( ) > _server._limits.queueBytes ) return false;
    _queue += bytes;
    if( _writing.empty( ) ) _write( );
    return true;
}
void GStreamConnection::_write( )
{
    if( _queue.empty( ) )
    {
        if( _finishing ) close( );
        return;
    }
    _writing.swap( _queue );
    boost::asio::async_write( _socket, boost::asio::buffer( _writing ),
                              [self = shared_from_this( )]( const boost::system::error_code& code, size_t )
                              {
                                  self->_writing.clear( );
                                  if( !self->_socket.is_open( ) ) return;
                                  if( code ) return self->close( );
                                  self->_restartIdle( );
                                  self->_write( );
                              } );
}
void GStreamConnection::finish( )
{
    _finishing = true;
    if( _writing.empty( ) ) _write( );
}
void GStreamConnection::setBusy( bool busy )
{
    _busy = busy;
    _restartIdle( );
    if( !busy && _ended ) finish( );
}

void GStreamConnection::setIdleSeconds( int64_t seconds )
{
    _idleSeconds = seconds;
    _restartIdle( );
}
void GStreamConnection::_restartIdle( )
{
    if( !_socket.is_open( ) ) return;
    _idleTimer.expires_after( std::chrono::seconds( _idleSeconds ) );
    _idleTimer.async_wait(
        [weak = weak_from_this( )]( const boost::system::error_code& code )
        {
            const auto self = weak.lock( );
            if( code || !self || self->_busy || !self->_socket.is_open( ) ) return;
            self->_server._drop( "idle" );
            self->close( );
        } );
}
void GStreamConnection::close( )
{
    if( !_socket.is_open( ) ) return;
    const auto self = shared_from_this( );
    boost::system::error_code ignored;
    _idleTimer.cancel( ignored );
    _socket.shutdown( boost::asio::ip::tcp::socket::shutdown_both, ignored );
    _socket.close( ignored );
    _server._onClosed( self );
}

GStreamServer::GStreamServer( boost::asio::io_context& io, const GStreamLimits& limits )
    : _io( io ), _acceptor( io ), _retryTimer( io ), _limits( limits )
{
}
GStreamServer::~GStreamServer( )
{
    _onClose = nullptr;
    closeAll( );
}

bool GStreamServer::open( const GString& host, GString& error )
{
    boost::asio::ip::tcp::endpoint local;
    boost::system::error_code code;
    if( !GEndpoint::parse( host, local ) )
    {
        error = "'" + host + "' is no host";
        return false;
    }
    _acceptor.open( boost::asio::ip::tcp::v4( ), code );
    // A restarted server takes its port back from connections of the last run that still linger.
    if( !code ) _acceptor.set_option( boost::asio::socket_base::reuse_address( true ), code );
    if( !code ) _acceptor.bind( local, code );
    if( !code ) _acceptor.listen( boost::asio::socket_base::max_listen_connections, code );
    if( code )
    {
        error = "can't listen on TCP " + host + ": " + code.message( );
        return false;
    }
    _host = GEndpoint::compose( _acceptor.local_endpoint( ) );
    return true;
}
void GStreamServer::start( MessageHandler onMessage, CloseHandler onClose, DropHandler onDrop )
{
    _onMessage = std::move( onMessage );
    _onClose = std::move( onClose );
    _onDrop = std::move( onDrop );
    _accept( );
}
void GStreamServer::stopAccepting( )
{
    boost::system::error_code ignored;
    _retryTimer.cancel( ignored );
    _acceptor.close( ignored );
}
void GStreamServer::closeAll( )
{
    stopAccepting( );
    const auto connections = _connections;
    for( const auto& [key, connection] : connections ) connection->close( );
}

void GStreamServer::_accept( )
{
    _acceptor.async_accept(
        [this]( const boost::system::error_code& code, boost::asio::ip::tcp::socket socket )
        {
            if( code == boost::asio::error::operation_aborted || !_acceptor.is_open( ) ) return;
            if( !code )
            {
                _onAccept( std::move( socket ) );
                return _accept( );
            }
            // Out of handles, most likely: taking a breath lets some connections end.
            _drop( "full" );
            _retryTimer.expires_after( std::chrono::milliseconds( 100 ) );
            _retryTimer.async_wait(
                [this]( const boost::system::error_code& cancelled )
                {
                    if( !cancelled ) _accept( );
                } );
        } );
}
void GStreamServer::_onAccept( boost::asio::ip::tcp::socket socket )
{
    boost::system::error_code code;
    const GString address = socket.remote_endpoint( code ).address( ).to_string( );
    const auto found = _addressCounts.find( address );
    const int64_t count = found == _addressCounts.end( ) ? 0 : found->second;
    if( static_cast<int64_t>( _connections.size( ) ) >= _limits.connections || count >= _limits.connectionsPerAddress )
        return _drop( "full" );
    if( code ) return;
    ++_addressCounts[address];
    const auto connection = std::make_shared<GStreamConnection>( *this, std::move( socket ) );
    _connections.emplace( connection.get( ), connection );
    connection->_start( );
}
void GStreamServer::_onClosed( const Connection& connection )
{
    if( !_connections.erase( connection.get( ) ) ) return;
    const auto found = _addressCounts.find( connection->remoteAddress( ) );
    if( found != _addressCounts.end( ) && --found->second <= 0 ) _addressCounts.erase( found );
    if( _onClose ) _onClose( connection );
}
void GStreamServer::_drop( std::string_view reason )
{
    if( _onDrop ) _onDrop( reason );
}
