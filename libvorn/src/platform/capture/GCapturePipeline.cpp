#include "platform/capture/GCapturePipeline.h"

#include "base/GUtil.h"
#include "platform/capture/GAVCaptureDevices.h"
#include "platform/capture/GCaptureCaps.h"
#include "platform/capture/GCaptureCheck.h"
#include "platform/capture/GCaptureWatch.h"

#include <stdexcept>

namespace
{
constexpr const char* QUIT = "velmora-quit";
constexpr const char* MOVED = "velmora-moved";
constexpr const char* AUDIO_SOURCE = "Audio Capture Filter";
// A clip that ends sooner than this is not played faster.
constexpr std::chrono::milliseconds LEAST_ROUND( 100 );

GWString takeError( GstMessage* message )
{
    GError* error = nullptr;
    gst_message_parse_error( message, &error, nullptr );
    GWString text = GUTF8ToWide( error ? error->message : "" );
    g_clear_error( &error );
    return text;
}

// A message of our own to the thread that listens.
void tell( GstElement* pipeline, const char* what )
{
    const GCaptureRef<GstBus> bus( gst_element_get_bus( pipeline ) );
    gst_bus_post( bus.get( ), gst_message_new_application( nullptr, gst_structure_new_empty( what ) ) );
}

GstCaps* queryOffer( GstElement* source )
{
    const GCaptureRef<GstPad> pad( gst_element_get_static_pad( source, "src" ) );
    return pad ? gst_pad_query_caps( pad.get( ), nullptr ) : gst_caps_new_empty( );
}
} // namespace

GCapturePipeline::GCapturePipeline( const GCaptureWish& wish, _GVideoTapFilter& videoTap, _GAudioTapFilter& audioTap )
    : _wish( wish ), _videoTap( videoTap ), _audioTap( audioTap ), _videoEnd( videoTap, [this] { _notify( ); } ),
      _audioEnd( audioTap, [this] { _notify( ); } ), _pipeline( gst_pipeline_new( nullptr ) )
{
    // The thread that listens must hear its own last message.
    g_object_set( _pipeline, "auto-flush-bus", FALSE, nullptr );
    const GCaptureRef<GstClock> clock( gst_system_clock_obtain( ) );
    gst_pipeline_use_clock( GST_PIPELINE( _pipeline ), clock.get( ) );
}

GCapturePipeline::~GCapturePipeline( )
{
    {
        const std::scoped_lock lock( _padMutex );
        _closing = true;
    }
    if( _thread )
    {
        tell( _pipeline, QUIT );
        GThreadClose( _thread );
    }
    gst_element_set_state( _pipeline, GST_STATE_NULL );
    // Messages hold the elements that sent them.
    const GCaptureRef<GstBus> bus( gst_element_get_bus( _pipeline ) );
    gst_bus_set_flushing( bus.get( ), TRUE );
    gst_object_unref( _pipeline );
}

void GCapturePipeline::buildFile( const GWString& path, bool video, bool audio )
{
    _isFile = true;
    _wantsVideo = video;
    _wantsAudio = audio;
    GstElement* file = GCaptureMakeElement( "filesrc" );
    gst_bin_add( GST_BIN( _pipeline ), file );
    g_object_set( file, "location", GWideToUTF8( path ).c_str( ), nullptr );
    _addDecoder( file );
}

void GCapturePipeline::buildVideo( GstElement* source )
{
    _wantsVideo = true;
    _useClockTime( );
    gst_object_set_name( GST_OBJECT( source ), "Video Capture Filter" );
    gst_bin_add( GST_BIN( _pipeline ), source );
    gst_element_set_state( source, GST_STATE_READY );
    GstCaps* offer = queryOffer( source );
    GCaptureVideoChoice choice;
    const bool chosen =
        GAVCaptureChooseVideo( GCaptureReadVideo( offer ), _wish.fps, _wish.width, _wish.height, choice );
    GstCaps* narrow = chosen ? GCaptureNarrow( offer, choice ) : nullptr;
    gst_caps_unref( offer );
    if( !narrow ) return _addDecoder( source );
    _link( source, _videoEnd.build( _wish, choice.subtype, false ), narrow );
    gst_caps_unref( narrow );
}

void GCapturePipeline::buildAudio( GstElement* source )
{
    _wantsAudio = true;
    _useClockTime( );
    gst_object_set_name( GST_OBJECT( source ), AUDIO_SOURCE );
    gst_bin_add( GST_BIN( _pipeline ), source );
    gst_element_set_state( source, GST_STATE_READY );
    GstCaps* offer = queryOffer( source );
    const std::vector<GCaptureAudioCapability> capabilities = GCaptureReadAudio( offer );
    const bool chosen = !capabilities.empty( ) && GAVCaptureConfigureAudio( capabilities, _wish.frequency,
                                                                            _wish.bytesPerSample, _wish.latency ) >= 0;
    GstCaps* narrow = GCaptureNarrow( _wish.frequency );
    // What is not offered as it is wanted is converted on the way to the tap.
    const bool fits = chosen && gst_caps_can_intersect( offer, narrow );
    gst_caps_unref( offer );
    _link( source, _audioEnd.build( _wish, false ), fits ? narrow : nullptr );
    gst_caps_unref( narrow );
    // Has no effect on sources that no server moves.
    g_signal_connect( source, "notify::current-device", G_CALLBACK( _onMoved ), this );
}

