// The picture codec to the letter: its parameters, its codebook, and what it does with bytes that are none of its own.
#include "base/GBytes.h"
#include "client/media/GOggPacket.h"
#include "client/media/GTheoraDecoder.h"
#include "client/media/GTheoraEncoder.h"
#include "image/GImage.h"

#include "MediaFixture.h"
#include "support/CountAllocations.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace
{
constexpr int EDGE = 48;
constexpr int HEADER = 28; // Of a serialized packet.
const char* const PRINT = "VELMORA_PRINT_CODEBOOK";

GString codebook( int width = EDGE, int height = EDGE )
{
    GString out;
    GTheoraEncoder_generateCodebook( width, height, out );
    return out;
}
std::unique_ptr<GTheoraDecoder> decoderOf( const GString& book )
{
    return std::unique_ptr<GTheoraDecoder>(
        GSAFENEW( GTheoraDecoder, ( book.data( ), static_cast<int>( book.size( ) ) ) ) );
}
std::unique_ptr<GTheoraEncoder> encoderOf( const GImageFormat& format, const GRect& crop, int edge = EDGE )
{
    return std::unique_ptr<GTheoraEncoder>( GSAFENEW( GTheoraEncoder, ( format, crop, edge, edge, 5 ) ) );
}
std::unique_ptr<GTheoraEncoder> plainEncoder( )
{
    return encoderOf( { GIT_RGB24, EDGE, EDGE }, { 0, 0, EDGE, EDGE } );
}
GString encode( GTheoraEncoder& encoder, const GString& pixels )
{
    GString packet;
    encoder.encode( pixels.data( ), static_cast<int>( pixels.size( ) ), packet );
    return packet;
}
bool decode( GTheoraDecoder& decoder, const GString& packet, GString& pixels )
{
    GImageFormat format;
    const bool came = decoder.decode( packet.data( ), static_cast<int>( packet.size( ) ), format, pixels );
    EXPECT_TRUE( !came || static_cast<size_t>( GImageSize( format ) ) == pixels.size( ) );
    return came;
}
GString emptyFrame( )
{
    GString out;
    GSerialize( ogg_packet( ), out );
    return out;
}
int meanOf( const GString& pixels )
{
    int64_t sum = 0;
    for( const char value : pixels ) sum += static_cast<uint8_t>( value );
    return static_cast<int>( sum / static_cast<int64_t>( pixels.size( ) ) );
}
} // namespace

class CodecsTheora : public MediaFixture
{
};
using CodecsTheoraDeathTest = CodecsTheora;

// ---- Packets as bytes.

TEST_F( CodecsTheora, OggPacketLiesInItsFieldsLittleEndian )
{
    unsigned char data[] = { 0xAA, 0xBB };
    const ogg_packet packet = { data, 2, 0x01020304, 0x05060708, 0x1112131415161718, 0x2122232425262728 };
    GString bytes = "before";
    GSerialize( packet, bytes );
    EXPECT_EQ( GString( "before" ) + GString( "\x04\x03\x02\x01\x08\x07\x06\x05", 8 ) +
                   "\x18\x17\x16\x15\x14\x13\x12\x11\x28\x27\x26\x25\x24\x23\x22\x21" +
                   GString( "\x02\0\0\0\xAA\xBB", 6 ),
               bytes );
}

TEST_F( CodecsTheora, OggPacketIsReadEqualAndInPlace )
{
    unsigned char data[] = { 1, 2, 3 };
    for( const long bytes : { 0L, 3L } )
    {
        const ogg_packet packet = { bytes ? data : nullptr, bytes, -1, 1, -1, INT64_MAX };
        GString buffer;
        GSerialize( packet, buffer );
        buffer += "behind";
        ogg_packet read;
        const int length = HEADER + static_cast<int>( bytes );
        EXPECT_EQ( length, GDeserialize( buffer.data( ), static_cast<int>( buffer.size( ) ), read ) );
        EXPECT_EQ( std::tuple( packet.bytes, packet.b_o_s, packet.e_o_s, packet.granulepos, packet.packetno ),
                   std::tuple( read.bytes, read.b_o_s, read.e_o_s, read.granulepos, read.packetno ) );
        EXPECT_EQ( bytes ? buffer.data( ) + HEADER : nullptr, reinterpret_cast<char*>( read.packet ) );
    }
}

