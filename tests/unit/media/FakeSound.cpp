#include "FakeSound.h"

#include "platform/GSound.h"
#include "platform/GSoundRing.h"

#include <cstring>

struct GSoundRingRecord
{
};

namespace
{
GSoundRingRecord ring_;
}

FakeSound& FakeSound::get( )
{
    static FakeSound sound;
    return sound;
}

void FakeSound::reset( )
{
    const std::scoped_lock lock( mutex );
    available = true;
    lost = playing = false;
    opened = closed = frequency = play = write = 0;
    reads = 0;
    ring.clear( );
}

GSoundRing GSoundRingOpen( int frequency, int bytes )
{
    FakeSound& sound = FakeSound::get( );
    const std::scoped_lock lock( sound.mutex );
    if( !sound.available ) return nullptr;
    ++sound.opened;
    sound.frequency = frequency;
    sound.ring.assign( static_cast<size_t>( bytes ), 'x' );
    return &ring_;
}
void GSoundRingClose( GSoundRing )
{
    ++FakeSound::get( ).closed;
}
void GSoundRingPlay( GSoundRing )
{
    FakeSound::get( ).playing = true;
}
void GSoundRingStop( GSoundRing )
{
    FakeSound::get( ).playing = false;
}
bool GSoundRingGetCursors( GSoundRing, int& play, int& write )
{
    FakeSound& sound = FakeSound::get( );
    const std::scoped_lock lock( sound.mutex );
    ++sound.reads;
    play = sound.play;
    write = sound.write;
    return !sound.lost;
}
bool GSoundRingWrite( GSoundRing, int offset, const char* data, int length )
{
    FakeSound& sound = FakeSound::get( );
    const std::scoped_lock lock( sound.mutex );
    if( sound.lost ) return false;
    for( int i = 0; i < length; ++i )
        sound.ring[( static_cast<size_t>( offset ) + static_cast<size_t>( i ) ) % sound.ring.size( )] = data[i];
    return true;
}
bool GSoundRingIsAlive( GSoundRing )
{
    return !FakeSound::get( ).lost;
}
void GSoundPlay( const GWString& ) {}
bool GSoundIsMuted( )
{
    return false;
}
void GSoundSetMute( bool ) {}
double GSoundGetVolume( )
{
    return 1.0;
}
void GSoundSetVolume( double ) {}
void GSoundSetLines( double, double ) {}
