// Sockets by BSD calls. ECONNREFUSED stands beside ECONNRESET in the datagram filter: it is how an ICMP port-unreachable shows here.
#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GNet.h"
#include "platform/GThread.h"
#include "platform/common/GNetLimits.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using GNetLimits::MTU;
using GNetLimits::RECV_SIZE;

namespace
{
constexpr int LARGE_RECV_SIZE = 65535;
constexpr int BLOCK_SIZE = 2048;
constexpr int BATCH_SIZE = 32; // Datagrams a system call.
// Where a datagram of a batch begins; the room for the rest of a large one lies elsewhere, so that common ones stay close together.
constexpr int HEAD_SIZE = MTU;
constexpr size_t MAX_STREAM_BYTES =
    16 << 20; // In one call: a sender that is faster than we are never ends it otherwise.
constexpr size_t HOST_NAME_SIZE = 128;
// About as long as Win32 repeats what nobody confirms before it fails the connection; here it would be a quarter of an hour.
constexpr unsigned UNCONFIRMED_MILLISECONDS = 20000;
// An interface without a carrier keeps its address.
constexpr unsigned USABLE = IFF_UP | IFF_RUNNING;
constexpr size_t MAX_WAIT = 64;
constexpr char16_t NO_HOST[] = u"0.0.0.0:0";

// For log texts alone: the last call's error, of whichever thread.
std::atomic<int> lastError_ = 0;

GString describeLastError( )
{
    std::array<char, 256> buffer{ };
    return ::strerror_r( lastError_, buffer.data( ), buffer.size( ) );
}
GWString lastErrorText( )
{
    return GConcat( u" (", describeLastError( ), u")" );
}

// The error filters: true when the last call failed for good.
bool failedDatagram( )
{
    const int error = lastError_ = errno;
    return error != EWOULDBLOCK && error != EAGAIN && error != EINTR && error != ECONNRESET && error != ECONNREFUSED &&
           error != EHOSTUNREACH && error != ENOTCONN;
}
bool failedStream( )
{
    const int error = lastError_ = errno;
    return error != EWOULDBLOCK && error != EAGAIN && error != EINTR && error != EINPROGRESS && error != ENOTCONN;
}
// Of a port that forgives: true when the socket itself is of no use any more, whatever is sent.
bool isBroken( int error )
{
    return error == EBADF || error == ENOTSOCK || error == EINVAL;
}

// What a port needs to read many datagrams at once; pages that no large datagram has touched cost nothing.
struct BatchRoom
{
    std::array<std::array<char, HEAD_SIZE>, BATCH_SIZE> heads;
    std::array<std::array<char, LARGE_RECV_SIZE - HEAD_SIZE>, BATCH_SIZE> rests;
};
struct PosixUDPPort : GNetUDPPort
{
    std::unique_ptr<BatchRoom> room; // None before the first batch.
};

// A blocking look-up: the addresses of a name in the resolver's order, none when it stays unresolved.
std::vector<in_addr> lookUp( const char* name )
{
    hostent entry{ };
    hostent* found = nullptr;
    std::array<char, 8192> room;
    int error = 0;
    std::vector<in_addr> addresses;
    if( ::gethostbyname_r( name, &entry, room.data( ), room.size( ), &found, &error ) != 0 || !found ||
        found->h_length != sizeof( in_addr ) )
        return addresses;
    for( char** it = found->h_addr_list; *it; ++it )
    {
        in_addr address{ };
        std::memcpy( &address, *it, sizeof( address ) );
        addresses.push_back( address );
    }
    return addresses;
}

// Network order; 0 when the name stays unresolved.
in_addr_t resolve( GWStringView name )
{
    uint32_t dotted = 0;
    if( GNetParseAddress( name, dotted ) ) return htonl( dotted );
    // What can't be a name is not asked for: the answer would only come late.
    if( !GNetIsName( name ) ) return 0;
    const GString text = GWideToUTF8( name );
    const in_addr_t address = ::inet_addr( text.c_str( ) );
    if( address != 0 && address != INADDR_NONE ) return address;
    const std::vector<in_addr> found = lookUp( text.c_str( ) );
    return found.empty( ) ? 0 : found.front( ).s_addr;
}

sockaddr_in parseHost( GWStringView host )
{
    sockaddr_in address{ };
    address.sin_family = AF_INET;
    const size_t colon = std::min( host.find( u':' ), host.size( ) );
    if( colon < host.size( ) )
    {
        const int64_t port = GCalc( host.substr( colon + 1 ) );
        address.sin_port = htons( static_cast<uint16_t>( port > 0 && port <= 65535 ? port : 0 ) );
    }
    address.sin_addr.s_addr = resolve( host.substr( 0, colon ) );
    return address;
}

void composeHost( const sockaddr_in& address, GWString& host )
{
    GNetComposeHost( ntohl( address.sin_addr.s_addr ), ntohs( address.sin_port ), host );
}
GWString composeAddress( in_addr address )
{
    GWString host;
    GNetComposeHost( ntohl( address.s_addr ), 0, host );
    return host.substr( 0, host.find( u':' ) );
}

const sockaddr* generic( const sockaddr_in& address )
{
    return reinterpret_cast<const sockaddr*>( &address );
}

constexpr GWStringView NO_REUSE = u"WARNING Could not set REUSEADDR on port ";

bool setReuse( int handle )
{
    const int on = 1;
    return ::setsockopt( handle, SOL_SOCKET, SO_REUSEADDR, &on, sizeof( on ) ) == 0;
}

bool setNonBlocking( int handle )
{
    const int flags = ::fcntl( handle, F_GETFL );
    return flags >= 0 && ::fcntl( handle, F_SETFL, flags | O_NONBLOCK ) == 0;
}

// Logs "<before> <host><after> (<error>)" and closes a handle that is not worth keeping.
std::nullptr_t abandon( int handle, GWStringView before, const GWString& host, GWStringView after )
{
    lastError_ = errno;
    GLOG( before, host, after, lastErrorText( ) );
    if( handle >= 0 ) ::close( handle );
    return nullptr;
}
} // namespace

