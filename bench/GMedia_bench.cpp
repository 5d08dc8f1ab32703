// The road of pictures and voices beside the bare codecs: from a camera's picture to a packet and back to pixels, from samples to a packet
// and back. What the wrappers add is what counts: conversion, crop and scaling, serialization, clamping. Allocations are counted beside
// those of the libraries themselves.
#include "Bench.h"

#include "base/GBytes.h"
#include "client/media/GOggPacket.h"
#include "client/media/GSpeexDecoder.h"
#include "client/media/GSpeexEncoder.h"
#include "client/media/GTheoraDecoder.h"
#include "client/media/GTheoraEncoder.h"
#include "client/media/GVideoPlaybackStream.h"
#include "image/GImage.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <libyuv.h>
#include <memory>

namespace
{
constexpr char SETTINGS[] = "bench_media_settings.ini";
constexpr int EDGE = 48;
// A key frame and what follows it.
constexpr size_t FRAMES = 64;
constexpr int RATE = 22000;

void require( bool holds )
{
    if( !holds ) std::abort( );
}
uint8_t* bytesOf( GString& text )
{
    return reinterpret_cast<uint8_t*>( text.data( ) );
}
const uint8_t* bytesOf( const GString& text )
{
    return reinterpret_cast<const uint8_t*>( text.data( ) );
}

// A soft picture that moves, with a little noise as cameras have it.
GString cameraPicture( const GImageFormat& format, size_t phase )
{
    const int bytes = GImageBytesPerPixel( format.type );
    const double scale = 640.0 / format.width;
    uint32_t noise = 1;
    GString out;
    for( int y = 0; y < format.height; ++y )
        for( int x = 0; x < format.width; ++x )
            for( int c = 0; c < bytes; ++c )
            {
                noise = noise * 1664525 + 1013904223;
                const double at = x * scale * 0.02 + y * scale * 0.013 + static_cast<double>( phase ) * 0.2 + c;
                out += static_cast<char>( 128 + std::lround( 90 * std::sin( at ) ) + static_cast<int>( noise >> 29 ) );
            }
    return out;
}

GRect middleOf( const GImageFormat& format )
{
    const int left = ( format.width - format.height ) / 2 & ~1;
    return { left, 0, left + format.height, format.height };
}

// ---- Pictures.

// The bare encoder on planes that are ready.
class BareEncoder
{
public:
    BareEncoder( )
    {
        theora_info info;
        GTheoraEncoder_fillInfo( info, EDGE, EDGE );
        require( theora_encode_init( &_state, &info ) == 0 );
    }
    ~BareEncoder( ) { theora_clear( &_state ); }
    BareEncoder( const BareEncoder& ) = delete;
    BareEncoder& operator=( const BareEncoder& ) = delete;
    void encode( GString& planes )
    {
        yuv_buffer yuv{ };
        yuv.y_width = yuv.y_height = yuv.y_stride = EDGE;
        yuv.uv_width = yuv.uv_height = yuv.uv_stride = EDGE / 2;
        yuv.y = bytesOf( planes );
        yuv.u = yuv.y + EDGE * EDGE;
        yuv.v = yuv.u + EDGE * EDGE / 4;
        ogg_packet packet;
        require( theora_encode_YUVin( &_state, &yuv ) == 0 );
        require( theora_encode_packetout( &_state, 0, &packet ) == 1 );
        Bench::keep( packet );
    }

private:
    theora_state _state;
};

// What one call takes from the heap, at most, once it is warm.
template <typename Work>
long heapOf( Work work )
{
    long most = 0;
    for( size_t i = 0; i < 2 * FRAMES; ++i )
    {
        const long before = Bench::allocations( );
        work( );
        if( i >= FRAMES ) most = std::max( most, Bench::allocations( ) - before );
    }
    return most;
}

void encodePictures( Bench::Suite& suite, const GImageFormat& format, const char* name )
{
    // The camera pans down a higher picture and up again: what it delivers lies in the nearer caches, as a picture does that was just captured.
    const GString source =
        cameraPicture( { format.type, format.width, format.height + static_cast<int>( FRAMES ) }, 0 );
    const size_t row = static_cast<size_t>( format.width * GImageBytesPerPixel( format.type ) );
    const int size = static_cast<int>( GImageSize( format ) );
    const auto rowAt = []( size_t i ) { return 2 * std::min( i, FRAMES - i ); };
    std::vector<GString> planes( FRAMES );
    for( size_t i = 0; i < FRAMES; ++i )
        GImageCropToIYUY( format, source.data( ) + rowAt( i ) * row, middleOf( format ), { GIT_IYUY, EDGE, EDGE },
                          planes[i] );
    const std::unique_ptr<GTheoraEncoder> encoder(
        GSAFENEW( GTheoraEncoder, ( format, middleOf( format ), EDGE, EDGE, 5 ) ) );
    BareEncoder bare;
    GString packet;
    size_t ours = 0, theirs = 0;
    const auto encode = [&] { encoder->encode( source.data( ) + rowAt( ours++ % FRAMES ) * row, size, packet ); };
    const auto encodeBare = [&] { bare.encode( planes[theirs++ % FRAMES] ); };
    suite.time( GString( "encode 48x48 from " ) + name, "us", { 1.35, 1.1 }, encode, encodeBare );
    const long library = heapOf( encodeBare );
    suite.allocationsOf( GString( "encode from " ) + name + ", beside the codec's",
                         library * static_cast<long>( FRAMES ),
                         [&]
                         {
                             for( size_t i = 0; i < FRAMES; ++i ) encode( );
                         } );
}

void preparePictures( Bench::Suite& suite, const GImageFormat& format, const char* name )
{
    const GString source = cameraPicture( format, 0 );
    const GRect rect = middleOf( format );
    const int side = rect.height( ), stride = format.width * GImageBytesPerPixel( format.type );
    const uint8_t* from = bytesOf( source ) + static_cast<ptrdiff_t>( rect.left ) * GImageBytesPerPixel( format.type );
    GString out, whole( static_cast<size_t>( GImageSizeIYUY( side, side ) ), '\0' );
    GString small( static_cast<size_t>( GImageSizeIYUY( EDGE, EDGE ) ), '\0' );
    const auto split = []( GString& planes, int edge ) {
        return std::array{ bytesOf( planes ), bytesOf( planes ) + edge * edge,
                           bytesOf( planes ) + edge * edge * 5 / 4 };
    };
    const auto library = format.type == GIT_YUY2 ? libyuv::YUY2ToI420 : libyuv::RAWToI420;
    const auto byLibrary = [&]
    {
        const auto a = split( whole, side ), b = split( small, EDGE );
        library( from, stride, a[0], side, a[1], side / 2, a[2], side / 2, side, side );
        libyuv::I420Scale( a[0], side, a[1], side / 2, a[2], side / 2, side, side, b[0], EDGE, b[1], EDGE / 2, b[2],
                           EDGE / 2, EDGE, EDGE, libyuv::kFilterBox );
    };
    const auto ours = [&] { GImageCropToIYUY( format, source.data( ), rect, { GIT_IYUY, EDGE, EDGE }, out ); };
    suite.time( GString( "crop, scale, convert " ) + name, "us", { 1.1, 0.9 }, ours, byLibrary );
    suite.allocationsOf( GString( "crop, scale, convert " ) + name, 0, ours );
}

std::vector<GString> encodedPictures( )
{
    const GImageFormat format{ GIT_RGB24, 160, 120 };
    const std::unique_ptr<GTheoraEncoder> encoder(
        GSAFENEW( GTheoraEncoder, ( format, middleOf( format ), EDGE, EDGE, 5 ) ) );
    std::vector<GString> packets( FRAMES );
    for( size_t i = 0; i < FRAMES; ++i )
    {
        const GString source = cameraPicture( format, i );
        encoder->encode( source.data( ), static_cast<int>( source.size( ) ), packets[i] );
    }
    return packets;
}

class BareDecoder
{
public:
    explicit BareDecoder( const GString& book )
    {
        theora_info_init( &_info );
        theora_comment_init( &_comment );
        int at = 0;
        for( int i = 0; i < 3; ++i )
        {
            ogg_packet packet;
            at += GDeserialize( book.data( ) + at, static_cast<int>( book.size( ) ) - at, packet );
            require( theora_decode_header( &_info, &_comment, &packet ) == 0 );
        }
        require( theora_decode_init( &_state, &_info ) == 0 );
    }
    ~BareDecoder( )
    {
        theora_clear( &_state );
        theora_comment_clear( &_comment );
        theora_info_clear( &_info );
    }
    BareDecoder( const BareDecoder& ) = delete;
    BareDecoder& operator=( const BareDecoder& ) = delete;
    void decode( ogg_packet& packet )
    {
        yuv_buffer yuv;
        require( theora_decode_packetin( &_state, &packet ) == 0 );
        require( theora_decode_YUVout( &_state, &yuv ) == 0 );
        Bench::keep( yuv );
    }

private:
    theora_info _info;
    theora_comment _comment;
    theora_state _state;
};

void decodePictures( Bench::Suite& suite )
{
    GString book;
    GTheoraEncoder_generateCodebook( EDGE, EDGE, book );
    const std::vector<GString> packets = encodedPictures( );
    const std::unique_ptr<GTheoraDecoder> decoder(
        GSAFENEW( GTheoraDecoder, ( book.data( ), static_cast<int>( book.size( ) ) ) ) );
    BareDecoder bare( book );
    std::vector<ogg_packet> read( FRAMES );
    for( size_t i = 0; i < FRAMES; ++i )
        require( GDeserialize( packets[i].data( ), static_cast<int>( packets[i].size( ) ), read[i] ) );
    GImageFormat format;
    GString pixels;
    size_t ours = 0, theirs = 0;
    const auto decode = [&]
    {
        const GString& packet = packets[ours++ % FRAMES];
        require( decoder->decode( packet.data( ), static_cast<int>( packet.size( ) ), format, pixels ) );
    };
    const auto decodeBare = [&] { bare.decode( read[theirs++ % FRAMES] ); };
    suite.time( "decode 48x48 to RGB24", "us", { 1.1, 1.0 }, decode, decodeBare );
    suite.allocationsOf( "decode, beside the codec's", heapOf( decodeBare ) * static_cast<long>( FRAMES ),
                         [&]
                         {
                             for( size_t i = 0; i < FRAMES; ++i ) decode( );
                         } );
}

// ---- Voices.

GString voice( int samples )
{
    GString out( static_cast<size_t>( samples ) * 2, '\0' );
    uint32_t noise = 1;
    for( int i = 0; i < samples; ++i )
    {
        noise = noise * 1664525 + 1013904223;
        const double value = 6000 * std::sin( i * 0.05 ) * std::sin( i * 0.0007 ) + 3000 * std::sin( i * 0.21 );
        GWriteU16( out.data( ) + 2 * i,
                   static_cast<uint16_t>( static_cast<int>( value ) + static_cast<int>( noise >> 23 ) ) );
    }
    return out;
}

class BareSpeech
{
public:
    BareSpeech( )
    {
        speex_bits_init( &_bits );
        speex_encoder_ctl( _encoder, SPEEX_SET_SAMPLING_RATE, &_rate );
        speex_decoder_ctl( _decoder, SPEEX_SET_SAMPLING_RATE, &_rate );
    }
    ~BareSpeech( )
    {
        speex_encoder_destroy( _encoder );
        speex_decoder_destroy( _decoder );
        speex_bits_destroy( &_bits );
    }
    BareSpeech( const BareSpeech& ) = delete;
    BareSpeech& operator=( const BareSpeech& ) = delete;
    void encode( float* samples )
    {
        char out[200];
        speex_bits_reset( &_bits );
        speex_encode( _encoder, samples, &_bits );
        speex_bits_insert_terminator( &_bits );
        Bench::keep( speex_bits_write( &_bits, out, sizeof( out ) ) );
    }
    void decode( const GString& packet )
    {
        float out[160];
        speex_bits_read_from( &_bits, packet.data( ) + 4, static_cast<int>( packet.size( ) ) - 4 );
        while( speex_bits_remaining( &_bits ) > 0 && speex_decode( _decoder, &_bits, out ) == 0 ) Bench::keep( out );
    }

private:
    SpeexBits _bits;
    int _rate = RATE;
    void* _encoder = speex_encoder_init( &speex_nb_mode );
    void* _decoder = speex_decoder_init( &speex_nb_mode );
};

void voices( Bench::Suite& suite )
{
    const GString samples = voice( 160 * static_cast<int>( FRAMES ) );
    std::vector<float> floats;
    for( size_t i = 0; i < samples.size( ); i += 2 )
        floats.push_back( static_cast<int16_t>( GReadU16( samples.data( ) + i ) ) );
    const std::unique_ptr<GSpeexEncoder> encoder( GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( RATE ) ) ) );
    BareSpeech bare;
    GString packet, out;
    size_t ours = 0, theirs = 0;
    const auto encode = [&]
    {
        packet.clear( );
        encoder->encode( samples.data( ) + ours++ % FRAMES * 320, 320, packet );
    };
    suite.time( "Speex encode, 160 samples", "us", { 1.1, 1.0 }, encode,
                [&] { bare.encode( floats.data( ) + theirs++ % FRAMES * 160 ); } );
    suite.allocationsOf( "Speex encode", 0, encode );

    std::vector<GString> packets( FRAMES / 2 );
    for( size_t i = 0; i < packets.size( ); ++i ) encoder->encode( samples.data( ) + i * 640, 640, packets[i] );
    GString book;
    GSpeexEncoder_generateCodebook( book, RATE );
    const std::unique_ptr<GSpeexDecoder> decoder(
        GSAFENEW( GSpeexDecoder, ( book.data( ), static_cast<int>( book.size( ) ) ) ) );
    const auto decode = [&]
    {
        const GString& next = packets[ours++ % packets.size( )];
        require( decoder->decode( next.data( ), static_cast<int>( next.size( ) ), out ) );
    };
    suite.time( "Speex decode, 320 samples", "us", { 1.1, 1.0 }, decode,
                [&] { bare.decode( packets[theirs++ % packets.size( )] ); } );
    suite.allocationsOf( "Speex decode", 0, decode );
}

