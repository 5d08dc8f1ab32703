// The server's own services on a simulated network: logon, STUN, signalling and the relay's policy, behind the same few lines of
// sockets, limits and timers that its roles put around them. The store lives in memory and outlives a restart, as the file would.
#pragma once

#include "platform/GSimNet.h"
#include "server/core/GRateLimit.h"
#include "server/core/GServerStore.h"
#include "server/logon/GLogonService.h"
#include "server/relay/GRelayPolicy.h"
#include "server/signalling/GSignallingService.h"
#include "server/stun/GStunService.h"

#include <memory>

class SimServer
{
public:
    static constexpr char PASSWORD[] = "secret";

    SimServer( GSimClock& clock, GSimNet& net );
    ~SimServer( );
    // As the process would: tables in memory are gone with stop, what is stored comes back with start.
    void start( );
    void stop( );
    bool isRunning( ) const { return _running; }
    void addUser( const GString& user );
    void addBuddy( const GString& user, const GString& buddy );
    GWString logonHost( ) const;
    size_t registrationCount( ) const { return _running ? _signalling->registrationCount( ) : 0; }
    size_t allocationCount( ) const { return _allocations.size( ); }
    size_t pendingCount( ) const { return _running ? _stun->pendingCount( ) : 0; }
    // The hosts that it stands on.
    const std::vector<int>& hosts( ) const { return _hosts; }
    GServerStore& store( ) { return _store; }
    GMetrics metrics;
    GServerConfig config;

private:
    struct Talk
    {
        std::shared_ptr<GSimStream> stream;
        GString received;
    };
    struct Allocation
    {
        Talk talk;
        int port = -1;
        GString host;
        GRelayShare share;
    };
    void _openPorts( );
    void _onStun( GStunSocket socket, const GSimEnd& from, const GString& bytes );
    void _sendStun( );
    void _armStun( );
    void _onSignalling( const GSimEnd& from, const GString& bytes );
    void _sendSignalling( );
    void _armExpiry( );
    void _onLogon( const std::shared_ptr<GSimStream>& stream );
    void _onRelay( const std::shared_ptr<GSimStream>& stream );
    void _onRelayMessage( int id, const GHTTPHeaders& message );
    void _openAllocation( Allocation& allocation, const GHTTPHeaders& request );
    void _sendRelayed( Allocation& allocation, const GSimEnd& to, const GString& bytes );
    void _closeAllocation( int id );
    uint64_t _logonsSince( ) const;

    GSimClock& _clock;
    GSimNet& _net;
    GServerStore _store;
    GServerHosts _serverHosts;
    std::vector<int> _hosts;
    std::vector<int> _stunPorts;
    int _signallingPort = -1;
    bool _running = false;
    bool _updating = false;
    int _run = 0; // Timers of an earlier run are nobody's.
    std::unique_ptr<GStunService> _stun;
    std::unique_ptr<GSignallingService> _signalling;
    std::unique_ptr<GLogonService> _logon;
    std::unique_ptr<GRelayPolicy> _policy;
    std::unique_ptr<GRateLimit> _stunLimit;
    std::unique_ptr<GRateLimit> _signallingLimit;
    GDatagramList _stunOut;
    GDatagramList _signallingOut;
    std::map<int, Allocation> _allocations;
    int _nextAllocation = 0;
};
