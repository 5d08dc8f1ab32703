// Port mappings at a UPnP gateway. The library reads what gateways describe and explains their errors; the talking is our own, for
// the library would wait for a gateway, and take memory for what it says, without an end.
#include "GUPnPGateway.h"
#include "base/GPortable.h"
#include "base/GRandom.h"
#include "base/GUtil.h"
#include "platform/GNet.h"

#include <memory>
#include <miniupnpc/upnperrors.h>

struct GNetUPnPMapping
{
    GUPnPGateway gateway; // pNAT and pMapping: whom to talk to.
    int port = 0;         // pSPM: our entry.
    GWString globalHost = u"0.0.0.0:0";
};

namespace
{
constexpr int TRIES = 5;
constexpr char DESCRIPTION[] = "Velmora";

bool add( GNetUPnPMapping& mapping, const GString& localIP, int localPort )
{
    // An entry of an earlier run may stand there; that there is none is no failure.
    mapping.gateway.removeMapping( mapping.port );
    const int result = mapping.gateway.addMapping( mapping.port, localIP, localPort, DESCRIPTION );
    if( result == 0 ) return true;
    const char* text = result > 0 ? strupnperror( result ) : "no answer";
    GLOG( u"WARNING Error HR return value: ", result, u" (", text ? text : "unknown", u")" );
    return false;
}

void readGlobalHost( GNetUPnPMapping& mapping )
{
    if( !mapping.gateway.isPublic( ) ) return;
    const GWString host = GConcat( mapping.gateway.getExternalIP( ), u":", mapping.port );
    if( GNetIsUnicastHost( host ) ) mapping.globalHost = host;
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
    auto mapping = std::make_unique<GNetUPnPMapping>( );
    if( !mapping->gateway.find( GWideToUTF8( localIP ) ) ) return nullptr;
    for( int i = 0; i < TRIES && !GIsShuttingDown( ); ++i )
    {
        mapping->port = GRandom( ) * GRandom( ) % ( highPort - lowPort ) + lowPort;
        if( add( *mapping, GWideToUTF8( localIP ), localPort ) )
        {
            readGlobalHost( *mapping );
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
    GPRECONDITION( mapping );
    if( GIsShuttingDown( ) ) return;
    mapping->gateway.removeMapping( mapping->port );
    delete mapping;
}
