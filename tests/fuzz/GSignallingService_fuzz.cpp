// Datagrams of two users and a stranger, as bytes and as messages: nothing leaves for a host that never wrote.
#include "ServerFuzz.h"
#include "server/signalling/GSignallingService.h"

#include <set>

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    Fuzz::Server server;
    GSignallingService service( server.config, server.store, server.metrics );
    service.setListeners( { "127.0.0.1:1", "127.0.0.1:2" } );
    uint64_t now = Fuzz::START;
    std::set<GString> heard;
    for( int messages = 0; messages < 20 && !input.empty( ); ++messages )
    {
        const uint8_t who = input.byte( );
        const bool whole = input.byte( ) & 1;
        const GString from = who & 1 ? Fuzz::BEN_HOST : who & 2 ? "203.0.113.9:9" : Fuzz::ANN_HOST;
        heard.insert( from );
        const GString bytes = whole ? input.message( ).serialize( ) : input.line( );
        GDatagramList out;
        service.onDatagram( who >> 7, from, bytes, now, out );
        for( const GDatagramList::Item& datagram : out )
            Fuzz::require( heard.contains( datagram.to ) && datagram.socket < 2 );
        now += input.byte( ) * 1000000u;
        if( who & 4 ) service.expire( now );
    }
    return 0;
}
