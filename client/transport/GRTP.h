// Every binary packet that devices exchange on the shared port: media frames, file transfer (RTPFT), screen sharing (RTPSS) and
// the sender report that binds a stream's SSRC to its name. Plain functions, no state, any thread. All fields are little-endian.
// A decomposer zeroes its outputs, never reads past `length`, and returns the first byte after the fixed part, or null.
//
// Base header, 12 bytes:   0 u8 version 0x80 | 1 u8 payload type | 2 u16 sequence | 4 u32 timestamp | 8 u32 SSRC
// Media:      12 u32 format word (audio: hertz; video: edge in pixels) | 16 frame
// Report:     0 u8 0x80 | 1 u8 200 | 2 u16 6 | 4 u32 SSRC | 8..27 zero | 28 u16 0 | 30 u16 0xFFFF | 32 u32 SSRC | 36 u8 1
//             | 37 u8 name length | 38 name
// RTPFT:      base (type 3, SSRC 0) | 12 u32 file ID | 16 3 bytes 0 | 19 u8 type
//   INFO      20 u32 0 | 24 u64 size | 32 8 bytes 0 | 40 20 bytes SHA-1 | 60 4 bytes any
//   GETBLOCKS 20 u32 chunk offset | 24 u32 chunks | 28 mask
//   ACK       20 u8 0 | 21 u8 percent | 22 u16 highest sequence | 24 u32 ack vector
//   BLOCK     20 u32 block index | 24 u16 0 | 26 u16 block size | 28 data
// RTPSS:      base (type 4) | 12 3 bytes 0 | 15 u8 type
//   LAYOUT    16 u16 0 | 18 u16 width | 20 u16 height | 22 u16 windows | 24 entries of u32 ID, i16 left, i16 top, u16 width, u16 height
//   MOUSE     16 u16 x | 18 u16 y
//   REGION    16 u32 window | 20 i16 left | 22 i16 top | 24 u16 width | 26 u16 height | 28 3 bytes 0 | 31 u8 encoding | 32 pixels
//   KEY       16 u16 0 | 18 u16 virtual key
//   ACK       16 u16 0 | 18 u16 highest sequence | 20 u32 ack vector
#pragma once

#include "base/GTypes.h"

enum GRTPPayloadType
{
    GRTP_AUDIO = 1,
    GRTP_VIDEO = 2,
    GRTP_FILE = 3,
    GRTP_SCREEN = 4,
    GRTP_RTCPSR = 200
};
enum GRTPFTType
{
    GRTPFT_GETINFO = 1,
    GRTPFT_INFO = 2,
    GRTPFT_GETBLOCKS = 3,
    GRTPFT_ACK = 4,
    GRTPFT_BLOCK = 5,
    GRTPFT_CANCELRECV = 6,
    GRTPFT_CANCELSEND = 7,
    GRTPFT_DONE = 8
};
enum GRTPSSType
{
    GRTPSS_LAYOUTCHANGED = 1,
    GRTPSS_MOUSECHANGED = 2,
    GRTPSS_REGIONCHANGED = 3,
    GRTPSS_CANCELSEND = 5,
    GRTPSS_CANCELRECV = 6,
    GRTPSS_KEYDOWN = 7,
    GRTPSS_KEYUP = 8,
    GRTPSS_MOUSEMOVE = 9,
    GRTPSS_LBUTTONDOWN = 10,
    GRTPSS_LBUTTONUP = 11,
    GRTPSS_LBUTTONDBLCLK = 12,
    GRTPSS_RBUTTONDOWN = 13,
    GRTPSS_CONTROLON = 14,
    GRTPSS_CONTROLOFF = 15,
    GRTPSS_ACK = 16
};

// Sizes of the fixed parts.
constexpr int GRTP_HEADER_SIZE = 12;
constexpr int GRTCPSR_FIXED_SIZE = 38;
constexpr int GRTPFT_HEADER_SIZE = 20;
constexpr int GRTPFT_INFO_SIZE = 64;
constexpr int GRTPFT_BODY_SIZE = 28; // GETBLOCKS, ACK and BLOCK.
constexpr int GRTPSS_HEADER_SIZE = 16;
constexpr int GRTPSS_EVENT_SIZE = 20; // MOUSECHANGED, key and mouse events.
constexpr int GRTPSS_ACK_SIZE = 24;
constexpr int GRTPSS_LAYOUT_SIZE = 24;
constexpr int GRTPSS_WINDOW_SIZE = 12;
constexpr int GRTPSS_REGION_SIZE = 32;
constexpr int GRTPFT_BLOCK_BYTES = 1024;

