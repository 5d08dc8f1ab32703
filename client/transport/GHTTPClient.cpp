#include "client/transport/GHTTPClient.h"

#include "platform/GThread.h"
#include "platform/GTime.h"

namespace
{
constexpr uint64_t SEND_TIMEOUT = 5000000;
constexpr uint64_t SILENCE_TIMEOUT = 30000000;
// A stream whose header is longer than this, or whose message is, never becomes one.
constexpr size_t MAX_HEADER_BYTES = 64 * 1024;
constexpr size_t MAX_MESSAGE_BYTES = 256 * 1024 * 1024;

bool isBeyondLimits( const GString& buffer )
{
    if( buffer.size( ) > MAX_MESSAGE_BYTES ) return true;
    if( buffer.size( ) <= MAX_HEADER_BYTES ) return false;
    return buffer.substr( 0, MAX_HEADER_BYTES ).find( "\r\n\r\n" ) == GString::npos;
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
    if( _socket && GNetTCPSocketRecv( _socket, _recvBuffer ) ) _lastProgressTime = GTimeGetTime( );
    if( _recvBuffer.empty( ) ) return false;
    const int used = response.deserialize( _recvBuffer );
    if( used > 0 )
    {
        GConsume( _recvBuffer, used );
        return true;
    }
    if( isBeyondLimits( _recvBuffer ) )
    {
        GLOG( u"WARNING Connection to '", _host, u"' sends what is no message, closing." );
        _recvBuffer.clear( );
        _close( );
    }
    return false;
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
