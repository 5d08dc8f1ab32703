// The echo of a real sound server: what the speaker plays is all that the microphone hears.
#include "CaptureListener.h"
#include "client/media/GEchoReference.h"
#include "client/media/GVoiceTreatment.h"
#include "platform/GSoundRing.h"
#include "platform/GTime.h"
#include "support/TestFolder.h"

#include <cmath>

namespace
{
constexpr int RATE = 22000;
constexpr int SIZE = 2 * RATE;     // One second.
constexpr int PIECE = RATE / 50;   // Samples of the reference that are written at once.
constexpr int SECOND = RATE / 320; // Frames of two codec frames.
constexpr double WANTED = 15;

// Noise that comes and goes five times a second, for a ring of one second.
std::vector<int16_t> chatter( )
{
    std::vector<int16_t> samples( RATE );
    uint32_t state = 1;
    double last = 0;
    for( size_t i = 0; i < samples.size( ); ++i )
    {
        state = state * 1664525 + 1013904223;
        last += 0.3 * ( state / 4294967296.0 - 0.5 - last );
        samples[i] = static_cast<int16_t>( 20000 * last *
                                           std::abs( std::sin( 5 * 3.14159265 * static_cast<double>( i ) / RATE ) ) );
    }
    return samples;
}

// Treats what comes, and says second by second by how many decibels less is left of it.
class Treater : public IGCaptureAudioListener
{
public:
    explicit Treater( GInstance* instance ) : _treatment( instance ) {}
    void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length ) override
    {
        std::vector<int16_t> samples( static_cast<size_t>( length / 2 ) );
        std::memcpy( samples.data( ), buffer, static_cast<size_t>( length ) );
        _heard += energy( samples );
        _treatment.process( timestamp, format.frequency, samples.data( ), length / 2 );
        _left += energy( samples );
        if( ++_frames % SECOND ) return;
        if( _heard > 1e6 ) lowered = 10 * std::log10( _heard / _left );
        ++seconds;
        _heard = 0;
        _left = 1;
    }
    std::atomic<double> lowered{ 0 };
    std::atomic<int> seconds{ 0 };

private:
    static double energy( const std::vector<int16_t>& samples )
    {
        double sum = 0;
        for( const int16_t sample : samples ) sum += static_cast<double>( sample ) * sample;
        return sum;
    }
    GVoiceTreatment _treatment;
    int _frames = 0;
    double _heard = 0;
    double _left = 1;
};

// Plays the chatter again and again and tells the reference when each piece is heard.
class Player
{
public:
    Player( ) : _samples( chatter( ) ), _ring( GSoundRingOpen( RATE, SIZE ) )
    {
        GSoundRingWrite( _ring, 0, reinterpret_cast<const char*>( _samples.data( ) ), SIZE );
        GSoundRingPlay( _ring );
    }
    ~Player( ) { GSoundRingClose( _ring ); }
    Player( const Player& ) = delete;
    Player& operator=( const Player& ) = delete;
    void look( )
    {
        int play = 0;
        int write = 0;
        if( !GSoundRingGetCursors( _ring, play, write ) ) return;
        const uint64_t now = GTimeGetTime( );
        // Up to a fifth of a second ahead.
        for( int ahead = distance( play ); ahead < SIZE / 5 || ahead > SIZE / 2; ahead = distance( play ) )
        {
            const int64_t late = ahead > SIZE / 2 ? ahead - SIZE : ahead;
            GEchoReference_write( now + static_cast<uint64_t>( late * 1000000 / SIZE ), RATE,
                                  &_samples[static_cast<size_t>( _next )], PIECE, this );
            _next = ( _next + PIECE ) % RATE;
        }
    }

private:
    int distance( int play ) const { return ( 2 * _next - play + SIZE ) % SIZE; }

    const std::vector<int16_t> _samples;
    GSoundRing _ring;
    int _next = 0; // The sample that the reference gets next.
};
} // namespace

using GVoiceTreatmentOnServer = TestFolder;

TEST_F( GVoiceTreatmentOnServer, EchoOfTheSpeakerIsTakenOut )
{
    inject( "" );
    const GString module = TestSound::ask( "pactl load-module module-remap-source source_name=ear master=spk.monitor "
                                           "source_properties=device.description=Ear" );
    GInstance instance( u"treatment.ini" );
    instance.set( u"Voice_Treatment", 1 );
    instance.set( u"Voice_Level", 0 );
    GAVCaptureSetLatency( 15 );
    Treater treater( &instance );
    const GAVCapture recorder = GAVCaptureOpen( u"Ear", u"", 2, RATE, 7, 48, 48 );
    ASSERT_TRUE( recorder );
    Player player;
    GAVCaptureSubscribeAudio( recorder, &treater );
    EXPECT_TRUE( TestSound::becomes(
        [&]
        {
            player.look( );
            return treater.lowered > WANTED;
        } ) );
    GAVCaptureUnsubscribeAudio( recorder, &treater );
    GAVCaptureClose( recorder );
    GAVCaptureSetLatency( 0 );
    std::printf( "    echo of the speaker lowered by %.1f dB in second %d\n", treater.lowered.load( ),
                 treater.seconds.load( ) );
    EXPECT_TRUE( TestSound::run( "pactl unload-module " + module ) );
}
