// The log role: keeps uploaded log files below <log_directory>/<user>/<device>/, each within a size limit, all
// of a user and all in all within a quota.
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
    void reload( );
    bool isIdle( ) const { return !_pending; }
    GString host( ) const { return _server.host( ); }
    GStreamServer& stream( ) { return _server; }

    // The base name by both separators, of letters, digits, "-", "_" and ".", without leading dots, at most 100 characters.
    static GString sanitize( const GString& filename );
    // "user@domain@device" split at its last "@"; false when either part can't be an id. An absent device is "unknown".
    static bool splitSender( const GString& from, GString& user, GString& device );
    // What a file of so many bytes counts for: an empty one takes room as well.
    static int64_t costOf( int64_t bytes );
    // Writes `bytes` so that they survive a crash of the machine; false with the reason.
    static bool writeFile( const GString& directory, const GString& name, const GString& bytes, GString& error );

private:
    void _onMessage( const GStreamServer::Connection& connection, const GHTTPHeaders& message );
    // One upload, from its test to its answer.
    struct Upload
    {
        GString user;
        GString directory; // Below the log directory, of the user's device.
        GString name;
        GString bytes;
        int64_t userQuota = 0;
        int code = 0;
        int64_t freed = 0; // What the file that it replaces counted for.
        GString error;
    };
    int _test( const GString& address, const GHTTPHeaders& request, Upload& upload );
    static void _write( Upload& upload, const GString& root );
    void _answer( const GStreamServer::Connection& connection, const GHTTPHeaders& request, const Upload& upload );

    boost::asio::io_context& _io;
    const GServerConfig& _config;
    GServerStore& _store;
    GMetrics& _metrics;
    GStreamServer _server;
    boost::asio::thread_pool _pool;
    int64_t _pending = 0;
    int64_t _stored = 0; // What all files below the directory count for.
};
