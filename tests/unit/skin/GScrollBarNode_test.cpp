#include "client/skin/nodes/GScrollBarNode.h"

#include "NodeTest.h"
#include "client/skin/nodes/GDefaultNode.h"
#include "client/skin/nodes/GNodeKeys.h"

namespace
{
class HeldScrollBar : public GScrollBarNode
{
public:
    using GScrollBarNode::GScrollBarNode;
    bool held = true;

protected:
    bool _isButtonDown( ) const override { return held; }
};
} // namespace

class GScrollBarNodeTest : public NodeTest
{
protected:
    static Element reader( const char16_t* id ) { return { u"page", { { u"id", id }, { u"title", u"<$frac>" } }, {} }; }
    GWString seen( const char16_t* path ) { return findAs<GDefaultNode>( path )->getTitle( ); }
    // A bar of the kind that tests hold, below an element with those attributes.
    HeldScrollBar* bar( const GAttributeList& attributes )
    {
        load( { u"holder", attributes, {} } );
        auto* node = GSAFENEW( HeldScrollBar, ( instance.get( ), engine.get( ), find( u"holder" ) ) );
        node->setAttribute( u"name", u"frac" );
        find( u"holder" )->appendChild( node );
        update( );
        return node;
    }
};

TEST_F( GScrollBarNodeTest, GivesItsPositionToNodesBelowAndAfterIt )
{
    load( { u"holder",
            { },
            { { u"ScrollBar", { { u"name", u"Frac" } }, { reader( u"below" ) } }, reader( u"after" ) } } );
    findAs<GScrollBarNode>( u"holder/scrollbar" )->setFrac( 0.25 );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( seen( u"holder/scrollbar/page_below" ), u"<250>" );
    EXPECT_EQ( seen( u"holder/page_after" ), u"<250>" );
    EXPECT_FALSE( update( ) );
}

TEST_F( GScrollBarNodeTest, AnAncestorWithTheAttributeHandsItToEverythingBelow )
{
    load( { u"holder",
            { { u"frac", u"0" } },
            { { u"left", { }, { reader( u"before" ) } },
              { u"right", { }, { { u"ScrollBar", { { u"name", u"frac" } }, {} } } } } } );
    update( );
    EXPECT_EQ( seen( u"holder/left/page_before" ), u"<0>" );
    findAs<GScrollBarNode>( u"holder/right/scrollbar" )->setFrac( 0.5 );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
    update( );
    EXPECT_EQ( seen( u"holder/left/page_before" ), u"<500>" );
}

TEST_F( GScrollBarNodeTest, ThePositionIsHeldBetweenItsEnds )
{
    HeldScrollBar* node = bar( { } );
    node->setFrac( 7 );
    EXPECT_EQ( node->getFrac( ), 1.0 );
    node->setFrac( -7 );
    EXPECT_EQ( node->getFrac( ), 0.0 );
    node->setFrac( 0.0 / 0.0 );
    EXPECT_EQ( node->getFrac( ), 0.0 );
}

TEST_F( GScrollBarNodeTest, APressJumpsCapturesAndADragFollows )
{
    HeldScrollBar* node = bar( { } );
    draw( 10, 101 );
    EXPECT_EQ( node->onLButtonDown( nullptr, 5, 50 ), GRESPONSE_UPDATE | GRESPONSE_CAPTURE );
    EXPECT_NEAR( node->getFrac( ), 0.5, 0.01 );
    EXPECT_EQ( node->onMouseMove( nullptr, 5, 300 ), GRESPONSE_UPDATE );
    EXPECT_EQ( node->getFrac( ), 1.0 );
    node->held = false;
    EXPECT_EQ( node->onMouseMove( nullptr, 5, 20 ), GRESPONSE_RELEASE );
    EXPECT_EQ( node->getFrac( ), 1.0 );
    EXPECT_EQ( node->onLButtonUp( nullptr, 5, 20 ), GRESPONSE_RELEASE );
}

TEST_F( GScrollBarNodeTest, AHorizontalBarFollowsX )
{
    HeldScrollBar* node = bar( { { u"horiz", u"1" } } );
    draw( 201, 10 );
    node->onLButtonDown( nullptr, 50, 5 );
    EXPECT_NEAR( node->getFrac( ), 0.25, 0.01 );
}

TEST_F( GScrollBarNodeTest, WithoutALengthThePositionIsZero )
{
    HeldScrollBar* node = bar( { } );
    node->setFrac( 1 );
    node->onLButtonDown( nullptr, 5, 50 );
    EXPECT_EQ( node->getFrac( ), 0.0 );
    EXPECT_EQ( node->onMouseWheel( nullptr, 1 ), GRESPONSE_NONE );
}

