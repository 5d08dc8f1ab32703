// Devices that come and go while the service runs.
#include "CaptureFixture.h"

#include <chrono>
#include <thread>

class GVideoCaptureDevices : public GVideoCapture
{
protected:
    void SetUp( ) override
    {
        GVideoCapture::SetUp( );
        TestLog::allow( "WARNING Non-ideal video match" );
        instance->set( u"Robust_Media", 1 );
    }
    void begin( )
    {
        start( );
        peersTold( );
    }
    GWString get( GWStringView name ) { return instance->get( name ); }
    void loop( uint64_t seconds = 0 )
    {
        now += seconds * 1000000;
        rest = service->_bGThreadObject_safe_onLoop( );
    }
    // How often the peers were told since the last call.
    int peersTold( )
    {
        int count = 0;
        GString item;
        while( instance->dequeue( u"GSIPService_commandQueue", item ) ) count += item.starts_with( "UPDATECAPTURE" );
        return count;
    }
    // What the watch of the devices does, and the service after it.
    void tell( )
    {
        if( FakeCapture::get( ).devicesChanged ) FakeCapture::get( ).devicesChanged( );
        loop( );
    }
    void pull( const GWString& device )
    {
        FakeCapture::get( ).pull( device );
        FakeCapture::get( ).audioDevices.remove( device );
        FakeCapture::get( ).videoDevices.remove( device );
        tell( );
    }
    void plugMicrophone( )
    {
        FakeCapture::get( ).plug( u"microphone" );
        FakeCapture::get( ).audioDevices.push_back( u"microphone" );
        tell( );
    }
    int rest = 0;
};

TEST_F( GVideoCaptureDevices, ALostMicrophoneIsAnErrorAndTheCameraGoesOn )
{
    begin( );
    run( command( u"OPEN" ) );
    received( );
    FakeCapture::get( ).calls.clear( );
    pull( u"microphone" );
    EXPECT_EQ( get( u"Audio_Capture_Status" ), u"Error" );
    EXPECT_EQ( get( u"Audio_Capture_Online" ), u"false" );
    EXPECT_EQ( get( u"Video_Capture_Status" ), u"Online" );
    EXPECT_EQ( get( u"Video_Capture_Online" ), u"true" );
    EXPECT_EQ( get( u"Video_Capture_FSM_Status" ), u"Error" );
    EXPECT_EQ( get( u"Audio_Capture_Device" ), u"microphone" ); // The choice stands.
    EXPECT_EQ( get( u"Available_Audio_Capture_Devices" ), GConcat( u"microphone, line, ", NO_AUDIO ) );
    EXPECT_EQ( peersTold( ), 1 );
    EXPECT_TRUE( FakeCapture::get( ).calls.empty( ) ); // Nothing was closed.
    video( 5000000 );
    EXPECT_FALSE( received( ).empty( ) );
}

TEST_F( GVideoCaptureDevices, ItIsOpenedAgainByItselfWhenItIsBackAndTheCameraIsLeftAlone )
{
    begin( );
    run( command( u"OPEN" ) );
    received( );
    pull( u"microphone" );
    peersTold( );
    loop( 100 );
    EXPECT_EQ( FakeCapture::get( ).opened, 1 ); // What is not listed is not tried.
    EXPECT_EQ( rest, 5000 );
    plugMicrophone( );
    loop( 1 );
    EXPECT_EQ( FakeCapture::get( ).opened, 2 );
    EXPECT_EQ( FakeCapture::get( ).audioDevice, u"microphone" );
    EXPECT_EQ( FakeCapture::get( ).videoDevice, u"" );
    EXPECT_EQ( FakeCapture::get( ).closed, 0 );
    EXPECT_EQ( get( u"Audio_Capture_Status" ), u"Online" );
    EXPECT_EQ( get( u"Audio_Capture_Online" ), u"true" );
    EXPECT_EQ( get( u"Video_Capture_FSM_Status" ), u"Online" );
    EXPECT_EQ( peersTold( ), 1 );
    audio( 5000000 );
    video( 5000000 );
    EXPECT_FALSE( received( ).empty( ) );
    EXPECT_FALSE( received( ).empty( ) );
    // And once more: what it was opened with the second time is closed.
    pull( u"microphone" );
    plugMicrophone( );
    loop( 2 );
    EXPECT_EQ( FakeCapture::get( ).closed, 1 );
    EXPECT_EQ( FakeCapture::get( ).records.size( ), 2U );
    EXPECT_EQ( get( u"Audio_Capture_Status" ), u"Online" );
}

