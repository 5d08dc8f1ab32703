// Finds out how the client stands to the internet, connects it to a signalling server, keeps it registered and its NAT mapping
// alive. The only reader of the shared port's socket: every datagram passes its loop, which hands media and signalling on to
// GMegaPort. One thread owns all of it, under the object's lock, which is dropped only around the wait for traffic.
// Commands on "GDispatchService_commandQueue": CONNECT, DISCONNECT, RESET. Answers on "GClient_commandQueue": CONNECTED,
// DISCONNECTED.
#pragma once

#include "client/signalling/GNatRefresh.h"
#include "client/signalling/GStunTest.h"
#include "client/signalling/GUPnPTask.h"
#include "runtime/GIntervalTimer.h"
#include "runtime/GThreadObject.h"

#include <array>
#include <map>

class GHTTPClient;
class GInstance;
class GMegaPort;
struct GMegaPortBucket;
struct GNetDatagram;

class GDispatchService : public GThreadObject
{
public:
    enum State
    {
        OFFLINE = 0,
        STUN = 1,
        TURN = 2,
        CHOOSESERVER = 3,
        DEVICEGUID = 4,
        REGISTERING = 5,
        ONLINE = 6,
        REREGISTERING = 7,
        UNREGISTERING = 8
    };
    enum Event
    {
        UPDATE = 1
    };

    // Both are borrowed and must outlive the service.
    GDispatchService( GInstance* instance, GMegaPort* megaPort );
    ~GDispatchService( ) override;
    void invariantTest( ) const override;

    void _bGThreadObject_safe_onStartup( ) override {}
    int _bGThreadObject_safe_onLoop( ) override;
    void _bGThreadObject_safe_onShutdown( ) override;

    // One pass of the loop, under the lock: waits at most `timeout` microseconds for traffic with the lock dropped, sorts what came,
    // runs the commands and one UPDATE.
    void pass( int64_t timeout );
    State getState( ) const { return _state; }
    // Requests whose answers would still be known.
    size_t getRequestCount( ) const { return _cseqRequestMap.size( ); }
    // Before the service starts: another gateway than the system's.
    void setUPnPFunctions( const GUPnPFunctions& functions ) { _upnpFunctions = functions; }

    // Exactly one of the four kinds is present: a request, a response with its request, a command, an event.
    struct Input
    {
        GWString fromRemoteHost;
        const GHTTPHeaders* recvRequest = nullptr;
        const GHTTPHeaders* originalRequest = nullptr;
        const GHTTPHeaders* recvResponse = nullptr;
        GWString command;
        int eventID = 0;
        bool isMappingTest = false;

        bool isUpdate( ) const { return eventID == UPDATE; }
        bool isCommand( GWStringView name ) const { return GCaseEquals( command, name ); }
        bool isResponse( GWStringView method ) const
        {
            return recvResponse && GCaseEquals( originalRequest->getMethod( ), method );
        }
        bool succeeded( ) const { return recvResponse->getResponse( ) == GHTTP_SUCCESS; }
    };

    // The gate of the state machine, under the lock: logs and tests what came, and warns of what no row takes.
    void _fsm_onInput( const Input& in );

    static GWString _getState( int state ); // "<invalid>" above 8.
    static GWString _getEvent( int event ); // "<invalid>" for all but 1.

private:
    // A request on its way: what was asked and whom, kept so that late and repeated answers find it.
    struct Request
    {
        GHTTPHeaders message;
        GWString host;
        uint64_t expiry = 0;
        bool isMappingTest = false; // A PING that asks for the mapping, not one of the server choice.
    };
    // ---- The loop: GDispatchService.cpp.
    void _wait( int64_t timeout );
    void _readDatagrams( );
    bool _readPort( int& left );
    bool _readRelay( int& left );
    bool _fillFromRelay( GMegaPortBucket& bucket );
    void _takeBuckets( int count );
    void _returnBuckets( );
    bool _sortDatagram( GMegaPortBucket* bucket );
    void _receiveOwn( const GWString& fromHost, const GHTTPHeaders& message );
    void _runCommands( );
    void _serveRelay( );
    void _serveUPnP( );
    bool _isOnlineForTraffic( ) const;

