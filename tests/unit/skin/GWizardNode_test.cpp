#include "client/skin/nodes/GWizardNode.h"

#include "NodeTest.h"
#include "client/skin/nodes/GDefaultNode.h"
#include "client/skin/nodes/GListNode.h"

class GWizardNodeTest : public NodeTest
{
protected:
    static Element block( const char16_t* width, const char16_t* height )
    {
        return { u"Row", { }, { { u"Cell", { { u"fixedwidth", width }, { u"fixedheight", height } }, {} } } };
    }
    static Element page( const char16_t* id, const char16_t* title )
    {
        return { u"page",
                 { { u"id", id },
                   { u"title", title },
                   { u"text", u"about" },
                   { u"onshow", GConcat( u"(show ", id, u")" ) },
                   { u"onhide", GConcat( u"(hide ", id, u")" ) } },
                 { { u"Input", { }, {} }, block( u"5", u"4" ) } };
    }
    GWizardNode* wizard( const std::vector<Element>& children, const GAttributeList& attributes = { } )
    {
        GAttributeList all = attributes;
        all.push_back( { u"ondone", u"(done)" } );
        all.push_back( { u"windowpath", u"/skin/window_options" } );
        auto* node = loadAs<GWizardNode>( { u"Wizard", all, children } );
        update( );
        update( );
        return node;
    }
    GWizardNode* three( ) { return wizard( { page( u"a", u"First" ), page( u"b", u"Second" ), page( u"c", u"a" ) } ); }
    std::string current( ) { return GWideToUTF8( find( u"wizard" )->getAttribute( u"page" ) ); }
    using Commands = std::vector<std::string>;
};

TEST_F( GWizardNodeTest, StartsAtTheFirstPageOrTheOneThatIsNamed )
{
    three( );
    EXPECT_EQ( current( ), "a" );
    wizard( { page( u"a", u"First" ), page( u"b", u"Second" ) }, { { u"page", u"b" } } );
    EXPECT_EQ( current( ), "b" );
    instance->set( u"Start", u"b" );
    wizard( { page( u"a", u"First" ), page( u"b", u"Second" ) }, { { u"page", u"$Start" } } );
    EXPECT_EQ( current( ), "b" );
}

TEST_F( GWizardNodeTest, ItsWindowOpensAndClosesAroundTheCurrentPage )
{
    GWizardNode* node = three( );
    node->show( );
    node->hide( );
    EXPECT_EQ( engine->commands, ( Commands{ "(show a)", "(hide a)" } ) );
    EXPECT_EQ( engine->sources.front( ), node );
    EXPECT_EQ( current( ), "a" );
    wizard( { } )->show( );
    EXPECT_EQ( engine->commands.size( ), 2u );
}

TEST_F( GWizardNodeTest, NextAndBackRunTheCommandsOfThePages )
{
    GWizardNode* node = three( );
    node->next( );
    EXPECT_EQ( current( ), "b" );
    EXPECT_EQ( engine->commands, ( Commands{ "(hide a)", "(show b)", "(/skin/window_options?refresh)" } ) );
    EXPECT_EQ( engine->sources.front( ), node );
    EXPECT_TRUE( update( ) );
    node->back( );
    EXPECT_EQ( current( ), "a" );
}

TEST_F( GWizardNodeTest, PastTheEndsNothingHappens )
{
    GWizardNode* node = three( );
    node->back( );
    EXPECT_EQ( current( ), "a" );
    node->next( );
    node->next( );
    engine->commands.clear( );
    node->next( );
    EXPECT_EQ( current( ), "c" );
    EXPECT_TRUE( engine->commands.empty( ) );
}

TEST_F( GWizardNodeTest, JumpGoesByTitleFirstAndThenById )
{
    GWizardNode* node = three( );
    node->jump( u"SECOND" );
    EXPECT_EQ( current( ), "b" );
    // "a" is the title of the third page and the id of the first.
    node->jump( u"a" );
    EXPECT_EQ( current( ), "c" );
    node->jump( u"B" );
    EXPECT_EQ( current( ), "b" );
}

TEST_F( GWizardNodeTest, AJumpToNowhereIsLoggedAndTheStays )
{
    TestLog::expect( "WARNING Unable to jump to page 'nowhere', ignoring." );
    GWizardNode* node = three( );
    node->jump( u"nowhere" );
    EXPECT_EQ( current( ), "a" );
    EXPECT_TRUE( engine->commands.empty( ) );
}

TEST_F( GWizardNodeTest, DoneRunsItsCommandAndRefreshesTheWindow )
{
    three( )->done( );
    EXPECT_EQ( engine->commands, ( Commands{ "(done)", "(/skin/window_options?refresh)" } ) );
    EXPECT_TRUE( update( ) );
    EXPECT_FALSE( update( ) );
}

