#include "platform/GSimClock.h"

#include "base/GRandom.h"
#include "platform/GThread.h"
#include "platform/GTime.h"

#include <algorithm>
#include <atomic>

namespace
{
// Threads that a simulated program started read it, too.
std::atomic<uint64_t> now_ = GSimClock::START;
} // namespace

GSimClock::GSimClock( uint32_t seed ) : _random( seed )
{
    now_ = START;
    GTimeSetSource( [] { return now_.load( ); } );
    GThreadSetSleep( []( int64_t duration ) { now_ += static_cast<uint64_t>( duration ); } );
    GRandomSeed( seed );
}

GSimClock::~GSimClock( )
{
    GTimeSetSource( nullptr );
    GThreadSetSleep( nullptr );
}

uint64_t GSimClock::now( ) const
{
    return now_;
}

void GSimClock::at( uint64_t time, Action action )
{
    _planned.push( { std::max( time, now( ) ), _order++, std::move( action ) } );
}

void GSimClock::after( int64_t delay, Action action )
{
    at( now( ) + static_cast<uint64_t>( std::max<int64_t>( delay, 0 ) ), std::move( action ) );
}

void GSimClock::run( int64_t duration )
{
    const uint64_t end = now( ) + static_cast<uint64_t>( duration );
    while( !_planned.empty( ) && _planned.top( ).time <= end )
    {
        // The queue gives out constants alone; what leaves it at once may be emptied.
        Planned next = std::move( const_cast<Planned&>( _planned.top( ) ) );
        _planned.pop( );
        now_ = std::max( now( ), next.time );
        next.action( );
    }
    now_ = std::max( now( ), end );
}

int64_t GSimClock::draw( int64_t limit )
{
    return static_cast<int64_t>( _random( ) % static_cast<uint64_t>( limit ) );
}
