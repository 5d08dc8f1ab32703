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

constexpr const char* KIND_NAMES[] = { "public",          "unrestricted", "address-restricted",
                                       "port-restricted", "symmetric",    "blocked" };
// Two that invite each other at once: answers of invitations that were overtaken.
constexpr const char* CROSSING[] = { "to request 'INVITE' ignored, no state change.",
                                     "WARNING Request 'ACK' from",
                                     "WARNING Received INVITE while waiting already CONNECTED, responding BUSY.",
                                     "WARNING Received response with unknown CSEQ",
                                     "WARNING Received request 'PING' from unknown device of",
                                     "WARNING Received request 'ACK' from unknown device of" };
// By the letter an answer is looked up by its number alone, and numbers begin anew.
constexpr const char* LETTER[] = { "WARNING Attempting to send 'ACK' but no destination, ignoring.",
                                   "WARNING: Assertion failed. (inviteResponse.isSet( L\"Sent-To-Type\" ))" };
// What comes late, twice or never.
constexpr const char* TROUBLE[] = {
    "WARNING Lost contact with", "to request 'STUN' ignored, no state change.",
    "to request 'DEVICEGUID' ignored, no state change.",
    "to originalRequest 'GETBUDDYLIST' sent to unidentified destination, ignoring.",
    "(_indirectPunchedSTUNResponse.succeeded( ))", "(_indirectUnpunchedSTUNResponse.succeeded( ))",
    "(!_indirectPunchedSTUNResponse.succeeded( ))", "(!_indirectUnpunchedSTUNResponse.succeeded( ))",
    "WARNING: Ignored input, recvMethod='",
    // Between the end of the connection and the core's word of it.
    "because not connected, ignoring.", "but invalid source (0.0.0.0:0), ignoring.",
    "but invalid destination (), ignoring.", "(GValidHost( localHost ))", "but not ONLINE, ignoring.",
    "while not connected, ignoring.", "request timed out, disconnecting.", "requests timed out to",
    "request timed out, hard logoff.", "request timed out, reconnecting.", "timed out, cancelling.",
    "WARNING 'TURN' request failed (or timed out)", "WARNING Global mapping has changed after",
    // What a box that forgot gives another address.
    "from unexpected host (", "WARING PING failed 6 consecutive times, reconnecting." };

