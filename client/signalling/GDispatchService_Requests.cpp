// Every message that the dispatch service sends.
#include "client/signalling/GDispatchService.h"

#include "client/transport/GHTTPClient.h"
#include "client/transport/GMegaPort.h"
#include "client/transport/GRelayFrame.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

namespace
{
constexpr uint64_t REQUEST_LIFETIME = 60000000;
// An answer that comes after this many later requests finds nothing.
constexpr size_t MAX_REQUESTS = 4096;
} // namespace

// Gives the message its CSeq and keeps it under that number. `delay`: by how much its answer is late on purpose.
int GDispatchService::_remember( const GWString& host, GHTTPHeaders& headers, int64_t delay )
{
    if( _cseq == INT32_MAX ) _cseq = 0;
    ++_cseq;
    headers.set( GProtocol::CSEQ, GConcat( _cseq, u" (GDispatchService)" ) );
    _forgetOld( );
    const uint64_t expiry = GTimeGetTime( ) + REQUEST_LIFETIME + static_cast<uint64_t>( delay > 0 ? delay : 0 );
    _cseqRequestMap[_cseq] = { headers, host, expiry, false };
    return _cseq;
}

// The numbers rise, so the first entry is the oldest. With the remedy spent records leave after 60 s.
void GDispatchService::_forgetOld( )
{
    while( _cseqRequestMap.size( ) >= MAX_REQUESTS ) _cseqRequestMap.erase( _cseqRequestMap.begin( ) );
    if( !_robust ) return;
    const uint64_t now = GTimeGetTime( );
    std::erase_if( _cseqRequestMap, [&]( const auto& entry ) { return entry.second.expiry < now; } );
}

void GDispatchService::_request( const GWString& host, GHTTPHeaders headers )
{
    if( !_udpPort )
    {
        GLOG( u"WARNING Cannot send request '", headers.getMethod( ), u"' because no UDP port open, ignoring." );
        return;
    }
    _remember( host, headers );
    _lastRequestHost = host;
    _lastRequest = headers;
    _sendGlobal( host, headers.serialize( ) );
    _requestTimer.start( );
    _retryTimer.start( );
}

bool GDispatchService::_retryLastRequest( )
{
    if( !_udpPort )
    {
        GLOG( u"WARNING Cannot re-send request '", _lastRequest.getMethod( ),
              u"' because no UDP port open, ignoring." );
        return true;
    }
    GLOG( u"Retrying '", _lastRequest.getMethod( ), u"' to (", _lastRequestHost, u")" );
    if( _robust )
        _sendGlobal( _lastRequestHost, _lastRequest.serialize( ) );
    else
        _sendUDP( _lastRequestHost, _lastRequest.serialize( ) );
    return true;
}

void GDispatchService::_sendGlobal( const GWString& host, const GString& buffer )
{
    if( !_turnClient )
    {
        _sendUDP( host, buffer );
        return;
    }
    if( _isArmed )
    {
        _megaPort->send( { }, host, buffer.data( ), static_cast<int>( buffer.size( ) ) );
        return;
    }
    _relayFrame.clear( );
    GRelayFrameAppend( _relayFrame, host, buffer );
    _turnClient->sendRaw( _relayFrame );
}

void GDispatchService::_sendUDP( const GWString& host, const GString& buffer )
{
    GNetUDPPortSend( _udpPort, host, buffer.data( ), static_cast<int>( buffer.size( ) ) );
}

// Opens the NAT towards the punched host; nobody answers.
void GDispatchService::_sendHOLEPUNCH( )
{
    if( !_udpPort )
    {
        GLOG( u"WARNING Attempting to 'HOLEPUNCH' to (", _stunTest.getPunchedHost( ), u") but no UDP port, ignoring." );
        return;
    }
    if( GValidHost( _stunTest.getPunchedHost( ) ) )
        _sendUDP( _stunTest.getPunchedHost( ), GWideToUTF8( GProtocol::HOLEPUNCH ) );
}

// The hole comes first: the mapping towards the punched host must exist before the answers come.
void GDispatchService::_requestSTUN( )
{
    _sendHOLEPUNCH( );
    GHTTPHeaders headers( GProtocol::STUN );
    headers.set( GProtocol::INDIRECT_HOST_LIST,
                 GStringList{ _stunTest.getPunchedHost( ), _stunTest.getUnpunchedHost( ) } );
    _request( _stunTest.getDirectHost( ), headers );
}

