// A capture service on a recorder of the test's, for the tests of the service and of what it drives.
#pragma once

#include "client/media/GVideoCaptureService.h"

#include "base/GBytes.h"

#include "MediaFixture.h"

inline constexpr char16_t NO_AUDIO[] = u"(none - disable audio capture)";
inline constexpr char16_t NO_VIDEO[] = u"(none - disable video capture)";

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
        FakeCapture::get( ).onCall = nullptr;
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
        for( IGCaptureVideoListener* listener : FakeCapture::get( ).videoListeners( ) )
            listener->onVideoFrame( timestamp, { GIT_RGB24, width, height }, pixels.data( ),
                                    static_cast<int>( pixels.size( ) ) );
    }
    void audio( uint64_t timestamp, int bytes = 2240, int frequency = 22000 )
    {
        const GString samples = tone( bytes / 2 );
        for( IGCaptureAudioListener* listener : FakeCapture::get( ).audioListeners( ) )
            listener->onAudioFrame( timestamp, { 2, frequency, 1 }, samples.data( ), bytes );
    }
    // Skips the sender report that opens a stream.
    void openStream( )
    {
        start( );
        run( command( u"OPEN" ) );
        ASSERT_TRUE( GRTPIsRTCPSR( received( ).data( ), 59 ) );
    }
    // A START with the devices that are there.
    static GHTTPHeaders restart( const GWString& audioDevice = u"microphone", const GWString& videoDevice = u"camera" )
    {
        GHTTPHeaders again( u"START" );
        again.set( u"Audio_Capture_Device", audioDevice );
        again.set( u"Video_Capture_Device", videoDevice );
        return again;
    }
    static uint16_t sequenceOf( const GString& packet ) { return GReadU16( packet.data( ) + 2 ); }

    std::unique_ptr<GVideoCaptureService> service;
    bool started = false;
};
