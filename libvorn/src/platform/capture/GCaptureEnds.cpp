#include "platform/capture/GCaptureEnds.h"

#include "platform/capture/GCaptureCaps.h"
#include "platform/capture/GCaptureCheck.h"
#include "platform/capture/GCaptureWatch.h"

#include <algorithm>

namespace
{
// A clip stands in for a camera that offers little more than what is asked for, and never less than this.
constexpr int LEAST_FILE_WIDTH = 160;
constexpr int LEAST_FILE_HEIGHT = 120;
constexpr GstClockTime NANOSECONDS_PER_UNIT = 100;
constexpr const char* VIDEO_RENDERER = "Null Video Renderer";
constexpr const char* AUDIO_RENDERER = "Null Audio Renderer";

GstElement* parseBranch( const GString& text, const char* name )
{
    GError* error = nullptr;
    GstElement* branch = gst_parse_bin_from_description( text.c_str( ), TRUE, &error );
    const std::unique_ptr<GError, decltype( &g_error_free )> owned( error, g_error_free );
    if( error && branch ) gst_object_unref( branch );
    GCaptureCheck( branch && !error, text.c_str( ), error );
    gst_object_set_name( GST_OBJECT( branch ), name );
    return branch;
}

GstPadProbeReturn ignoreEvent( GstPad*, GstPadProbeInfo*, gpointer )
{
    return GST_PAD_PROBE_OK;
}

void listenTo( GstElement* branch, const char* renderer, GstFlowReturn ( *onSample )( GstAppSink*, gpointer ),
               decltype( &ignoreEvent ) onEvent, gpointer self )
{
    const GCaptureRef<GstElement> sink( gst_bin_get_by_name( GST_BIN( branch ), renderer ) );
    GstAppSinkCallbacks callbacks{ };
    callbacks.new_sample = onSample;
    gst_app_sink_set_callbacks( GST_APP_SINK( sink.get( ) ), &callbacks, self, nullptr );
    const GCaptureRef<GstPad> pad( gst_element_get_static_pad( sink.get( ), "sink" ) );
    gst_pad_add_probe( pad.get( ), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, onEvent, self, nullptr );
}

// The time of the clock at which a sample was taken: its running time after the moment at which the pipeline's time began.
void readTime( GstAppSink* sink, GstSample* sample, GCaptureSample& out )
{
    const GstClockTime stamp = GST_BUFFER_PTS( gst_sample_get_buffer( sample ) );
    out.error = -1;
    if( !GST_CLOCK_TIME_IS_VALID( stamp ) ) return;
    const GstClockTime running =
        gst_segment_to_running_time( gst_sample_get_segment( sample ), GST_FORMAT_TIME, stamp );
    const GstClockTime base = gst_element_get_base_time( GST_ELEMENT( sink ) );
    const GstClockTime time = base + ( GST_CLOCK_TIME_IS_VALID( running ) ? running : 0 );
    out.time = static_cast<int64_t>( time / NANOSECONDS_PER_UNIT );
    out.hasTime = true;
}
} // namespace

GCaptureVideoEnd::GCaptureVideoEnd( _GVideoTapFilter& tap, std::function<void( )> changed )
    : _tap( tap ), _changed( std::move( changed ) )
{
    gst_video_info_init( &_info );
}

GstElement* GCaptureVideoEnd::build( const GCaptureWish& wish, std::string_view subtype, bool isFile, bool isShapeless )
{
    const GString shape = isShapeless ? "capssetter caps=video/x-raw,pixel-aspect-ratio=1/1 ! " : "";
    const int fileWidth = std::max( LEAST_FILE_WIDTH, wish.width * 4 / 3 );
    const int fileHeight = std::max( LEAST_FILE_HEIGHT, wish.height );
    const GString limits = isFile ? "width=[1," + std::to_string( fileWidth ) + "],height=[1," +
                                        std::to_string( fileHeight ) + "],pixel-aspect-ratio=1/1,"
                                  : "";
    // A file is read as fast as its pictures are taken, a camera loses what comes too fast.
    const GString pace = isFile ? " ! queue max-size-buffers=4 ! appsink max-buffers=4 sync=true"
                                : " ! queue max-size-buffers=4 leaky=downstream ! appsink max-buffers=4 drop=true "
                                  "sync=false";
    GstElement* branch = parseBranch( shape + "videorate drop-only=true max-rate=" + std::to_string( wish.fps ) +
                                          " ! videoconvert ! videoscale ! video/x-raw," + limits + "format=" +
                                          GCaptureLibraryName( subtype ) + pace + " name=\"" + VIDEO_RENDERER + "\"",
                                      "_GVideoTapFilter" );
    listenTo( branch, VIDEO_RENDERER, _onSample, _onEvent, this );
    return branch;
}

