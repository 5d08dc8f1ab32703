#include "FakeCapture.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace
{
bool works( const GWString& device )
{
    return !device.empty( ) && !FakeCapture::get( ).broken.contains( device );
}

template <typename Listener>
void removeFrom( std::vector<Listener*>& listeners, Listener* listener )
{
    EXPECT_EQ( std::erase( listeners, listener ), 1U ) << "who unsubscribes was never there";
}
} // namespace

FakeCapture& FakeCapture::get( )
{
    static FakeCapture capture;
    return capture;
}

void FakeCapture::reset( )
{
    *this = FakeCapture( );
}

void FakeCapture::note( const GString& call )
{
    calls.push_back( call );
    if( onCall ) onCall( call );
}

void FakeCapture::pull( const GWString& device )
{
    broken.insert( device );
    for( const auto& record : records )
    {
        if( record->audioDevice == device ) record->audioWorks = false;
        if( record->videoDevice == device ) record->videoWorks = false;
    }
}

std::vector<IGCaptureAudioListener*> FakeCapture::audioListeners( ) const
{
    std::vector<IGCaptureAudioListener*> all;
    for( const auto& record : records )
        all.insert( all.end( ), record->audioListeners.begin( ), record->audioListeners.end( ) );
    return all;
}

std::vector<IGCaptureVideoListener*> FakeCapture::videoListeners( ) const
{
    std::vector<IGCaptureVideoListener*> all;
    for( const auto& record : records )
        all.insert( all.end( ), record->videoListeners.begin( ), record->videoListeners.end( ) );
    return all;
}

void GAVCaptureGetDeviceList( GStringList& audioList, GStringList& videoList )
{
    audioList = FakeCapture::get( ).audioDevices;
    videoList = FakeCapture::get( ).videoDevices;
}
void GAVCaptureWatchDevices( std::function<void( )> changed )
{
    FakeCapture::get( ).devicesChanged = std::move( changed );
}
void GAVCaptureSetLatency( int milliseconds )
{
    FakeCapture::get( ).latency = milliseconds;
}
GAVCapture GAVCaptureOpen( const GWString& audioDevice, const GWString& videoDevice, int bytesPerSample, int frequency,
                           int fps, int width, int height )
{
    FakeCapture& capture = FakeCapture::get( );
    capture.note( "open" );
    if( !capture.canOpen ) return nullptr;
    ++capture.opened;
    capture.audioDevice = audioDevice;
    capture.videoDevice = videoDevice;
    capture.bytesPerSample = bytesPerSample;
    capture.frequency = frequency;
    capture.fps = fps;
    capture.width = width;
    capture.height = height;
    auto record = std::make_unique<GAVCaptureRecord>( );
    record->audioDevice = audioDevice;
    record->videoDevice = videoDevice;
    record->audioWorks = works( audioDevice );
    record->videoWorks = works( videoDevice );
    capture.records.push_back( std::move( record ) );
    return capture.records.back( ).get( );
}
void GAVCaptureClose( GAVCapture handle )
{
    FakeCapture& capture = FakeCapture::get( );
    ++capture.closed;
    capture.note( "close" );
    EXPECT_TRUE( handle->audioListeners.empty( ) && handle->videoListeners.empty( ) );
    std::erase_if( capture.records, [handle]( const auto& record ) { return record.get( ) == handle; } );
}
void GAVCaptureSubscribeAudio( GAVCapture capture, IGCaptureAudioListener* listener )
{
    FakeCapture::get( ).note( "+audio" );
    capture->audioListeners.push_back( listener );
}
void GAVCaptureSubscribeVideo( GAVCapture capture, IGCaptureVideoListener* listener )
{
    FakeCapture::get( ).note( "+video" );
    capture->videoListeners.push_back( listener );
}
void GAVCaptureUnsubscribeAudio( GAVCapture capture, IGCaptureAudioListener* listener )
{
    FakeCapture::get( ).note( "-audio" );
    removeFrom( capture->audioListeners, listener );
}
void GAVCaptureUnsubscribeVideo( GAVCapture capture, IGCaptureVideoListener* listener )
{
    FakeCapture::get( ).note( "-video" );
    removeFrom( capture->videoListeners, listener );
}
bool GAVCaptureIsAudioWorking( GAVCapture capture )
{
    return capture->audioWorks;
}
bool GAVCaptureIsVideoWorking( GAVCapture capture )
{
    return capture->videoWorks;
}
