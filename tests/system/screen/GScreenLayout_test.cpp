// The windows of a real desktop: their order, rectangles, regions and titles. Run by way of with-desktop.
#include "system/screen/ScreenFixture.h"

#include <atomic>
#include <thread>

namespace
{
class GScreenLayout : public ScreenFixture
{
protected:
    // Every window's regions cover it once and nothing else.
    void expectRegionsTile( )
    {
        EXPECT_EQ( layout.size( ), regions.size( ) );
        for( const GFrag& window : layout )
        {
            int64_t area = 0;
            const GRect whole = { 0, 0, window.rect.width( ), window.rect.height( ) };
            const GFragList& list = regions[window.id];
            for( auto a = list.begin( ); a != list.end( ); ++a )
            {
                EXPECT_EQ( window.id, a->id );
                EXPECT_TRUE( GRectContains( whole, a->rect ) && GRectHasVolume( a->rect ) );
                area += int64_t{ a->rect.width( ) } * a->rect.height( );
                for( auto b = std::next( a ); b != list.end( ); ++b )
                    EXPECT_TRUE( GRectEmpty( GRectIntersect( a->rect, b->rect ) ) );
            }
            EXPECT_EQ( int64_t{ whole.right } * whole.bottom, area );
        }
    }
    int getPlace( uint32_t window )
    {
        const auto found = getListed( window );
        return static_cast<int>( std::distance( layout.cbegin( ), found ) );
    }
    std::map<uint32_t, GWString> getList( )
    {
        std::map<uint32_t, GWString> list;
        GScreenGetWindowList( &list );
        return list;
    }