void GCapturePipeline::_link( GstElement* source, GstElement* branch, GstCaps* caps )
{
    gst_bin_add( GST_BIN( _pipeline ), branch );
    if( !gst_element_link_filtered( source, branch, caps ) ) return _lose( u"its format cannot be read" );
    const std::scoped_lock lock( _mutex );
    _hasVideo = _wantsVideo;
    _hasAudio = _wantsAudio;
}

void GCapturePipeline::_addDecoder( GstElement* source )
{
    GstElement* decoder = GCaptureMakeElement( "decodebin" );
    gst_bin_add( GST_BIN( _pipeline ), decoder );
    g_signal_connect( decoder, "pad-added", G_CALLBACK( _onDecodedPad ), this );
    g_signal_connect( decoder, "no-more-pads", G_CALLBACK( _onNoMorePads ), this );
    if( !gst_element_link( source, decoder ) ) _lose( u"its format cannot be read" );
}

// Live stamps are the clock's own: the pipeline's time begins at zero and is never moved.
void GCapturePipeline::_useClockTime( )
{
    gst_element_set_start_time( _pipeline, GST_CLOCK_TIME_NONE );
    gst_element_set_base_time( _pipeline, 0 );
}

void GCapturePipeline::_onDecodedPad( GstElement*, GstPad* pad, gpointer self )
{
    GCapturePipeline& pipeline = *static_cast<GCapturePipeline*>( self );
    const std::scoped_lock lock( pipeline._padMutex );
    if( pipeline._closing ) return;
    try
    {
        pipeline._addDecodedPad( pad );
    }
    catch( const std::runtime_error& )
    {
        pipeline._lose( u"a part of the media library is missing" );
    }
}

// Adds a branch for a decoded stream; false, with the branch gone, when the two do not fit.
bool GCapturePipeline::_addBranch( GstPad* pad, GstElement* branch )
{
    gst_bin_add( GST_BIN( _pipeline ), branch );
    const GCaptureRef<GstPad> target( gst_element_get_static_pad( branch, "sink" ) );
    if( gst_pad_link( pad, target.get( ) ) == GST_PAD_LINK_OK ) return gst_element_sync_state_with_parent( branch );
    gst_element_set_state( branch, GST_STATE_NULL );
    gst_bin_remove( GST_BIN( _pipeline ), branch );
    return false;
}

// A decoded stream gets its branch when it is the first of a wanted medium; others end in nothing.
void GCapturePipeline::_addDecodedPad( GstPad* pad )
{
    GstCaps* caps = gst_pad_get_current_caps( pad );
    if( !caps ) caps = gst_pad_query_caps( pad, nullptr );
    const GString kind = gst_caps_get_size( caps ) ? gst_structure_get_name( gst_caps_get_structure( caps, 0 ) ) : "";
    const bool isShapeless = GCaptureIsShapeless( caps );
    gst_caps_unref( caps );
    const bool isVideo = kind.starts_with( "video/" ) && _wantsVideo && !_hasVideo;
    const bool isAudio = kind.starts_with( "audio/" ) && _wantsAudio && !_hasAudio;
    const bool added = ( isVideo && _addBranch( pad, _videoEnd.build( _wish, "YUY2", _isFile, isShapeless ) ) ) ||
                       ( isAudio && _addBranch( pad, _audioEnd.build( _wish, _isFile ) ) );
    if( added )
    {
        const std::scoped_lock lock( _mutex );
        _hasVideo = _hasVideo || isVideo;
        _hasAudio = _hasAudio || isAudio;
        return;
    }
    GstElement* end = GCaptureMakeElement( "fakesink" );
    g_object_set( end, "async", FALSE, nullptr );
    _addBranch( pad, end );
}

void GCapturePipeline::_onNoMorePads( GstElement*, gpointer self )
{
    GCapturePipeline& pipeline = *static_cast<GCapturePipeline*>( self );
    {
        const std::scoped_lock lock( pipeline._mutex );
        pipeline._allPads = true;
    }
    pipeline._notify( );
}

void GCapturePipeline::run( )
{
    if( _lost ) return;
    if( gst_element_set_state( _pipeline, GST_STATE_PLAYING ) != GST_STATE_CHANGE_FAILURE )
    {
        _thread = GThreadOpen( u"GAVCapture", _listenProc, this );
        return;
    }
    const GCaptureRef<GstBus> bus( gst_element_get_bus( _pipeline ) );
    GstMessage* message = gst_bus_pop_filtered( bus.get( ), GST_MESSAGE_ERROR );
    _stopAndLose( message ? takeError( message ) : u"no start" );
    if( message ) gst_message_unref( message );
}

