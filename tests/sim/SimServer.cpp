#include "sim/SimServer.h"

#include "protocol/GProtocol.h"
#include "server/core/GEndpoint.h"
#include "server/core/GPassword.h"
#include "server/core/GServerMessage.h"
#include "server/relay/GRelayFrame.h"

#include <sodium.h>

#include <gtest/gtest.h>
#include <utility>

namespace
{
constexpr int LOGON_PORT = 4430;
constexpr int STUN_PORT = 4431;
constexpr int REFRESH_PORT = 4434;
constexpr int SIGNALLING_PORT = 4435;
constexpr int RELAY_PORT = 4436;
constexpr uint32_t ADDRESSES[] = { 0xCB007101, 0xCB007102, 0xCB007103 }; // 203.0.113.1 and on.
constexpr int64_t EXPIRY_PERIOD = 60000000;
constexpr int64_t UPDATE_PERIOD = 1000000;

GString hostText( size_t address, int port )
{
    return GWideToUTF8( GSimEnd{ ADDRESSES[address], port }.text( ) );
}
GSimEnd endOf( const GString& host )
{
    return GSimEnd::of( GUTF8ToWide( host ) );
}
GString textOf( const GSimEnd& end )
{
    return GWideToUTF8( end.text( ) );
}

// What the library draws must come from the seed as well.
GSimClock* source_ = nullptr;
const char* sourceName( )
{
    return "simulation";
}
uint32_t draw( )
{
    return static_cast<uint32_t>( source_->draw( int64_t( 1 ) << 32 ) );
}
void fill( void* buffer, size_t size )
{
    for( size_t i = 0; i < size; ++i ) static_cast<unsigned char*>( buffer )[i] = static_cast<unsigned char>( draw( ) );
}
randombytes_implementation seeded_ = { sourceName, draw, nullptr, nullptr, fill, nullptr };
} // namespace

SimServer::SimServer( GSimClock& clock, GSimNet& net ) : _clock( clock ), _net( net )
{
    // What the library draws for itself, once in a process, is no part of the run.
    EXPECT_TRUE( GPasswordInitialize( ) );
    source_ = &clock;
    randombytes_set_implementation( &seeded_ );
    GString error;
    EXPECT_TRUE( _store.open( ":memory:", error ) ) << error;
    config.address = "203.0.113.1";
    config.logon = hostText( 0, LOGON_PORT );
    config.stunDirect = hostText( 0, STUN_PORT );
    config.stunPunched = hostText( 1, STUN_PORT );
    config.stunUnpunched = hostText( 2, STUN_PORT );
    config.stunRefresh = hostText( 0, REFRESH_PORT );
    config.signalling = hostText( 0, SIGNALLING_PORT );
    config.relay = hostText( 0, RELAY_PORT );
    config.passwordMemoryKiB = 8;
    config.passwordPasses = 1;
    // Every client of a simulation may sit behind one box.
    config.relayAllocationsPerAddress = 1000;
    EXPECT_TRUE( config.finish( error ) ) << error;
    _serverHosts = { { config.stunDirect, config.stunPunched, config.stunUnpunched, config.stunRefresh },
                     { config.signalling },
                     config.relay,
                     config.log,
                     config.upgrade };
    for( const uint32_t address : ADDRESSES )
    {
        _hosts.push_back( net.addHost( address ) );
        net.link( _hosts.back( ) ) = { 0, 0, 0, 2000, 500 };
    }
    start( );
}

SimServer::~SimServer( )
{
    stop( );
}

GWString SimServer::logonHost( ) const
{
    return GUTF8ToWide( config.logon );
}

void SimServer::addUser( const GString& user )
{
    const GPasswordLimits limits{ static_cast<uint64_t>( config.passwordPasses ),
                                  static_cast<uint64_t>( config.passwordMemoryKiB ) * 1024 };
    EXPECT_TRUE( _store.addAccount( { user, GPasswordHash( PASSWORD, limits ), "a@b.cd", _clock.now( ) } ) );
}

void SimServer::addBuddy( const GString& user, const GString& buddy )
{
    EXPECT_TRUE( _store.addBuddy( user, buddy ) );
}

uint64_t SimServer::_logonsSince( ) const
{
    return _clock.now( ) - static_cast<uint64_t>( config.logonSeconds ) * 1000000;
}

// ---- The process.

void SimServer::start( )
{
    if( _running ) return;
    _running = true;
    _updating = false;
    ++_run;
    const auto rate = static_cast<double>( config.datagramsPerSecond );
    _stun = std::make_unique<GStunService>( config, metrics );
    _signalling = std::make_unique<GSignallingService>( config, _store, metrics );
    _logon = std::make_unique<GLogonService>( config, _serverHosts, _store, metrics );
    _policy = std::make_unique<GRelayPolicy>( config );
    _policy->setOwnHosts( { config.signalling } );
    _stunLimit = std::make_unique<GRateLimit>( rate, rate * 2 );
    _signallingLimit = std::make_unique<GRateLimit>( rate, rate * 2 );
    EXPECT_TRUE( _store.clearAllocations( ) );
    _signalling->setListeners( { config.signalling } );
    _signalling->load( _clock.now( ) );
    _openPorts( );
    _armExpiry( );
}

