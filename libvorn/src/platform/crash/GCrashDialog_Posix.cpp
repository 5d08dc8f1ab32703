// The helper program's run and the restart: everything is prepared while the process is well, since after the crash neither the
// heap nor the environment may be touched.
#include "platform/GCrash.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace
{
constexpr const char* HELPER_NAME = "/velmora-crash";
constexpr size_t MAX_ARGUMENTS = 62;

char helperPath_[PATH_MAX];
bool hasDisplay_ = false;

char restartText_[PATH_MAX * 2];
char* restartArguments_[MAX_ARGUMENTS + 2];

// In the child between fork and exec: only calls that a signal handler may make.
[[noreturn]] void runChild( const char* path, char* const* arguments, int output )
{
    sigset_t none;
    sigemptyset( &none );
    sigprocmask( SIG_SETMASK, &none, nullptr );
    for( const int signal : { SIGABRT, SIGFPE, SIGILL, SIGSEGV, SIGBUS, SIGTERM, SIGPIPE } )
        ::signal( signal, SIG_DFL );
    if( output >= 0 ) dup2( output, STDOUT_FILENO );
    close_range( STDERR_FILENO + 1, ~0U, 0 );
    execve( path, arguments, environ );
    _exit( 127 );
}

// Everything the helper writes until it ends; the number of bytes.
size_t readAll( int descriptor, char* buffer, size_t length )
{
    size_t got = 0;
    while( got < length )
    {
        const ssize_t step = read( descriptor, buffer + got, length - got );
        if( step < 0 && errno == EINTR ) continue;
        if( step <= 0 ) break;
        got += static_cast<size_t>( step );
    }
    return got;
}

// The helper's answer: 'O' for OK or 'C', '1' when a restart is wanted, '1' when there is a comment, then the comment.
bool parseAnswer( const char* bytes, size_t length, GCrashAnswer& answer )
{
    if( length < 3 || bytes[0] != 'O' ) return false;
    answer.restart = bytes[1] == '1';
    answer.commented = bytes[2] == '1';
    const size_t comment = std::min( length - 3, sizeof( answer.comment ) - 1 );
    memcpy( answer.comment, bytes + 3, comment );
    answer.comment[comment] = '\0';
    return true;
}
} // namespace

void GCrashPrepareDialog( )
{
    const ssize_t length = readlink( "/proc/self/exe", helperPath_, sizeof( helperPath_ ) - strlen( HELPER_NAME ) - 1 );
    helperPath_[std::max<ssize_t>( length, 0 )] = '\0';
    char* const slash = strrchr( helperPath_, '/' );
    memcpy( slash ? slash : helperPath_, HELPER_NAME, strlen( HELPER_NAME ) + 1 );
    hasDisplay_ = getenv( "DISPLAY" ) || getenv( "WAYLAND_DISPLAY" );
}

void GCrashSetDialog( const GString& path )
{
    path.copy( helperPath_, sizeof( helperPath_ ) - 1 );
    helperPath_[std::min( path.size( ), sizeof( helperPath_ ) - 1 )] = '\0';
    hasDisplay_ = true;
}

bool GCrashAsk( GCrashAnswer& answer )
{
    answer.restart = false;
    answer.commented = false;
    answer.comment[0] = '\0';
    int ends[2];
    if( !hasDisplay_ || access( helperPath_, X_OK ) || pipe2( ends, O_CLOEXEC ) ) return false;
    GCrashFreeInput( );
    const pid_t self = getpid( );
    const pid_t child = _Fork( );
    if( !child )
    {
        // The dialog must not outlive a process that is killed meanwhile.
        prctl( PR_SET_PDEATHSIG, SIGTERM );
        if( getppid( ) != self ) _exit( 0 );
        char* const arguments[] = { helperPath_, nullptr };
        runChild( helperPath_, arguments, ends[1] );
    }
    close( ends[1] );
    static char bytes[sizeof( answer.comment ) + 3];
    const size_t got = child > 0 ? readAll( ends[0], bytes, sizeof( bytes ) ) : 0;
    close( ends[0] );
    if( child > 0 )
        while( waitpid( child, nullptr, 0 ) < 0 && errno == EINTR )
        {
        }
    return parseAnswer( bytes, got, answer );
}

bool GCrashPrepareRestart( const GString& path, const GString& arguments )
{
    const GString text = path + ' ' + arguments;
    const auto words = static_cast<size_t>( std::count( arguments.begin( ), arguments.end( ), ' ' ) ) + 1;
    if( text.size( ) >= sizeof( restartText_ ) || words > MAX_ARGUMENTS ) return false;
    memcpy( restartText_, text.c_str( ), text.size( ) + 1 );
    restartText_[path.size( )] = '\0';
    size_t count = 0;
    if( !path.empty( ) ) restartArguments_[count++] = restartText_;
    for( char* token = strtok( restartText_ + path.size( ) + 1, " " ); token && count; token = strtok( nullptr, " " ) )
        restartArguments_[count++] = token;
    restartArguments_[count] = nullptr;
    return true;
}
bool GCrashCanRestart( )
{
    return restartArguments_[0] != nullptr;
}
bool GCrashRestart( )
{
    if( !GCrashCanRestart( ) ) return false;
    const pid_t child = _Fork( );
    if( !child )
    {
        setsid( );
        runChild( restartArguments_[0], restartArguments_, -1 );
    }
    return child > 0;
}
