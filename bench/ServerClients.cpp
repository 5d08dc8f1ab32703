#include "ServerClients.h"

#include "server/core/GEndpoint.h"
#include "server/relay/GRelayFrame.h"

#include <array>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace
{
constexpr size_t FRAME = 1052;
constexpr size_t BATCH = 32;
constexpr int DEADLINE = 5000; // Milliseconds.
constexpr int LOSS = 10;
constexpr int DEVICES_A_USER = 16;

void put16( std::string& out, unsigned value )
{
    out += static_cast<char>( value >> 8 );
    out += static_cast<char>( value );
}
void put32( std::string& out, uint32_t value )
{
    put16( out, value >> 16 );
    put16( out, value & 0xFFFF );
}
constexpr uint32_t COOKIE = 0x2112A442; // RFC 5389, section 6.
std::string stunMessage( unsigned type, uint32_t number, const std::string& attributes )
{
    std::string out;
    put16( out, type );
    put16( out, static_cast<unsigned>( attributes.size( ) ) );
    for( const uint32_t word : { COOKIE, 7u, 7u, number } ) put32( out, word );
    return out + attributes;
}
// The next message of a stream of STUN messages.
std::string receiveStun( Bench::Socket& socket )
{
    const std::string head = socket.receiveExactly( 20 );
    return head + socket.receiveExactly(
                      static_cast<size_t>( static_cast<uint8_t>( head[2] ) << 8 | static_cast<uint8_t>( head[3] ) ) );
}
// The next header message of a stream; it has no content.
GHTTPHeaders receiveMessage( Bench::Socket& socket )
{
    std::string bytes;
    while( !bytes.ends_with( "\r\n\r\n" ) ) bytes += socket.receiveExactly( 1 );
    GHTTPHeaders message;
    message.deserialize( bytes );
    return message;
}
} // namespace

