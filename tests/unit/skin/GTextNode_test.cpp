#include "client/skin/nodes/GTextNode.h"

#include "NodeTest.h"

class GTextNodeTest : public NodeTest
{
};

TEST_F( GTextNodeTest, ShowsAValueAndFollowsIt )
{
    instance->set( u"Status", u"Online" );
    auto* node = loadAs<GTextNode>( { u"Text", { { u"text", u"$Status" }, { u"watch", u"Status" } }, {} } );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( node->getText( ), u"Online" );
    EXPECT_FALSE( draw( 60, 20 ).isBlank( ) );
    EXPECT_FALSE( update( ) );
    instance->set( u"Status", u"Offline" );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( node->getText( ), u"Offline" );
}

TEST_F( GTextNodeTest, WatchesEveryNameOfItsList )
{
    instance->set( u"Which", u"a, b\tc;d" );
    load( { u"Text", { { u"watch", u"$Which" } }, {} } );
    update( );
    for( const char16_t* name : { u"a", u"b", u"c", u"d" } ) instance->set( name, 1 );
    EXPECT_EQ( notifications( ), ( std::vector<int>{ 2, 2, 2, 2 } ) );
    instance->set( u"Which", u"b, e" );
    EXPECT_TRUE( update( ) );
    for( const char16_t* name : { u"a", u"b", u"c", u"d", u"e" } ) instance->set( name, 2 );
    EXPECT_EQ( notifications( ), ( std::vector<int>{ 2, 2 } ) );
    root.reset( );
    instance->set( u"b", 3 );
    EXPECT_TRUE( notifications( ).empty( ) );
}

TEST_F( GTextNodeTest, ANameThatStandsTwiceIsWatchedOnce )
{
    load( { u"Text", { { u"watch", u"a, a" } }, {} } );
    update( );
    instance->set( u"a", 1 );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
}

TEST_F( GTextNodeTest, ReportsAChangeOfTheFont )
{
    load( { u"Text", { { u"text", u"x" }, { u"font", u"$Font" } }, {} } );
    update( );
    EXPECT_FALSE( update( ) );
    instance->set( u"Font", u"20,b" );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
}

TEST_F( GTextNodeTest, LeastHeightIsTheFont )
{
    auto* node = loadAs<GTextNode>( { u"Text", { { u"text", u"x" }, { u"font", u"24" } }, {} } );
    update( );
    int width = 3;
    int height = 1;
    node->calcMinSize( width, height );
    EXPECT_EQ( width, 3 );
    EXPECT_EQ( height, fontHeight( u"24" ) );
}
