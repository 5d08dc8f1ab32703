// What start-up, START and shutdown do, step by step, without a remedy.
#include "CaptureFixture.h"
#include "client/drawing/GImageTools.h"

namespace
{
using Calls = std::vector<GString>;
constexpr char16_t QUEUE[] = u"GVideoCaptureService_commandQueue";
} // namespace

class GVideoCaptureStart : public GVideoCapture
{
protected:
    void SetUp( ) override
    {
        GVideoCapture::SetUp( );
        GLogSetFilter( "x" );
    }
    void TearDown( ) override
    {
        GLogSetFilter( "" );
        GVideoCapture::TearDown( );
    }
    GWString get( GWStringView name ) { return instance->get( name ); }
    // The three status values.
    GWString status( )
    {
        return GConcat( get( u"Video_Capture_Status" ), u" ", get( u"Audio_Capture_Status" ), u" ",
                        get( u"Video_Capture_FSM_Status" ) );
    }
    // Places in the log rise.
    static void expectInOrder( const std::vector<std::string>& texts )
    {
        size_t next = 0;
        for( const std::string& line : TestLog::lines( ) )
            if( next < texts.size( ) && line.find( texts[next] ) != std::string::npos ) ++next;
        EXPECT_EQ( next, texts.size( ) ) << ( next < texts.size( ) ? texts[next] : "" );
    }
    GString saved( )
    {
        instance->save( );
        GString text;
        GFileLoad( u"media-test-settings.ini", text );
        return text;
    }
    bool isPeersTold( )
    {
        GString item;
        return instance->dequeue( u"GSIPService_commandQueue", item ) && item.starts_with( "UPDATECAPTURE" );
    }
};

TEST_F( GVideoCaptureStart, StartUpListsAndStartsInThisOrder )
{
    start( );
    expectInOrder( { "Enumerating audio and video devices",
                     "Starting audio/video capture: audio='microphone', video='camera", "Starting local capture" } );
}

TEST_F( GVideoCaptureStart, NoChoicePutsNoneFirstInBothLists )
{
    instance->clear( u"Audio_Capture_Device" );
    instance->clear( u"Video_Capture_Device" );
    service->_bGThreadObject_safe_onStartup( );
    started = true;
    EXPECT_EQ( GConcat( NO_AUDIO, u", line, microphone" ), get( u"Available_Audio_Capture_Devices" ) );
    EXPECT_EQ( GConcat( NO_VIDEO, u", camera" ), get( u"Available_Video_Capture_Devices" ) );
}

TEST_F( GVideoCaptureStart, AChosenDeviceThatIsNotThereLeadsTheListAllTheSame )
{
    instance->set( u"Video_Capture_Device", u"old camera" );
    service->_bGThreadObject_safe_onStartup( );
    started = true;
    EXPECT_EQ( GConcat( u"old camera, camera, ", NO_VIDEO ), get( u"Available_Video_Capture_Devices" ) );
}

TEST_F( GVideoCaptureStart, StartUpShowsTheDefaultPictureBeforeAnythingIsOpened )
{
    const GString pixels( 12, '\x55' );
    GImageTools_instanceWrite( instance.get( ), u"defaultprofile.png", { GIT_RGB24, 2, 2 }, pixels );
    service->_bGThreadObject_safe_onStartup( );
    started = true;
    EXPECT_EQ( FakeCapture::get( ).opened, 0 );
    EXPECT_EQ( instance->getRaw( u"Local_Video_Image" ), pixels );
}

