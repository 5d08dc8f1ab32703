#include "client/signalling/GDispatchService.h"

#include "client/transport/GHTTPClient.h"
#include "client/transport/GMegaPort.h"
#include "client/transport/GRTP.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

#include <algorithm>
#include <utility>

namespace
{
constexpr int64_t WAIT_FOR_TRAFFIC = 500000;
constexpr int64_t REQUEST_TIMEOUT = 5500000;
constexpr int64_t RETRY_PERIOD = 1000000;
constexpr int64_t REGISTER_PERIOD = 900000000;
constexpr int64_t REFUSAL_PERIOD = 30000000;
constexpr int64_t RELAY_PERIOD = 30000000;
// A flood must not keep the loop from its timers.
constexpr int MAX_DATAGRAMS_PER_PASS = 256;
constexpr GWStringView CSEQ_SUFFIX = u" (GDispatchService)";
constexpr char16_t COMMAND_QUEUE[] = u"GDispatchService_commandQueue";
} // namespace

GDispatchService::GDispatchService( GInstance* instance, GMegaPort* megaPort )
    : _instance( instance ), _megaPort( megaPort ), _requestTimer( REQUEST_TIMEOUT ), _retryTimer( RETRY_PERIOD ),
      _pingTimer( RETRY_PERIOD ), _registerTimer( REGISTER_PERIOD ), _refusalTimer( REFUSAL_PERIOD ),
      _relayTimer( RELAY_PERIOD )
{
    invariantTest( );
}

GDispatchService::~GDispatchService( )
{
    stop( true );
    _returnBuckets( );
    GVERIFY( !_turnClient );
    for( GUPnPTask* task : _abandonedMappings ) delete task;
}

void GDispatchService::invariantTest( ) const
{
    GThreadObject::invariantTest( );
    GASSERT( _instance );
    GASSERT( _megaPort );
}

int GDispatchService::_bGThreadObject_safe_onLoop( )
{
    pass( WAIT_FOR_TRAFFIC );
    return 0;
}

void GDispatchService::_bGThreadObject_safe_onShutdown( )
{
    _reset( );
    _returnBuckets( );
}

void GDispatchService::pass( int64_t timeout )
{
    GCALL( GDispatchService );
    _wait( timeout );
    _readDatagrams( );
    _runCommands( );
    Input update;
    update.eventID = UPDATE;
    _fsm_onInput( update );
    _serveRelay( );
    _serveUPnP( );
}

void GDispatchService::_wait( int64_t timeout )
{
    _ports.clear( );
    _sockets.clear( );
    if( _udpPort ) _ports.push_back( _udpPort );
    if( _turnClient && _turnClient->getTCPSocket( ) ) _sockets.push_back( _turnClient->getTCPSocket( ) );
    const bool open = _udpPort;
    unlock( );
    if( open )
        GNetWait( _ports, { }, _sockets, _isBehind ? 0 : timeout );
    else
        GThreadSleep( timeout );
    lock( );
}

// By turns, so that a flood of one does not keep the other from being read.
void GDispatchService::_readDatagrams( )
{
    _megaPort->beginFill( );
    int left = MAX_DATAGRAMS_PER_PASS;
    for( bool port = true, relay = true; left > 0 && ( port || relay ); )
    {
        port = port && _readPort( left );
        relay = relay && left > 0 && _readRelay( left );
    }
    _isBehind = left == 0;
    _megaPort->endFill( );
}

void GDispatchService::_takeBuckets( int count )
{
    _megaPort->getEmptyBuckets( _batch.data( ), count );
}

void GDispatchService::_returnBuckets( )
{
    for( GMegaPortBucket*& bucket : _batch )
        if( bucket ) _megaPort->returnEmptyBucket( std::exchange( bucket, nullptr ) );
}

// A batch from the UDP port; false when nothing is left. What one datagram leads to may close the port: the rest is dropped then.
bool GDispatchService::_readPort( int& left )
{
    if( !_udpPort || !GNetUDPPortIsAlive( _udpPort ) ) return false;
    const int asked = std::min( left, BATCH );
    _takeBuckets( asked );
    std::array<GNetDatagram*, BATCH> datagrams;
    std::copy_n( _batch.begin( ), asked, datagrams.begin( ) );
    const int count = GNetUDPPortRecvBatch( _udpPort, datagrams.data( ), asked );
    left -= count;
    const bool dropped = count > 0 && _instance->test( u"Disable_UDP_Recv" );
    for( size_t i = 0; i < static_cast<size_t>( count ) && _udpPort && !dropped; ++i )
    {
        _batch[i]->localHost = _udpPort->host;
        if( _sortDatagram( _batch[i] ) ) _batch[i] = nullptr;
    }
    return count > 0;
}

// A batch of messages from the relay; false when nothing is left.
bool GDispatchService::_readRelay( int& left )
{
    for( int i = 0; i < BATCH && left > 0; ++i, --left )
    {
        if( !_turnClient || !_turnClient->recv( _relayMessage ) ) return false;
        // A refusal ends the reading: what was asked for only times out.
        if( _relayMessage.getResponse( ) != GHTTP_SUCCESS ) return false;
        _takeBuckets( 1 );
        if( _fillFromRelay( *_batch.front( ) ) && _sortDatagram( _batch.front( ) ) ) _batch.front( ) = nullptr;
    }
    return true;
}

