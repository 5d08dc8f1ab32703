// The STUN role on its four sockets. Network thread only.
#pragma once

#include "server/core/GDatagramSocket.h"
#include "server/core/GRateLimit.h"
#include "server/stun/GStunService.h"

#include <boost/asio/steady_timer.hpp>

class GStunRole
{
public:
    GStunRole( boost::asio::io_context& io, const GServerConfig& config, GMetrics& metrics );
    bool open( GString& error );
    void start( );
    void close( );
    void reload( );
    // The four hosts in the order of the logon's answer, as clients reach them.
    std::vector<GString> hosts( ) const;

private:
    void _onDatagram( GStunSocket socket, const GDatagramSocket::Endpoint& from, const char* data, size_t length );
    void _sendAll( );
    void _arm( );

    const GServerConfig& _config;
    GMetrics& _metrics;
    GStunService _service;
    GRateLimitByNumber _limit; // By address.
    std::vector<std::unique_ptr<GDatagramSocket>> _sockets;
    GDatagramList _out;
    GString _from; // Of the datagram in hand; keeps its room.
    boost::asio::steady_timer _timer;
};
