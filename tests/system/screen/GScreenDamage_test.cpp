// Captures that follow what is drawn, on a real desktop and on servers of their own.
#include "support/CountAllocations.h"
#include "system/screen/ScreenFixture.h"

#include <chrono>
#include <future>
#include <thread>

namespace
{
class GScreenDamage : public ScreenFixture
{
protected:
    static constexpr int64_t SECOND = 1000000;

    bool ask( ) { return GScreenGetDamage( screen, rects ); }
    // Asks until nothing is told any more, so that a test begins on a quiet desktop.
    void awaitQuiet( )
    {
        EXPECT_TRUE(
            awaitUntil( [&] { return ask( ) && rects.empty( ) && !GScreenWaitForDamage( screen, SECOND / 10 ); } ) );
    }
    // Asks until `wanted` has been told, and gathers all that was.
    bool awaitTold( const GRect& wanted )
    {
        GRect around = GRectAccumulator( );
        told.clear( );
        return awaitUntil(
            [&]
            {
                if( !ask( ) ) return false;
                for( const GRect& rect : rects ) around = GRectUnion( around, rect );
                told.insert( told.end( ), rects.begin( ), rects.end( ) );
                return GRectContains( around, wanted );
            } );
    }
    bool isTold( int x, int y ) const
    {
        for( const GRect& rect : told )
            if( rect.contains( x, y ) ) return true;
        return false;
    }

