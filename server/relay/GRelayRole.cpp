#include "server/relay/GRelayRole.h"

#include "base/GRandom.h"
#include "platform/GTime.h"
#include "protocol/GProtocol.h"
#include "server/core/GServerMessage.h"

#include <boost/asio/post.hpp>

namespace
{
constexpr uint64_t SECOND = 1000000;
constexpr size_t MAX_UDP = 65507;

GStreamLimits limitsOf( const GServerConfig& config )
{
    GStreamLimits limits;
    limits.headerBytes = 4096;
    limits.messageBytes = 131072;
    limits.connections = config.relayAllocations + 64;
    limits.connectionsPerAddress = config.relayAllocationsPerAddress + 8;
    limits.halfClose = false; // The end of its connection is the end of an allocation.
    return limits;
}
} // namespace

GRelayRole::GRelayRole( boost::asio::io_context& io, const GServerConfig& config, GServerStore& store,
                        GMetrics& metrics )
    : _io( io ), _config( config ), _store( store ), _metrics( metrics ), _policy( config ),
      _server( io, limitsOf( config ) )
{
}

bool GRelayRole::open( GString& error )
{
    // Addresses of an earlier run are nobody's now.
    return _store.clearAllocations( ) && _server.open( GServerHost::split( _config.relay ).bind, error );
}
void GRelayRole::start( const std::vector<GString>& signallingHosts )
{
    _policy.setOwnHosts( signallingHosts );
    _server.start( [this]( const auto& connection, const GHTTPHeaders& message ) { _onMessage( connection, message ); },
                   [this]( const auto& connection ) { _onClose( connection ); },
                   [this]( std::string_view reason ) { _metrics.count( "relay", "any", reason ); } );
}
void GRelayRole::drain( )
{
    _server.stopAccepting( );
}
void GRelayRole::close( )
{
    _server.closeAll( );
}

void GRelayRole::_onMessage( const GStreamServer::Connection& connection, const GHTTPHeaders& message )
{
    const auto found = _allocations.find( connection.get( ) );
    if( message.isMethod( GProtocol::OPENTURN ) && message.contains( GProtocol::CSEQ ) )
        _onOPENTURN( connection, message );
    else if( message.isMethod( GProtocol::SENDUDP ) && found != _allocations.end( ) )
        _onSENDUDP( *found->second, message );
    else
    {
        _metrics.count( "relay", GServerMessage::methodLabel( message ), "dropped" );
        if( found == _allocations.end( ) ) connection->finish( );
    }
}

void GRelayRole::_onOPENTURN( const GStreamServer::Connection& connection, const GHTTPHeaders& request )
{
    const uint64_t now = GTimeGetTime( );
    const auto found = _allocations.find( connection.get( ) );
    Allocation* allocation = found == _allocations.end( ) ? nullptr : found->second.get( );
    if( !allocation )
    {
        const GString& address = connection->remoteAddress( );
        if( !_store.hasAnyLogon( address, now - static_cast<uint64_t>( _config.logonSeconds ) * SECOND ) )
            return _refuse( connection, request, 403, u"Forbidden" );
        const bool full = static_cast<int64_t>( _allocations.size( ) ) >= _config.relayAllocations ||
                          _countOf( address ) >= _config.relayAllocationsPerAddress;
        if( full ) return _refuse( connection, request, 503, u"Full" );
        allocation = _allocate( connection );
        if( !allocation ) return _refuse( connection, request, 503, u"No address" );
    }
    GHTTPHeaders answer = GServerMessage::reply( request, GHTTP_SUCCESS, u"OK" );
    answer.set( GProtocol::GLOBAL_HOST, GUTF8ToWide( allocation->reached ) );
    connection->send( answer.serialize( ) );
    _metrics.count( "relay", "OPENTURN", "200" );
}
void GRelayRole::_refuse( const GStreamServer::Connection& connection, const GHTTPHeaders& request, int code,
                          GWStringView text )
{
    GLOGPLAIN( u"relay from=", connection->remoteHost( ), u" result=", code );
    _metrics.count( "relay", "OPENTURN", std::to_string( code ) );
    connection->send( GServerMessage::compose( request, code, text ) );
    connection->finish( );
}

