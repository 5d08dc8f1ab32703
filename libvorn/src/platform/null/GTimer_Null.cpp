#include "base/GPortable.h"
#include "platform/GTime.h"
#include "platform/GTimer.h"
#include "platform/null/GNotify_Null.h"

#include <algorithm>
#include <vector>

struct GTimerRecord
{
    IGTimerListener* listener;
    uint64_t period;
    uint64_t due;
};

namespace
{
std::vector<GTimer>& timers( )
{
    static auto* const open = new std::vector<GTimer>;
    return *open;
}
} // namespace

GTimer GTimerOpen( int64_t microseconds, IGTimerListener* listener )
{
    GPRECONDITION( microseconds > 0 );
    GPRECONDITION( listener );
    const auto period = static_cast<uint64_t>( microseconds );
    timers( ).push_back( new GTimerRecord{ listener, period, GTimeGetTime( ) + period } );
    return timers( ).back( );
}
void GTimerSetPeriod( GTimer timer, int64_t microseconds )
{
    GVALIDPTR( timer );
    GPRECONDITION( microseconds >= 0 );
    const auto period = static_cast<uint64_t>( microseconds );
    if( period == timer->period ) return;
    timer->period = period;
    timer->due = period ? GTimeGetTime( ) + period : UINT64_MAX;
}
int64_t GTimerGetPeriod( GTimer timer )
{
    GVALIDPTR( timer );
    return static_cast<int64_t>( timer->period );
}
void GTimerClose( GTimer timer )
{
    GVALIDPTR( timer );
    std::erase( timers( ), timer );
    delete timer;
}

bool GTimerDeliver( )
{
    if( GIsShuttingDown( ) ) return false;
    const uint64_t now = GTimeGetTime( );
    std::vector<GTimer> due;
    std::copy_if( timers( ).begin( ), timers( ).end( ), std::back_inserter( due ),
                  [&]( GTimer timer ) { return timer->due <= now; } );
    for( const GTimer timer : due )
    {
        // An earlier tick may have closed this one.
        if( std::find( timers( ).begin( ), timers( ).end( ), timer ) == timers( ).end( ) ) continue;
        timer->due = timer->period ? now + timer->period : UINT64_MAX;
        timer->listener->onTimer( timer );
    }
    return !due.empty( );
}