// Formats and orientations come before the samples that they belong to, and the orientation after the format.
GstPadProbeReturn GCaptureVideoEnd::_onEvent( GstPad*, GstPadProbeInfo* info, gpointer self )
{
    GCaptureVideoEnd& end = *static_cast<GCaptureVideoEnd*>( self );
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT( info );
    if( GST_EVENT_TYPE( event ) == GST_EVENT_CAPS ) end._isNew = true;
    if( GST_EVENT_TYPE( event ) != GST_EVENT_TAG ) return GST_PAD_PROBE_OK;
    GstTagList* tags = nullptr;
    gst_event_parse_tag( event, &tags );
    gchar* orientation = nullptr;
    if( !gst_tag_list_get_string( tags, GST_TAG_IMAGE_ORIENTATION, &orientation ) ) return GST_PAD_PROBE_OK;
    end._bottomUp = g_strcmp0( orientation, "flip-rotate-180" ) == 0;
    end._isNew = true;
    g_free( orientation );
    return GST_PAD_PROBE_OK;
}

void GCaptureVideoEnd::_connect( const GstCaps* caps )
{
    GBitmapInfoHeader header;
    const bool isVideo = caps && GCaptureReadHeader( caps, _bottomUp, header );
    if( isVideo ) gst_video_info_from_caps( &_info, caps );
    const bool was = _tap.isConnected( );
    const bool is = _tap.completeConnect( header );
    _changed( );
    if( was != is ) GCaptureWatch::tell( );
}

GstFlowReturn GCaptureVideoEnd::_onSample( GstAppSink* sink, gpointer self )
{
    GCaptureVideoEnd& end = *static_cast<GCaptureVideoEnd*>( self );
    GstSample* sample = gst_app_sink_pull_sample( sink );
    if( !sample ) return GST_FLOW_EOS;
    end._fresh = true;
    if( end._isNew )
    {
        end._isNew = false;
        end._connect( gst_sample_get_caps( sample ) );
    }
    end._transform( sink, sample );
    gst_sample_unref( sample );
    return GST_FLOW_OK;
}

void GCaptureVideoEnd::_transform( GstAppSink* sink, GstSample* sample )
{
    GCaptureSample taken;
    readTime( sink, sample, taken );
    GstBuffer* buffer = gst_sample_get_buffer( sample );
    GstMapInfo map;
    if( !gst_buffer_map( buffer, &map, GST_MAP_READ ) ) return _tap.Transform( taken );
    const GstVideoMeta* meta = gst_buffer_get_video_meta( buffer );
    const gsize offset = meta ? meta->offset[0] : 0;
    taken.stride = meta ? meta->stride[0] : GST_VIDEO_INFO_PLANE_STRIDE( &_info, 0 );
    taken.data = reinterpret_cast<const char*>( map.data ) + std::min( offset, map.size );
    taken.length = static_cast<int64_t>( map.size - std::min( offset, map.size ) );
    _tap.Transform( taken );
    gst_buffer_unmap( buffer, &map );
}

GCaptureAudioEnd::GCaptureAudioEnd( _GAudioTapFilter& tap, std::function<void( )> changed )
    : _tap( tap ), _changed( std::move( changed ) )
{
}

GstElement* GCaptureAudioEnd::build( const GCaptureWish& wish, bool isFile )
{
    GstElement* branch =
        parseBranch( "audioconvert ! audioresample ! audio/x-raw,format=S16LE,layout=interleaved,channels=1,rate=" +
                         std::to_string( wish.frequency ) + " ! queue ! appsink max-buffers=50 drop=true sync=" +
                         ( isFile ? "true" : "false" ) + " name=\"" + AUDIO_RENDERER + "\"",
                     "_GAudioTapFilter" );
    listenTo( branch, AUDIO_RENDERER, _onSample, _onEvent, this );
    return branch;
}

GstPadProbeReturn GCaptureAudioEnd::_onEvent( GstPad*, GstPadProbeInfo* info, gpointer self )
{
    GCaptureAudioEnd& end = *static_cast<GCaptureAudioEnd*>( self );
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT( info );
    if( GST_EVENT_TYPE( event ) != GST_EVENT_CAPS ) return GST_PAD_PROBE_OK;
    GstCaps* caps = nullptr;
    gst_event_parse_caps( event, &caps );
    GAudioFormat format;
    if( !GCaptureReadFormat( caps, format ) ) return GST_PAD_PROBE_OK;
    end._tap.completeConnect( format );
    end._changed( );
    return GST_PAD_PROBE_OK;
}

GstFlowReturn GCaptureAudioEnd::_onSample( GstAppSink* sink, gpointer self )
{
    GCaptureAudioEnd& end = *static_cast<GCaptureAudioEnd*>( self );
    GstSample* sample = gst_app_sink_pull_sample( sink );
    if( !sample ) return GST_FLOW_EOS;
    end._fresh = true;
    GCaptureSample taken;
    readTime( sink, sample, taken );
    GstBuffer* buffer = gst_sample_get_buffer( sample );
    GstMapInfo map;
    const bool mapped = gst_buffer_map( buffer, &map, GST_MAP_READ );
    if( mapped )
    {
        taken.data = reinterpret_cast<const char*>( map.data );
        taken.length = static_cast<int64_t>( map.size );
    }
    end._tap.Transform( taken );
    if( mapped ) gst_buffer_unmap( buffer, &map );
    gst_sample_unref( sample );
    return GST_FLOW_OK;
}
