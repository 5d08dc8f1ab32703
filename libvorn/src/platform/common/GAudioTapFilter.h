// The end of an audio pipeline: tests what comes, cuts it into frames of one length, gives rising stamps and hands the frames to
// the listeners. One streaming thread calls completeConnect and Transform; the rest is for any thread.
#pragma once

#include "platform/GAVCapture.h"
#include "platform/common/GCaptureListeners.h"
#include "platform/common/GCaptureSample.h"

#include <atomic>

class _GAudioTapFilter
{
public:
    // Before the pipeline runs: the format that is taken, and the bytes of a frame.
    void configure( const GAudioFormat& format, int frameBytes );
    bool checkInputType( const GAudioFormat& format ) const;
    // The stream tells its format, which must be the configured one: what stands before the tap converts to it.
    void completeConnect( const GAudioFormat& format );
    // The stream ended or failed; samples are dropped from now on.
    void disconnect( ) { _connected = false; }
    // Stands in the graph and gets samples.
    bool isConnected( ) const { return _connected; }
    void Transform( const GCaptureSample& sample );

    GCaptureListeners<IGCaptureAudioListener> listeners;

private:
    uint64_t _duration( size_t bytes ) const;

    GAudioFormat _format;
    size_t _frameBytes = 0;
    std::atomic<bool> _connected{ false };
    bool _reported = false;
    uint64_t _thread = 0; // The one entered for the performance figures.
    GCaptureStamps _stamps;
    GString _pending; // Less than a frame between two samples.
};
