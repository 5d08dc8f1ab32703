#include "start/GWinMain.h"

#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GCrash.h"
#include "platform/GNull.h"
#include "platform/GSystem.h"
#include "platform/GThread.h"
#include "support/TestFolder.h"

#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>

namespace
{
// What the program under test does; set in the child alone.
bool ( *program_ )( ) = []( ) { return false; };
int boxes_ = 0;

// How often the system still refuses to remove a file.
int refusals_ = 0;

bool runNormally( )
{
    std::ofstream( "ran" ) << "ran";
    return false;
}

class WinMainTest : public TestFolder
{
protected:
    void SetUp( ) override
    {
        TestFolder::SetUp( );
        unsetenv( "DISPLAY" );
        unsetenv( "WAYLAND_DISPLAY" );
    }
    [[noreturn]] static void run( const GString& commandLine, bool ( *program )( ) = runNormally )
    {
        program_ = program;
        _exit( WinMain( "test", commandLine ) );
    }
    // Each refusal and each sleep is written down.
    static void refuseRemoving( int times )
    {
        refusals_ = times;
        GThreadSetSleep( []( int64_t duration ) { std::ofstream( "slept", std::ios::app ) << duration << ' '; } );
    }
    static bool hasRun( ) { return std::filesystem::exists( "ran" ); }
    static std::string cleanLog( )
    {
        const std::vector<std::string> logs = list( "_clean.log" );
        return logs.size( ) == 1 ? read( logs[0] ) : "";
    }
};
using WinMainDeathTest = WinMainTest;
} // namespace

// In the library's place: removes, unless the test has it refuse.
extern "C" int remove( const char* path ) noexcept
{
    if( refusals_ == 0 )
    {
        const int removed = unlink( path );
        return removed && errno == EISDIR ? rmdir( path ) : removed;
    }
    --refusals_;
    std::ofstream( "refused", std::ios::app ) << '.';
    errno = EBUSY;
    return -1;
}

bool GWinMain( const GString& )
{
    return program_( );
}

