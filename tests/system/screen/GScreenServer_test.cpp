// Displays that change, are strange or go away under an open handle. Each test has an X server of its own.
#include "system/screen/ScreenFixture.h"

namespace
{
class GScreenServer : public ScreenFixture
{
protected:
    // The colour of a pixel by the type that the capture told, with the high bits of five repeated below.
    uint32_t shownAt( int x, int y ) const
    {
        if( format.type == GIT_BGRA32 ) return colourAt( x, y );
        EXPECT_EQ( GIT_RGB555, format.type );
        const uint32_t pixel = rawShortAt( x, y );
        const auto byte = [&]( int shift ) { return ( pixel >> shift & 31 ) << 3 | ( pixel >> shift & 31 ) >> 2; };
        return byte( 10 ) << 16 | byte( 5 ) << 8 | byte( 0 );
    }
    static void expectNear( uint32_t wanted, uint32_t got )
    {
        // Five bits a colour leave eight steps of error.
        for( const int shift : { 0, 8, 16 } )
            EXPECT_NEAR( static_cast<int>( wanted >> shift & 0xFF ), static_cast<int>( got >> shift & 0xFF ), 8 )
                << std::hex << wanted << " " << got;
    }
    // Pictures of a display of this kind have the colours that were drawn, also in rows of odd width and at the last pixel.
    void expectColours( int32_t type, int width, int height )
    {
        TestWindows windows;
        windows.setRootColour( 0xFF8000 );
        windows.openMenu( { 3, 5, 24, 26 }, 0x20C060 );
        ASSERT_TRUE( capture( ) );
        EXPECT_EQ( ( GImageFormat{ type, width, height } ), format );
        expectNear( 0xFF8000, shownAt( 0, 0 ) );
        expectNear( 0xFF8000, shownAt( width - 1, height - 1 ) );
        expectNear( 0x20C060, shownAt( 3, 5 ) );
        expectNear( 0x20C060, shownAt( 23, 25 ) );
        expectNear( 0xFF8000, shownAt( 24, 25 ) );
        windows.setRootColour( 0x0000FF );
        ASSERT_TRUE( capture( { 30, 40, 35, 43 } ) );
        expectNear( 0x0000FF, shownAt( 30, 40 ) );
        expectNear( 0x0000FF, shownAt( 34, 42 ) );
        expectNear( 0xFF8000, shownAt( 29, 40 ) );
        expectNear( 0xFF8000, shownAt( 35, 42 ) );
        expectNear( 0xFF8000, shownAt( 34, 43 ) );
    }
};

TEST_F( GScreenServer, ThirtyTwoBitsHaveTheirColours )
{
    const TestServer server( "333x222x24" );
    expectColours( GIT_BGRA32, 333, 222 );
}

TEST_F( GScreenServer, SixteenBitsBecomeFiveAColour )
{
    const TestServer server( "333x222x16" );
    expectColours( GIT_RGB555, 333, 222 );
    EXPECT_EQ( 0x001F, rawShortAt( 30, 40 ) );
}

TEST_F( GScreenServer, FifteenBitsAreFiveAColour )
{
    const TestServer server( "333x222x15" );
    expectColours( GIT_RGB555, 333, 222 );
    EXPECT_EQ( 0x7E00, rawShortAt( 0, 0 ) );
}

TEST_F( GScreenServer, ServersThatShareNoMemoryAreReadByRequest )
{
    for( const char* screenSize : { "333x222x24", "333x222x16", "333x222x15" } )
    {
        SCOPED_TRACE( screenSize );
        const TestServer server( screenSize, { "-extension", "MIT-SHM" } );
        const std::string size = screenSize;
        expectColours( size.ends_with( "24" ) ? GIT_BGRA32 : GIT_RGB555, 333, 222 );
    }
}

TEST_F( GScreenServer, TenBitsAColourBecomeEight )
{
    const TestServer server( "333x222x30" );
    expectColours( GIT_BGRA32, 333, 222 );
    EXPECT_EQ( 0xFF0000FF, rawAt( 30, 40 ) );
}

TEST_F( GScreenServer, UnknownKindsOfPixelsGiveNothing )
{
    TestLog::expect( "WARNING Trying to capture unsupported bitdepth 8, ignoring." );
    TestServer server( "320x240x8" );
    format = { GIT_BGRA32, 1, 1 };
    EXPECT_FALSE( capture( ) );
    EXPECT_EQ( GImageFormat( ), format );
    server.restart( "320x240x24" );
    EXPECT_TRUE( capture( ) );
}

TEST_F( GScreenServer, AChangeOfDepthGivesANewType )
{
    TestServer server( "320x240x24" );
    expectColours( GIT_BGRA32, 320, 240 );
    server.restart( "320x240x16" );
    expectColours( GIT_RGB555, 320, 240 );
    server.restart( "320x240x24" );
    // A layout asked first must not keep the picture of the server before.
    getLayout( );
    EXPECT_EQ( 1U, layout.size( ) );
    expectColours( GIT_BGRA32, 320, 240 );
}

TEST_F( GScreenServer, AChangeOfSizeGivesANewBuffer )
{
    const TestServer server( "640x480x24" );
    TestWindows windows;
    windows.setRootColour( 0x123456 );
    ASSERT_TRUE( capture( ) );
    EXPECT_EQ( ( GImageFormat{ GIT_BGRA32, 640, 480 } ), format );
    ASSERT_EQ( 0, std::system( "xrandr --output screen --off --fb 500x300" ) );
    ASSERT_TRUE( capture( ) );
    EXPECT_EQ( ( GImageFormat{ GIT_BGRA32, 500, 300 } ), format );
    windows.setRootColour( 0x654321 );
    ASSERT_TRUE( capture( { 490, 290, 640, 480 } ) );
    EXPECT_EQ( 0xFF654321, rawAt( 499, 299 ) );
    EXPECT_EQ( 0xFF123456, rawAt( 489, 299 ) );
    ASSERT_EQ( 0, std::system( "xrandr --fb 620x440" ) );
    ASSERT_TRUE( capture( { 600, 430, 610, 440 } ) );
    EXPECT_EQ( ( GImageFormat{ GIT_BGRA32, 620, 440 } ), format );
    EXPECT_EQ( 0U, rawAt( 0, 0 ) );
    getLayout( );
    EXPECT_EQ( ( GRect{ 0, 0, 620, 440 } ), layout.back( ).rect );
}

TEST_F( GScreenServer, ASizeThatComesBackBetweenCapturesKeepsThePicture )
{
    const TestServer server( "640x480x24" );
    TestWindows windows;
    ASSERT_EQ( 0, std::system( "xrandr --output screen --off --fb 600x400" ) );
    windows.setRootColour( 0x123456 );
    ASSERT_TRUE( capture( ) );
    ASSERT_EQ( 0, std::system( "xrandr --fb 500x300" ) );
    ASSERT_EQ( 0, std::system( "xrandr --fb 600x400" ) );
    windows.setRootColour( 0x654321 );
    ASSERT_TRUE( capture( { 10, 10, 20, 20 } ) );
    EXPECT_EQ( 0xFF654321, rawAt( 10, 10 ) );
    EXPECT_EQ( 0xFF123456, rawAt( 300, 300 ) );
}

TEST_F( GScreenServer, AServerThatDiesGivesNothingUntilItIsBack )
{
    TestServer server( "320x240x24" );
    int x = 1;
    int y = 2;
    std::map<uint32_t, GWString> list;
    ASSERT_TRUE( capture( ) );
    ASSERT_TRUE( GScreenGetPointerPosition( x, y ) );
    x = 1;
    y = 2;
    server.kill( );
    for( int i = 0; i < 3; ++i )
    {
        format = { GIT_BGRA32, 1, 1 };
        list[7] = u"left over";
        layout.push_back( { 7, {} } );
        regions[7] = { };
        EXPECT_FALSE( capture( ) );
        EXPECT_EQ( GImageFormat( ), format );
        getLayout( );
        EXPECT_TRUE( layout.empty( ) );
        EXPECT_TRUE( regions.empty( ) );
        GScreenGetWindowList( &list );
        EXPECT_TRUE( list.empty( ) );
        EXPECT_FALSE( GScreenGetPointerPosition( x, y ) );
        EXPECT_FALSE( GScreenSetPointerPosition( 5, 5 ) );
        EXPECT_FALSE( GScreenRaiseWindow( 1234 ) );
    }
    EXPECT_EQ( 1, x );
    EXPECT_EQ( 2, y );
    server.restart( "320x240x24" );
    EXPECT_TRUE( capture( ) );
    getLayout( );
    EXPECT_EQ( 1U, layout.size( ) );
    EXPECT_TRUE( GScreenSetPointerPosition( 5, 6 ) );
    EXPECT_TRUE( GScreenGetPointerPosition( x, y ) );
    EXPECT_EQ( 5, x );
    EXPECT_EQ( 6, y );
}

TEST_F( GScreenServer, WithoutADisplayThereIsNothing )
{
    const std::string old = std::getenv( "DISPLAY" );
    for( const char* display : { "", ":65000", "not a display", "/nowhere" } )
    {
        SCOPED_TRACE( display );
        setenv( "DISPLAY", display, 1 );
        EXPECT_FALSE( capture( ) );
        getLayout( );
        EXPECT_TRUE( layout.empty( ) );
    }
    unsetenv( "DISPLAY" );
    EXPECT_FALSE( capture( ) );
    setenv( "DISPLAY", old.c_str( ), 1 );
    EXPECT_TRUE( capture( ) );
}

TEST_F( GScreenServer, WithoutAWindowManagerWindowsAreListedAndRaised )
{
    const TestServer server( "320x240x24" );
    TestWindows windows;
    const xcb_window_t lower = windows.open( { 10, 10, 100, 100 }, 0xFF0000, "Lower" );
    const xcb_window_t upper = windows.open( { 50, 50, 150, 150 }, 0x00FF00, "Upper" );
    std::map<uint32_t, GWString> list;
    GScreenGetWindowList( &list );
    EXPECT_EQ( ( std::map<uint32_t, GWString>{ { lower, u"Lower" }, { upper, u"Upper" } } ), list );
    getLayout( );
    EXPECT_EQ( upper, layout.front( ).id );
    EXPECT_TRUE( GScreenRaiseWindow( lower ) );
    EXPECT_TRUE( awaitUntil(
        [&]
        {
            getLayout( );
            return layout.front( ).id == lower;
        } ) );
    EXPECT_FALSE( GScreenRaiseWindow( windows.getRoot( ) ) );
    EXPECT_FALSE( GScreenRaiseWindow( 0 ) );
    EXPECT_FALSE( GScreenRaiseWindow( 0xFFFFFFFF ) );
}
} // namespace
