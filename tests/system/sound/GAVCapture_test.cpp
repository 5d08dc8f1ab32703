// Runs beside a sound server of its own (tests/support/with-sound). Every wait ends on a counted event with a deadline.
#include "platform/GAVCapture.h"

#include "image/GImage.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <unistd.h>

namespace
{
constexpr std::chrono::seconds DEADLINE( 20 );

class Listener : public IGCaptureVideoListener, public IGCaptureAudioListener
{
public:
    void onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length ) override
    {
        const std::scoped_lock lock( _mutex );
        rising = rising && timestamp > _lastVideo;
        _lastVideo = timestamp;
        videoFormat = format;
        videoLength = length;
        picture.assign( buffer, static_cast<size_t>( length ) );
        ++videoFrames;
        _changed.notify_all( );
    }
    void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length ) override
    {
        const std::scoped_lock lock( _mutex );
        rising = rising && timestamp > _lastAudio;
        _lastAudio = timestamp;
        audioFormat = format;
        audioLength = length;
        for( int i = 0; i < length; i++ ) loud = loud || buffer[i];
        ++audioFrames;
        _changed.notify_all( );
    }
    bool wait( int video, int audio )
    {
        std::unique_lock lock( _mutex );
        return _changed.wait_for( lock, DEADLINE, [&] { return videoFrames >= video && audioFrames >= audio; } );
    }

    int videoFrames = 0, audioFrames = 0, videoLength = 0, audioLength = 0;
    bool rising = true, loud = false;
    GImageFormat videoFormat;
    GAudioFormat audioFormat;
    GString picture;

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    uint64_t _lastVideo = 0, _lastAudio = 0;
};

// Opens, listens until enough has come, and closes.
void capture( Listener& listener, const GWString& audio, const GWString& video, int videoFrames, int audioFrames )
{
    GAVCapture recorder = GAVCaptureOpen( audio, video, 2, 22000, 7, 48, 48 );
    ASSERT_TRUE( recorder );
    GAVCaptureSubscribeVideo( recorder, &listener );
    GAVCaptureSubscribeAudio( recorder, &listener );
    EXPECT_TRUE( listener.wait( videoFrames, audioFrames ) );
    EXPECT_EQ( GAVCaptureIsVideoWorking( recorder ), videoFrames > 0 );
    EXPECT_EQ( GAVCaptureIsAudioWorking( recorder ), audioFrames > 0 );
    GAVCaptureUnsubscribeVideo( recorder, &listener );
    GAVCaptureUnsubscribeAudio( recorder, &listener );
    GAVCaptureClose( recorder );
}

void inject( const char* devices )
{
    setenv( "VELMORA_DEVICES", devices, 1 );
}

// A clip of two seconds with sound, made once.
GWString makeClip( )
{
    const char* command = "ffmpeg -v error -y -f lavfi -i testsrc=size=160x120:rate=10:duration=1 -f lavfi -i "
                          "sine=frequency=500:duration=1 "
                          "-c:v libvpx -b:v 200k -c:a libvorbis -ac 1 capture_clip.webm";
    return std::system( command ) == 0 ? u"capture_clip.webm" : u"";
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

TEST( GAVCapture, TestDevicesGiveTightFramesAndExactChunks )
{
    inject( "test camera;tone microphone" );
    Listener listener;
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
    Listener listener;
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
    Listener listener;
    capture( listener, u"", u"range camera", 2, 0 );
    EXPECT_EQ( listener.videoFormat, ( GImageFormat{ GIT_YUY2, 160, 120 } ) );
    EXPECT_TRUE( TestLog::contains( "distance=184" ) );
}

TEST( GAVCapture, MissingDeviceLeavesItsMediumOut )
{
    inject( "test camera" );
    Listener listener;
    capture( listener, u"no such microphone", u"test camera", 2, 0 );
}

TEST( GAVCapture, OneClipIsCameraAndMicrophoneAndItsStampsRiseOverTheLoop )
{
    inject( "" );
    const GWString clip = makeClip( );
    ASSERT_FALSE( clip.empty( ) );
    Listener listener;
    // More than two rounds of the clip.
    capture( listener, clip, clip, 17, 45 );
    EXPECT_EQ( listener.videoFormat, ( GImageFormat{ GIT_YUY2, 160, 120 } ) );
    EXPECT_EQ( listener.audioLength, 2240 );
    EXPECT_TRUE( listener.rising );
    EXPECT_TRUE( listener.loud );
}

TEST( GAVCapture, MicrophoneOfTheSoundServerIsHeard )
{
    inject( "" );
    Listener listener;
    capture( listener, u"Microphone", u"", 0, 5 );
    EXPECT_EQ( listener.audioLength, 2240 );
    EXPECT_TRUE( listener.rising );
}

TEST( GAVCapture, NullHandleAborts )
{
    EXPECT_DEATH( GAVCaptureIsAudioWorking( nullptr ), "capture_" );
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
