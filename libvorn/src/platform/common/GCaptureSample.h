// One sample of a capture pipeline as its tap sees it, and the clock that makes rising stamps of the samples' times.
#pragma once

#include "base/GTypes.h"

struct GCaptureSample
{
    bool hasTime = false;
    int64_t time = 0;           // Units of 100 ns of the pipeline's clock, when there is one.
    const char* data = nullptr; // Null when it could not be read; the sample's own memory, valid during the call.
    int64_t length = 0;         // Bytes at `data`.
    int64_t stride = 0;         // Bytes from row to row of a picture; 0 for rows without padding.
    int error = 0;              // Why the time or the data is missing.
};

// Of one medium; used by its streaming thread alone.
class GCaptureStamps
{
public:
    // The sample's time in microseconds. Without one it is the system's time, told once in the log and once when times are back.
    uint64_t read( const GCaptureSample& sample );
    // Stamps that always rise: when the times begin again, the last increment goes on from the last stamp, by an offset that is
    // added to all that come after.
    uint64_t next( uint64_t time );

private:
    bool _reported = false; // A sample had no time.
    bool _hasLast = false;
    uint64_t _last = 0;
    uint64_t _increment = 1;
    uint64_t _offset = 0;
};
