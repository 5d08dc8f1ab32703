// A simulated network in virtual time: hosts on the internet or behind boxes that translate addresses as real ones do, joined by
// links that lose, double, reorder and delay. While one lives, the functions of GNet.h work on it. Programs run one at a time, each
// on the host that was entered last. A trace of all that was sent and delivered is hashed: same seed, same hash.
// Addresses are in host order, times microseconds. One thread.
#pragma once

#include "platform/GNet.h"
#include "platform/GSimClock.h"

#include <deque>
#include <map>
#include <memory>
#include <set>

struct GSimEnd
{
    uint32_t address = 0;
    int port = 0;
    bool operator==( const GSimEnd& ) const = default;
    bool operator<( const GSimEnd& other ) const
    {
        return address != other.address ? address < other.address : port < other.port;
    }
    GWString text( ) const
    {
        GWString out;
        GNetComposeHost( address, port, out );
        return out;
    }
    // From "ip:port"; all 0 for what is not that.
    static GSimEnd of( const GWString& host );
};

// What a box does with datagrams. All but PUBLIC translate; TCP goes out through every one.
enum class GSimNat
{
    PUBLIC,             // No box at all.
    UNRESTRICTED,       // One port outside for each inside; anyone may answer.
    ADDRESS_RESTRICTED, // Only an address that was sent to may answer.
    PORT_RESTRICTED,    // Only an address and port that was sent to may answer.
    SYMMETRIC,          // A port outside for each destination, and only that one may answer.
    BLOCKED             // No datagram passes.
};

// One end of the way; a datagram passes the sender's and the receiver's.
struct GSimLink
{
    int lossPercent = 0; // 100 is a link that is cut: TCP waits for it, too.
    int duplicatePercent = 0;
    int reorderPercent = 0; // These are held back by up to a second.
    int64_t delay = 10000;
    int64_t jitter = 5000; // From 0 to this is added.
};

class GSimNet;

// A listening host's side of a TCP connection.
class GSimStream
{
public:
    GSimEnd remote; // As the listener sees it.
    std::function<void( const GString& bytes )> onBytes;
    std::function<void( )> onClose; // The other side has closed or broken off.
    void send( const GString& bytes );
    void close( );
    bool isOpen( ) const { return _open; }

private:
    friend class GSimNet;
    GSimNet* _net = nullptr;
    int _id = 0;
    bool _open = true;
};

class GSimNet
{
public:
    using DatagramHandler = std::function<void( const GSimEnd& from, const GString& bytes )>;
    using StreamHandler = std::function<void( std::shared_ptr<GSimStream> stream )>;
    // Watches datagrams, for tests that count: the host that sends, or that is reached; of connections what their opener is told.
    using Observer = std::function<void( int host, const GSimEnd& other, const GString& bytes )>;

    explicit GSimNet( GSimClock& clock );
    ~GSimNet( );
    GSimNet( const GSimNet& ) = delete;
    GSimNet& operator=( const GSimNet& ) = delete;
    static GSimNet* current( );

    // ---- Building. Numbers are given out from 0 on.
    // Mappings that carried nothing outwards for `lifetime` end.
    int addBox( GSimNat kind, uint32_t address, int64_t lifetime );
    int addHost( uint32_t address, int box = -1 );
    const GSimLink& link( int host ) const { return _hosts[static_cast<size_t>( host )].link; }
    GSimLink& link( int host ) { return _hosts[static_cast<size_t>( host )].link; }
    // Forgets all mappings, as a box does that starts again: TCP connections through it break.
    void restartBox( int box );
    void setBoxLifetime( int box, int64_t lifetime ) { _boxes[static_cast<size_t>( box )].lifetime = lifetime; }
    size_t getMappingCount( int box ) const { return _boxes[static_cast<size_t>( box )].mappings.size( ); }
    // `wake` runs whenever something came that a program of the host can read.
    void setWake( int host, std::function<void( )> wake )
    {
        _hosts[static_cast<size_t>( host )].wake = std::move( wake );
    }
    void setObserver( Observer onSent, Observer onDelivered )
    {
        _onSent = std::move( onSent );
        _onDelivered = std::move( onDelivered );
    }
    // What runs from now on runs on this host.
    void enter( int host ) { _entered = host; }
    int getEntered( ) const { return _entered; }

