#include "image/GImage.h"

#include "support/TestLog.h"

#include <gtest/gtest.h>

namespace
{
// One row or column of three-byte pixels, each named by a letter.
GString letters( const std::string& names )
{
    GString out;
    for( const char name : names ) out += GString( 3, name );
    return out;
}
std::string names( const GString& pixels )
{
    std::string out;
    for( size_t i = 0; i < pixels.size( ); i += 3 ) out += pixels[i];
    return out;
}
// Copies a row of pixels named by letters into a row of dots.
std::string across( const std::string& from, int width, int flags, GRect to = { 0, 0, 0, 1 } )
{
    if( !to.right ) to.right = width;
    const GString source = letters( from );
    GString target = letters( std::string( static_cast<size_t>( width ), '.' ) );
    const int length = static_cast<int>( from.size( ) );
    GImageCopy( { GIT_RGB24, length, 1 }, source.data( ), { 0, 0, length, 1 }, { GIT_RGB24, width, 1 }, target.data( ),
                to, flags );
    return names( target );
}
std::string down( const std::string& from, int height, int flags )
{
    const GString source = letters( from );
    GString target = letters( std::string( static_cast<size_t>( height ), '.' ) );
    const int length = static_cast<int>( from.size( ) );
    GImageCopy( { GIT_RGB24, 1, length }, source.data( ), { 0, 0, 1, length }, { GIT_RGB24, 1, height }, target.data( ),
                { 0, 0, 1, height }, flags );
    return names( target );
}
GString pixel( int a, int b, int c, int d )
{
    return { static_cast<char>( a ), static_cast<char>( b ), static_cast<char>( c ), static_cast<char>( d ) };
}
GString compose( const GString& source, GString target, int flags )
{
    const int width = static_cast<int>( source.size( ) / 4 );
    const GImageFormat format{ GIT_RGBA32, width, 1 };
    GImageCopy( format, source.data( ), { 0, 0, width, 1 }, format, target.data( ), { 0, 0, width, 1 }, flags );
    return target;
}
} // namespace

TEST( GImageCopy, WithoutFlagsTheTopLeftPartIsTaken )
{
    EXPECT_EQ( across( "abcdef", 4, 0 ), "abcd" );
    EXPECT_EQ( across( "ab", 4, 0 ), "ab.." );
    EXPECT_EQ( down( "abcdef", 4, 0 ), "abcd" );
    EXPECT_EQ( down( "ab", 4, 0 ), "ab.." );
}

TEST( GImageCopy, MiddleAndEndOfAWiderSource )
{
    EXPECT_EQ( across( "abcdef", 4, GIC_CENTER ), "bcde" );
    EXPECT_EQ( across( "abcdef", 4, GIC_RIGHT ), "cdef" );
    EXPECT_EQ( across( "ab", 4, GIC_CENTER ), "ab.." );
    EXPECT_EQ( across( "ab", 4, GIC_RIGHT ), "ab.." );
    EXPECT_EQ( down( "abcdef", 4, GIC_MIDDLE ), "bcde" );
    EXPECT_EQ( down( "abcdef", 4, GIC_BOTTOM ), "cdef" );
}

TEST( GImageCopy, TilesRepeatUntilTheEdge )
{
    EXPECT_EQ( across( "abc", 7, GIC_TILE_X ), "abcabca" );
    EXPECT_EQ( across( "abc", 7, GIC_TILE_X, { 1, 0, 6, 1 } ), ".abcab." );
    EXPECT_EQ( down( "ab", 5, GIC_TILE_Y ), "ababa" );
    EXPECT_EQ( across( "abcdef", 4, GIC_TILE_X | GIC_RIGHT ), "cdef" );
}

