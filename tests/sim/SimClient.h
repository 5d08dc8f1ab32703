// One client program on a simulated host: blackboard, port, dispatch service and session service as they are, stepped when something
// has come or their round is over, and the part of the client core that logs on, connects, retries and logs off.
#pragma once

#include "client/signalling/GBuddySession.h"
#include "client/signalling/GDeviceSession.h"
#include "client/signalling/GDispatchService.h"
#include "client/signalling/GSIPService.h"
#include "client/transport/GHTTPClient.h"
#include "client/transport/GMegaPort.h"
#include "platform/GSimNet.h"
#include "runtime/GInstance.h"
#include "sim/SimLog.h"

#include <memory>

struct SimAccount
{
    GString user; // "user@domain"
    GWString logonHost;
    bool robust = true;
};

class SimClient
{
public:
    enum State
    {
        OFFLINE,
        WAITING,
        AUTHENTICATING,
        CONNECTING,
        ONLINE,
        LOGGING_OFF,
        DISCONNECTING
    };
    // A chat line that reached this client.
    using ChatHandler = std::function<void( const GString& text )>;
    using RoundHandler = std::function<void( )>;

    // `name` tells it from the others in the log and names its settings file, which outlives a restart.
    SimClient( GSimClock& clock, GSimNet& net, SimLog& log, int host, GString name, SimAccount account );
    ~SimClient( );
    SimClient( const SimClient& ) = delete;
    SimClient& operator=( const SimClient& ) = delete;

    // Starts the program and logs on.
    void start( );
    // The program ends at once, without a word to anyone.
    void kill( );
    void logOff( );
    // The network of the machine has changed, as the system tells it.
    void reconnect( );
    bool isRunning( ) const { return static_cast<bool>( _program ); }
    // The core is on line, the device is registered and the sessions run.
    bool isOnline( ) const;
    State getState( ) const { return _state; }
    const GString& name( ) const { return _name; }
    const GWString& user( ) const { return _user; }
    GWString device( ) const { return get( u"Local_Device_GUID" ); }
    int host( ) const { return _host; }
    GWString get( GWStringView name ) const;
    size_t getNameCount( ) const { return _program->instance->getNameCount( ); }
    void set( GWStringView name, GWStringView value );
    void command( GWStringView method, const GWString& buddy = { } );
    // Null without such a session.
    const GDeviceSession* session( const GWString& user, const GWString& device ) const;
    void say( const GWString& user, const GString& text );
    void setChatHandler( ChatHandler handler ) { _onChat = std::move( handler ); }
    // Runs after each round of the sessions.
    void setRoundHandler( RoundHandler handler ) { _onRound = std::move( handler ); }
    const GDispatchService& dispatch( ) const { return *_program->dispatch; }
    const GSIPService& sip( ) const { return *_program->sip; }
    const GMegaPort& port( ) const { return *_program->port; }
    // Called by the network.
    void noteArrival( const GString& bytes );

private:
    // What lives while the program runs; the members go in the reverse order.
    struct Program
    {
        Program( const GWString& settings, const GWString& user );
        ~Program( );
        GInstance* instance;
        GMegaPort* port;
        GDispatchService* dispatch;
        GSIPService* sip;
        std::unique_ptr<GHTTPClient> httpClient;
    };
    // One loop of the program; a wake brings its next round forward.
    struct Loop
    {
        uint64_t due = 0;
        uint64_t plan = 0; // Older plans are void.
    };
    void _enter( );
    void _plan( Loop& loop, uint64_t due, void ( SimClient::*round )( ) );
    void _dispatchRound( );
    void _sipRound( );
    void _coreRound( );
    void _wakeDispatch( );
    void _wakeSip( );
    void _wakeCoreIfToldOf( );
    void _runCore( );
    void _onNotification( const GHTTPHeaders& message );
    void _requestAUTHENTICATE( );
    void _tickAuthenticating( );
    void _storeHosts( const GHTTPHeaders& response );
    void _resetServices( );
    void _toOffline( bool reconnects );
    void _wait( );
    void _drainMediaQueues( );
    bool _isConnecting( ) const;

    GSimClock& _clock;
    GSimNet& _net;
    SimLog& _log;
    int _host;
    GString _name;
    GWString _user;
    SimAccount _account;
    GWString _settings;
    std::unique_ptr<Program> _program;
    uint64_t _life = 0; // Rounds of a program that was ended are void.
    State _state = OFFLINE;
    bool _reconnects = false;
    uint64_t _retryTime = 0;
    Loop _dispatchLoop;
    Loop _sipLoop;
    Loop _coreLoop;
    bool _sipHasMail = false;
    ChatHandler _onChat;
    RoundHandler _onRound;
};
