// The desktop families against a real X server and window manager, driven as a user drives them. Run by way of with-desktop.
#include "base/GPortable.h"
#include "base/GUtil.h"
#include "platform/GIcon.h"
#include "platform/GSystem.h"
#include "platform/GWin.h"
#include "unit/desktop/DesktopFixture.h"

#include <QApplication>
#include <QProcess>
#include <QScreen>
#include <QWidget>

#include <cstdlib>

namespace
{
bool isComposited( )
{
    return std::getenv( "VELMORA_TEST_COMPOSITED" ) != nullptr;
}

class OnDesktop : public DesktopFixture
{
protected:
    // Runs a program beside the message loop; its output.
    static QByteArray run( const QString& command )
    {
        QProcess process;
        process.setProcessChannelMode( QProcess::ForwardedErrorChannel );
        process.startCommand( command );
        EXPECT_TRUE( pumpUntil( [&]( ) { return process.state( ) == QProcess::NotRunning; } ) )
            << command.toStdString( );
        return process.readAll( );
    }
    static void drive( const QString& steps ) { run( QStringLiteral( "xdotool " ) + steps ); }
    static QRgb pixelAt( int x, int y )
    {
        return QGuiApplication::primaryScreen( )->grabWindow( 0, x, y, 1, 1 ).toImage( ).pixel( 0, 0 ) & 0xFFFFFF;
    }
    static bool isNear( QRgb a, QRgb b )
    {
        return std::abs( qRed( a ) - qRed( b ) ) <= 3 && std::abs( qGreen( a ) - qGreen( b ) ) <= 3 &&
               std::abs( qBlue( a ) - qBlue( b ) ) <= 3;
    }
    static GString plain( int width, int height, const char ( &pixel )[5] )
    {
        GString pixels;
        for( int i = 0; i < width * height; ++i ) pixels.append( pixel, 4 );
        return pixels;
    }
};

class WinListener : public IGWinListener
{
public:
    int getNCHITTEST( GWin, int, int ) override { return hit; }
    bool getMinSize( GWin, int& width, int& height ) override
    {
        width = height = 40;
        return true;
    }
    void onReposition( GWin, const GRect& rect ) override { rects.push_back( rect ); }
    int onLButtonDown( GWin, int x, int y ) override
    {
        downs.push_back( { x, y } );
        return 0;
    }
    int onKeyPressed( GWin, char16_t character ) override
    {
        typed += character;
        return 0;
    }
    int onKeyDown( GWin, int key ) override
    {
        keys.push_back( key );
        held = GSystemGetKeysPressed( );
        return 0;
    }
    int hit = GHIT_CLIENT;
    std::vector<GRect> rects;
    std::vector<QPoint> downs;
    std::vector<int> keys;
    GWString typed;
    GWString held;
};

class SystemListener : public IGSystemListener
{
public:
    SystemListener( ) { GSystemRegisterListener( this ); }
    ~SystemListener( ) override { GSystemResignListener( this ); }
    void onSuspend( ) override {}
    void onResume( ) override {}
    void onHotkeyDown( GHotkey, const GWString& name ) override
    {
        ++downs;
        last = name;
    }
    void onHotkeyUp( GHotkey, const GWString& ) override { ++ups; }
    int downs = 0;
    int ups = 0;
    GWString last;
};

class IconListener : public IGIconListener
{
public:
    void onLButtonDown( GIcon ) override { ++left; }
    void onLButtonDblClk( GIcon ) override { ++twice; }
    void onRButtonDown( GIcon ) override { ++right; }
    void onBubbleClick( GIcon, int value ) override { cookie = value; }
    int left = 0;
    int twice = 0;
    int right = 0;
    int cookie = 0;
};

QWidget* findBalloon( )
{
    for( QWidget* widget : QApplication::topLevelWidgets( ) )
        if( widget->isVisible( ) && widget->inherits( "QBalloonTip" ) ) return widget;
    return nullptr;
}
} // namespace

