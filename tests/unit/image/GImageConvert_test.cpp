#include "image/GImage.h"

#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace
{
GString bytes( std::initializer_list<int> values )
{
    GString out;
    for( const int value : values ) out += static_cast<char>( value );
    return out;
}
int at( const GString& buffer, size_t i )
{
    return static_cast<unsigned char>( buffer[i] );
}
// A picture whose every channel differs.
GString pattern( const GImageFormat& format )
{
    GString out( static_cast<size_t>( GImageSize( format ) ), 0 );
    for( size_t i = 0; i < out.size( ); i++ ) out[i] = static_cast<char>( i * 37 + i / 7 * 11 );
    return out;
}
} // namespace

TEST( GImageSize, IsTableEntryTimesPixels )
{
    EXPECT_EQ( GImageSize( { GIT_RGB24, 3, 2 } ), 18 );
    EXPECT_EQ( GImageSize( { GIT_RGBA32, 3, 2 } ), 24 );
    EXPECT_EQ( GImageSize( { GIT_YUY2, 4, 2 } ), 16 );
    EXPECT_EQ( GImageSize( { GIT_RGB16, 2, 2 } ), 8 );
    EXPECT_EQ( GImageSize( { GIT_GRAY8, 5, 3 } ), 15 );
    EXPECT_EQ( GImageSize( { GIT_RGB24, 40000, 40000 } ), 4800000000 );
}

TEST( GImageSize, IsZeroForPlanarHalfByteAndEncodedTypes )
{
    EXPECT_EQ( GImageSize( { GIT_IYUY, 16, 16 } ), 0 );
    EXPECT_EQ( GImageSize( { GIT_GRAY4, 16, 16 } ), 0 );
    EXPECT_EQ( GImageSize( { GIT_PNG, 16, 16 } ), 0 );
    EXPECT_EQ( GImageSize( { 99, 16, 16 } ), 0 );
    EXPECT_EQ( GImageSize( { -1, 16, 16 } ), 0 );
    EXPECT_EQ( GImageSizeIYUY( 48, 48 ), 3456 );
    EXPECT_EQ( GImageSizeGray4( 3, 2 ), 4 );
    EXPECT_EQ( GImageSizeGray4( 4, 2 ), 4 );
}

TEST( GImageConvert, Gray4OfThreeByTwoEndsEachRowWithALonePixelInTheHighNibble )
{
    // Blue, green, red of six pixels.
    const GString image = bytes( { 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255, 255, 0, 0, 0, 136, 136, 136 } );
    GString out;
    GImageConvert( { GIT_BGR24, 3, 2 }, image.data( ), { 0, 0, 3, 2 }, GIT_GRAY4, out );
    ASSERT_EQ( out.size( ), 4U );
    EXPECT_EQ( at( out, 0 ), 0x49 ); // 76 and 149
    EXPECT_EQ( at( out, 1 ), 0x10 ); // 29 and nothing
    EXPECT_EQ( at( out, 2 ), 0xF0 );
    EXPECT_EQ( at( out, 3 ), 0x80 );
}

TEST( GImageConvert, Gray4KeepsTheRuleBitForBit )
{
    GString row( 256 * 4, 0 ), out;
    for( int green = 0; green < 256; green += 5 )
        for( int red = 0; red < 256; red += 3 )
        {
            for( int blue = 0; blue < 256; blue++ )
            {
                char* p = row.data( ) + blue * 4;
                p[0] = static_cast<char>( blue );
                p[1] = static_cast<char>( green );
                p[2] = static_cast<char>( red );
            }
            GImageConvert( { GIT_BGRA32, 256, 1 }, row.data( ), { 0, 0, 256, 1 }, GIT_GRAY4, out );
            for( int blue = 0; blue < 256; blue++ )
            {
                const int gray = ( 299 * red + 587 * green + 114 * blue ) / 1000;
                const int pair = at( out, static_cast<size_t>( blue / 2 ) );
                ASSERT_EQ( blue % 2 ? pair & 15 : pair >> 4, gray >> 4 ) << red << " " << green << " " << blue;
            }
        }
}

