#include "server/core/GTlsFront.h"

#include <array>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>

namespace
{
namespace asio = boost::asio;
using Code = boost::system::error_code;
using Tcp = asio::ip::tcp;
using Local = asio::local::stream_protocol;

constexpr int64_t MAX_BEGINNING = 1024;
constexpr int64_t MAX_BEGINNING_OF_ADDRESS = 64;
constexpr auto BEGIN_TIME = std::chrono::seconds( 10 );
// Without a byte either way. The listener's own time is shorter; this one is for a peer that takes nothing.
constexpr auto QUIET_TIME = std::chrono::seconds( 120 );
constexpr unsigned char HANDSHAKE_RECORD = 0x16; // RFC 8446, 5.1: the content type that a TLS connection begins with.
} // namespace

// One connection on its way: it shows its first byte, shakes hands, and is then carried both ways until either side ends.
class GTlsFront::Tunnel : public std::enable_shared_from_this<Tunnel>
{
public:
    Tunnel( GTlsFront& front, Tcp::socket socket, const Tcp::endpoint& remote )
        : _front( front ), _context( front._context ), _stream( std::move( socket ), *_context ),
          _inner( front._server.io( ) ), _timer( front._server.io( ) ), _remote( remote )
    {
    }
    void start( )
    {
        _arm( BEGIN_TIME );
        _stream.next_layer( ).async_wait( Tcp::socket::wait_read, [self = shared_from_this( )]( const Code& code )
                                          { self->_onFirst( code ); } );
    }

private:
    void _onFirst( const Code& code )
    {
        unsigned char first = 0;
        if( code || ::recv( _stream.next_layer( ).native_handle( ), &first, 1, MSG_PEEK | MSG_DONTWAIT ) != 1 )
            return _end( "ended" );
        if( first == HANDSHAKE_RECORD )
            return _stream.async_handshake( asio::ssl::stream_base::server,
                                            [self = shared_from_this( )]( const Code& failed )
                                            { self->_onHandshake( failed ); } );
        if( _front._required ) return _end( "refused" );
        _begun( );
        _timer.cancel( );
        _over = true;
        --_front._tunnels;
        _front._server.adopt( std::move( _stream.next_layer( ) ), _remote );
    }
    void _onHandshake( const Code& code )
    {
        std::array<int, 2> pair{ };
        if( code || ::socketpair( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data( ) ) != 0 ) return _end( "failed" );
        Code ignored;
        _inner.assign( Local( ), pair[0], ignored );
        // The listener asks a socket only for bytes, which any stream has.
        Tcp::socket other( _front._server.io( ) );
        other.assign( Tcp::v4( ), pair[1], ignored );
        _begun( );
        _arm( QUIET_TIME );
        _front._count( "accepted" );
        _front._server.adopt( std::move( other ), _remote );
        _readOuter( );
        _readInner( );
    }

    void _readOuter( )
    {
        _stream.async_read_some( asio::buffer( _fromOuter ),
                                 [self = shared_from_this( )]( const Code& code, size_t length )
                                 {
                                     if( self->_over ) return;
                                     if( !code ) return self->_writeInner( length );
                                     Code ignored;
                                     self->_inner.shutdown( Local::socket::shutdown_send, ignored );
                                 } );
    }
    void _writeInner( size_t length )
    {
        _arm( QUIET_TIME );
        asio::async_write( _inner, asio::buffer( _fromOuter, length ),
                           [self = shared_from_this( )]( const Code& code, size_t )
                           {
                               if( !code && !self->_over ) self->_readOuter( );
                           } );
    }
    void _readInner( )
    {
        _inner.async_read_some( asio::buffer( _fromInner ),
                                [self = shared_from_this( )]( const Code& code, size_t length )
                                {
                                    if( self->_over ) return;
                                    if( code ) return self->_sayGoodbye( );
                                    self->_writeOuter( length );
                                } );
    }
    void _writeOuter( size_t length )
    {
        _arm( QUIET_TIME );
        asio::async_write( _stream, asio::buffer( _fromInner, length ),
                           [self = shared_from_this( )]( const Code& code, size_t )
                           {
                               if( self->_over ) return;
                               if( code ) return self->_end( { } );
                               self->_readInner( );
                           } );
    }
    void _sayGoodbye( )
    {
        _arm( BEGIN_TIME );
        _stream.async_shutdown( [self = shared_from_this( )]( const Code& ) { self->_end( { } ); } );
    }

    void _begun( )
    {
        if( !std::exchange( _isBegun, true ) ) _front._onBegun( _remote.address( ).to_string( ) );
    }
    void _end( std::string_view result )
    {
        if( std::exchange( _over, true ) ) return;
        _begun( );
        --_front._tunnels;
        if( !result.empty( ) ) _front._count( result );
        Code ignored;
        _timer.cancel( ignored );
        _stream.next_layer( ).close( ignored );
        _inner.close( ignored );
    }
    void _arm( std::chrono::seconds time )
    {
        _timer.expires_after( time );
        _timer.async_wait(
            [weak = weak_from_this( )]( const Code& code )
            {
                const auto self = weak.lock( );
                if( !code && self ) self->_end( "idle" );
            } );
    }

    GTlsFront& _front;
    Context _context; // Lives as long as what was made of it.
    asio::ssl::stream<Tcp::socket> _stream;
    Local::socket _inner;
    asio::steady_timer _timer;
    Tcp::endpoint _remote;
    std::array<char, 16384> _fromOuter;
    std::array<char, 16384> _fromInner;
    bool _isBegun = false;
    bool _over = false;
};

GTlsFront::Context GTlsFront::load( const GString& certificate, const GString& key, GString& error )
{
    const auto context = std::make_shared<asio::ssl::context>( asio::ssl::context::tls_server );
    Code code;
    const auto step = [&]( const char* what, const GString& file )
    {
        if( code && error.empty( ) ) error = GString( what ) + " '" + file + "': " + code.message( );
    };
    error.clear( );
    context->set_options( asio::ssl::context::no_tlsv1 | asio::ssl::context::no_tlsv1_1, code );
    if( !code ) context->use_certificate_chain_file( certificate, code );
    step( "tls_certificate", certificate );
    if( !code ) context->use_private_key_file( key, asio::ssl::context::pem, code );
    step( "tls_key", key );
    return code ? nullptr : context;
}

GTlsFront::GTlsFront( GStreamServer& server, GMetrics& metrics, std::string_view role )
    : _server( server ), _metrics( metrics ), _role( role )
{
    _server.setFront( [this]( Tcp::socket socket ) { _take( std::move( socket ) ); } );
}
void GTlsFront::setContext( Context context, bool required )
{
    _context = std::move( context );
    _required = required;
}

void GTlsFront::_take( Tcp::socket socket )
{
    Code code;
    const Tcp::endpoint remote = socket.remote_endpoint( code );
    if( code ) return;
    if( !_context ) return _server.adopt( std::move( socket ), remote );
    const GString address = remote.address( ).to_string( );
    if( _beginning >= MAX_BEGINNING || _beginningOf[address] >= MAX_BEGINNING_OF_ADDRESS ) return _count( "full" );
    ++_beginning;
    ++_beginningOf[address];
    ++_tunnels;
    std::make_shared<Tunnel>( *this, std::move( socket ), remote )->start( );
}
void GTlsFront::_onBegun( const GString& address )
{
    --_beginning;
    const auto found = _beginningOf.find( address );
    if( found != _beginningOf.end( ) && --found->second <= 0 ) _beginningOf.erase( found );
}
