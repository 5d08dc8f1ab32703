#include "base/GCallStack.h"

#include "base/GPortable.h"
#include "platform/GCrash.h"
#include "platform/GThread.h"
#include "platform/GTime.h"

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
    GLog( GConcat( tracePrefix( depth ), u"ENTERING ", frame.function, u" (", frame.file, u": ", frame.line, u")\n" ) );
}
void traceLeave( const GCallFrame& frame, int depth )
{
    const uint64_t elapsed = ( GTimeGetTime( ) - frame.enterTime ) / 1000;
    GLog( GConcat( tracePrefix( depth ), u"LEAVING ", frame.function, u" (", frame.file, u": ", frame.line, u"), ",
                   elapsed, u"ms\n" ) );
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
    const GCallFrame frame = { file, function, line, comment, GTimeGetTime( ) };
    stack.lock.lock( );
    const int depth = stack.depth++;
    const bool trace = stack.trace;
    stack.frames.resize( static_cast<size_t>( depth ) );
    stack.frames.push_back( frame );
    stack.lock.unlock( );
    if( trace ) traceEnter( frame, depth );
}

void GCallLeave( )
{
    GCallStack* const callStack = callStack_;
    GASSERT( callStack );
    if( !callStack ) return;
    callStack->lock.lock( );
    const int depth = callStack->depth > 0 ? --callStack->depth : 0;
    const bool trace = callStack->trace && static_cast<size_t>( depth ) < callStack->frames.size( );
    const GCallFrame frame = trace ? callStack->frames[static_cast<size_t>( depth )] : GCallFrame( );
    callStack->lock.unlock( );
    if( trace ) traceLeave( frame, depth );
}

void GCallSetTrace( bool trace )
{
    GCallStack& stack = callStack_ ? *callStack_ : openCallStack( );
    const std::scoped_lock lock( stack.lock );
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
    for( int i = static_cast<int>( stack.frames.size( ) ) - 1; i >= 0; --i )
    {
        const GCallFrame& frame = stack.frames[static_cast<size_t>( i )];
        snprintf( text, sizeof( text ), "%s(%d): %c[%s] (%s)\n", frame.file, frame.line, i < stack.depth ? ' ' : '*',
                  frame.function, frame.comment );
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
