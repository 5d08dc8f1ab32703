#include "runtime/GInstance.h"

#include "platform/GTime.h"
#include "platform/GWin.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace
{
uint64_t now_ = 1000;
uint64_t testTime( )
{
    return now_;
}

struct Listener : IGNotifyListener
{
    void onNotification( int kind, uint64_t time ) override
    {
        kinds.push_back( kind );
        times.push_back( time );
        thread = std::this_thread::get_id( );
    }
    std::vector<int> kinds;
    std::vector<uint64_t> times;
    std::thread::id thread;
};

class GInstanceTest : public testing::Test
{
protected:
    void SetUp( ) override
    {
        now_ = 1000;
        GTimeSetSource( testTime );
        const std::filesystem::path folder = std::filesystem::temp_directory_path( );
        _path = ( folder / ( "velmora_settings_" + std::to_string( ::getpid( ) ) + ".ini" ) ).string( );
        std::filesystem::remove( _path );
        open( );
    }
    void TearDown( ) override
    {
        _instance.reset( );
        GTimeSetSource( nullptr );
        std::filesystem::remove( _path );
    }
    void open( )
    {
        _instance.reset( );
        _instance.reset( GSAFENEW( GInstance, ( GUTF8ToWide( _path ) ) ) );
    }
    void write( const GString& text )
    {
        _instance.reset( );
        std::ofstream( _path, std::ios::binary ) << text;
        _instance.reset( GSAFENEW( GInstance, ( GUTF8ToWide( _path ) ) ) );
    }
    GString read( ) const
    {
        std::ostringstream text;
        text << std::ifstream( _path, std::ios::binary ).rdbuf( );
        return text.str( );
    }
    static void pump( )
    {
        bool quit = false;
        GWinUpdate( quit );
    }
    GInstance& instance( ) { return *_instance; }

private:
    GString _path;
    std::unique_ptr<GInstance> _instance;
};
using GInstanceDeathTest = GInstanceTest;
} // namespace

