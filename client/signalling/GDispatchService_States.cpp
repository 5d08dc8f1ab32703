// The state machine of the dispatch service: one handler a state, one line a row, in the order in which the rows are tested.
#include "client/signalling/GDispatchService.h"

#include "client/transport/GHTTPClient.h"
#include "client/transport/GMegaPort.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

namespace
{
constexpr const char16_t* STATES[] = { u"Offline",     u"STUN",   u"TURN",           u"CHOOSESERVER", u"DEVICEGUID",
                                       u"Registering", u"Online", u"Re-registering", u"UNREGISTERING" };
constexpr char16_t CONNECT[] = u"CONNECT";
constexpr char16_t DISCONNECT[] = u"DISCONNECT";
constexpr char16_t RESET[] = u"RESET";
} // namespace

GWString GDispatchService::_getState( int state )
{
    return GWITHIN( 0, state, static_cast<int>( std::size( STATES ) ) - 1 ) ? STATES[state] : u"<invalid>";
}

GWString GDispatchService::_getEvent( int event )
{
    return event == UPDATE ? u"UPDATE" : u"<invalid>";
}

// ---- The gate.

void GDispatchService::_fsm_onInput( const Input& in )
{
    GCALL( GDispatchService );
    _logInput( in );
    _verifyInput( in );
    if( _onInput( in ) ) return;
    if( in.recvRequest )
        GLOG( u"WARNING Request '", in.recvRequest->getMethod( ), u"' from (", in.fromRemoteHost,
              u") ignored, no state change." );
    else if( in.recvResponse )
        GLOG( u"WARNING Response #", in.recvResponse->getResponse( ), u" from (", in.fromRemoteHost, u") to request '",
              in.originalRequest->getMethod( ), u"' ignored, no state change." );
    else if( !in.command.empty( ) )
        GLOG( u"WARNING Command '", in.command, u"' ignored, no state change." );
    else
        GLOG( u"WARNING Event '", _getEvent( in.eventID ), u"' ignored, no state change." );
}

void GDispatchService::_logInput( const Input& in ) const
{
    if( in.recvRequest )
        GLOGIF( 'p', u"Received request '", in.recvRequest->getMethod( ), u"' from (", in.fromRemoteHost, u")" );
    if( in.recvResponse )
    {
        GWString text;
        const int code = in.recvResponse->getResponse( text );
        const GWString method = in.originalRequest->getMethod( );
        GLOGIF( 'p', u"Received response #", code, u" '", text, u"' to request '", method, u"' from (",
                in.fromRemoteHost, u")" );
        if( code != GHTTP_SUCCESS )
            GLOG( u"WARNING Request '", method, u"' failed with response #", code, u" '", text, u"'." );
    }
    if( !in.command.empty( ) ) GLOGIF( 'p', u"Received command '", in.command, u"'" );
    if( in.eventID && !in.isUpdate( ) )
        GLOGIF( 'p', u"Received eventID #", in.eventID, u" '", _getEvent( in.eventID ), u"'" );
}

void GDispatchService::_verifyInput( const Input& in ) const
{
    [[maybe_unused]] const int eventID = in.eventID;
    const GWString& commandMethod = in.command;
    const GWString requestMethod = in.recvRequest ? in.recvRequest->getMethod( ) : GWString( );
    if( in.recvResponse )
    {
        GVERIFY_TEXT(
            GCaseEquals( in.originalRequest->get( GProtocol::CSEQ ), in.recvResponse->get( GProtocol::CSEQ ) ),
            "GCaseEquals( originalRequest.get( L\"CSeq\" ), recvResponse.get( L\"CSeq\" ) )" );
        GVERIFY_TEXT( GValidHost( in.fromRemoteHost ), "GValidHost( fromRemoteHost )" );
        GVERIFY( !eventID );
        GVERIFY( commandMethod.empty( ) );
        GVERIFY( requestMethod.empty( ) );
        return;
    }
    if( !requestMethod.empty( ) )
    {
        GVERIFY_TEXT( GValidHost( in.fromRemoteHost ), "GValidHost( fromRemoteHost )" );
        GVERIFY( !eventID );
        GVERIFY( commandMethod.empty( ) );
        return;
    }
    GVERIFY( !!eventID != !commandMethod.empty( ) );
}

