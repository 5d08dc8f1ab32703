// Entries that would be more than themselves, and clones that are made only when somebody asks for them.
#include "NodeTest.h"
#include "client/skin/nodes/GForeachNode.h"
#include "client/skin/nodes/GWindowNode.h"
#include "support/CountAllocations.h"

class LazyForeachTest : public NodeTest
{
protected:
    void loadList( const GAttributeList& more, const Element& child = { u"Input", { { u"id", u"" } }, {} } )
    {
        GAttributeList attributes = { { u"id", u"chat" }, { u"list", u"Names" }, { u"as", u"id" } };
        attributes.insert( attributes.end( ), more.begin( ), more.end( ) );
        load( { u"Foreach", attributes, { child } } );
        update( );
    }
    // Ids of the clones, in the order of their making.
    std::string ids( )
    {
        std::string found;
        for( GTemplateNode* child : root->getChildren( ).front( )->getChildren( ) )
            found += GWideToUTF8( child->getAttribute( u"id" ) ) + " ";
        return found.substr( 1 );
    }
};

// ---- Entries.

TEST_F( LazyForeachTest, AnEntryThatWouldExpandActOrLeaveItsPathIsLeftOut )
{
    for( const char16_t* entry : { u"$Local_Password", u"a{b}", u"(/system?exit)", u"x)Y(/system?exit", u"x?remove&y=",
                                   u"x+y", u"../../x", u"a\\b", u"a/b" } )
    {
        TestLog::expect( "WARNING Foreach '/skin/Foreach_chat' cannot repeat '" + GWideToUTF8( entry ) +
                         "', ignoring." );
        instance->set( u"Local_Password", u"secret" );
        instance->set( u"Names", GConcat( u"ada@x, ", entry, u", e.v-e_2@x" ) );
        loadList( { } );
        EXPECT_EQ( ids( ), "ada@x e.v-e_2@x " ) << GWideToUTF8( entry );
    }
}

TEST_F( LazyForeachTest, WarnsOfAnEntryOnceWhileItStaysOnTheList )
{
    TestLog::expect( "cannot repeat '$x'" );
    instance->set( u"Names", u"$x" );
    loadList( { } );
    for( const char16_t* list : { u"$x, ada", u"$x, eve" } )
    {
        instance->set( u"Names", list );
        update( );
    }
    EXPECT_EQ( TestLog::count( "WARNING" ), 1 );
}

TEST_F( LazyForeachTest, PlainTextsAreRepeated )
{
    instance->set( u"Names", u"3 contact requests, Refusing..., \u0634\u062E\u0635" );
    loadList( { } );
    EXPECT_EQ( root->getChildren( ).front( )->getChildren( ).size( ), 4u );
}

// ---- Clones on demand.

TEST_F( LazyForeachTest, MakesAChildWhenItsPathIsAskedFor )
{
    instance->set( u"Names", u"ada, eve" );
    loadList( { { u"lazy", u"true" } } );
    EXPECT_EQ( ids( ), "" );
    GTemplateNode* made = find( u"foreach_chat/input_EVE" );
    ASSERT_TRUE( made );
    EXPECT_EQ( made->getPath( ), u"/skin/Foreach_chat/Input_eve" );
    EXPECT_EQ( find( u"foreach_chat/input_eve" ), made );
    EXPECT_EQ( ids( ), "eve " );
    // Its first pass has run by then.
    EXPECT_EQ( engine->commands, std::vector<std::string>{ "(/skin/Foreach_chat/Input_eve?refresh)" } );
    EXPECT_FALSE( find( u"foreach_chat/input_bob" ) );
    EXPECT_FALSE( find( u"foreach_chat/row_ada" ) );
    update( );
    EXPECT_EQ( ids( ), "eve " );
}

TEST_F( LazyForeachTest, KnowsAnEntryThatCameSinceTheLastPass )
{
    loadList( { { u"lazy", u"true" } } );
    instance->set( u"Names", u"ada" );
    EXPECT_TRUE( find( u"foreach_chat/input_ada" ) );
}

TEST_F( LazyForeachTest, AnEntryThatIsNoPlainWordIsNotMadeEither )
{
    TestLog::expect( "cannot repeat '$x'" );
    instance->set( u"Names", u"$x" );
    loadList( { { u"lazy", u"true" } } );
    EXPECT_FALSE( find( u"foreach_chat/input_$x" ) );
}

TEST_F( LazyForeachTest, WithoutTheAttributeNothingIsMadeOnDemand )
{
    loadList( { } );
    instance->set( u"Names", u"ada" );
    EXPECT_FALSE( find( u"foreach_chat/input_ada" ) );
}

TEST_F( LazyForeachTest, MakesACloneWhenWhatItWaitsForComes )
{
    instance->set( u"Names", u"ada, eve" );
    loadList( { { u"lazy", u"true" }, { u"until", u"_Queue" } } );
    EXPECT_TRUE( notifications( ).empty( ) );
    instance->enqueue( u"eve_Queue", GString( "hello" ) );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
    update( );
    EXPECT_EQ( ids( ), "eve " );
    // From then on it is the clone's own matter.
    instance->enqueue( u"eve_Queue", GString( "again" ) );
    EXPECT_TRUE( notifications( ).empty( ) );
    instance->set( u"ada_Queue", 1 );
    update( );
    EXPECT_EQ( ids( ), "eve ada " );
}

TEST_F( LazyForeachTest, CloneGoesWithItsEntryAndWaitsAgain )
{
    instance->set( u"Names", u"ada" );
    loadList( { { u"lazy", u"true" } } );
    find( u"foreach_chat/input_ada" );
    instance->clear( u"Names" );
    update( );
    EXPECT_EQ( ids( ), "" );
    instance->set( u"Names", u"ada" );
    update( );
    EXPECT_EQ( ids( ), "" );
}

TEST_F( LazyForeachTest, NumbersClonesThatAskForIt )
{
    instance->set( u"Names", u"a, b, c, d, e, f, g, h, i" );
    loadList( { }, { u"Input", { { u"id", u"" }, { u"index", u"" } }, {} } );
    EXPECT_EQ( find( u"foreach_chat/input_a" )->getAttribute( u"index" ), u"0" );
    EXPECT_EQ( find( u"foreach_chat/input_c" )->getAttribute( u"index" ), u"2" );
    EXPECT_EQ( find( u"foreach_chat/input_i" )->getAttribute( u"index" ), u"0" );
}

TEST_F( LazyForeachTest, AListOfAHundredThatNobodyOpensCostsNothing )
{
    GStringList names;
    for( int i = 0; i < 100; ++i ) names.push_back( GConcat( u"buddy", i, u"@x" ) );
    instance->set( u"Names", names );
    loadList( { { u"lazy", u"true" }, { u"until", u"_Queue" } },
              { u"Window", { { u"id", u"" }, { u"width", u"400" }, { u"height", u"500" } }, {} } );
    for( int i = 0; i < 2; ++i ) update( );
    bool changed = true;
    EXPECT_EQ( countAllocations( [&] { changed = update( ); } ), 0 );
    EXPECT_FALSE( changed );
    EXPECT_EQ( ids( ), "" );
    instance->set( u"buddy7@x_Image", u"a new picture" );
    EXPECT_TRUE( notifications( ).empty( ) );
}
