#include "base/GDebug.h"

#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GCrash.h"
#include "platform/GLogFile.h"
#include "platform/GThread.h"
#include "platform/GTime.h"
#include "support/TestFolder.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <regex>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

namespace
{
const std::string MARKER = "---- Closed, Clean shutdown ----";
constexpr int CRASHED = 255;

class GDebugTest : public TestFolder
{
protected:
    void SetUp( ) override
    {
        TestFolder::SetUp( );
        unsetenv( "DISPLAY" );
        unsetenv( "WAYLAND_DISPLAY" );
    }
    // In a child: a program with an open log.
    static void begin( const GString& restartPath = "" )
    {
        GDebugOpen( restartPath, "-log x" );
        GLogOpen( u"velmora", false );
    }
    static void beginWithDialog( const std::string& script, const GString& restartPath = "" )
    {
        begin( restartPath );
        writeScript( "dialog", script );
        GCrashSetDialog( "./dialog" );
    }
    static void writeScript( const std::string& path, const std::string& script )
    {
        write( path, "#!/bin/sh\n" + script + "\n" );
        chmod( path.c_str( ), 0755 );
    }
    // The one log of a run that failed.
    static std::string dirtyLog( )
    {
        const std::vector<std::string> logs = list( ".log" );
        EXPECT_EQ( logs.size( ), 1u );
        EXPECT_EQ( list( "_dirty.log" ).size( ), 1u );
        return logs.empty( ) ? "" : read( logs[0] );
    }
};
using GDebugDeathTest = GDebugTest;

// Deeper than any stack, by more frames than the limit lets it have.
int overflow( volatile char* above, int64_t depth )
{
    volatile char room[4096];
    room[0] = above ? above[0] : '\0';
    return depth ? overflow( room, depth - 1 ) + room[0] : 0;
}
} // namespace