GRelayRole::Allocation* GRelayRole::_allocate( const GStreamServer::Connection& connection )
{
    auto allocation = std::make_unique<Allocation>( );
    allocation->connection = connection;
    GString error;
    if( !_openSocket( *allocation, error ) )
    {
        GLOGPLAIN( u"relay from=", connection->remoteHost( ), u" result=failed text='", error, u"'" );
        return nullptr;
    }
    allocation->host = allocation->socket->host( );
    allocation->reached =
        GServerHost::split( _config.relayUDP ).reached + allocation->host.substr( allocation->host.find( ':' ) );
    // Both names lead to the connection's address: which one a role of this machine sees depends on the way.
    for( const GString& host : { allocation->host, allocation->reached } )
        if( !_store.putAllocation( host, connection->remoteAddress( ) ) ) return nullptr;
    Allocation* raw = allocation.get( );
    raw->socket->start( [this, raw]( const GDatagramSocket::Endpoint& from, const char* data, size_t length )
                        { _onDatagram( *raw, from, data, length ); } );
    _allocations.emplace( connection.get( ), std::move( allocation ) );
    connection->setIdleSeconds( _config.relayIdleSeconds );
    _metrics.setGauge( "velmora_allocations", static_cast<int64_t>( _allocations.size( ) ) );
    GLOGPLAIN( u"relay opened=", raw->reached, u" from=", connection->remoteHost( ) );
    return raw;
}
bool GRelayRole::_openSocket( Allocation& allocation, GString& error )
{
    const GString ip = GServerHost::split( _config.relayUDP ).bind;
    const int64_t count = _config.relayPortLow ? _config.relayPortHigh - _config.relayPortLow + 1 : 1;
    const int64_t first = GRandom( ) % count;
    for( int64_t i = 0; i < count; ++i )
    {
        const int64_t port = _config.relayPortLow ? _config.relayPortLow + ( first + i ) % count : 0;
        allocation.socket = std::make_unique<GDatagramSocket>( _io );
        error.clear( );
        if( allocation.socket->open( ip + ":" + std::to_string( port ), error ) ) return true;
    }
    return false;
}
int64_t GRelayRole::_countOf( const GString& address ) const
{
    int64_t count = 0;
    for( const auto& [key, allocation] : _allocations )
        if( allocation->connection->remoteAddress( ) == address ) ++count;
    return count;
}

void GRelayRole::_onSENDUDP( Allocation& allocation, const GHTTPHeaders& request )
{
    GDatagramSocket::Endpoint to;
    const GString host = GWideToUTF8( request.get( GProtocol::REMOTE_HOST ) );
    const bool good = request.getContentCount( ) == 1 && GEndpoint::parse( host, to ) &&
                      request.getContent( 0 ).size( ) <= MAX_UDP && !request.getContent( 0 ).empty( );
    if( !good ) return _metrics.count( "relay", "SENDUDP", "dropped" );
    if( !_policy.maySendTo( to.address( ).to_v4( ).to_uint( ), to.port( ) ) )
        return _metrics.count( "relay", "SENDUDP", "forbidden" );
    const GString& bytes = request.getContent( 0 );
    if( !_policy.take( allocation.host, true, bytes.size( ), GTimeGetTime( ) ) )
        return _metrics.count( "relay", "SENDUDP", "limited" );
    const bool sent = allocation.socket->send( to, bytes.data( ), bytes.size( ) );
    _metrics.count( "relay", "SENDUDP", sent ? "sent" : "shed" );
}

void GRelayRole::_onDatagram( Allocation& allocation, const GDatagramSocket::Endpoint& from, const char* data,
                              size_t length )
{
    if( !length ) return;
    if( !_policy.take( allocation.host, false, length, GTimeGetTime( ) ) )
        return _metrics.count( "relay", "datagram", "limited" );
    const bool sent = allocation.connection->send( wrap( GEndpoint::compose( from ), data, length ) );
    _metrics.count( "relay", "datagram", sent ? "sent" : "shed" );
}

// Composed by hand: this runs for every packet of a relayed call.
GString GRelayRole::wrap( const GString& remoteHost, const char* data, size_t length )
{
    GString out;
    out.reserve( length + 96 );
    out.append( "HTTP/1.1 200 OK\r\nContent-Length: " ).append( std::to_string( length ) );
    out.append( "\r\nRemote-Host: " ).append( remoteHost ).append( "\r\n\r\n" ).append( data, length );
    return out;
}

void GRelayRole::_onClose( const GStreamServer::Connection& connection )
{
    const auto found = _allocations.find( connection.get( ) );
    if( found == _allocations.end( ) ) return;
    const std::shared_ptr<Allocation> allocation( std::move( found->second ) );
    _allocations.erase( found );
    allocation->socket->close( );
    for( const GString& host : { allocation->host, allocation->reached } ) _store.removeAllocation( host );
    _metrics.setGauge( "velmora_allocations", static_cast<int64_t>( _allocations.size( ) ) );
    GLOGPLAIN( u"relay closed=", allocation->reached );
    // A datagram of this very socket may be what ended the connection: it goes when the stack is empty.
    boost::asio::post( _io, [allocation] {} );
}
