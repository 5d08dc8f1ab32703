#include "FakeSound.h"

#include "platform/GSound.h"
#include "platform/GSoundRing.h"
#include "platform/GTime.h"

#include <gtest/gtest.h>

#include <algorithm>
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
    clears = clocked = false;
    latency = 0;
    startDelay = startTime = 0;
    heard = taken = 0;
    output.clear( );
    beforeWrite = nullptr;
}

void FakeSound::run( )
{
    if( !clocked || !playing || lost ) return;
    const int64_t elapsed = static_cast<int64_t>( GTimeGetTime( ) - startTime );
    heard = std::max( heard, elapsed * frequency / 1000000 );
    const int64_t step = frequency / 200;
    const int64_t ahead = static_cast<int64_t>( latency ) * frequency / 1000000;
    const int64_t samples = static_cast<int64_t>( ring.size( ) ) / 2;
    while( taken < ( std::max<int64_t>( elapsed, 0 ) * frequency / 1000000 + ahead ) / step * step )
    {
        char* const from = ring.data( ) + taken++ % samples * 2;
        int16_t sample = 0;
        std::memcpy( &sample, from, 2 );
        output.push_back( sample );
        if( clears ) std::memset( from, 0, 2 );
    }
}

GSoundRing GSoundRingOpen( int frequency, int bytes, int latency )
{
    FakeSound& sound = FakeSound::get( );
    const std::scoped_lock lock( sound.mutex );
    if( !sound.available ) return nullptr;
    ++sound.opened;
    sound.frequency = frequency;
    sound.latency = latency;
    sound.clears = false;
    sound.heard = sound.taken = 0;
    sound.ring.assign( static_cast<size_t>( bytes ), sound.clocked ? '\0' : 'x' );
    return &ring_;
}
void GSoundRingClose( GSoundRing )
{
    ++FakeSound::get( ).closed;
}
void GSoundRingPlay( GSoundRing )
{
    FakeSound& sound = FakeSound::get( );
    sound.playing = true;
    sound.startTime = GTimeGetTime( ) + sound.startDelay;
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
void GSoundRingClearTaken( GSoundRing )
{
    FakeSound::get( ).clears = true;
}
bool GSoundRingGetPositions( GSoundRing, int64_t& heard, int64_t& taken )
{
    FakeSound& sound = FakeSound::get( );
    const std::scoped_lock lock( sound.mutex );
    sound.run( );
    if( sound.lost ) return false;
    heard = sound.heard;
    taken = sound.taken;
    return true;
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
bool GSoundRingWriteAt( GSoundRing, int64_t position, const int16_t* samples, int count )
{
    FakeSound& sound = FakeSound::get( );
    const std::scoped_lock lock( sound.mutex );
    if( sound.beforeWrite ) sound.beforeWrite( );
    sound.run( );
    if( sound.lost ) return false;
    const int64_t size = static_cast<int64_t>( sound.ring.size( ) ) / 2;
    EXPECT_LE( position + count, sound.taken + size );
    for( int64_t i = std::max<int64_t>( sound.taken - position, 0 ); i < count; ++i )
        std::memcpy( sound.ring.data( ) + ( position + i ) % size * 2, samples + i, 2 );
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
