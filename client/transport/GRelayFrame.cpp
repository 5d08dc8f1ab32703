#include "client/transport/GRelayFrame.h"

#include "base/GUtil.h"
#include "protocol/GProtocol.h"
#include "runtime/GHTTPHeaders.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace
{
constexpr std::string_view HEADER_END = "\r\n\r\n";

bool isPlain( char16_t c )
{
    return c >= u' ' && c < 0x7F && c != u'\\';
}
// The message but for what differs: up to the number of bytes, and from there up to the host.
const GString& beforeNumber( )
{
    static const GString text =
        GWideToUTF8( GConcat( GProtocol::SENDUDP, u" / HTTP/1.1\r\n", GProtocol::CONTENT_LENGTH, u": " ) );
    return text;
}
const GString& beforeHost( )
{
    static const GString text = GWideToUTF8( GConcat( u"\r\n", GProtocol::REMOTE_HOST, u": " ) );
    return text;
}
void appendPlain( GString& out, GWStringView text )
{
    const size_t begin = out.size( );
    out.resize( begin + text.size( ) );
    std::transform( text.begin( ), text.end( ), out.begin( ) + static_cast<ptrdiff_t>( begin ),
                    []( char16_t c ) { return static_cast<char>( c ); } );
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
    out += beforeNumber( );
    appendNumber( out, bytes.size( ) );
    out += beforeHost( );
    appendPlain( out, to );
    out += HEADER_END;
    out += bytes;
}
