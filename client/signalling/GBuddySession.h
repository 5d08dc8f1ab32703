// A person: one GDeviceSession for each device on which the person is on line. Invites through the server, learns from its answer
// where the devices are, hands every message to the right device session and sums up the person's presence for the skin.
// Only on GSIPService's thread.
#pragma once

#include "client/signalling/GSIPClient.h"
#include "runtime/GIntervalTimer.h"

#include <map>
#include <set>

class GDeviceSession;
class GInstance;

class GBuddySession : public GHeapObject, public IGSIPClientListener
{
public:
    // Both pointers are borrowed; preconditions "instance" and "sipClient".
    GBuddySession( GInstance* instance, GSIPClient* sipClient, const GWString& buddyGUID );
    ~GBuddySession( ) override; // Resets.
    void invariantTest( ) const override;

    void reset( );
    // Takes all that this session wrote off the blackboard, when it gives way to another.
    void forget( );
    void invite( );
    // `remove` takes the buddy off the list for good.
    void bye( bool remove );
    bool isOffline( ) const;
    // True while a handshake is under way, which wants shorter rounds.
    bool isConnecting( ) const;
    void update( ); // Once a round.
    void onCaptureChanged( );
    void onRequest( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request ) override;
    void onResponse( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request,
                     const GHTTPHeaders& response ) override;
    const GWString& getBuddyGUID( ) const { return _buddyGUID; }
    size_t getDeviceCount( ) const { return _deviceSessionMap.size( ); }
    GDeviceSession* findDevice( GWStringView deviceGUID ) const; // Null when there is none.
    // A datagram that only opens a way: its host becomes a route to that device, also when it overtook the INVITE that it belongs to.
    void onHOLEPUNCH( const GWString& remoteHost, const GHTTPHeaders& request );

private:
    GWString _name( GWStringView suffix ) const;
    bool _isRobust( ) const;
    void _invite( );
    void _inviteAgain( );
    void _restartInviteTimer( );
    void _addToBuddyList( const GHTTPHeaders& request );
    GDeviceSession* _createDevice( const GWString& deviceGUID );
    bool _makeRoomForDevice( );
    void _deleteDevice( const GWString& deviceGUID );
    bool _mayBegin( const GWString& remoteHost, const GHTTPHeaders& request, const GWString& deviceGUID ) const;
    void _onDeviceResponse( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request,
                            const GHTTPHeaders& response );
    void _onServerResponse( const GWString& remoteHost, const GHTTPHeaders& response );
    void _onWhereabouts( const GWString& remoteHost, const GHTTPHeaders& response );
    void _runCommands( );
    void _broadcast( const GHTTPHeaders& command );

    GInstance* _instance;
    GSIPClient* _sipClient;
    GWString _buddyGUID;
    // Kept, since they are needed each round.
    GWString _onlineName;
    GWString _offlineName;
    GWString _chatStatusName;
    GWString _queueName;
    GString _offlineText;
    std::map<GWString, GDeviceSession*, std::less<>> _deviceSessionMap;
    std::deque<GWString> _deviceOrder;             // Oldest first.
    std::set<GWString, std::less<>> _namedDevices; // Named by the server's last answer.
    std::deque<std::pair<GWString, GWString>>
        _earlyHosts; // Device and host of datagrams that came before the device's session.
    GIntervalTimer _inviteTimer;
    bool _leaving = false;
};
