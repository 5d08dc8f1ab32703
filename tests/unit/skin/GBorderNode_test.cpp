#include "client/skin/nodes/GBorderNode.h"

#include "NodeTest.h"

class GBorderNodeTest : public NodeTest
{
protected:
    // Pieces of 2 by 1 around an inside of 4 by 4.
    static Element piece( const char16_t* name, const char16_t* width = u"2", const char16_t* height = u"1" )
    {
        const Element cell{ u"Cell", { { u"fixedwidth", width }, { u"fixedheight", height } }, {} };
        return { name, { }, { { u"Row", { }, { cell } }, { u"Input", { }, {} } } };
    }
    static std::vector<Element> pieces( )
    {
        return { piece( u"topleft" ),
                 piece( u"top" ),
                 piece( u"TopRight" ),
                 piece( u"left" ),
                 piece( u"inside", u"4", u"4" ),
                 piece( u"right" ),
                 piece( u"bottomleft" ),
                 piece( u"bottom" ),
                 piece( u"bottomright" ) };
    }
    GRect place( const GWString& name ) { return canvas->owned( handler( u"border/" + name + u"/input" ) ); }
    void layOut( const GAttributeList& attributes, int width, int height )
    {
        load( { u"Border", attributes, pieces( ) } );
        update( );
        draw( width, height );
    }
};

TEST_F( GBorderNodeTest, CornersKeepTheirSizeAndTheInsideTakesTheRest )
{
    layOut( { }, 20, 10 );
    EXPECT_EQ( place( u"topleft" ), ( GRect{ 0, 0, 2, 1 } ) );
    EXPECT_EQ( place( u"top" ), ( GRect{ 2, 0, 18, 1 } ) );
    EXPECT_EQ( place( u"topright" ), ( GRect{ 18, 0, 20, 1 } ) );
    EXPECT_EQ( place( u"left" ), ( GRect{ 0, 1, 2, 9 } ) );
    EXPECT_EQ( place( u"inside" ), ( GRect{ 2, 1, 18, 9 } ) );
    EXPECT_EQ( place( u"right" ), ( GRect{ 18, 1, 20, 9 } ) );
    EXPECT_EQ( place( u"bottomleft" ), ( GRect{ 0, 9, 2, 10 } ) );
    EXPECT_EQ( place( u"bottom" ), ( GRect{ 2, 9, 18, 10 } ) );
    EXPECT_EQ( place( u"bottomright" ), ( GRect{ 18, 9, 20, 10 } ) );
}

TEST_F( GBorderNodeTest, LeastSizeIsTheSumOfColumnsAndRows )
{
    load( { u"Border", { }, pieces( ) } );
    update( );
    int width = 0;
    int height = 0;
    find( u"border" )->calcMinSize( width, height );
    EXPECT_EQ( width, 8 );
    EXPECT_EQ( height, 6 );
}

TEST_F( GBorderNodeTest, OtherChildrenCoverTheWholeBoxAndRaiseItsSize )
{
    load( { u"Border", { }, { piece( u"left" ), piece( u"cover", u"9", u"3" ) } } );
    update( );
    EXPECT_EQ( draw( 12, 5 ).owned( handler( u"border/cover/input" ) ), ( GRect{ 0, 0, 12, 5 } ) );
    int width = 0;
    int height = 0;
    find( u"border" )->calcMinSize( width, height );
    EXPECT_EQ( width, 9 );
    EXPECT_EQ( height, 3 );
}

TEST_F( GBorderNodeTest, AWiderAspectShrinksTheHeightAndAnUprightOneTheWidth )
{
    // The inside is 16 by 8 before the aspect.
    layOut( { { u"aspect", u"4" } }, 20, 10 );
    EXPECT_EQ( place( u"inside" ), ( GRect{ 2, 1, 18, 5 } ) );
    EXPECT_EQ( place( u"bottom" ), ( GRect{ 2, 5, 18, 6 } ) );
    layOut( { { u"aspect", u"0.5" } }, 20, 10 );
    EXPECT_EQ( place( u"inside" ), ( GRect{ 2, 1, 6, 9 } ) );
    EXPECT_EQ( place( u"right" ), ( GRect{ 6, 1, 8, 9 } ) );
}

TEST_F( GBorderNodeTest, AspectInsideTakesTheAspectOfTheInside )
{
    layOut( { { u"aspect", u"Inside" } }, 20, 10 );
    EXPECT_EQ( place( u"inside" ), ( GRect{ 2, 1, 10, 9 } ) );
}

TEST_F( GBorderNodeTest, AnAspectThatIsNoNumberLeavesTheBoxAlone )
{
    layOut( { { u"aspect", u"abc" } }, 20, 10 );
    EXPECT_EQ( place( u"inside" ), ( GRect{ 2, 1, 18, 9 } ) );
    layOut( { { u"aspect", u"-2" } }, 20, 10 );
    EXPECT_EQ( place( u"inside" ), ( GRect{ 2, 1, 18, 9 } ) );
}

TEST_F( GBorderNodeTest, AFrameSmallerThanTheEdgesIsNeverInverted )
{
    layOut( { { u"aspect", u"1" } }, 3, 1 );
    EXPECT_TRUE( GRectEmpty( place( u"inside" ) ) );
    EXPECT_EQ( place( u"topleft" ), ( GRect{ 0, 0, 2, 1 } ) );
}

TEST_F( GBorderNodeTest, ReportsAChangeOfTheAspect )
{
    load( { u"Border", { { u"aspect", u"$A" } }, {} } );
    update( );
    EXPECT_FALSE( update( ) );
    instance->set( u"A", u"2" );
    EXPECT_TRUE( update( ) );
}