// Unpacks what the relay said: its own message, or a datagram of the host that it names. False when it names none.
bool GDispatchService::_fillFromRelay( GMegaPortBucket& bucket )
{
    if( !_relayMessage.hasContent( ) )
    {
        _relayMessage.serialize( bucket.buffer );
        bucket.localHost = _turnClient->getLocalHost( );
        bucket.remoteHost = _turnClient->getRemoteHost( );
        return true;
    }
    const GWStringView remoteHost = _relayMessage.headers( ).get( GProtocol::REMOTE_HOST );
    if( !GNetIsUnicastHost( remoteHost ) )
    {
        GLOG( u"WARNING Received relay data from TURN server with invalid remote host (", remoteHost, u"), ignoring." );
        return false;
    }
    bucket.buffer = _relayMessage.getContent( 0 );
    _instance->get( u"Global_Host", bucket.localHost );
    bucket.remoteHost = remoteHost;
    GLOGIF( 'P', u"Received relay data from (", remoteHost, u")" );
    return true;
}

// With the remedy a client that renews its registration still takes traffic.
bool GDispatchService::_isOnlineForTraffic( ) const
{
    return _state == ONLINE || ( _robust && _state == REREGISTERING );
}

// True when the bucket was handed on. Media first: the test is one comparison.
bool GDispatchService::_sortDatagram( GMegaPortBucket* bucket )
{
    const int length = static_cast<int>( bucket->buffer.size( ) );
    GRTPHeader header;
    int remaining = 0;
    if( GDecomposeRTP( bucket->buffer.data( ), length, header, remaining ) )
    {
        if( _isOnlineForTraffic( ) )
        {
            _megaPort->fillRTPBucket( bucket );
            return true;
        }
        GLOG( u"WARNING Received ", length, u" RTP bytes but not ONLINE, ignoring." );
        return false;
    }
    GHTTPHeaders& message = _message;
    if( !message.deserialize( bucket->buffer ) )
    {
        GLOGIF( 'P', u"Received invalid SIP packet, ignoring." );
        return false;
    }
    if( message.headers( ).get( GProtocol::CSEQ ).ends_with( CSEQ_SUFFIX ) )
    {
        _receiveOwn( bucket->remoteHost, message );
        return false;
    }
    if( _isOnlineForTraffic( ) )
    {
        _megaPort->fillSIPBucket( bucket );
        return true;
    }
    if( message.getResponse( ) )
        GLOG( u"WARNING Received response ", message.getResponse( ), u" but not ONLINE, ignoring." );
    else
        GLOG( u"WARNING Recieved request '", message.getMethod( ), u"' but not ONLINE, ignoring." );
    return false;
}

// Takes a response only from the host that was asked; a STUN request asks two more hosts on our behalf.
void GDispatchService::_receiveOwn( const GWString& fromHost, const GHTTPHeaders& message )
{
    if( !message.getResponse( ) )
    {
        GLOG( u"WARNING Received unexpected '", message.getMethod( ), u"' request from (", fromHost, u")" );
        return;
    }
    const int64_t cseq = GCalc( message.headers( ).get( GProtocol::CSEQ ) );
    const auto found = _cseqRequestMap.find( GWITHIN( 0, cseq, INT32_MAX ) ? static_cast<int>( cseq ) : 0 );
    if( !GVERIFY_TEXT( found != _cseqRequestMap.end( ), "GMAPCONTAINS( _cseqRequestMap, cseq )" ) ) return;
    const GHTTPHeaders originalRequest = found->second.message;
    const bool asksOthers = originalRequest.contains( GProtocol::INDIRECT_HOST_LIST );
    if( !asksOthers && !GCaseEquals( fromHost, found->second.host ) )
    {
        GLOG( u"WARNING Received response from (", fromHost, u") to a request to (", found->second.host,
              u"), ignoring." );
        return;
    }
    Input in;
    in.fromRemoteHost = fromHost;
    in.originalRequest = &originalRequest;
    in.recvResponse = &message;
    in.isMappingTest = found->second.isMappingTest;
    _fsm_onInput( in );
}

void GDispatchService::_runCommands( )
{
    GString item;
    while( _instance->dequeue( COMMAND_QUEUE, item ) )
    {
        GHTTPHeaders command;
        if( !command.deserialize( item ) )
        {
            GLOG( u"WARNING Malformed command sent to 'GDispatchService_commandQueue', ignoring." );
            continue;
        }
        Input in;
        in.command = command.getMethod( );
        _fsm_onInput( in );
    }
}

void GDispatchService::_serveRelay( )
{
    if( _turnClient && !_turnClient->isAlive( ) )
    {
        GLOG( u"WARNING 'TURN' request failed (or timed out), disconnected." );
        _disconnect( );
    }
    if( !_turnClient ) return;
    if( _isArmed )
    {
        _megaPort->flush( );
        if( _relayTimer.hasElapsed( ) ) _keepRelayAlive( );
        return;
    }
    _turnClient->update( 0 );
}

void GDispatchService::_serveUPnP( )
{
    std::erase_if( _abandonedMappings,
                   []( GUPnPTask* task )
                   {
                       if( !task->isDone( ) ) return false;
                       delete task;
                       return true;
                   } );
    GWString host;
    if( !_upnpMapping || !_upnpMapping->poll( host ) ) return;
    if( host.empty( ) )
    {
        GLOG( u"UPnP failed, ignoring." );
        return;
    }
    GLOG( u"Opened UPnP mapping for (", _upnpMapping->getLocalHost( ), u") with (<invalid>)" );
    if( _robust ) _offerUPnPRoute( host );
}
