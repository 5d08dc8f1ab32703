// The listener that makes the preview pictures of the own camera and microphone on the blackboard, at most one a second each (with
// Robust_Media the first one replaces the static before it at once), and tells how loud the microphone is: Audio_Capture_Level,
// 0 to 100, at most 15 times a second while the microphone is previewed or talked with, else 0. Frames come on capture threads; the
// object's lock serialises them.
#pragma once

#include "platform/GAVCapture.h"
#include "runtime/GInstance.h"

class GLocalCapture : public GThreadSafeObject, public IGCaptureVideoListener, public IGCaptureAudioListener
{
public:
    explicit GLocalCapture( GInstance* instance );

    void onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length ) override;
    void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length ) override;
    // With `reset`: forgets everything and shows the default profile picture. Paints static while no real picture has come.
    void update( bool reset );
    // Their part of a reset, for a device that is lost.
    void forgetVideo( );
    void forgetAudio( );
    // A preview is on for which no real picture has come: update has to be called again and again.
    bool isWaitingForPicture( );

    bool enableVideoPreview = false;
    bool enableAudioPreview = false;

private:
    void _measure( const GAudioFormat& format, const char* buffer, int length );
    void _writeLevel( int level );
    bool _isPreviewDue( bool enabled, uint64_t last ) const;
    void _drawLevel( const char* buffer, int samples );
    void _writeStatic( );

    GInstance* _instance;
    uint64_t _myLastFrameOutputTimestamp = UINT64_MAX;
    uint64_t _lastVideoPreview = 0;
    uint64_t _lastAudioPreview = 0;
    uint64_t _lastLevel = 0;
    int _loudest = 0; // Since the last level was written.
    int _level = 0;   // As it was written.
    GImageFormat _imageFormat;
    GAudioFormat _audioFormat = { 0, 0, 0 };
    GString _rgb;
    GString _audioImage;
};
