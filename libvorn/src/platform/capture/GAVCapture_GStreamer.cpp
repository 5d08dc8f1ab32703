// The recorder: a pipeline for each medium, so that the loss of one does not stop the other, both on the monotonic clock.
#include "platform/GAVCapture.h"

#include "platform/capture/GAVCaptureDevices.h"
#include "platform/capture/GCapturePipeline.h"
#include "platform/common/GAVCaptureChoice.h"

#include <atomic>
#include <memory>
#include <stdexcept>

namespace
{
constexpr std::chrono::seconds START_TIME( 5 );
constexpr std::chrono::seconds END_TIME( 3 );
constexpr int LATENCY = 50; // Milliseconds, where nobody asks for another.
constexpr int MICROSECONDS = 1000;

std::atomic<int> latency_ = 0; // As it was set; 0 for LATENCY.
} // namespace

struct GAVCaptureRecord
{
    // The taps outlive the pipelines that feed them.
    _GVideoTapFilter videoTapFilter;
    _GAudioTapFilter audioTapFilter;
    std::list<std::unique_ptr<GCapturePipeline>> pipelines;
};

namespace
{
GCapturePipeline& addPipeline( GAVCaptureRecord& record, const GCaptureWish& wish )
{
    record.pipelines.push_back(
        std::make_unique<GCapturePipeline>( wish, record.videoTapFilter, record.audioTapFilter ) );
    return *record.pipelines.back( );
}

void buildVideo( GAVCaptureRecord& record, const GCaptureWish& wish, const GWString& name )
{
    GLOG( u"Enumerating video capture devices and creating '", name, u"'" );
    if( GstElement* source = GCaptureCreateSource( GCAPTURE_VIDEO, name ) )
        addPipeline( record, wish ).buildVideo( source );
}

GCaptureWish makeWish( int bytesPerSample, int frequency, int fps, int width, int height )
{
    const int latency = latency_;
    const int frameBytes = latency ? GAVCaptureBufferSizeWithin( frequency, bytesPerSample, latency )
                                   : GAVCaptureBufferSize( frequency, bytesPerSample, LATENCY );
    return { bytesPerSample, frequency, fps, width, height, latency ? latency : LATENCY, frameBytes };
}

// What a microphone hands over at once: all of a frame, or just half of one where less than usual is wanted, so that no rest of a frame
// waits for the next.
int stepOf( const GCaptureWish& wish )
{
    return wish.latency < LATENCY ? GAVCaptureTimeOf( wish.frameBytes / 2, wish.frequency, wish.bytesPerSample )
                                  : wish.latency * MICROSECONDS;
}

void buildAudio( GAVCaptureRecord& record, const GCaptureWish& wish, const GWString& name )
{
    GLOG( u"Enumerating audio capture devices and creating '", name, u"'" );
    if( GstElement* source = GCaptureCreateSource( GCAPTURE_AUDIO, name, stepOf( wish ) ) )
        addPipeline( record, wish ).buildAudio( source );
}

// Throws when the library lacks a part.
void build( GAVCaptureRecord& record, const GCaptureWish& wish, const GWString& audio, const GWString& video )
{
    const bool videoIsFile = GCaptureIsFile( video );
    const bool audioIsFile = GCaptureIsFile( audio );
    const bool sameFile = videoIsFile && audioIsFile && video == audio;
    if( videoIsFile )
        addPipeline( record, wish ).buildFile( video, true, sameFile );
    else if( !video.empty( ) )
        buildVideo( record, wish, video );
    if( audioIsFile && !sameFile )
        addPipeline( record, wish ).buildFile( audio, false, true );
    else if( !audioIsFile && !audio.empty( ) )
        buildAudio( record, wish, audio );
}

void run( GAVCaptureRecord& record )
{
    for( const std::unique_ptr<GCapturePipeline>& pipeline : record.pipelines ) pipeline->run( );
    const auto deadline = std::chrono::steady_clock::now( ) + START_TIME;
    for( const std::unique_ptr<GCapturePipeline>& pipeline : record.pipelines ) pipeline->waitUntilSettled( deadline );
}

// The end of a recorder, on a thread of its own: where a sound server hangs, the library waits for it without limit.
struct Farewell
{
    std::unique_ptr<GAVCaptureRecord> record;
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;
};

int endProc( void* argument )
{
    const std::unique_ptr<std::shared_ptr<Farewell>> mine( static_cast<std::shared_ptr<Farewell>*>( argument ) );
    Farewell& farewell = **mine;
    farewell.record.reset( );
    const std::scoped_lock lock( farewell.mutex );
    farewell.done = true;
    farewell.changed.notify_all( );
    return 0;
}

// How one kind of device is told in the log.
struct DeviceTexts
{
    GWStringView start;
    GWStringView name;
    GWStringView none;
};
constexpr DeviceTexts AUDIO_TEXTS{ u"Enumerating audio capture devices.", u"AUDIODEVICE: Device name='",
                                   u"AUDIODEVICE: No audio capture devices present." };
constexpr DeviceTexts VIDEO_TEXTS{ u"Enumerating video capture devices.", u"VIDEODEVICE: Device name='",
                                   u"VIDEODEVICE: No video capture devices present." };

GStringList listDevices( GCaptureKind kind, const DeviceTexts& texts )
{
    GLOG( texts.start );
    GStringList names = GCaptureListDevices( kind );
    GLOG( u"Enumerating up to ", MAX_MONIKERS, u" devices." );
    GLOG( static_cast<int>( names.size( ) ), u" devices found." );
    int i = 0;
    for( const GWString& name : names )
    {
        GLOG( u"Reading friendly name for device #", i++ );
        GLOG( texts.name, name, u"'" );
    }
    if( names.empty( ) ) GLOG( texts.none );
    GLOG( u"Done." );
    return names;
}
} // namespace

