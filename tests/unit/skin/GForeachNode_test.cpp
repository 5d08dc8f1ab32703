#include "client/skin/nodes/GForeachNode.h"

#include "NodeTest.h"
#include "client/skin/nodes/GNodeTools.h"
#include "client/skin/nodes/GWindowNode.h"

class GForeachNodeTest : public NodeTest
{
protected:
    static Element repeat( const Element& child )
    {
        return { u"Foreach", { { u"id", u"chat" }, { u"list", u"Names" }, { u"as", u"id" } }, { child } };
    }
    static Element plain( ) { return repeat( { u"Input", { }, {} } ); }
    std::vector<std::string> ids( )
    {
        std::vector<std::string> found;
        for( GTemplateNode* child : find( u"foreach_chat" )->getChildren( ) )
            found.push_back( GWideToUTF8( child->getID( ) ) );
        return found;
    }
    using Ids = std::vector<std::string>;
};

TEST_F( GForeachNodeTest, MakesACloneForEveryEntry )
{
    instance->set( u"Names", u"ada, grace" );
    load( plain( ) );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( ids( ), ( Ids{ "Input", "Input_ada", "Input_grace" } ) );
    EXPECT_EQ( find( u"foreach_chat/input_ada" )->getPath( ), u"/skin/Foreach_chat/Input_ada" );
    EXPECT_FALSE( update( ) );
}

TEST_F( GForeachNodeTest, TheFirstChildIsNeverShown )
{
    load( plain( ) );
    update( );
    draw( 3, 3 );
    EXPECT_TRUE( GRectEmpty( canvas->owned( handler( u"foreach_chat/input" ) ) ) );
    instance->set( u"Names", u"ada" );
    update( );
    draw( 3, 3 );
    EXPECT_EQ( canvas->owned( handler( u"foreach_chat/input_ada" ) ), ( GRect{ 0, 0, 3, 3 } ) );
}

TEST_F( GForeachNodeTest, AnEntryThatStandsTwiceMakesOneClone )
{
    instance->set( u"Names", u"ada, ada" );
    load( plain( ) );
    update( );
    EXPECT_EQ( ids( ), ( Ids{ "Input", "Input_ada" } ) );
}

TEST_F( GForeachNodeTest, AListThatShrinksDeletesItsClonesAndReportsIt )
{
    instance->set( u"Names", u"ada, grace, linus" );
    load( plain( ) );
    update( );
    instance->set( u"Names", u"linus" );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( ids( ), ( Ids{ "Input", "Input_linus" } ) );
    instance->clear( u"Names" );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( ids( ), Ids{ "Input" } );
}

TEST_F( GForeachNodeTest, WatchesTheList )
{
    load( plain( ) );
    update( );
    instance->set( u"Names", u"ada" );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
}

TEST_F( GForeachNodeTest, WithoutAChildItWarnsOnce )
{
    TestLog::expect( "WARNING Foreach '/skin/Foreach' has no child to repeat" );
    instance->set( u"Names", u"ada" );
    load( { u"Foreach", { { u"list", u"Names" }, { u"as", u"id" } }, {} } );
    update( );
    update( );
    EXPECT_EQ( TestLog::count( "WARNING" ), 1 );
}

TEST_F( GForeachNodeTest, WithoutAnAttributeNameNothingIsRepeated )
{
    instance->set( u"Names", u"ada" );
    load( { u"Foreach", { { u"list", u"Names" } }, { { u"Input", { }, {} } } } );
    update( );
    EXPECT_EQ( find( u"foreach" )->getChildren( ).size( ), 1u );
}

TEST_F( GForeachNodeTest, WindowsComeAndGoWithTheList )
{
    instance->set( u"Names", u"ada" );
    load( repeat( { u"Window", { { u"width", u"10" }, { u"height", u"10" }, { u"enablealpha", u"1" } }, {} } ) );
    update( );
    auto* window = findAs<GWindowNode>( u"foreach_chat/window_ada" );
    ASSERT_TRUE( window );
    EXPECT_TRUE( window->isVisible( ) );
    // Drawn at once, without waiting for a pass to render.
    EXPECT_EQ( window->getLayerFormat( ).width, 10 );
    instance->clear( u"Names" );
    update( );
    EXPECT_EQ( ids( ), Ids{ "Window" } );
}

