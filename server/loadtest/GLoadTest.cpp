#include "server/loadtest/GLoadTest.h"

#include "protocol/GProtocol.h"
#include "server/core/GEndpoint.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <numeric>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace
{
constexpr int TRIES = 5;
constexpr int TRY_MILLISECONDS = 1000;
constexpr timeval LOGON_DEADLINE{ 30, 0 };
constexpr char16_t VERSION[] = u"764";

bool addressOf( const GString& host, sockaddr_in& out )
{
    uint32_t address = 0;
    unsigned short port = 0;
    if( !GEndpoint::parse( host, address, port ) ) return false;
    out = { };
    out.sin_family = AF_INET;
    out.sin_addr.s_addr = htonl( address );
    out.sin_port = htons( port );
    return true;
}
void sendTo( int handle, const GString& host, const GString& bytes )
{
    sockaddr_in to;
    if( addressOf( host, to ) )
        ::sendto( handle, bytes.data( ), bytes.size( ), MSG_DONTWAIT, reinterpret_cast<const sockaddr*>( &to ),
                  sizeof( to ) );
}
// Where this machine is, as seen on the way to the server.
GString localHostOf( int handle, const GString& server )
{
    sockaddr_in address{ };
    socklen_t size = sizeof( address );
    ::getsockname( handle, reinterpret_cast<sockaddr*>( &address ), &size );
    const unsigned short port = ntohs( address.sin_port );
    const int probe = ::socket( AF_INET, SOCK_DGRAM, 0 );
    sockaddr_in to;
    if( addressOf( server, to ) && ::connect( probe, reinterpret_cast<const sockaddr*>( &to ), sizeof( to ) ) == 0 )
        ::getsockname( probe, reinterpret_cast<sockaddr*>( &address ), &size );
    ::close( probe );
    return GEndpoint::compose( boost::asio::ip::address_v4( ntohl( address.sin_addr.s_addr ) ), port );
}
} // namespace

GLoadTest::~GLoadTest( )
{
    for( const Device& device : _devices ) ::close( device.handle );
    if( _poll >= 0 ) ::close( _poll );
}

bool GLoadTest::enter( GString& error )
{
    _poll = ::epoll_create1( 0 );
    GWString user;
    for( int64_t i = 0; i < _options.devices; ++i )
    {
        if( i % _options.perAccount == 0 && !_logOnAccount( i / _options.perAccount + 1, user, error ) ) return false;
        if( !_addDevice( user, error ) ) return false;
    }
    return true;
}

bool GLoadTest::_logOnAccount( int64_t number, GWString& user, GString& error )
{
    const GString name = _options.prefix + std::to_string( number );
    GHTTPHeaders answer;
    if( !_logOn( name, answer, error ) ) return false;
    if( answer.getResponse( ) == 409 && !_logOn( name + "@" + _options.domain, answer, error ) ) return false;
    GStringList signalling;
    GStringList stun;
    answer.get( GProtocol::SIP_HOST_LIST, signalling );
    answer.get( GProtocol::STUN_HOST_LIST, stun );
    if( answer.getResponse( ) != GHTTP_SUCCESS || signalling.empty( ) || stun.empty( ) )
    {
        error = "'" + name + "' can't log on: " + std::to_string( answer.getResponse( ) );
        return false;
    }
    _signalling = GWideToUTF8( signalling.front( ) );
    _stun = GWideToUTF8( stun.front( ) );
    user = answer.get( GProtocol::USER_GUID );
    return true;
}
bool GLoadTest::_logOn( const GString& from, GHTTPHeaders& answer, GString& error ) const
{
    sockaddr_in to;
    if( !addressOf( _options.host, to ) )
    {
        error = "'" + _options.host + "' is no host";
        return false;
    }
    const int handle = ::socket( AF_INET, SOCK_STREAM, 0 );
    ::setsockopt( handle, SOL_SOCKET, SO_RCVTIMEO, &LOGON_DEADLINE, sizeof( LOGON_DEADLINE ) );
    GHTTPHeaders request( GProtocol::AUTHENTICATE );
    request.set( GProtocol::FROM, GUTF8ToWide( from ) );
    request.set( GProtocol::PASSWORD, GUTF8ToWide( _options.password ) );
    request.set( GProtocol::EMAIL, u"loadtest@localhost" );
    request.set( GProtocol::VERSION, VERSION );
    const GString bytes = request.serialize( );
    GString received;
    bool good = ::connect( handle, reinterpret_cast<const sockaddr*>( &to ), sizeof( to ) ) == 0 &&
                ::send( handle, bytes.data( ), bytes.size( ), MSG_NOSIGNAL ) == static_cast<ssize_t>( bytes.size( ) );
    while( good && !answer.deserialize( received ) )
    {
        char block[4096];
        const ssize_t length = ::recv( handle, block, sizeof( block ), 0 );
        good = length > 0;
        if( good ) received.append( block, static_cast<size_t>( length ) );
    }
    ::close( handle );
    if( !good ) error = "no answer from " + _options.host;
    return good;
}

