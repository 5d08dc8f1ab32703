// The small window that says what a control is for: when it comes, when it goes, where it stands and how it looks.
#include "client/skin/nodes/GHint.h"

#include "NodeTest.h"
#include "client/skin/nodes/GWindowNode.h"

class GHintTest : public NodeTest
{
protected:
    // A window of 100 by 40 at (200, 100) with two buttons side by side, 20 pixels wide each, the first with a hint.
    void open( GAttributeList more = { }, const GWString& hint = u"Send a file" )
    {
        GAttributeList attributes = { { u"id", u"w" },      { u"x", u"200" },       { u"y", u"100" },
                                      { u"width", u"100" }, { u"height", u"40" },   { u"hintfont", FONT },
                                      { u"hintpad", u"5" }, { u"onescape", u"(x)" } };
        attributes.insert( attributes.end( ), more.begin( ), more.end( ) );
        const auto cell = []( const char16_t* id, const GAttributeList& button )
        {
            return Element{
                u"Cell",
                { { u"id", id }, { u"fixedwidth", u"20" }, { u"align", u"stretch" }, { u"valign", u"stretch" } },
                { { u"Button", button, {} } } };
        };
        window = loadAs<GWindowNode>( { u"Window",
                                        attributes,
                                        { { u"Row",
                                            { },
                                            { cell( u"a", { { u"hint", hint }, { u"text", u"a" } } ),
                                              cell( u"b", { { u"text", u"b" }, { u"focusable", u"1" } } ) } } } } );
        update( );
        draw( );
    }
    void draw( )
    {
        clock.advance( 100000 );
        GImageStack images;
        window->render( images );
    }
    GHint& hint( ) { return window->getHintWindow( ); }
    void point( int x, int y ) { window->getNCHITTEST( window->getWin( ), x, y ); }
    // Lets time pass in the steps in which the hint looks at it.
    void pass( int64_t microseconds )
    {
        for( int64_t passed = 0; passed < microseconds; passed += 10000 )
        {
            clock.advance( 10000 );
            if( hint( ).isWaiting( ) ) hint( ).onTimer( nullptr );
        }
    }
    void showHint( )
    {
        point( 5, 5 );
        pass( GHint::REST );
        ASSERT_TRUE( hint( ).isShown( ) );
    }
    uint32_t pixel( int x, int y )
    {
        const auto* at = reinterpret_cast<const unsigned char*>( hint( ).getPixels( ).data( ) ) +
                         ( static_cast<size_t>( y ) * static_cast<size_t>( hint( ).getRect( ).width( ) ) +
                           static_cast<size_t>( x ) ) *
                             4;
        return uint32_t{ at[0] } << 24 | uint32_t{ at[1] } << 16 | uint32_t{ at[2] } << 8 | at[3];
    }

    static constexpr const char16_t* FONT = u"12,,#102030FF,DejaVu Sans";
    GWindowNode* window = nullptr;
};

// ---- When it comes.

TEST_F( GHintTest, ComesOnceThePointerHasRestedForSixTenthsOfASecond )
{
    open( );
    point( 5, 5 );
    pass( GHint::REST - 10000 );
    EXPECT_FALSE( hint( ).isShown( ) );
    pass( 10000 );
    EXPECT_TRUE( hint( ).isShown( ) );
    EXPECT_EQ( hint( ).getText( ), u"Send a file" );
    EXPECT_FALSE( hint( ).isWaiting( ) ) << "no timer runs while it shows";
    EXPECT_EQ( GHint::REST, 600000 );
}

TEST_F( GHintTest, APointerThatMovesDoesNotRest )
{
    open( );
    for( int x = 1; x < 15; ++x )
    {
        point( x, 5 );
        pass( GHint::REST / 2 );
        EXPECT_FALSE( hint( ).isShown( ) );
    }
    // The same place once more is no move.
    point( 14, 5 );
    pass( GHint::REST / 2 );
    EXPECT_TRUE( hint( ).isShown( ) );
}

TEST_F( GHintTest, StaysWhileThePointerMovesOnItsControl )
{
    open( );
    showHint( );
    point( 9, 9 );
    EXPECT_TRUE( hint( ).isShown( ) );
}

TEST_F( GHintTest, WhatHasNoHintShowsNone )
{
    open( );
    for( const int x : { 25, 90 } )
    {
        point( x, 5 );
        EXPECT_FALSE( hint( ).isWaiting( ) );
        pass( 2 * GHint::REST );
        EXPECT_FALSE( hint( ).isShown( ) );
    }
}

// ---- When it goes.

TEST_F( GHintTest, GoesAtOnceWhenThePointerLeavesItsControlOrTheWindow )
{
    open( );
    showHint( );
    point( 25, 5 );
    EXPECT_FALSE( hint( ).isShown( ) );
    showHint( );
    window->onMouseLeft( window->getWin( ) );
    EXPECT_FALSE( hint( ).isShown( ) );
    point( 5, 5 );
    window->onMouseLeft( window->getWin( ) );
    EXPECT_FALSE( hint( ).isWaiting( ) );
}

