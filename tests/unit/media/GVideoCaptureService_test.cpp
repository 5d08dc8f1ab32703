#include "client/media/GVideoCaptureService.h"

#include "base/GBytes.h"

#include "MediaFixture.h"
#include "support/CountAllocations.h"

namespace
{
constexpr char16_t NO_AUDIO[] = u"(none - disable audio capture)";
constexpr char16_t NO_VIDEO[] = u"(none - disable video capture)";
constexpr int EDGE = 48;
} // namespace

class GVideoCapture : public MediaFixture
{
protected:
    void SetUp( ) override
    {
        MediaFixture::SetUp( );
        FakeCapture::get( ).audioDevices = { u"line", u"microphone" };
        FakeCapture::get( ).videoDevices = { u"camera" };
        instance->set( u"Audio_Capture_Device", u"microphone" );
        instance->set( u"Video_Capture_Device", u"camera" );
        service.reset( GSAFENEW( GVideoCaptureService, ( instance.get( ), port.get( ) ) ) );
    }
    void TearDown( ) override
    {
        if( started ) service->_bGThreadObject_safe_onShutdown( );
        service.reset( );
        MediaFixture::TearDown( );
    }
    void start( )
    {
        started = true;
        service->_bGThreadObject_safe_onStartup( );
        service->_bGThreadObject_safe_onLoop( );
    }
    void run( const GHTTPHeaders& message )
    {
        instance->enqueue( u"GVideoCaptureService_commandQueue", message );
        service->_bGThreadObject_safe_onLoop( );
    }
    void video( uint64_t timestamp, int width = 160, int height = 120 )
    {
        const GString pixels = picture( width, height, static_cast<int>( timestamp / 100000 ) );
        for( IGCaptureVideoListener* listener : FakeCapture::get( ).videoListeners )
            listener->onVideoFrame( timestamp, { GIT_RGB24, width, height }, pixels.data( ),
                                    static_cast<int>( pixels.size( ) ) );
    }
    void audio( uint64_t timestamp, int bytes = 2240, int frequency = 22000 )
    {
        const GString samples = tone( bytes / 2 );
        for( IGCaptureAudioListener* listener : FakeCapture::get( ).audioListeners )
            listener->onAudioFrame( timestamp, { 2, frequency, 1 }, samples.data( ), bytes );
    }
    // Skips the sender report that opens a stream.
    void openStream( )
    {
        start( );
        run( command( u"OPEN" ) );
        ASSERT_TRUE( GRTPIsRTCPSR( received( ).data( ), 59 ) );
    }
    static uint16_t sequenceOf( const GString& packet ) { return GReadU16( packet.data( ) + 2 ); }

    std::unique_ptr<GVideoCaptureService> service;
    bool started = false;
};

TEST_F( GVideoCapture, ChosenDeviceLeadsItsList )
{
    start( );
    EXPECT_EQ( GConcat( u"microphone, line, ", NO_AUDIO ), instance->get( u"Available_Audio_Capture_Devices" ) );
    EXPECT_EQ( GConcat( u"camera, ", NO_VIDEO ), instance->get( u"Available_Video_Capture_Devices" ) );
}

TEST_F( GVideoCapture, NoChoicePutsNoneFirst )
{
    instance->clear( u"Audio_Capture_Device" );
    start( );
    EXPECT_EQ( GConcat( NO_AUDIO, u", line, microphone" ), instance->get( u"Available_Audio_Capture_Devices" ) );
}

TEST_F( GVideoCapture, RecorderOpensWithTheFixedFormat )
{
    start( );
    const FakeCapture& capture = FakeCapture::get( );
    EXPECT_EQ( u"microphone", capture.audioDevice );
    EXPECT_EQ( u"camera", capture.videoDevice );
    EXPECT_EQ( 2, capture.bytesPerSample );
    EXPECT_EQ( 22000, capture.frequency );
    EXPECT_EQ( 7, capture.fps );
    EXPECT_EQ( EDGE, capture.width );
    EXPECT_EQ( u"Online", instance->get( u"Audio_Capture_Status" ) );
    EXPECT_EQ( u"true", instance->get( u"Video_Capture_Online" ) );
    GString item;
    ASSERT_TRUE( instance->dequeue( u"GSIPService_commandQueue", item ) );
    EXPECT_EQ( 0U, item.find( "UPDATECAPTURE" ) );
}

