#include "client/transport/GMegaPort.h"

#include "base/GUtil.h"
#include "client/transport/GRTP.h"
#include "client/transport/GRelayFrame.h"

#include <utility>

namespace
{
constexpr int NUM_PAYLOAD_TYPES = 256;
constexpr char16_t NO_HOST[] = u"0.0.0.0:0";
// A consumer that has stopped loses its oldest datagrams beyond so many, or so many bytes of them.
constexpr size_t MAX_BUCKETS_PER_LIST = 2048;
constexpr size_t MAX_BYTES_PER_LIST = 4 << 20;
// A bucket in the pool keeps no more room than this: anyone may send the largest datagrams.
constexpr size_t MAX_KEPT_ROOM = 16384;
// What a bucket has from the start, so that common datagrams never make it grow.
constexpr size_t ROOM = 1472;
constexpr size_t HOST_ROOM = 21; // "255.255.255.255:65535"
constexpr size_t MAX_RELAY_BYTES = 256 * 1024;
constexpr int SUPPORTED_TYPES[] = { GRTP_AUDIO, GRTP_VIDEO, GRTP_FILE, GRTP_SCREEN };
} // namespace

GMegaPort::GMegaPort( const GWString& name )
    : _name( name.empty( ) ? GWString( u"(unknown)" ) : name ), _sendMutex( GMutexOpen( ) ),
      _recvMutex( GMutexOpen( ) ), _rtpBucketListArray( NUM_PAYLOAD_TYPES ), _localHost( NO_HOST ),
      _globalHost( NO_HOST )
{
    GCALL( GMegaPort );
    GASSERT_TEXT( ( _sipBucketList.event = GEventOpen( ) ),
                  "_sipBucketList.event = CreateEventW( 0, false, false, 0 )" );
    GASSERT_TEXT( ( _rtpBucketListArray[GRTP_AUDIO].event = GEventOpen( ) ),
                  "_rtpBucketListArray[GRTP_AUDIO].event = CreateEventW( 0, false, false, 0 )" );
    GASSERT_TEXT( ( _rtpBucketListArray[GRTP_VIDEO].event = GEventOpen( ) ),
                  "_rtpBucketListArray[GRTP_VIDEO].event = CreateEventW( 0, false, false, 0 )" );
    GASSERT_TEXT( ( _rtpBucketListArray[GRTP_FILE].event = GEventOpen( ) ),
                  "_rtpBucketListArray[GRTP_FILE].event = CreateEventW( 0, false, false, 0 )" );
    GASSERT_TEXT( ( _rtpBucketListArray[GRTP_SCREEN].event = GEventOpen( ) ),
                  "_rtpBucketListArray[GRTP_SCREEN].event = CreateEventW( 0, false, false, 0 )" );
    invariantTest( );
}

GMegaPort::~GMegaPort( )
{
    GVERIFY( _numBucketsCreated == (int)_emptyBucketList.size( ) );
    GEventClose( _sipBucketList.event );
    while( GMegaPortBucket* bucket = _sipBucketList.buckets.pop( ) ) delete bucket;
    for( WaitList& list : _rtpBucketListArray )
    {
        if( list.event ) GEventClose( list.event );
        while( GMegaPortBucket* bucket = list.buckets.pop( ) ) delete bucket;
    }
    GMutexClose( _sendMutex );
    GMutexClose( _recvMutex );
    while( GMegaPortBucket* bucket = _emptyBucketList.pop( ) ) delete bucket;
}

void GMegaPort::invariantTest( ) const
{
    GThreadSafeObject::invariantTest( );
    GASSERT( _sendMutex );
    GASSERT( _recvMutex );
    GASSERT( !_localHost.empty( ) );
    GASSERT( !_globalHost.empty( ) );
    GASSERT_TEXT( GValidHost( _localHost ) || GCaseEquals( _localHost, NO_HOST ),
                  "GValidHost( _localHost ) || GCaseEquals( _localHost, L\"0.0.0.0:0\" )" );
    GASSERT_TEXT( GValidHost( _globalHost ) || GCaseEquals( _globalHost, NO_HOST ),
                  "GValidHost( _globalHost ) || GCaseEquals( _globalHost, L\"0.0.0.0:0\" )" );
}