TEST_F( OnDesktop, WindowShowsEachPixelWithItsAlpha )
{
    WinListener below;
    WinListener above;
    // A white sheet, and over it a window whose left half is half transparent red and whose right half is not there.
    GWin sheet = GWinOpen( u"sheet", { 100, 100, 400, 300 }, false, &below );
    GWinRepaint( sheet, 300, 200, plain( 300, 200, "\xFF\xFF\xFF\xFF" ).data( ), 255 );
    GWinShow( sheet );
    ASSERT_TRUE( pumpUntil( [&]( ) { return pixelAt( 350, 150 ) == 0xFFFFFF; } ) );
    GWin glass = GWinOpen( u"glass", { 150, 150, 250, 250 }, true, &above );
    GString pixels;
    for( int i = 0; i < 100 * 100; ++i ) pixels += i % 100 < 50 ? GString( "\x80\0\0\x80", 4 ) : GString( 4, '\0' );
    GWinRepaint( glass, 100, 100, pixels.data( ), 255 );
    GWinShow( glass );
    // Without a compositor the half that shows is opaque; what is not there lets the sheet through in both cases.
    const QRgb expected = isComposited( ) ? 0xFF7F7F : 0x800000;
    EXPECT_TRUE( pumpUntil( [&]( ) { return isNear( pixelAt( 170, 200 ), expected ); } ) )
        << std::hex << pixelAt( 170, 200 );
    EXPECT_TRUE( pumpUntil( [&]( ) { return pixelAt( 230, 200 ) == 0xFFFFFF; } ) ) << std::hex << pixelAt( 230, 200 );
    if( isComposited( ) )
    {
        GWinRepaint( glass, 100, 100, pixels.data( ), 128 );
        EXPECT_TRUE( pumpUntil( [&]( ) { return isNear( pixelAt( 170, 200 ), 0xFFBFBF ); } ) )
            << std::hex << pixelAt( 170, 200 );
    }
    // Input passes where there is nothing, and the click on the topmost window takes no focus.
    drive( QStringLiteral( "mousemove 230 200 click 1" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !below.downs.empty( ); } ) );
    EXPECT_TRUE( above.downs.empty( ) );
    drive( QStringLiteral( "mousemove 170 200 click 1" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !above.downs.empty( ); } ) );
    EXPECT_EQ( QPoint( 20, 50 ), above.downs[0] );
    EXPECT_FALSE( GWinHasKeyFocus( glass ) );
    GWinClose( glass );
    GWinClose( sheet );
}

TEST_F( OnDesktop, WindowIsDraggedAndSizedByItsHitCodes )
{
    WinListener listener;
    GWin win = GWinOpen( u"drag", { 200, 200, 400, 350 }, false, &listener );
    GWinRepaint( win, 200, 150, plain( 200, 150, "\x20\x40\x60\xFF" ).data( ), 255 );
    GWinShow( win );
    ASSERT_TRUE( pumpUntil( [&]( ) { return pixelAt( 300, 300 ) == 0x204060; } ) );
    listener.hit = GHIT_CAPTION;
    drive( QStringLiteral( "mousemove 220 220 mousedown 1 mousemove 250 230 mousemove 320 260 mouseup 1" ) );
    const GRect moved = { 300, 240, 500, 390 };
    EXPECT_TRUE( pumpUntil( [&]( ) { return !listener.rects.empty( ) && listener.rects.back( ) == moved; } ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return pixelAt( 490, 380 ) == 0x204060 && pixelAt( 220, 220 ) != 0x204060; } ) );
    listener.hit = GHIT_BOTTOMRIGHT;
    drive( QStringLiteral( "mousemove 499 389 mousedown 1 mousemove 400 300 mousemove 250 200 mouseup 1" ) );
    const GRect smallest = { 300, 240, 340, 280 };
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.rects.back( ) == smallest; } ) );
    pumpAll( );
    EXPECT_EQ( smallest, listener.rects.back( ) );
    GWinClose( win );
}

