#include "client/skin/nodes/GTableNode.h"

#include "NodeTest.h"

class GTableNodeTest : public NodeTest
{
protected:
    GTableNode* table( )
    {
        auto* node = loadAs<GTableNode>( { u"Table",
                                           { { u"prefixlistsrc", u"Files" },
                                             { u"suffixlist", u"_Name, _Size" },
                                             { u"title", u"Name,Size" },
                                             { u"cellfont", u"14,,#FF0000FF" },
                                             { u"headerfont", u"14,,#00FF00FF" },
                                             { u"mouseoverfont", u"14,,#0000FFFF" },
                                             { u"ondblclk", u"(open)" },
                                             { u"onrightclick", u"(menu)" } },
                                           {} } );
        update( );
        draw( 120, 100 );
        rowHeight = fontHeight( u"14" ) + 4;
        return node;
    }
    int click( GTableNode* node, int line ) { return node->onLButtonDown( nullptr, 3, line * rowHeight + 1 ); }
    // Whether any pixel in that line has that channel, 24 for red down to 8 for blue.
    bool coloured( int line, int shift )
    {
        for( int y = line * rowHeight + 1; y < ( line + 1 ) * rowHeight - 1; ++y )
            for( int x = 1; x < 119; ++x )
                if( canvas->at( x, y ) >> shift & 255 ) return true;
        return false;
    }
    int rowHeight = 0;
};

TEST_F( GTableNodeTest, ShowsTitlesAndTheValuesOfItsKeys )
{
    instance->set( u"Files", u"f1, f2" );
    instance->set( u"f1_Name", u"WWW" );
    instance->set( u"f2_Size", u"WWW" );
    table( );
    EXPECT_TRUE( coloured( 0, 16 ) );
    EXPECT_TRUE( coloured( 1, 24 ) );
    EXPECT_TRUE( coloured( 2, 24 ) );
    EXPECT_FALSE( coloured( 3, 24 ) );
    // Frames of the two titles.
    EXPECT_EQ( canvas->at( 0, 3 ), 0x000000FFu );
    EXPECT_EQ( canvas->at( 60, 3 ), 0x000000FFu );
}

TEST_F( GTableNodeTest, WithoutRowsItSaysSo )
{
    table( );
    EXPECT_TRUE( coloured( 1, 24 ) );
    EXPECT_FALSE( coloured( 2, 24 ) );
}

TEST_F( GTableNodeTest, AClickSelectsTheKeyOfTheRow )
{
    instance->set( u"Files", u"f1, f2" );
    GTableNode* node = table( );
    EXPECT_EQ( click( node, 2 ), GRESPONSE_RENDER );
    EXPECT_EQ( node->getSelection( ), u"f2" );
    EXPECT_EQ( draw( 120, 100, true ).at( 100, rowHeight * 2 + 3 ), 0xBFBFBFFFu );
    EXPECT_EQ( canvas->at( 100, rowHeight + 3 ), 0x404040FFu );
    click( node, 0 );
    EXPECT_TRUE( node->getSelection( ).empty( ) );
    click( node, 1 );
    EXPECT_EQ( node->getSelection( ), u"f1" );
    click( node, 3 );
    EXPECT_TRUE( node->getSelection( ).empty( ) );
}

TEST_F( GTableNodeTest, ARowThatGoesTakesItsSelectionAlong )
{
    instance->set( u"Files", u"f1" );
    GTableNode* node = table( );
    click( node, 1 );
    instance->set( u"Files", u"f2" );
    update( );
    EXPECT_TRUE( node->getSelection( ).empty( ) );
}

TEST_F( GTableNodeTest, WatchesItsListForAnUpdateAndItsCellsForARepaint )
{
    instance->set( u"Files", u"f1" );
    table( );
    instance->set( u"f1_Size", u"5" );
    EXPECT_EQ( notifications( ), std::vector<int>{ 1 } );
    instance->set( u"f2_Size", u"5" );
    EXPECT_TRUE( notifications( ).empty( ) );
    instance->set( u"Files", u"f2" );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
    EXPECT_TRUE( update( ) );
    instance->set( u"f1_Size", u"6" );
    EXPECT_TRUE( notifications( ).empty( ) );
    instance->set( u"f2_Size", u"6" );
    EXPECT_EQ( notifications( ), std::vector<int>{ 1 } );
}

