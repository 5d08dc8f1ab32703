#include "client/skin/nodes/GEditNode.h"

#include "NodeTest.h"

class GEditNodeTest : public NodeTest
{
protected:
    GEditNode* edit( GAttributeList attributes = { } )
    {
        attributes.insert( attributes.end( ),
                           { { u"onenter", u"(enter)" }, { u"ontype", u"(type)" }, { u"onclear", u"(clear)" } } );
        auto* node = loadAs<GEditNode>( { u"Edit", attributes, {} } );
        update( );
        return node;
    }
    static void type( GEditNode* node, GWStringView text )
    {
        for( const char16_t character : text ) node->onKeyPressed( nullptr, character );
    }
    using Commands = std::vector<std::string>;
};

TEST_F( GEditNodeTest, TypingAppendsAndWritesTheVariable )
{
    GEditNode* node = edit( { { u"var", u"Name" } } );
    type( node, u"ad" );
    EXPECT_EQ( node->getText( ), u"ad" );
    EXPECT_EQ( instance->get( u"Name" ), u"ad" );
    EXPECT_TRUE( node->wantsKeyboardFocus( ) );
}

TEST_F( GEditNodeTest, TheFirstCharacterRunsOnTypeAndTheLastOneOnClear )
{
    GEditNode* node = edit( );
    type( node, u"ab\b" );
    EXPECT_EQ( engine->commands, Commands{ "(type)" } );
    type( node, u"\b" );
    EXPECT_EQ( engine->commands, ( Commands{ "(type)", "(clear)" } ) );
    type( node, u"\b" );
    EXPECT_EQ( engine->commands.size( ), 2u );
}

TEST_F( GEditNodeTest, EscapeEmptiesAndRunsOnClear )
{
    GEditNode* node = edit( { { u"var", u"Name" } } );
    type( node, u"abc\x1B" );
    EXPECT_TRUE( node->getText( ).empty( ) );
    EXPECT_TRUE( instance->get( u"Name" ).empty( ) );
    EXPECT_EQ( engine->commands, ( Commands{ "(type)", "(clear)" } ) );
}

TEST_F( GEditNodeTest, ReturnRunsOnEnterAndTabIsIgnored )
{
    GEditNode* node = edit( );
    type( node, u"a\t\r" );
    EXPECT_EQ( node->getText( ), u"a" );
    EXPECT_EQ( engine->commands, ( Commands{ "(type)", "(enter)" } ) );
    EXPECT_EQ( node->onKeyPressed( nullptr, u'\t' ), GRESPONSE_NONE );
}

TEST_F( GEditNodeTest, ControlCharactersAreNoText )
{
    GEditNode* node = edit( );
    type( node, u"a\x01\x16\x7F" );
    EXPECT_EQ( node->getText( ), u"a" );
}

TEST_F( GEditNodeTest, BackspaceTakesAWholePair )
{
    GEditNode* node = edit( );
    node->onPaste( nullptr, u"a\U0001F600" );
    type( node, u"\b" );
    EXPECT_EQ( node->getText( ), u"a" );
}

TEST_F( GEditNodeTest, UntouchableDrawsButTakesNoText )
{
    instance->set( u"Name", u"kept" );
    GEditNode* node = edit( { { u"untouchable", u"1" }, { u"var", u"Name" } } );
    type( node, u"x\b\x1B\r" );
    node->onPaste( nullptr, u"x" );
    EXPECT_EQ( node->getText( ), u"kept" );
    EXPECT_TRUE( engine->commands.empty( ) );
    EXPECT_FALSE( draw( 60, 24 ).isBlank( ) );
}

TEST_F( GEditNodeTest, PasteAppends )
{
    GEditNode* node = edit( { { u"var", u"Name" } } );
    type( node, u"a" );
    EXPECT_EQ( node->onPaste( nullptr, u"b\r\nc" ), GRESPONSE_RENDER );
    EXPECT_EQ( node->getText( ), u"abc" );
    EXPECT_EQ( instance->get( u"Name" ), u"abc" );
    node = edit( { { u"vscroll", u"1" } } );
    node->onPaste( nullptr, u"b\r\nc" );
    EXPECT_EQ( node->getText( ), u"b\nc" );
}

TEST_F( GEditNodeTest, AHugePasteIsCut )
{
    GEditNode* node = edit( );
    node->onPaste( nullptr, GWString( 1000000, u'x' ) );
    EXPECT_EQ( node->getText( ).size( ), 32768u );
    type( node, u"y" );
    EXPECT_EQ( node->getText( ).size( ), 32768u );
}

