#include "base/GBytes.h"
#include "image/GColor.h"
#include "image/GImage.h"

#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace
{
GString picture( const GImageFormat& format )
{
    GString out( static_cast<size_t>( GImageSize( format ) ), static_cast<char>( 255 ) );
    const int step = GImageBytesPerPixel( format.type );
    for( int i = 0; i < format.width * format.height; i++ )
        for( int channel = 0; channel < 3; channel++ )
            out[static_cast<size_t>( i * step + channel )] = static_cast<char>( i * 5 + channel * 60 );
    return out;
}
// A GIF with one picture of 1 by 1, behind an extension, whose header claims that size.
GString gif( uint16_t width, uint16_t height )
{
    GString out( "GIF89a\1\0\1\0\x80\0\0\xFF\xFF\xFF\0\0\0\x21\xF9\4\0\0\0\0\0\x2C\0\0\0\0", 32 );
    out.resize( 36 );
    GWriteU16( out.data( ) + 32, width );
    GWriteU16( out.data( ) + 34, height );
    return out.append( "\0\2\2\x44\1\0\x3B", 7 );
}
// The most memory that this program has asked the system for so far.
long peakKilobytes( )
{
    std::ifstream status( "/proc/self/status" );
    std::string line;
    while( std::getline( status, line ) )
        if( line.starts_with( "VmPeak:" ) ) return std::stol( line.substr( 7 ) );
    return 0;
}
// An 8 by 2 one-bit picture with a white first and a black second row.
const unsigned char ONE_BIT_PNG[] = {
    0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0x00, 0x00, 0x00, 0x0D, 0x49, 0x48, 0x44, 0x52, 0x00, 0x00,
    0x00, 0x08, 0x00, 0x00, 0x00, 0x02, 0x01, 0x00, 0x00, 0x00, 0x00, 0x4D, 0xEF, 0xA0, 0x40, 0x00, 0x00, 0x00,
    0x0C, 0x49, 0x44, 0x41, 0x54, 0x78, 0x9C, 0x63, 0xF8, 0xCF, 0xC0, 0x00, 0x00, 0x03, 0x01, 0x01, 0x00, 0xC9,
    0xFE, 0x92, 0xEF, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4E, 0x44, 0xAE, 0x42, 0x60, 0x82 };
} // namespace

TEST( GImagePNG, EveryLayoutComesBackAsRedGreenBlue )
{
    for( const int type : { GIT_RGB24, GIT_RGBA32, GIT_BGR24, GIT_BGRA32 } )
    {
        const GImageFormat format{ type, 7, 5 };
        const GString image = picture( format );
        GString png, expected, pixels;
        GImageConvert( format, image.data( ), { 0, 0, 7, 5 }, GIT_PNG, png );
        if( type == GIT_RGB24 )
            expected = image;
        else
            GImageConvert( format, image.data( ), GIT_RGB24, expected );
        GImageFormat loaded;
        ASSERT_TRUE( GImageLoad( png.data( ), static_cast<int>( png.size( ) ), loaded, pixels ) ) << type;
        EXPECT_EQ( loaded, ( GImageFormat{ GIT_RGB24, 7, 5 } ) );
        EXPECT_EQ( pixels, expected ) << type;
        GImageFormat checked;
        GString own;
        ASSERT_TRUE( GImageLoadPNG( png.data( ), static_cast<int>( png.size( ) ), 35, checked, own ) );
        EXPECT_EQ( checked, loaded );
        EXPECT_EQ( own, expected );
    }
}

namespace
{
// Noise, a gradient that each filter suits somewhere, text-like spots, and both kinds of edges.
GString scene( const GImageFormat& format, int kind )
{
    GString out( static_cast<size_t>( GImageSize( format ) ), static_cast<char>( 255 ) );
    const int step = GImageBytesPerPixel( format.type );
    srand( 3 );
    for( int y = 0; y < format.height; y++ )
        for( int x = 0; x < format.width; x++ )
            for( int channel = 0; channel < step; channel++ )
            {
                const int values[] = { rand( ),       x * 3 + channel * 40,   y * 5,
                                       ( x + y ) * 2, rand( ) % 9 ? 255 : 20, x * y / 7 };
                out[static_cast<size_t>( ( y * format.width + x ) * step + channel )] =
                    static_cast<char>( values[kind] );
            }
    return out;
}
} // namespace

