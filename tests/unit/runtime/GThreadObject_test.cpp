#include "runtime/GThreadObject.h"

#include "base/GUtil.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace
{
class Worker : public GThreadObject
{
public:
    ~Worker( ) override { stop( true ); }
    void _bGThreadObject_safe_onStartup( ) override { ++startups; }
    int _bGThreadObject_safe_onLoop( ) override
    {
        ++loops;
        return result;
    }
    void _bGThreadObject_safe_onShutdown( ) override
    {
        ++shutdowns;
        GEventSet( done );
    }
    void setWaker( GEvent event ) { _setWaker( event ); }
    std::atomic<int> startups = 0;
    std::atomic<int> loops = 0;
    std::atomic<int> shutdowns = 0;
    std::atomic<int> result = 0;
    GEvent done = nullptr;
};

class Sleeper : public GThreadObject
{
public:
    void sleep( int milliseconds ) { _sleep( milliseconds ); }
};

constexpr int64_t DEADLINE = 10000000;

class GThreadObjectTest : public testing::Test
{
protected:
    GThreadObjectTest( ) : worker( GSAFENEW( Worker, ( ) ) ), done( GEventOpen( ) ) { worker->done = done; }
    ~GThreadObjectTest( ) override
    {
        worker.reset( );
        GEventClose( done );
    }
    std::unique_ptr<Worker> worker;
    GEvent done;
};
} // namespace

TEST_F( GThreadObjectTest, NegativeFirstRoundEndsTheThreadWithoutStop )
{
    worker->result = -1;
    worker->start( u"worker" );
    EXPECT_TRUE( GEventWait( done, DEADLINE ) );
    worker->join( );
    EXPECT_EQ( worker->startups, 1 );
    EXPECT_EQ( worker->loops, 1 );
    EXPECT_EQ( worker->shutdowns, 1 );
}
TEST_F( GThreadObjectTest, StopThenJoinEqualsStopWithJoin )
{
    GLogSetFilter( "t" );
    worker->start( u"worker" );
    EXPECT_NE( worker->getThread( ), 0u );
    EXPECT_EQ( worker->getThreadName( ), u"worker" );
    worker->stop( false );
    worker->join( );
    EXPECT_EQ( worker->getThread( ), 0u );
    EXPECT_EQ( worker->shutdowns, 1 );
    worker->start( u"again" );
    worker->stop( true );
    EXPECT_EQ( worker->getThread( ), 0u );
    EXPECT_EQ( worker->shutdowns, 2 );
    GLogSetFilter( "" );
    for( const char* text :
         { "Starting thread 'worker'", "'worker' startup (", "'worker' beginning loop", "'worker' shutting down",
           "'worker' shutdown", "Stopping thread 'worker'", "Joining thread 'worker'", "Starting thread 'again'" } )
        EXPECT_TRUE( TestLog::contains( text ) ) << text;
}
TEST_F( GThreadObjectTest, LockIsFreeBetweenRounds )
{
    worker->start( u"worker" );
    for( int i = 0; i < 10; ++i )
    {
        const GObjectLock lock( *worker );
        const int loops = worker->loops;
        EXPECT_EQ( worker->loops, loops );
    }
    worker->stop( true );
}
TEST_F( GThreadObjectTest, ShuttingDownStopsTheLoop )
{
    GSetShuttingDown( true );
    worker->start( u"worker" );
    EXPECT_TRUE( GEventWait( done, DEADLINE ) );
    worker->join( );
    GSetShuttingDown( false );
    EXPECT_EQ( worker->loops, 0 );
    EXPECT_EQ( worker->shutdowns, 1 );
}
TEST_F( GThreadObjectTest, StandsInTheThreadTableWhileItRuns )
{
    worker->start( u"table worker" );
    const auto isListed = []( )
    {
        for( const GThreadTime& thread : GThreadListTimes( ) )
            if( thread.name == u"table worker" ) return true;
        return false;
    };
    EXPECT_TRUE( isListed( ) );
    worker->stop( true );
    EXPECT_FALSE( isListed( ) );
}
TEST_F( GThreadObjectTest, SecondStartWarnsAndRunsASecondThread )
{
    TestLog::expect( "WARNING: Assertion failed. (!_thread)" );
    worker->start( u"worker" );
    const GThreadID first = worker->getThread( );
    worker->start( u"worker" );
    EXPECT_NE( worker->getThread( ), first );
    worker->stop( true );
    GThreadClose( first );
    EXPECT_EQ( worker->shutdowns, 2 );
}
TEST( GThreadObjectDeathTest, SleepingANegativeTimeAborts )
{
    EXPECT_DEATH( Sleeper( ).sleep( -1 ), "ERROR: Assertion failed, aborting. \\(ms >= 0\\)" );
}
TEST( GThreadObject, ObjectThatGoesWithItsThreadWarns )
{
    TestLog::expect( "WARNING: Assertion failed. (!_thread)" );
    const std::unique_ptr<GThreadObject> object( GSAFENEW( GThreadObject, ( ) ) );
    object->start( u"left" );
    // The thread has ended, and the object does not know.
    GThreadClose( object->getThread( ) );
}
TEST( GThreadObject, JoinWithoutAThreadDoesNothing )
{
    const std::unique_ptr<GThreadObject> object( GSAFENEW( GThreadObject, ( ) ) );
    object->join( );
    object->stop( true );
}
TEST( GHeapObject, UntrackedObjectWritesOneWarningLine )
{
    TestLog::expect( "WARNING Object not tracked on destruction.  Did you forget to use GSAFENEW or GTRACK?" );
    {
        const GThreadSafeObject object;
    }
    EXPECT_EQ( TestLog::count( "WARNING" ), 1 );
}
TEST( GHeapObject, TallyListsPlacesOfAllocation )
{
    GHeapObject::logStatus( );
    EXPECT_EQ( TestLog::lines( ), std::vector<std::string>{ "Leaked Object Tally: (none)\n" } );
    TestLog::clear( );
    std::vector<std::unique_ptr<GThreadSafeObject>> objects;
    for( int i = 0; i < 2; ++i ) objects.emplace_back( GSAFENEW( GThreadSafeObject, ( ) ) );
    objects.emplace_back( GTRACK( GThreadSafeObject, new GThreadSafeObject ) );
    GHeapObject::logStatus( );
    const std::vector<std::string> lines = TestLog::lines( );
    ASSERT_EQ( lines.size( ), 3u );
    EXPECT_EQ( lines[0], "Leaked Object Tally: 3 objects in 2 classes.\n" );
    EXPECT_EQ( lines[1].rfind( "- tests/unit/runtime/GThreadObject_test.cpp -> TestBody (", 0 ), 0u ) << lines[1];
    EXPECT_NE( lines[1].find( "): new GThreadSafeObject( ) = 2\n" ), std::string::npos ) << lines[1];
    EXPECT_NE( lines[2].find( "): new GThreadSafeObject( ) = 1\n" ), std::string::npos ) << lines[2];
    TestLog::clear( );
    TestLog::expect( "WARNING: Assertion failed. (!GMAPCONTAINS( _objectTrackerMap, this ))" );
    GTRACK( GThreadSafeObject, objects[0].get( ) );
}

