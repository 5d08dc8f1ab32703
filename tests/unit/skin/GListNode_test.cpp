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

// ---- What goes beyond the plain list.

class RowsOfAList : public GListNodeTest
{
protected:
    static constexpr int ROW = 20;
    GListNode* rows( GAttributeList attributes,
                     const GWString& list = u"one, two, three, four, five, six, seven, eight" )
    {
        attributes.push_back( { u"list", list } );
        attributes.push_back( { u"rowheight", u"20" } );
        attributes.push_back( { u"framecolor", u"#00000000" } );
        attributes.push_back( { u"focusable", u"1" } );
        return this->list( attributes );
    }
    static int down( GListNode* node, int y ) { return node->onLButtonDown( nullptr, 5, y ); }
};

TEST_F( RowsOfAList, AreAsHighAsTheSkinSays )
{
    GListNode* node = rows( { } );
    down( node, ROW + 1 );
    EXPECT_EQ( node->getSelection( ), u"two" );
    down( node, 2 * ROW - 1 );
    EXPECT_EQ( node->getSelection( ), u"two" );
    down( node, 2 * ROW );
    EXPECT_EQ( node->getSelection( ), u"three" );
}

TEST_F( RowsOfAList, HaveGroundsInsteadOfTheInversion )
{
    GListNode* node = rows( { { u"selectedbgcolor", u"#0000FFFF" }, { u"mouseoverbgcolor", u"#00FF00FF" } } );
    down( node, 1 );
    node->onMouseMove( nullptr, 1, ROW + 1 );
    draw( 60, 100 );
    EXPECT_EQ( canvas->at( 58, 10 ), 0x0000FFFFu );
    EXPECT_EQ( canvas->at( 58, 30 ), 0x00FF00FFu );
    EXPECT_EQ( canvas->at( 58, 50 ), 0u );
}

TEST_F( RowsOfAList, CarryMarksAndIconsOfTheirOwn )
{
    // Two columns of 4: plain red, selected green. Icons: blue, white; white, blue below for the selected row.
    const GImageFormat format{ GIT_RGBA32, 8, 8 };
    GString marks;
    GString icons;
    const auto add = []( GString& out, uint32_t colour )
    {
        for( int shift = 24; shift >= 0; shift -= 8 ) out += static_cast<char>( colour >> shift & 255 );
    };
    for( int y = 0; y < 8; ++y )
        for( int x = 0; x < 8; ++x )
        {
            add( marks, x < 4 ? 0xFF0000FF : 0x00FF00FF );
            add( icons, ( x < 4 ) == ( y < 4 ) ? 0x0000FFFF : 0xFFFFFFFF );
        }
    GImageTools_instanceWrite( instance.get( ), u"marks", format, marks );
    GImageTools_instanceWrite( instance.get( ), u"icons", format, icons );
    GListNode* node = rows( { { u"marksrc", u"marks(0,0,4,4)" },
                              { u"iconsrc", u"icons(0,0,4,4)" },
                              { u"padding", u"2" },
                              { u"selectedbgcolor", u"#00000000" } } );
    down( node, 1 );
    draw( 60, 100 );
    EXPECT_EQ( canvas->at( 2, 8 ), 0x00FF00FFu );
    EXPECT_EQ( canvas->at( 8, 8 ), 0xFFFFFFFFu );
    EXPECT_EQ( canvas->at( 2, ROW + 8 ), 0xFF0000FFu );
    EXPECT_EQ( canvas->at( 8, ROW + 8 ), 0xFFFFFFFFu );
    EXPECT_EQ( canvas->at( 2, 7 ), 0u );
    // The sheet has no third icon: its place stays empty.
    EXPECT_EQ( canvas->at( 2, 2 * ROW + 8 ), 0xFF0000FFu );
    EXPECT_EQ( canvas->at( 8, 2 * ROW + 8 ), 0u );
}

TEST_F( RowsOfAList, ShowTheirLabelsAndGiveTheirValues )
{
    const GAttributeList plain{ { u"varname", u"Choice" } };
    GListNode* node = rows( plain, u"1, 2" );
    const GString without = draw( 60, 40 ).pixels;
    node = rows( { { u"varname", u"Choice" }, { u"labels", u"small, large" } }, u"1, 2" );
    EXPECT_NE( draw( 60, 40 ).pixels, without );
    down( node, ROW );
    EXPECT_EQ( instance->get( u"Choice" ), u"2" );
}

