#include "base/GCallStack.h"

#include "base/GPortable.h"
#include "platform/GCrash.h"
#include "platform/GThread.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

namespace
{
constexpr int DUMP_TRIES = 100;
constexpr int64_t DUMP_PAUSE = 1000;

using CallStackMap = std::map<uint64_t, std::unique_ptr<GCallStack>>;

// Both live as long as the process: threads may end after the last static object is gone.
std::mutex& mapMutex( )
{
    static auto* const mutex = new std::mutex;
    return *mutex;
}
CallStackMap& callStackMap( )
{
    static auto* const map = new CallStackMap;
    return *map;
}

thread_local GCallStack* callStack_ = nullptr;

// Runs the destructor at the end of every thread, also of those that a library has started.
struct ThreadEnd
{
    ~ThreadEnd( )
    {
        if( callStack_ ) _GCallDestructor( GThreadGetCurrent( ) );
    }
};

GCallStack& openCallStack( )
{
    static thread_local ThreadEnd threadEnd;
    static_cast<void>( threadEnd );
    const uint64_t threadId = GThreadGetCurrent( );
    const std::scoped_lock lock( mapMutex( ) );
    std::unique_ptr<GCallStack>& entry = callStackMap( )[threadId];
    entry = std::make_unique<GCallStack>( );
    callStack_ = entry.get( );
    return *callStack_;
}

GWString tracePrefix( int depth )
{
    return GConcat( u"TRACE(", GThreadGetCurrent( ), u") ", GWString( static_cast<size_t>( depth ) * 2, u' ' ) );
}
void traceEnter( const GCallFrame& frame, int depth )
{
    GLog( GConcat( tracePrefix( depth ), u"ENTERING ", frame.function.load( ), u" (", frame.file.load( ), u": ",
                   frame.line.load( ), u")\n" ) );
}
void traceLeave( const GCallFrame& frame, int depth )
{
    const uint64_t elapsed = ( GTimeGetTime( ) - frame.enterTime.load( ) ) / 1000;
    GLog( GConcat( tracePrefix( depth ), u"LEAVING ", frame.function.load( ), u" (", frame.file.load( ), u": ",
                   frame.line.load( ), u"), ", elapsed, u"ms\n" ) );
}

void copyFrame( const GCallFrame& from, GCallFrame& to )
{
    to.file.store( from.file.load( std::memory_order_relaxed ), std::memory_order_relaxed );
    to.function.store( from.function.load( std::memory_order_relaxed ), std::memory_order_relaxed );
    to.line.store( from.line.load( std::memory_order_relaxed ), std::memory_order_relaxed );
    to.comment.store( from.comment.load( std::memory_order_relaxed ), std::memory_order_relaxed );
    to.enterTime.store( from.enterTime.load( std::memory_order_relaxed ), std::memory_order_relaxed );
}
// Twice the room. A dump that has given up waiting may still read the old array, so that it stays.
void growStack( GCallStack& stack )
{
    constexpr int FIRST_ROOM = 128;
    const int room = stack.room ? stack.room * 2 : FIRST_ROOM;
    auto frames = std::make_unique<GCallFrame[]>( static_cast<size_t>( room ) );
    const GCallFrame* const old = stack.frames.load( std::memory_order_relaxed );
    for( int i = 0; i < stack.room; ++i ) copyFrame( old[i], frames[static_cast<size_t>( i )] );
    const std::scoped_lock lock( stack.lock );
    stack.frames.store( frames.get( ), std::memory_order_release );
    stack.arrays.push_back( std::move( frames ) );
    stack.room = room;
}

// A thread that failed may hold a lock that its own dump wants: give up after a while and read without it.
class PatientLock
{
public:
    explicit PatientLock( std::mutex& mutex ) : _mutex( mutex )
    {
        for( int i = 0; i < DUMP_TRIES && !_owns; ++i )
        {
            _owns = _mutex.try_lock( );
            if( !_owns ) GCrashSleep( DUMP_PAUSE );
        }
    }
    ~PatientLock( )
    {
        if( _owns ) _mutex.unlock( );
    }
    PatientLock( const PatientLock& ) = delete;
    PatientLock& operator=( const PatientLock& ) = delete;

private:
    std::mutex& _mutex;
    bool _owns = false;
};
} // namespace

