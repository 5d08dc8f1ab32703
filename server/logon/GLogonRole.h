// The logon role on its TCP listener. Passwords are hashed on a few threads of their own, so that no other role waits for them.
#pragma once

#include "server/core/GStreamServer.h"
#include "server/logon/GLogonService.h"

#include <boost/asio/thread_pool.hpp>

class GLogonRole
{
public:
    GLogonRole( boost::asio::io_context& io, const GServerConfig& config, const GServerHosts& hosts,
                GServerStore& store, GMetrics& metrics );
    ~GLogonRole( );
    bool open( GString& error );
    void start( );
    // No new connections; what has begun is answered.
    void drain( );
    bool isIdle( ) const { return !_pending; }
    void reload( );
    GString host( ) const { return _server.host( ); }
    GStreamServer& stream( ) { return _server; }

private:
    void _onMessage( const GStreamServer::Connection& connection, const GHTTPHeaders& message );

    boost::asio::io_context& _io;
    const GServerConfig& _config;
    GMetrics& _metrics;
    GLogonService _service;
    GStreamServer _server;
    boost::asio::thread_pool _pool;
    int64_t _pending = 0;
};