GNetUDPPort* GNetUDPPortOpen( const GWString& localHost )
{
    GCALL( GNetUDPPortOpen );
    if( GIsShuttingDown( ) ) return nullptr;
    GLOG( u"Opening port to host '", localHost, u"'" );
    sockaddr_in address = parseHost( localHost );
    if( !address.sin_addr.s_addr )
    {
        GLOG( u"WARNING Could not resolve host '", localHost, u"', ignoring." );
        return nullptr;
    }
    const int handle = ::socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP );
    if( handle < 0 ) return abandon( handle, u"WARNING Could not open port on ", localHost, u", ignoring." );
    // Linux gives the ports that it chooses itself to several sockets when all of them may share: such a port is bound first.
    const bool isNamed = address.sin_port != 0;
    if( isNamed && !setReuse( handle ) ) return abandon( handle, NO_REUSE, localHost, u", closing." );
    if( !setNonBlocking( handle ) )
        return abandon( handle, u"WARNING Could not set port ", localHost, u" to be non-blocking, closing." );
    if( ::bind( handle, generic( address ), sizeof( address ) ) != 0 )
        return abandon( handle, u"WARNING Could not bind port ", localHost, u", closing." );
    if( !isNamed && !setReuse( handle ) ) return abandon( handle, NO_REUSE, localHost, u", closing." );
    socklen_t size = sizeof( address );
    if( ::getsockname( handle, reinterpret_cast<sockaddr*>( &address ), &size ) != 0 )
        return abandon( handle, u"WARNING Could not 'getsockname' on port ", localHost, u", closing." );
    PosixUDPPort* port = new PosixUDPPort;
    port->handle = handle;
    port->alive = true;
    composeHost( address, port->host );
    return port;
}

