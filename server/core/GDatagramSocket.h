// One bound UDP socket of the server: every datagram goes to a function, sends never block. Network thread only.
#pragma once

#include "server/core/GEndpoint.h"

#include <boost/asio/io_context.hpp>

#include <functional>

class GDatagramSocket
{
public:
    using Endpoint = boost::asio::ip::udp::endpoint;
    // The bytes are valid during the call.
    using Handler = std::function<void( const Endpoint& from, const char* data, size_t length )>;

    explicit GDatagramSocket( boost::asio::io_context& io );
    // Binds to "ip:port"; port 0 lets the system choose. False with the reason.
    bool open( const GString& host, GString& error );
    void start( Handler handler );
    void close( );
    const GString& host( ) const { return _host; }
    // False when the datagram did not leave: a full buffer or an unreachable target. It is not tried again.
    bool send( const Endpoint& to, const char* data, size_t length );
    bool send( const GString& to, const GString& bytes );

private:
    void _receive( );
    void _drain( );

    boost::asio::ip::udp::socket _socket;
    Endpoint _from;
    GString _buffer;
    GString _host;
    Handler _handler;
};
