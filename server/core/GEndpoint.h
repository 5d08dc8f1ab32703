// Host text to and from the socket library's endpoints, and what the relay may send to.
#pragma once

#include "base/GTypes.h"

#include <utility>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/udp.hpp>

namespace GEndpoint
{
// "ip:port" of an IPv4 endpoint.
GString compose( const boost::asio::ip::address& address, unsigned short port );
GString compose( const boost::asio::ip::udp::endpoint& endpoint );
void compose( const boost::asio::ip::udp::endpoint& endpoint,
              GString& out ); // The same into a string that keeps its room.
GString compose( const boost::asio::ip::tcp::endpoint& endpoint );
// False when the text is no dotted address with a port (0 is allowed: any free one).
bool parse( std::string_view host, uint32_t& address, unsigned short& port );
bool parse( std::string_view host, boost::asio::ip::udp::endpoint& endpoint );
bool parse( std::string_view host, boost::asio::ip::tcp::endpoint& endpoint );
GString addressOf( std::string_view host );
bool isLoopback( std::string_view address );
// Neither loopback, link-local, multicast, reserved nor of a private range.
bool isPublic( uint32_t address );
// Can be sent to at all: no multicast, broadcast, or network 0.
bool isUnicast( uint32_t address );
} // namespace GEndpoint