TEST_F( CodecsTheora, OggPacketOfMoreBytesThanThereAreIsRefused )
{
    for( const uint32_t told : { 1U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU } )
    {
        GString buffer = emptyFrame( );
        GWriteU32( buffer.data( ) + 24, told );
        ogg_packet read;
        EXPECT_EQ( 0, GDeserialize( buffer.data( ), HEADER, read ) ) << told;
        EXPECT_EQ( nullptr, read.packet );
    }
}

// ---- Parameters and codebook.

TEST_F( CodecsTheora, EncoderHasItsParameters )
{
    theora_info info;
    GTheoraEncoder_fillInfo( info, 48, 64 );
    EXPECT_EQ( std::pair( 48U, 48U ), std::pair( info.width, info.frame_width ) );
    EXPECT_EQ( std::pair( 64U, 64U ), std::pair( info.height, info.frame_height ) );
    EXPECT_EQ( std::pair( 0U, 0U ), std::pair( info.offset_x, info.offset_y ) );
    EXPECT_EQ( std::pair( 1U, 1U ), std::pair( info.fps_numerator, info.fps_denominator ) );
    EXPECT_EQ( std::pair( 0U, 0U ), std::pair( info.aspect_numerator, info.aspect_denominator ) );
    EXPECT_EQ( 0, static_cast<int>( info.colorspace ) );
    EXPECT_EQ( 45000, info.target_bitrate );
    EXPECT_EQ( 0, info.quality );
    EXPECT_EQ( 1, info.quick_p );
    EXPECT_EQ( 0, info.dropframes_p );
    EXPECT_EQ( 1, info.keyframe_auto_p );
    EXPECT_EQ( 64U, info.keyframe_frequency );
    EXPECT_EQ( 64U, info.keyframe_frequency_force );
    EXPECT_EQ( 67500U, info.keyframe_data_target_bitrate );
    EXPECT_EQ( 80, info.keyframe_auto_threshold );
    EXPECT_EQ( 8U, info.keyframe_mindistance );
    EXPECT_EQ( 2, info.noise_sensitivity );
    theora_info_clear( &info );
}

TEST_F( CodecsTheora, CodebookIsHeaderCommentAndTables )
{
    const GString book = codebook( 48, 64 );
    theora_info info;
    theora_comment comment;
    theora_info_init( &info );
    theora_comment_init( &comment );
    int at = 0;
    for( const uint8_t type : { 0x80, 0x81, 0x82 } )
    {
        ogg_packet packet;
        const int taken = GDeserialize( book.data( ) + at, static_cast<int>( book.size( ) ) - at, packet );
        ASSERT_GT( taken, HEADER );
        EXPECT_EQ( type, packet.packet[0] );
        EXPECT_EQ( 0, theora_decode_header( &info, &comment, &packet ) );
        at += taken;
    }
    EXPECT_EQ( book.size( ), static_cast<size_t>( at ) );
    EXPECT_EQ( std::tuple( 48U, 48U, 64U, 64U ),
               std::tuple( info.width, info.frame_width, info.height, info.frame_height ) );
    EXPECT_EQ( std::tuple( 1U, 1U, 0U, 0U ),
               std::tuple( info.fps_numerator, info.fps_denominator, info.aspect_numerator, info.aspect_denominator ) );
    EXPECT_EQ( std::tuple( 45000, 0, 64U ),
               std::tuple( info.target_bitrate, info.quality, info.keyframe_frequency_force ) );
    theora_comment_clear( &comment );
    theora_info_clear( &info );
}

// What the test below starts: a process of its own that writes the codebook to the file named.
TEST_F( CodecsTheora, CodebookOfThisProcess )
{
    const GString book = codebook( 64, 48 );
    EXPECT_FALSE( book.empty( ) );
    if( const char* file = std::getenv( PRINT ) ) std::ofstream( file, std::ios::binary ) << book;
}

