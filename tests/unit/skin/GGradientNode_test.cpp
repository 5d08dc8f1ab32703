#include "client/skin/nodes/GGradientNode.h"

#include "NodeTest.h"

class GGradientNodeTest : public NodeTest
{
protected:
    Canvas& gradient( const GAttributeList& attributes )
    {
        load( { u"Gradient", attributes, {} } );
        update( );
        return draw( 9, 7 );
    }
};

TEST_F( GGradientNodeTest, RunsFromWhiteToBlackByItself )
{
    const Canvas& drawn = gradient( { } );
    EXPECT_GT( drawn.at( 0, 3 ) >> 24, 200u );
    EXPECT_LT( drawn.at( 8, 3 ) >> 24, 55u );
    EXPECT_EQ( drawn.at( 4, 0 ), drawn.at( 4, 6 ) );
}

TEST_F( GGradientNodeTest, RunsDownwardsWhenVertical )
{
    const Canvas& drawn = gradient( { { u"from", u"#FF0000FF" }, { u"to", u"#00FF00FF" }, { u"vertical", u"1" } } );
    EXPECT_GT( drawn.at( 4, 0 ) >> 24, 200u );
    EXPECT_GT( drawn.at( 4, 6 ) >> 16 & 255, 200u );
    EXPECT_EQ( drawn.at( 0, 3 ), drawn.at( 8, 3 ) );
}

TEST_F( GGradientNodeTest, AlphaOnlyFadesWhatStandsThere )
{
    load( { u"both",
            { },
            { { u"Gradient", { { u"from", u"#FF0000FF" }, { u"to", u"#FF0000FF" } }, {} },
              { u"Gradient", { { u"from", u"#00000000" }, { u"to", u"#000000FF" }, { u"alphaonly", u"1" } }, {} } } } );
    update( );
    const Canvas& drawn = draw( 9, 7 );
    EXPECT_LT( drawn.at( 0, 3 ) & 255, 55u );
    EXPECT_GT( drawn.at( 8, 3 ) & 255, 200u );
    EXPECT_GT( drawn.at( 8, 3 ) >> 24, 200u );
    EXPECT_EQ( drawn.at( 8, 3 ) >> 8 & 0xFFFF, 0u );
}

TEST_F( GGradientNodeTest, ReportsAChangeOnce )
{
    load( { u"Gradient", { { u"from", u"$From" } }, {} } );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
    instance->set( u"From", u"#112233FF" );
    EXPECT_TRUE( update( ) );
}
