// The way of datagrams through the shared port beside the bare system calls for batches: from the socket over the dispatch service to a
// consumer and back into the pool, and out of the port, straight and framed for the relay. Both sides of a case include what it takes to
// bring the datagrams there and to take them away again, by bare calls.
#include "Bench.h"

#include "client/signalling/GDispatchService.h"
#include "client/transport/GMegaPort.h"
#include "client/transport/GRTP.h"
#include "client/transport/GRelayFrame.h"
#include "runtime/GInstance.h"

#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr char SETTINGS[] = "bench_port_settings.ini";
constexpr int BATCH = 32;
constexpr size_t LENGTH = 1200;
constexpr char16_t GLOBAL_HOST[] = u"5.5.5.5:7000";
constexpr double MILLION = 1e-6;

void require( bool holds )
{
    if( !holds ) std::abort( );
}
sockaddr_in addressOf( const GWString& host )
{
    GWString ip;
    int port = 0;
    uint32_t value = 0;
    require( GNetSplitHost( host, ip, port ) && GNetParseAddress( ip, value ) );
    sockaddr_in address{ };
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl( value );
    address.sin_port = htons( static_cast<uint16_t>( port ) );
    return address;
}

// A batch of media packets and the bare calls that move it.
class Bare
{
public:
    Bare( ) : handle( ::socket( AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0 ) )
    {
        sockaddr_in address{ };
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
        socklen_t size = sizeof( address );
        require( ::bind( handle, reinterpret_cast<sockaddr*>( &address ), size ) == 0 );
        require( ::getsockname( handle, reinterpret_cast<sockaddr*>( &address ), &size ) == 0 );
        GNetComposeHost( ntohl( address.sin_addr.s_addr ), ntohs( address.sin_port ), host );
        packet.assign( LENGTH, 'x' );
        packet[0] = '\x80';
        packet[1] = GRTP_VIDEO;
    }
    ~Bare( ) { ::close( handle ); }
    Bare( const Bare& ) = delete;
    Bare& operator=( const Bare& ) = delete;

    void send( sockaddr_in to )
    {
        prepare( to );
        for( iovec& piece : pieces ) piece = { packet.data( ), LENGTH };
        require( ::sendmmsg( handle, messages.data( ), BATCH, 0 ) == BATCH );
    }
    // A busy machine may deliver late: all are waited for.
    void receive( )
    {
        sockaddr_in from{ };
        for( unsigned got = 0; got < BATCH; )
        {
            prepare( from );
            for( size_t i = 0; i < BATCH; ++i ) pieces[i] = { rooms[i].data( ), rooms[i].size( ) };
            const int count = ::recvmmsg( handle, messages.data( ), BATCH - got, 0, nullptr );
            if( count > 0 ) got += static_cast<unsigned>( count );
        }
    }

