// One outgoing stream: encodes the recorder's frames for one device and sends them along its route. It runs on the recorder's
// capture threads, one a medium, so each medium has its own mutex; the object's lock guards reset alone.
#pragma once

#include "client/media/GSpeexEncoder.h"
#include "client/media/GTheoraEncoder.h"
#include "client/transport/GMegaPort.h"
#include "platform/GAVCapture.h"
#include "runtime/GInstance.h"

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
    uint32_t getSSRC( ) const { return _ssrc; }

private:
    void _resetAudio( );
    void _resetVideo( );
    void _onVideoFormatSet( const GImageFormat& format );
    void _onAudioFormatSet( const GAudioFormat& format );
    void _sendReport( );
    void _sendFrame( int payloadType, uint16_t sequence, uint32_t timestamp, uint32_t formatWord,
                     const GString& frame );
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
    uint64_t _encoderStart = 0;
    GTheoraEncoder* _theoraEncoder = nullptr;
    GSpeexEncoder* _speexEncoder = nullptr;
    GString _videoPacket;
    GString _audioPacket;
    GString _videoFrame;
    GString _audioFrame;
    GString _audioPadded;
    GImageFormat _imageFormat;
    GAudioFormat _audioFormat;
    int64_t _capturedAudioBytes = 0;
    uint16_t _audioSequence = 0;
    uint16_t _videoSequence = 0;
};
