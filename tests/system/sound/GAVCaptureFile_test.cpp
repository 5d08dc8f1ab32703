// Media files that stand in for camera and microphone, good and bad ones.
#include "CaptureListener.h"
#include "support/TestFolder.h"
#include "support/TestLog.h"
#include "support/TestSound.h"

namespace
{
class GAVCaptureFile : public TestFolder
{
protected:
    void SetUp( ) override
    {
        TestFolder::SetUp( );
        inject( "" );
    }
    // A file made of test pictures and a tone, of a second each unless told otherwise.
    static bool make( const GString& name, const GString& video, const GString& audio )
    {
        return TestSound::run( "ffmpeg -nostdin -v error -y " +
                               ( video.empty( ) ? "" : "-f lavfi -i testsrc=size=160x120:rate=10:" + video + " " ) +
                               ( audio.empty( ) ? "" : "-f lavfi -i sine=frequency=500:" + audio + " " ) +
                               "-c:v libvpx -b:v 200k -c:a libvorbis -ac 1 " + name );
    }
    static int timesOfLoss( ) { return TestLog::count( "WARNING Capture device failed: " ); }
};
} // namespace

TEST_F( GAVCaptureFile, OneClipIsCameraAndMicrophoneAndItsStampsRiseOverTheLoop )
{
    ASSERT_TRUE( make( "clip.webm", "duration=1", "duration=1" ) );
    CaptureListener listener;
    // More than two rounds of the clip.
    capture( listener, u"clip.webm", u"clip.webm", 17, 45 );
    EXPECT_EQ( listener.videoFormat, ( GImageFormat{ GIT_YUY2, 160, 120 } ) );
    EXPECT_EQ( listener.audioLength, 2240 );
    EXPECT_TRUE( listener.rising );
    EXPECT_TRUE( listener.loud );
}

TEST_F( GAVCaptureFile, TwoFilesAreCameraAndMicrophone )
{
    ASSERT_TRUE( make( "see.webm", "duration=1", "" ) );
    ASSERT_TRUE( make( "hear.webm", "", "duration=1" ) );
    CaptureListener listener;
    capture( listener, u"hear.webm", u"see.webm", 8, 25 );
    EXPECT_TRUE( listener.rising );
}

TEST_F( GAVCaptureFile, UncompressedFilmIsPlayedToo )
{
    ASSERT_TRUE(
        TestSound::run( "ffmpeg -nostdin -v error -f lavfi -i smptebars=size=158x90:rate=10:duration=1 -f lavfi -i "
                        "sine=duration=1 -c:v rawvideo -pix_fmt bgr24 -c:a pcm_s16le clip.avi" ) );
    CaptureListener listener;
    capture( listener, u"clip.avi", u"clip.avi", 12, 25 );
    ASSERT_EQ( listener.videoFormat, ( GImageFormat{ GIT_YUY2, 158, 90 } ) );
    ASSERT_EQ( listener.videoLength, 158 * 90 * 2 );
    // Such a film is stored bottom-up; the bars begin light and end dark.
    EXPECT_GT( static_cast<unsigned char>( listener.picture[0] ), 150 );
    EXPECT_LT( static_cast<unsigned char>( listener.picture[158 * 89 * 2] ), 80 );
}

TEST_F( GAVCaptureFile, FilmOfAModernCodecIsPlayed )
{
    ASSERT_TRUE(
        TestSound::run( "ffmpeg -nostdin -v error -f lavfi -i testsrc=size=320x240:rate=10:duration=1 -f lavfi -i "
                        "sine=duration=1 -c:v mpeg4 -c:a mp3 clip.mp4" ) );
    TestLog::allow( "WARNING Capture device failed: " );
    CaptureListener listener;
    const Recording recording( listener, u"clip.mp4", u"clip.mp4" );
    ASSERT_TRUE( recording.recorder );
    // Whether the machine has the decoders or not, what is said to work works.
    EXPECT_TRUE( !GAVCaptureIsVideoWorking( recording.recorder ) || listener.wait( 3, 0 ) );
    EXPECT_TRUE( !GAVCaptureIsAudioWorking( recording.recorder ) || listener.wait( 0, 3 ) );
}

