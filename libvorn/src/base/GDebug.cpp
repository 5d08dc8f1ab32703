#include "base/GDebug.h"

#include "base/GCallStack.h"
#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GCrash.h"
#include "platform/GLogFile.h"
#include "platform/GSystem.h"
#include "platform/GThread.h"
#include "platform/GTime.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>

namespace
{
constexpr std::string_view CLEAN_MARKER = "---- Closed, Clean shutdown ----";
constexpr uint64_t SECOND = 1000000;
constexpr int64_t SECOND_CRASH_WAIT = 5000000;
constexpr size_t PATH_LENGTH = 4096;
constexpr size_t LINE_LENGTH = PATH_LENGTH + 128; // The longest line of the crash handler.

struct DebugState
{
    GString restartPath;
    GString restartArgs;
    GString base;
    std::atomic<bool> echo = false;
    // The live path, where the crash handler finds it without the heap.
    char livePath[PATH_LENGTH] = { };
    char restartCommand[PATH_LENGTH] = { };
};
DebugState& state( )
{
    static auto* const debugState = new DebugState;
    return *debugState;
}
std::atomic<bool> crashing_ = false;
std::atomic<GThreadID> crashingThread_ = 0;
std::atomic<size_t> crashStep_ = 0;
std::atomic<bool> systemTerminating_ = false;

// "%02d%02d%02d_%02d%02d%02d" of the time in UTC. By arithmetic: the C library's conversions may take a lock.
void formatTime( uint64_t time, char ( &text )[16] )
{
    uint64_t seconds = time / SECOND;
    auto days = static_cast<int64_t>( seconds / 86400 );
    seconds %= 86400;
    // Days since 0000-03-01, in years that begin with March.
    days += 584694;
    const int64_t era = days / 146097;
    const int64_t dayOfEra = days % 146097;
    const int64_t yearOfEra = ( dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096 ) / 365;
    const int64_t dayOfYear = dayOfEra - ( 365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100 );
    const int64_t marchMonth = ( 5 * dayOfYear + 2 ) / 153;
    const int64_t month = marchMonth < 10 ? marchMonth + 3 : marchMonth - 9;
    const int64_t year = yearOfEra + era * 400 + ( month <= 2 ? 1 : 0 );
    const int64_t fields[] = { year % 100,
                               month,
                               dayOfYear - ( 153 * marchMonth + 2 ) / 5 + 1,
                               static_cast<int64_t>( seconds / 3600 ),
                               static_cast<int64_t>( seconds / 60 % 60 ),
                               static_cast<int64_t>( seconds % 60 ) };
    char* out = text;
    for( int i = 0; i < 6; ++i )
    {
        if( i == 3 ) *out++ = '_';
        *out++ = static_cast<char>( '0' + fields[i] / 10 );
        *out++ = static_cast<char>( '0' + fields[i] % 10 );
    }
    *out = '\0';
}
GString composeTime( uint64_t time )
{
    char text[16];
    formatTime( time, text );
    return text;
}

void echo( std::string_view message )
{
    if( state( ).echo ) GLogFileEcho( message.data( ), message.size( ) );
}

// The log writer: the caller's thread composes, one write a line.
void writeLog( const GWString& line )
{
    const GString message = GWideToUTF8( line );
    if( GLogFileIsOpen( ) )
    {
        const GString timed = composeTime( GTimeGetTime( ) ) + ": " + message;
        GLogFileWrite( timed.data( ), timed.size( ) );
    }
    echo( message );
}

// The same while the heap can't be trusted.
void writeRaw( const char* message )
{
    char text[LINE_LENGTH];
    char time[16];
    formatTime( GTimeGetTime( ), time );
    const int length = snprintf( text, sizeof( text ), "%s: %s", time, message );
    GLogFileWrite( text, std::min( static_cast<size_t>( std::max( length, 0 ) ), sizeof( text ) - 1 ) );
    echo( message );
}
// By the installed writer when it is not ours, as in tests.
void writeFailure( const char* message )
{
    if( GPortableGetHooks( ).log == writeLog )
        writeRaw( message );
    else
        GLog( GConcat( message ) );
}

// A name for the closed log that no other file has: closing twice within a second must not lose one.
GString closedPath( const GString& base, bool clean )
{
    const char* const suffix = clean ? "_clean.log" : "_dirty.log";
    uint64_t time = GTimeGetTime( );
    GString path = base + "_" + composeTime( time ) + suffix;
    for( int i = 0; i < 60 && GFileExists( GUTF8ToWide( path ) ); ++i )
    {
        time += SECOND;
        path = base + "_" + composeTime( time ) + suffix;
    }
    return path;
}

// A log that was left behind ends with the marker, which is its last line, when it was closed in order.
bool endsClean( const GString& path )
{
    std::ifstream file( path, std::ios::binary | std::ios::ate );
    const std::streamoff size = file.tellg( );
    const auto wanted = static_cast<std::streamoff>( CLEAN_MARKER.size( ) ) + 1;
    if( size < wanted - 1 ) return false;
    const std::streamoff length = std::min( size, wanted );
    GString tail( static_cast<size_t>( length ), '\0' );
    file.seekg( size - length );
    file.read( tail.data( ), length );
    if( tail.ends_with( '\n' ) ) tail.pop_back( );
    return file && tail.ends_with( CLEAN_MARKER );
}

bool moveOldLog( const GString& live )
{
    if( !GFileExists( GUTF8ToWide( live ) ) ) return true;
    const GString closed = closedPath( state( ).base, endsClean( live ) );
    if( GLogFileMoveAside( live, closed ) ) return true;
    echo( "GLogOpen: ERROR Cannot open rename '" + live + "' to '" + closed +
          "' and thus can't open logfile, ignoring.\n" );
    return false;
}
} // namespace

