// The end of a video pipeline: tests what comes, turns bottom-up pictures, gives rising stamps and hands the frames to the
// listeners. One streaming thread calls completeConnect and Transform; the rest is for any thread.
#pragma once

#include "platform/GAVCapture.h"
#include "platform/common/GBitmapInfoHeader.h"
#include "platform/common/GCaptureListeners.h"
#include "platform/common/GCaptureSample.h"

#include <atomic>

class _GVideoTapFilter
{
public:
    // YUY2 of 16 bits and RGB24 of 24 are taken; anything else is refused, and so is a size that no picture has.
    static bool checkInputType( const GBitmapInfoHeader& header );
    // The stream tells its format. The first one stays: another is refused, and samples are dropped until the first is back.
    bool completeConnect( const GBitmapInfoHeader& header );
    // The stream ended or failed; samples are dropped from now on.
    void disconnect( ) { _connected = false; }
    // Stands in the graph and gets frames.
    bool isConnected( ) const { return _connected; }
    void Transform( const GCaptureSample& sample );

    GCaptureListeners<IGCaptureVideoListener> listeners;

private:
    bool _setFormat( const GBitmapInfoHeader& testBIH );
    bool _checkLength( const GCaptureSample& sample );
    const char* _straighten( const GCaptureSample& sample );

    GBitmapInfoHeader _bitmapInfoHeader;
    GImageFormat _format; // Of type 0 until the stream has told its own.
    bool _flip = false;
    std::atomic<bool> _connected{ false };
    bool _reportedFormat = false;
    bool _reportedPointer = false;
    bool _reportedLength = false;
    uint64_t _thread = 0; // The one entered for the performance figures.
    GCaptureStamps _stamps;
    GString _scratch; // The picture without padding or the right way up.
};
