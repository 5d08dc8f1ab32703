#include "client/skin/nodes/GRowNode.h"

#include "NodeTest.h"
#include "client/skin/nodes/GDefaultNode.h"

class GRowNodeTest : public NodeTest
{
protected:
    static Element cell( const char16_t* id, int width, int extra )
    {
        return { u"Cell",
                 { { u"id", id },
                   { u"fixedwidth", GNumber( width ) },
                   { u"fixedheight", u"2" },
                   { u"extra", GNumber( extra ) } },
                 { { u"Input", { }, {} } } };
    }
    GRect place( const char16_t* id ) { return canvas->owned( handler( GWString( u"row/cell_" ) + id + u"/input" ) ); }
    void layOut( const std::vector<Element>& cells, int width )
    {
        load( { u"Row", { }, cells } );
        update( );
        draw( width, 2 );
    }
    static Element open( const char16_t* id, const char16_t* extra )
    {
        return { u"Cell", { { u"id", id }, { u"extra", extra } }, { { u"Input", { }, {} } } };
    }
};

TEST_F( GRowNodeTest, SpareSpaceGoesByExtraAndTheRestToTheLastOne )
{
    layOut( { open( u"a", u"1" ), open( u"b", u"2" ), open( u"c", u"0" ) }, 10 );
    EXPECT_EQ( place( u"a" ), ( GRect{ 0, 0, 3, 2 } ) );
    EXPECT_EQ( place( u"b" ), ( GRect{ 3, 0, 10, 2 } ) );
    EXPECT_TRUE( GRectEmpty( place( u"c" ) ) );
}

TEST_F( GRowNodeTest, WithoutExtrasTheLastCellTakesAllSpareSpace )
{
    layOut( { cell( u"a", 3, 0 ), open( u"b", u"0" ) }, 10 );
    EXPECT_EQ( place( u"a" ), ( GRect{ 0, 0, 3, 2 } ) );
    // Its frame reaches to the end; without an extra it keeps its least size there.
    EXPECT_TRUE( GRectEmpty( place( u"b" ) ) );
    load( { u"Row",
            { },
            { cell( u"a", 3, 0 ),
              { u"Cell",
                { { u"id", u"b" }, { u"align", u"stretch" }, { u"valign", u"stretch" } },
                { { u"Input", { }, {} } } } } } );
    update( );
    draw( 10, 2 );
    EXPECT_EQ( place( u"b" ), ( GRect{ 3, 0, 10, 2 } ) );
}

TEST_F( GRowNodeTest, ExtraIsHeldBetweenZeroAndHundred )
{
    layOut( { open( u"a", u"150" ), open( u"b", u"100" ), open( u"c", u"-5" ) }, 10 );
    EXPECT_EQ( place( u"a" ), ( GRect{ 0, 0, 5, 2 } ) );
    EXPECT_EQ( place( u"b" ), ( GRect{ 5, 0, 10, 2 } ) );
    EXPECT_TRUE( GRectEmpty( place( u"c" ) ) );
}

TEST_F( GRowNodeTest, AnExtraBelowZeroTakesNothingFromTheOthers )
{
    layOut( { open( u"a", u"10" ), open( u"b", u"-5" ), open( u"c", u"10" ) }, 10 );
    EXPECT_EQ( place( u"a" ), ( GRect{ 0, 0, 5, 2 } ) );
    EXPECT_TRUE( GRectEmpty( place( u"b" ) ) );
    EXPECT_EQ( place( u"c" ), ( GRect{ 5, 0, 10, 2 } ) );
}

TEST_F( GRowNodeTest, NoCellsDrawNothing )
{
    load( { u"Row", { }, {} } );
    update( );
    EXPECT_TRUE( draw( 4, 4 ).isBlank( ) );
}

TEST_F( GRowNodeTest, ChildrenThatAreNoCellsArePassedOver )
{
    load( { u"Row", { }, { { u"Input", { }, {} }, cell( u"a", 3, 0 ) } } );
    update( );
    draw( 4, 4 );
    EXPECT_TRUE( GRectEmpty( canvas->owned( handler( u"row/input" ) ) ) );
    int width = 0;
    int height = 0;
    find( u"row" )->calcMinSize( width, height );
    EXPECT_EQ( width, 3 );
    EXPECT_EQ( height, 2 );
}

TEST_F( GRowNodeTest, TooLittleSpaceIsCut )
{
    layOut( { cell( u"a", 6, 0 ), cell( u"b", 6, 0 ) }, 10 );
    EXPECT_EQ( place( u"a" ), ( GRect{ 0, 0, 6, 2 } ) );
    EXPECT_EQ( place( u"b" ), ( GRect{ 6, 0, 10, 2 } ) );
}