TEST_F( CodecsTheora, CodebooksOfTwoProcessesAreEqualByteForByte )
{
    const GString program = std::filesystem::read_symlink( "/proc/self/exe" );
    const GString file = "codebook-of-another-process";
    const GString other = GString( PRINT ) + "=" + file + " '" + program +
                          "' --gtest_filter=CodecsTheora.CodebookOfThisProcess >/dev/null 2>&1";
    EXPECT_EQ( 0, std::system( other.c_str( ) ) );
    std::ifstream stream( file, std::ios::binary );
    const GString book( std::istreambuf_iterator<char>( stream ), { } );
    EXPECT_EQ( codebook( 64, 48 ), book );
    std::remove( file.c_str( ) );
}

TEST_F( CodecsTheoraDeathTest, EdgesMustBeMultiplesOf16 )
{
    GString out;
    EXPECT_DEATH( GTheoraEncoder_generateCodebook( 40, 48, out ), "!\\(width % 16\\)" );
    EXPECT_DEATH( GTheoraEncoder_generateCodebook( 48, 40, out ), "!\\(height % 16\\)" );
    EXPECT_DEATH( GTheoraEncoder_generateCodebook( 48, 0, out ), "width && height" );
    EXPECT_DEATH( encoderOf( { GIT_RGB24, 48, 48 }, { 0, 0, 48, 48 }, 56 ),
                  "!\\(_outputWidth% 16\\) && !\\(_outputHeight% 16\\)" );
    GTheoraEncoder_generateCodebook( 48, 48, out );
}

TEST_F( CodecsTheoraDeathTest, MissingBytesAbort )
{
    GString packet;
    EXPECT_DEATH( plainEncoder( )->encode( nullptr, 0, packet ), "sampleBuffer && length >= 0" );
    EXPECT_DEATH( plainEncoder( )->encode( "", -1, packet ), "sampleBuffer && length >= 0" );
    EXPECT_DEATH( GSAFENEW( GTheoraDecoder, ( nullptr, 0 ) ), "headerPacketBuffer && headerPacketLength >= 0" );
    EXPECT_DEATH( GSAFENEW( GTheoraDecoder, ( "", -1 ) ), "headerPacketBuffer && headerPacketLength >= 0" );
    GImageFormat format;
    EXPECT_DEATH( decoderOf( codebook( ) )->decode( "", -1, format, packet ), "packetBuffer && packetLength >= 0" );
}

// ---- Encoding.

TEST_F( CodecsTheora, StillPictureHasAKeyFrameEvery64Frames )
{
    const auto encoder = plainEncoder( );
    for( int frame = 0; frame < 130; ++frame )
    {
        const GString packet = encode( *encoder, picture( EDGE, EDGE, 1 ) );
        ogg_packet read;
        ASSERT_TRUE( GDeserialize( packet.data( ), static_cast<int>( packet.size( ) ), read ) );
        EXPECT_EQ( frame % 64 == 0, read.bytes > 0 && theora_packet_iskeyframe( &read ) == 1 ) << frame;
    }
}

TEST_F( CodecsTheora, OnlyTheCropIsSeen )
{
    for( const int type : { GIT_RGB24, GIT_YUY2 } )
        for( const int edge : { 48, 64, 100, 480 } )
        {
            // Bright inside the crop, dark outside.
            const GImageFormat format = { type, 640, 480 };
            const int bytes = type == GIT_RGB24 ? 3 : 2;
            GString source( static_cast<size_t>( 640 * 480 * bytes ), type == GIT_RGB24 ? '\x20' : '\x80' );
            const GRect crop = { 80, 0, 80 + edge, edge };
            for( int y = 0; y < 480; ++y )
                for( int x = 0; x < 640 * bytes; ++x )
                    if( type == GIT_RGB24 || x % 2 == 0 )
                        source[static_cast<size_t>( y * 640 * bytes + x )] =
                            crop.contains( x / bytes, y ) ? '\xE0' : '\x20';
            const auto encoder = encoderOf( format, crop );
            GString pixels;
            ASSERT_TRUE( decode( *decoderOf( codebook( ) ), encode( *encoder, source ), pixels ) );
            EXPECT_NEAR( type == GIT_RGB24 ? 0xE0 : 243, meanOf( pixels ), 4 ) << type << " " << edge;
        }
}

