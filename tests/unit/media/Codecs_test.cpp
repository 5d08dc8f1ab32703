#include "client/media/GOggPacket.h"
#include "client/media/GSpeexDecoder.h"
#include "client/media/GSpeexEncoder.h"
#include "client/media/GTheoraDecoder.h"
#include "client/media/GTheoraEncoder.h"

#include "MediaFixture.h"

#include <random>

namespace
{
GString codebook( int width, int height )
{
    GString out;
    GTheoraEncoder_generateCodebook( width, height, out );
    return out;
}
std::unique_ptr<GTheoraDecoder> decoder( int edge )
{
    const GString book = codebook( edge, edge );
    return std::unique_ptr<GTheoraDecoder>(
        GSAFENEW( GTheoraDecoder, ( book.data( ), static_cast<int>( book.size( ) ) ) ) );
}
std::unique_ptr<GSpeexDecoder> speexDecoder( int rate )
{
    GString book;
    GSpeexEncoder_generateCodebook( book, rate );
    return std::unique_ptr<GSpeexDecoder>(
        GSAFENEW( GSpeexDecoder, ( book.data( ), static_cast<int>( book.size( ) ) ) ) );
}
int difference( const GString& a, const GString& b )
{
    int64_t sum = 0;
    for( size_t i = 0; i < a.size( ); ++i )
        sum += std::abs( static_cast<uint8_t>( a[i] ) - static_cast<uint8_t>( b[i] ) );
    return static_cast<int>( sum / static_cast<int64_t>( a.size( ) ) );
}
} // namespace

class Codecs : public MediaFixture
{
};
using CodecsDeathTest = Codecs;

TEST_F( Codecs, OggPacketSurvivesTheRoundTripAndIsRefusedWhenCut )
{
    unsigned char data[] = { 1, 2, 3, 4, 5 };
    ogg_packet packet = { data, 5, 1, 0, 77, 9 };
    GString bytes;
    GSerialize( packet, bytes );
    ASSERT_EQ( 33U, bytes.size( ) );
    ogg_packet read;
    for( int length = 0; length < 33; ++length ) EXPECT_EQ( 0, GDeserialize( bytes.data( ), length, read ) );
    EXPECT_EQ( 33, GDeserialize( bytes.data( ), 33, read ) );
    EXPECT_EQ( 1, read.b_o_s );
    EXPECT_EQ( 77, read.granulepos );
    EXPECT_EQ( 9, read.packetno );
    EXPECT_EQ( 5, read.bytes );
    EXPECT_EQ( 5, read.packet[4] );
}

TEST_F( Codecs, EmptyOggPacketHasNoData )
{
    ogg_packet packet = { nullptr, 0, 0, 1, 3, 4 };
    GString bytes;
    GSerialize( packet, bytes );
    ogg_packet read;
    EXPECT_EQ( 28, GDeserialize( bytes.data( ), 28, read ) );
    EXPECT_EQ( 0, read.bytes );
    EXPECT_EQ( nullptr, read.packet );
    EXPECT_EQ( 1, read.e_o_s );
}

TEST_F( Codecs, CodebooksOfEqualSizesAreEqual )
{
    EXPECT_EQ( codebook( 48, 48 ), codebook( 48, 48 ) );
    EXPECT_NE( codebook( 48, 48 ), codebook( 64, 64 ) );
}

TEST_F( CodecsDeathTest, CodebookOfAWidthThatIsNoMultipleOf16Aborts )
{
    GString out;
    EXPECT_DEATH( GTheoraEncoder_generateCodebook( 40, 48, out ), "!\\(width % 16\\)" );
}

TEST_F( CodecsDeathTest, EncoderTakesOnlyWhatItCanEncode )
{
    const auto make = []( const GImageFormat& format, const GRect& crop, int width, int height, int fps )
    { delete GSAFENEW( GTheoraEncoder, ( format, crop, width, height, fps ) ); };
    const GImageFormat format = { GIT_RGB24, 48, 48 };
    const GRect whole = { 0, 0, 48, 48 };
    EXPECT_DEATH( make( { GIT_RGB24, 0, 48 }, whole, 48, 48, 5 ), "srcImageFormat.width > 0" );
    EXPECT_DEATH( make( { GIT_RGB24, 48, 0 }, whole, 48, 48, 5 ), "srcImageFormat.height > 0" );
    EXPECT_DEATH( make( format, whole, 0, 48, 5 ), "outputWidth > 0" );
    EXPECT_DEATH( make( format, whole, 48, 0, 5 ), "outputHeight > 0" );
    EXPECT_DEATH( make( format, { 0, 0, 49, 48 }, 48, 48, 5 ), "GRectWithin\\( cropRect, srcImageFormat.width" );
    EXPECT_DEATH( make( format, whole, 48, 48, 0 ), "fps > 0" );
    EXPECT_DEATH( make( format, whole, 40, 48, 5 ), "!\\(_outputWidth% 16\\) && !\\(_outputHeight% 16\\)" );
}

