// The connection from this device to one device of a buddy: a machine of seven states. The handshake INVITE, response, ACK, ACKOK
// sends every message along all known routes, each copy labelled with its way; the first copy to arrive proves a route, and the
// receiver names it in its next message. Once connected it measures the link, notices its end, and tells the media, file and
// screen services where to send, by commands on their queues.
// Only on GSIPService's thread. `<bd>` is buddy@device, the prefix of this session's names on the blackboard.
#pragma once

#include "client/signalling/GSIPInput.h"
#include "runtime/GIntervalTimer.h"
#include "runtime/GObject.h"

#include <deque>

class GInstance;
class GSIPClient;

class GDeviceSession : public GHeapObject
{
public:
    enum State
    {
        DISCONNECTED = 0,
        WF_INVITERESPONSE = 1,
        WT_REINVITE = 2,
        WF_ACK = 3,
        WF_ACKRESPONSE = 4,
        CONNECTED = 5,
        WF_BYERESPONSE = 6
    };
    enum Event
    {
        INVALID = 0,
        UPDATE = 1,
        CAPTURECHANGED = 2,
        WAITFORINVITEOK = 3,
        RECVSERVICESONLINE = 4,
        BYEREQUESTED = 5,
        REMOVEREQUESTED = 6
    };

    // The pointers are borrowed; neither id may be empty.
    GDeviceSession( GInstance* instance, GSIPClient* sipClient, const GWString& buddyGUID, const GWString& deviceGUID );
    ~GDeviceSession( ) override; // Resets.
    void invariantTest( ) const override;

    // Asks the server to invite a buddy, before or without any session of a device.
    static void sendINVITE( GInstance* instance, GSIPClient* sipClient, const GWString& buddyGUID );
    // Takes a buddy off the list for good, and remembers when.
    static void removeFromBuddyList( GInstance* instance, const GWString& buddyGUID );
    // Within the last minute.
    static bool wasRemovedLately( GInstance* instance, const GWString& buddyGUID );
    static GWString getRemovedTimeName( const GWString& buddyGUID ); // Where that is remembered.

    void update( );
    void onCaptureChanged( );
    // The server has named this device and its routes; the caller has tested them.
    void waitForINVITEOK( const GStringList& routeList );
    void bye( bool remove );
    // Sends a message of the skin to the device, when connected.
    void broadcast( const GHTTPHeaders& message );
    void onRequest( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request );
    void onResponse( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request,
                     const GHTTPHeaders& response );
    // A host from which this device was heard becomes a route to it.
    void noteHost( const GWString& remoteHost );
    // The same for a host from which the device opened its way; a device that waits for our answer hears it again there at once.
    void onHOLEPUNCH( const GWString& remoteHost );

    State getState( ) const { return _state; }
    bool isOnline( ) const { return _state == CONNECTED; }
    bool isOffline( ) const { return _state == DISCONNECTED; }
    static GWString _getState( int state ); // "<invalid>" above 6.
    static GWString _getEvent( int event ); // "<invalid>" above 6.

private:
    // ---- The machine.
    void _fsm_onInput( const GSIPInput& in );
    bool _onInput( const GSIPInput& in );
    bool _onStateInput( const GSIPInput& in );
    bool _onDisconnected( const GSIPInput& in );
    bool _onWaitForInviteResponse( const GSIPInput& in );
    bool _onWaitToReinvite( const GSIPInput& in );
    bool _onWaitForAck( const GSIPInput& in );
    bool _onWaitForAckResponse( const GSIPInput& in );
    bool _onConnected( const GSIPInput& in );
    bool _onWaitForByeResponse( const GSIPInput& in );
    void _changeState( State state );
    void _checkInput( const GSIPInput& in ) const;
    void _logInput( const GSIPInput& in ) const;
    void _ignoreInput( const GSIPInput& in ) const;
    void _checkState( ) const;
    bool _drop( );
    bool _dropBecause( GWStringView reason );
    bool _reinvite( );
    bool _reinviteBecause( GWStringView reason );
    void _reset( );
    bool _writeStatus( );
    bool _writeStatusLine( const GIntervalTimer& timer );
    void _writeChatStatus( );
    bool _answerBye( const GSIPInput& in );
    bool _dropHandshake( );

