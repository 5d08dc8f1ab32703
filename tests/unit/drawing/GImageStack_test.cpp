#include "client/drawing/GImageStack.h"

#include "client/drawing/GFont.h"
#include "image/GImage.h"
#include "support/TestDesktop.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace
{
struct Layer
{
    explicit Layer( int width, int height )
        : format{ GIT_RGBA32, width, height }, pixels( static_cast<size_t>( GImageSize( format ) ), 0 ),
          map( static_cast<size_t>( width * height ), nullptr )
    {
        stack.pushLayer( format, pixels.data( ), map.data( ) );
    }
    uint32_t at( int x, int y ) const
    {
        const unsigned char* p =
            reinterpret_cast<const unsigned char*>( pixels.data( ) ) + ( y * format.width + x ) * 4;
        return static_cast<uint32_t>( p[3] ) << 24 | static_cast<uint32_t>( p[0] ) << 16 |
               static_cast<uint32_t>( p[1] ) << 8 | p[2];
    }
    int count( uint32_t colour ) const
    {
        int found = 0;
        for( int y = 0; y < format.height; y++ )
            for( int x = 0; x < format.width; x++ ) found += at( x, y ) == colour;
        return found;
    }
    GImageFormat format;
    GString pixels;
    std::vector<IGInputHandler*> map;
    GImageStack stack;
};
IGInputHandler* handler( int number )
{
    return reinterpret_cast<IGInputHandler*>( static_cast<intptr_t>( number ) );
}
constexpr uint32_t RED = 0xFFFF0000;
constexpr uint32_t BLUE = 0xFF0000FF;
} // namespace

TEST( GImageStack, TargetsAreMovedAndClipped )
{
    Layer layer( 20, 10 );
    int x, y, width, height;
    layer.stack.pushTarget( { 5, 2, 15, 8 } );
    layer.stack.pushTarget( { 2, 1, 100, 100 } );
    layer.stack.getPosition( x, y );
    layer.stack.getDimensions( width, height );
    EXPECT_EQ( x, 7 );
    EXPECT_EQ( y, 3 );
    EXPECT_EQ( width, 8 );
    EXPECT_EQ( height, 5 );
    layer.stack.pop( );
    layer.stack.getDimensions( width, height );
    EXPECT_EQ( width, 10 );
}

TEST( GImageStack, ATargetOutsideDrawsNothingAndStillBalances )
{
    Layer layer( 8, 8 );
    layer.stack.pushTarget( { 20, 20, 30, 30 } );
    const GString before = layer.pixels;
    const GString image( 16, static_cast<char>( 255 ) );
    layer.stack.drawBitmap( { GIT_RGBA32, 2, 2 }, image.data( ), { 0, 0, 2, 2 }, 0 );
    layer.stack.drawBitmap( { GIT_RGBA32, 2, 2 }, image.data( ), { 0, 0, 2, 2 }, { -20, -20, 0, 0 }, 0 );
    layer.stack.fillRect( { -30, -30, 30, 30 }, RED );
    layer.stack.drawRect( { -30, -30, 30, 30 }, RED );
    layer.stack.invertRect( { -30, -30, 30, 30 } );
    layer.stack.drawHorizLine( -20, -20, 40, RED );
    layer.stack.drawGradient( RED, BLUE, false, false );
    layer.stack.setInputHandler( handler( 16 ) );
    EXPECT_EQ( layer.pixels, before );
    for( const IGInputHandler* owner : layer.map ) EXPECT_EQ( owner, nullptr );
    EXPECT_EQ( layer.stack.getDirtyRect( ), GRectAccumulator( ) );
    layer.stack.pop( );
    layer.stack.fillRect( { 0, 0, 1, 1 }, RED );
    EXPECT_EQ( layer.at( 0, 0 ), RED );
}

