#include "GUPnPHttp.h"

#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GNet.h"
#include "platform/GTime.h"

#include <algorithm>
#include <charconv>

namespace
{
constexpr uint64_t DEADLINE = 5000000;
// Waiting ends with bytes to read, not with room to write: a connection that is being made is looked at again.
constexpr int64_t SEND_WAIT = 5000;
constexpr int64_t RECV_WAIT = 100000;
constexpr size_t MAX_BYTES = 256 * 1024;
constexpr std::string_view LINE_END = "\r\n";
constexpr std::string_view HEADER_END = "\r\n\r\n";

bool readNumber( std::string_view text, int base, size_t& value )
{
    const std::from_chars_result result = std::from_chars( text.data( ), text.data( ) + text.size( ), value, base );
    return result.ec == std::errc( ) && result.ptr == text.data( ) + text.size( );
}

// The value of a header, without blanks around it; nothing when there is none.
std::string_view findHeader( std::string_view header, std::string_view name )
{
    for( size_t at = header.find( LINE_END ); at != std::string_view::npos; at = header.find( LINE_END, at ) )
    {
        at += LINE_END.size( );
        const std::string_view line = header.substr( at, header.substr( at ).find( LINE_END ) );
        const size_t colon = line.find( ':' );
        if( colon == std::string_view::npos ||
            !GCaseEquals( GUTF8ToWide( line.substr( 0, colon ) ), GUTF8ToWide( name ) ) )
            continue;
        std::string_view value = line.substr( colon + 1 );
        while( value.starts_with( ' ' ) ) value.remove_prefix( 1 );
        while( value.ends_with( ' ' ) ) value.remove_suffix( 1 );
        return value;
    }
    return { };
}

// Chunks are a length in hexadecimal, a line end, so many bytes and a line end; one of no bytes is the last.
GUPnPProgress readChunks( std::string_view rest, GString& body )
{
    body.clear( );
    for( ;; )
    {
        const size_t end = rest.find( LINE_END );
        if( end == std::string_view::npos ) return GUPnPProgress::PARTIAL;
        size_t length = 0;
        const std::string_view line = rest.substr( 0, end );
        if( !readNumber( line.substr( 0, line.find_first_of( "; " ) ), 16, length ) || length > MAX_BYTES )
            return GUPnPProgress::BAD;
        if( length == 0 ) return GUPnPProgress::WHOLE;
        rest.remove_prefix( end + LINE_END.size( ) );
        if( rest.size( ) < length + LINE_END.size( ) ) return GUPnPProgress::PARTIAL;
        body += rest.substr( 0, length );
        rest.remove_prefix( length + LINE_END.size( ) );
    }
}

GUPnPProgress readBody( std::string_view header, std::string_view rest, bool ended, GString& body )
{
    const std::string_view length = findHeader( header, "Content-Length" );
    size_t wanted = rest.size( );
    if( findHeader( header, "Transfer-Encoding" ) == "chunked" ) return readChunks( rest, body );
    if( !length.empty( ) && ( !readNumber( length, 10, wanted ) || wanted > MAX_BYTES ) ) return GUPnPProgress::BAD;
    if( rest.size( ) < wanted || ( length.empty( ) && !ended ) ) return GUPnPProgress::PARTIAL;
    body = GString( rest.substr( 0, wanted ) );
    return GUPnPProgress::WHOLE;
}

bool isOfPath( char c )
{
    return c > ' ' && c < '\x7F' && c != '"' && c != '<' && c != '>';
}
} // namespace

bool GUPnPSplitURL( std::string_view url, GUPnPAddress& address )
{
    constexpr std::string_view SCHEME = "http://";
    if( !url.starts_with( SCHEME ) || !std::all_of( url.begin( ), url.end( ), isOfPath ) ) return false;
    url.remove_prefix( SCHEME.size( ) );
    const size_t slash = std::min( url.find( '/' ), url.size( ) );
    address.host = GUTF8ToWide( url.substr( 0, slash ) );
    if( address.host.find( u':' ) == GWString::npos ) address.host += u":80";
    address.path = slash < url.size( ) ? GString( url.substr( slash ) ) : GString( "/" );
    return GNetIsUnicastHost( address.host );
}

GUPnPProgress GUPnPReadAnswer( std::string_view received, bool ended, GUPnPAnswer& answer )
{
    const size_t end = received.find( HEADER_END );
    GUPnPProgress progress = GUPnPProgress::PARTIAL;
    if( end != std::string_view::npos )
    {
        const std::string_view header = received.substr( 0, end );
        size_t status = 0;
        if( header.size( ) < 12 || !header.starts_with( "HTTP/1." ) ||
            !readNumber( header.substr( 9, 3 ), 10, status ) )
            return GUPnPProgress::BAD;
        answer.status = static_cast<int>( status );
        progress = readBody( header, received.substr( end + HEADER_END.size( ) ), ended, answer.body );
    }
    const bool hopeless = ended || received.size( ) > MAX_BYTES;
    return progress == GUPnPProgress::PARTIAL && hopeless ? GUPnPProgress::BAD : progress;
}

bool GUPnPExchange( const GWString& host, const GString& request, GUPnPAnswer& answer )
{
    GNetTCPSocket* socket = GNetTCPSocketOpen( host );
    if( !socket ) return false;
    const uint64_t begin = GTimeGetTime( );
    size_t sent = 0;
    GString received;
    GUPnPProgress progress = GUPnPProgress::PARTIAL;
    while( progress == GUPnPProgress::PARTIAL && GTimeGetTime( ) - begin < DEADLINE && !GIsShuttingDown( ) )
    {
        const int left = static_cast<int>( request.size( ) - sent );
        sent += static_cast<size_t>( GNetTCPSocketSend( socket, request.data( ) + sent, left ) );
        GNetWait( { socket }, { }, { }, sent < request.size( ) ? SEND_WAIT : RECV_WAIT );
        GNetTCPSocketRecv( socket, received );
        progress = GUPnPReadAnswer( received, !GNetTCPSocketIsAlive( socket ), answer );
    }
    GNetTCPSocketClose( socket );
    return progress == GUPnPProgress::WHOLE;
}