    std::vector<GRect> rects;
    std::vector<GRect> told;
};

TEST_F( GScreenDamage, FirstAskGivesTheWholeDesktopAndTheNextNothing )
{
    const TestServer server( "320x240x24" );
    ASSERT_TRUE( ask( ) );
    EXPECT_EQ( ( std::vector<GRect>{ { 0, 0, 320, 240 } } ), rects );
    ASSERT_TRUE( ask( ) );
    EXPECT_TRUE( rects.empty( ) );
}

TEST_F( GScreenDamage, WhatIsDrawnIsTold )
{
    awaitQuiet( );
    TestWindows windows;
    windows.openMenu( { 100, 200, 140, 230 }, 0xE0A040 );
    EXPECT_TRUE( awaitTold( { 100, 200, 140, 230 } ) );
    // A compositor draws more: shadows, or all there is.
    EXPECT_TRUE( isComposited( ) || told == ( std::vector<GRect>{ { 100, 200, 140, 230 } } ) );
    awaitQuiet( );
    EXPECT_TRUE( rects.empty( ) );
}

TEST_F( GScreenDamage, PlacesFarApartStayApart )
{
    awaitQuiet( );
    TestWindows windows;
    windows.openMenu( { 10, 10, 30, 30 }, 0xE0A040 );
    windows.openMenu( { 1200, 700, 1220, 720 }, 0xE0A040 );
    EXPECT_TRUE( awaitTold( { 10, 10, 1220, 720 } ) );
    EXPECT_TRUE( isTold( 20, 20 ) );
    EXPECT_TRUE( isTold( 1210, 710 ) );
    EXPECT_TRUE( isComposited( ) || !isTold( 600, 400 ) );
}

TEST_F( GScreenDamage, CapturesThatFollowItKeepThePictureCurrent )
{
    TestWindows windows;
    GScreen whole = GScreenOpen( );
    GImageFormat wholeFormat;
    ASSERT_TRUE( capture( ) );
    std::vector<xcb_window_t> open;
    for( int i = 0; i < 40; ++i )
    {
        const int x = i * 97 % 1200;
        const int y = i * 61 % 700;
        open.push_back(
            windows.openMenu( { x, y, x + 20 + i, y + 90 - i }, 0x102030U * static_cast<uint32_t>( i % 7 + 1 ) ) );
        if( i % 3 == 2 ) windows.close( open[static_cast<size_t>( i / 2 )] );
        ASSERT_TRUE( ask( ) );
        for( const GRect& rect : rects ) ASSERT_TRUE( capture( rect ) );
    }
    windows.sync( );
    // A compositor draws when it gets round to it.
    EXPECT_TRUE( awaitUntil(
        [&]
        {
            if( !ask( ) ) return false;
            for( const GRect& rect : rects ) capture( rect );
            const char* current = GScreenCapture( whole, WHOLE, wholeFormat );
            return current && std::memcmp( current, buffer, static_cast<size_t>( format.width ) * 4 * 800 ) == 0;
        } ) );
    GScreenClose( whole );
}

TEST_F( GScreenDamage, CapturesAndLayoutsInBetweenLoseNothing )
{
    awaitQuiet( );
    TestWindows windows;
    windows.openMenu( { 100, 200, 140, 230 }, 0xE0A040 );
    for( int i = 0; i < 5; ++i )
    {
        ASSERT_TRUE( capture( ) );
        getLayout( );
    }
    EXPECT_TRUE( awaitTold( { 100, 200, 140, 230 } ) );
}

TEST_F( GScreenDamage, RectanglesAreApartAndWithinTheDesktop )
{
    awaitQuiet( );
    TestWindows windows;
    windows.openMenu( { -30, -20, 60, 70 }, 0xE0A040 );
    windows.openMenu( { 40, 30, 90, 170 }, 0x40A0E0 );
    windows.openMenu( { 1270, 790, 1400, 900 }, 0x40A0E0 );
    ASSERT_TRUE( awaitUntil( [&] { return ask( ) && !rects.empty( ); } ) );
    for( auto a = rects.begin( ); a != rects.end( ); ++a )
    {
        EXPECT_TRUE( GRectWithin( *a, 1280, 800 ) && GRectHasVolume( *a ) );
        for( auto b = std::next( a ); b != rects.end( ); ++b ) EXPECT_TRUE( GRectEmpty( GRectIntersect( *a, *b ) ) );
    }
}

TEST_F( GScreenDamage, CountOfRectanglesIsBounded )
{
    const TestServer server( "640x480x24" );
    TestWindows windows;
    ASSERT_TRUE( ask( ) );
    for( int i = 0; i < 400; ++i )
    {
        const int x = i % 20 * 30;
        const int y = i / 20 * 20;
        windows.openMenu( { x, y, x + 5, y + 5 }, 0xE0A040 );
    }
    ASSERT_TRUE( ask( ) );
    EXPECT_EQ( ( std::vector<GRect>{ { 0, 0, 575, 385 } } ), rects );
}

TEST_F( GScreenDamage, AskingAllocatesNothingInTheSteadyState )
{
    const TestServer server( "320x240x24" );
    TestWindows windows;
    ASSERT_TRUE( ask( ) );
    rects.reserve( 256 );
    EXPECT_EQ( 0, countAllocations( [&] { ask( ); } ) );
    windows.setRootColour( 0x123456 );
    EXPECT_EQ( 0, countAllocations( [&] { ask( ); } ) );
    EXPECT_EQ( ( std::vector<GRect>{ { 0, 0, 320, 240 } } ), rects );
}

TEST_F( GScreenDamage, ANewSizeGivesTheWholeDesktop )
{
    const TestServer server( "640x480x24" );
    ASSERT_TRUE( ask( ) );
    ASSERT_TRUE( ask( ) );
    ASSERT_EQ( 0, std::system( "xrandr --output screen --off --fb 500x300" ) );
    EXPECT_TRUE( GScreenWaitForDamage( screen, 10 * SECOND ) );
    ASSERT_TRUE( ask( ) );
    EXPECT_EQ( ( std::vector<GRect>{ { 0, 0, 500, 300 } } ), rects );
}

TEST_F( GScreenDamage, ANewServerGivesTheWholeDesktop )
{
    TestServer server( "640x480x24" );
    ASSERT_TRUE( ask( ) );
    ASSERT_TRUE( ask( ) );
    server.kill( );
    rects = { { 1, 2, 3, 4 } };
    EXPECT_FALSE( ask( ) );
    EXPECT_TRUE( rects.empty( ) );
    server.restart( "320x240x16" );
    ASSERT_TRUE( ask( ) );
    EXPECT_EQ( ( std::vector<GRect>{ { 0, 0, 320, 240 } } ), rects );
    // Also when a capture has found the new server first.
    server.restart( "300x200x24" );
    ASSERT_TRUE( capture( ) );
    ASSERT_TRUE( ask( ) );
    EXPECT_EQ( ( std::vector<GRect>{ { 0, 0, 300, 200 } } ), rects );
}

TEST_F( GScreenDamage, AServerWithoutAnAccountIsToldApart )
{
    const TestServer server( "320x240x24", { "-extension", "DAMAGE", "-extension", "Composite" } );
    rects = { { 1, 2, 3, 4 } };
    EXPECT_FALSE( ask( ) );
    EXPECT_TRUE( rects.empty( ) );
    EXPECT_FALSE( GScreenWaitForDamage( screen, 1000 ) );
    EXPECT_TRUE( capture( ) );
}

TEST_F( GScreenDamage, WaitingEndsWhenSomethingIsDrawn )
{
    awaitQuiet( );
    std::promise<void> seen;
    std::thread other(
        [&seen]
        {
            TestWindows windows;
            windows.openMenu( { 100, 200, 140, 230 }, 0xE0A040 );
            seen.get_future( ).wait( );
        } );
    EXPECT_TRUE( GScreenWaitForDamage( screen, 10 * SECOND ) );
    // Until it is asked for, there is something.
    EXPECT_TRUE( GScreenWaitForDamage( screen, 0 ) );
    EXPECT_TRUE( awaitTold( { 100, 200, 140, 230 } ) );
    seen.set_value( );
    other.join( );
}

TEST_F( GScreenDamage, WaitingEndsWithItsTime )
{
    const TestServer server( "320x240x24" );
    ASSERT_TRUE( ask( ) );
    const auto begin = std::chrono::steady_clock::now( );
    EXPECT_FALSE( GScreenWaitForDamage( screen, 30000 ) );
    EXPECT_LE( std::chrono::milliseconds( 30 ), std::chrono::steady_clock::now( ) - begin );
    EXPECT_FALSE( GScreenWaitForDamage( screen, 0 ) );
    EXPECT_FALSE( GScreenWaitForDamage( screen, -5 ) );
}

TEST_F( GScreenDamage, WaitingEndsWithTheServerAndDoesNotSpinWithoutIt )
{
    TestServer server( "320x240x24" );
    ASSERT_TRUE( ask( ) );
    ASSERT_FALSE( GScreenWaitForDamage( screen, 0 ) );
    server.kill( );
    EXPECT_TRUE( GScreenWaitForDamage( screen, 10 * SECOND ) );
    EXPECT_FALSE( ask( ) );
    const auto begin = std::chrono::steady_clock::now( );
    EXPECT_FALSE( GScreenWaitForDamage( screen, 20000 ) );
    EXPECT_LE( std::chrono::milliseconds( 20 ), std::chrono::steady_clock::now( ) - begin );
    server.restart( "320x240x24" );
    EXPECT_TRUE( GScreenWaitForDamage( screen, 0 ) );
    EXPECT_TRUE( ask( ) );
}
} // namespace