TEST_F( CodecsDeathTest, MissingBytesAbort )
{
    GString out;
    GImageFormat format;
    EXPECT_DEATH( GTheoraEncoder_generateCodebook( 0, 48, out ), "width && height" );
    GString used = "used";
    EXPECT_DEATH( GTheoraEncoder_generateCodebook( 48, 48, used ), "!buffer.size\\( \\)" );
    EXPECT_DEATH( decoder( 48 )->decode( nullptr, 1, format, out ), "packetBuffer && packetLength >= 0" );
    EXPECT_DEATH( speexDecoder( 22000 )->decode( nullptr, 1, out ), "fromSpeexBytes && numSpeexBytes" );
    EXPECT_DEATH( GSAFENEW( GSpeexDecoder, ( "12345", 5 ) ), "headerPacketLength == sizeof\\(int\\)" );
}

TEST_F( Codecs, PictureComesBackAlmostTheSame )
{
    const GImageFormat format = { GIT_RGB24, 48, 48 };
    GTheoraEncoder* encoder = GSAFENEW( GTheoraEncoder, ( format, { 0, 0, 48, 48 }, 48, 48, 5 ) );
    const auto theora = decoder( 48 );
    GString packet;
    GImageFormat outFormat;
    GString pixels;
    for( int frame = 0; frame < 20; ++frame )
    {
        encoder->encode( picture( 48, 48, 3 ).data( ), 48 * 48 * 3, packet );
        ASSERT_TRUE( theora->decode( packet.data( ), static_cast<int>( packet.size( ) ), outFormat, pixels ) );
    }
    EXPECT_EQ( ( GImageFormat{ GIT_RGB24, 48, 48 } ), outFormat );
    EXPECT_LT( difference( picture( 48, 48, 3 ), pixels ), 24 );
    delete encoder;
}

TEST_F( Codecs, SourceIsCroppedAndScaledToTheOutput )
{
    const GImageFormat format = { GIT_YUY2, 160, 120 };
    GTheoraEncoder* encoder = GSAFENEW( GTheoraEncoder, ( format, { 24, 4, 136, 116 }, 48, 48, 5 ) );
    GString packet;
    const GString grey( static_cast<size_t>( 160 * 120 * 2 ), '\x80' );
    encoder->encode( grey.data( ), static_cast<int>( grey.size( ) ), packet );
    GImageFormat outFormat;
    GString pixels;
    ASSERT_TRUE( decoder( 48 )->decode( packet.data( ), static_cast<int>( packet.size( ) ), outFormat, pixels ) );
    EXPECT_EQ( 48, outFormat.width );
    EXPECT_NEAR( 130, static_cast<uint8_t>( pixels[3000] ), 12 );
    delete encoder;
}

TEST_F( Codecs, UnsupportedSourceGivesNoPacket )
{
    TestLog::expect( "WARNING unsupported format16, ignoring." );
    GTheoraEncoder* encoder = GSAFENEW( GTheoraEncoder, ( { GIT_RGBA32, 48, 48 }, { 0, 0, 48, 48 }, 48, 48, 5 ) );
    const GString pixels( 48 * 48 * 4, '\0' );
    GString packet = "old";
    encoder->encode( pixels.data( ), static_cast<int>( pixels.size( ) ), packet );
    EXPECT_TRUE( packet.empty( ) );
    delete encoder;
}

