#include "client/skin/nodes/GListNode.h"

#include "NodeTest.h"

class GListNodeTest : public NodeTest
{
protected:
    GListNode* list( GAttributeList attributes )
    {
        attributes.push_back( { u"onselect", u"(select)" } );
        attributes.push_back( { u"font", u"14,,#FF0000FF" } );
        auto* node = loadAs<GListNode>( { u"List", attributes, {} } );
        update( );
        draw( 60, 100 );
        rowHeight = fontHeight( u"14" );
        return node;
    }
    int click( GListNode* node, int row ) { return node->onLButtonDown( nullptr, 5, row * rowHeight + 1 ); }
    int rowHeight = 0;
};

TEST_F( GListNodeTest, AClickSelectsWritesAndRuns )
{
    GListNode* node = list( { { u"list", u"one, two;three" }, { u"varname", u"Choice" } } );
    EXPECT_EQ( click( node, 1 ), GRESPONSE_RENDER );
    EXPECT_EQ( node->getSelection( ), u"two" );
    EXPECT_EQ( instance->get( u"Choice" ), u"two" );
    EXPECT_EQ( engine->commands, std::vector<std::string>{ "(select)" } );
    EXPECT_EQ( engine->sources.front( ), node );
    click( node, 2 );
    EXPECT_EQ( node->getSelection( ), u"three" );
}

TEST_F( GListNodeTest, AClickBelowTheLastRowChangesNothing )
{
    GListNode* node = list( { { u"list", u"one, two" }, { u"select", u"one" } } );
    EXPECT_EQ( click( node, 2 ), GRESPONSE_NONE );
    EXPECT_EQ( node->onLButtonDown( nullptr, 0, -1 ), GRESPONSE_NONE );
    EXPECT_EQ( node->getSelection( ), u"one" );
    EXPECT_TRUE( engine->commands.empty( ) );
}

TEST_F( GListNodeTest, TheBlackboardListTakesPrecedence )
{
    instance->set( u"Names", u"ada, grace" );
    GListNode* node = list( { { u"list", u"one" }, { u"listname", u"Names" } } );
    click( node, 1 );
    EXPECT_EQ( node->getSelection( ), u"grace" );
    instance->set( u"Names", u"linus" );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
    EXPECT_TRUE( update( ) );
    click( node, 0 );
    EXPECT_EQ( node->getSelection( ), u"linus" );
}

TEST_F( GListNodeTest, RowsAreNeverExpressions )
{
    instance->set( u"Secret", u"s" );
    instance->set( u"Names", u"$Secret" );
    GListNode* node = list( { { u"listname", u"Names" } } );
    click( node, 0 );
    EXPECT_EQ( node->getSelection( ), u"$Secret" );
}

TEST_F( GListNodeTest, TheSelectionFollowsItsVariable )
{
    instance->set( u"Choice", u"two" );
    GListNode* node = list( { { u"list", u"one, two" }, { u"varname", u"Choice" }, { u"select", u"one" } } );
    EXPECT_EQ( node->getSelection( ), u"two" );
    instance->set( u"Choice", u"one" );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( node->getSelection( ), u"one" );
}

TEST_F( GListNodeTest, SelectIsTheStartAndANewOneMovesTheSelection )
{
    GListNode* node = list( { { u"list", u"one, two" }, { u"select", u"$Start" } } );
    EXPECT_TRUE( node->getSelection( ).empty( ) );
    instance->set( u"Start", u"two" );
    update( );
    EXPECT_EQ( node->getSelection( ), u"two" );
    click( node, 0 );
    update( );
    EXPECT_EQ( node->getSelection( ), u"one" );
}

TEST_F( GListNodeTest, PersistKeepsTheChoiceInTheSettings )
{
    click( list( { { u"list", u"one" }, { u"varname", u"Kept" }, { u"persist", u"1" } } ), 0 );
    click( list( { { u"list", u"two" }, { u"varname", u"Lost" } } ), 0 );
    instance->save( );
    GString text;
    ASSERT_TRUE( GFileLoad( GUTF8ToWide( SETTINGS ), text ) );
    EXPECT_NE( text.find( "kept: one" ), GString::npos );
    EXPECT_EQ( text.find( "lost" ), GString::npos );
}

TEST_F( GListNodeTest, TheSelectedRowIsInvertedAndTheListFramed )
{
    GListNode* node = list( { { u"list", u"one, two" } } );
    EXPECT_EQ( draw( 60, 100, true ).at( 0, 50 ), 0x000000FFu );
    const uint32_t before = canvas->at( 50, rowHeight / 2 );
    click( node, 0 );
    EXPECT_NE( draw( 60, 100, true ).at( 50, rowHeight / 2 ), before );
    EXPECT_EQ( canvas->at( 50, rowHeight + rowHeight / 2 ), before );
}

TEST_F( GListNodeTest, TheRowUnderThePointerRepaintsWhenItChanges )
{
    GListNode* node = list( { { u"list", u"one, two" }, { u"mouseoverfont", u"14,,#00FF00FF" } } );
    EXPECT_EQ( node->onMouseMove( nullptr, 1, 1 ), GRESPONSE_RENDER );
    EXPECT_EQ( node->onMouseMove( nullptr, 9, 2 ), GRESPONSE_NONE );
    EXPECT_EQ( node->onMouseMove( nullptr, 9, rowHeight + 2 ), GRESPONSE_RENDER );
    EXPECT_EQ( node->onMouseoverChanged( false ), GRESPONSE_RENDER );
    EXPECT_EQ( node->onMouseoverChanged( false ), GRESPONSE_NONE );
}

TEST_F( GListNodeTest, ArrowKeysMoveAFocusableList )
{
    GListNode* node = list( { { u"list", u"one, two" }, { u"focusable", u"1" } } );
    EXPECT_TRUE( node->wantsKeyboardFocus( ) );
    node->onKeyDown( nullptr, 40 );
    EXPECT_EQ( node->getSelection( ), u"one" );
    node->onKeyDown( nullptr, 40 );
    EXPECT_EQ( node->getSelection( ), u"two" );
    EXPECT_EQ( node->onKeyDown( nullptr, 40 ), GRESPONSE_NONE );
    node->onKeyDown( nullptr, 38 );
    EXPECT_EQ( node->getSelection( ), u"one" );
    EXPECT_FALSE( list( { { u"list", u"one" } } )->wantsKeyboardFocus( ) );
}

TEST_F( GListNodeTest, LeastHeightIsTheFont )
{
    int width = 0;
    int height = 0;
    list( { { u"list", u"one, two" } } )->calcMinSize( width, height );
    EXPECT_EQ( height, rowHeight );
    EXPECT_FALSE( update( ) );
}