TEST_F( GDebugDeathTest, FullDiskDoesNotStopTheProgram )
{
    EXPECT_EXIT(
        {
            begin( );
            signal( SIGXFSZ, SIG_IGN );
            rlimit none;
            none.rlim_cur = none.rlim_max = 64;
            setrlimit( RLIMIT_FSIZE, &none );
            for( int i = 0; i < 10; ++i ) GLOGPLAIN( u"a line of which no more than some bytes find room" );
            _exit( GLogClose( true ).empty( ) ? 1 : 0 );
        },
        testing::ExitedWithCode( 0 ), "" );
    EXPECT_EQ( list( "_clean.log" ).size( ), 1u );
}
TEST_F( GDebugTest, CloseWithoutALogGivesNoPath )
{
    EXPECT_EQ( GLogClose( true ), u"" );
    EXPECT_TRUE( list( ".log" ).empty( ) );
}
TEST_F( GDebugTest, LinesCarryTheTimeAndTheNameTellsTheEnd )
{
    ASSERT_TRUE( GLogOpen( u"velmora", false ) );
    EXPECT_EQ( list( ".log" ), std::vector<std::string>{ "velmora.log" } );
    const GString path = GWideToUTF8( GLogClose( true ) );
    EXPECT_TRUE( std::regex_match( path, std::regex( "velmora_\\d{6}_\\d{6}_clean\\.log" ) ) ) << path;
    EXPECT_TRUE(
        std::regex_match( read( path ), std::regex( "\\d{6}_\\d{6}: --------------- Opening Logfile -------------\n"
                                                    "\\d{6}_\\d{6}: ---- Closed, Clean shutdown ----\n" ) ) );
    ASSERT_TRUE( GLogOpen( u"velmora", false ) );
    const GString dirty = GWideToUTF8( GLogClose( false ) );
    EXPECT_TRUE( std::regex_match( dirty, std::regex( "velmora_\\d{6}_\\d{6}_dirty\\.log" ) ) ) << dirty;
    EXPECT_TRUE( read( dirty ).ends_with( "---- Closed, ERROR Dirty shutdown ----\n" ) );
    EXPECT_TRUE( list( "velmora.log" ).empty( ) );
}
TEST_F( GDebugTest, TimeIsTheSystemClocksInUTC )
{
    constexpr uint64_t UNIX_EPOCH = 11644473600;
    const std::pair<uint64_t, std::string> times[] = { { 0, "700101_000000" },          { 951782399, "000228_235959" },
                                                       { 951868799, "000229_235959" },  { 951868800, "000301_000000" },
                                                       { 1230767999, "081231_235959" }, { 1709210096, "240229_123456" },
                                                       { 4107542400, "000301_000000" } };
    static uint64_t now;
    GTimeSetSource( [] { return now; } );
    for( const auto& [seconds, text] : times )
    {
        now = ( seconds + UNIX_EPOCH ) * 1000000 + 999999;
        ASSERT_TRUE( GLogOpen( u"velmora", false ) );
        EXPECT_EQ( read( "velmora.log" ), text + ": --------------- Opening Logfile -------------\n" );
        EXPECT_EQ( GWideToUTF8( GLogClose( true ) ), "velmora_" + text + "_clean.log" );
        std::filesystem::remove( "velmora_" + text + "_clean.log" );
    }
    GTimeSetSource( nullptr );
}
TEST_F( GDebugTest, LineIsOneWriteWithItsTimeAndIsEchoedWithout )
{
    const GPortableHooks saved = GPortableGetHooks( );
    GDebugOpen( "", "" );
    testing::internal::CaptureStdout( );
    ASSERT_TRUE( GLogOpen( u"velmora", true ) );
    GLog( u"one \u00E4 line\n" );
    EXPECT_EQ( testing::internal::GetCapturedStdout( ),
               "--------------- Opening Logfile -------------\none \xC3\xA4 line\n" );
    EXPECT_TRUE( std::regex_search( read( "velmora.log" ), std::regex( "\n\\d{6}_\\d{6}: one \xC3\xA4 line\n$" ) ) );
    testing::internal::CaptureStdout( );
    GLogClose( true );
    GLog( u"echo only\n" );
    EXPECT_EQ( testing::internal::GetCapturedStdout( ), "---- Closed, Clean shutdown ----\necho only\n" );
    GPortableGetHooks( ) = saved;
}
TEST_F( GDebugTest, LogsClosedWithinASecondKeepTheirNames )
{
    for( int i = 0; i < 3; ++i )
    {
        ASSERT_TRUE( GLogOpen( u"velmora", false ) );
        GLogClose( true );
    }
    EXPECT_EQ( list( "_clean.log" ).size( ), 3u );
}
TEST_F( GDebugTest, LogLeftBehindIsNamedByItsLastLine )
{
    for( const std::string& text : { MARKER, "line\n010101_000000: " + MARKER + "\n" } )
    {
        write( "velmora.log", text );
        ASSERT_TRUE( GLogOpen( u"velmora", false ) );
        EXPECT_EQ( list( "_clean.log" ).size( ), 1u );
        for( const std::string& name : list( "_clean.log" ) )
        {
            EXPECT_EQ( read( name ), text );
            std::filesystem::remove( name );
        }
        std::filesystem::remove( GWideToUTF8( GLogClose( true ) ) );
    }
    for( const std::string& text : { std::string( ), std::string( "short" ), MARKER + "\nmore\n", MARKER + "\n\n" } )
    {
        write( "velmora.log", text );
        ASSERT_TRUE( GLogOpen( u"velmora", false ) );
        EXPECT_EQ( list( "_dirty.log" ).size( ), 1u ) << text;
        for( const std::string& name : list( "_dirty.log" ) ) std::filesystem::remove( name );
        std::filesystem::remove( GWideToUTF8( GLogClose( true ) ) );
    }
}
TEST_F( GDebugTest, NothingFollowsTheMarkerThoughOtherThreadsGoOn )
{
    for( const bool clean : { true, false, true, false } )
    {
        ASSERT_TRUE( GLogOpen( u"velmora", false ) );
        std::atomic<int> lines = 0;
        std::atomic<bool> done = false;
        std::thread writers[3];
        for( std::thread& writer : writers )
            writer = std::thread(
                [&]
                {
                    for( ; !done; ++lines ) GLogFileWrite( "a line\n", 7 );
                } );
        while( lines < 100 ) std::this_thread::yield( );
        const GString path = GWideToUTF8( GLogClose( clean ) );
        const int before = lines;
        while( lines < before + 100 ) std::this_thread::yield( );
        done = true;
        for( std::thread& writer : writers ) writer.join( );
        EXPECT_TRUE( read( path ).ends_with( clean ? "---- Closed, Clean shutdown ----\n"
                                                   : "---- Closed, ERROR Dirty shutdown ----\n" ) );
        std::filesystem::remove( path );
    }
}
TEST_F( GDebugTest, HeldLogRefusesASecondInstance )
{
    const int holder = holdFile( "velmora.log", "running" );
    testing::internal::CaptureStdout( );
    EXPECT_FALSE( GLogOpen( u"velmora", true ) );
    const std::string echo = testing::internal::GetCapturedStdout( );
    EXPECT_TRUE( std::regex_match(
        echo, std::regex( "GLogOpen: ERROR Cannot open rename 'velmora.log' to "
                          "'velmora_\\d{6}_\\d{6}_dirty.log' and thus can't open logfile, ignoring.\n" ) ) )
        << echo;
    EXPECT_EQ( read( "velmora.log" ), "running" );
    close( holder );
    EXPECT_TRUE( GLogOpen( u"velmora", false ) );
    GLogClose( true );
}
TEST_F( GDebugTest, OfSeveralInstancesThatStartAtOnceOneGetsTheLog )
{
    constexpr int INSTANCES = 8;
    for( int round = 0; round < 20; ++round )
    {
        write( "velmora.log", "left behind" );
        int begin[2];
        int end[2];
        int told[2];
        ASSERT_FALSE( pipe( begin ) || pipe( end ) || pipe( told ) );
        for( int i = 0; i < INSTANCES; ++i )
            if( !fork( ) )
            {
                close( begin[1] );
                close( end[1] );
                char none;
                // Closing the pipe starts all of them; nobody lets go of the log before all have tried.
                static_cast<void>( ::read( begin[0], &none, 1 ) );
                const char got = GLogOpen( u"velmora", false ) ? '1' : '0';
                static_cast<void>( ::write( told[1], &got, 1 ) );
                static_cast<void>( ::read( end[0], &none, 1 ) );
                _exit( 0 );
            }
        close( begin[1] );
        close( told[1] );
        int winners = 0;
        for( int i = 0; i < INSTANCES; ++i )
        {
            char got = '0';
            ASSERT_EQ( ::read( told[0], &got, 1 ), 1 );
            winners += got == '1';
        }
        close( end[1] );
        while( wait( nullptr ) > 0 )
        {
        }
        for( const int descriptor : { begin[0], end[0], told[0] } ) close( descriptor );
        EXPECT_EQ( winners, 1 );
        EXPECT_NE( read( "velmora.log" ).find( "Opening Logfile" ), std::string::npos );
        // Who came too late may have left an empty file, and nothing that was written is lost or moved.
        std::string left;
        for( const std::string& name : list( "_dirty.log" ) ) left += read( name );
        EXPECT_EQ( left, "left behind" );
        for( const std::string& name : list( ".log" ) ) std::filesystem::remove( name );
    }
}
TEST_F( GDebugTest, UnwritableDirectoryIsReported )
{
    testing::internal::CaptureStdout( );
    EXPECT_FALSE( GLogOpen( u"none/velmora", true ) );
    EXPECT_EQ( testing::internal::GetCapturedStdout( ),
               "GLogOpen: ERROR Cannot open log file 'none/velmora.log', ignoring.\n" );
}
TEST_F( GDebugTest, PerformanceNamesEveryThread )
{
    std::vector<std::pair<double, GWString>> threads;
    std::thread(
        [&]( )
        {
            GThreadRegister( u"performer" );
            GDebugGetPerformance( threads );
            EXPECT_GE( GDebugGetPerformance( threads ), 0.0 );
        } )
        .join( );
    const auto isPerformer = []( const auto& thread ) { return thread.second == u"performer" && thread.first >= 0.0; };
    EXPECT_TRUE( std::any_of( threads.begin( ), threads.end( ), isPerformer ) );
}

