// The recorder: a pipeline for each medium, so that the loss of one does not stop the other, both on the monotonic clock. A media
// file is one pipeline for the media that it has, played again from its begin whenever it ends. One thread a pipeline hears its
// messages.
#include "platform/GAVCapture.h"

#include "base/GUtil.h"
#include "platform/GThread.h"
#include "platform/capture/GAVCaptureDevices.h"
#include "platform/capture/GAVCaptureTaps.h"

#include <algorithm>
#include <atomic>
#include <memory>

namespace
{
constexpr int LATENCY = 50; // Milliseconds of an audio frame before it is raised to whole codec frames.
// A clip stands in for a camera that offers little more than what is asked for, and never less than this.
constexpr int LEAST_FILE_WIDTH = 160;
constexpr int LEAST_FILE_HEIGHT = 120;
constexpr GstClockTime START_TIME = 5 * GST_SECOND;
constexpr const char* QUIT = "velmora-quit";

// What was asked for, and where it goes.
struct Wish
{
    int bytesPerSample = 2;
    int frequency = 22000;
    int fps = 7;
    int width = 48;
    int height = 48;
};

struct Pipeline
{
    GstElement* pipeline = nullptr;
    GThreadID thread = 0;
    bool isFile = false;
    bool wantsVideo = false;
    bool wantsAudio = false;
    std::atomic<bool> hasVideo{ false };
    std::atomic<bool> hasAudio{ false };
    GAVCaptureRecord* record = nullptr;
};
} // namespace

struct GAVCaptureRecord
{
    Wish wish;
    _GVideoTapFilter videoTapFilter;
    _GAudioTapFilter audioTapFilter;
    std::atomic<bool> broken{ false }; // A part of the library is missing.
    std::list<std::unique_ptr<Pipeline>> pipelines;
};