TEST( GImagePNG, EveryKindOfPictureIsKeptExactly )
{
    for( const int type : { GIT_RGB24, GIT_RGBA32, GIT_BGR24, GIT_BGRA32 } )
        for( const int width : { 1, 2, 47, 48 } )
            for( int kind = 0; kind < 6; kind++ )
            {
                const GImageFormat format{ type, width + 3, 30 };
                const GRect rect{ 2, 1, 2 + width, 30 };
                const GString image = scene( format, kind );
                GString png, own, other, crop, expected;
                GImageConvert( format, image.data( ), rect, GIT_PNG, png );
                GImageCrop( format, image.data( ), rect, crop );
                const GImageFormat part{ type, width, 29 };
                if( type == GIT_RGB24 )
                    expected = crop;
                else
                    GImageConvert( part, crop.data( ), GIT_RGB24, expected );
                GImageFormat loaded;
                const int length = static_cast<int>( png.size( ) );
                ASSERT_TRUE( GImageLoadPNG( png.data( ), length, 1 << 20, loaded, own ) );
                EXPECT_EQ( own, expected ) << type << " " << width << " " << kind;
                ASSERT_TRUE( GImageLoad( png.data( ), length, loaded, other ) );
                EXPECT_EQ( other, expected ) << type << " " << width << " " << kind;
            }
}

TEST( GImagePNG, ALargePictureIsKeptExactly )
{
    for( const int type : { GIT_RGB24, GIT_RGBA32, GIT_BGR24, GIT_BGRA32, GIT_RGB565 } )
    {
        const GImageFormat format{ type, 801, 601 };
        const GString image = scene( format, 3 );
        GString png, pixels, expected = image;
        GImageConvert( format, image.data( ), { 0, 0, 801, 601 }, GIT_PNG, png );
        GImageFormat loaded, bgr{ GIT_BGR24, 801, 601 };
        ASSERT_TRUE( GImageLoadPNG( png.data( ), static_cast<int>( png.size( ) ), 1 << 20, loaded, pixels ) );
        if( type == GIT_RGB565 )
        {
            GImageConvert( format, image.data( ), GIT_BGR24, expected );
            GImageConvert( bgr, expected.data( ), GIT_RGB24 );
        }
        else if( type != GIT_RGB24 )
            GImageConvert( format, image.data( ), GIT_RGB24, expected );
        EXPECT_EQ( pixels, expected ) << type;
    }
}

TEST( GImagePNG, ItsHeaderSaysEightBitsOfRGBWithoutInterlace )
{
    for( const int edge : { 48, 700 } )
    {
        const GImageFormat format{ GIT_BGRA32, edge, edge };
        const GString image = scene( format, 4 );
        GString png;
        GImageConvert( format, image.data( ), { 0, 0, edge, edge }, GIT_PNG, png );
        EXPECT_EQ( png.substr( 0, 16 ), GString( "\x89PNG\r\n\x1A\n\0\0\0\rIHDR", 16 ) );
        EXPECT_EQ( png.substr( 24, 5 ), GString( "\x08\x02\0\0\0", 5 ) );
        EXPECT_EQ( png.substr( 37, 4 ), "IDAT" );
        EXPECT_EQ( png.substr( png.size( ) - 12 ), GString( "\0\0\0\0IEND\xAE\x42\x60\x82", 12 ) );
    }
}

