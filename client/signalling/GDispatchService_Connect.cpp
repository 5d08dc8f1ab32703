// The first half of the dispatch service's life: from CONNECT over the STUN test or the relay to a server, an identity and a
// registration.
#include "client/signalling/GDispatchService.h"

#include "base/GRandom.h"
#include "client/signalling/GRoute.h"
#include "client/transport/GHTTPClient.h"
#include "client/transport/GMegaPort.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

#include <algorithm>

namespace
{
constexpr int64_t REQUEST_TIMEOUT = 5500000;
// With the remedy: how long the two indirect hosts may lag behind the direct one.
constexpr int64_t INDIRECT_GRACE = 1500000;
constexpr int64_t LONGEST_STARTUP_SLEEP_MS = 600000;
} // namespace

bool GDispatchService::_connect( )
{
    GCALL( GDispatchService );
    _robust = _instance->isRobust( u"Robust_Signalling" );
    GThreadSleep( std::clamp<int64_t>( _instance->calc( u"Startup_Sleep" ), 0, LONGEST_STARTUP_SLEEP_MS ) * 1000 );
    const GWString localIP = _instance->get( u"Local_IP" );
    GVERIFY( !localIP.empty( ) );
    const int64_t localPort = _instance->calc( u"Local_Port" );
    const GWString host = GConcat( localIP, u":", localPort );
    if( _instance->isSet( u"Local_Port" ) ) GLOG( u"Using fixed local port, trying host '", host, u"'" );
    _udpPort = GNetUDPPortOpen( host );
    if( !_udpPort )
    {
        GLOG( u"WARNING Can't open UDP port on IP '", localIP, u"', disconnecting." );
        return _disconnect( );
    }
    GNetUDPPortSetLargeReads( _udpPort, _robust );
    GNetUDPPortSetForgiving( _udpPort, _robust );
    _megaPort->setRobust( _robust );
    _natRefresh.setRobust( _robust );
    if( _robust && !_cseq ) _cseq = GRandom( );

    const GWString localHost = GNetUDPPortGetLocalHost( _udpPort );
    GVERIFY( GValidHost( localHost ) );
    _instance->set( u"Local_Host", localHost );
    _upnpMapping = GSAFENEW( GUPnPTask, ( localHost, static_cast<int>( _instance->calc( u"UPnP_Low_Port" ) ),
                                          static_cast<int>( _instance->calc( u"UPnP_High_Port" ) ), _upnpFunctions ) );
    GStringList stunHostList;
    _instance->get( u"Global_STUN_Host_List", stunHostList );
    _stunTest.setHosts( stunHostList );
    _stunTest.clearResponses( );
    _requestTimer.setDuration( REQUEST_TIMEOUT );
    if( _instance->test( u"Pretend_Firewall" ) )
        _requestTimer.expire( );
    else
        _requestSTUN( );
    _changeState( STUN );
    return true;
}

bool GDispatchService::_retrySTUN( )
{
    GLOGIF( 'p', u"Retrying STUN while waiting for responses" );
    _sendHOLEPUNCH( );
    return _retryLastRequest( );
}

bool GDispatchService::_storeSTUNResponse( const Input& in )
{
    const bool hadDirect = _stunTest.hasDirect( );
    if( !_stunTest.store( in.fromRemoteHost, *in.recvResponse ) ) return true;
    if( _stunTest.isComplete( ) )
        _requestTimer.expire( );
    else if( _robust && !hadDirect && _stunTest.hasDirect( ) )
        _requestTimer.start( std::clamp<int64_t>( _requestTimer.getRemaining( ), 0, INDIRECT_GRACE ) );
    return true;
}

