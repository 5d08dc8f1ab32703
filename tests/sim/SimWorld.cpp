#include "sim/SimWorld.h"

#include "protocol/GProtocol.h"

#include <cstdlib>

namespace
{
constexpr uint32_t PRIVATE_ADDRESS = 0xC0A8010A; // 192.168.1.10
constexpr int64_t S = SimWorld::SECOND;
constexpr size_t MAX_FAILURES = 20;
constexpr uint64_t CHAT_TIME = 20 * S;
constexpr int COPIES = 5;

// How long a state may last, with a round's lateness; 0 is for ever.
int64_t sessionBound( int state, bool robust )
{
    switch( state )
    {
    case GDeviceSession::WF_INVITERESPONSE: return ( robust ? 36 : 18 ) * S + 2 * S;
    case GDeviceSession::WT_REINVITE: return 12 * S;
    // An INVITE with a new number begins it afresh; a caller sends three.
    case GDeviceSession::WF_ACK: return ( robust ? 54 : 18 ) * S + 2 * S;
    case GDeviceSession::WF_ACKRESPONSE: return ( robust ? 36 : 18 ) * S + 2 * S;
    case GDeviceSession::WF_BYERESPONSE: return 20 * S;
    default: return 0;
    }
}
int64_t dispatchBound( int state )
{
    switch( state )
    {
    case GDispatchService::OFFLINE:
    case GDispatchService::ONLINE:
    case GDispatchService::REREGISTERING: return 0;
    case GDispatchService::REGISTERING: return 40 * S;
    default: return 8 * S;
    }
}
int64_t sipBound( int state, bool robust )
{
    if( state == GSIPService::LEAVING_BUDDIES ) return 22 * S;
    if( state == GSIPService::SETTING_BUDDY_LIST && robust ) return 12 * S;
    return 0;
}
} // namespace

SimWorld::SimWorld( uint32_t seed, bool robust ) : clock( seed ), _seed( seed ), _robust( robust )
{
    net.setObserver(
        [this]( int host, const GSimEnd&, const GString& bytes )
        {
            const size_t at = bytes.find( "line-" );
            if( at == GString::npos || bytes.find( "DEVICEBROADCAST" ) != 0 ) return;
            const auto line = _lines.find( bytes.substr( at, bytes.find_first_of( "\r\n", at ) - at ) );
            const auto client = _clientByHost.find( host );
            if( line != _lines.end( ) && client != _clientByHost.end( ) && client->second == line->second.from )
                ++line->second.copies;
        },
        [this]( int host, const GSimEnd&, const GString& bytes )
        {
            const auto client = _clientByHost.find( host );
            if( client == _clientByHost.end( ) ) return;
            clients[client->second]->noteArrival( bytes );
            const size_t at = bytes.find( "line-" );
            if( at == GString::npos || bytes.find( "DEVICEBROADCAST" ) == GString::npos ) return;
            const auto line = _lines.find( bytes.substr( at, bytes.find_first_of( "\r\n", at ) - at ) );
            if( line != _lines.end( ) && client->second == line->second.to ) ++line->second.delivered;
        } );
}

SimWorld::~SimWorld( ) = default;

// ---- Building.

int SimWorld::addHome( GSimNat kind, int64_t mappingLife )
{
    const uint32_t address = _nextAddress++;
    if( kind == GSimNat::PUBLIC ) return net.addHost( address );
    const int box = net.addBox( kind, address, mappingLife );
    // Homes with the same addresses inside are common, and a trap.
    const int host = net.addHost( PRIVATE_ADDRESS + static_cast<uint32_t>( clock.draw( 3 ) ), box );
    _boxByHost[host] = box;
    return host;
}

int SimWorld::addNeighbour( int host )
{
    const int box = _boxByHost.at( host );
    const int neighbour = net.addHost( PRIVATE_ADDRESS + 100 + static_cast<uint32_t>( clients.size( ) ), box );
    _boxByHost[neighbour] = box;
    return neighbour;
}

