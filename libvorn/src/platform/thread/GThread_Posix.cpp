#include "platform/GThread.h"

#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GCrash.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>

namespace
{
struct ThreadRecord
{
    GWString name;
    GThreadFunction function = nullptr;
    void* argument = nullptr;
    pthread_t handle = { };
    bool opened = false; // By GThreadOpen, hence closed by GThreadClose.
    bool ended = false;
    uint64_t cpuTime = 0; // Once it has ended.
};
using ThreadMap = std::map<GThreadID, std::shared_ptr<ThreadRecord>>;

std::atomic<GThreadID> lastThread_ = 0;
std::atomic<GThreadSleepFunction> sleep_ = nullptr;
thread_local GThreadID current_ = 0;

// Both live as long as the process: threads may end after the last static object is gone.
std::mutex& tableMutex( )
{
    static auto* const mutex = new std::mutex;
    return *mutex;
}
ThreadMap& threadMap( )
{
    static auto* const map = new ThreadMap;
    return *map;
}

uint64_t cpuTimeOf( pthread_t handle )
{
    clockid_t clock;
    timespec time = { };
    if( pthread_getcpuclockid( handle, &clock ) || clock_gettime( clock, &time ) ) return 0;
    return static_cast<uint64_t>( time.tv_sec ) * 1000000 + static_cast<uint64_t>( time.tv_nsec ) / 1000;
}

void onUncaught( const char* what )
{
    GLOG( u"ERROR Uncaught 'exception' exception in thread, aborting. (", what, u")" );
    if( GPortableGetHooks( ).crash )
        GAbort( );
    else
    {
        GLOG( u"ERROR Abort handler not yet set, exiting." );
        GCrashExit( -1 );
    }
}

void markEnded( GThreadID thread )
{
    const std::scoped_lock lock( tableMutex( ) );
    const auto found = threadMap( ).find( thread );
    if( found == threadMap( ).end( ) ) return;
    found->second->cpuTime = cpuTimeOf( pthread_self( ) );
    found->second->ended = true;
    if( !found->second->opened ) threadMap( ).erase( found );
}

void* _GThreadFunc_Inner( void* data )
{
    current_ = reinterpret_cast<GThreadID>( data );
    GCrashOpenThread( );
    std::shared_ptr<ThreadRecord> record;
    {
        const std::scoped_lock lock( tableMutex( ) );
        record = threadMap( )[current_];
    }
    pthread_setname_np( pthread_self( ), GWideToUTF8( record->name ).substr( 0, 15 ).c_str( ) );
    try
    {
        record->function( record->argument );
    }
    catch( const std::exception& exception )
    {
        onUncaught( exception.what( ) );
    }
    catch( ... )
    {
        onUncaught( "unknown" );
    }
    markEnded( current_ );
    GCrashCloseThread( );
    return nullptr;
}

// Takes a thread that was only registered off the table when it ends.
struct RegisteredThread
{
    ~RegisteredThread( ) { markEnded( current_ ); }
};
} // namespace

GThreadID GThreadOpen( const GWString& name, GThreadFunction function, void* argument )
{
    const auto record = std::make_shared<ThreadRecord>( );
    record->name = name;
    record->function = function;
    record->argument = argument;
    record->opened = true;
    const GThreadID thread = ++lastThread_;
    const std::scoped_lock lock( tableMutex( ) );
    threadMap( )[thread] = record;
    if( !pthread_create( &record->handle, nullptr, _GThreadFunc_Inner, reinterpret_cast<void*>( thread ) ) )
        return thread;
    threadMap( ).erase( thread );
    return 0;
}

void GThreadClose( GThreadID threadID )
{
    std::shared_ptr<ThreadRecord> record;
    {
        const std::scoped_lock lock( tableMutex( ) );
        ThreadMap& GThread_threadIDThreadMap = threadMap( );
        if( !GVERIFY( GMAPCONTAINS( GThread_threadIDThreadMap, threadID ) ) ) return;
        record = GThread_threadIDThreadMap[threadID];
    }
    GVERIFY( !pthread_join( record->handle, nullptr ) );
    const std::scoped_lock lock( tableMutex( ) );
    threadMap( ).erase( threadID );
}

GThreadID GThreadGetCurrent( )
{
    if( !current_ ) current_ = ++lastThread_;
    return current_;
}

void GThreadRegister( const GWString& name )
{
    const GThreadID thread = GThreadGetCurrent( );
    static thread_local RegisteredThread registered;
    static_cast<void>( registered );
    const std::scoped_lock lock( tableMutex( ) );
    std::shared_ptr<ThreadRecord>& record = threadMap( )[thread];
    // A thread that was opened has its handle already, and whoever closes it reads that without the lock.
    if( !record )
    {
        record = std::make_shared<ThreadRecord>( );
        record->handle = pthread_self( );
    }
    record->name = name;
}

void GThreadSleep( int64_t duration )
{
    GPRECONDITION( duration >= 0 );
    if( const GThreadSleepFunction sleep = sleep_.load( std::memory_order_relaxed ) ) return sleep( duration );
    const int64_t milliseconds = duration / 1000;
    if( milliseconds <= 0 )
    {
        sched_yield( );
        return;
    }
    timespec left = { static_cast<time_t>( milliseconds / 1000 ), static_cast<long>( milliseconds % 1000 * 1000000 ) };
    while( clock_nanosleep( CLOCK_MONOTONIC, 0, &left, &left ) == EINTR )
    {
    }
}
void GThreadSetSleep( GThreadSleepFunction sleep )
{
    sleep_.store( sleep, std::memory_order_relaxed );
}

void GThreadSetPriority( int priority )
{
    // Priorities rise upwards, nice values fall; the scale between them is five steps.
    errno = 0;
    const bool isSet = !setpriority( PRIO_PROCESS, 0, -5 * priority ) && !errno;
    if( !isSet ) GLOG( u"WARNING Cannot set thread priority, ignoring." );
}

std::vector<GThreadTime> GThreadListTimes( )
{
    std::vector<GThreadTime> times;
    const std::scoped_lock lock( tableMutex( ) );
    for( const auto& [thread, record] : threadMap( ) )
        times.push_back( { thread, record->name, record->ended ? record->cpuTime : cpuTimeOf( record->handle ) } );
    return times;
}
uint64_t GThreadGetProcessTime( )
{
    timespec time = { };
    clock_gettime( CLOCK_PROCESS_CPUTIME_ID, &time );
    return static_cast<uint64_t>( time.tv_sec ) * 1000000 + static_cast<uint64_t>( time.tv_nsec ) / 1000;
}
