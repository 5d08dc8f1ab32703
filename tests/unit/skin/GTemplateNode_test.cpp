#include "client/skin/GTemplateNode.h"

#include "SkinTest.h"
#include "client/drawing/GImageStack.h"

namespace
{
// Writes down which of its operations ran, and answers as it is told.
class ProbeNode : public GTemplateNode
{
public:
    ProbeNode( GInstance* instance, IGCommandEngine* engine, GTemplateNode* parent, std::string& log, const char* name,
               const char* id = "" )
        : GTemplateNode( instance, engine, parent ), _log( log )
    {
        _name = GUTF8ToWide( name );
        if( *id ) _attributes.emplace_back( u"id", GUTF8ToWide( id ) );
    }
    ~ProbeNode( ) override { _log += "~" + GWideToUTF8( _name ) + " "; }

    bool updateChildren = true;
    bool changed = false;
    bool drawChildren = true;
    int minWidth = 0;
    std::string seen; // The path at the time of the last update.

    void calcMinSize( int& width, int& height ) override
    {
        GTemplateNode::calcMinSize( width, height );
        width = std::max( width, minWidth );
    }

protected:
    bool _preChildUpdate( GAttributeStack& stack ) override
    {
        seen = GWideToUTF8( stack.get( u"path" ) );
        _write( "pre-" );
        return updateChildren;
    }
    bool _postChildUpdate( GAttributeStack& ) override
    {
        _write( "post-" );
        return changed;
    }
    bool _preChildRender( GImageStack& ) override
    {
        _write( "draw-" );
        return drawChildren;
    }
    void _postChildRender( GImageStack& ) override { _write( "drawn-" ); }

private:
    void _write( const char* what ) { _log += what + GWideToUTF8( _name ) + " "; }
    std::string& _log;
};

class GTemplateNodeTest : public SkinTest
{
protected:
    GTemplateNodeTest( ) : root( GSAFENEW( ProbeNode, ( &instance, &engine, nullptr, log, "skin" ) ) )
    {
        window = add( root, "Window", "a" );
        first = add( window, "Row" );
        second = add( window, "Row" );
        leaf = add( first, "Cell", "x" );
    }
    ~GTemplateNodeTest( ) override { delete root; }
    ProbeNode* add( ProbeNode* parent, const char* name, const char* id = "" )
    {
        ProbeNode* node = GSAFENEW( ProbeNode, ( &instance, &engine, parent, log, name, id ) );
        parent->appendChild( node );
        return node;
    }
    bool update( )
    {
        GAttributeStack stack( &instance, engine.notify );
        return root->update( stack );
    }

    TestEngine engine;
    std::string log;
    ProbeNode* root;
    ProbeNode* window;
    ProbeNode* first;
    ProbeNode* second;
    ProbeNode* leaf;
};
} // namespace

// ---- Names and paths.

TEST_F( GTemplateNodeTest, AnIdFollowsTheNameAndAnEmptyOneDoesNot )
{
    EXPECT_EQ( text( window->getID( ) ), "Window_a" );
    EXPECT_EQ( text( first->getID( ) ), "Row" );
    first->setAttribute( u"id", u"" );
    EXPECT_EQ( text( first->getID( ) ), "Row" );
}

TEST_F( GTemplateNodeTest, PathsBeginAtTheRoot )
{
    EXPECT_EQ( text( root->getPath( ) ), "/skin" );
    EXPECT_EQ( text( root->getParentPath( ) ), "" );
    EXPECT_EQ( text( window->getPath( ) ), "/skin/Window_a" );
    EXPECT_EQ( text( leaf->getPath( ) ), "/skin/Window_a/Row/Cell_x" );
    EXPECT_EQ( text( leaf->getParentPath( ) ), "/skin/Window_a/Row" );
}