void GDispatchService::_requestTURN( )
{
    GVERIFY_TEXT( _instance->isSet( u"Global_TURN_Host" ), "_instance->isSet( L\"Global_TURN_Host\" )" );
    delete _turnClient;
    const GWString host = _instance->get( u"Global_TURN_Host" );
    GHTTPHeaders headers( GProtocol::OPENTURN );
    _remember( host, headers );
    _requestTimer.start( );
    _turnClient = GSAFENEW( GHTTPClient, ( host, headers ) );
}

GHTTPHeaders GDispatchService::_makePING( ) const
{
    GHTTPHeaders headers( GProtocol::PING );
    headers.set( GProtocol::GLOBAL_HOST, _instance->get( u"Global_Host" ) );
    headers.set( u"Timestamp", static_cast<int64_t>( GTimeGetTime( ) ) );
    return headers;
}

// The server choice. It touches neither the last request nor the timers.
void GDispatchService::_requestPINGAll( )
{
    GStringList hosts;
    _instance->get( u"Global_SIP_Host_List", hosts );
    for( const GWString& host : hosts )
    {
        GHTTPHeaders headers = _makePING( );
        _remember( host, headers );
        _sendGlobal( host, headers.serialize( ) );
    }
}

// The mapping test: never by the relay.
void GDispatchService::_requestPING( )
{
    const GWString host = _instance->get( u"Global_SIP_Host" );
    GHTTPHeaders headers = _makePING( );
    _cseqRequestMap[_remember( host, headers )].isMappingTest = true;
    _sendUDP( host, headers.serialize( ) );
    _pingTimer.start( 1000000 );
}

void GDispatchService::_requestDEVICEGUID( )
{
    GLOG( u"Sending 'DEVICEGUID' request" );
    _request( _instance->get( u"Global_SIP_Host" ), GHTTPHeaders( GProtocol::DEVICEGUID ) );
}

void GDispatchService::_requestREGISTER( )
{
    const GWString routeList = _instance->get( u"Route_List" );
    GLOG( u"Sending 'REGISTER' request with hostlist='", routeList, u"'" );
    GHTTPHeaders headers( GProtocol::REGISTER );
    headers.set( GProtocol::FROM, _instance->get( u"Local_User_GUID" ) );
    headers.set( GProtocol::DEVICE_GUID, _instance->get( u"Local_Device_GUID" ) );
    headers.set( GProtocol::VERSION, _instance->get( u"Current_Version" ) );
    headers.set( GProtocol::ROUTE_LIST, routeList );
    if( _instance->test( u"Contact_Requests" ) ) headers.set( GProtocol::CAPABILITIES, GProtocol::CAPABILITY_CONTACTS );
    _registeredRoutes = routeList;
    _request( _instance->get( u"Global_SIP_Host" ), headers );
    _registerTimer.start( );
}

void GDispatchService::_requestUNREGISTER( )
{
    GLOG( u"Sending 'UNREGISTER' request" );
    GHTTPHeaders headers( GProtocol::UNREGISTER );
    headers.set( GProtocol::FROM, _instance->get( u"Local_User_GUID" ) );
    headers.set( GProtocol::DEVICE_GUID, _instance->get( u"Local_Device_GUID" ) );
    _request( _instance->get( u"Global_SIP_Host" ), headers );
}

void GDispatchService::_requestREFRESHNAT( int64_t delay )
{
    const GWString& host = _stunTest.getRefreshHost( );
    GHTTPHeaders headers( GProtocol::STUN );
    headers.set( GProtocol::DELAY, delay );
    const int cseq = _remember( host, headers, delay );
    if( GValidHost( host ) ) _sendUDP( host, headers.serialize( ) );
    _natRefresh.begin( delay, cseq );
}

// A datagram to the server that nobody answers: idle relays are closed on their way.
void GDispatchService::_keepRelayAlive( )
{
    _sendGlobal( _instance->get( u"Global_SIP_Host" ), GWideToUTF8( GProtocol::HOLEPUNCH ) );
}
