// Microphone and camera with subscribers, and lists of the devices. The recorder's calls are for one thread at a time, but for
// subscribing and unsubscribing, which are for any. Frames come on streaming threads, one a medium, at any time between open and
// close. Stamps are microseconds of one clock for both media, and rise from frame to frame.
#pragma once

#include "base/GTypes.h"
#include "image/GImageFormat.h"

#include <functional>

struct GAVCaptureRecord;
using GAVCapture = GAVCaptureRecord*;

struct GAudioFormat
{
    int bytesPerSample = 2;
    int frequency = 22000; // Samples a second.
    int channels = 1;
};
// Listeners are called under a lock of their medium: they should be quick, since a slow one slows capture until frames are dropped,
// and must not come and go from within a call.
class IGCaptureVideoListener
{
public:
    virtual ~IGCaptureVideoListener( ) = default;
    // GIT_YUY2 or GIT_RGB24, top-down, without padding; the same format for the life of the recorder. `buffer` of `length` bytes is
    // valid during the call.
    virtual void onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length ) = 0;
};
class IGCaptureAudioListener
{
public:
    virtual ~IGCaptureAudioListener( ) = default;
    // Mono samples of the format that was asked for; every frame has the same length, whole codec frames of 160 samples: see
    // GAVCaptureSetLatency. `timestamp` is that of the first sample.
    virtual void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length ) = 0;
};

// Friendly names of the first ten devices of each medium, each one line of at most 128 characters. Empty lists when there are none,
// or no sound server answers.
void GAVCaptureGetDeviceList( GStringList& audioList, GStringList& videoList );
// Calls `changed` whenever devices may have come or gone (plugged in or pulled, a sound server that comes or goes, the file behind
// VELMORA_DEVICES=@file written anew) and when a medium of a recorder begins or ends to work. It comes on a thread of the watch's own,
// within a second or two, once for changes that come together, and may list, open and close, but not end or replace the watch. There
// is one watch in the process: a second call replaces the first, and an empty function ends it; the call waits for a `changed` that is
// running, and none comes afterwards.
void GAVCaptureWatchDevices( std::function<void( )> changed );
// How long the audio frames of recorders opened from now on are: the most whole codec frames of 160 samples within `milliseconds`,
// one at least, so that 15 gives 640 bytes at 22000 samples a second; and sources are asked for samples in steps that small. 0, as at
// the start, is 50 ms raised to whole codec frames. Any thread.
void GAVCaptureSetLatency( int milliseconds );
// Opens by name, at the offer of the device that is nearest to the wish. `bytesPerSample` must be 2; `width` and `height` in pixels.
// An empty name leaves that medium out. A device that is not found or does not start leaves its medium out and the other goes on: see
// GAVCaptureIsAudioWorking. A name that is a path of a media file plays that file in a loop; one path for both media is one film.
// Waits until the media have shown themselves, five seconds at most. Null when the media library lacks a part; else the caller
// closes it.
GAVCapture GAVCaptureOpen( const GWString& audioDevice, const GWString& videoDevice, int bytesPerSample, int frequency,
                           int fps, int width, int height );
// Stops and waits for the streaming threads; a device that does not stop within three seconds is left behind with a WARNING, and ends
// when it can. All listeners must have unsubscribed, or it aborts.
void GAVCaptureClose( GAVCapture capture );
// The listener stays the caller's and must live until it has unsubscribed. A null recorder aborts, here and below.
void GAVCaptureSubscribeAudio( GAVCapture capture, IGCaptureAudioListener* listener );
void GAVCaptureSubscribeVideo( GAVCapture capture, IGCaptureVideoListener* listener );
// The listener must be there, or it aborts. Waits for a call that is running; none comes afterwards.
void GAVCaptureUnsubscribeAudio( GAVCapture capture, IGCaptureAudioListener* listener );
void GAVCaptureUnsubscribeVideo( GAVCapture capture, IGCaptureVideoListener* listener );
// True while the medium delivers: its device was opened and has not gone since. A device that goes is logged once, as "WARNING Capture
// device failed: ", and can be opened by another recorder when it is back.
bool GAVCaptureIsAudioWorking( GAVCapture capture );
bool GAVCaptureIsVideoWorking( GAVCapture capture );
