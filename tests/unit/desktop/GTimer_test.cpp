#include "platform/GTimer.h"

#include "base/GPortable.h"
#include "unit/desktop/DesktopFixture.h"

namespace
{
class Listener : public IGTimerListener
{
public:
    void onTimer( GTimer timer ) override
    {
        last = timer;
        ++ticks;
        if( restAt == ticks ) GTimerSetPeriod( timer, 0 );
        if( closeAt == ticks ) GTimerClose( timer );
    }
    GTimer last = nullptr;
    int ticks = 0;
    int restAt = 0;
    int closeAt = 0;
};
using GTimerTest = DesktopFixture;
} // namespace

TEST_F( GTimerTest, RepeatsWithItsOwnHandle )
{
    Listener listener;
    GTimer timer = GTimerOpen( 1000, &listener );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.ticks >= 3; } ) );
    EXPECT_EQ( timer, listener.last );
    GTimerClose( timer );
}

TEST_F( GTimerTest, MayBeClosedByItsOwnTick )
{
    Listener listener;
    Listener other;
    listener.closeAt = 2;
    GTimerOpen( 1000, &listener );
    GTimer timer = GTimerOpen( 1000, &other );
    EXPECT_TRUE( pumpUntil( [&]( ) { return other.ticks >= 6; } ) );
    EXPECT_EQ( 2, listener.ticks );
    GTimerClose( timer );
}

TEST_F( GTimerTest, IsQuietWhileShuttingDown )
{
    Listener listener;
    GTimer timer = GTimerOpen( 1000, &listener );
    GSetShuttingDown( true );
    int rounds = 0;
    QTimer counter;
    QObject::connect( &counter, &QTimer::timeout, [&]( ) { ++rounds; } );
    counter.start( 2 );
    EXPECT_TRUE( pumpUntil( [&]( ) { return rounds >= 5; } ) );
    EXPECT_EQ( 0, listener.ticks );
    GSetShuttingDown( false );
    GTimerClose( timer );
}

TEST_F( GTimerTest, RestsAndRunsAgainAndKeepsItsPaceWhenAskedForTheSame )
{
    Listener listener;
    Listener other;
    GTimer timer = GTimerOpen( 1000, &listener );
    GTimer clock = GTimerOpen( 1000, &other );
    GTimerSetPeriod( timer, 0 );
    EXPECT_EQ( GTimerGetPeriod( timer ), 0 );
    EXPECT_TRUE( pumpUntil( [&]( ) { return other.ticks >= 5; } ) );
    EXPECT_EQ( listener.ticks, 0 );
    GTimerSetPeriod( timer, 2000 );
    EXPECT_EQ( GTimerGetPeriod( timer ), 2000 );
    // A period that were begun anew each time would never pass.
    EXPECT_TRUE( pumpUntil(
        [&]( )
        {
            GTimerSetPeriod( timer, 2000 );
            return listener.ticks >= 2;
        } ) );
    EXPECT_DEATH( GTimerSetPeriod( timer, -1 ), "microseconds >= 0" );
    GTimerSetPeriod( timer, 0 );
    GTimerClose( timer );
    GTimerClose( clock );
}

TEST_F( GTimerTest, MayRestFromWithinItsOwnTick )
{
    Listener listener;
    Listener other;
    listener.restAt = 1;
    GTimer timer = GTimerOpen( 1000, &listener );
    GTimer clock = GTimerOpen( 1000, &other );
    EXPECT_TRUE( pumpUntil( [&]( ) { return other.ticks >= 5; } ) );
    EXPECT_EQ( listener.ticks, 1 );
    GTimerClose( timer );
    GTimerClose( clock );
}

TEST_F( GTimerTest, PeriodAndListenerAreRequired )
{
    Listener listener;
    EXPECT_DEATH( GTimerOpen( 0, &listener ), "microseconds > 0" );
    EXPECT_DEATH( GTimerOpen( 1000, nullptr ), "listener" );
    EXPECT_DEATH( GTimerClose( nullptr ), "timer" );
}
