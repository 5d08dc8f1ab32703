// A sound ring under the test's control: the test moves the cursors and reads what was written. With `clocked` it is a device that runs by
// the test's clock: it takes 5 ms at a time, ahead of the ear by the latency that it was asked for, and keeps what it took.
#pragma once

#include "base/GTypes.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

struct FakeSound
{
    std::mutex mutex;
    bool available = true;
    bool lost = false;
    int opened = 0;
    int closed = 0;
    bool playing = false;
    int frequency = 0;
    int play = 0;
    int write = 0;
    GString ring;
    std::atomic<int> reads{ 0 };
    int latency = 0;
    bool clears = false;

    bool clocked = false;
    uint64_t startDelay = 0;            // From the start until the first sample is heard.
    std::function<void( )> beforeWrite; // What happens while the owner is on his way to write.
    int64_t heard = 0;
    int64_t taken = 0;
    uint64_t startTime = 0;      // When the first sample was heard.
    std::vector<int16_t> output; // What was taken so far.
    // Takes what is due by now.
    void run( );

    static FakeSound& get( );
    void reset( );
};
