#include "server/relay/GRelayFrame.h"

#include <charconv>

namespace
{
constexpr std::string_view HEAD = "SENDUDP / HTTP/1.1\r\nContent-Length: ";
constexpr std::string_view HOST = "\r\nRemote-Host: ";
constexpr std::string_view END = "\r\n\r\n";
constexpr size_t MAX_HOST = 21;
constexpr size_t MAX_DIGITS = 5;
} // namespace

size_t GRelayFrame::read( const char* data, size_t length )
{
    std::string_view rest( data, length );
    if( !rest.starts_with( HEAD ) ) return 0;
    rest.remove_prefix( HEAD.size( ) );
    if( rest.empty( ) || rest[0] < '1' || rest[0] > '9' ) return 0;
    const auto [digitsEnd, error] =
        std::from_chars( rest.data( ), rest.data( ) + std::min( rest.size( ), MAX_DIGITS ), contentLength );
    rest.remove_prefix( static_cast<size_t>( digitsEnd - rest.data( ) ) );
    if( error != std::errc( ) || !rest.starts_with( HOST ) ) return 0;
    rest.remove_prefix( HOST.size( ) );
    const size_t end = rest.substr( 0, MAX_HOST + END.size( ) ).find( END );
    if( end == std::string_view::npos || !GEndpoint::parse( rest.substr( 0, end ), address, port ) ) return 0;
    rest.remove_prefix( end + END.size( ) );
    if( rest.size( ) < contentLength ) return 0;
    content = rest.data( );
    return static_cast<size_t>( content - data ) + contentLength;
}

void GRelayFrame::append( GString& out, const boost::asio::ip::udp::endpoint& from, const char* data, size_t length )
{
    static thread_local GString host; // Keeps its room.
    GEndpoint::compose( from, host );
    char digits[20];
    const char* digitsEnd = std::to_chars( digits, digits + sizeof( digits ), length ).ptr;
    out.append( "HTTP/1.1 200 OK\r\nContent-Length: " ).append( digits, static_cast<size_t>( digitsEnd - digits ) );
    out.append( HOST ).append( host ).append( END ).append( data, length );
}
