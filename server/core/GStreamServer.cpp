#include "server/core/GStreamServer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace
{
constexpr size_t BLOCK_SIZE = 131072;
// A longer beginning of a message grows where it is instead of being copied before each read.
constexpr size_t MAX_COPIED = 32768;
// Room that a connection keeps for the next beginning, and for the next bytes that have to wait.
constexpr size_t MAX_KEPT = 16384;
constexpr std::string_view HEADER_END = "\r\n\r\n";
constexpr std::string_view CONTENT_LENGTH = "\r\nContent-Length:";
} // namespace

GStreamConnection::GStreamConnection( GStreamServer& server, boost::asio::ip::tcp::socket socket,
                                      const boost::asio::ip::tcp::endpoint& remote )
    : _server( server ), _socket( std::move( socket ) ), _idleTimer( server.io( ) ),
      _lastByte( std::chrono::steady_clock::now( ) ), _idleSeconds( server._limits.idleSeconds )
{
    boost::system::error_code code;
    _remoteHost = GEndpoint::compose( remote );
    _remoteAddress = remote.address( ).to_string( );
    _socket.set_option( boost::asio::ip::tcp::no_delay( true ), code );
    _socket.set_option( boost::asio::socket_base::keep_alive( true ), code );
    if( server._limits.sendBufferBytes > 0 )
        _socket.set_option( boost::asio::socket_base::send_buffer_size( server._limits.sendBufferBytes ), code );
}

void GStreamConnection::_start( )
{
    _armIdle( std::chrono::seconds( _idleSeconds ) );
    _read( );
}

void GStreamConnection::_read( )
{
    _socket.async_wait( boost::asio::ip::tcp::socket::wait_read,
                        [self = shared_from_this( )]( const boost::system::error_code& code )
                        {
                            if( !self->_socket.is_open( ) ) return;
                            if( code ) return self->close( );
                            self->_onReadable( );
                        } );
}
void GStreamConnection::_onReadable( )
{
    const bool copies = _received.size( ) <= MAX_COPIED;
    const size_t kept = _received.size( );
    if( copies )
        std::memcpy( _server._block.get( ), _received.data( ), kept );
    else
        _received.resize( kept + BLOCK_SIZE );
    char* data = copies ? _server._block.get( ) : _received.data( );
    const size_t room = copies ? BLOCK_SIZE - kept : BLOCK_SIZE;
    const ssize_t length = ::recv( _socket.native_handle( ), data + kept, room, MSG_DONTWAIT );
    const bool nothing = length < 0 && ( errno == EAGAIN || errno == EINTR );
    if( length <= 0 )
    {
        _received.resize( kept );
        return nothing ? _read( ) : _onEnd( );
    }
    _restartIdle( );
    const auto self = shared_from_this( );
    const size_t total = kept + static_cast<size_t>( length );
    const size_t taken = _handOut( data, total );
    if( _server._afterRead ) _server._afterRead( self );
    if( !_socket.is_open( ) || _finishing ) return;
    _keep( data + taken, total - taken );
    if( _canBecomeMessage( ) ) return _read( );
    _server._drop( "malformed" );
    close( );
}
// The other side sends no more.
void GStreamConnection::_onEnd( )
{
    _ended = true;
    const bool answering = _busy || !_queue.empty( );
    if( !answering || !_server._limits.halfClose ) return close( );
    if( !_busy ) finish( );
}

// Gives every whole message to its handler; the bytes that they made up.
size_t GStreamConnection::_handOut( const char* data, size_t length )
{
    const auto self = shared_from_this( );
    size_t offset = 0;
    while( _socket.is_open( ) && !_finishing && offset < length )
    {
        const char* begin = data + offset;
        size_t taken = _server._onFrame ? _server._onFrame( self, begin, length - offset ) : 0;
        if( !taken )
        {
            taken = static_cast<size_t>( _server._message.deserialize( begin, static_cast<int>( length - offset ) ) );
            if( taken ) _server._onMessage( self, _server._message );
        }
        if( !taken ) break;
        offset += taken;
    }
    return offset;
}
// What is left is the beginning of a message.
void GStreamConnection::_keep( const char* data, size_t length )
{
    if( !_received.empty( ) && data >= _received.data( ) && data <= _received.data( ) + _received.size( ) )
    {
        const auto begin = static_cast<size_t>( data - _received.data( ) );
        _received.resize( begin + length );
        _received.erase( 0, begin );
    }
    else
        _received.assign( data, length );
    if( _received.size( ) <= MAX_KEPT && _received.capacity( ) > MAX_KEPT ) _received.shrink_to_fit( );
}
bool GStreamConnection::_canBecomeMessage( ) const
{
    const GStreamLimits& limits = _server._limits;
    if( _received.size( ) > limits.messageBytes ) return false;
    const size_t end = _received.find( HEADER_END );
    if( end == GString::npos ) return _received.size( ) <= limits.headerBytes;
    if( end > limits.headerBytes ) return false;
    // The header is whole: cut off from its content it must parse, and the content must be one that may come.
    const size_t mark = _received.find( CONTENT_LENGTH );
    if( mark >= end ) return false;
    const size_t value = mark + CONTENT_LENGTH.size( );
    const GWString sizes =
        GUTF8ToWide( std::string_view( _received ).substr( value, _received.find( '\r', value ) - value ) );
    const auto most = static_cast<int64_t>( limits.messageBytes );
    int64_t total = 0;
    GWStringView size;
    for( size_t begin = 0; GSplitNext( sizes, begin, size ); )
    {
        const int64_t part = GCalc( size );
        if( part < 0 || part > most ) return false;
        total += part;
        if( total > most ) return false;
    }
    return static_cast<int64_t>( _received.size( ) - end - HEADER_END.size( ) ) < total;
}