void GNetUDPPortClose( GNetUDPPort* port )
{
    GCALL( GNetUDPPortClose );
    GPRECONDITION( port );
    if( GIsShuttingDown( ) ) return;
    GLOG( u"Closing port bound to '", port->host, u"'" );
    ::close( port->handle );
    delete static_cast<PosixUDPPort*>( port );
}

namespace
{
// A port whose socket is of no use any more is given up; what passes is not.
void failedToReceive( GNetUDPPort& port )
{
    const int error = errno;
    if( !failedDatagram( ) || ( port.forgiving && !isBroken( error ) ) ) return;
    GLOG( u"WARNING Error when receiving via port '", port.host, u", closing.", lastErrorText( ) );
    port.alive = false;
}

// One system call for `asked` datagrams, at most BATCH_SIZE: how many came. Those with a byte fill the records from `received` on.
int receiveBatch( GNetUDPPort& port, BatchRoom& room, int limit, int asked, GNetDatagram* const* datagrams,
                  int& received )
{
    std::array<sockaddr_in, BATCH_SIZE> addresses;
    std::array<std::array<iovec, 2>, BATCH_SIZE> pieces;
    std::array<mmsghdr, BATCH_SIZE> messages;
    for( size_t i = 0; i < static_cast<size_t>( asked ); ++i )
    {
        pieces[i] = { iovec{ room.heads[i].data( ), HEAD_SIZE },
                      iovec{ room.rests[i].data( ), static_cast<size_t>( limit - HEAD_SIZE ) } };
        messages[i] = { };
        messages[i].msg_hdr.msg_name = &addresses[i];
        messages[i].msg_hdr.msg_namelen = sizeof( sockaddr_in );
        messages[i].msg_hdr.msg_iov = pieces[i].data( );
        messages[i].msg_hdr.msg_iovlen = pieces[i].size( );
    }
    const int came = ::recvmmsg( port.handle, messages.data( ), static_cast<unsigned>( asked ), 0, nullptr );
    if( came < 0 ) failedToReceive( port );
    for( size_t i = 0; came > 0 && i < static_cast<size_t>( came ); ++i )
    {
        const size_t length = messages[i].msg_len;
        if( !length ) continue;
        GNetDatagram& datagram = *datagrams[received++];
        datagram.buffer.assign( room.heads[i].data( ), std::min<size_t>( length, HEAD_SIZE ) );
        if( length > HEAD_SIZE ) datagram.buffer.append( room.rests[i].data( ), length - HEAD_SIZE );
        composeHost( addresses[i], datagram.remoteHost );
    }
    return came;
}

// What is tested and told of a datagram before it is sent; false when it has no host to go to.
bool prepareToSend( GWStringView remoteHost, int64_t length, sockaddr_in& address )
{
    GVERIFY( length > 0 );
    if( length > MTU ) GLOG( u"WARNING Packet size (", length, u") exceeds recommended MTU (", MTU, u")" );
    address = parseHost( remoteHost );
    const bool hostIP = address.sin_addr.s_addr != 0;
    const bool hostPort = address.sin_port != 0;
    if( GVERIFY( hostIP && hostPort ) ) return true;
    GLOG( u"WARNING Could not resolve host '", remoteHost, u"', ignoring." );
    return false;
}

void failedToSend( GNetUDPPort& port )
{
    const int error = errno;
    if( !failedDatagram( ) ) return;
    const bool forgiven = port.forgiving && !isBroken( error );
    GLOG( u"WARNING Error when sending via port '", port.host, forgiven ? u", ignoring." : u", closing.",
          lastErrorText( ) );
    port.alive = forgiven;
}

void verifySent( size_t sent, size_t length )
{
    if( sent < length ) GLOG( u"WARNING Send buffer overflow; ", sent, u" of ", length, u" bytes sent, ignoring." );
}

// Sends all; a message that fails is told of and passed over.
void sendMessages( GNetUDPPort& port, mmsghdr* messages, size_t count )
{
    for( size_t i = 0; i < count && port.alive; )
    {
        const int sent = ::sendmmsg( port.handle, messages + i, static_cast<unsigned>( count - i ), MSG_NOSIGNAL );
        if( sent < 1 )
        {
            failedToSend( port );
            ++i;
            continue;
        }
        for( const size_t end = i + static_cast<size_t>( sent ); i < end; ++i )
            verifySent( messages[i].msg_len, messages[i].msg_hdr.msg_iov->iov_len );
    }
}
} // namespace