TEST( GImageCopy, FlagsOfOneDirectionGoTogether )
{
    // Which part of a wide source is taken counts for each of the tiles; a stretched source is neither cut nor repeated.
    EXPECT_EQ( across( "abcdef", 4, GIC_TILE_X | GIC_CENTER ), "bcde" );
    EXPECT_EQ( across( "ab", 5, GIC_TILE_X | GIC_CENTER ), "ababa" );
    EXPECT_EQ( across( "ab", 5, GIC_TILE_X | GIC_RIGHT ), "ababa" );
    EXPECT_EQ( across( "aaaa", 2, GIC_STRETCH_X | GIC_RIGHT ), "aa" );
    EXPECT_EQ( across( "aaaa", 2, GIC_STRETCH_X | GIC_CENTER | GIC_TILE_X ), "aa" );
    EXPECT_EQ( across( "abcdef", 4, GIC_CENTER | GIC_RIGHT ), "bcde" );
    EXPECT_EQ( down( "abcdef", 4, GIC_TILE_Y | GIC_MIDDLE ), "bcde" );
    EXPECT_EQ( down( "abcdef", 4, GIC_TILE_Y | GIC_BOTTOM ), "cdef" );
    EXPECT_EQ( down( "ab", 5, GIC_TILE_Y | GIC_BOTTOM ), "ababa" );
    EXPECT_EQ( down( "aaaa", 2, GIC_STRETCH_Y | GIC_BOTTOM ), "aa" );
}

TEST( GImageCopy, FlagsOfOneDirectionLeaveTheOtherAlone )
{
    EXPECT_EQ( across( "abcdef", 4, GIC_MIDDLE | GIC_BOTTOM | GIC_TILE_Y | GIC_STRETCH_Y ), "abcd" );
    EXPECT_EQ( down( "abcdef", 4, GIC_CENTER | GIC_RIGHT | GIC_TILE_X | GIC_STRETCH_X ), "abcd" );
    EXPECT_EQ( down( "ab", 4, GIC_CENTER | GIC_RIGHT | GIC_TILE_X | GIC_STRETCH_X ), "ab.." );
}

TEST( GImageCopy, EachDirectionHasItsOwnPlacing )
{
    const GString source = letters( "abcd"
                                    "efgh"
                                    "ijkl" );
    const auto placed = [&source]( int width, int height, int flags )
    {
        GString target = letters( std::string( static_cast<size_t>( width * height ), '.' ) );
        GImageCopy( { GIT_RGB24, 4, 3 }, source.data( ), { 0, 0, 4, 3 }, { GIT_RGB24, width, height }, target.data( ),
                    { 0, 0, width, height }, flags );
        return names( target );
    };
    EXPECT_EQ( placed( 2, 1, GIC_CENTER | GIC_MIDDLE ), "fg" );
    EXPECT_EQ( placed( 2, 1, GIC_RIGHT | GIC_MIDDLE ), "gh" );
    EXPECT_EQ( placed( 2, 1, GIC_RIGHT | GIC_BOTTOM ), "kl" );
    EXPECT_EQ( placed( 2, 1, GIC_CENTER | GIC_BOTTOM ), "jk" );
    EXPECT_EQ( placed( 2, 4, GIC_RIGHT | GIC_TILE_Y ), "cdghklcd" );
    EXPECT_EQ( placed( 5, 2, GIC_TILE_X | GIC_BOTTOM ), "efgheijkli" );
    EXPECT_EQ( placed( 5, 2, GIC_TILE_X | GIC_STRETCH_Y ).size( ), 10U );
}

TEST( GImageCopy, OneDirectionStretchesWhileTheOtherTiles )
{
    const GString source = letters( "aabb" );
    GString target = letters( "........" );
    const GRect touched = GImageCopy( { GIT_RGB24, 4, 1 }, source.data( ), { 0, 0, 4, 1 }, { GIT_RGB24, 2, 4 },
                                      target.data( ), { 0, 0, 2, 4 }, GIC_STRETCH_X | GIC_TILE_Y );
    EXPECT_EQ( names( target ), "abababab" );
    EXPECT_EQ( touched, ( GRect{ 0, 0, 2, 4 } ) );
}

