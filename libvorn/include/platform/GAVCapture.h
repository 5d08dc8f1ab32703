// Microphone and camera with subscribers, and lists of the devices. Frames come on streaming threads, one a medium.
// A listener that has unsubscribed gets no further calls. Stamps are microseconds and always rise.
#pragma once

#include "base/GTypes.h"
#include "image/GImageFormat.h"

struct GAVCaptureRecord;
using GAVCapture = GAVCaptureRecord*;

struct GAudioFormat
{
    int bytesPerSample = 2;
    int frequency = 22000;
    int channels = 1;
};
class IGCaptureVideoListener
{
public:
    virtual ~IGCaptureVideoListener( ) = default;
    // GIT_YUY2 or GIT_RGB24, top-down, tightly packed; the buffer is valid during the call.
    virtual void onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length ) = 0;
};
class IGCaptureAudioListener
{
public:
    virtual ~IGCaptureAudioListener( ) = default;
    virtual void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length ) = 0;
};

void GAVCaptureGetDeviceList( GStringList& audioList, GStringList& videoList );
// An empty name leaves that medium out; a device that is not found leaves its path out and the other goes on. Null when nothing
// can be built. A name that is a path of a media file plays that file in a loop as the device of both media.
GAVCapture GAVCaptureOpen( const GWString& audioDevice, const GWString& videoDevice, int bytesPerSample, int frequency,
                           int fps, int width, int height );
// Both listener lists must be empty.
void GAVCaptureClose( GAVCapture capture );
void GAVCaptureSubscribeAudio( GAVCapture capture, IGCaptureAudioListener* listener );
void GAVCaptureSubscribeVideo( GAVCapture capture, IGCaptureVideoListener* listener );
void GAVCaptureUnsubscribeAudio( GAVCapture capture, IGCaptureAudioListener* listener );
void GAVCaptureUnsubscribeVideo( GAVCapture capture, IGCaptureVideoListener* listener );
bool GAVCaptureIsAudioWorking( GAVCapture capture );
bool GAVCaptureIsVideoWorking( GAVCapture capture );
