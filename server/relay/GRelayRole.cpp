#include "server/relay/GRelayRole.h"

#include "base/GRandom.h"
#include "platform/GTime.h"
#include "protocol/GProtocol.h"
#include "server/core/GServerMessage.h"
#include "server/relay/GRelayFrame.h"

#include <boost/asio/post.hpp>

namespace
{
constexpr uint64_t SECOND = 1000000;
constexpr size_t MAX_UDP = 65507;
// Of a call nobody wants what is older than a moment: the system keeps no more than that for a client.
constexpr int SEND_BUFFER = 262144;
constexpr size_t MAX_KEPT = 262144;

GStreamLimits limitsOf( const GServerConfig& config )
{
    GStreamLimits limits;
    limits.headerBytes = 4096;
    limits.messageBytes = 131072;
    limits.connections = config.relayAllocations + 64;
    limits.connectionsPerAddress = config.relayAllocationsPerAddress + 8;
    limits.sendBufferBytes = SEND_BUFFER;
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
    _server.setFrameHandlers( [this]( const auto& connection, const char* data, size_t length )
                              { return _onFrame( connection, data, length ); },
                              [this]( const auto& connection ) { _flushOutward( connection ); } );
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
    GEndpoint::parse( allocation->host, allocation->bound );
    GEndpoint::parse( allocation->reached, allocation->reachedAt );
    Allocation* raw = allocation.get( );
    raw->socket->start( [this, raw]( const GDatagramSocket::Endpoint& from, const char* data, size_t length )
                        { _onDatagram( *raw, from, data, length ); },
                        [this, raw] { _flushInward( *raw ); } );
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

// Outward: frames of the usual form go here, before any parser.
size_t GRelayRole::_onFrame( const GStreamServer::Connection& connection, const char* data, size_t length )
{
    GRelayFrame frame;
    const size_t taken = frame.read( data, length );
    const auto found = taken ? _allocations.find( connection.get( ) ) : _allocations.end( );
    if( found == _allocations.end( ) ) return 0;
    const GDatagramSocket::Endpoint to( boost::asio::ip::address_v4( frame.address ), frame.port );
    if( _mayLeave( *found->second, to, frame.contentLength ) )
        _outward.push_back( { to, frame.content, frame.contentLength } );
    return taken;
}
void GRelayRole::_onSENDUDP( Allocation& allocation, const GHTTPHeaders& request )
{
    _flushOutward( allocation.connection ); // What came before leaves before.
    GDatagramSocket::Endpoint to;
    const bool good = request.getContentCount( ) == 1 && !request.getContent( 0 ).empty( ) &&
                      GEndpoint::parse( GWideToUTF8( request.get( GProtocol::REMOTE_HOST ) ), to );
    if( !good ) return _metrics.count( "relay", "SENDUDP", "dropped" );
    const GString& bytes = request.getContent( 0 );
    if( !_mayLeave( allocation, to, bytes.size( ) ) ) return;
    _outward.push_back( { to, bytes.data( ), bytes.size( ) } );
    _flushOutward( allocation.connection );
}
bool GRelayRole::_mayLeave( Allocation& allocation, const GDatagramSocket::Endpoint& to, size_t length )
{
    std::string_view result;
    if( length > MAX_UDP )
        result = "dropped";
    else if( !_policy.maySendTo( to.address( ).to_v4( ).to_uint( ), to.port( ) ) || to == allocation.bound ||
             to == allocation.reachedAt ) // A client that sends to itself would only go round in circles.
        result = "forbidden";
    else if( !_policy.take( allocation.share.outward, length, GTimeGetTime( ) ) )
        result = "limited";
    if( !result.empty( ) ) _metrics.count( "relay", "SENDUDP", result );
    return result.empty( );
}
void GRelayRole::_flushOutward( const GStreamServer::Connection& connection )
{
    if( _outward.empty( ) ) return;
    const auto found = _allocations.find( connection.get( ) );
    const size_t count = _outward.size( );
    const size_t sent = found == _allocations.end( ) ? 0 : found->second->socket->send( _outward.data( ), count, true );
    _outward.clear( );
    if( sent ) _metrics.count( "relay", "SENDUDP", "sent", sent );
    if( sent < count ) _metrics.count( "relay", "SENDUDP", "shed", count - sent );
}

// Inward: the datagrams of a batch become one piece of the stream; those that its reader is too slow for are dropped whole.
void GRelayRole::_onDatagram( Allocation& allocation, const GDatagramSocket::Endpoint& from, const char* data,
                              size_t length )
{
    if( !length ) return;
    if( !_policy.take( allocation.share.inward, length, GTimeGetTime( ) ) )
        return _metrics.count( "relay", "datagram", "limited" );
    if( _inward.size( ) > MAX_KEPT / 2 ) _flushInward( allocation );
    if( !allocation.connection->hasRoom( _inward.size( ) + length + GRelayFrame::MAX_OVERHEAD ) )
        return _metrics.count( "relay", "datagram", "shed" );
    GRelayFrame::append( _inward, from, data, length );
    ++_inwardCount;
}
void GRelayRole::_flushInward( Allocation& allocation )
{
    if( _inward.empty( ) ) return;
    const bool sent = allocation.connection->send( _inward );
    _metrics.count( "relay", "datagram", sent ? "sent" : "shed", _inwardCount );
    _inward.clear( );
    _inwardCount = 0;
    if( _inward.capacity( ) > MAX_KEPT ) _inward.shrink_to_fit( );
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