    // ---- The state machine: GDispatchService_States.cpp.
    void _logInput( const Input& in ) const;
    void _verifyInput( const Input& in ) const;
    bool _onInput( const Input& in );
    void _verifyState( ) const;
    bool _onOffline( const Input& in );
    bool _onSTUN( const Input& in );
    bool _onTURN( const Input& in );
    bool _onChooseServer( const Input& in );
    bool _onDeviceGUID( const Input& in );
    bool _onRegistering( const Input& in );
    bool _onOnline( const Input& in );
    bool _onUnregistering( const Input& in );
    void _changeState( State state );
    void _reset( );
    bool _disconnect( );
    bool _goOffline( );
    void _notifyClient( GWStringView method );
    bool _showStatus( GWStringView step );

    // ---- Connecting: GDispatchService_Connect.cpp.
    bool _connect( );
    bool _retrySTUN( );
    bool _storeSTUNResponse( const Input& in );
    bool _classify( );
    bool _foundRoute( const GWString& globalHost, const GStringList& routeList );
    bool _openRelay( );
    bool _relayOpened( const Input& in );
    bool _chooseServer( const Input& in );
    bool _storeDeviceGUID( const Input& in );
    bool _goOnline( );
    bool _refusedRegister( const Input& in );
    bool _retryRegistration( );
    void _offerUPnPRoute( const GWString& host );
    void _renewIfRoutesChanged( );

    // ---- Online: GDispatchService_Online.cpp.
    bool _onOnlineUpdate( );
    bool _testNATRefresh( );
    bool _testMapping( );
    bool _onPINGResponse( const Input& in );
    bool _onREFRESHNATResponse( const Input& in );
    bool _onReregistered( const Input& in );
    bool _logOff( );

    // ---- Messages: GDispatchService_Requests.cpp.
    int _remember( const GWString& host, GHTTPHeaders& headers, int64_t delay = 0 );
    void _forgetOld( );
    void _request( const GWString& host, GHTTPHeaders headers );
    bool _retryLastRequest( );
    void _sendGlobal( const GWString& host, const GString& buffer );
    void _sendUDP( const GWString& host, const GString& buffer );
    void _sendHOLEPUNCH( );
    void _requestSTUN( );
    void _requestTURN( );
    GHTTPHeaders _makePING( ) const;
    void _requestPINGAll( );
    void _requestPING( );
    void _requestDEVICEGUID( );
    void _requestREGISTER( );
    void _requestUNREGISTER( );
    void _requestREFRESHNAT( int64_t delay );
    void _keepRelayAlive( );

    GInstance* _instance;
    GMegaPort* _megaPort;
    State _state = OFFLINE;
    GIntervalTimer _requestTimer;
    GIntervalTimer _retryTimer;
    GIntervalTimer _pingTimer;
    GNatRefresh _natRefresh;
    GIntervalTimer _registerTimer;
    GStunTest _stunTest;
    GNetUDPPort* _udpPort = nullptr;
    // Rooms that every pass uses again.
    GNetSourceList _ports;
    GNetSourceList _sockets;
    GHTTPHeaders _message;
    GHTTPHeaders _relayMessage;
    GString _relayFrame;
    // Buckets for a batch of datagrams; what is not handed on stays for the next one.
    static constexpr int BATCH = 32;
    std::array<GMegaPortBucket*, BATCH> _batch{ };
    bool _isBehind = false; // A pass ended at its limit: the relay's messages wait here, where no poll sees them.
    GUPnPTask* _upnpMapping = nullptr;
    std::vector<GUPnPTask*> _abandonedMappings;
    GUPnPFunctions _upnpFunctions;
    std::map<int, Request> _cseqRequestMap;
    int _cseq = 0;
    GWString _lastRequestHost;
    GHTTPHeaders _lastRequest;
    GHTTPClient* _turnClient = nullptr;
    int _natPingFailures = 0;

    // ---- The remedies of Robust_Signalling, read at CONNECT.
    bool _robust = false;
    bool _isArmed = false; // GMegaPort writes to the relay, so nobody else may.
    bool _isRefused = false;
    bool _isIdentityUnknown = false;
    GIntervalTimer _refusalTimer;
    GIntervalTimer _relayTimer;
    GWString _upnpHost;
    GWString _registeredRoutes;
};