TEST_F( OnDesktop, MaximizeMinimizeAndRestoreFollowTheWindowManager )
{
    WinListener listener;
    GWin win = GWinOpen( u"states", { 200, 200, 400, 350 }, false, &listener );
    GWinRepaint( win, 200, 150, plain( 200, 150, "\x20\x40\x60\xFF" ).data( ), 255 );
    GWinShow( win );
    GWinSetForeground( win );
    EXPECT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( win ); } ) );
    GWinMaximize( win );
    EXPECT_TRUE( pumpUntil(
        [&]( )
        { return GWinIsMaximized( win ) && !listener.rects.empty( ) && listener.rects.back( ).width( ) > 1000; } ) );
    GWinRestore( win );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !GWinIsMaximized( win ) && listener.rects.back( ).width( ) == 200; } ) );
    ASSERT_TRUE( pumpUntil( [&]( ) { return pixelAt( 300, 300 ) == 0x204060 && pixelAt( 600, 600 ) != 0x204060; } ) );
    GWinMinimize( win );
    EXPECT_TRUE( pumpUntil( [&]( ) { return GWinIsMinimized( win ) && pixelAt( 300, 300 ) != 0x204060; } ) );
    GWinRestore( win );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !GWinIsMinimized( win ) && pixelAt( 300, 300 ) == 0x204060; } ) );
    GWinFlash( win );
    GWinClose( win );
}

TEST_F( OnDesktop, TypedKeysArriveAsKeysAndCharacters )
{
    WinListener listener;
    GWin win = GWinOpen( u"keys", { 200, 200, 400, 350 }, false, &listener );
    GWinRepaint( win, 200, 150, plain( 200, 150, "\x20\x40\x60\xFF" ).data( ), 255 );
    GWinShow( win );
    GWinSetForeground( win );
    ASSERT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( win ); } ) );
    drive( QStringLiteral( "key a shift+b exclam F5" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !listener.keys.empty( ) && listener.keys.back( ) == 116; } ) );
    EXPECT_EQ( u"aB!", listener.typed );
    EXPECT_EQ( ( std::vector<int>{ 65, 16, 66, 16, 49, 116 } ), listener.keys );
    drive( QStringLiteral( "keydown ctrl keydown shift keydown space" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.held == u"CONTROL+SHIFT+SPACE"; } ) )
        << GWideToUTF8( listener.held );
    EXPECT_TRUE( GSystemIsKeyDown( 32 ) );
    EXPECT_FALSE( GSystemIsKeyDown( 65 ) );
    drive( QStringLiteral( "keyup space keyup shift keyup ctrl" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return GSystemGetKeysPressed( ).empty( ); } ) );
    GWinClose( win );
}

TEST_F( OnDesktop, HeldHotkeyGoesDownOnceAndUpOnce )
{
    SystemListener listener;
    GHotkey hotkey = GSystemHotkeyOpen( u"CONTROL+SPACE", u"Talk" );
    ASSERT_NE( nullptr, hotkey );
    // Many repeats within the time that the key is held.
    run( QStringLiteral( "xset r rate 100 50" ) );
    drive( QStringLiteral( "keydown ctrl keydown space" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.downs == 1; } ) );
    drive( QStringLiteral( "sleep 0.8" ) );
    EXPECT_EQ( 1, listener.downs );
    EXPECT_EQ( 0, listener.ups );
    drive( QStringLiteral( "keyup space" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.ups == 1; } ) );
    drive( QStringLiteral( "keyup ctrl" ) );
    EXPECT_EQ( 1, listener.downs );
    EXPECT_EQ( 1, listener.ups );
    EXPECT_EQ( u"Talk", listener.last );
    GSystemHotkeyClose( hotkey );
}

TEST_F( OnDesktop, ModifierReleasedFirstEndsTheHotkey )
{
    SystemListener listener;
    GHotkey hotkey = GSystemHotkeyOpen( u"Control+F9", u"Talk" );
    ASSERT_NE( nullptr, hotkey );
    drive( QStringLiteral( "keydown ctrl keydown F9" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.downs == 1; } ) );
    drive( QStringLiteral( "keyup ctrl" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.ups == 1; } ) );
    drive( QStringLiteral( "keyup F9" ) );
    EXPECT_EQ( 1, listener.downs );
    GSystemHotkeyClose( hotkey );
}

