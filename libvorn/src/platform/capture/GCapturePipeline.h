// One pipeline of a recorder: a device of one medium, or a media file with the media that it has, played again from its begin
// whenever it ends. A device that fails or ends is told once in the log and let go; its taps are out of the graph from then on.
// Built, run and ended by one thread at a time; a thread of its own hears the library's messages.
#pragma once

#include "platform/GThread.h"
#include "platform/capture/GCaptureEnds.h"

#include <atomic>
#include <chrono>
#include <condition_variable>

class GCapturePipeline
{
public:
    // The taps must outlive the pipeline.
    GCapturePipeline( const GCaptureWish& wish, _GVideoTapFilter& videoTap, _GAudioTapFilter& audioTap );
    // Stops, and waits for every thread.
    ~GCapturePipeline( );
    GCapturePipeline( const GCapturePipeline& ) = delete;
    GCapturePipeline& operator=( const GCapturePipeline& ) = delete;

    // One of these once, before run. They throw std::runtime_error when the library lacks a part. The devices take ownership of
    // their source, a floating element with the pad "src".
    void buildFile( const GWString& path, bool video, bool audio );
    void buildVideo( GstElement* source );
    void buildAudio( GstElement* source );
    // Does not wait for the device. A start that fails counts as the loss of the device.
    void run( );
    // Until each wanted medium has joined the graph or is known to be missing.
    void waitUntilSettled( std::chrono::steady_clock::time_point deadline );

private:
    static int _listenProc( void* self );
    static void _onDecodedPad( GstElement* decoder, GstPad* pad, gpointer self );
    static void _onNoMorePads( GstElement* decoder, gpointer self );
    static void _onMoved( GstElement* source, GParamSpec* property, gpointer self );
    void _checkPresence( );
    void _addDecoder( GstElement* source );
    bool _addBranch( GstPad* pad, GstElement* branch );
    void _addDecodedPad( GstPad* pad );
    void _link( GstElement* source, GstElement* branch, GstCaps* caps );
    void _useClockTime( );
    void _listen( );
    bool _onEnd( );
    bool _hasMedium( );
    void _stopAndLose( GWStringView reason );
    void _lose( GWStringView reason );
    bool _isSettled( ) const;
    void _notify( );

    const GCaptureWish _wish;
    _GVideoTapFilter& _videoTap;
    _GAudioTapFilter& _audioTap;
    GCaptureVideoEnd _videoEnd;
    GCaptureAudioEnd _audioEnd;
    GstElement* _pipeline;
    GThreadID _thread = 0;
    bool _isFile = false;
    bool _wantsVideo = false;
    bool _wantsAudio = false;
    std::chrono::steady_clock::time_point _lastRewind;

    std::mutex _padMutex; // Pads that come up against the end of the pipeline.
    bool _closing = false;

    std::mutex _mutex; // Guards what waiting looks at, besides the taps.
    std::condition_variable _changed;
    bool _hasVideo = false; // A branch is linked.
    bool _hasAudio = false;
    bool _allPads = false; // No further stream will show itself.
    bool _lost = false;
};