namespace Bench
{
sockaddr_in addressOf( const std::string& host )
{
    uint32_t address = 0;
    unsigned short port = 0;
    if( !GEndpoint::parse( host, address, port ) ) fail( "'" + host + "' is no host" );
    sockaddr_in out{ };
    out.sin_family = AF_INET;
    out.sin_addr.s_addr = htonl( address );
    out.sin_port = htons( port );
    return out;
}

Socket::Socket( int type ) : _handle( ::socket( AF_INET, type, 0 ) )
{
    const sockaddr_in local = addressOf( "127.0.0.1:0" );
    if( _handle < 0 || ::bind( _handle, reinterpret_cast<const sockaddr*>( &local ), sizeof( local ) ) )
        fail( "no socket" );
    setTimeout( DEADLINE );
    const int size = 4 << 20;
    if( ::setsockopt( _handle, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof( size ) ) )
        ::setsockopt( _handle, SOL_SOCKET, SO_RCVBUF, &size, sizeof( size ) );
}
Socket::Socket( int type, const std::string& connectedTo ) : Socket( type )
{
    const sockaddr_in remote = addressOf( connectedTo );
    if( ::connect( _handle, reinterpret_cast<const sockaddr*>( &remote ), sizeof( remote ) ) )
        fail( "can't reach " + connectedTo );
}
Socket::~Socket( )
{
    ::close( _handle );
}
std::string Socket::localHost( ) const
{
    sockaddr_in local{ };
    socklen_t size = sizeof( local );
    ::getsockname( _handle, reinterpret_cast<sockaddr*>( &local ), &size );
    return GEndpoint::compose( boost::asio::ip::address_v4( ntohl( local.sin_addr.s_addr ) ), ntohs( local.sin_port ) );
}
void Socket::setTimeout( int milliseconds )
{
    const timeval limit{ milliseconds / 1000, milliseconds % 1000 * 1000 };
    ::setsockopt( _handle, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof( limit ) );
}
void Socket::sendTo( const std::string& host, const std::string& bytes )
{
    const sockaddr_in to = addressOf( host );
    ::sendto( _handle, bytes.data( ), bytes.size( ), 0, reinterpret_cast<const sockaddr*>( &to ), sizeof( to ) );
}
void Socket::send( const std::string& bytes )
{
    for( size_t sent = 0; sent < bytes.size( ); )
    {
        const ssize_t length = ::send( _handle, bytes.data( ) + sent, bytes.size( ) - sent, MSG_NOSIGNAL );
        if( length <= 0 ) fail( "a connection broke" );
        sent += static_cast<size_t>( length );
    }
}
std::string Socket::receive( )
{
    std::string bytes( 65536, '\0' );
    const ssize_t length = ::recv( _handle, bytes.data( ), bytes.size( ), 0 );
    bytes.resize( static_cast<size_t>( std::max<ssize_t>( length, 0 ) ) );
    return bytes;
}
size_t Socket::receiveUpTo( std::string& bytes )
{
    size_t got = 0;
    while( got < bytes.size( ) )
    {
        const ssize_t part = ::recv( _handle, bytes.data( ) + got, bytes.size( ) - got, 0 );
        if( part <= 0 ) break;
        got += static_cast<size_t>( part );
    }
    return got;
}
std::string Socket::receiveExactly( size_t length )
{
    std::string bytes( length, '\0' );
    if( receiveUpTo( bytes ) < length ) fail( "a stream ended" );
    return bytes;
}

std::string message( const char16_t* method, int cseq, const std::vector<std::pair<GWString, std::string>>& headers )
{
    GHTTPHeaders out( method );
    if( cseq ) out.set( u"CSeq", GConcat( cseq, u" (bench)" ) );
    for( const auto& [name, value] : headers ) out.set( name, GUTF8ToWide( value ) );
    return out.serialize( );
}
std::string stunBinding( uint32_t number )
{
    return stunMessage( 0x0001, number, { } );
}
std::string sipRegister( const std::string& contact, int user, int cseq )
{
    const std::string name = "u" + std::to_string( user ) + "@127.0.0.1";
    const std::string number = std::to_string( cseq );
    return "REGISTER sip:127.0.0.1 SIP/2.0\r\nVia: SIP/2.0/UDP " + contact + ";branch=z9hG4bK" +
           std::to_string( user ) + "x" + number + ";rport\r\nMax-Forwards: 70\r\nFrom: <sip:" + name + ">;tag=t" +
           number + "\r\nTo: <sip:" + name + ">\r\nCall-ID: " + name + "\r\nCSeq: " + number +
           " REGISTER\r\nContact: <sip:u@" + contact + ">\r\nExpires: 900\r\nContent-Length: 0\r\n\r\n";
}

long ask( const std::string& host, const std::string& request, long count, int answersEach )
{
    static constexpr size_t SOCKETS = 8;
    std::vector<std::unique_ptr<Socket>> sockets;
    for( size_t i = 0; i < SOCKETS; ++i )
    {
        sockets.push_back( std::make_unique<Socket>( SOCK_DGRAM ) );
        sockets.back( )->setTimeout( 200 );
    }
    sockaddr_in to = addressOf( host );
    iovec part{ const_cast<char*>( request.data( ) ), request.size( ) };
    std::array<mmsghdr, BATCH> out{ };
    for( mmsghdr& one : out ) one.msg_hdr = { &to, sizeof( to ), &part, 1, nullptr, 0, 0 };
    std::vector<char> room( BATCH * 3 * 512 );
    std::vector<iovec> parts( BATCH * 3 );
    std::vector<mmsghdr> in( BATCH * 3 );
    for( size_t i = 0; i < in.size( ); ++i )
    {
        parts[i] = { room.data( ) + i * 512, 512 };
        in[i].msg_hdr.msg_iov = &parts[i];
        in[i].msg_hdr.msg_iovlen = 1;
    }
    const auto wanted = BATCH * static_cast<size_t>( answersEach );
    long answers = 0;
    for( long sent = 0; sent < count; sent += static_cast<long>( BATCH * SOCKETS ) )
    {
        for( const auto& socket : sockets ) ::sendmmsg( socket->handle( ), out.data( ), BATCH, 0 );
        for( const auto& socket : sockets )
            for( size_t got = 0; got < wanted; )
            {
                const int came = ::recvmmsg( socket->handle( ), in.data( ), static_cast<unsigned>( wanted - got ),
                                             MSG_WAITFORONE, nullptr );
                if( came <= 0 ) break; // Lost.
                got += static_cast<size_t>( came );
                answers += came;
            }
    }
    return answers;
}

std::string logOn( const std::string& logonHost, const std::string& name )
{
    Socket socket( SOCK_STREAM, logonHost );
    socket.send(
        message( u"AUTHENTICATE", 0,
                 { { u"From", name }, { u"Password", "secret" }, { u"Email", "a@b" }, { u"Version", "764" } } ) );
    const GHTTPHeaders answer = receiveMessage( socket );
    if( answer.getResponse( ) != GHTTP_SUCCESS ) fail( name + " can't log on" );
    return GWideToUTF8( answer.get( u"User-GUID" ) );
}

Devices::Devices( const std::string& logonHost, const std::string& signallingHost, int count ) : _host( signallingHost )
{
    static int nameNumber = 0;
    std::string user;
    for( int i = 0; i < count; ++i )
    {
        if( i % DEVICES_A_USER == 0 ) user = logOn( logonHost, "bench" + std::to_string( ++nameNumber ) );
        _sockets.push_back( std::make_unique<Socket>( SOCK_DGRAM ) );
        _sockets.back( )->sendTo( _host, message( u"DEVICEGUID", 1, { } ) );
        GHTTPHeaders answer;
        answer.deserialize( _sockets.back( )->receive( ) );
        _ids.push_back( user + "\n" + GWideToUTF8( answer.get( u"Device-GUID" ) ) );
    }
    registerAll( 1 );
}
std::string Devices::_register( size_t device ) const
{
    const size_t mark = _ids[device].find( '\n' );
    return message(
        u"REGISTER", _cseq,
        { { u"From", _ids[device].substr( 0, mark ) },
          { u"Device-GUID", _ids[device].substr( mark + 1 ) },
          { u"Version", "764" },
          { u"Route-List", "local://" + _sockets[device]->localHost( ) + ", unrestricted://198.51.100.7:40000" } } );
}
void Devices::registerAll( int atOnce )
{
    ++_cseq;
    for( size_t begin = 0; begin < _sockets.size( ); begin += static_cast<size_t>( atOnce ) )
    {
        const size_t end = std::min( begin + static_cast<size_t>( atOnce ), _sockets.size( ) );
        for( size_t i = begin; i < end; ++i ) _sockets[i]->sendTo( _host, _register( i ) );
        for( size_t i = begin; i < end; ++i )
            if( !_sockets[i]->receive( ).starts_with( "HTTP/1.1 200" ) ) fail( "a device was not registered" );
    }
}

SipUsers::SipUsers( const std::string& host, int count ) : _host( host )
{
    for( int i = 0; i < count; ++i ) _sockets.push_back( std::make_unique<Socket>( SOCK_DGRAM ) );
    registerAll( 1 );
}
void SipUsers::registerAll( int atOnce )
{
    ++_cseq;
    for( size_t begin = 0; begin < _sockets.size( ); begin += static_cast<size_t>( atOnce ) )
    {
        const size_t end = std::min( begin + static_cast<size_t>( atOnce ), _sockets.size( ) );
        for( size_t i = begin; i < end; ++i )
            _sockets[i]->sendTo( _host, sipRegister( _sockets[i]->localHost( ), static_cast<int>( i ), _cseq ) );
        for( size_t i = begin; i < end; ++i )
            if( !_sockets[i]->receive( ).starts_with( "SIP/2.0 200" ) ) fail( "a user was not registered" );
    }
}

RelayClient::RelayClient( const std::string& host )
    : _client( SOCK_STREAM, host ), _peer( SOCK_DGRAM ), _content( FRAME, 'x' )
{
}
long RelayClient::outward( long count )
{
    std::string burst;
    for( size_t i = 0; i < BATCH; ++i ) burst += frame( );
    for( long sent = 0; sent < count; sent += static_cast<long>( BATCH ) )
    {
        _client.send( burst );
        if( sent / static_cast<long>( BATCH ) % 32 == 31 ) roundTrip( );
        // The peer only has to take them.
        while( ::recv( _peer.handle( ), burst.data( ), 0, MSG_DONTWAIT | MSG_TRUNC ) >= 0 )
        {
        }
    }
    roundTrip( );
    return count;
}
long RelayClient::inward( long count )
{
    sockaddr_in to = addressOf( _relayed );
    iovec part{ _content.data( ), _content.size( ) };
    std::array<mmsghdr, BATCH> out{ };
    for( mmsghdr& one : out ) one.msg_hdr = { &to, sizeof( to ), &part, 1, nullptr, 0, 0 };
    // One batch on the way. A relay may drop some all the same; what it did not carry does not count.
    std::string bytes( relayedSize( ) * BATCH, '\0' );
    size_t carried = 0; // Bytes.
    _client.setTimeout( LOSS );
    for( long sent = 0; sent < count; sent += static_cast<long>( BATCH ) )
    {
        ::sendmmsg( _peer.handle( ), out.data( ), BATCH, 0 );
        carried += _client.receiveUpTo( bytes );
    }
    _client.setTimeout( DEADLINE );
    return static_cast<long>( carried / relayedSize( ) );
}

VelmoraRelayClient::VelmoraRelayClient( const std::string& logonHost, const std::string& relayHost )
    : RelayClient( relayHost )
{
    static int nameNumber = 0;
    logOn( logonHost, "relayed" + std::to_string( ++nameNumber ) );
    roundTrip( );
}
void VelmoraRelayClient::roundTrip( )
{
    _client.send( message( u"OPENTURN", 3, { } ) );
    _relayed = GWideToUTF8( receiveMessage( _client ).get( u"Global-Host" ) );
}
std::string VelmoraRelayClient::frame( ) const
{
    GHTTPHeaders out( u"SENDUDP" );
    out.set( u"Remote-Host", GUTF8ToWide( _peer.localHost( ) ) );
    out.addContent( _content );
    return out.serialize( );
}
size_t VelmoraRelayClient::relayedSize( ) const
{
    boost::asio::ip::udp::endpoint from;
    GEndpoint::parse( _peer.localHost( ), from );
    GString out;
    GRelayFrame::append( out, from, _content.data( ), _content.size( ) );
    return out.size( );
}

// RFC 5766: an allocation, and a channel to the peer.
TurnRelayClient::TurnRelayClient( const std::string& host ) : RelayClient( host )
{
    std::string attributes;
    put16( attributes, 0x0019 ); // REQUESTED-TRANSPORT: UDP.
    put16( attributes, 4 );
    put32( attributes, 17u << 24 );
    _client.send( stunMessage( 0x0003, 1, attributes ) );
    const std::string answer = receiveStun( _client );
    for( size_t at = 20; at + 12 <= answer.size( ); )
    {
        const auto byte = [&answer, at]( size_t i ) { return static_cast<uint8_t>( answer[at + i] ); };
        const size_t length = static_cast<size_t>( byte( 2 ) << 8 | byte( 3 ) );
        if( ( byte( 0 ) << 8 | byte( 1 ) ) == 0x0016 ) // XOR-RELAYED-ADDRESS.
            _relayed = "127.0.0.1:" + std::to_string( ( byte( 6 ) << 8 | byte( 7 ) ) ^ COOKIE >> 16 );
        at += 4 + ( length + 3 ) / 4 * 4;
    }
    if( _relayed.empty( ) ) fail( "no allocation" );
    const sockaddr_in peer = addressOf( _peer.localHost( ) );
    attributes.clear( );
    put16( attributes, 0x000C ); // CHANNEL-NUMBER.
    put16( attributes, 4 );
    put32( attributes, 0x4000u << 16 );
    put16( attributes, 0x0012 ); // XOR-PEER-ADDRESS.
    put16( attributes, 8 );
    put16( attributes, 1 );
    put16( attributes, ntohs( peer.sin_port ) ^ COOKIE >> 16 );
    put32( attributes, ntohl( peer.sin_addr.s_addr ) ^ COOKIE );
    _client.send( stunMessage( 0x0009, 2, attributes ) );
    if( receiveStun( _client ).substr( 0, 2 ) != "\x01\x09" ) fail( "no channel" );
}
std::string TurnRelayClient::frame( ) const
{
    std::string out;
    put16( out, 0x4000 );
    put16( out, static_cast<unsigned>( _content.size( ) ) );
    return out + _content;
}
void TurnRelayClient::roundTrip( )
{
    _client.send( stunBinding( 3 ) );
    receiveStun( _client );
}
} // namespace Bench
