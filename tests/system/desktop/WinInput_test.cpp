// Pointer and keys of a layered window, moved by a real user's means.
#include "system/desktop/OnDesktop.h"

namespace
{
constexpr QRgb COLOR = 0x204060;

class WinInputOnDesktop : public OnDesktop
{
protected:
    void SetUp( ) override
    {
        OnDesktop::SetUp( );
        drive( QStringLiteral( "mousemove 1000 700" ) );
        win = GWinOpen( u"input", { 200, 200, 400, 350 }, false, &listener );
        GWinRepaint( win, 200, 150, plain( 200, 150, "\x20\x40\x60\xFF" ).data( ), 255 );
        GWinShow( win );
        GWinSetForeground( win );
        EXPECT_TRUE( pumpUntil( [&]( ) { return GWinHasKeyFocus( win ) && pixelAt( 300, 300 ) == COLOR; } ) );
        listener.rects.clear( );
    }
    void TearDown( ) override
    {
        GWinClose( win );
        OnDesktop::TearDown( );
    }
    bool comesTo( const GRect& rect )
    {
        return pumpUntil( [&]( ) { return !listener.rects.empty( ) && listener.rects.back( ) == rect; } );
    }

    WinListener listener;
    GWin win = nullptr;
};
} // namespace

// ---- Moving and sizing.

TEST_F( WinInputOnDesktop, CaptionMovesItAndEachProposedPlaceIsTold )
{
    listener.hit = GHIT_CAPTION;
    drive( QStringLiteral( "mousemove 220 220 mousedown 1 mousemove 250 230 sleep 0.05 mousemove 320 260" ) );
    EXPECT_TRUE( comesTo( { 300, 240, 500, 390 } ) );
    EXPECT_GE( listener.rects.size( ), 2u );
    EXPECT_EQ( ( GRect{ 230, 210, 430, 360 } ), listener.rects[0] );
    drive( QStringLiteral( "mouseup 1" ) );
    EXPECT_TRUE( becomes( 490, 380, COLOR ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return pixelAt( 220, 220 ) != COLOR; } ) );
    GRect rect;
    GWinGetScreenPosition( win, rect );
    EXPECT_EQ( ( GRect{ 300, 240, 500, 390 } ), rect );
    // None of it was a click.
    EXPECT_EQ( "", listener.clicks );
    // Released: the next move moves nothing.
    drive( QStringLiteral( "mousemove 400 300" ) );
    pumpAll( );
    EXPECT_EQ( ( GRect{ 300, 240, 500, 390 } ), listener.rects.back( ) );
}

TEST_F( WinInputOnDesktop, EdgesAndCornersSizeIt )
{
    listener.hit = GHIT_TOPLEFT;
    drive( QStringLiteral( "mousemove 201 201 mousedown 1 mousemove 191 181 mouseup 1" ) );
    EXPECT_TRUE( comesTo( { 190, 180, 400, 350 } ) );
    GWinRepaint( win, 210, 170, plain( 210, 170, "\x20\x40\x60\xFF" ).data( ), 255 );
    EXPECT_TRUE( becomes( 192, 182, COLOR ) );
    listener.hit = GHIT_RIGHT;
    drive( QStringLiteral( "mousemove 399 300 mousedown 1 mousemove 449 380 mouseup 1" ) );
    EXPECT_TRUE( comesTo( { 190, 180, 450, 350 } ) );
}

TEST_F( WinInputOnDesktop, SizingStopsAtTheSmallestSize )
{
    listener.hit = GHIT_BOTTOMRIGHT;
    drive( QStringLiteral( "mousemove 399 349 mousedown 1 mousemove 300 280 mousemove 150 100 mouseup 1" ) );
    EXPECT_TRUE( comesTo( { 200, 200, 240, 240 } ) );
    pumpAll( );
    EXPECT_EQ( ( GRect{ 200, 200, 240, 240 } ), listener.rects.back( ) );
}

