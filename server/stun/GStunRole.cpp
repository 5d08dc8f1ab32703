#include "server/stun/GStunRole.h"

#include "base/GPortable.h"
#include "platform/GTime.h"

#include <set>

namespace
{
const GString GServerConfig::*const SETTINGS[] = { &GServerConfig::stunDirect, &GServerConfig::stunPunched,
                                                   &GServerConfig::stunUnpunched, &GServerConfig::stunRefresh };
}

GStunRole::GStunRole( boost::asio::io_context& io, const GServerConfig& config, GMetrics& metrics )
    : _config( config ), _metrics( metrics ), _service( config, metrics ),
      _limit( static_cast<double>( config.datagramsPerSecond ), static_cast<double>( config.datagramsPerSecond ) * 2 ),
      _timer( io )
{
    for( size_t i = 0; i < std::size( SETTINGS ); ++i ) _sockets.push_back( std::make_unique<GDatagramSocket>( io ) );
}

bool GStunRole::open( GString& error )
{
    std::set<GString> addresses;
    for( size_t i = 0; i < _sockets.size( ); ++i )
    {
        const GServerHost host = GServerHost::split( _config.*SETTINGS[i] );
        if( !_sockets[i]->open( host.bind, error ) ) return false;
        if( i <= STUN_UNPUNCHED ) addresses.insert( GEndpoint::addressOf( host.reached ) );
    }
    if( addresses.size( ) < 3 )
        GLOGPLAIN( u"notice role=stun addresses=", addresses.size( ),
                   u" text='telling the five kinds of network apart needs the direct, punched and unpunched hosts on "
                   u"three addresses'" );
    return true;
}
void GStunRole::start( )
{
    for( size_t i = 0; i < _sockets.size( ); ++i )
        _sockets[i]->start( [this, i]( const GDatagramSocket::Endpoint& from, const char* data, size_t length )
                            { _onDatagram( static_cast<GStunSocket>( i ), from, data, length ); },
                            [this, i]
                            {
                                _sendAll( );
                                if( i == STUN_REFRESH ) _arm( );
                            } );
}
void GStunRole::close( )
{
    boost::system::error_code ignored;
    _timer.cancel( ignored );
    for( const auto& socket : _sockets ) socket->close( );
}
void GStunRole::reload( )
{
    const auto rate = static_cast<double>( _config.datagramsPerSecond );
    _limit.setRate( rate, rate * 2 );
}
std::vector<GString> GStunRole::hosts( ) const
{
    std::vector<GString> hosts;
    for( size_t i = 0; i < _sockets.size( ); ++i )
    {
        const GString reached = GServerHost::split( _config.*SETTINGS[i] ).reached;
        const bool chosen = reached.ends_with( ":0" ) && !_sockets[i]->host( ).empty( );
        hosts.push_back( chosen ? GEndpoint::addressOf( reached ) +
                                      _sockets[i]->host( ).substr( _sockets[i]->host( ).find( ':' ) )
                                : reached );
    }
    return hosts;
}

void GStunRole::_onDatagram( GStunSocket socket, const GDatagramSocket::Endpoint& from, const char* data,
                             size_t length )
{
    const uint64_t now = GTimeGetTime( );
    if( !_limit.take( from.address( ).to_v4( ).to_uint( ), now ) ) return _metrics.count( "stun", "any", "limited" );
    GEndpoint::compose( from, _from );
    _service.onDatagram( socket, _from, { data, length }, now, _out );
}
void GStunRole::_sendAll( )
{
    GDatagramSendAll( _sockets, _out );
    _out.clear( );
}
void GStunRole::_arm( )
{
    const int64_t due = _service.nextDue( GTimeGetTime( ) );
    if( due < 0 ) return;
    _timer.expires_after( std::chrono::microseconds( due ) );
    _timer.async_wait(
        [this]( const boost::system::error_code& code )
        {
            if( code ) return;
            _service.onTime( GTimeGetTime( ), _out );
            _sendAll( );
            _arm( );
        } );
}
