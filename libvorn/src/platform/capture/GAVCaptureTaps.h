// The ends of the capture pipelines: each takes the samples of one medium, gives them rising stamps and hands them to its listeners.
// Frames come on the pipeline's streaming thread; the list's mutex is held during the calls, so that a listener that has
// unsubscribed gets no further ones.
#pragma once

#include "platform/GAVCapture.h"
#include "platform/capture/GCaptureLibrary.h"

#include <list>
#include <mutex>

// Makes stamps that never fall: when the source begins again, the last increment goes on from the last stamp.
class GCaptureStamps
{
public:
    uint64_t next( uint64_t time );

private:
    uint64_t _last = 0;
    uint64_t _increment = 1;
    int64_t _offset = 0;
};

class _GVideoTapFilter
{
public:
    void attach( GstAppSink* sink );
    void subscribe( IGCaptureVideoListener* listener );
    void unsubscribe( IGCaptureVideoListener* listener );
    bool isFree( );

private:
    static GstFlowReturn _onSample( GstAppSink* sink, gpointer self );
    void _transform( GstSample* sample, uint64_t time );

    std::mutex _mutex;
    std::list<IGCaptureVideoListener*> _listenerList;
    GCaptureStamps _stamps;
    GString _tight; // Rows without padding, when the source has some.
    bool _registered = false;
    bool _reported = false; // A sample had no stamp.
    bool _failed = false;   // A sample could not be read.
};

class _GAudioTapFilter
{
public:
    // Frames of exactly `chunkBytes`.
    void configure( const GAudioFormat& format, int chunkBytes );
    void attach( GstAppSink* sink );
    void subscribe( IGCaptureAudioListener* listener );
    void unsubscribe( IGCaptureAudioListener* listener );
    bool isFree( );

private:
    static GstFlowReturn _onSample( GstAppSink* sink, gpointer self );
    void _transform( GstBuffer* buffer, uint64_t time );
    uint64_t _duration( size_t bytes ) const;

    std::mutex _mutex;
    std::list<IGCaptureAudioListener*> _listenerList;
    GAudioFormat _format;
    size_t _chunkBytes = 0;
    GCaptureStamps _stamps;
    GString _pending; // Less than a chunk between two samples.
    bool _registered = false;
    bool _reported = false;
};
