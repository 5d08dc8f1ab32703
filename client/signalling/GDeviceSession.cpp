// The machine itself: one handler a state, its rows in order, and the gate in front of it. What the rows do stands in
// GDeviceSession_Handshake.cpp and GDeviceSession_Running.cpp.
#include "client/signalling/GDeviceSession.h"

#include "client/signalling/GSIPClient.h"
#include "client/transport/GMegaPort.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

using namespace GProtocol;

namespace
{
constexpr int64_t SECOND = 1000000;
constexpr int64_t REINVITE_PERIOD = 10 * SECOND;
constexpr int64_t TIMEOUT = 18 * SECOND;
constexpr int64_t UNHEARD = 2 * SECOND;
constexpr const char16_t* STATE_NAMES[] = { u"DISCONNECTED",   u"WF_INVITERESPONSE", u"WT_REINVITE",   u"WF_ACK",
                                            u"WF_ACKRESPONSE", u"CONNECTED",         u"WF_BYERESPONSE" };
constexpr const char16_t* EVENT_NAMES[] = {
    u"INVALID",      u"UPDATE",         u"CAPTURECHANGED", u"WAITFORINVITEOK", u"RECVSERVICESONLINE",
    u"BYEREQUESTED", u"REMOVEREQUESTED" };

bool isEmpty( const GHTTPHeaders& message )
{
    return message.headers( ).empty( );
}
bool isPing( const GSIPInput& in )
{
    return in.isRequest( PING ) || in.isResponseTo( PING );
}
} // namespace

GDeviceSession::GDeviceSession( GInstance* instance, GSIPClient* sipClient, const GWString& buddyGUID,
                                const GWString& deviceGUID )
    : _reinviteTimer( REINVITE_PERIOD ), _pingTimer( SECOND ), _timeoutTimer( TIMEOUT ), _retransmitTimer( SECOND ),
      _instance( instance ), _sipClient( sipClient ), _buddyGUID( buddyGUID ), _deviceGUID( deviceGUID ),
      _buddyDeviceGUID( GConcat( buddyGUID, u"@", deviceGUID ) ),
      _statusName( GConcat( _buddyDeviceGUID, u"_Status" ) ), _mediaTimer( SECOND ), _broadcastTimer( SECOND )
{
    GPRECONDITION( instance );
    GPRECONDITION( sipClient );
    invariantTest( );
    _instance->set( _bd( u"_Buddy" ), _buddyGUID );
}

GDeviceSession::~GDeviceSession( )
{
    _reset( );
}

void GDeviceSession::invariantTest( ) const
{
    GHeapObject::invariantTest( );
    GASSERT( !_buddyGUID.empty( ) );
    GASSERT( !_deviceGUID.empty( ) );
    GASSERT( !_buddyDeviceGUID.empty( ) );
    const GMegaPort* port = _sipClient->getPort( );
    GASSERT( _sendFromHost.empty( ) || GCaseEquals( _sendFromHost, port->getLocalHost( ) ) ||
             GCaseEquals( _sendFromHost, port->getGlobalHost( ) ) );
}

GWString GDeviceSession::_getState( int state )
{
    return GWITHIN( 0, state, WF_BYERESPONSE ) ? STATE_NAMES[state] : u"<invalid>";
}

GWString GDeviceSession::_getEvent( int event )
{
    return GWITHIN( 0, event, REMOVEREQUESTED ) ? EVENT_NAMES[event] : u"<invalid>";
}

bool GDeviceSession::_isRobust( ) const
{
    return _instance->isRobust( u"Robust_Signalling" );
}

GWString GDeviceSession::_bd( GWStringView suffix ) const
{
    return GConcat( _buddyDeviceGUID, suffix );
}

GWString GDeviceSession::_buddy( GWStringView suffix ) const
{
    return GConcat( _buddyGUID, suffix );
}

// ---- Inputs.

void GDeviceSession::update( )
{
    _fsm_onInput( GSIPInput::ofEvent( UPDATE ) );
}

void GDeviceSession::onCaptureChanged( )
{
    _fsm_onInput( GSIPInput::ofEvent( CAPTURECHANGED ) );
}

void GDeviceSession::bye( bool remove )
{
    _onInput( GSIPInput::ofEvent( remove ? REMOVEREQUESTED : BYEREQUESTED ) );
}

void GDeviceSession::onRequest( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request )
{
    if( request.isMethod( ACK ) ) noteHost( remoteHost );
    _fsm_onInput( GSIPInput::ofRequest( localHost, remoteHost, request ) );
}

void GDeviceSession::onResponse( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request,
                                 const GHTTPHeaders& response )
{
    noteHost( remoteHost );
    _fsm_onInput( GSIPInput::ofResponse( localHost, remoteHost, request, response ) );
}