// How long a state may last, with a round's lateness; 0 is for ever. They are looked at once a second, so two or three attempts in a
// row may look like one.
int64_t sessionBound( int state, bool robust )
{
    switch( state )
    {
    case GDeviceSession::WF_INVITERESPONSE: return 3 * ( robust ? 37 : 19 ) * S;
    case GDeviceSession::WT_REINVITE: return 3 * 11 * S;
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
    // The caller's second ACK, under a number of its own, finds the callee connected.
    if( !robust ) log.allow( "WARNING Request 'ACK' from" );
    // Servers race to be chosen, and all but the first answer come too late.
    log.allow( "to request 'PING' ignored, no state change." );
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

void SimWorld::allowTrouble( )
{
    allowCrossing( );
    for( const char* text : TROUBLE ) log.allow( text );
}

void SimWorld::allowCrossing( )
{
    for( const char* text : CROSSING ) log.allow( text );
    if( _robust ) return;
    for( const char* text : LETTER ) log.allow( text );
}

GString SimWorld::describe( ) const
{
    GString out = "seed " + std::to_string( _seed ) + ( _robust ? ", robust" : ", by the letter" );
    for( const auto& client : clients )
    {
        const GSimLink& link = net.link( client->host( ) );
        out += ", " + client->name( ) + " " + KIND_NAMES[static_cast<int>( _kindByHost.at( client->host( ) ) )] +
               " (loss " + std::to_string( link.lossPercent ) + "%, delay " + std::to_string( link.delay / 1000 ) +
               " ms)";
    }
    return out + "\n";
}

// ---- Building.

int SimWorld::addHome( GSimNat kind, int64_t mappingLife )
{
    const uint32_t address = _nextAddress++;
    if( kind == GSimNat::PUBLIC )
    {
        const int host = net.addHost( address );
        _kindByHost[host] = kind;
        return host;
    }
    const int box = net.addBox( kind, address, mappingLife );
    // Homes with the same addresses inside are common, and a trap.
    const int host = net.addHost( PRIVATE_ADDRESS + static_cast<uint32_t>( clock.draw( 3 ) ), box );
    _boxByHost[host] = box;
    _kindByHost[host] = kind;
    return host;
}

int SimWorld::addNeighbour( int host )
{
    const int box = _boxByHost.at( host );
    const int neighbour = net.addHost( PRIVATE_ADDRESS + 100 + static_cast<uint32_t>( clients.size( ) ), box );
    _boxByHost[neighbour] = box;
    _kindByHost[neighbour] = _kindByHost[host];
    return neighbour;
}

SimClient& SimWorld::addClient( const GString& user, int host )
{
    if( _users.insert( user ).second ) server.addUser( user );
    const size_t index = clients.size( );
    _peers.clear( );
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
    _peers.clear( );
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

void SimWorld::restartStopped( )
{
    for( const auto& client : clients )
    {
        if( client->getState( ) == SimClient::OFFLINE || client->getState( ) == SimClient::LOGGING_OFF ||
            client->getState( ) == SimClient::DISCONNECTING )
            client->kill( );
        client->start( );
    }
}

void SimWorld::restartBoxOf( const SimClient& client )
{
    const auto box = _boxByHost.find( client.host( ) );
    if( box != _boxByHost.end( ) ) net.restartBox( box->second );
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

bool SimWorld::meets( int64_t longest )
{
    return runUntil( [this] { return areAllOnline( ) && areAllConnected( ); }, longest );
}

bool SimWorld::areAllOnline( ) const
{
    for( const auto& client : clients )
        if( client->isRunning( ) && !client->isOnline( ) ) return false;
    return true;
}

const std::vector<size_t>& SimWorld::_peersOf( size_t index )
{
    if( _peers.empty( ) )
        for( const auto& a : clients )
        {
            std::vector<size_t>& peers = _peers.emplace_back( );
            for( size_t i = 0; i < clients.size( ); ++i )
                if( _buddies.contains( { GWideToUTF8( a->user( ) ), GWideToUTF8( clients[i]->user( ) ) } ) )
                    peers.push_back( i );
        }
    return _peers[index];
}

bool SimWorld::_isConnected( const SimClient& a, const SimClient& b ) const
{
    const GDeviceSession* session = a.session( b.user( ), b.device( ) );
    return session && session->isOnline( );
}

GString SimWorld::describeMissing( )
{
    GString out;
    for( size_t i = 0; i < clients.size( ); ++i )
        for( const size_t peer : _peersOf( i ) )
        {
            const SimClient& a = *clients[i];
            const SimClient& b = *clients[peer];
            if( !a.isOnline( ) || !b.isOnline( ) || _isConnected( a, b ) ) continue;
            const GDeviceSession* session = a.session( b.user( ), b.device( ) );
            out += " " + a.name( ) + "->" + b.name( ) + " " +
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
    for( const size_t peer : _peersOf( index ) )
    {
        const SimClient& other = *clients[peer];
        const GDeviceSession* session = other.isRunning( ) ? client.session( other.user( ), other.device( ) ) : nullptr;
        const int state = session ? int( session->getState( ) ) : -1;
        _checkState( { index, other.name( ) }, state, sessionBound( state, _robust ),
                     GWideToUTF8( GDeviceSession::_getState( state ) ) );
    }
}

// ---- Growth.

SimWorld::Figures SimWorld::figures( ) const
{
    Figures out;
    for( const auto& client : clients )
    {
        if( !client->isRunning( ) ) continue;
        out.requests = std::max( out.requests, client->sip( ).getClient( ).getRequestCount( ) );
        out.responses = std::max( out.responses, client->sip( ).getClient( ).getResponseCount( ) );
        out.own = std::max( out.own, client->dispatch( ).getRequestCount( ) );
        out.buckets = std::max( out.buckets, static_cast<size_t>( client->port( ).getBucketCount( ) ) );
        out.names = std::max( out.names, client->getNameCount( ) );
    }
    out.planned = clock.getPlannedCount( );
    out.registrations = server.registrationCount( );
    out.allocations = server.allocationCount( );
    out.pending = server.pendingCount( );
    return out;
}

void SimWorld::checkFigures( const Figures& bound )
{
    const Figures now = figures( );
    const auto test = [this]( const char* name, size_t value, size_t most )
    {
        if( value > most )
            fail( GString( name ) + ": " + std::to_string( value ) + ", more than " + std::to_string( most ) );
    };
    test( "requests", now.requests, bound.requests );
    test( "responses", now.responses, bound.responses );
    test( "requests of the dispatch service", now.own, bound.own );
    test( "buckets", now.buckets, bound.buckets );
    test( "names", now.names, bound.names );
    test( "planned actions", now.planned, bound.planned );
    test( "registrations", now.registrations, bound.registrations );
    test( "allocations", now.allocations, bound.allocations );
    test( "pending answers", now.pending, bound.pending );
}

void SimWorld::logOffAll( )
{
    // All at once: goodbyes cross, and answers come to sessions that are over.
    allowCrossing( );
    for( const auto& client : clients ) client->logOff( );
    const auto isDone = [this]
    {
        for( const auto& client : clients )
            if( client->isRunning( ) && client->getState( ) != SimClient::OFFLINE ) return false;
        return true;
    };
    if( !runUntil( isDone, 60 * S ) ) fail( "not everyone has logged off" );
    // The last delayed answers of the refresh host, records that live for a minute.
    run( 130 * S );
    Figures bound = figures( );
    bound.requests = bound.responses = bound.own = 0;
    bound.registrations = bound.allocations = bound.pending = 0;
    checkFigures( bound );
}

// ---- Chat.

void SimWorld::_onRound( size_t index )
{
    if( _lines.empty( ) ) return;
    for( const size_t other : _peersOf( index ) )
    {
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
