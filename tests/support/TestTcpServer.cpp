#include "support/TestTcpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
bool waitFor( int handle, int milliseconds )
{
    pollfd entry{ handle, POLLIN, 0 };
    return ::poll( &entry, 1, milliseconds ) > 0;
}
} // namespace

TestTcpServer::TestTcpServer( int receiveBuffer )
{
    _listener = ::socket( AF_INET, SOCK_STREAM, 0 );
    if( receiveBuffer ) ::setsockopt( _listener, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof( receiveBuffer ) );
    sockaddr_in address{ };
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
    ::bind( _listener, reinterpret_cast<sockaddr*>( &address ), sizeof( address ) );
    ::listen( _listener, 128 );
    socklen_t length = sizeof( address );
    ::getsockname( _listener, reinterpret_cast<sockaddr*>( &address ), &length );
    _host = GConcat( u"127.0.0.1:", int( ntohs( address.sin_port ) ) );
}

TestTcpServer::~TestTcpServer( )
{
    hangUp( );
    ::close( _listener );
}

bool TestTcpServer::accept( )
{
    hangUp( );
    if( !waitFor( _listener, 5000 ) ) return false;
    do
    {
        if( _connection >= 0 ) ::close( _connection );
        _connection = ::accept( _listener, nullptr, nullptr );
    } while( waitFor( _listener, 0 ) );
    return _connection >= 0;
}

void TestTcpServer::say( const GString& bytes ) const
{
    for( size_t sent = 0; sent < bytes.size( ); )
    {
        const ssize_t count = ::send( _connection, bytes.data( ) + sent, bytes.size( ) - sent, MSG_NOSIGNAL );
        if( count <= 0 ) return;
        sent += static_cast<size_t>( count );
    }
}

bool TestTcpServer::_read( int milliseconds )
{
    if( _connection < 0 || !waitFor( _connection, milliseconds ) ) return false;
    char block[4096];
    const ssize_t count = ::recv( _connection, block, sizeof( block ), 0 );
    if( count <= 0 ) return false;
    _heard.append( block, static_cast<size_t>( count ) );
    return true;
}

bool TestTcpServer::hear( GHTTPHeaders& message )
{
    int used = message.deserialize( _heard );
    while( !used && _read( 5000 ) ) used = message.deserialize( _heard );
    if( used ) GConsume( _heard, used );
    return used > 0;
}

bool TestTcpServer::hearNow( GHTTPHeaders& message )
{
    while( _read( 0 ) )
    {
    }
    const int used = message.deserialize( _heard );
    if( used ) GConsume( _heard, used );
    return used > 0;
}

void TestTcpServer::hangUp( )
{
    if( _connection >= 0 ) ::close( _connection );
    _connection = -1;
    _heard.clear( );
}