struct GRTPHeader
{
    uint8_t version = 0;
    uint8_t payloadType = 0; // The second byte whole, marker bit included.
    uint16_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;
};
struct GRTPFTHeader : GRTPHeader
{
    uint32_t fileID = 0;
    uint8_t type = 0;
};
struct GRTPFTInfo : GRTPFTHeader
{
    uint64_t fileSize = 0;
    uint8_t sha1[20] = { };
};
struct GRTPFTGetBlocks : GRTPFTHeader
{
    uint32_t chunkOffset = 0;
    uint32_t numChunks = 0;
};
struct GRTPFTAck : GRTPFTHeader
{
    uint8_t percent = 0;
    uint16_t highestSequence = 0;
    uint32_t ackVector = 0;
};
struct GRTPFTBlock : GRTPFTHeader
{
    uint32_t blockIndex = 0;
    uint16_t blockSize = 0;
};
struct GRTPSSHeader : GRTPHeader
{
    uint8_t type = 0;
};
struct GRTPSSLayoutChanged : GRTPSSHeader
{
    uint16_t width = 0;
    uint16_t height = 0;
    uint16_t numWindows = 0;
};
struct GRTPSSWindow
{
    uint32_t windowID = 0;
    int16_t left = 0;
    int16_t top = 0;
    uint16_t width = 0;
    uint16_t height = 0;
};
struct GRTPSSMouse : GRTPSSHeader // MOUSECHANGED and the mouse events.
{
    uint16_t x = 0;
    uint16_t y = 0;
};
struct GRTPSSKey : GRTPSSHeader
{
    uint16_t key = 0;
};
struct GRTPSSRegionChanged : GRTPSSHeader
{
    uint32_t windowID = 0;
    int16_t left = 0;
    int16_t top = 0;
    uint16_t width = 0;
    uint16_t height = 0;
    uint8_t encodingType = 0;
};
struct GRTPSSAck : GRTPSSHeader
{
    uint16_t highestSequence = 0;
    uint32_t ackVector = 0;
};

// ---- Decomposers.
const char* GDecomposeRTP( const char* buffer, int length, GRTPHeader& header, int& remaining );
// Looser: any first byte with 10 in its top bits; the payload type loses its marker bit.
const char* GRTPDecompose( const char* buffer, int length, int& payloadType, uint16_t& sequence, uint32_t& timestamp,
                           uint32_t& ssrc, int& remaining );
bool GRTPIsRTCPSR( const char* buffer, int length );
// Precondition "buffer && length > 38". False when the name does not fit; the output is then untouched.
bool GRTCPSRDecompose( const char* buffer, int length, GWString& name );
const char* GDecomposeRTPFT( const char* buffer, int length, GRTPFTHeader& header, int& remaining );
const char* GDecomposeRTPFTINFO( const char* buffer, int length, GRTPFTInfo& info, int& remaining );
const char* GDecomposeRTPFTGETBLOCKS( const char* buffer, int length, GRTPFTGetBlocks& getBlocks, int& remaining );
const char* GDecomposeRTPFTACK( const char* buffer, int length, GRTPFTAck& ack, int& remaining );
const char* GDecomposeRTPFTBLOCK( const char* buffer, int length, GRTPFTBlock& block, int& remaining );
const char* GDecomposeRTPSS( const char* buffer, int length, GRTPSSHeader& header, int& remaining );
const char* GDecomposeRTPSSLAYOUTCHANGED( const char* buffer, int length, GRTPSSLayoutChanged& layout, int& remaining );
const char* GDecomposeRTPSSMOUSECHANGED( const char* buffer, int length, GRTPSSMouse& mouse, int& remaining );
const char* GDecomposeRTPSSMOUSEEVENT( const char* buffer, int length, GRTPSSMouse& mouse, int& remaining );
const char* GDecomposeRTPSSKEYEVENT( const char* buffer, int length, GRTPSSKey& key, int& remaining );
const char* GDecomposeRTPSSREGIONCHANGED( const char* buffer, int length, GRTPSSRegionChanged& region, int& remaining );
const char* GDecomposeRTPSSACK( const char* buffer, int length, GRTPSSAck& ack, int& remaining );
// Entry `index` of the list behind a layout; the caller has checked that index < numWindows.
GRTPSSWindow GRTPSSReadWindow( const char* windows, int index );
void GRTPSSWriteWindow( char* windows, int index, const GRTPSSWindow& window );

// ---- Composers. They fill a buffer that the caller has sized and zero-filled.
void GComposeRTP( char* buffer, int payloadType, uint16_t sequence, uint32_t timestamp, uint32_t ssrc );
void GComposeFT( char* buffer, uint32_t fileID, int type );
void GComposeINFO( char* buffer, uint64_t fileSize, const uint8_t* sha1 );
void GComposeGETBLOCKS( char* buffer, uint32_t chunkOffset, uint32_t numChunks );
void GComposeFTACK( char* buffer, int percent, uint16_t highestSequence, uint32_t ackVector );
void GComposeBLOCK( char* buffer, uint32_t blockIndex, uint16_t blockSize );
void GComposeSS( char* buffer, int type );
void GComposeLAYOUTCHANGED( char* buffer, int width, int height, int numWindows );
void GComposeMOUSE( char* buffer, int x, int y );
void GComposeKEY( char* buffer, int key );
void GComposeREGIONCHANGED( char* buffer, uint32_t windowID, int left, int top, int width, int height,
                            int encodingType );
void GComposeSSACK( char* buffer, uint16_t highestSequence, uint32_t ackVector );
// Resizes `out` to 12 + prefix + payload. The payload type is ANDed with 0x27. Precondition "payload && payloadLength >= 0".
void GRTPCompose( GString& out, int payloadType, uint16_t sequence, uint32_t timestamp, uint32_t ssrc,
                  const char* prefix, int prefixLength, const char* payload, int payloadLength );
// Resizes `out` to 38 bytes and the name, which is cut at 255.
void GRTCPSRCompose( GString& out, uint32_t ssrc, const GString& name );
