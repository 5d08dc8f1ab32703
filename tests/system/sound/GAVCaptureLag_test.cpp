// How late a microphone's samples are when they are handed over: a click is heard at the speaker, whose monitor is the microphone.
#include "CaptureListener.h"
#include "platform/GSoundRing.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cstdint>

namespace
{
constexpr int RATE = 22000;
constexpr int SIZE = 2 * RATE; // One second.
constexpr int LOUD = 8000;

// Notes when each click came: the moment of its hand-over less the way from it to the end of its buffer.
class ClickListener : public IGCaptureAudioListener
{
public:
    void onAudioFrame( uint64_t, const GAudioFormat&, const char* buffer, int length ) override
    {
        const uint64_t now = GTimeGetTime( );
        const auto* samples = reinterpret_cast<const int16_t*>( buffer );
        const bool clicks = std::any_of( samples, samples + length / 2, []( int16_t s ) { return s > LOUD; } );
        const std::scoped_lock lock( _mutex );
        if( clicks && now - _last > 300000 ) times.push_back( _last = now );
    }
    size_t count( )
    {
        const std::scoped_lock lock( _mutex );
        return times.size( );
    }
    std::vector<uint64_t> times;

private:
    std::mutex _mutex;
    uint64_t _last = 0;
};

// When the middle of the ring, where the click is, is heard, once a turn.
class Clicker
{
public:
    Clicker( ) : _ring( GSoundRingOpen( RATE, SIZE ) )
    {
        const GString click( 440, '\x40' );
        GSoundRingWrite( _ring, SIZE / 2, click.data( ), static_cast<int>( click.size( ) ) );
        GSoundRingPlay( _ring );
    }
    ~Clicker( ) { GSoundRingClose( _ring ); }
    Clicker( const Clicker& ) = delete;
    Clicker& operator=( const Clicker& ) = delete;
    void look( )
    {
        int play = 0;
        int write = 0;
        GSoundRingGetCursors( _ring, play, write );
        const uint64_t now = GTimeGetTime( );
        const int past = play - SIZE / 2;
        if( _lastPlay < SIZE / 2 && past >= 0 && past < SIZE / 4 )
            times.push_back( now - static_cast<uint64_t>( past ) * 1000000 / SIZE );
        _lastPlay = play;
    }
    std::vector<uint64_t> times;

private:
    GSoundRing _ring;
    int _lastPlay = SIZE;
};

// The median, in milliseconds, over some clicks.
double lagOf( int latency )
{
    constexpr size_t CLICKS = 4;
    GAVCaptureSetLatency( latency );
    ClickListener listener;
    const GAVCapture recorder = GAVCaptureOpen( u"Ear", u"", 2, RATE, 7, 48, 48 );
    GAVCaptureSubscribeAudio( recorder, &listener );
    Clicker clicker;
    EXPECT_TRUE( TestSound::becomes(
        [&]
        {
            clicker.look( );
            return listener.count( ) >= CLICKS;
        } ) );
    GAVCaptureUnsubscribeAudio( recorder, &listener );
    GAVCaptureClose( recorder );
    GAVCaptureSetLatency( 0 );
    std::vector<double> lags;
    for( const uint64_t came : listener.times )
        for( const uint64_t heard : clicker.times )
            if( came + 100000 > heard && came < heard + 400000 )
                lags.push_back( ( static_cast<double>( came ) - static_cast<double>( heard ) ) / 1000 );
    std::sort( lags.begin( ), lags.end( ) );
    return lags.empty( ) ? 1e9 : lags[lags.size( ) / 2];
}
} // namespace

TEST( GAVCaptureLag, SmallLatencyIsMeantByTheSoundServerToo )
{
    inject( "" );
    const GString module = TestSound::ask( "pactl load-module module-remap-source source_name=ear master=spk.monitor "
                                           "source_properties=device.description=Ear" );
    const double letter = lagOf( 0 );
    const double small = lagOf( 15 );
    std::printf( "    from the ear to the listener: %.0f ms in frames of 51 ms, %.0f ms in frames of 15 ms\n", letter,
                 small );
    EXPECT_LT( small, letter );
    EXPECT_TRUE( TestSound::run( "pactl unload-module " + module ) );
}
