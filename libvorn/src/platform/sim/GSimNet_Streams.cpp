// Connections: in order and without loss. What a link loses comes later; one that stays cut for long breaks them.
#include "platform/GSimNet.h"

#include <algorithm>

namespace
{
constexpr int64_t REPETITION = 300000;
constexpr int MAX_REPETITIONS = 120; // 36 s.
constexpr int FIRST_CLIENT_PORT = 20000;
constexpr int CLIENT_PORTS = 10000;
} // namespace

void GSimStream::send( const GString& bytes )
{
    if( _open ) _net->_sendToOpener( _id, bytes, false );
}

void GSimStream::close( )
{
    if( !_open ) return;
    _open = false;
    _net->_sendToOpener( _id, { }, true );
}

bool GSimNet::listen( int host, int port, const StreamHandler& handler )
{
    return _listeners.try_emplace( { host, port }, handler ).second;
}

// Those that were accepted go on: their owner closes them.
void GSimNet::unlisten( int host, int port )
{
    _listeners.erase( { host, port } );
}

int GSimNet::connect( const GSimEnd& remote )
{
    const int id = _nextConnection++;
    Connection& connection = _connections[id];
    connection.clientHost = _entered;
    connection.local = { addressOfEntered( ), FIRST_CLIENT_PORT + static_cast<int>( _clock.draw( CLIENT_PORTS ) ) };
    connection.remote = remote;
    connection.serverHost = _findHost( remote.address, -1 );
    _push( id, 0, { } ); // The wish to connect is the first thing to arrive.
    return id;
}

GSimNet::Connection* GSimNet::findConnection( int id )
{
    const auto found = _connections.find( id );
    return found == _connections.end( ) ? nullptr : &found->second;
}

void GSimNet::sendToListener( int id, const GString& bytes, bool isEnd )
{
    Connection* connection = findConnection( id );
    if( !connection || connection->hasShut ) return;
    connection->hasShut = isEnd;
    _push( id, 0, { bytes, isEnd, 0 } );
}

void GSimNet::_sendToOpener( int id, const GString& bytes, bool isEnd )
{
    if( findConnection( id ) ) _push( id, 1, { bytes, isEnd, 0 } );
}

// The opener is done with it.
void GSimNet::letGo( int id )
{
    sendToListener( id, { }, true );
    if( Connection* connection = findConnection( id ) ) connection->open = false;
    _forgetIfDone( id );
}

// ---- The ways. One segment travels at a time, so none overtakes another.

void GSimNet::_push( int id, int way, Segment segment )
{
    Connection& connection = *findConnection( id );
    connection.inFlight[way] += segment.bytes.size( );
    connection.ways[way].push_back( std::move( segment ) );
    if( !connection.pumping[way] ) _pump( id, way );
}

void GSimNet::_pump( int id, int way )
{
    Connection& connection = *findConnection( id );
    connection.pumping[way] = true;
    const GSimLink& near = _host( connection.clientHost ).link;
    const bool lost = _clock.drawPercent( near.lossPercent ) || connection.serverHost < 0 ||
                      _clock.drawPercent( link( connection.serverHost ).lossPercent );
    if( lost )
    {
        Segment& segment = connection.ways[way].front( );
        if( ++segment.trials > MAX_REPETITIONS )
            _clock.after( 0, [=, this] { _break( id ); } );
        else
            _clock.after( REPETITION,
                          [=, this]
                          {
                              if( findConnection( id ) ) _pump( id, way );
                          } );
        return;
    }
    const int64_t delay = _drawDelay( near ) + _drawDelay( link( connection.serverHost ) );
    // What waits behind goes with it, as a window's worth of segments does.
    _clock.after( delay, [=, this] { _land( id, way ); } );
}

void GSimNet::_land( int id, int way )
{
    Connection* connection = findConnection( id );
    if( !connection ) return;
    std::deque<Segment> arrived = std::move( connection->ways[way] );
    connection->ways[way].clear( );
    connection->pumping[way] = false;
    connection->inFlight[way] = 0;
    for( const Segment& segment : arrived )
    {
        connection = findConnection( id );
        if( !connection ) return;
        _record( way == 0 ? ']' : '[', connection->local, connection->remote, segment.bytes );
        if( way == 1 )
        {
            if( _onDelivered && !segment.bytes.empty( ) )
                _onDelivered( connection->clientHost, connection->remote, segment.bytes );
            connection->inbox += segment.bytes;
            connection->ended = connection->ended || segment.isEnd;
            if( connection->open && _host( connection->clientHost ).wake ) _host( connection->clientHost ).wake( );
            continue;
        }
        const std::shared_ptr<GSimStream> stream = connection->stream;
        if( !stream && !segment.isEnd && segment.bytes.empty( ) )
            _accept( id );
        else if( stream && segment.isEnd )
        {
            if( stream->_open && stream->onClose ) stream->onClose( );
            stream->_open = false;
        }
        else if( stream && stream->_open && stream->onBytes )
            stream->onBytes( segment.bytes );
    }
    _forgetIfDone( id );
}

void GSimNet::_accept( int id )
{
    Connection& connection = *findConnection( id );
    const auto listener = _listeners.find( { connection.serverHost, connection.remote.port } );
    if( listener == _listeners.end( ) ) return _break( id );
    connection.stream = std::make_shared<GSimStream>( );
    connection.stream->_net = this;
    connection.stream->_id = id;
    const int box = _host( connection.clientHost ).box;
    connection.stream->remote = connection.local;
    if( box >= 0 ) connection.stream->remote.address = _boxes[static_cast<size_t>( box )].address;
    listener->second( connection.stream );
}

// Refused, reset or timed out: either side learns it.
void GSimNet::_break( int id )
{
    Connection* connection = findConnection( id );
    if( !connection ) return;
    const std::shared_ptr<GSimStream> stream = connection->stream;
    const int host = connection->clientHost;
    connection->ended = true;
    for( int way : { 0, 1 } )
    {
        connection->ways[way].clear( );
        connection->pumping[way] = false;
        connection->inFlight[way] = 0;
    }
    if( stream && stream->_open )
    {
        stream->_open = false;
        if( stream->onClose ) stream->onClose( );
    }
    if( _host( host ).wake ) _host( host ).wake( );
    _forgetIfDone( id );
}

void GSimNet::_forgetIfDone( int id )
{
    const Connection* connection = findConnection( id );
    if( !connection || connection->open || !connection->ways[0].empty( ) || connection->pumping[0] ) return;
    if( !connection->stream || !connection->stream->_open ) _connections.erase( id );
}
