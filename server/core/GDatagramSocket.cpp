#include "server/core/GDatagramSocket.h"

#include <boost/asio/buffer.hpp>

namespace
{
constexpr size_t BUFFER_SIZE = 65536;
constexpr int KERNEL_BUFFER = 1 << 20;
// Other sockets get their turn after this many datagrams of one.
constexpr int MAX_A_TURN = 64;
} // namespace

GDatagramSocket::GDatagramSocket( boost::asio::io_context& io ) : _socket( io ), _buffer( BUFFER_SIZE, '\0' ) {}

bool GDatagramSocket::open( const GString& host, GString& error )
{
    Endpoint local;
    boost::system::error_code code;
    if( !GEndpoint::parse( host, local ) )
    {
        error = "'" + host + "' is no host";
        return false;
    }
    _socket.open( boost::asio::ip::udp::v4( ), code );
    if( !code ) _socket.bind( local, code );
    if( !code ) _socket.non_blocking( true, code );
    if( code )
    {
        error = "can't bind UDP " + host + ": " + code.message( );
        return false;
    }
    boost::system::error_code ignored; // The system may grant less.
    _socket.set_option( boost::asio::socket_base::receive_buffer_size( KERNEL_BUFFER ), ignored );
    _socket.set_option( boost::asio::socket_base::send_buffer_size( KERNEL_BUFFER ), ignored );
    _host = GEndpoint::compose( _socket.local_endpoint( ) );
    return true;
}

void GDatagramSocket::start( Handler handler )
{
    _handler = std::move( handler );
    _receive( );
}
void GDatagramSocket::close( )
{
    boost::system::error_code ignored;
    _socket.close( ignored );
}

void GDatagramSocket::_receive( )
{
    _socket.async_wait( boost::asio::ip::udp::socket::wait_read,
                        [this]( const boost::system::error_code& code )
                        {
                            if( code == boost::asio::error::operation_aborted || !_socket.is_open( ) ) return;
                            _drain( );
                            if( _socket.is_open( ) ) _receive( );
                        } );
}
void GDatagramSocket::_drain( )
{
    for( int i = 0; i < MAX_A_TURN && _socket.is_open( ); ++i )
    {
        boost::system::error_code code;
        const size_t length = _socket.receive_from( boost::asio::buffer( _buffer ), _from, 0, code );
        if( code == boost::asio::error::would_block ) return;
        // An ICMP answer to an earlier send shows here; the socket goes on.
        if( !code ) _handler( _from, _buffer.data( ), length );
    }
}

bool GDatagramSocket::send( const Endpoint& to, const char* data, size_t length )
{
    boost::system::error_code code;
    _socket.send_to( boost::asio::buffer( data, length ), to, 0, code );
    return !code;
}
bool GDatagramSocket::send( const GString& to, const GString& bytes )
{
    Endpoint endpoint;
    return GEndpoint::parse( to, endpoint ) && send( endpoint, bytes.data( ), bytes.size( ) );
}
