// One encoding of the microphone for all streams that are talked to: each buffer is encoded once and sent in each stream's own packets. A
// stream may join in the middle of a spurt. One thread at a time: its owner's lock.
#pragma once

#include "client/media/GVideoCaptureStream.h"

class GSharedAudioEncoder
{
public:
    explicit GSharedAudioEncoder( GMegaPort* port ) : _port( port ) {}

    // The stream must leave before it ends.
    void add( GVideoCaptureStream* stream );
    // The last one takes the encoder with it: the next spurt begins with a new one. Nothing happens when it is no member.
    void remove( const GVideoCaptureStream* stream );
    void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length );

private:
    GMegaPort* _port;
    GAudioEncoding _encoding;
    std::vector<GVideoCaptureStream*> _listeners; // Those of one sending host side by side.
    std::vector<GNetOutgoing> _datagrams;
};
