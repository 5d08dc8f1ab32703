// The second half of the dispatch service's life: the NAT mapping is measured, proved to be the same, and registered again.
#include "client/signalling/GDispatchService.h"

#include "client/transport/GHTTPClient.h"
#include "client/transport/GMegaPort.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

namespace
{
constexpr int MAX_PING_FAILURES = 5;

// Whole seconds since a moment that the blackboard holds.
int64_t getAge( GInstance* instance, GWStringView name )
{
    return ( static_cast<int64_t>( GTimeGetTime( ) ) - instance->calc( name ) ) / 1000000;
}
} // namespace

bool GDispatchService::_onOnlineUpdate( )
{
    _instance->set( u"Dispatch_Status", u"Online" );
    if( !_turnClient && ( _testNATRefresh( ) || _testMapping( ) ) ) return true;
    if( _state == REREGISTERING && _requestTimer.hasElapsed( ) )
    {
        // On purpose nothing else: the client stays online.
        GLOG( u"WARNING Re-registration timed out.  Wtf?" );
        return true;
    }
    if( _state == REREGISTERING && _retryTimer.hasElapsed( ) )
    {
        _requestREGISTER( );
        return true;
    }
    if( _state == ONLINE && _registerTimer.hasElapsed( ) )
    {
        _requestREGISTER( );
        _changeState( REREGISTERING );
    }
    return true;
}

// Always false: a failed trial only leads to the next one.
bool GDispatchService::_testNATRefresh( )
{
    const int64_t failed = _natRefresh.getDelayOnTrial( );
    if( !_natRefresh.hasFailed( ) ) return false;
    const int64_t delay = _natRefresh.afterFailure( );
    GLOGIF( 'K', u"NAT refresh FAILED with ", failed / 1000000, u"s period, trying ", delay / 1000000, u"s" );
    _instance->set( u"NAT_Refresh_Period_S", delay / 1000000 );
    _requestREFRESHNAT( delay );
    return false;
}

// True when the server has been silent for too long and the service is offline now.
bool GDispatchService::_testMapping( )
{
    if( !_pingTimer.hasElapsed( ) ) return false;
    ++_natPingFailures;
    if( _natPingFailures > MAX_PING_FAILURES && !_instance->test( u"Disable_Connection_Timeout" ) )
    {
        GLOG( u"WARING PING failed ", _natPingFailures, u" consecutive times, reconnecting." );
        return _disconnect( );
    }
    GLOGIF( 'k', u"Testing to see if mapping is still (", _instance->get( u"Global_Host" ), u") after ",
            getAge( _instance, u"Global_Host_Timestamp" ), u"s" );
    _requestPING( );
    return false;
}

bool GDispatchService::_onPINGResponse( const Input& in )
{
    // A late answer of the server choice says nothing about the mapping.
    if( !in.isMappingTest ) return false;
    GVERIFY_TEXT( in.succeeded( ), "recvResponse.succeeded( )" );
    const GHTTPHeaders& recvResponse = *in.recvResponse;
    const int64_t timestamp = GCalc( in.originalRequest->get( u"Timestamp" ) );
    const int64_t now = static_cast<int64_t>( GTimeGetTime( ) );
    _instance->set( u"SIP_Ping", GConcat( ( now - timestamp ) / 1000, u"ms" ) );
    _natPingFailures = 0;
    _pingTimer.start( _natRefresh.getPingPeriod( _instance->calc( u"NAT_Refresh_Period_S" ) ) * 1000000 );

    const GWString original = in.originalRequest->get( GProtocol::GLOBAL_HOST );
    const GWString observed = recvResponse.get( GProtocol::OBSERVED_HOST );
    GVERIFY_TEXT( GCaseEquals( original, recvResponse.get( GProtocol::REPORTED_HOST ) ),
                  "GCaseEquals( original, recvResponse.get( L\"Reported-Host\" ) )" );
    const int64_t age = getAge( _instance, u"Global_Host_Timestamp" );
    if( GCaseEquals( original, observed ) )
    {
        GLOGIF( 'k', u"Mapping hasn't changed after ", age, u"s; still (", original, u")" );
        _instance->set( u"NAT_Mapping_Age", GConcat( age, u"s" ) );
        return true;
    }
    // The route list that peers hold is wrong from now on: only classifying and registering again helps.
    GLOG( u"WARNING Global mapping has changed after ", age, u"s, was (", original, u") but is now (", observed,
          u"), reconnecting." );
    return _disconnect( );
}

bool GDispatchService::_onREFRESHNATResponse( const Input& in )
{
    // The STUN test's own answers may come late too: they bear no delay.
    if( !in.originalRequest->contains( GProtocol::DELAY ) ) return false;
    if( !_natRefresh.isNewest( static_cast<int>( GCalc( in.originalRequest->get( GProtocol::CSEQ ) ) ) ) ) return true;
    const int32_t delay = static_cast<int32_t>( GCalc( in.originalRequest->get( GProtocol::DELAY ) ) );
    const int64_t next = _natRefresh.afterSuccess( delay );
    GLOGIF( 'K', u"NAT refresh succeeded with ", delay / 1000000, u"s period, trying ", next / 1000000, u"s" );
    _instance->set( u"NAT_Refresh_Period_S", next / 1000000 );
    _requestREFRESHNAT( next );
    return true;
}

bool GDispatchService::_onReregistered( const Input& in )
{
    if( _robust && in.recvResponse->getResponse( ) == 404 )
    {
        GLOG( u"WARNING 'REGISTER' failed, the server does not know this device any more, reconnecting." );
        return _disconnect( );
    }
    GLOG( u"Re-registration successful" );
    GVERIFY_TEXT( in.succeeded( ), "recvResponse.succeeded( )" );
    _registerTimer.start( );
    _renewIfRoutesChanged( );
    _changeState( ONLINE );
    return true;
}

// All other services fall silent at once; the UNREGISTER still goes out by the service's own sockets.
bool GDispatchService::_logOff( )
{
    GLOG( u"Logging off" );
    if( _isArmed && _turnClient )
    {
        const GString rest = _megaPort->takeUnsent( );
        _isArmed = false;
        _turnClient->sendRaw( rest );
    }
    _requestUNREGISTER( );
    _megaPort->reset( );
    _changeState( UNREGISTERING );
    return true;
}