void GAVCaptureGetDeviceList( GStringList& audioList, GStringList& videoList )
{
    GCALL( function );
    audioList.clear( );
    videoList.clear( );
    if( !GCaptureInitialize( ) ) return;
    audioList = listDevices( GCAPTURE_AUDIO, AUDIO_TEXTS );
    videoList = listDevices( GCAPTURE_VIDEO, VIDEO_TEXTS );
}

void GAVCaptureSetLatency( int milliseconds )
{
    GPRECONDITION( milliseconds >= 0 );
    latency_ = milliseconds;
}

GAVCapture GAVCaptureOpen( const GWString& audioDevice, const GWString& videoDevice, int bytesPerSample, int frequency,
                           int fps, int width, int height )
{
    GCALL( function );
    GPRECONDITION( bytesPerSample == 2 && frequency > 0 && fps > 0 && width > 0 && height > 0 );
    try
    {
        if( !GCaptureInitialize( ) ) throw std::runtime_error( "gst_init_check" );
        auto record = std::make_unique<GAVCaptureRecord>( );
        const GCaptureWish wish = makeWish( bytesPerSample, frequency, fps, width, height );
        record->audioTapFilter.configure( { bytesPerSample, frequency, 1 }, wish.frameBytes );
        build( *record, wish, audioDevice, videoDevice );
        run( *record );
        return record.release( );
    }
    catch( const std::runtime_error& )
    {
        GLOG( u"WARNING constructor failed" );
        return nullptr;
    }
}

void GAVCaptureClose( GAVCapture capture )
{
    GCALL( function );
    GPRECONDITION_TEXT( capture, "capture_" );
    GASSERT_TEXT( capture->videoTapFilter.listeners.empty( ) && capture->audioTapFilter.listeners.empty( ),
                  "_listenerList.empty( )" );
    const auto farewell = std::make_shared<Farewell>( );
    farewell->record.reset( capture );
    const GThreadID thread = GThreadOpen( u"GAVCaptureClose", endProc, new std::shared_ptr<Farewell>( farewell ) );
    std::unique_lock lock( farewell->mutex );
    const bool done = farewell->changed.wait_for( lock, END_TIME, [&] { return farewell->done; } );
    lock.unlock( );
    if( done )
        GThreadClose( thread );
    else
        GLOG( u"WARNING Capture device does not stop, leaving it behind." );
}

void GAVCaptureSubscribeAudio( GAVCapture capture, IGCaptureAudioListener* listener )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    capture->audioTapFilter.listeners.add( listener );
}

void GAVCaptureSubscribeVideo( GAVCapture capture, IGCaptureVideoListener* listener )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    capture->videoTapFilter.listeners.add( listener );
}

void GAVCaptureUnsubscribeAudio( GAVCapture capture, IGCaptureAudioListener* listener )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    capture->audioTapFilter.listeners.remove( listener );
}

void GAVCaptureUnsubscribeVideo( GAVCapture capture, IGCaptureVideoListener* listener )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    capture->videoTapFilter.listeners.remove( listener );
}

bool GAVCaptureIsAudioWorking( GAVCapture capture )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    return capture->audioTapFilter.isConnected( );
}

bool GAVCaptureIsVideoWorking( GAVCapture capture )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    return capture->videoTapFilter.isConnected( );
}
