// A window and its window manager: minimizing, maximizing, restoring, closing, flashing, and what the desktop says of itself.
#include "system/desktop/OnDesktop.h"

#include "libvorn/src/platform/window/GWin_Qt.h"

#include <csignal>

namespace
{
constexpr QRgb COLOR = 0x204060;

class WinStateOnDesktop : public OnDesktop
{
protected:
    void SetUp( ) override
    {
        OnDesktop::SetUp( );
        win = GWinOpen( u"states", { 200, 200, 400, 350 }, false, &listener );
        GWinRepaint( win, 200, 150, plain( 200, 150, "\x20\x40\x60\xFF" ).data( ), 255 );
        GWinShow( win );
        GWinSetForeground( win );
        EXPECT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( win ) && isShown( ); } ) );
    }
    void TearDown( ) override
    {
        GWinClose( win );
        OnDesktop::TearDown( );
    }
    static bool isShown( ) { return pixelAt( 300, 300 ) == COLOR; }
    // What the window manager makes of it.
    bool isIconic( ) const { return property( win, QStringLiteral( "WM_STATE" ) ).contains( "Iconic" ); }
    bool demandsAttention( ) const
    {
        return property( win, QStringLiteral( "_NET_WM_STATE" ) ).contains( "DEMANDS_ATTENTION" );
    }
    // The window manager has worked off all that it was asked before.
    void awaitWindowManager( )
    {
        WinListener other;
        GWin probe = GWinOpen( u"probe", { 900, 500, 950, 550 }, false, &other );
        GWinRepaint( probe, 50, 50, plain( 50, 50, "\x10\x90\x10\xFF" ).data( ), 255 );
        GWinShow( probe );
        EXPECT_TRUE( becomes( 925, 525, 0x109010 ) );
        GWinClose( probe );
    }

    WinListener listener;
    GWin win = nullptr;
};

// The window manager does nothing for as long as this lives.
class SlowWindowManager
{
public:
    SlowWindowManager( ) { EXPECT_TRUE( _id > 0 && !kill( _id, SIGSTOP ) ); }
    ~SlowWindowManager( ) { EXPECT_FALSE( kill( _id, SIGCONT ) ); }
    SlowWindowManager( const SlowWindowManager& ) = delete;
    SlowWindowManager& operator=( const SlowWindowManager& ) = delete;

private:
    const pid_t _id = qEnvironmentVariableIntValue( "VELMORA_WINDOW_MANAGER" );
};
} // namespace

TEST_F( WinStateOnDesktop, MaximizesAndRestores )
{
    // The window manager sizes it and moves it after that; both are told.
    const GRect all = GWinGetWorkArea( 0, 0 );
    GWinMaximize( win );
    EXPECT_TRUE( pumpUntil(
        [&]( ) { return GWinIsMaximized( win ) && !listener.rects.empty( ) && listener.rects.back( ) == all; } ) );
    GRect rect;
    GWinGetScreenPosition( win, rect );
    EXPECT_EQ( all, rect );
    GWinRestore( win );
    EXPECT_TRUE( pumpUntil(
        [&]( ) {
            return !GWinIsMaximized( win ) && listener.rects.back( ) == GRect( { 200, 200, 400, 350 } );
        } ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return isShown( ) && pixelAt( 600, 600 ) != COLOR; } ) );
}

TEST_F( WinStateOnDesktop, MinimizesAndRestores )
{
    GWinMinimize( win );
    EXPECT_TRUE( pumpUntil( [&]( ) { return GWinIsMinimized( win ) && !isShown( ) && isIconic( ); } ) );
    EXPECT_TRUE( GWinIsVisible( win ) );
    EXPECT_TRUE( GWinIsAnyShown( ) );
    GWinRestore( win );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !GWinIsMinimized( win ) && isShown( ) && !isIconic( ); } ) );
    GRect rect;
    GWinGetScreenPosition( win, rect );
    EXPECT_EQ( ( GRect{ 200, 200, 400, 350 } ), rect );
}