TEST_F( WinMainDeathTest, LogTellsTheRunFromStartToCleanEnd )
{
    EXPECT_EXIT( run( "-silent -log lx -host a.example" ), testing::ExitedWithCode( 0 ), "" );
    EXPECT_TRUE( hasRun( ) );
    const std::string log = cleanLog( );
    size_t from = 0;
    for( const char* text :
         { ": --------------- Opening Logfile -------------\n", ": Version: Velmora/764\n",
           ": Command Line: -silent -log lx -host a.example\n", ": System: ", "[WinMain] Setting log filter: 'lx'\n",
           ": Leaked Object Tally: (none)\n", ": ---- Closed, Clean shutdown ----\n" } )
    {
        const size_t found = log.find( text, from );
        ASSERT_NE( found, std::string::npos ) << text << log;
        from = found;
    }
    EXPECT_TRUE( log.ends_with( "---- Closed, Clean shutdown ----\n" ) );
}
TEST_F( WinMainDeathTest, LogWithoutAValueGivesAnEmptyFilter )
{
    EXPECT_EXIT( run( "-log -silent", []( ) { return GLogTest( 'l' ) || !GLogGetFilter( ).empty( ); } ),
                 testing::ExitedWithCode( 0 ), "" );
    EXPECT_EQ( cleanLog( ).find( "Setting log filter" ), std::string::npos );
}
TEST_F( WinMainDeathTest, StaleUpgradeIsExecutedAndEndsTheRun )
{
    const int upgraded = openPipe( "upgraded" );
    write( "upgrade.exe", "#!/bin/sh\necho \"$#\" > upgraded\n" );
    EXPECT_EXIT( run( "-silent" ), testing::ExitedWithCode( 0 ), "" );
    EXPECT_EQ( readPipe( upgraded ), "0\n" );
    EXPECT_FALSE( hasRun( ) );
    EXPECT_TRUE( std::filesystem::exists( "upgrade.exe" ) );
    EXPECT_NE( cleanLog( ).find( "Executed 'upgrade.exe', shutting down." ), std::string::npos );
}
TEST_F( WinMainDeathTest, UpgradeThatCannotRunIsDeleted )
{
    write( "upgrade.exe", "no program" );
    EXPECT_EXIT( run( "-silent" ), testing::ExitedWithCode( 0 ), "" );
    EXPECT_TRUE( hasRun( ) );
    EXPECT_FALSE( std::filesystem::exists( "upgrade.exe" ) );
    EXPECT_NE( cleanLog( ).find(
                   "WARNING Unable to execute 'upgrade.exe', because 'The .exe file is invalid (non-Microsoft Win32 "
                   ".exe or error in .exe image).'; deleting and ignoring." ),
               std::string::npos );
}
TEST_F( WinMainDeathTest, UpgradedRemovesTheUpgradeFirst )
{
    write( "upgrade.exe", "no program" );
    EXPECT_EXIT( run( "-silent -upgraded" ), testing::ExitedWithCode( 0 ), "" );
    EXPECT_TRUE( hasRun( ) );
    EXPECT_FALSE( std::filesystem::exists( "upgrade.exe" ) );
    EXPECT_NE( cleanLog( ).find( "Started from upgrade" ), std::string::npos );
    EXPECT_EQ( cleanLog( ).find( "WARNING" ), std::string::npos );
}
TEST_F( WinMainDeathTest, UpgradeThatStaysIsTriedFourTimesAndThenExecuted )
{
    write( "upgrade.exe", "#!/bin/sh\n:\n" );
    EXPECT_EXIT( ( refuseRemoving( INT_MAX ), run( "-silent -upgraded" ) ), testing::ExitedWithCode( 0 ), "" );
    EXPECT_EQ( read( "refused" ), "...." );
    EXPECT_EQ( read( "slept" ), "500000 500000 500000 " );
    EXPECT_FALSE( hasRun( ) );
    const std::string log = cleanLog( );
    size_t from = 0;
    for( const char* text : { "Started from upgrade\n",
                              "WARNING: Cannot delete 'upgrade.exe', waiting a bit and trying again 2 more times.\n",
                              "WARNING: Cannot delete 'upgrade.exe', waiting a bit and trying again 1 more times.\n",
                              "WARNING: Cannot delete 'upgrade.exe', waiting a bit and trying again 0 more times.\n",
                              "Executed 'upgrade.exe', shutting down.\n" } )
    {
        const size_t found = log.find( text, from );
        ASSERT_NE( found, std::string::npos ) << text << log;
        from = found;
    }
}
TEST_F( WinMainDeathTest, FourthAttemptMayRemoveTheUpgrade )
{
    write( "upgrade.exe", "#!/bin/sh\n:\n" );
    EXPECT_EXIT( ( refuseRemoving( 3 ), run( "-silent -upgraded" ) ), testing::ExitedWithCode( 0 ), "" );
    EXPECT_EQ( read( "slept" ), "500000 500000 500000 " );
    EXPECT_FALSE( std::filesystem::exists( "upgrade.exe" ) );
    EXPECT_TRUE( hasRun( ) );
}
TEST_F( WinMainDeathTest, StaleUpgradeIsExecutedAtEveryStart )
{
    write( "upgrade.exe", "#!/bin/sh\n:\n" );
    for( int start = 0; start < 3; ++start ) EXPECT_EXIT( run( "-silent" ), testing::ExitedWithCode( 0 ), "" );
    EXPECT_FALSE( hasRun( ) );
    const std::vector<std::string> logs = list( "_clean.log" );
    EXPECT_EQ( logs.size( ), 3u );
    for( const std::string& log : logs )
        EXPECT_NE( read( log ).find( "Executed 'upgrade.exe', shutting down.\n" ), std::string::npos );
}
TEST_F( WinMainDeathTest, RestartWithoutAPathEndsInABox )
{
    EXPECT_EXIT(
        {
            GNullSetBoxAnswer(
                []( const GWString& title, const GWString& text )
                {
                    write( "box", GWideToUTF8( title + u"|" + text ) );
                    return 0;
                } );
            run( "-silent -norestart", []( ) { return true; } );
        },
        testing::ExitedWithCode( 1 ), "" );
    EXPECT_EQ( read( "box" ), "Auto-Restart Failed|Velmora was unable to automatically restart itself.\r\n''\r\n"
                              "Please restart Velmora manually.\r\n()" );
}
TEST_F( WinMainDeathTest, SecondInstanceCancels )
{
    const int holder = holdFile( "velmora.log", "running" );
    EXPECT_EXIT(
        {
            GNullSetBoxAnswer(
                []( const GWString& title, const GWString& text )
                {
                    write( "box", GWideToUTF8( title + u"|" + text ) );
                    return ++boxes_ < 3 ? 1 : 0;
                } );
            run( "-silent" );
        },
        testing::ExitedWithCode( 0 ), "" );
    EXPECT_FALSE( hasRun( ) );
    EXPECT_EQ( read( "velmora.log" ), "running" );
    EXPECT_EQ( read( "box" ), "Velmora Already Running|Another instance of Velmora might already be running:\n\n"
                              "- To keep the old instance and shut down the new, click Cancel\n"
                              "- To keep the new instance after closing the old, click Try Again\n"
                              "- To keep both instances, click Continue." );
    close( holder );
}
TEST_F( WinMainDeathTest, SecondInstanceRunsOnceTheFirstHasEnded )
{
    EXPECT_EXIT(
        {
            static int holder = holdFile( "velmora.log", "running" );
            GNullSetBoxAnswer(
                []( const GWString&, const GWString& )
                {
                    close( holder );
                    return 1;
                } );
            run( "-silent" );
        },
        testing::ExitedWithCode( 0 ), "" );
    EXPECT_TRUE( hasRun( ) );
    ASSERT_EQ( list( "_dirty.log" ).size( ), 1u );
    EXPECT_EQ( read( list( "_dirty.log" )[0] ), "running" );
    EXPECT_NE( cleanLog( ).find( "Version: Velmora/764" ), std::string::npos );
}
TEST_F( WinMainDeathTest, SecondInstanceContinuesWithoutALog )
{
    const int holder = holdFile( "velmora.log", "running" );
    EXPECT_EXIT(
        {
            GNullSetBoxAnswer( []( const GWString&, const GWString& ) { return 2; } );
            run( "-silent" );
        },
        testing::ExitedWithCode( 0 ), "" );
    EXPECT_TRUE( hasRun( ) );
    EXPECT_EQ( list( ".log" ), std::vector<std::string>{ "velmora.log" } );
    EXPECT_EQ( read( "velmora.log" ), "running" );
    close( holder );
}
TEST_F( WinMainDeathTest, WithoutALogLinesAreEchoedUnlessSilent )
{
    for( const bool silent : { false, true } )
    {
        const int holder = holdFile( "velmora.log", "running" );
        EXPECT_EXIT(
            {
                const int echo = open( "echo", O_WRONLY | O_CREAT | O_TRUNC, 0644 );
                dup2( echo, STDOUT_FILENO );
                GNullSetBoxAnswer( []( const GWString&, const GWString& ) { return 2; } );
                run( silent ? "-silent" : "" );
            },
            testing::ExitedWithCode( 0 ), "" );
        EXPECT_EQ( read( "echo" ).find( "Version: Velmora/764\n" ) != std::string::npos, !silent );
        EXPECT_EQ( read( "velmora.log" ), "running" );
        close( holder );
    }
}
TEST_F( WinMainDeathTest, EscapedExceptionEndsInTheCrashHandler )
{
    EXPECT_EXIT( run( "-silent", []( ) -> bool { throw std::runtime_error( "broken" ); } ),
                 testing::ExitedWithCode( 255 ), "" );
    ASSERT_EQ( list( "_dirty.log" ).size( ), 1u );
    const std::string log = read( list( "_dirty.log" )[0] );
    EXPECT_NE( log.find( ": Velmora: ERROR Uncaught 'exception' exception in thread 'WinMain'. (broken)\n" ),
               std::string::npos );
    EXPECT_EQ( log.find( "Leaked Object Tally" ), std::string::npos );
}

