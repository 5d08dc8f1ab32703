#include "client/transport/GRTP.h"

#include "base/GBytes.h"
#include "base/GPortable.h"
#include "base/GUtil.h"

#include <cstring>

namespace
{
constexpr uint8_t VERSION_BYTE = 0x80;
constexpr int PAYLOAD_TYPE_MASK = 0x27;
constexpr int RTCPSR_MINIMUM = 28;

template <typename Record>
void clear( Record& record, int& remaining )
{
    record = Record( );
    remaining = 0;
}

void readBase( const char* buffer, GRTPHeader& header )
{
    header.version = GReadU8( buffer );
    header.payloadType = GReadU8( buffer + 1 );
    header.sequence = GReadU16( buffer + 2 );
    header.timestamp = GReadU32( buffer + 4 );
    header.ssrc = GReadU32( buffer + 8 );
}

bool hasBase( const char* buffer, int length, int minimum, int payloadType )
{
    return buffer && length >= minimum && GReadU8( buffer ) == VERSION_BYTE && GReadU8( buffer + 1 ) == payloadType;
}

// True when the buffer holds an RTPFT packet of at least `minimum` bytes and the wanted type (0: any); fills the common header.
bool readFT( const char* buffer, int length, int minimum, int type, GRTPFTHeader& header )
{
    if( !hasBase( buffer, length, minimum, GRTP_FILE ) ) return false;
    if( type && GReadU8( buffer + 19 ) != type ) return false;
    readBase( buffer, header );
    header.fileID = GReadU32( buffer + 12 );
    header.type = GReadU8( buffer + 19 );
    return true;
}

bool readSS( const char* buffer, int length, int minimum, int firstType, int lastType, GRTPSSHeader& header )
{
    if( !hasBase( buffer, length, minimum, GRTP_SCREEN ) ) return false;
    const int type = GReadU8( buffer + 15 );
    if( !GWITHIN( firstType, type, lastType ) ) return false;
    readBase( buffer, header );
    header.type = static_cast<uint8_t>( type );
    return true;
}

const char* rest( const char* buffer, int length, int fixed, int& remaining )
{
    remaining = length - fixed;
    return buffer + fixed;
}
} // namespace

const char* GDecomposeRTP( const char* buffer, int length, GRTPHeader& header, int& remaining )
{
    clear( header, remaining );
    if( !buffer || length < GRTP_HEADER_SIZE || GReadU8( buffer ) != VERSION_BYTE ) return nullptr;
    readBase( buffer, header );
    return rest( buffer, length, GRTP_HEADER_SIZE, remaining );
}

const char* GRTPDecompose( const char* buffer, int length, int& payloadType, uint16_t& sequence, uint32_t& timestamp,
                           uint32_t& ssrc, int& remaining )
{
    payloadType = 0;
    sequence = 0;
    timestamp = ssrc = 0;
    remaining = 0;
    if( !buffer || length < GRTP_HEADER_SIZE || ( GReadU8( buffer ) & 0xC0 ) != VERSION_BYTE ) return nullptr;
    GRTPHeader header;
    readBase( buffer, header );
    payloadType = header.payloadType & 0x7F;
    sequence = header.sequence;
    timestamp = header.timestamp;
    ssrc = header.ssrc;
    return rest( buffer, length, GRTP_HEADER_SIZE, remaining );
}

bool GRTPIsRTCPSR( const char* buffer, int length )
{
    return hasBase( buffer, length, RTCPSR_MINIMUM, GRTP_RTCPSR );
}

bool GRTCPSRDecompose( const char* buffer, int length, GWString& name )
{
    GPRECONDITION_TEXT( buffer && length > GRTCPSR_FIXED_SIZE, "buffer && length > 38" );
    const int nameLength = GReadU8( buffer + 37 );
    if( length < GRTCPSR_FIXED_SIZE + nameLength ) return false;
    name = GUTF8ToWide( std::string_view( buffer + GRTCPSR_FIXED_SIZE, static_cast<size_t>( nameLength ) ) );
    return true;
}

