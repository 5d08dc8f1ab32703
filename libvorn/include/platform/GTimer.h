// Repeating timers on the user-interface thread. Ticks stop once the platform shuts down.
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
// Preconditions: a period above 0 and a listener.
GTimer GTimerOpen( int64_t microseconds, IGTimerListener* listener );
void GTimerClose( GTimer timer );
