#include "client/transport/GRTP.h"

#include "base/GBytes.h"

#include <gtest/gtest.h>

namespace
{
GString packet( int size, int payloadType )
{
    GString out( static_cast<size_t>( size ), '\0' );
    GComposeRTP( out.data( ), payloadType, 0x1234, 0x89ABCDEF, 0x01020304 );
    return out;
}
GString filePacket( int size, int type )
{
    GString out = packet( size, GRTP_FILE );
    GComposeFT( out.data( ), 0xCAFE0001, type );
    return out;
}
GString screenPacket( int size, int type )
{
    GString out = packet( size, GRTP_SCREEN );
    GComposeSS( out.data( ), type );
    return out;
}
int sizeOf( const GString& text )
{
    return static_cast<int>( text.size( ) );
}

// Feeds every prefix of the packet: below `fixed` the decomposer must refuse and leave its outputs zero.
template <typename Record, typename Function>
void cutEverywhere( const GString& bytes, int fixed, Function decompose )
{
    for( int length = 0; length <= sizeOf( bytes ); ++length )
    {
        // A copy of exact size, so that a sanitizer sees any read past the end.
        const std::vector<char> exact( bytes.begin( ), bytes.begin( ) + length );
        Record record;
        int remaining = 77;
        const char* rest = decompose( exact.data( ), length, record, remaining );
        if( length < fixed )
        {
            EXPECT_EQ( nullptr, rest ) << length;
            EXPECT_EQ( 0, remaining ) << length;
            EXPECT_EQ( 0, record.sequence ) << length;
        }
        else
        {
            EXPECT_EQ( exact.data( ) + fixed, rest ) << length;
            EXPECT_EQ( length - fixed, remaining ) << length;
        }
    }
}
} // namespace

TEST( GRTP, BaseHeaderIsLittleEndian )
{
    const GString bytes = packet( 12, GRTP_VIDEO );
    EXPECT_EQ( GString( "\x80\x02\x34\x12\xEF\xCD\xAB\x89\x04\x03\x02\x01", 12 ), bytes );
}

TEST( GRTP, TwelveBytesPassWithNothingRemaining )
{
    cutEverywhere<GRTPHeader>( packet( 14, GRTP_AUDIO ), GRTP_HEADER_SIZE, GDecomposeRTP );
}

TEST( GRTP, ElevenBytesAreRejectedByEveryDecomposer )
{
    const GString media = packet( 12, GRTP_AUDIO ).substr( 0, 11 );
    GRTPHeader header;
    GRTPFTHeader file;
    GRTPSSHeader screen;
    int remaining = 0;
    int payloadType = 0;
    uint16_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;
    EXPECT_FALSE( GDecomposeRTP( media.data( ), 11, header, remaining ) );
    EXPECT_FALSE( GRTPDecompose( media.data( ), 11, payloadType, sequence, timestamp, ssrc, remaining ) );
    EXPECT_FALSE( GDecomposeRTPFT( media.data( ), 11, file, remaining ) );
    EXPECT_FALSE( GDecomposeRTPSS( media.data( ), 11, screen, remaining ) );
    EXPECT_FALSE( GRTPIsRTCPSR( media.data( ), 11 ) );
}

TEST( GRTP, PaddingExtensionAndSourcesFailTheStrictCheckAndPassTheLooseOne )
{
    GRTPHeader header;
    int remaining = 0;
    int payloadType = 0;
    uint16_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;
    for( const char first : { '\x81', '\x90', '\xA0', '\xBF' } )
    {
        GString bytes = packet( 16, 0x80 | GRTP_AUDIO );
        bytes[0] = first;
        EXPECT_FALSE( GDecomposeRTP( bytes.data( ), 16, header, remaining ) );
        EXPECT_EQ( bytes.data( ) + 12,
                   GRTPDecompose( bytes.data( ), 16, payloadType, sequence, timestamp, ssrc, remaining ) );
        EXPECT_EQ( GRTP_AUDIO, payloadType );
        EXPECT_EQ( 0x1234, sequence );
        EXPECT_EQ( 0x89ABCDEFU, timestamp );
        EXPECT_EQ( 0x01020304U, ssrc );
        EXPECT_EQ( 4, remaining );
    }
    GString other = packet( 16, GRTP_AUDIO );
    other[0] = '\x40';
    EXPECT_FALSE( GRTPDecompose( other.data( ), 16, payloadType, sequence, timestamp, ssrc, remaining ) );
}