TEST_F( GTemplateNodeTest, AChangedIdOrParentChangesThePath )
{
    EXPECT_EQ( text( leaf->getPath( ) ), "/skin/Window_a/Row/Cell_x" );
    window->setAttribute( u"ID", u"b" );
    EXPECT_EQ( text( leaf->getPath( ) ), "/skin/Window_b/Row/Cell_x" );
    EXPECT_TRUE( first->removeChild( leaf ) );
    EXPECT_FALSE( first->removeChild( leaf ) );
    window->appendChild( leaf );
    EXPECT_EQ( text( leaf->getPath( ) ), "/skin/Window_b/Cell_x" );
    root->adoptChildren( *window );
    EXPECT_EQ( text( leaf->getPath( ) ), "/skin/Cell_x" );
    EXPECT_TRUE( window->getChildren( ).empty( ) );
    EXPECT_EQ( leaf->getParent( ), root );
}

TEST_F( GTemplateNodeTest, ChildrenAreFoundIgnoringCaseStepByStep )
{
    EXPECT_EQ( root->getChild( u"window_A" ), window );
    EXPECT_EQ( root->getChild( u"window_a/row/cell_x" ), leaf );
    EXPECT_EQ( root->getChild( u"window_a/" ), window );
    EXPECT_EQ( root->getChild( u"window" ), nullptr );
    EXPECT_EQ( root->getChild( u"window_ab" ), nullptr );
    EXPECT_EQ( root->getChild( u"window_a/nothing/cell_x" ), nullptr );
}

TEST_F( GTemplateNodeTest, OfTwoSiblingsWithOneIdTheFirstIsFound )
{
    EXPECT_EQ( window->getChild( u"row" ), first );
}

TEST_F( GTemplateNodeTest, EmptyPathsAndStepsAbort )
{
    EXPECT_DEATH( root->getChild( u"" ), "!path.empty\\( \\)" );
    EXPECT_DEATH( root->getChild( u"window_a//row" ), "step.size\\( \\)" );
    EXPECT_DEATH( root->getChild( u"/window_a" ), "step.size\\( \\)" );
}

TEST_F( GTemplateNodeTest, NextWalksDepthFirstAndStops )
{
    EXPECT_EQ( root->getNext( root ), window );
    EXPECT_EQ( window->getNext( window ), first );
    EXPECT_EQ( first->getNext( window ), leaf );
    EXPECT_EQ( leaf->getNext( window ), second );
    EXPECT_EQ( second->getNext( window ), nullptr );
    EXPECT_EQ( leaf->getNext( first ), nullptr );
}

// ---- Attributes.

TEST_F( GTemplateNodeTest, AttributesAreRawOwnAndFoundIgnoringCase )
{
    leaf->setAttribute( u"align", u"$center" );
    EXPECT_EQ( text( leaf->getAttribute( u"ALIGN" ) ), "$center" );
    leaf->setAttribute( u"Align", u"left" );
    EXPECT_EQ( text( leaf->getAttribute( u"align" ) ), "left" );
    EXPECT_EQ( leaf->getAttributes( ).size( ), 2u );
    window->setAttribute( u"font", u"12" );
    EXPECT_EQ( text( leaf->getAttribute( u"font" ) ), "" );
    EXPECT_EQ( text( leaf->getAttribute( u"unknown" ) ), "" );
}

TEST_F( GTemplateNodeTest, ACloneHasNamesAttributesAndChildrenOfItsOwn )
{
    leaf->setAttribute( u"extra", u"1" );
    GTemplateNode* copy = window->clone( root );
    EXPECT_EQ( text( copy->getPath( ) ), "/skin/Window_a" );
    EXPECT_EQ( copy->getParent( ), root );
    EXPECT_EQ( root->getChildren( ).size( ), 1u );
    GTemplateNode* copiedLeaf = copy->getChild( u"row/cell_x" );
    ASSERT_NE( copiedLeaf, nullptr );
    EXPECT_NE( copiedLeaf, leaf );
    copiedLeaf->setAttribute( u"extra", u"2" );
    EXPECT_EQ( text( leaf->getAttribute( u"extra" ) ), "1" );
    EXPECT_EQ( text( copiedLeaf->getName( ) ), "Cell" );
    delete copy;
}