void GDebugOpen( const GString& restartPath, const GString& restartArgs )
{
    GCALL( function ); // Makes the tables of the call stacks, which a crash may not.
    state( ).restartPath = restartPath;
    GDebugSetRestartArgs( restartArgs );
    GInitializeNonPortable( GDebugAbort );
    GPortableGetHooks( ).log = writeLog;
    GPortableGetHooks( ).crash = []( ) { GDebugAbort( ); };
}

bool GDebugSetRestartArgs( const GString& restartArgs )
{
    DebugState& debug = state( );
    const size_t length = debug.restartPath.size( ) + 1 + restartArgs.size( );
    if( length >= sizeof( debug.restartCommand ) || !GCrashPrepareRestart( debug.restartPath, restartArgs ) )
        return false;
    debug.restartArgs = restartArgs;
    snprintf( debug.restartCommand, sizeof( debug.restartCommand ), "%s %s", debug.restartPath.c_str( ),
              restartArgs.c_str( ) );
    return true;
}

bool GLogOpen( const GWString& base, bool doEcho )
{
    DebugState& debug = state( );
    debug.echo = doEcho;
    debug.base = GWideToUTF8( base );
    const GString live = debug.base + ".log";
    if( !moveOldLog( live ) ) return false;
    if( !GLogFileOpen( live ) )
    {
        echo( "GLogOpen: ERROR Cannot open log file '" + live + "', ignoring.\n" );
        return false;
    }
    snprintf( debug.livePath, sizeof( debug.livePath ), "%s", live.c_str( ) );
    writeLog( u"--------------- Opening Logfile -------------\n" );
    return true;
}

GWString GLogClose( bool clean )
{
    if( !GLogFileIsOpen( ) ) return { };
    GLogFileSeal( );
    writeLog( clean ? u"---- Closed, Clean shutdown ----\n" : u"---- Closed, ERROR Dirty shutdown ----\n" );
    const GString closed = closedPath( state( ).base, clean );
    GLogFileClose( state( ).livePath, closed.c_str( ) );
    return GUTF8ToWide( closed );
}

namespace
{
// GLogClose( false ) without the heap.
void closeLogRaw( )
{
    if( !GLogFileIsOpen( ) ) return;
    GLogFileSeal( );
    writeRaw( "---- Closed, ERROR Dirty shutdown ----\n" );
    const char* const live = state( ).livePath;
    const int baseLength = static_cast<int>( strlen( live ) - strlen( ".log" ) );
    char closed[PATH_LENGTH + 32];
    for( uint64_t now = GTimeGetTime( ), end = now + 60 * SECOND; now < end; now += SECOND )
    {
        char time[16];
        formatTime( now, time );
        snprintf( closed, sizeof( closed ), "%.*s_%s_dirty.log", baseLength, live, time );
        if( !GLogFileExists( closed ) ) break;
    }
    GLogFileClose( live, closed );
}

// How many bytes of a line fit a log line, without a character cut in two.
size_t fitLine( const char* text, size_t length )
{
    constexpr size_t MOST = 512;
    if( length <= MOST ) return length;
    length = MOST;
    while( length > MOST - 4 && ( text[length] & 0xC0 ) == 0x80 ) --length;
    return length;
}
// The comment may hold any number of lines, of any length.
void writeComment( const char* comment )
{
    writeFailure( "-------- User Comment -------\n" );
    for( const char* next = comment; *next; )
    {
        char line[520];
        const size_t whole = strcspn( next, "\r\n" );
        const size_t length = fitLine( next, whole );
        snprintf( line, sizeof( line ), "%.*s\n", static_cast<int>( length ), next );
        writeFailure( line );
        next += length;
        if( length < whole ) continue;
        if( *next == '\r' ) ++next;
        if( *next == '\n' ) ++next;
    }
    writeFailure( "------------------------------\n" );
}
} // namespace