const char* GDecomposeRTPFT( const char* buffer, int length, GRTPFTHeader& header, int& remaining )
{
    clear( header, remaining );
    if( !readFT( buffer, length, GRTPFT_HEADER_SIZE, 0, header ) ) return nullptr;
    return rest( buffer, length, GRTPFT_HEADER_SIZE, remaining );
}

const char* GDecomposeRTPFTINFO( const char* buffer, int length, GRTPFTInfo& info, int& remaining )
{
    clear( info, remaining );
    if( !readFT( buffer, length, GRTPFT_INFO_SIZE, GRTPFT_INFO, info ) ) return nullptr;
    info.fileSize = GReadU64( buffer + 24 );
    std::memcpy( info.sha1, buffer + 40, sizeof( info.sha1 ) );
    return rest( buffer, length, GRTPFT_INFO_SIZE, remaining );
}

const char* GDecomposeRTPFTGETBLOCKS( const char* buffer, int length, GRTPFTGetBlocks& getBlocks, int& remaining )
{
    clear( getBlocks, remaining );
    if( !readFT( buffer, length, GRTPFT_BODY_SIZE, GRTPFT_GETBLOCKS, getBlocks ) ) return nullptr;
    getBlocks.chunkOffset = GReadU32( buffer + 20 );
    getBlocks.numChunks = GReadU32( buffer + 24 );
    return rest( buffer, length, GRTPFT_BODY_SIZE, remaining );
}

const char* GDecomposeRTPFTACK( const char* buffer, int length, GRTPFTAck& ack, int& remaining )
{
    clear( ack, remaining );
    if( !readFT( buffer, length, GRTPFT_BODY_SIZE, GRTPFT_ACK, ack ) ) return nullptr;
    ack.percent = GReadU8( buffer + 21 );
    ack.highestSequence = GReadU16( buffer + 22 );
    ack.ackVector = GReadU32( buffer + 24 );
    return rest( buffer, length, GRTPFT_BODY_SIZE, remaining );
}

const char* GDecomposeRTPFTBLOCK( const char* buffer, int length, GRTPFTBlock& block, int& remaining )
{
    clear( block, remaining );
    if( !readFT( buffer, length, GRTPFT_BODY_SIZE, GRTPFT_BLOCK, block ) ) return nullptr;
    block.blockIndex = GReadU32( buffer + 20 );
    block.blockSize = GReadU16( buffer + 26 );
    return rest( buffer, length, GRTPFT_BODY_SIZE, remaining );
}

const char* GDecomposeRTPSS( const char* buffer, int length, GRTPSSHeader& header, int& remaining )
{
    clear( header, remaining );
    if( !readSS( buffer, length, GRTPSS_HEADER_SIZE, 0, 255, header ) ) return nullptr;
    return rest( buffer, length, GRTPSS_HEADER_SIZE, remaining );
}

const char* GDecomposeRTPSSLAYOUTCHANGED( const char* buffer, int length, GRTPSSLayoutChanged& layout, int& remaining )
{
    clear( layout, remaining );
    GRTPSSLayoutChanged read;
    if( !readSS( buffer, length, GRTPSS_LAYOUT_SIZE, GRTPSS_LAYOUTCHANGED, GRTPSS_LAYOUTCHANGED, read ) )
        return nullptr;
    read.width = GReadU16( buffer + 18 );
    read.height = GReadU16( buffer + 20 );
    read.numWindows = GReadU16( buffer + 22 );
    if( length - GRTPSS_LAYOUT_SIZE < GRTPSS_WINDOW_SIZE * read.numWindows ) return nullptr;
    layout = read;
    return rest( buffer, length, GRTPSS_LAYOUT_SIZE, remaining );
}

const char* GDecomposeRTPSSMOUSECHANGED( const char* buffer, int length, GRTPSSMouse& mouse, int& remaining )
{
    clear( mouse, remaining );
    if( !readSS( buffer, length, GRTPSS_EVENT_SIZE, GRTPSS_MOUSECHANGED, GRTPSS_MOUSECHANGED, mouse ) ) return nullptr;
    mouse.x = GReadU16( buffer + 16 );
    mouse.y = GReadU16( buffer + 18 );
    return rest( buffer, length, GRTPSS_EVENT_SIZE, remaining );
}