TEST_F( GVideoCapture, ClipStandsInForBothDevicesAndIsNotKept )
{
    instance->set( u"avi_source", u"clip.webm" );
    start( );
    EXPECT_EQ( u"clip.webm", FakeCapture::get( ).audioDevice );
    EXPECT_EQ( u"clip.webm", FakeCapture::get( ).videoDevice );
    instance->save( );
    GString saved;
    GFileLoad( u"media-test-settings.ini", saved );
    EXPECT_EQ( GString::npos, saved.find( "clip.webm" ) );
}

TEST_F( GVideoCapture, DeviceThatDoesNotWorkFallsBackToNone )
{
    FakeCapture::get( ).videoWorks = false;
    start( );
    EXPECT_EQ( u"Error", instance->get( u"Video_Capture_Status" ) );
    EXPECT_EQ( u"false", instance->get( u"Video_Capture_Online" ) );
    EXPECT_EQ( NO_VIDEO, instance->get( u"Video_Capture_Device" ) );
    EXPECT_EQ( u"Online", instance->get( u"Audio_Capture_Status" ) );
}

TEST_F( GVideoCapture, NoCameraIsOffline )
{
    instance->set( u"Video_Capture_Device", NO_VIDEO );
    start( );
    EXPECT_EQ( u"", FakeCapture::get( ).videoDevice );
    EXPECT_EQ( u"Offline", instance->get( u"Video_Capture_Status" ) );
    EXPECT_EQ( u"false", instance->get( u"Video_Capture_Online" ) );
}

TEST_F( GVideoCapture, RecorderThatCannotOpenIsTold )
{
    TestLog::expect( "WARNING Unable to open recorder, ignoring." );
    TestLog::expect( "WARNING Unable to execute command 'OPEN' because recorder does not exist, ignoring." );
    FakeCapture::get( ).canOpen = false;
    start( );
    EXPECT_EQ( u"Error", instance->get( u"Video_Capture_Status" ) );
    EXPECT_EQ( u"Error", instance->get( u"Audio_Capture_Status" ) );
    EXPECT_EQ( NO_AUDIO, instance->get( u"Audio_Capture_Device" ) );
    run( command( u"OPEN" ) );
}

TEST_F( GVideoCapture, OpenSendsOneReportThatNamesThisDevice )
{
    start( );
    run( command( u"OPEN" ) );
    const GString report = received( );
    GWString name;
    ASSERT_TRUE( GRTPIsRTCPSR( report.data( ), static_cast<int>( report.size( ) ) ) );
    ASSERT_TRUE( GRTCPSRDecompose( report.data( ), static_cast<int>( report.size( ) ), name ) );
    EXPECT_EQ( u"ann@velmora.local@dev1", name );
    EXPECT_TRUE( nothingReceived( ) );
}

TEST_F( GVideoCapture, OpenOfAnOpenStreamReplacesItWithANewReport )
{
    openStream( );
    run( command( u"OPEN" ) );
    EXPECT_TRUE( TestLog::contains( "already open, closing so we can reopen" ) );
    EXPECT_TRUE( GRTPIsRTCPSR( received( ).data( ), 59 ) );
    EXPECT_EQ( 2U, FakeCapture::get( ).videoListeners.size( ) );
}

TEST_F( GVideoCapture, PictureLeavesWithItsEdgeAsFormatWord )
{
    TestLog::expect( "WARNING Non-ideal video match; will resize from 112 to 48" );
    openStream( );
    video( 5000000 );
    const GString packet = received( );
    GRTPHeader header;
    int length = 0;
    const char* payload = GDecomposeRTP( packet.data( ), static_cast<int>( packet.size( ) ), header, length );
    ASSERT_TRUE( payload );
    EXPECT_EQ( GRTP_VIDEO, header.payloadType );
    EXPECT_EQ( 1, header.sequence );
    EXPECT_EQ( 5000U, header.timestamp );
    EXPECT_EQ( 48U, GReadU32( payload ) );
    EXPECT_GT( length, 40 );
}