int GCapturePipeline::_listenProc( void* self )
{
    static_cast<GCapturePipeline*>( self )->_listen( );
    return 0;
}

void GCapturePipeline::_listen( )
{
    const GCaptureRef<GstBus> bus( gst_element_get_bus( _pipeline ) );
    const auto kinds = static_cast<GstMessageType>( GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_APPLICATION );
    bool rewindIsDue = false;
    for( bool running = true; running; )
    {
        const GstClockTime patience =
            rewindIsDue ? static_cast<GstClockTime>( std::chrono::nanoseconds( LEAST_ROUND ).count( ) )
                        : GST_CLOCK_TIME_NONE;
        GstMessage* message = gst_bus_timed_pop_filtered( bus.get( ), patience, kinds );
        const GstMessageType type = message ? GST_MESSAGE_TYPE( message ) : GST_MESSAGE_EOS;
        const bool isOwn = type == GST_MESSAGE_APPLICATION;
        running = !isOwn || !gst_message_has_name( message, QUIT );
        if( isOwn && running ) _checkPresence( );
        if( type == GST_MESSAGE_ERROR ) _stopAndLose( takeError( message ) );
        rewindIsDue = type == GST_MESSAGE_EOS && !_onEnd( );
        if( message ) gst_message_unref( message );
    }
}

// The streams are at their end: a file begins again, a device is gone. False when it is too early to begin again.
bool GCapturePipeline::_onEnd( )
{
    if( !_isFile || !_hasMedium( ) )
    {
        _stopAndLose( u"it ended" );
        return true;
    }
    const auto now = std::chrono::steady_clock::now( );
    if( now - _lastRewind < LEAST_ROUND ) return false;
    _lastRewind = now;
    const bool fresh = _videoEnd.takeFresh( ) | _audioEnd.takeFresh( );
    const auto flags = static_cast<GstSeekFlags>( GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT );
    if( !fresh || !gst_element_seek_simple( _pipeline, GST_FORMAT_TIME, flags, 0 ) )
        _stopAndLose( u"it cannot be played again" );
    return true;
}

// A server that loses a microphone gives its listeners another source, if only what the speaker plays: that is not what was asked for.
void GCapturePipeline::_onMoved( GstElement*, GParamSpec*, gpointer self )
{
    tell( static_cast<GCapturePipeline*>( self )->_pipeline, MOVED );
}

void GCapturePipeline::_checkPresence( )
{
    const GCaptureRef<GstElement> source( gst_bin_get_by_name( GST_BIN( _pipeline ), AUDIO_SOURCE ) );
    if( source && _hasMedium( ) && !GCaptureIsPresent( source.get( ) ) ) _stopAndLose( u"it is gone" );
}

bool GCapturePipeline::_hasMedium( )
{
    const std::scoped_lock lock( _mutex );
    return !_lost && ( _hasVideo || _hasAudio );
}

// The device is let go of, so that it can be opened again when it is back. Never on a streaming thread.
void GCapturePipeline::_stopAndLose( GWStringView reason )
{
    gst_element_set_state( _pipeline, GST_STATE_NULL );
    _lose( reason );
}

// Told once.
void GCapturePipeline::_lose( GWStringView reason )
{
    {
        const std::scoped_lock lock( _mutex );
        if( _lost ) return;
        _lost = true;
    }
    GLOG( u"WARNING Capture device failed: ", reason, u", ignoring." );
    if( _wantsVideo ) _videoTap.disconnect( );
    if( _wantsAudio ) _audioTap.disconnect( );
    _notify( );
    GCaptureWatch::tell( );
}

bool GCapturePipeline::_isSettled( ) const
{
    if( _lost ) return true;
    const bool video = !_wantsVideo || _videoTap.isConnected( ) || ( _allPads && !_hasVideo );
    const bool audio = !_wantsAudio || _audioTap.isConnected( ) || ( _allPads && !_hasAudio );
    return video && audio;
}

void GCapturePipeline::_notify( )
{
    const std::scoped_lock lock( _mutex );
    _changed.notify_all( );
}

// A film that shows nothing by then never will, though the library may not say so.
void GCapturePipeline::waitUntilSettled( std::chrono::steady_clock::time_point deadline )
{
    bool settled = false;
    {
        std::unique_lock lock( _mutex );
        settled = _changed.wait_until( lock, deadline, [this] { return _isSettled( ); } );
    }
    const bool works = ( _wantsVideo && _videoTap.isConnected( ) ) || ( _wantsAudio && _audioTap.isConnected( ) );
    if( _isFile && !settled && !works ) _stopAndLose( u"nothing comes of it" );
}
