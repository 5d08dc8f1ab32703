#include "client/skin/nodes/GImageNode.h"

#include "NodeTest.h"

class GImageNodeTest : public NodeTest
{
protected:
    GImageNode* image( const GAttributeList& attributes )
    {
        auto* node = loadAs<GImageNode>( { u"Image", attributes, {} } );
        update( );
        return node;
    }
    // The bounding rectangle of what was drawn in a frame of 10 by 8.
    GRect drawn( const GAttributeList& attributes )
    {
        image( attributes );
        const Canvas& drawn = draw( 10, 8 );
        GRect box = GRectAccumulator( );
        for( int y = 0; y < 8; ++y )
            for( int x = 0; x < 10; ++x )
                if( drawn.at( x, y ) ) box = GRectUnion( box, { x, y, x + 1, y + 1 } );
        return box;
    }
};

TEST_F( GImageNodeTest, StandsWhereItsAlignmentSays )
{
    picture( u"pic", 4, 2, 0xFF0000FF );
    EXPECT_EQ( drawn( { { u"src", u"pic" } } ), ( GRect{ 0, 0, 4, 2 } ) );
    EXPECT_EQ( drawn( { { u"src", u"pic" }, { u"align", u"center" }, { u"valign", u"center" } } ),
               ( GRect{ 3, 3, 7, 5 } ) );
    EXPECT_EQ( drawn( { { u"src", u"pic" }, { u"align", u"right" }, { u"valign", u"bottom" } } ),
               ( GRect{ 6, 6, 10, 8 } ) );
    EXPECT_EQ( drawn( { { u"src", u"pic" }, { u"align", u"stretch" }, { u"valign", u"stretch" } } ),
               ( GRect{ 0, 0, 10, 8 } ) );
    EXPECT_EQ( drawn( { { u"src", u"pic" }, { u"align", u"tile" }, { u"valign", u"tile" } } ),
               ( GRect{ 0, 0, 10, 8 } ) );
    EXPECT_EQ( drawn( { { u"src", u"pic" }, { u"align", u"fit" } } ), ( GRect{ 0, 1, 10, 6 } ) );
    EXPECT_EQ( drawn( { { u"src", u"pic" }, { u"x", u"1" }, { u"y", u"2" } } ), ( GRect{ 1, 2, 5, 4 } ) );
}

TEST_F( GImageNodeTest, CopyReplacesWhatStandsBelow )
{
    picture( u"ground", 4, 2, 0x00FF00FF );
    picture( u"glass", 4, 2, 0xFF000000 );
    const auto over = [&]( const char16_t* mode )
    {
        load( { u"both",
                { },
                { { u"Image", { { u"src", u"ground" } }, {} },
                  { u"Image", { { u"src", u"glass" }, { u"mode", mode } }, {} } } } );
        update( );
        return draw( 4, 2 ).at( 1, 1 ) & 255;
    };
    EXPECT_EQ( over( u"" ), 255u );
    EXPECT_EQ( over( u"Copy" ), 0u );
}

TEST_F( GImageNodeTest, ANewPictureRepaintsWithoutAnUpdate )
{
    picture( u"live", 2, 2, 0xFF0000FF );
    image( { { u"src", u"live(0,0,1,1)" } } );
    notifications( );
    picture( u"live", 2, 2, 0x00FF00FF );
    EXPECT_EQ( notifications( ), std::vector<int>{ 1 } );
    EXPECT_EQ( draw( 2, 2 ).at( 0, 0 ), 0x00FF00FFu );
}

TEST_F( GImageNodeTest, DisabledDropsTheWatchAndKeepsThePicture )
{
    picture( u"live", 2, 2, 0xFF0000FF );
    image( { { u"src", u"live" }, { u"disabled", u"$Off" } } );
    instance->set( u"Off", 1 );
    update( );
    notifications( );
    picture( u"live", 2, 2, 0x00FF00FF );
    EXPECT_TRUE( notifications( ).empty( ) );
    EXPECT_FALSE( draw( 2, 2 ).isBlank( ) );
}

TEST_F( GImageNodeTest, LeastSizeIsThePictureOrItsRectangle )
{
    picture( u"pic", 4, 3, 0xFF0000FF );
    int width = 0;
    int height = 0;
    image( { { u"src", u"pic" } } )->calcMinSize( width, height );
    EXPECT_EQ( width, 4 );
    EXPECT_EQ( height, 3 );
    width = height = 0;
    image( { { u"src", u"pic(1,1,3,2)" } } )->calcMinSize( width, height );
    EXPECT_EQ( width, 2 );
    EXPECT_EQ( height, 1 );
}

TEST_F( GImageNodeTest, AMissingPictureDrawsNothing )
{
    image( { { u"src", u"nowhere.png" } } );
    EXPECT_TRUE( draw( 4, 4 ).isBlank( ) );
    image( { } );
    EXPECT_TRUE( draw( 4, 4 ).isBlank( ) );
    EXPECT_FALSE( update( ) );
}

TEST_F( GImageNodeTest, CutsAPictureInNineWhoseCornersKeepTheirSize )
{
    // Four by four, and each pixel's red tells which it is.
    GString pixels;
    for( int i = 0; i < 16; ++i ) pixels += { static_cast<char>( 16 * i ), 0, 0, '\xFF' };
    GImageTools_instanceWrite( instance.get( ), u"nine", GImageFormat{ GIT_RGBA32, 4, 4 }, pixels );
    const auto red = [&]( int x, int y ) { return canvas->at( x, y ) >> 28; };
    image( { { u"src", u"nine" }, { u"slice", u"1" } } );
    draw( 10, 8 );
    EXPECT_EQ( red( 0, 0 ), 0u );
    EXPECT_EQ( red( 9, 0 ), 3u );
    EXPECT_EQ( red( 0, 7 ), 12u );
    EXPECT_EQ( red( 9, 7 ), 15u );
    // The edges and the middle are stretched between them.
    EXPECT_EQ( red( 1, 0 ), 1u );
    EXPECT_EQ( red( 8, 0 ), 2u );
    EXPECT_EQ( red( 0, 1 ), 4u );
    EXPECT_EQ( red( 1, 1 ), 5u );
    EXPECT_EQ( red( 8, 6 ), 10u );
    // Corners that do not fit shrink, and a frame of nothing draws nothing.
    image( { { u"src", u"nine" }, { u"slice", u"500" } } );
    EXPECT_NE( draw( 3, 1 ).at( 2, 0 ), 0u );
    EXPECT_TRUE( draw( 1, 1 ).at( 0, 0 ) != 0 );
}
