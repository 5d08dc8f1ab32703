// An X server of a test's own: started, taken away and started again on the same display. While it stands, DISPLAY names it.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

class TestServer
{
public:
    // `screen` is "WIDTHxHEIGHTxDEPTH". Waits until the server answers.
    explicit TestServer( const std::string& screen, const std::vector<std::string>& options = { } );
    // Ends the server and gives DISPLAY back.
    ~TestServer( );
    TestServer( const TestServer& ) = delete;
    TestServer& operator=( const TestServer& ) = delete;

    // The server is gone at the return, without having said goodbye.
    void kill( );
    // On the same display as before.
    void restart( const std::string& screen );
    bool isRunning( ) const { return _process > 0; }

private:
    void _start( const std::string& screen );

    std::vector<std::string> _options;
    std::string _number;
    std::string _oldDisplay;
    pid_t _process = 0;
};

// Sleeps for a moment; false when that was often enough.
bool awaitPause( int& tries );
// Asks again and again until `done` holds; false after ten seconds.
template <typename Done>
bool awaitUntil( Done done )
{
    int tries = 0;
    while( !done( ) )
        if( !awaitPause( tries ) ) return false;
    return true;
}