TEST( GImageConvert, Gray4OfFifteenBitsCopiesTheTopThreeBitsDown )
{
    for( int five = 0; five < 32; five++ )
    {
        const int word = five << 10 | five << 5 | five;
        const GString image = bytes( { word & 255, word >> 8 } );
        GString out;
        GImageConvert( { GIT_RGB555, 1, 1 }, image.data( ), { 0, 0, 1, 1 }, GIT_GRAY4, out );
        ASSERT_EQ( out.size( ), 1U );
        EXPECT_EQ( at( out, 0 ), ( five << 3 | five >> 2 ) / 16 << 4 );
    }
}

TEST( GImageConvert, Gray4AndBackLosesNothingOnMultiplesOfSeventeen )
{
    const GImageFormat format{ GIT_RGB24, 5, 3 };
    GString image;
    for( int i = 0; i < 15; i++ ) image += GString( 3, static_cast<char>( i * 17 ) );
    GString packed, rgb, bgr, again;
    GImageConvert( format, image.data( ), { 0, 0, 5, 3 }, GIT_GRAY4, packed );
    ASSERT_EQ( packed.size( ), 9U );
    GImageConvert( { GIT_GRAY4, 5, 3 }, packed.data( ), GIT_RGB24, rgb );
    EXPECT_EQ( rgb, image );
    GImageConvert( { GIT_GRAY4, 5, 3 }, packed.data( ), GIT_BGR24, bgr );
    EXPECT_EQ( bgr, image );
    GImageConvert( { GIT_BGR24, 5, 3 }, bgr.data( ), { 0, 0, 5, 3 }, GIT_GRAY4, again );
    EXPECT_EQ( again, packed );
}

TEST( GImageConvert, Gray4DecodesARectangleThatBeginsAtAnOddPixel )
{
    const GString packed = bytes( { 0x12, 0x30, 0x45, 0x60 } );
    GString out;
    GImageConvert( { GIT_GRAY4, 3, 2 }, packed.data( ), { 1, 0, 3, 2 }, GIT_RGB24, out );
    ASSERT_EQ( out.size( ), 12U );
    EXPECT_EQ( at( out, 0 ), 2 * 17 );
    EXPECT_EQ( at( out, 3 ), 3 * 17 );
    EXPECT_EQ( at( out, 6 ), 5 * 17 );
    EXPECT_EQ( at( out, 9 ), 6 * 17 );
}

TEST( GImageConvert, ChannelsSwapAndAlphaComesAndGoes )
{
    const GString rgb = bytes( { 1, 2, 3, 4, 5, 6 } );
    GString out;
    GImageConvert( { GIT_RGB24, 2, 1 }, rgb.data( ), GIT_RGBA32, out );
    EXPECT_EQ( out, bytes( { 1, 2, 3, 255, 4, 5, 6, 255 } ) );
    GImageConvert( { GIT_RGB24, 2, 1 }, rgb.data( ), GIT_BGR24, out );
    EXPECT_EQ( out, bytes( { 3, 2, 1, 6, 5, 4 } ) );
    GImageConvert( { GIT_BGR24, 2, 1 }, rgb.data( ), GIT_RGB24, out );
    EXPECT_EQ( out, bytes( { 3, 2, 1, 6, 5, 4 } ) );
    const GString four = bytes( { 1, 2, 3, 9, 4, 5, 6, 8 } );
    GImageConvert( { GIT_RGBA32, 2, 1 }, four.data( ), GIT_RGB24, out );
    EXPECT_EQ( out, rgb );
    GImageConvert( { GIT_BGRA32, 2, 1 }, four.data( ), GIT_BGR24, out );
    EXPECT_EQ( out, rgb );
    GImageConvert( { GIT_BGRA32, 2, 1 }, four.data( ), GIT_RGB24, out );
    EXPECT_EQ( out, bytes( { 3, 2, 1, 6, 5, 4 } ) );
    GImageConvert( { GIT_RGBA32, 2, 1 }, four.data( ), GIT_BGR24, out );
    EXPECT_EQ( out, bytes( { 3, 2, 1, 6, 5, 4 } ) );
}

