#include "platform/GWin.h"

#include "libvorn/src/platform/window/GWin_Qt.h"
#include "platform/GSystem.h"
#include "unit/desktop/DesktopFixture.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>

#include <thread>

namespace
{
class Listener : public IGWinListener
{
public:
    int getNCHITTEST( GWin, int, int ) override { return hit; }
    bool getMinSize( GWin, int& width, int& height ) override
    {
        width = minWidth;
        height = minHeight;
        return true;
    }
    void onReposition( GWin, const GRect& rect ) override { rects.push_back( rect ); }
    int onKeyDown( GWin, int key ) override { return say( "down", key ); }
    int onKeyUp( GWin, int key ) override { return say( "up", key ); }
    int onKeyPressed( GWin, char16_t character ) override { return say( "char", character ); }
    int onMouseMove( GWin, int x, int y ) override { return say( "move", x, y ); }
    void onMouseLeft( GWin ) override { say( "left", 0 ); }
    int onLButtonDown( GWin, int x, int y ) override { return say( "ldown", x, y ); }
    int onLButtonUp( GWin, int x, int y ) override { return say( "lup", x, y ); }
    int onLButtonDblClk( GWin, int x, int y ) override { return say( "ldbl", x, y ); }
    int onRButtonDown( GWin, int x, int y ) override { return say( "rdown", x, y ); }
    void onClose( GWin win ) override
    {
        say( "close", 0 );
        if( closes ) GWinClose( win );
    }
    int onPaste( GWin, const GWString& text ) override
    {
        pasted = text;
        return say( "paste", 0 );
    }
    int onMouseWheel( GWin, int steps ) override { return say( "wheel", steps ); }

    int say( const std::string& what, int a, int b = 0 )
    {
        said += what + " " + std::to_string( a ) + ( b ? "," + std::to_string( b ) : "" ) + "; ";
        return 0;
    }
    int hit = GHIT_CLIENT;
    int minWidth = 10;
    int minHeight = 10;
    bool closes = false;
    std::string said;
    GWString pasted;
    std::vector<GRect> rects;
};

class GWinTest : public DesktopFixture
{
protected:
    void SetUp( ) override
    {
        DesktopFixture::SetUp( );
        win = GWinOpen( u"Test", { 100, 100, 300, 250 }, false, &listener );
        GWinShow( win );
        pumpAll( );
        listener.said.clear( );
        listener.rects.clear( );
    }
    void TearDown( ) override
    {
        if( !listener.closes ) GWinClose( win );
    }
    void mouse( QEvent::Type type, Qt::MouseButton button, QPoint point, ulong time = 1000 )
    {
        const QPoint global = point + QPoint( 100, 100 );
        QMouseEvent event( type, point, point, global, button, Qt::NoButton, Qt::NoModifier );
        event.setTimestamp( time );
        QCoreApplication::sendEvent( win, &event );
    }
    void press( QPoint point, ulong time = 1000 ) { mouse( QEvent::MouseButtonPress, Qt::LeftButton, point, time ); }
    void release( QPoint point ) { mouse( QEvent::MouseButtonRelease, Qt::LeftButton, point ); }
    void move( QPoint point ) { mouse( QEvent::MouseMove, Qt::NoButton, point ); }
    void key( QEvent::Type type, int code, const QString& text = { }, Qt::KeyboardModifiers modifiers = { },
              bool repeat = false )
    {
        QKeyEvent event( type, code, modifiers, text, repeat );
        QCoreApplication::sendEvent( win, &event );
    }
    // Drags from a point with that hit code; the rectangle that was proposed last.
    GRect drag( int hit, QPoint from, QPoint to )
    {
        listener.hit = hit;
        press( from );
        move( to );
        release( to );
        return listener.rects.empty( ) ? GRect{ } : listener.rects.back( );
    }
    Listener listener;
    GWin win = nullptr;
};
} // namespace

TEST_F( GWinTest, OpensHiddenAndShowsAndHides )
{
    Listener other;
    GWin hidden = GWinOpen( u"", { 0, 0, 50, 50 }, true, &other );
    EXPECT_FALSE( GWinIsVisible( hidden ) );
    GWinShow( hidden );
    EXPECT_TRUE( GWinIsVisible( hidden ) );
    GWinHide( hidden );
    EXPECT_FALSE( GWinIsVisible( hidden ) );
    GWinClose( hidden );
}

TEST_F( GWinTest, ListenerIsRequired )
{
    EXPECT_DEATH( GWinOpen( u"", { 0, 0, 50, 50 }, false, nullptr ), "listener" );
}

