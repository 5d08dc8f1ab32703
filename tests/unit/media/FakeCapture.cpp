#include "FakeCapture.h"

struct GAVCaptureRecord
{
};

namespace
{
GAVCaptureRecord record_;
}

FakeCapture& FakeCapture::get( )
{
    static FakeCapture capture;
    return capture;
}

void GAVCaptureGetDeviceList( GStringList& audioList, GStringList& videoList )
{
    audioList = FakeCapture::get( ).audioDevices;
    videoList = FakeCapture::get( ).videoDevices;
}
GAVCapture GAVCaptureOpen( const GWString& audioDevice, const GWString& videoDevice, int bytesPerSample, int frequency,
                           int fps, int width, int )
{
    FakeCapture& capture = FakeCapture::get( );
    if( !capture.canOpen ) return nullptr;
    ++capture.opened;
    capture.audioDevice = audioDevice;
    capture.videoDevice = videoDevice;
    capture.bytesPerSample = bytesPerSample;
    capture.frequency = frequency;
    capture.fps = fps;
    capture.width = width;
    return &record_;
}
void GAVCaptureClose( GAVCapture )
{
    ++FakeCapture::get( ).closed;
}
void GAVCaptureSubscribeAudio( GAVCapture, IGCaptureAudioListener* listener )
{
    FakeCapture::get( ).audioListeners.insert( listener );
}
void GAVCaptureSubscribeVideo( GAVCapture, IGCaptureVideoListener* listener )
{
    FakeCapture::get( ).videoListeners.insert( listener );
}
void GAVCaptureUnsubscribeAudio( GAVCapture, IGCaptureAudioListener* listener )
{
    FakeCapture::get( ).audioListeners.erase( listener );
}
void GAVCaptureUnsubscribeVideo( GAVCapture, IGCaptureVideoListener* listener )
{
    FakeCapture::get( ).videoListeners.erase( listener );
}
bool GAVCaptureIsAudioWorking( GAVCapture )
{
    return FakeCapture::get( ).audioWorks && !FakeCapture::get( ).audioDevice.empty( );
}
bool GAVCaptureIsVideoWorking( GAVCapture )
{
    return FakeCapture::get( ).videoWorks && !FakeCapture::get( ).videoDevice.empty( );
}