TEST_F( WinInputOnDesktop, SmallestWidthOf1001CountsAs100 )
{
    listener.minWidth = 1001;
    listener.hit = GHIT_RIGHT;
    drive( QStringLiteral( "mousemove 399 300 mousedown 1 mousemove 210 300 mouseup 1" ) );
    EXPECT_TRUE( comesTo( { 200, 200, 300, 350 } ) );
}

TEST_F( WinInputOnDesktop, WhatTheWindowManagerMovesIsToldToo )
{
    run( QStringLiteral( "wmctrl -r input -e 0,500,100,240,180" ) );
    EXPECT_TRUE( comesTo( { 500, 100, 740, 280 } ) );
}

TEST_F( WinInputOnDesktop, MovedByTheProgramItIsThereAtOnceAndStays )
{
    GWinMove( win, { 600, 300, 700, 400 } );
    ASSERT_EQ( 1u, listener.rects.size( ) );
    GRect rect;
    GWinGetScreenPosition( win, rect );
    EXPECT_EQ( ( GRect{ 600, 300, 700, 400 } ), rect );
    EXPECT_TRUE( becomes( 690, 390, COLOR ) );
    EXPECT_EQ( 1u, listener.rects.size( ) );
}

// ---- Buttons.

TEST_F( WinInputOnDesktop, ButtonsAreTakenInWindowCoordinates )
{
    drive( QStringLiteral( "mousemove 210 220 click 1 sleep 0.6 click 3 click 2" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.clicks == "down 10,20; up 10,20; right 10,20; "; } ) )
        << listener.clicks;
}

TEST_F( WinInputOnDesktop, SecondClickIsADoubleClickAndTheThirdIsNot )
{
    drive( QStringLiteral( "mousemove 210 220 click --repeat 3 --delay 40 1" ) );
    EXPECT_TRUE( pumpUntil(
        [&]( ) { return listener.clicks == "down 10,20; up 10,20; double 10,20; up 10,20; down 10,20; up 10,20; "; } ) )
        << listener.clicks;
}

TEST_F( WinInputOnDesktop, LeavingIsToldOnce )
{
    drive( QStringLiteral( "mousemove 210 220 mousemove 230 240" ) );
    EXPECT_TRUE(
        pumpUntil( [&]( ) { return !listener.moves.empty( ) && listener.moves.back( ) == QPoint( 30, 40 ); } ) );
    EXPECT_EQ( 0, listener.lefts );
    drive( QStringLiteral( "mousemove 800 600 mousemove 810 610" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.lefts == 1; } ) );
    // From the client area to a pixel that drags the window.
    drive( QStringLiteral( "mousemove 210 220" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.moves.back( ) == QPoint( 10, 20 ); } ) );
    listener.hit = GHIT_CAPTION;
    drive( QStringLiteral( "mousemove 212 222" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.lefts == 2; } ) );
}

TEST_F( WinInputOnDesktop, CaptureBringsThePointerFromOutside )
{
    drive( QStringLiteral( "mousemove 210 220 mousedown 1" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.clicks == "down 10,20; "; } ) );
    GWinMouseCapture( win );
    drive( QStringLiteral( "mousemove 190 700 mouseup 1" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.clicks == "down 10,20; up -10,500; "; } ) ) << listener.clicks;
    EXPECT_EQ( QPoint( -10, 500 ), listener.moves.back( ) );
    GWinMouseRelease( win );
    // Without a button, too.
    GWinMouseCapture( win );
    drive( QStringLiteral( "mousemove 700 600" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.moves.back( ) == QPoint( 500, 400 ); } ) );
    GWinMouseRelease( win );
    const size_t moves = listener.moves.size( );
    drive( QStringLiteral( "mousemove 710 610 click 1" ) );
    pumpAll( );
    EXPECT_EQ( moves, listener.moves.size( ) );
    EXPECT_EQ( "down 10,20; up -10,500; ", listener.clicks );
}

// ---- Keys.

