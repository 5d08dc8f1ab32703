// Devices of the machine and injected ones, beside a sound server of its own (tests/support/with-sound).
#include "CaptureListener.h"
#include "image/GImage.h"
#include "support/TestLog.h"
#include "support/TestSound.h"

#include <dlfcn.h>
#include <filesystem>

namespace
{
int entriesOf( const char* folder )
{
    int count = 0;
    for( const auto& entry : std::filesystem::directory_iterator( folder ) ) count += !entry.path( ).empty( );
    return count;
}
} // namespace

TEST( GAVCapture, InjectedDevicesAreListed )
{
    inject( "test camera;tone microphone" );
    GStringList audio, video;
    GAVCaptureGetDeviceList( audio, video );
    ASSERT_FALSE( audio.empty( ) );
    ASSERT_FALSE( video.empty( ) );
    EXPECT_EQ( audio.front( ), u"tone microphone" );
    EXPECT_EQ( video.front( ), u"test camera" );
    for( const GWString& name : audio ) EXPECT_EQ( name.find( u"Monitor of" ), GWString::npos );
    EXPECT_TRUE( TestLog::contains( "VIDEODEVICE: Device name='test camera'" ) );
    EXPECT_EQ( audio.back( ), u"Microphone" );
}

// A fault of any thread is then told by our own handler, also while a plugin is being loaded.
TEST( GAVCapture, FaultsAreNotTakenForAPlugins )
{
    GStringList audio;
    GStringList video;
    GAVCaptureGetDeviceList( audio, video );
    const auto isTaken = reinterpret_cast<int ( * )( )>( dlsym( RTLD_DEFAULT, "gst_segtrap_is_enabled" ) );
    ASSERT_TRUE( isTaken );
    EXPECT_FALSE( isTaken( ) );
}

TEST( GAVCapture, TestDevicesGiveTightFramesAndExactChunks )
{
    inject( "test camera;tone microphone" );
    CaptureListener listener;
    capture( listener, u"tone microphone", u"test camera", 5, 10 );
    EXPECT_EQ( listener.videoFormat, ( GImageFormat{ GIT_YUY2, 48, 48 } ) );
    EXPECT_EQ( listener.videoLength, 48 * 48 * 2 );
    EXPECT_EQ( listener.audioLength, 2240 );
    EXPECT_EQ( listener.audioFormat.frequency, 22000 );
    EXPECT_TRUE( listener.rising );
    EXPECT_TRUE( listener.loud );
}

TEST( GAVCapture, CameraWithOnlyRGBIsTakenAtTheSecondTryTopDown )
{
    TestLog::expect( "WARNING No match found" );
    inject( "red camera=videotestsrc is-live=true pattern=smpte ! video/x-raw,format=RGB,width=162,height=120" );
    CaptureListener listener;
    capture( listener, u"", u"red camera", 2, 0 );
    EXPECT_EQ( listener.videoFormat, ( GImageFormat{ GIT_RGB24, 162, 120 } ) );
    EXPECT_EQ( listener.videoLength, 162 * 120 * 3 );
    // The first row of the bars begins light gray, the last row dark blue.
    EXPECT_GT( static_cast<unsigned char>( listener.picture[0] ), 150 );
    EXPECT_LT( static_cast<unsigned char>( listener.picture[162 * 119 * 3] ), 60 );
}

TEST( GAVCapture, NearestSizeIsTaken )
{
    inject( "range camera=videotestsrc is-live=true ! video/x-raw,format=YUY2,width=[160,640],height=[120,480]" );
    CaptureListener listener;
    capture( listener, u"", u"range camera", 2, 0 );
    EXPECT_EQ( listener.videoFormat, ( GImageFormat{ GIT_YUY2, 160, 120 } ) );
    EXPECT_TRUE( TestLog::contains( "distance=184" ) );
}

TEST( GAVCapture, MissingDeviceLeavesItsMediumOut )
{
    inject( "test camera" );
    CaptureListener listener;
    capture( listener, u"no such microphone", u"test camera", 2, 0 );
}

TEST( GAVCapture, MicrophoneOfTheSoundServerIsHeard )
{
    inject( "" );
    CaptureListener listener;
    capture( listener, u"Microphone", u"", 0, 5 );
    EXPECT_EQ( listener.audioLength, 2240 );
    EXPECT_TRUE( listener.rising );
}

