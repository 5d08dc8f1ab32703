// The connected state: measuring the link, media state, messages of the skin, the services' streams, and parting.
#include "base/GRandom.h"
#include "client/signalling/GDeviceSession.h"
#include "client/signalling/GSIPClient.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

#include <cmath>

using namespace GProtocol;

namespace
{
constexpr uint64_t LOST_CONTACT = 10000000;
constexpr uint64_t GONE_SILENT = 2000000;
constexpr uint64_t REMOVAL_MEMORY = 60000000;
constexpr size_t MAX_PING_TIMES = 30;
constexpr int64_t MICROSECONDS_PER_MINUTE = 60000000;
// The main thread drains its queue ten times a second: when it holds this much, that thread stands still. One peer can't fill it for
// the others. What is refused goes unanswered, and so comes again.
constexpr int MAX_CLIENT_COMMANDS = 1000;
constexpr int MAX_BROADCASTS_PER_SECOND = 100;
constexpr char16_t CLIENT_QUEUE[] = u"GClient_commandQueue";
constexpr char16_t CAPTURE_QUEUE[] = u"GVideoCaptureService_commandQueue";
constexpr char16_t PLAYBACK_QUEUE[] = u"GVideoPlaybackService_commandQueue";
constexpr char16_t FILE_QUEUE[] = u"GFileService_commandQueue";
constexpr char16_t SCREEN_QUEUE[] = u"GScreenService_commandQueue";
constexpr const char16_t* RUNNING_METHODS[] = { PING, GProtocol::UPDATE, DEVICEBROADCAST, BYE };

int64_t drawIdentifier( )
{
    return static_cast<int64_t>( GRandom( ) ) * GRandom( );
}
} // namespace

// ---- The link.

bool GDeviceSession::_onRunningUpdate( )
{
    GVERIFY( _lastPingSuccessTimestamp );
    const uint64_t now = GTimeGetTime( );
    if( now - _lastPingSuccessTimestamp > LOST_CONTACT && !_instance->test( u"Disable_Connection_Timeout" ) )
    {
        GLOG( u"WARNING Lost contact with '", _buddyDeviceGUID, u"', reinviting. (Loss=",
              _instance->get( _bd( u"_Loss" ) ), u")" );
        return _reinvite( );
    }
    if( _pingTimer.hasElapsed( ) )
    {
        _sendPING( );
        _updateClock( );
    }
    _restartMediaWhenDue( );
    return _writeStatus( );
}

void GDeviceSession::_sendPING( )
{
    GVERIFY( GValidHost( _sendToHost ) );
    GHTTPHeaders request( PING );
    _sendRunning( request, false );
    GLOGIF( 'k', u"PING request sent from (", _sendFromHost, u") to (", _sendToHost, u")" );
    ++_numPingsSent;
    _writeLoss( );
}

bool GDeviceSession::_onRemotePing( const GSIPInput& in )
{
    _sendOK( in.request );
    _lastPingSuccessTimestamp = GTimeGetTime( );
    GLOGIF( 'k', u"PING response sent from (", _sendFromHost, u") to (", _sendToHost, u")" );
    return true;
}

bool GDeviceSession::_onPingResponse( const GSIPInput& in )
{
    if( in.response.getResponse( ) != GHTTP_SUCCESS )
    {
        GLOG( u"WARNING Ping failed on '", _buddyDeviceGUID, u"', ignoring." );
        return true;
    }
    const uint64_t now = GTimeGetTime( );
    const uint64_t time = now - static_cast<uint64_t>( in.originalRequest.calc( u"Time-Sent" ) );
    _lastPingSuccessTimestamp = now;
    _addPingTime( static_cast<double>( time ) );
    _writePing( time );
    ++_numPingsReceived;
    _writeLoss( );
    return true;
}

void GDeviceSession::_addPingTime( double time )
{
    _pingTimes.push_back( time );
    if( _pingTimes.size( ) > MAX_PING_TIMES ) _pingTimes.pop_front( );
}

// The last time and the population standard deviation over the last 30.
void GDeviceSession::_writePing( uint64_t time )
{
    const double count = static_cast<double>( _pingTimes.size( ) );
    double sum = 0;
    double squares = 0;
    for( const double sample : _pingTimes ) sum += sample;
    const double mean = sum / count;
    for( const double sample : _pingTimes ) squares += ( sample - mean ) * ( sample - mean );
    const int64_t deviation = static_cast<int64_t>( std::sqrt( squares / count ) / 1000 );
    _instance->set( _bd( u"_Ping" ), GConcat( time / 1000, u"±", deviation, u"ms" ) );
}