TEST( GRTP, MediaPacketCarriesThePrefixAndTheFrame )
{
    GString out;
    GRTPCompose( out, GRTP_VIDEO, 7, 99, 5, "\x30\0\0\0", 4, "frame", 5 );
    EXPECT_EQ( GString( "\x80\x02\x07\0\x63\0\0\0\x05\0\0\0\x30\0\0\0frame", 21 ), out );
    GRTPCompose( out, 0xFF, 7, 99, 5, nullptr, 0, "", 0 );
    EXPECT_EQ( 12U, out.size( ) );
    EXPECT_EQ( '\x27', out[1] );
}

TEST( GRTPDeathTest, MediaPacketWithoutPayloadAborts )
{
    GString out;
    EXPECT_DEATH( GRTPCompose( out, GRTP_VIDEO, 0, 0, 0, nullptr, 0, nullptr, 0 ), "payload && payloadLength >= 0" );
}

TEST( GRTP, SenderReportBindsTheNameInItsOwnLayout )
{
    GString out;
    GRTCPSRCompose( out, 0x0A0B0C0D, "ann@velmora.local@dev" );
    ASSERT_EQ( 38U + 21U, out.size( ) );
    EXPECT_EQ( GString( "\x80\xC8\x06\0\x0D\x0C\x0B\x0A", 8 ), out.substr( 0, 8 ) );
    EXPECT_EQ( GString( 20, '\0' ), out.substr( 8, 20 ) );
    EXPECT_EQ( GString( "\0\0\xFF\xFF\x0D\x0C\x0B\x0A\x01\x15", 10 ), out.substr( 28, 10 ) );
    GWString name;
    EXPECT_TRUE( GRTPIsRTCPSR( out.data( ), sizeOf( out ) ) );
    EXPECT_TRUE( GRTCPSRDecompose( out.data( ), sizeOf( out ), name ) );
    EXPECT_EQ( u"ann@velmora.local@dev", name );
}

TEST( GRTP, SenderReportWithACutNameLeavesTheOutputUntouched )
{
    GString out;
    GRTCPSRCompose( out, 1, "ann@velmora.local@dev" );
    for( int length = 39; length < sizeOf( out ); ++length )
    {
        GWString name = u"before";
        EXPECT_FALSE( GRTCPSRDecompose( out.data( ), length, name ) );
        EXPECT_EQ( u"before", name );
    }
}

TEST( GRTP, SenderReportWithAnEmptyNameIsAcceptedAt39Bytes )
{
    GString out;
    GRTCPSRCompose( out, 1, "" );
    out += 'x';
    GWString name = u"before";
    EXPECT_TRUE( GRTCPSRDecompose( out.data( ), 39, name ) );
    EXPECT_EQ( u"", name );
}

TEST( GRTP, SenderReportNameIsCutAt255 )
{
    GString out;
    for( size_t length = 250; length < 300; ++length )
    {
        GRTCPSRCompose( out, 1, GString( length, 'n' ) );
        ASSERT_EQ( 38U + std::min<size_t>( length, 255 ), out.size( ) );
        EXPECT_EQ( out.size( ) - 38, GReadU8( out.data( ) + 37 ) );
        EXPECT_EQ( GString( out.size( ) - 38, 'n' ), out.substr( 38 ) );
    }
}

TEST( GRTPDeathTest, SenderReportOf38BytesViolatesThePrecondition )
{
    GString out;
    GRTCPSRCompose( out, 1, "" );
    GWString name;
    EXPECT_DEATH( GRTCPSRDecompose( out.data( ), 38, name ), "buffer && length > 38" );
}

TEST( GRTP, FileHeaderOfABlockPassesAndTheBlockDoesNot )
{
    const GString bytes = filePacket( 20, GRTPFT_BLOCK );
    GRTPFTHeader header;
    GRTPFTBlock block;
    int remaining = 0;
    EXPECT_TRUE( GDecomposeRTPFT( bytes.data( ), 20, header, remaining ) );
    EXPECT_EQ( 0xCAFE0001U, header.fileID );
    EXPECT_EQ( GRTPFT_BLOCK, header.type );
    EXPECT_FALSE( GDecomposeRTPFTBLOCK( bytes.data( ), 20, block, remaining ) );
}