TEST( GImageConvert, SixteenBitsExpandToBytesAndPackAgain )
{
    const GString words = bytes( { 0x00, 0xF8, 0xE0, 0x07, 0x1F, 0x00 } ); // Red, green, blue.
    GString out, packed;
    GImageConvert( { GIT_RGB565, 3, 1 }, words.data( ), GIT_BGR24, out );
    EXPECT_EQ( out, bytes( { 0, 0, 255, 0, 255, 0, 255, 0, 0 } ) );
    GImageConvert( { GIT_BGR24, 3, 1 }, out.data( ), { 0, 0, 3, 1 }, GIT_RGB565, packed );
    EXPECT_EQ( packed, words );
    const GString four = bytes( { 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 0 } );
    GImageConvert( { GIT_BGRA32, 3, 1 }, four.data( ), { 1, 0, 3, 1 }, GIT_RGB565, packed );
    EXPECT_EQ( packed, words.substr( 2 ) );
}

TEST( GImageConvert, GrayIsFullRange )
{
    const GString rgb = bytes( { 255, 0, 0, 255, 255, 255, 0, 0, 0, 10, 20, 30 } );
    GString gray, four;
    GImageConvert( { GIT_RGB24, 2, 2 }, rgb.data( ), GIT_GRAY8, gray );
    ASSERT_EQ( gray.size( ), 4U );
    EXPECT_NEAR( at( gray, 0 ), 76, 1 );
    EXPECT_EQ( at( gray, 1 ), 255 );
    EXPECT_EQ( at( gray, 2 ), 0 );
    EXPECT_NEAR( at( gray, 3 ), 18, 1 );
    GImageConvert( { GIT_GRAY8, 2, 2 }, gray.data( ), GIT_RGBA32, four );
    EXPECT_EQ( four.substr( 4, 4 ), bytes( { 255, 255, 255, 255 } ) );
    EXPECT_EQ( four.substr( 8, 4 ), bytes( { 0, 0, 0, 255 } ) );
    GImageConvert( { GIT_RGBA32, 2, 2 }, four.data( ), GIT_GRAY8, gray );
    EXPECT_EQ( at( gray, 1 ), 255 );
    GImageConvert( { GIT_RGB24, 2, 2 }, rgb.data( ), { 1, 0, 2, 1 }, GIT_GRAY8, gray );
    EXPECT_EQ( gray, bytes( { 255 } ) );
}

TEST( GImageConvert, PackedCameraPixelsBecomeColours )
{
    const GString yuy2 = bytes( { 235, 128, 16, 128, 235, 128, 16, 128 } );
    GString out;
    GImageConvert( { GIT_YUY2, 2, 2 }, yuy2.data( ), GIT_RGB24, out );
    ASSERT_EQ( out.size( ), 12U );
    EXPECT_GE( at( out, 0 ), 253 );
    EXPECT_LE( at( out, 3 ), 2 );
    GImageConvert( { GIT_YUY2, 3, 1 }, yuy2.data( ), GIT_RGB24, out );
    ASSERT_EQ( out.size( ), 9U );
    EXPECT_GE( at( out, 6 ), 253 );
}

TEST( GImageConvert, InPlaceSwapsTheTwoPairs )
{
    GImageFormat format{ GIT_RGBA32, 1, 1 };
    GString four = bytes( { 1, 2, 3, 4 } );
    GImageConvert( format, four.data( ), GIT_BGRA32 );
    EXPECT_EQ( four, bytes( { 3, 2, 1, 4 } ) );
    EXPECT_EQ( format.type, GIT_BGRA32 );
    GImageFormat small{ GIT_BGR24, 3, 1 };
    GString three = bytes( { 1, 2, 3, 4, 5, 6, 7, 8, 9 } );
    GImageConvert( small, three.data( ), GIT_RGB24 );
    EXPECT_EQ( three, bytes( { 3, 2, 1, 6, 5, 4, 9, 8, 7 } ) );
}

TEST( GImageConvert, InPlaceOfAnotherPairAborts )
{
    GImageFormat format;
    format.type = GIT_RGBA32;
    format.width = format.height = 1;
    GString four( 4, 0 );
    EXPECT_DEATH( GImageConvert( format, four.data( ), GIT_RGB24 ),
                  "ERROR Attepting unsupported in-place conversion, from #16 to #15, aborting\\." );
}

