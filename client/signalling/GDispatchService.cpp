#include "client/signalling/GDispatchService.h"

#include "client/transport/GHTTPClient.h"
#include "client/transport/GMegaPort.h"
#include "client/transport/GRTP.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

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

bool endsWith( const GWString& text, GWStringView suffix )
{
    return text.size( ) >= suffix.size( ) && GWStringView( text ).substr( text.size( ) - suffix.size( ) ) == suffix;
}
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
        GNetWait( _ports, { }, _sockets, timeout );
    else
        GThreadSleep( timeout );
    lock( );
}

void GDispatchService::_readDatagrams( )
{
    GMegaPortBucket* bucket = _megaPort->getEmtpyBucket( );
    for( int i = 0; i < MAX_DATAGRAMS_PER_PASS && _readOne( *bucket ); ++i )
        if( !bucket->buffer.empty( ) && _sortDatagram( bucket ) ) bucket = _megaPort->getEmtpyBucket( );
    _megaPort->returnEmptyBucket( bucket );
}

// False when nothing is left. What was read and can't be used leaves the buffer empty.
bool GDispatchService::_readOne( GMegaPortBucket& bucket )
{
    if( _udpPort && GNetUDPPortIsAlive( _udpPort ) && GNetUDPPortRecv( _udpPort, bucket.buffer, bucket.remoteHost ) )
    {
        if( !_instance->test( u"Disable_UDP_Recv" ) )
        {
            bucket.localHost = _udpPort->host;
            return true;
        }
    }
    bool usable = false;
    if( !_readRelay( bucket, usable ) ) return false;
    if( !usable ) bucket.buffer.clear( );
    return true;
}

bool GDispatchService::_readRelay( GMegaPortBucket& bucket, bool& usable )
{
    GHTTPHeaders& message = _relayMessage;
    if( !_turnClient || !_turnClient->recv( message ) ) return false;
    if( message.getResponse( ) != GHTTP_SUCCESS ) return false;
    usable = true;
    if( !message.hasContent( ) )
    {
        bucket.buffer = message.serialize( );
        bucket.localHost = _turnClient->getLocalHost( );
        bucket.remoteHost = _turnClient->getRemoteHost( );
        return true;
    }
    const GWString remoteHost = message.get( GProtocol::REMOTE_HOST );
    if( !GNetIsUnicastHost( remoteHost ) )
    {
        GLOG( u"WARNING Received relay data from TURN server with invalid remote host (", remoteHost, u"), ignoring." );
        usable = false;
        return true;
    }
    bucket.buffer = message.getContent( 0 );
    bucket.localHost = _instance->get( u"Global_Host" );
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
    GHTTPHeaders message;
    if( !message.deserialize( bucket->buffer ) )
    {
        GLOGIF( 'P', u"Received invalid SIP packet, ignoring." );
        return false;
    }
    if( endsWith( message.get( GProtocol::CSEQ ), CSEQ_SUFFIX ) )
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
    const int cseq = static_cast<int>( GCalc( message.get( GProtocol::CSEQ ) ) );
    const auto found = _cseqRequestMap.find( cseq );
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
