// The system's only contact with sockets: UDP ports, TCP sockets, UPnP mappings, a poll over them, the machine's addresses.
// All sockets are IPv4 and non-blocking; failures show as a null result, false, or an alive flag that goes false, never as an
// exception. A host is wide text "ip:port"; "0.0.0.0:0" means no host. Records have no lock: their owner serialises use.
// While GIsShuttingDown( ) every operation gives its failure result after its preconditions.
#pragma once

#include "base/GTypes.h"

// What GNetWait polls; ports and sockets share it.
struct GNetSource
{
    int handle = -1;
    bool alive = false;
    GWString host; // A port's local host, a socket's remote host.
};
struct GNetUDPPort : GNetSource
{
    bool largeReads = false; // GNetUDPPortSetLargeReads
    bool forgiving = false;  // GNetUDPPortSetForgiving
};
struct GNetTCPSocket : GNetSource
{
};
using GNetSourceList = std::vector<GNetSource*>;

GNetUDPPort* GNetUDPPortOpen( const GWString& localHost );
int GNetUDPPortGetMTU( const GNetUDPPort* port ); // Always 1472.
bool GNetUDPPortIsAlive( const GNetUDPPort* port );
GWString GNetUDPPortGetLocalHost( const GNetUDPPort* port );
void GNetUDPPortClose( GNetUDPPort* port );
bool GNetUDPPortRecv( GNetUDPPort* port, GString& buffer, GWString& remoteHost );
void GNetUDPPortSend( GNetUDPPort* port, const GWString& remoteHost, const char* buffer, int length );
// Datagrams above 5888 bytes are read whole when set; the receive buffer then holds 65,535 bytes.
void GNetUDPPortSetLargeReads( GNetUDPPort* port, bool large );
// A send error marks the datagram, not the port, unless the socket itself is broken.
void GNetUDPPortSetForgiving( GNetUDPPort* port, bool forgiving );

// Waits until something can be read, at most `timeout` microseconds (precondition "timeout >= 0"). At most 64 sources enter.
bool GNetWait( const GNetSourceList& a, const GNetSourceList& b, const GNetSourceList& c, int64_t timeout );

GNetTCPSocket* GNetTCPSocketOpen( const GWString& remoteHost );
GWString GNetTCPSocketGetLocalHost( GNetTCPSocket* socket );
int GNetTCPSocketSend( GNetTCPSocket* socket, const char* buffer, int length );
bool GNetTCPSocketRecv( GNetTCPSocket* socket, GString& buffer );
void GNetTCPSocketShutdown( GNetTCPSocket* socket );
bool GNetTCPSocketIsAlive( const GNetTCPSocket* socket );
void GNetTCPSocketClose( GNetTCPSocket* socket );

struct GNetUPnPMapping;
// A random external port in low .. high mapped to the local host; null without a gateway. May take seconds: never on the
// user-interface thread.
GNetUPnPMapping* GNetUPnPMappingOpen( const GWString& localHost, int lowPort, int highPort );
// "address:port" as seen outside; "0.0.0.0:0" when the gateway tells no public address.
GWString GNetUPnPMappingGetGlobalHost( const GNetUPnPMapping* mapping );
void GNetUPnPMappingClose( GNetUPnPMapping* mapping );

bool GNetListIPs( GStringList& list );

// ---- Host text.
// Splits at the colon; false when either half is missing or the port is not 1 to 65535.
bool GNetSplitHost( const GWString& host, GWString& address, int& port );
// Dotted address as four bytes in host order; false when it is not one.
bool GNetParseAddress( const GWString& address, uint32_t& value );
// A route target that a stranger may name: unicast, with a port, no broadcast or multicast.
bool GNetIsUnicastHost( const GWString& host );
bool GNetIsLoopbackHost( const GWString& host );
