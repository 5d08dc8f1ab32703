// What leaves for peers beside the bare codec: a camera's picture is cropped, scaled, encoded once and sent to 1, 10 or 100 of them in
// packets of their own, the voice likewise. The anchor is the codec alone, on planes and samples that are ready for it, and one bare
// call that sends as many ready packets.
#include "Bench.h"

#include "base/GBytes.h"
#include "client/media/GSharedEncoding.h"
#include "image/GImage.h"

#include <arpa/inet.h>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr char SETTINGS[] = "bench_capture_settings.ini";
constexpr int WIDTH = 160;
constexpr int HEIGHT = 120;
constexpr int EDGE = 48;
constexpr int PICTURES = 32;
constexpr int SAMPLES = 320;
constexpr int FREQUENCY = 22000;
constexpr uint64_t PICTURE_TIME = 1000000 / 7;
constexpr uint64_t SOUND_TIME = 14545;
constexpr Bench::Limits LIMITS{ 1.35, 1.1 };
constexpr size_t PICTURE_BYTES = 300;
constexpr size_t SOUND_BYTES = 95;

void require( bool holds )
{
    if( !holds ) std::abort( );
}

// Pictures of a shape that moves before a ground that does not, as a camera gives them.
std::vector<GString> film( )
{
    std::vector<GString> pictures;
    for( int i = 0; i < PICTURES; ++i )
    {
        GString picture( static_cast<size_t>( WIDTH * HEIGHT * 2 ), '\x80' );
        for( int y = 0; y < HEIGHT; ++y )
            for( int x = 0; x < WIDTH; ++x )
            {
                const double dx = x - 80 - 20 * std::sin( i * 0.2 );
                const double dy = y - 60;
                const bool isFace = dx * dx + dy * dy < 900;
                picture[static_cast<size_t>( 2 * ( y * WIDTH + x ) )] =
                    static_cast<char>( isFace ? 180 + ( x * y ) % 24 : 60 + x / 4 + y / 8 );
            }
        pictures.push_back( picture );
    }
    return pictures;
}

GString voice( )
{
    GString samples;
    for( int i = 0; i < SAMPLES; ++i )
    {
        char word[2];
        GWriteU16(
            word, static_cast<uint16_t>( static_cast<int16_t>( 6000 * std::sin( i * 0.1 ) * std::sin( i * 0.013 ) ) ) );
        samples.append( word, 2 );
    }
    return samples;
}

// Streams to a port that nobody reads.
class Crowd
{
public:
    explicit Crowd( int viewers )
        : _instance( SETTINGS_NAME ), _port( u"bench" ), _sender( GNetUDPPortOpen( u"127.0.0.1:0" ) ),
          _receiver( GNetUDPPortOpen( u"127.0.0.1:0" ) ), shared( &_instance, &_port )
    {
        require( _sender && _receiver );
        _instance.set( u"Robust_Media", 1 );
        _instance.set( u"Video_Size", EDGE );
        _port.setUDPPort( _sender );
        for( int i = 0; i < viewers; ++i )
        {
            GHTTPHeaders open( u"OPEN" );
            open.set( u"Send-To", GNetUDPPortGetLocalHost( _receiver ) );
            open.set( u"Send-From", GNetUDPPortGetLocalHost( _sender ) );
            open.set( u"Video-FPS", 5 );
            open.set( u"Audio-Enable", u"true" );
            open.set( u"Video-Enable", u"true" );
            _streams.push_back( std::make_unique<GVideoCaptureStream>( &_instance, &_port, open ) );
            _streams.back( )->setFormat( open );
            shared.add( _streams.back( ).get( ) );
        }
    }
    ~Crowd( )
    {
        for( const auto& stream : _streams ) shared.remove( stream.get( ) );
        _port.reset( );
        GNetUDPPortClose( _sender );
        GNetUDPPortClose( _receiver );
    }
    Crowd( const Crowd& ) = delete;
    Crowd& operator=( const Crowd& ) = delete;

