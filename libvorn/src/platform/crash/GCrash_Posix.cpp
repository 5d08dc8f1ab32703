#include "platform/GCrash.h"

#include "base/GDebug.h"
#include "base/GPortable.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <exception>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr int64_t PARK_PAUSE = 1000;
constexpr int PARK_TRIES = 1000;

std::atomic<GCrashHandler> handler_ = nullptr;
pthread_t mainThread_;
std::atomic<int> displaySockets_[] = { -1, -1 };
std::atomic<bool> parked_ = false;
std::atomic<void ( * )( int64_t )> sleep_ = nullptr;

struct CodeName
{
    unsigned code;
    const char* name;
};
constexpr CodeName CODE_NAMES[] = {
    { 0x00000000, "STATUS_WAIT_0" },
    { 0x00000080, "STATUS_ABANDONED_WAIT_0" },
    { 0x00000103, "STATUS_PENDING" },
    { 0x00000102, "STATUS_TIMEOUT" },
    { 0x000000C0, "STATUS_USER_APC" },
    { 0x80000002, "STATUS_DATATYPE_MISALIGNMENT" },
    { 0x80000001, "STATUS_GUARD_PAGE_VIOLATION" },
    { 0xC0000005, "STATUS_ACCESS_VIOLATION" },
    { 0xC0000006, "STATUS_IN_PAGE_ERROR" },
    { 0xC0000017, "STATUS_NO_MEMORY" },
    { 0xC000001D, "STATUS_ILLEGAL_INSTRUCTION" },
    { 0xC0000025, "STATUS_NONCONTINUABLE_EXCEPTION" },
    { 0xC0000026, "STATUS_INVALID_DISPOSITION" },
    { 0xC000008C, "STATUS_ARRAY_BOUNDS_EXCEEDED" },
    { 0xC000008D, "STATUS_FLOAT_DENORMAL_OPERAND" },
    { 0xC000008E, "STATUS_FLOAT_DIVIDE_BY_ZERO" },
    { 0xC000008F, "STATUS_FLOAT_INEXACT_RESULT" },
    { 0xC0000090, "STATUS_FLOAT_INVALID_OPERATION" },
    { 0xC0000091, "STATUS_FLOAT_OVERFLOW" },
    { 0xC0000092, "STATUS_FLOAT_STACK_CHECK" },
    { 0xC0000093, "STATUS_FLOAT_UNDERFLOW" },
    { 0xC0000094, "STATUS_INTEGER_DIVIDE_BY_ZERO" },
    { 0xC0000095, "STATUS_INTEGER_OVERFLOW" },
    { 0xC0000096, "STATUS_PRIVILEGED_INSTRUCTION" },
    { 0xC00000FD, "STATUS_STACK_OVERFLOW" },
    { 0xC000013A, "STATUS_CONTROL_C_EXIT" },
    { 0xE06D7363, "'int' to 'int64' upcast exception?" },
};
constexpr unsigned BREAKPOINT = 0x80000003;
constexpr unsigned SINGLE_STEP = 0x80000004;
constexpr unsigned LET_THROUGH = 0x40000005;
constexpr unsigned PASSED_ON = 0x80010001;
constexpr unsigned UNKNOWN = 0xFFFFFFFF;

void onSignal( int signal, siginfo_t* info, void* )
{
    const int savedError = errno;
    const unsigned code = GCrashGetCode( signal, info->si_code );
    if( code != UNKNOWN ) _GPNameException( code );
    _GPOnSignal( signal );
    errno = savedError;
}

int parkSignal( )
{
    return SIGRTMAX - 1;
}
// The user-interface thread stands still from here to the end of the process. It can still fail: that signal comes through.
void onPark( int )
{
    parked_ = true;
    for( ;; ) pause( );
}

void sleepReally( int64_t microseconds )
{
    timespec left = { static_cast<time_t>( microseconds / 1000000 ),
                      static_cast<long>( microseconds % 1000000 * 1000 ) };
    while( nanosleep( &left, &left ) && errno == EINTR )
    {
    }
}

// True when the user-interface thread will not touch the display any more.
bool standsStill( )
{
    if( pthread_equal( pthread_self( ), mainThread_ ) ) return true;
    if( pthread_kill( mainThread_, parkSignal( ) ) ) return false;
    for( int i = 0; i < PARK_TRIES && !parked_; ++i ) sleepReally( PARK_PAUSE );
    return parked_;
}
} // namespace

void GCrashInstall( GCrashHandler crashHandler )
{
    handler_ = crashHandler;
    mainThread_ = pthread_self( );
    GCrashOpenThread( );
    struct sigaction action = { };
    action.sa_sigaction = onSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART | SA_NODEFER;
    sigemptyset( &action.sa_mask );
    for( const int signal : { SIGABRT, SIGFPE, SIGILL, SIGSEGV, SIGBUS, SIGTERM } )
        sigaction( signal, &action, nullptr );
    action.sa_flags = 0;
    action.sa_handler = onPark;
    sigaction( parkSignal( ), &action, nullptr );
    signal( SIGPIPE, SIG_IGN );
    std::set_terminate( []( ) { _GPOnSignal( GCRASH_TERMINATE ); } );
    GCrashPrepareDialog( );
}
GCrashHandler GCrashGetHandler( )
{
    return handler_;
}
void GCrashAddDisplaySocket( int descriptor )
{
    for( std::atomic<int>& socket : displaySockets_ )
    {
        int none = -1;
        if( socket.compare_exchange_strong( none, descriptor ) ) return;
    }
}
void GCrashForgetDisplaySockets( )
{
    for( std::atomic<int>& socket : displaySockets_ ) socket = -1;
}
void GCrashFreeInput( )
{
    if( displaySockets_[0] < 0 || !standsStill( ) ) return;
    // Closing would not do: the toolkit's reader thread holds the connection.
    for( const std::atomic<int>& socket : displaySockets_ )
        if( socket >= 0 ) shutdown( socket, SHUT_RDWR );
}

unsigned GCrashGetCode( int signal, int detail )
{
    switch( signal )
    {
    case SIGSEGV: return 0xC0000005;
    case SIGBUS: return detail == BUS_ADRALN ? 0x80000002 : 0xC0000006;
    case SIGILL: return detail == ILL_PRVOPC || detail == ILL_PRVREG ? 0xC0000096 : 0xC000001D;
    case SIGFPE: break;
    default: return UNKNOWN;
    }
    switch( detail )
    {
    case FPE_INTDIV: return 0xC0000094;
    case FPE_INTOVF: return 0xC0000095;
    case FPE_FLTDIV: return 0xC000008E;
    case FPE_FLTOVF: return 0xC0000091;
    case FPE_FLTUND: return 0xC0000093;
    case FPE_FLTRES: return 0xC000008F;
    case FPE_FLTSUB: return 0xC000008C;
    default: return 0xC0000090;
    }
}
const char* GCrashGetCodeName( unsigned code )
{
    for( const CodeName& entry : CODE_NAMES )
        if( entry.code == code ) return entry.name;
    return "(unknown)";
}
unsigned _GPInfoExceptFilter( unsigned code )
{
    if( code == BREAKPOINT || code == SINGLE_STEP || code == LET_THROUGH ) return PASSED_ON;
    _GPNameException( code );
    GAbort( );
    return 1;
}

void GCrashSetSleep( void ( *sleep )( int64_t microseconds ) )
{
    sleep_ = sleep;
}
void GCrashSleep( int64_t microseconds )
{
    if( void ( *const sleep )( int64_t ) = sleep_ ) return sleep( microseconds );
    sleepReally( microseconds );
}
