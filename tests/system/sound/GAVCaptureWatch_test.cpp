// Devices that come and go while nobody captures them.
#include "CaptureListener.h"
#include "support/TestFolder.h"
#include "support/TestLog.h"

#include <atomic>

using GAVCaptureWatch = TestFolder;

TEST_F( GAVCaptureWatch, MicrophoneOfTheServerThatComesAndGoesIsTold )
{
    inject( "" );
    CaptureWatch watch;
    const GString module = TestSound::ask( "pactl load-module module-remap-source source_name=plug master=micsink."
                                           "monitor source_properties=device.description=Plug" );
    EXPECT_TRUE( watch.finds( u"Plug" ) );
    EXPECT_TRUE( TestSound::run( "pactl unload-module " + module ) );
    EXPECT_TRUE( watch.loses( u"Plug" ) );
}

TEST_F( GAVCaptureWatch, ListOfInjectedDevicesThatIsWrittenAnewIsTold )
{
    inject( "@devices.list" );
    CaptureWatch watch;
    write( "devices.list", "video:late camera\naudio:late microphone\n" );
    EXPECT_TRUE( watch.finds( u"late camera" ) );
    EXPECT_TRUE( watch.finds( u"late microphone" ) );
    std::filesystem::remove( "devices.list" );
    EXPECT_TRUE( watch.loses( u"late camera" ) );
    inject( "" );
}

TEST_F( GAVCaptureWatch, NothingIsToldAfterItsEnd )
{
    inject( "@devices.list" );
    int told = 0;
    GAVCaptureWatchDevices( [&told] { ++told; } );
    GAVCaptureWatchDevices( nullptr );
    CaptureWatch other;
    write( "devices.list", "video:late camera\n" );
    EXPECT_TRUE( other.finds( u"late camera" ) );
    EXPECT_EQ( told, 0 );
    inject( "" );
}

// The list of the devices may stay as it is when one dies.
TEST_F( GAVCaptureWatch, DeviceThatFailsWhileItIsCapturedIsTold )
{
    TestLog::expect( "WARNING Capture device failed: it ended, ignoring." );
    inject( "video:camera=videotestsrc is-live=true num-buffers=7" );
    CaptureListener listener;
    const Recording recording( listener, u"", u"camera" );
    ASSERT_TRUE( GAVCaptureIsVideoWorking( recording.recorder ) );
    std::atomic<bool> lost{ false };
    GAVCaptureWatchDevices( [&] { lost = lost || !GAVCaptureIsVideoWorking( recording.recorder ); } );
    EXPECT_TRUE( TestSound::becomes( [&] { return lost.load( ); } ) );
    GAVCaptureWatchDevices( nullptr );
    inject( "" );
}
