// The way in: INVITE, response, ACK, ACKOK, and the route that they prove for each direction.
#include "base/GForeignText.h"
#include "base/GRandom.h"
#include "client/drawing/GImageTools.h"
#include "client/signalling/GDeviceSession.h"
#include "client/signalling/GRoute.h"
#include "client/signalling/GSIPClient.h"
#include "client/transport/GMegaPort.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

using namespace GProtocol;

namespace
{
constexpr int BUSY = 300;
constexpr int64_t INVITE_ANEW = 3000000;
constexpr int64_t FIRST_REPEAT = 200000;
constexpr int64_t MAX_TIME_BIAS = 1440;
constexpr size_t MAX_ZONE_LENGTH = 64;
constexpr size_t MAX_SEEN_HOSTS = 4;
constexpr char16_t SEEN_SCHEME[] = u"restricted";
} // namespace

// ---- The caller.

void GDeviceSession::sendINVITE( GInstance* instance, GSIPClient* sipClient, const GWString& buddyGUID )
{
    GHTTPHeaders request( INVITE );
    request.set( FROM, instance->get( u"Local_User_GUID" ) );
    request.set( FROM_DEVICE_GUID, instance->get( u"Local_Device_GUID" ) );
    request.set( TO, buddyGUID );
    request.set( u"User-Agent", instance->get( u"User_Agent_String" ) );
    _setMediaHeaders( instance, request );
    sipClient->sendRequest( { }, instance->get( u"Global_SIP_Host" ), request, true );
}

// The holes are punched in the same pass: until they are, the device's answers can't come in.
void GDeviceSession::waitForINVITEOK( const GStringList& routeList )
{
    _tryRouteList = routeList;
    _pingTimer.expire( );
    _onInput( GSIPInput::ofEvent( WAITFORINVITEOK ) );
    if( _state == WF_INVITERESPONSE && _pingTimer.hasElapsed( ) ) _sendHOLEPUNCH( );
}

bool GDeviceSession::_awaitInviteResponse( )
{
    _timeoutTimer.start( );
    _anewTimer.start( INVITE_ANEW );
    _invitedAnew = _invitedAtEnd = false;
    _startFirstRepeat( );
    _changeState( WF_INVITERESPONSE );
    return true;
}

void GDeviceSession::_inviteAnewWhenDue( )
{
    if( _invitedAnew || !_anewTimer.hasElapsed( ) ) return;
    _invitedAnew = true;
    sendINVITE( _instance, _sipClient, _buddyGUID );
}

bool GDeviceSession::_giveUpInvite( )
{
    if( !_isRobust( ) || _invitedAtEnd ) return _dropBecause( u"Request 'INVITE' timed out, giving up." );
    _invitedAtEnd = true;
    sendINVITE( _instance, _sipClient, _buddyGUID );
    _timeoutTimer.start( );
    return true;
}

bool GDeviceSession::_reinviteNow( )
{
    GLOGIF( 'd', u"Reinviting" );
    _sendINVITE( );
    return _awaitInviteResponse( );
}

void GDeviceSession::_sendINVITE( )
{
    GLOGIF( 'D', u"Sending 'INVITE' to '", _buddyGUID, u"'" );
    waitForINVITEOK( GStringList( _tryRouteList ) );
    sendINVITE( _instance, _sipClient, _buddyGUID );
    _retransmitTimer.start( );
}

void GDeviceSession::_sendHOLEPUNCH( )
{
    const GWString localHost = _sipClient->getPort( )->getLocalHost( );
    const GStringList routeList = _withSeenRoutes( _tryRouteList );
    GLOGIF( 'D', u"Punching holes from (", localHost, u") to '", GJoinList( routeList ), u"'" );
    for( const GWString& text : routeList )
    {
        GRoute route;
        if( !GRouteSplit( text, route ) ) continue;
        GHTTPHeaders request( HOLEPUNCH );
        _setHeaders( request );
        _sipClient->sendRequest( localHost, route.host, request, false );
    }
}

