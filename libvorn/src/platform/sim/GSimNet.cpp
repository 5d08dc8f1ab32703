// Hosts, boxes, links and datagrams. Connections stand in GSimNet_Streams.cpp.
#include "platform/GSimNet.h"

#include "base/GPortable.h"

#include <algorithm>

namespace
{
constexpr int64_t LAN_DELAY = 500;
constexpr int64_t LONGEST_HOLD = 1000000;
constexpr int FIRST_FREE_PORT = 32768;
constexpr int FREE_PORTS = 28000;
constexpr uint64_t FNV_PRIME = 1099511628211u;

GSimNet* current_ = nullptr;

uint64_t mix( uint64_t hash, const char* bytes, size_t length )
{
    for( size_t i = 0; i < length; ++i ) hash = ( hash ^ static_cast<unsigned char>( bytes[i] ) ) * FNV_PRIME;
    return hash;
}
uint64_t mix( uint64_t hash, uint64_t value )
{
    return mix( hash, reinterpret_cast<const char*>( &value ), sizeof( value ) );
}
} // namespace

GSimEnd GSimEnd::of( const GWString& host )
{
    GWString address;
    GSimEnd end;
    if( !GNetSplitHost( host, address, end.port ) || !GNetParseAddress( address, end.address ) ) return { };
    return end;
}

GSimNet::GSimNet( GSimClock& clock ) : _clock( clock )
{
    current_ = this;
}

GSimNet::~GSimNet( )
{
    current_ = nullptr;
}

GSimNet* GSimNet::current( )
{
    return current_;
}

// ---- Building.

int GSimNet::addBox( GSimNat kind, uint32_t address, int64_t lifetime )
{
    _boxes.push_back( { kind, address, lifetime, {} } );
    return static_cast<int>( _boxes.size( ) ) - 1;
}

int GSimNet::addHost( uint32_t address, int box )
{
    _hosts.push_back( { address, box, { }, {} } );
    return static_cast<int>( _hosts.size( ) ) - 1;
}

void GSimNet::restartBox( int box )
{
    _boxes[static_cast<size_t>( box )].mappings.clear( );
    std::vector<int> broken;
    for( const auto& [id, connection] : _connections )
        if( _host( connection.clientHost ).box == box ) broken.push_back( id );
    for( const int id : broken ) _break( id );
}

int GSimNet::_findHost( uint32_t address, int box ) const
{
    for( size_t i = 0; i < _hosts.size( ); ++i )
        if( _hosts[i].address == address && _hosts[i].box == box ) return static_cast<int>( i );
    return -1;
}

int GSimNet::_findBox( uint32_t address ) const
{
    for( size_t i = 0; i < _boxes.size( ); ++i )
        if( _boxes[i].address == address ) return static_cast<int>( i );
    return -1;
}

uint32_t GSimNet::addressOfEntered( ) const
{
    return _hosts[static_cast<size_t>( _entered )].address;
}

// ---- Ports.

int GSimNet::_findPort( int host, int port ) const
{
    const auto found = _portByHost.find( { host, port } );
    return found == _portByHost.end( ) ? -1 : found->second;
}

int GSimNet::_freePort( int host )
{
    int port = 0;
    do port = FIRST_FREE_PORT + static_cast<int>( _clock.draw( FREE_PORTS ) );
    while( _findPort( host, port ) >= 0 );
    return port;
}

int GSimNet::openPort( int host, int port, DatagramHandler handler )
{
    if( port == 0 ) port = _freePort( host );
    if( _findPort( host, port ) >= 0 ) return -1;
    const int id = _nextPort++;
    _portByHost[{ host, port }] = id;
    _ports[id] = { host, { _host( host ).address, port }, { }, std::move( handler ) };
    return id;
}

void GSimNet::closePort( int id )
{
    const auto found = _ports.find( id );
    if( found == _ports.end( ) ) return;
    _portByHost.erase( { found->second.host, found->second.end.port } );
    _ports.erase( found );
}

GSimNet::Port* GSimNet::findPort( int id )
{
    const auto found = _ports.find( id );
    return found == _ports.end( ) ? nullptr : &found->second;
}

GSimEnd GSimNet::endOf( int id ) const
{
    const auto found = _ports.find( id );
    return found == _ports.end( ) ? GSimEnd( ) : found->second.end;
}

// ---- Boxes.

// The mapping that still lives, or null.
GSimNet::Mapping* GSimNet::_findMapping( Box& box, const GSimEnd& inside, const GSimEnd& to )
{
    for( auto it = box.mappings.begin( ); it != box.mappings.end( ); )
    {
        if( _clock.now( ) - it->second.lastUse > static_cast<uint64_t>( box.lifetime ) )
        {
            it = box.mappings.erase( it );
            continue;
        }
        if( it->second.inside == inside && ( box.kind != GSimNat::SYMMETRIC || it->second.target == to ) )
            return &it->second;
        ++it;
    }
    return nullptr;
}

