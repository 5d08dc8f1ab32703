// The system's clock: unsigned 64-bit microseconds since 1601-01-01 UTC. Any thread.
// Tests replace the source to run in virtual time; passing null restores the system clock.
#pragma once

#include "base/GTypes.h"

#include <cstdint>

uint64_t GTimeGetTime( );
using GTimeSource = uint64_t ( * )( );
void GTimeSetSource( GTimeSource source );
// Minutes to add to local time to get UTC; negative east of Greenwich.
int GTimeGetBias( );
// The name of the local time zone; "UTC" when the system reports none.
GWString GTimeGetZone( );
struct GTimeFields
{
    int year, month, day, hour, minute, second;
};
GTimeFields GTimeSplitUTC( uint64_t time );
GTimeFields GTimeSplitLocal( uint64_t time );
