// The functions of GNet.h on a simulated network. Nothing waits here: whoever steps the programs knows when something has come.
#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GSimNet.h"
#include "platform/common/GNetBatch.h"
#include "platform/common/GNetLimits.h"

#include <algorithm>

using GNetLimits::MTU;
using GNetLimits::RECV_SIZE;

namespace
{
constexpr size_t MAX_IN_FLIGHT = 256 * 1024;
constexpr char16_t NO_HOST[] = u"0.0.0.0:0";

GSimNet& net( )
{
    GPRECONDITION( GSimNet::current( ) );
    return *GSimNet::current( );
}
// "ip:0" lets the network choose the port; GNetSplitHost takes no such host.
GSimEnd localEnd( const GWString& host )
{
    GSimEnd end;
    const size_t colon = std::min( host.find( u':' ), host.size( ) );
    if( !GNetParseAddress( GWStringView( host ).substr( 0, colon ), end.address ) ) return { };
    if( colon < host.size( ) ) end.port = static_cast<int>( GCalc( host.substr( colon + 1 ) ) );
    return end;
}
} // namespace

// ---- Datagrams.

GNetUDPPort* GNetUDPPortOpen( const GWString& localHost )
{
    GLOG( u"Opening port to host '", localHost, u"'" );
    const GSimEnd end = localEnd( localHost );
    const bool own = end.address == net( ).addressOfEntered( ) && GWITHIN( 0, end.port, 65535 );
    const int id = own ? net( ).openPort( net( ).getEntered( ), end.port, nullptr ) : -1;
    if( id < 0 )
    {
        GLOG( u"WARNING Could not bind port ", localHost, u", closing." );
        return nullptr;
    }
    GNetUDPPort* port = new GNetUDPPort;
    port->handle = id;
    port->alive = true;
    port->host = net( ).endOf( id ).text( );
    return port;
}

void GNetUDPPortClose( GNetUDPPort* port )
{
    GPRECONDITION( port );
    GLOG( u"Closing port bound to '", port->host, u"'" );
    net( ).closePort( port->handle );
    delete port;
}

bool GNetUDPPortRecv( GNetUDPPort* port, GString& buffer, GWString& remoteHost )
{
    GPRECONDITION( port );
    buffer.clear( );
    remoteHost.clear( );
    GSimNet::Port* record = net( ).findPort( port->handle );
    if( !port->alive || !record || record->inbox.empty( ) ) return false;
    buffer = record->inbox.front( ).second.substr( 0, port->largeReads ? GString::npos : RECV_SIZE );
    remoteHost = record->inbox.front( ).first.text( );
    record->inbox.pop_front( );
    return true;
}

void GNetUDPPortSend( GNetUDPPort* port, const GWString& remoteHost, const char* buffer, int length )
{
    GPRECONDITION_TEXT( port && buffer, "p && buffer" );
    if( !port->alive ) return;
    GVERIFY( length > 0 );
    if( length > MTU ) GLOG( u"WARNING Packet size (", length, u") exceeds recommended MTU (", MTU, u")" );
    const GSimEnd to = GSimEnd::of( remoteHost );
    if( !to.port )
    {
        GLOG( u"WARNING Could not resolve host '", remoteHost, u"', ignoring." );
        return;
    }
    net( ).sendFrom( port->handle, to, GString( buffer, static_cast<size_t>( std::max( length, 0 ) ) ) );
}

int GNetUDPPortRecvBatch( GNetUDPPort* port, GNetDatagram* const* datagrams, int count )
{
    return GNetRecvOneByOne( port, datagrams, count );
}

void GNetUDPPortSendBatch( GNetUDPPort* port, const GNetOutgoing* datagrams, int count )
{
    GNetSendOneByOne( port, datagrams, count );
}

// ---- Waiting. A program is stepped when something has come or its time is up, so this only looks.

bool GNetWait( const GNetSourceList& a, const GNetSourceList& b, const GNetSourceList& c, int64_t timeout )
{
    GPRECONDITION( timeout >= 0 );
    for( const GNetSourceList* list : { &a, &b, &c } )
        for( const GNetSource* source : *list )
        {
            if( !source || !source->alive ) continue;
            const GSimNet::Port* port = net( ).findPort( source->handle );
            if( port && !port->inbox.empty( ) ) return true;
            const GSimNet::Connection* connection = net( ).findConnection( source->handle );
            if( connection && ( connection->ended || !connection->inbox.empty( ) ) ) return true;
        }
    return false;
}

// ---- Connections.

GNetTCPSocket* GNetTCPSocketOpen( const GWString& remoteHost )
{
    GLOG( u"Opening socket to '", remoteHost, u"'" );
    const GSimEnd end = GSimEnd::of( remoteHost );
    if( !end.port )
    {
        GLOG( u"WARNING Could not resolve host '", remoteHost, u"', ignoring." );
        return nullptr;
    }
    GNetTCPSocket* socket = new GNetTCPSocket;
    socket->handle = net( ).connect( end );
    socket->alive = true;
    socket->host = remoteHost;
    return socket;
}

GWString GNetTCPSocketGetLocalHost( GNetTCPSocket* socket )
{
    GPRECONDITION( socket );
    const GSimNet::Connection* connection = net( ).findConnection( socket->handle );
    return connection ? connection->local.text( ) : GWString( NO_HOST );
}

int GNetTCPSocketSend( GNetTCPSocket* socket, const char* buffer, int length )
{
    GPRECONDITION( socket );
    if( !socket->alive || length < 1 ) return 0;
    const GSimNet::Connection* connection = net( ).findConnection( socket->handle );
    if( !connection || connection->ended )
    {
        GLOG( u"WARNING Connection failed on send, error 'Broken pipe'" );
        socket->alive = false;
        return 0;
    }
    const size_t room = MAX_IN_FLIGHT - std::min( MAX_IN_FLIGHT, connection->inFlight[0] );
    const size_t size = std::min( room, static_cast<size_t>( length ) );
    if( size > 0 ) net( ).sendToListener( socket->handle, GString( buffer, size ), false );
    return static_cast<int>( size );
}

bool GNetTCPSocketRecv( GNetTCPSocket* socket, GString& buffer )
{
    GPRECONDITION( socket );
    GSimNet::Connection* connection = net( ).findConnection( socket->handle );
    if( !socket->alive ) return false;
    const bool any = connection && !connection->inbox.empty( );
    if( any ) buffer += connection->inbox;
    if( connection ) connection->inbox.clear( );
    if( !connection || connection->ended ) socket->alive = false;
    return any;
}

void GNetTCPSocketShutdown( GNetTCPSocket* socket )
{
    GPRECONDITION( socket );
    if( !socket->alive ) return;
    GLOG( u"Shutting down socket '", socket->host, u"'" );
    net( ).sendToListener( socket->handle, { }, true );
}

void GNetTCPSocketClose( GNetTCPSocket* socket )
{
    GPRECONDITION( socket );
    GLOG( u"Closing socket '", socket->host, u"'" );
    net( ).letGo( socket->handle );
    delete socket;
}

// ---- Addresses.

bool GNetListIPs( GStringList& list )
{
    const GWString host = GSimEnd{ net( ).addressOfEntered( ), 1 }.text( );
    list = { host.substr( 0, host.find( u':' ) ) };
    return true;
}

bool GNetListInterfaceIPs( GStringList& list )
{
    return GNetListIPs( list );
}
