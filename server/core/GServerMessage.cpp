#include "server/core/GServerMessage.h"

#include "protocol/GProtocol.h"

#include <algorithm>

namespace
{
constexpr size_t MAX_LOGGED = 100;
}

namespace GServerMessage
{
bool readRequest( std::string_view datagram, GHTTPHeaders& out )
{
    return read( datagram, out ) && !out.getResponse( );
}
bool read( std::string_view datagram, GHTTPHeaders& out )
{
    if( datagram.empty( ) || datagram.size( ) > MAX_DATAGRAM ) return false;
    const int length = static_cast<int>( datagram.size( ) );
    if( out.deserialize( datagram.data( ), length ) != length ) return false;
    const GWStringView cseq = out.headers( ).get( GProtocol::CSEQ );
    return !cseq.empty( ) && cseq.size( ) <= 128 && out.headers( ).size( ) <= MAX_HEADERS;
}

GHTTPHeaders reply( const GHTTPHeaders& request, int code, GWStringView text )
{
    GHTTPHeaders answer;
    answer.setResponse( code, text );
    if( request.contains( GProtocol::CSEQ ) ) answer.set( GProtocol::CSEQ, request.get( GProtocol::CSEQ ) );
    return answer;
}
GString compose( const GHTTPHeaders& request, int code, GWStringView text )
{
    return reply( request, code, text ).serialize( );
}

void begin( GString& out, const GHTTPHeaders& request )
{
    out.assign( "HTTP/1.1 200 OK\r\n" );
    if( request.contains( GProtocol::CSEQ ) ) append( out, "CSeq", request.headers( ).get( GProtocol::CSEQ ) );
}
void append( GString& out, std::string_view name, std::string_view plainValue )
{
    out.append( name ).append( ": " ).append( plainValue ).append( "\r\n" );
}
void append( GString& out, std::string_view name, GWStringView value )
{
    static thread_local GString bytes; // Keeps its room.
    GWideToUTF8( value, bytes );
    out.append( name ).append( ": " );
    GAppendEscaped( out, bytes, "" );
    out.append( "\r\n" );
}
void end( GString& out )
{
    out.append( "\r\n" );
}

const GString& methodLabel( const GHTTPHeaders& request )
{
    static constexpr GWStringView KNOWN[] = { GProtocol::AUTHENTICATE,
                                              GProtocol::STUN,
                                              GProtocol::HOLEPUNCH,
                                              GProtocol::OPENTURN,
                                              GProtocol::SENDUDP,
                                              GProtocol::PING,
                                              GProtocol::DEVICEGUID,
                                              GProtocol::REGISTER,
                                              GProtocol::UNREGISTER,
                                              GProtocol::GETBUDDYLIST,
                                              GProtocol::SETBUDDYLIST,
                                              GProtocol::ADDBUDDY,
                                              GProtocol::BUGREPORT,
                                              GProtocol::LOGFILE,
                                              GProtocol::INVITE,
                                              GProtocol::CONTACTANSWER,
                                              u"GET" };
    static const std::vector<GString> labels = []
    {
        std::vector<GString> texts;
        for( const GWStringView method : KNOWN ) texts.push_back( GWideToUTF8( method ) );
        texts.emplace_back( "other" );
        return texts;
    }( );
    const GWStringView line = request.headers( ).get( u"" );
    const GWStringView method = line.substr( 0, line.find( u' ' ) );
    return labels[static_cast<size_t>( std::find( std::begin( KNOWN ), std::end( KNOWN ), method ) - KNOWN )];
}

bool has( const GHTTPHeaders& request, std::initializer_list<GWStringView> names )
{
    for( const GWStringView name : names )
        if( request.get( name ).empty( ) ) return false;
    return true;
}

GString loggable( GWStringView text )
{
    GString plain = printable( text.substr( 0, MAX_LOGGED ) );
    std::replace( plain.begin( ), plain.end( ), '\'', '?' ); // It ends a value.
    return plain;
}
GString printable( GWStringView text )
{
    // Controls of both sets, line and paragraph ends, and what turns the direction of writing.
    const auto harmful = []( char16_t c )
    {
        return c < 0x20 || ( c >= 0x7F && c < 0xA0 ) || c == 0x2028 || c == 0x2029 || c == 0x200E || c == 0x200F ||
               ( c >= 0x202A && c <= 0x202E ) || ( c >= 0x2066 && c <= 0x2069 );
    };
    GWString plain( text );
    std::replace_if( plain.begin( ), plain.end( ), harmful, u'?' );
    return GWideToUTF8( plain );
}
} // namespace GServerMessage
