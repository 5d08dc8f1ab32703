#include "CaptureFixture.h"

#include "client/drawing/GImageTools.h"

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
    EXPECT_EQ( 48, capture.width );
    EXPECT_EQ( 48, capture.height );
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
    FakeCapture::get( ).broken = { u"camera" };
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
    EXPECT_EQ( 2U, FakeCapture::get( ).videoListeners( ).size( ) );
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
        if( started ) run( restart( ) );
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
    run( restart( u"line" ) );
    EXPECT_EQ( 1, FakeCapture::get( ).closed );
    EXPECT_EQ( 2U, FakeCapture::get( ).videoListeners( ).size( ) );
    EXPECT_TRUE( TestLog::contains( "Restarting 1 existing capture streams" ) );
    video( 5000000 );
    EXPECT_FALSE( received( ).empty( ) );
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

TEST_F( GVideoCapture, TheLoopRestsUnlessAPreviewWaitsForItsFirstPicture )
{
    start( );
    EXPECT_EQ( service->_bGThreadObject_safe_onLoop( ), 5000 );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    EXPECT_EQ( service->_bGThreadObject_safe_onLoop( ), 50 );
    run( GHTTPHeaders( u"STOPVIDEOPREVIEW" ) );
    EXPECT_EQ( service->_bGThreadObject_safe_onLoop( ), 5000 );
}
