// One encoding of the camera for all streams that want the same picture at the same rate: each frame is encoded once and sent in each
// stream's own packet. A stream that joins gets its first picture when one stands by itself, which the encoder then makes at once, but at
// most each half a second, however many join. One thread at a time: its owner's lock.
#pragma once

#include "client/media/GVideoCaptureStream.h"

class GSharedVideoEncoder
{
public:
    GSharedVideoEncoder( GInstance* instance, GMegaPort* port, int fps );

    // The stream must leave before it ends.
    void add( GVideoCaptureStream* stream );
    // False when it is no member.
    bool remove( const GVideoCaptureStream* stream );
    bool empty( ) const { return _viewers.empty( ); }
    // `mayRefresh`: now is a good moment for the picture that stands by itself, which is due each eight seconds. True when one left.
    bool onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length,
                       bool mayRefresh );

private:
    struct Viewer
    {
        GVideoCaptureStream* stream;
        bool waits; // For a picture that stands by itself.
    };
    bool _isStartDue( uint64_t timestamp, bool mayRefresh ) const;
    void _start( uint64_t timestamp, const GImageFormat& format );
    void _send( uint64_t timestamp, const GString& frame );

    GMegaPort* _port;
    const int _fps;
    GVideoEncoding _encoding;
    std::vector<Viewer> _viewers; // Those of one sending host side by side.
    size_t _waiting = 0;
    uint64_t _lastPicture = 0;
    uint64_t _lastStart = 0;
    std::vector<GNetOutgoing> _datagrams;
};