TEST( GImageConvert, UnsupportedPairsAbortWithTheirNumbers )
{
    GString image( 64, 0 ), out;
    EXPECT_DEATH( GImageConvert( { GIT_RGB555, 2, 2 }, image.data( ), GIT_GRAY8, out ),
                  "ERROR Unsupported conversion format, from #18 to #23, aborting\\." );
    EXPECT_DEATH( GImageConvert( { GIT_RGB565, 2, 2 }, image.data( ), { 0, 0, 2, 2 }, GIT_GRAY4, out ),
                  "ERROR Unsupported conversion from #17 to GRAY4" );
    EXPECT_DEATH( GImageConvert( { GIT_RGB16, 2, 2 }, image.data( ), { 0, 0, 2, 2 }, GIT_PNG, out ),
                  "ERROR Attempting to encode unsupported format #14, aborting\\." );
    EXPECT_DEATH( GImageConvert( { GIT_GRAY8, 2, 2 }, image.data( ), { 0, 0, 2, 2 }, GIT_JPEG, out ),
                  "ERROR: Unsupported format #23" );
    EXPECT_DEATH( GImageConvert( { GIT_RGB24, 0, 2 }, image.data( ), GIT_RGBA32, out ), "Precondition failed" );
    EXPECT_DEATH( GImageConvert( { GIT_RGB24, 2, 2 }, nullptr, GIT_RGBA32, out ), "Precondition failed" );
}

namespace
{
// One pixel by the plain rule of each pair that only moves channels; the place of red, green and blue and the bytes of a layout.
struct Layout
{
    int type;
    int bytes;
    int red;
};
constexpr Layout MOVED[] = { { GIT_RGB24, 3, 0 }, { GIT_RGBA32, 4, 0 }, { GIT_BGR24, 3, 2 }, { GIT_BGRA32, 4, 2 } };

GString moved( const GString& image, const Layout& from, const Layout& to )
{
    GString out;
    for( size_t i = 0; i < image.size( ); i += static_cast<size_t>( from.bytes ) )
    {
        const char* p = image.data( ) + i;
        const char red = p[from.red], blue = p[2 - from.red];
        out += to.red ? blue : red;
        out += p[1];
        out += to.red ? red : blue;
        if( to.bytes == 4 ) out += from.bytes == 4 ? p[3] : static_cast<char>( 255 );
    }
    return out;
}
} // namespace

TEST( GImageConvert, MovedChannelsFollowThePlainRuleAtEveryWidth )
{
    const std::pair<int, int> pairs[] = { { 15, 16 }, { 16, 15 }, { 20, 19 }, { 19, 15 },
                                          { 15, 19 }, { 20, 15 }, { 16, 19 } };
    const auto layout = []( int type )
    {
        for( const Layout& each : MOVED )
            if( each.type == type ) return each;
        return MOVED[0];
    };
    for( const auto& [from, to] : pairs )
        for( int width = 1; width < 70; width++ )
        {
            const GImageFormat format{ from, width, 2 };
            const GString image = pattern( format );
            GString out;
            GImageConvert( format, image.data( ), to, out );
            ASSERT_EQ( out, moved( image, layout( from ), layout( to ) ) ) << from << " " << to << " " << width;
        }
}

TEST( GImageConvert, InPlaceSwapsEveryWidth )
{
    for( const int type : { GIT_RGB24, GIT_RGBA32 } )
        for( int width = 1; width < 70; width++ )
        {
            GImageFormat format{ type, width, 3 };
            const GString image = pattern( format );
            GString swapped = image;
            GImageConvert( format, swapped.data( ), type == GIT_RGB24 ? GIT_BGR24 : GIT_BGRA32 );
            const Layout& from = MOVED[type == GIT_RGB24 ? 0 : 1];
            const Layout& to = MOVED[type == GIT_RGB24 ? 2 : 3];
            ASSERT_EQ( swapped, moved( image, from, to ) ) << type << " " << width;
            GImageConvert( format, swapped.data( ), type );
            ASSERT_EQ( swapped, image );
        }
}

