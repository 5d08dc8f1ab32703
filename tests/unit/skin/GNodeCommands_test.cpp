#include "CommandsTest.h"

using GNodeCommandsTest = CommandsTest;

TEST_F( GNodeCommandsTest, AWindowFadesByMillisecondsWithEitherSeparator )
{
    load( window( "a" ) );
    GWindowNode* a = windowNode( u"/skin/window_a" );
    run( "(/skin/window_a?fadein+duration=500)" );
    clock.advance( 250000 );
    a->onTimer( nullptr );
    EXPECT_NEAR( a->getAlpha( ), 127, 2 );
    clock.advance( 500000 );
    a->onTimer( nullptr );
    EXPECT_EQ( a->getAlpha( ), 255 );
    run( "(/skin/window_a?fadeout&duration=500)" );
    clock.advance( 250000 );
    a->onTimer( nullptr );
    EXPECT_NEAR( a->getAlpha( ), 127, 2 );
}

TEST_F( GNodeCommandsTest, ACloseWithoutAPathActsOnItsSource )
{
    load( window( "a", "<Button/>" ) );
    run( "(?close)", node( u"/skin/window_a" ) );
    EXPECT_EQ( value( u"a_Window" ), "closed" );
    TestLog::expect( "WARNING Trying to 'close' non-window node '/skin/Window_a/Button', ignoring." );
    run( "(?close)", node( u"/skin/window_a/button" ) );
    run( "(../?open)", node( u"/skin/window_a/button" ) );
    EXPECT_EQ( value( u"a_Window" ), "open" );
}

TEST_F( GNodeCommandsTest, WindowActionsNeedAWindow )
{
    load( "<a/>" );
    for( const std::string action : { "fadein", "fadeout", "open", "close", "maximize", "minimize", "flash" } )
    {
        TestLog::expect( "WARNING Trying to '" + action + "' non-window node '/skin/a', ignoring." );
        run( "(/skin/a?" + action + ")" );
    }
    TestLog::expect( "WARNING Trying to 'fit' on a non-screen/window node '/skin/a', ignoring." );
    run( "(/skin/a?fit)" );
    TestLog::expect( "WARNING Unknown skin action '/skin/a', ignoring." );
    run( "(/skin/a?jumpy)" );
}

TEST_F( GNodeCommandsTest, WizardActionsNeedAWizard )
{
    load( "<a/>" );
    for( const std::string action : { "next", "back", "done", "show", "hide" } )
    {
        TestLog::expect( "WARNING Trying to '" + action + "' on non-wizard node '/skin/a', ignoring." );
        run( "(/skin/a?" + action + ")" );
    }
    TestLog::expect( "WARNING Trying to 'jump' on non-wizard node, with no target, or with non-list source '/skin/a'" );
    run( "(/skin/a?jump+target=x)" );
}

TEST_F( GNodeCommandsTest, AWizardTurnsItsPages )
{
    load( window( "w", "<Wizard ondone=\"(/system?set+name=Done+value=1)\"><page id=\"one\" title=\"First\"/>"
                       "<page id=\"two\" title=\"Second\" onshow=\"(/system?set+name=Shown+value=2)\""
                       " onhide=\"(/system?set+name=Hidden+value=2)\"/></Wizard>" ) );
    GTemplateNode* wizard = node( u"/skin/window_w/wizard" );
    const auto page = [&] { return text( wizard->getAttribute( u"page" ) ); };
    EXPECT_EQ( page( ), "one" );
    run( "(/skin/window_w/wizard?next)" );
    EXPECT_EQ( page( ), "two" );
    run( "(/skin/window_w/wizard?back)" );
    EXPECT_EQ( page( ), "one" );
    run( "(/skin/window_w/wizard?jump+target=second)" );
    EXPECT_EQ( page( ), "two" );
    run( "(/skin/window_w/wizard?done)" );
    EXPECT_EQ( value( u"Done" ), "1" );
    run( "(/skin/window_w/wizard?show;/skin/window_w/wizard?hide)" );
    EXPECT_EQ( value( u"Shown" ), "2" );
    EXPECT_EQ( value( u"Hidden" ), "2" );
    TestLog::expect( "WARNING Trying to 'jump' on non-wizard node, with no target" );
    run( "(/skin/window_w/wizard?jump)" );
}

TEST_F( GNodeCommandsTest, AJumpTakesTheSelectionOfAList )
{
    load( window( "w", "<Wizard><page id=\"one\" title=\"First\"/><page id=\"two\" title=\"Second\"/></Wizard>"
                       "<List list=\"First,Second\" select=\"Second\"/>" ) );
    run( "(../wizard?jump+target=First)", node( u"/skin/window_w/list" ) );
    EXPECT_EQ( text( node( u"/skin/window_w/wizard" )->getAttribute( u"page" ) ), "two" );
}

TEST_F( GNodeCommandsTest, ClearEmptiesTheSourceAndNotTheTarget )
{
    load( window( "w", "<Edit id=\"a\"/><Edit id=\"b\"/>" ) );
    auto* a = dynamic_cast<GEditNode*>( node( u"/skin/window_w/edit_a" ) );
    auto* b = dynamic_cast<GEditNode*>( node( u"/skin/window_w/edit_b" ) );
    a->setText( u"aaa" );
    b->setText( u"bbb" );
    run( "(/skin/window_w/edit_b?clear)", a );
    EXPECT_EQ( text( a->getText( ) ), "" );
    EXPECT_EQ( text( b->getText( ) ), "bbb" );
    TestLog::expect( "WARNING Trying to 'clear' on non-edit node '/skin/Window_w/Edit_b', ignoring." );
    run( "(/skin/window_w/edit_b?clear)" );
}

TEST_F( GNodeCommandsTest, SubmitRunsWhatTheReturnKeyOfAFieldRuns )
{
    load( window(
        "a", "<Edit id=\"text\" onenter=\"(/system?set+name=Entered+value=yes;?clear)\"/><Button id=\"send\"/>" ) );
    update( );
    auto* edit = dynamic_cast<GEditNode*>( node( u"/skin/window_a/edit_text" ) );
    edit->setText( u"hello" );
    run( "(../edit_text?submit)", node( u"/skin/window_a/button_send" ) );
    EXPECT_EQ( value( u"Entered" ), "yes" );
    EXPECT_EQ( edit->getText( ), u"" );
    TestLog::expect( "WARNING Trying to 'submit' non-edit node '/skin/Window_a', ignoring." );
    run( "(/skin/window_a?submit)" );
}
