// The signalling role on its UDP hosts. Network thread only.
#pragma once

#include "server/core/GDatagramSocket.h"
#include "server/core/GRateLimit.h"
#include "server/signalling/GSignallingService.h"

#include <boost/asio/steady_timer.hpp>

class GSignallingRole
{
public:
    GSignallingRole( boost::asio::io_context& io, const GServerConfig& config, GServerStore& store, GMetrics& metrics );
    bool open( GString& error );
    void start( );
    void close( );
    void reload( );
    std::vector<GString> boundHosts( ) const;
    // As clients reach them.
    std::vector<GString> hosts( ) const;

private:
    void _onDatagram( size_t listener, const GDatagramSocket::Endpoint& from, const char* data, size_t length );
    void _endBatch( );
    void _sendAll( );
    void _armExpiry( );
    void _armUpdate( );

    const GServerConfig& _config;
    GServerStore& _store;
    GMetrics& _metrics;
    GSignallingService _service;
    GRateLimitByNumber _limit; // By address, behind the relay by host.
    boost::asio::io_context& _io;
    std::vector<std::unique_ptr<GDatagramSocket>> _sockets;
    std::vector<GString> _reached;
    uint32_t _relayAddress = 0;
    GDatagramList _out;
    GString _from; // Of the datagram in hand; keeps its room.
    bool _batching = false;
    boost::asio::steady_timer _timer;
    boost::asio::steady_timer _updateTimer;
    bool _updating = false;
};
