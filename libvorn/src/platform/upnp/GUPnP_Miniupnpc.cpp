#include "base/GRandom.h"
#include "base/GUtil.h"
#include "platform/GNet.h"

#include <miniupnpc/miniupnpc.h>
#include <miniupnpc/upnpcommands.h>
#include <miniupnpc/upnperrors.h>

struct GNetUPnPMapping
{
    UPNPUrls urls; // pNAT: the gateway's addresses.
    IGDdatas data; // pMapping: its collection of mappings.
    GString port;  // pSPM: the external port of our entry.
    GWString globalHost = u"0.0.0.0:0";
    bool isPublic = false;
};

namespace
{
constexpr int DISCOVERY_MS = 1000;
constexpr unsigned char TTL = 2;
constexpr int TRIES = 5;
// What the library found: a gateway with a public address, or one that stands behind another or waits for its line.
constexpr int PUBLIC_GATEWAY = 1;
constexpr int OTHER_GATEWAY = 2;
constexpr char DESCRIPTION[] = "Velmora";

// Finds the gateway; null when there is none. Asking from the port's own address finds that of the right network on a machine
// with several.
GNetUPnPMapping* findGateway( const GString& localIP )
{
    int error = 0;
    UPNPDev* devices = upnpDiscover( DISCOVERY_MS, localIP.c_str( ), nullptr, UPNP_LOCAL_PORT_ANY, 0, TTL, &error );
    if( !devices ) return nullptr;
    // The record starts as zeros: the library frees what it finds in it.
    auto* mapping = new GNetUPnPMapping( );
    char lanAddress[64] = { };
#if MINIUPNPC_API_VERSION >= 18
    char wanAddress[64] = { };
    const int found = UPNP_GetValidIGD( devices, &mapping->urls, &mapping->data, lanAddress, sizeof( lanAddress ),
                                        wanAddress, sizeof( wanAddress ) );
#else
    const int found = UPNP_GetValidIGD( devices, &mapping->urls, &mapping->data, lanAddress, sizeof( lanAddress ) );
#endif
    freeUPNPDevlist( devices );
    mapping->isPublic = found == PUBLIC_GATEWAY;
    if( found == PUBLIC_GATEWAY || found == OTHER_GATEWAY ) return mapping;
    if( found ) FreeUPNPUrls( &mapping->urls );
    delete mapping;
    return nullptr;
}

void release( GNetUPnPMapping* mapping )
{
    FreeUPNPUrls( &mapping->urls );
    delete mapping;
}

bool add( GNetUPnPMapping* mapping, const GString& localIP, const GString& localPort )
{
    const char* control = mapping->urls.controlURL;
    const char* service = mapping->data.first.servicetype;
    // An entry of an earlier run may stand there; that there is none is no failure.
    UPNP_DeletePortMapping( control, service, mapping->port.c_str( ), "UDP", nullptr );
    const int result = UPNP_AddPortMapping( control, service, mapping->port.c_str( ), localPort.c_str( ),
                                            localIP.c_str( ), DESCRIPTION, "UDP", nullptr, "0" );
    if( result == UPNPCOMMAND_SUCCESS ) return true;
    const char* text = strupnperror( result );
    GLOG( u"WARNING Error HR return value: ", result, u" (", text ? text : "unknown", u")" );
    return false;
}

void readGlobalHost( GNetUPnPMapping* mapping )
{
    char address[64] = { };
    if( !mapping->isPublic ) return;
    if( UPNP_GetExternalIPAddress( mapping->urls.controlURL, mapping->data.first.servicetype, address ) !=
        UPNPCOMMAND_SUCCESS )
        return;
    const GWString host = GConcat( address, u":", mapping->port );
    if( GNetIsUnicastHost( host ) ) mapping->globalHost = host;
}
} // namespace

GNetUPnPMapping* GNetUPnPMappingOpen( const GWString& localHost, int lowPort, int highPort )
{
    GPRECONDITION( lowPort < highPort );
    if( GIsShuttingDown( ) ) return nullptr;
    GWString localIP;
    int localPort = 0;
    GNetSplitHost( localHost, localIP, localPort );
    const bool hasIP = GVERIFY( !localIP.empty( ) );
    const bool hasPort = GVERIFY( localPort );
    if( !hasIP || !hasPort ) return nullptr;
    GNetUPnPMapping* mapping = findGateway( GWideToUTF8( localIP ) );
    if( !mapping ) return nullptr;
    for( int i = 0; i < TRIES && !GIsShuttingDown( ); ++i )
    {
        const int port = GRandom( ) * GRandom( ) % ( highPort - lowPort ) + lowPort;
        mapping->port = std::to_string( port );
        if( add( mapping, GWideToUTF8( localIP ), std::to_string( localPort ) ) )
        {
            readGlobalHost( mapping );
            return mapping;
        }
        GLOG( u"WARNING Unable to create UPnP mapping for port ", port, u", trying again." );
    }
    release( mapping );
    return nullptr;
}

GWString GNetUPnPMappingGetGlobalHost( const GNetUPnPMapping* mapping )
{
    GPRECONDITION( mapping );
    return mapping->globalHost;
}

void GNetUPnPMappingClose( GNetUPnPMapping* mapping )
{
    GPRECONDITION( mapping );
    if( GIsShuttingDown( ) ) return;
    UPNP_DeletePortMapping( mapping->urls.controlURL, mapping->data.first.servicetype, mapping->port.c_str( ), "UDP",
                            nullptr );
    release( mapping );
}
