// A TCP listener whose connections carry header messages, within limits: connections in all and of one address, bytes of a header
// and of a message, seconds without a byte, bytes waiting to leave. What has come is read into one room that all connections share;
// a connection keeps only the beginning of a message and what its reader is too slow for. Network thread only.
#pragma once

#include "runtime/GHTTPHeaders.h"
#include "server/core/GEndpoint.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <functional>
#include <map>
#include <memory>

struct GStreamLimits
{
    size_t headerBytes = 16384;
    size_t messageBytes = 65536;
    size_t queueBytes = 262144; // What a slow reader may have waiting.
    int sendBufferBytes = 0;    // The system's own buffer of each connection; 0 leaves it to the system.
    int64_t idleSeconds = 30;
    int64_t connections = 4096;
    int64_t connectionsPerAddress = 256;
    bool halfClose = true; // The other side may end its sending and still gets its answer.
};

class GStreamServer;

class GStreamConnection : public std::enable_shared_from_this<GStreamConnection>
{
public:
    GStreamConnection( GStreamServer& server, boost::asio::ip::tcp::socket socket,
                       const boost::asio::ip::tcp::endpoint& remote );

    const GString& remoteHost( ) const { return _remoteHost; }
    const GString& remoteAddress( ) const { return _remoteAddress; }
    // Sends bytes, and queues what can't leave at once; false, and nothing is sent, when the queue is full or the connection is gone.
    bool send( std::string_view bytes );
    // Whether that many bytes would be taken.
    bool hasRoom( size_t bytes ) const;
    // Ends after all queued bytes have left.
    void finish( );
    void close( );
    bool isOpen( ) const { return _socket.is_open( ); }
    // While set the connection waits for its owner's answer: no idle time runs, and an end of the other side's sending is no end.
    void setBusy( bool busy );
    // Replaces the server's idle time for this connection.
    void setIdleSeconds( int64_t seconds );

private:
    friend class GStreamServer;
    void _start( );
    void _read( );
    void _onReadable( );
    void _onEnd( );
    size_t _handOut( const char* data, size_t length );
    void _keep( const char* data, size_t length );
    bool _canBecomeMessage( ) const;
    void _awaitWritable( );
    void _onWritable( );
    void _restartIdle( );
    void _armIdle( std::chrono::steady_clock::duration after );

    GStreamServer& _server;
    boost::asio::ip::tcp::socket _socket;
    boost::asio::steady_timer _idleTimer;
    GString _remoteHost;
    GString _remoteAddress;
    GString _received; // The beginning of a message.
    GString _queue;    // From _sent on still to be sent.
    size_t _sent = 0;
    std::chrono::steady_clock::time_point _lastByte;
    int64_t _idleSeconds;
    bool _busy = false;
    bool _ended = false;
    bool _finishing = false;
};

class GStreamServer
{
public:
    using Connection = std::shared_ptr<GStreamConnection>;
    using MessageHandler = std::function<void( const Connection& connection, const GHTTPHeaders& message )>;
    using CloseHandler = std::function<void( const Connection& connection )>;
    // Takes one message of a form that it knows from the front of the bytes, and returns its length; 0 leaves it to the parser.
    using FrameHandler = std::function<size_t( const Connection& connection, const char* data, size_t length )>;
    // All whole messages of one read were handed out. Bytes of frames are valid until it returns.
    using ReadHandler = std::function<void( const Connection& connection )>;
    // Why a connection was ended by the server: "full", "idle", "malformed", "slow". For the figures.
    using DropHandler = std::function<void( std::string_view reason )>;

    GStreamServer( boost::asio::io_context& io, const GStreamLimits& limits );
    ~GStreamServer( );
    bool open( const GString& host, GString& error );
    void start( MessageHandler onMessage, CloseHandler onClose, DropHandler onDrop );
    // Before start, for streams of many small messages.
    void setFrameHandlers( FrameHandler onFrame, ReadHandler afterRead );
    // Each new connection goes to `front`, which may give it, or another stream in its place, to adopt.
    using Front = std::function<void( boost::asio::ip::tcp::socket socket )>;
    void setFront( Front front ) { _front = std::move( front ); }
    void adopt( boost::asio::ip::tcp::socket socket, const boost::asio::ip::tcp::endpoint& remote );
    // No new connections.
    void stopAccepting( );
    void closeAll( );
    const GString& host( ) const { return _host; }
    size_t connectionCount( ) const { return _connections.size( ); }
    void setLimits( const GStreamLimits& limits ) { _limits = limits; }
    boost::asio::io_context& io( ) { return _io; }

private:
    friend class GStreamConnection;
    void _accept( );
    void _onAccept( boost::asio::ip::tcp::socket socket );
    void _onClosed( const Connection& connection );
    void _drop( std::string_view reason );

    boost::asio::io_context& _io;
    boost::asio::ip::tcp::acceptor _acceptor;
    boost::asio::steady_timer _retryTimer;
    GStreamLimits _limits;
    GString _host;
    MessageHandler _onMessage;
    CloseHandler _onClose;
    DropHandler _onDrop;
    FrameHandler _onFrame;
    ReadHandler _afterRead;
    std::unique_ptr<char[]> _block; // What a read has brought; no connection has it for longer than that.
    GHTTPHeaders _message;          // The one in hand; keeps its room.
    Front _front;
    std::map<GStreamConnection*, Connection> _connections;
    std::map<GString, int64_t> _addressCounts;
};
