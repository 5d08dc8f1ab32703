#include "server/core/GDatagramSocket.h"

#include <boost/asio/buffer.hpp>

#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

namespace
{
constexpr size_t SLOT_SIZE = 65536; // The longest datagram there is.
constexpr int KERNEL_BUFFER = 1 << 20;
// Other sockets get their turn after this many batches of one.
constexpr int MAX_BATCHES_A_TURN = 4;
// What the system cuts into datagrams in one piece.
constexpr size_t MAX_SEGMENTS = 64;
constexpr size_t MAX_SEGMENTED_BYTES = 65000;

// Room for one batch from the network. All sockets of a thread share it: a batch is over before the next one is received.
// Only pages that a datagram has touched take memory.
class Inbox
{
public:
    Inbox( ) : _slots( new char[GDatagramSocket::BATCH * SLOT_SIZE] )
    {
        for( size_t i = 0; i < _messages.size( ); ++i )
        {
            _parts[i] = { _slots.get( ) + i * SLOT_SIZE, SLOT_SIZE };
            _messages[i].msg_hdr.msg_iov = &_parts[i];
            _messages[i].msg_hdr.msg_iovlen = 1;
            _messages[i].msg_hdr.msg_name = sources[i].data( );
        }
    }
    // How many came; 0 when there is nothing, or only word of an earlier send that failed.
    size_t receive( int handle )
    {
        for( size_t i = 0; i < _messages.size( ); ++i )
            _messages[i].msg_hdr.msg_namelen = static_cast<socklen_t>( sources[i].capacity( ) );
        const int count =
            ::recvmmsg( handle, _messages.data( ), static_cast<unsigned>( _messages.size( ) ), MSG_DONTWAIT, nullptr );
        return static_cast<size_t>( std::max( count, 0 ) );
    }
    const char* data( size_t index ) const { return _slots.get( ) + index * SLOT_SIZE; }
    size_t length( size_t index ) const { return _messages[index].msg_len; }
    std::array<GDatagramSocket::Endpoint, GDatagramSocket::BATCH> sources;

private:
    std::unique_ptr<char[]> _slots;
    std::array<mmsghdr, GDatagramSocket::BATCH> _messages{ };
    std::array<iovec, GDatagramSocket::BATCH> _parts{ };
};
Inbox& inbox( )
{
    static thread_local Inbox box;
    return box;
}

// One batch to the network: messages of one datagram each, or of several that the system cuts.
class Outbox
{
public:
    void clear( ) { _count = _parts = 0; }
    bool full( ) const { return _count == GDatagramSocket::BATCH || _parts == MAX_PARTS; }
    void add( const GDatagramSocket::Datagram& datagram )
    {
        mmsghdr& message = _messages[_count];
        message = { };
        message.msg_hdr.msg_name = const_cast<void*>( static_cast<const void*>( datagram.to.data( ) ) );
        message.msg_hdr.msg_namelen = static_cast<socklen_t>( datagram.to.size( ) );
        message.msg_hdr.msg_iov = &_iovecs[_parts];
        message.msg_hdr.msg_iovlen = 1;
        _iovecs[_parts++] = { const_cast<char*>( datagram.data ), datagram.length };
        _bytes[_count] = datagram.length;
        ++_count;
    }
    // Appends to the last message when it goes the same way and its segments have this length, or are longer and this is the last.
    bool join( const GDatagramSocket::Datagram& before, const GDatagramSocket::Datagram& datagram )
    {
        if( !_count || _parts == MAX_PARTS || datagram.to != before.to || !datagram.length ) return false;
        msghdr& message = _messages[_count - 1].msg_hdr;
        const size_t segment = message.msg_iov[0].iov_len;
        if( before.length != segment || datagram.length > segment || message.msg_iovlen == MAX_SEGMENTS ||
            _bytes[_count - 1] + datagram.length > MAX_SEGMENTED_BYTES )
            return false;
        if( message.msg_iovlen == 1 ) _cut( _count - 1, segment );
        _iovecs[_parts++] = { const_cast<char*>( datagram.data ), datagram.length };
        _bytes[_count - 1] += datagram.length;
        ++message.msg_iovlen;
        return true;
    }
    // How many datagrams left. A message that can't leave is left out; when the way is full the rest is shed.
    size_t send( int handle )
    {
        size_t sent = 0;
        for( size_t next = 0; next < _count; )
        {
            const int count =
                ::sendmmsg( handle, &_messages[next], static_cast<unsigned>( _count - next ), MSG_DONTWAIT );
            for( int i = 0; i < count; ++i ) sent += _messages[next + static_cast<size_t>( i )].msg_hdr.msg_iovlen;
            if( count > 0 )
                next += static_cast<size_t>( count );
            else if( errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS )
                return sent;
            else if( errno != EINTR )
                sent += _sendSingly( handle, _messages[next++].msg_hdr );
        }
        return sent;
    }

private:
    static constexpr size_t MAX_PARTS = 512;
    void _cut( size_t index, size_t segment )
    {
        Control& control = _controls[index];
        control = { };
        msghdr& message = _messages[index].msg_hdr;
        message.msg_control = control.bytes;
        message.msg_controllen = sizeof( control.bytes );
        cmsghdr* header = CMSG_FIRSTHDR( &message );
        header->cmsg_level = SOL_UDP;
        header->cmsg_type = UDP_SEGMENT;
        header->cmsg_len = CMSG_LEN( sizeof( uint16_t ) );
        const auto length = static_cast<uint16_t>( segment );
        std::memcpy( CMSG_DATA( header ), &length, sizeof( length ) );
    }
    // A way that can't take a piece to be cut (its packets may be smaller than a segment) may still take the datagrams.
    size_t _sendSingly( int handle, const msghdr& message ) const
    {
        if( message.msg_iovlen < 2 ) return 0;
        size_t sent = 0;
        for( size_t i = 0; i < message.msg_iovlen; ++i )
            if( ::sendto( handle, message.msg_iov[i].iov_base, message.msg_iov[i].iov_len, MSG_DONTWAIT,
                          static_cast<const sockaddr*>( message.msg_name ), message.msg_namelen ) >= 0 )
                ++sent;
        return sent;
    }