TEST_F( GEditNodeTest, FollowsItsVariable )
{
    instance->set( u"Name", u"one" );
    GEditNode* node = edit( { { u"var", u"Name" } } );
    EXPECT_EQ( node->getText( ), u"one" );
    EXPECT_FALSE( update( ) );
    instance->set( u"Name", u"two" );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( node->getText( ), u"two" );
    EXPECT_TRUE( engine->commands.empty( ) );
}

TEST_F( GEditNodeTest, RefreshReadsTheVariableAgain )
{
    GEditNode* node = edit( { { u"var", u"Name" } } );
    instance->set( u"Name", u"one" );
    update( { { u"refresh", u"true" } } );
    EXPECT_EQ( node->getText( ), u"one" );
}

TEST_F( GEditNodeTest, ItsTextIsNeverAnExpression )
{
    instance->set( u"Secret", u"s" );
    GEditNode* node = edit( { { u"var", u"Name" } } );
    type( node, u"$Secret" );
    update( );
    EXPECT_EQ( node->getText( ), u"$Secret" );
}

TEST_F( GEditNodeTest, SetTextWritesTheVariableAndRunsOnClear )
{
    GEditNode* node = edit( { { u"var", u"Name" } } );
    type( node, u"a" );
    node->setText( u"" );
    EXPECT_TRUE( instance->get( u"Name" ).empty( ) );
    EXPECT_EQ( engine->commands, ( Commands{ "(type)", "(clear)" } ) );
}

TEST_F( GEditNodeTest, LeastHeightIsTheFontWithItsMargins )
{
    GEditNode* node = edit( { { u"inner", u"3" }, { u"outer", u"2" } } );
    int width = 0;
    int height = 0;
    edit( )->calcMinSize( width, height );
    const int plain = height;
    width = height = 0;
    node = edit( { { u"inner", u"3" }, { u"outer", u"2" } } );
    node->calcMinSize( width, height );
    EXPECT_EQ( height, plain + 10 );
}

TEST_F( GEditNodeTest, AFrameStandsBetweenTheMargins )
{
    GEditNode* node = edit( { { u"inner", u"3" }, { u"outer", u"2" } } );
    const Canvas& drawn = draw( 40, 30 );
    EXPECT_EQ( drawn.at( 1, 15 ), 0u );
    EXPECT_EQ( drawn.at( 2, 15 ), 0x000000FFu );
    EXPECT_EQ( drawn.at( 3, 15 ), 0u );
    EXPECT_EQ( drawn.owned( node ), ( GRect{ 0, 0, 40, 30 } ) );
}

TEST_F( GEditNodeTest, TheEmptyTextShowsOnlyWithoutFocus )
{
    GEditNode* node =
        edit( { { u"emptytext", u"name" }, { u"emptyfont", u"14,,#FF0000FF" }, { u"framecolor", u"#00000000" } } );
    EXPECT_FALSE( draw( 60, 24 ).isBlank( ) );
    EXPECT_EQ( node->onKeyboardFocusChanged( true ), GRESPONSE_RENDER );
    const Canvas& drawn = draw( 60, 24 );
    bool red = false;
    for( int y = 0; y < 24; ++y )
        for( int x = 0; x < 60; ++x ) red |= drawn.at( x, y ) >> 24 > 0;
    EXPECT_FALSE( red );
}

TEST_F( GEditNodeTest, APasswordShowsAStarForEachCharacter )
{
    instance->set( u"A", u"iiii" );
    instance->set( u"B", u"WWWW" );
    edit( { { u"var", u"$Which" }, { u"password", u"1" } } );
    instance->set( u"Which", u"A" );
    update( );
    const GString first = draw( 80, 24 ).pixels;
    instance->set( u"Which", u"B" );
    update( );
    EXPECT_EQ( draw( 80, 24 ).pixels, first );
}

TEST_F( GEditNodeTest, ALongTextShowsItsEnd )
{
    GEditNode* node = edit( { { u"font", u"14,,#FF0000FF" } } );
    node->setText( GWString( 100, u'i' ) + u"W" );
    const GString first = draw( 60, 24 ).pixels;
    node->setText( GWString( 100, u'i' ) + u"M" );
    EXPECT_NE( draw( 60, 24 ).pixels, first );
}
