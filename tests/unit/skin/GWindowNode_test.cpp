#include "client/skin/nodes/GWindowNode.h"

#include "NodeTest.h"
#include "client/skin/nodes/GDefaultNode.h"
#include "client/skin/nodes/GEditNode.h"
#include "client/skin/nodes/GNodeKeys.h"
#include "client/skin/nodes/GNodeTools.h"

namespace
{
constexpr int64_t INTERVAL = 66666;

// A node that remembers what reached it and answers as it is told.
class Probe : public GTemplateNode, public IGInputHandler
{
public:
    using GTemplateNode::GTemplateNode;

    bool wantsKeyboardFocus( ) override { return focusable; }
    int onKeyboardFocusChanged( bool focus ) override { return note( focus ? "focus" : "blur" ); }
    int onMouseoverChanged( bool over ) override { return note( over ? "enter" : "leave" ); }
    int onKeyDown( GWin, int ) override { return note( "keydown" ); }
    int onKeyUp( GWin, int ) override { return note( "keyup" ); }
    int onKeyPressed( GWin, char16_t ) override { return note( "char" ); }
    int onPaste( GWin, const GWString& ) override { return note( "paste" ); }
    int onMouseMove( GWin, int, int ) override { return note( "move" ); }
    int onLButtonDown( GWin, int, int ) override { return note( "down" ); }
    int onLButtonUp( GWin, int, int ) override { return note( "up" ); }
    int onLButtonDblClk( GWin, int, int ) override { return note( "dblclk" ); }
    int onRButtonDown( GWin, int, int ) override { return note( "right" ); }
    int onMouseWheel( GWin, int ) override { return note( "wheel" ); }
    void onShow( GWin ) override { note( "show" ); }
    int getNCHITTEST( GWin, int, int ) override { return hitCode; }

    std::vector<std::string> taken( )
    {
        std::vector<std::string> out;
        out.swap( events );
        return out;
    }

    bool focusable = false;
    int hitCode = GHIT_CLIENT;
    int answer = GRESPONSE_NONE;
    int updates = 0;
    int renders = 0;
    bool changed = false;
    std::vector<std::string> events;

protected:
    bool _postChildUpdate( GAttributeStack& ) override
    {
        ++updates;
        return changed;
    }
    bool _preChildRender( GImageStack& images ) override
    {
        ++renders;
        images.setInputHandler( this );
        return true;
    }

private:
    int note( const char* event )
    {
        events.emplace_back( event );
        return answer;
    }
};
} // namespace

class GWindowNodeTest : public NodeTest
{
protected:
    // A window of 40 by 30 with two cells of 10 by 10 that hold probes, side by side at the top left.
    void open( GAttributeList attributes = { } )
    {
        attributes.insert( attributes.end( ), { { u"id", u"w" },
                                                { u"x", u"100" },
                                                { u"y", u"50" },
                                                { u"width", u"40" },
                                                { u"height", u"30" },
                                                { u"onopen", u"(opening)" },
                                                { u"onclose", u"(closing)" } } );
        const auto cell = []( const char16_t* id ) {
            return Element{ u"Cell", { { u"id", id }, { u"fixedwidth", u"10" }, { u"fixedheight", u"10" } }, {} };
        };
        window = loadAs<GWindowNode>( { u"Window", attributes, { { u"Row", { }, { cell( u"a" ), cell( u"b" ) } } } } );
        first = add( u"window_w/row/cell_a" );
        second = add( u"window_w/row/cell_b" );
        update( );
        render( );
    }
    Probe* add( GWStringView path )
    {
        auto* probe = GSAFENEW( Probe, ( instance.get( ), engine.get( ), find( path ) ) );
        find( path )->appendChild( probe );
        return probe;
    }
    void render( )
    {
        clock.advance( INTERVAL + 1 );
        GImageStack images;
        window->render( images );
    }
    void notify( int kind ) { window->onNotification( kind, TestClock::now( ) ); }
    using Events = std::vector<std::string>;

