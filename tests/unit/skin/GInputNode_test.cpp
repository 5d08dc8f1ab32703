#include "client/skin/nodes/GInputNode.h"

#include "NodeTest.h"

class GInputNodeTest : public NodeTest
{
};

TEST_F( GInputNodeTest, EveryEdgeHasItsHitCode )
{
    const std::pair<const char16_t*, int> rows[] = {
        { u"topleft", 13 },    { u"top", 12 },    { u"topright", 14 },    { u"left", 10 },  { u"right", 11 },
        { u"bottomleft", 16 }, { u"bottom", 15 }, { u"BottomRight", 17 }, { u"middle", 1 }, { u"", 1 } };
    for( const auto& [edge, code] : rows )
    {
        auto* node = loadAs<GInputNode>( { u"Input", { { u"edge", edge } }, {} } );
        update( );
        EXPECT_EQ( node->getNCHITTEST( nullptr, 0, 0 ), code ) << GWideToUTF8( edge );
    }
}

TEST_F( GInputNodeTest, OwnsItsFrame )
{
    auto* node = loadAs<GInputNode>( { u"Input", { { u"edge", u"left" } }, {} } );
    update( );
    EXPECT_EQ( draw( 5, 4 ).owned( node ), ( GRect{ 0, 0, 5, 4 } ) );
}

TEST_F( GInputNodeTest, ReportsAChangeOfTheEdge )
{
    load( { u"Input", { { u"edge", u"$Edge" } }, {} } );
    update( );
    EXPECT_FALSE( update( ) );
    instance->set( u"Edge", u"left" );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
}