// Only what leaves keeps a mapping alive: what comes in must not, or a stranger could hold it open.
bool GSimNet::_translateOut( Box& box, GSimEnd& from, const GSimEnd& to )
{
    if( box.kind == GSimNat::BLOCKED ) return false;
    Mapping* mapping = _findMapping( box, from, to );
    if( !mapping )
    {
        int outside = 0;
        do outside = FIRST_FREE_PORT + static_cast<int>( _clock.draw( FREE_PORTS ) );
        while( GMAPCONTAINS( box.mappings, outside ) );
        mapping = &( box.mappings[outside] = { from, to, outside, 0, {} } );
    }
    mapping->lastUse = _clock.now( );
    if( mapping->contacted.size( ) < 1024 ) mapping->contacted.insert( to );
    from = { box.address, mapping->portOutside };
    return true;
}

bool GSimNet::_translateIn( Box& box, const GSimEnd& from, GSimEnd& to )
{
    const auto found = box.mappings.find( to.port );
    if( found == box.mappings.end( ) ) return false;
    const Mapping& mapping = found->second;
    if( _clock.now( ) - mapping.lastUse > static_cast<uint64_t>( box.lifetime ) ) return false;
    const auto& contacted = mapping.contacted;
    bool allowed = box.kind == GSimNat::UNRESTRICTED;
    if( box.kind == GSimNat::ADDRESS_RESTRICTED )
        allowed = std::any_of( contacted.begin( ), contacted.end( ),
                               [&]( const GSimEnd& end ) { return end.address == from.address; } );
    if( box.kind == GSimNat::PORT_RESTRICTED || box.kind == GSimNat::SYMMETRIC ) allowed = contacted.contains( from );
    to = mapping.inside;
    return allowed;
}

// ---- Datagrams.

void GSimNet::sendFrom( int id, const GSimEnd& to, const GString& bytes )
{
    Port* port = findPort( id );
    if( !port ) return;
    ++_sent;
    GSimEnd from = port->end;
    _record( '>', from, to, bytes );
    if( _onSent ) _onSent( port->host, to, bytes );
    const int box = _host( port->host ).box;
    if( box < 0 ) return _launch( port->host, from, to, bytes );
    const int neighbour = _findHost( to.address, box );
    if( neighbour >= 0 )
    {
        _clock.after( LAN_DELAY, [=, this] { _deliver( neighbour, from, to, bytes ); } );
        return;
    }
    if( !_translateOut( _boxes[static_cast<size_t>( box )], from, to ) ) return;
    // Few boxes turn what is addressed to themselves back inside.
    if( to.address == _boxes[static_cast<size_t>( box )].address ) return;
    _launch( port->host, from, to, bytes );
}

int64_t GSimNet::_drawDelay( const GSimLink& link )
{
    int64_t delay = link.delay + ( link.jitter > 0 ? _clock.draw( link.jitter ) : 0 );
    if( _clock.drawPercent( link.reorderPercent ) ) delay += _clock.draw( LONGEST_HOLD );
    return delay;
}

void GSimNet::_launch( int fromHost, const GSimEnd& from, const GSimEnd& to, const GString& bytes )
{
    const GSimLink& link = _host( fromHost ).link;
    if( _clock.drawPercent( link.lossPercent ) ) return;
    const int copies = _clock.drawPercent( link.duplicatePercent ) ? 2 : 1;
    for( int i = 0; i < copies; ++i )
        _clock.after( _drawDelay( link ), [=, this] { _arrive( from, to, bytes, i > 0 ); } );
}

// At the far end: the receiver's link, then its box.
void GSimNet::_arrive( const GSimEnd& from, const GSimEnd& to, const GString& bytes, bool doubled )
{
    const int box = _findBox( to.address );
    GSimEnd inside = to;
    if( box >= 0 && !_translateIn( _boxes[static_cast<size_t>( box )], from, inside ) ) return;
    const int host = _findHost( inside.address, box );
    if( host < 0 ) return;
    const GSimLink& link = _host( host ).link;
    if( _clock.drawPercent( link.lossPercent ) ) return;
    const int copies = !doubled && _clock.drawPercent( link.duplicatePercent ) ? 2 : 1;
    for( int i = 0; i < copies; ++i )
        _clock.after( _drawDelay( link ), [=, this] { _deliver( host, from, inside, bytes ); } );
}

void GSimNet::_deliver( int host, const GSimEnd& from, const GSimEnd& to, const GString& bytes )
{
    const int id = _findPort( host, to.port );
    Port* port = id < 0 ? nullptr : findPort( id );
    if( !port ) return;
    ++_delivered;
    _record( '<', from, to, bytes );
    if( _onDelivered ) _onDelivered( host, from, bytes );
    if( port->handler )
    {
        // The handler may close the port.
        const DatagramHandler handler = port->handler;
        handler( from, bytes );
        return;
    }
    port->inbox.emplace_back( from, bytes );
    if( _host( host ).wake ) _host( host ).wake( );
}

void GSimNet::_record( char what, const GSimEnd& from, const GSimEnd& to, const GString& bytes )
{
    _trace = mix( _trace, _clock.now( ) );
    _trace = mix( _trace, &what, 1 );
    for( const GSimEnd& end : { from, to } )
        _trace = mix( mix( _trace, end.address ), static_cast<uint64_t>( end.port ) );
    _trace = mix( _trace, bytes.data( ), bytes.size( ) );
}
