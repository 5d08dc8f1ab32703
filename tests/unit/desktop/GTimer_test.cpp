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
        if( closeAt == ticks ) GTimerClose( timer );
    }
    GTimer last = nullptr;
    int ticks = 0;
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

TEST_F( GTimerTest, PeriodAndListenerAreRequired )
{
    Listener listener;
    EXPECT_DEATH( GTimerOpen( 0, &listener ), "microseconds > 0" );
    EXPECT_DEATH( GTimerOpen( 1000, nullptr ), "listener" );
    EXPECT_DEATH( GTimerClose( nullptr ), "timer" );
}