TEST_F( GVideoCaptureStart, NoSoundIsABlackSquareWithAGreenLineAndARedCross )
{
    start( );
    const GString image = instance->getRaw( u"Local_Audio_Image" );
    GImageFormat format;
    GRect rect;
    ASSERT_TRUE( GImageTools_instanceReadCheck( instance.get( ), u"Local_Audio_Image", format, rect ) );
    EXPECT_EQ( format, ( GImageFormat{ GIT_RGB24, 300, 100 } ) );
    ASSERT_EQ( image.size( ), 300U * 100U * 3U );
    const auto pixel = [&image]( int x, int y )
    { return image.substr( static_cast<size_t>( 3 * ( y * 300 + x ) ), 3 ); };
    const GString green( "\x00\xFF\x00", 3 );
    const GString red( "\xFF\x00\x00", 3 );
    EXPECT_EQ( pixel( 60, 50 ), green );
    EXPECT_EQ( pixel( 240, 50 ), green );
    EXPECT_EQ( pixel( 0, 50 ), green );
    EXPECT_EQ( pixel( 60, 20 ), red );
    EXPECT_EQ( pixel( 240, 20 ), red );
    EXPECT_EQ( pixel( 60, 80 ), red );
    EXPECT_EQ( pixel( 150, 50 ), red ); // The cross lies over the line.
    EXPECT_EQ( pixel( 150, 10 ), GString( 3, '\0' ) );
}

TEST_F( GVideoCaptureStart, TheFirstStartSetsTwoOfTheThreeStatusValues )
{
    GWString seen;
    FakeCapture::get( ).onCall = [&]( const GString& call )
    {
        if( call == "open" ) seen = status( );
    };
    start( );
    EXPECT_EQ( seen, u"Starting... Starting... " );
    EXPECT_EQ( status( ), u"Online Online " );
}

TEST_F( GVideoCaptureStart, AStartStopsWhatRunsFirst )
{
    openStream( );
    std::vector<GWString> seen;
    FakeCapture::get( ).calls.clear( );
    FakeCapture::get( ).onCall = [&]( const GString& call )
    {
        if( call == "open" || call == "close" ) seen.push_back( status( ) );
    };
    run( restart( u"line" ) );
    EXPECT_EQ( FakeCapture::get( ).calls, ( Calls{ "-audio", "-video", "-video", "-audio", "close", "open", "+video",
                                                   "+audio", "+audio", "+video" } ) );
    EXPECT_EQ(
        seen, ( std::vector<GWString>{ u"Stopping... Stopping... Stopping...", u"Starting... Starting... Stopped" } ) );
    EXPECT_EQ( status( ), u"Online Online Stopped" );
    expectInOrder( { "Recorder already exists; stopping 1 existing capture streams",
                     "Restarting 1 existing capture streams",
                     "Resetting stream, shutting down audio (NO), video (NO)" } );
    EXPECT_EQ( FakeCapture::get( ).audioDevice, u"line" );
}

TEST_F( GVideoCaptureStart, NothingIsRestartedWithoutStreams )
{
    start( );
    run( restart( ) );
    EXPECT_TRUE( TestLog::contains( "Recorder already exists; stopping 0 existing capture streams" ) );
    EXPECT_FALSE( TestLog::contains( "existing capture streams\n" ) && TestLog::contains( "Restarting" ) );
}

TEST_F( GVideoCaptureStart, AStartThatFailsSaysSoAndGoesOnWithTheNextCommand )
{
    TestLog::expect( "WARNING Unable to open recorder, ignoring." );
    TestLog::expect( "WARNING Unable to execute command 'DANCE' because recorder does not exist, ignoring." );
    start( );
    EXPECT_TRUE( isPeersTold( ) );
    EXPECT_NE( saved( ).find( "microphone" ), GString::npos );
    FakeCapture::get( ).canOpen = false;
    instance->enqueue( QUEUE, restart( ) );
    run( command( u"DANCE" ) );
    EXPECT_EQ( status( ), u"Error Error Stopped" );
    EXPECT_EQ( get( u"Audio_Capture_Online" ), u"false" );
    EXPECT_EQ( get( u"Video_Capture_Online" ), u"false" );
    EXPECT_EQ( get( u"Audio_Capture_Device" ), NO_AUDIO );
    EXPECT_EQ( get( u"Video_Capture_Device" ), NO_VIDEO );
    EXPECT_EQ( saved( ).find( "Capture_Device" ), GString::npos );
    EXPECT_FALSE( isPeersTold( ) );
}

TEST_F( GVideoCaptureStart, AStreamOutlivesARecorderThatCannotBeOpened )
{
    TestLog::expect( "WARNING Unable to open recorder, ignoring." );
    TestLog::allow( "WARNING Non-ideal video match" );
    openStream( );
    FakeCapture::get( ).canOpen = false;
    run( restart( ) );
    FakeCapture::get( ).canOpen = true;
    run( restart( ) );
    video( 5000000 );
    EXPECT_EQ( sequenceOf( received( ) ), 1 );
}

