// Which packets each decomposer takes, as a table: the least length, the first two bytes, the types. Each row is held against every
// length, every first byte, every second byte and every type, and what is refused must leave nothing in the record.
#include "client/transport/GRTP.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

namespace
{
constexpr int ANY = -1;
constexpr int LONG = 80; // More than any fixed part.

bool isZero( const GRTPHeader& read )
{
    return !read.version && !read.payloadType && !read.sequence && !read.timestamp && !read.ssrc;
}
bool isZero( const GRTPFTHeader& read )
{
    return isZero( static_cast<const GRTPHeader&>( read ) ) && !read.fileID && !read.type;
}
bool isZero( const GRTPFTInfo& read )
{
    const bool noHash = std::all_of( read.sha1, read.sha1 + 20, []( uint8_t byte ) { return !byte; } );
    return isZero( static_cast<const GRTPFTHeader&>( read ) ) && !read.fileSize && noHash;
}
bool isZero( const GRTPFTGetBlocks& read )
{
    return isZero( static_cast<const GRTPFTHeader&>( read ) ) && !read.chunkOffset && !read.numChunks;
}
bool isZero( const GRTPFTAck& read )
{
    return isZero( static_cast<const GRTPFTHeader&>( read ) ) && !read.percent && !read.highestSequence &&
           !read.ackVector;
}
bool isZero( const GRTPFTBlock& read )
{
    return isZero( static_cast<const GRTPFTHeader&>( read ) ) && !read.blockIndex && !read.blockSize;
}
bool isZero( const GRTPSSHeader& read )
{
    return isZero( static_cast<const GRTPHeader&>( read ) ) && !read.type;
}
bool isZero( const GRTPSSLayoutChanged& read )
{
    return isZero( static_cast<const GRTPSSHeader&>( read ) ) && !read.width && !read.height && !read.numWindows;
}
bool isZero( const GRTPSSMouse& read )
{
    return isZero( static_cast<const GRTPSSHeader&>( read ) ) && !read.x && !read.y;
}
bool isZero( const GRTPSSKey& read )
{
    return isZero( static_cast<const GRTPSSHeader&>( read ) ) && !read.key;
}
bool isZero( const GRTPSSRegionChanged& read )
{
    return isZero( static_cast<const GRTPSSHeader&>( read ) ) && !read.windowID && !read.left && !read.top &&
           !read.width && !read.height && !read.encodingType;
}
bool isZero( const GRTPSSAck& read )
{
    return isZero( static_cast<const GRTPSSHeader&>( read ) ) && !read.highestSequence && !read.ackVector;
}

using Accepts = std::function<bool( const std::vector<char>& packet )>;

template <typename Record>
Accepts by( const char* ( *decompose )(const char*, int, Record&, int&), int fixed )
{
    return [=]( const std::vector<char>& packet )
    {
        Record read;
        std::memset( static_cast<void*>( &read ), 0xEE, sizeof( read ) );
        int remaining = 77;
        const int length = static_cast<int>( packet.size( ) );
        const char* rest = decompose( packet.data( ), length, read, remaining );
        EXPECT_TRUE( rest ? rest == packet.data( ) + fixed : isZero( read ) );
        EXPECT_EQ( rest ? length - fixed : 0, remaining );
        return rest != nullptr;
    };
}
bool acceptsLoosely( const std::vector<char>& packet )
{
    int type = 77, remaining = 77;
    uint16_t sequence = 77;
    uint32_t timestamp = 77, ssrc = 77;
    const int length = static_cast<int>( packet.size( ) );
    const char* rest = GRTPDecompose( packet.data( ), length, type, sequence, timestamp, ssrc, remaining );
    EXPECT_TRUE( rest ? rest == packet.data( ) + 12 : !type && !sequence && !timestamp && !ssrc );
    EXPECT_EQ( rest ? length - 12 : 0, remaining );
    EXPECT_EQ( rest ? packet[1] & 0x7F : 0, type );
    return rest != nullptr;
}
bool isReport( const std::vector<char>& packet )
{
    return GRTPIsRTCPSR( packet.data( ), static_cast<int>( packet.size( ) ) );
}

struct Row
{
    const char* name;
    int least;
    int firstMask; // Of the first byte: all bits or the top two.
    int second;
    int typeAt;
    int firstType;
    int lastType;
    Accepts accepts;
};

const std::vector<Row>& table( )
{
    static const std::vector<Row> rows = {
        { "RTP", 12, 0xFF, ANY, ANY, 0, 0, by<GRTPHeader>( GDecomposeRTP, 12 ) },
        { "RTP, loosely", 12, 0xC0, ANY, ANY, 0, 0, acceptsLoosely },
        { "RTCPSR", 28, 0xFF, 200, ANY, 0, 0, isReport },
        { "RTPFT", 20, 0xFF, 3, 19, 0, 255, by<GRTPFTHeader>( GDecomposeRTPFT, 20 ) },
        { "RTPFTINFO", 64, 0xFF, 3, 19, 2, 2, by<GRTPFTInfo>( GDecomposeRTPFTINFO, 64 ) },
        { "RTPFTGETBLOCKS", 28, 0xFF, 3, 19, 3, 3, by<GRTPFTGetBlocks>( GDecomposeRTPFTGETBLOCKS, 28 ) },
        { "RTPFTACK", 28, 0xFF, 3, 19, 4, 4, by<GRTPFTAck>( GDecomposeRTPFTACK, 28 ) },
        { "RTPFTBLOCK", 28, 0xFF, 3, 19, 5, 5, by<GRTPFTBlock>( GDecomposeRTPFTBLOCK, 28 ) },
        { "RTPSS", 16, 0xFF, 4, 15, 0, 255, by<GRTPSSHeader>( GDecomposeRTPSS, 16 ) },
        { "RTPSSLAYOUTCHANGED", 24, 0xFF, 4, 15, 1, 1, by<GRTPSSLayoutChanged>( GDecomposeRTPSSLAYOUTCHANGED, 24 ) },
        { "RTPSSMOUSECHANGED", 20, 0xFF, 4, 15, 2, 2, by<GRTPSSMouse>( GDecomposeRTPSSMOUSECHANGED, 20 ) },
        { "RTPSSMOUSEEVENT", 20, 0xFF, 4, 15, 9, 13, by<GRTPSSMouse>( GDecomposeRTPSSMOUSEEVENT, 20 ) },
        { "RTPSSKEYEVENT", 20, 0xFF, 4, 15, 7, 8, by<GRTPSSKey>( GDecomposeRTPSSKEYEVENT, 20 ) },
        { "RTPSSREGIONCHANGED", 32, 0xFF, 4, 15, 3, 3, by<GRTPSSRegionChanged>( GDecomposeRTPSSREGIONCHANGED, 32 ) },
        { "RTPSSACK", 24, 0xFF, 4, 15, 16, 16, by<GRTPSSAck>( GDecomposeRTPSSACK, 24 ) },
    };
    return rows;
}

// A packet that the row takes: no field of it is zero but those that say how much follows.
std::vector<char> goodPacket( const Row& row, int length )
{
    std::vector<char> packet( static_cast<size_t>( length ), '\x7E' );
    const auto put = [&packet, length]( int at, int value )
    {
        if( at >= 0 && at < length ) packet[static_cast<size_t>( at )] = static_cast<char>( value );
    };
    put( 0, 0x80 );
    put( 1, row.second == ANY ? GRTP_VIDEO : row.second );
    put( row.typeAt, row.firstType );
    // The number of windows.
    if( row.typeAt == 15 && row.firstType == GRTPSS_LAYOUTCHANGED ) put( 22, 0 ), put( 23, 0 );
    return packet;
}
} // namespace