TEST_F( GForeachNodeTest, APassInsideAPassLeavesTheListForTheNext )
{
    instance->set( u"Names", u"ada, grace" );
    load( repeat( { u"Wizard", { { u"ondone", u"(x)" } }, {} } ) );
    update( );
    // A child that runs a command in its own update, as a chat does for a new message.
    class Restless : public GTemplateNode
    {
    public:
        using GTemplateNode::GTemplateNode;

    protected:
        bool _postChildUpdate( GAttributeStack& ) override
        {
            GNodeTools_execute( this, u"(again)" );
            return false;
        }
    };
    GTemplateNode* holder = find( u"foreach_chat/wizard_ada" );
    holder->appendChild( GSAFENEW( Restless, ( instance.get( ), engine.get( ), holder ) ) );
    bool nested = false;
    engine->onCommand = [&]( const GWString& )
    {
        if( nested ) return;
        nested = true;
        instance->set( u"Names", u"grace" );
        update( );
    };
    update( );
    EXPECT_EQ( ids( ), ( Ids{ "Wizard", "Wizard_ada", "Wizard_grace" } ) );
    EXPECT_FALSE( notifications( ).empty( ) );
    update( );
    EXPECT_EQ( ids( ), ( Ids{ "Wizard", "Wizard_grace" } ) );
}

TEST_F( GForeachNodeTest, ACloneThatRunsACommandIsDeletedLater )
{
    TestLog::expect( "WARNING Cannot delete '/skin/Foreach_chat/Window_ada' while it is in use" );
    instance->set( u"Names", u"ada" );
    load( repeat( { u"Window", { { u"width", u"10" }, { u"height", u"10" }, { u"onclose", u"(gone)" } }, {} } ) );
    update( );
    auto* window = findAs<GWindowNode>( u"foreach_chat/window_ada" );
    engine->onCommand = [&]( const GWString& )
    {
        instance->clear( u"Names" );
        update( );
    };
    window->close( );
    EXPECT_EQ( ids( ), Ids{ "Window" } );
    // Still there, but out of sight.
    EXPECT_FALSE( window->isVisible( ) );
    update( );
}

TEST_F( GForeachNodeTest, RepeatsNoMoreThanTheMost )
{
    instance->set( u"Names", u"ada, grace, linus" );
    load( plain( ) );
    update( );
    for( const auto& [most, count] : { std::pair( u"2", 3u ), std::pair( u"1", 2u ), std::pair( u"0", 4u ) } )
    {
        find( u"foreach_chat" )->setAttribute( u"most", most );
        EXPECT_TRUE( update( ) );
        EXPECT_EQ( ids( ).size( ), count );
    }
}

TEST_F( GForeachNodeTest, FindsTheEntryThatSurroundsANode )
{
    instance->set( u"Names", u"ada, grace" );
    load( repeat( { u"Cell", { }, { { u"Input", { }, {} } } } ) );
    update( );
    const GTemplateNode* inner = find( u"foreach_chat/cell_grace/input" );
    EXPECT_EQ( GForeachNode::findEntry( inner, u"names" ), u"grace" );
    EXPECT_EQ( GForeachNode::findEntry( find( u"foreach_chat/cell_ada" ), u"Names" ), u"ada" );
    EXPECT_EQ( GForeachNode::findEntry( inner, u"Others" ), u"" );
    EXPECT_EQ( GForeachNode::findEntry( find( u"foreach_chat/cell" ), u"Names" ), u"" );
    EXPECT_EQ( GForeachNode::findEntry( find( u"foreach_chat" ), u"Names" ), u"" );
    EXPECT_EQ( GForeachNode::findEntry( nullptr, u"Names" ), u"" );
}
