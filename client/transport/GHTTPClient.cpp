#include "client/transport/GHTTPClient.h"

#include "platform/GThread.h"
#include "platform/GTime.h"

#include <algorithm>
#include <utility>

namespace
{
constexpr uint64_t SEND_TIMEOUT = 5000000;
constexpr uint64_t SILENCE_TIMEOUT = 30000000;
// A stream whose header is longer than this, or whose message is, never becomes one.
constexpr size_t MAX_HEADER_BYTES = 64 * 1024;
constexpr int64_t MAX_MESSAGE_BYTES = 256 * 1024 * 1024;

bool hasLongHeader( const char* bytes, size_t length )
{
    return length > MAX_HEADER_BYTES &&
           std::string_view( bytes, MAX_HEADER_BYTES ).find( "\r\n\r\n" ) == std::string_view::npos;
}
} // namespace

GHTTPClient::GHTTPClient( const GWString& host, const GHTTPHeaders& request )
    : _host( host ), _lastSendTime( GTimeGetTime( ) ), _lastProgressTime( _lastSendTime )
{
    GCALL( GHTTPClient );
    _socket = GNetTCPSocketOpen( host );
    if( !_socket ) GLOG( u"WARNING Cannot contact '", host, u"', ignoring request." );
    send( request );
}

GHTTPClient::~GHTTPClient( )
{
    _close( );
}

void GHTTPClient::send( const GHTTPHeaders& request )
{
    sendRaw( request.serialize( ) );
}

void GHTTPClient::sendRaw( const GString& bytes )
{
    _sendBuffer += bytes;
    update( 0 );
}

bool GHTTPClient::recv( GHTTPHeaders& response )
{
    GCALL( GHTTPClient );
    // What has arrived comes first: a stream of many messages is read from the system in large pieces.
    if( _takeMessage( response ) ) return true;
    if( !_socket || !GNetTCPSocketRecv( _socket, _recvBuffer ) ) return false;
    _lastProgressTime = GTimeGetTime( );
    return _takeMessage( response );
}

// The next message out of the buffer, from which it is removed together with others: one by one would move the rest each time.
bool GHTTPClient::_takeMessage( GHTTPHeaders& response )
{
    const size_t left = _recvBuffer.size( ) - _numTaken;
    if( left >= _numNeeded )
    {
        const char* const next = _recvBuffer.data( ) + _numTaken;
        const int used =
            left && !hasLongHeader( next, left ) ? response.deserialize( next, static_cast<int>( left ) ) : 0;
        _numTaken += static_cast<size_t>( used );
        _numNeeded = 1;
        if( used > 0 ) return true;
        if( left ) _measure( next, left );
    }
    GConsume( _recvBuffer, static_cast<int>( std::exchange( _numTaken, 0 ) ) );
    return false;
}

// How many bytes it takes until another look at the buffer is worth while. A stream that never becomes a message is closed.
void GHTTPClient::_measure( const char* bytes, size_t length )
{
    const int64_t total = GHTTPHeaders::measure( bytes, static_cast<int>( std::min( length, MAX_HEADER_BYTES ) ) );
    if( total > 0 && total <= MAX_MESSAGE_BYTES )
        _numNeeded = static_cast<size_t>( total );
    else if( total == 0 && length <= MAX_HEADER_BYTES )
        _numNeeded = length + 1;
    else
    {
        GLOG( u"WARNING Connection to '", _host, u"' sends what is no message, closing." );
        _numTaken = _recvBuffer.size( );
        _numNeeded = 1;
        _close( );
    }
}

void GHTTPClient::update( int64_t timeout )
{
    GCALL( GHTTPClient );
    GPRECONDITION( timeout >= 0 );
    if( !_socket )
    {
        GThreadSleep( timeout );
        return;
    }
    GConsume( _sendBuffer, _sendPending( ) );
    if( _hasTimedOut( ) )
    {
        GLOG( u"WARNING Connection to '", _host, u"' timed out, cancelling." );
        _close( );
        return;
    }
    if( timeout == 0 ) return;
    GNetWait( { }, { }, { _socket }, timeout );
}

// Gives the socket as much as it takes; the number of bytes that went. While bytes wait, _lastSendTime marks since when.
int GHTTPClient::_sendPending( )
{
    [[maybe_unused]] const int debug_sendBufferSize = static_cast<int>( _sendBuffer.size( ) );
    int total = 0;
    while( total < static_cast<int>( _sendBuffer.size( ) ) )
    {
        const int sent =
            GNetTCPSocketSend( _socket, _sendBuffer.data( ) + total, static_cast<int>( _sendBuffer.size( ) ) - total );
        if( sent <= 0 ) break;
        total += sent;
        _lastSendTime = 0;
        _lastProgressTime = GTimeGetTime( );
    }
    if( total > static_cast<int>( _sendBuffer.size( ) ) )
    {
        GLOG( u"ERROR We've sent more bytes than we have: totalSent=", total, u", sendBuffer.size()=",
              _sendBuffer.size( ), u"( originally", debug_sendBufferSize, u")" );
        GAbort( );
    }
    GVERIFY( debug_sendBufferSize == (int)_sendBuffer.size( ) );
    if( total == 0 && !_sendBuffer.empty( ) && _lastSendTime == 0 ) _lastSendTime = GTimeGetTime( );
    return total;
}

bool GHTTPClient::_hasTimedOut( ) const
{
    const uint64_t now = GTimeGetTime( );
    if( _lastSendTime != 0 && now - _lastSendTime > SEND_TIMEOUT ) return true;
    return _robust && now - _lastProgressTime > SILENCE_TIMEOUT;
}

void GHTTPClient::_close( )
{
    if( _socket ) GNetTCPSocketClose( _socket );
    _socket = nullptr;
}

bool GHTTPClient::isAlive( ) const
{
    return _socket && GNetTCPSocketIsAlive( _socket );
}

void GHTTPClient::shutdown( )
{
    if( _socket ) GNetTCPSocketShutdown( _socket );
}

GWString GHTTPClient::getLocalHost( ) const
{
    return _socket ? GNetTCPSocketGetLocalHost( _socket ) : GWString( u"0.0.0.0:0" );
}

GWString GHTTPClient::getRemoteHost( ) const
{
    return _socket ? _socket->host : GWString( u"0.0.0.0:0" );
}