// A ping just sent counts as lost until its answer comes.
void GDeviceSession::_writeLoss( )
{
    if( !_numPingsSent ) return;
    const double loss = ( 1.0 - static_cast<double>( _numPingsReceived ) / _numPingsSent ) * 100;
    _instance->set( _bd( u"_Loss" ), GConcat( GFormatDouble( loss, 2 ), u"% (", _numPingsSent - _numPingsReceived, u"/",
                                              _numPingsSent, u")" ) );
}

void GDeviceSession::_updateClock( )
{
    const int64_t bias = _instance->calc( _buddy( u"_Time_Bias" ) ) * MICROSECONDS_PER_MINUTE;
    _instance->set( _buddy( u"_Time" ), GTimeComposeTime( GTimeGetTime( ) - static_cast<uint64_t>( bias ) ) );
}

// ---- Messages.

void GDeviceSession::_sendRunning( GHTTPHeaders& request, bool retransmit )
{
    _setHeaders( request );
    _sipClient->sendRequest( _sendFromHost, _sendToHost, request, retransmit );
}

void GDeviceSession::_sendOK( const GHTTPHeaders& request )
{
    GHTTPHeaders response;
    response.setResponse( GHTTP_SUCCESS, u"OK" );
    _setHeaders( response );
    _sipClient->sendResponse( _sendFromHost, _sendToHost, request, response );
}

void GDeviceSession::_sendUPDATE( )
{
    GLOGIF( 'D', u"Sending UPDATE request to (", _buddyDeviceGUID, u")" );
    GHTTPHeaders request( GProtocol::UPDATE );
    request.set( u"Audio-Enabled", _instance->get( u"Audio_Capture_Online" ) );
    request.set( u"Video-Enabled", _instance->get( u"Video_Capture_Online" ) );
    _sendRunning( request, true );
}

void GDeviceSession::_sendBYE( bool remove )
{
    GHTTPHeaders request( BYE );
    request.set( u"Removed", remove ? u"true" : u"false" );
    _sendRunning( request, true );
}

// Whatever belongs to a running session counts only from the host from which its peer has proved to send.
bool GDeviceSession::_isFromStranger( const GSIPInput& in ) const
{
    if( !in.isRequest( ) && !in.isResponse( ) ) return false;
    const GHTTPHeaders& message = in.isRequest( ) ? in.request : in.originalRequest;
    bool running = false;
    for( const char16_t* method : RUNNING_METHODS ) running = running || message.isMethod( method );
    if( !running || GCaseEquals( in.remoteHost, _recvFromHost ) ) return false;
    GLOG( u"WARNING Received '", message.getMethod( ), u"' of '", _buddyDeviceGUID, u"' from unexpected host (",
          in.remoteHost, u"), ignoring." );
    return true;
}

bool GDeviceSession::_onAnswer( const GSIPInput& in ) const
{
    GVERIFY_TEXT( in.response.getResponse( ) == GHTTP_SUCCESS, "recvResponse.succeeded( )" );
    return true;
}

bool GDeviceSession::_onRemoteBroadcast( const GSIPInput& in )
{
    if( _broadcastTimer.hasElapsed( ) ) _numBroadcasts = 0;
    if( _numBroadcasts == MAX_BROADCASTS_PER_SECOND || _instance->length( CLIENT_QUEUE ) >= MAX_CLIENT_COMMANDS )
    {
        GLOG( u"WARNING Too many messages from '", _buddyDeviceGUID, u"', ignoring." );
        return true;
    }
    ++_numBroadcasts;
    _instance->enqueue( CLIENT_QUEUE, in.request );
    _sendOK( in.request );
    return true;
}

// With the remedy a peer that has fallen silent for 2 s and invites has restarted, and is not made to wait for the time-out. Its
// INVITE comes by the server, or from where the peer itself was heard.
bool GDeviceSession::_onInviteWhileConnected( const GSIPInput& in )
{
    const bool isSilent = GTimeGetTime( ) - _lastPingSuccessTimestamp > GONE_SILENT;
    const bool isTrusted = GCaseEquals( in.remoteHost, _instance->get( u"Global_SIP_Host" ) ) ||
                           GCaseEquals( in.remoteHost, _recvFromHost );
    if( !_isRobust( ) || !isSilent || !isTrusted )
        return _answerBusy( in, u"WARNING Received INVITE while waiting already CONNECTED, responding BUSY." );
    GLOGIF( 'd', u"Received INVITE from '", _buddyDeviceGUID, u"', which has gone silent; beginning anew." );
    _drop( );
    return _acceptInvite( in );
}