bool GDispatchService::_classify( )
{
    GCALL( GDispatchService );
    _requestTimer.setDuration( REQUEST_TIMEOUT );
    const GWString localHost = GNetUDPPortGetLocalHost( _udpPort );
    _instance->set( u"Connection_Class", _stunTest.classify( localHost ) );
    if( !_stunTest.hasDirect( ) )
    {
        GLOG( u"STUN failed, must be behind 'FIREWALL', establishing TURN connection." );
        return _openRelay( );
    }
    if( _instance->isSet( u"Force_NAT" ) ) _instance->set( u"Connection_Class", _instance->get( u"Force_NAT" ) );
    const GWString connectionClass = _instance->get( u"Connection_Class" );
    if( GCaseEquals( connectionClass, u"SYMMETRIC" ) )
    {
        GLOG( u"STUN found 'SYMMETRIC' NAT, treating it like firewall." );
        return _openRelay( );
    }
    GStringList routeList{ GRouteCompose( u"local", localHost ) };
    if( GCaseEquals( connectionClass, u"PUBLIC" ) ) return _foundRoute( localHost, routeList );
    routeList.push_back( GRouteCompose( GToLower( connectionClass ), _stunTest.getGlobalHost( ) ) );
    return _foundRoute( _stunTest.getGlobalHost( ), routeList );
}

// What every class does in the end: tell the blackboard, and race the signalling servers.
bool GDispatchService::_foundRoute( const GWString& globalHost, const GStringList& routeList )
{
    _instance->set( u"Route_List", routeList );
    _instance->set( u"Global_Host", globalHost );
    _instance->set( u"Global_Host_Timestamp", static_cast<int64_t>( GTimeGetTime( ) ) );
    if( _state == TURN )
        GLOG( u"TURN complete, connection class is 'FIREWALL' and route list is '", _instance->get( u"Route_List" ),
              u"'" );
    else
        GLOG( u"STUN complete, connection class is '", _instance->get( u"Connection_Class" ), u"' and route list is '",
              _instance->get( u"Route_List" ), u"'" );
    if( !_upnpHost.empty( ) ) _offerUPnPRoute( _upnpHost );
    _requestPINGAll( );
    _requestTimer.start( );
    _changeState( CHOOSESERVER );
    return true;
}

bool GDispatchService::_openRelay( )
{
    _requestTURN( );
    _changeState( TURN );
    return true;
}

bool GDispatchService::_relayOpened( const Input& in )
{
    const GWString globalHost = in.recvResponse->get( GProtocol::GLOBAL_HOST );
    if( !in.succeeded( ) || !GNetIsUnicastHost( globalHost ) )
    {
        GWString text;
        in.recvResponse->getResponse( text );
        GLOG( u"WARNING 'TURN' request failed with response ", text, u", disconnecting." );
        return _disconnect( );
    }
    GStringList routeList{ GRouteCompose( u"local", GNetUDPPortGetLocalHost( _udpPort ) ),
                           GRouteCompose( u"turn", globalHost ) };
    const bool isSymmetric = GCaseEquals( _instance->get( u"Connection_Class" ), u"SYMMETRIC" );
    if( _robust && isSymmetric && !_stunTest.getGlobalHost( ).empty( ) )
        routeList.push_back( GRouteCompose( u"symmetric", _stunTest.getGlobalHost( ) ) );
    _relayTimer.start( );
    return _foundRoute( globalHost, routeList );
}

bool GDispatchService::_chooseServer( const Input& in )
{
    const GWString& fromRemoteHost = in.fromRemoteHost;
    GVERIFY_TEXT( in.succeeded( ), "recvResponse.succeeded( )" );
    GVERIFY_TEXT( _instance->contains( u"Global_SIP_Host_List", fromRemoteHost ),
                  "_instance->contains( L\"Global_SIP_Host_List\", fromRemoteHost )" );
    GLOG( u"SIP server '", fromRemoteHost, u"' first to respond, choosing it." );
    _instance->set( u"Global_SIP_Host", fromRemoteHost );
    if( _instance->isSet( u"Local_Device_GUID" ) )
    {
        GLOG( u"Registering with existing device GUID '", _instance->get( u"Local_Device_GUID" ), u"'" );
        _requestREGISTER( );
        _changeState( REGISTERING );
        return true;
    }
    GLOG( u"Requesting device GUID" );
    _requestDEVICEGUID( );
    _changeState( DEVICEGUID );
    return true;
}

