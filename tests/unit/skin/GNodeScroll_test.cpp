#include "client/skin/nodes/GNodeScroll.h"

#include "NodeTest.h"

class GNodeScrollTest : public NodeTest
{
protected:
    void open( const char16_t* colour )
    {
        GAttributeStack stack( instance.get( ), engine->getNotifyListener( ) );
        stack.set( u"thumbcolor", colour );
        scroll.read( stack );
    }
    GNodeScroll scroll;
};

TEST_F( GNodeScrollTest, WithoutAColourNothingScrolls )
{
    open( u"" );
    scroll.layout( 1000, 0, 50, 100 );
    EXPECT_FALSE( scroll.turn( -1, 10 ) );
    EXPECT_FALSE( scroll.show( 500, 510 ) );
    EXPECT_FALSE( scroll.press( 49, 50 ) );
    EXPECT_EQ( scroll.getOffset( ), 0 );
    EXPECT_EQ( scroll.getWidth( ), 0 );
}

TEST_F( GNodeScrollTest, TheOffsetStaysWithinTheContent )
{
    open( u"#FFFFFFFF" );
    scroll.layout( 300, 0, 50, 100 );
    EXPECT_TRUE( scroll.turn( -1, 10 ) );
    EXPECT_EQ( scroll.getOffset( ), 30 );
    scroll.turn( -2000000000, 10 );
    EXPECT_EQ( scroll.getOffset( ), 200 );
    EXPECT_FALSE( scroll.turn( -1, 10 ) );
    scroll.layout( 150, 0, 50, 100 );
    EXPECT_EQ( scroll.getOffset( ), 50 );
    scroll.layout( 90, 0, 50, 100 );
    EXPECT_EQ( scroll.getOffset( ), 0 );
    EXPECT_FALSE( scroll.isNeeded( ) );
}

TEST_F( GNodeScrollTest, ARowIsShownByTheLeastMovement )
{
    open( u"#FFFFFFFF" );
    scroll.layout( 300, 0, 50, 100 );
    EXPECT_FALSE( scroll.show( 50, 60 ) );
    EXPECT_TRUE( scroll.show( 120, 130 ) );
    EXPECT_EQ( scroll.getOffset( ), 30 );
    EXPECT_FALSE( scroll.show( 30, 40 ) );
    EXPECT_TRUE( scroll.show( 10, 20 ) );
    EXPECT_EQ( scroll.getOffset( ), 10 );
    scroll.show( 100, 290 );
    EXPECT_EQ( scroll.getOffset( ), 100 );
}

TEST_F( GNodeScrollTest, TheThumbFollowsThePointer )
{
    open( u"#FF0000FF" );
    scroll.layout( 400, 10, 50, 100 );
    EXPECT_FALSE( scroll.press( 30, 20 ) );
    EXPECT_FALSE( scroll.isHeld( ) );
    EXPECT_TRUE( scroll.press( 48, 12 ) );
    EXPECT_EQ( scroll.getOffset( ), 0 );
    EXPECT_TRUE( scroll.drag( 12 + 75 ) );
    EXPECT_EQ( scroll.getOffset( ), 300 );
    scroll.drag( -500 );
    EXPECT_EQ( scroll.getOffset( ), 0 );
    scroll.release( );
    EXPECT_FALSE( scroll.drag( 80 ) );
    // Beside the thumb it jumps there.
    EXPECT_TRUE( scroll.press( 48, 10 + 50 ) );
    EXPECT_EQ( scroll.getOffset( ), ( 50 - 25 / 2 ) * 300 / 75 );
}

TEST_F( GNodeScrollTest, TheThumbIsDrawnAtItsPlace )
{
    open( u"#FF0000FF" );
    scroll.layout( 400, 10, 50, 100 );
    scroll.scrollTo( 300 );
    Canvas drawn( 60, 120 );
    scroll.draw( drawn.images );
    EXPECT_EQ( drawn.at( 47, 109 - 6 ), 0xFF0000FFu );
    EXPECT_EQ( drawn.at( 47, 70 ), 0u );
    EXPECT_EQ( drawn.at( 40, 100 ), 0u );
}
