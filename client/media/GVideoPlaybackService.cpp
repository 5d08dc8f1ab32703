#include "client/media/GVideoPlaybackService.h"

#include "platform/GTime.h"

#include <algorithm>

namespace
{
// The longest wait, when no stream wants to run earlier; packets and commands end it at once.
constexpr int64_t REST = 5000000;
// Packets of a round: commands and clocks must not wait for the end of a flood.
constexpr int MOST_BUCKETS = 256;
constexpr char16_t QUEUE[] = u"GVideoPlaybackService_commandQueue";
} // namespace

GVideoPlaybackService::GVideoPlaybackService( GInstance* instance, GMegaPort* port )
    : _instance( instance ), _port( port )
{
    _instance->setWaker( QUEUE, _port->getRTPEvent( GRTP_AUDIO ) );
    _setWaker( _port->getRTPEvent( GRTP_AUDIO ) );
}

GVideoPlaybackService::~GVideoPlaybackService( )
{
    stop( true );
    _instance->setWaker( QUEUE, nullptr );
}

int GVideoPlaybackService::_bGThreadObject_safe_onLoop( )
{
    pass( REST );
    return 0;
}

void GVideoPlaybackService::pass( int64_t timeout )
{
    const bool drained = _drainBuckets( );
    _drainCommands( );
    const int64_t next = _updateStreams( );
    // The event of those that are left was taken already.
    const int64_t wait = drained ? std::min( timeout, next ) : 0;
    unlock( );
    _port->waitForRTPBucket( wait, GRTP_AUDIO, GRTP_VIDEO );
    lock( );
}

// How long all of them can wait.
int64_t GVideoPlaybackService::_updateStreams( )
{
    const uint64_t now = GTimeGetTime( );
    uint64_t next = now + REST;
    for( const auto& [name, stream] : _nameStreamMap )
    {
        // A clock that was set back must not leave a stream waiting.
        const uint64_t due = stream->getNextUpdate( );
        if( due <= now || ( due != UINT64_MAX && due - now > static_cast<uint64_t>( REST ) ) ) stream->update( );
        next = std::min( next, stream->getNextUpdate( ) );
    }
    return static_cast<int64_t>( std::max( next, now ) - now );
}

void GVideoPlaybackService::_bGThreadObject_safe_onShutdown( )
{
    GLOGIF( 'v', _nameStreamMap.size( ), u" live playback streams on close, stopping." );
    while( !_nameStreamMap.empty( ) ) _deleteStream( _nameStreamMap.begin( )->first );
}

// Whether nothing is left.
bool GVideoPlaybackService::_drainBuckets( )
{
    for( int taken = 0; taken < MOST_BUCKETS; ++taken )
    {
        GMegaPortBucket* bucket = _port->getRTPBucket( GRTP_AUDIO );
        if( !bucket ) bucket = _port->getRTPBucket( GRTP_VIDEO );
        if( !bucket ) return true;
        _onBucket( *bucket );
        _port->returnEmptyBucket( bucket );
    }
    return false;
}

void GVideoPlaybackService::_onBucket( const GMegaPortBucket& bucket )
{
    GLOGIF( 'V', u"Received ", bucket.buffer.size( ), u"bytes from (", bucket.remoteHost, u")" );
    const auto found = _remoteHostStreamMap.find( bucket.remoteHost );
    GVideoPlaybackStream* stream = found == _remoteHostStreamMap.end( ) ? nullptr : found->second;
    if( GRTPIsRTCPSR( bucket.buffer.data( ), static_cast<int>( bucket.buffer.size( ) ) ) )
        _onSenderReport( bucket, stream );
    else if( stream )
        stream->recv( bucket );
    else
        GLOG( u"WARNING Received unexpected ", bucket.buffer.size( ), u"bytes from (", bucket.remoteHost,
              u"), ignoring." );
}

void GVideoPlaybackService::_onSenderReport( const GMegaPortBucket& bucket, const GVideoPlaybackStream* stream )
{
    const int length = static_cast<int>( bucket.buffer.size( ) );
    GWString cname;
    const bool good = length > GRTCPSR_FIXED_SIZE && GRTCPSRDecompose( bucket.buffer.data( ), length, cname );
    if( stream && good )
        GVERIFY_TEXT( GCaseEquals( stream->getName( ), cname ), "GCaseEquals( stream->getName( ), cname )" );
    else if( stream )
        GLOG( u"WARNING Received malformed RTCP-SR from '", stream->getName( ), u"' (", bucket.remoteHost,
              u"), ignoring." );
    else if( good )
        GLOG( u"WARNING Received unexpected RTCP-SR from '", cname, u"' (", bucket.remoteHost, u"), ignoring." );
    else
        GLOG( u"WARNING Received unexpected ", length, u"bytes from (", bucket.remoteHost, u"), ignoring." );
}

void GVideoPlaybackService::_drainCommands( )
{
    GString item;
    while( _instance->dequeue( QUEUE, item ) )
    {
        GHTTPHeaders command;
        if( !command.deserialize( item ) )
        {
            GLOG( u"WARNING Malformed command sent to 'GVideoPlaybackService_commandQueue', ignoring." );
            continue;
        }
        const GWString method = command.getMethod( );
        GLOGIF( 'v', u"Processing '", method, u"' command" );
        if( method == u"OPEN" )
            _onOpen( command );
        else if( method == u"CLOSE" )
            _onClose( command );
        else
            GLOG( u"WARNING Unsupported command '", method,
                  u"' sent to GVideoPlaybackService_commandQueue, ignoring." );
    }
}

void GVideoPlaybackService::_onOpen( const GHTTPHeaders& command )
{
    const GWString name = command.get( u"Buddy-Device-GUID" );
    if( GMAPCONTAINS( _nameStreamMap, name ) )
    {
        GLOG( u"Received 'OPEN' request for playback stream '", name, u"' that is already open, resetting." );
        _deleteStream( name );
    }
    else
        GLOGIF( 'v', u"Received 'OPEN' request, beginning playback for '", name, u"'" );
    GVideoPlaybackStream* stream = GSAFENEW( GVideoPlaybackStream, ( _instance, _port, command ) );
    _nameStreamMap[name] = stream;
    _remoteHostStreamMap[command.get( u"Recv-From-Host" )] = stream;
}

void GVideoPlaybackService::_onClose( const GHTTPHeaders& command )
{
    const GWString name = command.get( u"Buddy-Device-GUID" );
    if( !GMAPCONTAINS( _nameStreamMap, name ) )
    {
        GLOG( u"Received 'CLOSE' request, but no stream named '", name, u"'; ignoring." );
        return;
    }
    GLOGIF( 'v', u"Received 'CLOSE' request, stopping playback of queue '", name );
    _deleteStream( name );
}

void GVideoPlaybackService::_deleteStream( const GWString& name )
{
    const auto found = _nameStreamMap.find( name );
    GPRECONDITION_TEXT( found != _nameStreamMap.end( ), "GMAPCONTAINS( _nameStreamMap, name )" );
    GVideoPlaybackStream* stream = found->second;
    // Another device may have taken the host over since.
    const size_t dead =
        std::erase_if( _remoteHostStreamMap, [stream]( const auto& entry ) { return entry.second == stream; } );
    GVERIFY_TEXT( dead > 0, "!deadHostList.empty( )" );
    _nameStreamMap.erase( found );
    delete stream;
}