    GWindowNode* window = nullptr;
    Probe* first = nullptr;
    Probe* second = nullptr;
};

// ---- Update.

TEST_F( GWindowNodeTest, OpensWhereTheSkinSaysAndShowsAtOnce )
{
    open( );
    EXPECT_EQ( window->getRect( ), ( GRect{ 100, 50, 140, 80 } ) );
    EXPECT_TRUE( window->isVisible( ) );
    EXPECT_EQ( window->getAlpha( ), 255 );
}

TEST_F( GWindowNodeTest, AHiddenOneStaysHiddenAndDrawsNothing )
{
    open( { { u"hidden", u"true" } } );
    EXPECT_FALSE( window->isVisible( ) );
    EXPECT_EQ( window->getAlpha( ), 0 );
    EXPECT_EQ( first->renders, 0 );
}

TEST_F( GWindowNodeTest, FirstUpdateReportsAChangeAndLaterOnesOnlyRealOnes )
{
    open( { { u"minwidth", u"$Min" } } );
    EXPECT_FALSE( update( ) );
    instance->set( u"Min", 30 );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
}

TEST_F( GWindowNodeTest, ChildrenSeeTheWindowsCoordinatesAndPath )
{
    const Element page{ u"page", { { u"title", u"$x,$y,$width,$height,$windowpath" } }, {} };
    load( { u"Window",
            { { u"x", u"7" }, { u"y", u"8" }, { u"width", u"40" }, { u"height", u"30" }, { u"hidden", u"1" } },
            { page } } );
    update( );
    EXPECT_EQ( findAs<GDefaultNode>( u"window/page" )->getTitle( ), u"0,0,40,30,/skin/Window" );
}

TEST_F( GWindowNodeTest, NodesBelowReportToTheWindow )
{
    const Element gate{ u"if", { { u"watch", u"State" }, { u"cond", u"$State" } }, {} };
    window = loadAs<GWindowNode>( { u"Window", { { u"width", u"9" }, { u"height", u"9" } }, { gate } } );
    update( );
    instance->set( u"State", 1 );
    EXPECT_TRUE( notifications( ).empty( ) );
    EXPECT_FALSE( findAs<GDefaultNode>( u"window/if" )->isHidden( ) );
}

TEST_F( GWindowNodeTest, AWindowUpdatingByItselfSeesItsOwnSubtreeAndTheBlackboardAlone )
{
    const Element page{ u"page", { { u"title", u"$outer/$inner/$path" } }, {} };
    window = loadAs<GWindowNode>(
        { u"Window", { { u"inner", u"i" }, { u"width", u"9" }, { u"height", u"9" }, { u"hidden", u"1" } }, { page } } );
    root->setAttribute( u"outer", u"o" );
    update( );
    auto* shown = findAs<GDefaultNode>( u"window/page" );
    EXPECT_EQ( shown->getTitle( ), u"o/i//skin/Window/page" );
    notify( 2 );
    EXPECT_EQ( shown->getTitle( ), u"/i//skin/Window/page" );
}

// ---- Notifications and repaints.

TEST_F( GWindowNodeTest, KindOneRepaintsAndKindTwoUpdates )
{
    open( );
    const int updates = first->updates;
    const int renders = first->renders;
    clock.advance( INTERVAL + 1 );
    notify( 1 );
    EXPECT_EQ( first->updates, updates );
    EXPECT_EQ( first->renders, renders + 1 );
    clock.advance( INTERVAL + 1 );
    notify( 2 );
    EXPECT_EQ( first->updates, updates + 1 );
    EXPECT_EQ( first->renders, renders + 1 );
    first->changed = true;
    clock.advance( INTERVAL + 1 );
    notify( 2 );
    EXPECT_EQ( first->renders, renders + 2 );
    notify( 3 );
    notify( -1 );
    EXPECT_EQ( first->updates, updates + 2 );
}