// With the remedy the ACK of a caller that has lost our answer is answered again, if it took the way that counts; its copies along
// other ways are nothing to warn of.
bool GDeviceSession::_onAckWhileConnected( const GSIPInput& in )
{
    if( GCaseEquals( in.remoteHost, _recvFromHost ) ) _sendACKOK( in.request );
    return true;
}

// ---- Media.

bool GDeviceSession::_onOwnCaptureChanged( )
{
    _sendUPDATE( );
    _restartMedia( );
    return true;
}

bool GDeviceSession::_onRemoteUpdate( const GSIPInput& in )
{
    _updateRemoteMedia( in.request.test( u"Audio-Enabled" ), in.request.test( u"Video-Enabled" ) );
    _mediaRestartDue = true;
    _restartMediaWhenDue( );
    _sendOK( in.request );
    return true;
}

// At most once a second for a peer's sake; of several requests the last one counts.
void GDeviceSession::_restartMediaWhenDue( )
{
    if( !_mediaRestartDue || !_mediaTimer.hasElapsed( ) ) return;
    _mediaRestartDue = false;
    _restartMedia( );
}

// By the letter every service starts over; with the remedy files and screens go on.
void GDeviceSession::_restartMedia( )
{
    if( _isRobust( ) )
        _stopMedia( );
    else
        _stopServices( );
    _startServices( );
}

void GDeviceSession::_startServices( )
{
    GVERIFY( GValidHost( _sendToHost ) );
    GVERIFY( GValidHost( _sendFromHost ) );
    GVERIFY( GValidHost( _recvFromHost ) );
    GLOGIF( 'd', u"Starting services: sendTo=(", _sendToHost, u"), sendFrom=(", _sendFromHost, u"), recvFrom=(",
            _recvFromHost, u")" );
    GHTTPHeaders playback( u"OPEN" );
    playback.set( u"Buddy-Device-GUID", _buddyDeviceGUID );
    playback.set( u"Recv-From-Host", _recvFromHost );
    _instance->enqueue( PLAYBACK_QUEUE, playback );

    GHTTPHeaders capture( u"OPEN" );
    capture.set( u"Buddy-Device-GUID", _buddyDeviceGUID );
    capture.set( u"Send-To", _sendToHost );
    capture.set( u"Send-From", _sendFromHost );
    capture.set( u"Video-FPS", int64_t( 1 ) );
    capture.set( u"Audio-Enable", u"false" );
    capture.set( u"Video-Enable", _mayPeerSeeVideo( ) ? u"true" : u"false" );
    _instance->enqueue( CAPTURE_QUEUE, capture );
}

bool GDeviceSession::_mayPeerSeeVideo( ) const
{
    const bool isPrivate =
        GCaseEquals( _instance->get( u"Video_Privacy_Choice_Mode" ), u"Private - Allow nobody to see me" );
    const bool always = GCaseEquals( _instance->get( u"Video_Privacy_Choice_When" ), u"Always" );
    const bool allBuddies = GCaseEquals( _instance->get( u"Video_Privacy_Choice_Who" ), u"All my buddies" );
    const bool remoteVideo = _instance->test( _bd( u"_Video_Enabled" ) );
    return !isPrivate && always && ( allBuddies || remoteVideo );
}

void GDeviceSession::_stopServices( )
{
    _stopMedia( );
    GHTTPHeaders cancel( u"CANCEL" );
    cancel.set( u"Buddy-Device-GUID", _buddyDeviceGUID );
    _instance->enqueue( FILE_QUEUE, cancel );
    for( const char16_t* method : { u"CLOSESEND", u"CLOSERECV" } )
    {
        GHTTPHeaders close( method );
        close.set( BUDDY_GUID, _buddyGUID );
        _instance->enqueue( SCREEN_QUEUE, close );
    }
}

void GDeviceSession::_stopMedia( )
{
    GHTTPHeaders close( u"CLOSE" );
    close.set( u"Buddy-Device-GUID", _buddyDeviceGUID );
    _instance->enqueue( CAPTURE_QUEUE, close );
    _instance->enqueue( PLAYBACK_QUEUE, close );
}

