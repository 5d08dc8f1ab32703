// The client's whole way to a mapped port: its dispatch service against a real gateway. The log goes to the output; each line of input is
// a command for the service, and its end stops it. No server of its network answers.
//   dispatch_probe IP STUN-HOST      STUN-HOST as ip:port
#include "base/GPortable.h"
#include "base/GUtil.h"
#include "client/signalling/GDispatchService.h"
#include "client/transport/GMegaPort.h"
#include "runtime/GInstance.h"

#include <cstdlib>
#include <iostream>
#include <mutex>

namespace
{
void logLine( const GWString& line )
{
    static std::mutex mutex;
    const std::lock_guard guard( mutex );
    std::cout << "log " << GWideToUTF8( line ) << std::flush;
}
} // namespace

int main( int argc, char** argv )
{
    if( argc != 3 ) return 2;
    GPortableGetHooks( ).log = logLine;
    GPortableGetHooks( ).crash = [] { std::abort( ); };
    const GWString nobody = GUTF8ToWide( argv[2] );
    GInstance instance( u"dispatch_probe_settings.ini" );
    instance.set( u"Local_IP", GUTF8ToWide( argv[1] ) );
    instance.set( u"UPnP_Low_Port", 49152 );
    instance.set( u"UPnP_High_Port", 65535 );
    instance.set( u"Global_STUN_Host_List", GStringList( 4, nobody ) );
    instance.set( u"Global_SIP_Host_List", nobody );
    instance.set( u"Global_TURN_Host", nobody );
    GMegaPort port( u"probe" );
    GDispatchService* service = GSAFENEW( GDispatchService, ( &instance, &port ) );
    service->start( u"GDispatchService" );
    std::string command;
    while( std::getline( std::cin, command ) )
        instance.enqueue( u"GDispatchService_commandQueue", GHTTPHeaders( GUTF8ToWide( command ) ) );
    service->stop( true );
    delete service;
    std::cout << "stopped" << std::endl;
    return 0;
}