TEST_F( GWinTest, NullHandlesAbort )
{
    constexpr char NO_WINDOW[] = "ERROR: Precondition failed, aborting. \\(win\\)";
    for( void ( *const operation )( GWin ) : { GWinClose, GWinShow, GWinHide, GWinMinimize, GWinMaximize, GWinRestore,
                                               GWinSetForeground, GWinMouseCapture, GWinMouseRelease, GWinFlash } )
        EXPECT_DEATH( operation( nullptr ), NO_WINDOW );
    for( bool ( *const query )( GWin ) : { GWinIsMaximized, GWinIsMinimized, GWinIsVisible, GWinHasKeyFocus } )
        EXPECT_DEATH( query( nullptr ), NO_WINDOW );
    GRect rect{ };
    EXPECT_DEATH( GWinGetScreenPosition( nullptr, rect ), NO_WINDOW );
    EXPECT_DEATH( GWinMove( nullptr, rect ), NO_WINDOW );
    EXPECT_DEATH( GWinRepaint( nullptr, 1, 1, "rgba", 255 ), NO_WINDOW );
}

TEST_F( GWinTest, ArgumentsOutOfRangeAbort )
{
    EXPECT_DEATH( GWinMove( win, { 10, 10, 9, 20 } ), "GVALIDRECT\\( rect \\)" );
    EXPECT_DEATH( GWinRepaint( win, 0, 1, "rgba", 255 ), "width > 0 && height > 0 && pixels" );
    EXPECT_DEATH( GWinRepaint( win, 1, 1, nullptr, 255 ), "width > 0 && height > 0 && pixels" );
    EXPECT_DEATH( GWinRepaint( win, 1, 1, "rgba", 256 ), "GWITHIN\\( 0, alpha, 255 \\)" );
}

TEST_F( GWinTest, MovingTellsTheListenerAtOnce )
{
    GWinMove( win, { 10, 20, 110, 140 } );
    ASSERT_EQ( 1u, listener.rects.size( ) );
    EXPECT_EQ( ( GRect{ 10, 20, 110, 140 } ), listener.rects[0] );
    GRect rect;
    GWinGetScreenPosition( win, rect );
    EXPECT_EQ( ( GRect{ 10, 20, 110, 140 } ), rect );
}

TEST_F( GWinTest, CaptionDragsTheWindow )
{
    EXPECT_EQ( ( GRect{ 130, 80, 330, 230 } ), drag( GHIT_CAPTION, { 20, 20 }, { 50, 0 } ) );
    EXPECT_EQ( "", listener.said );
}

TEST_F( GWinTest, EdgesSizeTheWindow )
{
    EXPECT_EQ( ( GRect{ 100, 100, 310, 270 } ), drag( GHIT_BOTTOMRIGHT, { 199, 149 }, { 209, 169 } ) );
}

TEST_F( GWinTest, LeftEdgeStopsAtTheSmallestWidth )
{
    listener.minWidth = 150;
    EXPECT_EQ( ( GRect{ 150, 100, 300, 250 } ), drag( GHIT_LEFT, { 0, 50 }, { 190, 50 } ) );
}

TEST_F( GWinTest, MinimumAbove1000Yields100 )
{
    listener.minWidth = 1001;
    listener.minHeight = 1000;
    int width = 0;
    int height = 0;
    win->getTrackSize( width, height );
    EXPECT_EQ( 100, width );
    EXPECT_EQ( 1000, height );
    listener.minHeight = 10;
    EXPECT_EQ( ( GRect{ 100, 100, 200, 250 } ), drag( GHIT_RIGHT, { 199, 50 }, { 2, 50 } ) );
}

TEST_F( GWinTest, ClientPixelsGetClicksInWindowCoordinates )
{
    move( { 5, 6 } );
    press( { 5, 6 } );
    release( { 7, 8 } );
    mouse( QEvent::MouseButtonPress, Qt::RightButton, { 9, 10 } );
    EXPECT_EQ( "move 5,6; ldown 5,6; lup 7,8; rdown 9,10; ", listener.said );
}

TEST_F( GWinTest, SecondPressWithinTheIntervalIsADoubleClick )
{
    press( { 5, 6 }, 1000 );
    press( { 5, 6 }, 1100 );
    press( { 5, 6 }, 1200 );
    press( { 50, 60 }, 1250 );
    EXPECT_EQ( "ldown 5,6; ldbl 5,6; ldown 5,6; ldown 50,60; ", listener.said );
}

TEST_F( GWinTest, LeaveComesOnceAfterAMove )
{
    QEvent leave( QEvent::Leave );
    QCoreApplication::sendEvent( win, &leave );
    move( { 5, 6 } );
    QCoreApplication::sendEvent( win, &leave );
    QCoreApplication::sendEvent( win, &leave );
    EXPECT_EQ( "move 5,6; left 0; ", listener.said );
}

TEST_F( GWinTest, CaptureReachesOutsideAndSkipsTheHitTest )
{
    GWinMouseCapture( win );
    listener.hit = GHIT_CAPTION;
    move( { -20, 400 } );
    release( { -20, 400 } );
    GWinMouseRelease( win );
    listener.hit = GHIT_CLIENT;
    release( { -20, 400 } );
    EXPECT_EQ( "move -20,400; lup -20,400; ", listener.said );
}