// A device's answer may overtake the server's, from a neighbour nearly always does: the time for its ACK begins with it.
bool GDeviceSession::_onInviteResponse( const GSIPInput& in )
{
    if( _isRobust( ) && _state == DISCONNECTED ) _timeoutTimer.start( );
    _originalINVITEResponse = _withUsableRoutes( in.response, in.remoteHost );
    return _handleInviteResponse( );
}

bool GDeviceSession::_handleInviteResponse( )
{
    if( _originalINVITEResponse.getResponse( ) == GHTTP_SUCCESS )
    {
        _sendACK( _originalINVITEResponse );
        if( _state != WF_ACKRESPONSE )
        {
            if( _isRobust( ) ) _retransmitTimer.start( );
            _changeState( WF_ACKRESPONSE );
        }
        _lastPingSuccessTimestamp = GTimeGetTime( );
        return true;
    }
    _randomiseReinviteTimer( );
    _changeState( WT_REINVITE );
    _reset( );
    return true;
}

// Both sides that found each other busy wait for a moment of their own within the next 10 s.
void GDeviceSession::_randomiseReinviteTimer( )
{
    const int64_t random = static_cast<int64_t>( GRandom( ) ) * GRandom( );
    _reinviteTimer.startAt( GTimeGetTime( ) - static_cast<uint64_t>( random % _reinviteTimer.getDuration( ) ) );
}

bool GDeviceSession::_repeatAck( )
{
    GLOGIF( 'd', u"Retransmitting ACK while waiting for ACKOK" );
    return _handleInviteResponse( );
}

void GDeviceSession::_sendACK( const GHTTPHeaders& inviteResponse )
{
    GVERIFY_TEXT( !inviteResponse.get( u"Sent-From" ).empty( ), "inviteResponse.isSet( L\"Sent-From\" )" );
    GVERIFY_TEXT( !inviteResponse.get( u"Sent-To" ).empty( ), "inviteResponse.isSet( L\"Sent-To\" )" );
    GVERIFY_TEXT( !inviteResponse.get( u"Sent-To-Type" ).empty( ), "inviteResponse.isSet( L\"Sent-To-Type\" )" );
    _takeRemoteState( inviteResponse );
    GHTTPHeaders request( ACK );
    _setHeaders( request );
    request.set( u"Send-From", inviteResponse.get( u"Sent-From" ) );
    request.set( u"Send-To", inviteResponse.get( u"Sent-To" ) );
    request.set( u"Send-To-Type", inviteResponse.get( u"Sent-To-Type" ) );
    GStringList routeList;
    inviteResponse.get( TRY_ROUTE_LIST, routeList );
    _sipClient->sendRequestToRouteList( _withSeenRoutes( routeList ), request, true );
}

bool GDeviceSession::_acceptAckOk( const GSIPInput& in )
{
    if( !_provesRoute( in.response, in.remoteHost, _originalINVITEResponse ) ) return true;
    _updateRoute( in.response.get( u"Send-From" ), in.response.get( u"Send-To" ), in.response.get( u"Send-To-Type" ),
                  in.remoteHost, in.response.get( u"Sent-From-Type" ), _originalINVITEResponse.get( u"Sent-To" ),
                  _originalINVITEResponse.get( u"Sent-To-Type" ) );
    _startServices( );
    _enterConnected( );
    return true;
}

// ---- The callee.

bool GDeviceSession::_acceptInvite( const GSIPInput& in )
{
    const GHTTPHeaders request = _withUsableRoutes( in.request, in.remoteHost );
    _sendINVITEResponse( request, GHTTP_SUCCESS );
    _timeoutTimer.start( );
    _originalINVITERequest = request;
    _holesAnswered = 0;
    _startFirstRepeat( );
    if( _isRobust( ) ) _retransmitTimer.start( );
    if( _state != WF_ACK ) _changeState( WF_ACK );
    return true;
}

bool GDeviceSession::_answerBusy( const GSIPInput& in, GWStringView reason )
{
    if( reason.starts_with( u"WARNING" ) )
        GLOG( reason );
    else
        GLOGIF( 'd', reason );
    _sendINVITEResponse( _withUsableRoutes( in.request, in.remoteHost ), BUSY );
    return true;
}

