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
