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
    void _sendAll( );
    void _armExpiry( );
    void _armUpdate( );

    const GServerConfig& _config;
    GMetrics& _metrics;
    GSignallingService _service;
    GRateLimit _limit;
    boost::asio::io_context& _io;
    std::vector<std::unique_ptr<GDatagramSocket>> _sockets;
    std::vector<GString> _reached;
    GString _relayAddress;
    std::vector<GSignallingDatagram> _out;
    boost::asio::steady_timer _timer;
    boost::asio::steady_timer _updateTimer;
    bool _updating = false;
};