TEST( GImageCopy, AspectOverridesTheOtherPlacings )
{
    const GString source( 4 * 2 * 3, 'a' );
    GString target( 8 * 8 * 3, '.' );
    const GRect touched =
        GImageCopy( { GIT_RGB24, 4, 2 }, source.data( ), { 0, 0, 4, 2 }, { GIT_RGB24, 8, 8 }, target.data( ),
                    { 0, 0, 8, 8 }, GIC_ASPECT | GIC_TILE_X | GIC_TILE_Y | GIC_RIGHT | GIC_BOTTOM );
    EXPECT_EQ( touched, ( GRect{ 0, 2, 8, 6 } ) );
    EXPECT_EQ( names( target ).substr( 0, 16 ), std::string( 16, '.' ) );
    EXPECT_EQ( names( target ).substr( 48 ), std::string( 16, '.' ) );
    const GRect same = GImageCopy( { GIT_RGB24, 4, 2 }, source.data( ), { 0, 0, 4, 2 }, { GIT_RGB24, 8, 8 },
                                   target.data( ), { 2, 2, 6, 4 }, GIC_ASPECT );
    EXPECT_EQ( same, ( GRect{ 2, 2, 6, 4 } ) );
}

TEST( GImageCopy, OpaqueGoesWithStretchAndTiles )
{
    const GString source = pixel( 9, 8, 7, 0 );
    GString target( 4 * 4 * 4, '.' );
    GImageCopy( { GIT_BGRA32, 1, 1 }, source.data( ), { 0, 0, 1, 1 }, { GIT_BGRA32, 4, 4 }, target.data( ),
                { 0, 0, 4, 4 }, GIC_STRETCH_X | GIC_TILE_Y | GIC_OPAQUE );
    for( int i = 0; i < 16; i++ ) EXPECT_EQ( target.substr( static_cast<size_t>( i ) * 4, 4 ), source );
    GString kept( 4 * 4 * 4, '.' );
    GImageCopy( { GIT_BGRA32, 1, 1 }, source.data( ), { 0, 0, 1, 1 }, { GIT_BGRA32, 4, 4 }, kept.data( ),
                { 0, 0, 4, 4 }, GIC_STRETCH_X | GIC_TILE_Y );
    EXPECT_EQ( kept, GString( 64, '.' ) );
}

TEST( GImageCopy, TilesFarOutsideCostNothing )
{
    const GString source = letters( "ab" );
    GString target = letters( "...." );
    const GRect touched = GImageCopy( { GIT_RGB24, 2, 1 }, source.data( ), { 0, 0, 2, 1 }, { GIT_RGB24, 4, 1 },
                                      target.data( ), { -1000000001, 0, 1000000000, 1 }, GIC_TILE_X );
    EXPECT_EQ( names( target ), "baba" );
    EXPECT_EQ( touched, ( GRect{ 0, 0, 4, 1 } ) );
}

TEST( GImageCopy, TilesInBothDirections )
{
    const GString source = letters( "abcd" );
    GString target = letters( std::string( 9, '.' ) );
    const GRect touched = GImageCopy( { GIT_RGB24, 2, 2 }, source.data( ), { 0, 0, 2, 2 }, { GIT_RGB24, 3, 3 },
                                      target.data( ), { 0, 0, 3, 3 }, GIC_TILE_X | GIC_TILE_Y );
    EXPECT_EQ( names( target ), "abacdcaba" );
    EXPECT_EQ( touched, ( GRect{ 0, 0, 3, 3 } ) );
}

TEST( GImageCopy, StretchFillsTheTarget )
{
    const auto isFlat = []( const std::string& row )
    {
        for( const char name : row )
            if( name != 'a' && name != 'a' - 1 ) return false;
        return true;
    };
    EXPECT_TRUE( isFlat( across( "aaaa", 9, GIC_STRETCH_X ) ) );
    EXPECT_TRUE( isFlat( across( "aaaa", 2, GIC_STRETCH_X ) ) );
    EXPECT_TRUE( isFlat( down( "aaaa", 9, GIC_STRETCH_Y ) ) );
    EXPECT_EQ( across( "aaaa", 9, GIC_STRETCH_Y ), "aaaa....." );
}

