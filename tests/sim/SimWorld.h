// A whole simulation: clock, network, server and clients of one seed, and what must hold all along. Every second of virtual time each
// session and service is looked at: a state that outstays its bound, an unannounced warning or a table that grows is a failure.
#pragma once

#include "sim/SimClient.h"
#include "sim/SimServer.h"

#include <set>

class SimWorld
{
public:
    static constexpr int64_t SECOND = 1000000;
    static constexpr int64_t LONG_LIFE = 3600 * SECOND;

    explicit SimWorld( uint32_t seed, bool robust = true );
    ~SimWorld( );

    // A machine in a home of its own, behind a box of that kind.
    int addHome( GSimNat kind, int64_t mappingLife = LONG_LIFE );
    // Another machine behind the box of that one.
    int addNeighbour( int host );
    // A program of the user, who gets an account when he is new.
    SimClient& addClient( const GString& user, int host );
    // Both list each other.
    void befriend( const GString& a, const GString& b );
    void setLinks( const GSimLink& link );
    void startAll( );
    // Starts each at a moment of its own within the time.
    void startWithin( int64_t duration );

    // Programs that have ended or logged off start again.
    void restartStopped( );
    void restartBoxOf( const SimClient& client );

    void run( int64_t duration );
    // False when the time was over first.
    bool runUntil( const std::function<bool( )>& done, int64_t longest );
    // Until all are on line and connected; false when they are not within the time.
    bool meets( int64_t longest );
    // Announces what bad links, cut ones, restarts and the like must bring.
    void allowTrouble( );
    // Announces what two that invite each other at the same moment make of it.
    void allowCrossing( );
    // Seed, networks and links.
    GString describe( ) const;
    bool areAllOnline( ) const;
    // Everyone who is on line is connected with every device of his buddies that is.
    bool areAllConnected( ) { return describeMissing( ).empty( ); }
    GString describeMissing( );

    // ---- Chat: lines that can be followed to the other end.
    void sayAt( SimClient& from, const GString& toUser );
    // Lines of sessions that stayed must have come once, if the network let one copy through, and have been tried as often as promised.
    void checkChat( );
    int getSaidCount( ) const { return static_cast<int>( _lines.size( ) ); }

    // ---- Growth.
    struct Figures
    {
        size_t requests = 0;  // Of the sessions' transactions, the largest of all clients.
        size_t responses = 0; // The same.
        size_t own = 0;       // Requests of the dispatch service.
        size_t buckets = 0;
        size_t names = 0; // On the blackboard.
        size_t planned = 0;
        size_t registrations = 0;
        size_t allocations = 0;
        size_t pending = 0;
    };
    Figures figures( ) const;
    // Fails for each figure that is above its bound.
    void checkFigures( const Figures& bound );
    // Everyone logs off, and nothing of anyone is left anywhere.
    void logOffAll( );

    // Texts of failures, with the seed; empty when all is well.
    GString verdict( ) const;
    void fail( const GString& what );

    GSimClock clock;
    GSimNet net{ clock };
    SimLog log;
    SimServer server{ clock, net };
    std::vector<std::unique_ptr<SimClient>> clients;

private:
    struct Watched
    {
        int state = -1;
        uint64_t since = 0;
    };
    struct Line
    {
        size_t from = 0;
        size_t to = 0;
        uint64_t time = 0;
        uint64_t epoch = 0; // Of the pair, when it was said.
        int copies = 0;
        int delivered = 0;
        int shown = 0;
    };
    using Key = std::pair<size_t, GString>;
    void _check( );
    // Indices of the clients whose users list each other.
    const std::vector<size_t>& _peersOf( size_t index );
    void _checkState( const Key& key, int state, int64_t bound, const GString& name );
    void _checkSessions( size_t index );
    void _checkServices( size_t index );
    void _onRound( size_t index );
    uint64_t _epochOf( size_t a, size_t b ) const;
    bool _isConnected( const SimClient& a, const SimClient& b ) const;

    uint32_t _seed;
    bool _robust;
    uint32_t _nextAddress = 0xC6336401; // 198.51.100.1 and on.
    std::map<int, int> _boxByHost;
    std::map<int, GSimNat> _kindByHost;
    std::map<int, size_t> _clientByHost;
    std::set<std::pair<GString, GString>> _buddies;
    std::set<GString> _users;
    std::vector<std::vector<size_t>> _peers; // Empty when it must be found anew.
    std::map<Key, Watched> _watched;
    std::map<GString, Line> _lines;
    std::map<std::pair<size_t, size_t>, std::pair<bool, uint64_t>>
        _epochs; // Connected now, and how often that changed.
    std::vector<GString> _failures;
};

// Which seeds a test runs: VELMORA_SIM_SEEDS of them from VELMORA_SIM_FROM on, or as many as the test asks for from 1 on.
namespace SimSeeds
{
int count( int standard );
uint32_t first( );
} // namespace SimSeeds
