#include "server/signalling/GSignallingRole.h"

#include "base/GUtil.h"
#include "platform/GTime.h"

namespace
{
constexpr auto EXPIRY_PERIOD = std::chrono::seconds( 60 );
constexpr auto UPDATE_PERIOD = std::chrono::milliseconds( 500 );
} // namespace

GSignallingRole::GSignallingRole( boost::asio::io_context& io, const GServerConfig& config, GServerStore& store,
                                  GMetrics& metrics )
    : _config( config ), _store( store ), _metrics( metrics ), _service( config, store, metrics ), _limit( 1, 1 ),
      _io( io ), _timer( io ), _updateTimer( io )
{
    unsigned short port = 0;
    GEndpoint::parse( GServerHost::split( config.relayUDP ).bind + ":0", _relayAddress, port );
    reload( );
}

bool GSignallingRole::open( GString& error )
{
    for( const GWString& item : GSplitList( GUTF8ToWide( _config.signalling ) ) )
    {
        const GServerHost host = GServerHost::split( GWideToUTF8( item ) );
        _sockets.push_back( std::make_unique<GDatagramSocket>( _io ) );
        if( !_sockets.back( )->open( host.bind, error ) ) return false;
        const GString& bound = _sockets.back( )->host( );
        const bool chosen = host.reached.ends_with( ":0" );
        _reached.push_back( chosen ? GEndpoint::addressOf( host.reached ) + bound.substr( bound.find( ':' ) )
                                   : host.reached );
    }
    _service.setListeners( boundHosts( ) );
    _service.load( GTimeGetTime( ) );
    return true;
}
void GSignallingRole::start( )
{
    for( size_t i = 0; i < _sockets.size( ); ++i )
        _sockets[i]->start( [this, i]( const GDatagramSocket::Endpoint& from, const char* data, size_t length )
                            { _onDatagram( i, from, data, length ); },
                            [this] { _endBatch( ); } );
    _armExpiry( );
}
void GSignallingRole::close( )
{
    boost::system::error_code ignored;
    _timer.cancel( ignored );
    _updateTimer.cancel( ignored );
    for( const auto& socket : _sockets ) socket->close( );
}
void GSignallingRole::reload( )
{
    const auto rate = static_cast<double>( _config.datagramsPerSecond );
    _limit.setRate( rate, rate * 2 );
    _service.reload( );
}
std::vector<GString> GSignallingRole::boundHosts( ) const
{
    std::vector<GString> hosts;
    for( const auto& socket : _sockets ) hosts.push_back( socket->host( ) );
    return hosts;
}
std::vector<GString> GSignallingRole::hosts( ) const
{
    return _reached;
}

void GSignallingRole::_onDatagram( size_t listener, const GDatagramSocket::Endpoint& from, const char* data,
                                   size_t length )
{
    const uint64_t now = GTimeGetTime( );
    // Clients behind the relay share its address but not their limit.
    const uint32_t address = from.address( ).to_v4( ).to_uint( );
    const uint64_t port = address == _relayAddress ? from.port( ) : 0;
    if( !_limit.take( port << 32 | address, now ) ) return _metrics.count( "signalling", "any", "limited" );
    if( !_batching ) _store.beginBatch( );
    _batching = true;
    GEndpoint::compose( from, _from );
    _service.onDatagram( listener, _from, { data, length }, now, _out );
}
// What the datagrams of one batch changed is stored at once; only then their answers leave.
void GSignallingRole::_endBatch( )
{
    if( !_batching ) return;
    _batching = false;
    if( !_store.endBatch( ) ) _out.clear( ); // They come again, since nobody has answered.
    _sendAll( );
    _metrics.setGauge( "velmora_registrations", static_cast<int64_t>( _service.registrationCount( ) ) );
}
void GSignallingRole::_sendAll( )
{
    GDatagramSendAll( _sockets, _out );
    _out.clear( );
    if( !_service.isIdle( ) && !_updating ) _armUpdate( );
}
// Runs only while a device owes an answer.
void GSignallingRole::_armUpdate( )
{
    _updating = true;
    _updateTimer.expires_after( UPDATE_PERIOD );
    _updateTimer.async_wait(
        [this]( const boost::system::error_code& code )
        {
            _updating = false;
            if( code ) return;
            _service.update( GTimeGetTime( ), _out );
            _sendAll( );
        } );
}
void GSignallingRole::_armExpiry( )
{
    _timer.expires_after( EXPIRY_PERIOD );
    _timer.async_wait(
        [this]( const boost::system::error_code& code )
        {
            if( code ) return;
            _service.expire( GTimeGetTime( ) );
            _metrics.setGauge( "velmora_registrations", static_cast<int64_t>( _service.registrationCount( ) ) );
            _armExpiry( );
        } );
}