TEST( GImageStack, TheLastInputHandlerWins )
{
    Layer layer( 4, 2 );
    layer.stack.setInputHandler( handler( 16 ) );
    layer.stack.pushTarget( { 1, 0, 3, 1 } );
    layer.stack.setInputHandler( handler( 32 ) );
    EXPECT_EQ( layer.map[0], handler( 16 ) );
    EXPECT_EQ( layer.map[1], handler( 32 ) );
    EXPECT_EQ( layer.map[2], handler( 32 ) );
    EXPECT_EQ( layer.map[3], handler( 16 ) );
    EXPECT_EQ( layer.map[5], handler( 16 ) );
}

TEST( GImageStack, BitmapsAreClippedAndWidenTheDirtyRectangle )
{
    Layer layer( 10, 10 );
    const GString image( 4 * 4 * 3, static_cast<char>( 255 ) );
    layer.stack.pushTarget( { 2, 2, 6, 6 } );
    layer.stack.drawBitmap( { GIT_RGB24, 4, 4 }, image.data( ), { 0, 0, 4, 4 }, { 2, 2, 6, 6 }, 0 );
    EXPECT_EQ( layer.stack.getDirtyRect( ), ( GRect{ 4, 4, 6, 6 } ) );
    EXPECT_EQ( layer.count( 0xFFFFFFFF ), 4 );
    layer.stack.drawBitmap( { GIT_RGB24, 4, 4 }, image.data( ), { 0, 0, 2, 1 }, 0 );
    EXPECT_EQ( layer.stack.getDirtyRect( ), ( GRect{ 2, 2, 6, 6 } ) );
    EXPECT_EQ( layer.count( 0xFFFFFFFF ), 6 );
}

TEST( GImageStack, TheClipShrinksTheSourceOnItsSide )
{
    Layer layer( 4, 1 );
    const GString image( "\x01\x01\x01\x02\x02\x02\x03\x03\x03", 9 );
    layer.stack.drawBitmap( { GIT_RGB24, 3, 1 }, image.data( ), { 0, 0, 3, 1 }, { -1, 0, 2, 1 }, 0 );
    EXPECT_EQ( layer.at( 0, 0 ), 0xFF020202U );
    EXPECT_EQ( layer.at( 1, 0 ), 0xFF030303U );
    EXPECT_EQ( layer.at( 2, 0 ), 0U );
}

TEST( GImageStack, StraightPicturesBecomePremultipliedPixels )
{
    Layer layer( 1, 1 );
    const GString half( "\xFF\0\0\x33", 4 );
    layer.stack.drawBitmap( { GIT_RGBA32, 1, 1 }, half.data( ), { 0, 0, 1, 1 }, 0 );
    EXPECT_EQ( layer.at( 0, 0 ), 0x33330000U );
    layer.stack.fillRect( { 0, 0, 1, 1 }, 0x80FF00FF );
    EXPECT_EQ( layer.at( 0, 0 ), 0x80800080U );
}

TEST( GImageStack, AFrameWithoutOpacityLeavesWhatStandsBelow )
{
    Layer layer( 6, 6 );
    layer.stack.fillRect( { 0, 0, 6, 6 }, BLUE );
    layer.stack.drawRect( { 1, 1, 5, 5 }, u"#00000000" );
    EXPECT_EQ( layer.count( BLUE ), 36 );
}

