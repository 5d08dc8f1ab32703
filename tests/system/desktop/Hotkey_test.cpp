// Hotkeys, pressed on a real keyboard while other programs have the focus.
#include "platform/input/GHotkey.h"
#include "system/desktop/OnDesktop.h"

#include <cstdlib>

namespace
{
class HotkeyOnDesktop : public OnDesktop
{
protected:
    void SetUp( ) override
    {
        OnDesktop::SetUp( );
        // Many repeats within the time that a key is held.
        run( QStringLiteral( "xset r rate 100 50" ) );
    }
    void press( const GWString& text )
    {
        hotkey = GSystemHotkeyOpen( text, u"Talk" );
        ASSERT_NE( nullptr, hotkey );
    }
    bool wentDown( int count )
    {
        return pumpUntil( [&]( ) { return listener.downs == count; } );
    }
    bool wentUp( int count )
    {
        return pumpUntil( [&]( ) { return listener.ups == count; } );
    }

    SystemListener listener;
    GHotkey hotkey = nullptr;
};
} // namespace

TEST_F( HotkeyOnDesktop, HeldItGoesDownOnceAndUpOnce )
{
    press( u"CONTROL+SPACE" );
    drive( QStringLiteral( "keydown ctrl keydown space" ) );
    EXPECT_TRUE( wentDown( 1 ) );
    drive( QStringLiteral( "sleep 0.8" ) );
    EXPECT_EQ( 1, listener.downs );
    EXPECT_EQ( 0, listener.ups );
    drive( QStringLiteral( "keyup space" ) );
    EXPECT_TRUE( wentUp( 1 ) );
    drive( QStringLiteral( "keyup ctrl" ) );
    EXPECT_EQ( 1, listener.downs );
    EXPECT_EQ( 1, listener.ups );
    EXPECT_EQ( u"Talk", listener.last );
    EXPECT_EQ( u"Talk", listener.lastUp );
    GSystemHotkeyClose( hotkey );
}

// The program was busy while the key repeated and went up: what waits for it then is no new press.
TEST_F( HotkeyOnDesktop, RepeatsThatArriveAfterTheReleaseDoNotPressItAgain )
{
    press( u"F9" );
    drive( QStringLiteral( "keydown F9" ) );
    ASSERT_TRUE( wentDown( 1 ) );
    ASSERT_EQ( 0, std::system( "xdotool sleep 0.3 keyup F9" ) );
    GHotkeyPoll( );
    EXPECT_EQ( 1, listener.ups );
    drive( QStringLiteral( "sleep 0.3" ) );
    EXPECT_EQ( 1, listener.downs );
    EXPECT_EQ( 1, listener.ups );
    // The next press counts, however soon it comes.
    ASSERT_EQ( 0, std::system( "xdotool keydown F9" ) );
    EXPECT_TRUE( wentDown( 2 ) );
    drive( QStringLiteral( "keyup F9" ) );
    EXPECT_TRUE( wentUp( 2 ) );
    GSystemHotkeyClose( hotkey );
}

TEST_F( HotkeyOnDesktop, LongHoldIsOneTalk )
{
    press( u"F9" );
    for( int i = 1; i <= 5; ++i )
    {
        drive( QStringLiteral( "keydown F9 sleep 0.4 keyup F9" ) );
        EXPECT_TRUE( wentUp( i ) );
    }
    drive( QStringLiteral( "sleep 0.3" ) );
    EXPECT_EQ( 5, listener.downs );
    EXPECT_EQ( 5, listener.ups );
    GSystemHotkeyClose( hotkey );
}

TEST_F( HotkeyOnDesktop, ModifierReleasedFirstEndsIt )
{
    press( u"Control+F9" );
    drive( QStringLiteral( "keydown ctrl keydown F9" ) );
    EXPECT_TRUE( wentDown( 1 ) );
    drive( QStringLiteral( "keyup ctrl" ) );
    EXPECT_TRUE( wentUp( 1 ) );
    // What still repeats is another combination.
    drive( QStringLiteral( "sleep 0.3 keyup F9" ) );
    EXPECT_EQ( 1, listener.downs );
    EXPECT_EQ( 1, listener.ups );
    GSystemHotkeyClose( hotkey );
}

TEST_F( HotkeyOnDesktop, ShortTapGoesDownAndUp )
{
    press( u"F9" );
    for( int i = 1; i <= 3; ++i )
    {
        drive( QStringLiteral( "key F9" ) );
        EXPECT_TRUE( wentDown( i ) );
        EXPECT_TRUE( wentUp( i ) );
    }
    GSystemHotkeyClose( hotkey );
}

TEST_F( HotkeyOnDesktop, LocksDoNotMatter )
{
    press( u"SHIFT+F9" );
    int count = 0;
    for( const char* lock : { "Num_Lock", "Caps_Lock", "Num_Lock" } ) // The third time caps lock alone is on.
    {
        drive( QStringLiteral( "key %1 key shift+F9" ).arg( QLatin1String( lock ) ) );
        EXPECT_TRUE( wentDown( ++count ) ) << lock;
        EXPECT_TRUE( wentUp( count ) ) << lock;
    }
    drive( QStringLiteral( "key Caps_Lock" ) );
    GSystemHotkeyClose( hotkey );
}

