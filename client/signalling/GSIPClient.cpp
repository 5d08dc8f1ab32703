#include "client/signalling/GSIPClient.h"

#include "base/GRandom.h"
#include "client/signalling/GRoute.h"
#include "client/transport/GMegaPort.h"
#include "platform/GTime.h"
#include "protocol/GProtocol.h"

#include <limits>

namespace
{
constexpr int MAX_RETRANSMISSIONS = 4;
constexpr uint64_t FIRST_RETRANSMISSION = 1000000;
constexpr uint64_t RECORD_LIFE = 60000000;
constexpr uint64_t RELAY_DELAY = 400000;
// Nobody honest has as many transactions in flight; the oldest leave first.
constexpr size_t MAX_RECORDS = 4096;
// Honest numbers and methods are short; a stranger's would lie in the records by the thousand.
constexpr size_t MAX_WORD_LENGTH = 64;
constexpr size_t MAX_GROUP_LENGTH = 1024;
constexpr int RANDOM_RANGE = 32768;
constexpr char16_t UNUSABLE_SCHEME[] = u"symmetric";
constexpr char16_t RELAY_SCHEME[] = u"turn";

GWString composeOwner( GWStringView userGUID, GWStringView deviceGUID )
{
    return GConcat( userGUID, u"@", deviceGUID );
}
GWString getText( const GHTTPHeaders& response )
{
    GWString text;
    response.getResponse( text );
    return text;
}

// Forgets `isDead` records and their places in the order of arrival.
template <typename Map, typename Order, typename Test>
void dropRecords( Map& map, Order& order, Test isDead )
{
    if( !std::erase_if( map, [&]( const auto& entry ) { return isDead( entry.second ); } ) ) return;
    std::erase_if( order, [&]( const GWString& key ) { return !GMAPCONTAINS( map, key ); } );
}

template <typename Map, typename Order, typename Record>
void storeRecord( Map& map, Order& order, const GWString& key, const Record& record )
{
    if( map.insert_or_assign( key, record ).second ) order.push_back( key );
    if( order.size( ) <= MAX_RECORDS ) return;
    map.erase( order.front( ) );
    order.pop_front( );
}
} // namespace

GSIPClient::GSIPClient( GMegaPort* port ) : _port( port )
{
    GPRECONDITION( port );
    invariantTest( );
}

void GSIPClient::invariantTest( ) const
{
    GHeapObject::invariantTest( );
    GASSERT_TEXT( _port, "port" );
}

void GSIPClient::setRobust( bool robust )
{
    // A number that nobody has seen from us yet: peers may still hold answers to the run before.
    if( robust && !_robust && !_cseq ) _cseq = GRandom( ) * RANDOM_RANGE + GRandom( );
    _robust = robust;
}

GStringList GSIPClient::getOwnHosts( ) const
{
    GStringList out;
    for( const GWString& host : { _port->getLocalHost( ), _port->getGlobalHost( ) } )
        if( GValidHost( host ) ) out.push_back( host );
    return out;
}

void GSIPClient::reset( )
{
    _requestMap.clear( );
    _responseMap.clear( );
    _requestOrder.clear( );
    _responseOrder.clear( );
    _deferredCopies.clear( );
    if( !_robust ) _cseq = 0;
}

void GSIPClient::reset( GWStringView buddyGUID, GWStringView deviceGUID )
{
    if( !_robust )
    {
        reset( );
        return;
    }
    const GWString owner = composeOwner( buddyGUID, deviceGUID );
    dropRecords( _requestMap, _requestOrder, [&]( const RequestRecord& record ) { return record.owner == owner; } );
    dropRecords( _responseMap, _responseOrder, [&]( const ResponseRecord& record ) { return record.owner == owner; } );
}

void GSIPClient::settle( GWStringView buddyGUID, GWStringView deviceGUID )
{
    const GWString owner = composeOwner( buddyGUID, deviceGUID );
    for( auto& [cseq, record] : _requestMap )
        if( record.owner == owner ) record.receivedResponse = true;
}

// ---- Composing.

GWString GSIPClient::_nextCSeq( )
{
    _cseq = _cseq == std::numeric_limits<int>::max( ) ? 1 : _cseq + 1;
    return GNumber( _cseq );
}

GWString GSIPClient::_typeOf( const GWString& from ) const
{
    return GCaseEquals( from, _port->getLocalHost( ) ) ? u"local" : u"turn";
}

void GSIPClient::_label( GHTTPHeaders& message, const FromTo& fromTo ) const
{
    GVERIFY( !fromTo.from.empty( ) );
    GVERIFY( !fromTo.to.empty( ) );
    message.set( u"Sent-From", fromTo.from );
    message.set( u"Sent-From-Type", _typeOf( fromTo.from ) );
    message.set( u"Sent-To", fromTo.to );
    message.set( u"Sent-To-Type", fromTo.toType );
}