bool GNetUDPPortRecv( GNetUDPPort* port, GString& buffer, GWString& remoteHost )
{
    GPRECONDITION( port );
    buffer.clear( );
    remoteHost.clear( );
    if( GIsShuttingDown( ) || !port->alive ) return false;
    // Read aside and copied: a text that is sized to the largest datagram would be cleared in full each time.
    std::array<char, LARGE_RECV_SIZE> block;
    sockaddr_in address{ };
    socklen_t size = sizeof( address );
    const ssize_t length = ::recvfrom( port->handle, block.data( ), port->largeReads ? LARGE_RECV_SIZE : RECV_SIZE, 0,
                                       reinterpret_cast<sockaddr*>( &address ), &size );
    if( length < 0 ) failedToReceive( *port );
    if( length < 1 ) return false;
    buffer.assign( block.data( ), static_cast<size_t>( length ) );
    composeHost( address, remoteHost );
    return true;
}

int GNetUDPPortRecvBatch( GNetUDPPort* port, GNetDatagram* const* datagrams, int count )
{
    GPRECONDITION( port && datagrams );
    if( GIsShuttingDown( ) || !port->alive ) return 0;
    std::unique_ptr<BatchRoom>& room = static_cast<PosixUDPPort*>( port )->room;
    if( !room ) room = std::make_unique_for_overwrite<BatchRoom>( );
    const int limit = port->largeReads ? LARGE_RECV_SIZE : RECV_SIZE;
    int received = 0;
    for( int asked = 1, came = 1; came == asked && received < count; )
    {
        asked = std::min( count - received, BATCH_SIZE );
        came = receiveBatch( *port, *room, limit, asked, datagrams, received );
    }
    return received;
}

void GNetUDPPortSend( GNetUDPPort* port, const GWString& remoteHost, const char* buffer, int length )
{
    GPRECONDITION_TEXT( port && buffer, "p && buffer" );
    if( GIsShuttingDown( ) || !port->alive ) return;
    sockaddr_in address{ };
    if( !prepareToSend( remoteHost, length, address ) ) return;
    const size_t size = static_cast<size_t>( std::max( length, 0 ) );
    const ssize_t sent = ::sendto( port->handle, buffer, size, MSG_NOSIGNAL, generic( address ), sizeof( address ) );
    if( sent < 0 )
        failedToSend( *port );
    else
        verifySent( static_cast<size_t>( sent ), size );
}

void GNetUDPPortSendBatch( GNetUDPPort* port, const GNetOutgoing* datagrams, int count )
{
    GPRECONDITION( port && datagrams );
    if( GIsShuttingDown( ) ) return;
    std::array<sockaddr_in, BATCH_SIZE> addresses;
    std::array<iovec, BATCH_SIZE> pieces;
    std::array<mmsghdr, BATCH_SIZE> messages;
    for( int next = 0; next < count && port->alive; )
    {
        size_t used = 0;
        for( ; next < count && used < BATCH_SIZE; ++next )
        {
            const std::string_view bytes = datagrams[next].bytes;
            if( !prepareToSend( datagrams[next].remoteHost, static_cast<int64_t>( bytes.size( ) ), addresses[used] ) )
                continue;
            // The system only reads it.
            pieces[used] = { const_cast<char*>( bytes.data( ) ), bytes.size( ) };
            messages[used] = { };
            messages[used].msg_hdr.msg_name = &addresses[used];
            messages[used].msg_hdr.msg_namelen = sizeof( sockaddr_in );
            messages[used].msg_hdr.msg_iov = &pieces[used];
            messages[used].msg_hdr.msg_iovlen = 1;
            ++used;
        }
        sendMessages( *port, messages.data( ), used );
    }
}

