// A network in memory in place of sockets: what is sent is kept, what is to be received is put in by the target. One UDP port and one
// connection; no time passes.
#pragma once

#include "platform/GNet.h"

#include <deque>
#include <functional>

namespace FuzzNet
{
inline constexpr char16_t LOCAL_HOST[] = u"127.0.0.1:5000";

struct World
{
    std::deque<GNetDatagram> inbox; // For the port.
    GString stream;                 // For the connection.
    bool streamEnds = false;        // Once it is read.
    int window = 0;                 // Bytes that the connection takes at once; 0: all.
    std::function<void( GWStringView host, std::string_view bytes )> onSent; // By the port.
    std::function<void( std::string_view bytes )> onStreamed;                // By the connection.
    GNetUDPPort* port = nullptr;                                             // While it is open.
    GNetTCPSocket* socket = nullptr;
    int connections = 0; // So far.
};
World& world( );
} // namespace FuzzNet