TEST( GAVCapture, SmallLatencyGivesBuffersOfTwoCodecFrames )
{
    inject( "tone microphone" );
    GAVCaptureSetLatency( 15 );
    for( const GWString name : { u"tone microphone", u"Microphone" } )
    {
        CaptureListener listener;
        capture( listener, name, u"", 0, 10 );
        EXPECT_EQ( listener.audioLength, 640 );
        EXPECT_TRUE( listener.rising );
    }
    GAVCaptureSetLatency( 0 );
    CaptureListener listener;
    capture( listener, u"tone microphone", u"", 0, 2 );
    EXPECT_EQ( listener.audioLength, 2240 );
}

TEST( GAVCapture, NullHandleAborts )
{
    EXPECT_DEATH( GAVCaptureIsAudioWorking( nullptr ), "capture_" );
}

TEST( GAVCapture, BottomUpCameraIsTurned )
{
    const GString camera = "videotestsrc is-live=true pattern=smpte ! video/x-raw,format=RGB,width=160,height=120";
    TestLog::expect( "WARNING No match found" );
    inject( "plain camera=" + camera + ";turned camera=" + camera +
            " ! taginject tags=image-orientation=flip-rotate-180" );
    CaptureListener plain, turned;
    capture( plain, u"", u"plain camera", 2, 0 );
    EXPECT_TRUE( TestLog::contains( "Flipping input image: no" ) );
    capture( turned, u"", u"turned camera", 2, 0 );
    EXPECT_TRUE( TestLog::contains( "Flipping input image: yes" ) );
    // The lower part of the bars holds snow and is left out.
    GImageVertMirror( turned.videoFormat, turned.picture.data( ) );
    EXPECT_EQ( plain.picture.substr( 0, 160 * 3 * 60 ), turned.picture.substr( 0, 160 * 3 * 60 ) );
}

TEST( GAVCapture, CameraThatCannotBeConfiguredIsTakenAsItIs )
{
    TestLog::expect( "WARNING No match found" );
    TestLog::expect( "WARNING Unable to configure video device; taking 'as is' and seeing if it works." );
    inject( "jpeg camera=videotestsrc is-live=true ! video/x-raw,width=320,height=240 ! jpegenc" );
    CaptureListener listener;
    capture( listener, u"", u"jpeg camera", 3, 0 );
    EXPECT_EQ( listener.videoFormat, ( GImageFormat{ GIT_YUY2, 320, 240 } ) );
    EXPECT_TRUE( listener.rising );
}

TEST( GAVCapture, MicrophoneOfAnotherRateIsConverted )
{
    inject( "old microphone=audiotestsrc is-live=true ! audio/x-raw,format=F32LE,rate=8000,channels=2" );
    CaptureListener listener;
    capture( listener, u"old microphone", u"", 0, 10 );
    EXPECT_EQ( listener.audioLength, 2240 );
    EXPECT_EQ( listener.audioFormat.frequency, 22000 );
    EXPECT_EQ( listener.audioFormat.channels, 1 );
    EXPECT_TRUE( listener.rising );
    EXPECT_TRUE( listener.loud );
}

TEST( GAVCapture, SamplesWithoutTimesAreStampedByTheSystem )
{
    TestLog::expect( "WARNING Failed to get timestamp, only reporting once.  Error " );
    inject( "audio:timeless=fakesrc sizetype=fixed sizemax=882 filltype=zero format=time ! identity sleep-time=20000 ! "
            "audio/x-raw,format=S16LE,rate=22000,channels=1,layout=interleaved" );
    CaptureListener listener;
    capture( listener, u"timeless", u"", 0, 10 );
    EXPECT_TRUE( listener.rising );
    EXPECT_EQ( TestLog::count( "WARNING Failed to get timestamp" ), 1 );
}

TEST( GAVCapture, OnlyTheFirstTenDevicesAreSeen )
{
    GString devices;
    for( int i = 0; i < 14; i++ ) devices += "video:camera " + std::to_string( i ) + ";";
    inject( devices );
    GStringList audio, video;
    GAVCaptureGetDeviceList( audio, video );
    EXPECT_EQ( video.size( ), 10U );
    EXPECT_EQ( video.back( ), u"camera 9" );
    EXPECT_TRUE( TestLog::contains( "Enumerating up to 10 devices." ) );
    EXPECT_TRUE( TestLog::contains( "Reading friendly name for device #9" ) );
    CaptureListener listener;
    capture( listener, u"", u"camera 9", 1, 0 );
    capture( listener, u"", u"camera 10", 0, 0 );
}

