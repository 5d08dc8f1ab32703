// velmora-loadtest: many devices on one machine that ask a server, and what became of it.
#include "server/loadtest/GLoadTest.h"

#include <algorithm>
#include <iostream>
#include <sys/resource.h>

int main( int argc, char** argv )
{
    const std::vector<GString> arguments( argv + 1, argv + argc );
    if( std::any_of( arguments.begin( ), arguments.end( ),
                     []( const GString& a ) { return a == "--help" || a == "-h"; } ) )
    {
        std::cout << GLoadOptions::usage( );
        return 0;
    }
    GLoadOptions options;
    GString error;
    if( !options.parse( arguments, error ) )
    {
        std::cerr << "velmora-loadtest: " << error << "\n";
        return 2;
    }
    rlimit handles{ };
    if( ::getrlimit( RLIMIT_NOFILE, &handles ) == 0 )
    {
        handles.rlim_cur = handles.rlim_max; // A socket a device.
        ::setrlimit( RLIMIT_NOFILE, &handles );
    }
    GLoadTest test( options );
    if( !test.enter( error ) )
    {
        std::cerr << "velmora-loadtest: " << error << "\n";
        return 1;
    }
    const GLoadFigures figures = test.run( );
    std::cout << ( options.json ? figures.json( ) : figures.table( ) ) << std::flush;
    return figures.lossPercent( ) > options.maxLossPercent ? 1 : 0;
}
