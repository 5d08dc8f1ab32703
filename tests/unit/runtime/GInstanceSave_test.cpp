// Whatever happens while the settings are saved, the file is the old or the new one.
#include "platform/GFileAside.h"
#include "runtime/GInstance.h"
#include "support/TestFolder.h"
#include "support/TestLog.h"

#include <csignal>
#include <memory>
#include <random>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>

namespace
{
constexpr int NAMES = 400;
constexpr const char16_t* PATH = u"settings.ini";

class GInstanceSave : public TestFolder
{
};

// Every name has the same value, so that a mixture of two states shows.
void fill( GInstance& instance, const GString& value )
{
    for( int i = 0; i < NAMES; ++i ) instance.set( GConcat( u"name", i ), value, true );
}
GString textOf( const GString& value )
{
    GString path = "reference.ini";
    {
        const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( GUTF8ToWide( path ) ) ) );
        fill( *instance, value );
    }
    GString text;
    GFileLoad( GUTF8ToWide( path ), text );
    std::filesystem::remove( path );
    return text;
}
// Runs `work` in a child without core files and returns its exit status, or -1.
template <typename Work>
int runChild( Work work )
{
    const pid_t child = fork( );
    if( !child ) _exit( work( ) );
    int status = 0;
    waitpid( child, &status, 0 );
    return WIFEXITED( status ) ? WEXITSTATUS( status ) : -1;
}
void limitFiles( rlim_t size )
{
    signal( SIGXFSZ, SIG_IGN );
    const rlimit limit = { size, size };
    setrlimit( RLIMIT_FSIZE, &limit );
}

// Saves states 0, 1, 2 ... until it is killed; a byte on the pipe tells of the first.
[[noreturn]] void saveForever( int pipe )
{
    const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( PATH ) ) );
    for( int state = 0;; ++state )
    {
        fill( *instance, std::to_string( state ) + GString( 50, 'x' ) );
        instance->save( );
        if( state == 0 && write( pipe, "s", 1 ) != 1 ) _exit( 1 );
    }
}
// True when the file has all names, all with one value.
bool isWhole( )
{
    GString text;
    if( !GFileLoad( PATH, text ) || !text.ends_with( "\n\n" ) ) return false;
    std::istringstream lines( text );
    GString line;
    GString value;
    int count = 0;
    while( std::getline( lines, line ) && !line.empty( ) )
    {
        const GString own = line.substr( line.find( ": " ) );
        if( !count++ ) value = own;
        if( own != value ) return false;
    }
    return count == NAMES;
}
} // namespace