// ---- Sockets, lent by the dispatch service.

void GMegaPort::setUDPPort( GNetUDPPort* udpPort )
{
    GCALL( GMegaPort );
    GPRECONDITION( udpPort );
    const GMutexScope scope( _sendMutex );
    _udpPort = udpPort;
    _localHost = GNetUDPPortGetLocalHost( udpPort );
}

void GMegaPort::setTCPSocket( GNetTCPSocket* tcpSocket, const GWString& globalHost, const GString& unsent )
{
    GCALL( GMegaPort );
    GPRECONDITION( tcpSocket );
    GPRECONDITION( GValidHost( globalHost ) );
    const GMutexScope scope( _sendMutex );
    _tcpSocket = tcpSocket;
    _globalHost = globalHost;
    _relayBuffer = _robust ? unsent : GString( );
}

GWString GMegaPort::getLocalHost( ) const
{
    const GMutexScope scope( _sendMutex );
    return _localHost;
}

GWString GMegaPort::getGlobalHost( ) const
{
    const GMutexScope scope( _sendMutex );
    return _globalHost;
}

void GMegaPort::setRobust( bool robust )
{
    const GMutexScope scope( _sendMutex );
    _robust = robust;
}

void GMegaPort::reset( )
{
    GCALL( GMegaPort );
    {
        const GMutexScope scope( _sendMutex );
        _udpPort = nullptr;
        _tcpSocket = nullptr;
        _localHost = NO_HOST;
        _globalHost = NO_HOST;
        _relayBuffer.clear( );
    }
    while( GMegaPortBucket* bucket = getSIPBucket( ) ) returnEmptyBucket( bucket );
    for( const int type : SUPPORTED_TYPES )
        while( GMegaPortBucket* bucket = getRTPBucket( type ) ) returnEmptyBucket( bucket );
}

// ---- Buckets.

GMegaPortBucket* GMegaPort::getEmtpyBucket( )
{
    GMegaPortBucket* bucket = nullptr;
    getEmptyBuckets( &bucket, 1 );
    return bucket;
}

void GMegaPort::getEmptyBuckets( GMegaPortBucket** buckets, int count )
{
    const GObjectLock lock( *this );
    for( GMegaPortBucket*& bucket : std::span( buckets, static_cast<size_t>( count ) ) )
    {
        if( bucket ) continue;
        bucket = _emptyBucketList.pop( );
        if( bucket ) continue;
        ++_numBucketsCreated;
        bucket = new GMegaPortBucket;
        bucket->buffer.reserve( ROOM );
        bucket->localHost.reserve( HOST_ROOM );
        bucket->remoteHost.reserve( HOST_ROOM );
    }
}

void GMegaPort::returnEmptyBucket( GMegaPortBucket* bucket )
{
    if( bucket->buffer.capacity( ) > MAX_KEPT_ROOM ) GString( ).swap( bucket->buffer );
    const GObjectLock lock( *this );
    _emptyBucketList.push( bucket );
}

// The oldest ones leave a list that is full.
void GMegaPort::_append( WaitList& list, GMegaPortBucket* bucket )
{
    GMegaPortBucketList oldest;
    {
        const GMutexScope scope( _recvMutex );
        list.buckets.push( bucket );
        while( list.buckets.size( ) > MAX_BUCKETS_PER_LIST || list.buckets.getBytes( ) > MAX_BYTES_PER_LIST )
            oldest.push( list.buckets.pop( ) );
    }
    while( GMegaPortBucket* one = oldest.pop( ) ) returnEmptyBucket( one );
}

