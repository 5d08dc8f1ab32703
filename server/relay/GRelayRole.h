// The relay role: a client's TCP connection on one side, a UDP address of its own on the other. Network thread only.
// When a client reads too slowly its datagrams are dropped, never queued without bound; nobody else waits for it. What one read or
// one batch has brought leaves together, and nothing comes from the heap while a call runs.
#pragma once

#include "server/core/GDatagramSocket.h"
#include "server/core/GMetrics.h"
#include "server/core/GServerStore.h"
#include "server/core/GStreamServer.h"
#include "server/relay/GRelayPolicy.h"

#include <unordered_map>

class GRelayRole
{
public:
    GRelayRole( boost::asio::io_context& io, const GServerConfig& config, GServerStore& store, GMetrics& metrics );
    bool open( GString& error );
    void start( const std::vector<GString>& signallingHosts );
    void drain( );
    void close( );
    void reload( ) { _policy.reload( ); }
    GString host( ) const { return _server.host( ); }

private:
    struct Allocation
    {
        std::unique_ptr<GDatagramSocket> socket;
        GString host;    // As bound.
        GString reached; // As told to the client.
        GDatagramSocket::Endpoint bound;
        GDatagramSocket::Endpoint reachedAt;
        GStreamServer::Connection connection;
        GRelayShare share;
    };
    void _onMessage( const GStreamServer::Connection& connection, const GHTTPHeaders& message );
    void _onOPENTURN( const GStreamServer::Connection& connection, const GHTTPHeaders& request );
    void _onSENDUDP( Allocation& allocation, const GHTTPHeaders& request );
    size_t _onFrame( const GStreamServer::Connection& connection, const char* data, size_t length );
    bool _mayLeave( Allocation& allocation, const GDatagramSocket::Endpoint& to, size_t length );
    void _flushOutward( const GStreamServer::Connection& connection );
    void _flushInward( Allocation& allocation );
    void _onDatagram( Allocation& allocation, const GDatagramSocket::Endpoint& from, const char* data, size_t length );
    void _onClose( const GStreamServer::Connection& connection );
    void _refuse( const GStreamServer::Connection& connection, const GHTTPHeaders& request, int code,
                  GWStringView text );
    Allocation* _allocate( const GStreamServer::Connection& connection );
    bool _openSocket( Allocation& allocation, GString& error );
    int64_t _countOf( const GString& address ) const;

    boost::asio::io_context& _io;
    const GServerConfig& _config;
    GServerStore& _store;
    GMetrics& _metrics;
    GRelayPolicy _policy;
    GStreamServer _server;
    std::unordered_map<GStreamConnection*, std::unique_ptr<Allocation>> _allocations;
    std::vector<GDatagramSocket::Datagram> _outward; // Of the read in hand; the bytes are the connection's.
    GString _inward;                                 // Messages of the batch in hand.
    uint64_t _inwardCount = 0;
};
