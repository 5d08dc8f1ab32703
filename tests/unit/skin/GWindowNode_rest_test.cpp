// What a window costs while nobody looks, the values of a buddy that it gives to its subtree, and what brings it to notice.
#include "NodeTest.h"
#include "client/skin/nodes/GDefaultNode.h"
#include "client/skin/nodes/GWindowNode.h"
#include "support/CountAllocations.h"

class WindowAtRestTest : public NodeTest
{
protected:
    static constexpr int64_t INTERVAL = 66666;

    void open( const GAttributeList& more, const std::vector<Element>& children = { } )
    {
        GAttributeList attributes = {
            { u"id", u"w" },          { u"width", u"40" },          { u"height", u"30" },
            { u"onopen", u"(open)" }, { u"onclose", u"(closing)" }, { u"enablealpha", u"1" } };
        attributes.insert( attributes.end( ), more.begin( ), more.end( ) );
        window = loadAs<GWindowNode>( { u"Window", attributes, children } );
        update( );
        render( );
    }
    void render( )
    {
        clock.advance( INTERVAL + 1 );
        GImageStack images;
        window->render( images );
    }
    void tick( )
    {
        clock.advance( INTERVAL + 1 );
        window->onTimer( nullptr );
    }
    // The page that stands in the window shows what it sees as its title.
    static Element page( const char16_t* title ) { return { u"page", { { u"title", title } }, {} }; }
    std::string title( ) { return GWideToUTF8( findAs<GDefaultNode>( u"window_w/page" )->getTitle( ) ); }

    GWindowNode* window = nullptr;
};

// ---- At rest.

TEST_F( WindowAtRestTest, GivesItsLayerBackWhenItHidesAndDrawsItAnewWhenItShows )
{
    picture( u"pic", 40, 30, 0xFF0000FF );
    open( { }, { { u"Image", { { u"src", u"pic" } }, {} } } );
    EXPECT_EQ( window->getLayerPixels( ).size( ), 40u * 30 * 4 );
    window->hide( );
    EXPECT_EQ( window->getLayerPixels( ).capacity( ), GString( ).capacity( ) );
    EXPECT_EQ( window->getLayerFormat( ).width, 0 );
    window->onMouseMove( nullptr, 5, 5 );
    EXPECT_EQ( window->getNCHITTEST( window->getWin( ), 5, 5 ), GHIT_CAPTION );
    window->fadeIn( 0 );
    tick( );
    EXPECT_EQ( window->getLayerPixels( ).size( ), 40u * 30 * 4 );
    EXPECT_EQ( window->getLayerPixels( )[0], '\xFF' );
}

// ---- What moves.

TEST_F( WindowAtRestTest, ABreathingPictureKeepsTheWindowTickingOnlyWhileItIsDrawn )
{
    picture( u"pic", 4, 4, 0xFF0000FF );
    const Element image{ u"Image", { { u"src", u"pic" }, { u"breathe", u"2000" } }, {} };
    open( { }, { { u"if", { { u"watch", u"Ringing" }, { u"equals", u"1" } }, { image } } } );
    for( int i = 0; i < 2; ++i ) tick( );
    EXPECT_FALSE( window->isAwake( ) );
    clock.advance( INTERVAL );
    instance->set( u"Ringing", 1 );
    TestDesktop::pump( );
    EXPECT_TRUE( window->isAwake( ) );
    tick( );
    EXPECT_TRUE( window->isAwake( ) );
    instance->set( u"Ringing", 0 );
    TestDesktop::pump( );
    for( int i = 0; i < 2; ++i ) tick( );
    EXPECT_FALSE( window->isAwake( ) );
}

TEST_F( WindowAtRestTest, ABreathingPictureGrowsPalerAndComesBack )
{
    picture( u"pic", 4, 4, 0xFF0000FF );
    open( { }, { { u"Image", { { u"src", u"pic(1,1,3,3)" }, { u"breathe", u"2000" } }, {} } } );
    int least = 255;
    int most = 0;
    for( int i = 0; i < 40; ++i )
    {
        render( );
        const int alpha = static_cast<unsigned char>( window->getLayerPixels( )[3] );
        least = std::min( least, alpha );
        most = std::max( most, alpha );
    }
    EXPECT_LT( least, 100 );
    EXPECT_GT( most, 240 );
    // Beyond its part nothing is drawn.
    EXPECT_EQ( window->getLayerPixels( )[2 * 4 + 3], 0 );
}

TEST_F( WindowAtRestTest, APictureOfNoPeriodOrWithoutAlphaStaysAsItIs )
{
    picture( u"pic", 2, 2, 0xFF0000FF );
    GImageTools_instanceWrite( instance.get( ), u"plain", { GIT_RGB24, 1, 1 }, GString( "\x01\x02\x03" ) );
    for( const auto& [src, period] : { std::pair( u"pic", u"0" ), std::pair( u"plain", u"2000" ) } )
    {
        open( { }, { { u"Image", { { u"src", src }, { u"breathe", period } }, {} } } );
        for( int i = 0; i < 20; ++i )
        {
            render( );
            EXPECT_EQ( window->getLayerPixels( )[3], '\xFF' );
        }
    }
}