    void show( )
    {
        static const std::vector<GString> PICTURE = film( );
        // Each is due.
        _pictureTime += 2 * PICTURE_TIME;
        const GString& picture = PICTURE[static_cast<size_t>( _shown++ % PICTURES )];
        shared.onVideoFrame( _pictureTime, { GIT_YUY2, WIDTH, HEIGHT }, picture.data( ),
                             static_cast<int>( picture.size( ) ) );
    }
    void say( )
    {
        static const GString VOICE = voice( );
        _soundTime += SOUND_TIME;
        shared.onAudioFrame( _soundTime, { 2, FREQUENCY, 1 }, VOICE.data( ), static_cast<int>( VOICE.size( ) ) );
    }

private:
    static constexpr char16_t SETTINGS_NAME[] = u"bench_capture_settings.ini";
    GInstance _instance;
    GMegaPort _port;
    GNetUDPPort* _sender;
    GNetUDPPort* _receiver;
    std::vector<std::unique_ptr<GVideoCaptureStream>> _streams;
    uint64_t _pictureTime = 1000000000;
    uint64_t _soundTime = 1000000000;
    int _shown = 0;

public:
    GSharedEncoding shared;
};

// The codec with the fields that matter, on the same film.
class BareTheora
{
public:
    BareTheora( )
    {
        theora_info_init( &_info );
        _info.width = _info.frame_width = EDGE;
        _info.height = _info.frame_height = EDGE;
        _info.fps_numerator = _info.fps_denominator = 1;
        _info.target_bitrate = 45000;
        _info.quick_p = 1;
        _info.keyframe_auto_p = 1;
        _info.keyframe_frequency = _info.keyframe_frequency_force = 64;
        _info.keyframe_data_target_bitrate = 67500;
        _info.keyframe_auto_threshold = 80;
        _info.keyframe_mindistance = 8;
        _info.noise_sensitivity = 2;
        require( theora_encode_init( &_state, &_info ) == 0 );
        for( const GString& picture : film( ) )
        {
            GString square;
            GString planes;
            GString scaled;
            constexpr int SQUARE = HEIGHT / 16 * 16;
            constexpr int LEFT = ( WIDTH - SQUARE ) / 2;
            constexpr int TOP = ( HEIGHT - SQUARE ) / 2;
            GImageCrop( { GIT_YUY2, WIDTH, HEIGHT }, picture.data( ), { LEFT, TOP, LEFT + SQUARE, TOP + SQUARE },
                        square );
            GImageConvertToIYUY( { GIT_YUY2, SQUARE, SQUARE }, square.data( ), planes );
            GImageResizeIYUY( { GIT_IYUY, SQUARE, SQUARE }, planes.data( ), { GIT_IYUY, EDGE, EDGE }, scaled );
            _planes.push_back( scaled );
        }
    }
    ~BareTheora( )
    {
        theora_clear( &_state );
        theora_info_clear( &_info );
    }
    BareTheora( const BareTheora& ) = delete;
    BareTheora& operator=( const BareTheora& ) = delete;

    void encode( )
    {
        auto* luma = reinterpret_cast<unsigned char*>( _planes[static_cast<size_t>( _shown++ % PICTURES )].data( ) );
        yuv_buffer yuv;
        yuv.y_width = yuv.y_height = yuv.y_stride = EDGE;
        yuv.uv_width = yuv.uv_height = yuv.uv_stride = EDGE / 2;
        yuv.y = luma;
        yuv.u = luma + EDGE * EDGE;
        yuv.v = yuv.u + EDGE * EDGE / 4;
        ogg_packet packet;
        require( theora_encode_YUVin( &_state, &yuv ) == 0 && theora_encode_packetout( &_state, 0, &packet ) == 1 );
        Bench::keep( packet );
    }

private:
    theora_info _info;
    theora_state _state;
    std::vector<GString> _planes;
    int _shown = 0;
};

