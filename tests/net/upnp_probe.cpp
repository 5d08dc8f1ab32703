// A client of a UPnP gateway that is told step by step what to do, so that a test can look from outside in between.
// Usage: upnp_probe LOCAL_IP LOW HIGH
// Prints every line of the log as "log TEXT", then "open LOCAL_HOST GLOBAL_HOST" or "null LOCAL_HOST". Then it takes a command a line:
// "recv" waits up to two seconds for a datagram and prints "received SENDER TEXT" or "nothing"; "close" removes the mapping and prints
// "closed". Ends with its input.
#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GNet.h"

#include <cstdlib>
#include <iostream>
#include <string>

namespace
{
constexpr int64_t PATIENCE = 2000000;

void logLine( const GWString& line )
{
    std::cout << "log " << GWideToUTF8( line ) << std::flush;
}

void receive( GNetUDPPort* port )
{
    GString buffer;
    GWString sender;
    GNetWait( { port }, { }, { }, PATIENCE );
    if( GNetUDPPortRecv( port, buffer, sender ) )
        std::cout << "received " << GWideToUTF8( sender ) << " " << buffer << std::endl;
    else
        std::cout << "nothing" << std::endl;
}

void obey( GNetUDPPort* port, GNetUPnPMapping* mapping )
{
    std::string command;
    while( std::getline( std::cin, command ) )
    {
        if( command == "recv" ) receive( port );
        if( command != "close" || !mapping ) continue;
        GNetUPnPMappingClose( mapping );
        mapping = nullptr;
        std::cout << "closed" << std::endl;
    }
    if( mapping ) GNetUPnPMappingClose( mapping );
}
} // namespace

int main( int argc, char** argv )
{
    if( argc != 4 ) return 2;
    GPortableGetHooks( ).log = logLine;
    GPortableGetHooks( ).crash = [] { std::abort( ); };
    GNetUDPPort* port = GNetUDPPortOpen( GConcat( argv[1], u":0" ) );
    if( !port ) return 1;
    GNetUPnPMapping* mapping = GNetUPnPMappingOpen( port->host, std::atoi( argv[2] ), std::atoi( argv[3] ) );
    std::cout << ( mapping ? "open " : "null " ) << GWideToUTF8( port->host );
    if( mapping ) std::cout << " " << GWideToUTF8( GNetUPnPMappingGetGlobalHost( mapping ) );
    std::cout << std::endl;
    obey( port, mapping );
    GNetUDPPortClose( port );
    return 0;
}
