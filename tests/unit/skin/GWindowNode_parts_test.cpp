// Values that are watched for a repaint alone draw only the places that show them, and the picture is the same as if all were drawn.
#include "NodeTest.h"
#include "client/skin/nodes/GWindowNode.h"

namespace
{
// Counts how often it is drawn.
class CountingNode : public GTemplateNode
{
public:
    using GTemplateNode::GTemplateNode;
    int renders = 0;

protected:
    bool _preChildRender( GImageStack& ) override
    {
        ++renders;
        return true;
    }
};
} // namespace

class WindowPartsTest : public NodeTest
{
protected:
    static constexpr int64_t INTERVAL = 66666;

    // A window of 60 by 20 with cells of 10 by 10, side by side at the top left: one that counts, one that breathes where it is asked
    // for, a picture of 8 by 8 and a bar that follow values.
    void open( bool breathes = false )
    {
        setPicture( 1, 8 );
        picture( u"Part_Breath", 8, 8, 0xFF0000FF );
        const auto cell = []( const char16_t* id, std::vector<Element> inner = { } ) {
            return Element{ u"Cell", { { u"id", id }, { u"fixedwidth", u"10" }, { u"fixedheight", u"10" } }, inner };
        };
        const Element still{ u"Image", { { u"src", u"Part_Picture" } }, {} };
        const Element bar{ u"Progress", { { u"src", u"Part_Bar" }, { u"y", u"9" }, { u"scale", u"100" } }, {} };
        const Element breath{ u"Image", { { u"src", u"Part_Breath" }, { u"breathe", breathes ? u"2000" : u"0" } }, {} };
        window = loadAs<GWindowNode>(
            { u"Window",
              { { u"id", u"w" }, { u"width", u"60" }, { u"height", u"20" }, { u"enablealpha", u"1" } },
              { { u"Row",
                  { },
                  { cell( u"a" ), cell( u"b", { breath } ), cell( u"c", { still } ), cell( u"d", { bar } ) } } } } );
        GTemplateNode* place = find( u"window_w/row/cell_a" );
        counting = GSAFENEW( CountingNode, ( instance.get( ), engine.get( ), place ) );
        place->appendChild( counting );
        update( );
        render( );
        clock.advance( INTERVAL + 1 );
        counting->renders = 0;
    }
    void render( )
    {
        clock.advance( INTERVAL + 1 );
        GImageStack images;
        window->render( images );
    }
    void tick( )
    {
        clock.advance( INTERVAL + 1 );
        window->onTimer( nullptr );
    }
    void notify( int kind ) { window->onNotification( kind, TestClock::now( ) ); }
    void setPicture( int shade, int edge )
    {
        const GImageFormat format{ GIT_RGB24, edge, edge };
        GImageTools_instanceWrite( instance.get( ), u"Part_Picture", format,
                                   GString( static_cast<size_t>( edge * edge * 3 ), static_cast<char>( shade ) ) );
    }
    // What the layer would be if all were drawn.
    GString whole( )
    {
        const GString before = window->getLayerPixels( );
        render( );
        EXPECT_NE( before, GString( before.size( ), '\0' ) );
        return window->getLayerPixels( );
    }

    GWindowNode* window = nullptr;
    CountingNode* counting = nullptr;
};

TEST_F( WindowPartsTest, ANewPictureIsDrawnAloneAndAsEver )
{
    open( );
    const GString before = window->getLayerPixels( );
    setPicture( 200, 8 );
    notify( 1 );
    EXPECT_EQ( counting->renders, 0 );
    EXPECT_NE( window->getLayerPixels( ), before );
    const GString part = window->getLayerPixels( );
    EXPECT_EQ( part, whole( ) );
}

TEST_F( WindowPartsTest, APictureOfAnotherSizeDrawsAll )
{
    open( );
    setPicture( 200, 4 );
    notify( 1 );
    EXPECT_EQ( counting->renders, 1 );
    const GString part = window->getLayerPixels( );
    EXPECT_EQ( part, whole( ) );
}

TEST_F( WindowPartsTest, WhatNoNodeKnowsDrawsAll )
{
    open( );
    notify( 1 );
    EXPECT_EQ( counting->renders, 1 );
}

TEST_F( WindowPartsTest, AnythingElseThatWantsARepaintDrawsAll )
{
    open( );
    setPicture( 200, 8 );
    window->onShow( window->getWin( ) );
    EXPECT_EQ( counting->renders, 1 );
    setPicture( 100, 8 );
    notify( 1 ); // Held back,
    window->onShow( window->getWin( ) );
    tick( ); // and then together with the other.
    EXPECT_EQ( counting->renders, 2 );
    clock.advance( INTERVAL + 1 );
    instance->set( u"Part_Bar", 50 );
    notify( 1 );
    EXPECT_EQ( counting->renders, 2 );
}

TEST_F( WindowPartsTest, ABreathingPictureIsDrawnAloneAndGoesOnWhileOthersAreDrawn )
{
    open( true );
    for( int i = 0; i < 5; ++i )
    {
        const GString before = window->getLayerPixels( );
        clock.advance( 1 ); // Not at the very time of the last drawing.
        setPicture( 100 + i, 8 );
        if( i % 2 ) notify( 1 );
        tick( );
        EXPECT_TRUE( window->isAwake( ) );
        // At the corner of what breathes, not only in the other picture.
        const size_t corner = 10 * 4 + 3;
        EXPECT_NE( window->getLayerPixels( )[corner], before[corner] );
    }
    EXPECT_EQ( counting->renders, 0 );
}