TEST_F( WinInputOnDesktop, KeysGoDownUpAndAreCharacters )
{
    drive( QStringLiteral( "key a shift+b" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.keyUps.size( ) == 3; } ) );
    drive( QStringLiteral( "key exclam F5" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !listener.keyUps.empty( ) && listener.keyUps.back( ) == 116; } ) );
    EXPECT_EQ( u"aB!", listener.typed );
    EXPECT_EQ( ( std::vector<int>{ 65, 16, 66, 16, 49, 116 } ), listener.keys );
    EXPECT_EQ( ( std::vector<int>{ 65, 16, 66, 16, 49, 116 } ), listener.keyUps );
}

TEST_F( WinInputOnDesktop, HeldKeyRepeatsAndIsUpOnce )
{
    run( QStringLiteral( "xset r rate 100 50" ) );
    drive( QStringLiteral( "keydown a" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.keys.size( ) >= 4; } ) );
    EXPECT_EQ( std::vector<int>{ }, listener.keyUps );
    drive( QStringLiteral( "keyup a" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.keyUps == std::vector<int>{ 65 }; } ) );
    EXPECT_EQ( GWString( listener.keys.size( ), u'a' ), listener.typed );
}

TEST_F( WinInputOnDesktop, KeysThatAreDownReadAsAHotkeysText )
{
    drive( QStringLiteral( "keydown ctrl keydown shift keydown space" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.held == u"CONTROL+SHIFT+SPACE"; } ) );
    EXPECT_TRUE( GSystemIsKeyDown( 32 ) );
    EXPECT_TRUE( GSystemIsKeyDown( 17 ) );
    EXPECT_FALSE( GSystemIsKeyDown( 65 ) );
    drive( QStringLiteral( "keyup space keyup shift" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return GSystemGetKeysPressed( ) == u"CONTROL"; } ) );
    drive( QStringLiteral( "keyup ctrl" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return GSystemGetKeysPressed( ).empty( ); } ) );
}

TEST_F( WinInputOnDesktop, LocksAndButtonsAreNoKeysPressed )
{
    drive( QStringLiteral( "mousemove 210 220 mousedown 1 key Num_Lock keydown alt keydown F7" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return GSystemGetKeysPressed( ) == u"ALT+F7"; } ) );
    EXPECT_TRUE( GSystemIsKeyDown( 1 ) );
    EXPECT_FALSE( GSystemIsKeyDown( 2 ) );
    drive( QStringLiteral( "keyup F7 keyup alt mouseup 1 key Num_Lock" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return GSystemGetKeysPressed( ).empty( ) && !GSystemIsKeyDown( 1 ); } ) );
}

// ---- Paste.

TEST_F( WinInputOnDesktop, ControlVPastesWhatAnotherProgramCopied )
{
    run( QStringLiteral( "sh -c \"printf 'gr\\303\\274\\303\\237e' | xclip -selection clipboard\"" ) );
    drive( QStringLiteral( "key ctrl+v" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return !listener.pasted.empty( ); } ) );
    EXPECT_EQ( ( std::vector<GWString>{ u"gr\u00FC\u00DFe" } ), listener.pasted );
    EXPECT_EQ( u"", listener.typed );
}

TEST_F( WinInputOnDesktop, ClipboardWithoutTextPastesNothing )
{
    run( QStringLiteral( "sh -c \"printf '\\211PNG' | xclip -selection clipboard -t image/png\"" ) );
    drive( QStringLiteral( "key ctrl+v key x" ) );
    EXPECT_TRUE( pumpUntil( [&]( ) { return listener.typed == u"x"; } ) );
    EXPECT_TRUE( listener.pasted.empty( ) );
}

TEST_F( WinInputOnDesktop, CopiedTextIsForOtherPrograms )
{
    GClipboardSetText( u"from here \u05D0" );
    EXPECT_EQ( QByteArray( "from here \xD7\x90" ), run( QStringLiteral( "xclip -selection clipboard -o" ) ) );
}
