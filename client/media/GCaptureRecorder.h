// The recorder that the service owns: one handle for camera and microphone, and one more for a medium whose device was lost and has been
// opened again, so that the other medium goes on undisturbed. One thread; the listeners are called on capture threads.
#pragma once

#include "platform/GAVCapture.h"

enum class GCaptureMedium
{
    audio,
    video
};

class GCaptureRecorder
{
public:
    GCaptureRecorder( ) = default;
    ~GCaptureRecorder( );
    GCaptureRecorder( const GCaptureRecorder& ) = delete;
    GCaptureRecorder& operator=( const GCaptureRecorder& ) = delete;

    // Opens the devices of those names, empty for none, for pictures near a square of `edge` pixels. It must be closed. False when nothing
    // can be opened at all; a device that does not work leaves its medium out.
    bool open( const GWString& audioName, const GWString& videoName, int edge );
    bool isOpen( ) const { return _handle != nullptr; }
    bool isWorking( GCaptureMedium medium ) const;
    // Opens the device of one medium again; its listeners follow. False when it does not work, and nothing has changed.
    bool reopen( GCaptureMedium medium, const GWString& name, int edge );
    // All listeners must have unsubscribed.
    void close( );

    // The recorder must be open. Unsubscribing waits for a call that is running.
    void subscribeAudio( IGCaptureAudioListener* listener );
    void subscribeVideo( IGCaptureVideoListener* listener );
    void unsubscribeAudio( IGCaptureAudioListener* listener );
    void unsubscribeVideo( IGCaptureVideoListener* listener );

private:
    void _moveAudio( GAVCapture handle );
    void _moveVideo( GAVCapture handle );
    void _closeOwn( GAVCapture handle );

    GAVCapture _handle = nullptr;
    GAVCapture _audio = nullptr; // Each is _handle or a handle of its own.
    GAVCapture _video = nullptr;
    std::vector<IGCaptureAudioListener*> _audioListeners;
    std::vector<IGCaptureVideoListener*> _videoListeners;
};