TEST_F( OnDesktop, HotkeyFiresWithNumberLockOn )
{
    SystemListener listener;
    GHotkey hotkey = GSystemHotkeyOpen( u"F9", u"Talk" );
    ASSERT_NE( nullptr, hotkey );
    drive( QStringLiteral( "key Num_Lock key Caps_Lock key F9 key Num_Lock key Caps_Lock" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.downs == 1 && listener.ups == 1; } ) );
    // Another modifier makes it another combination.
    drive( QStringLiteral( "key shift+F9" ) );
    drive( QStringLiteral( "key F9" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.downs == 2 && listener.ups == 2; } ) );
    GSystemHotkeyClose( hotkey );
}

TEST_F( OnDesktop, AltAloneIsAHotkeyOfThePlatform )
{
    SystemListener listener;
    GHotkey hotkey = GSystemHotkeyOpen( u"Alt", u"Talk" );
    ASSERT_NE( nullptr, hotkey );
    drive( QStringLiteral( "keydown alt" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.downs == 1; } ) );
    EXPECT_EQ( 0, listener.ups );
    drive( QStringLiteral( "keyup alt" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.ups == 1; } ) );
    GSystemHotkeyClose( hotkey );
}

TEST_F( OnDesktop, TakenCombinationGivesNull )
{
    GHotkey hotkey = GSystemHotkeyOpen( u"CONTROL+F8", u"one" );
    ASSERT_NE( nullptr, hotkey );
    EXPECT_EQ( nullptr, GSystemHotkeyOpen( u"CONTROL+F8", u"two" ) );
    GSystemHotkeyClose( hotkey );
    // The window manager holds this one for closing windows.
    EXPECT_EQ( nullptr, GSystemHotkeyOpen( u"ALT+F4", u"three" ) );
    hotkey = GSystemHotkeyOpen( u"CONTROL+F8", u"two" );
    EXPECT_NE( nullptr, hotkey );
    GSystemHotkeyClose( hotkey );
}

TEST_F( OnDesktop, OtherKeysReachOthersWhileTheHotkeyIsHeld )
{
    WinListener typing;
    SystemListener listener;
    GWin win = GWinOpen( u"typing", { 200, 200, 400, 350 }, false, &typing );
    GWinRepaint( win, 200, 150, plain( 200, 150, "\x20\x40\x60\xFF" ).data( ), 255 );
    GWinShow( win );
    GWinSetForeground( win );
    GHotkey hotkey = GSystemHotkeyOpen( u"F9", u"Talk" );
    ASSERT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( win ); } ) );
    drive( QStringLiteral( "keydown F9" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.downs == 1; } ) );
    drive( QStringLiteral( "key x" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return typing.typed == u"x"; } ) );
    drive( QStringLiteral( "keyup F9" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.ups == 1; } ) );
    GSystemHotkeyClose( hotkey );
    GWinClose( win );
}

TEST_F( OnDesktop, TrayIconShowsOneBalloonAText )
{
    IconListener listener;
    GIcon icon = GIconOpen( &listener );
    ASSERT_TRUE( pumpUntil( [&]( ) { return GIconIsShown( icon ); } ) );
    GIconSetState( icon, GIS_PRIVATE_ONLINE );
    GIconSetText( icon, GWString( 100, u'x' ) );
    GIconSetBubble( icon, u"Title", u"Somebody calls", 7 );
    ASSERT_TRUE( pumpUntil( [&]( ) { return findBalloon( ) != nullptr; } ) );
    const QPoint middle = findBalloon( )->geometry( ).center( );
    drive( QStringLiteral( "mousemove %1 %2 click 1" ).arg( middle.x( ) ).arg( middle.y( ) ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.cookie == 7 && !findBalloon( ); } ) );
    GIconSetBubble( icon, u"Title", u"Somebody calls", 8 );
    pumpAll( );
    EXPECT_EQ( nullptr, findBalloon( ) );
    GIconSetBubble( icon, u"Title", u"Somebody else calls", 9 );
    EXPECT_TRUE( pumpUntil( [&]( ) { return findBalloon( ) != nullptr; } ) );
    GIconClose( icon );
}