TEST( GImageConvert, EveryPairIsOfferedOrAbortsWithItsNumbers )
{
    // Rows of the two tables; GIT_PNG and GIT_JPEG are targets of 15 to 20.
    const std::pair<int, int> offered[] = { { 15, 16 }, { 16, 15 }, { 20, 19 }, { 19, 15 }, { 15, 19 },
                                            { 20, 15 }, { 16, 19 }, { 17, 19 }, { 21, 15 }, { 15, 23 },
                                            { 16, 23 }, { 23, 16 }, { 19, 17 }, { 20, 17 }, { 18, 24 },
                                            { 19, 24 }, { 20, 24 }, { 15, 24 }, { 24, 15 }, { 24, 19 } };
    const GString image( 64, 'x' );
    GString out;
    for( int from = 14; from <= 24; from++ )
        for( int to = 14; to <= 24; to++ )
        {
            if( from == to ) continue;
            const GImageFormat format{ from, 4, 4 };
            if( std::find( std::begin( offered ), std::end( offered ), std::pair( from, to ) ) != std::end( offered ) )
            {
                out.clear( );
                GImageConvert( format, image.data( ), to, out );
                const GImageFormat target{ to, 4, 4 };
                EXPECT_EQ( static_cast<int64_t>( out.size( ) ), to == GIT_GRAY4 ? 8 : GImageSize( target ) );
                continue;
            }
            const std::string text = to == GIT_GRAY4
                                         ? "ERROR Unsupported conversion from #" + std::to_string( from ) + " to GRAY4"
                                         : "ERROR Unsupported conversion format, from #" + std::to_string( from ) +
                                               " to #" + std::to_string( to ) + ", aborting\\.";
            EXPECT_DEATH( GImageConvert( format, image.data( ), to, out ), text ) << from << " " << to;
        }
}

TEST( GImageConvert, ThreeBytePixelsBecomeThePlanesThatFourBytePixelsGive )
{
    for( const auto& [three, four] : { std::pair( GIT_RGB24, GIT_RGBA32 ), std::pair( GIT_BGR24, GIT_BGRA32 ) } )
        for( const auto& [width, height] : { std::pair( 2, 2 ), std::pair( 37, 11 ), std::pair( 64, 5 ) } )
        {
            const GImageFormat format{ three, width, height };
            const GString image = pattern( format );
            GString wide, planes, expected;
            for( size_t i = 0; i < image.size( ); i += 3 )
                wide += image.substr( i, 3 ) + GString( 1, static_cast<char>( 255 ) );
            GImageConvertToIYUY( format, image.data( ), planes );
            GImageConvertToIYUY( { four, width, height }, wide.data( ), expected );
            EXPECT_EQ( planes, expected ) << three << " " << width;
        }
}

TEST( GImageConvert, PlanarAndBackStaysNear )
{
    for( const int type : { GIT_RGB24, GIT_BGR24, GIT_RGBA32, GIT_BGRA32 } )
        for( const int edge : { 16, 15 } )
        {
            GImageFormat format{ type, edge, edge };
            const int step = GImageBytesPerPixel( type );
            GString image( static_cast<size_t>( GImageSize( format ) ), static_cast<char>( 255 ) );
            for( int i = 0; i < edge * edge; i++ )
            {
                image[static_cast<size_t>( i * step )] = static_cast<char>( 200 );
                image[static_cast<size_t>( i * step + 1 )] = 100;
                image[static_cast<size_t>( i * step + 2 )] = 50;
            }
            GString planar, back;
            GImageConvertToIYUY( format, image.data( ), planar );
            ASSERT_EQ( planar.size( ), static_cast<size_t>( edge * edge * 3 / 2 ) );
            GImageFormat backFormat{ type, 0, 0 };
            GImageConvertFromIYUY( { GIT_IYUY, edge, edge }, planar.data( ), backFormat, back );
            EXPECT_EQ( backFormat, format );
            ASSERT_EQ( back.size( ), image.size( ) );
            for( size_t i = 0; i < image.size( ); i++ )
                ASSERT_NEAR( at( back, i ), at( image, i ), 5 ) << type << " " << i;
        }
}

