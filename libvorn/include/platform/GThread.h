// Threads, recursive mutexes and auto-reset events. A thread id is never 0; handles are closed by whoever opened them.
// Each mutex operation aborts on an empty handle. GThreadSleep rounds down to milliseconds and follows a replaced clock in tests.
#pragma once

#include "base/GTypes.h"

using GThreadID = uint64_t;
using GThreadFunction = int ( * )( void* argument );

// Starts a thread that runs `function` behind a guard for language exceptions, on an alternate signal stack.
GThreadID GThreadOpen( const GWString& name, GThreadFunction function, void* argument );
// Waits for the thread without limit and forgets it.
void GThreadClose( GThreadID thread );
GThreadID GThreadGetCurrent( );
// Enters the calling thread into the thread table under a name, for the CPU figures; ends with the thread.
void GThreadRegister( const GWString& name );
void GThreadSleep( int64_t duration ); // Microseconds; asserts "duration >= 0".
void GThreadSetPriority( int priority );
using GThreadSleepFunction = void ( * )( int64_t duration );
void GThreadSetSleep( GThreadSleepFunction sleep ); // Tests; null restores.
struct GThreadTime
{
    GThreadID thread;
    GWString name;
    uint64_t cpuTime; // Microseconds of CPU used so far.
};
std::vector<GThreadTime> GThreadListTimes( );
uint64_t GThreadGetProcessTime( ); // Microseconds of CPU that the whole process has used.

struct GMutexRecord;
using GMutex = GMutexRecord*;
GMutex GMutexOpen( );
void GMutexLock( GMutex mutex );
void GMutexUnlock( GMutex mutex );
void GMutexClose( GMutex mutex );

// Holds a mutex for a scope.
class GMutexScope
{
public:
    explicit GMutexScope( GMutex mutex ) : _mutex( mutex ) { GMutexLock( _mutex ); }
    ~GMutexScope( ) { GMutexUnlock( _mutex ); }
    GMutexScope( const GMutexScope& ) = delete;
    GMutexScope& operator=( const GMutexScope& ) = delete;

private:
    GMutex _mutex;
};

// Auto-reset event: a wait that succeeds clears it.
struct GEventRecord;
using GEvent = GEventRecord*;
GEvent GEventOpen( );
bool GEventSet( GEvent event );
bool GEventWait( GEvent event, int64_t timeout );                   // Microseconds; true when it was set.
bool GEventWaitAny( GEvent first, GEvent second, int64_t timeout ); // Clears only the one that it saw.
void GEventClose( GEvent event );
