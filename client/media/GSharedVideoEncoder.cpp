#include "client/media/GSharedVideoEncoder.h"

#include "client/media/GSendTogether.h"

#include <algorithm>

namespace
{
constexpr uint64_t SECOND = 1000000;
// A lost picture is repaired within this time.
constexpr uint64_t LIFE = 8 * SECOND;
// The longest that other encoders can put that off.
constexpr uint64_t GREATEST_DELAY = 4 * SECOND;
// The least time between two fresh starts for streams that join.
constexpr uint64_t JOIN_SPACING = SECOND / 2;
} // namespace

GSharedVideoEncoder::GSharedVideoEncoder( GInstance* instance, GMegaPort* port, int fps )
    : _port( port ), _fps( fps ), _encoding( instance )
{
    GPRECONDITION( fps > 0 );
}

void GSharedVideoEncoder::add( GVideoCaptureStream* stream )
{
    const auto place = std::find_if( _viewers.begin( ), _viewers.end( ),
                                     [stream]( const Viewer& viewer )
                                     { return viewer.stream->getSendFrom( ) == stream->getSendFrom( ); } );
    _viewers.insert( place, { stream, true } );
    ++_waiting;
    _datagrams.reserve( _viewers.size( ) );
}

bool GSharedVideoEncoder::remove( const GVideoCaptureStream* stream )
{
    const auto viewer = std::find_if( _viewers.begin( ), _viewers.end( ),
                                      [stream]( const Viewer& one ) { return one.stream == stream; } );
    if( viewer == _viewers.end( ) ) return false;
    _waiting -= viewer->waits;
    _viewers.erase( viewer );
    return true;
}

bool GSharedVideoEncoder::_isStartDue( uint64_t timestamp, bool mayRefresh ) const
{
    const uint64_t age = timestamp - _lastStart;
    return ( _waiting && age >= JOIN_SPACING ) || ( age > LIFE && ( mayRefresh || age > LIFE + GREATEST_DELAY ) );
}

void GSharedVideoEncoder::_start( uint64_t timestamp, const GImageFormat& format )
{
    if( _encoding.isMadeFor( format ) )
        _encoding.startAfresh( true, _fps );
    else
        _encoding.make( format, true, _fps );
    _lastStart = timestamp;
}

bool GSharedVideoEncoder::onVideoFrame( uint64_t timestamp, const GImageFormat& format, const char* buffer, int length,
                                        bool mayRefresh )
{
    const bool isDue = timestamp - _lastPicture > SECOND / static_cast<uint64_t>( _fps );
    const bool isStart = _isStartDue( timestamp, mayRefresh ) && ( isDue || _waiting );
    if( !isDue && !isStart ) return false;
    if( isStart || !_encoding.isMadeFor( format ) ) _start( timestamp, format );
    if( !_encoding.isMade( ) ) return false;
    _lastPicture = timestamp;
    const GString& frame = _encoding.encode( buffer, length );
    if( !frame.empty( ) ) _send( timestamp, frame );
    // The encoder also makes one of its own accord, when the scene changes.
    if( _encoding.isKeyPicture( ) ) _lastStart = timestamp;
    return _encoding.isKeyPicture( );
}

void GSharedVideoEncoder::_send( uint64_t timestamp, const GString& frame )
{
    const bool isKeyPicture = _encoding.isKeyPicture( );
    GSendTogether together( *_port, _datagrams );
    for( Viewer& viewer : _viewers )
    {
        if( viewer.waits && !isKeyPicture ) continue;
        viewer.waits = false;
        together.add( viewer.stream->getSendFrom( ),
                      viewer.stream->composeVideo( timestamp, _encoding.getEdge( ), frame ) );
    }
    if( isKeyPicture ) _waiting = 0;
}