TEST_F( GTableNodeTest, ClicksRunTheirCommandsWithTheTableAsSource )
{
    instance->set( u"Files", u"f1" );
    GTableNode* node = table( );
    node->onLButtonDblClk( nullptr, 0, 0 );
    node->onRButtonDown( nullptr, 0, 0 );
    EXPECT_EQ( engine->commands, ( std::vector<std::string>{ "(open)", "(menu)" } ) );
    EXPECT_EQ( engine->sources, std::vector<GTemplateNode*>( 2, node ) );
}

TEST_F( GTableNodeTest, TheRowUnderThePointerTakesItsFont )
{
    instance->set( u"Files", u"f1" );
    instance->set( u"f1_Name", u"WWW" );
    GTableNode* node = table( );
    EXPECT_EQ( node->onMouseMove( nullptr, 1, rowHeight + 1 ), GRESPONSE_RENDER );
    EXPECT_EQ( node->onMouseMove( nullptr, 1, rowHeight + 2 ), GRESPONSE_NONE );
    draw( 120, 100 );
    EXPECT_TRUE( coloured( 1, 8 ) );
    EXPECT_EQ( node->onMouseoverChanged( false ), GRESPONSE_RENDER );
    draw( 120, 100 );
    EXPECT_FALSE( coloured( 1, 8 ) );
}

TEST_F( GTableNodeTest, AnUnchangedPassReportsNoChange )
{
    instance->set( u"Files", u"f1" );
    table( );
    EXPECT_FALSE( update( ) );
}

// ---- What goes beyond the plain table.

class RowsOfATable : public GTableNodeTest
{
protected:
    static constexpr int ROW = 20;
    GTableNode* rows( GAttributeList attributes, int height = 100 )
    {
        attributes.push_back( { u"rowheight", u"20" } );
        attributes.push_back( { u"framecolor", u"#00000000" } );
        attributes.push_back( { u"padding", u"0" } );
        attributes.push_back( { u"cellfont", u"14,,#FF0000FF" } );
        attributes.push_back( { u"headerfont", u"14,,#00FF00FF" } );
        attributes.push_back( { u"ondblclk", u"(open)" } );
        attributes.push_back( { u"focusable", u"1" } );
        auto* node = loadAs<GTableNode>( { u"Table", attributes, {} } );
        update( );
        draw( 100, height );
        return node;
    }
    int count( uint32_t colour, const GRect& rect )
    {
        int found = 0;
        for( int y = rect.top; y < rect.bottom; ++y )
            for( int x = rect.left; x < rect.right; ++x ) found += canvas->at( x, y ) == colour;
        return found;
    }
    void fill( int keys )
    {
        for( int i = 0; i < keys; ++i ) instance->insert( u"Files", GConcat( u"f", i ) );
    }
    static int down( GTableNode* node, int y ) { return node->onLButtonDown( nullptr, 3, y ); }
};

TEST_F( RowsOfATable, DrawHowFarTheyAre )
{
    instance->set( u"Files", u"f1, f2, f3" );
    instance->set( u"f1_Complete", u"50%" );
    instance->set( u"f2_Complete", u"Scanning..." );
    rows( { { u"prefixlistsrc", u"Files" },
            { u"suffixlist", u"_Name, _Complete" },
            { u"title", u"a,b" },
            { u"barsuffix", u"_Complete" },
            { u"barcolor", u"#0000FFFF" },
            { u"barbgcolor", u"#FFFFFFFF" },
            { u"barheight", u"2" } } );
    // Two pixels above the lower edge of the cell; the first half of it.
    EXPECT_EQ( canvas->at( 60, 2 * ROW - 3 ), 0x0000FFFFu );
    EXPECT_EQ( canvas->at( 73, 2 * ROW - 3 ), 0x0000FFFFu );
    EXPECT_EQ( canvas->at( 77, 2 * ROW - 3 ), 0xFFFFFFFFu );
    EXPECT_EQ( canvas->at( 40, 2 * ROW - 3 ), 0u );
    // Nothing done yet, and nothing to tell.
    EXPECT_EQ( canvas->at( 60, 3 * ROW - 3 ), 0xFFFFFFFFu );
    EXPECT_EQ( canvas->at( 60, 4 * ROW - 3 ), 0u );
    instance->set( u"f1_Complete", u"900%" );
    draw( 100, 100 );
    EXPECT_EQ( canvas->at( 97, 2 * ROW - 3 ), 0x0000FFFFu );
    EXPECT_EQ( count( 0x0000FFFF, { 0, 0, 50, 100 } ), 0 );
}