TEST_F( GWindowNodeTest, ANotificationOlderThanTheLastOfItsKindIsDropped )
{
    open( );
    const int updates = first->updates;
    const uint64_t posted = TestClock::now( );
    clock.advance( 1000 );
    window->onNotification( 2, posted );
    window->onNotification( 2, posted );
    EXPECT_EQ( first->updates, updates + 1 );
    // Another kind keeps its own time.
    clock.advance( INTERVAL );
    const int renders = first->renders;
    window->onNotification( 1, posted );
    EXPECT_EQ( first->renders, renders + 1 );
}

TEST_F( GWindowNodeTest, RepaintsAreHeldApartAndTheTimerFinishes )
{
    open( );
    clock.advance( INTERVAL + 1 );
    notify( 1 );
    const int renders = first->renders;
    clock.advance( INTERVAL );
    notify( 1 );
    EXPECT_EQ( first->renders, renders );
    EXPECT_TRUE( window->isRenderPending( ) );
    window->onTimer( nullptr );
    EXPECT_EQ( first->renders, renders );
    clock.advance( 1 );
    window->onTimer( nullptr );
    EXPECT_EQ( first->renders, renders + 1 );
    EXPECT_FALSE( window->isRenderPending( ) );
    clock.advance( INTERVAL + 1 );
    window->onTimer( nullptr );
    EXPECT_EQ( first->renders, renders + 1 );
}

TEST_F( GWindowNodeTest, TheFrameRateIsLoggedUnderItsLetter )
{
    GLogSetFilter( "W" );
    open( );
    for( int i = 0; i < 40; ++i ) render( );
    EXPECT_GT( TestLog::count( "frames a second" ), 0 );
    EXPECT_LT( TestLog::count( "frames a second" ), 3 );
    GLogSetFilter( "" );
}

// ---- Alpha and fades.

TEST_F( GWindowNodeTest, PixelsThatNobodyDrewAreOpaqueWithoutAlphaAndClearWithIt )
{
    open( );
    EXPECT_EQ( window->getLayerPixels( ).back( ), static_cast<char>( 255 ) );
    open( { { u"enablealpha", u"1" } } );
    EXPECT_EQ( window->getLayerPixels( ).back( ), 0 );
}

TEST_F( GWindowNodeTest, FadesInFromNothing )
{
    open( { { u"hidden", u"1" } } );
    window->fadeIn( 200000 );
    EXPECT_TRUE( window->isVisible( ) );
    render( );
    EXPECT_EQ( window->getAlpha( ), 255 * 66667 / 200000 );
    clock.advance( INTERVAL * 2 );
    render( );
    EXPECT_EQ( window->getAlpha( ), 255 );
    window->fadeIn( 200000 );
    render( );
    EXPECT_EQ( window->getAlpha( ), 255 );
}

TEST_F( GWindowNodeTest, FadesOutAndHides )
{
    open( );
    clock.advance( INTERVAL + 1 );
    window->fadeOut( 200000 );
    clock.advance( 100000 );
    window->onTimer( nullptr );
    EXPECT_EQ( window->getAlpha( ), 127 );
    clock.advance( 100001 );
    window->onTimer( nullptr );
    EXPECT_EQ( window->getAlpha( ), 0 );
    EXPECT_FALSE( window->isVisible( ) );
    // Nothing is left to do.
    const int renders = first->renders;
    clock.advance( INTERVAL + 1 );
    window->onTimer( nullptr );
    EXPECT_EQ( first->renders, renders );
}

TEST_F( GWindowNodeTest, FadeOutOfAHiddenWindowDoesNothing )
{
    open( { { u"hidden", u"1" } } );
    window->fadeOut( 200000 );
    window->fadeIn( 0 );
    render( );
    EXPECT_EQ( window->getAlpha( ), 255 );
    EXPECT_TRUE( window->isVisible( ) );
}