// ---- Values of a buddy.

TEST_F( WindowAtRestTest, GivesValuesByPlainNamesAlsoForIdsThatNoExpressionReaches )
{
    instance->set( u"a-b@x_Call_State", u"ringing" );
    open( { { u"buddy", u"a-b@x" },
            { u"of", u"$buddy" },
            { u"values", u"Call_State, Online" },
            { u"note", u"<$call_state>" } },
          { page( u"$call_state/$online/$note" ) } );
    EXPECT_EQ( title( ), "ringing//<ringing>" );
    // Watched by the window itself.
    instance->set( u"a-b@x_Online", 1 );
    instance->set( u"a-b@x_Call_State", u"talking" );
    TestDesktop::pump( );
    EXPECT_EQ( title( ), "talking/1/<talking>" );
    EXPECT_EQ( countAllocations( [&] { update( ); } ), 0 );
}

TEST_F( WindowAtRestTest, NothingThatStandsInAValueIsExpanded )
{
    instance->set( u"Local_Password", u"secret" );
    instance->set( u"eve@x_Name", u"$Local_Password {$Local_Password} ${x}" );
    open( { { u"of", u"eve@x" }, { u"values", u"Name" } }, { page( u"$name" ) } );
    EXPECT_EQ( title( ), "Local_Password Local_Password x" );
}

TEST_F( WindowAtRestTest, OnCloseMayDependOnAValue )
{
    open( { { u"of", u"eve@x" },
            { u"values", u"Call_State" },
            { u"onclose", u"(${$endkey}?fadeout)" },
            { u"end_ringing", u"/decline;" },
            { u"endkey", u"end_$call_state" } } );
    window->close( );
    // It counts at once, before the window has heard of it.
    instance->set( u"eve@x_Call_State", u"ringing" );
    window->close( );
    EXPECT_EQ( engine->commands, ( std::vector<std::string>{ "(?fadeout)", "(/decline;?fadeout)" } ) );
}

TEST_F( WindowAtRestTest, PlaceAndTitleMayDependOnWhatTheListSaysLater )
{
    instance->set( u"Default_Domain", u"x" );
    open( { { u"x", u"10 + 20 * $index" }, { u"of", u"eve@x" }, { u"values", u"Online" }, { u"index", u"2" } },
          { page( u"$buddyname" ) } );
    EXPECT_EQ( window->getRect( ).left, 50 );
    EXPECT_EQ( title( ), "eve" );
}

TEST_F( WindowAtRestTest, WithoutABuddyNothingIsGiven )
{
    open( { { u"values", u"Online" } }, { page( u"<$online>" ) } );
    EXPECT_EQ( title( ), "<>" );
}

// ---- The first focus.

TEST_F( WindowAtRestTest, TheFocusGoesFirstToTheNodeThatAsksForIt )
{
    const auto stop = []( const char16_t* id, const GAttributeList& more )
    {
        GAttributeList attributes = { { u"id", id }, { u"focusable", u"1" } };
        attributes.insert( attributes.end( ), more.begin( ), more.end( ) );
        const Element edit{ u"Edit", attributes, {} };
        return Element{ u"Cell", { { u"id", id }, { u"fixedwidth", u"10" }, { u"fixedheight", u"10" } }, { edit } };
    };
    for( const bool asks : { false, true } )
    {
        const GAttributeList more = asks ? GAttributeList{ { u"autofocus", u"1" } } : GAttributeList{ };
        open( { { u"autofocus", u"1" } }, { { u"Row", { }, { stop( u"a", { } ), stop( u"b", more ) } } } );
        auto* b = dynamic_cast<IGInputHandler*>( find( u"window_w/row/cell_b/edit_b" ) );
        ASSERT_TRUE( b && window->getKeyFocus( ) );
        EXPECT_EQ( window->getKeyFocus( ) == b, asks );
    }
}

// ---- News.

TEST_F( WindowAtRestTest, ANewEntryOfItsQueueOpensIt )
{
    open( { { u"hidden", u"1" }, { u"flashon", u"Talk" } } );
    EXPECT_TRUE( engine->commands.empty( ) );
    instance->enqueue( u"Talk", GString( "one" ) );
    TestDesktop::pump( );
    EXPECT_EQ( engine->commands, std::vector<std::string>{ "(open)" } );
    instance->set( u"Talk", u"no entry" );
    TestDesktop::pump( );
    EXPECT_EQ( engine->commands.size( ), 1u );
}

TEST_F( WindowAtRestTest, NewsFromBeforeItWasMadeOpenItToo )
{
    instance->enqueue( u"Talk", GString( "one" ) );
    open( { { u"hidden", u"1" }, { u"flashon", u"Talk" } } );
    EXPECT_EQ( engine->commands, std::vector<std::string>{ "(open)" } );
}