TEST( GImageCopy, AspectShrinksTheLongSideAndCentres )
{
    const GString source( 4 * 2 * 3, 'a' );
    GString target( 8 * 8 * 3, '.' );
    const GRect wide = GImageCopy( { GIT_RGB24, 4, 2 }, source.data( ), { 0, 0, 4, 2 }, { GIT_RGB24, 8, 8 },
                                   target.data( ), { 0, 0, 8, 8 }, GIC_ASPECT );
    EXPECT_EQ( wide, ( GRect{ 0, 2, 8, 6 } ) );
    const GRect tall = GImageCopy( { GIT_RGB24, 2, 4 }, source.data( ), { 0, 0, 2, 4 }, { GIT_RGB24, 8, 8 },
                                   target.data( ), { 0, 0, 8, 8 }, GIC_ASPECT );
    EXPECT_EQ( tall, ( GRect{ 2, 0, 6, 8 } ) );
}

TEST( GImageCopy, ReportsWhatItTouched )
{
    const GString source = letters( "abcd" );
    GString target = letters( "........" );
    const GImageFormat from{ GIT_RGB24, 4, 1 };
    const GImageFormat to{ GIT_RGB24, 8, 1 };
    EXPECT_EQ( GImageCopy( from, source.data( ), { 0, 0, 4, 1 }, to, target.data( ), { 6, 0, 20, 1 }, 0 ),
               ( GRect{ 6, 0, 8, 1 } ) );
    EXPECT_EQ( names( target ), "......ab" );
    EXPECT_EQ( GImageCopy( from, source.data( ), { 0, 0, 4, 1 }, to, target.data( ), { -2, 0, 4, 1 }, 0 ),
               ( GRect{ 0, 0, 2, 1 } ) );
    EXPECT_EQ( names( target ), "cd....ab" );
    EXPECT_EQ( GImageCopy( from, source.data( ), { 0, 0, 4, 1 }, to, target.data( ), { 8, 0, 12, 1 }, 0 ),
               GRectAccumulator( ) );
    EXPECT_EQ( GImageCopy( from, source.data( ), { 2, 0, 2, 1 }, to, target.data( ), { 0, 0, 4, 1 }, 0 ),
               GRectAccumulator( ) );
}

TEST( GImageCopy, AClipChangesNothingOutsideAndMovesNothing )
{
    const GString source = letters( "abcd" );
    GString target = letters( "........" );
    GImageCopy( { GIT_RGB24, 4, 1 }, source.data( ), { 0, 0, 4, 1 }, { GIT_RGB24, 8, 1 }, target.data( ),
                { 1, 0, 5, 1 }, { 2, 0, 4, 1 }, 0 );
    EXPECT_EQ( names( target ), "..bc...." );
}

TEST( GImageCopy, TypesAreConvertedOnTheWay )
{
    const GString rgb{ 1, 2, 3 };
    GString four = pixel( 9, 9, 9, 9 );
    GImageCopy( { GIT_RGB24, 1, 1 }, rgb.data( ), { 0, 0, 1, 1 }, { GIT_RGBA32, 1, 1 }, four.data( ), { 0, 0, 1, 1 },
                0 );
    EXPECT_EQ( four, pixel( 1, 2, 3, 255 ) );
    GImageCopy( { GIT_BGR24, 1, 1 }, rgb.data( ), { 0, 0, 1, 1 }, { GIT_RGBA32, 1, 1 }, four.data( ), { 0, 0, 1, 1 },
                0 );
    EXPECT_EQ( four, pixel( 3, 2, 1, 255 ) );
    const GString gray{ 7 };
    GImageCopy( { GIT_GRAY8, 1, 1 }, gray.data( ), { 0, 0, 1, 1 }, { GIT_RGBA32, 1, 1 }, four.data( ), { 0, 0, 1, 1 },
                0 );
    EXPECT_EQ( four, pixel( 7, 7, 7, 255 ) );
    const GString half = pixel( 0, 0, 200, 128 );
    four = pixel( 100, 100, 100, 255 );
    GImageCopy( { GIT_BGRA32, 1, 1 }, half.data( ), { 0, 0, 1, 1 }, { GIT_RGBA32, 1, 1 }, four.data( ), { 0, 0, 1, 1 },
                0 );
    EXPECT_EQ( four, pixel( 150, 50, 50, 255 ) );
}

