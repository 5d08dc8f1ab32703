#include "client/skin/nodes/GProgressNode.h"

#include "NodeTest.h"

class GProgressNodeTest : public NodeTest
{
protected:
    void progress( const char16_t* scale )
    {
        load( { u"Progress",
                { { u"x", u"1" },
                  { u"y", u"2" },
                  { u"width", u"10" },
                  { u"scale", scale },
                  { u"src", u"Done" },
                  { u"color", u"#FF0000FF" } },
                {} } );
        update( );
    }
    int length( )
    {
        const Canvas& drawn = draw( 20, 4 );
        int count = 0;
        for( int x = 0; x < 20; ++x ) count += drawn.at( x, 2 ) == 0xFF0000FFu;
        return count;
    }
};

TEST_F( GProgressNodeTest, TheLineFollowsTheValue )
{
    progress( u"200" );
    EXPECT_EQ( length( ), 0 );
    instance->set( u"Done", 100 );
    EXPECT_EQ( notifications( ), std::vector<int>{ 1 } );
    EXPECT_EQ( length( ), 5 );
    EXPECT_EQ( canvas->at( 0, 2 ), 0u );
    EXPECT_EQ( canvas->at( 1, 2 ), 0xFF0000FFu );
    instance->set( u"Done", 200 );
    EXPECT_EQ( length( ), 10 );
}

TEST_F( GProgressNodeTest, AScaleOfZeroIsIgnored )
{
    progress( u"$Scale" );
    instance->set( u"Done", 1 );
    EXPECT_EQ( length( ), 10 );
    instance->set( u"Scale", 2 );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( length( ), 5 );
    instance->set( u"Scale", 0 );
    EXPECT_FALSE( update( ) );
    EXPECT_EQ( length( ), 5 );
}

TEST_F( GProgressNodeTest, WildValuesStayInTheFrame )
{
    progress( u"1" );
    instance->set( u"Done", INT64_MAX );
    EXPECT_EQ( length( ), 19 );
    instance->set( u"Done", INT64_MIN );
    EXPECT_EQ( length( ), 0 );
}

TEST_F( GProgressNodeTest, TheColourIsTakenAsItStands )
{
    instance->set( u"Tint", u"#FF0000FF" );
    load(
        { u"Progress", { { u"width", u"10" }, { u"scale", u"1" }, { u"src", u"Done" }, { u"color", u"$Tint" } }, {} } );
    update( );
    instance->set( u"Done", 1 );
    EXPECT_NE( draw( 20, 4 ).at( 1, 0 ), 0xFF0000FFu );
}

TEST_F( GProgressNodeTest, PicturesShowTheWholeAndTheValue )
{
    picture( u"back", 8, 2, 0x00FF00FF );
    picture( u"fill", 8, 2, 0xFF0000FF );
    instance->set( u"Done", 5 );
    load( { u"Progress",
            { { u"x", u"1" },
              { u"width", u"8" },
              { u"scale", u"10" },
              { u"src", u"Done" },
              { u"backsrc", u"back" },
              { u"fillsrc", u"fill" },
              { u"color", u"#0000FFFF" } },
            {} } );
    update( );
    const Canvas& drawn = draw( 20, 4 );
    EXPECT_EQ( drawn.at( 0, 0 ), 0u );
    EXPECT_EQ( drawn.at( 1, 1 ), 0xFF0000FFu );
    EXPECT_EQ( drawn.at( 4, 0 ), 0xFF0000FFu );
    EXPECT_EQ( drawn.at( 5, 0 ), 0x00FF00FFu );
    EXPECT_EQ( drawn.at( 8, 1 ), 0x00FF00FFu );
    EXPECT_EQ( drawn.at( 9, 0 ), 0u );
    EXPECT_EQ( drawn.at( 1, 2 ), 0u );
    instance->set( u"Done", 1000 );
    EXPECT_EQ( draw( 20, 4 ).at( 8, 0 ), 0xFF0000FFu );
    EXPECT_EQ( canvas->at( 9, 0 ), 0u );
    instance->set( u"Done", 0 );
    EXPECT_EQ( draw( 20, 4 ).at( 1, 0 ), 0x00FF00FFu );
}
