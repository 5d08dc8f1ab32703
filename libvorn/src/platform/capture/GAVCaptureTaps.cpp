#include "platform/capture/GAVCaptureTaps.h"

#include "base/GPortable.h"
#include "image/GImage.h"
#include "platform/GThread.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cstring>

namespace
{
// The clock time at which a sample was taken: its running time after the moment the pipeline's clock began.
uint64_t timeOf( GstAppSink* sink, GstSample* sample, bool& reported )
{
    const GstClockTime stamp = GST_BUFFER_PTS( gst_sample_get_buffer( sample ) );
    if( !GST_CLOCK_TIME_IS_VALID( stamp ) )
    {
        if( !reported ) GLOG( u"WARNING Failed to get timestamp, only reporting once.  Error ", -1 );
        reported = true;
        return GTimeGetTime( );
    }
    if( reported ) GLOG( u"WARNING Succeeded getting timestamp after previous failure." );
    reported = false;
    const GstClockTime running =
        gst_segment_to_running_time( gst_sample_get_segment( sample ), GST_FORMAT_TIME, stamp );
    const GstClockTime base = gst_element_get_base_time( GST_ELEMENT( sink ) );
    return ( base + ( GST_CLOCK_TIME_IS_VALID( running ) ? running : 0 ) ) / 1000;
}

template <typename Listener>
void addListener( std::mutex& mutex, std::list<Listener*>& list, Listener* listener )
{
    GPRECONDITION( listener );
    const std::scoped_lock lock( mutex );
    list.push_back( listener );
}

template <typename Listener>
void removeListener( std::mutex& mutex, std::list<Listener*>& list, Listener* listener )
{
    const std::scoped_lock lock( mutex );
    const auto found = std::find( list.begin( ), list.end( ), listener );
    GASSERT_TEXT( found != list.end( ), "it != _listenerList.end( )" );
    if( found != list.end( ) ) list.erase( found );
}

void listenTo( GstAppSink* sink, GstFlowReturn ( *onSample )( GstAppSink*, gpointer ), gpointer self )
{
    GstAppSinkCallbacks callbacks{ };
    callbacks.new_sample = onSample;
    gst_app_sink_set_callbacks( sink, &callbacks, self, nullptr );
}
} // namespace

uint64_t GCaptureStamps::next( uint64_t time )
{
    uint64_t stamp = time + static_cast<uint64_t>( _offset );
    if( _last && stamp <= _last )
    {
        _offset += static_cast<int64_t>( _last - stamp + _increment );
        stamp = _last + _increment;
    }
    else if( _last )
        _increment = stamp - _last;
    _last = stamp;
    return stamp;
}

void _GVideoTapFilter::attach( GstAppSink* sink )
{
    listenTo( sink, _onSample, this );
}

void _GVideoTapFilter::subscribe( IGCaptureVideoListener* listener )
{
    addListener( _mutex, _listenerList, listener );
}

void _GVideoTapFilter::unsubscribe( IGCaptureVideoListener* listener )
{
    removeListener( _mutex, _listenerList, listener );
}

bool _GVideoTapFilter::isFree( )
{
    const std::scoped_lock lock( _mutex );
    return _listenerList.empty( );
}

GstFlowReturn _GVideoTapFilter::_onSample( GstAppSink* sink, gpointer self )
{
    _GVideoTapFilter& tap = *static_cast<_GVideoTapFilter*>( self );
    GstSample* sample = gst_app_sink_pull_sample( sink );
    if( !sample ) return GST_FLOW_EOS;
    if( !tap._registered ) GThreadRegister( u"_GVideoTapFilter" );
    tap._registered = true;
    tap._transform( sample, timeOf( sink, sample, tap._reported ) );
    gst_sample_unref( sample );
    return GST_FLOW_OK;
}