// With the remedy a symmetric network's address is tried too: what leaves for it opens our own network to that address.
void GSIPClient::_composeFromToList( FromToList& fromToList, const GWString& fromHost,
                                     const GStringList& routeList ) const
{
    for( const GWString& text : routeList )
    {
        GRoute route;
        if( !GRouteSplit( text, route ) )
            GLOG( u"WARNING Route '", text, u"' is malformed, ignoring." );
        else if( !_robust && GCaseEquals( route.scheme, UNUSABLE_SCHEME ) )
            GLOG( u"WARNING Route '", text, u"' not supported yet, ignoring." );
        else
            fromToList.push_back( { fromHost, route.host, route.scheme } );
    }
}

// Behind a relay every route is tried both ways: straight out of the UDP port, and through the relay.
GSIPClient::FromToList GSIPClient::_composeFromToList( const GStringList& routeList ) const
{
    const GWString localHost = _port->getLocalHost( );
    const GWString globalHost = _port->getGlobalHost( );
    GVERIFY( GValidHost( localHost ) );
    FromToList out;
    _composeFromToList( out, localHost, routeList );
    if( GValidHost( globalHost ) ) _composeFromToList( out, globalHost, routeList );
    return out;
}

// Whichever copy arrives first names the route: with the remedy the relay stands back where a direct way may exist.
void GSIPClient::_sendCopy( const FromTo& fromTo, const GString& buffer, const GWString& cseq )
{
    const bool relayed =
        GCaseEquals( fromTo.toType, RELAY_SCHEME ) || !GCaseEquals( fromTo.from, _port->getLocalHost( ) );
    if( _robust && relayed && _deferredCopies.size( ) < MAX_RECORDS )
        _deferredCopies.push_back( { GTimeGetTime( ) + RELAY_DELAY, fromTo.from, fromTo.to, buffer, cseq } );
    else
        _port->send( fromTo.from, fromTo.to, buffer.data( ), static_cast<int>( buffer.size( ) ) );
}

void GSIPClient::_sendDeferredCopies( )
{
    while( !_deferredCopies.empty( ) && _deferredCopies.front( ).due <= GTimeGetTime( ) )
    {
        const DeferredCopy copy = std::move( _deferredCopies.front( ) );
        _deferredCopies.pop_front( );
        const auto found = _requestMap.find( copy.cseq );
        const bool spent = !copy.cseq.empty( ) && ( found == _requestMap.end( ) || found->second.receivedResponse );
        if( !spent ) _port->send( copy.from, copy.to, copy.buffer.data( ), static_cast<int>( copy.buffer.size( ) ) );
    }
}

// ---- Requests.

void GSIPClient::sendRequest( const GWString& from, const GWString& to, const GHTTPHeaders& request, bool retransmit )
{
    GCALL( GSIPClient );
    const GWString method = request.getMethod( );
    if( !GValidHost( to ) )
    {
        GLOG( u"WARNING Attempting to send '", method, u"' but invalid destination (", to, u"), ignoring." );
        return;
    }
    if( !from.empty( ) && !GValidHost( from ) )
    {
        GLOG( u"WARNING Attempting to send '", method, u"' but invalid source (", from, u"), ignoring." );
        return;
    }
    GLOGIF( 'S', u"Requesting '", method, u"' from (", from, u") to (", to, u")" );
    GVERIFY( !request.getResponse( ) );
    GHTTPHeaders message = request;
    const GWString cseq = _nextCSeq( );
    message.set( GProtocol::CSEQ, cseq );
    message.set( u"Sent-From", from );
    message.set( u"Sent-To", to );
    message.set( u"Sent-From-Type", _typeOf( from ) );
    _recordRequest( cseq, from, to, message, retransmit );
    const GString& buffer = _requestMap[cseq].requestBuffer;
    _port->send( from, to, buffer.data( ), static_cast<int>( buffer.size( ) ) );
}

void GSIPClient::sendRequestToRouteList( const GStringList& routeList, const GHTTPHeaders& request, bool retransmit )
{
    GCALL( GSIPClient );
    if( routeList.empty( ) )
    {
        GLOG( u"WARNING Attempting to send '", request.getMethod( ), u"' but no destination, ignoring." );
        return;
    }
    GLOGIF( 'S', u"Requesting '", request.getMethod( ), u"' from (", GJoinList( routeList ), u")" );
    const FromToList fromToList = _composeFromToList( routeList );
    GStringList group;
    for( size_t i = 1; i <= fromToList.size( ); ++i )
        group.push_back( GNumber( static_cast<int64_t>( _cseq ) + static_cast<int64_t>( i ) ) );
    for( const FromTo& fromTo : fromToList )
    {
        GHTTPHeaders message = request;
        const GWString cseq = _nextCSeq( );
        message.set( GProtocol::CSEQ, cseq );
        message.set( GProtocol::CSEQ_GROUP, group );
        _label( message, fromTo );
        _recordRequest( cseq, fromTo.from, fromTo.to, message, retransmit );
        _sendCopy( fromTo, _requestMap[cseq].requestBuffer, cseq );
    }
}

