// Datagrams of three sources at all four sockets while time goes on, as bytes and as messages: answers go to who asked and to nobody
// else, what is no request is answered by nothing, and what waits has a limit for each address and in all.
#include "ServerFuzz.h"
#include "server/core/GServerMessage.h"
#include "server/stun/GStunService.h"

#include <map>

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    static constexpr const char* SOURCES[] = { Fuzz::ANN_HOST, "198.51.100.1:4001", Fuzz::BEN_HOST };
    Fuzz::Input input( data, size );
    GServerConfig config;
    config.stunPendingPerSource = 2;
    config.stunPending = 3;
    GMetrics metrics;
    GStunService service( config, metrics );
    uint64_t now = Fuzz::START;
    std::map<GString, int> owed; // Delayed answers that each source may still get.
    while( !input.empty( ) )
    {
        const uint8_t who = input.byte( );
        const auto socket = static_cast<GStunSocket>( who % 4 );
        const GString from = SOURCES[who / 4 % 3];
        const GString bytes = input.byte( ) & 1 ? input.message( ).serialize( ) : input.line( );
        GDatagramList out;
        const size_t pending = service.pendingCount( );
        service.onDatagram( socket, from, bytes, now, out );
        if( service.pendingCount( ) > pending ) ++owed[from];
        GHTTPHeaders request;
        const bool good = GServerMessage::readRequest( bytes, request ) && request.isMethod( u"STUN" );
        Fuzz::require( out.empty( ) || ( good && socket == STUN_DIRECT && out.size( ) == 3 ) );
        Fuzz::require( good || service.pendingCount( ) == pending );
        for( const GDatagramList::Item& datagram : out )
        {
            Fuzz::require( datagram.to == from && datagram.socket <= STUN_UNPUNCHED );
            GHTTPHeaders answer;
            Fuzz::require( answer.deserialize( datagram.bytes ) == static_cast<int>( datagram.bytes.size( ) ) );
            Fuzz::require( answer.get( u"CSeq" ) == request.get( u"CSeq" ) );
        }
        now += input.byte( ) * 100000u;
        out.clear( );
        service.onTime( now, out );
        for( const GDatagramList::Item& datagram : out )
            Fuzz::require( datagram.socket == STUN_REFRESH && --owed[datagram.to] >= 0 );
        Fuzz::require( service.pendingCount( ) <= 3 && service.nextDue( now ) >= -1 );
    }
    return 0;
}