TEST( GImagePNG, SixteenBitSourcesAreExpanded )
{
    const char words[] = { 0x00, static_cast<char>( 0xF8 ), static_cast<char>( 0xE0 ), 0x07 };
    GString png, pixels;
    GImageFormat loaded;
    GImageConvert( { GIT_RGB565, 2, 1 }, words, { 0, 0, 2, 1 }, GIT_PNG, png );
    ASSERT_TRUE( GImageLoadPNG( png.data( ), static_cast<int>( png.size( ) ), 100, loaded, pixels ) );
    EXPECT_EQ( pixels, GString( "\xFF\0\0\0\xFF\0", 6 ) );
    const char fifteen[] = { 0x1F, 0x00 };
    GImageConvert( { GIT_RGB555, 1, 1 }, fifteen, { 0, 0, 1, 1 }, GIT_PNG, png );
    ASSERT_TRUE( GImageLoadPNG( png.data( ), static_cast<int>( png.size( ) ), 100, loaded, pixels ) );
    EXPECT_EQ( pixels, GString( "\0\0\xFF", 3 ) );
}

TEST( GImagePNG, EncodesARectangleOfALargerImage )
{
    const GImageFormat format{ GIT_RGB24, 8, 8 };
    const GString image = picture( format );
    GString png, pixels, crop;
    GImageConvert( format, image.data( ), { 3, 2, 8, 7 }, GIT_PNG, png );
    GImageFormat loaded;
    ASSERT_TRUE( GImageLoadPNG( png.data( ), static_cast<int>( png.size( ) ), 100, loaded, pixels ) );
    GImageCrop( format, image.data( ), { 3, 2, 8, 7 }, crop );
    EXPECT_EQ( pixels, crop );
}

TEST( GImagePNG, ALargePictureIsRefusedBeforeDecoding )
{
    const GString image( 100 * 100 * 3, 0 );
    GString png, pixels;
    GImageConvert( { GIT_RGB24, 100, 100 }, image.data( ), { 0, 0, 100, 100 }, GIT_PNG, png );
    GImageFormat loaded;
    EXPECT_FALSE( GImageLoadPNG( png.data( ), static_cast<int>( png.size( ) ), 9999, loaded, pixels ) );
    EXPECT_TRUE( pixels.empty( ) );
    EXPECT_TRUE( GImageLoadPNG( png.data( ), static_cast<int>( png.size( ) ), 10000, loaded, pixels ) );
}

TEST( GImagePNG, CutAnywhereItIsRefused )
{
    const GImageFormat format{ GIT_RGB24, 6, 6 };
    const GString image = picture( format );
    GString png, pixels;
    GImageConvert( format, image.data( ), { 0, 0, 6, 6 }, GIT_PNG, png );
    GImageFormat loaded;
    for( int length = 0; length < static_cast<int>( png.size( ) ); length++ )
        EXPECT_FALSE( GImageLoadPNG( png.data( ), length, 100, loaded, pixels ) ) << length;
}

TEST( GImagePNG, FlippedBitsNeverDoHarm )
{
    const GImageFormat format{ GIT_RGB24, 9, 9 };
    const GString image = picture( format );
    GString png;
    GImageConvert( format, image.data( ), { 0, 0, 9, 9 }, GIT_PNG, png );
    srand( 7 );
    for( int round = 0; round < 2000; round++ )
    {
        GString bad = png;
        for( int i = 0; i < 4; i++ )
            bad[static_cast<size_t>( rand( ) ) % bad.size( )] ^= static_cast<char>( 1 << rand( ) % 8 );
        GImageFormat loaded;
        GString pixels;
        const bool good = GImageLoadPNG( bad.data( ), static_cast<int>( bad.size( ) ), 100, loaded, pixels );
        EXPECT_TRUE( !good || static_cast<int64_t>( pixels.size( ) ) == GImageSize( loaded ) );
    }
}

