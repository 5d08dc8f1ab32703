// The sound server goes, hangs, comes back, or was never there.
#include "CaptureListener.h"
#include "platform/GSound.h"
#include "platform/GSoundRing.h"
#include "support/TestFolder.h"
#include "support/TestLog.h"
#include "support/TestSound.h"

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

namespace
{
using TestSound::becomes;

constexpr int RATE = 8000;
constexpr int SIZE = 2 * RATE;

// Stops the server in its steps, for a scope.
class Hang
{
public:
    Hang( ) : _pid( TestSound::serverPid( ) ) { kill( _pid, SIGSTOP ); }
    ~Hang( ) { kill( _pid, SIGCONT ); }
    Hang( const Hang& ) = delete;
    Hang& operator=( const Hang& ) = delete;

private:
    pid_t _pid;
};

class GSoundServer : public TestFolder
{
protected:
    void SetUp( ) override
    {
        TestFolder::SetUp( );
        inject( "test camera" );
        // Three seconds of silence.
        const std::string header( "RIFF\xA4\xBB\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1F\0\0\x80\x3E\0\0\2\0\x10\0"
                                  "data\x80\xBB\0\0",
                                  44 );
        write( "silence.wav", header + std::string( 48000, '\0' ) );
    }
};
} // namespace

TEST_F( GSoundServer, ItsLossWhileRecordingAndPlayingIsToldAndItsReturnIsFound )
{
    TestLog::expect( "WARNING Capture device failed: " );
    TestLog::expect( "WARNING Couldn't set volume, ignoring." );
    TestLog::expect( "WARNING Unable to play sound 'silence.wav', ignoring." );
    GSoundRing ring = GSoundRingOpen( RATE, SIZE );
    ASSERT_TRUE( ring );
    GSoundRingPlay( ring );
    GSoundPlay( u"silence.wav" );
    {
        CaptureListener listener;
        const Recording recording( listener, u"Microphone", u"test camera" );
        ASSERT_TRUE( recording.recorder );
        EXPECT_TRUE( listener.wait( 1, 2 ) );
        ASSERT_TRUE( TestSound::killServer( ) );
        EXPECT_TRUE( becomes( [&] { return !GAVCaptureIsAudioWorking( recording.recorder ); } ) );
        EXPECT_TRUE( listener.waitForMore( 3, 0 ) );
        EXPECT_TRUE( GAVCaptureIsVideoWorking( recording.recorder ) );
    }
    EXPECT_TRUE( becomes( [ring] { return !GSoundRingIsAlive( ring ); } ) );
    int play = 5, write = 6;
    EXPECT_FALSE( GSoundRingGetCursors( ring, play, write ) );
    EXPECT_EQ( play, 5 );
    EXPECT_EQ( write, 6 );
    EXPECT_FALSE( GSoundRingWrite( ring, 0, "ab", 2 ) );
    GSoundRingPlay( ring );
    GSoundRingStop( ring );
    EXPECT_EQ( GSoundRingOpen( RATE, SIZE ), nullptr );
    GSoundSetVolume( 0.5 );
    GSoundSetMute( true );
    EXPECT_FALSE( GSoundIsMuted( ) );
    GSoundPlay( u"silence.wav" );
    EXPECT_NEAR( GSoundGetVolume( ), 1.0, 0.001 );
    GStringList audio, video;
    GAVCaptureGetDeviceList( audio, video );
    EXPECT_TRUE( audio.empty( ) );
    EXPECT_TRUE( TestLog::contains( "AUDIODEVICE: No audio capture devices present." ) );
    EXPECT_EQ( TestLog::count( "WARNING" ), 3 );

    static std::optional<TestSound::Server> server; // Serves to the end of the program.
    server.emplace( );
    ASSERT_TRUE( server->answers( ) );
    EXPECT_FALSE( GSoundRingIsAlive( ring ) ) << "lost for good";
    GSoundRingClose( ring );
    EXPECT_TRUE( becomes( [&ring] { return ( ring = GSoundRingOpen( RATE, SIZE ) ) != nullptr; } ) );
    GSoundRingPlay( ring );
    EXPECT_TRUE( becomes( [&] { return GSoundRingGetCursors( ring, play, write ) && play > 0; } ) );
    GSoundRingClose( ring );
    GSoundSetVolume( 0.5 );
    EXPECT_NEAR( GSoundGetVolume( ), 0.5, 0.001 );
    CaptureListener listener;
    capture( listener, u"Microphone", u"test camera", 1, 2 );
}

