#include "client/transport/GRelayFrame.h"

#include "base/GUtil.h"
#include "protocol/GProtocol.h"
#include "runtime/GHTTPHeaders.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace
{
constexpr std::string_view EOL = "\r\n";

bool isPlain( char16_t c )
{
    return c >= u' ' && c < 0x7F && c != u'\\';
}
void appendPlain( GString& out, GWStringView text )
{
    for( const char16_t c : text ) out += static_cast<char>( c );
}
void appendNumber( GString& out, size_t number )
{
    std::array<char, 20> digits;
    const auto end = std::to_chars( digits.data( ), digits.data( ) + digits.size( ), number );
    out.append( digits.data( ), end.ptr );
}
} // namespace

void GRelayFrameAppend( GString& out, GWStringView to, std::string_view bytes )
{
    if( !std::all_of( to.begin( ), to.end( ), isPlain ) )
    {
        GHTTPHeaders message( GProtocol::SENDUDP );
        message.set( GProtocol::REMOTE_HOST, to );
        message.addContent( bytes.data( ), static_cast<int>( bytes.size( ) ) );
        out += message.serialize( );
        return;
    }
    // The headers stand in the order of their names.
    appendPlain( out, GProtocol::SENDUDP );
    out += " / HTTP/1.1\r\n";
    appendPlain( out, GProtocol::CONTENT_LENGTH );
    out += ": ";
    appendNumber( out, bytes.size( ) );
    out += EOL;
    appendPlain( out, GProtocol::REMOTE_HOST );
    out += ": ";
    appendPlain( out, to );
    out += EOL;
    out += EOL;
    out += bytes;
}