TEST_F( GScrollBarNodeTest, AListThatGrowsMovesItToTheEnd )
{
    HeldScrollBar* node = bar( { { u"watch", u"Queue" } } );
    EXPECT_EQ( node->getFrac( ), 0.0 );
    instance->enqueue( u"Queue", GString( "one" ) );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( node->getFrac( ), 1.0 );
    node->setFrac( 0.5 );
    update( );
    EXPECT_EQ( node->getFrac( ), 0.5 );
    instance->set( u"Queue", u"a, b" );
    update( );
    EXPECT_EQ( node->getFrac( ), 1.0 );
}

TEST_F( GScrollBarNodeTest, TheHandleStandsAtItsPlaceOnTheTrack )
{
    picture( u"back", 4, 4, 0x101010FF );
    picture( u"handle", 4, 10, 0xFF0000FF );
    HeldScrollBar* node = bar( { { u"backsrc", u"back" }, { u"handlesrc", u"handle" } } );
    EXPECT_EQ( draw( 4, 50 ).at( 1, 0 ), 0xFF0000FFu );
    EXPECT_EQ( canvas->at( 1, 10 ), 0x101010FFu );
    EXPECT_EQ( canvas->at( 3, 49 ), 0x101010FFu );
    node->setFrac( 1 );
    EXPECT_EQ( draw( 4, 50 ).at( 1, 49 ), 0xFF0000FFu );
    EXPECT_EQ( canvas->at( 1, 39 ), 0x101010FFu );
    EXPECT_EQ( canvas->owned( node ), ( GRect{ 0, 0, 4, 50 } ) );
}

TEST_F( GScrollBarNodeTest, TheWheelMovesIt )
{
    HeldScrollBar* node = bar( { } );
    draw( 10, 100 );
    EXPECT_EQ( node->onMouseWheel( nullptr, -3 ), GRESPONSE_UPDATE );
    EXPECT_NEAR( node->getFrac( ), 0.3, 0.001 );
    node->onMouseWheel( nullptr, 1 );
    EXPECT_NEAR( node->getFrac( ), 0.2, 0.001 );
}

TEST_F( GScrollBarNodeTest, LeastSizeIsThatOfItsPictures )
{
    picture( u"back", 6, 4, 0x101010FF );
    picture( u"handle", 4, 10, 0xFF0000FF );
    int width = 0;
    int height = 0;
    bar( { { u"backsrc", u"back" }, { u"handlesrc", u"handle" } } )->calcMinSize( width, height );
    EXPECT_EQ( width, 6 );
    EXPECT_EQ( height, 10 );
}

// ---- Keyboard.

TEST_F( GScrollBarNodeTest, IsNoStopOfTheTabKeyUnlessItIsAskedToBe )
{
    HeldScrollBar* node = bar( { } );
    EXPECT_FALSE( node->wantsKeyboardFocus( ) );
    EXPECT_EQ( node->onKeyDown( nullptr, GKEY_END ), GRESPONSE_NONE );
    EXPECT_EQ( node->getFrac( ), 0.0 );
    EXPECT_TRUE( bar( { { u"focusable", u"1" } } )->wantsKeyboardFocus( ) );
}

TEST_F( GScrollBarNodeTest, KeysMoveIt )
{
    for( const GWStringView horizontal : { u"0", u"1" } )
    {
        HeldScrollBar* node = bar( { { u"focusable", u"1" }, { u"horiz", GWString( horizontal ) } } );
        EXPECT_EQ( node->onKeyDown( nullptr, GKEY_DOWN ), GRESPONSE_UPDATE );
        EXPECT_NEAR( node->getFrac( ), 0.05, 0.001 );
        node->onKeyDown( nullptr, GKEY_RIGHT );
        EXPECT_NEAR( node->getFrac( ), 0.1, 0.001 );
        node->onKeyDown( nullptr, GKEY_UP );
        node->onKeyDown( nullptr, GKEY_LEFT );
        EXPECT_NEAR( node->getFrac( ), 0.0, 0.001 );
        EXPECT_EQ( node->onKeyDown( nullptr, GKEY_END ), GRESPONSE_UPDATE );
        EXPECT_EQ( node->getFrac( ), 1.0 );
        EXPECT_EQ( node->onKeyDown( nullptr, GKEY_END ), GRESPONSE_NONE ) << "there already";
        node->onKeyDown( nullptr, GKEY_PAGE_UP );
        EXPECT_NEAR( node->getFrac( ), 0.75, 0.001 );
        node->onKeyDown( nullptr, GKEY_PAGE_DOWN );
        node->onKeyDown( nullptr, GKEY_PAGE_DOWN );
        EXPECT_EQ( node->getFrac( ), 1.0 );
        node->onKeyDown( nullptr, GKEY_HOME );
        EXPECT_EQ( node->getFrac( ), 0.0 );
        EXPECT_EQ( node->onKeyDown( nullptr, GKEY_TAB ), GRESPONSE_NONE ) << "for the window";
    }
}