TEST( GImageLoad, OneBitPictureBecomesTwentyFourBits )
{
    GImageFormat loaded;
    GString pixels;
    ASSERT_TRUE( GImageLoad( reinterpret_cast<const char*>( ONE_BIT_PNG ), sizeof( ONE_BIT_PNG ), loaded, pixels ) );
    EXPECT_EQ( loaded, ( GImageFormat{ GIT_RGB24, 8, 2 } ) );
    EXPECT_EQ( pixels, GString( 24, static_cast<char>( 255 ) ) + GString( 24, 0 ) );
}

TEST( GImageLoad, ChunkThatClaimsMoreThanTheFileTakesNoMemory )
{
    const std::string_view png( reinterpret_cast<const char*>( ONE_BIT_PNG ), sizeof( ONE_BIT_PNG ) );
    constexpr size_t END_MARK = 12;
    constexpr long MEGABYTE = 1024;
    for( const std::string_view name : { "tEXt", "eXIf", "zTXt", "iCCP" } )
        for( const size_t at : { size_t{ 33 }, png.size( ) - END_MARK } )
        {
            // 1.4 GB, of which three bytes are there.
            const GString chunk = GString( "\x55\0\0\0", 4 ) + GString( name ) + "Key";
            const GString bad = GString( png.substr( 0, at ) ) + chunk + GString( png.substr( at ) );
            TestLog::expect( "WARNING Unable to load image, ignoring." );
            GImageFormat loaded;
            GString pixels;
            const long before = peakKilobytes( );
            EXPECT_FALSE( GImageLoad( bad.data( ), static_cast<int>( bad.size( ) ), loaded, pixels ) );
            EXPECT_FALSE( GImageLoadPNG( bad.data( ), static_cast<int>( bad.size( ) ), 100, loaded, pixels ) );
            EXPECT_LT( peakKilobytes( ) - before, 100 * MEGABYTE ) << name << " at " << at;
        }
}

TEST( GImageLoad, JPEGBothWaysKeepsColoursAndTheRowsFromTheTop )
{
    for( const int type : { GIT_RGB24, GIT_RGBA32, GIT_BGR24, GIT_BGRA32 } )
    {
        const GImageFormat format{ type, 32, 32 };
        const bool redFirst = type == GIT_RGB24 || type == GIT_RGBA32;
        GString image( static_cast<size_t>( GImageSize( format ) ), 0 );
        GImageFillRect( format, image.data( ), { 0, 0, 32, 16 }, GColorFromText( u"#C01020" ) );
        GImageFillRect( format, image.data( ), { 0, 16, 32, 32 }, GColorFromText( u"#1020C0" ) );
        EXPECT_EQ( static_cast<unsigned char>( image[redFirst ? 0 : 2] ), 0xC0 );
        GString jpeg, pixels;
        GImageConvert( format, image.data( ), { 0, 0, 32, 32 }, GIT_JPEG, jpeg );
        GImageFormat loaded;
        ASSERT_TRUE( GImageLoad( jpeg.data( ), static_cast<int>( jpeg.size( ) ), loaded, pixels ) );
        EXPECT_EQ( loaded, ( GImageFormat{ GIT_RGB24, 32, 32 } ) );
        EXPECT_NEAR( static_cast<unsigned char>( pixels[0] ), 0xC0, 12 );
        EXPECT_NEAR( static_cast<unsigned char>( pixels[2] ), 0x20, 12 );
        EXPECT_NEAR( static_cast<unsigned char>( pixels[pixels.size( ) - 3] ), 0x10, 12 );
        EXPECT_NEAR( static_cast<unsigned char>( pixels[pixels.size( ) - 1] ), 0xC0, 12 );
    }
}