TEST( GAVCapture, StrangeNamesAreShownInOneLineAndOpened )
{
    inject( "video:Cam, left \"x\"\x01\x1B[2J;video:" + GString( 5000, 'x' ) );
    GStringList audio, video;
    GAVCaptureGetDeviceList( audio, video );
    ASSERT_GE( video.size( ), 2U );
    EXPECT_EQ( video.front( ), u"Cam, left \"x\"  [2J" );
    const GWString longest = *std::next( video.begin( ) );
    EXPECT_EQ( longest, GWString( 128, u'x' ) );
    for( const GWString& name : { video.front( ), longest } )
    {
        CaptureListener listener;
        capture( listener, u"", name, 1, 0 );
    }
}

TEST( GAVCapture, SourceOfTheServerWithAStrangeNameIsOpened )
{
    inject( "" );
    const GString module =
        TestSound::ask( "pactl load-module module-remap-source source_name=strange master=micsink."
                        "monitor \"source_properties='device.description=\\\"Mic, two; \x1B three\\\"'\"" );
    GStringList audio, video;
    GAVCaptureGetDeviceList( audio, video );
    const GWString name = audio.back( );
    EXPECT_TRUE( name.starts_with( u"Mic, two;" ) );
    EXPECT_EQ( name.find( u'\x1B' ), GWString::npos );
    CaptureListener listener;
    capture( listener, name, u"", 0, 3 );
    EXPECT_TRUE( TestSound::run( "pactl unload-module " + module ) );
}

TEST( GAVCapture, BrokenDescriptionIsReportedAndLeftOut )
{
    TestLog::expect( "WARNING Unable to bind 'wrong camera': " );
    inject( "wrong camera=nosuchelement ! video/x-raw;tone microphone" );
    CaptureListener listener;
    capture( listener, u"tone microphone", u"wrong camera", 0, 2 );
}

TEST( GAVCapture, WithoutDevicesTheListsSayNone )
{
    inject( "" );
    GStringList audio, video;
    GAVCaptureGetDeviceList( audio, video );
    EXPECT_TRUE( video.empty( ) );
    EXPECT_TRUE( TestLog::contains( "VIDEODEVICE: No video capture devices present." ) );
}

TEST( GAVCapture, OpeningAndClosingLeavesNothingBehind )
{
    inject( "test camera;tone microphone" );
    const auto openAll = []
    {
        CaptureListener listener;
        capture( listener, u"tone microphone", u"test camera", 1, 1 );
        capture( listener, u"Microphone", u"", 0, 1 );
    };
    for( int i = 0; i < 3; i++ ) openAll( );
    const int files = entriesOf( "/proc/self/fd" );
    const int threads = entriesOf( "/proc/self/task" );
    for( int i = 0; i < 50; i++ ) openAll( );
    EXPECT_LE( entriesOf( "/proc/self/fd" ), files );
    // A thread of the library's pool may take its time to end.
    EXPECT_TRUE( TestSound::becomes( [threads] { return entriesOf( "/proc/self/task" ) <= threads; } ) );
}

TEST( GAVCaptureDeathTest, ListenersMustHaveGoneBeforeTheEnd )
{
    const auto closeTooEarly = []
    {
        inject( "test camera" );
        CaptureListener listener;
        const GAVCapture recorder = GAVCaptureOpen( u"", u"test camera", 2, 22000, 7, 48, 48 );
        GAVCaptureSubscribeVideo( recorder, &listener );
        GAVCaptureClose( recorder );
    };
    EXPECT_DEATH( closeTooEarly( ), "_listenerList.empty" );
    EXPECT_DEATH( GAVCaptureClose( nullptr ), "capture_" );
    EXPECT_DEATH( GAVCaptureUnsubscribeAudio( nullptr, nullptr ), "capture_" );
}

// In a child without any part of the media library; what it logs stands on its standard error.
TEST( GAVCaptureDeathTest, WithoutItsPartsTheRecorderDoesNotOpen )
{
    GTEST_FLAG_SET( death_test_style, "threadsafe" );
    const auto openWithoutParts = []
    {
        setenv( "GST_PLUGIN_SYSTEM_PATH_1_0", "/nonexistent", 1 );
        setenv( "GST_PLUGIN_PATH_1_0", "/nonexistent", 1 );
        setenv( "GST_REGISTRY_1_0", "/dev/null", 1 );
        const GAVCapture capture = GAVCaptureOpen( u"", u"/proc/self/exe", 2, 22000, 7, 48, 48 );
        const bool told =
            TestLog::contains( "ERROR Error HR return value: " ) && TestLog::contains( "WARNING constructor failed" );
        _exit( capture ? 1 : told ? 0 : 2 );
    };
    EXPECT_EXIT( openWithoutParts( ), testing::ExitedWithCode( 0 ), "" );
}