TEST( GImageCopy, ComposesStraightOverStraight )
{
    EXPECT_EQ( compose( pixel( 200, 100, 0, 255 ), pixel( 1, 2, 3, 255 ), 0 ), pixel( 200, 100, 0, 255 ) );
    EXPECT_EQ( compose( pixel( 200, 100, 0, 0 ), pixel( 1, 2, 3, 77 ), 0 ), pixel( 1, 2, 3, 77 ) );
    EXPECT_EQ( compose( pixel( 200, 100, 0, 128 ), pixel( 0, 0, 0, 0 ), 0 ), pixel( 200, 100, 0, 128 ) );
    EXPECT_EQ( compose( pixel( 255, 0, 0, 51 ), pixel( 0, 0, 255, 255 ), 0 ), pixel( 51, 0, 204, 255 ) );
}

TEST( GImageCopy, ComposesStraightOverPremultiplied )
{
    EXPECT_EQ( compose( pixel( 200, 100, 0, 255 ), pixel( 1, 2, 3, 4 ), GIC_PREMULTIPLIED ),
               pixel( 200, 100, 0, 255 ) );
    EXPECT_EQ( compose( pixel( 200, 100, 0, 0 ), pixel( 1, 2, 3, 4 ), GIC_PREMULTIPLIED ), pixel( 1, 2, 3, 4 ) );
    EXPECT_EQ( compose( pixel( 255, 0, 0, 51 ), pixel( 0, 0, 0, 0 ), GIC_PREMULTIPLIED ), pixel( 51, 0, 0, 51 ) );
    EXPECT_EQ( compose( pixel( 255, 0, 0, 51 ), pixel( 0, 0, 100, 100 ), GIC_PREMULTIPLIED ), pixel( 51, 0, 80, 131 ) );
}

TEST( GImageCopy, LongRowsComposeLikeSinglePixels )
{
    GString source, target, expected;
    uint32_t seed = 1;
    const auto next = [&seed] { return static_cast<int>( ( seed = seed * 1664525 + 1013904223 ) >> 24 ); };
    for( int i = 0; i < 1003; i++ )
    {
        const int alpha = i / 16 % 3 == 0 ? 255 : i / 16 % 3 == 1 ? 0 : next( );
        const GString from = pixel( next( ), next( ), next( ), alpha );
        const int below = next( );
        const GString to = pixel( below / 2, below / 3, below, below );
        source += from;
        target += to;
        expected += compose( from, to, GIC_PREMULTIPLIED );
    }
    EXPECT_EQ( compose( source, target, GIC_PREMULTIPLIED ), expected );
}

TEST( GImageCopy, OpaqueOverwrites )
{
    EXPECT_EQ( compose( pixel( 200, 100, 0, 10 ), pixel( 1, 2, 3, 255 ), GIC_OPAQUE ), pixel( 200, 100, 0, 10 ) );
    EXPECT_EQ( compose( pixel( 255, 0, 0, 51 ), pixel( 9, 9, 9, 255 ), GIC_OPAQUE | GIC_PREMULTIPLIED ),
               pixel( 51, 0, 0, 51 ) );
}

TEST( GImageCopy, TwoBytePixelsCopyRowByRow )
{
    const GString source = "aabbccdd";
    GString target( 18, '.' );
    GImageCopy( { GIT_RGB565, 2, 2 }, source.data( ), { 0, 0, 2, 2 }, { GIT_RGB565, 3, 3 }, target.data( ),
                { 1, 1, 3, 3 }, 0 );
    EXPECT_EQ( target, "........aabb..ccdd" );
}

