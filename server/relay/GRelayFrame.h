// The two messages of a relayed call as bytes, read and written without a message in between: they come by the thousand a second.
#pragma once

#include "server/core/GEndpoint.h"

struct GRelayFrame
{
    // Takes a SENDUDP with one content part, exactly as a message with its two headers is written, from the front of the bytes.
    // Its length; 0 for everything else, a beginning too: that is the general parser's.
    size_t read( const char* data, size_t length );
    uint32_t address = 0;
    unsigned short port = 0;
    const char* content = nullptr; // Within the bytes that were read.
    size_t contentLength = 0;

    // Appends a datagram as its client reads it: a 200 with "Remote-Host" and one content part.
    static void append( GString& out, const boost::asio::ip::udp::endpoint& from, const char* data, size_t length );
    // At most so many bytes more than the datagram.
    static constexpr size_t MAX_OVERHEAD = 96;
};
