// The log role: keeps uploaded log files below <log_directory>/<user>/<device>/, each within a size limit and all within a quota.
// Files are written on a thread of their own; a 200 leaves only when the bytes are on disk.
#pragma once

#include "server/core/GMetrics.h"
#include "server/core/GServerConfig.h"
#include "server/core/GServerStore.h"
#include "server/core/GStreamServer.h"

#include <boost/asio/thread_pool.hpp>

class GLogRole
{
public:
    GLogRole( boost::asio::io_context& io, const GServerConfig& config, GServerStore& store, GMetrics& metrics );
    ~GLogRole( );
    bool open( GString& error );
    void start( );
    void drain( ) { _server.stopAccepting( ); }
    bool isIdle( ) const { return !_pending; }
    GString host( ) const { return _server.host( ); }

    // The base name by both separators, of letters, digits, "-", "_" and ".", without leading dots, at most 100 characters.
    static GString sanitize( const GString& filename );
    // "user@domain@device" split at its last "@"; false when either part can't be an id. An absent device is "unknown".
    static bool splitSender( const GString& from, GString& user, GString& device );
    // Writes `bytes` so that they survive a crash of the machine; false with the reason.
    static bool writeFile( const GString& directory, const GString& name, const GString& bytes, GString& error );

private:
    void _onMessage( const GStreamServer::Connection& connection, const GHTTPHeaders& message );
    int _test( const GString& address, const GHTTPHeaders& request, GString& directory, GString& name );

    boost::asio::io_context& _io;
    const GServerConfig& _config;
    GServerStore& _store;
    GMetrics& _metrics;
    GStreamServer _server;
    boost::asio::thread_pool _pool;
    int64_t _pending = 0;
    int64_t _stored = 0; // Bytes below the directory.
};
