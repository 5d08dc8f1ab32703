// A sound ring under the test's control: the test moves the cursors and reads what was written.
#pragma once

#include "base/GTypes.h"

#include <atomic>
#include <mutex>

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

    static FakeSound& get( );
    void reset( );
};