SimClient& SimWorld::addClient( const GString& user, int host )
{
    if( _users.insert( user ).second ) server.addUser( user );
    const size_t index = clients.size( );
    const GString name = user.substr( 0, user.find( '@' ) ) + "." + std::to_string( index );
    _clientByHost[host] = index;
    clients.push_back(
        std::make_unique<SimClient>( clock, net, log, host, name, SimAccount{ user, server.logonHost( ), _robust } ) );
    SimClient& client = *clients.back( );
    client.setRoundHandler( [this, index] { _onRound( index ); } );
    client.setChatHandler(
        [this, index]( const GString& text )
        {
            const auto line = _lines.find( text );
            if( line != _lines.end( ) && line->second.to == index ) ++line->second.shown;
        } );
    return client;
}

void SimWorld::befriend( const GString& a, const GString& b )
{
    server.addBuddy( a, b );
    server.addBuddy( b, a );
    _buddies.insert( { a, b } );
    _buddies.insert( { b, a } );
}

void SimWorld::setLinks( const GSimLink& link )
{
    for( const auto& client : clients ) net.link( client->host( ) ) = link;
}

void SimWorld::startAll( )
{
    for( const auto& client : clients ) client->start( );
}

void SimWorld::startWithin( int64_t duration )
{
    for( const auto& client : clients )
        clock.after( clock.draw( duration ), [&program = *client] { program.start( ); } );
}

// ---- Running.

void SimWorld::run( int64_t duration )
{
    for( ; duration > 0; duration -= S )
    {
        clock.run( std::min( duration, S ) );
        _check( );
    }
}

bool SimWorld::runUntil( const std::function<bool( )>& done, int64_t longest )
{
    for( int64_t past = 0; !done( ); past += S )
    {
        if( past >= longest ) return false;
        run( S );
    }
    return true;
}

bool SimWorld::areAllOnline( ) const
{
    for( const auto& client : clients )
        if( client->isRunning( ) && !client->isOnline( ) ) return false;
    return true;
}

bool SimWorld::_areBuddies( const SimClient& a, const SimClient& b ) const
{
    return _buddies.contains( { GWideToUTF8( a.user( ) ), GWideToUTF8( b.user( ) ) } );
}

bool SimWorld::_isConnected( const SimClient& a, const SimClient& b ) const
{
    const GDeviceSession* session = a.session( b.user( ), b.device( ) );
    return session && session->isOnline( );
}

bool SimWorld::areAllConnected( ) const
{
    return describeMissing( ).empty( );
}

GString SimWorld::describeMissing( ) const
{
    GString out;
    for( const auto& a : clients )
        for( const auto& b : clients )
        {
            if( a == b || !a->isOnline( ) || !b->isOnline( ) || !_areBuddies( *a, *b ) || _isConnected( *a, *b ) )
                continue;
            const GDeviceSession* session = a->session( b->user( ), b->device( ) );
            out += " " + a->name( ) + "->" + b->name( ) + " " +
                   ( session ? GWideToUTF8( GDeviceSession::_getState( session->getState( ) ) ) : GString( "none" ) );
        }
    return out;
}

// ---- What must hold.

void SimWorld::fail( const GString& what )
{
    if( _failures.size( ) < MAX_FAILURES )
        _failures.push_back( std::to_string( ( clock.now( ) - GSimClock::START ) / S ) + " s: " + what );
}

GString SimWorld::verdict( ) const
{
    GString out;
    for( const GString& failure : _failures ) out += failure + "\n";
    for( const GString& surprise : log.surprises( ) ) out += "log: " + surprise;
    return out.empty( ) ? out : "seed " + std::to_string( _seed ) + "\n" + out;
}

void SimWorld::_check( )
{
    for( size_t i = 0; i < clients.size( ); ++i )
    {
        if( !clients[i]->isRunning( ) )
        {
            std::erase_if( _watched, [i]( const auto& item ) { return item.first.first == i; } );
            continue;
        }
        _checkServices( i );
        _checkSessions( i );
    }
}

