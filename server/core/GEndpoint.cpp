#include "server/core/GEndpoint.h"

#include <array>
#include <charconv>

namespace
{
struct Range
{
    uint32_t network;
    int bits;
};
constexpr uint32_t ip( uint32_t a, uint32_t b, uint32_t c, uint32_t d )
{
    return a << 24 | b << 16 | c << 8 | d;
}
// The special-purpose registry of IPv4 addresses: nothing of it is a host of the public Internet.
constexpr Range NOT_PUBLIC[] = { { ip( 0, 0, 0, 0 ), 8 },    { ip( 10, 0, 0, 0 ), 8 },     { ip( 100, 64, 0, 0 ), 10 },
                                 { ip( 127, 0, 0, 0 ), 8 },  { ip( 169, 254, 0, 0 ), 16 }, { ip( 172, 16, 0, 0 ), 12 },
                                 { ip( 192, 0, 0, 0 ), 24 }, { ip( 192, 168, 0, 0 ), 16 }, { ip( 198, 18, 0, 0 ), 15 },
                                 { ip( 224, 0, 0, 0 ), 4 },  { ip( 240, 0, 0, 0 ), 4 } };

template <typename Number>
bool parseNumber( std::string_view& text, uint32_t limit, Number& out )
{
    uint32_t value = 0;
    const auto [end, error] = std::from_chars( text.data( ), text.data( ) + text.size( ), value );
    const size_t digits = static_cast<size_t>( end - text.data( ) );
    if( error != std::errc( ) || digits > 5 || value > limit ) return false;
    text.remove_prefix( digits );
    out = static_cast<Number>( value );
    return true;
}
template <typename Endpoint>
bool parseEndpoint( std::string_view host, Endpoint& endpoint )
{
    uint32_t address = 0;
    unsigned short port = 0;
    if( !GEndpoint::parse( host, address, port ) ) return false;
    endpoint = Endpoint( boost::asio::ip::address_v4( address ), port );
    return true;
}
} // namespace

namespace GEndpoint
{
GString compose( const boost::asio::ip::address& address, unsigned short port )
{
    return address.to_string( ) + ":" + std::to_string( port );
}
GString compose( const boost::asio::ip::udp::endpoint& endpoint )
{
    return compose( endpoint.address( ), endpoint.port( ) );
}
void compose( const boost::asio::ip::udp::endpoint& endpoint, GString& out )
{
    const uint32_t address = endpoint.address( ).to_v4( ).to_uint( );
    char text[24];
    char* end = text;
    for( int shift = 24; shift >= 0; shift -= 8 )
    {
        end = std::to_chars( end, end + 3, address >> shift & 0xFF ).ptr;
        *end++ = shift ? '.' : ':';
    }
    end = std::to_chars( end, end + 5, endpoint.port( ) ).ptr;
    out.assign( text, static_cast<size_t>( end - text ) );
}
GString compose( const boost::asio::ip::tcp::endpoint& endpoint )
{
    return compose( endpoint.address( ), endpoint.port( ) );
}

bool parse( std::string_view host, uint32_t& address, unsigned short& port )
{
    address = 0;
    for( int part = 0; part < 4; ++part )
    {
        uint32_t value = 0;
        if( !parseNumber( host, 255, value ) || host.empty( ) || host[0] != ( part < 3 ? '.' : ':' ) ) return false;
        host.remove_prefix( 1 );
        address = address << 8 | value;
    }
    return parseNumber( host, 65535, port ) && host.empty( );
}
bool parse( std::string_view host, boost::asio::ip::udp::endpoint& endpoint )
{
    return parseEndpoint( host, endpoint );
}
bool parse( std::string_view host, boost::asio::ip::tcp::endpoint& endpoint )
{
    return parseEndpoint( host, endpoint );
}

GString addressOf( std::string_view host )
{
    return GString( host.substr( 0, host.find( ':' ) ) );
}
bool isLoopback( std::string_view address )
{
    return address.starts_with( "127." );
}
bool isPublic( uint32_t address )
{
    for( const Range& range : NOT_PUBLIC )
        if( ( address ^ range.network ) >> ( 32 - range.bits ) == 0 ) return false;
    return true;
}
bool isUnicast( uint32_t address )
{
    return address >> 24 != 0 && address >> 24 < 224;
}
} // namespace GEndpoint