// ---- Messages of the skin.

void GDeviceSession::broadcast( const GHTTPHeaders& message )
{
    GVERIFY_TEXT( message.isMethod( DEVICEBROADCAST ), "GCaseEquals( message.getMethod( ), L\"DEVICEBROADCAST\" )" );
    if( _state != CONNECTED )
    {
        GLOG( u"WARNING Tried to broadcast to '", _buddyDeviceGUID, u"' while not connected, ignoring." );
        return;
    }
    GHTTPHeaders inner;
    if( !message.hasContent( ) || !inner.deserialize( message.getContent( 0 ) ) )
    {
        GLOG( u"WARNING Malformed broadcast to '", _buddyDeviceGUID, u"', ignoring." );
        return;
    }
    GHTTPHeaders copy = inner;
    if( inner.isMethod( u"SENDFILE" ) ) _offerFile( inner, copy );
    if( inner.isMethod( u"SHARESCREEN" ) ) _offerScreen( copy );
    GHTTPHeaders request( DEVICEBROADCAST );
    request.addContent( copy.serialize( ) );
    _sendRunning( request, true );
}

// The peer never learns the local path. Each device of the buddy gets an identifier of its own.
void GDeviceSession::_offerFile( const GHTTPHeaders& inner, GHTTPHeaders& copy )
{
    const int64_t fileID = drawIdentifier( );
    copy.set( u"File-ID", fileID );
    copy.erase( u"Path" );
    GHTTPHeaders command( u"SENDFILE" );
    command.set( u"File-ID", fileID );
    command.set( u"Path", inner.get( u"Path" ) );
    command.set( u"Send-To", _sendToHost );
    command.set( u"Send-From", _sendFromHost );
    command.set( u"Buddy-Device-GUID", _buddyDeviceGUID );
    _instance->enqueue( FILE_QUEUE, command );
}

void GDeviceSession::_offerScreen( GHTTPHeaders& copy )
{
    copy.set( u"SSRC", drawIdentifier( ) );
    GLOGIF( 'r', u"Sending screen share: sendTo=(", _sendToHost, u"), sendFrom=(", _sendFromHost, u"), recvFrom=(",
            _recvFromHost, u")" );
    GHTTPHeaders command;
    for( const auto& [name, value] : copy.headers( ) )
        if( name != CONTENT_LENGTH ) command.set( name, value );
    command.setMethod( u"OPENSEND" );
    command.set( BUDDY_GUID, _buddyGUID );
    command.set( u"Send-To", _sendToHost );
    command.set( u"Send-From", _sendFromHost );
    _instance->enqueue( SCREEN_QUEUE, command );
}

// ---- Parting.

bool GDeviceSession::_beginBye( bool remove )
{
    _stopServices( );
    _sendBYE( remove );
    _timeoutTimer.start( );
    _lastPingSuccessTimestamp = 0;
    _changeState( WF_BYERESPONSE );
    return true;
}

bool GDeviceSession::_onByeResponse( const GSIPInput& in )
{
    const int responseCode = in.response.getResponse( );
    GVERIFY( responseCode == GHTTP_SUCCESS );
    return _drop( );
}

bool GDeviceSession::_onRemoteBye( const GSIPInput& in )
{
    _sendOK( in.request );
    _drop( );
    if( in.request.test( u"Removed" ) )
    {
        GLOGIF( 'd', u"Remote user '", _buddyGUID, u"' removed us from his buddy list, so we'll do the same." );
        removeFromBuddyList( _instance, _buddyGUID );
    }
    return true;
}

void GDeviceSession::removeFromBuddyList( GInstance* instance, const GWString& buddyGUID )
{
    instance->remove( u"Local_Buddy_List", buddyGUID );
    instance->set( getRemovedTimeName( buddyGUID ), static_cast<int64_t>( GTimeGetTime( ) ) );
}

bool GDeviceSession::wasRemovedLately( GInstance* instance, const GWString& buddyGUID )
{
    const uint64_t removed = static_cast<uint64_t>( instance->calc( getRemovedTimeName( buddyGUID ) ) );
    return removed && GTimeGetTime( ) - removed < REMOVAL_MEMORY;
}

// No device's name is empty and no user's has two "@": "<buddy>_Removed_Time" would be the "_Time" of a user "<buddy>_removed".
GWString GDeviceSession::getRemovedTimeName( const GWString& buddyGUID )
{
    return GConcat( buddyGUID, u"@_Removed_Time" );
}