bool GNetWait( const GNetSourceList& a, const GNetSourceList& b, const GNetSourceList& c, int64_t timeout )
{
    GPRECONDITION( timeout >= 0 );
    if( GIsShuttingDown( ) ) return false;
    std::array<pollfd, MAX_WAIT> set{ };
    size_t live = 0;
    for( const GNetSourceList* list : { &a, &b, &c } )
        for( const GNetSource* source : *list )
        {
            if( !source || !source->alive ) continue;
            if( live < MAX_WAIT ) set[live] = { source->handle, POLLIN, 0 };
            ++live;
        }
    if( !live )
    {
        GThreadSleep( timeout );
        return false;
    }
    const nfds_t count = std::min( live, MAX_WAIT );
    const timespec wait{ timeout / 1000000, timeout % 1000000 * 1000 };
    int ready = ::ppoll( set.data( ), count, &wait, nullptr );
    // A poll takes a closed handle for an event; here it is the failure of the whole call.
    for( nfds_t i = 0; ready > 0 && i < count; ++i )
        if( set[i].revents & POLLNVAL )
        {
            errno = EBADF;
            ready = -1;
        }
    if( ready < 0 && errno == EINTR ) return false;
    if( ready < 0 && failedDatagram( ) )
    {
        GLOG( u"WARNING Error while polling, resetting everything .", lastErrorText( ) );
        for( const GNetSourceList* list : { &a, &b, &c } )
            for( GNetSource* source : *list )
                if( source ) source->alive = false;
    }
    return ready != 0;
}

GNetTCPSocket* GNetTCPSocketOpen( const GWString& remoteHost )
{
    GCALL( GNetTCPSocketOpen );
    if( GIsShuttingDown( ) ) return nullptr;
    GVERIFY( GValidHost( remoteHost ) );
    GLOG( u"Opening socket to '", remoteHost, u"'" );
    const sockaddr_in address = parseHost( remoteHost );
    if( !address.sin_addr.s_addr )
    {
        GLOG( u"WARNING Could not resolve host '", remoteHost, u"', ignoring." );
        return nullptr;
    }
    const int handle = ::socket( AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP );
    if( handle < 0 ) return abandon( handle, u"WARNING Could not open socket to ", remoteHost, u", ignoring." );
    if( !setNonBlocking( handle ) )
        return abandon( handle, u"WARNING Could not set non-blocking mode on ", remoteHost, u", closing." );
    ::setsockopt( handle, IPPROTO_TCP, TCP_USER_TIMEOUT, &UNCONFIRMED_MILLISECONDS, sizeof( unsigned ) );
    if( ::connect( handle, generic( address ), sizeof( address ) ) != 0 && errno != EINPROGRESS &&
        errno != EWOULDBLOCK )
        return abandon( handle, u"WARNING Could not connect to ", remoteHost, u", closing." );
    GNetTCPSocket* socket = new GNetTCPSocket;
    socket->handle = handle;
    socket->alive = true;
    socket->host = remoteHost;
    return socket;
}

GWString GNetTCPSocketGetLocalHost( GNetTCPSocket* socket )
{
    GPRECONDITION( socket );
    if( GIsShuttingDown( ) ) return NO_HOST;
    sockaddr_in address{ };
    socklen_t size = sizeof( address );
    if( ::getsockname( socket->handle, reinterpret_cast<sockaddr*>( &address ), &size ) != 0 && failedStream( ) )
    {
        GLOG( u"WARNING Could not 'getsockname' on socket ", socket->host, u", closing.", lastErrorText( ) );
        return NO_HOST;
    }
    GWString host;
    composeHost( address, host );
    return host;
}