bool GLoadTest::_addDevice( const GWString& user, GString& error )
{
    const int handle = ::socket( AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0 );
    sockaddr_in any{ };
    any.sin_family = AF_INET;
    if( handle < 0 || ::bind( handle, reinterpret_cast<const sockaddr*>( &any ), sizeof( any ) ) )
    {
        if( handle >= 0 ) ::close( handle );
        error = GString( "no socket: " ) + std::strerror( errno );
        return false;
    }
    _devices.push_back( { handle, localHostOf( handle, _signalling ), user, {} } );
    Device& device = _devices.back( );
    epoll_event event{ };
    event.events = EPOLLIN;
    event.data.fd = handle;
    ::epoll_ctl( _poll, EPOLL_CTL_ADD, handle, &event );
    GHTTPHeaders request( GProtocol::DEVICEGUID );
    GHTTPHeaders answer;
    request.set( GProtocol::CSEQ, GConcat( ++_cseq, u" (velmora-loadtest)" ) );
    bool good = _ask( device, request, answer ) && answer.getResponse( ) == GHTTP_SUCCESS;
    device.id = answer.get( GProtocol::DEVICE_GUID );
    good = good && _ask( device, _compose( device, GLOAD_REGISTER ), answer ) && answer.getResponse( ) == GHTTP_SUCCESS;
    if( !good ) error = "device " + std::to_string( _devices.size( ) ) + " was not registered";
    return good;
}
// One exchange with the signalling host, repeated like a client does.
bool GLoadTest::_ask( const Device& device, const GHTTPHeaders& request, GHTTPHeaders& answer ) const
{
    for( int i = 0; i < TRIES; ++i )
    {
        sendTo( device.handle, _signalling, request.serialize( ) );
        pollfd wait{ device.handle, POLLIN, 0 };
        char bytes[8192];
        while( ::poll( &wait, 1, TRY_MILLISECONDS ) > 0 )
        {
            const ssize_t length = ::recv( device.handle, bytes, sizeof( bytes ), 0 );
            if( length > 0 && answer.deserialize( bytes, static_cast<int>( length ) ) &&
                answer.get( GProtocol::CSEQ ) == request.get( GProtocol::CSEQ ) )
                return true;
        }
    }
    return false;
}

GHTTPHeaders GLoadTest::_compose( const Device& device, GLoadKind kind )
{
    static constexpr const char16_t* METHODS[] = { GProtocol::PING, GProtocol::STUN, GProtocol::REGISTER,
                                                   GProtocol::INVITE };
    const GWString host = GUTF8ToWide( device.host );
    GHTTPHeaders request( METHODS[kind] );
    request.set( GProtocol::CSEQ, GConcat( ++_cseq, u" (velmora-loadtest)" ) );
    if( kind == GLOAD_PING ) request.set( GProtocol::GLOBAL_HOST, host );
    if( kind == GLOAD_REGISTER || kind == GLOAD_INVITE ) request.set( GProtocol::FROM, device.user );
    if( kind == GLOAD_REGISTER )
    {
        request.set( GProtocol::DEVICE_GUID, device.id );
        request.set( GProtocol::VERSION, VERSION );
        request.set( GProtocol::ROUTE_LIST, u"local://" + host );
    }
    if( kind == GLOAD_INVITE )
    {
        request.set( GProtocol::FROM_DEVICE_GUID, device.id );
        request.set( GProtocol::TO, device.user ); // The account's other devices.
        request.set( GProtocol::TRY_ROUTE_LIST, u"local://" + host );
    }
    return request;
}