TEST( GImageCopy, RefusesUnknownPixelsAndEmptyImages )
{
    const GString source( 64, 0 );
    GString target( 64, 0 );
    EXPECT_DEATH( GImageCopy( { GIT_GRAY8, 2, 2 }, source.data( ), { 0, 0, 2, 2 }, { GIT_GRAY8, 2, 2 }, target.data( ),
                              { 0, 0, 2, 2 }, 0 ),
                  "ERROR Attempting to copy into unsupported format #23, aborting\\." );
    EXPECT_DEATH( GImageCopy( { GIT_RGB24, 0, 2 }, source.data( ), { 0, 0, 2, 2 }, { GIT_RGB24, 2, 2 }, target.data( ),
                              { 0, 0, 2, 2 }, 0 ),
                  "fromFormat.width > 0 && fromFormat.height > 0" );
    EXPECT_DEATH( GImageCopy( { GIT_RGB24, 2, 2 }, source.data( ), { 0, 0, 2, 2 }, { GIT_RGB24, 2, 0 }, target.data( ),
                              { 0, 0, 2, 2 }, 0 ),
                  "toFormat.width > 0 && toFormat.height > 0" );
}

TEST( GImageCrop, TakesARectangleUpToTheEdge )
{
    const GString source = letters( "abcdef" );
    GString out;
    GImageCrop( { GIT_RGB24, 3, 2 }, source.data( ), { 1, 0, 3, 2 }, out );
    EXPECT_EQ( names( out ), "bcef" );
}

TEST( GImageCrop, AbortsOnAnEmptyOrOutsideRectangle )
{
    const GString source = letters( "abcdef" );
    GString out;
    const GImageFormat format{ GIT_RGB24, 3, 2 };
    EXPECT_DEATH( GImageCrop( format, source.data( ), { 1, 1, 1, 2 }, out ),
                  "GVALIDRECT\\( fromRect \\) && GRectWithin\\( fromRect, fromFormat.width, fromFormat.height \\) && "
                  "!GRectEmpty\\( fromRect \\)" );
    EXPECT_DEATH( GImageCrop( format, source.data( ), { 1, 0, 4, 2 }, out ), "GRectWithin" );
}

TEST( GImageReframe, GrowsAndShrinksAtTheTopLeft )
{
    GImageFormat format{ GIT_RGB24, 2, 2 };
    GString image = letters( "abcd" );
    GImageReframe( format, image, 3, 3, 0xFF2E2E2E );
    EXPECT_EQ( names( image ), "ab.cd...." );
    EXPECT_EQ( format, ( GImageFormat{ GIT_RGB24, 3, 3 } ) );
    GImageReframe( format, image, 1, 2, 0 );
    EXPECT_EQ( names( image ), "ac" );
    GImageReframe( format, image, 1, 2, 0 );
    EXPECT_EQ( names( image ), "ac" );
}

TEST( GImageVertMirror, TurnsTheRowsOver )
{
    GString image = letters( "abcdef" );
    GImageVertMirror( { GIT_RGB24, 2, 3 }, image.data( ) );
    EXPECT_EQ( names( image ), "efcdab" );
}

TEST( GImageVertMirror, WarnsOnTypesWithoutRows )
{
    TestLog::expect( "WARNING Attempting unsupported vertical mirror on unsupported type #22, ignoring." );
    GString image = "abcdefghijkl";
    GImageVertMirror( { GIT_IYUY, 2, 4 }, image.data( ) );
    EXPECT_EQ( image, "abcdefghijkl" );
}

TEST( GImageDraw, LinesFollowTheLayoutAndStayInside )
{
    GString four( 4 * 4 * 2, 0 );
    GImageDrawHorizLine( { GIT_RGBA32, 4, 2 }, four.data( ), 2, 9, 1, 0x80112233 );
    EXPECT_EQ( four.substr( 16 + 8, 8 ), pixel( 0x11, 0x22, 0x33, 0x80 ) + pixel( 0x11, 0x22, 0x33, 0x80 ) );
    EXPECT_EQ( four.substr( 0, 24 ), GString( 24, 0 ) );
    GString three( 2 * 2 * 3, 0 );
    GImageDrawVertLine( { GIT_BGR24, 2, 2 }, three.data( ), 1, -5, 9, 0xFF112233 );
    EXPECT_EQ( three, GString( "\0\0\0\x33\x22\x11\0\0\0\x33\x22\x11", 12 ) );
    const GString before = three;
    GImageDrawHorizLine( { GIT_BGR24, 2, 2 }, three.data( ), 0, 2, 2, 0 );
    GImageDrawVertLine( { GIT_BGR24, 2, 2 }, three.data( ), -1, 0, 2, 0 );
    EXPECT_EQ( three, before );
}