const char* GDecomposeRTPSSMOUSEEVENT( const char* buffer, int length, GRTPSSMouse& mouse, int& remaining )
{
    clear( mouse, remaining );
    if( !readSS( buffer, length, GRTPSS_EVENT_SIZE, GRTPSS_MOUSEMOVE, GRTPSS_RBUTTONDOWN, mouse ) ) return nullptr;
    mouse.x = GReadU16( buffer + 16 );
    mouse.y = GReadU16( buffer + 18 );
    return rest( buffer, length, GRTPSS_EVENT_SIZE, remaining );
}

const char* GDecomposeRTPSSKEYEVENT( const char* buffer, int length, GRTPSSKey& key, int& remaining )
{
    clear( key, remaining );
    if( !readSS( buffer, length, GRTPSS_EVENT_SIZE, GRTPSS_KEYDOWN, GRTPSS_KEYUP, key ) ) return nullptr;
    key.key = GReadU16( buffer + 18 );
    return rest( buffer, length, GRTPSS_EVENT_SIZE, remaining );
}

const char* GDecomposeRTPSSREGIONCHANGED( const char* buffer, int length, GRTPSSRegionChanged& region, int& remaining )
{
    clear( region, remaining );
    if( !readSS( buffer, length, GRTPSS_REGION_SIZE, GRTPSS_REGIONCHANGED, GRTPSS_REGIONCHANGED, region ) )
        return nullptr;
    region.windowID = GReadU32( buffer + 16 );
    region.left = static_cast<int16_t>( GReadU16( buffer + 20 ) );
    region.top = static_cast<int16_t>( GReadU16( buffer + 22 ) );
    region.width = GReadU16( buffer + 24 );
    region.height = GReadU16( buffer + 26 );
    region.encodingType = GReadU8( buffer + 31 );
    return rest( buffer, length, GRTPSS_REGION_SIZE, remaining );
}

const char* GDecomposeRTPSSACK( const char* buffer, int length, GRTPSSAck& ack, int& remaining )
{
    clear( ack, remaining );
    if( !readSS( buffer, length, GRTPSS_ACK_SIZE, GRTPSS_ACK, GRTPSS_ACK, ack ) ) return nullptr;
    ack.highestSequence = GReadU16( buffer + 18 );
    ack.ackVector = GReadU32( buffer + 20 );
    return rest( buffer, length, GRTPSS_ACK_SIZE, remaining );
}

GRTPSSWindow GRTPSSReadWindow( const char* windows, int index )
{
    const char* entry = windows + static_cast<ptrdiff_t>( index ) * GRTPSS_WINDOW_SIZE;
    return { GReadU32( entry ), static_cast<int16_t>( GReadU16( entry + 4 ) ),
             static_cast<int16_t>( GReadU16( entry + 6 ) ), GReadU16( entry + 8 ), GReadU16( entry + 10 ) };
}

void GRTPSSWriteWindow( char* windows, int index, const GRTPSSWindow& window )
{
    char* entry = windows + static_cast<ptrdiff_t>( index ) * GRTPSS_WINDOW_SIZE;
    GWriteU32( entry, window.windowID );
    GWriteU16( entry + 4, static_cast<uint16_t>( window.left ) );
    GWriteU16( entry + 6, static_cast<uint16_t>( window.top ) );
    GWriteU16( entry + 8, window.width );
    GWriteU16( entry + 10, window.height );
}

void GComposeRTP( char* buffer, int payloadType, uint16_t sequence, uint32_t timestamp, uint32_t ssrc )
{
    GWriteU8( buffer, VERSION_BYTE );
    GWriteU8( buffer + 1, static_cast<uint8_t>( payloadType ) );
    GWriteU16( buffer + 2, sequence );
    GWriteU32( buffer + 4, timestamp );
    GWriteU32( buffer + 8, ssrc );
}

void GComposeFT( char* buffer, uint32_t fileID, int type )
{
    GWriteU32( buffer + 12, fileID );
    GWriteU8( buffer + 19, static_cast<uint8_t>( type ) );
}

void GComposeINFO( char* buffer, uint64_t fileSize, const uint8_t* sha1 )
{
    GWriteU64( buffer + 24, fileSize );
    std::memcpy( buffer + 40, sha1, 20 );
}