GLoadFigures GLoadTest::run( )
{
    const Clock::time_point begin = Clock::now( );
    const auto end = begin + std::chrono::seconds( _options.seconds );
    const auto period = std::chrono::nanoseconds( 1000000000 / _options.rate );
    Clock::time_point due = begin;
    for( Clock::time_point now = begin; now < end; now = Clock::now( ) )
    {
        // Late requests are not left out: the rate holds when this machine was busy for a moment.
        for( ; due <= now && due < end; due += period ) _send( now );
        _expire( now );
        const auto wait =
            std::chrono::duration_cast<std::chrono::milliseconds>( std::min( due, end ) - Clock::now( ) ).count( );
        _receiveAll( static_cast<int>( std::clamp<int64_t>( wait, 0, 100 ) ) );
    }
    for( ; due < end; due += period ) _send( Clock::now( ) );
    _figures.seconds = std::chrono::duration<double>( Clock::now( ) - begin ).count( );
    while( !_waiting.empty( ) )
    {
        _receiveAll( 10 );
        _expire( Clock::now( ) );
    }
    _figures.devices = static_cast<int64_t>( _devices.size( ) );
    return _figures;
}
// By shares, spread by a generator that is the same in each run (Numerical Recipes).
GLoadKind GLoadTest::_nextKind( )
{
    _seed = _seed * 6364136223846793005u + 1442695040888963407u;
    auto left = static_cast<int64_t>(
        ( _seed >> 33 ) %
        static_cast<uint64_t>( std::accumulate( _options.mix.begin( ), _options.mix.end( ), int64_t( 0 ) ) ) );
    size_t kind = 0;
    while( left >= _options.mix[kind] ) left -= _options.mix[kind++];
    return static_cast<GLoadKind>( kind );
}
void GLoadTest::_send( Clock::time_point now )
{
    const Device& device = _devices[_next++ % _devices.size( )];
    const GLoadKind kind = _nextKind( );
    const GHTTPHeaders request = _compose( device, kind );
    sendTo( device.handle, kind == GLOAD_STUN ? _stun : _signalling, request.serialize( ) );
    ++_figures.kinds[kind].sent;
    _waiting.emplace( _cseq, Waiting{ kind, now } );
    _order.emplace_back( now, _cseq );
}
void GLoadTest::_receiveAll( int milliseconds )
{
    epoll_event events[64];
    const int count = ::epoll_wait( _poll, events, 64, milliseconds );
    for( int i = 0; i < count; ++i )
    {
        char bytes[8192];
        for( ssize_t length = 0; ( length = ::recv( events[i].data.fd, bytes, sizeof( bytes ), MSG_DONTWAIT ) ) >= 0; )
            _onDatagram( bytes, static_cast<size_t>( length ), Clock::now( ) );
    }
}
void GLoadTest::_onDatagram( const char* data, size_t length, Clock::time_point now )
{
    if( !_answer.deserialize( data, static_cast<int>( length ) ) ) return;
    const int code = _answer.getResponse( );
    if( !code )
    {
        if( _answer.isMethod( GProtocol::INVITE ) ) ++_figures.forwarded;
        return;
    }
    const GWStringView cseq = _answer.headers( ).get( GProtocol::CSEQ );
    const auto found = _waiting.find( GCalc( cseq.substr( 0, cseq.find( u' ' ) ) ) );
    if( found == _waiting.end( ) ) return; // Another STUN host's answer, or one that came too late.
    GLoadFigures::Kind& kind = _figures.kinds[found->second.kind];
    const auto latency = std::chrono::duration_cast<std::chrono::microseconds>( now - found->second.sent ).count( );
    kind.latencies.push_back( static_cast<uint32_t>( latency ) );
    if( code != GHTTP_SUCCESS && code != 100 ) ++kind.errors;
    _waiting.erase( found );
}
void GLoadTest::_expire( Clock::time_point now )
{
    const auto timeout = std::chrono::milliseconds( _options.timeoutMilliseconds );
    for( ; !_order.empty( ) && _order.front( ).first + timeout < now; _order.pop_front( ) )
    {
        const auto found = _waiting.find( _order.front( ).second );
        if( found == _waiting.end( ) ) continue;
        ++_figures.kinds[found->second.kind].lost;
        _waiting.erase( found );
    }
}