// Remembers the request as it goes out.
void GSIPClient::_recordRequest( const GWString& cseq, const GWString& from, const GWString& to,
                                 const GHTTPHeaders& message, bool retransmit )
{
    GVERIFY( !to.empty( ) );
    GLOGIF( 'S', u"Requesting from (", from, u") to (", to, u")" );
    RequestRecord record;
    record.from = from;
    record.to = to;
    record.requestBuffer = message.serialize( );
    record.sentTime = GTimeGetTime( );
    record.retransmit = retransmit;
    const GWString device = message.get( u"To-Device-GUID" );
    if( !device.empty( ) ) record.owner = composeOwner( message.get( GProtocol::TO ), device );
    storeRecord( _requestMap, _requestOrder, cseq, record );
}

// ---- Responses.

// By the letter the number alone; with the remedy the sender's name as well, since every peer counts from its own start.
GWString GSIPClient::_responseKey( const GHTTPHeaders& request ) const
{
    GWString cseq = request.get( GProtocol::CSEQ );
    if( !_robust || cseq.empty( ) ) return cseq;
    return GConcat( composeOwner( request.get( GProtocol::FROM ), request.get( GProtocol::FROM_DEVICE_GUID ) ), u" ",
                    cseq );
}

// A response that names the request which it answers.
GHTTPHeaders GSIPClient::_nameRequest( const GHTTPHeaders& response, const GHTTPHeaders& request ) const
{
    GHTTPHeaders out = response;
    out.set( GProtocol::CSEQ, request.get( GProtocol::CSEQ ) );
    out.set( u"Debug-Original-Method", request.getMethod( ) );
    const GWString group = request.get( GProtocol::CSEQ_GROUP );
    if( _robust && !group.empty( ) && group.size( ) <= MAX_GROUP_LENGTH ) out.set( GProtocol::CSEQ_GROUP, group );
    return out;
}

void GSIPClient::sendResponse( const GWString& from, const GWString& to, const GHTTPHeaders& request,
                               const GHTTPHeaders& response )
{
    GCALL( GSIPClient );
    const GWString method = request.getMethod( );
    const GWString text = getText( response );
    if( !GValidHost( to ) )
    {
        GLOG( u"WARNING Attempting to respond ", text, u" to request '", method, u"' but invalid destination (", to,
              u"), ignoring." );
        return;
    }
    if( !GValidHost( from ) )
    {
        GLOG( u"WARNING Attempting to respond ", text, u" to request '", method, u"' but invalid source (", from,
              u"), ignoring." );
        return;
    }
    GLOGIF( 'S', u"Responding ", text, u" to '", method, u"' from (", from, u") to (", to, u")" );
    GVERIFY( response.getResponse( ) );
    GHTTPHeaders message = _nameRequest( response, request );
    message.set( u"Sent-From", from );
    message.set( u"Sent-To", to );
    message.set( u"Sent-From-Type", _typeOf( from ) );
    ResponseRecord record;
    record.from = from;
    record.to = to;
    record.responseBuffer = message.serialize( );
    record.sentTime = GTimeGetTime( );
    record.owner = composeOwner( request.get( GProtocol::FROM ), request.get( GProtocol::FROM_DEVICE_GUID ) );
    _port->send( from, to, record.responseBuffer.data( ), static_cast<int>( record.responseBuffer.size( ) ) );
    const GWString key = _responseKey( request );
    if( !key.empty( ) ) storeRecord( _responseMap, _responseOrder, key, record );
}

void GSIPClient::sendResponseToRouteList( const GStringList& routeList, const GHTTPHeaders& request,
                                          const GHTTPHeaders& response )
{
    GCALL( GSIPClient );
    if( routeList.empty( ) )
    {
        GLOG( u"WARNING Attempting to respond ", getText( response ), u" to request '", request.getMethod( ),
              u"' but no destination, ignoring." );
        return;
    }
    GHTTPHeaders message = _nameRequest( response, request );
    for( const FromTo& fromTo : _composeFromToList( routeList ) )
    {
        _label( message, fromTo );
        _sendCopy( fromTo, message.serialize( ), { } );
    }
}

// ---- Receiving.

void GSIPClient::dispatch( IGSIPClientListener* listener )
{
    GCALL( GSIPClient );
    GPRECONDITION( listener );
    while( GMegaPortBucket* bucket = _port->getSIPBucket( ) )
    {
        _onBucket( listener, bucket->localHost, bucket->remoteHost, bucket->buffer );
        _port->returnEmptyBucket( bucket );
    }
    _sendDeferredCopies( );
    _retransmit( );
    if( _robust ) _dropOldRecords( );
}

