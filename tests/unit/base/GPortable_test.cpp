#include "base/GPortable.h"

#include "base/GDebug.h"
#include "platform/GThread.h"
#include "support/TestClock.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace
{
void inner( )
{
    GCALL( function );
}
int outer( bool dump )
{
    GCALL( function );
    inner( );
    if( dump ) GCallDump( GThreadGetCurrent( ) );
    return __LINE__;
}
bool endsWith( const std::string& text, const std::string& end )
{
    return text.size( ) >= end.size( ) && text.compare( text.size( ) - end.size( ), end.size( ), end ) == 0;
}
} // namespace

TEST( GLogFilter, EmptyFilterAnswersFalse )
{
    GLogSetFilter( "" );
    for( int letter = 0; letter < 256; ++letter ) EXPECT_FALSE( GLogTest( static_cast<char>( letter ) ) );
}
TEST( GLogFilter, XStandsForAllLettersOfItsCase )
{
    GLogSetFilter( "x" );
    EXPECT_TRUE( GLogTest( 'a' ) );
    EXPECT_TRUE( GLogTest( 'z' ) );
    EXPECT_FALSE( GLogTest( 'A' ) );
    GLogSetFilter( "X" );
    EXPECT_TRUE( GLogTest( 'A' ) );
    EXPECT_FALSE( GLogTest( 'a' ) );
    GLogSetFilter( "pK" );
    EXPECT_TRUE( GLogTest( 'p' ) );
    EXPECT_TRUE( GLogTest( 'K' ) );
    EXPECT_FALSE( GLogTest( 'k' ) );
    GLogSetFilter( "" );
}
TEST( GLogFilter, FiftyTwoLettersAreUsedAndMoreAreCut )
{
    const GString filter = GString( 51, 'a' ) + "b";
    GLogSetFilter( filter );
    EXPECT_TRUE( GLogTest( 'b' ) );
    EXPECT_EQ( GLogGetFilter( ), filter );
    GLogSetFilter( filter + "c" );
    EXPECT_TRUE( GLogTest( 'b' ) );
    EXPECT_FALSE( GLogTest( 'c' ) );
    EXPECT_EQ( GLogGetFilter( ), filter );
    GLogSetFilter( "" );
}
TEST( GLogLine, HasFileLineFunctionAndText )
{
    GLOG( u"text ", 5, u" ", 2.5, u" ", "\xC3\xA4", u" ", 'c', u" ", true );
    const std::string line = TestLog::lines( ).back( );
    EXPECT_NE( line.find( "GPortable_test.cpp(" ), std::string::npos );
    EXPECT_TRUE( endsWith( line, "): [TestBody] text 5 2.5 \xC3\xA4 c 1\n" ) ) << line;
}
TEST( GLogLine, UntestedCategoryWritesNothing )
{
    GLogSetFilter( "k" );
    GLOGIF( 'p', u"hidden" );
    GLOGIF( 'k', u"shown" );
    EXPECT_FALSE( TestLog::contains( "hidden" ) );
    EXPECT_TRUE( TestLog::contains( "shown" ) );
    GLogSetFilter( "" );
}
TEST( GAssertions, VerifyWarnsAndGoesOn )
{
    int effect = 0;
    TestLog::expect( "WARNING: Assertion failed. (++effect == 2)" );
    EXPECT_FALSE( GVERIFY( ++effect == 2 ) );
    EXPECT_EQ( effect, 1 );
    EXPECT_TRUE( GVERIFY( ++effect == 2 ) );
}
TEST( GAssertionsDeathTest, FatalFormsSpellTheExpression )
{
    [[maybe_unused]] const int number = 1;
    EXPECT_DEATH( GPRECONDITION( number == 2 ), "ERROR: Precondition failed, aborting. \\(number == 2\\)" );
    EXPECT_DEATH( GASSERT( number == 3 ), "ERROR: Assertion failed, aborting. \\(number == 3\\)" );
}
TEST( GAssertionsDeathTest, FillPatternsAreNoPointers )
{
    const uint32_t freed[2] = { 0xFEEEFEEE, 0 };
    const uint32_t good[2] = { 1, 0 };
    const void* pointer = good;
    GVALIDPTR( pointer );
    EXPECT_FALSE( GIsValidPointer( nullptr ) );
    EXPECT_FALSE( GIsValidPointer( reinterpret_cast<const void*>( uintptr_t( 0xCDCDCDCD ) ) ) );
    EXPECT_FALSE( GIsValidPointer( freed ) );
    pointer = nullptr;
    EXPECT_DEATH( GVALIDPTR( pointer ),
                  "0xCDCDCDCD\\) && \\(\\(\\*\\(unsigned long\\*\\)\\(pointer\\)\\) != 0xFEEEFEEE\\)" );
}
TEST( GAssertions, UnsetHooksDoNothing )
{
    const GPortableHooks saved = GPortableGetHooks( );
    GPortableGetHooks( ) = { };
    GLog( u"nowhere\n" );
    GAbort( );
    GPortableGetHooks( ) = saved;
    EXPECT_FALSE( TestLog::contains( "nowhere" ) );
}

