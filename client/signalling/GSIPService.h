// The thread that owns all sessions with other people: keeps the buddy list with the server, makes a GBuddySession for each buddy,
// routes every received message to the right one, drives them and says goodbye before a logoff.
// Commands on "GSIPService_commandQueue", notifications to "GClient_commandQueue". One thread, under the object's lock.
#pragma once

#include "client/signalling/GSIPClient.h"
#include "client/signalling/GSIPInput.h"
#include "runtime/GIntervalTimer.h"
#include "runtime/GThreadObject.h"

#include <map>

class GBuddySession;
class GContactRequests;
class GInstance;
class GMegaPort;

class GSIPService : public GThreadObject, public IGSIPClientListener
{
public:
    enum State
    {
        OFFLINE = 0,
        GETTING_BUDDY_LIST = 1,
        ONLINE = 2,
        LEAVING_BUDDIES = 3,
        SETTING_BUDDY_LIST = 4
    };
    enum Event
    {
        UPDATE = 1
    };

    GSIPService( GInstance* instance, GMegaPort* port ); // Both borrowed, both must outlive the service.
    ~GSIPService( ) override;
    void invariantTest( ) const override;

    void _bGThreadObject_safe_onStartup( ) override;
    int _bGThreadObject_safe_onLoop( ) override;
    void _bGThreadObject_safe_onShutdown( ) override;

    // One pass of the loop, under the lock: waits at most `timeout` microseconds for a datagram.
    void pass( int64_t timeout );
    void onRequest( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request ) override;
    void onResponse( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request,
                     const GHTTPHeaders& response ) override;

    State getState( ) const { return _state; }
    const GSIPClient& getClient( ) const { return *_sipClient; }
    size_t getBuddyCount( ) const { return _buddyGUIDSessionMap.size( ); }
    // Null when there is no such session. Borrowed until the next reset.
    GBuddySession* findBuddy( GWStringView buddyGUID ) const;
    static GWString _getState( int state ); // "<invalid>" above 4.

private:
    bool _onInput( const GSIPInput& in );
    bool _onContact( const GSIPInput& in );
    bool _onState( const GSIPInput& in );
    bool _onOffline( const GSIPInput& in );
    bool _onGettingBuddyList( const GSIPInput& in );
    bool _onOnline( const GSIPInput& in );
    bool _onLeavingBuddies( const GSIPInput& in );
    bool _onSettingBuddyList( const GSIPInput& in );
    void _logInput( const GSIPInput& in ) const;
    bool _onLateBye( const GSIPInput& in );
    void _ignoreInput( const GSIPInput& in ) const;
    void _changeState( State state );
    void _reset( );

    bool _beginGettingBuddyList( );
    bool _goOffline( bool notify );
    bool _leaveBuddies( );
    bool _saveBuddyList( );
    bool _addBuddy( const GWString& buddyGUID );
    bool _onAddBuddyResponse( const GSIPInput& in );
    GBuddySession* _findListed( const GWString& buddyGUID ) const;
    bool _reconnectBuddy( const GWString& buddyGUID );
    bool _removeBuddy( const GWString& buddyGUID );
    bool _reportBug( );
    bool _onBugReportResponse( const GHTTPHeaders& response );
    bool _captureChanged( );
    bool _updateContacts( );
    bool _passRequest( const GSIPInput& in );
    bool _passResponse( const GSIPInput& in );
    bool _processGETBUDDYLISTResponse( const GHTTPHeaders& response );
    GStringList _readBuddyList( const GHTTPHeaders& response ) const;

    void _requestGETBUDDYLIST( );
    void _requestSETBUDDYLIST( );
    void _requestADDBUDDY( const GWString& buddyGUID );
    void _requestBUGREPORT( );
    void _requestServer( GHTTPHeaders& request );
    void _notifyClient( GWStringView method );
    GBuddySession* _createBuddy( const GWString& buddyGUID );
    bool _makeRoomForBuddy( );
    void _inviteBuddy( const GWString& buddyGUID );
    bool _areAllOffline( ) const;
    bool _isOwnDevice( const GHTTPHeaders& message ) const;
    bool _isFromServer( const GSIPInput& in ) const;
    bool _mayBegin( const GSIPInput& in, const GWString& buddyGUID ) const;
    bool _isRobust( ) const;
    bool _isClientRobust( ) const;

    GInstance* _instance;
    GMegaPort* _port;
    GSIPClient* _sipClient;
    GContactRequests* _contactRequests;
    State _state = OFFLINE;
    std::map<GWString, GBuddySession*, std::less<>> _buddyGUIDSessionMap;
    std::deque<GWString> _buddyOrder; // Oldest first.
    GIntervalTimer _listTimer;
    bool _isListFetched = false; // Since the last logon.
};