// A caller that invites while its former INVITE stands has lost our answer: with the remedy it hears the 200 again.
bool GDeviceSession::_onSecondInvite( const GSIPInput& in )
{
    if( _isRobust( ) && in.request.get( CSEQ ) == _originalINVITERequest.get( CSEQ ) )
    {
        _sendINVITEResponse( _originalINVITERequest, GHTTP_SUCCESS );
        return true;
    }
    if( _isRobust( ) ) return _acceptInvite( in );
    return _answerBusy( in, u"Received INVITE while waiting for ACK, responding BUSY." );
}

// Invitations that crossed and were both taken would leave each side waiting for the other's ACK: the device whose id comes first
// stays the caller.
bool GDeviceSession::_onCrossedInvite( const GSIPInput& in )
{
    const bool calls = _instance->get( u"Local_Device_GUID" ) < _deviceGUID;
    if( !calls || in.response.getResponse( ) != GHTTP_SUCCESS ) return _lateResponse( in );
    _originalINVITERequest.clear( );
    _timeoutTimer.start( );
    return _onInviteResponse( in );
}

void GDeviceSession::_startFirstRepeat( )
{
    _firstRepeatDone = !_isRobust( );
    _firstRepeatTimer.start( FIRST_REPEAT );
}

bool GDeviceSession::_isFirstRepeatDue( )
{
    if( _firstRepeatDone || !_firstRepeatTimer.hasElapsed( ) ) return false;
    _firstRepeatDone = true;
    return true;
}

bool GDeviceSession::_repeatInviteOk( )
{
    GLOGIF( 'd', u"Retransmitting INVITEOK while waiting for ACK" );
    _sendINVITEResponse( _originalINVITERequest, GHTTP_SUCCESS );
    return true;
}

void GDeviceSession::_sendINVITEResponse( const GHTTPHeaders& request, int code )
{
    GStringList routeList;
    request.get( TRY_ROUTE_LIST, routeList );
    _sendINVITEResponse( request, code, _withSeenRoutes( routeList ) );
}

void GDeviceSession::_sendINVITEResponse( const GHTTPHeaders& request, int code, const GStringList& routeList )
{
    _takeRemoteState( request );
    GHTTPHeaders response;
    response.setResponse( code, code == GHTTP_SUCCESS ? u"OK" : code == BUSY ? u"Busy" : u"Failed" );
    _setHeaders( response );
    _setMediaHeaders( _instance, response );
    _sipClient->sendResponseToRouteList( routeList, request, response );
}

bool GDeviceSession::_acceptAck( const GSIPInput& in )
{
    if( !_provesRoute( in.request, in.remoteHost, _originalINVITERequest ) ) return true;
    _updateRoute( in.request.get( u"Send-From" ), in.request.get( u"Send-To" ), in.request.get( u"Send-To-Type" ),
                  in.remoteHost, in.request.get( u"Sent-From-Type" ), _originalINVITERequest.get( u"Sent-To" ),
                  _originalINVITERequest.get( u"Sent-To-Type" ) );
    _startServices( );
    _sendACKOK( in.request );
    _enterConnected( );
    return true;
}

void GDeviceSession::_sendACKOK( const GHTTPHeaders& ack )
{
    GVERIFY( GValidHost( _sendToHost ) );
    GVERIFY( GValidHost( _sendFromHost ) );
    GHTTPHeaders response;
    response.setResponse( GHTTP_SUCCESS, u"OK" );
    _setHeaders( response );
    response.set( u"Send-From", ack.get( u"Sent-From" ) );
    response.set( u"Send-To", ack.get( u"Sent-To" ) );
    response.set( u"Send-To-Type", ack.get( u"Sent-To-Type" ) );
    response.set( u"Sent-To-Type", _sendToType );
    _sipClient->sendResponse( _sendFromHost, _sendToHost, ack, response );
}

// ---- Both.

void GDeviceSession::_enterConnected( )
{
    _changeState( CONNECTED );
    // Copies of the ACK along other ways need no answer any more.
    if( _isRobust( ) ) _sipClient->settle( _buddyGUID, _deviceGUID );
    _lastPingSuccessTimestamp = GTimeGetTime( );
    _instance->clear( _buddy( u"_Chat_Status" ) );
    _originalINVITERequest.clear( );
    _originalINVITEResponse.clear( );
}