// ---- Packets.

void packets( Bench::Suite& suite )
{
    const GString frame( 300, 'x' );
    GString packet;
    suite.allocationsOf( "compose a media packet", 0,
                         [&] {
                             GRTPCompose( packet, GRTP_VIDEO, 1, 2, 3, "\x30\0\0\0", 4, frame.data( ),
                                          static_cast<int>( frame.size( ) ) );
                         } );

    GInstance instance( GUTF8ToWide( SETTINGS ) );
    instance.set( u"Robust_Media", 1 );
    GHTTPHeaders open( u"OPEN" );
    open.set( u"Buddy-Device-GUID", u"ben@velmora.local@device" );
    GVideoPlaybackStream stream( &instance, nullptr, open );
    const std::vector<GString> pictures = encodedPictures( );
    const std::unique_ptr<GSpeexEncoder> encoder( GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( RATE ) ) ) );
    GString spoken;
    encoder->encode( voice( 320 ).data( ), 640, spoken );
    GMegaPortBucket bucket;
    uint16_t sequence = 0;
    const auto receive = [&]( int type, const char* word, const GString& media )
    {
        ++sequence;
        GRTPCompose( bucket.buffer, type, sequence, sequence * 3U, 7, word, 4, media.data( ),
                     static_cast<int>( media.size( ) ) );
        stream.recv( bucket );
    };
    GString book;
    GTheoraEncoder_generateCodebook( EDGE, EDGE, book );
    BareDecoder bare( book );
    std::vector<ogg_packet> read( FRAMES );
    for( size_t i = 0; i < FRAMES; ++i )
        require( GDeserialize( pictures[i].data( ), static_cast<int>( pictures[i].size( ) ), read[i] ) );
    size_t theirs = 0;
    const long library = heapOf( [&] { bare.decode( read[theirs++ % FRAMES] ); } );
    suite.allocationsOf( "receive 64 pictures, beside the codec's", library * static_cast<long>( FRAMES ),
                         [&]
                         {
                             for( const GString& picture : pictures ) receive( GRTP_VIDEO, "\x30\0\0\0", picture );
                         } );
    suite.allocationsOf( "receive 64 packets of a voice", 0,
                         [&]
                         {
                             for( size_t i = 0; i < FRAMES; ++i ) receive( GRTP_AUDIO, "\xF0\x55\0\0", spoken );
                         } );
}
} // namespace

int main( int argc, char** argv )
{
    Bench::Suite suite( "media", argc, argv );
    const GImageFormat sources[] = {
        { GIT_YUY2, 640, 480 }, { GIT_RGB24, 640, 480 }, { GIT_YUY2, 160, 120 }, { GIT_RGB24, 160, 120 } };
    const char* names[] = { "640x480 YUY2", "640x480 RGB24", "160x120 YUY2", "160x120 RGB24" };
    for( size_t i = 0; i < 4; ++i ) encodePictures( suite, sources[i], names[i] );
    for( size_t i = 0; i < 4; ++i ) preparePictures( suite, sources[i], names[i] );
    decodePictures( suite );
    voices( suite );
    packets( suite );
    std::remove( SETTINGS );
    return suite.finish( );
}