TEST_F( RowsOfATable, TakeTheirSharesOfTheWidth )
{
    instance->set( u"Files", u"f1" );
    instance->set( u"f1_b", u"WWWWWWWWWW" );
    rows( { { u"prefixlistsrc", u"Files" }, { u"suffixlist", u"_a, _b" }, { u"columns", u"4, 1" } } );
    // Without titles there is no line for them.
    EXPECT_EQ( count( 0xFF0000FF, { 0, 0, 80, 100 } ), 0 );
    EXPECT_GT( count( 0xFF0000FF, { 80, 0, 100, ROW } ), 0 );
    rows( { { u"prefixlistsrc", u"Files" }, { u"suffixlist", u"_a, _b" }, { u"columns", u"0, 0" } } );
    EXPECT_EQ( count( 0xFF0000FF, { 0, 0, 100, 100 } ), 0 );
}

TEST_F( RowsOfATable, ComeFromSeveralListsBelowTheirHeadings )
{
    instance->set( u"Down", u"d1" );
    instance->set( u"Up", u"u1, u2" );
    GTableNode* node = rows( { { u"prefixlistsrc", u"Down, Up, Sideways" },
                               { u"groups", u"WWW, WWW, WWW" },
                               { u"suffixlist", u"_a" },
                               { u"columns", u"1" } } );
    EXPECT_GT( count( 0x00FF00FF, { 0, 0, 100, ROW } ), 0 );
    EXPECT_GT( count( 0x00FF00FF, { 0, 2 * ROW, 100, 3 * ROW } ), 0 );
    EXPECT_EQ( count( 0x00FF00FF, { 0, 3 * ROW, 100, 100 } ), 0 );
    down( node, ROW );
    EXPECT_EQ( node->getSelection( ), u"d1" );
    down( node, 2 * ROW );
    EXPECT_TRUE( node->getSelection( ).empty( ) );
    down( node, 4 * ROW );
    EXPECT_EQ( node->getSelection( ), u"u2" );
    // The arrow keys pass over the headings, and stop at both ends.
    node->onKeyDown( nullptr, 38 );
    EXPECT_EQ( node->getSelection( ), u"u1" );
    node->onKeyDown( nullptr, 38 );
    EXPECT_EQ( node->getSelection( ), u"d1" );
    EXPECT_EQ( node->onKeyDown( nullptr, 38 ), GRESPONSE_NONE );
    EXPECT_EQ( node->getSelection( ), u"d1" );
    node->onKeyDown( nullptr, 40 );
    EXPECT_EQ( node->getSelection( ), u"u1" );
    node->onKeyDown( nullptr, 35 );
    EXPECT_EQ( node->getSelection( ), u"u2" );
    node->onKeyDown( nullptr, 36 );
    EXPECT_EQ( node->getSelection( ), u"d1" );
    instance->set( u"Sideways", u"s1" );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
    EXPECT_TRUE( update( ) );
}

TEST_F( RowsOfATable, ShowTheirKeyWhereTheyHaveNoName )
{
    instance->set( u"Files", u"WWW" );
    const GAttributeList attributes{
        { u"prefixlistsrc", u"Files" }, { u"suffixlist", u"_Name" }, { u"columns", u"1" } };
    rows( attributes );
    EXPECT_EQ( count( 0xFF0000FF, { 0, 0, 100, ROW } ), 0 );
    GAttributeList named = attributes;
    named.push_back( { u"keysuffix", u"_Name" } );
    rows( named );
    const GString key = canvas->pixels;
    EXPECT_GT( count( 0xFF0000FF, { 0, 0, 100, ROW } ), 0 );
    instance->set( u"WWW_Name", u"other" );
    EXPECT_NE( draw( 100, 100 ).pixels, key );
}

