#include "client/app/GSettingsKeeper.h"

#include "base/GUtil.h"
#include "runtime/GInstance.h"
#include "support/TestClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace
{
constexpr char16_t FILE_NAME[] = u"test_settings_keeper.ini";

// Outlives the blackboard, which saves once more at its end.
struct FreshFile
{
    FreshFile( ) { GFileDelete( FILE_NAME ); }
    ~FreshFile( ) { GFileDelete( FILE_NAME ); }
};

class SettingsKeeper : public testing::Test
{
protected:
    SettingsKeeper( ) { keeper.start( u"test.GSettingsKeeper" ); }
    ~SettingsKeeper( ) override { keeper.stop( true ); }
    // So much time in ticks of a tenth of a second.
    void pass( int64_t seconds )
    {
        for( int64_t i = 0; i < seconds * 10; ++i )
        {
            clock.advance( 100000 );
            keeper.update( );
        }
    }
    static GString read( )
    {
        GString text;
        GFileLoad( FILE_NAME, text );
        return text;
    }
    static bool reads( const char* line )
    {
        const auto deadline = std::chrono::steady_clock::now( ) + std::chrono::seconds( 10 );
        while( read( ).find( line ) == GString::npos )
        {
            if( std::chrono::steady_clock::now( ) > deadline ) return false;
            std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
        }
        return true;
    }

    FreshFile file;
    TestClock clock;
    GInstance instance{ FILE_NAME };
    GSettingsKeeper keeper{ &instance };
};
} // namespace

TEST_F( SettingsKeeper, WritesOnceWhatHasRestedForTwoSeconds )
{
    instance.set( u"Buddy_List_Left", 40, true );
    pass( 1 );
    EXPECT_EQ( 0, keeper.getAsked( ) );
    instance.set( u"Buddy_List_Left", 41, true );
    pass( 1 );
    EXPECT_EQ( 0, keeper.getAsked( ) );
    pass( 2 );
    EXPECT_EQ( 1, keeper.getAsked( ) );
    EXPECT_TRUE( reads( "buddy_list_left: 41" ) );
    pass( 100 );
    EXPECT_EQ( 1, keeper.getAsked( ) );
}

TEST_F( SettingsKeeper, WritesWhatIsNoSettingAnyMore )
{
    instance.set( u"bob@x_Hotkey", u"F5", true );
    pass( 3 );
    ASSERT_TRUE( reads( "bob@x_hotkey: F5" ) );
    instance.clear( u"bob@x_Hotkey" );
    instance.set( u"Other", 1, true );
    pass( 3 );
    EXPECT_EQ( 2, keeper.getAsked( ) );
    EXPECT_TRUE( reads( "other: 1" ) );
    EXPECT_EQ( GString::npos, read( ).find( "bob" ) );
}

TEST_F( SettingsKeeper, LetsValuesThatAreNotKeptPass )
{
    instance.set( u"Client_Status", u"Online" );
    pass( 10 );
    instance.set( u"Client_Status", u"Offline" );
    instance.clear( u"Client_Status" );
    pass( 10 );
    EXPECT_EQ( 0, keeper.getAsked( ) );
}