void SimServer::_openPorts( )
{
    const std::pair<int, int> ports[] = { { 0, STUN_PORT }, { 1, STUN_PORT }, { 2, STUN_PORT }, { 0, REFRESH_PORT } };
    for( size_t i = 0; i < std::size( ports ); ++i )
        _stunPorts.push_back( _net.openPort( _hosts[static_cast<size_t>( ports[i].first )], ports[i].second,
                                             [this, i]( const GSimEnd& from, const GString& bytes )
                                             { _onStun( static_cast<GStunSocket>( i ), from, bytes ); } ) );
    _signallingPort =
        _net.openPort( _hosts[0], SIGNALLING_PORT,
                       [this]( const GSimEnd& from, const GString& bytes ) { _onSignalling( from, bytes ); } );
    _net.listen( _hosts[0], LOGON_PORT, [this]( const std::shared_ptr<GSimStream>& stream ) { _onLogon( stream ); } );
    _net.listen( _hosts[0], RELAY_PORT, [this]( const std::shared_ptr<GSimStream>& stream ) { _onRelay( stream ); } );
}

void SimServer::stop( )
{
    if( !_running ) return;
    _running = false;
    ++_run;
    for( const int port : _stunPorts ) _net.closePort( port );
    _stunPorts.clear( );
    _net.closePort( _signallingPort );
    for( const int port : { LOGON_PORT, RELAY_PORT } ) _net.unlisten( _hosts[0], port );
    while( !_allocations.empty( ) )
    {
        _allocations.begin( )->second.talk.stream->close( );
        _closeAllocation( _allocations.begin( )->first );
    }
    _stun.reset( );
    _signalling.reset( );
    _logon.reset( );
}

// ---- STUN.

void SimServer::_onStun( GStunSocket socket, const GSimEnd& from, const GString& bytes )
{
    if( !_stunLimit->take( GEndpoint::addressOf( textOf( from ) ), _clock.now( ) ) ) return;
    _stun->onDatagram( socket, textOf( from ), bytes, _clock.now( ), _stunOut );
    _sendStun( );
    if( socket == STUN_REFRESH ) _armStun( );
}

void SimServer::_sendStun( )
{
    for( const GDatagramList::Item& datagram : _stunOut )
        _net.sendFrom( _stunPorts[datagram.socket], endOf( datagram.to ), datagram.bytes );
    _stunOut.clear( );
}

void SimServer::_armStun( )
{
    const int64_t due = _stun->nextDue( _clock.now( ) );
    if( due < 0 ) return;
    _clock.after( due,
                  [this, run = _run]
                  {
                      if( run != _run ) return;
                      _stun->onTime( _clock.now( ), _stunOut );
                      if( _stunOut.empty( ) ) return;
                      _sendStun( );
                      _armStun( );
                  } );
}

// ---- Signalling.

void SimServer::_onSignalling( const GSimEnd& from, const GString& bytes )
{
    const GString host = textOf( from );
    // Clients behind the relay share its address but not their limit.
    const bool relayed = from.address == ADDRESSES[0];
    if( !_signallingLimit->take( relayed ? host : GEndpoint::addressOf( host ), _clock.now( ) ) ) return;
    _store.beginBatch( );
    _signalling->onDatagram( 0, host, bytes, _clock.now( ), _signallingOut );
    // Only then the answers leave.
    if( !_store.endBatch( ) ) _signallingOut.clear( );
    _sendSignalling( );
}

// Repeats to devices that owe an answer, while there is one.
void SimServer::_sendSignalling( )
{
    for( const GDatagramList::Item& datagram : _signallingOut )
        _net.sendFrom( _signallingPort, endOf( datagram.to ), datagram.bytes );
    _signallingOut.clear( );
    if( _signalling->isIdle( ) || std::exchange( _updating, true ) ) return;
    _clock.after( UPDATE_PERIOD,
                  [this, run = _run]
                  {
                      if( run != _run ) return;
                      _updating = false;
                      _signalling->update( _clock.now( ), _signallingOut );
                      _sendSignalling( );
                  } );
}

void SimServer::_armExpiry( )
{
    _clock.after( EXPIRY_PERIOD,
                  [this, run = _run]
                  {
                      if( run != _run ) return;
                      _signalling->expire( _clock.now( ) );
                      _armExpiry( );
                  } );
}

// ---- Logon.