    TestWindows windows;
};

TEST_F( GScreenLayout, HoldsTheDesktopItselfAsTheLastWindow )
{
    getLayout( );
    EXPECT_EQ( ( GFrag{ windows.getRoot( ), { 0, 0, 1280, 800 } } ), layout.back( ) );
    expectRegionsTile( );
}

TEST_F( GScreenLayout, GoesFromTheFrontToTheBackWithMenusOnTop )
{
    const xcb_window_t lower = windows.getTop( windows.open( { 100, 100, 300, 300 }, 0xFF0000 ) );
    const xcb_window_t upper = windows.getTop( windows.open( { 150, 150, 350, 350 }, 0x00FF00 ) );
    const xcb_window_t menu = windows.openMenu( { 200, 200, 260, 400 }, 0x0000FF, 2 );
    EXPECT_TRUE( awaitUntil( [&] { return getPlace( upper ) < getPlace( lower ); } ) );
    EXPECT_LT( getPlace( menu ), getPlace( upper ) );
    EXPECT_LT( getPlace( lower ), getPlace( windows.getRoot( ) ) );
    // The border belongs to the window.
    EXPECT_EQ( ( GRect{ 200, 200, 264, 404 } ), getListed( menu )->rect );
    expectRegionsTile( );
}

TEST_F( GScreenLayout, HasTheFrameThatTheWindowManagerPutAround )
{
    const xcb_window_t window = windows.open( { 100, 100, 300, 300 }, 0xFF0000 );
    const xcb_window_t frame = windows.getTop( window );
    ASSERT_NE( window, frame );
    EXPECT_FALSE( isListed( window ) );
    const GRect rect = getListed( frame )->rect;
    EXPECT_EQ( windows.getTopRect( window ), rect );
    EXPECT_LT( 200, rect.height( ) );
    // Its decoration is no region.
    EXPECT_EQ( ( GFragList{ { frame, { 0, 0, rect.width( ), rect.height( ) } } } ), regions[frame] );
}

TEST_F( GScreenLayout, CutsAWindowIntoItsChildrenAndTheRest )
{
    const xcb_window_t menu = windows.openMenu( { 300, 200, 400, 280 }, 0xFF0000, 5 );
    const xcb_window_t lower = windows.openChild( menu, { 10, 10, 50, 40 }, 0x00FF00 );
    windows.openChild( menu, { 40, 20, 200, 30 }, 0x0000FF );
    windows.openChild( menu, { 500, 500, 510, 510 }, 0x0000FF );
    windows.openChild( lower, { 0, 0, 5, 5 }, 0x0000FF );
    windows.hide( windows.openChild( menu, { 0, 60, 20, 70 }, 0x0000FF ) );
    getLayout( );
    const GFragList& list = regions[menu];
    ASSERT_LE( 2U, list.size( ) );
    // The front child is cut off at the window's inside, which begins behind the border; the one below loses what it covers.
    EXPECT_EQ( ( GRect{ 45, 25, 105, 35 } ), list.front( ).rect );
    EXPECT_EQ( ( GRect{ 15, 15, 55, 25 } ), std::next( list.begin( ) )->rect );
    expectRegionsTile( );
}

TEST_F( GScreenLayout, FindsTheChildrenOfAFramedWindow )
{
    const xcb_window_t window = windows.open( { 100, 100, 300, 300 }, 0xFF0000 );
    windows.openChild( window, { 30, 40, 70, 90 }, 0x00FF00 );
    const xcb_window_t frame = windows.getTop( window );
    getLayout( );
    const GRect child = regions[frame].front( ).rect;
    EXPECT_EQ( 40, child.width( ) );
    EXPECT_EQ( 50, child.height( ) );
    EXPECT_LT( 40, child.top ); // Below the title bar.
    expectRegionsTile( );
}

TEST_F( GScreenLayout, LeavesOutWhatIsNotToBeSeen )
{
    const xcb_window_t inside = windows.openMenu( { 1270, 790, 1290, 810 }, 0xFF0000 );
    const xcb_window_t outside = windows.openMenu( { 1280, 0, 1300, 20 }, 0xFF0000 );
    const xcb_window_t above = windows.openMenu( { 100, -60, 200, 0 }, 0xFF0000 );
    const xcb_window_t hidden = windows.openMenu( { 10, 10, 20, 20 }, 0xFF0000 );
    const xcb_window_t input = windows.openInputOnly( { 30, 30, 60, 60 } );
    windows.hide( hidden );
    getLayout( );
    ASSERT_TRUE( isListed( inside ) );
    EXPECT_FALSE( isListed( outside ) );
    EXPECT_FALSE( isListed( above ) );
    EXPECT_FALSE( isListed( hidden ) );
    EXPECT_FALSE( isListed( input ) );
}

TEST_F( GScreenLayout, KeepsTheWholeRectangleOfAWindowThatIsPartlyOff )
{
    const xcb_window_t corner = windows.openMenu( { -50, -40, 60, 70 }, 0xFF0000 );
    windows.openChild( corner, { 0, 0, 110, 110 }, 0x00FF00 );
    const auto found = getListed( corner );
    ASSERT_NE( layout.cend( ), found );
    EXPECT_EQ( ( GRect{ -50, -40, 60, 70 } ), found->rect );
    EXPECT_EQ( ( GFragList{ { corner, { 0, 0, 110, 110 } } } ), regions[corner] );
}

TEST_F( GScreenLayout, HasNoMinimisedWindow )
{
    const xcb_window_t window = windows.open( { 100, 100, 300, 300 }, 0xFF0000, "Soon gone" );
    const xcb_window_t frame = windows.getTop( window );
    EXPECT_TRUE( isListed( frame ) );
    EXPECT_EQ( u"Soon gone", getList( )[frame] );
    windows.minimise( window );
    EXPECT_TRUE( awaitUntil( [&] { return !isListed( frame ); } ) );
    EXPECT_EQ( 0U, getList( ).count( frame ) );
}

TEST_F( GScreenLayout, SurvivesWindowsThatVanishMeanwhile )
{
    std::atomic<bool> done = false;
    std::thread other(
        [&]
        {
            TestWindows others;
            for( int i = 0; i < 300; ++i )
            {
                const xcb_window_t window = others.openMenu( { 50, 50, 150, 150 }, 0x808080 );
                others.openChild( window, { 10, 10, 30, 30 }, 0x404040 );
                others.close( window );
            }
            done = true;
        } );
    int rounds = 0;
    while( !done )
    {
        getLayout( );
        expectRegionsTile( );
        getList( );
        ++rounds;
    }
    other.join( );
    EXPECT_LT( 0, rounds );
    getLayout( );
    EXPECT_EQ( windows.getRoot( ), layout.back( ).id );
}

TEST_F( GScreenLayout, TitlesComeAsTheProgramWroteThem )
{
    const xcb_window_t plain = windows.open( { 10, 50, 110, 100 }, 0xFF0000, "Grüße, Жизнь 漢字" );
    const xcb_window_t old = windows.open( { 10, 150, 110, 200 }, 0xFF0000 );
    windows.setBytes( old, "WM_NAME", "STRING", "Caf\xE9" );
    const xcb_window_t both = windows.open( { 10, 250, 110, 300 }, 0xFF0000, "New name" );
    windows.setBytes( both, "WM_NAME", "STRING", "Old name" );
    const xcb_window_t none = windows.open( { 10, 350, 110, 400 }, 0xFF0000 );
    const auto list = getList( );
    EXPECT_EQ( u"Gr\u00FC\u00DFe, \u0416\u0438\u0437\u043D\u044C \u6F22\u5B57", list.at( windows.getTop( plain ) ) );
    EXPECT_EQ( u"Caf\u00E9", list.at( windows.getTop( old ) ) );
    EXPECT_EQ( u"New name", list.at( windows.getTop( both ) ) );
    EXPECT_EQ( 0U, list.count( windows.getTop( none ) ) );
    for( const auto& [id, title] : list ) EXPECT_NE( 0U, id );
}

TEST_F( GScreenLayout, HostileTitlesAreBoundedAndCleaned )
{
    std::string lengthy;
    for( int i = 0; i < 100000; ++i ) lengthy += "ä";
    const xcb_window_t endless = windows.openMenu( { 10, 50, 110, 100 }, 0xFF0000 );
    windows.setBytes( endless, "_NET_WM_NAME", "UTF8_STRING", lengthy );
    const xcb_window_t broken = windows.openMenu( { 10, 150, 110, 200 }, 0xFF0000 );
    windows.setBytes( broken, "_NET_WM_NAME", "UTF8_STRING", "a\x1B[2Jb\nc\x80\xFF\xC3" );
    const xcb_window_t cut = windows.openMenu( { 10, 250, 110, 300 }, 0xFF0000 );
    windows.setBytes( cut, "_NET_WM_NAME", "UTF8_STRING", std::string( "abc\0def", 7 ) );
    const xcb_window_t wrong = windows.openMenu( { 10, 350, 110, 400 }, 0xFF0000 );
    windows.setAtom( wrong, "_NET_WM_NAME", "WM_NAME" );
    const xcb_window_t edge = windows.openMenu( { 10, 450, 110, 500 }, 0xFF0000 );
    windows.setBytes( edge, "_NET_WM_NAME", "UTF8_STRING",
                      "\x01"
                      "a" +
                          lengthy );
    const auto list = getList( );
    EXPECT_EQ( GWString( 256, u'\u00E4' ), list.at( endless ) );
    EXPECT_EQ( u"a[2JbcXXX", list.at( broken ) );
    EXPECT_EQ( u"abc", list.at( cut ) );
    EXPECT_EQ( 0U, list.count( wrong ) );
    EXPECT_EQ( u"a" + GWString( 255, u'\u00E4' ), list.at( edge ) );
}

TEST_F( GScreenLayout, DesktopAndPanelsAreNotForPicking )
{
    const xcb_window_t manager = windows.openMenu( { 10, 50, 110, 100 }, 0xFF0000 );
    windows.setBytes( manager, "WM_NAME", "STRING", "Program Manager" );
    const xcb_window_t other = windows.openMenu( { 10, 150, 110, 200 }, 0xFF0000 );
    windows.setBytes( other, "WM_NAME", "STRING", "Program Managers" );
    const xcb_window_t panel = windows.openMenu( { 10, 250, 110, 300 }, 0xFF0000 );
    windows.setBytes( panel, "WM_NAME", "STRING", "Panel" );
    windows.setAtom( panel, "_NET_WM_WINDOW_TYPE", "_NET_WM_WINDOW_TYPE_DOCK" );
    const xcb_window_t desktop = windows.openMenu( { 10, 350, 110, 400 }, 0xFF0000 );
    windows.setBytes( desktop, "WM_NAME", "STRING", "Files" );
    windows.setAtom( desktop, "_NET_WM_WINDOW_TYPE", "_NET_WM_WINDOW_TYPE_DESKTOP" );
    windows.setBytes( windows.getRoot( ), "WM_NAME", "STRING", "Root" );
    const auto list = getList( );
    EXPECT_EQ( 0U, list.count( manager ) );
    EXPECT_EQ( 1U, list.count( other ) );
    EXPECT_EQ( 0U, list.count( panel ) );
    EXPECT_EQ( 0U, list.count( desktop ) );
    EXPECT_EQ( 0U, list.count( windows.getRoot( ) ) );
    // In the picture they are all the same.
    getLayout( );
    for( const xcb_window_t window : { manager, other, panel, desktop } ) EXPECT_EQ( 1U, regions.count( window ) );
}

TEST_F( GScreenLayout, AWindowIsRaisedByItsNumber )
{
    const xcb_window_t lower = windows.getTop( windows.open( { 100, 100, 300, 300 }, 0xFF0000, "Lower" ) );
    const xcb_window_t upper = windows.getTop( windows.open( { 150, 150, 350, 350 }, 0x00FF00, "Upper" ) );
    ASSERT_TRUE( awaitUntil( [&] { return getPlace( upper ) < getPlace( lower ); } ) );
    EXPECT_TRUE( GScreenRaiseWindow( lower ) );
    EXPECT_TRUE( awaitUntil( [&] { return getPlace( lower ) < getPlace( upper ); } ) );
    EXPECT_TRUE( GScreenRaiseWindow( upper ) );
    EXPECT_TRUE( awaitUntil( [&] { return getPlace( upper ) < getPlace( lower ); } ) );
}

TEST_F( GScreenLayout, RaisingWhatIsNoWindowDoesNothing )
{
    const xcb_window_t menu = windows.openMenu( { 100, 100, 300, 300 }, 0xFF0000 );
    const xcb_window_t child = windows.openChild( menu, { 0, 0, 10, 10 }, 0x00FF00 );
    windows.close( child );
    EXPECT_FALSE( GScreenRaiseWindow( child ) );
    EXPECT_FALSE( GScreenRaiseWindow( 0 ) );
    EXPECT_FALSE( GScreenRaiseWindow( 1 ) );
    EXPECT_FALSE( GScreenRaiseWindow( 0x80000000 ) );
    EXPECT_FALSE( GScreenRaiseWindow( windows.getRoot( ) ) );
}
} // namespace