TEST_F( GInstanceTest, NamesFoldAsciiCapitals )
{
    instance( ).set( u"Na\u00C4me", u"Value" );
    instance( ).set( u"nA\u00C4ME", u"Other" );
    EXPECT_EQ( instance( ).get( u"NA\u00C4ME" ), u"Other" );
    EXPECT_EQ( instance( ).get( u"na\u00E4me" ), u"" );
    const GWString longName( 300, u'N' );
    instance( ).set( longName, u"x" );
    EXPECT_EQ( instance( ).get( GToLower( longName ) ), u"x" );
}
TEST_F( GInstanceTest, SetOfTheSameTextChangesNothing )
{
    Listener listener;
    const GNotifyHandle notify = GNotifyOpen( &listener );
    instance( ).set( u"a", u"1" );
    instance( ).watch( u"A", notify, 7 );
    now_ = 2000;
    instance( ).set( u"a", u"1", true );
    pump( );
    EXPECT_TRUE( listener.kinds.empty( ) );
    EXPECT_EQ( instance( ).getTimestamp( u"a" ), 1000u );
    instance( ).setRaw( u"a", "1", 1 );
    pump( );
    EXPECT_EQ( listener.kinds, std::vector<int>{ 7 } );
    EXPECT_EQ( listener.times, std::vector<uint64_t>{ 2000 } );
    EXPECT_EQ( instance( ).getTimestamp( u"a" ), 2000u );
    instance( ).set( u"a", u"2" );
    instance( ).set( u"a", u"3" );
    pump( );
    EXPECT_EQ( listener.kinds.size( ), 3u );
    instance( ).unwatch( u"a", notify, 7 );
    GNotifyClose( notify );
}
TEST_F( GInstanceTest, NotificationsRunOnTheMainThread )
{
    Listener listener;
    const GNotifyHandle notify = GNotifyOpen( &listener );
    instance( ).watch( u"a", notify, 1 );
    instance( ).watch( u"a", notify, 1 );
    std::thread( [&]( ) { instance( ).set( u"a", u"1" ); } ).join( );
    EXPECT_TRUE( listener.kinds.empty( ) );
    pump( );
    EXPECT_EQ( listener.kinds.size( ), 2u );
    EXPECT_EQ( listener.thread, std::this_thread::get_id( ) );
    instance( ).unwatch( u"a", notify, 1 );
    instance( ).set( u"a", u"2" );
    pump( );
    EXPECT_EQ( listener.kinds.size( ), 3u );
    GNotifyClose( notify );
}
TEST_F( GInstanceTest, ClosedHandleDropsWhatIsOnItsWay )
{
    Listener listener;
    const GNotifyHandle notify = GNotifyOpen( &listener );
    instance( ).watch( u"a", notify, 1 );
    instance( ).set( u"a", u"1" );
    instance( ).unwatch( u"a", notify, 1 );
    GNotifyClose( notify );
    pump( );
    EXPECT_TRUE( listener.kinds.empty( ) );
}
TEST_F( GInstanceTest, UnwatchOfTheUnwatchedWarns )
{
    Listener listener;
    const GNotifyHandle notify = GNotifyOpen( &listener );
    instance( ).watch( u"a", notify, 1 );
    TestLog::expect( "WARNING Unwatched 'A' when it wasn't being watched." );
    instance( ).unwatch( u"A", notify, 2 );
    TestLog::expect( "WARNING Unwatched 'b' when it wasn't being watched." );
    instance( ).unwatch( u"b", notify, 1 );
    GNotifyClose( notify );
}
TEST_F( GInstanceTest, SavesAndLoadsPersistentValuesOnly )
{
    instance( ).set( u"B:\\ c", u"line\nnext\ttab\\slash\r\u20AC: x ", true );
    instance( ).set( u"A", u"1", true );
    instance( ).set( u"Gone", u"2" );
    instance( ).set( u"", u"nameless", true );
    instance( ).save( );
    EXPECT_EQ( read( ), "a: 1\nb\\:\\\\\\ c: line\\nnext\\ttab\\\\slash\\r\xE2\x82\xAC: x \n\n" );
    now_ = 5000;
    open( );
    EXPECT_EQ( instance( ).get( u"B:\\ c" ), u"line\nnext\ttab\\slash\r\u20AC: x " );
    EXPECT_EQ( instance( ).get( u"a" ), u"1" );
    EXPECT_EQ( instance( ).getTimestamp( u"a" ), 5000u );
    EXPECT_FALSE( instance( ).isSet( u"gone" ) );
    instance( ).save( );
    EXPECT_EQ( read( ).substr( 0, 5 ), "a: 1\n" );
}
TEST_F( GInstanceTest, LeadingBlanksAreLostOnTheWayBackAndTrailingOnesStay )
{
    instance( ).set( u"a", u"  x  ", true );
    instance( ).set( u"b", u"\ty ", true );
    open( );
    EXPECT_EQ( instance( ).get( u"a" ), u"x  " );
    EXPECT_EQ( instance( ).get( u"b" ), u"\ty " ); // A tab is written as an escape.
}
TEST_F( GInstanceTest, SavedLinesStandInTheOrderOfTheFoldedNames )
{
    for( const char16_t* name : { u"b", u"\u00E4", u"A", u"_", u"Zz", u"z" } ) instance( ).set( name, u"1", true );
    instance( ).clear( u"_*" );
    instance( ).set( u"AB", u"2", true );
    instance( ).save( );
    EXPECT_EQ( read( ), "a: 1\nab: 2\nb: 1\nz: 1\nzz: 1\n\xC3\xA4: 1\n\n" );
}
TEST_F( GInstanceTest, WatchersAreToldInTheOrderOfTheirWatch )
{
    Listener listener;
    const GNotifyHandle notify = GNotifyOpen( &listener );
    for( const int arg : { 3, 1, 2, 1 } ) instance( ).watch( u"a", notify, arg );
    instance( ).unwatch( u"A", notify, 1 ); // The first of the two.
    instance( ).set( u"a", u"1" );
    pump( );
    EXPECT_EQ( listener.kinds, ( std::vector<int>{ 3, 2, 1 } ) );
    for( const int arg : { 3, 2, 1 } ) instance( ).unwatch( u"a", notify, arg );
    GNotifyClose( notify );
}
TEST_F( GInstanceTest, ManyNamesComeAndGo )
{
    for( int i = 0; i < 5000; ++i ) instance( ).set( GConcat( u"Name_", i ), i );
    instance( ).clear( u"name_1*" );
    for( int i = 0; i < 5000; ++i )
        ASSERT_EQ( instance( ).getRaw( GConcat( u"nAME_", i ) ),
                   std::to_string( i )[0] == '1' ? "" : std::to_string( i ) );
    instance( ).set( u"name_17", 18 );
    EXPECT_EQ( instance( ).calc( u"NAME_17" ), 18 );
}
TEST_F( GInstanceTest, DestructorSaves )
{
    instance( ).set( u"a", u"1", true );
    open( );
    EXPECT_EQ( instance( ).get( u"a" ), u"1" );
}
TEST_F( GInstanceTest, LineWithoutColonEndsTheFile )
{
    TestLog::expect( "WARNING Corrupt headers; # names (3) !=  # values (2)." );
    write( "One: 1\nTwo: 2\nno colon here\nthree: 3\n" );
    EXPECT_EQ( instance( ).get( u"one" ), u"1" );
    EXPECT_EQ( instance( ).get( u"two" ), u"2" );
    EXPECT_FALSE( instance( ).isSet( u"three" ) );
}
TEST_F( GInstanceTest, AcceptsEveryLineEndAndLaterLinesWin )
{
    write( " \ta:  1 \rb: 2\r\na: 3: 4\nc:\n\nd: 5\n" );
    EXPECT_EQ( instance( ).get( u"a" ), u"3: 4" );
    EXPECT_EQ( instance( ).get( u"b" ), u"2" );
    EXPECT_FALSE( instance( ).isSet( u"d" ) );
}
TEST_F( GInstanceTest, LastLineWithoutLineEndIsTaken )
{
    write( "a: 1\nb: 2" );
    EXPECT_EQ( instance( ).get( u"b" ), u"2" );
}
TEST_F( GInstanceTest, UnwritableFileWarns )
{
    std::unique_ptr<GInstance> other( GSAFENEW( GInstance, ( u"/nonexistent/settings.ini" ) ) );
    TestLog::expect( "WARNING: Assertion failed. (fp)" );
    other.reset( );
}
TEST_F( GInstanceTest, TestAndCalc )
{
    for( const char16_t* text : { u"TRUE", u"1", u"5" } )
    {
        instance( ).set( u"a", text );
        EXPECT_TRUE( instance( ).test( u"A" ) ) << GWideToUTF8( text );
    }
    for( const char16_t* text : { u"", u"yes", u"0", u"-3" } )
    {
        instance( ).set( u"a", text );
        EXPECT_FALSE( instance( ).test( u"A" ) ) << GWideToUTF8( text );
    }
    EXPECT_EQ( instance( ).calc( u"a" ), -3 );
    EXPECT_EQ( instance( ).calc( u"none" ), 0 );
    EXPECT_FALSE( instance( ).test( u"none" ) );
    instance( ).set( u"n", int64_t( 1 ) << 40 );
    EXPECT_EQ( instance( ).get( u"n" ), u"1099511627776" );
}
TEST_F( GInstanceTest, ListsSplitAndJoin )
{
    GStringList list;
    GStringVector vector;
    EXPECT_FALSE( instance( ).get( u"l", list ) );
    instance( ).set( u"l", u" a\tb\n,c; ;d " );
    EXPECT_TRUE( instance( ).get( u"l", list ) );
    EXPECT_TRUE( instance( ).get( u"l", vector ) );
    EXPECT_EQ( list, ( GStringList{ u"a", u"b", u"c", u"d" } ) );
    EXPECT_EQ( vector, ( GStringVector{ u"a", u"b", u"c", u"d" } ) );
    EXPECT_TRUE( instance( ).contains( u"l", u"c" ) );
    EXPECT_FALSE( instance( ).contains( u"l", u"C" ) );
    instance( ).set( u"l", GStringList{ u"x", u"y" } );
    EXPECT_EQ( instance( ).get( u"l" ), u"x, y" );
}
TEST_F( GInstanceTest, InsertAndRemoveLeaveTheValueUnsaved )
{
    instance( ).set( u"l", u"a", true );
    instance( ).insert( u"l", u"b" );
    instance( ).insert( u"l", u"a" );
    EXPECT_EQ( instance( ).get( u"l" ), u"a, b" );
    instance( ).save( );
    EXPECT_EQ( read( ), "\n" );
    instance( ).set( u"l", u"a, b, a", true );
    instance( ).remove( u"l", u"a" );
    EXPECT_EQ( instance( ).get( u"l" ), u"b" );
    instance( ).save( );
    EXPECT_EQ( read( ), "\n" );
}
TEST_F( GInstanceTest, OpenGivesTheBytesInPlace )
{
    Listener listener;
    const GNotifyHandle notify = GNotifyOpen( &listener );
    instance( ).watch( u"a", notify, 1 );
    instance( ).open( u"A" ) = "bytes";
    now_ = 3000;
    instance( ).close( u"A", false );
    pump( );
    EXPECT_TRUE( listener.kinds.empty( ) );
    EXPECT_EQ( instance( ).getTimestamp( u"a" ), 3000u );
    instance( ).open( u"A" );
    instance( ).close( u"A", true );
    pump( );
    EXPECT_EQ( listener.kinds.size( ), 1u );
    EXPECT_EQ( instance( ).getRaw( u"a" ), "bytes" );
    instance( ).open( u"A" );
    instance( ).clear( u"A" );
    TestLog::expect( "WARNING: Assertion failed. (GMAPCONTAINS( _nameValueMap, lname ))" );
    instance( ).close( u"A", false );
    bool locked = false;
    std::thread( [&]( ) { locked = instance( ).isSet( u"a" ); } ).join( );
    EXPECT_FALSE( locked );
    instance( ).unwatch( u"a", notify, 1 );
    GNotifyClose( notify );
}
TEST_F( GInstanceTest, ClearWithAStarTellsItsOwnWatchersOnly )
{
    Listener one;
    Listener all;
    const GNotifyHandle oneNotify = GNotifyOpen( &one );
    const GNotifyHandle allNotify = GNotifyOpen( &all );
    for( const char16_t* name : { u"buddy_a", u"Buddy_B", u"buddy", u"buddz_c" } ) instance( ).set( name, u"1" );
    instance( ).watch( u"buddy_a", oneNotify, 1 );
    instance( ).watch( u"buddy_*", allNotify, 2 );
    instance( ).clear( u"Buddy_*" );
    pump( );
    EXPECT_TRUE( one.kinds.empty( ) );
    EXPECT_EQ( all.kinds, std::vector<int>{ 2 } );
    EXPECT_FALSE( instance( ).isSet( u"buddy_a" ) );
    EXPECT_FALSE( instance( ).isSet( u"buddy_b" ) );
    EXPECT_TRUE( instance( ).isSet( u"buddy" ) );
    EXPECT_TRUE( instance( ).isSet( u"buddz_c" ) );
    instance( ).clear( u"BUDDY" );
    EXPECT_FALSE( instance( ).isSet( u"buddy" ) );
    instance( ).clear( u"buddy" );
    instance( ).unwatch( u"buddy_a", oneNotify, 1 );
    instance( ).unwatch( u"buddy_*", allNotify, 2 );
    GNotifyClose( oneNotify );
    GNotifyClose( allNotify );
}
TEST_F( GInstanceTest, QueuesAreFirstInFirstOut )
{
    Listener listener;
    const GNotifyHandle notify = GNotifyOpen( &listener );
    instance( ).watch( u"x", notify, 1 );
    GString out;
    EXPECT_FALSE( instance( ).dequeue( u"X", out ) );
    instance( ).enqueue( u"X", GString( "one" ) );
    instance( ).enqueue( u"x", GHTTPHeaders( u"TWO" ) );
    EXPECT_EQ( instance( ).length( u"X" ), 2 );
    EXPECT_FALSE( instance( ).isSet( u"x" ) );
    EXPECT_TRUE( instance( ).index( u"x", 1, out ) );
    EXPECT_EQ( out, "TWO / HTTP/1.1\r\n\r\n" );
    EXPECT_FALSE( instance( ).index( u"x", -1, out ) );
    EXPECT_FALSE( instance( ).index( u"x", 2, out ) );
    EXPECT_FALSE( instance( ).index( u"none", 0, out ) );
    EXPECT_TRUE( instance( ).dequeue( u"x", out ) );
    EXPECT_EQ( out, "one" );
    EXPECT_TRUE( instance( ).dequeue( u"x", out ) );
    EXPECT_FALSE( instance( ).dequeue( u"x", out ) );
    EXPECT_EQ( instance( ).length( u"x" ), 0 );
    pump( );
    EXPECT_EQ( listener.kinds.size( ), 4u );
    instance( ).unwatch( u"x", notify, 1 );
    GNotifyClose( notify );
}
TEST_F( GInstanceTest, QueueWakesWhoeverServesIt )
{
    const GEvent event = GEventOpen( );
    instance( ).setWaker( u"Q", event );
    instance( ).enqueue( u"other", GString( "x" ) );
    EXPECT_FALSE( GEventWait( event, 0 ) );
    instance( ).enqueue( u"q", GString( "x" ) );
    EXPECT_TRUE( GEventWait( event, 0 ) );
    GString out;
    instance( ).dequeue( u"q", out );
    EXPECT_FALSE( GEventWait( event, 0 ) );
    instance( ).setWaker( u"q", nullptr );
    instance( ).enqueue( u"q", GString( "x" ) );
    EXPECT_FALSE( GEventWait( event, 0 ) );
    GEventClose( event );
}
TEST_F( GInstanceTest, QueueOfNobodyIsBounded )
{
    TestLog::expect( "WARNING Queue 'q' is full, dropping its oldest item, ignoring." );
    for( int i = 0; i < 65537; ++i ) instance( ).enqueue( u"q", std::to_string( i ) );
    GString out;
    EXPECT_EQ( instance( ).length( u"q" ), 65536 );
    EXPECT_TRUE( instance( ).dequeue( u"q", out ) );
    EXPECT_EQ( out, "1" );
}
TEST_F( GInstanceTest, EmptyNamesWarnAndDoNothing )
{
    TestLog::expect( "WARNING: Assertion failed. (!name.empty( ))" );
    GString out;
    EXPECT_EQ( instance( ).get( u"" ), u"" );
    EXPECT_FALSE( instance( ).contains( u"", u"a" ) );
    instance( ).enqueue( u"", GString( "a" ) );
    EXPECT_FALSE( instance( ).dequeue( u"", out ) );
    instance( ).insert( u"", u"a" );
    instance( ).remove( u"", u"a" );
    EXPECT_EQ( instance( ).length( u"" ), 0 );
    EXPECT_EQ( TestLog::count( "(!name.empty( ))" ), 6 );
}
TEST_F( GInstanceTest, DumpMasksPasswordsAndPassesEmptyValuesOver )
{
    instance( ).set( u"Local_Password", u"secret" );
    instance( ).set( u"a", u"1" );
    instance( ).set( u"b", u"1" );
    instance( ).set( u"b", u"" );
    instance( ).logDump( );
    EXPECT_EQ( TestLog::lines( ),
               ( std::vector<std::string>{ "SETTINGS: a: 1\n", "SETTINGS: local_password: ********\n" } ) );
}
TEST_F( GInstanceTest, ManyThreadsShareIt )
{
    std::vector<std::thread> threads;
    for( int i = 0; i < 4; ++i )
        threads.emplace_back(
            [&, i]( )
            {
                for( int n = 0; n < 500; ++n )
                {
                    instance( ).set( u"v", n + i );
                    instance( ).enqueue( u"q", std::to_string( n ) );
                    instance( ).calc( u"v" );
                }
            } );
    for( std::thread& thread : threads ) thread.join( );
    EXPECT_EQ( instance( ).length( u"q" ), 2000 );
}
TEST_F( GInstanceDeathTest, BrokenArgumentsAbort )
{
    EXPECT_DEATH( GSAFENEW( GInstance, ( u"" ) ), "filename.size\\( \\)" );
    EXPECT_DEATH( instance( ).clear( u"*" ), "!base.empty\\( \\)" );
    EXPECT_DEATH( instance( ).watch( u"a", nullptr, 1 ), "ERROR: Precondition failed, aborting. \\(notify\\)" );
}