TEST_F( GSoundServer, ItsGoingAndComingIsToldToWhoWatchesTheDevices )
{
    inject( "" );
    CaptureWatch watch;
    const GString module = TestSound::ask( "pactl load-module module-remap-source source_name=plug master=micsink."
                                           "monitor source_properties=device.description=Plug" );
    EXPECT_TRUE( watch.finds( u"Plug" ) );
    EXPECT_TRUE( TestSound::killServer( ) );
    EXPECT_TRUE( watch.loses( u"Plug" ) );
    EXPECT_TRUE( watch.loses( u"Microphone" ) );
    static std::optional<TestSound::Server> server; // Serves to the end of the program.
    server.emplace( );
    EXPECT_TRUE( watch.finds( u"Microphone" ) );
}

TEST_F( GSoundServer, OneThatHangsHoldsNobodyForLong )
{
    TestLog::expect( "WARNING Couldn't set volume, ignoring." );
    ASSERT_GT( TestSound::serverPid( ), 0 );
    GSoundSetVolume( 1.0 );
    TestLog::allow( "WARNING Unable to play sound" );
    {
        const Hang hang;
        const auto start = std::chrono::steady_clock::now( );
        GSoundSetVolume( 0.5 );
        EXPECT_FALSE( GSoundIsMuted( ) );
        EXPECT_EQ( GSoundRingOpen( RATE, SIZE ), nullptr );
        CaptureListener listener;
        capture( listener, u"Microphone", u"test camera", 1, 0 );
        EXPECT_LT( std::chrono::steady_clock::now( ) - start, std::chrono::seconds( 15 ) );
    }
    EXPECT_TRUE( becomes(
        []
        {
            GSoundSetLines( 0.25, 1.0 );
            return std::abs( GSoundGetVolume( ) - 0.25 ) < 0.001;
        } ) );
}

TEST_F( GSoundServer, RecorderOfOneThatHangsIsClosed )
{
    TestLog::expect( "WARNING Capture device does not stop, leaving it behind." );
    ASSERT_GT( TestSound::serverPid( ), 0 );
    CaptureListener listener;
    std::optional<Recording> recording;
    recording.emplace( listener, u"Microphone", u"test camera" );
    EXPECT_TRUE( listener.wait( 1, 2 ) );
    const std::string own =
        "pactl list source-outputs | grep -c 'application.process.id = \"" + std::to_string( getpid( ) ) + "\"'";
    EXPECT_EQ( TestSound::ask( own ), "1" );
    {
        const Hang hang;
        EXPECT_TRUE( listener.waitForMore( 2, 0 ) );
        recording.reset( );
    }
    // It ends as soon as the server goes on.
    EXPECT_TRUE( becomes( [&] { return TestSound::ask( own ) == "0"; } ) );
}

// In a child that never had a server.
TEST( GSoundServerDeathTest, WithoutOneNothingHangsAndTheRestGoesOn )
{
    const auto live = []
    {
        setenv( "PULSE_SERVER", "unix:/nonexistent/native", 1 );
        inject( "test camera" );
        GStringList audio, video;
        GAVCaptureGetDeviceList( audio, video );
        bool good = audio.empty( ) && video.size( ) == 1;
        const GAVCapture capture = GAVCaptureOpen( u"Microphone", u"test camera", 2, 22000, 7, 48, 48 );
        good = good && capture && GAVCaptureIsVideoWorking( capture ) && !GAVCaptureIsAudioWorking( capture );
        GAVCaptureClose( capture );
        good = good && !GSoundRingOpen( RATE, SIZE ) && !GSoundIsMuted( );
        GSoundSetVolume( 0.5 );
        GSoundSetMute( true );
        GSoundPlay( u"any.wav" );
        good = good && TestLog::contains( "WARNING Couldn't set volume, ignoring." ) &&
               TestLog::contains( "WARNING Unable to play sound 'any.wav', ignoring." );
        _exit( good ? 0 : 1 );
    };
    EXPECT_EXIT( live( ), testing::ExitedWithCode( 0 ), "" );
}

// Else the list of the devices would be asked for again at each attempt to reach it.
TEST( GSoundServerDeathTest, OneThatWasNeverThereIsNotToldToHaveGone )
{
    const auto live = []
    {
        setenv( "PULSE_SERVER", "unix:/nonexistent/native", 1 );
        inject( "" );
        std::atomic<int> told{ 0 };
        GAVCaptureWatchDevices( [&told] { ++told; } );
        for( int attempt = 0; attempt < 2; ++attempt )
        {
            GSoundIsMuted( );
            std::this_thread::sleep_for( std::chrono::milliseconds( 1100 ) ); // Attempts are a second apart.
        }
        GAVCaptureWatchDevices( nullptr );
        _exit( told );
    };
    EXPECT_EXIT( live( ), testing::ExitedWithCode( 0 ), "" );
}