void SimServer::_onLogon( const std::shared_ptr<GSimStream>& stream )
{
    stream->onBytes = [this, weak = std::weak_ptr( stream ), run = _run,
                       received = std::make_shared<GString>( )]( const GString& bytes )
    {
        const auto open = weak.lock( );
        if( run != _run || !open ) return;
        *received += bytes;
        GHTTPHeaders request;
        if( !request.deserialize( *received ) ) return;
        received->clear( );
        GLogonTask task;
        GString reply;
        const GString address = GEndpoint::addressOf( textOf( open->remote ) );
        if( _logon->begin( request, address, _clock.now( ), task, reply ) )
        {
            GLogonService::run( task );
            reply = _logon->end( task, _clock.now( ) );
        }
        if( !reply.empty( ) ) open->send( reply );
        open->close( );
    };
}

// ---- Relay: one allocation a connection.

void SimServer::_onRelay( const std::shared_ptr<GSimStream>& stream )
{
    const int id = _nextAllocation++;
    _allocations[id].talk.stream = stream;
    stream->onClose = [this, id, run = _run]
    {
        if( run == _run ) _closeAllocation( id );
    };
    stream->onBytes = [this, id, run = _run]( const GString& bytes )
    {
        if( run != _run || !GMAPCONTAINS( _allocations, id ) ) return;
        _allocations[id].talk.received += bytes;
        GHTTPHeaders message;
        while( GMAPCONTAINS( _allocations, id ) )
        {
            Allocation& allocation = _allocations[id];
            GString& received = allocation.talk.received;
            // As the role does: what is written the common way is read without a message in between.
            GRelayFrame frame;
            if( const size_t taken = frame.read( received.data( ), received.size( ) ) )
            {
                if( allocation.port >= 0 )
                    _sendRelayed( allocation, { frame.address, frame.port },
                                  GString( frame.content, frame.contentLength ) );
                GConsume( received, static_cast<int>( taken ) );
                continue;
            }
            const int used = message.deserialize( received );
            if( used <= 0 ) return;
            GConsume( received, used );
            _onRelayMessage( id, message );
        }
    };
}

void SimServer::_onRelayMessage( int id, const GHTTPHeaders& message )
{
    Allocation& allocation = _allocations[id];
    if( message.isMethod( GProtocol::OPENTURN ) )
    {
        if( !_store.hasAnyLogon( GEndpoint::addressOf( textOf( allocation.talk.stream->remote ) ), _logonsSince( ) ) )
            allocation.talk.stream->send( GServerMessage::compose( message, 403, u"Forbidden" ) );
        else
            _openAllocation( allocation, message );
    }
    else if( message.isMethod( GProtocol::SENDUDP ) && allocation.port >= 0 )
    {
        if( message.getContentCount( ) == 1 )
            _sendRelayed( allocation, GSimEnd::of( message.get( GProtocol::REMOTE_HOST ) ), message.getContent( 0 ) );
    }
}

void SimServer::_openAllocation( Allocation& allocation, const GHTTPHeaders& request )
{
    const std::shared_ptr<GSimStream> stream = allocation.talk.stream;
    if( allocation.port < 0 )
    {
        const auto onDatagram = [this, stream, &allocation]( const GSimEnd& from, const GString& bytes )
        {
            if( !_policy->take( allocation.share.inward, bytes.size( ), _clock.now( ) ) ) return;
            const boost::asio::ip::udp::endpoint source( boost::asio::ip::address_v4( from.address ),
                                                         static_cast<unsigned short>( from.port ) );
            GString frame;
            GRelayFrame::append( frame, source, bytes.data( ), bytes.size( ) );
            stream->send( frame );
        };
        allocation.port = _net.openPort( _hosts[0], 0, onDatagram );
        allocation.host = textOf( _net.endOf( allocation.port ) );
        EXPECT_TRUE( _store.putAllocation( allocation.host, GEndpoint::addressOf( textOf( stream->remote ) ) ) );
    }
    GHTTPHeaders answer = GServerMessage::reply( request, GHTTP_SUCCESS, u"OK" );
    answer.set( GProtocol::GLOBAL_HOST, GUTF8ToWide( allocation.host ) );
    stream->send( answer.serialize( ) );
}

void SimServer::_sendRelayed( Allocation& allocation, const GSimEnd& to, const GString& bytes )
{
    // A client that sends to itself would only go round in circles.
    if( !to.port || to == _net.endOf( allocation.port ) ) return;
    if( !_policy->maySendTo( to.address, static_cast<unsigned short>( to.port ) ) ) return;
    if( _policy->take( allocation.share.outward, bytes.size( ), _clock.now( ) ) )
        _net.sendFrom( allocation.port, to, bytes );
}

void SimServer::_closeAllocation( int id )
{
    const auto found = _allocations.find( id );
    if( found == _allocations.end( ) ) return;
    if( found->second.port >= 0 )
    {
        _net.closePort( found->second.port );
        _store.removeAllocation( found->second.host );
    }
    _allocations.erase( found );
}
