#include "platform/GTimer.h"

#include "platform/GTime.h"
#include "platform/GWin.h"
#include "runtime/GIntervalTimer.h"

#include <gtest/gtest.h>

namespace
{
uint64_t now_ = 0;

class GTimerTest : public testing::Test
{
protected:
    void SetUp( ) override
    {
        now_ = 1000000;
        GTimeSetSource( []( ) { return now_; } );
    }
    void TearDown( ) override { GTimeSetSource( nullptr ); }
    static void pump( )
    {
        bool quit = false;
        EXPECT_TRUE( GWinUpdate( quit ) );
    }
};
struct Ticks : IGTimerListener
{
    void onTimer( GTimer timer ) override
    {
        ++count;
        if( victim && victim != timer )
        {
            GTimerClose( victim );
            victim = nullptr;
        }
    }
    int count = 0;
    GTimer victim = nullptr;
};
} // namespace

TEST_F( GTimerTest, TicksOnceAPeriodOfTheClock )
{
    Ticks ticks;
    const GTimer timer = GTimerOpen( 100000, &ticks );
    pump( );
    EXPECT_EQ( ticks.count, 0 );
    now_ += 100000;
    pump( );
    pump( );
    EXPECT_EQ( ticks.count, 1 );
    now_ += 500000;
    pump( );
    EXPECT_EQ( ticks.count, 2 );
    GTimerClose( timer );
    now_ += 500000;
    pump( );
    EXPECT_EQ( ticks.count, 2 );
}
TEST_F( GTimerTest, TimerClosedByAnotherTickIsNotCalled )
{
    Ticks first;
    Ticks second;
    const GTimer timer = GTimerOpen( 1000, &first );
    first.victim = GTimerOpen( 1000, &second );
    now_ += 1000;
    pump( );
    EXPECT_EQ( first.count, 1 );
    EXPECT_EQ( second.count, 0 );
    GTimerClose( timer );
}
TEST_F( GTimerTest, QuitMessageEndsThePumpWithItsParameter )
{
    bool quit = false;
    GWinPostQuit( 1 );
    EXPECT_FALSE( GWinUpdate( quit ) );
    EXPECT_TRUE( quit );
    GWinPostQuit( 0 );
    EXPECT_FALSE( GWinUpdate( quit ) );
    EXPECT_FALSE( quit );
}
TEST_F( GTimerTest, IntervalElapsesAtOnceThenOnceAPeriod )
{
    GIntervalTimer timer( 100 );
    EXPECT_TRUE( timer.hasElapsed( ) );
    EXPECT_FALSE( timer.hasElapsed( ) );
    now_ += 100;
    EXPECT_FALSE( timer.isOver( ) );
    now_ += 1;
    EXPECT_TRUE( timer.isOver( ) );
    EXPECT_TRUE( timer.hasElapsed( ) );
    EXPECT_FALSE( timer.hasElapsed( ) );
    EXPECT_EQ( timer.getRemaining( ), 100 );
    timer.expire( );
    EXPECT_TRUE( timer.hasElapsed( ) );
    timer.start( 50 );
    now_ += 51;
    EXPECT_EQ( timer.getElapsed( ), 51 );
    EXPECT_TRUE( timer.hasElapsed( ) );
}
TEST( GTimerDeathTest, BrokenArgumentsAbort )
{
    Ticks ticks;
    EXPECT_DEATH( GTimerOpen( 0, &ticks ), "microseconds > 0" );
    EXPECT_DEATH( GTimerOpen( 1, nullptr ), "listener" );
}
TEST( GTime, EpochIsSixteenHundredAndOne )
{
    const GTimeFields fields = GTimeSplitUTC( 13000000000ULL * 1000000 );
    EXPECT_EQ( fields.year, 2012 );
    EXPECT_EQ( fields.month, 12 );
    EXPECT_EQ( fields.day, 14 );
    EXPECT_EQ( fields.hour, 23 );
    EXPECT_EQ( fields.minute, 6 );
    EXPECT_EQ( fields.second, 40 );
}