TEST( GImageDraw, RectanglesFillFrameAndInvert )
{
    const GImageFormat format{ GIT_RGB24, 4, 4 };
    GString image( 48, 0 );
    GImageFillRect( format, image.data( ), { -3, 1, 2, 9 }, 0xFF616161 );
    EXPECT_EQ( names( image ),
               GString( 4, 0 ) + "aa" + GString( 2, 0 ) + "aa" + GString( 2, 0 ) + "aa" + GString( 2, 0 ) );
    image.assign( 48, '.' );
    GImageDrawRect( format, image.data( ), { 0, 0, 3, 3 }, 0xFF616161 );
    EXPECT_EQ( names( image ), "aaa.a.a.aaa....." );
    GImageInvertRect( format, image.data( ), { 3, 3, 4, 4 } );
    EXPECT_EQ( image.back( ), static_cast<char>( ~'.' ) );
    GImageInvertRect( format, image.data( ), { 3, 3, 4, 4 } );
    EXPECT_EQ( names( image ), "aaa.a.a.aaa....." );
}

TEST( GImageDraw, InvertLeavesTheAlpha )
{
    GString four = pixel( 1, 2, 3, 4 );
    GImageInvertRect( { GIT_BGRA32, 1, 1 }, four.data( ), { 0, 0, 1, 1 } );
    EXPECT_EQ( four, pixel( 254, 253, 252, 4 ) );
}

TEST( GImageDraw, NullBuffersAndEmptyImagesAbort )
{
    GString image( 12, 0 );
    const GImageFormat format{ GIT_RGB24, 2, 2 }, empty{ GIT_RGB24, 0, 2 };
    EXPECT_DEATH( GImageFillRect( format, nullptr, { 0, 0, 1, 1 }, 0 ), "Precondition failed" );
    EXPECT_DEATH( GImageFillRect( empty, image.data( ), { 0, 0, 1, 1 }, 0 ), "Precondition failed" );
    EXPECT_DEATH( GImageDrawRect( empty, image.data( ), { 0, 0, 0, 0 }, 0 ), "Precondition failed" );
    EXPECT_DEATH( GImageInvertRect( empty, image.data( ), { 0, 0, 1, 1 } ), "Precondition failed" );
    EXPECT_DEATH( GImageDrawHorizLine( format, nullptr, 0, 1, 0, 0 ), "Precondition failed" );
    EXPECT_DEATH( GImageDrawVertLine( empty, image.data( ), 0, 0, 1, 0 ), "Precondition failed" );
    EXPECT_DEATH( GImageInvertHorizLine( format, nullptr, 0, 1, 0 ), "Precondition failed" );
    EXPECT_DEATH( GImageVertMirror( format, nullptr ), "Precondition failed" );
}

TEST( GImageDraw, UnsupportedTypesWarnAndStayUnchanged )
{
    TestLog::expect( "WARNING Attempting drawHorizLine on unsupported type #23, ignoring." );
    TestLog::expect( "WARNING Attempting drawVertLine on unsupported type #23, ignoring." );
    TestLog::expect( "WARNING Attempting invertHorizLine on unsupported type #23, ignoring." );
    GString gray( 4, 'g' );
    GImageDrawHorizLine( { GIT_GRAY8, 2, 2 }, gray.data( ), 0, 2, 0, 0 );
    GImageDrawVertLine( { GIT_GRAY8, 2, 2 }, gray.data( ), 0, 0, 2, 0 );
    GImageInvertHorizLine( { GIT_GRAY8, 2, 2 }, gray.data( ), 0, 2, 0 );
    EXPECT_EQ( gray, "gggg" );
}
