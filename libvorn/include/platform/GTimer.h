// Repeating timers. User-interface thread only; ticks come in the message loop and stop once the platform shuts down.
#pragma once

#include <cstdint>

struct GTimerRecord;
using GTimer = GTimerRecord*;
class IGTimerListener
{
public:
    virtual ~IGTimerListener( ) = default;
    virtual void onTimer( GTimer timer ) = 0;
};
// Preconditions: a period above 0 and a listener, which has to outlive the timer. Periods are whole milliseconds, at least one. The
// first tick comes one period from now; ticks that the message loop was too busy for are not made up for.
GTimer GTimerOpen( int64_t microseconds, IGTimerListener* listener );
// Another period from now on; with 0 the timer rests and costs nothing until it gets a period again. The one that it has already changes
// nothing, so that a running timer keeps its pace. Also from within a tick.
void GTimerSetPeriod( GTimer timer, int64_t microseconds );
int64_t GTimerGetPeriod( GTimer timer );
// No tick comes after it; also from within a tick.
void GTimerClose( GTimer timer );