TEST_F( GWindowNodeTest, AFadeInDuringAFadeOutOnlyRaisesToTheLetterAndReturnsWhenMended )
{
    for( const bool mended : { false, true } )
    {
        instance->set( u"Robust_Client", mended ? 1 : 0 );
        open( );
        window->fadeOut( 200000 );
        clock.advance( 50000 );
        window->fadeIn( 200000 );
        clock.advance( 300000 );
        render( );
        EXPECT_EQ( window->getAlpha( ), mended ? 255 : 0 );
    }
}

// ---- Commands.

TEST_F( GWindowNodeTest, OpenAndCloseRunTheirCommandsWithTheWindowAsSource )
{
    open( );
    window->open( );
    window->close( );
    window->onClose( window->getWin( ) );
    EXPECT_EQ( engine->commands, ( Events{ "(opening)", "(closing)", "(closing)" } ) );
    EXPECT_EQ( engine->sources, std::vector<GTemplateNode*>( 3, window ) );
}

TEST_F( GWindowNodeTest, FlashOfAHiddenWindowOpensIt )
{
    open( );
    window->flash( );
    EXPECT_TRUE( engine->commands.empty( ) );
    window->hide( );
    window->flash( );
    EXPECT_EQ( engine->commands, Events{ "(opening)" } );
}

TEST_F( GWindowNodeTest, FitSizesTheWindowToItsChildren )
{
    open( { { u"minheight", u"25" } } );
    window->fit( );
    EXPECT_EQ( window->getRect( ), ( GRect{ 100, 50, 120, 75 } ) );
    render( );
    EXPECT_EQ( window->getLayerFormat( ).width, 20 );
    EXPECT_EQ( window->getLayerFormat( ).height, 25 );
}

TEST_F( GWindowNodeTest, LeastSizeIsTheLargerOfAttributeAndChildren )
{
    open( { { u"minwidth", u"33" }, { u"minheight", u"5" } } );
    int width = 0;
    int height = 0;
    EXPECT_TRUE( window->getMinSize( nullptr, width, height ) );
    EXPECT_EQ( width, 33 );
    EXPECT_EQ( height, 10 );
}

TEST_F( GWindowNodeTest, LeastSizeIsNothingThatThePlatformTakesForAMistake )
{
    open( { { u"minwidth", u"1440" }, { u"minheight", u"1000" } } );
    int width = 0;
    int height = 0;
    EXPECT_TRUE( window->getMinSize( nullptr, width, height ) );
    EXPECT_EQ( width, 1000 );
    EXPECT_EQ( height, 1000 );
}

TEST_F( GWindowNodeTest, AMoveIsStoredAndDrawn )
{
    open( );
    clock.advance( INTERVAL + 1 );
    window->onReposition( window->getWin( ), { 1, 2, 61, 42 } );
    EXPECT_EQ( window->getRect( ), ( GRect{ 1, 2, 61, 42 } ) );
    EXPECT_EQ( window->getLayerFormat( ).width, 60 );
}

// The platform of these tests has no tray host.
TEST_F( GWindowNodeTest, AWindowOfTheTrayMinimizesWhenThereIsNoTray )
{
    open( { { u"tray", u"true" } } );
    for( int i = 0; i < 2; ++i ) window->fadeOut( 0 );
    EXPECT_TRUE( window->isVisible( ) );
    EXPECT_TRUE( GWinIsMinimized( window->getWin( ) ) );
    window->fadeIn( 0 );
    EXPECT_FALSE( GWinIsMinimized( window->getWin( ) ) );
    EXPECT_EQ( window->getAlpha( ), 255 );
}

TEST_F( GWindowNodeTest, OtherWindowsHideWhenThereIsNoTray )
{
    open( );
    window->fadeOut( 0 );
    clock.advance( INTERVAL + 1 );
    window->onTimer( nullptr );
    EXPECT_FALSE( window->isVisible( ) );
}