bool GDebugCaptureCrashInfo( )
{
    static GCrashAnswer answer;
    const bool restart = GCrashAsk( answer ) && answer.restart;
    if( answer.commented )
        writeComment( answer.comment );
    else
        writeFailure( "-- No User Comment Supplied --\n" );
    return restart;
}

// ---- The crash handler. A failure of the handler itself, as over a broken heap, enters it anew and goes on behind the step that
// failed: a call stack that can't be read does not keep the dialog away.
namespace
{
bool restartAgreed_ = false;

void tellFailure( )
{
    GSetShuttingDown( true );
    writeFailure( "---- ERROR: UNCLEAN SHUTDOWN ----\n" );
}
void dumpFailure( )
{
    GCallDumpTo( crashingThread_, writeFailure );
}
void askUser( )
{
    restartAgreed_ = GDebugCaptureCrashInfo( ) && GCrashCanRestart( );
}
void closeFailed( )
{
    char text[LINE_LENGTH] = "-- Auto-restart declined. --\n";
    if( restartAgreed_ )
        snprintf( text, sizeof( text ), "-- Trying to auto-restart '%s' --\n", state( ).restartCommand );
    writeFailure( text );
    closeLogRaw( );
}
void restartFailed( )
{
    if( restartAgreed_ ) GCrashRestart( );
}
constexpr void ( *CRASH_STEPS[] )( ) = { tellFailure, dumpFailure, askUser, closeFailed, restartFailed };
} // namespace

void GDebugAbort( )
{
    const GThreadID thread = GThreadGetCurrent( );
    if( crashing_.exchange( true ) && crashingThread_ != thread )
    {
        GCrashSleep( SECOND_CRASH_WAIT );
        GCrashExit( -1 );
    }
    crashingThread_ = thread;
    for( size_t step = crashStep_++; step < std::size( CRASH_STEPS ); step = crashStep_++ ) CRASH_STEPS[step]( );
    GCrashExit( -1 );
}

double GDebugGetPerformance( std::vector<std::pair<double, GWString>>& threads )
{
    static std::map<GThreadID, uint64_t> lastTimes;
    static uint64_t lastTime = 0;
    static uint64_t lastProcess = 0;
    const uint64_t now = GTimeGetTime( );
    const uint64_t process = GThreadGetProcessTime( );
    const uint64_t elapsed = lastTime && now > lastTime ? now - lastTime : 0;
    const auto percentOf = [&]( uint64_t used, uint64_t before )
    {
        return elapsed && used > before ? 100.0 * static_cast<double>( used - before ) / static_cast<double>( elapsed )
                                        : 0.0;
    };
    threads.clear( );
    std::map<GThreadID, uint64_t> times;
    for( const GThreadTime& thread : GThreadListTimes( ) )
    {
        times[thread.thread] = thread.cpuTime;
        threads.emplace_back( percentOf( thread.cpuTime, lastTimes[thread.thread] ), thread.name );
    }
    const double total = percentOf( process, lastProcess );
    lastTimes = std::move( times );
    lastTime = now;
    lastProcess = process;
    return total;
}

namespace
{
const char* signalName( int signal )
{
    switch( signal )
    {
    case SIGABRT: return "SIGABRT";
    case SIGSEGV: return "SIGSEGV";
    case SIGINT: return "SIGINT";
    case SIGILL: return "SIGILL";
    case SIGFPE: return "SIGFPE";
    case GCRASH_TERMINATE: return "(terminate)";
    default: return "(unknown)";
    }
}
} // namespace

void _GPNameException( unsigned code )
{
    char text[120];
    snprintf( text, sizeof( text ), "ERROR Uncaught '%s' exception.\n", GCrashGetCodeName( code ) );
    writeFailure( text );
}

void _GPOnSignal( int signal )
{
    if( signal == SIGTERM )
    {
        systemTerminating_ = true;
        writeFailure( "WARNING System signalled SIGTERM\n" );
        return;
    }
    char text[80];
    snprintf( text, sizeof( text ), "ERROR Signal '%s' caught, aborting.\n", signalName( signal ) );
    writeFailure( text );
    if( GCrashGetHandler( ) )
        GCrashGetHandler( )( );
    else
    {
        writeFailure( "ERROR Abort handler not yet set, exiting.\n" );
        GCrashExit( -1 );
    }
}
bool GIsSystemTerminating( )
{
    return systemTerminating_;
}