bool GDispatchService::_storeDeviceGUID( const Input& in )
{
    const GWString id = in.recvResponse->get( GProtocol::DEVICE_GUID );
    if( !GValidDeviceID( id ) )
    {
        GLOG( u"WARNING Received invalid device GUID '", id, u"', disconnecting." );
        return _disconnect( );
    }
    GLOG( u"Request 'DEVICEGUID' succeeded, received device GUID '", id, u"'" );
    _instance->set( u"Local_Device_GUID", id, true );
    _instance->save( );
    _requestREGISTER( );
    _changeState( REGISTERING );
    return true;
}

// The letter takes every refusal for an unknown identity, at once and for ever. With the remedy only code 404 costs the identity,
// and after the first attempt the next ones come every 30 s.
bool GDispatchService::_refusedRegister( const Input& in )
{
    _isIdentityUnknown = !_robust || in.recvResponse->getResponse( ) == 404;
    const bool waits = _robust && !_refusalTimer.hasElapsed( );
    if( !waits && _isIdentityUnknown )
    {
        GLOG( u"WARNING 'REGISTER' failed, suspect device GUID is stale -- requesting new DEVICEGUID" );
        _requestDEVICEGUID( );
        _changeState( DEVICEGUID );
        return true;
    }
    GLOG( u"WARNING 'REGISTER' failed, trying again ", waits ? u"in a while." : u"with the same device GUID." );
    _isRefused = waits;
    if( !waits ) _requestREGISTER( );
    return true;
}

bool GDispatchService::_retryRegistration( )
{
    if( !_refusalTimer.hasElapsed( ) )
    {
        _instance->set( u"Dispatch_Status", GConcat( _refusalTimer.getRemaining( ) / 1000000, u" REGISTER" ) );
        return true;
    }
    _isRefused = false;
    if( _isIdentityUnknown )
    {
        _requestDEVICEGUID( );
        _changeState( DEVICEGUID );
        return true;
    }
    _requestREGISTER( );
    return true;
}

bool GDispatchService::_goOnline( )
{
    GCALL( GDispatchService );
    _notifyClient( u"CONNECTED" );
    _changeState( ONLINE );
    _refusalTimer.expire( );
    _renewIfRoutesChanged( );
    _megaPort->setUDPPort( _udpPort );
    if( !_turnClient )
    {
        _instance->set( u"NAT_Refresh_Period_S", 1 );
        _natRefresh.clear( );
        _requestREFRESHNAT( GNatRefresh::FIRST_DELAY );
        return true;
    }
    _isArmed = _robust;
    _megaPort->setTCPSocket( _turnClient->getTCPSocket( ), _instance->get( u"Global_Host" ),
                             _isArmed ? _turnClient->takeUnsent( ) : GString( ) );
    for( const GWStringView name : { u"SIP_Ping", u"NAT_Refresh_Period_S", u"NAT_Mapping_Age" } )
        _instance->set( name, u"-" );
    return true;
}

// A mapping whose outside is public is a route that anyone can use. It may be known before or after the class is.
void GDispatchService::_offerUPnPRoute( const GWString& host )
{
    if( !GNetIsPublicHost( host ) ) return;
    _upnpHost = host;
    if( !_instance->isSet( u"Route_List" ) || GCaseEquals( host, _instance->get( u"Global_Host" ) ) ) return;
    _instance->insert( u"Route_List", GRouteCompose( u"unrestricted", host ) );
    if( _state == ONLINE ) _renewIfRoutesChanged( );
}

// The server must know what peers are told: a registration that lacks a route is renewed at the next UPDATE.
void GDispatchService::_renewIfRoutesChanged( )
{
    if( _registeredRoutes != _instance->get( u"Route_List" ) ) _registerTimer.expire( );
}
