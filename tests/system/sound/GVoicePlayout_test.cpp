// A playout on a real sound server (tests/support/with-sound): from the arrival of a packet to the loudspeaker, and a server that goes.
#include "client/media/GVoicePlayout.h"

#include "platform/GSound.h"
#include "platform/GTime.h"
#include "support/TestLog.h"
#include "support/TestSound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>

namespace
{
constexpr int RATE = 22000;
constexpr int SAMPLES = 320;
constexpr int64_t MILLISECOND = 1000;

// A packet is one byte, the loudness of its samples.
class LoudnessDecoder : public IGVoiceDecoder
{
public:
    bool decode( const char* frame, int, GString& out ) override
    {
        fill( static_cast<int16_t>( *frame * 256 ), SAMPLES, out );
        return true;
    }
    void conceal( int samples, GString& out ) override { fill( 0, samples, out ); }

private:
    static void fill( int16_t value, int samples, GString& out )
    {
        out.resize( static_cast<size_t>( samples ) * 2 );
        // A square wave of 1,100 hertz.
        for( int i = 0; i < samples; ++i )
            reinterpret_cast<int16_t*>( out.data( ) )[i] = static_cast<int16_t>( i / 10 % 2 ? -value : value );
    }
};

// Talks in real time on a thread of its own, as the service does.
class Talker
{
public:
    Talker( ) : _playout( GSAFENEW( GVoicePlayout, ( _decoder, _estimate, RATE ) ) ), _thread( [this] { _talk( ); } ) {}
    ~Talker( )
    {
        _stop = true;
        _thread.join( );
    }
    // The next packet is loud; tells when it was handed over.
    uint64_t beep( )
    {
        _beepTime = 0;
        _beep = true;
        TestSound::becomes( [this] { return _beepTime != 0; } );
        return _beepTime;
    }
    int packets( ) const { return _packets; }
    int64_t buffered( ) const { return _buffered; }
    int64_t target( ) const { return _target; }

private:
    void _talk( )
    {
        const uint64_t begin = GTimeGetTime( );
        uint16_t sequence = 0;
        while( !_stop )
        {
            const uint64_t due = begin + static_cast<uint64_t>( sequence ) * SAMPLES * 1000000 / RATE;
            const uint64_t now = GTimeGetTime( );
            if( now < due )
            {
                const int64_t wait = _playout->update( );
                const int64_t left = static_cast<int64_t>( due - now );
                std::this_thread::sleep_for( std::chrono::microseconds( wait < 0 ? left : std::min( wait, left ) ) );
                continue;
            }
            const bool loud = _beep.exchange( false );
            const char frame = loud ? 60 : 0;
            if( loud ) _beepTime = GTimeGetTime( );
            _playout->put( ++sequence, static_cast<uint32_t>( due / 10000 ), &frame, 1 );
            _buffered = _playout->getBufferedLength( );
            _target = _playout->getTarget( );
            ++_packets;
        }
    }
    LoudnessDecoder _decoder;
    GJitterEstimate _estimate;
    std::unique_ptr<GVoicePlayout> _playout;
    std::atomic<bool> _stop = false;
    std::atomic<bool> _beep = false;
    std::atomic<uint64_t> _beepTime = 0;
    std::atomic<int> _packets = 0;
    std::atomic<int64_t> _buffered = 0;
    std::atomic<int64_t> _target = 0;
    std::thread _thread;
};
} // namespace

TEST( GVoicePlayoutOnServer, PacketIsHeardSoonAfterItsArrival )
{
    GSoundSetMute( false );
    GSoundSetVolume( 1.0 );
    TestSound::Recorder recorder;
    Talker talker;
    ASSERT_TRUE( TestSound::becomes( [&] { return talker.packets( ) > 60; } ) );
    std::vector<int64_t> delays;
    for( int i = 0; i < 5; ++i )
    {
        const int from = talker.packets( );
        ASSERT_TRUE( TestSound::becomes( [&] { return talker.packets( ) > from + 10; } ) );
        std::atomic<uint64_t> heard = 0;
        std::thread listener(
            [&]
            {
                recorder.hear( 1 );
                heard = GTimeGetTime( );
                recorder.hear( 400 );
            } );
        const uint64_t sent = talker.beep( );
        listener.join( );
        delays.push_back( static_cast<int64_t>( heard - sent ) );
    }
    std::sort( delays.begin( ), delays.end( ) );
    // With what the recorder takes for itself; a busy machine takes what it wants.
    printf( "    arrival to ear, and to the recorder: %lld ms, at least %lld ms; aimed at %lld ms\n",
            static_cast<long long>( delays[2] / MILLISECOND ), static_cast<long long>( delays[0] / MILLISECOND ),
            static_cast<long long>( talker.target( ) / MILLISECOND ) );
    EXPECT_GE( delays[2], 40 * MILLISECOND );
    EXPECT_LE( delays[0], talker.target( ) + 150 * MILLISECOND );
}

TEST( GVoicePlayoutOnServer, ServerThatComesBackIsPlayedOnWithinTheTalk )
{
    TestLog::expect( "WARNING Sound output lost, trying again." );
    ASSERT_GT( TestSound::serverPid( ), 0 );
    Talker talker;
    ASSERT_TRUE( TestSound::becomes( [&] { return talker.buffered( ) > 0; } ) );
    ASSERT_TRUE( TestSound::killServer( ) );
    ASSERT_TRUE( TestSound::becomes( [&] { return talker.buffered( ) == 0; } ) );
    static std::optional<TestSound::Server> server; // Serves to the end of the program.
    server.emplace( );
    ASSERT_TRUE( server->answers( ) );
    EXPECT_TRUE( TestSound::becomes( [&] { return talker.buffered( ) > 30 * MILLISECOND; } ) );
    const int from = talker.packets( );
    EXPECT_TRUE( TestSound::becomes( [&] { return talker.packets( ) > from + 20; } ) );
    EXPECT_GT( talker.buffered( ), 0 );
}