TEST_F( HotkeyOnDesktop, AnotherModifierMakesItAnotherCombination )
{
    press( u"F9" );
    drive( QStringLiteral( "key shift+F9 key ctrl+F9 key F9" ) );
    EXPECT_TRUE( wentDown( 1 ) );
    EXPECT_TRUE( wentUp( 1 ) );
    pumpAll( );
    EXPECT_EQ( 1, listener.downs );
    GSystemHotkeyClose( hotkey );
}

TEST_F( HotkeyOnDesktop, AltAloneIsTakenByThePlatform )
{
    press( u"Alt" );
    drive( QStringLiteral( "keydown alt" ) );
    EXPECT_TRUE( wentDown( 1 ) );
    EXPECT_EQ( 0, listener.ups );
    drive( QStringLiteral( "keyup alt" ) );
    EXPECT_TRUE( wentUp( 1 ) );
    GSystemHotkeyClose( hotkey );
}

TEST_F( HotkeyOnDesktop, WindowsKeyIsAModifierOnBothSides )
{
    press( u"WINDOWS+F9" );
    for( int i = 1; i <= 2; ++i )
    {
        const QString side = i == 1 ? QStringLiteral( "Super_L" ) : QStringLiteral( "Super_R" );
        drive( QStringLiteral( "keydown %1 keydown F9" ).arg( side ) );
        EXPECT_TRUE( wentDown( i ) );
        drive( QStringLiteral( "sleep 0.3" ) );
        EXPECT_EQ( i - 1, listener.ups );
        drive( QStringLiteral( "keyup F9 keyup %1" ).arg( side ) );
        EXPECT_TRUE( wentUp( i ) );
    }
    GSystemHotkeyClose( hotkey );
}

TEST_F( HotkeyOnDesktop, TakenByOurselvesOrAnotherProgramGivesNull )
{
    press( u"CONTROL+F8" );
    EXPECT_EQ( nullptr, GSystemHotkeyOpen( u"f8+control", u"two" ) );
    GSystemHotkeyClose( hotkey );
    // The window manager holds this one for closing windows.
    EXPECT_EQ( nullptr, GSystemHotkeyOpen( u"ALT+F4", u"three" ) );
    hotkey = GSystemHotkeyOpen( u"CONTROL+F8", u"two" );
    EXPECT_NE( nullptr, hotkey );
    GSystemHotkeyClose( hotkey );
}

TEST_F( HotkeyOnDesktop, KeyThatTheKeyboardLacksGivesNull )
{
    EXPECT_EQ( nullptr, GSystemHotkeyOpen( u"SEPARATOR", u"none" ) );
    EXPECT_EQ( nullptr, GSystemHotkeyOpen( u"nothing+known", u"none" ) );
}

TEST_F( HotkeyOnDesktop, ClosedItIsQuietAndTheKeyIsFreeAgain )
{
    WinListener typing;
    GWin win = GWinOpen( u"typing", { 200, 200, 400, 350 }, false, &typing );
    GWinRepaint( win, 200, 150, plain( 200, 150, "\x20\x40\x60\xFF" ).data( ), 255 );
    GWinShow( win );
    GWinSetForeground( win );
    ASSERT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( win ); } ) );
    press( u"F9" );
    drive( QStringLiteral( "keydown F9" ) );
    EXPECT_TRUE( wentDown( 1 ) );
    GSystemHotkeyClose( hotkey );
    drive( QStringLiteral( "keyup F9 sleep 0.3 key F9" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !typing.keys.empty( ) && typing.keys.back( ) == 120; } ) );
    EXPECT_EQ( 1, listener.downs );
    EXPECT_EQ( 0, listener.ups );
    GWinClose( win );
}

TEST_F( HotkeyOnDesktop, OtherKeysReachTheFocusWhileItIsHeld )
{
    WinListener typing;
    GWin win = GWinOpen( u"typing", { 200, 200, 400, 350 }, false, &typing );
    GWinRepaint( win, 200, 150, plain( 200, 150, "\x20\x40\x60\xFF" ).data( ), 255 );
    GWinShow( win );
    GWinSetForeground( win );
    press( u"F9" );
    ASSERT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( win ); } ) );
    drive( QStringLiteral( "keydown F9" ) );
    EXPECT_TRUE( wentDown( 1 ) );
    drive( QStringLiteral( "key x" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return typing.typed == u"x"; } ) );
    EXPECT_EQ( 0, listener.ups );
    drive( QStringLiteral( "keyup F9" ) );
    EXPECT_TRUE( wentUp( 1 ) );
    GSystemHotkeyClose( hotkey );
    GWinClose( win );
}

TEST_F( HotkeyOnDesktop, LettersFollowTheLayout )
{
    press( u"CONTROL+SHIFT+Z" );
    drive( QStringLiteral( "key ctrl+shift+z" ) );
    EXPECT_TRUE( wentDown( 1 ) && wentUp( 1 ) );
    // Here Z and Y have changed places. The window manager takes its own keys anew, too, so this test is the last one.
    run( QStringLiteral( "setxkbmap de" ) );
    EXPECT_TRUE( pumpUntil(
        [&]( )
        {
            drive( QStringLiteral( "key ctrl+shift+z" ) );
            return listener.downs >= 2;
        } ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.ups == listener.downs; } ) );
    const int downs = listener.downs;
    // 52 is the key that was Z before.
    drive( QStringLiteral( "keydown ctrl keydown shift key 52 keyup shift keyup ctrl" ) );
    pumpAll( );
    EXPECT_EQ( downs, listener.downs );
    GSystemHotkeyClose( hotkey );
}