    union Control
    {
        char bytes[CMSG_SPACE( sizeof( uint16_t ) )];
        cmsghdr alignment;
    };
    std::array<mmsghdr, GDatagramSocket::BATCH> _messages{ };
    std::array<Control, GDatagramSocket::BATCH> _controls{ };
    std::array<size_t, GDatagramSocket::BATCH> _bytes{ };
    std::array<iovec, MAX_PARTS> _iovecs{ };
    size_t _count = 0;
    size_t _parts = 0;
};
Outbox& outbox( )
{
    static thread_local Outbox box;
    return box;
}
} // namespace

GDatagramSocket::GDatagramSocket( boost::asio::io_context& io ) : _socket( io ) {}

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

void GDatagramSocket::start( Handler handler, BatchHandler afterBatch )
{
    _handler = std::move( handler );
    _afterBatch = std::move( afterBatch );
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
    Inbox& box = inbox( );
    for( int batches = 0; batches < MAX_BATCHES_A_TURN && _socket.is_open( ); ++batches )
    {
        const size_t count = box.receive( _socket.native_handle( ) );
        for( size_t i = 0; i < count && _socket.is_open( ); ++i )
            _handler( box.sources[i], box.data( i ), box.length( i ) );
        if( count && _afterBatch ) _afterBatch( );
        if( count < BATCH ) return; // What comes from now on wakes the socket again.
    }
}

bool GDatagramSocket::send( const Endpoint& to, const char* data, size_t length )
{
    const Datagram datagram{ to, data, length };
    return send( &datagram, 1 ) == 1;
}
bool GDatagramSocket::send( const GString& to, const GString& bytes )
{
    Endpoint endpoint;
    return GEndpoint::parse( to, endpoint ) && send( endpoint, bytes.data( ), bytes.size( ) );
}
size_t GDatagramSocket::send( const Datagram* datagrams, size_t count, bool segmented )
{
    size_t sent = 0;
    while( count && _socket.is_open( ) )
    {
        size_t taken = 0;
        sent += _sendBatch( datagrams, count, segmented, taken );
        datagrams += taken;
        count -= taken;
    }
    return sent;
}
size_t GDatagramSocket::_sendBatch( const Datagram* datagrams, size_t count, bool segmented, size_t& taken )
{
    Outbox& box = outbox( );
    box.clear( );
    for( ; taken < count; ++taken )
    {
        if( segmented && taken && box.join( datagrams[taken - 1], datagrams[taken] ) ) continue;
        if( box.full( ) ) break;
        box.add( datagrams[taken] );
    }
    return box.send( _socket.native_handle( ) );
}

void GDatagramSendAll( const std::vector<std::unique_ptr<GDatagramSocket>>& sockets, const GDatagramList& list )
{
    static thread_local std::vector<GDatagramSocket::Datagram> batch; // Keeps its room.
    for( size_t socket = 0; socket < sockets.size( ); ++socket )
    {
        batch.clear( );
        for( const GDatagramList::Item& item : list )
        {
            GDatagramSocket::Endpoint to;
            if( item.socket == socket && GEndpoint::parse( item.to, to ) )
                batch.push_back( { to, item.bytes.data( ), item.bytes.size( ) } );
        }
        if( !batch.empty( ) ) sockets[socket]->send( batch.data( ), batch.size( ) );
    }
}
