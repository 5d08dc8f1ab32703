#include "client/skin/nodes/GCopyNode.h"

#include "NodeTest.h"
#include "client/skin/nodes/GInputNode.h"

class GCopyNodeTest : public NodeTest
{
protected:
    void loadTwo( const Element& first, const Element& second )
    {
        root.reset( make( { u"skin", { }, { first, second } }, nullptr ) );
        engine->root = root.get( );
    }
    static Element library( )
    {
        return { u"if", { { u"cond", u"0" } }, { { u"frame", { }, { { u"Input", { }, {} } } } } };
    }
};

TEST_F( GCopyNodeTest, GraftsACloneAndPutsItsOwnChildrenInside )
{
    loadTwo( library( ), { u"Copy", { { u"src", u"/skin/if/frame" } }, { { u"mine", { }, {} } } } );
    update( );
    ASSERT_TRUE( find( u"copy/frame" ) );
    EXPECT_EQ( find( u"copy" )->getChildren( ).size( ), 1u );
    ASSERT_TRUE( find( u"copy/frame/mine" ) );
    EXPECT_EQ( find( u"copy/frame/mine" )->getParent( ), find( u"copy/frame" ) );
    EXPECT_EQ( find( u"copy/frame" )->getChildren( ).back( ), find( u"copy/frame/mine" ) );
    EXPECT_EQ( find( u"copy" )->getAttribute( u"done" ), u"true" );
    EXPECT_EQ( find( u"if/frame" )->getChildren( ).size( ), 1u );
}

TEST_F( GCopyNodeTest, CopiesOnce )
{
    loadTwo( library( ), { u"Copy", { { u"src", u"/skin/if/frame" } }, {} } );
    update( );
    GTemplateNode* copy = find( u"copy/frame" );
    update( );
    EXPECT_EQ( find( u"copy/frame" ), copy );
    EXPECT_EQ( find( u"copy" )->getChildren( ).size( ), 1u );
}

TEST_F( GCopyNodeTest, DrawsTheCopy )
{
    loadTwo( library( ), { u"Copy", { { u"src", u"/skin/if/frame" } }, {} } );
    update( );
    EXPECT_EQ( draw( 3, 2 ).owned( handler( u"copy/frame/input" ) ), ( GRect{ 0, 0, 3, 2 } ) );
}

TEST_F( GCopyNodeTest, ACopyInsideACopyIsGraftedToo )
{
    loadTwo( library( ),
             { u"Copy", { { u"src", u"/skin/if/frame" } }, { { u"Copy", { { u"src", u"/skin/if/frame" } }, {} } } } );
    update( );
    EXPECT_TRUE( find( u"copy/frame/copy/frame/input" ) );
}

TEST_F( GCopyNodeTest, AMissingSourceLeavesTheChildren )
{
    loadTwo( library( ), { u"Copy", { { u"src", u"/skin/nowhere" } }, { { u"mine", { }, {} } } } );
    update( );
    EXPECT_TRUE( find( u"copy/mine" ) );
    EXPECT_EQ( find( u"copy" )->getAttribute( u"done" ), u"true" );
}

TEST_F( GCopyNodeTest, WithoutASourceItWaitsForOne )
{
    loadTwo( library( ), { u"Copy", { { u"src", u"$Which" } }, {} } );
    update( );
    EXPECT_TRUE( find( u"copy" )->getAttribute( u"done" ).empty( ) );
    instance->set( u"Which", u"/skin/if/frame" );
    update( );
    EXPECT_TRUE( find( u"copy/frame" ) );
}

TEST_F( GCopyNodeTest, ACopyOfWhatHoldsItIsRefused )
{
    TestLog::expect( "WARNING '/skin/outer/Copy' would copy itself from '/skin/outer', ignoring." );
    load( { u"outer", { }, { { u"Copy", { { u"src", u"/skin/outer" } }, {} } } } );
    update( );
    EXPECT_TRUE( find( u"outer/copy" )->getChildren( ).empty( ) );
}

TEST_F( GCopyNodeTest, TwoThatCopyEachOtherEnd )
{
    TestLog::expect( "' would copy itself from '/skin/if_" );
    const auto copyOf = []( const char16_t* source ) -> Element { return { u"Copy", { { u"src", source } }, {} }; };
    const auto gate = [&]( const char16_t* id, const char16_t* source ) -> Element {
        return { u"if", { { u"id", id }, { u"cond", u"1" } }, { copyOf( source ) } };
    };
    loadTwo( gate( u"a", u"/skin/if_b" ), gate( u"b", u"/skin/if_a" ) );
    update( );
    EXPECT_TRUE( find( u"if_a/copy/if_b" ) );
}

// Each part holds the former one twice: forty of them would be a million million nodes.
TEST_F( GCopyNodeTest, CopiesThatDoubleEndAtALimit )
{
    TestLog::expect( "would make the skin too large or too deep at '/skin/box/" );
    Element box{ u"box", { }, { { u"if", { { u"id", u"0" } }, { { u"Input", { }, {} } } } } };
    for( int i = 1; i < 40; ++i )
    {
        const Element copy{ u"Copy", { { u"src", GConcat( u"/skin/box/if_", i - 1 ) } }, {} };
        box.children.push_back( { u"if", { { u"id", GNumber( i ) }, { u"cond", u"1" } }, { copy, copy } } );
    }
    load( box );
    update( );
    EXPECT_EQ( TestLog::count( "too large or too deep" ), 1 );
}

TEST_F( GCopyNodeTest, WatchesOfTheCopyReportToItsWindow )
{
    const Element source{
        u"if", { { u"cond", u"0" } }, { { u"Text", { { u"text", u"$T" }, { u"watch", u"T" } }, {} } } };
    loadTwo( source, { u"Copy", { { u"src", u"/skin/if/text" } }, {} } );
    update( );
    instance->set( u"T", 1 );
    EXPECT_EQ( notifications( ), std::vector<int>{ 2 } );
}