TEST_F( GWizardNodeTest, TellsTheSkinWhereItIs )
{
    const Element header{
        u"header",
        { },
        { { u"page",
            { { u"title", u"$wizardtitle|$wizardtext|$wizardpath|$backdisabled|$nextdisabled|$list" } },
            {} } } };
    GWizardNode* node = wizard( { header, page( u"a", u"First" ), page( u"b", u"Second" ) } );
    const auto seen = [&]
    {
        update( );
        return GWideToUTF8( findAs<GDefaultNode>( u"wizard/header/page" )->getTitle( ) );
    };
    EXPECT_EQ( seen( ), "First|about|/skin/Wizard|1|0|First, Second" );
    node->next( );
    EXPECT_EQ( seen( ), "Second|about|/skin/Wizard|0|1|First, Second" );
}

TEST_F( GWizardNodeTest, OnePageHasNeitherNextNorBack )
{
    const Element header{ u"header", { }, { { u"page", { { u"title", u"$backdisabled$nextdisabled" } }, {} } } };
    wizard( { header, page( u"only", u"Only" ) } );
    EXPECT_EQ( findAs<GDefaultNode>( u"wizard/header/page" )->getTitle( ), u"11" );
}

TEST_F( GWizardNodeTest, HiddenPagesAreUpdatedAndKnowThatTheyAreDisabled )
{
    const auto probe = []( const char16_t* id )
    {
        return Element{ u"page",
                        { { u"id", id } },
                        { { u"inner", { }, { { u"page", { { u"title", u"$Live/$disabled" } }, {} } } } } };
    };
    wizard( { probe( u"a" ), probe( u"b" ) } );
    instance->set( u"Live", u"x" );
    update( );
    EXPECT_EQ( findAs<GDefaultNode>( u"wizard/page_a/inner/page" )->getTitle( ), u"x/0" );
    EXPECT_EQ( findAs<GDefaultNode>( u"wizard/page_b/inner/page" )->getTitle( ), u"x/1" );
}

TEST_F( GWizardNodeTest, DrawsTheCurrentPageBetweenItsStrips )
{
    const auto strip = []( const char16_t* name, const char16_t* width, const char16_t* height ) {
        return Element{ name, { }, { block( width, height ), { u"Input", { }, {} } } };
    };
    wizard( { strip( u"Header", u"1", u"3" ), strip( u"sidebar", u"4", u"1" ), strip( u"footer", u"1", u"2" ),
              page( u"a", u"First" ), page( u"b", u"Second" ) } );
    const Canvas& drawn = draw( 20, 12 );
    EXPECT_EQ( drawn.owned( handler( u"wizard/sidebar/input" ) ), ( GRect{ 0, 0, 4, 12 } ) );
    EXPECT_EQ( drawn.owned( handler( u"wizard/header/input" ) ), ( GRect{ 4, 0, 20, 3 } ) );
    EXPECT_EQ( drawn.owned( handler( u"wizard/footer/input" ) ), ( GRect{ 4, 10, 20, 12 } ) );
    EXPECT_EQ( drawn.owned( handler( u"wizard/page_a/input" ) ), ( GRect{ 4, 3, 20, 10 } ) );
    EXPECT_TRUE( GRectEmpty( drawn.owned( handler( u"wizard/page_b/input" ) ) ) );
}

TEST_F( GWizardNodeTest, TheSidebarTakesAtMostHalf )
{
    wizard( { { u"sidebar", { }, { block( u"50", u"1" ), { u"Input", { }, {} } } }, page( u"a", u"First" ) } );
    EXPECT_EQ( draw( 20, 4 ).owned( handler( u"wizard/sidebar/input" ) ), ( GRect{ 0, 0, 10, 4 } ) );
}

TEST_F( GWizardNodeTest, LeastSizeCountsTheHeaderTwiceAndNotTheFooter )
{
    GWizardNode* node = wizard( { { u"header", { }, { block( u"7", u"3" ) } },
                                  { u"footer", { }, { block( u"90", u"90" ) } },
                                  { u"sidebar", { }, { block( u"4", u"1" ) } },
                                  page( u"a", u"First" ) } );
    int width = 0;
    int height = 0;
    node->calcMinSize( width, height );
    EXPECT_EQ( width, 11 );
    EXPECT_EQ( height, 10 );
}

TEST_F( GWizardNodeTest, AListInTheSidebarFollowsThePage )
{
    GWizardNode* node =
        wizard( { { u"sidebar", { }, { { u"List", { }, {} } } }, page( u"a", u"First" ), page( u"b", u"Second" ) } );
    node->next( );
    EXPECT_EQ( findAs<GListNode>( u"wizard/sidebar/list" )->getSelection( ), u"Second" );
    update( );
    EXPECT_EQ( findAs<GListNode>( u"wizard/sidebar/list" )->getSelection( ), u"Second" );
}