void _GVideoTapFilter::_transform( GstSample* sample, uint64_t time )
{
    GstVideoInfo info;
    GstVideoFrame frame;
    if( !gst_video_info_from_caps( &info, gst_sample_get_caps( sample ) ) ||
        !gst_video_frame_map( &frame, &info, gst_sample_get_buffer( sample ), GST_MAP_READ ) )
    {
        if( !_failed ) GLOG( u"WARNING Unable to get sample pointer, only reporting once.  Error ", -1 );
        _failed = true;
        return;
    }
    const int type = GST_VIDEO_INFO_FORMAT( &info ) == GST_VIDEO_FORMAT_YUY2 ? GIT_YUY2 : GIT_RGB24;
    const GImageFormat format{ type, GST_VIDEO_FRAME_WIDTH( &frame ), GST_VIDEO_FRAME_HEIGHT( &frame ) };
    const size_t row = static_cast<size_t>( format.width ) * static_cast<size_t>( GImageBytesPerPixel( type ) );
    const size_t stride = static_cast<size_t>( GST_VIDEO_FRAME_PLANE_STRIDE( &frame, 0 ) );
    const char* pixels = static_cast<const char*>( GST_VIDEO_FRAME_PLANE_DATA( &frame, 0 ) );
    if( stride != row )
    {
        _tight.resize( row * static_cast<size_t>( format.height ) );
        for( size_t y = 0; y < static_cast<size_t>( format.height ); y++ )
            std::memcpy( _tight.data( ) + y * row, pixels + y * stride, row );
        pixels = _tight.data( );
    }
    const uint64_t stamp = _stamps.next( time );
    {
        const std::scoped_lock lock( _mutex );
        for( IGCaptureVideoListener* listener : _listenerList )
            listener->onVideoFrame( stamp, format, pixels, static_cast<int>( GImageSize( format ) ) );
    }
    gst_video_frame_unmap( &frame );
}

void _GAudioTapFilter::configure( const GAudioFormat& format, int chunkBytes )
{
    _format = format;
    _chunkBytes = static_cast<size_t>( chunkBytes );
}

void _GAudioTapFilter::attach( GstAppSink* sink )
{
    listenTo( sink, _onSample, this );
}

void _GAudioTapFilter::subscribe( IGCaptureAudioListener* listener )
{
    addListener( _mutex, _listenerList, listener );
}

void _GAudioTapFilter::unsubscribe( IGCaptureAudioListener* listener )
{
    removeListener( _mutex, _listenerList, listener );
}

bool _GAudioTapFilter::isFree( )
{
    const std::scoped_lock lock( _mutex );
    return _listenerList.empty( );
}

GstFlowReturn _GAudioTapFilter::_onSample( GstAppSink* sink, gpointer self )
{
    _GAudioTapFilter& tap = *static_cast<_GAudioTapFilter*>( self );
    GstSample* sample = gst_app_sink_pull_sample( sink );
    if( !sample ) return GST_FLOW_EOS;
    if( !tap._registered ) GThreadRegister( u"_GAudioTapFilter" );
    tap._registered = true;
    tap._transform( gst_sample_get_buffer( sample ), timeOf( sink, sample, tap._reported ) );
    gst_sample_unref( sample );
    return GST_FLOW_OK;
}

uint64_t _GAudioTapFilter::_duration( size_t bytes ) const
{
    return bytes * 1000000 / static_cast<size_t>( _format.bytesPerSample * _format.frequency );
}

void _GAudioTapFilter::_transform( GstBuffer* buffer, uint64_t time )
{
    GstMapInfo map;
    if( !gst_buffer_map( buffer, &map, GST_MAP_READ ) )
    {
        if( !_reported ) GLOG( u"WARNING Failed to get samples, only reporting once.  Error ", -1 );
        _reported = true;
        return;
    }
    uint64_t begin = time - std::min( time, _duration( _pending.size( ) ) );
    _pending.append( reinterpret_cast<const char*>( map.data ), map.size );
    gst_buffer_unmap( buffer, &map );
    size_t at = 0;
    for( ; _pending.size( ) - at >= _chunkBytes; at += _chunkBytes, begin += _duration( _chunkBytes ) )
    {
        const uint64_t stamp = _stamps.next( begin );
        const std::scoped_lock lock( _mutex );
        for( IGCaptureAudioListener* listener : _listenerList )
            listener->onAudioFrame( stamp, _format, _pending.data( ) + at, static_cast<int>( _chunkBytes ) );
    }
    _pending.erase( 0, at );
}