void GComposeGETBLOCKS( char* buffer, uint32_t chunkOffset, uint32_t numChunks )
{
    GWriteU32( buffer + 20, chunkOffset );
    GWriteU32( buffer + 24, numChunks );
}

void GComposeFTACK( char* buffer, int percent, uint16_t highestSequence, uint32_t ackVector )
{
    GWriteU8( buffer + 21, static_cast<uint8_t>( percent ) );
    GWriteU16( buffer + 22, highestSequence );
    GWriteU32( buffer + 24, ackVector );
}

void GComposeBLOCK( char* buffer, uint32_t blockIndex, uint16_t blockSize )
{
    GWriteU32( buffer + 20, blockIndex );
    GWriteU16( buffer + 26, blockSize );
}

void GComposeSS( char* buffer, int type )
{
    GWriteU8( buffer + 15, static_cast<uint8_t>( type ) );
}

void GComposeLAYOUTCHANGED( char* buffer, int width, int height, int numWindows )
{
    GWriteU16( buffer + 18, static_cast<uint16_t>( width ) );
    GWriteU16( buffer + 20, static_cast<uint16_t>( height ) );
    GWriteU16( buffer + 22, static_cast<uint16_t>( numWindows ) );
}

void GComposeMOUSE( char* buffer, int x, int y )
{
    GWriteU16( buffer + 16, static_cast<uint16_t>( x ) );
    GWriteU16( buffer + 18, static_cast<uint16_t>( y ) );
}

void GComposeKEY( char* buffer, int key )
{
    GWriteU16( buffer + 18, static_cast<uint16_t>( key ) );
}

void GComposeREGIONCHANGED( char* buffer, uint32_t windowID, int left, int top, int width, int height,
                            int encodingType )
{
    GASSERT( encodingType < 255 );
    GWriteU32( buffer + 16, windowID );
    GWriteU16( buffer + 20, static_cast<uint16_t>( left ) );
    GWriteU16( buffer + 22, static_cast<uint16_t>( top ) );
    GWriteU16( buffer + 24, static_cast<uint16_t>( width ) );
    GWriteU16( buffer + 26, static_cast<uint16_t>( height ) );
    GWriteU8( buffer + 31, static_cast<uint8_t>( encodingType ) );
}

void GComposeSSACK( char* buffer, uint16_t highestSequence, uint32_t ackVector )
{
    GWriteU16( buffer + 18, highestSequence );
    GWriteU32( buffer + 20, ackVector );
}

void GRTPCompose( GString& out, int payloadType, uint16_t sequence, uint32_t timestamp, uint32_t ssrc,
                  const char* prefix, int prefixLength, const char* payload, int payloadLength )
{
    GPRECONDITION( payload && payloadLength >= 0 );
    out.resize( static_cast<size_t>( GRTP_HEADER_SIZE + prefixLength + payloadLength ) );
    GComposeRTP( out.data( ), payloadType & PAYLOAD_TYPE_MASK, sequence, timestamp, ssrc );
    if( prefixLength ) std::memcpy( out.data( ) + GRTP_HEADER_SIZE, prefix, static_cast<size_t>( prefixLength ) );
    if( payloadLength )
        std::memcpy( out.data( ) + GRTP_HEADER_SIZE + prefixLength, payload, static_cast<size_t>( payloadLength ) );
}

void GRTCPSRCompose( GString& out, uint32_t ssrc, const GString& name )
{
    const size_t nameLength = name.size( ) < 255 ? name.size( ) : 255;
    out.assign( GRTCPSR_FIXED_SIZE + nameLength, '\0' );
    char* buffer = out.data( );
    GWriteU8( buffer, VERSION_BYTE );
    GWriteU8( buffer + 1, GRTP_RTCPSR );
    GWriteU16( buffer + 2, 6 );
    GWriteU32( buffer + 4, ssrc );
    GWriteU16( buffer + 30, 0xFFFF );
    GWriteU32( buffer + 32, ssrc );
    GWriteU8( buffer + 36, 1 );
    GWriteU8( buffer + 37, static_cast<uint8_t>( nameLength ) );
    std::memcpy( buffer + GRTCPSR_FIXED_SIZE, name.data( ), nameLength );
}