class BareSpeex
{
public:
    BareSpeex( ) : _state( speex_encoder_init( &speex_nb_mode ) )
    {
        speex_bits_init( &_bits );
        int rate = FREQUENCY;
        speex_encoder_ctl( _state, SPEEX_SET_SAMPLING_RATE, &rate );
        const GString samples = voice( );
        for( size_t i = 0; i < SAMPLES; ++i )
            _samples.push_back( static_cast<int16_t>( GReadU16( samples.data( ) + 2 * i ) ) );
    }
    ~BareSpeex( )
    {
        speex_encoder_destroy( _state );
        speex_bits_destroy( &_bits );
    }
    BareSpeex( const BareSpeex& ) = delete;
    BareSpeex& operator=( const BareSpeex& ) = delete;

    void encode( )
    {
        char out[200];
        std::vector<float> samples = _samples; // The codec changes what it reads.
        speex_bits_reset( &_bits );
        for( size_t i = 0; i < SAMPLES; i += 160 ) speex_encode( _state, &samples[i], &_bits );
        speex_bits_insert_terminator( &_bits );
        Bench::keep( speex_bits_write( &_bits, out, sizeof( out ) ) );
    }

private:
    void* _state;
    SpeexBits _bits;
    std::vector<float> _samples;
};
// As many packets in one call, to a port that nobody reads.
class BareSender
{
public:
    BareSender( int count, size_t bytes ) : _packet( bytes, 'x' )
    {
        sockaddr_in address{ };
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
        socklen_t size = sizeof( address );
        require( ::bind( _receiver, reinterpret_cast<sockaddr*>( &address ), size ) == 0 );
        require( ::getsockname( _receiver, reinterpret_cast<sockaddr*>( &_to ), &size ) == 0 );
        _part = { _packet.data( ), _packet.size( ) };
        mmsghdr message{ };
        message.msg_hdr.msg_name = &_to;
        message.msg_hdr.msg_namelen = sizeof( _to );
        message.msg_hdr.msg_iov = &_part;
        message.msg_hdr.msg_iovlen = 1;
        _messages.assign( static_cast<size_t>( count ), message );
    }
    ~BareSender( )
    {
        ::close( _sender );
        ::close( _receiver );
    }
    BareSender( const BareSender& ) = delete;
    BareSender& operator=( const BareSender& ) = delete;

    void send( )
    {
        Bench::keep( ::sendmmsg( _sender, _messages.data( ), static_cast<unsigned>( _messages.size( ) ), 0 ) );
    }

private:
    int _sender = ::socket( AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0 );
    int _receiver = ::socket( AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0 );
    GString _packet;
    sockaddr_in _to{ };
    iovec _part{ };
    std::vector<mmsghdr> _messages;
};
} // namespace

int main( int argc, char** argv )
{
    Bench::Suite suite( "capture", argc, argv );
    BareTheora theora;
    BareSpeex speex;
    for( const int viewers : { 1, 2, 10, 100 } )
    {
        Crowd crowd( viewers );
        BareSender pictures( viewers, PICTURE_BYTES );
        BareSender sounds( viewers, SOUND_BYTES );
        const std::string to = std::to_string( viewers ) + ( viewers == 1 ? " viewer" : " viewers" );
        suite.time(
            "a picture to " + to, "us", LIMITS, [&] { crowd.show( ); },
            [&]
            {
                theora.encode( );
                pictures.send( );
            } );
        suite.time(
            "two codec frames of sound to " + to, "us", LIMITS, [&] { crowd.say( ); },
            [&]
            {
                speex.encode( );
                sounds.send( );
            } );
        suite.allocationsOf( "a hundred pictures to " + to, 0,
                             [&]
                             {
                                 for( int i = 0; i < 100; ++i ) crowd.show( );
                             } );
        suite.allocationsOf( "a hundred buffers of sound to " + to, 0,
                             [&]
                             {
                                 for( int i = 0; i < 100; ++i ) crowd.say( );
                             } );
    }
    std::remove( SETTINGS );
    return suite.finish( );
}
