#include "ServerPeers.h"

#include "ServerClients.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
namespace fs = std::filesystem;

std::string textOf( const fs::path& path )
{
    std::ostringstream out;
    out << std::ifstream( path ).rdbuf( );
    return out.str( );
}
std::vector<std::string> split( const std::string& text, char mark )
{
    std::vector<std::string> parts;
    std::istringstream in( text );
    for( std::string part; std::getline( in, part, mark ); ) parts.push_back( part );
    return parts;
}
// A free port: it was free a moment ago.
std::string freeHost( )
{
    const Bench::Socket probe( SOCK_DGRAM );
    return probe.localHost( );
}
void echo( int handle )
{
    char bytes[2048];
    sockaddr_storage from{ };
    for( ;; )
    {
        socklen_t size = sizeof( from );
        const ssize_t length =
            ::recvfrom( handle, bytes, sizeof( bytes ), 0, reinterpret_cast<sockaddr*>( &from ), &size );
        if( length >= 0 )
            ::sendto( handle, bytes, static_cast<size_t>( length ), 0, reinterpret_cast<sockaddr*>( &from ), size );
    }
}
void awaitAnswer( const std::string& host, const std::string& request )
{
    Bench::Socket socket( SOCK_DGRAM );
    socket.setTimeout( 100 );
    for( int i = 0; i < 100; ++i )
    {
        socket.sendTo( host, request );
        if( !socket.receive( ).empty( ) ) return;
    }
    Bench::fail( "no answer from " + host );
}
} // namespace

namespace Bench
{
void fail( const std::string& text )
{
    std::fprintf( stderr, "bench: %s\n", text.c_str( ) );
    std::exit( 2 );
}

void Process::start( const std::vector<std::string>& arguments, const std::string& folder, std::string* outputLine )
{
    int pipes[2];
    if( ::pipe( pipes ) ) fail( "no pipe" );
    _pid = ::fork( );
    if( _pid == 0 )
    {
        ::prctl( PR_SET_PDEATHSIG, SIGKILL );
        ::setpgid( 0, 0 );
        if( ::chdir( folder.c_str( ) ) ) ::_exit( 126 );
        const int log = ::open( "output.log", O_CREAT | O_WRONLY, 0600 );
        ::dup2( outputLine ? pipes[1] : log, 1 );
        ::dup2( log, 2 );
        std::vector<char*> words;
        for( const std::string& word : arguments ) words.push_back( const_cast<char*>( word.c_str( ) ) );
        words.push_back( nullptr );
        ::execvp( words[0], words.data( ) );
        ::_exit( 127 );
    }
    ::close( pipes[1] );
    char byte = 0;
    while( outputLine && ::read( pipes[0], &byte, 1 ) == 1 && byte != '\n' ) *outputLine += byte;
    if( outputLine && outputLine->empty( ) )
        fail( arguments[0] + " does not start: " + textOf( folder + "/output.log" ) );
    ::close( pipes[0] );
}
void Process::run( void ( *work )( int handle ), int handle )
{
    _pid = ::fork( );
    if( _pid ) return;
    ::prctl( PR_SET_PDEATHSIG, SIGKILL );
    ::setpgid( 0, 0 );
    work( handle );
    ::_exit( 0 );
}
void Process::stop( )
{
    if( _pid <= 0 ) return;
    ::kill( -_pid, SIGKILL );
    ::waitpid( _pid, nullptr, 0 );
    _pid = 0;
}
std::vector<pid_t> Process::_family( ) const
{
    std::vector<pid_t> family{ _pid };
    for( const auto& entry : fs::directory_iterator( "/proc" ) )
    {
        const int pid = std::atoi( entry.path( ).filename( ).c_str( ) );
        if( pid > 0 && pid != _pid && ::getpgid( pid ) == _pid ) family.push_back( pid );
    }
    return family;
}
double Process::cpuSeconds( ) const
{
    double nanoseconds = 0;
    std::error_code ignored;
    for( const pid_t pid : _family( ) )
        for( const auto& task : fs::directory_iterator( "/proc/" + std::to_string( pid ) + "/task", ignored ) )
            nanoseconds += std::atof( textOf( task.path( ) / "schedstat" ).c_str( ) );
    return nanoseconds * 1e-9;
}
double Process::pssKiB( ) const
{
    double sum = 0;
    for( const pid_t pid : _family( ) )
    {
        const std::string text = textOf( "/proc/" + std::to_string( pid ) + "/smaps_rollup" );
        const size_t at = text.find( "\nPss:" );
        if( at != std::string::npos ) sum += std::atof( text.c_str( ) + at + 5 );
    }
    return sum;
}

Folder::Folder( )
{
    path = ( fs::temp_directory_path( ) / "velmora-bench-XXXXXX" ).string( );
    if( !::mkdtemp( path.data( ) ) ) fail( "no folder" );
}
Folder::~Folder( )
{
    std::error_code ignored;
    fs::remove_all( path, ignored );
}

VelmoraServer::VelmoraServer( )
{
    std::ofstream( folder.path + "/server.ini" )
        << "port_base = 0\nrelay_allow_private = yes\nrelay_bytes_per_second = 1000000000\n"
           "relay_packets_per_second = 1000000\ndatagrams_per_second = 1000000\npassword_memory_kib = 8\n"
           "password_passes = 1\nlogons_per_minute = 1000000\n";
    std::string ready;
    const std::string program = fs::read_symlink( "/proc/self/exe" ).parent_path( ) / "velmora-server";
    process.start( { program, "--config", "server.ini" }, folder.path, &ready );
    for( const std::string& word : split( ready, ' ' ) )
    {
        const size_t mark = word.find( '=' );
        if( mark != std::string::npos ) hosts[word.substr( 0, mark )] = split( word.substr( mark + 1 ), ',' );
    }
}

TurnServer::TurnServer( ) : host( freeHost( ) )
{
    const std::string port = host.substr( host.find( ':' ) + 1 );
    process.start(
        { "turnserver", "-n",           "--no-auth", "--no-cli",  "--no-tls",  "--no-dtls", "--allow-loopback-peers",
          "-L",         "127.0.0.1",    "-E",        "127.0.0.1", "-p",        port,        "-m",
          "1",          "--simple-log", "-l",        "turn.log",  "--pidfile", "turn.pid",  "--userdb",
          "turn.db" },
        folder.path );
    awaitAnswer( host, stunBinding( 1 ) );
}

Registrar::Registrar( ) : host( freeHost( ) )
{
    std::ofstream( folder.path + "/registrar.cfg" )
        << "#!KAMAILIO\ndebug=-1\nlog_stderror=yes\nfork=yes\nchildren=1\ndisable_tcp=yes\nlisten=udp:" << host
        << "\nloadmodule \"sl.so\"\nloadmodule \"pv.so\"\nloadmodule \"usrloc.so\"\nloadmodule \"registrar.so\"\n"
           "modparam(\"usrloc\", \"db_mode\", 0)\n"
           "request_route {\n  if( method == \"REGISTER\" ) { save(\"location\"); exit; }\n  sl_send_reply(\"404\", "
           "\"No\");\n}\n";
    process.start( { "kamailio", "-DD", "-f", folder.path + "/registrar.cfg", "-P", folder.path + "/registrar.pid",
                     "-Y", folder.path },
                   folder.path );
    awaitAnswer( host, sipRegister( "127.0.0.1:9", 0, 1 ) );
}

EchoServer::EchoServer( )
{
    const Socket socket( SOCK_DGRAM );
    host = socket.localHost( );
    process.run( echo, socket.handle( ) );
}
} // namespace Bench