bool GDispatchService::_onInput( const Input& in )
{
    _verifyState( );
    switch( _state )
    {
    case OFFLINE: return _onOffline( in );
    case STUN: return _onSTUN( in );
    case TURN: return _onTURN( in );
    case CHOOSESERVER: return _onChooseServer( in );
    case DEVICEGUID: return _onDeviceGUID( in );
    case REGISTERING: return _onRegistering( in );
    case ONLINE:
    case REREGISTERING: return _onOnline( in );
    case UNREGISTERING: return _onUnregistering( in );
    }
    return false;
}

// What each state implies of the blackboard and the members.
void GDispatchService::_verifyState( ) const
{
    if( _state == OFFLINE )
    {
        GVERIFY( !_instance->isSet( u"Local_Host" ) );
        GVERIFY( !_instance->isSet( u"Global_Host" ) );
        GVERIFY( !_instance->isSet( u"Connection_Class" ) );
        GVERIFY( !_instance->isSet( u"Route_List" ) );
        GVERIFY( !_udpPort );
        GVERIFY( !_turnClient );
        return;
    }
    GASSERT( _udpPort );
    GVERIFY( _instance->isSet( u"Local_Host" ) );
    if( _state == STUN )
    {
        GVERIFY( !_instance->isSet( u"Global_Host" ) );
        GVERIFY( !_instance->isSet( u"Connection_Class" ) );
        GVERIFY( !_instance->isSet( u"Route_List" ) );
        GVERIFY( !_instance->isSet( u"Global_SIP_Host" ) );
        GVERIFY( !_turnClient );
        return;
    }
    GVERIFY( _instance->isSet( u"Connection_Class" ) );
    if( _state == TURN )
    {
        GASSERT( _turnClient );
        const GWString connectionClass = _instance->get( u"Connection_Class" );
        GVERIFY_TEXT( GCaseEquals( connectionClass, u"FIREWALL" ) || GCaseEquals( connectionClass, u"SYMMETRIC" ),
                      "GCaseEquals( _instance->get( L\"Connection_Class\" ), L\"FIREWALL\" ) || "
                      "GCaseEquals( _instance->get( L\"Connection_Class\" ), L\"SYMMETRIC\" )" );
        return;
    }
    GVERIFY( _instance->isSet( u"Global_Host" ) );
    GVERIFY( _instance->isSet( u"Route_List" ) );
}

// ---- The states.

bool GDispatchService::_onOffline( const Input& in )
{
    if( in.isUpdate( ) )
    {
        _instance->set( u"Dispatch_Status", u"Offline" );
        return true;
    }
    if( in.isCommand( RESET ) )
    {
        _reset( );
        return true;
    }
    if( in.isCommand( CONNECT ) ) return _connect( );
    return false;
}

bool GDispatchService::_onSTUN( const Input& in )
{
    if( in.isUpdate( ) && _requestTimer.hasElapsed( ) ) return _classify( );
    if( in.isUpdate( ) && _retryTimer.hasElapsed( ) ) return _retrySTUN( );
    if( in.isUpdate( ) ) return _showStatus( u"STUN" );
    if( in.isResponse( GProtocol::STUN ) ) return _storeSTUNResponse( in );
    if( in.isCommand( RESET ) ) return _goOffline( );
    return false;
}

bool GDispatchService::_onTURN( const Input& in )
{
    if( in.isUpdate( ) && _requestTimer.hasElapsed( ) )
    {
        GLOG( u"WARNING 'TURN' request failed (or timed out), logon process failed." );
        return _disconnect( );
    }
    if( in.isUpdate( ) ) return _showStatus( u"TURN" );
    if( in.isResponse( GProtocol::OPENTURN ) ) return _relayOpened( in );
    if( in.isCommand( RESET ) ) return _goOffline( );
    return false;
}

bool GDispatchService::_onChooseServer( const Input& in )
{
    if( in.isUpdate( ) && _requestTimer.hasElapsed( ) )
    {
        GLOG( u"WARNING 'PING' requests timed out to '", _instance->get( u"Global_SIP_Host_List" ),
              u"', disconnecting." );
        return _disconnect( );
    }
    if( in.isUpdate( ) && _retryTimer.hasElapsed( ) )
    {
        _requestPINGAll( );
        return true;
    }
    if( in.isUpdate( ) ) return _showStatus( u"CHOOSESERVER" );
    if( in.isResponse( GProtocol::PING ) ) return _chooseServer( in );
    if( in.isCommand( RESET ) ) return _goOffline( );
    return false;
}