TEST( GImageConvert, PackedToPlanarKeepsTheLuminanceUntouched )
{
    const GImageFormat format{ GIT_YUY2, 16, 2 };
    const GString image = pattern( format );
    GString planar;
    GImageConvertToIYUY( format, image.data( ), planar );
    ASSERT_EQ( planar.size( ), 48U );
    for( size_t i = 0; i < 32; i++ ) EXPECT_EQ( planar[i], image[i * 2] );
    EXPECT_NEAR( at( planar, 32 ), ( at( image, 1 ) + at( image, 33 ) ) / 2, 1 );
}

TEST( GImageConvert, PlanarRefusesOtherTypes )
{
    GString image( 64, 0 ), out;
    GImageFormat target{ GIT_GRAY8, 0, 0 };
    EXPECT_DEATH( GImageConvertToIYUY( { GIT_GRAY8, 2, 2 }, image.data( ), out ), "from #23 to #22" );
    EXPECT_DEATH( GImageConvertFromIYUY( { GIT_IYUY, 2, 2 }, image.data( ), target, out ), "from #22 to #23" );
}

TEST( GImageConvert, ARectangleMayEndAtTheEdge )
{
    const GImageFormat format{ GIT_RGB24, 4, 3 };
    const GString image = pattern( format );
    GString out;
    GImageConvert( format, image.data( ), { 2, 1, 4, 3 }, GIT_BGR24, out );
    ASSERT_EQ( out.size( ), 12U );
    EXPECT_EQ( out[0], image[( 4 + 2 ) * 3 + 2] );
    EXPECT_EQ( out[11], image[( 8 + 3 ) * 3] );
    EXPECT_DEATH( GImageConvert( format, image.data( ), { 2, 1, 5, 3 }, GIT_BGR24, out ), "Precondition failed" );
}

TEST( GImageResize, KeepsFlatColourInEveryChannelCount )
{
    for( const int type : { GIT_RGB24, GIT_RGBA32, GIT_BGR24, GIT_BGRA32, GIT_GRAY8 } )
    {
        for( const int value : { 1, 77, 254, 255 } )
            for( const auto& [width, height] :
                 { std::pair( 5, 13 ), std::pair( 3, 4 ), std::pair( 8, 8 ), std::pair( 100, 7 ), std::pair( 1, 9 ) } )
            {
                const GString image( static_cast<size_t>( GImageSize( { type, 8, 8 } ) ), static_cast<char>( value ) );
                GString out;
                GImageResize( { type, 8, 8 }, image.data( ), { type, width, height }, out );
                EXPECT_EQ( out, GString( static_cast<size_t>( GImageSize( { type, width, height } ) ),
                                         static_cast<char>( value ) ) )
                    << type << " " << value << " " << width;
            }
    }
}

TEST( GImageResize, WhatIsOpaqueStaysOpaque )
{
    for( const int edge : { 3, 7, 31, 100 } )
    {
        const GString image( static_cast<size_t>( edge * edge * 4 ), static_cast<char>( 255 ) );
        GString out;
        GImageResize( { GIT_RGBA32, edge, edge }, image.data( ), { GIT_RGBA32, 5, 6 }, out );
        for( size_t i = 3; i < out.size( ); i += 4 ) ASSERT_EQ( at( out, i ), 255 ) << edge;
    }
}

