// The one object that owns everything: blackboard, shared port, services, skin and tray icon. A state machine of seven states on
// the user-interface thread: whatever happens at the top level is an event for _onInput. Other threads reach it only through
// "GClient_commandQueue", which a tick drains within 100 ms; online, with nothing on its way, the other ticks come every 500 ms.
#pragma once

#include "client/app/GClientPlatform.h"
#include "client/app/GClientSettings.h"
#include "runtime/GHTTPHeaders.h"
#include "runtime/GIntervalTimer.h"
#include "runtime/GObject.h"
#include "runtime/GWatchGroup.h"

#include <map>
#include <set>

class GHTTPClient;
class GSettingsKeeper;

class GClient : public GHeapObject, public IGTimerListener, public IGIconListener, public IGSystemListener
{
public:
    enum State
    {
        OFFLINE = 0,
        WAITING = 1,
        AUTHENTICATING = 2,
        CONNECTING = 3,
        ONLINE = 4,
        LOGGING_OFF = 5,
        DISCONNECTING = 6
    };
    enum Event
    {
        EVENT_COMMAND = 0,
        EVENT_TICK = 1,
        EVENT_MENU = 2,
        EVENT_OPEN = 3,
        EVENT_SHOWTRANSFER = 4,
        EVENT_UNMUTE = 5,
        EVENT_BUMPVOLUME = 6,
        EVENT_CONFIGAUDIO = 7,
        EVENT_CHANGELOG = 8,
        EVENT_PUSHTOTALK = 9,
        EVENT_SUSPEND = 10,
        EVENT_RESUME = 11,
        EVENT_NETWORKCHANGED = 12,
        EVENT_SHOWCONTACTS = 13
    };

    GClient( const GWString& settingsPath, const GWString& avi, const GWString& host, const GWString& keepLogfiles,
             bool upgraded, bool uploadlogfiles, bool forceturn,
             const GClientPlatform& platform = GClientPlatformGet( ) );
    // Stops and deletes the services in the order of their creation, then skin, port and blackboard.
    ~GClient( ) override;
    void invariantTest( ) const override;

    void onTimer( GTimer timer ) override;
    void onLButtonDblClk( GIcon icon ) override;
    void onRButtonDown( GIcon icon ) override;
    void onBubbleClick( GIcon icon, int eventID ) override;
    void onSuspend( ) override;
    void onResume( ) override;
    void onHotkeyDown( GHotkey hotkey, const GWString& name ) override;
    void onHotkeyUp( GHotkey hotkey, const GWString& name ) override;

    int getState( ) const { return _state; }
    GInstance* getInstance( ) const { return _instance; }
    // The one entrance of the state machine.
    void input( int eventID, const GHTTPHeaders& eventHeaders ) { _onInput( eventID, eventHeaders ); }

    static GWString _getState( int state ); // "<invalid>" above 6.

private:
    struct Input
    {
        int eventID;
        const GHTTPHeaders& headers;
        GWString method;
        bool isTick( ) const { return eventID == EVENT_TICK; }
        bool is( GWStringView command ) const { return eventID == EVENT_COMMAND && GCaseEquals( method, command ); }
    };

    // ---- Life and ticks: GClient.cpp.
    void _applyLogFilter( );
    void _startServicesWhenShown( );
    void _startServices( );
    void _stopServices( );
    void _drainCommandQueue( );
    void _retireHTTPClient( );
    void _leaveWhenTerminating( );
    void _checkNetwork( );
    bool _listIPs( GStringList& list );
    void _checkCPU( );
    void _updateIconText( );
    void _announceContacts( );
    void _stayReachable( );
    // Nothing is on its way: the ticks may come slowly until a value or a command of `_wakeWatches` changes.
    bool _isCalm( ) const;
    void _wakeTimer( );
    void _updateIcon( int n );
    void _bubble( const GWString& title, const GWString& text, int eventID );