TEST( GImageLoad, JPEGTakesTheSixteenBitLayouts )
{
    for( const int type : { GIT_RGB565, GIT_RGB555 } )
    {
        const int red = type == GIT_RGB565 ? 0xF800 : 0x7C00;
        GString image;
        for( int i = 0; i < 16 * 16; i++ ) image += { static_cast<char>( red & 255 ), static_cast<char>( red >> 8 ) };
        GString jpeg, pixels;
        GImageConvert( { type, 16, 16 }, image.data( ), { 0, 0, 16, 16 }, GIT_JPEG, jpeg );
        GImageFormat loaded;
        ASSERT_TRUE( GImageLoad( jpeg.data( ), static_cast<int>( jpeg.size( ) ), loaded, pixels ) );
        EXPECT_EQ( loaded, ( GImageFormat{ GIT_RGB24, 16, 16 } ) );
        EXPECT_NEAR( static_cast<unsigned char>( pixels[0] ), 255, 6 );
        EXPECT_NEAR( static_cast<unsigned char>( pixels[1] ), 0, 6 );
        EXPECT_NEAR( static_cast<unsigned char>( pixels[2] ), 0, 6 );
    }
}

TEST( GImageLoad, JPEGTakesARectangle )
{
    const GImageFormat format{ GIT_BGRA32, 40, 40 };
    GString image( static_cast<size_t>( GImageSize( format ) ), 0 ), jpeg, pixels;
    GImageFillRect( format, image.data( ), { 8, 8, 24, 40 }, 0xFFFFFFFF );
    GImageConvert( format, image.data( ), { 8, 8, 24, 40 }, GIT_JPEG, jpeg );
    GImageFormat loaded;
    ASSERT_TRUE( GImageLoad( jpeg.data( ), static_cast<int>( jpeg.size( ) ), loaded, pixels ) );
    EXPECT_EQ( loaded, ( GImageFormat{ GIT_RGB24, 16, 32 } ) );
    EXPECT_EQ( pixels, GString( 16 * 32 * 3, static_cast<char>( 255 ) ) );
}

TEST( GImageLoad, ThirtyTwoBitsLoadRedFirstWithTheirAlpha )
{
    // A BMP of one pixel: file header, info header of 40 bytes, blue, green, red, alpha.
    GString file( 58, 0 );
    file.replace( 0, 2, "BM" );
    const std::pair<int, uint32_t> fields[] = { { 2, 58 }, { 10, 54 }, { 14, 40 },
                                                { 18, 1 }, { 22, 1 },  { 26, 32 << 16 | 1 } };
    for( const auto& [at, value] : fields ) GWriteU32( file.data( ) + at, value );
    file.replace( 54, 4, "\x03\x02\x01\x80" );
    GImageFormat loaded;
    GString pixels;
    ASSERT_TRUE( GImageLoad( file.data( ), 58, loaded, pixels ) );
    EXPECT_EQ( loaded, ( GImageFormat{ GIT_RGBA32, 1, 1 } ) );
    EXPECT_EQ( pixels, "\x01\x02\x03\x80" );
    // The same with a size that is refused before anything is decoded.
    TestLog::expect( "WARNING Unable to load image, ignoring." );
    GWriteU32( file.data( ) + 18, 20000 );
    GWriteU32( file.data( ) + 22, 20000 );
    EXPECT_FALSE( GImageLoad( file.data( ), 58, loaded, pixels ) );
}

TEST( GImageLoad, AJPEGThatClaimsTooManyPixelsIsRefusedBeforeDecoding )
{
    const GString image( 16 * 16 * 3, 'x' );
    GString jpeg, pixels;
    GImageConvert( { GIT_RGB24, 16, 16 }, image.data( ), { 0, 0, 16, 16 }, GIT_JPEG, jpeg );
    // Behind the mark of the frame: u16 length, u8 precision, u16 height and width, the higher bytes first. What is missing of the
    // pixels would be filled up.
    const size_t frame = jpeg.find( "\xFF\xC0" );
    ASSERT_NE( frame, GString::npos );
    const auto setSize = [&]( int edge )
    {
        for( const size_t at : { frame + 5, frame + 7 } )
        {
            jpeg[at] = static_cast<char>( edge >> 8 );
            jpeg[at + 1] = static_cast<char>( edge );
        }
    };
    GImageFormat loaded;
    setSize( 100 );
    EXPECT_TRUE( GImageLoad( jpeg.data( ), static_cast<int>( jpeg.size( ) ), loaded, pixels ) );
    EXPECT_EQ( loaded, ( GImageFormat{ GIT_RGB24, 100, 100 } ) );
    TestLog::expect( "WARNING Unable to load image, ignoring." );
    setSize( 8193 );
    EXPECT_FALSE( GImageLoad( jpeg.data( ), static_cast<int>( jpeg.size( ) ), loaded, pixels ) );
}