bool GDeviceSession::_lateResponse( const GSIPInput& in ) const
{
    GWString text;
    in.response.getResponse( text );
    GLOGIF( 'd', u"Request '", in.originalRequest.getMethod( ), u"' received late response ", text, u", ignoring." );
    return true;
}

// What the peer says about the copy that reached it must name a copy that was sent: from one of our own hosts, to one of those that
// `exchange`, its former message, named. Else a stranger could turn our media on anybody.
bool GDeviceSession::_provesRoute( const GHTTPHeaders& message, const GWString& remoteHost,
                                   const GHTTPHeaders& exchange ) const
{
    if( GListContains( _sipClient->getOwnHosts( ), message.get( u"Send-From" ) ) &&
        _wasTried( message.get( u"Send-To" ), exchange ) && GRouteIsScheme( message.get( u"Send-To-Type" ) ) )
        return true;
    GLOG( u"WARNING Received ACK or its answer without a usable route from '", _buddyDeviceGUID, u"' (", remoteHost,
          u"), ignoring." );
    return false;
}

bool GDeviceSession::_wasTried( const GWString& host, const GHTTPHeaders& exchange ) const
{
    GStringList routeList;
    exchange.get( TRY_ROUTE_LIST, routeList );
    for( const GWString& text : _withSeenRoutes( routeList ) )
    {
        GRoute route;
        if( GRouteSplit( text, route ) && route.host == host ) return true;
    }
    return false;
}

void GDeviceSession::_updateRoute( const GWString& sendFrom, const GWString& sendTo, const GWString& sendToType,
                                   const GWString& recvFrom, const GWString& recvFromType, const GWString& recvTo,
                                   const GWString& recvToType )
{
    GVERIFY( !sendFrom.empty( ) && !sendTo.empty( ) && !sendToType.empty( ) );
    // An INVITE came by the server and names no type of the route to us.
    GVERIFY_TEXT( !recvFrom.empty( ) && !recvTo.empty( ) && !recvFromType.empty( ),
                  "!recvFrom.empty( ) && !recvTo.empty( ) && !recvToType.empty( ) && !recvFromType.empty( )" );
    _sendFromHost = sendFrom;
    _sendToHost = sendTo;
    _sendToType = sendToType;
    _recvFromHost = recvFrom;
    const bool local = GCaseEquals( sendFrom, _sipClient->getPort( )->getLocalHost( ) );
    const GWString sendRoute = GConcat( local ? u"local->" : u"turn->", sendToType );
    const GWString recvRoute = GRouteCleanText( GConcat( recvToType, u"<-", recvFromType ), MAX_ZONE_LENGTH );
    _instance->set( _bd( u"_Send_Route" ), sendRoute );
    _instance->set( _bd( u"_Recv_Route" ), recvRoute );
    _instance->set( _bd( u"_Send_From" ), _sendFromHost );
    _instance->set( _bd( u"_Send_To" ), _sendToHost );
    _instance->set( _bd( u"_Recv_From" ), _recvFromHost );
    GLOGIF( 'd', u"Switched route, sendFrom=(", sendFrom, u"), sendTo=(", sendTo, u"), sendRoute=(", sendRoute,
            u"), recvFrom=(", recvFrom, u"), recvRoute=(", recvRoute, u")" );
}

void GDeviceSession::_setHeaders( GHTTPHeaders& message ) const
{
    message.set( u"User-Agent", _instance->get( u"User_Agent_String" ) );
    message.set( FROM, _instance->get( u"Local_User_GUID" ) );
    message.set( FROM_DEVICE_GUID, _instance->get( u"Local_Device_GUID" ) );
    message.set( TO, _buddyGUID );
    message.set( u"To-Device-GUID", _deviceGUID );
    message.set( u"Time-Sent", static_cast<int64_t>( GTimeGetTime( ) ) );
}

