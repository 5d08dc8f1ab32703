// UPnP mappings through miniupnpc. Discovery takes one to four seconds, so callers are service threads only.
#include "base/GPortable.h"
#include "base/GRandom.h"
#include "base/GUtil.h"
#include "platform/GNet.h"

#include <algorithm>
#include <memory>
#include <miniupnpc/miniupnpc.h>
#include <miniupnpc/upnpcommands.h>
#include <miniupnpc/upnperrors.h>

// The gateway as discovery found it. It owns the texts of its urls.
struct GNetUPnPMapping
{
    UPNPUrls urls = { };
    IGDdatas data = { };
    uint32_t port = 0; // Outside.
    GWString globalHost;

    GNetUPnPMapping( ) = default;
    ~GNetUPnPMapping( ) { FreeUPNPUrls( &urls ); }
    GNetUPnPMapping( const GNetUPnPMapping& ) = delete;
    GNetUPnPMapping& operator=( const GNetUPnPMapping& ) = delete;
};

namespace
{
constexpr int DISCOVERY_MILLISECONDS = 2000;
constexpr int TRIES = 5;
constexpr int CONNECTED_GATEWAY = 1; // Of UPNP_GetValidIGD.
constexpr char PROTOCOL[] = "UDP";
constexpr char DESCRIPTION[] = "Velmora";
constexpr char FOR_EVER[] = "0"; // Seconds of lease.
constexpr char16_t NO_HOST[] = u"0.0.0.0:0";

// Null when no connected gateway answers.
std::unique_ptr<GNetUPnPMapping> findGateway( const GString& localIP )
{
    int error = 0;
    // Asking from the port's own address finds the gateway of that network on a machine with several.
    const std::unique_ptr<UPNPDev, decltype( &freeUPNPDevlist )> devices(
        upnpDiscover( DISCOVERY_MILLISECONDS, localIP.c_str( ), nullptr, UPNP_LOCAL_PORT_ANY, 0, 2, &error ),
        freeUPNPDevlist );
    if( !devices ) return nullptr;
    auto gateway = std::make_unique<GNetUPnPMapping>( );
    char lanAddress[64] = { };
#if MINIUPNPC_API_VERSION >= 18
    char wanAddress[64] = { };
    const int found = UPNP_GetValidIGD( devices.get( ), &gateway->urls, &gateway->data, lanAddress,
                                        sizeof( lanAddress ), wanAddress, sizeof( wanAddress ) );
#else
    const int found =
        UPNP_GetValidIGD( devices.get( ), &gateway->urls, &gateway->data, lanAddress, sizeof( lanAddress ) );
#endif
    return found == CONNECTED_GATEWAY ? std::move( gateway ) : nullptr;
}

void logFailure( int code )
{
    const char* text = strupnperror( code );
    GLOG( u"WARNING Error HR return value: ", code, u" (", text ? text : "unknown", u")" );
}

int removeMapping( const GNetUPnPMapping& mapping, uint32_t port )
{
    const GString text = std::to_string( port );
    return UPNP_DeletePortMapping( mapping.urls.controlURL, mapping.data.first.servicetype, text.c_str( ), PROTOCOL,
                                   nullptr );
}
bool addMapping( const GNetUPnPMapping& mapping, uint32_t port, const GString& localIP, int localPort )
{
    const GString outside = std::to_string( port );
    const GString inside = std::to_string( localPort );
    removeMapping( mapping, port ); // Whatever an earlier run left there.
    const int code = UPNP_AddPortMapping( mapping.urls.controlURL, mapping.data.first.servicetype, outside.c_str( ),
                                          inside.c_str( ), localIP.c_str( ), DESCRIPTION, PROTOCOL, nullptr, FOR_EVER );
    if( code != UPNPCOMMAND_SUCCESS ) logFailure( code );
    return code == UPNPCOMMAND_SUCCESS;
}
GWString globalHostOf( const GNetUPnPMapping& mapping )
{
    char address[40] = { };
    const int code = UPNP_GetExternalIPAddress( mapping.urls.controlURL, mapping.data.first.servicetype, address );
    uint32_t value = 0;
    const GWString text = GUTF8ToWide( std::string_view( address ) );
    if( code != UPNPCOMMAND_SUCCESS || !GNetParseAddress( text, value ) || !value ) return NO_HOST;
    return GConcat( text, u':', mapping.port );
}
} // namespace

GNetUPnPMapping* GNetUPnPMappingOpen( const GWString& localHost, int lowPort, int highPort )
{
    GCALL( GNetUPnPMappingOpen );
    GPRECONDITION( highPort > lowPort );
    if( GIsShuttingDown( ) ) return nullptr;
    const size_t colon = std::min( localHost.find( u':' ), localHost.size( ) );
    const GString localIP = GWideToUTF8( GWStringView( localHost ).substr( 0, colon ) );
    const int localPort =
        colon < localHost.size( ) ? static_cast<int>( GCalc( GWStringView( localHost ).substr( colon + 1 ) ) ) : 0;
    const bool hasIP = GVERIFY( !localIP.empty( ) );
    const bool hasPort = GVERIFY( localPort );
    if( !hasIP || !hasPort ) return nullptr;
    std::unique_ptr<GNetUPnPMapping> mapping = findGateway( localIP );
    for( int i = 0; mapping && i < TRIES; ++i )
    {
        mapping->port = static_cast<uint32_t>( GRandom( ) * GRandom( ) % ( highPort - lowPort ) + lowPort );
        if( addMapping( *mapping, mapping->port, localIP, localPort ) )
        {
            mapping->globalHost = globalHostOf( *mapping );
            return mapping.release( );
        }
        GLOG( u"WARNING Unable to create UPnP mapping for port ", mapping->port, u", trying again." );
    }
    return nullptr;
}

GWString GNetUPnPMappingGetGlobalHost( const GNetUPnPMapping* mapping )
{
    GPRECONDITION( mapping );
    return mapping->globalHost;
}

void GNetUPnPMappingClose( GNetUPnPMapping* mapping )
{
    GCALL( GNetUPnPMappingClose );
    GPRECONDITION( mapping );
    const std::unique_ptr<GNetUPnPMapping> owned( mapping );
    if( !GIsShuttingDown( ) ) removeMapping( *owned, owned->port );
}
