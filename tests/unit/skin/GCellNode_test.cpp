#include "client/skin/nodes/GCellNode.h"

#include "NodeTest.h"
#include "client/skin/nodes/GDefaultNode.h"

class GCellNodeTest : public NodeTest
{
protected:
    // A cell whose least size is 4 by 2, in a frame of 10 by 8.
    GRect place( GAttributeList attributes )
    {
        picture( u"pic", 4, 2, 0xFF0000FF );
        load( { u"Cell",
                attributes,
                { { u"Image", { { u"src", u"pic" }, { u"align", u"" } }, {} }, { u"Input", { }, {} } } } );
        update( );
        return draw( 10, 8 ).owned( handler( u"cell/input" ) );
    }
};

TEST_F( GCellNodeTest, KeepsItsLeastSizeAtTheTopLeft )
{
    EXPECT_EQ( place( { } ), ( GRect{ 0, 0, 4, 2 } ) );
}

TEST_F( GCellNodeTest, AlignsInALargerFrame )
{
    EXPECT_EQ( place( { { u"align", u"center" }, { u"valign", u"center" } } ), ( GRect{ 3, 3, 7, 5 } ) );
    EXPECT_EQ( place( { { u"align", u"RIGHT" }, { u"valign", u"bottom" } } ), ( GRect{ 6, 6, 10, 8 } ) );
    EXPECT_EQ( place( { { u"align", u"stretch" } } ), ( GRect{ 0, 0, 10, 2 } ) );
    EXPECT_EQ( place( { { u"valign", u"stretch" } } ), ( GRect{ 0, 0, 4, 8 } ) );
    EXPECT_EQ( place( { { u"align", u"bottom" }, { u"valign", u"right" } } ), ( GRect{ 0, 0, 4, 2 } ) );
}

TEST_F( GCellNodeTest, AnExtraTakesTheWholeFrame )
{
    EXPECT_EQ( place( { { u"extra", u"1" }, { u"align", u"center" } } ), ( GRect{ 0, 0, 10, 8 } ) );
}

TEST_F( GCellNodeTest, FixedSizesOverrideFrameAndContent )
{
    EXPECT_EQ( place( { { u"fixedwidth", u"6" } } ), ( GRect{ 0, 0, 6, 2 } ) );
    int width = 0;
    int height = 5;
    find( u"cell" )->calcMinSize( width, height );
    EXPECT_EQ( width, 6 );
    EXPECT_EQ( height, 5 );
}

TEST_F( GCellNodeTest, OffsetsMoveTheContent )
{
    EXPECT_EQ( place( { { u"x", u"2" }, { u"y", u"3" }, { u"fixedheight", u"2" } } ), ( GRect{ 2, 3, 6, 5 } ) );
}

TEST_F( GCellNodeTest, ContentStartsAtZeroButTheCellReadsItsOwnOffsets )
{
    load( { u"Cell", { { u"x", u"2" }, { u"y", u"3" } }, { { u"page", { { u"title", u"$x/$y" } }, {} } } } );
    update( { { u"x", u"7" } } );
    EXPECT_EQ( findAs<GDefaultNode>( u"cell/page" )->getTitle( ), u"0/0" );
}

TEST_F( GCellNodeTest, AlignmentIsNeverTakenAway )
{
    instance->set( u"Way", u"right" );
    EXPECT_EQ( place( { { u"align", u"$Way" } } ), ( GRect{ 6, 0, 10, 2 } ) );
    instance->set( u"Way", u"left" );
    EXPECT_FALSE( update( ) );
    EXPECT_EQ( draw( 10, 8 ).owned( handler( u"cell/input" ) ), ( GRect{ 6, 0, 10, 2 } ) );
}

TEST_F( GCellNodeTest, ReportsAChangeOfAnyValueOnce )
{
    load( { u"Cell", { { u"fixedwidth", u"$W" }, { u"extra", u"$E" }, { u"valign", u"$V" } }, {} } );
    update( );
    const auto changes = [&]( const char16_t* name, const char16_t* value )
    {
        instance->set( name, value );
        return update( ) && !update( );
    };
    EXPECT_TRUE( changes( u"W", u"5" ) );
    EXPECT_TRUE( changes( u"E", u"1" ) );
    EXPECT_TRUE( changes( u"V", u"bottom" ) );
}