bool GDispatchService::_onDeviceGUID( const Input& in )
{
    if( in.isUpdate( ) && _requestTimer.hasElapsed( ) )
    {
        GLOG( u"WARNING 'DEVICEGUID' request timed out, disconnecting." );
        return _disconnect( );
    }
    if( in.isUpdate( ) && _retryTimer.hasElapsed( ) ) return _retryLastRequest( );
    if( in.isUpdate( ) ) return _showStatus( u"DEVICEGUID" );
    if( in.isResponse( GProtocol::DEVICEGUID ) ) return in.succeeded( ) ? _storeDeviceGUID( in ) : _disconnect( );
    if( in.isCommand( RESET ) ) return _goOffline( );
    return false;
}

bool GDispatchService::_onRegistering( const Input& in )
{
    if( in.isUpdate( ) && _isRefused ) return _retryRegistration( );
    if( in.isUpdate( ) && !_instance->test( u"Disable_Connection_Timeout" ) && _requestTimer.hasElapsed( ) )
    {
        GLOG( u"WARNING 'REGISTER' request timed out, reconnecting." );
        return _disconnect( );
    }
    if( in.isUpdate( ) && _retryTimer.hasElapsed( ) ) return _retryLastRequest( );
    if( in.isUpdate( ) ) return _showStatus( u"REGISTER" );
    if( in.isResponse( GProtocol::REGISTER ) ) return in.succeeded( ) ? _goOnline( ) : _refusedRegister( in );
    if( in.isCommand( RESET ) ) return _goOffline( );
    return false;
}

bool GDispatchService::_onOnline( const Input& in )
{
    if( in.isUpdate( ) ) return _onOnlineUpdate( );
    if( in.isResponse( GProtocol::PING ) ) return _onPINGResponse( in );
    if( in.isResponse( GProtocol::STUN ) ) return _onREFRESHNATResponse( in );
    if( in.isResponse( GProtocol::REGISTER ) ) return _onReregistered( in );
    if( in.isCommand( DISCONNECT ) ) return _logOff( );
    if( in.isCommand( RESET ) ) return _goOffline( );
    return false;
}

bool GDispatchService::_onUnregistering( const Input& in )
{
    if( in.isUpdate( ) && _requestTimer.hasElapsed( ) )
    {
        GLOG( u"WARNING 'UNREGISTER' request timed out, hard logoff." );
        return _disconnect( );
    }
    if( in.isUpdate( ) && _retryTimer.hasElapsed( ) ) return _retryLastRequest( );
    if( in.isUpdate( ) ) return _showStatus( u"UNREGISTER" );
    if( in.isResponse( GProtocol::UNREGISTER ) )
    {
        GVERIFY_TEXT( in.succeeded( ), "recvResponse.succeeded( )" );
        return _disconnect( );
    }
    if( in.isCommand( RESET ) ) return _goOffline( );
    return false;
}

// ---- What the rows share.

void GDispatchService::_changeState( State state )
{
    GLOG( u"Changing state from '", _getState( _state ), u"' to '", _getState( state ), u"'" );
    _state = state;
}

bool GDispatchService::_disconnect( )
{
    _notifyClient( u"DISCONNECTED" );
    return _goOffline( );
}

bool GDispatchService::_goOffline( )
{
    _changeState( OFFLINE );
    _reset( );
    return true;
}

void GDispatchService::_reset( )
{
    GCALL( GDispatchService );
    _megaPort->reset( );
    _isArmed = false;
    delete _turnClient;
    _turnClient = nullptr;
    if( _udpPort ) GNetUDPPortClose( _udpPort );
    _udpPort = nullptr;
    if( _upnpMapping )
    {
        _upnpMapping->abandon( );
        _abandonedMappings.push_back( _upnpMapping );
    }
    _upnpMapping = nullptr;
    _upnpHost.clear( );
    _natPingFailures = 0;
    _isRefused = false;
    _cseqRequestMap.clear( );
    for( const GWStringView name : { u"Local_Host", u"Global_Host", u"Connection_Class", u"Route_List" } )
        _instance->clear( name );
    _stunTest.clear( );
    _lastRequestHost.clear( );
    _lastRequest.clear( );
}

void GDispatchService::_notifyClient( GWStringView method )
{
    _instance->enqueue( u"GClient_commandQueue", GHTTPHeaders( method ) );
}

// The seconds that the step may still take, and its name.
bool GDispatchService::_showStatus( GWStringView step )
{
    _instance->set( u"Dispatch_Status", GConcat( _requestTimer.getRemaining( ) / 1000000, u" ", step ) );
    return true;
}
