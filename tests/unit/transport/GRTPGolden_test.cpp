// Every packet beside its bytes in tests/golden/rtp, one line a field: the composers must make them, and what the decomposers read must
// make them once more. The files were written by hand, so that an error made on both sides shows.
#include "client/transport/GRTP.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

namespace
{
const std::filesystem::path FOLDER = std::filesystem::path( VELMORA_SOURCE_DIR ) / "tests/golden/rtp";
constexpr uint32_t SSRC = 0x0A0B0C0D;
constexpr uint32_t FILE_ID = 0xCAFE0001;

struct Field
{
    size_t offset = 0;
    size_t width = 0;
    std::string name;
    GString bytes;
};

std::vector<Field> fieldsOf( const std::string& name )
{
    std::vector<Field> fields;
    std::ifstream file( FOLDER / ( name + ".txt" ) );
    EXPECT_TRUE( file ) << name;
    for( std::string line; std::getline( file, line ); )
    {
        if( line.starts_with( '#' ) ) continue;
        std::istringstream words( line );
        Field field;
        words >> field.offset >> field.width >> field.name >> std::hex;
        for( unsigned byte = 0; words >> byte; ) field.bytes += static_cast<char>( byte );
        EXPECT_EQ( field.width, field.bytes.size( ) ) << name << ": " << line;
        EXPECT_EQ( fields.empty( ) ? 0 : fields.back( ).offset + fields.back( ).width, field.offset ) << line;
        fields.push_back( field );
    }
    return fields;
}

GString bytesOf( const std::vector<Field>& fields )
{
    GString out;
    for( const Field& field : fields ) out += field.bytes;
    return out;
}

void expectSame( const std::string& packet, const std::vector<Field>& fields, const GString& bytes )
{
    EXPECT_EQ( bytesOf( fields ).size( ), bytes.size( ) ) << packet;
    for( const Field& field : fields )
    {
        ASSERT_LE( field.offset + field.width, bytes.size( ) ) << packet << " ends before " << field.name;
        EXPECT_EQ( field.bytes, bytes.substr( field.offset, field.width ) )
            << packet << ": " << field.name << " at " << field.offset;
    }
}

// ---- Composing with the values of the files.

GString base( int size, int type, uint16_t sequence, uint32_t ssrc )
{
    GString out( static_cast<size_t>( size ), '\0' );
    GComposeRTP( out.data( ), type, sequence, 0, ssrc );
    return out;
}
GString fileBase( int size, int type, uint16_t sequence = 0 )
{
    GString out = base( size, GRTP_FILE, sequence, 0 );
    GComposeFT( out.data( ), FILE_ID, type );
    return out;
}
GString screenBase( int size, int type, uint16_t sequence = 0 )
{
    GString out = base( size, GRTP_SCREEN, sequence, SSRC );
    GComposeSS( out.data( ), type );
    return out;
}
GString media( int type, uint16_t sequence, uint32_t timestamp, std::string_view word, std::string_view frame )
{
    GString out;
    GRTPCompose( out, type, sequence, timestamp, SSRC, word.data( ), static_cast<int>( word.size( ) ), frame.data( ),
                 static_cast<int>( frame.size( ) ) );
    return out;
}
GString senderReport( )
{
    GString out;
    GRTCPSRCompose( out, SSRC, "ann@x@dev" );
    return out;
}
GString fileInfo( )
{
    uint8_t sha1[20];
    for( int i = 0; i < 20; ++i ) sha1[i] = static_cast<uint8_t>( 0xA0 + i );
    GString out = fileBase( GRTPFT_INFO_SIZE, GRTPFT_INFO, 0x1234 );
    GComposeINFO( out.data( ), 0x1122334455667788, sha1 );
    return out;
}
GString fileGetBlocks( )
{
    GString out = fileBase( GRTPFT_BODY_SIZE, GRTPFT_GETBLOCKS );
    GComposeGETBLOCKS( out.data( ), 0x01020304, 3 );
    return out + "\xFF\x01\x80";
}
GString fileAck( )
{
    GString out = fileBase( GRTPFT_BODY_SIZE, GRTPFT_ACK );
    GComposeFTACK( out.data( ), 55, 0xABCD, 0x80000001 );
    return out;
}
GString fileBlock( )
{
    GString out = fileBase( GRTPFT_BODY_SIZE, GRTPFT_BLOCK, 0x1235 );
    GComposeBLOCK( out.data( ), 0x0A0B0C0D, 4 );
    return out + "\xDE\xAD\xBE\xEF";
}
GString layout( )
{
    GString out = screenBase( GRTPSS_LAYOUT_SIZE + 2 * GRTPSS_WINDOW_SIZE, GRTPSS_LAYOUTCHANGED, 0x1234 );
    GComposeLAYOUTCHANGED( out.data( ), 1280, 800, 2 );
    GRTPSSWriteWindow( out.data( ) + GRTPSS_LAYOUT_SIZE, 0, { 0xFEED, 10, 20, 640, 480 } );
    GRTPSSWriteWindow( out.data( ) + GRTPSS_LAYOUT_SIZE, 1, { 0x04030201, -5, 32767, 65535, 1 } );
    return out;
}
GString region( )
{
    GString out = screenBase( GRTPSS_REGION_SIZE, GRTPSS_REGIONCHANGED, 0x1236 );
    GComposeREGIONCHANGED( out.data( ), 0xFEED, -1, -2, 48, 288, 13 );
    return out + "\x89PNG";
}
GString key( int type )
{
    GString out = screenBase( GRTPSS_EVENT_SIZE, type );
    GComposeKEY( out.data( ), 0x141 );
    return out;
}
GString mouse( int type, uint16_t sequence = 0 )
{
    GString out = screenBase( GRTPSS_EVENT_SIZE, type, sequence );
    GComposeMOUSE( out.data( ), 641, 481 );
    return out;
}
GString screenAck( )
{
    GString out = screenBase( GRTPSS_ACK_SIZE, GRTPSS_ACK );
    GComposeSSACK( out.data( ), 0xABCD, 0x80000001 );
    return out;
}

// ---- Decomposing and composing what was read. Empty when it was refused.

using Decompose = std::function<GString( const char* buffer, int length )>;

template <typename Record>
using Reader = const char* (*)( const char*, int, Record&, int& );

GString headOf( const GRTPHeader& read, int size )
{
    GString out( static_cast<size_t>( size ), '\0' );
    GComposeRTP( out.data( ), read.payloadType, read.sequence, read.timestamp, read.ssrc );
    EXPECT_EQ( 0x80, read.version );
    return out;
}
GString headOf( const GRTPFTHeader& read, int size )
{
    GString out = headOf( static_cast<const GRTPHeader&>( read ), size );
    GComposeFT( out.data( ), read.fileID, read.type );
    return out;
}
GString headOf( const GRTPSSHeader& read, int size )
{
    GString out = headOf( static_cast<const GRTPHeader&>( read ), size );
    GComposeSS( out.data( ), read.type );
    return out;
}

template <typename Record, typename Write>
Decompose again( Reader<Record> decompose, int fixed, Write write )
{
    return [=]( const char* buffer, int length ) -> GString
    {
        Record read;
        int remaining = 0;
        const char* rest = decompose( buffer, length, read, remaining );
        if( !rest ) return { };
        EXPECT_EQ( buffer + fixed, rest );
        EXPECT_EQ( length - fixed, remaining );
        GString out = headOf( read, fixed );
        write( out.data( ), read );
        return out.append( rest, static_cast<size_t>( remaining ) );
    };
}
const auto nothing = []( char*, const auto& ) {};
const Decompose fileHeader = again<GRTPFTHeader>( GDecomposeRTPFT, GRTPFT_HEADER_SIZE, nothing );
const Decompose screenHeader = again<GRTPSSHeader>( GDecomposeRTPSS, GRTPSS_HEADER_SIZE, nothing );
const auto writeMouse = []( char* out, const GRTPSSMouse& read ) { GComposeMOUSE( out, read.x, read.y ); };
const Decompose mouseEvent = again<GRTPSSMouse>( GDecomposeRTPSSMOUSEEVENT, GRTPSS_EVENT_SIZE, writeMouse );
const Decompose keyEvent = again<GRTPSSKey>( GDecomposeRTPSSKEYEVENT, GRTPSS_EVENT_SIZE,
                                             []( char* out, const GRTPSSKey& read ) { GComposeKEY( out, read.key ); } );

GString mediaAgain( const char* buffer, int length )
{
    int type = 0, remaining = 0;
    uint16_t sequence = 0;
    uint32_t timestamp = 0, ssrc = 0;
    const char* rest = GRTPDecompose( buffer, length, type, sequence, timestamp, ssrc, remaining );
    if( !rest ) return { };
    GRTPHeader strict;
    int strictRemaining = 0;
    EXPECT_EQ( rest, GDecomposeRTP( buffer, length, strict, strictRemaining ) );
    EXPECT_EQ( remaining, strictRemaining );
    EXPECT_EQ( std::tuple( type, sequence, timestamp, ssrc ),
               std::tuple( int{ strict.payloadType }, strict.sequence, strict.timestamp, strict.ssrc ) );
    GString out;
    GRTPCompose( out, type, sequence, timestamp, ssrc, nullptr, 0, rest, remaining );
    return out;
}
GString reportAgain( const char* buffer, int length )
{
    GWString name;
    if( !GRTPIsRTCPSR( buffer, length ) || length <= GRTCPSR_FIXED_SIZE || !GRTCPSRDecompose( buffer, length, name ) )
        return { };
    GString out;
    GRTCPSRCompose( out, SSRC, GString( name.begin( ), name.end( ) ) );
    return out;
}
GString layoutAgain( const char* buffer, int length )
{
    GRTPSSLayoutChanged read;
    int remaining = 0;
    const char* windows = GDecomposeRTPSSLAYOUTCHANGED( buffer, length, read, remaining );
    if( !windows ) return { };
    EXPECT_EQ( length - GRTPSS_LAYOUT_SIZE, remaining );
    GString out = headOf( read, length );
    GComposeLAYOUTCHANGED( out.data( ), read.width, read.height, read.numWindows );
    for( int i = 0; i < read.numWindows; ++i )
        GRTPSSWriteWindow( out.data( ) + GRTPSS_LAYOUT_SIZE, i, GRTPSSReadWindow( windows, i ) );
    return out;
}

struct Packet
{
    std::string name;
    std::function<GString( )> compose;
    Decompose again;
    int fixed; // Below it the decomposer refuses.
};

std::vector<Packet> mediaPackets( )
{
    return {
        { "audio",
          [] {
              return media( GRTP_AUDIO, 1, 0xCAFEBABE, { "\xF0\x55\0\0", 4 }, "frame!" );
          },
          mediaAgain, 12 },
        { "video",
          [] {
              return media( GRTP_VIDEO, 0xFFFE, 0x12345678, { "\x30\0\0\0", 4 }, { "\xFF\0\x80\x7F\x01", 5 } );
          },
          mediaAgain, 12 },
        { "video_empty",
          [] {
              return media( GRTP_VIDEO, 2, 0x12345679, { "\x40\0\0\0", 4 }, "" );
          },
          mediaAgain, 12 },
        { "sender_report", senderReport, reportAgain, 38 + 9 },
    };
}
std::vector<Packet> filePackets( )
{
    return {
        { "file_getinfo", [] { return fileBase( 20, GRTPFT_GETINFO ); }, fileHeader, 20 },
        { "file_info", fileInfo,
          again<GRTPFTInfo>( GDecomposeRTPFTINFO, 64,
                             []( char* out, const GRTPFTInfo& read )
                             { GComposeINFO( out, read.fileSize, read.sha1 ); } ),
          64 },
        { "file_getblocks", fileGetBlocks,
          again<GRTPFTGetBlocks>( GDecomposeRTPFTGETBLOCKS, 28,
                                  []( char* out, const GRTPFTGetBlocks& read )
                                  { GComposeGETBLOCKS( out, read.chunkOffset, read.numChunks ); } ),
          28 },
        { "file_ack", fileAck,
          again<GRTPFTAck>( GDecomposeRTPFTACK, 28,
                            []( char* out, const GRTPFTAck& read )
                            { GComposeFTACK( out, read.percent, read.highestSequence, read.ackVector ); } ),
          28 },
        { "file_block", fileBlock,
          again<GRTPFTBlock>( GDecomposeRTPFTBLOCK, 28,
                              []( char* out, const GRTPFTBlock& read )
                              { GComposeBLOCK( out, read.blockIndex, read.blockSize ); } ),
          28 },
        { "file_cancelrecv", [] { return fileBase( 20, GRTPFT_CANCELRECV ); }, fileHeader, 20 },
        { "file_cancelsend", [] { return fileBase( 20, GRTPFT_CANCELSEND, 0x1236 ); }, fileHeader, 20 },
        { "file_done", [] { return fileBase( 20, GRTPFT_DONE ); }, fileHeader, 20 },
    };
}
std::vector<Packet> screenPackets( )
{
    return {
        { "screen_layoutchanged", layout, layoutAgain, 24 + 2 * 12 },
        { "screen_mousechanged", [] { return mouse( GRTPSS_MOUSECHANGED, 0x1235 ); },
          again<GRTPSSMouse>( GDecomposeRTPSSMOUSECHANGED, 20, writeMouse ), 20 },
        { "screen_regionchanged", region,
          again<GRTPSSRegionChanged>( GDecomposeRTPSSREGIONCHANGED, 32,
                                      []( char* out, const GRTPSSRegionChanged& read ) {
                                          GComposeREGIONCHANGED( out, read.windowID, read.left, read.top, read.width,
                                                                 read.height, read.encodingType );
                                      } ),
          32 },
        { "screen_cancelsend", [] { return screenBase( 16, GRTPSS_CANCELSEND ); }, screenHeader, 16 },
        { "screen_cancelrecv", [] { return screenBase( 16, GRTPSS_CANCELRECV, 0x1237 ); }, screenHeader, 16 },
        { "screen_keydown", [] { return key( GRTPSS_KEYDOWN ); }, keyEvent, 20 },
        { "screen_keyup", [] { return key( GRTPSS_KEYUP ); }, keyEvent, 20 },
        { "screen_mousemove", [] { return mouse( GRTPSS_MOUSEMOVE ); }, mouseEvent, 20 },
        { "screen_lbuttondown", [] { return mouse( GRTPSS_LBUTTONDOWN ); }, mouseEvent, 20 },
        { "screen_lbuttonup", [] { return mouse( GRTPSS_LBUTTONUP ); }, mouseEvent, 20 },
        { "screen_lbuttondblclk", [] { return mouse( GRTPSS_LBUTTONDBLCLK ); }, mouseEvent, 20 },
        { "screen_rbuttondown", [] { return mouse( GRTPSS_RBUTTONDOWN ); }, mouseEvent, 20 },
        { "screen_controlon", [] { return screenBase( 16, GRTPSS_CONTROLON, 0x1238 ); }, screenHeader, 16 },
        { "screen_controloff", [] { return screenBase( 16, GRTPSS_CONTROLOFF, 0x1239 ); }, screenHeader, 16 },
        { "screen_ack", screenAck,
          again<GRTPSSAck>( GDecomposeRTPSSACK, 24,
                            []( char* out, const GRTPSSAck& read )
                            { GComposeSSACK( out, read.highestSequence, read.ackVector ); } ),
          24 },
    };
}
std::vector<Packet> packets( )
{
    std::vector<Packet> all = mediaPackets( );
    for( const auto& more : { filePackets( ), screenPackets( ) } ) all.insert( all.end( ), more.begin( ), more.end( ) );
    return all;
}
} // namespace