TEST_F( WinStateOnDesktop, MaximizedWindowComesBackMaximizedFromBeingMinimized )
{
    GWinMaximize( win );
    ASSERT_TRUE( pumpUntil( [&]( ) { return !listener.rects.empty( ) && listener.rects.back( ).width( ) > 1000; } ) );
    GWinMinimize( win );
    EXPECT_TRUE( pumpUntil( [&]( ) { return isIconic( ); } ) );
    EXPECT_FALSE( GWinIsMaximized( win ) );
    GWinRestore( win );
    EXPECT_TRUE( pumpUntil( [&]( ) { return GWinIsMaximized( win ) && !isIconic( ); } ) );
    GWinRestore( win );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !GWinIsMaximized( win ) && listener.rects.back( ).width( ) == 200; } ) );
}

TEST_F( WinStateOnDesktop, RestoredBeforeItWasMinimizedItStays )
{
    for( int i = 0; i < 10; ++i )
    {
        GWinMinimize( win );
        GWinRestore( win );
    }
    awaitWindowManager( );
    EXPECT_TRUE( pumpUntil( [&]( ) { return isShown( ) && !isIconic( ); } ) );
    EXPECT_FALSE( GWinIsMinimized( win ) );
    // And minimizes again when it is told to.
    GWinMinimize( win );
    GWinRestore( win );
    GWinMinimize( win );
    awaitWindowManager( );
    EXPECT_TRUE( pumpUntil( [&]( ) { return isIconic( ) && !isShown( ); } ) );
    EXPECT_TRUE( GWinIsMinimized( win ) );
}

TEST_F( WinStateOnDesktop, TheUserMinimizesAndRestoresItToo )
{
    const QString id = QString::number( win->winId( ) );
    drive( QStringLiteral( "windowminimize " ) + id );
    EXPECT_TRUE( pumpUntil( [&]( ) { return GWinIsMinimized( win ) && !isShown( ); } ) );
    drive( QStringLiteral( "windowactivate " ) + id );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !GWinIsMinimized( win ) && isShown( ) && GWinHasKeyFocus( win ); } ) );
}

TEST_F( WinStateOnDesktop, OnceMinimizedItIsShownPlainlyAfterHiding )
{
    for( const bool byUser : { true, false } )
    {
        GWinMinimize( win );
        ASSERT_TRUE( pumpUntil( [&]( ) { return isIconic( ) && !isShown( ); } ) );
        if( byUser ) drive( QStringLiteral( "windowactivate " ) + QString::number( win->winId( ) ) );
        if( !byUser ) GWinRestore( win );
        ASSERT_TRUE( pumpUntil( [&]( ) { return !GWinIsMinimized( win ) && !isIconic( ) && isShown( ); } ) );
        GWinHide( win );
        ASSERT_TRUE( pumpUntil( [&]( ) { return !isShown( ); } ) );
        GWinShow( win );
        EXPECT_TRUE( pumpUntil( [&]( ) { return isShown( ) && !isIconic( ); } ) ) << byUser;
        EXPECT_FALSE( GWinIsMinimized( win ) ) << byUser;
    }
}

TEST_F( WinStateOnDesktop, CloseRequestIsTheListenersAndTheWindowStays )
{
    drive( QStringLiteral( "key alt+F4" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.closes == 1; } ) );
    EXPECT_TRUE( GWinIsVisible( win ) );
    EXPECT_TRUE( isShown( ) );
}

TEST_F( WinStateOnDesktop, FlashesWhileInactiveAndEndsByItself )
{
    GWinFlash( win );
    awaitWindowManager( );
    EXPECT_FALSE( demandsAttention( ) );
    WinListener other;
    GWin front = GWinOpen( u"front", { 600, 200, 700, 300 }, false, &other );
    GWinRepaint( front, 100, 100, plain( 100, 100, "\x80\x80\x80\xFF" ).data( ), 255 );
    GWinShow( front );
    GWinSetForeground( front );
    ASSERT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( front ) && !GWinHasKeyFocus( win ); } ) );
    GWinFlash( win );
    EXPECT_TRUE( pumpUntil( [&]( ) { return demandsAttention( ); } ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !demandsAttention( ); } ) );
    EXPECT_FALSE( GWinHasKeyFocus( win ) );
    GWinClose( front );
}