int GNetTCPSocketSend( GNetTCPSocket* socket, const char* buffer, int length )
{
    GPRECONDITION( socket );
    if( GIsShuttingDown( ) || !socket->alive || length < 1 ) return 0;
    const ssize_t numSent = ::send( socket->handle, buffer, static_cast<size_t>( length ), MSG_NOSIGNAL );
    if( numSent < 0 )
    {
        if( failedStream( ) )
        {
            GLOG( u"WARNING Connection failed on send, error '", describeLastError( ), u"'" );
            socket->alive = false;
        }
        return 0;
    }
    GVERIFY( numSent <= length );
    return static_cast<int>( numSent );
}

bool GNetTCPSocketRecv( GNetTCPSocket* socket, GString& buffer )
{
    GPRECONDITION( socket );
    if( GIsShuttingDown( ) ) return false;
    size_t received = 0;
    std::array<char, BLOCK_SIZE> block;
    while( socket->alive && received < MAX_STREAM_BYTES )
    {
        const ssize_t length = ::recv( socket->handle, block.data( ), block.size( ), 0 );
        if( length > 0 )
        {
            buffer.append( block.data( ), static_cast<size_t>( length ) );
            received += static_cast<size_t>( length );
        }
        else if( length == 0 || failedStream( ) )
            socket->alive = false;
        else
            break;
    }
    return received > 0;
}

void GNetTCPSocketShutdown( GNetTCPSocket* socket )
{
    GPRECONDITION( socket );
    if( GIsShuttingDown( ) || !socket->alive ) return;
    GLOG( u"Shutting down socket '", socket->host, u"'" );
    ::shutdown( socket->handle, SHUT_WR );
}

void GNetTCPSocketClose( GNetTCPSocket* socket )
{
    GCALL( GNetTCPSocketClose );
    GPRECONDITION( socket );
    if( GIsShuttingDown( ) ) return;
    GLOG( u"Closing socket '", socket->host, u"'" );
    ::shutdown( socket->handle, SHUT_RDWR );
    ::close( socket->handle );
    delete socket;
}

bool GNetListIPs( GStringList& list )
{
    list.clear( );
    if( GIsShuttingDown( ) ) return false;
    std::array<char, HOST_NAME_SIZE> name{ };
    if( ::gethostname( name.data( ), name.size( ) - 1 ) != 0 )
    {
        GLOG( u"WARNING Unable to 'gethostname', ignoring." );
        return false;
    }
    const std::vector<in_addr> addresses = lookUp( name.data( ) );
    if( addresses.empty( ) ) GLOG( u"WARNING Unable to 'gethostbyname', ignoring." );
    for( const in_addr address : addresses ) list.push_back( composeAddress( address ) );
    return !list.empty( );
}

bool GNetListInterfaceIPs( GStringList& list )
{
    list.clear( );
    if( GIsShuttingDown( ) ) return false;
    ifaddrs* interfaces = nullptr;
    if( ::getifaddrs( &interfaces ) != 0 )
    {
        lastError_ = errno;
        GLOG( u"WARNING Unable to list the interfaces, ignoring.", lastErrorText( ) );
        return false;
    }
    GStringList loopback;
    for( const ifaddrs* it = interfaces; it; it = it->ifa_next )
    {
        if( !it->ifa_addr || it->ifa_addr->sa_family != AF_INET || ( it->ifa_flags & USABLE ) != USABLE ) continue;
        sockaddr_in address{ };
        std::memcpy( &address, it->ifa_addr, sizeof( address ) );
        ( it->ifa_flags & IFF_LOOPBACK ? loopback : list ).push_back( composeAddress( address.sin_addr ) );
    }
    ::freeifaddrs( interfaces );
    if( list.empty( ) ) list = loopback;
    return !list.empty( );
}