// ---- The gate: logs what came, checks it, and warns of what no row took.

void GDeviceSession::_fsm_onInput( const GSIPInput& in )
{
    if( !isPing( in ) ) _logInput( in );
    _checkInput( in );
    if( !_onInput( in ) ) _ignoreInput( in );
}

void GDeviceSession::_logInput( const GSIPInput& in ) const
{
    if( in.isRequest( ) )
        GLOGIF( 'd', _buddyDeviceGUID, u": Received request '", in.request.getMethod( ), u"' from (", in.remoteHost,
                u")" );
    if( in.isResponse( ) )
    {
        GWString text;
        const int code = in.response.getResponse( text );
        GLOGIF( 'd', _buddyDeviceGUID, u": Received response #", code, u" '", text, u"' to request '",
                in.originalRequest.getMethod( ), u"' from (", in.remoteHost, u")" );
        if( code != GHTTP_SUCCESS )
            GLOGIF( 'd', _buddyDeviceGUID, u": Request '", in.originalRequest.getMethod( ), u"' failed with response #",
                    code, u" '", text, u"'." );
    }
    if( in.event && !in.is( UPDATE ) )
        GLOGIF( 'd', _buddyDeviceGUID, u": Received eventID #", in.event, u" '", _getEvent( in.event ), u"'" );
}

void GDeviceSession::_checkInput( const GSIPInput& in ) const
{
    const int eventID = in.event;
    const GWString commandMethod = in.command.getMethod( );
    const GWString requestMethod = in.request.getMethod( );
    const GWString& fromRemoteHost = in.remoteHost;
    if( in.isResponse( ) )
    {
        GVERIFY_TEXT( GCaseEquals( in.originalRequest.get( CSEQ ), in.response.get( CSEQ ) ),
                      "GCaseEquals( originalRequest.get( L\"CSeq\" ), recvResponse.get( L\"CSeq\" ) )" );
        GVERIFY( requestMethod.empty( ) );
    }
    if( in.isRequest( ) || in.isResponse( ) )
    {
        GVERIFY( GValidHost( fromRemoteHost ) );
        GVERIFY( !eventID );
        GVERIFY( commandMethod.empty( ) );
    }
}

void GDeviceSession::_ignoreInput( const GSIPInput& in ) const
{
    GWString text;
    if( in.isRequest( ) )
        GLOG( _buddyDeviceGUID, u": WARNING Request '", in.request.getMethod( ), u"' from (", in.remoteHost,
              u") ignored, no state change." );
    else if( in.isResponse( ) )
    {
        const int code = in.response.getResponse( text );
        GLOG( _buddyDeviceGUID, u": WARNING Response #", code, u" '", text, u"' from (", in.remoteHost,
              u") to request '", in.originalRequest.getMethod( ), u"' ignored, no state change." );
    }
    else
        GLOG( _buddyDeviceGUID, u": WARNING Event '", _getEvent( in.event ), u"' ignored, no state change." );
}

// ---- The machine.

bool GDeviceSession::_onInput( const GSIPInput& in )
{
    _checkState( );
    if( in.is( UPDATE ) ) _writeChatStatus( );
    if( _onStateInput( in ) ) return true;
    if( _isRobust( ) && in.isRequest( BYE ) ) return _answerBye( in );
    if( _isRobust( ) && ( in.is( BYEREQUESTED ) || in.is( REMOVEREQUESTED ) ) ) return _dropHandshake( );
    return isPing( in );
}

bool GDeviceSession::_onStateInput( const GSIPInput& in )
{
    switch( _state )
    {
    case DISCONNECTED: return _onDisconnected( in );
    case WF_INVITERESPONSE: return _onWaitForInviteResponse( in );
    case WT_REINVITE: return _onWaitToReinvite( in );
    case WF_ACK: return _onWaitForAck( in );
    case WF_ACKRESPONSE: return _onWaitForAckResponse( in );
    case CONNECTED: return _onConnected( in );
    case WF_BYERESPONSE: return _onWaitForByeResponse( in );
    }
    GLOG( u"WARNING In invalid state '", _state, u"', ignoring." );
    return false;
}

bool GDeviceSession::_onDisconnected( const GSIPInput& in )
{
    if( in.is( UPDATE ) ) return _writeStatus( );
    if( in.is( WAITFORINVITEOK ) ) return _awaitInviteResponse( );
    if( in.isRequest( INVITE ) ) return _acceptInvite( in );
    if( in.isResponseTo( INVITE ) ) return _onInviteResponse( in );
    return false;
}

