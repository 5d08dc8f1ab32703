// Datagrams at all four sockets, as bytes and as messages: answers go to who asked, and what waits has a limit.
#include "ServerFuzz.h"
#include "server/stun/GStunService.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    GServerConfig config;
    config.stunPendingPerSource = 2;
    GMetrics metrics;
    GStunService service( config, metrics );
    uint64_t now = Fuzz::START;
    while( !input.empty( ) )
    {
        const auto socket = static_cast<GStunSocket>( input.byte( ) % 4 );
        const bool whole = input.byte( ) & 1;
        const GString bytes = whole ? input.message( ).serialize( ) : input.line( );
        GDatagramList out;
        service.onDatagram( socket, Fuzz::ANN_HOST, bytes, now, out );
        now += input.byte( ) * 100000u;
        service.onTime( now, out );
        for( const GDatagramList::Item& datagram : out ) Fuzz::require( datagram.to == Fuzz::ANN_HOST );
        Fuzz::require( service.pendingCount( ) <= 2 && service.nextDue( now ) >= -1 );
    }
    return 0;
}
