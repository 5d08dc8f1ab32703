// The upgrade role: hands out the plain files of one directory to GET requests. Names only: no separators, no leading dots.
// Files are read on a thread of their own.
#pragma once

#include "server/core/GMetrics.h"
#include "server/core/GServerConfig.h"
#include "server/core/GStreamServer.h"

#include <boost/asio/thread_pool.hpp>

class GUpgradeRole
{
public:
    GUpgradeRole( boost::asio::io_context& io, const GServerConfig& config, GMetrics& metrics );
    ~GUpgradeRole( );
    bool open( GString& error );
    void start( );
    void drain( ) { _server.stopAccepting( ); }
    void reload( );
    bool isIdle( ) const { return !_server.connectionCount( ); }
    GString host( ) const { return _server.host( ); }
    GStreamServer& stream( ) { return _server; }

    // The file that a request path names; empty when it names none that may be read.
    static GString fileOf( const GString& directory, const GString& path );
    // The beginning of the answer: of a 200 with the file's size, or all of a 404.
    static GString headerOf( const GHTTPHeaders& request, const GString& file, uint64_t& size );

private:
    void _onMessage( const GStreamServer::Connection& connection, const GHTTPHeaders& message );

    boost::asio::io_context& _io;
    const GServerConfig& _config;
    GMetrics& _metrics;
    GStreamServer _server;
    boost::asio::thread_pool _pool;
};