TEST_F( GVideoCapture, FrameAfterExactlyOnePeriodIsDropped )
{
    TestLog::allow( "WARNING Non-ideal video match" );
    openStream( );
    video( 5000000 );
    EXPECT_EQ( 1, sequenceOf( received( ) ) );
    video( 5200000 );
    EXPECT_TRUE( nothingReceived( ) );
    video( 5200001 );
    EXPECT_EQ( 2, sequenceOf( received( ) ) );
}

TEST_F( GVideoCapture, OddSourceIsCroppedToTheLargestSquareOf16 )
{
    TestLog::expect( "will resize from 144 to 48" );
    openStream( );
    video( 5000000, 176, 144 );
    EXPECT_FALSE( received( ).empty( ) );
    video( 6000000, 150, 150 );
    EXPECT_FALSE( received( ).empty( ) );
    EXPECT_EQ( 2, TestLog::count( "will resize from 144 to 48" ) );
}

TEST_F( GVideoCapture, SourceBelow16PixelsSendsNothing )
{
    openStream( );
    video( 5000000, 12, 12 );
    EXPECT_TRUE( nothingReceived( ) );
}

TEST_F( GVideoCapture, SoundLeavesInOnePacketAndALongBufferInTwo )
{
    TestLog::expect( "WARNING: Assertion failed. (!(thisChunkSize % frameSize))" );
    openStream( );
    audio( 5000000, 5600 );
    const GString packet = received( );
    GRTPHeader header;
    int length = 0;
    const char* payload = GDecomposeRTP( packet.data( ), static_cast<int>( packet.size( ) ), header, length );
    ASSERT_TRUE( payload );
    EXPECT_EQ( GRTP_AUDIO, header.payloadType );
    EXPECT_EQ( 500U, header.timestamp );
    EXPECT_EQ( 22000U, GReadU32( payload ) );
    EXPECT_TRUE( nothingReceived( ) );
    audio( 6000000, 8800 );
    EXPECT_EQ( 2, sequenceOf( received( ) ) );
    EXPECT_EQ( 3, sequenceOf( received( ) ) );
    EXPECT_TRUE( nothingReceived( ) );
}

TEST_F( GVideoCapture, DisabledMediaSendNothing )
{
    start( );
    GHTTPHeaders open = command( u"OPEN" );
    open.set( u"Audio-Enable", u"false" );
    open.set( u"Video-Enable", u"false" );
    run( open );
    received( );
    video( 5000000 );
    audio( 5000000 );
    EXPECT_TRUE( nothingReceived( ) );
}

TEST_F( GVideoCapture, ResetChangesWhatAStreamSends )
{
    TestLog::allow( "WARNING Non-ideal video match" );
    openStream( );
    GHTTPHeaders reset = command( u"RESET" );
    reset.set( u"Audio-Enable", u"false" );
    reset.set( u"Video-FPS", u"1" );
    run( reset );
    audio( 5000000 );
    EXPECT_TRUE( nothingReceived( ) );
    video( 5000000 );
    received( );
    video( 5900000 );
    EXPECT_TRUE( nothingReceived( ) );
}

TEST_F( GVideoCapture, AudioCountsAnewAfterAResetToTheLetterAndGoesOnWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        instance->set( u"Robust_Media", robust ? u"1" : u"0" );
        if( !started )
            openStream( );
        else
        {
            run( command( u"OPEN" ) );
            received( );
        }
        audio( 5000000 );
        EXPECT_EQ( 1, sequenceOf( received( ) ) );
        run( command( u"RESET" ) );
        audio( 6000000 );
        EXPECT_EQ( robust ? 2 : 1, sequenceOf( received( ) ) );
    }
}

TEST_F( GVideoCapture, EncoderStartsAfreshEvery8SecondsWithTheRemedy )
{
    TestLog::expect( "WARNING Non-ideal video match" );
    openStream( );
    for( uint64_t t = 0; t <= 20; ++t ) video( 5000000 + t * 1000000 );
    EXPECT_EQ( 1, TestLog::count( "Non-ideal" ) );
    instance->set( u"Robust_Media", u"1" );
    for( uint64_t t = 21; t <= 41; ++t ) video( 5000000 + t * 1000000 );
    EXPECT_EQ( 4, TestLog::count( "Non-ideal" ) );
}