TEST_F( GScrollBarNodeTest, TheFocusIsMarkedWhenItCameByTheKeyboard )
{
    HeldScrollBar* node = bar( { { u"focusable", u"1" } } );
    const auto isMarked = [this]( )
    {
        GRect ring;
        return draw( 10, 100 ).images.getFocus( ring ) && ring == GRect{ 0, 0, 10, 100 };
    };
    EXPECT_FALSE( isMarked( ) );
    EXPECT_EQ( node->onKeyboardFocusChanged( true ), GRESPONSE_RENDER );
    EXPECT_TRUE( isMarked( ) );
    node->onKeyboardFocusChanged( false );
    EXPECT_FALSE( isMarked( ) );
    node->onLButtonDown( nullptr, 5, 50 );
    node->onKeyboardFocusChanged( true );
    EXPECT_FALSE( isMarked( ) ) << "a click needs no ring";
    node->onLButtonUp( nullptr, 5, 50 );
    node->onKeyDown( nullptr, GKEY_HOME );
    EXPECT_TRUE( isMarked( ) );
}

TEST_F( GScrollBarNodeTest, DisabledItTakesNoInputAndShowsNoHandle )
{
    picture( u"back", 4, 4, 0x101010FF );
    picture( u"handle", 4, 10, 0xFF0000FF );
    HeldScrollBar* node = bar( { { u"backsrc", u"back" },
                                 { u"handlesrc", u"handle" },
                                 { u"focusable", u"1" },
                                 { u"disabled", u"$Nothing_To_Scroll" } } );
    EXPECT_EQ( draw( 4, 50 ).at( 1, 0 ), 0xFF0000FFu );
    instance->set( u"Nothing_To_Scroll", 1 );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( draw( 4, 50 ).at( 1, 0 ), 0x101010FFu );
    EXPECT_FALSE( node->wantsKeyboardFocus( ) );
    EXPECT_EQ( node->onLButtonDown( nullptr, 2, 40 ), GRESPONSE_NONE );
    EXPECT_EQ( node->onMouseMove( nullptr, 2, 40 ), GRESPONSE_RELEASE );
    EXPECT_EQ( node->onMouseWheel( nullptr, -1 ), GRESPONSE_NONE );
    EXPECT_EQ( node->onKeyDown( nullptr, GKEY_END ), GRESPONSE_NONE );
    EXPECT_EQ( node->getFrac( ), 0.0 );
}

TEST_F( GScrollBarNodeTest, SliderFollowsItsNumberAndSetsItWhenItIsMoved )
{
    HeldScrollBar* node = bar( { { u"varname", u"Ann_Gain" },
                                 { u"greatest", u"400" },
                                 { u"step", u"10" },
                                 { u"unset", u"100" },
                                 { u"persist", u"1" },
                                 { u"focusable", u"1" } } );
    EXPECT_EQ( node->getFrac( ), 0.25 );
    EXPECT_FALSE( instance->isSet( u"Ann_Gain" ) ) << "what nobody moved is not set";
    notifications( );
    instance->set( u"Ann_Gain", 200 );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( node->getFrac( ), 0.5 );
    node->onKeyDown( nullptr, GKEY_RIGHT );
    EXPECT_EQ( instance->calc( u"Ann_Gain" ), 220 );
    node->onKeyDown( nullptr, GKEY_END );
    EXPECT_EQ( instance->calc( u"Ann_Gain" ), 400 );
    node->setFrac( 0.507 );
    EXPECT_EQ( instance->calc( u"Ann_Gain" ), 400 ) << "only a hand sets it";
    instance->set( u"Ann_Gain", u"-7" );
    update( );
    EXPECT_EQ( node->getFrac( ), 0.0 );
    instance->set( u"Ann_Gain", u"loud" );
    update( );
    EXPECT_EQ( node->getFrac( ), 0.0 );
}

TEST_F( GScrollBarNodeTest, SliderOfAnotherNumberMovesWithoutSettingEither )
{
    instance->set( u"Ann_Gain", 400 );
    instance->set( u"Who", u"Ann" );
    HeldScrollBar* node = bar( { { u"varname", u"{$Who}_Gain" }, { u"greatest", u"400" }, { u"unset", u"100" } } );
    EXPECT_EQ( node->getFrac( ), 1.0 );
    instance->set( u"Who", u"Ben" );
    update( );
    EXPECT_EQ( node->getFrac( ), 0.25 );
    EXPECT_EQ( instance->calc( u"Ann_Gain" ), 400 );
    EXPECT_FALSE( instance->isSet( u"Ben_Gain" ) );
}

TEST_F( GScrollBarNodeTest, SliderRoundsToItsSteps )
{
    HeldScrollBar* node =
        bar( { { u"varname", u"Gain" }, { u"least", u"5" }, { u"greatest", u"25" }, { u"step", u"10" } } );
    draw( 4, 100 );
    node->onLButtonDown( nullptr, 2, 60 );
    EXPECT_EQ( instance->calc( u"Gain" ), 15 );
    node->onLButtonUp( nullptr, 2, 60 );
}
