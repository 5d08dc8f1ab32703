// The ends of the pipelines: what comes out of the library goes to the taps. Streaming threads call in; build and release on the
// thread that owns the pipeline, which must stand still on release.
#pragma once

#include "platform/capture/GCaptureLibrary.h"
#include "platform/common/GAudioTapFilter.h"
#include "platform/common/GVideoTapFilter.h"

#include <atomic>
#include <functional>

// What the listeners of a recorder want of its devices.
struct GCaptureWish
{
    int bytesPerSample = 2;
    int frequency = 22000;
    int fps = 7;
    int width = 48;
    int height = 48;
    int latency = 50;      // Milliseconds of an audio frame, as logged.
    int frameBytes = 2240; // Of an audio frame, whole codec frames.
};

class GCaptureVideoEnd
{
public:
    // `changed` is called on the streaming thread when the tap joined the graph or refused to.
    GCaptureVideoEnd( _GVideoTapFilter& tap, std::function<void( )> changed );
    // The tail of a pipeline, from conversion to the tap, floating. Surplus frames are dropped, none are made up. `subtype`:
    // "YUY2" or "RGB24". `isShapeless`: the stream's pixels have no shape that makes sense, and count as square. Throws when the
    // library lacks a part.
    GstElement* build( const GCaptureWish& wish, std::string_view subtype, bool isFile, bool isShapeless = false );
    // Whether a sample has come since the last call. Any thread.
    bool takeFresh( ) { return _fresh.exchange( false ); }

private:
    static GstFlowReturn _onSample( GstAppSink* sink, gpointer self );
    static GstPadProbeReturn _onEvent( GstPad* pad, GstPadProbeInfo* info, gpointer self );
    void _connect( const GstCaps* caps );
    void _transform( GstAppSink* sink, GstSample* sample );

    _GVideoTapFilter& _tap;
    std::function<void( )> _changed;
    std::atomic<bool> _fresh{ false };
    bool _isNew = true; // A format or an orientation has come since the last sample.
    bool _bottomUp = false;
    GstVideoInfo _info;
};

class GCaptureAudioEnd
{
public:
    GCaptureAudioEnd( _GAudioTapFilter& tap, std::function<void( )> changed );
    // As above, ending in mono 16-bit samples of the wanted frequency.
    GstElement* build( const GCaptureWish& wish, bool isFile );
    bool takeFresh( ) { return _fresh.exchange( false ); }

private:
    static GstFlowReturn _onSample( GstAppSink* sink, gpointer self );
    static GstPadProbeReturn _onEvent( GstPad* pad, GstPadProbeInfo* info, gpointer self );

    _GAudioTapFilter& _tap;
    std::function<void( )> _changed;
    std::atomic<bool> _fresh{ false };
};