void GCallEnter( const char* file, const char* function, int line, const char* comment )
{
    GCallStack& stack = callStack_ ? *callStack_ : openCallStack( );
    const int depth = stack.depth.load( std::memory_order_relaxed );
    if( depth >= stack.room ) growStack( stack );
    GCallFrame& frame = stack.frames.load( std::memory_order_relaxed )[depth];
    frame.file.store( file, std::memory_order_relaxed );
    frame.function.store( function, std::memory_order_relaxed );
    frame.line.store( line, std::memory_order_relaxed );
    frame.comment.store( comment, std::memory_order_relaxed );
    // The clock costs more than all the rest, and only a trace tells how long a call took.
    const bool trace = stack.trace.load( std::memory_order_relaxed );
    if( trace ) frame.enterTime.store( GTimeGetTime( ), std::memory_order_relaxed );
    stack.used.store( depth + 1, std::memory_order_release );
    stack.depth.store( depth + 1, std::memory_order_release );
    if( trace ) traceEnter( frame, depth );
}

void GCallLeave( )
{
    GCallStack* const callStack = callStack_;
    GASSERT( callStack );
    if( !callStack ) return;
    const int depth = std::max( callStack->depth.load( std::memory_order_relaxed ) - 1, 0 );
    callStack->depth.store( depth, std::memory_order_release );
    if( callStack->trace.load( std::memory_order_relaxed ) &&
        depth < callStack->used.load( std::memory_order_relaxed ) )
        traceLeave( callStack->frames.load( std::memory_order_relaxed )[depth], depth );
}

void GCallSetTrace( bool trace )
{
    GCallStack& stack = callStack_ ? *callStack_ : openCallStack( );
    const std::scoped_lock lock( stack.lock );
    // Calls that have been entered already are timed from here.
    const uint64_t now = GTimeGetTime( );
    if( trace && !stack.trace )
        for( int i = 0; i < stack.depth; ++i ) stack.frames.load( )[i].enterTime = now;
    stack.trace = trace;
}

void GCallDumpTo( uint64_t threadId, void ( *write )( const char* line ) )
{
    const PatientLock mapLock( mapMutex( ) );
    const auto found = callStackMap( ).find( threadId );
    if( found == callStackMap( ).end( ) ) return;
    GCallStack& stack = *found->second;
    const PatientLock stackLock( stack.lock );
    char text[512];
    snprintf( text, sizeof( text ), "---- Call Stack for Thread #%llu -----\n",
              static_cast<unsigned long long>( threadId ) );
    write( text );
    // The number first: an array that is read after it has room for so many.
    const int used = stack.used.load( std::memory_order_acquire );
    const int depth = stack.depth.load( std::memory_order_acquire );
    const GCallFrame* const frames = stack.frames.load( std::memory_order_acquire );
    for( int i = used - 1; i >= 0; --i )
    {
        const GCallFrame& frame = frames[i];
        snprintf( text, sizeof( text ), "%s(%d): %c[%s] (%s)\n", frame.file.load( std::memory_order_relaxed ),
                  frame.line.load( std::memory_order_relaxed ), i < depth ? ' ' : '*',
                  frame.function.load( std::memory_order_relaxed ), frame.comment.load( std::memory_order_relaxed ) );
        write( text );
    }
}

void GCallDump( uint64_t threadId )
{
    GCallDumpTo( threadId, []( const char* line ) { GLog( GConcat( line ) ); } );
}

void _GCallDestructor( uint64_t thread )
{
    if( !thread || !callStack_ )
    {
        GLOG( u"WARNING Invalid thread key on close, ignoring." );
        return;
    }
    GVALIDPTR( callStack_ );
    std::unique_ptr<GCallStack> stack;
    {
        const std::scoped_lock lock( mapMutex( ) );
        CallStackMap& GDebug_threadIDCallStackMap = callStackMap( );
        if( !GVERIFY( GMAPCONTAINS( GDebug_threadIDCallStackMap, thread ) ) ) return;
        stack = std::move( GDebug_threadIDCallStackMap[thread] );
        GDebug_threadIDCallStackMap.erase( thread );
    }
    callStack_ = nullptr;
}