TEST_F( Codecs, BrokenCodebookLeavesTheDecoderInvalid )
{
    TestLog::expect( "WARNING Invalid Theora codebook, ignoring." );
    TestLog::allow( "WARNING Malformed Theora frame, ignoring." );
    const GString book = codebook( 48, 48 );
    for( size_t length = 0; length < book.size( ); length += 97 )
    {
        const auto broken =
            std::unique_ptr<GTheoraDecoder>( GSAFENEW( GTheoraDecoder, ( book.data( ), static_cast<int>( length ) ) ) );
        EXPECT_FALSE( broken->isValid( ) );
        GImageFormat format;
        GString pixels;
        EXPECT_FALSE( broken->decode( "frame", 5, format, pixels ) );
    }
}

TEST_F( Codecs, MutatedTheoraFramesAreDroppedOrDecoded )
{
    TestLog::allow( "WARNING Undecodable Theora frame" );
    TestLog::allow( "WARNING Malformed Theora frame" );
    GTheoraEncoder* encoder = GSAFENEW( GTheoraEncoder, ( { GIT_RGB24, 48, 48 }, { 0, 0, 48, 48 }, 48, 48, 5 ) );
    const auto theora = decoder( 48 );
    std::mt19937 random( 7 );
    GImageFormat format;
    GString pixels;
    for( int i = 0; i < 400; ++i )
    {
        GString packet;
        encoder->encode( picture( 48, 48, i ).data( ), 48 * 48 * 3, packet );
        for( int hit = 0; hit < 4; ++hit ) packet[random( ) % packet.size( )] = static_cast<char>( random( ) );
        theora->decode( packet.data( ), static_cast<int>( random( ) % ( packet.size( ) + 1 ) ), format, pixels );
    }
    delete encoder;
}

TEST_F( Codecs, SpeechComesBackAsLong )
{
    GSpeexEncoder* encoder = GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( 22000 ) ) );
    EXPECT_EQ( 320, encoder->getFrameSize( ) );
    GString packet;
    encoder->encode( tone( 1120 ).data( ), 2240, packet );
    EXPECT_LT( packet.size( ), 400U );
    GString samples;
    const auto speex = speexDecoder( 22000 );
    ASSERT_TRUE( speex->decode( packet.data( ), static_cast<int>( packet.size( ) ), samples ) );
    EXPECT_EQ( 2240U, samples.size( ) );
    EXPECT_EQ( GWaveFormatMono16( 22000 ), speex->getWaveFormat( ) );
    EXPECT_EQ( 44000U, speex->getWaveFormat( ).nAvgBytesPerSec );
    delete encoder;
}

TEST_F( Codecs, SpeexPacketWithTrailingBytesIsDropped )
{
    TestLog::expect( "numSpeexBytes == sampleBufferSize" );
    GSpeexEncoder* encoder = GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( 22000 ) ) );
    GString packet;
    encoder->encode( tone( 1120 ).data( ), 2240, packet );
    packet += 'x';
    GString samples;
    EXPECT_FALSE( speexDecoder( 22000 )->decode( packet.data( ), static_cast<int>( packet.size( ) ), samples ) );
    delete encoder;
}

TEST_F( Codecs, SpeexPacketOfOneFrameIsDropped )
{
    TestLog::expect( "frameCount > 1" );
    GSpeexEncoder* encoder = GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( 8000 ) ) );
    GString packet;
    encoder->encode( tone( 160 ).data( ), 320, packet );
    GString samples;
    EXPECT_FALSE( speexDecoder( 8000 )->decode( packet.data( ), static_cast<int>( packet.size( ) ), samples ) );
    delete encoder;
}

TEST_F( Codecs, MutatedSpeexPacketsAreDroppedOrDecoded )
{
    TestLog::allow( "WARNING" );
    GSpeexEncoder* encoder = GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( 22000 ) ) );
    const auto speex = speexDecoder( 22000 );
    std::mt19937 random( 11 );
    for( int i = 0; i < 1000; ++i )
    {
        GString packet;
        encoder->encode( tone( 1120 ).data( ), 2240, packet );
        for( int hit = 0; hit < 6; ++hit )
            packet[4 + random( ) % ( packet.size( ) - 4 )] = static_cast<char>( random( ) );
        GString samples;
        speex->decode( packet.data( ), static_cast<int>( packet.size( ) ), samples );
        EXPECT_LE( samples.size( ), 256U * 320U );
    }
    delete encoder;
}

TEST_F( CodecsDeathTest, SpeexCodebookOfRateZeroAborts )
{
    GString out;
    EXPECT_DEATH( GSpeexEncoder_generateCodebook( out, 0 ), "sampleRate" );
}