TEST_F( GWindowNodeTest, AWindowThatRemembersComesBackWhereItWas )
{
    open( { { u"remember", u"Buddy_Window" } } );
    window->onReposition( window->getWin( ), { 10, 20, 70, 60 } );
    EXPECT_EQ( instance->get( u"Buddy_Window_Left" ), u"10" );
    open( { { u"remember", u"Buddy_Window" } } );
    EXPECT_EQ( window->getRect( ), ( GRect{ 10, 20, 70, 60 } ) );
    // Off every screen, the skin's place counts.
    instance->set( u"Buddy_Window_Left", 30000 );
    open( { { u"remember", u"Buddy_Window" } } );
    EXPECT_EQ( window->getRect( ), ( GRect{ 100, 50, 140, 80 } ) );
}

// ---- Pointer.

TEST_F( GWindowNodeTest, WhatNobodyOwnsDragsTheWindow )
{
    open( );
    EXPECT_EQ( window->getNCHITTEST( window->getWin( ), 30, 20 ), GHIT_CAPTION );
    EXPECT_EQ( window->getNCHITTEST( window->getWin( ), 500, 20 ), GHIT_CAPTION );
    EXPECT_EQ( window->getNCHITTEST( window->getWin( ), -1, -1 ), GHIT_CAPTION );
    second->hitCode = GHIT_RIGHT;
    EXPECT_EQ( window->getNCHITTEST( window->getWin( ), 15, 5 ), GHIT_RIGHT );
    EXPECT_EQ( window->getNCHITTEST( window->getWin( ), 5, 5 ), GHIT_CLIENT );
}

TEST_F( GWindowNodeTest, EventsReachTheNodeBelowThePointer )
{
    open( );
    window->onMouseMove( nullptr, 5, 5 );
    window->onLButtonDown( nullptr, 5, 5 );
    window->onLButtonUp( nullptr, 15, 5 );
    window->onLButtonDblClk( nullptr, 15, 5 );
    window->onRButtonDown( nullptr, 15, 5 );
    EXPECT_EQ( first->taken( ), ( Events{ "move", "down", "focus" } ) );
    EXPECT_EQ( second->taken( ), ( Events{ "up", "dblclk", "right" } ) );
    window->onLButtonUp( nullptr, 30, 20 );
    EXPECT_TRUE( first->taken( ).empty( ) );
}

TEST_F( GWindowNodeTest, ACaptureKeepsAllPointerEventsUntilItsRelease )
{
    open( );
    first->answer = GRESPONSE_CAPTURE;
    window->onLButtonDown( nullptr, 5, 5 );
    EXPECT_EQ( window->getCapture( ), first );
    first->answer = GRESPONSE_NONE;
    window->onMouseMove( nullptr, 15, 5 );
    EXPECT_TRUE( second->taken( ).empty( ) );
    first->answer = GRESPONSE_RELEASE;
    window->onLButtonUp( nullptr, 500, 500 );
    EXPECT_EQ( window->getCapture( ), nullptr );
    window->onMouseMove( nullptr, 15, 5 );
    EXPECT_EQ( second->taken( ), Events{ "move" } );
}

TEST_F( GWindowNodeTest, ThePointerEntersAndLeaves )
{
    open( );
    window->getNCHITTEST( window->getWin( ), 5, 5 );
    window->getNCHITTEST( window->getWin( ), 6, 5 );
    EXPECT_EQ( first->taken( ), Events{ "enter" } );
    window->getNCHITTEST( window->getWin( ), 15, 5 );
    EXPECT_EQ( first->taken( ), Events{ "leave" } );
    EXPECT_EQ( second->taken( ), Events{ "enter" } );
    window->onMouseLeft( window->getWin( ) );
    EXPECT_EQ( second->taken( ), Events{ "leave" } );
    EXPECT_EQ( window->getMouseover( ), nullptr );
}

TEST_F( GWindowNodeTest, AnAnswerToUpdateRunsThePassAndRepaintsWhenItChanged )
{
    open( );
    clock.advance( INTERVAL + 1 );
    first->answer = GRESPONSE_UPDATE;
    const int updates = first->updates;
    const int renders = first->renders;
    window->onMouseMove( nullptr, 5, 5 );
    EXPECT_EQ( first->updates, updates + 1 );
    EXPECT_EQ( first->renders, renders );
    first->changed = true;
    window->onMouseMove( nullptr, 5, 5 );
    EXPECT_EQ( first->renders, renders + 1 );
}