TEST_F( RowsOfAList, ScrollByWheelAndKeysWhenTheyDoNotFit )
{
    GListNode* node = rows( { { u"thumbcolor", u"#0000FFFF" } } );
    draw( 60, 60 );
    EXPECT_EQ( node->onMouseWheel( nullptr, 1 ), GRESPONSE_NONE );
    EXPECT_EQ( node->onMouseWheel( nullptr, -1 ), GRESPONSE_RENDER );
    draw( 60, 60 );
    down( node, 1 );
    EXPECT_EQ( node->getSelection( ), u"four" );
    node->onMouseWheel( nullptr, -100 );
    draw( 60, 60 );
    down( node, 59 );
    EXPECT_EQ( node->getSelection( ), u"eight" );
    // The thumb stands at the lower end.
    draw( 60, 60 );
    EXPECT_EQ( canvas->at( 56, 50 ), 0x0000FFFFu );
    EXPECT_NE( canvas->at( 56, 10 ), 0x0000FFFFu );
    // Home brings the first row into view.
    EXPECT_EQ( node->onKeyDown( nullptr, 36 ), GRESPONSE_RENDER );
    draw( 60, 60 );
    down( node, ROW );
    EXPECT_EQ( node->getSelection( ), u"two" );
    node->onKeyDown( nullptr, 34 );
    EXPECT_EQ( node->getSelection( ), u"four" );
    node->onKeyDown( nullptr, 35 );
    EXPECT_EQ( node->getSelection( ), u"eight" );
    EXPECT_EQ( node->onKeyDown( nullptr, 35 ), GRESPONSE_NONE );
    node->onKeyDown( nullptr, 33 );
    EXPECT_EQ( node->getSelection( ), u"six" );
}

TEST_F( RowsOfAList, FollowTheirThumb )
{
    GListNode* node = rows( { { u"thumbcolor", u"#0000FFFF" } } );
    draw( 60, 60 );
    EXPECT_EQ( node->onLButtonUp( nullptr, 57, 5 ), GRESPONSE_NONE );
    EXPECT_TRUE( node->onLButtonDown( nullptr, 57, 5 ) & GRESPONSE_CAPTURE );
    EXPECT_TRUE( node->getSelection( ).empty( ) );
    EXPECT_EQ( node->onMouseMove( nullptr, 0, 200 ), GRESPONSE_RENDER );
    EXPECT_EQ( node->onMouseMove( nullptr, 0, 300 ), GRESPONSE_NONE );
    EXPECT_EQ( node->onLButtonUp( nullptr, 0, 200 ), GRESPONSE_RELEASE );
    draw( 60, 60 );
    down( node, 59 );
    EXPECT_EQ( node->getSelection( ), u"eight" );
}

TEST_F( RowsOfAList, EndInDotsWhenTheirTextsDoNotFit )
{
    const GWString text = u"a text that is far too long";
    rows( { { u"selectedbgcolor", u"#00000000" } }, text );
    const GString cut = canvas->pixels;
    rows( { { u"selectedbgcolor", u"#00000000" }, { u"ellipsis", u"1" } }, text );
    EXPECT_NE( canvas->pixels, cut );
    // Nothing reaches into the margin, and short texts stay whole.
    for( int y = 0; y < ROW; ++y ) EXPECT_EQ( canvas->at( 57, y ), 0u );
    rows( { { u"ellipsis", u"1" } }, u"one" );
    const GString whole = canvas->pixels;
    rows( { }, u"one" );
    EXPECT_EQ( canvas->pixels, whole );
    // A character of two halves is shown whole or not at all; no room at all leaves the dots.
    rows( { { u"ellipsis", u"1" } }, u"\U0001F600\U0001F600\U0001F600\U0001F600\U0001F600\U0001F600" );
    rows( { { u"ellipsis", u"1" }, { u"padding", u"29" } }, text );
}

TEST_F( RowsOfAList, BearTheFocusAtTheChosenOne )
{
    GListNode* node = rows( { } );
    GRect focus;
    node->onKeyboardFocusChanged( true );
    EXPECT_TRUE( draw( 60, 100 ).images.getFocus( focus ) );
    EXPECT_EQ( focus, ( GRect{ 0, 0, 60, 100 } ) );
    down( node, ROW );
    EXPECT_TRUE( draw( 60, 100 ).images.getFocus( focus ) );
    EXPECT_EQ( focus, ( GRect{ 0, ROW, 60, 2 * ROW } ) );
    node->onKeyboardFocusChanged( false );
    EXPECT_FALSE( draw( 60, 100 ).images.getFocus( focus ) );
}

TEST_F( RowsOfAList, StayWhereTheyAreWithoutAThumb )
{
    GListNode* node = rows( { } );
    draw( 60, 60 );
    EXPECT_EQ( node->onMouseWheel( nullptr, -1 ), GRESPONSE_NONE );
    down( node, 1 );
    EXPECT_EQ( node->getSelection( ), u"one" );
}

TEST_F( RowsOfAList, BringTheChosenOneIntoViewAtTheFirstDrawing )
{
    instance->set( u"Choice", u"eight" );
    auto* node = loadAs<GListNode>( { u"List",
                                      { { u"list", u"one, two, three, four, five, six, seven, eight" },
                                        { u"varname", u"Choice" },
                                        { u"rowheight", u"20" },
                                        { u"thumbcolor", u"#0000FFFF" } },
                                      {} } );
    update( );
    draw( 60, 40 );
    down( node, 1 );
    EXPECT_EQ( node->getSelection( ), u"seven" );
}
