// The speech codec to the letter, and what it does with bytes that are none of its own.
#include "base/GBytes.h"
#include "client/media/GSpeexDecoder.h"
#include "client/media/GSpeexEncoder.h"

#include "MediaFixture.h"
#include "support/CountAllocations.h"

namespace
{
constexpr int FRAME = 320; // Bytes of a codec frame.

std::unique_ptr<GSpeexEncoder> encoderOf( int rate )
{
    return std::unique_ptr<GSpeexEncoder>(
        GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( static_cast<uint32_t>( rate ) ) ) ) );
}
std::unique_ptr<GSpeexDecoder> decoderOf( int rate )
{
    GString book;
    GSpeexEncoder_generateCodebook( book, rate );
    return std::unique_ptr<GSpeexDecoder>(
        GSAFENEW( GSpeexDecoder, ( book.data( ), static_cast<int>( book.size( ) ) ) ) );
}
GString encode( GSpeexEncoder& encoder, const GString& samples )
{
    GString packet;
    encoder.encode( samples.data( ), static_cast<int>( samples.size( ) ), packet );
    return packet;
}
bool decode( GSpeexDecoder& decoder, const GString& packet, GString& samples )
{
    return decoder.decode( packet.data( ), static_cast<int>( packet.size( ) ), samples );
}
// The bytes behind a length that fits them.
GString packetOf( const GString& bits )
{
    GString out( 4, '\0' );
    GWriteU32( out.data( ), static_cast<uint32_t>( bits.size( ) ) );
    return out + bits;
}
} // namespace

class CodecsSpeex : public MediaFixture
{
};
using CodecsSpeexDeathTest = CodecsSpeex;

TEST_F( CodecsSpeex, CodebookIsTheRateInFourBytes )
{
    GString book = "what was there";
    GSpeexEncoder_generateCodebook( book, 22050 );
    EXPECT_EQ( GString( "\x22\x56\0\0", 4 ), book );
}

TEST_F( CodecsSpeex, WaveFormatIsThatOfTheCodebook )
{
    const GWaveFormat format = decoderOf( 16000 )->getWaveFormat( );
    EXPECT_EQ( 1, format.wFormatTag );
    EXPECT_EQ( 1, format.nChannels );
    EXPECT_EQ( 16000U, format.nSamplesPerSec );
    EXPECT_EQ( 32000U, format.nAvgBytesPerSec );
    EXPECT_EQ( 2, format.nBlockAlign );
    EXPECT_EQ( 16, format.wBitsPerSample );
    EXPECT_EQ( 0, format.cbSize );
}

TEST_F( CodecsSpeex, PacketIsItsLengthAndTheFramesBehindWhatIsThere )
{
    GString packet = "before";
    encoderOf( 8000 )->encode( tone( 480 ).data( ), 3 * FRAME, packet );
    ASSERT_GT( packet.size( ), 10U );
    EXPECT_EQ( "before", packet.substr( 0, 6 ) );
    EXPECT_EQ( packet.size( ) - 10, GReadU32( packet.data( ) + 6 ) );
    GString samples = "old";
    EXPECT_TRUE( decode( *decoderOf( 8000 ), packet.substr( 6 ), samples ) );
    EXPECT_EQ( static_cast<size_t>( 3 * FRAME ), samples.size( ) );
}

TEST_F( CodecsSpeex, TwoFramesAreTheLeastOfAPacket )
{
    TestLog::expect( "WARNING Speex packet holds 1 frames, ignoring. (frameCount > 1)" );
    const auto encoder = encoderOf( 8000 );
    const auto decoder = decoderOf( 8000 );
    GString samples = "old";
    EXPECT_FALSE( decode( *decoder, encode( *encoder, tone( 160 ) ), samples ) );
    EXPECT_EQ( "", samples );
    EXPECT_TRUE( decode( *decoder, encode( *encoder, tone( 320 ) ), samples ) );
    EXPECT_EQ( static_cast<size_t>( 2 * FRAME ), samples.size( ) );
}

TEST_F( CodecsSpeex, LengthMustBeThatOfTheRest )
{
    TestLog::expect( "numSpeexBytes == sampleBufferSize" );
    const GString good = encode( *encoderOf( 8000 ), tone( 320 ) );
    const auto decoder = decoderOf( 8000 );
    GString samples;
    for( const uint32_t told : { 0U, 1U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU } )
    {
        GString packet = good;
        GWriteU32( packet.data( ), told );
        EXPECT_FALSE( decode( *decoder, packet, samples ) ) << told;
    }
    for( size_t length = 1; length < good.size( ); ++length )
        EXPECT_FALSE( decode( *decoder, good.substr( 0, length ), samples ) ) << length;
    EXPECT_FALSE( decode( *decoder, good + "x", samples ) );
    // A length of -1, told by a packet too short for any.
    EXPECT_FALSE( decoder->decode( "\xFF\xFF\xFF\xFF", 3, samples ) );
    EXPECT_TRUE( decode( *decoder, good, samples ) );
}

TEST_F( CodecsSpeex, PacketOfNoBitsIsDropped )
{
    TestLog::expect( "WARNING Speex packet holds 0 frames, ignoring. (frameCount > 1)" );
    GString samples;
    EXPECT_FALSE( decode( *decoderOf( 8000 ), packetOf( "" ), samples ) );
}