    // ---- Programs that are called instead of reading, on public hosts.
    // The number of the port, for sendFrom and closePort; -1 when it is taken. Port 0 lets the network choose.
    int openPort( int host, int port, DatagramHandler handler );
    void sendFrom( int id, const GSimEnd& to, const GString& bytes );
    void closePort( int id );
    GSimEnd endOf( int id ) const;
    bool listen( int host, int port, const StreamHandler& handler );
    void unlisten( int host, int port );

    uint64_t getTraceHash( ) const { return _trace; }
    uint64_t getSentCount( ) const { return _sent; }
    uint64_t getDeliveredCount( ) const { return _delivered; }

    // ---- What GNet.h stands on.
    struct Port
    {
        int host = 0;
        GSimEnd end;
        std::deque<std::pair<GSimEnd, GString>> inbox;
        DatagramHandler handler;
    };
    Port* findPort( int id );
    struct Segment
    {
        GString bytes;
        bool isEnd = false;
        int trials = 0;
    };
    // Both directions of a connection: 0 to the listener, 1 to the one who opened it.
    struct Connection
    {
        int clientHost = 0;
        int serverHost = 0;
        GSimEnd local;
        GSimEnd remote;
        std::shared_ptr<GSimStream> stream;
        std::deque<Segment> ways[2];
        size_t inFlight[2] = { 0, 0 };
        bool pumping[2] = { false, false };
        GString inbox;        // What the opener has not read.
        bool ended = false;   // The listener's side has closed, or nobody listens.
        bool open = true;     // The opener still holds it.
        bool hasShut = false; // The opener sends no more.
    };
    int connect( const GSimEnd& remote );
    Connection* findConnection( int id );
    void sendToListener( int id, const GString& bytes, bool isEnd );
    void letGo( int id );
    uint32_t addressOfEntered( ) const;

private:
    friend class GSimStream;
    struct Mapping
    {
        GSimEnd inside;
        GSimEnd target; // Of a symmetric box's mapping.
        int portOutside = 0;
        uint64_t lastUse = 0;
        std::set<GSimEnd> contacted;
    };
    struct Box
    {
        GSimNat kind;
        uint32_t address;
        int64_t lifetime;
        std::map<int, Mapping> mappings; // By the port outside.
    };
    struct Host
    {
        uint32_t address;
        int box;
        GSimLink link;
        std::function<void( )> wake;
    };
    Host& _host( int host ) { return _hosts[static_cast<size_t>( host )]; }
    int _findHost( uint32_t address, int box ) const;
    int _findBox( uint32_t address ) const;
    int _findPort( int host, int port ) const;
    int _freePort( int host );
    Mapping* _findMapping( Box& box, const GSimEnd& inside, const GSimEnd& to );
    bool _translateOut( Box& box, GSimEnd& from, const GSimEnd& to );
    bool _translateIn( Box& box, const GSimEnd& from, GSimEnd& to );
    int64_t _drawDelay( const GSimLink& link );
    void _launch( int fromHost, const GSimEnd& from, const GSimEnd& to, const GString& bytes );
    void _arrive( const GSimEnd& from, const GSimEnd& to, const GString& bytes, bool doubled );
    void _deliver( int host, const GSimEnd& from, const GSimEnd& to, const GString& bytes );
    void _accept( int id );
    void _sendToOpener( int id, const GString& bytes, bool isEnd );
    void _push( int id, int way, Segment segment );
    void _pump( int id, int way );
    void _land( int id, int way );
    void _break( int id );
    void _forgetIfDone( int id );
    void _record( char what, const GSimEnd& from, const GSimEnd& to, const GString& bytes );

    GSimClock& _clock;
    std::vector<Box> _boxes;
    std::vector<Host> _hosts;
    int _entered = 0;
    std::map<int, Port> _ports;
    std::map<std::pair<int, int>, int> _portByHost; // Host and port to the number.
    int _nextPort = 1;
    std::map<std::pair<int, int>, StreamHandler> _listeners;
    std::map<int, Connection> _connections;
    int _nextConnection = 1 << 30; // No number is a port's and a connection's.
    Observer _onSent;
    Observer _onDelivered;
    uint64_t _trace = 14695981039346656037u;
    uint64_t _sent = 0;
    uint64_t _delivered = 0;
};