TEST( GImageResize, OtherSizesInterpolateBetweenTheMiddlesOfPixels )
{
    for( const int type : { GIT_RGB24, GIT_BGRA32 } )
        for( const auto& [width, height] : { std::pair( 29, 23 ), std::pair( 11, 9 ), std::pair( 64, 5 ) } )
        {
            const GImageFormat from{ type, 13, 10 }, to{ type, width, height };
            const GString image = pattern( from );
            GString out;
            GImageResize( from, image.data( ), to, out );
            const int bytes = GImageBytesPerPixel( type );
            for( int i = 0; i < width * height * bytes; i++ )
            {
                const double x = std::clamp( ( i / bytes % width + 0.5 ) * 13 / width - 0.5, 0.0, 12.0 );
                const double y = std::clamp( ( i / bytes / width + 0.5 ) * 10 / height - 0.5, 0.0, 9.0 );
                const int left = static_cast<int>( x ), top = static_cast<int>( y );
                const auto sample = [&]( int u, int v )
                {
                    const int place = ( std::min( v, 9 ) * 13 + std::min( u, 12 ) ) * bytes + i % bytes;
                    return at( image, static_cast<size_t>( place ) );
                };
                const double above = sample( left, top ) * ( left + 1 - x ) + sample( left + 1, top ) * ( x - left );
                const double below =
                    sample( left, top + 1 ) * ( left + 1 - x ) + sample( left + 1, top + 1 ) * ( x - left );
                // Weights have seven bits.
                ASSERT_NEAR( at( out, static_cast<size_t>( i ) ), above * ( top + 1 - y ) + below * ( y - top ), 4.5 )
                    << type << " " << width << " " << i;
            }
        }
}

TEST( GImageResize, ShrinkingTakesTheMeanOfEachArea )
{
    for( const int type : { GIT_GRAY8, GIT_RGB24, GIT_BGRA32 } )
        for( const auto& [width, height] : { std::pair( 7, 3 ), std::pair( 50, 24 ), std::pair( 1, 1 ) } )
        {
            const GImageFormat from{ type, 101, 49 }, to{ type, width, height };
            const GString image = pattern( from );
            GString out;
            GImageResize( from, image.data( ), to, out );
            const int bytes = GImageBytesPerPixel( type );
            for( int i = 0; i < width * height * bytes; i++ )
            {
                const int channel = i % bytes, x = i / bytes % width, y = i / bytes / width;
                int sum = 0, count = 0;
                for( int v = y * 49 / height; v < ( y + 1 ) * 49 / height; v++ )
                    for( int u = x * 101 / width; u < ( x + 1 ) * 101 / width; u++, count++ )
                        sum += at( image, static_cast<size_t>( ( v * 101 + u ) * bytes + channel ) );
                ASSERT_EQ( at( out, static_cast<size_t>( i ) ), ( sum + count / 2 ) / count ) << type << " " << i;
            }
        }
}

TEST( GImageResize, AnEnormousReductionDoesNotOverflow )
{
    const GString image( 70000 * 300, static_cast<char>( 255 ) );
    GString out;
    GImageResize( { GIT_GRAY8, 70000, 300 }, image.data( ), { GIT_GRAY8, 1, 1 }, out );
    EXPECT_EQ( at( out, 0 ), 255 );
    GImageResize( { GIT_GRAY8, 300, 70000 }, image.data( ), { GIT_GRAY8, 2, 1 }, out );
    EXPECT_EQ( at( out, 1 ), 255 );
}

TEST( GImageResize, AveragesWhatItShrinks )
{
    const GString image = bytes( { 0, 100, 100, 200 } );
    GString out;
    GImageResize( { GIT_GRAY8, 2, 2 }, image.data( ), { GIT_GRAY8, 1, 1 }, out );
    EXPECT_NEAR( at( out, 0 ), 100, 1 );
}

TEST( GImageResize, PlanarScalesEachPlane )
{
    const GString image = GString( 64, 10 ) + GString( 16, 20 ) + GString( 16, 30 );
    GString out;
    GImageResizeIYUY( { GIT_IYUY, 8, 8 }, image.data( ), { GIT_IYUY, 4, 4 }, out );
    EXPECT_EQ( out, GString( 16, 10 ) + GString( 4, 20 ) + GString( 4, 30 ) );
    EXPECT_DEATH( GImageResizeIYUY( { GIT_RGB24, 8, 8 }, image.data( ), { GIT_IYUY, 4, 4 }, out ),
                  "fromFormat.type == GIT_IYUY" );
}

TEST( GImageResize, RefusesPackedTypes )
{
    const GString image( 64, 0 );
    GString out;
    EXPECT_DEATH( GImageResize( { GIT_YUY2, 4, 4 }, image.data( ), { GIT_YUY2, 2, 2 }, out ),
                  "ERROR: Attempting to resize unsupported image type #21, aborting\\." );
}