TEST_F( GVideoCapture, CommandsForUnknownStreamsChangeNothing )
{
    TestLog::expect( "WARNING Received 'RESET' request, but no stream named 'nobody'; ignoring." );
    TestLog::expect( "WARNING Unsupported command 'DANCE' sent to recorder, ignoring." );
    TestLog::expect( "WARNING Malformed command sent to 'GVideoCaptureService_commandQueue', ignoring." );
    start( );
    run( command( u"RESET", u"nobody" ) );
    run( command( u"CLOSE", u"nobody" ) );
    run( command( u"DANCE" ) );
    instance->enqueue( u"GVideoCaptureService_commandQueue", GString( "junk" ) );
    service->_bGThreadObject_safe_onLoop( );
    EXPECT_TRUE( TestLog::contains( "Received 'CLOSE' request, but no stream named 'nobody'; ignoring." ) );
}

TEST_F( GVideoCapture, StartHooksTheSameStreamsAgain )
{
    TestLog::allow( "WARNING Non-ideal video match" );
    openStream( );
    GHTTPHeaders again( u"START" );
    again.set( u"Audio_Capture_Device", u"line" );
    again.set( u"Video_Capture_Device", u"camera" );
    run( again );
    EXPECT_EQ( 1, FakeCapture::get( ).closed );
    EXPECT_EQ( 2U, FakeCapture::get( ).videoListeners.size( ) );
    EXPECT_TRUE( TestLog::contains( "Restarting 1 existing capture streams" ) );
    video( 5000000 );
    EXPECT_FALSE( received( ).empty( ) );
}

