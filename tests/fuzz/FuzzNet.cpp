#include "FuzzNet.h"

#include "Fuzz.h"
#include "platform/common/GNetBatch.h"

namespace FuzzNet
{
World& world( )
{
    static World world;
    return world;
}
} // namespace FuzzNet

using FuzzNet::world;

// ---- All that a backend of the family has: the linker must find no reason to take the real one.
GNetUDPPort* GNetUDPPortOpen( const GWString& )
{
    Fuzz::require( !world( ).port );
    world( ).port = new GNetUDPPort;
    world( ).port->alive = true;
    world( ).port->host = FuzzNet::LOCAL_HOST;
    return world( ).port;
}
void GNetUDPPortClose( GNetUDPPort* port )
{
    Fuzz::require( port == world( ).port );
    world( ).port = nullptr;
    delete port;
}
bool GNetUDPPortRecv( GNetUDPPort* port, GString& buffer, GWString& remoteHost )
{
    buffer.clear( );
    remoteHost.clear( );
    if( !port->alive || world( ).inbox.empty( ) ) return false;
    buffer = world( ).inbox.front( ).buffer;
    remoteHost = world( ).inbox.front( ).remoteHost;
    world( ).inbox.pop_front( );
    return true;
}
void GNetUDPPortSend( GNetUDPPort* port, const GWString& remoteHost, const char* buffer, int length )
{
    Fuzz::require( port == world( ).port && length > 0 );
    if( port->alive && world( ).onSent )
        world( ).onSent( remoteHost, std::string_view( buffer, static_cast<size_t>( length ) ) );
}
int GNetUDPPortRecvBatch( GNetUDPPort* port, GNetDatagram* const* datagrams, int count )
{
    return GNetRecvOneByOne( port, datagrams, count );
}
void GNetUDPPortSendBatch( GNetUDPPort* port, const GNetOutgoing* datagrams, int count )
{
    GNetSendOneByOne( port, datagrams, count );
}

bool GNetWait( const GNetSourceList&, const GNetSourceList&, const GNetSourceList&, int64_t )
{
    return true;
}

GNetTCPSocket* GNetTCPSocketOpen( const GWString& remoteHost )
{
    Fuzz::require( !world( ).socket );
    world( ).socket = new GNetTCPSocket;
    world( ).socket->alive = true;
    world( ).socket->host = remoteHost;
    world( ).stream.clear( );
    world( ).streamEnds = false;
    ++world( ).connections;
    return world( ).socket;
}
GWString GNetTCPSocketGetLocalHost( GNetTCPSocket* )
{
    return u"127.0.0.1:5001";
}
int GNetTCPSocketSend( GNetTCPSocket* socket, const char* buffer, int length )
{
    Fuzz::require( socket == world( ).socket );
    if( !socket->alive || length < 1 ) return 0;
    const int taken = world( ).window ? std::min( length, world( ).window ) : length;
    if( world( ).onStreamed ) world( ).onStreamed( std::string_view( buffer, static_cast<size_t>( taken ) ) );
    return taken;
}
bool GNetTCPSocketRecv( GNetTCPSocket* socket, GString& buffer )
{
    if( !socket->alive ) return false;
    const bool any = !world( ).stream.empty( );
    buffer += world( ).stream;
    world( ).stream.clear( );
    if( world( ).streamEnds ) socket->alive = false;
    return any;
}
void GNetTCPSocketShutdown( GNetTCPSocket* ) {}
void GNetTCPSocketClose( GNetTCPSocket* socket )
{
    Fuzz::require( socket == world( ).socket );
    world( ).socket = nullptr;
    delete socket;
}

bool GNetListIPs( GStringList& list )
{
    list = { u"127.0.0.1" };
    return true;
}
bool GNetListInterfaceIPs( GStringList& list )
{
    return GNetListIPs( list );
}