bool GDeviceSession::_onWaitForInviteResponse( const GSIPInput& in )
{
    if( in.is( UPDATE ) && ( _isFirstRepeatDue( ) || _pingTimer.hasElapsed( ) ) ) _sendHOLEPUNCH( );
    if( in.is( UPDATE ) && _isRobust( ) ) _inviteAnewWhenDue( );
    if( in.is( UPDATE ) && _timeoutTimer.hasElapsed( ) ) return _giveUpInvite( );
    if( in.is( UPDATE ) ) return _writeStatusLine( _timeoutTimer );
    if( in.isResponseTo( INVITE ) ) return _onInviteResponse( in );
    if( in.isRequest( INVITE ) && _isInviteUnheard( ) ) return _acceptInvite( in );
    if( in.isRequest( INVITE ) )
        return _answerBusy( in, u"Received INVITE while waiting for ours to complete, responding BUSY." );
    return false;
}

bool GDeviceSession::_onWaitToReinvite( const GSIPInput& in )
{
    if( in.is( UPDATE ) && _reinviteTimer.hasElapsed( ) ) return _reinviteNow( );
    if( in.is( UPDATE ) ) return _writeStatusLine( _reinviteTimer );
    if( in.isRequest( INVITE ) ) return _acceptInvite( in );
    return false;
}

bool GDeviceSession::_onWaitForAck( const GSIPInput& in )
{
    if( in.is( UPDATE ) && _isFirstRepeatDue( ) ) return _repeatInviteOk( );
    if( in.is( UPDATE ) && _retransmitTimer.hasElapsed( ) ) return _repeatInviteOk( );
    if( in.is( UPDATE ) && _timeoutTimer.hasElapsed( ) )
        return _reinviteBecause( u"Response 'INVITEOK' timed out, trying to INVITE back." );
    if( in.is( UPDATE ) ) return _writeStatusLine( _timeoutTimer );
    if( in.isRequest( ACK ) ) return _acceptAck( in );
    if( in.isRequest( INVITE ) ) return _onSecondInvite( in );
    if( in.isResponseTo( INVITE ) && _isRobust( ) ) return _onCrossedInvite( in );
    return false;
}

bool GDeviceSession::_onWaitForAckResponse( const GSIPInput& in )
{
    if( in.is( UPDATE ) && _retransmitTimer.hasElapsed( ) ) return _repeatAck( );
    if( in.is( UPDATE ) && _timeoutTimer.hasElapsed( ) )
        return _reinviteBecause( u"Request 'ACK' timed out, retrying INVITE." );
    if( in.is( UPDATE ) ) return _writeStatusLine( _timeoutTimer );
    if( in.isResponseTo( ACK ) && in.response.getResponse( ) == GHTTP_SUCCESS ) return _acceptAckOk( in );
    if( in.isResponseTo( ACK ) ) return _dropBecause( u"WARNING Request 'ACK' failed, giving up." );
    if( in.isRequest( INVITE ) )
        return _answerBusy( in, u"Received INVITE while waiting for ours to complete, responding BUSY." );
    if( in.isResponseTo( INVITE ) ) return _lateResponse( in );
    return false;
}

bool GDeviceSession::_onConnected( const GSIPInput& in )
{
    if( _isFromStranger( in ) ) return true;
    if( in.is( UPDATE ) ) return _onRunningUpdate( );
    if( in.is( CAPTURECHANGED ) ) return _onOwnCaptureChanged( );
    if( in.isRequest( GProtocol::UPDATE ) ) return _onRemoteUpdate( in );
    if( in.isResponseTo( GProtocol::UPDATE ) ) return _onAnswer( in );
    if( in.isRequest( BYE ) ) return _onRemoteBye( in );
    if( in.isRequest( DEVICEBROADCAST ) ) return _onRemoteBroadcast( in );
    if( in.isResponseTo( DEVICEBROADCAST ) ) return _onAnswer( in );
    if( in.isRequest( PING ) ) return _onRemotePing( in );
    if( in.isResponseTo( PING ) ) return _onPingResponse( in );
    if( in.isRequest( INVITE ) ) return _onInviteWhileConnected( in );
    if( in.isRequest( ACK ) && _isRobust( ) ) return _onAckWhileConnected( in );
    if( in.is( BYEREQUESTED ) ) return _beginBye( false );
    if( in.is( REMOVEREQUESTED ) ) return _beginBye( true );
    if( in.isResponseTo( INVITE ) || in.isResponseTo( ACK ) ) return _lateResponse( in );
    return false;
}

bool GDeviceSession::_onWaitForByeResponse( const GSIPInput& in )
{
    if( _isFromStranger( in ) ) return true;
    if( in.is( UPDATE ) && _timeoutTimer.hasElapsed( ) ) return _dropBecause( u"Response 'BYE' timed out, giving up." );
    if( in.is( UPDATE ) ) return _writeStatusLine( _timeoutTimer );
    if( in.isResponseTo( BYE ) ) return _onByeResponse( in );
    if( in.isRequest( INVITE ) )
        return _answerBusy( in, u"WARNING Received INVITE while waiting for BYE to complete, responding BUSY." );
    return false;
}

