// Host text of any bytes, one a line: what passes for an address is the same one to the system's own reader, what a stranger may
// name can be taken apart, and what is neither an address nor a name is not sent to.
#include "Fuzz.h"
#include "platform/GNet.h"

#include <arpa/inet.h>

namespace
{
void readAddress( const GWString& text )
{
    uint32_t value = 0;
    if( !GNetParseAddress( text, value ) ) return;
    Fuzz::require( ::inet_addr( GWideToUTF8( text ).c_str( ) ) == htonl( value ) );
    Fuzz::require( GNetIsName( text ) );
    GWString host;
    GNetComposeHost( value, 80, host );
    Fuzz::require( host == text + u":80" );
}

void readHost( const GWString& text )
{
    GWString address;
    int port = 0;
    const bool whole = GNetSplitHost( text, address, port );
    if( whole ) Fuzz::require( !address.empty( ) && GWITHIN( 1, port, 65535 ) && text.starts_with( address + u":" ) );
    uint32_t value = 0;
    if( GNetIsUnicastHost( text ) ) Fuzz::require( whole && GNetParseAddress( address, value ) && value >> 24 < 224 );
    if( GNetIsLoopbackHost( text ) )
        Fuzz::require( GNetParseAddress( text.substr( 0, text.find( u':' ) ), value ) && value >> 24 == 127 );
}

// Neither a look-up nor a datagram may come of such text.
void refuseHost( GNetUDPPort* port, const GWString& text )
{
    if( GNetIsName( GWStringView( text ).substr( 0, text.find( u':' ) ) ) ) return;
    GNetUDPPortSend( port, text, "x", 1 );
    Fuzz::require( GNetUDPPortIsAlive( port ) );
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    static GNetUDPPort* const port = GNetUDPPortOpen( u"127.0.0.1:0" );
    Fuzz::require( port );
    Fuzz::Input input( data, size );
    while( !input.empty( ) )
    {
        const GWString text = input.wideLine( );
        readAddress( text );
        readHost( text );
        refuseHost( port, text );
    }
    return 0;
}