    int handle;
    GWString host;
    GString packet;

private:
    void prepare( sockaddr_in& address )
    {
        for( size_t i = 0; i < BATCH; ++i )
        {
            messages[i] = { };
            messages[i].msg_hdr.msg_name = &address;
            messages[i].msg_hdr.msg_namelen = sizeof( address );
            messages[i].msg_hdr.msg_iov = &pieces[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
    }
    std::array<std::array<char, 1472>, BATCH> rooms;
    std::array<iovec, BATCH> pieces;
    std::array<mmsghdr, BATCH> messages;
};

// A dispatch service that is on line: the hosts of its network are three ports here.
class Client
{
public:
    Client( )
    {
        service->lock( );
        for( GNetUDPPort*& host : hosts ) host = GNetUDPPortOpen( u"127.0.0.1:0" );
        instance.set( u"Local_IP", u"127.0.0.1" );
        instance.set( u"Local_User_GUID", u"me@velmora.local" );
        instance.set( u"Local_Device_GUID", u"device1" );
        instance.set( u"Disable_Connection_Timeout", 1 );
        instance.set( u"Robust_Signalling", 1 );
        instance.set( u"Global_STUN_Host_List",
                      GStringList{ hosts[0]->host, hosts[1]->host, hosts[2]->host, hosts[2]->host } );
        instance.set( u"Global_SIP_Host_List", GStringList{ hosts[0]->host } );
        GUPnPFunctions none;
        none.open = []( const GWString&, int, int ) -> GNetUPnPMapping* { return nullptr; };
        service->setUPnPFunctions( none );
        instance.enqueue( u"GDispatchService_commandQueue", GHTTPHeaders( u"CONNECT" ) );
        for( int i = 0; i < 1000 && service->getState( ) != GDispatchService::ONLINE; ++i )
        {
            service->pass( 1000 );
            answer( );
        }
        require( service->getState( ) == GDispatchService::ONLINE );
        address = addressOf( port.getLocalHost( ) );
    }
    ~Client( )
    {
        service->_bGThreadObject_safe_onShutdown( );
        service->unlock( );
        delete service;
        for( GNetUDPPort* host : hosts ) GNetUDPPortClose( host );
    }
    Client( const Client& ) = delete;
    Client& operator=( const Client& ) = delete;

    // The whole way of a batch that has been sent to it.
    void receive( int type )
    {
        for( int count = 0; count < BATCH; )
        {
            service->pass( 0 );
            for( ; GMegaPortBucket* bucket = port.getRTPBucket( type ); ++count ) port.returnEmptyBucket( bucket );
        }
    }

    GInstance instance{ GUTF8ToWide( SETTINGS ) };
    GMegaPort port{ u"me@velmora.local" };
    GDispatchService* service = GSAFENEW( GDispatchService, ( &instance, &port ) );
    sockaddr_in address{ };

private:
    void answer( )
    {
        GString data;
        GWString from;
        GHTTPHeaders request;
        while( GNetUDPPortRecv( hosts[0], data, from ) )
        {
            if( !request.deserialize( data ) ) continue;
            GHTTPHeaders response;
            response.setResponse( 200, u"OK" );
            response.set( u"CSeq", request.get( u"CSeq" ) );
            for( const GWStringView name : { u"Global-Host", u"Observed-Host", u"Reported-Host" } )
                response.set( name, GLOBAL_HOST );
            const GString bytes = response.serialize( );
            for( GNetUDPPort* host : hosts )
                if( host == hosts[0] || request.isMethod( u"STUN" ) )
                    GNetUDPPortSend( host, from, bytes.data( ), static_cast<int>( bytes.size( ) ) );
        }
    }
    std::array<GNetUDPPort*, 3> hosts{ };
};

void receiving( Bench::Suite& suite )
{
    Client client;
    Bare sender;
    Bare receiver;
    const sockaddr_in bareAddress = addressOf( receiver.host );
    const auto project = [&]
    {
        sender.send( client.address );
        client.receive( GRTP_VIDEO );
    };
    const auto bare = [&]
    {
        sender.send( bareAddress );
        receiver.receive( );
    };
    suite.rate( "receive, batches of 32", "M/s", BATCH * MILLION, { 0.7, 0.85 }, project, bare );
    suite.allocationsOf( "received datagram to its consumer and back", 0, project );
}

void sendingDirect( Bench::Suite& suite )
{
    GNetUDPPort* udp = GNetUDPPortOpen( u"127.0.0.1:0" );
    GMegaPort port( u"bench" );
    port.setUDPPort( udp );
    Bare sender;
    Bare receiver;
    const sockaddr_in address = addressOf( receiver.host );
    const std::vector<GNetOutgoing> batch( BATCH, { receiver.host, sender.packet } );
    const GWString from = port.getLocalHost( );
    const auto many = [&]
    {
        port.send( from, batch );
        receiver.receive( );
    };
    const auto bareMany = [&]
    {
        sender.send( address );
        receiver.receive( );
    };
    suite.rate( "send, batches of 32", "M/s", BATCH * MILLION, { 0.8, 0.95 }, many, bareMany );
    const auto one = [&]
    {
        for( int i = 0; i < BATCH; ++i ) port.send( from, receiver.host, sender.packet.data( ), LENGTH );
        receiver.receive( );
    };
    const auto bareOne = [&]
    {
        for( int i = 0; i < BATCH; ++i )
            require( ::sendto( sender.handle, sender.packet.data( ), LENGTH, 0,
                               reinterpret_cast<const sockaddr*>( &address ), sizeof( address ) ) == LENGTH );
        receiver.receive( );
    };
    suite.rate( "send, one by one, beside sendto", "M/s", BATCH * MILLION, { 0.8, 0.95 }, one, bareOne );
    suite.allocationsOf( "32 datagrams in a batch", 0, many );
    suite.allocationsOf( "32 datagrams one by one", 0, one );
    port.reset( );
    GNetUDPPortClose( udp );
}

// The relay's end of a connection, which takes what comes.
class Sink
{
public:
    Sink( ) : listener( ::socket( AF_INET, SOCK_STREAM, 0 ) )
    {
        sockaddr_in address{ };
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
        socklen_t size = sizeof( address );
        require( ::bind( listener, reinterpret_cast<sockaddr*>( &address ), size ) == 0 );
        require( ::listen( listener, 1 ) == 0 );
        require( ::getsockname( listener, reinterpret_cast<sockaddr*>( &address ), &size ) == 0 );
        GWString host;
        GNetComposeHost( ntohl( address.sin_addr.s_addr ), ntohs( address.sin_port ), host );
        socket = GNetTCPSocketOpen( host );
        handle = ::accept( listener, nullptr, nullptr );
        require( socket && handle >= 0 );
    }
    ~Sink( )
    {
        GNetTCPSocketClose( socket );
        ::close( handle );
        ::close( listener );
    }
    Sink( const Sink& ) = delete;
    Sink& operator=( const Sink& ) = delete;
    void take( size_t bytes )
    {
        while( bytes )
        {
            const ssize_t got = ::recv( handle, room.data( ), std::min( bytes, room.size( ) ), 0 );
            require( got > 0 );
            bytes -= static_cast<size_t>( got );
        }
    }
    GNetTCPSocket* socket = nullptr;
    int handle = -1;

private:
    int listener;
    std::array<char, 65536> room;
};

void sendingRelayed( Bench::Suite& suite )
{
    Sink sink;
    Sink bareSink;
    GMegaPort port( u"bench" );
    port.setRobust( true );
    port.setTCPSocket( sink.socket, GLOBAL_HOST );
    const GString packet( LENGTH, 'x' );
    const GWString to = u"192.168.100.100:50000";
    const std::vector<GNetOutgoing> batch( BATCH, { to, packet } );
    GString framed;
    for( int i = 0; i < BATCH; ++i ) GRelayFrameAppend( framed, to, packet );
    const auto relayed = [&]
    {
        port.send( { }, batch );
        sink.take( framed.size( ) );
    };
    const auto bare = [&]
    {
        require( ::send( bareSink.socket->handle, framed.data( ), framed.size( ), 0 ) ==
                 static_cast<ssize_t>( framed.size( ) ) );
        bareSink.take( framed.size( ) );
    };
    suite.rate( "send by the relay, 32 at once, beside one send of ready frames", "M/s", BATCH * MILLION, { 0.7, 0.9 },
                relayed, bare );
    suite.allocationsOf( "32 relayed datagrams", 0, relayed );
    port.reset( );
}
} // namespace

int main( int argc, char** argv )
{
    Bench::Suite suite( "port", argc, argv );
    receiving( suite );
    sendingDirect( suite );
    sendingRelayed( suite );
    std::remove( SETTINGS );
    return suite.finish( );
}