TEST_F( GVideoCapture, PreviewShowsThePictureOnceASecond )
{
    start( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    video( 5000000 );
    EXPECT_EQ( 160U * 120U * 3U, instance->getRaw( u"Local_Video_Image" ).size( ) );
    const uint64_t stamp = instance->getTimestamp( u"Local_Video_Image" );
    now += 500000;
    video( 5500000 );
    EXPECT_EQ( stamp, instance->getTimestamp( u"Local_Video_Image" ) );
    now += 600000;
    video( 6100000 );
    EXPECT_NE( stamp, instance->getTimestamp( u"Local_Video_Image" ) );
}

TEST_F( GVideoCapture, PreviewIsStaticUntilAPictureComes )
{
    start( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    const GString first = instance->getRaw( u"Local_Video_Image" );
    EXPECT_EQ( 57600U, first.size( ) );
    now += 1000001;
    service->_bGThreadObject_safe_onLoop( );
    EXPECT_NE( first, instance->getRaw( u"Local_Video_Image" ) );
}

TEST_F( GVideoCapture, SilenceIsABandOfHalfTheHeight )
{
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    const GString silence( 2240, '\0' );
    for( IGCaptureAudioListener* listener : FakeCapture::get( ).audioListeners )
        listener->onAudioFrame( 1, { 2, 22000, 1 }, silence.data( ), 2240 );
    const GString image = instance->getRaw( u"Local_Audio_Image" );
    ASSERT_EQ( 300U * 100U * 3U, image.size( ) );
    int green = 0;
    for( int y = 0; y < 100; ++y ) green += image[static_cast<size_t>( y * 900 + 1 )] == '\xFF';
    EXPECT_EQ( 50, green );
    EXPECT_EQ( '\xFF', image[static_cast<size_t>( 25 * 900 + 1 )] );
}

// ---- The level of the microphone.

class MicrophoneLevel : public GVideoCapture
{
protected:
    void sound( int16_t amplitude )
    {
        GString samples;
        for( int i = 0; i < 440; ++i )
        {
            const int16_t sample = i % 2 ? amplitude : static_cast<int16_t>( -amplitude );
            samples.append( reinterpret_cast<const char*>( &sample ), 2 );
        }
        now += 20000;
        for( IGCaptureAudioListener* listener : FakeCapture::get( ).audioListeners )
            listener->onAudioFrame( now, { 2, 22000, 1 }, samples.data( ), static_cast<int>( samples.size( ) ) );
    }
    int level( ) { return static_cast<int>( instance->calc( u"Audio_Capture_Level" ) ); }
};

TEST_F( MicrophoneLevel, IsTheLoudnessInDecibels )
{
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 1000000;
    sound( 32767 );
    EXPECT_EQ( level( ), 100 );
    now += 100000;
    sound( 3277 ); // 20 below full scale.
    EXPECT_EQ( level( ), 67 );
    now += 100000;
    sound( 33 ); // 60 below.
    EXPECT_EQ( level( ), 0 );
}

TEST_F( MicrophoneLevel, IsToldAtMost15TimesASecondAndMissesNoPeak )
{
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 1000000;
    int changes = 0;
    int before = 0;
    for( int i = 0; i < 50; ++i )
    {
        sound( static_cast<int16_t>( 1000 + 500 * i ) );
        changes += level( ) != before;
        before = level( );
    }
    EXPECT_LE( changes, 15 );
    EXPECT_GT( changes, 5 );
    now += 100000;
    sound( 0 );
    sound( 32767 );
    EXPECT_LT( level( ), 100 );
    sound( 0 );
    sound( 0 );
    sound( 0 );
    EXPECT_EQ( level( ), 100 );
}

TEST_F( MicrophoneLevel, RestsUnlessThePreviewOrSomebodyListens )
{
    start( );
    now += 1000000;
    sound( 32767 );
    EXPECT_FALSE( instance->isSet( u"Audio_Capture_Level" ) );
    instance->set( u"Talking_To_List", u"ben" );
    sound( 32767 );
    EXPECT_EQ( level( ), 100 );
    instance->clear( u"Talking_To_List" );
    sound( 32767 );
    EXPECT_EQ( level( ), 0 );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 100000;
    sound( 32767 );
    EXPECT_EQ( level( ), 100 );
    run( GHTTPHeaders( u"STOPAUDIOPREVIEW" ) );
    sound( 32767 );
    EXPECT_EQ( level( ), 0 );
    instance->set( u"Disable_Preview", u"1" );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 100000;
    sound( 32767 );
    EXPECT_EQ( level( ), 0 );
}

TEST_F( MicrophoneLevel, FallsWhenTheDeviceGoes )
{
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 1000000;
    sound( 32767 );
    EXPECT_EQ( level( ), 100 );
    GHTTPHeaders again( u"START" );
    again.set( u"Audio_Capture_Device", NO_AUDIO );
    run( again );
    EXPECT_EQ( level( ), 0 );
}

TEST_F( MicrophoneLevel, TakesNothingFromTheHeap )
{
    start( );
    instance->set( u"Talking_To_List", u"ben@velmora.local, ann@velmora.local" );
    now += 1000000;
    sound( 32767 );
    IGCaptureAudioListener* listener = *FakeCapture::get( ).audioListeners.begin( );
    const GString loud = tone( 440 );
    const GString quiet( 880, '\0' );
    const auto work = [&]
    {
        for( int i = 0; i < 100; ++i )
        {
            now += 20000;
            listener->onAudioFrame( now, { 2, 22000, 1 }, i % 8 < 4 ? loud.data( ) : quiet.data( ), 880 );
        }
    };
    work( );
    EXPECT_EQ( countAllocations( work ), 0 );
}

TEST_F( GVideoCapture, LooksAgainForDevicesWhenAsked )
{
    start( );
    FakeCapture::get( ).audioDevices = { u"line", u"microphone", u"headset" };
    run( GHTTPHeaders( u"LISTDEVICES" ) );
    EXPECT_EQ( GConcat( u"microphone, line, headset, ", NO_AUDIO ),
               instance->get( u"Available_Audio_Capture_Devices" ) );
    EXPECT_EQ( 0, FakeCapture::get( ).closed );
}

TEST_F( GVideoCapture, DisabledPreviewWritesNothing )
{
    instance->set( u"Disable_Preview", u"1" );
    start( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    video( 5000000 );
    EXPECT_FALSE( instance->isSet( u"Local_Video_Image" ) );
}

TEST_F( GVideoCapture, TheLoopRestsUnlessAPreviewWaitsForItsFirstPicture )
{
    start( );
    EXPECT_EQ( service->_bGThreadObject_safe_onLoop( ), 5000 );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    EXPECT_EQ( service->_bGThreadObject_safe_onLoop( ), 50 );
    run( GHTTPHeaders( u"STOPVIDEOPREVIEW" ) );
    EXPECT_EQ( service->_bGThreadObject_safe_onLoop( ), 5000 );
}
