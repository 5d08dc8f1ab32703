#include "platform/common/GAudioTapFilter.h"

#include "platform/GThread.h"

#include <algorithm>

namespace
{
constexpr uint64_t SECOND = 1000000;
}

void _GAudioTapFilter::configure( const GAudioFormat& format, int frameBytes )
{
    GPRECONDITION( format.bytesPerSample > 0 && format.frequency > 0 && frameBytes > 0 );
    _format = format;
    _frameBytes = static_cast<size_t>( frameBytes );
}

bool _GAudioTapFilter::checkInputType( const GAudioFormat& format ) const
{
    return format.bytesPerSample == _format.bytesPerSample && format.frequency == _format.frequency &&
           format.channels == _format.channels;
}

void _GAudioTapFilter::completeConnect( const GAudioFormat& format )
{
    GASSERT_TEXT( checkInputType( format ),
                  "(pmt.formattype == FORMAT_WaveFormatEx) && (pmt.cbFormat >= sizeof(WAVEFORMATEX))" );
    _connected = true;
}

uint64_t _GAudioTapFilter::_duration( size_t bytes ) const
{
    return bytes * SECOND / static_cast<size_t>( _format.bytesPerSample * _format.channels * _format.frequency );
}

void _GAudioTapFilter::Transform( const GCaptureSample& sample )
{
    if( _thread != GThreadGetCurrent( ) ) GThreadRegister( u"_GAudioTapFilter" );
    _thread = GThreadGetCurrent( );
    if( !_connected ) return;
    if( !sample.data )
    {
        if( !_reported ) GLOG( u"WARNING Failed to get samples, only reporting once.  Error ", sample.error );
        _reported = true;
        return;
    }
    const uint64_t time = _stamps.read( sample );
    // What was left over began before this sample.
    uint64_t begin = time - std::min( time, _duration( _pending.size( ) ) );
    _pending.append( sample.data, static_cast<size_t>( sample.length ) );
    size_t at = 0;
    for( ; _pending.size( ) - at >= _frameBytes; at += _frameBytes, begin += _duration( _frameBytes ) )
    {
        const uint64_t stamp = _stamps.next( begin );
        listeners.each(
            [&]( IGCaptureAudioListener& listener )
            { listener.onAudioFrame( stamp, _format, _pending.data( ) + at, static_cast<int>( _frameBytes ) ); } );
    }
    _pending.erase( 0, at );
}
