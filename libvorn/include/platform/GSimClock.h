// Virtual time for simulations: a clock that moves only from one planned action to the next, sleep that moves it, and random
// numbers that a seed determines. While one lives, GTimeGetTime, GThreadSleep and GRandom follow it, so that whole programs stepped
// by its actions run the same way for the same seed. One at a time, on one thread. Times are microseconds.
#pragma once

#include "base/GTypes.h"

#include <functional>
#include <queue>
#include <random>

class GSimClock
{
public:
    using Action = std::function<void( )>;
    static constexpr uint64_t START = 13000000000000000; // Some day of this century.

    explicit GSimClock( uint32_t seed );
    ~GSimClock( ); // Gives the system's clock and sleep back.
    GSimClock( const GSimClock& ) = delete;
    GSimClock& operator=( const GSimClock& ) = delete;

    uint64_t now( ) const;
    // Plans an action; those of the same moment run in the order of the calls. A moment that is past means now.
    void at( uint64_t time, Action action );
    void after( int64_t delay, Action action );
    // Runs every action of the next `duration` microseconds, and leaves the clock at their end.
    void run( int64_t duration );
    size_t getPlannedCount( ) const { return _planned.size( ); }

    // From 0 to below `limit`, which is above 0. The source of networks and tests: it is not GRandom, so that what a program draws
    // for itself changes nothing else.
    int64_t draw( int64_t limit );
    bool drawPercent( int percent ) { return percent > 0 && draw( 100 ) < percent; }

private:
    struct Planned
    {
        uint64_t time;
        uint64_t order;
        Action action;
        bool operator>( const Planned& other ) const
        {
            return time != other.time ? time > other.time : order > other.order;
        }
    };
    std::priority_queue<Planned, std::vector<Planned>, std::greater<>> _planned;
    uint64_t _order = 0;
    std::mt19937_64 _random;
};
