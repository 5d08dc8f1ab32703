// One outgoing stream: the recorder's frames for one device, sent along its route with an SSRC and sequences of its own. To the letter
// it listens to the recorder and has encoders of its own; with Robust_Media it is a member of GSharedEncoding, which hands it what was
// encoded once for all. Frames come on the recorder's capture threads, one a medium, so each medium has its own mutex; the object's lock
// guards reset alone.
#pragma once

#include "client/media/GAudioEncoding.h"
#include "client/media/GVideoEncoding.h"
#include "client/transport/GMegaPort.h"

class GVideoCaptureStream : public GThreadSafeObject, public IGCaptureVideoListener, public IGCaptureAudioListener
{
public:
    // `headers`: an OPEN command with "Send-To" and "Send-From". Sends the one sender report that binds the SSRC to our name.
    GVideoCaptureStream( GInstance* instance, GMegaPort* port, const GHTTPHeaders& headers );
    ~GVideoCaptureStream( ) override;

    // Takes "Video-FPS", "Audio-Enable" and "Video-Enable".
    void setFormat( const GHTTPHeaders& headers );
    void reset( );
    void onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length ) override;
    void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length ) override;

    // What it wants of the shared encoding; for the thread that calls setFormat. 0 frames a second: no pictures.
    int getWantedFPS( ) const { return _videoEnabled ? _fps : 0; }
    bool isAudioWanted( ) const { return _audioEnabled; }
    const GWString& getSendFrom( ) const { return _sendFromHost; }
    uint32_t getSSRC( ) const { return _ssrc; }
    // The datagrams that bring one encoded frame to its device, which count its sequence up. What they point to is the stream's, until
    // the next call for that medium. `timestamp` is that of the capture, in microseconds. On one thread a medium.
    GNetOutgoing composeVideo( uint64_t timestamp, int edge, const GString& frame );
    GNetOutgoing composeAudio( uint64_t timestamp, int frequency, int samplesLength, const GString& frame );

private:
    void _resetAudio( );
    void _resetVideo( );
    void _sendReport( );
    GNetOutgoing _compose( GString& packet, int payloadType, uint16_t sequence, uint32_t timestamp, uint32_t formatWord,
                           const GString& frame );
    void _send( const GNetOutgoing& datagram );
    bool _isRobust( ) const { return _instance->test( u"Robust_Media" ); }

    GInstance* _instance;
    GMegaPort* _port;
    GMutex _audioMutex;
    GMutex _videoMutex;
    GWString _streamName;
    uint32_t _ssrc;
    GWString _sendToHost;
    GWString _sendFromHost;
    int _fps = 0;
    bool _audioEnabled = false;
    bool _videoEnabled = false;
    uint64_t _lastVideoTime = 0;
    GVideoEncoding _video;
    GAudioEncoding _audio;
    GString _videoPacket;
    GString _audioPacket;
    int64_t _capturedAudioBytes = 0;
    uint16_t _audioSequence = 0;
    uint16_t _videoSequence = 0;
};