TEST_F( GInstanceSave, KilledAtAnyMomentLeavesAWholeFile )
{
    std::mt19937 random( 7 );
    for( int round = 0; round < 60; ++round )
    {
        int ends[2];
        ASSERT_EQ( pipe( ends ), 0 );
        const pid_t child = fork( );
        if( !child ) saveForever( ends[1] );
        close( ends[1] );
        char first = 0;
        EXPECT_EQ( ::read( ends[0], &first, 1 ), 1 );
        usleep( random( ) % 8000 ); // Any moment will do.
        kill( child, SIGKILL );
        waitpid( child, nullptr, 0 );
        close( ends[0] );
        ASSERT_TRUE( isWhole( ) ) << "round " << round;
    }
    // What the last victim left beside the file is no hindrance.
    const GString text = textOf( "after" );
    const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( PATH ) ) );
    fill( *instance, "after" );
    instance->save( );
    EXPECT_EQ( read( "settings.ini" ), text );
    EXPECT_FALSE( std::filesystem::exists( "settings.ini.new" ) );
}
TEST_F( GInstanceSave, FileThatMayNotGrowStaysAsItWas )
{
    const GString old = textOf( "old" );
    write( "settings.ini", old );
    TestLog::allow( "(fwrite( out.c_str( ), 1, out.size( ), fp ) == out.size( ))" );
    const int status = runChild(
        []( )
        {
            const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( PATH ) ) );
            limitFiles( 9000 );
            fill( *instance, GString( 100, 'y' ) );
            instance->save( );
            return TestLog::count( "WARNING: Assertion failed. (fwrite( out.c_str( ), 1, out.size( ), fp ) == "
                                   "out.size( ))" ) == 1 &&
                           TestLog::count( "WARNING" ) == 1
                       ? 0
                       : 1;
        } );
    EXPECT_EQ( status, 0 );
    EXPECT_EQ( read( "settings.ini" ), old );
    EXPECT_FALSE( std::filesystem::exists( "settings.ini.new" ) );
}
TEST_F( GInstanceSave, FullDiskKeepsTheOldFile )
{
    constexpr int NO_MOUNT = 77;
    const int status = runChild(
        []( )
        {
            std::filesystem::create_directory( "disk" );
            const bool apart = !unshare( CLONE_NEWNS ) || !unshare( CLONE_NEWUSER | CLONE_NEWNS );
            if( !apart || mount( nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr ) ||
                mount( "none", "disk", "tmpfs", 0, "size=32k" ) )
                return NO_MOUNT;
            std::filesystem::current_path( "disk" );
            std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( PATH ) ) );
            fill( *instance, "old" );
            instance->save( );
            const GString old = read( "settings.ini" );
            fill( *instance, GString( 100, 'y' ) );
            instance->save( );
            const bool warned = TestLog::count( "(fwrite( out.c_str( ), 1, out.size( ), fp ) == out.size( ))" ) == 1;
            const bool kept = !old.empty( ) && read( "settings.ini" ) == old;
            fill( *instance, "new" );
            instance->save( );
            const bool saved = read( "settings.ini" ).find( ": new\n" ) != GString::npos;
            instance.reset( );
            return warned && kept && saved ? 0 : 1;
        } );
    EXPECT_NE( status, NO_MOUNT ) << "needs the right to mount, as root or in a user's namespace";
    EXPECT_EQ( status, 0 );
}
TEST_F( GInstanceSave, FullDeviceWarnsAndStaysADevice )
{
    std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( PATH ) ) );
    instance->set( u"a", u"1", true );
    std::filesystem::create_symlink( "/dev/full", "settings.ini" );
    TestLog::expect( "WARNING: Assertion failed. (fwrite( out.c_str( ), 1, out.size( ), fp ) == out.size( ))" );
    instance.reset( );
    EXPECT_TRUE( std::filesystem::is_character_file( "/dev/full" ) );
    EXPECT_FALSE( std::filesystem::exists( "/dev/full.new" ) );
}
TEST_F( GInstanceSave, DirectoryInTheWayWarns )
{
    std::filesystem::create_directory( "settings.ini" );
    std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( PATH ) ) );
    TestLog::expect( "WARNING: Assertion failed. (fp)" );
    instance.reset( );
    std::filesystem::remove( "settings.ini" );
    std::filesystem::create_directory( "settings.ini.new" );
    instance.reset( GSAFENEW( GInstance, ( PATH ) ) );
    instance.reset( );
    EXPECT_EQ( TestLog::count( "Assertion failed. (fp)" ), 2 );
    EXPECT_FALSE( std::filesystem::exists( "settings.ini" ) );
}
TEST_F( GInstanceSave, LinkAndPermissionsStay )
{
    std::filesystem::create_directory( "elsewhere" );
    write( "elsewhere/real.ini", "a: 1\n\n" );
    chmod( "elsewhere/real.ini", 0640 );
    std::filesystem::create_symlink( "elsewhere/real.ini", "settings.ini" );
    std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( PATH ) ) );
    instance->set( u"b", u"2", true );
    instance.reset( );
    EXPECT_TRUE( std::filesystem::is_symlink( "settings.ini" ) );
    EXPECT_EQ( read( "elsewhere/real.ini" ), "a: 1\nb: 2\n\n" );
    struct stat status = { };
    ASSERT_EQ( stat( "elsewhere/real.ini", &status ), 0 );
    EXPECT_EQ( status.st_mode & 0777, 0640u );
    std::filesystem::remove( "settings.ini" );
    instance.reset( GSAFENEW( GInstance, ( PATH ) ) );
    instance.reset( );
    ASSERT_EQ( stat( "settings.ini", &status ), 0 );
    EXPECT_EQ( status.st_mode & 0777, 0600u );
}
TEST_F( GInstanceSave, ThreadsSaveSideBySide )
{
    const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( PATH ) ) );
    std::vector<std::thread> threads;
    for( int i = 0; i < 3; ++i )
        threads.emplace_back(
            [&, i]( )
            {
                for( int n = 0; n < 20; ++n )
                {
                    instance->open( u"state" ) = std::to_string( i * 100 + n );
                    instance->save( ); // Also below open.
                    instance->close( u"state", false );
                    instance->save( );
                }
            } );
    for( std::thread& thread : threads ) thread.join( );
    instance->set( u"last", u"1", true );
    instance->save( );
    EXPECT_EQ( read( "settings.ini" ), "last: 1\n\n" );
    EXPECT_EQ( list( ".new" ), std::vector<std::string>( ) );
}
TEST_F( GInstanceSave, SecondWriterAtTheSameMomentIsRefused )
{
    write( "settings.ini", "a: 1\n\n" );
    const GFileAside first = GFileAsideOpen( "settings.ini" );
    ASSERT_TRUE( first );
    EXPECT_FALSE( GFileAsideOpen( "settings.ini" ) );
    EXPECT_EQ( fputs( "half", GFileAsideGetStream( first ) ), 1 );
    EXPECT_EQ( read( "settings.ini" ), "a: 1\n\n" );
    fclose( GFileAsideGetStream( first ) );
    EXPECT_FALSE( GFileAsideClose( first, false ) );
    EXPECT_EQ( read( "settings.ini" ), "a: 1\n\n" );
    EXPECT_EQ( list( ".new" ), std::vector<std::string>( ) );
    const GFileAside second = GFileAsideOpen( "settings.ini" );
    ASSERT_TRUE( second );
    EXPECT_EQ( fputs( "b: 2\n\n", GFileAsideGetStream( second ) ), 1 );
    EXPECT_TRUE( GFileAsideSync( second ) );
    fclose( GFileAsideGetStream( second ) );
    EXPECT_TRUE( GFileAsideClose( second, true ) );
    EXPECT_EQ( read( "settings.ini" ), "b: 2\n\n" );
}