TEST( GRTPGolden, ComposersMakeEveryPacketByteForByte )
{
    for( const Packet& packet : packets( ) ) expectSame( packet.name, fieldsOf( packet.name ), packet.compose( ) );
}

TEST( GRTPGolden, WhatIsReadFromAPacketMakesItAgain )
{
    for( const Packet& packet : packets( ) )
    {
        const std::vector<Field> fields = fieldsOf( packet.name );
        const GString bytes = bytesOf( fields );
        expectSame( packet.name, fields, packet.again( bytes.data( ), static_cast<int>( bytes.size( ) ) ) );
    }
}

TEST( GRTPGolden, PacketsCutBeforeTheEndOfTheirFixedPartAreRefused )
{
    for( const Packet& packet : packets( ) )
    {
        const GString bytes = bytesOf( fieldsOf( packet.name ) );
        for( size_t length = 0; length <= bytes.size( ); ++length )
        {
            // A copy of exact size, so that a sanitizer sees any read past the end.
            const std::vector<char> exact( bytes.begin( ), bytes.begin( ) + static_cast<ptrdiff_t>( length ) );
            const GString read = packet.again( exact.data( ), static_cast<int>( length ) );
            if( length < static_cast<size_t>( packet.fixed ) )
                EXPECT_TRUE( read.empty( ) ) << packet.name << " of " << length << " bytes";
            else
                EXPECT_EQ( bytes.substr( 0, length ), read ) << packet.name << " of " << length << " bytes";
        }
    }
}

TEST( GRTPGolden, EveryFileBelongsToAPacket )
{
    std::set<std::string> files, names;
    for( const auto& entry : std::filesystem::directory_iterator( FOLDER ) ) files.insert( entry.path( ).stem( ) );
    for( const Packet& packet : packets( ) ) names.insert( packet.name );
    EXPECT_EQ( names, files );
}