TEST_F( GTemplateNodeTest, ATreeGrowsToALimit )
{
    EXPECT_TRUE( leaf->mayGrow( *window ) );
    ProbeNode* deep = add( root, "Deep" );
    for( int i = 0; i < GTemplateNode::MAX_DEPTH - 3; ++i ) deep = add( deep, "Deep" );
    EXPECT_TRUE( deep->mayGrow( *second ) );
    TestLog::expect(
        "WARNING A copy of '/skin/Window_a/Row' would make the skin too large or too deep at '/skin/Deep/" );
    EXPECT_FALSE( deep->mayGrow( *first ) );
}

// ---- The passes.

TEST_F( GTemplateNodeTest, UpdateVisitsChildrenBetweenPreAndPost )
{
    log.clear( );
    EXPECT_FALSE( update( ) );
    EXPECT_EQ( log, "pre-skin pre-Window pre-Row pre-Cell post-Cell post-Row pre-Row post-Row post-Window post-skin " );
    EXPECT_EQ( leaf->seen, "/skin/Window_a/Row/Cell_x" );
}

TEST_F( GTemplateNodeTest, AChangeAnywhereIsReportedAndEveryChildIsUpdated )
{
    first->changed = true;
    log.clear( );
    EXPECT_TRUE( update( ) );
    EXPECT_NE( log.find( "post-Row pre-Row post-Row" ), std::string::npos );
}

TEST_F( GTemplateNodeTest, DeclinedChildrenAreNotUpdatedButThePostStepRuns )
{
    window->updateChildren = false;
    window->changed = true;
    leaf->changed = true;
    log.clear( );
    EXPECT_TRUE( update( ) );
    EXPECT_EQ( log, "pre-skin pre-Window post-Window post-skin " );
}

TEST_F( GTemplateNodeTest, AttributesLiveForTheNodesOwnPass )
{
    window->setAttribute( u"font", u"12" );
    GAttributeStack stack( &instance, engine.notify );
    root->update( stack );
    EXPECT_EQ( text( stack.get( u"font" ) ), "" );
}

TEST_F( GTemplateNodeTest, DeclinedRenderingSkipsChildrenAndThePostStep )
{
    GImageStack images;
    log.clear( );
    root->render( images );
    EXPECT_EQ(
        log,
        "draw-skin draw-Window draw-Row draw-Cell drawn-Cell drawn-Row draw-Row drawn-Row drawn-Window drawn-skin " );
    window->drawChildren = false;
    log.clear( );
    root->render( images );
    EXPECT_EQ( log, "draw-skin draw-Window drawn-skin " );
}

TEST_F( GTemplateNodeTest, SizesPassThroughAndAreOnlyRaised )
{
    leaf->minWidth = 40;
    int width = 7;
    int height = 9;
    root->calcMinSize( width, height );
    EXPECT_EQ( width, 40 );
    EXPECT_EQ( height, 9 );
    width = 100;
    root->calcMinSize( width, height );
    EXPECT_EQ( width, 100 );
}

TEST_F( GTemplateNodeTest, AParentDeletesItsChildren )
{
    ProbeNode* branch = add( root, "Branch" );
    add( branch, "One" );
    add( branch, "Two" );
    root->removeChild( branch );
    log.clear( );
    delete branch;
    EXPECT_EQ( log, "~Branch ~One ~Two " );
}

TEST_F( GTemplateNodeTest, ANodeNeedsABlackboardAndAnEngine )
{
    EXPECT_DEATH( GSAFENEW( GTemplateNode, ( nullptr, &engine, nullptr ) ), "instance && commandEngine" );
    EXPECT_DEATH( GSAFENEW( GTemplateNode, ( &instance, nullptr, nullptr ) ), "instance && commandEngine" );
}