TEST_F( GVideoCaptureStart, WhatWorksIsKeptForTheNextRunAndWhatDoesNotIsForgotten )
{
    instance->set( u"Audio_Capture_Device", u"microphone" );
    instance->set( u"Video_Capture_Device", u"camera", true );
    FakeCapture::get( ).broken = { u"camera" };
    start( );
    EXPECT_EQ( status( ), u"Error Online " );
    EXPECT_EQ( get( u"Audio_Capture_Online" ), u"true" );
    EXPECT_EQ( get( u"Video_Capture_Device" ), NO_VIDEO );
    const GString text = saved( );
    EXPECT_NE( text.find( "microphone" ), GString::npos );
    EXPECT_EQ( text.find( "ideo_" ), GString::npos ) << text;
    EXPECT_TRUE( isPeersTold( ) );
}

TEST_F( GVideoCaptureStart, WhoWantsNoDeviceIsOfflineAndThePreviewIsStatic )
{
    instance->set( u"Audio_Capture_Device", NO_AUDIO );
    instance->set( u"Video_Capture_Device", u"" );
    start( );
    EXPECT_EQ( FakeCapture::get( ).audioDevice, u"" );
    EXPECT_EQ( status( ), u"Offline Offline " );
    EXPECT_EQ( get( u"Video_Capture_Online" ), u"false" );
    EXPECT_EQ( get( u"Video_Capture_Device" ), NO_VIDEO );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    EXPECT_EQ( instance->getRaw( u"Local_Video_Image" ).size( ), 57600U );
}

TEST_F( GVideoCaptureStart, EveryOtherCommandWantsARecorder )
{
    TestLog::expect( "WARNING Unable to open recorder, ignoring." );
    FakeCapture::get( ).canOpen = false;
    start( );
    for( const char* method : { "OPEN", "RESET", "CLOSE", "STARTAUDIOPREVIEW", "STOPAUDIOPREVIEW", "STARTVIDEOPREVIEW",
                                "STOPVIDEOPREVIEW", "DANCE" } )
    {
        TestLog::expect( GString( "WARNING Unable to execute command '" ) + method +
                         "' because recorder does not exist, ignoring." );
        run( command( GUTF8ToWide( method ) ) );
    }
    FakeCapture::get( ).canOpen = true;
    run( restart( ) );
    EXPECT_EQ( FakeCapture::get( ).videoListeners( ).size( ), 1U );
    EXPECT_TRUE( instance->getRaw( u"Local_Video_Image" ).empty( ) );
}

TEST_F( GVideoCaptureStart, ShutdownTakesEveryListenerDownAndClosesTheRecorder )
{
    openStream( );
    run( command( u"OPEN", u"eve@velmora.local@dev3" ) );
    FakeCapture::get( ).calls.clear( );
    service->_bGThreadObject_safe_onShutdown( );
    started = false;
    EXPECT_EQ( FakeCapture::get( ).calls,
               ( Calls{ "-video", "-audio", "-audio", "-video", "-audio", "-video", "close" } ) );
    expectInOrder( { "Stopping local capture", "2 capture streams on close, stopping." } );
}

TEST_F( GVideoCaptureStart, AVideoSizeThatCannotBeIsBroughtToOneThatCan )
{
    struct Case
    {
        int wish;
        int edge;
    };
    for( const Case one : { Case{ 0, 16 }, Case{ -5, 16 }, Case{ 5000, 1024 }, Case{ 47, 32 }, Case{ 17, 16 } } )
    {
        TestLog::expect( "WARNING Video_Size cannot be " + std::to_string( one.wish ) + ", taking " +
                         std::to_string( one.edge ) + "." );
        instance->set( u"Video_Size", one.wish );
        if( started )
            run( restart( ) );
        else
            start( );
        EXPECT_EQ( FakeCapture::get( ).width, one.edge );
        EXPECT_EQ( FakeCapture::get( ).height, one.edge );
    }
}
