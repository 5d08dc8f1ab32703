#include "system/screen/TestServer.h"

#include "libvorn/src/platform/common/GScreenBackend.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{
constexpr int MOST_MILLISECONDS = 10000;
constexpr int PAUSE_MILLISECONDS = 5;

// The line that the server writes when it answers; empty when none came in time.
std::string readLine( int file )
{
    std::string line;
    char byte = 0;
    pollfd waiting = { file, POLLIN, 0 };
    while( poll( &waiting, 1, MOST_MILLISECONDS ) > 0 && read( file, &byte, 1 ) == 1 && byte != '\n' ) line += byte;
    return line;
}
} // namespace

TestServer::TestServer( const std::string& screen, const std::vector<std::string>& options )
    : _options( options ), _oldDisplay( std::getenv( "DISPLAY" ) ? std::getenv( "DISPLAY" ) : "" )
{
    GScreenBackendClose( ); // It keeps to the display where it was opened.
    _start( screen );
}

TestServer::~TestServer( )
{
    kill( );
    GScreenBackendClose( );
    setenv( "DISPLAY", _oldDisplay.c_str( ), 1 );
}

void TestServer::kill( )
{
    if( _process <= 0 ) return;
    ::kill( _process, SIGKILL );
    waitpid( _process, nullptr, 0 );
    _process = 0;
}

void TestServer::restart( const std::string& screen )
{
    kill( );
    _start( screen );
}

void TestServer::_start( const std::string& screen )
{
    int pipes[2] = { };
    ASSERT_EQ( 0, pipe( pipes ) );
    std::vector<std::string> words = { "Xvfb" };
    if( !_number.empty( ) ) words.push_back( ":" + _number );
    const std::string descriptor = std::to_string( pipes[1] );
    for( const char* word :
         { "-displayfd", descriptor.c_str( ), "-screen", "0", screen.c_str( ), "-nolisten", "tcp", "-noreset" } )
        words.emplace_back( word );
    words.insert( words.end( ), _options.begin( ), _options.end( ) );
    std::vector<char*> arguments;
    for( std::string& word : words ) arguments.push_back( word.data( ) );
    arguments.push_back( nullptr );
    _process = fork( );
    if( _process == 0 )
    {
        prctl( PR_SET_PDEATHSIG, SIGKILL );
        close( pipes[0] );
        if( !std::freopen( "/dev/null", "w", stderr ) ) _exit( 1 );
        execvp( arguments[0], arguments.data( ) );
        _exit( 1 );
    }
    close( pipes[1] );
    _number = readLine( pipes[0] );
    close( pipes[0] );
    ASSERT_FALSE( _number.empty( ) ) << "no X server came up";
    setenv( "DISPLAY", ( ":" + _number ).c_str( ), 1 );
}

bool awaitPause( int& tries )
{
    if( ++tries > MOST_MILLISECONDS / PAUSE_MILLISECONDS ) return false;
    std::this_thread::sleep_for( std::chrono::milliseconds( PAUSE_MILLISECONDS ) );
    return true;
}