void GSIPClient::_onBucket( IGSIPClientListener* listener, const GWString& localHost, const GWString& remoteHost,
                            const GString& buffer )
{
    GHTTPHeaders headers;
    GVERIFY_TEXT( headers.deserialize( buffer ), "headers.deserialize( bucket->buffer )" );
    if( headers.getResponse( ) )
        _onResponse( listener, localHost, remoteHost, headers );
    else
        _onRequest( listener, localHost, remoteHost, headers );
}

void GSIPClient::_onRequest( IGSIPClientListener* listener, const GWString& localHost, const GWString& remoteHost,
                             const GHTTPHeaders& request )
{
    if( request.get( GProtocol::CSEQ ).size( ) > MAX_WORD_LENGTH || request.getMethod( ).size( ) > MAX_WORD_LENGTH )
    {
        GLOG( u"WARNING Received request with an endless number or method from (", remoteHost, u"), ignoring." );
        return;
    }
    const auto found = _responseMap.find( _responseKey( request ) );
    if( found == _responseMap.end( ) )
    {
        listener->onRequest( localHost, remoteHost, request );
        return;
    }
    const ResponseRecord& record = found->second;
    GLOGIF( 'S', u"Responding again to '", request.getMethod( ), u"' from (", record.from, u") to (", record.to, u")" );
    _port->send( record.from, record.to, record.responseBuffer.data( ),
                 static_cast<int>( record.responseBuffer.size( ) ) );
}

void GSIPClient::_onResponse( IGSIPClientListener* listener, const GWString& localHost, const GWString& remoteHost,
                              const GHTTPHeaders& response )
{
    const GWString cseq = response.get( GProtocol::CSEQ );
    if( cseq.empty( ) ) return;
    const auto found = _requestMap.find( cseq );
    if( found == _requestMap.end( ) )
    {
        GLOG( u"WARNING Received response with unknown CSEQ '", cseq, u"' from '", remoteHost, u"', ignoring." );
        return;
    }
    found->second.receivedResponse = true;
    GHTTPHeaders request;
    GASSERT_TEXT( request.deserialize( found->second.requestBuffer ),
                  "request.deserialize( requestRecord.requestBuffer )" );
    // The listener may reset this client, so the group is marked with the request's own copy and looked up afresh.
    listener->onResponse( localHost, remoteHost, request, response );
    _markGroup( request, response );
}

void GSIPClient::_markGroup( const GHTTPHeaders& request, const GHTTPHeaders& response )
{
    GStringList ownGroup;
    GStringList group;
    if( !request.get( GProtocol::CSEQ_GROUP, ownGroup ) || !response.get( GProtocol::CSEQ_GROUP, group ) ) return;
    if( response.get( GProtocol::CSEQ_GROUP ).size( ) > MAX_GROUP_LENGTH )
    {
        GLOG( u"WARNING Received response with an endless CSeq-Group, ignoring." );
        return;
    }
    for( const GWString& cseq : group )
    {
        const auto found = _requestMap.find( cseq );
        if( found != _requestMap.end( ) && GListContains( ownGroup, cseq ) )
            found->second.receivedResponse = true;
        else
            GLOG( u"WARNING Trying to record response to invalid member '", cseq, u"' of CSeq-Group '",
                  response.get( GProtocol::CSEQ_GROUP ), u"'" );
    }
}

// ---- Time. The sent time is never updated, so the copies leave 1, 2, 4 and 8 s after the first.

void GSIPClient::_retransmit( )
{
    const uint64_t now = GTimeGetTime( );
    for( auto& [cseq, record] : _requestMap )
    {
        if( record.receivedResponse || !record.retransmit || record.retransmissions >= MAX_RETRANSMISSIONS ) continue;
        if( now - record.sentTime <= FIRST_RETRANSMISSION << record.retransmissions ) continue;
        _port->send( record.from, record.to, record.requestBuffer.data( ),
                     static_cast<int>( record.requestBuffer.size( ) ) );
        ++record.retransmissions;
        GLOGIF( 'S', u"Re-requesting '", record.requestBuffer.substr( 0, record.requestBuffer.find( ' ' ) ), u"' #",
                record.retransmissions, u" from (", record.from, u") to <", record.to, u">" );
    }
}

void GSIPClient::_dropOldRecords( )
{
    const uint64_t now = GTimeGetTime( );
    const auto isOld = [now]( const auto& record ) { return now - record.sentTime > RECORD_LIFE; };
    dropRecords( _requestMap, _requestOrder, isOld );
    dropRecords( _responseMap, _responseOrder, isOld );
}
