#include "client/media/GPacketWindow.h"

#include "base/GPortable.h"

void GPacketWindow::restart( uint16_t next )
{
    for( Packet& packet : _packets ) packet.held = false;
    _count = 0;
    _next = next;
    _past = 0;
}

bool GPacketWindow::isKnown( uint16_t sequence ) const
{
    const int ahead = getAhead( sequence );
    if( ahead >= SIZE || ahead < -SIZE ) return false;
    if( ahead >= 0 ) return _packets[sequence % SIZE].held;
    return ( _past >> ( -1 - ahead ) ) & 1;
}

bool GPacketWindow::put( uint16_t sequence, uint32_t stamp, const char* frame, int length )
{
    const int ahead = getAhead( sequence );
    GPRECONDITION( ahead < SIZE && !isKnown( sequence ) );
    if( ahead < 0 )
    {
        if( ahead >= -SIZE ) _past |= uint64_t( 1 ) << ( -1 - ahead );
        return false;
    }
    Packet& packet = _packets[sequence % SIZE];
    packet.held = true;
    packet.stamp = stamp;
    packet.frame.assign( frame, static_cast<size_t>( length ) );
    ++_count;
    return true;
}

const GPacketWindow::Packet* GPacketWindow::getFront( ) const
{
    const Packet& packet = _packets[_next % SIZE];
    return packet.held ? &packet : nullptr;
}

void GPacketWindow::advance( )
{
    Packet& packet = _packets[_next % SIZE];
    _past = _past << 1 | ( packet.held ? 1 : 0 );
    _count -= packet.held;
    packet.held = false;
    ++_next;
}
