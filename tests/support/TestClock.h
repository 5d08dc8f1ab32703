// A clock that stands still until the test moves it, for code that reads GTimeGetTime, and sleeps that move it.
#pragma once

#include "platform/GThread.h"
#include "platform/GTime.h"

#include <atomic>

class TestClock
{
public:
    TestClock( )
    {
        now( ) = 13000000000000000;
        GTimeSetSource( [] { return now( ).load( ); } );
        GThreadSetSleep( []( int64_t duration ) { now( ) += static_cast<uint64_t>( duration ); } );
    }
    ~TestClock( )
    {
        GTimeSetSource( nullptr );
        GThreadSetSleep( nullptr );
    }
    TestClock( const TestClock& ) = delete;
    TestClock& operator=( const TestClock& ) = delete;

    void advance( int64_t microseconds ) { now( ) += static_cast<uint64_t>( microseconds ); }
    // Threads that the code under test started read it, too.
    static std::atomic<uint64_t>& now( )
    {
        static std::atomic<uint64_t> time = 0;
        return time;
    }
};
