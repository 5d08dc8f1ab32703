#include "server/logon/GLogonRole.h"

#include "platform/GTime.h"

#include <boost/asio/post.hpp>

namespace
{
GStreamLimits limitsOf( const GServerConfig& config )
{
    GStreamLimits limits;
    limits.connections = config.connections;
    limits.connectionsPerAddress = config.connectionsPerAddress;
    return limits;
}
} // namespace

GLogonRole::GLogonRole( boost::asio::io_context& io, const GServerConfig& config, const GServerHosts& hosts,
                        GServerStore& store, GMetrics& metrics )
    : _io( io ), _config( config ), _metrics( metrics ), _service( config, hosts, store, metrics ),
      _server( io, limitsOf( config ) ), _pool( static_cast<size_t>( config.passwordThreads ) )
{
}
GLogonRole::~GLogonRole( )
{
    _pool.stop( );
    _pool.join( );
}

bool GLogonRole::open( GString& error )
{
    return _server.open( GServerHost::split( _config.logon ).bind, error );
}
void GLogonRole::reload( )
{
    _service.reload( );
    _server.setLimits( limitsOf( _config ) );
}
void GLogonRole::start( )
{
    _server.start( [this]( const auto& connection, const GHTTPHeaders& message ) { _onMessage( connection, message ); },
                   nullptr, [this]( std::string_view reason ) { _metrics.count( "logon", "any", reason ); } );
}
void GLogonRole::drain( )
{
    _server.stopAccepting( );
}

void GLogonRole::_onMessage( const GStreamServer::Connection& connection, const GHTTPHeaders& message )
{
    auto task = std::make_shared<GLogonTask>( );
    GString reply;
    const GString& address = connection->remoteAddress( );
    if( !_service.begin( message, address, GTimeGetTime( ), *task, reply ) )
    {
        if( !reply.empty( ) ) connection->send( reply );
        return connection->finish( );
    }
    if( _pending >= _config.passwordPending )
    {
        connection->send( _service.refuse( message, address ) );
        return connection->finish( );
    }
    ++_pending;
    connection->setBusy( true );
    boost::asio::post( _pool,
                       [this, task, connection]
                       {
                           GLogonService::run( *task );
                           boost::asio::post( _io,
                                              [this, task, connection]
                                              {
                                                  --_pending;
                                                  // What the account gains is stored also when its client has gone: a client may connect twice.
                                                  connection->send( _service.end( *task, GTimeGetTime( ) ) );
                                                  connection->setBusy( false );
                                              } );
                       } );
}