TEST_F( GDebugDeathTest, FailureWithoutADisplayEndsDirty )
{
    EXPECT_EXIT(
        {
            begin( "/bin/true" );
            GPRECONDITION( 1 == 2 );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    const std::string log = dirtyLog( );
    size_t from = 0;
    for( const char* text : { "ERROR: Precondition failed, aborting. (1 == 2)\n", "---- ERROR: UNCLEAN SHUTDOWN ----\n",
                              "-- No User Comment Supplied --\n", "-- Auto-restart declined. --\n",
                              "---- Closed, ERROR Dirty shutdown ----\n" } )
    {
        const size_t found = log.find( text, from );
        ASSERT_NE( found, std::string::npos ) << text << log;
        from = found;
    }
}
TEST_F( GDebugDeathTest, SignalsAreNamed )
{
    EXPECT_EXIT(
        {
            begin( );
            GCALL( function );
            raise( SIGSEGV );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    const std::string log = dirtyLog( );
    EXPECT_NE( log.find( "ERROR Uncaught 'STATUS_ACCESS_VIOLATION' exception.\n" ), std::string::npos );
    EXPECT_NE( log.find( "ERROR Signal 'SIGSEGV' caught, aborting.\n" ), std::string::npos );
    EXPECT_NE( log.find( "---- Call Stack for Thread #" ), std::string::npos );
    EXPECT_NE( log.find( "):  [TestBody] (function)\n" ), std::string::npos );
}
TEST_F( GDebugDeathTest, StackOverflowOfAThreadIsCaught )
{
    EXPECT_EXIT(
        {
            begin( );
            GThreadClose( GThreadOpen(
                u"deep", []( void* ) { return overflow( nullptr, INT64_MAX ); }, nullptr ) );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    EXPECT_NE( dirtyLog( ).find( "ERROR Signal 'SIGSEGV' caught, aborting.\n" ), std::string::npos );
}
TEST_F( GDebugDeathTest, TerminateIsNamed )
{
    EXPECT_EXIT(
        {
            begin( );
            std::thread( []( ) { throw std::runtime_error( "escaped" ); } ).join( );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    EXPECT_NE( dirtyLog( ).find( "ERROR Signal '(terminate)' caught, aborting.\n" ), std::string::npos );
}
TEST_F( GDebugDeathTest, TerminationIsNotedAndTheProgramCarriesOn )
{
    EXPECT_EXIT(
        {
            begin( );
            raise( SIGTERM );
            _exit( GIsSystemTerminating( ) && !GLogClose( true ).empty( ) ? 7 : 8 );
        },
        testing::ExitedWithCode( 7 ), "" );
    ASSERT_EQ( list( "_clean.log" ).size( ), 1u );
    EXPECT_NE( read( list( "_clean.log" )[0] ).find( ": WARNING System signalled SIGTERM\n" ), std::string::npos );
}
TEST_F( GDebugDeathTest, CommentIsLoggedAndTheProgramRestarted )
{
    const int restarted = openPipe( "restarted" );
    writeScript( "program", "echo \"$@\" > restarted" );
    const GString program = std::filesystem::absolute( "program" ).string( );
    EXPECT_EXIT(
        {
            beginWithDialog( "printf 'O11first\\n\\nsecond'", program );
            GAbort( );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    EXPECT_EQ( readPipe( restarted ), "-log x\n" );
    const std::string log = dirtyLog( );
    const std::string stamp = "\n\\d{6}_\\d{6}: ";
    EXPECT_TRUE( std::regex_search( log, std::regex( "-------- User Comment -------" + stamp + "first" + stamp + stamp +
                                                     "second" + stamp + "------------------------------\n" ) ) )
        << log;
    EXPECT_NE( log.find( "-- Trying to auto-restart '" + program + " -log x' --\n" ), std::string::npos );
}
TEST_F( GDebugDeathTest, CommentOfAnyLengthIsLoggedWithoutCuttingACharacter )
{
    EXPECT_EXIT(
        {
            beginWithDialog( "printf O01; printf 'a%.0s' $(seq 510); printf '\\303\\274\\303\\274\\r\\n\\r\\nend'" );
            GAbort( );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    const std::string stamp = "\n\\d{6}_\\d{6}: ";
    EXPECT_TRUE( std::regex_search(
        dirtyLog( ), std::regex( "a{510}\xC3\xBC" + stamp + "\xC3\xBC" + stamp + stamp + "end" + stamp + "---" ) ) )
        << dirtyLog( );
}
TEST_F( GDebugDeathTest, RestartCommandIsLoggedWhole )
{
    const GString options = "-host " + GString( 3000, 'h' );
    EXPECT_EXIT(
        {
            beginWithDialog( "printf 'O10'", "/bin/true" );
            if( GDebugSetRestartArgs( options ) ) GAbort( );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    EXPECT_NE( dirtyLog( ).find( "-- Trying to auto-restart '/bin/true " + options + "' --\n" ), std::string::npos );
}
TEST_F( GDebugDeathTest, RestartArgumentsThatDoNotFitChangeNothing )
{
    const int restarted = openPipe( "restarted" );
    writeScript( "program", "echo \"$@\" > restarted" );
    const GString program = std::filesystem::absolute( "program" ).string( );
    EXPECT_EXIT(
        {
            beginWithDialog( "printf 'O10'", program );
            GString words;
            for( int i = 0; i < 63; ++i ) words += " -a";
            if( !GDebugSetRestartArgs( GString( 4096, 'h' ) ) && !GDebugSetRestartArgs( words ) ) GAbort( );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    EXPECT_EQ( readPipe( restarted ), "-log x\n" );
    EXPECT_NE( dirtyLog( ).find( "-- Trying to auto-restart '" + program + " -log x' --\n" ), std::string::npos );
}
TEST_F( GDebugDeathTest, CallStackThatCannotBeReadKeepsNothingElseAway )
{
    EXPECT_EXIT(
        {
            beginWithDialog( "printf 'O11said'" );
            GCallEnter( reinterpret_cast<const char*>( 16 ), "wild", 1, "function" );
            GAbort( );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    const std::string log = dirtyLog( );
    EXPECT_NE( log.find( ": said\n" ), std::string::npos ) << log;
    EXPECT_TRUE( log.ends_with( "---- Closed, ERROR Dirty shutdown ----\n" ) );
}
TEST_F( GDebugDeathTest, FailureNeverTakesAnotherLogsName )
{
    EXPECT_EXIT(
        {
            begin( );
            GTimeSetSource( []( ) -> uint64_t { return 11644473600000000; } );
            write( "velmora_700101_000000_dirty.log", "before" );
            GAbort( );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    EXPECT_EQ( read( "velmora_700101_000000_dirty.log" ), "before" );
    EXPECT_TRUE( read( "velmora_700101_000001_dirty.log" ).ends_with( "Dirty shutdown ----\n" ) );
}
TEST_F( GDebugDeathTest, SignalBeforeTheHandlerIsSetEndsTheProcess )
{
    EXPECT_EXIT(
        {
            GPortableGetHooks( ).log = []( const GWString& line )
            { write( "said", read( "said" ) + GWideToUTF8( line ) ); };
            _GPOnSignal( SIGILL );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    EXPECT_EQ( read( "said" ), "ERROR Signal 'SIGILL' caught, aborting.\nERROR Abort handler not yet set, exiting.\n" );
}
TEST_F( GDebugDeathTest, EachSignalHasItsName )
{
    const std::pair<int, const char*> names[] = { { SIGABRT, "SIGABRT" },
                                                  { SIGINT, "SIGINT" },
                                                  { SIGFPE, "SIGFPE" },
                                                  { GCRASH_TERMINATE, "(terminate)" },
                                                  { SIGBUS, "(unknown)" } };
    for( const auto& [number, name] : names )
        EXPECT_EXIT( ( begin( ), _GPOnSignal( number ) ), testing::ExitedWithCode( CRASHED ), "" );
    std::string logs;
    for( const std::string& log : list( "_dirty.log" ) ) logs += read( log );
    for( const auto& [number, name] : names )
        EXPECT_NE( logs.find( std::string( "ERROR Signal '" ) + name + "' caught, aborting.\n" ), std::string::npos );
}
TEST_F( GDebugDeathTest, CancelDeclines )
{
    EXPECT_EXIT(
        {
            beginWithDialog( "printf 'C00'", "/bin/false" );
            GAbort( );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    const std::string log = dirtyLog( );
    EXPECT_NE( log.find( "-- No User Comment Supplied --\n" ), std::string::npos );
    EXPECT_NE( log.find( "-- Auto-restart declined. --\n" ), std::string::npos );
}
TEST_F( GDebugDeathTest, MissingRestartPathDeclines )
{
    EXPECT_EXIT(
        {
            beginWithDialog( "printf 'O10'" );
            GAbort( );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    EXPECT_NE( dirtyLog( ).find( "-- Auto-restart declined. --\n" ), std::string::npos );
}
TEST_F( GDebugDeathTest, SecondThreadWaitsFiveSecondsForTheFirst )
{
    const int asked = openPipe( "asked" );
    EXPECT_EXIT(
        {
            // The dialog says that it is open, and is never answered.
            beginWithDialog( "echo open > asked; exec sleep 1000" );
            GCrashSetSleep( []( int64_t microseconds ) { write( "slept", std::to_string( microseconds ) ); } );
            GThreadOpen(
                u"first",
                []( void* )
                {
                    GAbort( );
                    return 0;
                },
                nullptr );
            if( readPipe( openPipe( "asked" ) ) == "open\n" ) GAbort( );
        },
        testing::ExitedWithCode( CRASHED ), "" );
    close( asked );
    EXPECT_EQ( read( "slept" ), "5000000" );
    EXPECT_EQ( list( "velmora.log" ).size( ), 1u );
}

TEST( GCrash, ExceptionCodesHaveNames )
{
    EXPECT_STREQ( GCrashGetCodeName( 0xC0000005 ), "STATUS_ACCESS_VIOLATION" );
    EXPECT_STREQ( GCrashGetCodeName( 0xC00000FD ), "STATUS_STACK_OVERFLOW" );
    EXPECT_STREQ( GCrashGetCodeName( 0xE06D7363 ), "'int' to 'int64' upcast exception?" );
    EXPECT_STREQ( GCrashGetCodeName( 0x12345678 ), "(unknown)" );
    EXPECT_STREQ( GCrashGetCodeName( GCrashGetCode( SIGFPE, FPE_INTDIV ) ), "STATUS_INTEGER_DIVIDE_BY_ZERO" );
    EXPECT_STREQ( GCrashGetCodeName( GCrashGetCode( SIGILL, ILL_PRVOPC ) ), "STATUS_PRIVILEGED_INSTRUCTION" );
    EXPECT_STREQ( GCrashGetCodeName( GCrashGetCode( SIGBUS, BUS_ADRERR ) ), "STATUS_IN_PAGE_ERROR" );
    EXPECT_STREQ( GCrashGetCodeName( GCrashGetCode( SIGABRT, 0 ) ), "(unknown)" );
}
TEST( GCrash, FilterLetsBreakpointsThrough )
{
    for( const unsigned code : { 0x80000003u, 0x80000004u, 0x40000005u } )
        EXPECT_EQ( _GPInfoExceptFilter( code ), 0x80010001u );
    EXPECT_TRUE( TestLog::lines( ).empty( ) );
}
TEST( GCrashDeathTest, FilterAbortsForAllOtherCodes )
{
    EXPECT_DEATH( _GPInfoExceptFilter( 0xC0000017 ), "ERROR Uncaught 'STATUS_NO_MEMORY' exception." );
}