// Straight over premultiplied, to the nearest: colour = aA * A + ( 1 - aA ) * B, alpha = aA + ( 1 - aA ) * aB. Rows of every length,
// so that wide and single steps agree.
TEST( GImageStack, PicturesComposeExactlyOverAnyGround )
{
    uint32_t seed = 12345;
    const auto random = [&seed]
    {
        seed = seed * 1664525 + 1013904223;
        return static_cast<int>( seed >> 24 );
    };
    const auto divided = []( int value ) { return ( 2 * value + 255 ) / 510; };
    for( const int ground : { 0, 1, 128, 254, 255 } )
        for( int width = 1; width < 40; width++ )
        {
            Layer layer( width, 3 );
            GString image( layer.pixels.size( ), '\0' );
            for( size_t i = 0; i < image.size( ); i++ )
            {
                const bool edge = random( ) < 64;
                image[i] = static_cast<char>( edge ? random( ) % 2 * 255 : random( ) );
                layer.pixels[i] = static_cast<char>( i % 4 == 3 ? ground : random( ) % ( ground + 1 ) );
            }
            const GString before = layer.pixels;
            layer.stack.drawBitmap( layer.format, image.data( ), { 0, 0, width, 3 }, 0 );
            for( size_t i = 0; i < image.size( ); i++ )
            {
                const auto byte = []( const GString& bytes, size_t at )
                { return static_cast<int>( static_cast<unsigned char>( bytes[at] ) ); };
                const int alpha = byte( image, i / 4 * 4 + 3 );
                const int source = i % 4 == 3 ? 255 : byte( image, i );
                ASSERT_EQ( byte( layer.pixels, i ), divided( source * alpha + byte( before, i ) * ( 255 - alpha ) ) )
                    << "width " << width << " ground " << ground << " byte " << i;
                ASSERT_LE( byte( layer.pixels, i ), byte( layer.pixels, i / 4 * 4 + 3 ) )
                    << "no colour above its alpha";
            }
        }
}

TEST( GImageStack, RectanglesOfAnySizeAreClipped )
{
    Layer layer( 4, 4 );
    constexpr int FAR = std::numeric_limits<int>::max( ), NEAR = std::numeric_limits<int>::min( );
    const GString image( 64, static_cast<char>( 255 ) );
    layer.stack.pushTarget( { 1, 1, FAR, FAR } );
    layer.stack.fillRect( { NEAR, NEAR, FAR, FAR }, RED );
    layer.stack.drawRect( { NEAR, NEAR, FAR, FAR }, BLUE );
    layer.stack.drawHorizLine( FAR, FAR, FAR, BLUE );
    layer.stack.drawHorizLine( 0, 0, FAR, RED );
    layer.stack.drawBitmap( { GIT_RGBA32, 4, 4 }, image.data( ), { 0, 0, 4, 4 }, { FAR - 4, FAR - 4, FAR, FAR }, 0 );
    layer.stack.drawBitmap( { GIT_RGBA32, 4, 4 }, image.data( ), { NEAR, NEAR, FAR, FAR },
                            { NEAR, NEAR, NEAR + 4, NEAR + 4 }, 0 );
    layer.stack.invertRect( { FAR - 1, NEAR, FAR, FAR } );
    layer.stack.pushTarget( { FAR - 1, FAR - 1, FAR, FAR } );
    layer.stack.fillRect( { 0, 0, 9, 9 }, BLUE );
    layer.stack.pop( );
    layer.stack.pop( );
    EXPECT_EQ( layer.count( 0 ), 7 );
    EXPECT_EQ( layer.at( 2, 1 ), RED );
}

TEST( GImageStack, PrimitivesAreRelativeToTheFrame )
{
    Layer layer( 6, 6 );
    layer.stack.pushTarget( { 1, 1, 5, 5 } );
    layer.stack.drawRect( { 0, 0, 4, 4 }, u"#FF0000FF" );
    EXPECT_EQ( layer.count( RED ), 12 );
    EXPECT_EQ( layer.at( 1, 1 ), RED );
    EXPECT_EQ( layer.at( 4, 4 ), RED );
    layer.stack.fillRect( { 1, 1, 3, 3 }, u"#0000FF" );
    EXPECT_EQ( layer.at( 2, 2 ), BLUE );
    layer.stack.drawHorizLine( -3, 1, 100, RED );
    EXPECT_EQ( layer.at( 0, 2 ), 0U );
    EXPECT_EQ( layer.at( 1, 2 ), RED );
    EXPECT_EQ( layer.at( 5, 2 ), 0U );
    layer.stack.invertRect( { 0, 1, 1, 2 } );
    EXPECT_EQ( layer.at( 1, 2 ), 0xFF00FFFFU );
}

TEST( GImageStack, InvertKeepsPremultipliedPixelsWithinTheirAlpha )
{
    Layer layer( 1, 1 );
    layer.stack.fillRect( { 0, 0, 1, 1 }, 0x80FF0000 );
    layer.stack.invertRect( { 0, 0, 1, 1 } );
    EXPECT_EQ( layer.at( 0, 0 ), 0x80008080U );
}