TEST_F( WinStateOnDesktop, ShowingHidingAndFocusAreTold )
{
    auto told = [&, before = listener.shows]( ) mutable
    { return pumpUntil( [&]( ) { return listener.shows > before; } ) ? ( before = listener.shows, true ) : false; };
    WinListener other;
    GWin front = GWinOpen( u"front", { 600, 200, 700, 300 }, false, &other );
    GWinShow( front );
    GWinSetForeground( front );
    EXPECT_TRUE( told( ) ); // The focus has gone,
    EXPECT_FALSE( GWinHasKeyFocus( win ) );
    GWinClose( front );
    EXPECT_TRUE( told( ) ); // and comes back.
    EXPECT_TRUE( GWinHasKeyFocus( win ) );
    GWinHide( win );
    EXPECT_TRUE( told( ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !isShown( ); } ) );
    EXPECT_FALSE( GWinIsVisible( win ) );
    EXPECT_FALSE( GWinIsAnyShown( ) );
    GWinShow( win );
    EXPECT_TRUE( told( ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return isShown( ); } ) );
    EXPECT_TRUE( GWinIsAnyShown( ) );
}

TEST_F( WinStateOnDesktop, FocusIsThereWhenTheWindowManagerGaveItAndNotWhenItWasAskedFor )
{
    WinListener other;
    GWin front = GWinOpen( u"front", { 600, 200, 700, 300 }, false, &other );
    GWinRepaint( front, 100, 100, plain( 100, 100, "\x80\x80\x80\xFF" ).data( ), 255 );
    GWinShow( front );
    GWinSetForeground( front );
    ASSERT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( front ); } ) );
    GWinSetForeground( win );
    ASSERT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( win ); } ) );
    {
        const SlowWindowManager slow;
        GWinSetForeground( front );
        pixelAt( 0, 0 ); // What the X server sends about the request is here before this answer.
        pumpAll( );
        EXPECT_FALSE( GWinHasKeyFocus( front ) );
        EXPECT_TRUE( GWinHasKeyFocus( win ) );
    }
    EXPECT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( front ) && !GWinHasKeyFocus( win ); } ) );
    {
        // Gone again before it ever had the focus: that stays where it is, in fact and in our mind.
        const SlowWindowManager slow;
        GWinSetForeground( win );
        pixelAt( 0, 0 );
        pumpAll( );
        GWinHide( win );
    }
    awaitWindowManager( );
    EXPECT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( front ); } ) );
    GWinClose( front );
}

TEST_F( WinStateOnDesktop, HasItsClassTitleAndNoFrame )
{
    EXPECT_TRUE( property( win, QStringLiteral( "WM_CLASS" ) ).contains( "\"GWIN_LAYERED_CLASS\"" ) );
    EXPECT_TRUE( property( win, QStringLiteral( "_NET_WM_NAME" ) ).contains( "\"states\"" ) );
    EXPECT_TRUE( property( win, QStringLiteral( "_NET_FRAME_EXTENTS" ) ).contains( "0, 0, 0, 0" ) );
}

TEST_F( WinStateOnDesktop, ScaleIsTheDesktopsAndItsChangesAreTold )
{
    int changes = 0;
    GWinFollowScale( [&changes] { ++changes; } );
    EXPECT_DOUBLE_EQ( 1.0, GWinGetScale( ) );
    const auto becomesBy = [&]( const QString& command, double scale )
    {
        const int before = changes;
        run( command );
        EXPECT_TRUE( pumpUntil( [&]( ) { return changes == before + 1; } ) );
        EXPECT_DOUBLE_EQ( scale, GWinGetScale( ) );
    };
    const QString set = QStringLiteral( "sh -c \"echo 'Xft.dpi: %1' | xrdb -merge\"" );
    becomesBy( set.arg( QStringLiteral( "144" ) ), 1.5 );
    becomesBy( set.arg( QStringLiteral( "9600" ) ), 4.0 );
    becomesBy( set.arg( QStringLiteral( "huge" ) ), 1.0 );
    becomesBy( set.arg( QStringLiteral( "192" ) ), 2.0 );
    becomesBy( QStringLiteral( "xrdb -remove" ), 1.0 );
    // What changes nothing of it is not told, nor is anything when nobody wants to hear.
    run( QStringLiteral( "sh -c \"echo 'Xft.hinting: 1' | xrdb -merge\"" ) );
    GWinFollowScale( nullptr );
    run( set.arg( QStringLiteral( "96" ) ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return run( QStringLiteral( "xrdb -query" ) ).contains( "96" ); } ) );
    EXPECT_EQ( 5, changes );
    run( QStringLiteral( "xrdb -remove" ) );
}