    // ---- The seven states: GClient_States.cpp.
    void _onInput( int eventID, const GHTTPHeaders& eventHeaders );
    bool _onEveryState( const Input& in );
    bool _onState( const Input& in );
    bool _onOffline( const Input& in );
    bool _onWaiting( const Input& in );
    bool _onAuthenticating( const Input& in );
    bool _onConnecting( const Input& in );
    bool _onOnline( const Input& in );
    bool _onLoggingOff( const Input& in );
    bool _onDisconnecting( const Input& in );
    bool _onAnyState( const Input& in );
    void _changeState( int state );
    bool _showStatus( int icon );
    bool _tickOffline( );
    bool _tickWaiting( );
    bool _tickAuthenticating( );
    bool _resetToOffline( );
    bool _retry( );
    bool _restartLogon( );
    bool _stopHTTPClient( );
    bool _hangUp( );
    bool _logOff( );
    bool _reconnect( );
    bool _reconnectIfResumed( );
    bool _onLogfilesUploaded( );
    bool _promptForUpgrade( );
    bool _showChangeLog( );
    bool _onNewBuddy( const GHTTPHeaders& command );
    bool _onNewContact( const GHTTPHeaders& command );
    bool _showContacts( );
    bool _showMenu( );
    void _togglePrivacy( );
    bool _isPublic( ) const;
    bool _isRobust( ) const;

    // ---- Online commands: GClient_Online.cpp.
    bool _onOnlineCommand( const Input& in );
    bool _onListeningTo( const GHTTPHeaders& command );
    bool _onCantTalk( const GHTTPHeaders& command );
    bool _onRemoteCantTalk( const GHTTPHeaders& command );
    bool _onTransferComplete( const GHTTPHeaders& command, bool received );
    bool _showTransfer( );
    bool _unmute( );
    bool _bumpVolume( );
    bool _configureAudio( );
    bool _pushToTalk( );

    // ---- What buddies' devices send: GClient_Broadcast.cpp.
    struct Broadcast
    {
        GWString from;
        GWString device;
        GWString prefix; // "<from>@<device>".
        GWString sendFrom;
        GWString sendTo;
        GWString recvFrom;
        GHTTPHeaders message;
    };
    bool _onDeviceBroadcast( const GHTTPHeaders& command );
    bool _readBroadcast( const GHTTPHeaders& command, Broadcast& broadcast ) const;
    void _onCallInvite( const Broadcast& broadcast );
    void _onCallCancel( const Broadcast& broadcast );
    void _onCallAccept( const Broadcast& broadcast );
    bool _takeOwnCall( const GWString& buddy );
    void _stopOtherDevices( const Broadcast& broadcast );
    void _onChatDone( const Broadcast& broadcast );
    void _onChat( const Broadcast& broadcast );
    void _onSendFile( const Broadcast& broadcast );
    void _onCancelSendFile( const Broadcast& broadcast );
    void _onShareScreen( const Broadcast& broadcast );

    // ---- Logon: GClient_Logon.cpp.
    void _requestAUTHENTICATE( );
    void _processAUTHENTICATEResponse( const GHTTPHeaders& response );
    void _acceptLogon( const GHTTPHeaders& response, const GWString& userGUID );
    void _refuseLogon( const GHTTPHeaders& response, bool valid );
    void _storeAccount( const GWString& userGUID );
    bool _announceUpgrade( const GHTTPHeaders& response );
    void _storeHosts( const GHTTPHeaders& response );
    void _openFirstWindows( );
    void _requestCONNECT( );
    void _requestBUDDYLOGON( );
    void _requestBUDDYLOGOFF( );
    void _requestDISCONNECT( );
    void _reset( );
    void _enqueue( GWStringView queue, GWStringView method );

    GClientPlatform _platform;
    GInstance* _instance = nullptr;
    GMegaPort* _port = nullptr;
    int _state = OFFLINE;
    std::vector<GThreadObject*> _services;
    std::shared_ptr<int> _alive =
        std::make_shared<int>( );             // Ends before what waits for the first window may use the client.
    std::unique_ptr<GSettingsKeeper> _keeper; // With the remedy only.
    std::unique_ptr<IGClientSkin> _template;
    GTimer _timer = nullptr;
    std::unique_ptr<GWatchGroup> _wakeWatches;
    GIcon _icon = nullptr;
    GIntervalTimer _powerGate;
    GIntervalTimer _networkCheck;
    GIntervalTimer _retryWait;
    GHTTPClient* _httpClient = nullptr;
    GStringList _localIPs;
    GIntervalTimer _networkLost; // How long the address list has been empty, with the remedy.
    GStringVector _newContacts;  // Who asked since the last bubble.
    GIntervalTimer _contactGate;
    int _lostTicks = 0; // For how long there was neither a tray nor a window.
    bool _isLeaving = false;
    GWString _iconText;
    std::map<GWString, int> _openOffers;
    std::set<GWString> _crossedCalls; // Who called while being called.
};