TEST( GRTPAccepts, NothingBelowTheLeastLength )
{
    for( const Row& row : table( ) )
        for( int length = 0; length <= LONG; ++length )
            EXPECT_EQ( length >= row.least, row.accepts( goodPacket( row, length ) ) ) << row.name << " " << length;
}

TEST( GRTPAccepts, ElevenBytesForNobody )
{
    for( const Row& row : table( ) ) EXPECT_FALSE( row.accepts( goodPacket( row, 11 ) ) ) << row.name;
}

TEST( GRTPAccepts, OnlyItsFirstByte )
{
    for( const Row& row : table( ) )
        for( int first = 0; first < 256; ++first )
        {
            std::vector<char> packet = goodPacket( row, LONG );
            packet[0] = static_cast<char>( first );
            EXPECT_EQ( ( first & row.firstMask ) == 0x80, row.accepts( packet ) ) << row.name << " " << first;
        }
}

TEST( GRTPAccepts, OnlyItsSecondByte )
{
    for( const Row& row : table( ) )
        for( int second = 0; second < 256; ++second )
        {
            std::vector<char> packet = goodPacket( row, LONG );
            packet[1] = static_cast<char>( second );
            const bool wanted = row.second == ANY || row.second == second;
            EXPECT_EQ( wanted, row.accepts( packet ) ) << row.name << " " << second;
        }
}