TEST_F( GWindowNodeTest, TheWheelGoesToTheNodeBelowThePointerOrToItsNeighbour )
{
    open( );
    window->getNCHITTEST( window->getWin( ), 5, 5 );
    first->taken( );
    window->onMouseWheel( nullptr, 1 );
    EXPECT_EQ( first->taken( ), Events{ "wheel" } );
    EXPECT_EQ( second->taken( ), Events{ "wheel" } );
    first->answer = GRESPONSE_RENDER;
    window->onMouseWheel( nullptr, 1 );
    EXPECT_EQ( first->taken( ), Events{ "wheel" } );
    EXPECT_TRUE( second->taken( ).empty( ) );
}

// ---- Keyboard.

TEST_F( GWindowNodeTest, KeysGoToTheFocusThatAClickGave )
{
    open( );
    window->onKeyDown( nullptr, 65 );
    EXPECT_TRUE( first->taken( ).empty( ) );
    window->onLButtonDown( nullptr, 15, 5 );
    second->taken( );
    window->onKeyDown( nullptr, 65 );
    window->onKeyPressed( nullptr, u'a' );
    window->onKeyUp( nullptr, 65 );
    window->onPaste( nullptr, u"x" );
    EXPECT_EQ( second->taken( ), ( Events{ "keydown", "char", "keyup", "paste" } ) );
    window->onLButtonDown( nullptr, 5, 5 );
    EXPECT_EQ( second->taken( ), Events{ "blur" } );
    // The window itself never has it.
    window->onLButtonDown( nullptr, 30, 20 );
    EXPECT_EQ( window->getKeyFocus( ), nullptr );
    window->onKeyDown( nullptr, 65 );
}

TEST_F( GWindowNodeTest, TabMovesTheFocusAndWraps )
{
    open( );
    first->focusable = second->focusable = true;
    window->onKeyDown( nullptr, 9 );
    EXPECT_EQ( window->getKeyFocus( ), first );
    window->onKeyDown( nullptr, 9 );
    EXPECT_EQ( window->getKeyFocus( ), second );
    EXPECT_EQ( first->taken( ), ( Events{ "focus", "keydown", "blur" } ) );
    window->onKeyDown( nullptr, 9 );
    EXPECT_EQ( window->getKeyFocus( ), first );
}

TEST_F( GWindowNodeTest, ARingOfItsOwnSurroundsWhatHasTheFocus )
{
    picture( u"ring", 4, 4, 0x0000FFFF );
    open( { { u"focussrc", u"$Which" }, { u"focusslice", u"1" }, { u"focusout", u"2" } } );
    auto* button = find( u"window_w/row/cell_b" );
    button->appendChild(
        make( { u"Button", { { u"focusable", u"1" }, { u"focuscolor", u"#00000000" } }, {} }, button ) );
    const auto at = [&]( size_t x, size_t y )
    {
        render( );
        return static_cast<unsigned char>( window->getLayerPixels( )[4 * ( y * 40 + x ) + 2] );
    };
    instance->set( u"Which", u"ring" );
    update( );
    EXPECT_EQ( at( 8, 5 ), 0 );
    window->onKeyDown( nullptr, 9 );
    // The button lies from 10 to 20.
    EXPECT_EQ( at( 7, 5 ), 0 );
    EXPECT_EQ( at( 8, 5 ), 255 );
    EXPECT_EQ( at( 21, 11 ), 255 );
    EXPECT_EQ( at( 22, 5 ), 0 );
    instance->set( u"Which", u"nothing" );
    TestLog::allow( "nothing" );
    update( );
    EXPECT_EQ( at( 8, 5 ), 0 );
}

