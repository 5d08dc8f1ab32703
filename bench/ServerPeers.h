// The programs of the server's benchmark, each a process of its own on loopback: our server, a STUN and TURN server, a SIP registrar,
// and a bare echo. What they cost is their processor time, which other programs on the machine disturb less than any clock.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Bench
{
class Process
{
public:
    Process( ) = default;
    ~Process( ) { stop( ); }
    Process( const Process& ) = delete;
    Process& operator=( const Process& ) = delete;
    // What it prints on its output goes to `outputLine`, the first line, when that is asked for. Exits the benchmark when it fails.
    void start( const std::vector<std::string>& arguments, const std::string& folder,
                std::string* outputLine = nullptr );
    // Runs `work` in a process of its own.
    void run( void ( *work )( int handle ), int handle );
    void stop( );
    // Processor time of the process and its children so far, all threads.
    double cpuSeconds( ) const;
    // Proportional share of memory, in KiB.
    double pssKiB( ) const;

private:
    std::vector<pid_t> _family( ) const;
    pid_t _pid = 0;
};

// A folder that goes with the object.
struct Folder
{
    Folder( );
    ~Folder( );
    std::string path;
};

struct VelmoraServer
{
    VelmoraServer( );
    Folder folder;
    Process process;
    std::map<std::string, std::vector<std::string>> hosts; // By role, as the server says that it is ready.
};
// "turnserver" and "kamailio" of their packages.
struct TurnServer
{
    TurnServer( );
    Folder folder;
    Process process;
    std::string host;
};
struct Registrar
{
    Registrar( );
    Folder folder;
    Process process;
    std::string host;
};
struct EchoServer
{
    EchoServer( );
    Process process;
    std::string host;
};
} // namespace Bench