TEST_F( WinMainTest, ExecuteTellsWhyItFailed )
{
    GWString reason = u"before";
    EXPECT_FALSE( GSystemExecute( u"", u"", reason ) );
    EXPECT_EQ( reason, u"before" );
    EXPECT_FALSE( GSystemExecute( u"missing", u"", reason ) );
    EXPECT_EQ( reason, u"The specified file was not found." );
    write( "plain", "x" );
    EXPECT_FALSE( GSystemExecute( u"plain/below", u"", reason ) );
    EXPECT_EQ( reason, u"The specified path was not found." );
    EXPECT_FALSE( GSystemExecute( GWString( 5000, u'a' ), u"", reason ) );
    EXPECT_EQ( reason, u"The specified path was not found." );
    write( "broken", "no program" );
    chmod( "broken", 0755 );
    EXPECT_FALSE( GSystemExecute( u"broken", u"", reason ) );
    EXPECT_EQ( reason, u"The .exe file is invalid (non-Microsoft Win32 .exe or error in .exe image)." );
}
TEST_F( WinMainTest, ExecuteTellsOfAFileThatIsHeldOrNotToBeOpened )
{
    GWString reason;
    write( "held", "#!/bin/sh\n:\n" );
    chmod( "held", 0755 );
    const int writer = open( "held", O_WRONLY | O_CLOEXEC );
    EXPECT_FALSE( GSystemExecute( u"held", u"", reason ) );
    EXPECT_EQ( reason, u"A sharing violation occurred." );
    close( writer );
    EXPECT_FALSE( GSystemExecute( u"held", GWString( 4000000, u'a' ), reason ) );
    EXPECT_EQ( reason, u"There was not enough memory to complete the operation." );
    write( "document.none", "text" );
    const GString path = getenv( "PATH" );
    setenv( "PATH", "", 1 );
    EXPECT_FALSE( GSystemExecute( u"document.none", u"", reason ) );
    setenv( "PATH", path.c_str( ), 1 );
    EXPECT_EQ( reason,
               u"There is no application associated with the given file name extension. This error will also be "
               u"errorMsg = ed if you attempt to print a file that is not printable." );
}
TEST_F( WinMainTest, ExecuteTellsOfAFileThatIsDenied )
{
    GWString reason;
    std::filesystem::create_directory( "locked" );
    write( "locked/program", "#!/bin/sh\n:\n" );
    chmod( "locked", 0 );
    // Of one thread alone, and whoever runs the tests.
    std::thread(
        [&]( )
        {
            syscall( SYS_setresuid, -1, 65534, -1 );
            EXPECT_FALSE( GSystemExecute( u"locked/program", u"", reason ) );
        } )
        .join( );
    EXPECT_EQ( reason, u"The operating system denied access to the specified file." );
}
TEST_F( WinMainTest, ExecutePassesTheArguments )
{
    const int words = openPipe( "words" );
    write( "program", "#!/bin/sh\necho \"$#:$2\" > words\n" );
    chmod( "program", 0755 );
    GWString reason;
    EXPECT_TRUE( GSystemExecute( u"program", u"-log x  y", reason ) );
    EXPECT_EQ( readPipe( words ), "3:x\n" );
}