bool GStreamConnection::hasRoom( size_t bytes ) const
{
    const size_t waiting = _queue.size( ) - _sent;
    return _socket.is_open( ) && ( !waiting || waiting + bytes <= _server._limits.queueBytes );
}
bool GStreamConnection::send( std::string_view bytes )
{
    if( !hasRoom( bytes.size( ) ) ) return false;
    if( _queue.empty( ) )
    {
        const ssize_t sent =
            ::send( _socket.native_handle( ), bytes.data( ), bytes.size( ), MSG_DONTWAIT | MSG_NOSIGNAL );
        // A broken connection ends where it is read.
        if( sent < 0 && errno != EAGAIN && errno != EINTR ) return false;
        bytes.remove_prefix( static_cast<size_t>( std::max<ssize_t>( sent, 0 ) ) );
        if( bytes.empty( ) ) return true;
        _awaitWritable( );
    }
    _queue.append( bytes );
    return true;
}
void GStreamConnection::_awaitWritable( )
{
    _socket.async_wait( boost::asio::ip::tcp::socket::wait_write,
                        [self = shared_from_this( )]( const boost::system::error_code& code )
                        {
                            if( !self->_socket.is_open( ) ) return;
                            if( code ) return self->close( );
                            self->_onWritable( );
                        } );
}
void GStreamConnection::_onWritable( )
{
    const ssize_t sent =
        ::send( _socket.native_handle( ), _queue.data( ) + _sent, _queue.size( ) - _sent, MSG_DONTWAIT | MSG_NOSIGNAL );
    if( sent < 0 && errno != EAGAIN && errno != EINTR ) return close( );
    if( sent > 0 ) _restartIdle( );
    _sent += static_cast<size_t>( std::max<ssize_t>( sent, 0 ) );
    if( _sent < _queue.size( ) )
    {
        if( _sent > _queue.size( ) / 2 )
        {
            _queue.erase( 0, _sent );
            _sent = 0;
        }
        return _awaitWritable( );
    }
    _queue.clear( );
    _sent = 0;
    if( _queue.capacity( ) > MAX_KEPT ) _queue.shrink_to_fit( );
    if( _finishing ) close( );
}
void GStreamConnection::finish( )
{
    _finishing = true;
    if( _queue.empty( ) ) close( );
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
    _armIdle( std::chrono::seconds( seconds ) );
}
// The timer looks for itself when the last byte came: setting it anew for each would cost more than the byte.
void GStreamConnection::_restartIdle( )
{
    _lastByte = std::chrono::steady_clock::now( );
}
void GStreamConnection::_armIdle( std::chrono::steady_clock::duration after )
{
    _idleTimer.expires_after( after );
    _idleTimer.async_wait(
        [weak = weak_from_this( )]( const boost::system::error_code& code )
        {
            const auto self = weak.lock( );
            if( code || !self || !self->_socket.is_open( ) ) return;
            if( self->_busy ) self->_restartIdle( );
            const auto limit = std::chrono::seconds( self->_idleSeconds );
            const auto passed = std::chrono::steady_clock::now( ) - self->_lastByte;
            if( passed < limit ) return self->_armIdle( limit - passed );
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
    : _io( io ), _acceptor( io ), _retryTimer( io ), _limits( limits ), _block( new char[BLOCK_SIZE] )
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
void GStreamServer::setFrameHandlers( FrameHandler onFrame, ReadHandler afterRead )
{
    _onFrame = std::move( onFrame );
    _afterRead = std::move( afterRead );
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
    const auto remote = socket.remote_endpoint( code );
    if( code ) return;
    if( _front ) return _front( std::move( socket ) );
    adopt( std::move( socket ), remote );
}
void GStreamServer::adopt( boost::asio::ip::tcp::socket socket, const boost::asio::ip::tcp::endpoint& remote )
{
    const GString address = remote.address( ).to_string( );
    const auto found = _addressCounts.find( address );
    const int64_t count = found == _addressCounts.end( ) ? 0 : found->second;
    if( static_cast<int64_t>( _connections.size( ) ) >= _limits.connections || count >= _limits.connectionsPerAddress )
        return _drop( "full" );
    ++_addressCounts[address];
    const auto connection = std::make_shared<GStreamConnection>( *this, std::move( socket ), remote );
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
