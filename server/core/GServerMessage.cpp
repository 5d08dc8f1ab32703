#include "server/core/GServerMessage.h"

#include "protocol/GProtocol.h"

namespace GServerMessage
{
bool readRequest( const GString& datagram, GHTTPHeaders& out )
{
    return read( datagram, out ) && !out.getResponse( );
}
bool read( const GString& datagram, GHTTPHeaders& out )
{
    if( datagram.empty( ) || datagram.size( ) > MAX_DATAGRAM ) return false;
    if( out.deserialize( datagram ) != static_cast<int>( datagram.size( ) ) ) return false;
    const GWString cseq = out.get( GProtocol::CSEQ );
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

GString methodLabel( const GHTTPHeaders& request )
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
    for( const GWStringView method : KNOWN )
        if( request.isMethod( method ) ) return GWideToUTF8( method );
    return "other";
}

bool has( const GHTTPHeaders& request, std::initializer_list<GWStringView> names )
{
    for( const GWStringView name : names )
        if( request.get( name ).empty( ) ) return false;
    return true;
}

GString loggable( GWStringView text )
{
    GString out;
    for( const char c : GWideToUTF8( text.substr( 0, 100 ) ) )
        if( out.size( ) < 100 ) out += static_cast<unsigned char>( c ) < 0x20 || c == 0x7F || c == '\'' ? '?' : c;
    return out;
}
} // namespace GServerMessage
