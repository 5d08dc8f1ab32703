// The sound server of the test (tests/support/with-sound): taking it away, bringing it back, asking it, and hearing its speaker.
#pragma once

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace TestSound
{
// Polls until it holds, twenty seconds at most.
inline bool becomes( const std::function<bool( )>& condition )
{
    const auto deadline = std::chrono::steady_clock::now( ) + std::chrono::seconds( 20 );
    while( !condition( ) )
    {
        if( std::chrono::steady_clock::now( ) > deadline ) return false;
        std::this_thread::sleep_for( std::chrono::milliseconds( 20 ) );
    }
    return true;
}

// What a shell command says, without the last newline.
inline std::string ask( const std::string& command )
{
    std::string answer;
    FILE* pipe = popen( command.c_str( ), "r" );
    if( !pipe ) return answer;
    for( int c = fgetc( pipe ); c != EOF; c = fgetc( pipe ) ) answer += static_cast<char>( c );
    pclose( pipe );
    while( !answer.empty( ) && answer.back( ) == '\n' ) answer.pop_back( );
    return answer;
}

// True when the shell command succeeds.
inline bool run( const std::string& command )
{
    return std::system( command.c_str( ) ) == 0;
}

// 0 while there is no server.
inline pid_t serverPid( )
{
    const char* room = std::getenv( "VELMORA_SOUND_ROOM" );
    pid_t pid = 0;
    std::ifstream( std::string( room ? room : "" ) + "/pid" ) >> pid;
    return pid;
}

// Kills the server; true when it is gone.
inline bool killServer( )
{
    const pid_t pid = serverPid( );
    return pid > 0 && kill( pid, SIGKILL ) == 0 && becomes( [] { return serverPid( ) == 0; } );
}

// A server in the place of the one that was killed, for a scope.
class Server
{
public:
    Server( )
    {
        _process = fork( );
        const char* program = std::getenv( "VELMORA_SOUND_SERVER" );
        if( _process == 0 ) execl( program, program, std::getenv( "VELMORA_SOUND_ROOM" ), nullptr );
        if( _process == 0 ) _exit( 1 );
        _answers = becomes( [] { return serverPid( ) > 0; } );
    }
    ~Server( )
    {
        kill( _process, SIGTERM );
        waitpid( _process, nullptr, 0 );
    }
    Server( const Server& ) = delete;
    Server& operator=( const Server& ) = delete;
    bool answers( ) const { return _answers; }

private:
    pid_t _process = -1;
    bool _answers = false;
};

// Listens to the speaker: mono samples, 8000 a second.
class Recorder
{
public:
    Recorder( )
        : _pipe( popen( "exec parec --raw --format=s16le --rate=8000 --channels=1 --latency-msec=20 -d spk.monitor "
                        "2>/dev/null",
                        "r" ) )
    {
        _read( ); // It runs when the first sample is there.
    }
    ~Recorder( )
    {
        // It ends when nobody takes what it writes.
        if( _pipe ) pclose( _pipe );
    }
    Recorder( const Recorder& ) = delete;
    Recorder& operator=( const Recorder& ) = delete;
    // The samples from the first loud one on; fewer than asked for when it stays quiet for ten seconds.
    std::vector<int16_t> hear( size_t count )
    {
        std::vector<int16_t> heard;
        for( int quiet = 0; heard.size( ) < count && quiet < 80000; )
        {
            const int16_t sample = _read( );
            if( heard.empty( ) && std::abs( sample ) < 500 )
                quiet++;
            else
                heard.push_back( sample );
        }
        return heard;
    }

private:
    int16_t _read( )
    {
        int16_t sample = 0;
        if( _pipe && fread( &sample, sizeof( sample ), 1, _pipe ) != 1 ) return 0;
        return sample;
    }
    FILE* _pipe;
};
} // namespace TestSound