TEST_F( GRowNodeTest, ColumnLaysOutDownwardsWhateverTheCaseOfItsName )
{
    const Element a{
        u"Cell", { { u"id", u"a" }, { u"fixedheight", u"3" }, { u"extra", u"1" } }, { { u"Input", { }, {} } } };
    const Element b{
        u"Cell", { { u"id", u"b" }, { u"fixedheight", u"2" }, { u"fixedwidth", u"4" }, { u"extra", u"1" } }, {} };
    load( { u"COL", { }, { a, b } } );
    update( );
    int width = 1;
    int height = 1;
    find( u"col" )->calcMinSize( width, height );
    EXPECT_EQ( width, 4 );
    EXPECT_EQ( height, 5 );
    draw( 4, 9 );
    EXPECT_EQ( canvas->owned( handler( u"col/cell_a/input" ) ), ( GRect{ 0, 0, 4, 3 } ) );
}

TEST_F( GRowNodeTest, LeastSizeIsTheSumAlongAndTheLargestAcross )
{
    load( { u"Row", { }, { cell( u"a", 3, 0 ), cell( u"b", 5, 0 ) } } );
    update( );
    int width = 0;
    int height = 7;
    find( u"row" )->calcMinSize( width, height );
    EXPECT_EQ( width, 8 );
    EXPECT_EQ( height, 7 );
}

TEST_F( GRowNodeTest, CellsDoNotInheritExtraAndAlignment )
{
    load(
        { u"Row",
          { { u"extra", u"1" }, { u"align", u"right" }, { u"valign", u"bottom" } },
          { { u"Cell", { { u"id", u"a" } }, { { u"page", { { u"title", u"<$extra><$align><$valign>" } }, {} } } } } } );
    update( );
    EXPECT_EQ( findAs<GDefaultNode>( u"row/cell_a/page" )->getTitle( ), u"<><><>" );
}

TEST_F( GRowNodeTest, AnUnchangedTreeReportsNoChange )
{
    load( { u"Row", { }, { cell( u"a", 3, 1 ), cell( u"b", 3, 0 ) } } );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
    find( u"row/cell_a" )->setAttribute( u"extra", u"2" );
    EXPECT_TRUE( update( ) );
}

TEST_F( GRowNodeTest, RepeatedCellsTakeTheirPlacesAmongTheOthers )
{
    const Element pattern{ u"Cell",
                           { { u"fixedwidth", u"2" }, { u"align", u"stretch" }, { u"valign", u"stretch" } },
                           { { u"Input", { }, {} } } };
    load( { u"Row",
            { },
            { cell( u"a", 3, 0 ),
              { u"Foreach", { { u"list", u"Names" }, { u"as", u"id" }, { u"most", u"2" } }, { pattern } },
              open( u"b", u"1" ) } } );
    const auto clone = [this]( const char16_t* id ) { return GConcat( u"row/foreach/cell_", id, u"/input" ); };
    update( );
    draw( 12, 2 );
    EXPECT_EQ( place( u"b" ), ( GRect{ 3, 0, 12, 2 } ) );
    int width = 0;
    int height = 0;
    find( u"row" )->calcMinSize( width, height );
    EXPECT_EQ( width, 3 );
    instance->set( u"Names", u"x, y, z" );
    update( );
    draw( 12, 2 );
    EXPECT_EQ( canvas->owned( handler( clone( u"x" ) ) ), ( GRect{ 3, 0, 5, 2 } ) );
    EXPECT_EQ( canvas->owned( handler( clone( u"y" ) ) ), ( GRect{ 5, 0, 7, 2 } ) );
    EXPECT_EQ( place( u"b" ), ( GRect{ 7, 0, 12, 2 } ) );
    width = 0;
    find( u"row" )->calcMinSize( width, height );
    EXPECT_EQ( width, 7 );
    // Who waits behind the most takes the place of one who leaves.
    EXPECT_FALSE( find( clone( u"z" ) ) );
    instance->set( u"Names", u"y, z" );
    update( );
    draw( 12, 2 );
    EXPECT_EQ( canvas->owned( handler( clone( u"y" ) ) ), ( GRect{ 3, 0, 5, 2 } ) );
    EXPECT_EQ( canvas->owned( handler( clone( u"z" ) ) ), ( GRect{ 5, 0, 7, 2 } ) );
}