TEST( GRTP, FilePacketsAreRefusedWhenCutAnywhere )
{
    GString info = filePacket( 64, GRTPFT_INFO );
    const uint8_t sha1[20] = { 1, 2, 3 };
    GComposeINFO( info.data( ), 0x1122334455667788, sha1 );
    cutEverywhere<GRTPFTInfo>( info, GRTPFT_INFO_SIZE, GDecomposeRTPFTINFO );
    cutEverywhere<GRTPFTGetBlocks>( filePacket( 30, GRTPFT_GETBLOCKS ), GRTPFT_BODY_SIZE, GDecomposeRTPFTGETBLOCKS );
    cutEverywhere<GRTPFTAck>( filePacket( 28, GRTPFT_ACK ), GRTPFT_BODY_SIZE, GDecomposeRTPFTACK );
    cutEverywhere<GRTPFTBlock>( filePacket( 40, GRTPFT_BLOCK ), GRTPFT_BODY_SIZE, GDecomposeRTPFTBLOCK );
}

TEST( GRTP, FileFieldsStandAtTheirOffsets )
{
    GString info = filePacket( 64, GRTPFT_INFO );
    const uint8_t sha1[20] = { 9, 8, 7 };
    GComposeINFO( info.data( ), 0x1122334455667788, sha1 );
    GRTPFTInfo readInfo;
    int remaining = 0;
    ASSERT_TRUE( GDecomposeRTPFTINFO( info.data( ), 64, readInfo, remaining ) );
    EXPECT_EQ( 0x1122334455667788U, readInfo.fileSize );
    EXPECT_EQ( 7, readInfo.sha1[2] );
    EXPECT_EQ( 0x88, GReadU8( info.data( ) + 24 ) );

    GString blocks = filePacket( 28, GRTPFT_GETBLOCKS );
    GComposeGETBLOCKS( blocks.data( ), 3, 1024 );
    GRTPFTGetBlocks getBlocks;
    ASSERT_TRUE( GDecomposeRTPFTGETBLOCKS( blocks.data( ), 28, getBlocks, remaining ) );
    EXPECT_EQ( 3U, getBlocks.chunkOffset );
    EXPECT_EQ( 1024U, getBlocks.numChunks );

    GString ackBytes = filePacket( 28, GRTPFT_ACK );
    GComposeFTACK( ackBytes.data( ), 55, 0xABCD, 0x80000001 );
    GRTPFTAck ack;
    ASSERT_TRUE( GDecomposeRTPFTACK( ackBytes.data( ), 28, ack, remaining ) );
    EXPECT_EQ( 55, ack.percent );
    EXPECT_EQ( 0xABCD, ack.highestSequence );
    EXPECT_EQ( 0x80000001U, ack.ackVector );

    GString blockBytes = filePacket( 28, GRTPFT_BLOCK );
    GComposeBLOCK( blockBytes.data( ), 77, 1024 );
    GRTPFTBlock block;
    ASSERT_TRUE( GDecomposeRTPFTBLOCK( blockBytes.data( ), 28, block, remaining ) );
    EXPECT_EQ( 77U, block.blockIndex );
    EXPECT_EQ( 1024, block.blockSize );
}

TEST( GRTP, LayoutNeedsTwelveBytesForEachWindow )
{
    GString bytes = screenPacket( 24 + 37, GRTPSS_LAYOUTCHANGED );
    GComposeLAYOUTCHANGED( bytes.data( ), 1280, 800, 3 );
    GRTPSSWriteWindow( bytes.data( ) + 24, 2, { 0xFEED, -5, 6, 640, 480 } );
    GRTPSSLayoutChanged layout;
    int remaining = 0;
    EXPECT_FALSE( GDecomposeRTPSSLAYOUTCHANGED( bytes.data( ), 24 + 35, layout, remaining ) );
    EXPECT_EQ( 0, layout.numWindows );
    const char* windows = GDecomposeRTPSSLAYOUTCHANGED( bytes.data( ), 24 + 37, layout, remaining );
    ASSERT_TRUE( windows );
    EXPECT_EQ( 1280, layout.width );
    EXPECT_EQ( 800, layout.height );
    EXPECT_EQ( 3, layout.numWindows );
    EXPECT_EQ( 37, remaining );
    const GRTPSSWindow window = GRTPSSReadWindow( windows, 2 );
    EXPECT_EQ( 0xFEEDU, window.windowID );
    EXPECT_EQ( -5, window.left );
    EXPECT_EQ( 6, window.top );
    EXPECT_EQ( 640, window.width );
    EXPECT_EQ( 480, window.height );
}

