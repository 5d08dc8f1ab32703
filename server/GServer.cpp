#include "server/GServer.h"

#include "platform/GTime.h"
#include "server/core/GServerMessage.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <csignal>

struct GServer::Signals
{
    explicit Signals( boost::asio::io_context& io ) : set( io, SIGHUP, SIGTERM, SIGINT ) {}
    boost::asio::signal_set set;
};

namespace
{
constexpr uint64_t SECOND = 1000000;
constexpr auto DRAIN_POLL = std::chrono::milliseconds( 20 );

// What clients are told: the setting, with the port that the system chose where the setting leaves it open.
GString reachedHost( const GString& setting, const GString& bound )
{
    GString reached = GServerHost::split( setting ).reached;
    if( !reached.ends_with( ":0" ) || bound.empty( ) ) return reached;
    return GEndpoint::addressOf( reached ) + bound.substr( bound.find( ':' ) );
}
GString joined( const std::vector<GString>& items )
{
    GString out;
    for( const GString& item : items ) out += ( out.empty( ) ? "" : "," ) + item;
    return out;
}
} // namespace

GServer::GServer( const GServerConfig& config, const GString& configPath )
    : _config( config ), _configPath( configPath ), _drainTimer( _io )
{
}
GServer::~GServer( )
{
    // Roles go before the store and the figures that they use; queued handlers that hold connections go with the loop.
    if( _relay ) _relay->close( );
}

bool GServer::open( GString& error )
{
    if( !GPasswordInitialize( ) )
    {
        error = "the cryptography library does not start";
        return false;
    }
    if( !_store.open( _config.store, error ) || !_store.check( error ) || !_openRoles( error ) ||
        !_loadCertificate( error ) || !_openMetrics( error ) )
        return false;
    _composeHosts( );
    _start( );
    _store.setValue( "ready", readyLine( ) );
    return true;
}
bool GServer::_openRoles( GString& error )
{
    if( _config.hasRole( "stun" ) ) _stun = std::make_unique<GStunRole>( _io, _config, _metrics );
    if( _config.hasRole( "signalling" ) )
        _signalling = std::make_unique<GSignallingRole>( _io, _config, _store, _metrics );
    if( _config.hasRole( "relay" ) ) _relay = std::make_unique<GRelayRole>( _io, _config, _store, _metrics );
    if( _config.hasRole( "logon" ) ) _logon = std::make_unique<GLogonRole>( _io, _config, _hosts, _store, _metrics );
    if( _config.hasRole( "log" ) ) _log = std::make_unique<GLogRole>( _io, _config, _store, _metrics );
    if( _config.hasRole( "upgrade" ) ) _upgrade = std::make_unique<GUpgradeRole>( _io, _config, _metrics );
    return ( !_stun || _stun->open( error ) ) && ( !_signalling || _signalling->open( error ) ) &&
           ( !_relay || _relay->open( error ) ) && ( !_logon || _logon->open( error ) ) &&
           ( !_log || _log->open( error ) ) && ( !_upgrade || _upgrade->open( error ) );
}
// The certificate as it is now; a bad one leaves the last one in use.
bool GServer::_loadCertificate( GString& error )
{
    GTlsFront::Context context;
    if( !_config.tlsCertificate.empty( ) )
    {
        context = GTlsFront::load( _config.tlsCertificate, _config.tlsKey, error );
        if( !context ) return false;
    }
    if( _fronts.empty( ) )
    {
        if( _logon ) _fronts.push_back( std::make_unique<GTlsFront>( _logon->stream( ), _metrics, "logon" ) );
        if( _log ) _fronts.push_back( std::make_unique<GTlsFront>( _log->stream( ), _metrics, "log" ) );
        if( _upgrade ) _fronts.push_back( std::make_unique<GTlsFront>( _upgrade->stream( ), _metrics, "upgrade" ) );
    }
    for( const auto& front : _fronts )
        front->setContext( context, _config.tlsRequired && _logon && front == _fronts.front( ) );
    return true;
}
bool GServer::_openMetrics( GString& error )
{
    if( !_config.hasRole( "metrics" ) ) return true;
    GStreamLimits limits;
    limits.connections = 16;
    limits.connectionsPerAddress = 16;
    _metricsServer = std::make_unique<GStreamServer>( _io, limits );
    return _metricsServer->open( GServerHost::split( _config.metrics ).bind, error );
}
// Roles that run elsewhere are told as the settings name them.
void GServer::_composeHosts( )
{
    _hosts.stun = GStunRole( _io, _config, _metrics ).hosts( );
    if( _stun ) _hosts.stun = _stun->hosts( );
    for( const GWString& item : GSplitList( GUTF8ToWide( _config.signalling ) ) )
        _hosts.signalling.push_back( GServerHost::split( GWideToUTF8( item ) ).reached );
    if( _signalling ) _hosts.signalling = _signalling->hosts( );
    _hosts.relay = reachedHost( _config.relay, _relay ? _relay->host( ) : GString( ) );
    _hosts.log = reachedHost( _config.log, _log ? _log->host( ) : GString( ) );
    _hosts.upgrade = reachedHost( _config.upgrade, _upgrade ? _upgrade->host( ) : GString( ) );
}
void GServer::_start( )
{
    if( _stun ) _stun->start( );
    if( _signalling ) _signalling->start( );
    if( _relay ) _relay->start( _hosts.signalling );
    if( _logon ) _logon->start( );
    if( _log ) _log->start( );
    if( _upgrade ) _upgrade->start( );
    if( _metricsServer ) _startMetrics( );
}
void GServer::_startMetrics( )
{
    _metrics.setGauge( "velmora_up", 1 ); // A server that nobody has asked yet has figures too.
    const auto onMessage = [this]( const GStreamServer::Connection& connection, const GHTTPHeaders& message )
    {
        GWString uri;
        const bool good = message.getMethod( uri ) == u"GET" && uri == u"/metrics";
        GHTTPHeaders answer = GServerMessage::reply( message, good ? GHTTP_SUCCESS : 404, good ? u"OK" : u"Not Found" );
        answer.set( u"Content-Type", u"text/plain; version=0.0.4" );
        answer.addContent( good ? _metrics.compose( ) : GString( ) );
        connection->send( answer.serialize( ) );
        connection->finish( );
    };
    _metricsServer->start( onMessage, nullptr, nullptr );
}