TEST_F( CodecsSpeex, BitsThatTheCodecRefusesEndThePacketWithOneWarning )
{
    TestLog::expect( "WARNING Error #-2 reported by speex_decode( )." );
    const auto decoder = decoderOf( 8000 );
    GString samples = "old";
    // A mode that there is none of, many times over.
    EXPECT_FALSE( decode( *decoder, packetOf( GString( 60000, '\x4A' ) ), samples ) );
    EXPECT_EQ( "", samples );
    EXPECT_EQ( 1, TestLog::count( "WARNING" ) );
    EXPECT_TRUE( decode( *decoder, encode( *encoderOf( 8000 ), tone( 320 ) ), samples ) );
}

TEST_F( CodecsSpeex, PacketOfMoreFramesThanAnyEncoderSendsIsDropped )
{
    TestLog::expect( "WARNING Speex packet holds 257 frames, ignoring." );
    const auto decoder = decoderOf( 8000 );
    // Five bits of zero are a frame of silence.
    GString samples;
    EXPECT_TRUE( decode( *decoder, packetOf( GString( 160, '\0' ) ), samples ) );
    EXPECT_EQ( static_cast<size_t>( 256 * FRAME ), samples.size( ) );
    EXPECT_FALSE( decode( *decoder, packetOf( GString( 161, '\0' ) ), samples ) );
    EXPECT_FALSE( decode( *decoder, packetOf( GString( 60000, '\0' ) ), samples ) );
    EXPECT_EQ( "", samples );
}

TEST_F( CodecsSpeex, OvershootIsHeldToTheRangeAndNeverTurnsOver )
{
    // The codec answers a square wave of full scale with more than that.
    const auto encoder = encoderOf( 8000 );
    const auto decoder = decoderOf( 8000 );
    GString square;
    for( int i = 0; i < 1600; ++i ) square += i / 40 % 2 ? GString( "\x01\x80", 2 ) : GString( "\xFF\x7F", 2 );
    GString samples;
    for( int packet = 0; packet < 4; ++packet ) ASSERT_TRUE( decode( *decoder, encode( *encoder, square ), samples ) );
    int highest = 0, lowest = 0, leaps = 0, before = 0;
    for( size_t i = 0; i < samples.size( ); i += 2 )
    {
        const int value = static_cast<int16_t>( GReadU16( samples.data( ) + i ) );
        highest = std::max( highest, value );
        lowest = std::min( lowest, value );
        leaps += std::abs( value - before ) > 60000;
        before = value;
    }
    EXPECT_EQ( 32767, highest );
    EXPECT_EQ( -32768, lowest );
    EXPECT_EQ( 0, leaps );
}

TEST_F( CodecsSpeex, DecodersShareABufferWithoutMixing )
{
    const GString packet = encode( *encoderOf( 8000 ), tone( 1120 ) );
    const GString silence = packetOf( GString( 160, '\0' ) );
    GString alone, beside, other;
    decode( *decoderOf( 8000 ), packet, alone );
    const auto one = decoderOf( 8000 ), two = decoderOf( 48000 );
    decode( *two, silence, other );
    decode( *one, packet, beside );
    EXPECT_EQ( alone, beside );
}

TEST_F( CodecsSpeex, PacketsTakeNothingFromTheHeap )
{
    const auto encoder = encoderOf( 22000 );
    const auto decoder = decoderOf( 22000 );
    const GString samples = tone( 1120 );
    GString packet, out;
    const auto packetAndBack = [&]
    {
        packet.clear( );
        encoder->encode( samples.data( ), static_cast<int>( samples.size( ) ), packet );
        decode( *decoder, packet, out );
    };
    for( int i = 0; i < 3; ++i ) packetAndBack( );
    EXPECT_EQ( 0, countAllocations( packetAndBack ) );
}

TEST_F( CodecsSpeexDeathTest, EncoderTakesOnlyWholeFramesOf16Bits )
{
    GString packet;
    EXPECT_DEATH( encoderOf( 8000 )->encode( tone( 161 ).data( ), 322, packet ),
                  "!\\( \\(int\\)fromSamplesFloat.size\\( \\) % _frameSize \\)" );
    GWaveFormat format = GWaveFormatMono16( 8000 );
    format.wBitsPerSample = 8;
    const std::unique_ptr<GSpeexEncoder> narrow( GSAFENEW( GSpeexEncoder, ( format ) ) );
    EXPECT_DEATH( narrow->encode( "", 0, packet ), "ERROR Attempting to encode unsupported bpp8, aborting." );
}

TEST_F( CodecsSpeexDeathTest, MissingBytesAbort )
{
    GString out;
    EXPECT_DEATH( GSpeexEncoder_generateCodebook( out, 0 ), "sampleRate" );
    EXPECT_DEATH( decoderOf( 8000 )->decode( nullptr, 1, out ), "fromSpeexBytes && numSpeexBytes" );
    EXPECT_DEATH( decoderOf( 8000 )->decode( "", 0, out ), "fromSpeexBytes && numSpeexBytes" );
    EXPECT_DEATH( GSAFENEW( GSpeexDecoder, ( "123", 3 ) ), "headerPacketLength == sizeof\\(int\\)" );
}