TEST( GRTP, MouseAndKeyEventsKeepToTheirTypes )
{
    GRTPSSMouse mouse;
    GRTPSSKey key;
    int remaining = 0;
    for( int type = 0; type < 32; ++type )
    {
        GString bytes = screenPacket( 20, type );
        GComposeMOUSE( bytes.data( ), 640, 480 );
        const bool isMouse = type >= GRTPSS_MOUSEMOVE && type <= GRTPSS_RBUTTONDOWN;
        const bool isKey = type == GRTPSS_KEYDOWN || type == GRTPSS_KEYUP;
        EXPECT_EQ( isMouse, nullptr != GDecomposeRTPSSMOUSEEVENT( bytes.data( ), 20, mouse, remaining ) ) << type;
        EXPECT_EQ( isKey, nullptr != GDecomposeRTPSSKEYEVENT( bytes.data( ), 20, key, remaining ) ) << type;
        EXPECT_EQ( type == GRTPSS_MOUSECHANGED,
                   nullptr != GDecomposeRTPSSMOUSECHANGED( bytes.data( ), 20, mouse, remaining ) )
            << type;
    }
    GString bytes = screenPacket( 20, GRTPSS_MOUSEMOVE );
    GComposeMOUSE( bytes.data( ), 640, 480 );
    ASSERT_TRUE( GDecomposeRTPSSMOUSEEVENT( bytes.data( ), 20, mouse, remaining ) );
    EXPECT_EQ( 640, mouse.x );
    EXPECT_EQ( 480, mouse.y );
    bytes = screenPacket( 20, GRTPSS_KEYUP );
    GComposeKEY( bytes.data( ), 0x41 );
    ASSERT_TRUE( GDecomposeRTPSSKEYEVENT( bytes.data( ), 20, key, remaining ) );
    EXPECT_EQ( 0x41, key.key );
}

TEST( GRTP, RegionAndAckStandAtTheirOffsets )
{
    GString bytes = screenPacket( 36, GRTPSS_REGIONCHANGED );
    GComposeREGIONCHANGED( bytes.data( ), 9, -1, -2, 48, 32, 13 );
    cutEverywhere<GRTPSSRegionChanged>( bytes, GRTPSS_REGION_SIZE, GDecomposeRTPSSREGIONCHANGED );
    GRTPSSRegionChanged region;
    int remaining = 0;
    ASSERT_TRUE( GDecomposeRTPSSREGIONCHANGED( bytes.data( ), 36, region, remaining ) );
    EXPECT_EQ( 9U, region.windowID );
    EXPECT_EQ( -1, region.left );
    EXPECT_EQ( -2, region.top );
    EXPECT_EQ( 48, region.width );
    EXPECT_EQ( 32, region.height );
    EXPECT_EQ( 13, region.encodingType );

    GString ackBytes = screenPacket( 24, GRTPSS_ACK );
    GComposeSSACK( ackBytes.data( ), 77, 3 );
    cutEverywhere<GRTPSSAck>( ackBytes, GRTPSS_ACK_SIZE, GDecomposeRTPSSACK );
    GRTPSSAck ack;
    ASSERT_TRUE( GDecomposeRTPSSACK( ackBytes.data( ), 24, ack, remaining ) );
    EXPECT_EQ( 77, ack.highestSequence );
    EXPECT_EQ( 3U, ack.ackVector );
}

TEST( GRTPDeathTest, RegionWithEncoding255Aborts )
{
    GString bytes = screenPacket( 36, GRTPSS_REGIONCHANGED );
    EXPECT_DEATH( GComposeREGIONCHANGED( bytes.data( ), 9, 0, 0, 1, 1, 255 ), "encodingType < 255" );
}