TEST_F( GVideoCaptureDevices, TriesAreFewAndTheirPausesGrow )
{
    begin( );
    FakeCapture::get( ).pull( u"camera" ); // Still listed.
    loop( );
    EXPECT_EQ( get( u"Video_Capture_Status" ), u"Error" );
    EXPECT_EQ( rest, 1001 );
    for( int i = 0; i < 600; ++i ) loop( 1 );
    EXPECT_EQ( FakeCapture::get( ).opened, 1 + 6 );
    EXPECT_EQ( FakeCapture::get( ).closed, 6 );
    EXPECT_EQ( peersTold( ), 1 );
    EXPECT_EQ( rest, 5000 );
}

TEST_F( GVideoCaptureDevices, ALostCameraLeavesItsPreviewAndComesBackWithOtherStamps )
{
    begin( );
    run( GHTTPHeaders( u"STARTVIDEOPREVIEW" ) );
    now += 2000000;
    video( 9000000 );
    EXPECT_EQ( instance->getRaw( u"Local_Video_Image" ), picture( 160, 120, 90 ) );
    FakeCapture::get( ).pull( u"camera" );
    loop( );
    loop( );
    EXPECT_NE( instance->getRaw( u"Local_Video_Image" ), picture( 160, 120, 90 ) );
    FakeCapture::get( ).plug( u"camera" );
    loop( 2 );
    EXPECT_EQ( FakeCapture::get( ).videoDevice, u"camera" );
    EXPECT_EQ( FakeCapture::get( ).audioDevice, u"" );
    now += 2000000;
    video( 100000 );
    EXPECT_EQ( instance->getRaw( u"Local_Video_Image" ), picture( 160, 120, 1 ) );
}

TEST_F( GVideoCaptureDevices, ALostMicrophoneShowsTheCrossAndNoLevel )
{
    begin( );
    const GString cross = instance->getRaw( u"Local_Audio_Image" );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 2000000;
    audio( 1 );
    EXPECT_NE( instance->getRaw( u"Local_Audio_Image" ), cross );
    EXPECT_GT( instance->calc( u"Audio_Capture_Level" ), 0 );
    pull( u"microphone" );
    EXPECT_EQ( instance->getRaw( u"Local_Audio_Image" ), cross );
    EXPECT_EQ( instance->calc( u"Audio_Capture_Level" ), 0 );
}

TEST_F( GVideoCaptureDevices, WhatDidNotWorkAtTheStartIsOpenedWhenItShowsUp )
{
    FakeCapture::get( ).audioDevices = { u"line" };
    FakeCapture::get( ).broken = { u"microphone" };
    begin( );
    EXPECT_EQ( get( u"Audio_Capture_Device" ), NO_AUDIO );
    plugMicrophone( );
    loop( 1 );
    EXPECT_EQ( get( u"Audio_Capture_Status" ), u"Online" );
    EXPECT_EQ( get( u"Audio_Capture_Device" ), u"microphone" );
    EXPECT_EQ( peersTold( ), 1 );
}

TEST_F( GVideoCaptureDevices, AnotherChoiceEndsTheWait )
{
    begin( );
    pull( u"microphone" );
    run( restart( u"line" ) );
    EXPECT_EQ( get( u"Audio_Capture_Status" ), u"Online" );
    plugMicrophone( );
    loop( 10 );
    EXPECT_EQ( FakeCapture::get( ).opened, 2 );
    EXPECT_EQ( FakeCapture::get( ).audioDevice, u"line" );
}

