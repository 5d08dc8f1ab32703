// Devices that go while they are captured.
#include "CaptureListener.h"
#include "platform/GThread.h"
#include "support/TestLog.h"
#include "support/TestSound.h"

namespace
{
using TestSound::becomes;

// Captures a camera that goes and a tone that stays.
void loseCamera( const GString& camera, const GString& reason )
{
    TestLog::expect( "WARNING Capture device failed: " + reason );
    inject( "video:camera=" + camera + ";tone microphone" );
    CaptureListener listener;
    const Recording recording( listener, u"tone microphone", u"camera" );
    ASSERT_TRUE( recording.recorder );
    EXPECT_TRUE( becomes( [&] { return !GAVCaptureIsVideoWorking( recording.recorder ); } ) );
    EXPECT_TRUE( listener.waitForMore( 0, 20 ) );
    EXPECT_TRUE( GAVCaptureIsAudioWorking( recording.recorder ) );
    EXPECT_GE( listener.videoFrames, 1 );
    EXPECT_TRUE( listener.rising );
    EXPECT_EQ( TestLog::count( "WARNING" ), 1 );
}

GString plugIn( )
{
    return TestSound::ask( "pactl load-module module-remap-source source_name=plug master=micsink.monitor "
                           "source_properties=device.description=Plug" );
}
} // namespace

TEST( GAVCaptureLoss, CameraThatEndsLeavesTheMicrophoneAlone )
{
    loseCamera( "videotestsrc is-live=true num-buffers=7", "it ended, ignoring." );
}

TEST( GAVCaptureLoss, CameraThatFailsLeavesTheMicrophoneAlone )
{
    loseCamera( "videotestsrc is-live=true ! identity error-after=7", "" );
}

TEST( GAVCaptureLoss, CameraThatFailsAtTheStartDoesNotWork )
{
    TestLog::expect( "WARNING Capture device failed: " );
    TestLog::allow( "WARNING No match found" );
    TestLog::allow( "WARNING GetNumberOfCapabilities( )" );
    TestLog::allow( "WARNING Unable to configure video device" );
    inject( "camera=v4l2src device=/dev/nosuchcamera;tone microphone" );
    CaptureListener listener;
    capture( listener, u"tone microphone", u"camera", 0, 2 );
    EXPECT_EQ( TestLog::count( "WARNING Capture device failed: " ), 1 );
}

TEST( GAVCaptureLoss, MicrophoneThatIsPulledLeavesTheCameraAloneAndComesBack )
{
    TestLog::expect( "WARNING Capture device failed: " );
    inject( "test camera" );
    const GString plug = plugIn( );
    {
        CaptureListener listener;
        const Recording recording( listener, u"Plug", u"test camera" );
        ASSERT_TRUE( recording.recorder );
        EXPECT_TRUE( GAVCaptureIsAudioWorking( recording.recorder ) );
        EXPECT_TRUE( listener.wait( 2, 2 ) );
        ASSERT_TRUE( TestSound::run( "pactl unload-module " + plug ) );
        EXPECT_TRUE( becomes( [&] { return !GAVCaptureIsAudioWorking( recording.recorder ); } ) );
        EXPECT_TRUE( listener.waitForMore( 5, 0 ) );
        EXPECT_TRUE( GAVCaptureIsVideoWorking( recording.recorder ) );
        EXPECT_EQ( TestLog::count( "WARNING" ), 1 );
    }
    CaptureListener gone;
    capture( gone, u"Plug", u"test camera", 1, 0 );
    const GString again = plugIn( );
    CaptureListener back;
    capture( back, u"Plug", u"test camera", 1, 2 );
    EXPECT_TRUE( TestSound::run( "pactl unload-module " + again ) );
}

// What is lost costs nothing any more.
TEST( GAVCaptureLoss, LostDevicesTakeNoTime )
{
    TestLog::expect( "WARNING Capture device failed: " );
    inject( "ending camera=videotestsrc is-live=true num-buffers=3;audio:ending microphone=audiotestsrc is-live=true "
            "num-buffers=3" );
    CaptureListener listener;
    const Recording recording( listener, u"ending microphone", u"ending camera" );
    EXPECT_TRUE( becomes( [&] { return TestLog::count( "WARNING Capture device failed: " ) == 2; } ) );
    const uint64_t before = GThreadGetProcessTime( );
    const auto start = std::chrono::steady_clock::now( );
    EXPECT_TRUE( becomes( [start] { return std::chrono::steady_clock::now( ) - start > std::chrono::seconds( 1 ); } ) );
    EXPECT_LT( GThreadGetProcessTime( ) - before, 200000U );
}