// With the remedy: a device that has not answered for 2 s, and invites by itself, has never heard our INVITE, since it was not there
// when that was sent. It would be refused until ours times out.
bool GDeviceSession::_isInviteUnheard( ) const
{
    return _isRobust( ) && ( _invitedAtEnd || TIMEOUT - _timeoutTimer.getRemaining( ) > UNHEARD );
}

// ---- What each state implies.

void GDeviceSession::_checkState( ) const
{
    if( _state < CONNECTED )
    {
        GVERIFY( _sendToHost.empty( ) );
        GVERIFY( _sendToType.empty( ) );
        GVERIFY( _sendFromHost.empty( ) );
        GVERIFY( _recvFromHost.empty( ) );
    }
    else
    {
        GVERIFY( GValidHost( _sendToHost ) );
        GVERIFY( GValidHost( _sendFromHost ) );
        GVERIFY( GValidHost( _recvFromHost ) );
        GVERIFY( !_sendToType.empty( ) );
    }
    if( _state == WF_ACK )
        GVERIFY_TEXT( !isEmpty( _originalINVITERequest ), "!_originalINVITERequest.empty( )" );
    else
        GVERIFY_TEXT( isEmpty( _originalINVITERequest ), "_originalINVITERequest.empty( )" );
    if( _state == WF_ACKRESPONSE )
        GVERIFY_TEXT( !isEmpty( _originalINVITEResponse ), "!_originalINVITEResponse.empty( )" );
    else
        GVERIFY_TEXT( isEmpty( _originalINVITEResponse ), "_originalINVITEResponse.empty( )" );
}

// ---- Steps that several rows share.

void GDeviceSession::_changeState( State state )
{
    GLOGIF( 'd', _buddyDeviceGUID, u": Changing state from '", _getState( _state ), u"' to '", _getState( state ),
            u"'" );
    _state = state;
}

bool GDeviceSession::_drop( )
{
    _changeState( DISCONNECTED );
    _reset( );
    return true;
}

bool GDeviceSession::_dropBecause( GWStringView reason )
{
    if( reason.starts_with( u"WARNING" ) )
        GLOG( reason );
    else
        GLOGIF( 'd', reason );
    return _drop( );
}

bool GDeviceSession::_reinvite( )
{
    _lastPingSuccessTimestamp = 0;
    _randomiseReinviteTimer( );
    _changeState( WT_REINVITE );
    _reset( );
    return true;
}

bool GDeviceSession::_reinviteBecause( GWStringView reason )
{
    GLOGIF( 'd', reason );
    return _reinvite( );
}

// The route list stays, since a later reinvite needs it; so do the ping times.
void GDeviceSession::_reset( )
{
    _stopServices( );
    _originalINVITERequest.clear( );
    _originalINVITEResponse.clear( );
    _lastPingSuccessTimestamp = 0;
    _numPingsSent = 0;
    _numPingsReceived = 0;
    _recvFromHost.clear( );
    _sendFromHost.clear( );
    _sendToHost.clear( );
    _sendToType.clear( );
    _mediaRestartDue = false;
    _sipClient->reset( _buddyGUID, _deviceGUID );
    _instance->set( _buddy( u"_Time" ), u"-:--pm" );
}

bool GDeviceSession::_writeStatus( )
{
    _instance->set( _statusName, GWStringView( STATE_NAMES[_state] ) );
    return true;
}

bool GDeviceSession::_writeStatusLine( const GIntervalTimer& timer )
{
    _instance->set( _statusName, GConcat( timer.getRemaining( ) / SECOND, u" ", _getState( _state ) ) );
    return true;
}

void GDeviceSession::_writeChatStatus( )
{
    if( _state == DISCONNECTED || _state == CONNECTED ) return;
    _instance->set( _buddy( u"_Chat_Status" ),
                    _buddy( _state == WF_BYERESPONSE ? u" is disconnecting..." : u" is connecting..." ) );
}

// Who leaves or removes a buddy connects no more: a session that came up after the goodbye would never hear one.
bool GDeviceSession::_dropHandshake( )
{
    return _state == DISCONNECTED || _state == WF_BYERESPONSE || _drop( );
}

// A peer whose BYE found us elsewhere would repeat it until it times out.
bool GDeviceSession::_answerBye( const GSIPInput& in )
{
    GHTTPHeaders response;
    response.setResponse( GHTTP_SUCCESS, u"OK" );
    _setHeaders( response );
    _sipClient->sendResponse( in.localHost, in.remoteHost, in.request, response );
    return true;
}