void GDeviceSession::_setMediaHeaders( GInstance* instance, GHTTPHeaders& message )
{
    message.set( TRY_ROUTE_LIST, instance->get( u"Route_List" ) );
    message.set( u"Audio-Enabled", instance->get( u"Audio_Capture_Online" ) );
    message.set( u"Video-Enabled", instance->get( u"Video_Capture_Online" ) );
    message.set( u"Time-Bias", static_cast<int64_t>( GTimeGetBias( ) ) );
    message.set( u"Time-Zone", GTimeGetZone( ) );
}

void GDeviceSession::_takeRemoteState( const GHTTPHeaders& message )
{
    _updateRemoteMedia( message.test( u"Audio-Enabled" ), message.test( u"Video-Enabled" ) );
    const int64_t bias = message.calc( u"Time-Bias" );
    _instance->set( _buddy( u"_Time_Zone" ), GForeignText( message.get( u"Time-Zone" ), MAX_ZONE_LENGTH ) );
    _instance->set( _buddy( u"_Time_Bias" ), GWITHIN( -MAX_TIME_BIAS, bias, MAX_TIME_BIAS ) ? bias : int64_t( 0 ) );
    _updateClock( );
}

// The buddy's picture shows what the buddy can do.
void GDeviceSession::_updateRemoteMedia( bool audioEnabled, bool videoEnabled )
{
    _instance->set( _buddy( u"_Audio_Enabled" ), audioEnabled ? u"true" : u"false" );
    _instance->set( _bd( u"_Audio_Enabled" ), audioEnabled ? u"true" : u"false" );
    _instance->set( _bd( u"_Video_Enabled" ), videoEnabled ? u"true" : u"false" );
    GWString picture = u"defaultprofile";
    if( audioEnabled || videoEnabled ) picture += u'_';
    if( audioEnabled ) picture += u'a';
    if( videoEnabled ) picture += u'v';
    GImageTools_instanceCopy( _instance, GConcat( picture, u".png" ), _buddy( u"_Image" ) );
    GImageTools_instanceCopy( _instance, GConcat( picture, u"_BW.png" ), _buddy( u"_Image_BW" ) );
}

// ---- Routes.

// Tested once, so that repetitions neither test nor warn again.
GHTTPHeaders GDeviceSession::_withUsableRoutes( const GHTTPHeaders& message, const GWString& remoteHost ) const
{
    GHTTPHeaders out = message;
    GStringList routeList;
    message.get( TRY_ROUTE_LIST, routeList );
    out.set( TRY_ROUTE_LIST, GRouteListFilter( routeList, remoteHost, _sipClient->getOwnHosts( ) ) );
    return out;
}

void GDeviceSession::noteHost( const GWString& remoteHost )
{
    if( !_isRobust( ) || !GRouteIsUsableHost( remoteHost, remoteHost ) ) return;
    if( GListContains( _sipClient->getOwnHosts( ), remoteHost ) ) return;
    _seenHosts.remove( remoteHost );
    _seenHosts.push_front( remoteHost );
    if( _seenHosts.size( ) > MAX_SEEN_HOSTS ) _seenHosts.pop_back( );
}

// The caller opened a way that it had not named, and waits: an answer that takes this way now comes before the copies through a relay,
// however far apart the two are. A repetition by the clock would come too late from far away.
void GDeviceSession::onHOLEPUNCH( const GWString& remoteHost )
{
    const bool isNew = !GListContains( _seenHosts, remoteHost );
    noteHost( remoteHost );
    if( !isNew || _state != WF_ACK || !GListContains( _seenHosts, remoteHost ) || _holesAnswered == MAX_SEEN_HOSTS )
        return;
    ++_holesAnswered;
    _sendINVITEResponse( _originalINVITERequest, GHTTP_SUCCESS, { GRouteCompose( SEEN_SCHEME, remoteHost ) } );
}

GStringList GDeviceSession::_withSeenRoutes( GStringList routeList ) const
{
    if( !_isRobust( ) ) return routeList;
    for( const GWString& host : _seenHosts )
    {
        bool known = false;
        GRoute route;
        for( const GWString& text : routeList ) known = known || ( GRouteSplit( text, route ) && route.host == host );
        if( !known ) routeList.push_back( GRouteCompose( SEEN_SCHEME, host ) );
    }
    return routeList;
}