GString GServer::readyLine( ) const
{
    GString line = "ready";
    if( _logon ) line += " logon=" + reachedHost( _config.logon, _logon->host( ) );
    if( _stun ) line += " stun=" + joined( _hosts.stun );
    if( _signalling ) line += " signalling=" + joined( _hosts.signalling );
    if( _relay ) line += " relay=" + _hosts.relay;
    if( _log ) line += " log=" + _hosts.log;
    if( _upgrade ) line += " upgrade=" + _hosts.upgrade;
    if( _metricsServer ) line += " metrics=" + _metricsServer->host( );
    return line;
}

void GServer::run( )
{
    const auto work = boost::asio::make_work_guard( _io );
    _io.run( );
}
void GServer::stop( )
{
    _io.stop( );
}

// A file that can't be taken leaves everything as it is.
void GServer::reload( )
{
    GServerConfig config;
    GString error;
    if( !_configPath.empty( ) && ( !config.load( _configPath, error ) || !config.finish( error ) ) )
    {
        GLOGPLAIN( u"ERROR reload result=failed text='", error, u"'" );
        return;
    }
    const std::vector<std::string_view> waiting =
        _configPath.empty( ) ? std::vector<std::string_view>( ) : _config.takeLive( config );
    if( _stun ) _stun->reload( );
    if( _signalling ) _signalling->reload( );
    if( _relay ) _relay->reload( );
    if( _logon ) _logon->reload( );
    if( _log ) _log->reload( );
    if( _upgrade ) _upgrade->reload( );
    if( !_loadCertificate( error ) ) GLOGPLAIN( u"ERROR reload result=failed text='", error, u"'" );
    GString later;
    for( const std::string_view key : waiting ) later.append( later.empty( ) ? "" : "," ).append( key );
    GLOGPLAIN( u"reload result=done", later.empty( ) ? u"" : u" next_start=", later );
}

// Nothing new is taken; what has begun gets its answer, within a few seconds. Everything acknowledged is in the store already.
void GServer::drain( )
{
    if( _drainEnd ) return stop( );
    GLOGPLAIN( u"drain" );
    _drainEnd = GTimeGetTime( ) + static_cast<uint64_t>( _config.drainSeconds ) * SECOND;
    if( _relay ) _relay->drain( );
    if( _logon ) _logon->drain( );
    if( _log ) _log->drain( );
    if( _upgrade ) _upgrade->drain( );
    _pollDrain( );
}
void GServer::_pollDrain( )
{
    const bool idle =
        ( !_logon || _logon->isIdle( ) ) && ( !_log || _log->isIdle( ) ) && ( !_upgrade || _upgrade->isIdle( ) ) &&
        std::all_of( _fronts.begin( ), _fronts.end( ), []( const auto& front ) { return front->isIdle( ); } );
    const bool over = GTimeGetTime( ) >= _drainEnd;
    _drainTimer.expires_after( DRAIN_POLL );
    // One more turn after the last answer lets its bytes leave.
    _drainTimer.async_wait(
        [this, idle, over]( const boost::system::error_code& code )
        {
            if( code ) return;
            if( !idle && !over ) return _pollDrain( );
            GLOGPLAIN( u"stopped" );
            stop( );
        } );
}

void GServer::watchSignals( )
{
    _signals = std::make_unique<Signals>( _io );
    _awaitSignal( );
}
void GServer::_awaitSignal( )
{
    _signals->set.async_wait(
        [this]( const boost::system::error_code& code, int signal )
        {
            if( code ) return;
            if( signal == SIGHUP )
                reload( );
            else
                drain( );
            _awaitSignal( );
        } );
}
