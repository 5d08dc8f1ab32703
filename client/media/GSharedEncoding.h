// What Robust_Media puts between the recorder and the streams: peers that want the same picture share one encoding, and all that are
// talked to share one of the voice, so that a further peer costs its packets alone. It listens to the recorder; frames come on its
// capture threads, one a medium, and each medium has a lock of its own. Streams come and go on the service's thread, which is the only
// one that the capture threads could ever wait for, and which holds a lock for a change of a list and no longer.
#pragma once

#include "client/media/GSharedAudioEncoder.h"
#include "client/media/GSharedVideoEncoder.h"

#include <map>

class GSharedEncoding : public IGCaptureVideoListener, public IGCaptureAudioListener
{
public:
    GSharedEncoding( GInstance* instance, GMegaPort* port );
    ~GSharedEncoding( ) override;
    GSharedEncoding( const GSharedEncoding& ) = delete;
    GSharedEncoding& operator=( const GSharedEncoding& ) = delete;

    // Takes a stream up with what it wants now. It must leave before that changes, and before it ends.
    void add( GVideoCaptureStream* stream );
    // Waits for a frame that is on its way; none is sent for the stream afterwards. Nothing happens when it is no member.
    void remove( const GVideoCaptureStream* stream );
    void onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length ) override;
    void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length ) override;

private:
    GInstance* _instance;
    GMegaPort* _port;
    GMutex _videoMutex;
    GMutex _audioMutex;
    std::map<int, GSharedVideoEncoder> _videoEncoders; // By frames a second.
    uint64_t _lastKeyPicture = 0;                      // Of any of them.
    GSharedAudioEncoder _audioEncoder;
};
