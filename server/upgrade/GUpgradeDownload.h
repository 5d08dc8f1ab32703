// One file on its way to one connection, a block at a time: what a slow reader costs is a block or two, not the file. Blocks are read
// on the pool's thread; all else runs on the network thread. Holds itself until it ends. A reader that takes nothing for long is let go.
#pragma once

#include "server/core/GStreamServer.h"

#include <boost/asio/thread_pool.hpp>

#include <fstream>

class GUpgradeDownload : public std::enable_shared_from_this<GUpgradeDownload>
{
public:
    GUpgradeDownload( boost::asio::io_context& io, boost::asio::thread_pool& pool, GStreamServer::Connection connection,
                      const GString& file );
    // Sends `header` and then `size` bytes of the file; ends the connection.
    void start( const GString& header, uint64_t size );

private:
    void _read( );
    void _send( );
    void _end( );

    boost::asio::io_context& _io;
    boost::asio::thread_pool& _pool;
    GStreamServer::Connection _connection;
    boost::asio::steady_timer _timer;
    std::ifstream _stream;
    GString _block;
    uint64_t _left = 0;
    int _tries = 0;
};