TEST_F( GWinTest, KeysAreVirtualKeysAndCharacters )
{
    key( QEvent::KeyPress, Qt::Key_A, QStringLiteral( "a" ) );
    key( QEvent::KeyPress, Qt::Key_A, QStringLiteral( "a" ), { }, true );
    key( QEvent::KeyRelease, Qt::Key_A, { }, { }, true );
    key( QEvent::KeyRelease, Qt::Key_A );
    EXPECT_EQ( "down 65; char 97; down 65; char 97; up 65; ", listener.said );
    listener.said.clear( );
    key( QEvent::KeyPress, Qt::Key_Backspace, QStringLiteral( "\b" ) );
    key( QEvent::KeyPress, Qt::Key_Tab, QStringLiteral( "\t" ) );
    key( QEvent::KeyPress, Qt::Key_Return, QStringLiteral( "\r" ) );
    key( QEvent::KeyPress, Qt::Key_Escape, QStringLiteral( "\x1b" ) );
    EXPECT_EQ( "down 8; char 8; down 9; char 9; down 13; char 13; down 27; char 27; ", listener.said );
    listener.said.clear( );
    key( QEvent::KeyPress, Qt::Key_Delete, QStringLiteral( "\x7f" ) );
    key( QEvent::KeyPress, Qt::Key_F12 );
    key( QEvent::KeyPress, Qt::Key_X, QStringLiteral( "x" ), Qt::AltModifier );
    EXPECT_EQ( "down 46; down 123; down 88; ", listener.said );
}

TEST_F( GWinTest, ControlVPastesTheClipboardsText )
{
    GClipboardSetText( u"from elsewhere \u05D0" );
    key( QEvent::KeyPress, Qt::Key_V, QStringLiteral( "\x16" ), Qt::ControlModifier );
    EXPECT_EQ( "paste 0; ", listener.said );
    EXPECT_EQ( u"from elsewhere \u05D0", listener.pasted );
    EXPECT_EQ( u"from elsewhere \u05D0", GClipboardGetText( ) );
}

TEST_F( GWinTest, ClipboardWithoutTextPastesNothing )
{
    GClipboardSetText( u"" );
    key( QEvent::KeyPress, Qt::Key_V, QStringLiteral( "\x16" ), Qt::ControlModifier );
    EXPECT_EQ( "", listener.said );
}

TEST_F( GWinTest, WheelCountsWholeSteps )
{
    for( const int delta : { 60, 60, -240 } )
    {
        QWheelEvent event( QPointF( 5, 5 ), QPointF( 105, 105 ), { }, { 0, delta }, Qt::NoButton, Qt::NoModifier,
                           Qt::NoScrollPhase, false );
        QCoreApplication::sendEvent( win, &event );
    }
    EXPECT_EQ( "wheel 1; wheel -2; ", listener.said );
}

TEST_F( GWinTest, CloseRequestLeavesTheWindow )
{
    win->close( );
    EXPECT_EQ( "close 0; ", listener.said );
    EXPECT_TRUE( GWinIsVisible( win ) );
}

TEST_F( GWinTest, MayBeClosedFromItsOwnEvent )
{
    listener.closes = true;
    win->close( );
    pumpAll( );
    EXPECT_EQ( "close 0; ", listener.said );
}

TEST_F( GWinTest, LayerBringsItsSize )
{
    const GString pixels( 120 * 60 * 4, '\x7F' );
    GWinRepaint( win, 120, 60, pixels.data( ), 255 );
    GRect rect;
    GWinGetScreenPosition( win, rect );
    EXPECT_EQ( ( GRect{ 100, 100, 220, 160 } ), rect );
    EXPECT_TRUE( listener.rects.empty( ) );
}

TEST_F( GWinTest, PumpEndsWithTheParameterOfTheQuitMessage )
{
    bool quit = true;
    GWinPostQuit( 0 );
    EXPECT_FALSE( GWinUpdate( quit ) );
    EXPECT_FALSE( quit );
    std::thread( []( ) { GWinPostQuit( 1 ); } ).join( );
    EXPECT_FALSE( GWinUpdate( quit ) );
    EXPECT_TRUE( quit );
}

TEST_F( GWinTest, ScaleFollowsTheEnvironment )
{
    EXPECT_DOUBLE_EQ( 1.0, GWinGetScale( ) );
    setenv( "VELMORA_SCALE", "1.5", 1 );
    EXPECT_DOUBLE_EQ( 1.5, GWinGetScale( ) );
    setenv( "VELMORA_SCALE", "nonsense", 1 );
    EXPECT_DOUBLE_EQ( 1.0, GWinGetScale( ) );
    unsetenv( "VELMORA_SCALE" );
}

TEST_F( GWinTest, WhatWaitsForTheFirstWindowRunsOnceOneIsPainted )
{
    // Others of this program may have been painted before: then it runs at once.
    bool ran = false;
    const GString pixels( 200 * 150 * 4, '\xFF' );
    GWinRepaint( win, 200, 150, pixels.data( ), 255 );
    GWinWhenShown( [&ran] { ran = true; } );
    ASSERT_TRUE( pumpUntil( [&ran] { return ran; } ) );
}
