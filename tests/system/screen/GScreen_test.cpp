// Pictures of a real desktop with a window manager, with a compositor and without. Run by way of with-desktop.
#include "support/CountAllocations.h"
#include "system/screen/ScreenFixture.h"

#include <thread>

namespace
{
class GScreenTest : public ScreenFixture
{
};
// What blends only with a compositor.
class GScreenComposited : public ScreenFixture
{
};
class GScreenPointer : public testing::Test
{
};

TEST_F( GScreenTest, WholeDesktopIsCaptured )
{
    setDesktopColour( "#336699" );
    ASSERT_TRUE( awaitColour( 5, 5, 0x336699 ) );
    EXPECT_EQ( ( GImageFormat{ GIT_BGRA32, 1280, 800 } ), format );
    int others = 0;
    for( int y = 0; y < format.height; ++y )
        for( int x = 0; x < format.width; ++x ) others += rawAt( x, y ) != 0xFF336699;
    EXPECT_EQ( 0, others );
}

TEST_F( GScreenTest, WindowsAreInThePicture )
{
    setDesktopColour( "#102030" );
    TestWindows windows;
    windows.openMenu( { 100, 200, 400, 500 }, 0xE0A040 );
    ASSERT_TRUE( awaitColour( 250, 350, 0xE0A040 ) );
    ASSERT_TRUE( awaitColour( 1000, 100, 0x102030 ) );
    EXPECT_EQ( 0xFFE0A040, rawAt( 100, 200 ) );
    EXPECT_EQ( 0xFFE0A040, rawAt( 399, 499 ) );
    // A compositor draws a shadow there.
    EXPECT_TRUE( isComposited( ) || rawAt( 99, 200 ) == 0xFF102030 );
}

TEST_F( GScreenComposited, LayeredWindowsAreInThePicture )
{
    setDesktopColour( "#336699" );
    ASSERT_TRUE( awaitColour( 700, 600, 0x336699 ) );
    TestWindows windows;
    windows.openLayered( { 600, 500, 800, 700 }, 0x80800000 );
    EXPECT_TRUE( awaitColour( 700, 600, 0x99334C ) );
    EXPECT_EQ( 0xFFU, rawAt( 700, 600 ) >> 24 );
}

TEST_F( GScreenTest, PartialCaptureKeepsTheRest )
{
    setDesktopColour( "#4A5B6C" );
    ASSERT_TRUE( awaitColour( 640, 400, 0x4A5B6C ) );
    setDesktopColour( "#AABBCC" );
    ASSERT_TRUE( awaitUntil( [&] { return capture( { 600, 300, 700, 450 } ) && colourAt( 640, 400 ) == 0xAABBCC; } ) );
    EXPECT_EQ( 0xFFAABBCC, rawAt( 600, 300 ) );
    EXPECT_EQ( 0xFFAABBCC, rawAt( 699, 449 ) );
    EXPECT_EQ( 0xFF4A5B6C, rawAt( 599, 300 ) );
    EXPECT_EQ( 0xFF4A5B6C, rawAt( 600, 299 ) );
    EXPECT_EQ( 0xFF4A5B6C, rawAt( 700, 449 ) );
    EXPECT_EQ( 0xFF4A5B6C, rawAt( 699, 450 ) );
    // A band of whole rows has a road of its own.
    ASSERT_TRUE( capture( { -10, 500, 5000, 510 } ) );
    EXPECT_EQ( 0xFFAABBCC, rawAt( 0, 500 ) );
    EXPECT_EQ( 0xFFAABBCC, rawAt( 1279, 509 ) );
    EXPECT_EQ( 0xFF4A5B6C, rawAt( 1279, 499 ) );
    EXPECT_EQ( 0xFF4A5B6C, rawAt( 0, 510 ) );
}

TEST_F( GScreenTest, RectanglesAreClippedToTheDesktop )
{
    setDesktopColour( "#445566" );
    ASSERT_TRUE( awaitColour( 1279, 799, 0x445566 ) );
    const char* before = buffer;
    EXPECT_TRUE( capture( { -500, -500, 10, 10 } ) );
    EXPECT_TRUE( capture( { 1270, 790, 9000, 9000 } ) );
    EXPECT_TRUE( capture( { 5000, 5000, 6000, 6000 } ) );
    EXPECT_TRUE( capture( { 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF } ) );
    EXPECT_TRUE( capture( { -2147483647 - 1, -2147483647 - 1, 0x7FFFFFFF, 0x7FFFFFFF } ) );
    EXPECT_TRUE( capture( { 7, 7, 7, 7 } ) );
    EXPECT_EQ( before, buffer );
    EXPECT_EQ( 0xFF445566, rawAt( 1279, 799 ) );
}

TEST_F( GScreenTest, FirstCaptureFillsItsRectangleOnly )
{
    setDesktopColour( "#445566" );
    ASSERT_TRUE( awaitUntil( [&] { return capture( { 10, 10, 20, 20 } ) && colourAt( 15, 15 ) == 0x445566; } ) );
    EXPECT_EQ( 0U, rawAt( 25, 15 ) );
    EXPECT_EQ( 0U, rawAt( 9, 10 ) );
}

TEST_F( GScreenTest, CaptureAllocatesNothingInTheSteadyState )
{
    ASSERT_TRUE( capture( ) );
    EXPECT_EQ( 0, countAllocations(
                      [&]
                      {
                          for( int i = 0; i < 5; ++i )
                          {
                              capture( );
                              capture( { 10, 10, 300, 200 } );
                          }
                      } ) );
    EXPECT_TRUE( buffer );
}

TEST_F( GScreenTest, EachHandleHasItsOwnPicture )
{
    setDesktopColour( "#010203" );
    ASSERT_TRUE( awaitColour( 640, 400, 0x010203 ) );
    GScreen other = GScreenOpen( );
    setDesktopColour( "#F0F1F2" );
    ASSERT_TRUE( awaitUntil( [&] { return capture( { 0, 0, 8, 8 } ) && colourAt( 4, 4 ) == 0xF0F1F2; } ) );
    GImageFormat otherFormat;
    EXPECT_TRUE( GScreenCapture( other, WHOLE, otherFormat ) );
    EXPECT_EQ( 0xFF010203, rawAt( 640, 400 ) );
    GScreenClose( other );
}

TEST_F( GScreenPointer, IsWhereItWasSet )
{
    ASSERT_TRUE( GScreenSetPointerPosition( 321, 123 ) );
    int x = -1;
    int y = -1;
    ASSERT_TRUE( GScreenGetPointerPosition( x, y ) );
    EXPECT_EQ( 321, x );
    EXPECT_EQ( 123, y );
}

TEST_F( GScreenPointer, IsHeldAtTheEdge )
{
    int x = -1;
    int y = -1;
    ASSERT_TRUE( GScreenSetPointerPosition( 100000, -7 ) );
    ASSERT_TRUE( GScreenGetPointerPosition( x, y ) );
    EXPECT_EQ( 1279, x );
    EXPECT_EQ( 0, y );
    ASSERT_TRUE( GScreenSetPointerPosition( -100000, 900 ) );
    ASSERT_TRUE( GScreenGetPointerPosition( x, y ) );
    EXPECT_EQ( 0, x );
    EXPECT_EQ( 799, y );
}

TEST_F( GScreenPointer, IsToBeHadByAnyThread )
{
    int found[2] = { };
    const auto ask = [&]( int index )
    {
        for( int i = 0; i < 200; ++i )
        {
            int x = 0;
            int y = 0;
            std::map<uint32_t, GWString> list;
            if( i % 50 == 0 ) GScreenGetWindowList( &list );
            found[index] += GScreenGetPointerPosition( x, y );
        }
    };
    std::thread other( ask, 0 );
    ask( 1 );
    other.join( );
    EXPECT_EQ( 200, found[0] );
    EXPECT_EQ( 200, found[1] );
}
} // namespace