TEST( GImageStack, GradientsRunFromOneColourToTheOther )
{
    Layer layer( 3, 2 );
    layer.stack.drawGradient( 0xFF000000, 0xFF0000FE, false, false );
    EXPECT_EQ( layer.at( 0, 1 ), 0xFF000000U );
    EXPECT_EQ( layer.at( 1, 0 ), 0xFF00007FU );
    EXPECT_EQ( layer.at( 2, 1 ), 0xFF0000FEU );
    layer.stack.drawGradient( RED, BLUE, true, false );
    EXPECT_EQ( layer.at( 2, 0 ), RED );
    EXPECT_EQ( layer.at( 0, 1 ), BLUE );
    EXPECT_EQ( layer.stack.getDirtyRect( ), ( GRect{ 0, 0, 3, 2 } ) );
}

TEST( GImageStack, AlphaGradientKeepsTheColours )
{
    Layer layer( 2, 1 );
    layer.stack.fillRect( { 0, 0, 2, 1 }, RED );
    layer.stack.drawGradient( 0xFF123456, 0x00123456, false, true );
    EXPECT_EQ( layer.at( 0, 0 ), RED );
    EXPECT_EQ( layer.at( 1, 0 ), 0U );
}

TEST( GImageStack, AFrameWithoutPixelsDrawsNothing )
{
    GImageStack stack;
    int x = 1, y = 1;
    stack.getPosition( x, y );
    EXPECT_EQ( x, 0 );
    EXPECT_EQ( y, 0 );
    stack.pushTarget( { 0, 0, 10, 10 } );
    stack.fillRect( { 0, 0, 10, 10 }, RED );
    stack.setInputHandler( handler( 16 ) );
    stack.pop( );
    EXPECT_FALSE( stack.empty( ) );
}

TEST( GImageStack, ANewLayerResetsTheDirtyRectangle )
{
    Layer layer( 4, 4 );
    layer.stack.fillRect( { 0, 0, 1, 1 }, RED );
    layer.stack.pushLayer( layer.format, layer.pixels.data( ), layer.map.data( ) );
    EXPECT_EQ( layer.stack.getDirtyRect( ), GRectAccumulator( ) );
}

TEST( GImageStack, TheFrameThatWasMarkedLastHasTheFocusUntilTheNextLayer )
{
    Layer layer( 8, 8 );
    GRect rect;
    EXPECT_FALSE( layer.stack.getFocus( rect ) );
    for( const GRect& frame : { GRect{ 0, 0, 2, 2 }, GRect{ 4, 5, 20, 7 }, GRect{ 3, 3, 3, 5 } } )
    {
        layer.stack.pushTarget( frame );
        layer.stack.markFocus( );
        layer.stack.pop( );
    }
    EXPECT_TRUE( layer.stack.getFocus( rect ) );
    EXPECT_EQ( rect, ( GRect{ 4, 5, 8, 7 } ) );
    layer.stack.pushLayer( layer.format, layer.pixels.data( ), layer.map.data( ) );
    EXPECT_FALSE( layer.stack.getFocus( rect ) );
}

TEST( GImageStack, BadLayersRectanglesAndEmptyStacksAbort )
{
    GImageStack stack;
    GString pixels( 64, 0 );
    EXPECT_DEATH( stack.pushLayer( GImageFormat( ), pixels.data( ), nullptr ), "format.width >= 1" );
    const GImageFormat blueFirst{ GIT_BGRA32, 2, 2 };
    EXPECT_DEATH( stack.pushLayer( blueFirst, pixels.data( ), nullptr ), "format.type == GIT_RGBA32" );
    const GRect inverted{ 3, 0, 2, 1 };
    EXPECT_DEATH( stack.pushTarget( inverted ), "rect.right >= rect.left" );
    stack.pop( );
    EXPECT_DEATH( stack.pop( ), "_frames.empty" );
    EXPECT_DEATH( stack.setInputHandler( nullptr ), "_frames.empty" );
}

