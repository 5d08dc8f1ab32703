// Hosts, addresses, routes and lists of them, one a line.
#include "Fuzz.h"
#include "client/signalling/GRoute.h"
#include "platform/GNet.h"

namespace
{
void splitHost( const GWString& host )
{
    GWString address;
    int port = 0;
    if( GNetSplitHost( host, address, port ) ) Fuzz::require( !address.empty( ) && port > 0 && port < 65536 );
    uint32_t value = 0;
    GNetParseAddress( host, value );
    GNetIsLoopbackHost( host );
    if( GNetIsUnicastHost( host ) )
        Fuzz::require( GNetSplitHost( host, address, port ) && GNetParseAddress( address, value ) );
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    GStringList routes;
    while( !input.empty( ) )
    {
        const GWString text = input.wideLine( );
        splitHost( text );
        GRoute route;
        if( GRouteSplit( text, route ) ) splitHost( route.host );
        Fuzz::require( GRouteCleanText( text, 20 ).size( ) <= 20 );
        routes.push_back( text );
        for( const GWString& item : GSplitList( text ) ) routes.push_back( item );
    }
    const GStringList usable = GRouteListFilter( routes, u"192.0.2.1:99", { u"192.0.2.7:99" } );
    Fuzz::require( usable.size( ) <= GROUTE_MAX_COUNT );
    for( const GWString& text : usable )
    {
        GRoute route;
        Fuzz::require( GRouteSplit( text, route ) && GRouteIsUsableHost( route.host, u"192.0.2.1:99" ) );
    }
    return 0;
}
