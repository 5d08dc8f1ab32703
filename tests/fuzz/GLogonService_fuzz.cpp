// Logons of any text from two addresses while time goes on: whatever is answered is a message, only what asks for an account makes
// one, only a good logon opens the other roles to its address, and each address has its number of logons.
#include "ServerFuzz.h"
#include "server/logon/GLogonService.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    static constexpr const char* ADDRESSES[] = { "203.0.113.1", "203.0.113.2" };
    Fuzz::Input input( data, size );
    Fuzz::Server server;
    server.config.logonsPerMinute = 3;
    const GServerHosts hosts{ { "1.1.1.1:1" }, { "5.5.5.5:5" }, "6.6.6.6:6", "7.7.7.7:7", "8.8.8.8:8" };
    GLogonService service( server.config, hosts, server.store, server.metrics );
    uint64_t now = Fuzz::START;
    int costlyCount = 0;
    for( int messages = 0; messages < 8 && !input.empty( ); ++messages )
    {
        const size_t accounts = server.store.listAccounts( ).size( );
        const uint8_t who = input.byte( );
        const GString address = ADDRESSES[who % 2];
        const bool open = server.store.hasAnyLogon( address, 0 );
        GLogonTask task;
        GString reply;
        GHTTPHeaders request = input.message( );
        if( who & 4 ) request.setMethod( u"AUTHENTICATE" );
        const bool costly = service.begin( request, address, now, task, reply );
        if( costly )
        {
            GLogonService::run( task );
            reply = service.end( task, now );
            ++costlyCount;
        }
        GHTTPHeaders answer;
        Fuzz::require( reply.empty( ) || answer.deserialize( reply ) == static_cast<int>( reply.size( ) ) );
        const bool welcome = answer.getResponse( ) == GHTTP_SUCCESS;
        const bool made = server.store.listAccounts( ).size( ) != accounts;
        Fuzz::require( !made || ( costly && task.create && welcome ) );
        Fuzz::require( open || welcome || !server.store.hasAnyLogon( address, 0 ) );
        if( who & 8 ) now += input.byte( ) * 100000u;
    }
    const uint64_t minutes = ( now - Fuzz::START ) / 60000000 + 1;
    Fuzz::require( costlyCount <= static_cast<int>( 2 * 3 * ( minutes + 1 ) ) );
    return 0;
}