TEST( GCallStack, ReturnedCallsAreMarked )
{
    outer( true );
    const std::vector<std::string> lines = TestLog::lines( );
    ASSERT_GE( lines.size( ), 3u );
    EXPECT_EQ( lines[0].rfind( "---- Call Stack for Thread #", 0 ), 0u );
    EXPECT_TRUE( endsWith( lines[1], "): *[inner] (function)\n" ) ) << lines[1];
    EXPECT_TRUE( endsWith( lines[2], "):  [outer] (function)\n" ) ) << lines[2];
}
TEST( GCallStack, NextCallDropsReturnedFrames )
{
    outer( false );
    inner( );
    GCallDump( GThreadGetCurrent( ) );
    EXPECT_EQ( TestLog::count( "[outer]" ), 0 );
    EXPECT_EQ( TestLog::count( "*[inner]" ), 1 );
}
TEST( GCallStack, UnknownThreadLogsNothing )
{
    GCallDump( 0xFFFFFFFF );
    EXPECT_TRUE( TestLog::lines( ).empty( ) );
}
TEST( GCallStack, TraceIndentsByDepth )
{
    GCallSetTrace( true );
    outer( false );
    GCallSetTrace( false );
    const std::vector<std::string> lines = TestLog::lines( );
    ASSERT_EQ( lines.size( ), 4u );
    EXPECT_NE( lines[0].find( ") ENTERING outer (" ), std::string::npos ) << lines[0];
    EXPECT_NE( lines[1].find( ")   ENTERING inner (" ), std::string::npos ) << lines[1];
    EXPECT_NE( lines[2].find( ")   LEAVING inner (" ), std::string::npos ) << lines[2];
    EXPECT_TRUE( endsWith( lines[3], "ms\n" ) ) << lines[3];
}
TEST( GCallStack, TraceTellsPlaceAndDuration )
{
    TestClock clock;
    GCallSetTrace( true );
    GCallEnter( "file.cpp", "method", 12, "Class" );
    clock.advance( 34999 );
    GCallLeave( );
    GCallSetTrace( false );
    const std::string begin = "TRACE(" + std::to_string( GThreadGetCurrent( ) ) + ") ";
    EXPECT_EQ( TestLog::lines( ), ( std::vector<std::string>{ begin + "ENTERING method (file.cpp: 12)\n",
                                                              begin + "LEAVING method (file.cpp: 12), 34ms\n" } ) );
}
TEST( GCallStack, AnotherThreadsStackCanBeDumpedWhileItRuns )
{
    const GEvent entered = GEventOpen( );
    const GEvent dumped = GEventOpen( );
    uint64_t id = 0;
    std::thread thread(
        [&]( )
        {
            id = GThreadGetCurrent( );
            GCallEnter( "deep.cpp", "run", 1, "Service" );
            inner( );
            GEventSet( entered );
            GEventWait( dumped, 10000000 );
            GCallLeave( );
        } );
    ASSERT_TRUE( GEventWait( entered, 10000000 ) );
    GCallDump( id );
    GEventSet( dumped );
    thread.join( );
    const std::vector<std::string> lines = TestLog::lines( );
    ASSERT_EQ( lines.size( ), 3u );
    EXPECT_EQ( lines[0], "---- Call Stack for Thread #" + std::to_string( id ) + " -----\n" );
    EXPECT_TRUE( endsWith( lines[1], "): *[inner] (function)\n" ) ) << lines[1];
    EXPECT_EQ( lines[2], "deep.cpp(1):  [run] (Service)\n" );
    GEventClose( entered );
    GEventClose( dumped );
}
TEST( GCallStack, CallEnteredBeforeTheTraceIsTimedFromItsSwitch )
{
    TestClock clock;
    GCallEnter( "a.cpp", "before", 1, "function" );
    clock.advance( 7000 );
    GCallSetTrace( true );
    GCallEnter( "a.cpp", "within", 2, "function" );
    clock.advance( 12999 );
    GCallLeave( );
    GCallLeave( );
    GCallSetTrace( false );
    EXPECT_EQ( TestLog::count( "  LEAVING within (a.cpp: 2), 12ms\n" ), 1 );
    EXPECT_EQ( TestLog::count( " LEAVING before (a.cpp: 1), 12ms\n" ), 1 );
}
TEST( GCallStack, EndsWithItsThread )
{
    uint64_t id = 0;
    std::thread(
        [&]( )
        {
            id = GThreadGetCurrent( );
            inner( );
        } )
        .join( );
    GCallDump( id );
    EXPECT_TRUE( TestLog::lines( ).empty( ) );
}
TEST( GCallStack, DeepCallsKeepEveryFrame )
{
    constexpr int DEPTH = 1000;
    for( int i = 0; i < DEPTH; ++i ) GCallEnter( "deep.cpp", i % 2 ? "odd" : "even", i, "function" );
    GCallDump( GThreadGetCurrent( ) );
    for( int i = 0; i < DEPTH; ++i ) GCallLeave( );
    EXPECT_EQ( TestLog::count( "):  [odd] (function)" ), DEPTH / 2 );
    EXPECT_EQ( TestLog::count( "deep.cpp(0):  [even]" ), 1 );
    EXPECT_EQ( TestLog::count( "deep.cpp(999):  [odd]" ), 1 );
}
TEST( GCallStack, AnotherThreadMayDumpIt )
{
    std::atomic<bool> ends = false;
    std::atomic<uint64_t> id = 0;
    std::thread busy(
        [&]( )
        {
            const auto recurse = []( const auto& self, int depth ) -> void
            {
                const GCallScope scope( "busy.cpp", "recurse", depth, "function" );
                if( depth < 300 ) self( self, depth + 1 );
            };
            for( recurse( recurse, 290 ); !ends; recurse( recurse, 0 ) ) id = GThreadGetCurrent( );
        } );
    while( !id ) std::this_thread::yield( );
    while( TestLog::count( "[recurse] (function)" ) < 1000 ) GCallDump( id );
    ends = true;
    busy.join( );
    EXPECT_GT( TestLog::count( "---- Call Stack for Thread #" ), 0 );
}
TEST( GCallStack, DestructorWithoutAStackWarns )
{
    TestLog::expect( "WARNING Invalid thread key on close, ignoring." );
    _GCallDestructor( 0 );
    TestLog::clear( );
    std::thread( []( ) { _GCallDestructor( GThreadGetCurrent( ) ); } ).join( );
    EXPECT_EQ( TestLog::count( "WARNING Invalid thread key on close, ignoring." ), 1 );
}
TEST( GCallStack, DestructorForAnotherThreadChangesNothing )
{
    outer( false );
    TestLog::expect( "WARNING: Assertion failed. (GMAPCONTAINS( GDebug_threadIDCallStackMap, thread ))" );
    _GCallDestructor( 0xFFFFFFFF );
    GCallDump( GThreadGetCurrent( ) );
    EXPECT_EQ( TestLog::count( "*[outer] (function)" ), 1 );
}
TEST( GCallStackDeathTest, LeaveWithoutAStackAborts )
{
    EXPECT_DEATH( std::thread( []( ) { GCallLeave( ); } ).join( ),
                  "ERROR: Assertion failed, aborting. \\(callStack\\)" );
}