TEST_F( GAVCaptureFile, MediumThatAFileLacksDoesNotWork )
{
    ASSERT_TRUE( make( "see.webm", "duration=1", "" ) );
    ASSERT_TRUE( make( "hear.webm", "", "duration=1" ) );
    CaptureListener seen, heard;
    capture( seen, u"see.webm", u"see.webm", 3, 0 );
    capture( heard, u"hear.webm", u"hear.webm", 0, 3 );
    EXPECT_EQ( seen.audioFrames, 0 );
    EXPECT_EQ( heard.videoFrames, 0 );
}

TEST_F( GAVCaptureFile, FilmOfOnePictureDoesNotRace )
{
    ASSERT_TRUE( make( "one.webm", "duration=0.1", "" ) );
    CaptureListener listener;
    const auto start = std::chrono::steady_clock::now( );
    capture( listener, u"", u"one.webm", 5, 0 );
    EXPECT_GE( std::chrono::steady_clock::now( ) - start, std::chrono::milliseconds( 300 ) );
    EXPECT_TRUE( listener.rising );
}

TEST_F( GAVCaptureFile, WhatIsNoFilmIsReportedOnceAndLeftOut )
{
    TestLog::expect( "WARNING Capture device failed: " );
    write( "empty.webm", "" );
    write( "text.webm", std::string( 5000, 'x' ) );
    std::string noise( 50000, '\0' );
    uint32_t seed = 1;
    for( char& byte : noise ) byte = static_cast<char>( ( seed = seed * 1664525 + 1013904223 ) >> 24 );
    write( "noise.webm", noise );
    write( "headed.webm", "\x1A\x45\xDF\xA3" + noise );
    write( "headed.avi", "RIFF\xFF\xFF\xFF\xFF"
                         "AVI LIST\xFF\xFF\xFF\x7F"
                         "hdrlavih" +
                             noise );
    int lost = 0;
    for( const GWString name : { u"empty.webm", u"text.webm", u"noise.webm", u"headed.webm", u"headed.avi" } )
    {
        CaptureListener listener;
        capture( listener, name, name, 0, 0 );
        EXPECT_EQ( timesOfLoss( ), ++lost );
    }
}

TEST_F( GAVCaptureFile, FolderAndPipeAreNoFilms )
{
    std::filesystem::create_directory( "folder.webm" );
    const int pipe = openPipe( "pipe.webm" );
    for( const GWString name : { u"folder.webm", u"pipe.webm", u"/dev/zero" } )
    {
        CaptureListener listener;
        capture( listener, name, name, 0, 0 );
    }
    close( pipe );
}

TEST_F( GAVCaptureFile, FilmCutAnywhereNeverHangs )
{
    TestLog::allow( "WARNING Capture device failed: " );
    ASSERT_TRUE( make( "clip.webm", "duration=1", "duration=1" ) );
    const std::string whole = read( "clip.webm" );
    for( size_t part = 1; part < 8; part++ )
    {
        write( "cut.webm", whole.substr( 0, whole.size( ) * part / 8 ) );
        CaptureListener listener;
        const Recording recording( listener, u"cut.webm", u"cut.webm" );
        ASSERT_TRUE( recording.recorder );
        EXPECT_TRUE( !GAVCaptureIsVideoWorking( recording.recorder ) || listener.wait( 1, 0 ) );
    }
}

TEST_F( GAVCaptureFile, FilmThatShrinksWhileItPlaysIsNoHang )
{
    TestLog::allow( "WARNING Capture device failed: " );
    ASSERT_TRUE( make( "clip.webm", "duration=3", "duration=3" ) );
    CaptureListener listener;
    const Recording recording( listener, u"clip.webm", u"clip.webm" );
    ASSERT_TRUE( recording.recorder );
    EXPECT_TRUE( listener.wait( 2, 2 ) );
    std::filesystem::resize_file( "clip.webm", 100 );
    EXPECT_TRUE( TestSound::becomes( [&] { return !GAVCaptureIsVideoWorking( recording.recorder ); } ) );
    EXPECT_EQ( timesOfLoss( ), 1 );
}
