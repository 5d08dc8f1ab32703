// Logons of any text: whatever is answered is a message, and only what asks for an account makes one.
#include "ServerFuzz.h"
#include "server/logon/GLogonService.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    Fuzz::Server server;
    const GServerHosts hosts{ { "1.1.1.1:1" }, { "5.5.5.5:5" }, "6.6.6.6:6", "7.7.7.7:7", "8.8.8.8:8" };
    GLogonService service( server.config, hosts, server.store, server.metrics );
    for( int messages = 0; messages < 4 && !input.empty( ); ++messages )
    {
        const size_t accounts = server.store.listAccounts( ).size( );
        GLogonTask task;
        GString reply;
        const GHTTPHeaders request = input.message( );
        const bool costly = service.begin( request, "198.51.100.1", Fuzz::START, task, reply );
        if( costly )
        {
            GLogonService::run( task );
            reply = service.end( task, Fuzz::START );
        }
        GHTTPHeaders answer;
        Fuzz::require( reply.empty( ) || answer.deserialize( reply ) == static_cast<int>( reply.size( ) ) );
        const bool made = server.store.listAccounts( ).size( ) != accounts;
        Fuzz::require( !made || ( costly && task.create && answer.getResponse( ) == GHTTP_SUCCESS ) );
    }
    return 0;
}