// ---- A part of a layer.

namespace
{
// Every kind of drawing, in frames that are cut and in such that are not.
void drawAll( GImageStack& stack, GFont& font )
{
    static const GString picture( 9 * 7 * 4, '\x90' );
    const GImageFormat format{ GIT_BGRA32, 9, 7 };
    stack.setInputHandler( handler( 1 ) );
    stack.drawGradient( 0xFF102030, 0xFFF0E0D0, true, false );
    stack.pushTarget( { 3, 2, 33, 22 } );
    stack.setInputHandler( handler( 2 ) );
    stack.drawGradient( 0xFFFFFFFF, 0x80FFFFFF, false, true );
    stack.drawBitmap( format, picture.data( ), { 0, 0, 9, 7 }, { 1, 1, 27, 17 }, GIC_STRETCH_X | GIC_STRETCH_Y );
    stack.drawBitmap( format, picture.data( ), { 1, 1, 9, 7 }, GIC_TILE_X );
    stack.drawRect( { -2, 3, 20, 14 }, RED );
    stack.fillRect( { 10, 8, 14, 40 }, BLUE );
    stack.invertRect( { 4, 4, 12, 12 } );
    stack.fillRoundRect( { 2, 2, 28, 18 }, 5, 0x80FF0000 );
    stack.drawRoundRect( { 2, 2, 28, 18 }, 5, 2, BLUE );
    stack.drawHorizLine( 0, 6, 50, RED );
    stack.drawText( u"Parts", font, { 2, 1, 30, 20 } );
    stack.pop( );
}
} // namespace

TEST( GImageStack, APartOfALayerIsDrawnAsTheWholeWouldBeAndNothingBesideIt )
{
    TestDesktop::ensure( );
    GFont font;
    font.update( u"14" );
    Layer whole( 40, 30 );
    drawAll( whole.stack, font );
    for( const GRect& part : { GRect{ 0, 0, 40, 30 }, { 5, 4, 13, 11 }, { 12, 9, 13, 10 }, { 30, 20, 40, 30 } } )
    {
        Layer layer( 40, 30 );
        layer.stack.pop( );
        layer.stack.pushLayer( layer.format, layer.pixels.data( ), layer.map.data( ), part );
        drawAll( layer.stack, font );
        for( int y = 0; y < 30; y++ )
            for( int x = 0; x < 40; x++ )
            {
                const size_t place = static_cast<size_t>( y * 40 + x );
                const bool inside = part.contains( x, y );
                ASSERT_EQ( layer.at( x, y ), inside ? whole.at( x, y ) : 0u ) << x << ", " << y;
                ASSERT_EQ( layer.map[place], inside ? whole.map[place] : nullptr ) << x << ", " << y;
            }
        EXPECT_TRUE( GRectContains( part, layer.stack.getDirtyRect( ) ) );
    }
}

TEST( GImageStack, OnlyAPartLeavesFramesUnwanted )
{
    Layer layer( 20, 10 );
    layer.stack.pushTarget( { 5, 5, 5, 5 } );
    EXPECT_TRUE( layer.stack.isWanted( ) );
    EXPECT_TRUE( layer.stack.isWanted( { 100, 100, 101, 101 } ) );
    layer.stack.pop( );
    layer.stack.pop( );
    layer.stack.pushLayer( layer.format, layer.pixels.data( ), layer.map.data( ), { 2, 2, 6, 6 } );
    EXPECT_TRUE( layer.stack.isWanted( ) );
    EXPECT_FALSE( layer.stack.isWanted( { 6, 0, 20, 10 } ) );
    layer.stack.pushTarget( { 5, 5, 20, 10 } );
    EXPECT_TRUE( layer.stack.isWanted( ) );
    EXPECT_TRUE( layer.stack.isWanted( { 0, 0, 1, 1 } ) );
    EXPECT_FALSE( layer.stack.isWanted( { 1, 1, 5, 5 } ) );
    layer.stack.pushTarget( { 1, 1, 5, 5 } );
    EXPECT_FALSE( layer.stack.isWanted( ) );
}