TEST_F( RowsOfATable, BindTheSelectionToAValue )
{
    fill( 3 );
    instance->set( u"Chosen", u"f1" );
    GTableNode* node = rows(
        { { u"prefixlistsrc", u"Files" }, { u"suffixlist", u"_a" }, { u"title", u"a" }, { u"varname", u"Chosen" } } );
    EXPECT_EQ( node->getSelection( ), u"f1" );
    down( node, 3 * ROW );
    EXPECT_EQ( instance->get( u"Chosen" ), u"f2" );
    instance->set( u"Chosen", u"f0" );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( node->getSelection( ), u"f0" );
    // A row that goes takes it along.
    instance->remove( u"Files", u"f0" );
    update( );
    EXPECT_FALSE( instance->isSet( u"Chosen" ) );
    update( );
    EXPECT_FALSE( update( ) );
}

TEST_F( RowsOfATable, ScrollWhenTheyDoNotFit )
{
    fill( 20 );
    GTableNode* node = rows( { { u"prefixlistsrc", u"Files" },
                               { u"suffixlist", u"_a" },
                               { u"title", u"a" },
                               { u"thumbcolor", u"#0000FFFF" } } );
    EXPECT_GT( count( 0x0000FFFF, { 90, ROW, 100, 60 } ), 0 );
    EXPECT_EQ( count( 0x0000FFFF, { 90, 80, 100, 100 } ), 0 );
    EXPECT_EQ( node->onMouseWheel( nullptr, -1 ), GRESPONSE_RENDER );
    draw( 100, 100 );
    down( node, ROW );
    EXPECT_EQ( node->getSelection( ), u"f3" );
    node->onKeyDown( nullptr, 35 );
    draw( 100, 100 );
    down( node, 99 );
    EXPECT_EQ( node->getSelection( ), u"f19" );
    // Fewer rows bring the view back within them.
    instance->set( u"Files", u"f0, f1" );
    update( );
    draw( 100, 100 );
    down( node, ROW );
    EXPECT_EQ( node->getSelection( ), u"f0" );
}

TEST_F( RowsOfATable, BearTheFocusAtTheChosenOne )
{
    fill( 2 );
    GTableNode* node = rows( { { u"prefixlistsrc", u"Files" }, { u"suffixlist", u"_a" }, { u"title", u"a" } } );
    GRect focus;
    node->onKeyboardFocusChanged( true );
    node->onKeyDown( nullptr, 35 );
    EXPECT_TRUE( draw( 100, 100 ).images.getFocus( focus ) );
    EXPECT_EQ( focus, ( GRect{ 0, 2 * ROW, 100, 3 * ROW } ) );
}

TEST_F( RowsOfATable, AnswerTheReturnKeyLikeADoubleClick )
{
    fill( 1 );
    GTableNode* node = rows( { { u"prefixlistsrc", u"Files" }, { u"suffixlist", u"_a" }, { u"title", u"a" } } );
    EXPECT_TRUE( node->wantsKeyboardFocus( ) );
    EXPECT_EQ( node->onKeyPressed( nullptr, u'\r' ), GRESPONSE_NONE );
    node->onKeyDown( nullptr, 40 );
    EXPECT_EQ( node->onKeyPressed( nullptr, u'\r' ), GRESPONSE_RENDER );
    EXPECT_EQ( engine->commands, std::vector<std::string>{ "(open)" } );
}

TEST_F( RowsOfATable, SayInTheirOwnWordsThatThereAreNone )
{
    rows( { { u"prefixlistsrc", u"Files" }, { u"suffixlist", u"_a" }, { u"title", u"a" } } );
    const GString plain = canvas->pixels;
    rows( { { u"prefixlistsrc", u"Files" },
            { u"suffixlist", u"_a" },
            { u"title", u"a" },
            { u"emptytext", u"nothing" },
            { u"emptyfont", u"14,,#0000FFFF" } } );
    EXPECT_NE( canvas->pixels, plain );
    EXPECT_GT( count( 0x0000FFFF, { 0, ROW, 100, 100 } ), 0 );
}