TEST_F( CodecsTheora, ColoursStayInTheirPlaces )
{
    // Red above on the left and below on the right, blue elsewhere.
    const auto isRed = []( int x, int y ) { return ( x < EDGE / 2 ) == ( y < EDGE / 2 ); };
    GString source;
    for( int y = 0; y < EDGE; ++y )
        for( int x = 0; x < EDGE; ++x ) source += isRed( x, y ) ? GString( "\xE0\x10\x10" ) : GString( "\x10\x10\xE0" );
    GString pixels;
    ASSERT_TRUE( decode( *decoderOf( codebook( ) ), encode( *plainEncoder( ), source ), pixels ) );
    for( const int y : { 2, 14, 34, 45 } )
        for( const int x : { 2, 14, 34, 45 } )
        {
            const size_t at = static_cast<size_t>( ( y * EDGE + x ) * 3 );
            const int lead = static_cast<uint8_t>( pixels[at] ) - static_cast<uint8_t>( pixels[at + 2] );
            EXPECT_GT( isRed( x, y ) ? lead : -lead, 100 ) << x << "," << y;
        }
}

TEST_F( CodecsTheora, OutputSizeIsTold )
{
    const auto encoder = std::unique_ptr<GTheoraEncoder>(
        GSAFENEW( GTheoraEncoder, ( { GIT_RGB24, EDGE, EDGE }, { 0, 0, EDGE, EDGE }, 64, 32, 5 ) ) );
    EXPECT_EQ( 64, encoder->getOutputWidth( ) );
    EXPECT_EQ( 32, encoder->getOutputHeight( ) );
    GString pixels;
    GImageFormat format;
    const GString packet = encode( *encoder, picture( EDGE, EDGE, 1 ) );
    EXPECT_TRUE(
        decoderOf( codebook( 64, 32 ) )->decode( packet.data( ), static_cast<int>( packet.size( ) ), format, pixels ) );
    EXPECT_EQ( ( GImageFormat{ GIT_RGB24, 64, 32 } ), format );
}

TEST_F( CodecsTheora, SourceShorterThanItsFormatGivesNoPacket )
{
    TestLog::expect( "WARNING Frame of 6911 bytes is too short, ignoring." );
    EXPECT_TRUE( encode( *plainEncoder( ), picture( EDGE, EDGE, 1 ).substr( 1 ) ).empty( ) );
}

TEST_F( CodecsTheora, CategoryETellsOfEachFrameAndTriesIt )
{
    const auto encoder = plainEncoder( );
    encode( *encoder, picture( EDGE, EDGE, 1 ) );
    EXPECT_FALSE( TestLog::contains( "GTheoraEncoder::encode" ) );
    GLogSetFilter( "E" );
    for( int frame = 0; frame < 70; ++frame ) encode( *encoder, picture( EDGE, EDGE, 1 ) );
    GLogSetFilter( "" );
    EXPECT_EQ( 70, TestLog::count( "GTheoraEncoder::encode( sampleBuffer=..., length=6912, packetBuffer=... )" ) );
}

TEST_F( CodecsTheora, FramesTakeNothingFromTheHeap )
{
    const auto encoder = encoderOf( { GIT_YUY2, 160, 120 }, { 20, 0, 140, 120 } );
    const auto theora = decoderOf( codebook( ) );
    const GString source( 160 * 120 * 2, '\x60' );
    GString packet, pixels;
    GImageFormat format;
    const auto frame = [&]
    {
        encoder->encode( source.data( ), static_cast<int>( source.size( ) ), packet );
        theora->decode( packet.data( ), static_cast<int>( packet.size( ) ), format, pixels );
    };
    for( int i = 0; i < 3; ++i ) frame( );
    EXPECT_EQ( 0, countAllocations( frame ) );
}