namespace
{
GstElement* parseBranch( const GString& text )
{
    GError* error = nullptr;
    GstElement* branch = gst_parse_bin_from_description( text.c_str( ), TRUE, &error );
    if( error ) GLOG( u"ERROR Error HR return value: ", error->code, u" ", error->message );
    g_clear_error( &error );
    return branch;
}

GstAppSink* sinkOf( GstElement* branch )
{
    return GST_APP_SINK( gst_bin_get_by_name( GST_BIN( branch ), "tap" ) );
}

// The tail of a video pipeline, ending in the tap. Surplus frames of a fast source are dropped, none are made up.
GstElement* makeVideoBranch( GAVCaptureRecord& record, const char* subtype, bool isFile )
{
    const int fileWidth = std::max( LEAST_FILE_WIDTH, record.wish.width * 4 / 3 );
    const int fileHeight = std::max( LEAST_FILE_HEIGHT, record.wish.height );
    const GString limits = isFile ? "width=[1," + std::to_string( fileWidth ) + "],height=[1," +
                                        std::to_string( fileHeight ) + "],pixel-aspect-ratio=1/1,"
                                  : "";
    // A file is read as fast as its pictures are taken, a camera loses what comes too fast.
    const GString text =
        "videorate drop-only=true max-rate=" + std::to_string( record.wish.fps ) +
        " ! videoconvert ! videoscale ! video/x-raw," + limits + "format=" + subtype +
        ( isFile
              ? " ! queue max-size-buffers=4 ! appsink name=tap max-buffers=4 sync=true"
              : " ! queue max-size-buffers=4 leaky=downstream ! appsink name=tap max-buffers=4 drop=true sync=false" );
    GstElement* branch = parseBranch( text );
    if( !branch ) record.broken = true;
    if( !branch ) return nullptr;
    GstAppSink* sink = sinkOf( branch );
    record.videoTapFilter.attach( sink );
    gst_object_unref( sink );
    return branch;
}

GstElement* makeAudioBranch( GAVCaptureRecord& record, bool isFile )
{
    const GString text = "audioconvert ! audioresample ! audio/x-raw,format=S16LE,layout=interleaved,channels=1,rate=" +
                         std::to_string( record.wish.frequency ) +
                         " ! queue ! appsink name=tap max-buffers=50 drop=true sync=" + ( isFile ? "true" : "false" );
    GstElement* branch = parseBranch( text );
    if( !branch ) record.broken = true;
    if( !branch ) return nullptr;
    GstAppSink* sink = sinkOf( branch );
    record.audioTapFilter.attach( sink );
    gst_object_unref( sink );
    return branch;
}

void rewind( Pipeline& pipeline )
{
    gst_element_seek_simple( pipeline.pipeline, GST_FORMAT_TIME,
                             static_cast<GstSeekFlags>( GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT ), 0 );
}

void onError( Pipeline& pipeline, GstMessage* message )
{
    GError* error = nullptr;
    gst_message_parse_error( message, &error, nullptr );
    GLOG( u"WARNING Capture device failed: ", error ? error->message : "", u", ignoring." );
    g_clear_error( &error );
    pipeline.hasVideo = false;
    pipeline.hasAudio = false;
}

int listenProc( void* argument )
{
    Pipeline& pipeline = *static_cast<Pipeline*>( argument );
    GstBus* bus = gst_element_get_bus( pipeline.pipeline );
    const auto kinds = static_cast<GstMessageType>( GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_APPLICATION );
    for( bool running = true; running; )
    {
        GstMessage* message = gst_bus_timed_pop_filtered( bus, GST_CLOCK_TIME_NONE, kinds );
        if( !message ) break;
        if( GST_MESSAGE_TYPE( message ) == GST_MESSAGE_APPLICATION )
            running = false;
        else if( GST_MESSAGE_TYPE( message ) == GST_MESSAGE_ERROR )
            onError( pipeline, message );
        else if( pipeline.isFile )
            rewind( pipeline );
        gst_message_unref( message );
    }
    gst_object_unref( bus );
    return 0;
}

// A decoded stream of a file gets its branch when it is the first of a wanted medium; others end in nothing.
void onDecodedPad( GstElement*, GstPad* pad, gpointer argument )
{
    Pipeline& pipeline = *static_cast<Pipeline*>( argument );
    GstCaps* caps = gst_pad_get_current_caps( pad );
    if( !caps ) caps = gst_pad_query_caps( pad, nullptr );
    const bool isVideo = g_str_has_prefix( gst_structure_get_name( gst_caps_get_structure( caps, 0 ) ), "video" );
    gst_caps_unref( caps );
    const bool wanted = isVideo ? pipeline.wantsVideo && !pipeline.hasVideo : pipeline.wantsAudio && !pipeline.hasAudio;
    GstElement* branch = !wanted   ? gst_element_factory_make( "fakesink", nullptr )
                         : isVideo ? makeVideoBranch( *pipeline.record, "YUY2", true )
                                   : makeAudioBranch( *pipeline.record, true );
    if( !branch ) return;
    if( !wanted ) g_object_set( branch, "async", FALSE, nullptr );
    gst_bin_add( GST_BIN( pipeline.pipeline ), branch );
    gst_element_sync_state_with_parent( branch );
    GstPad* target = gst_element_get_static_pad( branch, "sink" );
    const bool linked = gst_pad_link( pad, target ) == GST_PAD_LINK_OK;
    gst_object_unref( target );
    if( wanted && linked ) ( isVideo ? pipeline.hasVideo : pipeline.hasAudio ) = true;
}

Pipeline& addPipeline( GAVCaptureRecord& record )
{
    record.pipelines.push_back( std::make_unique<Pipeline>( ) );
    Pipeline& pipeline = *record.pipelines.back( );
    pipeline.record = &record;
    pipeline.pipeline = gst_pipeline_new( nullptr );
    GstClock* clock = gst_system_clock_obtain( );
    gst_pipeline_use_clock( GST_PIPELINE( pipeline.pipeline ), clock );
    gst_object_unref( clock );
    return pipeline;
}

// Live stamps are the clock's own: the pipeline's time begins at zero and is never moved.
void useClockTime( Pipeline& pipeline )
{
    gst_element_set_start_time( pipeline.pipeline, GST_CLOCK_TIME_NONE );
    gst_element_set_base_time( pipeline.pipeline, 0 );
}

void buildFile( GAVCaptureRecord& record, const GWString& path, bool video, bool audio )
{
    Pipeline& pipeline = addPipeline( record );
    pipeline.isFile = true;
    pipeline.wantsVideo = video;
    pipeline.wantsAudio = audio;
    GstElement* file = gst_element_factory_make( "filesrc", nullptr );
    GstElement* decoder = gst_element_factory_make( "decodebin", nullptr );
    if( !file || !decoder )
    {
        GLOG( u"ERROR Error HR return value: ", -1, u" no 'filesrc' or 'decodebin'" );
        record.broken = true;
        if( file ) gst_object_unref( file );
        if( decoder ) gst_object_unref( decoder );
        return;
    }
    g_object_set( file, "location", GWideToUTF8( path ).c_str( ), nullptr );
    g_signal_connect( decoder, "pad-added", G_CALLBACK( onDecodedPad ), &pipeline );
    gst_bin_add_many( GST_BIN( pipeline.pipeline ), file, decoder, nullptr );
    gst_element_link( file, decoder );
}

// The capability of the source that is nearest, in packed YUV first and then in RGB; null takes it as it is.
GstCaps* chooseCaps( GstElement* source, const Wish& wish, const char*& subtype )
{
    GstPad* pad = gst_element_get_static_pad( source, "src" );
    GstCaps* offered = pad ? gst_pad_query_caps( pad, nullptr ) : gst_caps_new_any( );
    if( pad ) gst_object_unref( pad );
    GstCaps* picked = nullptr;
    for( const char* format : { "YUY2", "RGB" } )
    {
        if( !GCaptureConfigureVideo( offered, format, wish.fps, wish.width, wish.height, picked ) ) continue;
        subtype = format;
        break;
    }
    gst_caps_unref( offered );
    if( !picked ) GLOG( u"WARNING Unable to configure video device; taking 'as is' and seeing if it works." );
    return picked;
}

void buildVideo( GAVCaptureRecord& record, const GWString& name )
{
    GLOG( u"Enumerating video capture devices and creating '", name, u"'" );
    GstElement* source = GCaptureCreateSource( GCAPTURE_VIDEO, name );
    if( !source ) return;
    Pipeline& pipeline = addPipeline( record );
    pipeline.wantsVideo = true;
    useClockTime( pipeline );
    gst_bin_add( GST_BIN( pipeline.pipeline ), source );
    gst_element_set_state( source, GST_STATE_READY );
    const char* subtype = "YUY2";
    GstCaps* caps = chooseCaps( source, record.wish, subtype );
    GstElement* branch = makeVideoBranch( record, subtype, false );
    if( branch && caps )
    {
        gst_bin_add( GST_BIN( pipeline.pipeline ), branch );
        pipeline.hasVideo = gst_element_link_filtered( source, branch, caps );
    }
    else if( branch )
    {
        gst_object_unref( branch );
        GstElement* decoder = gst_element_factory_make( "decodebin", nullptr );
        if( !decoder )
        {
            GLOG( u"ERROR Error HR return value: ", -1, u" no 'decodebin'" );
            record.broken = true;
            return;
        }
        g_signal_connect( decoder, "pad-added", G_CALLBACK( onDecodedPad ), &pipeline );
        gst_bin_add( GST_BIN( pipeline.pipeline ), decoder );
        gst_element_link( source, decoder );
    }
    if( caps ) gst_caps_unref( caps );
}

void buildAudio( GAVCaptureRecord& record, const GWString& name )
{
    GLOG( u"Enumerating audio capture devices and creating '", name, u"'" );
    GstElement* source = GCaptureCreateSource( GCAPTURE_AUDIO, name );
    if( !source ) return;
    const Wish& wish = record.wish;
    GLOG( u"Configuring audio device: frequency=", wish.frequency, u", bits=", wish.bytesPerSample * 8, u", latency=",
          LATENCY );
    Pipeline& pipeline = addPipeline( record );
    pipeline.wantsAudio = true;
    useClockTime( pipeline );
    GstElement* branch = makeAudioBranch( record, false );
    gst_bin_add( GST_BIN( pipeline.pipeline ), source );
    if( !branch ) return;
    gst_bin_add( GST_BIN( pipeline.pipeline ), branch );
    pipeline.hasAudio = gst_element_link( source, branch );
}

void stop( Pipeline& pipeline )
{
    gst_element_set_state( pipeline.pipeline, GST_STATE_NULL );
    if( pipeline.thread )
    {
        GstBus* bus = gst_element_get_bus( pipeline.pipeline );
        gst_bus_set_flushing( bus, FALSE );
        gst_bus_post( bus, gst_message_new_application( nullptr, gst_structure_new_empty( QUIT ) ) );
        gst_object_unref( bus );
        GThreadClose( pipeline.thread );
    }
    gst_object_unref( pipeline.pipeline );
}

// Runs a pipeline and waits until its media have shown themselves; false when it cannot.
bool run( Pipeline& pipeline )
{
    if( gst_element_set_state( pipeline.pipeline, GST_STATE_PLAYING ) == GST_STATE_CHANGE_FAILURE ||
        gst_element_get_state( pipeline.pipeline, nullptr, nullptr, START_TIME ) == GST_STATE_CHANGE_FAILURE )
    {
        GLOG( u"WARNING Capture device failed: no start, ignoring." );
        pipeline.hasVideo = false;
        pipeline.hasAudio = false;
        return false;
    }
    pipeline.thread = GThreadOpen( u"GAVCapture", listenProc, &pipeline );
    return true;
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

GAVCapture GAVCaptureOpen( const GWString& audioDevice, const GWString& videoDevice, int bytesPerSample, int frequency,
                           int fps, int width, int height )
{
    GCALL( function );
    GPRECONDITION( bytesPerSample == 2 && frequency > 0 && fps > 0 && width > 0 && height > 0 );
    if( !GCaptureInitialize( ) )
    {
        GLOG( u"WARNING constructor failed" );
        return nullptr;
    }
    GAVCaptureRecord* record = new GAVCaptureRecord;
    record->wish = { bytesPerSample, frequency, fps, width, height };
    record->audioTapFilter.configure( { bytesPerSample, frequency, 1 },
                                      GCaptureChunkBytes( frequency, bytesPerSample, LATENCY ) );
    const bool videoFile = !videoDevice.empty( ) && GFileExists( videoDevice );
    const bool audioFile = !audioDevice.empty( ) && GFileExists( audioDevice );
    const bool sameFile = videoFile && audioFile && videoDevice == audioDevice;
    if( videoFile ) buildFile( *record, videoDevice, true, sameFile );
    if( audioFile && !sameFile ) buildFile( *record, audioDevice, false, true );
    if( !videoFile && !videoDevice.empty( ) ) buildVideo( *record, videoDevice );
    if( !audioFile && !audioDevice.empty( ) ) buildAudio( *record, audioDevice );
    if( record->broken )
    {
        GLOG( u"WARNING constructor failed" );
        GAVCaptureClose( record );
        return nullptr;
    }
    for( const std::unique_ptr<Pipeline>& pipeline : record->pipelines ) run( *pipeline );
    return record;
}

void GAVCaptureClose( GAVCapture capture )
{
    GCALL( function );
    GPRECONDITION_TEXT( capture, "capture_" );
    GASSERT_TEXT( capture->videoTapFilter.isFree( ) && capture->audioTapFilter.isFree( ), "_listenerList.empty( )" );
    for( const std::unique_ptr<Pipeline>& pipeline : capture->pipelines ) stop( *pipeline );
    delete capture;
}

void GAVCaptureSubscribeAudio( GAVCapture capture, IGCaptureAudioListener* listener )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    capture->audioTapFilter.subscribe( listener );
}

void GAVCaptureSubscribeVideo( GAVCapture capture, IGCaptureVideoListener* listener )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    capture->videoTapFilter.subscribe( listener );
}

void GAVCaptureUnsubscribeAudio( GAVCapture capture, IGCaptureAudioListener* listener )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    capture->audioTapFilter.unsubscribe( listener );
}

void GAVCaptureUnsubscribeVideo( GAVCapture capture, IGCaptureVideoListener* listener )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    capture->videoTapFilter.unsubscribe( listener );
}

bool GAVCaptureIsAudioWorking( GAVCapture capture )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    for( const std::unique_ptr<Pipeline>& pipeline : capture->pipelines )
        if( pipeline->hasAudio ) return true;
    return false;
}

bool GAVCaptureIsVideoWorking( GAVCapture capture )
{
    GPRECONDITION_TEXT( capture, "capture_" );
    for( const std::unique_ptr<Pipeline>& pipeline : capture->pipelines )
        if( pipeline->hasVideo ) return true;
    return false;
}