TEST( GImageLoad, OnlyFourFormatsAreLetThrough )
{
    TestLog::expect( "WARNING Unrecognized format, ignoring." );
    // An icon, XPM text, a portable pixmap, a little-endian TIFF and an empty file.
    const GString files[] = { GString( "\0\0\1\0\1\0\1\1\0\0\1\0\x20\0\x30\0\0\0\x16\0\0\0", 22 ) + GString( 64, 0 ),
                              "/* XPM */\nstatic char *x[] = { \"1 1 1 1\", \"a c #000000\", \"a\" };",
                              "P6 1 1 255\nabc", GString( "II*\0\x08\0\0\0\0\0", 10 ), "" };
    GImageFormat loaded;
    GString pixels;
    for( const GString& file : files )
        EXPECT_FALSE( GImageLoad( file.data( ), static_cast<int>( file.size( ) ), loaded, pixels ) );
    EXPECT_EQ( TestLog::count( "WARNING Unrecognized format, ignoring." ), 5 );
}

TEST( GImageLoad, RubbishIsReportedAndIgnored )
{
    TestLog::expect( "WARNING Unrecognized format, ignoring." );
    GImageFormat loaded;
    GString pixels;
    EXPECT_FALSE( GImageLoad( "no picture at all", 17, loaded, pixels ) );
}

TEST( GImageLoad, TruncatedFileIsReportedAndIgnored )
{
    TestLog::expect( "WARNING Unable to load image, ignoring." );
    GImageFormat loaded;
    GString pixels;
    EXPECT_FALSE( GImageLoad( reinterpret_cast<const char*>( ONE_BIT_PNG ), 30, loaded, pixels ) );
}

TEST( GColor, ReadsSixAndEightDigits )
{
    EXPECT_EQ( GColorFromText( u"#FF8000" ), 0xFFFF8000U );
    EXPECT_EQ( GColorFromText( u"#11223380" ), 0x80112233U );
    EXPECT_EQ( GColorFromText( u"880000" ), 0xFF880000U );
    EXPECT_EQ( GColorFromText( u"#c1d2ee" ), 0xFFC1D2EEU );
    EXPECT_EQ( GColorFromText( u"", 5 ), 5U );
    EXPECT_EQ( GColorFromText( u"#12345G", 6 ), 6U );
}

TEST( GColor, PremultipliesByItsAlpha )
{
    EXPECT_EQ( GColorPremultiply( 0xFF102030 ), 0xFF102030U );
    EXPECT_EQ( GColorPremultiply( 0x00102030 ), 0U );
    EXPECT_EQ( GColorPremultiply( 0x80FF00FF ), 0x80800080U );
}

TEST( GImageLoad, AGifLoadsAndOneWithAHugePictureIsRefused )
{
    const GString good = gif( 1, 1 );
    GImageFormat format;
    GString pixels;
    ASSERT_TRUE( GImageLoad( good.data( ), static_cast<int>( good.size( ) ), format, pixels ) );
    EXPECT_EQ( format, ( GImageFormat{ GIT_RGB24, 1, 1 } ) );
    TestLog::expect( "WARNING Unable to load image, ignoring." );
    for( const GString& bad : { gif( 41461, 48367 ), gif( 0, 1 ), good.substr( 0, 30 ), good.substr( 0, 15 ) } )
        EXPECT_FALSE( GImageLoad( bad.data( ), static_cast<int>( bad.size( ) ), format, pixels ) );
}