TEST( GThread, EventsResetThemselves )
{
    const GEvent first = GEventOpen( );
    const GEvent second = GEventOpen( );
    EXPECT_FALSE( GEventWait( first, 0 ) );
    EXPECT_TRUE( GEventSet( first ) );
    EXPECT_TRUE( GEventSet( first ) );
    EXPECT_TRUE( GEventSet( second ) );
    EXPECT_TRUE( GEventWaitAny( first, second, 0 ) );
    EXPECT_TRUE( GEventWaitAny( first, second, 0 ) );
    EXPECT_FALSE( GEventWaitAny( first, second, 0 ) );
    GEventClose( first );
    GEventClose( second );
}
TEST( GThread, MutexIsRecursive )
{
    const GMutex mutex = GMutexOpen( );
    GMutexLock( mutex );
    GMutexLock( mutex );
    GMutexUnlock( mutex );
    GMutexUnlock( mutex );
    GMutexClose( mutex );
}
TEST( GThread, CloseOfAnUnknownThreadWarns )
{
    TestLog::expect( "WARNING: Assertion failed. (GMAPCONTAINS( GThread_threadIDThreadMap, threadID ))" );
    GThreadClose( 0xFFFFFFFF );
}
TEST( GThread, PriorityThatIsNotGrantedWarns )
{
    TestLog::expect( "WARNING Cannot set thread priority, ignoring." );
    // Of one thread alone, and whoever runs the tests.
    std::thread(
        []( )
        {
            syscall( SYS_setresuid, -1, 65534, -1 );
            GThreadSetPriority( 2 );
        } )
        .join( );
}
TEST( GThread, LowerPriorityIsGrantedToTheThreadAlone )
{
    const int before = getpriority( PRIO_PROCESS, 0 );
    std::thread(
        []( )
        {
            GThreadSetPriority( -4 );
            EXPECT_EQ( getpriority( PRIO_PROCESS, 0 ), 19 );
        } )
        .join( );
    EXPECT_EQ( getpriority( PRIO_PROCESS, 0 ), before );
}
TEST( GThreadDeathTest, EmptyMutexAborts )
{
    EXPECT_DEATH( GMutexLock( nullptr ), "ERROR: Assertion failed, aborting." );
    EXPECT_DEATH( GMutexUnlock( nullptr ), "ERROR: Assertion failed, aborting." );
    EXPECT_DEATH( GMutexClose( nullptr ), "ERROR: Assertion failed, aborting." );
    EXPECT_DEATH( GThreadSleep( -1 ), "duration >= 0" );
}
TEST( GThreadDeathTest, EscapedExceptionRunsTheCrashHandler )
{
    const auto fail = []( void* ) -> int { throw std::runtime_error( "broken" ); };
    EXPECT_DEATH( GThreadClose( GThreadOpen( u"failing", fail, nullptr ) ),
                  "ERROR Uncaught 'exception' exception in thread, aborting. \\(broken\\)" );
}

TEST_F( GThreadObjectTest, ASleepEndsWithItsWakerAndWithStop )
{
    using Clock = std::chrono::steady_clock;
    const GEvent waker = GEventOpen( );
    worker->result = 60000;
    worker->setWaker( waker );
    const auto begin = Clock::now( );
    worker->start( u"worker" );
    while( worker->loops < 1 ) std::this_thread::yield( );
    GEventSet( waker );
    while( worker->loops < 2 ) std::this_thread::yield( );
    worker->stop( true );
    EXPECT_LT( Clock::now( ) - begin, std::chrono::seconds( 30 ) );
    EXPECT_EQ( worker->shutdowns, 1 );
    worker.reset( );
    GEventClose( waker );
}