void SimWorld::_checkState( const Key& key, int state, int64_t bound, const GString& name )
{
    Watched& watched = _watched[key];
    const uint64_t now = clock.now( );
    if( watched.state != state ) watched = { state, now };
    if( !bound || now - watched.since <= static_cast<uint64_t>( bound ) ) return;
    fail( clients[key.first]->name( ) + " has been " + name + " for " + std::to_string( ( now - watched.since ) / S ) +
          " s: " + key.second );
    watched.since = now;
}

void SimWorld::_checkServices( size_t index )
{
    const SimClient& client = *clients[index];
    const int dispatch = client.dispatch( ).getState( );
    _checkState( { index, "dispatch" }, dispatch, dispatchBound( dispatch ),
                 GWideToUTF8( GDispatchService::_getState( dispatch ) ) );
    const int sip = client.sip( ).getState( );
    _checkState( { index, "sessions" }, sip, sipBound( sip, _robust ), GWideToUTF8( GSIPService::_getState( sip ) ) );
}

void SimWorld::_checkSessions( size_t index )
{
    const SimClient& client = *clients[index];
    for( const auto& other : clients )
    {
        const GDeviceSession* session =
            other->isRunning( ) ? client.session( other->user( ), other->device( ) ) : nullptr;
        const int state = session ? int( session->getState( ) ) : -1;
        _checkState( { index, other->name( ) }, state, sessionBound( state, _robust ),
                     GWideToUTF8( GDeviceSession::_getState( state ) ) );
    }
}

// ---- Chat.

void SimWorld::_onRound( size_t index )
{
    if( _lines.empty( ) ) return;
    for( size_t other = 0; other < clients.size( ); ++other )
    {
        if( other == index ) continue;
        auto& [connected, epoch] = _epochs[{ index, other }];
        const bool now = _isConnected( *clients[index], *clients[other] );
        if( now != connected ) ++epoch;
        connected = now;
    }
}

uint64_t SimWorld::_epochOf( size_t a, size_t b ) const
{
    uint64_t sum = 0;
    for( const auto& key : { std::make_pair( a, b ), std::make_pair( b, a ) } )
    {
        const auto found = _epochs.find( key );
        if( found != _epochs.end( ) ) sum += found->second.second;
    }
    return sum;
}

void SimWorld::sayAt( SimClient& from, const GString& toUser )
{
    const size_t index = _clientByHost.at( from.host( ) );
    for( size_t to = 0; to < clients.size( ); ++to )
    {
        // One line goes to all devices of a user: it is followed to the first one alone.
        if( clients[to]->user( ) != GUTF8ToWide( toUser ) || !_isConnected( from, *clients[to] ) ||
            !_isConnected( *clients[to], from ) )
            continue;
        const GString text = "line-" + std::to_string( _lines.size( ) ) + ".";
        _lines[text] = { index, to, clock.now( ), 0, 0, 0, 0 };
        _onRound( index );
        _onRound( to );
        _lines[text].epoch = _epochOf( index, to );
        from.say( GUTF8ToWide( toUser ), text );
        return;
    }
}

void SimWorld::checkChat( )
{
    for( auto& [text, line] : _lines )
    {
        if( !line.time || clock.now( ) - line.time < CHAT_TIME ) continue;
        line.time = 0;
        const GString way = text + " " + clients[line.from]->name( ) + "->" + clients[line.to]->name( );
        if( line.shown > 1 ) fail( way + " was shown " + std::to_string( line.shown ) + " times" );
        if( line.shown || line.epoch != _epochOf( line.from, line.to ) ) continue;
        if( line.delivered )
            fail( way + " was delivered but never shown" );
        else if( line.copies < COPIES )
            fail( way + " was lost after " + std::to_string( line.copies ) + " copies" );
    }
}

// ---- Seeds.

namespace
{
int64_t fromEnvironment( const char* name, int64_t standard )
{
    const char* text = std::getenv( name );
    return text && *text ? std::atoll( text ) : standard;
}
} // namespace

int SimSeeds::count( int standard )
{
    return static_cast<int>( fromEnvironment( "VELMORA_SIM_SEEDS", standard ) );
}

uint32_t SimSeeds::first( )
{
    return static_cast<uint32_t>( fromEnvironment( "VELMORA_SIM_FROM", 1 ) );
}