GMegaPortBucket* GMegaPort::_take( WaitList& list )
{
    const GMutexScope scope( _recvMutex );
    return list.buckets.pop( );
}

bool GMegaPort::_wake( WaitList& list )
{
    list.isFilled = _isFilling;
    return _isFilling || GEventSet( list.event );
}

void GMegaPort::beginFill( )
{
    _isFilling = true;
}

void GMegaPort::endFill( )
{
    _isFilling = false;
    if( std::exchange( _sipBucketList.isFilled, false ) )
        GVERIFY_TEXT( GEventSet( _sipBucketList.event ), "SetEvent( _sipBucketList.event)" );
    for( const int type : SUPPORTED_TYPES )
    {
        WaitList& list = _rtpBucketListArray[static_cast<size_t>( type )];
        if( std::exchange( list.isFilled, false ) ) GVERIFY_TEXT( GEventSet( list.event ), "SetEvent( hEvent )" );
    }
}

void GMegaPort::fillSIPBucket( GMegaPortBucket* bucket )
{
    _append( _sipBucketList, bucket );
    GVERIFY_TEXT( _wake( _sipBucketList ), "SetEvent( _sipBucketList.event)" );
}

void GMegaPort::fillRTPBucket( GMegaPortBucket* bucket )
{
    GRTPHeader header;
    int remaining = 0;
    if( !GDecomposeRTP( bucket->buffer.data( ), static_cast<int>( bucket->buffer.size( ) ), header, remaining ) )
    {
        GLOG( u"WARNING Trying to fill bucket with malformed RTP buffer; ignoring." );
        returnEmptyBucket( bucket );
        return;
    }
    // Sender reports travel with the sound.
    const int type = header.payloadType == GRTP_RTCPSR ? int( GRTP_AUDIO ) : header.payloadType;
    WaitList& list = _rtpBucketListArray[static_cast<size_t>( type )];
    if( !list.event )
    {
        GLOG( u"WARNING Attempting to fill RTP bucket for unsupported payload type #", type, u", ignoring." );
        returnEmptyBucket( bucket );
        return;
    }
    _append( list, bucket );
    GVERIFY_TEXT( _wake( list ), "SetEvent( hEvent )" );
}

GMegaPortBucket* GMegaPort::getSIPBucket( )
{
    return _take( _sipBucketList );
}

GMegaPortBucket* GMegaPort::getRTPBucket( int payloadType )
{
    GPRECONDITION( GWITHIN( 0, payloadType, 255 ) );
    return _take( _rtpBucketListArray[static_cast<size_t>( payloadType )] );
}

// ---- Waiting. The events are handles that live as long as the object, so no lock is needed to read them.

void GMegaPort::waitForSIPBucket( int64_t timeout )
{
    GPRECONDITION( timeout >= 0 );
    GEventWait( _sipBucketList.event, timeout );
}

void GMegaPort::waitForRTPBucket( int64_t timeout, int payloadType )
{
    GPRECONDITION( timeout >= 0 );
    GPRECONDITION( GWITHIN( 0, payloadType, 255 ) );
    if( const GEvent event = _rtpBucketListArray[static_cast<size_t>( payloadType )].event )
    {
        GEventWait( event, timeout );
        return;
    }
    GLOG( u"WARNING Trying to wait on unsupported RTP payload type #", payloadType, u", ignoring." );
    GThreadSleep( timeout );
}

void GMegaPort::waitForRTPBucket( int64_t timeout, int payloadTypeA, int payloadTypeB )
{
    GPRECONDITION( timeout >= 0 );
    GPRECONDITION( GWITHIN( 0, payloadTypeA, 255 ) && GWITHIN( 0, payloadTypeB, 255 ) );
    const GEvent a = _rtpBucketListArray[static_cast<size_t>( payloadTypeA )].event;
    const GEvent b = _rtpBucketListArray[static_cast<size_t>( payloadTypeB )].event;
    if( a && b )
        GEventWaitAny( a, b, timeout );
    else if( a || b )
        GEventWait( a ? a : b, timeout );
    else
    {
        GLOG( u"WARNING Trying to wait on unsupported RTP payload types #", payloadTypeA, u" and #", payloadTypeB,
              u", ignoring." );
        GThreadSleep( timeout );
    }
}