TEST_F( GWindowNodeTest, TabWithNothingToFocusLeavesTheFocusAlone )
{
    open( );
    window->onLButtonDown( nullptr, 5, 5 );
    window->onKeyDown( nullptr, 9 );
    EXPECT_EQ( window->getKeyFocus( ), first );
    first->focusable = true;
    window->onKeyDown( nullptr, 9 );
    EXPECT_EQ( window->getKeyFocus( ), first );
}

TEST_F( GWindowNodeTest, TabInAnEmptyWindowDoesNothing )
{
    window = loadAs<GWindowNode>( { u"Window", { { u"width", u"40" }, { u"height", u"30" } }, {} } );
    update( );
    render( );
    window->onKeyDown( nullptr, 9 );
    EXPECT_EQ( window->getKeyFocus( ), nullptr );
}

TEST_F( GWindowNodeTest, ATabThatTheFocusTakesMovesNothing )
{
    open( );
    first->focusable = second->focusable = true;
    window->onKeyDown( nullptr, 9 );
    first->answer = GRESPONSE_RENDER;
    window->onKeyDown( nullptr, 9 );
    EXPECT_EQ( window->getKeyFocus( ), first );
}

TEST_F( GWindowNodeTest, TabPassesOverWhatIsNotDrawn )
{
    open( );
    first->focusable = true;
    find( u"window_w/row/cell_b" )->setAttribute( u"fixedwidth", u"0" );
    Probe* hidden = add( u"window_w/row/cell_b" );
    hidden->focusable = true;
    find( u"window_w/row/cell_a" )->setAttribute( u"fixedwidth", u"40" );
    update( );
    render( );
    window->onKeyDown( nullptr, 9 );
    window->onKeyDown( nullptr, 9 );
    EXPECT_EQ( window->getKeyFocus( ), first );
}

TEST_F( GWindowNodeTest, TabWithShiftMovesTheFocusBack )
{
    open( );
    Probe* third = add( u"window_w/row/cell_b" );
    first->focusable = second->focusable = third->focusable = true;
    // Two probes in one cell: the upper one owns the pixels, so the lower one is no stop.
    render( );
    GNodeKeys_setSource( []( int key ) { return key == GKEY_SHIFT; } );
    window->onKeyDown( nullptr, 9 );
    EXPECT_EQ( window->getKeyFocus( ), third );
    window->onKeyDown( nullptr, 9 );
    EXPECT_EQ( window->getKeyFocus( ), first );
    window->onKeyDown( nullptr, 9 );
    EXPECT_EQ( window->getKeyFocus( ), third );
    GNodeKeys_setSource( nullptr );
}

TEST_F( GWindowNodeTest, EscapeAndReturnAreTheWindowsWhenTheFocusHasNoUseForThem )
{
    open( { { u"onescape", u"(escape)" }, { u"onreturn", u"(return)" } } );
    window->onKeyPressed( nullptr, 27 );
    window->onKeyPressed( nullptr, 13 );
    window->onKeyPressed( nullptr, u'x' );
    EXPECT_EQ( engine->commands, ( Events{ "(escape)", "(return)" } ) );
    EXPECT_EQ( engine->sources.front( ), window );
    window->onLButtonDown( nullptr, 5, 5 );
    first->answer = GRESPONSE_RENDER;
    window->onKeyPressed( nullptr, 27 );
    window->onKeyPressed( nullptr, 13 );
    EXPECT_EQ( engine->commands.size( ), 2u );
}

TEST_F( GWindowNodeTest, EscapeDoesNothingUnlessTheSkinSaysSo )
{
    open( );
    window->onKeyPressed( nullptr, 27 );
    window->onKeyPressed( nullptr, 13 );
    EXPECT_TRUE( engine->commands.empty( ) );
}

