// One bound UDP socket of the server: every datagram goes to a function, sends never block. Datagrams are received and sent in
// batches, one call of the system each, and nothing comes from the heap once a socket has worked for a while. Network thread only.
#pragma once

#include "server/core/GDatagramList.h"
#include "server/core/GEndpoint.h"

#include <boost/asio/io_context.hpp>

#include <functional>
#include <memory>

class GDatagramSocket
{
public:
    using Endpoint = boost::asio::ip::udp::endpoint;
    // The bytes are valid until the end of the batch.
    using Handler = std::function<void( const Endpoint& from, const char* data, size_t length )>;
    // After the last datagram of each batch: the time to send what it led to.
    using BatchHandler = std::function<void( )>;
    struct Datagram
    {
        Endpoint to;
        const char* data;
        size_t length;
    };
    // Datagrams of one call of the system.
    static constexpr size_t BATCH = 64;

    explicit GDatagramSocket( boost::asio::io_context& io );
    // Binds to "ip:port"; port 0 lets the system choose. False with the reason.
    bool open( const GString& host, GString& error );
    void start( Handler handler, BatchHandler afterBatch = nullptr );
    void close( );
    const GString& host( ) const { return _host; }
    // False when the datagram did not leave: a full buffer or an unreachable target. It is not tried again.
    bool send( const Endpoint& to, const char* data, size_t length );
    bool send( const GString& to, const GString& bytes );
    // Sends all of them, in order; how many left. With `segmented` neighbours of one target and one length leave as one piece that
    // the system cuts: for streams of packets, not for answers to many.
    size_t send( const Datagram* datagrams, size_t count, bool segmented = false );

private:
    void _receive( );
    void _drain( );
    size_t _sendBatch( const Datagram* datagrams, size_t count, bool segmented, size_t& taken );

    boost::asio::ip::udp::socket _socket;
    GString _host;
    Handler _handler;
    BatchHandler _afterBatch;
};

// Sends each datagram of the list by its socket; bad targets are left out.
void GDatagramSendAll( const std::vector<std::unique_ptr<GDatagramSocket>>& sockets, const GDatagramList& list );
