// The system's only contact with sockets: UDP ports, TCP sockets, UPnP mappings, a poll over them, the machine's addresses.
// All sockets are IPv4 and non-blocking; failures show as a null result, false, or an alive flag that goes false, never as an
// exception. A host is wide text "ip:port"; "0.0.0.0:0" means no host. Records have no lock: their owner serialises use.
// While GIsShuttingDown( ) every operation does nothing after its preconditions and gives its failure result: a crash report never
// waits for the network. What a record tells of itself (alive flag, stored host, MTU) can still be read.
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

// Null, and a warning, when the host can't be resolved or bound. Port 0 lets the system choose; the record shows its choice.
// The caller owns the record until GNetUDPPortClose.
GNetUDPPort* GNetUDPPortOpen( const GWString& localHost );
int GNetUDPPortGetMTU( const GNetUDPPort* port ); // Always 1472.
bool GNetUDPPortIsAlive( const GNetUDPPort* port );
GWString GNetUDPPortGetLocalHost( const GNetUDPPort* port );
void GNetUDPPortClose( GNetUDPPort* port );
// One datagram and its sender; false, and both empty, when there is none. Takes nothing from the heap once both have grown.
bool GNetUDPPortRecv( GNetUDPPort* port, GString& buffer, GWString& remoteHost );
// One datagram; failures are logged. Takes nothing from the heap for a dotted host. A name is looked up and blocks: text from the
// network is tested with GNetIsUnicastHost before it comes here.
void GNetUDPPortSend( GNetUDPPort* port, const GWString& remoteHost, const char* buffer, int length );
// A datagram to be sent by GNetUDPPortSendBatch; both texts are borrowed for the call.
struct GNetOutgoing
{
    GWStringView remoteHost;
    std::string_view bytes;
};
// Room for a received datagram; it is meant to be used again and keeps what it has grown to.
struct GNetDatagram
{
    GWString remoteHost;
    GString buffer;
};
// Up to `count` datagrams as GNetUDPPortRecv gives them, by few system calls: how many came, in their order, in the first records;
// what the others hold is left alone. A datagram without a byte is passed over. Fewer than `count` mean that nothing is left by now.
int GNetUDPPortRecvBatch( GNetUDPPort* port, GNetDatagram* const* datagrams, int count );
// The datagrams in their order as GNetUDPPortSend sends each, by few system calls; a failure of one is logged and the next one goes.
void GNetUDPPortSendBatch( GNetUDPPort* port, const GNetOutgoing* datagrams, int count );
// Datagrams above 5888 bytes are read whole when set, up to 65,535 bytes; otherwise they are cut.
void GNetUDPPortSetLargeReads( GNetUDPPort* port, bool large );
// A send error marks the datagram, not the port, unless the socket itself is broken.
void GNetUDPPortSetForgiving( GNetUDPPort* port, bool forgiving );

// Waits until something can be read, at most `timeout` microseconds (precondition "timeout >= 0"), and tells whether anything was
// seen, not where. Dead sources are skipped and at most the first 64 live ones enter; without any it sleeps the whole time-out.
bool GNetWait( const GNetSourceList& a, const GNetSourceList& b, const GNetSourceList& c, int64_t timeout );

// Alive before the connection stands: one that is refused shows later. Null when the host can't be resolved. The caller owns the
// record until GNetTCPSocketClose.
GNetTCPSocket* GNetTCPSocketOpen( const GWString& remoteHost );
// The local end as it is now; "0.0.0.0:0" on failure.
GWString GNetTCPSocketGetLocalHost( GNetTCPSocket* socket );
// Bytes that went, by one call: 0 when the connection is busy or has failed.
int GNetTCPSocketSend( GNetTCPSocket* socket, const char* buffer, int length );
// Appends what has arrived, 16 MiB at most in one call; true when that is at least one byte.
bool GNetTCPSocketRecv( GNetTCPSocket* socket, GString& buffer );
// Closes the sending side alone.
void GNetTCPSocketShutdown( GNetTCPSocket* socket );
bool GNetTCPSocketIsAlive( const GNetTCPSocket* socket );
void GNetTCPSocketClose( GNetTCPSocket* socket );

struct GNetUPnPMapping;
// A random external port from `lowPort` up to, not with, `highPort` (precondition "lowPort < highPort") mapped to the local host;
// null without a gateway or after five refusals. May take seconds: never on the user-interface thread.
GNetUPnPMapping* GNetUPnPMappingOpen( const GWString& localHost, int lowPort, int highPort );
// "address:port" as seen outside; "0.0.0.0:0" when the gateway tells no public address.
GWString GNetUPnPMappingGetGlobalHost( const GNetUPnPMapping* mapping );
void GNetUPnPMappingClose( GNetUPnPMapping* mapping );

// The IPv4 addresses that the machine's own name stands for, in the resolver's order; true if there is any. A blocking look-up.
bool GNetListIPs( GStringList& list );
// The addresses of the interfaces that are up, without a look-up; loopback only when there is no other.
bool GNetListInterfaceIPs( GStringList& list );

// ---- Host text.
// Splits at the colon; false when either half is missing or the port is not 1 to 65535.
bool GNetSplitHost( const GWString& host, GWString& address, int& port );
// Four decimal numbers without leading zeros as an address in host order; false when it is not one.
bool GNetParseAddress( GWStringView address, uint32_t& value );
// Writes "ip:port" into `host`; takes nothing from the heap once that has grown.
void GNetComposeHost( uint32_t address, int port, GWString& host );
// Text that may be looked up as a name: 1 to 253 letters, digits, "-", "_" and ".".
bool GNetIsName( GWStringView text );
// A route target that a stranger may name: unicast, with a port, no broadcast or multicast.
bool GNetIsUnicastHost( GWStringView host );
bool GNetIsLoopbackHost( GWStringView host );
// A unicast host that the internet can know: in none of the ranges for inside use.
bool GNetIsPublicHost( GWStringView host );