    // ---- Handshake.
    bool _awaitInviteResponse( );
    void _inviteAnewWhenDue( );
    bool _giveUpInvite( );
    bool _isInviteUnheard( ) const;
    bool _reinviteNow( );
    bool _acceptInvite( const GSIPInput& in );
    bool _answerBusy( const GSIPInput& in, GWStringView reason );
    bool _onSecondInvite( const GSIPInput& in );
    bool _onCrossedInvite( const GSIPInput& in );
    void _startFirstRepeat( );
    bool _isFirstRepeatDue( );
    bool _repeatInviteOk( );
    bool _onInviteResponse( const GSIPInput& in );
    bool _handleInviteResponse( );
    bool _repeatAck( );
    bool _acceptAck( const GSIPInput& in );
    bool _acceptAckOk( const GSIPInput& in );
    bool _lateResponse( const GSIPInput& in ) const;
    void _enterConnected( );
    bool _provesRoute( const GHTTPHeaders& message, const GWString& remoteHost, const GHTTPHeaders& exchange ) const;
    bool _wasTried( const GWString& host, const GHTTPHeaders& exchange ) const;
    void _sendINVITE( );
    void _sendHOLEPUNCH( );
    void _sendINVITEResponse( const GHTTPHeaders& request, int code );
    void _sendINVITEResponse( const GHTTPHeaders& request, int code, const GStringList& routeList );
    void _sendACK( const GHTTPHeaders& inviteResponse );
    void _sendACKOK( const GHTTPHeaders& ack );
    void _setHeaders( GHTTPHeaders& message ) const;
    static void _setMediaHeaders( GInstance* instance, GHTTPHeaders& message );
    void _randomiseReinviteTimer( );
    void _updateRoute( const GWString& sendFrom, const GWString& sendTo, const GWString& sendToType,
                       const GWString& recvFrom, const GWString& recvFromType, const GWString& recvTo,
                       const GWString& recvToType );
    void _takeRemoteState( const GHTTPHeaders& message );
    void _updateRemoteMedia( bool audioEnabled, bool videoEnabled );
    GHTTPHeaders _withUsableRoutes( const GHTTPHeaders& message, const GWString& remoteHost ) const;
    GStringList _withSeenRoutes( GStringList routeList ) const;

    // ---- Running.
    bool _onRunningUpdate( );
    bool _onOwnCaptureChanged( );
    bool _onRemoteUpdate( const GSIPInput& in );
    bool _onRemoteBye( const GSIPInput& in );
    bool _onRemotePing( const GSIPInput& in );
    bool _onRemoteBroadcast( const GSIPInput& in );
    bool _onPingResponse( const GSIPInput& in );
    bool _onAnswer( const GSIPInput& in ) const;
    bool _onByeResponse( const GSIPInput& in );
    bool _onInviteWhileConnected( const GSIPInput& in );
    bool _onAckWhileConnected( const GSIPInput& in );
    bool _beginBye( bool remove );
    bool _isFromStranger( const GSIPInput& in ) const;
    void _sendPING( );
    void _sendUPDATE( );
    void _sendBYE( bool remove );
    void _sendOK( const GHTTPHeaders& request );
    void _sendRunning( GHTTPHeaders& request, bool retransmit );
    void _addPingTime( double time );
    void _writePing( uint64_t time );
    void _writeLoss( );
    void _updateClock( );
    void _startServices( );
    void _stopServices( );
    void _stopMedia( );
    void _restartMedia( );
    void _restartMediaWhenDue( );
    bool _mayPeerSeeVideo( ) const;
    void _offerFile( const GHTTPHeaders& inner, GHTTPHeaders& copy );
    void _offerScreen( GHTTPHeaders& copy );

    bool _isRobust( ) const;
    GWString _bd( GWStringView suffix ) const;
    GWString _buddy( GWStringView suffix ) const;

    GIntervalTimer _reinviteTimer;
    GIntervalTimer _pingTimer;
    GIntervalTimer _timeoutTimer;
    GIntervalTimer _retransmitTimer;
    GInstance* _instance;
    GSIPClient* _sipClient;
    GWString _buddyGUID;
    GWString _deviceGUID;
    GWString _buddyDeviceGUID;
    GWString _statusName; // Kept, since it is written each round.
    State _state = DISCONNECTED;
    GHTTPHeaders _originalINVITERequest;
    GHTTPHeaders _originalINVITEResponse;
    uint64_t _lastPingSuccessTimestamp = 0;
    std::deque<double> _pingTimes; // Microseconds, oldest first, at most 30.
    int _numPingsSent = 0;
    int _numPingsReceived = 0;
    GWString _recvFromHost;
    GWString _sendFromHost;
    GWString _sendToHost;
    GWString _sendToType;
    GStringList _tryRouteList;

    GIntervalTimer _mediaTimer; // Paces the restarts that a peer may ask for.
    bool _mediaRestartDue = false;
    GIntervalTimer _broadcastTimer; // Paces what a peer may send to the client.
    int _numBroadcasts = 0;         // Since its start.
    // The remedies: an INVITE anew when nobody answers, an early repetition of the first response, hosts seen (newest first).
    GIntervalTimer _anewTimer;
    bool _invitedAnew = false;
    bool _invitedAtEnd = false;
    GIntervalTimer _firstRepeatTimer;
    bool _firstRepeatDone = true;
    size_t _holesAnswered = 0; // In this handshake.
    GStringList _seenHosts;
};
