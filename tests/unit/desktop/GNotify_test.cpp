#include "platform/GNotify.h"

#include "base/GPortable.h"
#include "platform/GTime.h"
#include "unit/desktop/DesktopFixture.h"

#include <thread>
#include <utility>

namespace
{
class Listener : public IGNotifyListener
{
public:
    void onNotification( int kind, uint64_t time ) override
    {
        seen.emplace_back( kind, time );
        thread = std::this_thread::get_id( );
    }
    std::vector<std::pair<int, uint64_t>> seen;
    std::thread::id thread;
};
class GNotifyTest : public DesktopFixture
{
protected:
    void TearDown( ) override { GTimeSetSource( nullptr ); }
};
uint64_t fixedTime( )
{
    return 123456789;
}
} // namespace

TEST_F( GNotifyTest, ArrivesInTheMessageLoopWithKindAndStamp )
{
    Listener listener;
    GNotifyHandle notify = GNotifyOpen( &listener );
    GTimeSetSource( fixedTime );
    GNotify( notify, 2 );
    EXPECT_TRUE( listener.seen.empty( ) );
    GTimeSetSource( nullptr );
    pumpAll( );
    ASSERT_EQ( 1u, listener.seen.size( ) );
    EXPECT_EQ( 2, listener.seen[0].first );
    EXPECT_EQ( fixedTime( ), listener.seen[0].second );
    GNotifyClose( notify );
}

TEST_F( GNotifyTest, ComesFromAnyThreadToTheUserInterfaceThread )
{
    Listener listener;
    GNotifyHandle notify = GNotifyOpen( &listener );
    std::thread a(
        [&]( )
        {
            for( int i = 0; i < 100; ++i ) GNotify( notify, 1 );
        } );
    std::thread b(
        [&]( )
        {
            for( int i = 0; i < 100; ++i ) GNotify( notify, 2 );
        } );
    a.join( );
    b.join( );
    pumpAll( );
    EXPECT_EQ( 200u, listener.seen.size( ) );
    EXPECT_EQ( std::this_thread::get_id( ), listener.thread );
    GNotifyClose( notify );
}

TEST_F( GNotifyTest, ClosedHandleDropsWhatIsOnItsWay )
{
    Listener listener;
    GNotifyHandle notify = GNotifyOpen( &listener );
    GNotify( notify, 1 );
    GNotifyClose( notify );
    GNotifyHandle next = GNotifyOpen( &listener ); // May well lie at the same address.
    pumpAll( );
    EXPECT_TRUE( listener.seen.empty( ) );
    GNotifyClose( next );
}

TEST_F( GNotifyTest, DoesNothingDuringShutdown )
{
    Listener listener;
    GNotifyHandle notify = GNotifyOpen( &listener );
    GSetShuttingDown( true );
    GNotify( notify, 1 );
    GSetShuttingDown( false );
    pumpAll( );
    EXPECT_TRUE( listener.seen.empty( ) );
    GNotifyClose( notify );
}

TEST_F( GNotifyTest, NullHandlesAbort )
{
    EXPECT_DEATH( GNotifyOpen( nullptr ), "listener" );
    EXPECT_DEATH( GNotifyClose( nullptr ), "notify" );
    EXPECT_DEATH( GNotify( nullptr, 1 ), "notify" );
}