GEvent GMegaPort::getRTPEvent( int payloadType ) const
{
    GPRECONDITION( GWITHIN( 0, payloadType, 255 ) );
    return _rtpBucketListArray[static_cast<size_t>( payloadType )].event;
}

// ---- Sending. The lock is held around the socket call: two senders' framing can't interleave, and no reset removes a port in use.

bool GMegaPort::_goesByRelay( const GWString& from ) const
{
    return _tcpSocket && ( from.empty( ) || GCaseEquals( from, _globalHost ) );
}

// Tells of what is strange before a datagram leaves by UDP; false when it can't.
bool GMegaPort::_isReady( const GWString& from, GWStringView to ) const
{
    if( !_udpPort )
    {
        GLOG( u"WARNING Cannot send from (", from, u") to (", to, u") because not connected, ignoring." );
        return false;
    }
    if( !from.empty( ) && !GCaseEquals( from, _localHost ) )
        GLOG( u"WARNING Possibly send from mismatch: from=(", from, u"), localHost=(", _localHost, u"), globalHost=(",
              _globalHost, u")" );
    return true;
}

void GMegaPort::send( const GWString& from, const GWString& to, const char* buffer, int length )
{
    const GMutexScope scope( _sendMutex );
    if( _goesByRelay( from ) )
    {
        GPRECONDITION( buffer && length >= 0 );
        _sendRelayed( to, std::string_view( buffer, static_cast<size_t>( length ) ) );
        _pushRelayed( );
    }
    else if( _isReady( from, to ) )
        GNetUDPPortSend( _udpPort, to, buffer, length );
}

void GMegaPort::send( const GWString& from, std::span<const GNetOutgoing> datagrams )
{
    if( datagrams.empty( ) ) return;
    const GMutexScope scope( _sendMutex );
    if( _goesByRelay( from ) )
    {
        for( const GNetOutgoing& one : datagrams ) _sendRelayed( one.remoteHost, one.bytes );
        _pushRelayed( );
    }
    else if( _isReady( from, datagrams.front( ).remoteHost ) )
        GNetUDPPortSendBatch( _udpPort, datagrams.data( ), static_cast<int>( datagrams.size( ) ) );
}

// Without the remedy each message has its one call, whose result nobody looks at.
void GMegaPort::_sendRelayed( GWStringView to, std::string_view bytes )
{
    const size_t begin = _relayBuffer.size( );
    GRelayFrameAppend( _relayBuffer, to, bytes );
    if( !_robust )
    {
        GNetTCPSocketSend( _tcpSocket, _relayBuffer.data( ), static_cast<int>( _relayBuffer.size( ) ) );
        _relayBuffer.clear( );
    }
    else if( _relayBuffer.size( ) > MAX_RELAY_BYTES )
    {
        GLOGIF( 'K', _name, u": relay is busy, dropping ", bytes.size( ), u" bytes to (", to, u")" );
        _relayBuffer.resize( begin );
    }
}

void GMegaPort::_pushRelayed( )
{
    while( _tcpSocket && !_relayBuffer.empty( ) )
    {
        const int sent =
            GNetTCPSocketSend( _tcpSocket, _relayBuffer.data( ), static_cast<int>( _relayBuffer.size( ) ) );
        if( sent <= 0 ) return;
        GConsume( _relayBuffer, sent );
    }
}

void GMegaPort::flush( )
{
    const GMutexScope scope( _sendMutex );
    _pushRelayed( );
}

GString GMegaPort::takeUnsent( )
{
    const GMutexScope scope( _sendMutex );
    _tcpSocket = nullptr;
    return std::exchange( _relayBuffer, { } );
}