TEST_F( GVideoCaptureDevices, AStartThatFailsIsToldToThePeers )
{
    TestLog::expect( "WARNING Unable to open recorder, ignoring." );
    begin( );
    FakeCapture::get( ).canOpen = false;
    run( restart( ) );
    EXPECT_EQ( peersTold( ), 1 );
    EXPECT_EQ( get( u"Video_Capture_FSM_Status" ), u"Error" );
}

TEST_F( GVideoCaptureDevices, TheListsFollowWhatIsPluggedIn )
{
    begin( );
    FakeCapture::get( ).videoDevices.push_back( u"second camera" );
    tell( );
    EXPECT_EQ( get( u"Available_Video_Capture_Devices" ), GConcat( u"camera, second camera, ", NO_VIDEO ) );
    pull( u"second camera" );
    EXPECT_EQ( get( u"Available_Video_Capture_Devices" ), GConcat( u"camera, ", NO_VIDEO ) );
    EXPECT_EQ( peersTold( ), 0 );
}

TEST_F( GVideoCaptureDevices, AChangeWakesTheServiceThatRests )
{
    instance->set( u"Robust_Media", 1 );
    service->GThreadObject::start( u"GVideoCaptureService" );
    const auto becomes = [this]( const GWString& list )
    {
        // Sooner than a rest ends by itself.
        const auto deadline = std::chrono::steady_clock::now( ) + std::chrono::milliseconds( 4000 );
        while( get( u"Available_Video_Capture_Devices" ) != list )
        {
            if( std::chrono::steady_clock::now( ) > deadline ) return false;
            std::this_thread::yield( );
        }
        return true;
    };
    EXPECT_TRUE( becomes( GConcat( u"camera, ", NO_VIDEO ) ) );
    const auto deadline = std::chrono::steady_clock::now( ) + std::chrono::seconds( 20 );
    while( get( u"Video_Capture_Online" ) != u"true" && std::chrono::steady_clock::now( ) < deadline )
        std::this_thread::yield( );
    {
        const GObjectLock scope( *service );
        FakeCapture::get( ).videoDevices.push_back( u"second camera" );
    }
    FakeCapture::get( ).devicesChanged( );
    EXPECT_TRUE( becomes( GConcat( u"camera, second camera, ", NO_VIDEO ) ) );
    service->stop( true );
}

TEST_F( GVideoCaptureDevices, TheWatchBeginsAndEndsWithTheRemedy )
{
    begin( );
    EXPECT_TRUE( FakeCapture::get( ).devicesChanged );
    instance->set( u"Robust_Media", 0 );
    run( restart( ) );
    EXPECT_FALSE( FakeCapture::get( ).devicesChanged );
    instance->set( u"Robust_Media", 1 );
    run( restart( ) );
    EXPECT_TRUE( FakeCapture::get( ).devicesChanged );
    service->_bGThreadObject_safe_onShutdown( );
    started = false;
    EXPECT_FALSE( FakeCapture::get( ).devicesChanged );
}

TEST_F( GVideoCaptureDevices, ToTheLetterNobodyLooks )
{
    instance->set( u"Robust_Media", 0 );
    begin( );
    EXPECT_FALSE( FakeCapture::get( ).devicesChanged );
    pull( u"microphone" );
    loop( 10 );
    plugMicrophone( );
    loop( 10 );
    EXPECT_EQ( get( u"Audio_Capture_Status" ), u"Online" );
    EXPECT_EQ( FakeCapture::get( ).opened, 1 );
    EXPECT_EQ( peersTold( ), 0 );
}

TEST_F( GVideoCaptureDevices, ShutdownClosesEveryRecorder )
{
    begin( );
    run( command( u"OPEN" ) );
    pull( u"microphone" );
    plugMicrophone( );
    loop( 1 );
    EXPECT_EQ( FakeCapture::get( ).records.size( ), 2U );
    service->_bGThreadObject_safe_onShutdown( );
    started = false;
    EXPECT_TRUE( FakeCapture::get( ).records.empty( ) );
}
