// Host text: the form "ip:port" and what a stranger may name in it. Pure text, no sockets.
#include "base/GPortable.h"
#include "platform/GNet.h"

#include <algorithm>

namespace
{
constexpr uint32_t BROADCAST = 0xFFFFFFFF;
constexpr size_t MAX_NAME_LENGTH = 253;

// Decimal digits only, 0 to `limit`; false for anything else.
bool parseNumber( GWStringView text, uint32_t limit, uint32_t& value )
{
    if( text.empty( ) || text.size( ) > 5 ) return false;
    value = 0;
    for( const char16_t c : text )
    {
        if( c < u'0' || c > u'9' ) return false;
        value = value * 10 + static_cast<uint32_t>( c - u'0' );
    }
    return value <= limit;
}

bool splitHost( GWStringView host, GWStringView& address, int& port )
{
    const size_t colon = host.find( u':' );
    if( colon == GWStringView::npos || colon == 0 ) return false;
    uint32_t number = 0;
    if( !parseNumber( host.substr( colon + 1 ), 65535, number ) || !number ) return false;
    address = host.substr( 0, colon );
    port = static_cast<int>( number );
    return true;
}

bool isOfName( char16_t c )
{
    return GWITHIN( u'a', c, u'z' ) || GWITHIN( u'A', c, u'Z' ) || GWITHIN( u'0', c, u'9' ) || c == u'-' || c == u'_' ||
           c == u'.';
}
} // namespace

bool GNetSplitHost( const GWString& host, GWString& address, int& port )
{
    GWStringView part;
    port = 0;
    const bool whole = splitHost( host, part, port );
    address = GWString( part );
    return whole;
}

bool GNetParseAddress( GWStringView address, uint32_t& value )
{
    value = 0;
    GWStringView rest = address;
    for( int part = 0; part < 4; ++part )
    {
        const size_t dot = rest.find( u'.' );
        if( ( dot == GWStringView::npos ) != ( part == 3 ) ) return false;
        const GWStringView text = rest.substr( 0, dot );
        uint32_t number = 0;
        if( text.size( ) > 3 || !parseNumber( text, 255, number ) ) return false;
        // The system reads such a number as octal; nobody writes an address so who means well.
        if( text.size( ) > 1 && text[0] == u'0' ) return false;
        value = value << 8 | number;
        rest = part == 3 ? GWStringView( ) : rest.substr( dot + 1 );
    }
    return true;
}

void GNetComposeHost( uint32_t address, int port, GWString& host )
{
    host.clear( );
    for( int shift = 24; shift >= 0; shift -= 8 )
    {
        GAppendOne( host, address >> shift & 255 );
        host += shift ? u'.' : u':';
    }
    GAppendOne( host, port );
}

bool GNetIsName( GWStringView text )
{
    return GWITHIN( 1u, text.size( ), MAX_NAME_LENGTH ) && std::all_of( text.begin( ), text.end( ), isOfName );
}

bool GNetIsUnicastHost( GWStringView host )
{
    GWStringView address;
    int port = 0;
    uint32_t value = 0;
    if( !splitHost( host, address, port ) || !GNetParseAddress( address, value ) ) return false;
    const uint32_t network = value >> 24;
    return network != 0 && network < 224 && value != BROADCAST;
}

bool GNetIsPublicHost( GWStringView host )
{
    uint32_t value = 0;
    if( !GNetIsUnicastHost( host ) || !GNetParseAddress( host.substr( 0, host.find( u':' ) ), value ) ) return false;
    const bool isPrivate = value >> 24 == 10 || value >> 20 == 0xAC1 || value >> 16 == 0xC0A8;
    const bool isShared = value >> 22 == 0x64400000u >> 22 || value >> 16 == 0xA9FE || value >> 24 == 127;
    return !isPrivate && !isShared;
}

bool GNetIsLoopbackHost( GWStringView host )
{
    uint32_t value = 0;
    return GNetParseAddress( host.substr( 0, host.find( u':' ) ), value ) && value >> 24 == 127;
}