TEST( GRTPAccepts, OnlyItsTypes )
{
    for( const Row& row : table( ) )
        for( int type = 0; type < 256 && row.typeAt != ANY; ++type )
        {
            std::vector<char> packet = goodPacket( row, LONG );
            packet[static_cast<size_t>( row.typeAt )] = static_cast<char>( type );
            const bool wanted = row.firstType <= type && type <= row.lastType;
            EXPECT_EQ( wanted, row.accepts( packet ) ) << row.name << " " << type;
        }
}

TEST( GRTPAccepts, AsManyWindowsAsThereAreBytesFor )
{
    const Row& row = *std::find_if( table( ).begin( ), table( ).end( ),
                                    []( const Row& candidate )
                                    { return std::string_view( candidate.name ) == "RTPSSLAYOUTCHANGED"; } );
    for( int windows : { 0, 1, 3, 255, 256, 65535 } )
        for( int body : { 0, 11, 12, 35, 36, 37, 12 * 255, 12 * 256 - 1, 12 * 256, 12 * 65535 - 1, 12 * 65535 } )
        {
            std::vector<char> packet = goodPacket( row, 24 + body );
            packet[22] = static_cast<char>( windows );
            packet[23] = static_cast<char>( windows >> 8 );
            EXPECT_EQ( body >= 12 * windows, row.accepts( packet ) ) << windows << " windows, " << body << " bytes";
        }
}

TEST( GRTPAccepts, ASequenceNumberOfZero )
{
    for( const Row& row : table( ) )
    {
        std::vector<char> packet = goodPacket( row, LONG );
        packet[2] = packet[3] = 0;
        EXPECT_TRUE( row.accepts( packet ) ) << row.name;
    }
}

TEST( GRTPAccepts, NumbersOfAllTypes )
{
    EXPECT_EQ( std::tuple( 1, 2, 3, 4, 200 ),
               std::tuple( +GRTP_AUDIO, +GRTP_VIDEO, +GRTP_FILE, +GRTP_SCREEN, +GRTP_RTCPSR ) );
    const std::vector<int> file = { GRTPFT_GETINFO, GRTPFT_INFO,       GRTPFT_GETBLOCKS,  GRTPFT_ACK,
                                    GRTPFT_BLOCK,   GRTPFT_CANCELRECV, GRTPFT_CANCELSEND, GRTPFT_DONE };
    EXPECT_EQ( ( std::vector<int>{ 1, 2, 3, 4, 5, 6, 7, 8 } ), file );
    const std::vector<int> screen = {
        GRTPSS_LAYOUTCHANGED, GRTPSS_MOUSECHANGED, GRTPSS_REGIONCHANGED, GRTPSS_CANCELSEND,  GRTPSS_CANCELRECV,
        GRTPSS_KEYDOWN,       GRTPSS_KEYUP,        GRTPSS_MOUSEMOVE,     GRTPSS_LBUTTONDOWN, GRTPSS_LBUTTONUP,
        GRTPSS_LBUTTONDBLCLK, GRTPSS_RBUTTONDOWN,  GRTPSS_CONTROLON,     GRTPSS_CONTROLOFF,  GRTPSS_ACK };
    EXPECT_EQ( ( std::vector<int>{ 1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16 } ), screen );
}
