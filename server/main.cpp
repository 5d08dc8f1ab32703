// velmora-server: the program behind every host that a client talks to.
#include "base/GUtil.h"
#include "server/GServer.h"
#include "server/GServerCommands.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>

namespace
{
// One line an event, with the time in UTC, on the error stream.
void writeLine( const GWString& line )
{
    const auto now = std::chrono::system_clock::now( );
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>( now.time_since_epoch( ) ).count( ) % 1000;
    const std::time_t time = std::chrono::system_clock::to_time_t( now );
    std::tm split{ };
    gmtime_r( &time, &split );
    char stamp[32];
    std::strftime( stamp, sizeof( stamp ), "%Y-%m-%dT%H:%M:%S", &split );
    char milli[8];
    std::snprintf( milli, sizeof( milli ), ".%03dZ ", static_cast<int>( milliseconds ) );
    const GString text = stamp + GString( milli ) + GWideToUTF8( line );
    std::fwrite( text.data( ), 1, text.size( ), stderr );
}
void crash( )
{
    std::abort( );
}

int runServer( const GServerConfig& config, const GString& configPath )
{
    GServer server( config, configPath );
    GString error;
    server.watchSignals( );
    if( !server.open( error ) )
    {
        std::cerr << "velmora-server: " << error << "\n";
        return 1;
    }
    std::cout << server.readyLine( ) << std::endl;
    server.run( );
    return 0;
}
} // namespace

int main( int argc, char** argv )
{
    GPortableGetHooks( ).log = writeLine;
    GPortableGetHooks( ).crash = crash;
    GTextKeepAstral( true ); // A password keeps all its characters.
    std::signal( SIGPIPE, SIG_IGN );

    std::vector<GString> arguments( argv + 1, argv + argc );
    GServerConfig config;
    GString path;
    GString error;
    for( const GString& argument : arguments )
        if( argument == "--help" || argument == "-h" )
        {
            std::cout << GServerCommands::usage( );
            return 0;
        }
    if( arguments.size( ) >= 2 && arguments[0] == "--config" )
    {
        path = arguments[1];
        arguments.erase( arguments.begin( ), arguments.begin( ) + 2 );
    }
    else
        config.relayAllowPrivate = true; // Everything is on loopback, so that is where a relay has to reach.
    if( ( !path.empty( ) && !config.load( path, error ) ) || !config.finish( error ) )
    {
        std::cerr << "velmora-server: " << error << "\n";
        return 1;
    }
    if( !arguments.empty( ) ) return GServerCommands::run( config, arguments, std::cout, std::cerr );
    return runServer( config, path );
}