TEST_F( GWindowNodeTest, TheFirstStopHasTheFocusWhenTheSkinAsksForIt )
{
    open( { { u"hidden", u"1" }, { u"autofocus", u"1" } } );
    first->focusable = second->focusable = true;
    EXPECT_EQ( window->getKeyFocus( ), nullptr );
    window->fadeIn( 0 );
    render( );
    EXPECT_EQ( window->getKeyFocus( ), first );
    // One that has been chosen since stays.
    window->onLButtonDown( nullptr, 15, 5 );
    window->hide( );
    window->fadeIn( 0 );
    render( );
    EXPECT_EQ( window->getKeyFocus( ), second );
}

TEST_F( GWindowNodeTest, TheFocusHearsWhenTheWindowIsShownHiddenOrLeft )
{
    open( );
    window->onLButtonDown( nullptr, 5, 5 );
    first->taken( );
    window->onShow( nullptr );
    EXPECT_EQ( first->taken( ), Events{ "show" } );
    EXPECT_TRUE( second->taken( ).empty( ) );
}

TEST_F( GWindowNodeTest, AHandlerCanLeaveTheFocus )
{
    open( );
    window->onLButtonDown( nullptr, 5, 5 );
    window->leave( second );
    EXPECT_EQ( window->getKeyFocus( ), first );
    window->leave( first );
    EXPECT_EQ( window->getKeyFocus( ), nullptr );
    EXPECT_EQ( first->taken( ).back( ), "blur" );
}

// ---- What rests costs nothing.

TEST_F( GWindowNodeTest, TheTimerRunsOnlyWhileThereIsSomethingToWaitFor )
{
    open( { { u"hidden", u"1" } } );
    EXPECT_FALSE( window->isAwake( ) );
    notify( 1 );
    notify( 2 );
    EXPECT_FALSE( window->isAwake( ) );
    window->fadeIn( 100000 );
    EXPECT_TRUE( window->isAwake( ) );
    clock.advance( 200000 );
    window->onTimer( nullptr );
    window->onTimer( nullptr );
    EXPECT_FALSE( window->isAwake( ) );
    EXPECT_EQ( window->getAlpha( ), 255 );
    notify( 1 );
    notify( 1 );
    EXPECT_TRUE( window->isAwake( ) );
}

TEST_F( GWindowNodeTest, AHiddenWindowHasNoLayer )
{
    open( );
    EXPECT_EQ( window->getLayerPixels( ).size( ), 40u * 30 * 4 );
    window->hide( );
    EXPECT_LT( window->getLayerPixels( ).capacity( ), 40u );
    EXPECT_EQ( window->getNCHITTEST( nullptr, 5, 5 ), GHIT_CAPTION );
    window->fadeIn( 0 );
    render( );
    EXPECT_EQ( window->getLayerPixels( ).size( ), 40u * 30 * 4 );
    EXPECT_EQ( window->getNCHITTEST( nullptr, 5, 5 ), GHIT_CLIENT );
}

// ---- Nodes that go.

TEST_F( GWindowNodeTest, ANodeThatLeavesTheTreeIsForgotten )
{
    open( );
    first->answer = GRESPONSE_CAPTURE;
    window->getNCHITTEST( window->getWin( ), 5, 5 );
    window->onLButtonDown( nullptr, 5, 5 );
    GTemplateNode* cell = find( u"window_w/row/cell_a" );
    GNodeTools_retire( cell );
    find( u"window_w/row" )->removeChild( cell );
    delete cell;
    EXPECT_EQ( window->getCapture( ), nullptr );
    EXPECT_EQ( window->getKeyFocus( ), nullptr );
    EXPECT_EQ( window->getMouseover( ), nullptr );
    EXPECT_EQ( window->getNCHITTEST( window->getWin( ), 5, 5 ), GHIT_CAPTION );
    window->onLButtonUp( nullptr, 5, 5 );
}

TEST_F( GWindowNodeTest, AHugeSizeIsHeld )
{
    window = loadAs<GWindowNode>(
        { u"Window", { { u"width", u"2000000000" }, { u"height", u"4" }, { u"hidden", u"1" } }, {} } );
    update( );
    EXPECT_LE( window->getRect( ).width( ), 16384 );
}
