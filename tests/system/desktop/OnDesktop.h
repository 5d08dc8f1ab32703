// A real desktop for a test, driven as a user drives it: xdotool, programs that come and go beside the test, pixels of the screen.
// Run by way of with-desktop.
#pragma once

#include "platform/GIcon.h"
#include "platform/GSystem.h"
#include "platform/GWin.h"
#include "unit/desktop/DesktopFixture.h"

#include <QPoint>
#include <QProcess>
#include <QRgb>

#include <memory>

// Another program, from the start of its test to the end.
class Program
{
public:
    explicit Program( const QString& command );
    ~Program( );
    void stop( );
    bool isRunning( ) const;

private:
    QProcess _process;
};

class OnDesktop : public DesktopFixture
{
protected:
    void TearDown( ) override;

    // Runs a program beside the message loop to its end; its output.
    static QByteArray run( const QString& command );
    static void drive( const QString& steps ) { run( QStringLiteral( "xdotool " ) + steps ); }
    static QRgb pixelAt( int x, int y );
    // True when two colours can't be told apart by eye.
    static bool isNear( QRgb a, QRgb b );
    static bool becomes( int x, int y, QRgb color )
    {
        return pumpUntil( [=]( ) { return isNear( pixelAt( x, y ), color ); } );
    }
    static GString plain( int width, int height, const char ( &pixel )[5] );
    // The property of a window as xprop prints it.
    static QByteArray property( GWin win, const QString& name );
    // Waits until the compositor works, or is gone.
    static bool awaitCompositor( bool there );
    static bool awaitTray( bool there )
    {
        return pumpUntil( [=]( ) { return GIconHasHost( ) == there; } );
    }
    static std::unique_ptr<Program> startCompositor( );
    static std::unique_ptr<Program> startTray( );
    // Keeps a picture of the screen for whoever wants to look, when VELMORA_TEST_PICTURES names a folder.
    static void keepPicture( const QString& name );
};

// What a window heard.
class WinListener : public IGWinListener
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
    int onKeyDown( GWin, int key ) override
    {
        keys.push_back( key );
        held = GSystemGetKeysPressed( );
        return 0;
    }
    int onKeyUp( GWin, int key ) override
    {
        keyUps.push_back( key );
        return 0;
    }
    int onKeyPressed( GWin, char16_t character ) override
    {
        typed += character;
        return 0;
    }
    int onMouseMove( GWin, int x, int y ) override
    {
        moves.push_back( { x, y } );
        return 0;
    }
    void onMouseLeft( GWin ) override { ++lefts; }
    int onLButtonDown( GWin, int x, int y ) override { return note( "down", x, y ); }
    int onLButtonUp( GWin, int x, int y ) override { return note( "up", x, y ); }
    int onLButtonDblClk( GWin, int x, int y ) override { return note( "double", x, y ); }
    int onRButtonDown( GWin, int x, int y ) override { return note( "right", x, y ); }
    void onClose( GWin ) override { ++closes; }
    void onShow( GWin ) override { ++shows; }
    int onPaste( GWin, const GWString& text ) override
    {
        pasted.push_back( text );
        return 0;
    }

    int hit = GHIT_CLIENT;
    int minWidth = 40;
    int minHeight = 40;
    std::vector<GRect> rects;
    std::vector<int> keys;
    std::vector<int> keyUps;
    GWString typed;
    GWString held;
    std::vector<QPoint> moves;
    std::string clicks; // "down 20,50; up 20,50; "
    int lefts = 0;
    int closes = 0;
    int shows = 0;
    std::vector<GWString> pasted;

private:
    int note( const char* what, int x, int y )
    {
        clicks += std::string( what ) + " " + std::to_string( x ) + "," + std::to_string( y ) + "; ";
        return 0;
    }
};

class SystemListener : public IGSystemListener
{
public:
    SystemListener( ) { GSystemRegisterListener( this ); }
    ~SystemListener( ) override { GSystemResignListener( this ); }
    void onSuspend( ) override { ++suspends; }
    void onResume( ) override { ++resumes; }
    void onHotkeyDown( GHotkey, const GWString& name ) override
    {
        ++downs;
        last = name;
    }
    void onHotkeyUp( GHotkey, const GWString& name ) override
    {
        ++ups;
        lastUp = name;
    }
    int suspends = 0;
    int resumes = 0;
    int downs = 0;
    int ups = 0;
    GWString last;
    GWString lastUp;
};

class IconListener : public IGIconListener
{
public:
    void onLButtonDown( GIcon ) override { ++left; }
    void onLButtonDblClk( GIcon ) override { ++twice; }
    void onRButtonDown( GIcon ) override { ++right; }
    void onBubbleClick( GIcon, int cookie ) override { cookies.push_back( cookie ); }
    int left = 0;
    int twice = 0;
    int right = 0;
    std::vector<int> cookies;
};