TEST_F( GHintTest, GoesAtOnceWithAPressAndComesAgainOnlyWhenThePointerDoes )
{
    using Event = std::function<void( GWindowNode&, GWin )>;
    for( const Event& event : { Event( []( GWindowNode&node, GWin win ) { node.onLButtonDown( win, 5, 5 ); } ),
                                Event( []( GWindowNode&node, GWin win ) { node.onRButtonDown( win, 5, 5 ); } ),
                                Event( []( GWindowNode&node, GWin win ) { node.onLButtonDblClk( win, 5, 5 ); } ),
                                Event( []( GWindowNode&node, GWin win ) { node.onMouseWheel( win, 1 ); } ),
                                Event( []( GWindowNode&node, GWin win ) { node.onKeyDown( win, 65 ); } ) } )
    {
        open( );
        showHint( );
        event( *window, window->getWin( ) );
        EXPECT_FALSE( hint( ).isShown( ) );
        window->onLButtonUp( window->getWin( ), 5, 5 );
        point( 6, 6 );
        pass( 2 * GHint::REST );
        EXPECT_FALSE( hint( ).isShown( ) );
        point( 25, 5 );
        showHint( );
    }
}

TEST_F( GHintTest, APressBeforeItCameKeepsItAway )
{
    open( );
    point( 5, 5 );
    window->onKeyDown( window->getWin( ), 65 );
    EXPECT_FALSE( hint( ).isWaiting( ) );
}

TEST_F( GHintTest, GoesWithItsWindowAndWithItsControl )
{
    open( );
    showHint( );
    window->hide( );
    EXPECT_FALSE( hint( ).isShown( ) );
    open( );
    showHint( );
    window->forget( find( u"window_w/row/cell_a" ) );
    EXPECT_FALSE( hint( ).isShown( ) );
}

// ---- Where it stands, and its look.

TEST_F( GHintTest, StandsBelowItsControlAndIsAsLargeAsItsText )
{
    open( );
    showHint( );
    const std::unique_ptr<GFont> font( GSAFENEW( GFont, ( ) ) );
    font->update( FONT );
    int width = 0;
    int height = 0;
    font->measureText( u"Send a file", width, height );
    const GRect rect = hint( ).getRect( );
    EXPECT_EQ( rect.width( ), width + 10 );
    EXPECT_EQ( rect.height( ), height + 10 );
    EXPECT_EQ( rect.top, 100 + 40 + 5 );
    EXPECT_NEAR( ( rect.left + rect.right ) / 2, 210, 1 );
}

TEST_F( GHintTest, StaysInsideTheScreenAtEachEdge )
{
    const GRect area = GWinGetWorkArea( 0, 0 );
    const std::pair<int, int> places[] = { { area.left - 10, area.top },
                                           { area.right - 21, area.top },
                                           { area.right - 21, area.bottom - 41 },
                                           { area.left - 10, area.bottom - 41 } };
    for( const auto& [x, y] : places )
    {
        open( );
        window->onReposition( window->getWin( ), { x, y, x + 100, y + 40 } );
        draw( );
        showHint( );
        const GRect rect = hint( ).getRect( );
        EXPECT_TRUE( rect.left >= area.left && rect.right <= area.right && rect.top >= area.top &&
                     rect.bottom <= area.bottom )
            << x << ", " << y << ": " << rect.left << ", " << rect.top << ", " << rect.right << ", " << rect.bottom;
        EXPECT_TRUE( rect.top >= y + 40 || rect.bottom <= y ) << "beside the control, not on it";
    }
}

TEST_F( GHintTest, ALongTextIsHeldToTheScreen )
{
    open( { }, GWString( 2000, u'm' ) );
    showHint( );
    const GRect area = GWinGetWorkArea( 0, 0 );
    EXPECT_LE( hint( ).getRect( ).width( ), area.width( ) );
}

TEST_F( GHintTest, IsDrawnOnThePictureOfTheSkinAndOnAPlainGroundWithoutOne )
{
    picture( u"ground", 9, 9, 0x336699FF );
    open( { { u"hintsrc", u"ground" }, { u"hintslice", u"3" } } );
    showHint( );
    EXPECT_EQ( pixel( 0, 0 ), 0x336699FFu );
    EXPECT_EQ( pixel( 2, 20 % hint( ).getRect( ).height( ) ), 0x336699FFu );
    open( );
    showHint( );
    EXPECT_EQ( pixel( 0, 0 ), 0x000000FFu );
    EXPECT_EQ( pixel( 2, 2 ), 0xFFFFE1FFu );
}

TEST_F( GHintTest, EveryControlMayHaveOne )
{
    for( const char16_t* name : { u"Button", u"Edit", u"Hotkey", u"ScrollBar" } )
    {
        load( { name, { { u"hint", u"What for" } }, {} } );
        update( );
        EXPECT_EQ( dynamic_cast<IGInputHandler*>( root->getChildren( ).front( ) )->getHint( ), u"What for" );
        EXPECT_FALSE( update( ) );
    }
}
