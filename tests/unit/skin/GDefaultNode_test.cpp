#include "client/skin/nodes/GDefaultNode.h"

#include "NodeTest.h"

class GDefaultNodeTest : public NodeTest
{
protected:
    bool shown( const GAttributeList& values = { } )
    {
        update( values );
        draw( 4, 4 );
        return GRectHasVolume( canvas->owned( handler( u"if/input" ) ) );
    }
    static Element gate( const GAttributeList& attributes ) { return { u"if", attributes, { { u"Input", { }, {} } } }; }
};

TEST_F( GDefaultNodeTest, UnknownElementDrawsItsChildren )
{
    load( { u"anything", { }, { { u"Input", { }, {} } } } );
    update( );
    draw( 3, 3 );
    EXPECT_EQ( canvas->owned( handler( u"anything/input" ) ), ( GRect{ 0, 0, 3, 3 } ) );
}

TEST_F( GDefaultNodeTest, OnShowsItsSubtreeForItsEventAlone )
{
    load( { u"On", { { u"event", u"ring" } }, { { u"Input", { }, {} } } } );
    update( { { u"g_event", u"ring" } } );
    EXPECT_TRUE( GRectHasVolume( draw( 2, 2 ).owned( handler( u"on/input" ) ) ) );
    update( { { u"g_event", u"other" } } );
    EXPECT_FALSE( GRectHasVolume( draw( 2, 2 ).owned( handler( u"on/input" ) ) ) );
}

TEST_F( GDefaultNodeTest, IfWithFalseConditionAndNoEqualsHides )
{
    load( gate( { { u"cond", u"$Flag" } } ) );
    EXPECT_FALSE( shown( ) );
    instance->set( u"Flag", 1 );
    EXPECT_TRUE( shown( ) );
}

TEST_F( GDefaultNodeTest, IfComparesTheWatchedValueWithEquals )
{
    instance->set( u"State", u"ringing" );
    load( gate( { { u"watch", u"State" }, { u"cond", u"0" }, { u"equals", u"ringing" } } ) );
    EXPECT_TRUE( shown( ) );
    instance->set( u"State", u"idle" );
    EXPECT_FALSE( shown( ) );
}

TEST_F( GDefaultNodeTest, IfReportsAChangeWhenItOpensAndWhenItCloses )
{
    load( gate( { { u"cond", u"$Flag" } } ) );
    update( );
    EXPECT_FALSE( update( ) );
    instance->set( u"Flag", 1 );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
    instance->set( u"Flag", 0 );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
}

TEST_F( GDefaultNodeTest, IfWatchesItsValueAndFollowsItsName )
{
    instance->set( u"Which", u"first" );
    load( gate( { { u"watch", u"$Which" }, { u"cond", u"1" } } ) );
    update( );
    instance->set( u"first", 1 );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
    instance->set( u"Which", u"second" );
    update( );
    instance->set( u"first", 2 );
    EXPECT_TRUE( notifications( ).empty( ) );
    instance->set( u"second", 1 );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
}

TEST_F( GDefaultNodeTest, AWatchEndsWithItsNode )
{
    load( gate( { { u"watch", u"State" } } ) );
    update( );
    root.reset( );
    instance->set( u"State", 1 );
    EXPECT_TRUE( notifications( ).empty( ) );
}

TEST_F( GDefaultNodeTest, AHiddenSubtreeIsNotUpdatedButKept )
{
    load( gate( { { u"cond", u"0" } } ) );
    update( );
    update( );
    EXPECT_NE( find( u"if/input" ), nullptr );
    find( u"if/input" )->setAttribute( u"edge", u"left" );
    update( );
    EXPECT_EQ( handler( u"if/input" )->getNCHITTEST( nullptr, 0, 0 ), GHIT_CLIENT );
}

TEST_F( GDefaultNodeTest, PiecesOfABorderLeanTowardItsCentre )
{
    // The child sees what its parent set: read back through a page that keeps its title.
    const auto seen = [&]( const char16_t* name )
    {
        load( { name, { }, { { u"page", { { u"title", u"{$align}/{$valign}" } }, {} } } } );
        update( { { u"align", u"none" }, { u"valign", u"none" } } );
        return GWideToUTF8( findAs<GDefaultNode>( GWString( name ) + u"/page" )->getTitle( ) );
    };
    EXPECT_EQ( seen( u"topleft" ), "right/bottom" );
    EXPECT_EQ( seen( u"TopRight" ), "left/bottom" );
    EXPECT_EQ( seen( u"bottomleft" ), "right/top" );
    EXPECT_EQ( seen( u"bottom" ), "none/top" );
    EXPECT_EQ( seen( u"left" ), "right/none" );
    EXPECT_EQ( seen( u"inside" ), "none/none" );
}

TEST_F( GDefaultNodeTest, PageKeepsItsTextsAndReportsTheirChange )
{
    instance->set( u"Title", u"one" );
    auto* page = loadAs<GDefaultNode>(
        { u"page", { { u"title", u"$Title" }, { u"text", u"t" }, { u"onshow", u"(s)" }, { u"onhide", u"(h)" } }, {} } );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( page->getTitle( ), u"one" );
    EXPECT_EQ( page->getText( ), u"t" );
    EXPECT_EQ( page->getOnShow( ), u"(s)" );
    EXPECT_EQ( page->getOnHide( ), u"(h)" );
    EXPECT_FALSE( update( ) );
    instance->set( u"Title", u"two" );
    EXPECT_TRUE( update( ) );
}

TEST_F( GDefaultNodeTest, IfComparesAValueWhoseNameIsNoPlainWord )
{
    load( { u"if", { { u"watch", u"ann-marie@x_Online" }, { u"cond", u"0" }, { u"equals", u"1" } }, {} } );
    update( );
    EXPECT_TRUE( findAs<GDefaultNode>( u"if" )->isHidden( ) );
    instance->set( u"ann-marie@x_Online", 1 );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( findAs<GDefaultNode>( u"if" )->isHidden( ) );
    instance->set( u"ann-marie@x_Online", 0 );
    update( );
    EXPECT_TRUE( findAs<GDefaultNode>( u"if" )->isHidden( ) );
}