// ---- Decoding what strangers send.

TEST_F( CodecsTheora, EmptyFrameRepeatsThePictureAndIsNoneBeforeTheFirst )
{
    const auto theora = decoderOf( codebook( ) );
    GString pixels = "untouched";
    EXPECT_FALSE( decode( *theora, emptyFrame( ), pixels ) );
    EXPECT_EQ( "untouched", pixels );
    GString first, again;
    ASSERT_TRUE( decode( *theora, encode( *plainEncoder( ), picture( EDGE, EDGE, 1 ) ), first ) );
    ASSERT_TRUE( decode( *theora, emptyFrame( ), again ) );
    EXPECT_EQ( first, again );
}

TEST_F( CodecsTheora, CutFramesAreDroppedAndTheNextOneShows )
{
    TestLog::expect(
        "WARNING Malformed Theora frame, ignoring. (GDeserialize( packetBuffer, packetLength, framePacket ))" );
    const auto encoder = plainEncoder( );
    const GString packet = encode( *encoder, picture( EDGE, EDGE, 1 ) );
    const auto theora = decoderOf( codebook( ) );
    GString pixels;
    for( size_t length = 0; length < packet.size( ); ++length )
        EXPECT_FALSE( decode( *theora, packet.substr( 0, length ), pixels ) );
    EXPECT_EQ( static_cast<int>( packet.size( ) ), TestLog::count( "Malformed Theora frame" ) );
    EXPECT_TRUE( decode( *theora, packet, pixels ) );
}

TEST_F( CodecsTheora, FrameThatIsAHeaderIsDropped )
{
    TestLog::expect( "WARNING Undecodable Theora frame (-24), ignoring." );
    GString pixels = "untouched";
    EXPECT_FALSE( decode( *decoderOf( codebook( ) ), codebook( ), pixels ) );
    EXPECT_EQ( "untouched", pixels );
}

TEST_F( CodecsTheora, CodebooksOfAbsurdSizesAndPlanesBuildNothing )
{
    TestLog::expect( "WARNING Invalid Theora codebook, ignoring." );
    // The header's size in macro blocks, and the kind of its planes.
    const auto changed = []( int at, std::initializer_list<uint8_t> bytes )
    {
        GString book = codebook( );
        for( const uint8_t byte : bytes ) book[static_cast<size_t>( HEADER + at++ )] = static_cast<char>( byte );
        return book;
    };
    const auto edges = [&]( uint8_t high, uint8_t low, int at ) { return changed( at, { high, low } ); };
    EXPECT_TRUE( decoderOf( edges( 0, 64, 10 ) )->isValid( ) );
    for( const int at : { 10, 12 } )
    {
        EXPECT_FALSE( decoderOf( edges( 0, 65, at ) )->isValid( ) );
        EXPECT_FALSE( decoderOf( edges( 0xFF, 0xFF, at ) )->isValid( ) );
        EXPECT_FALSE( decoderOf( edges( 0, 0, at ) )->isValid( ) );
    }
    // What came of them decodes nothing.
    TestLog::expect( "WARNING Malformed Theora frame" );
    GString pixels;
    EXPECT_FALSE(
        decode( *decoderOf( edges( 0, 65, 10 ) ), encode( *plainEncoder( ), picture( EDGE, EDGE, 1 ) ), pixels ) );
    const uint8_t last = static_cast<uint8_t>( codebook( )[HEADER + 41] );
    EXPECT_FALSE( decoderOf( changed( 41, { static_cast<uint8_t>( last | 0x10 ) } ) )->isValid( ) );
    EXPECT_FALSE( decoderOf( changed( 41, { static_cast<uint8_t>( last | 0x18 ) } ) )->isValid( ) );
    EXPECT_TRUE( decoderOf( changed( 41, { last } ) )->isValid( ) );
}
