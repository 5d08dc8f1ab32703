// Measures how unevenly the packets of a talk arrive, and tells how long sound must wait to bridge that. Pure: the caller passes the
// clock. A packet's delay is its arrival less its place in the sound; the least one of the latest packets is the base, which follows a
// sender whose clock runs fast or slow, and what 98 of 100 of them came later than the base is the jitter. It rises at once and falls
// slowly. Times are microseconds. Nothing is allocated.
#pragma once

#include <array>
#include <cstdint>

class GJitterEstimate
{
public:
    // No buffer bridges more.
    static constexpr int64_t MAXIMUM = 500000;

    // A new talk, whose sound begins at another place: the base begins anew with its first packet, the jitter stays known.
    void restart( );
    // `arrival`: the clock; `mediaTime`: where in the sound the packet begins. Each packet once, also one that came too late.
    void add( uint64_t arrival, int64_t mediaTime );
    // When sound of media time 0 arrives by the shortest way; 0 before the first packet.
    int64_t getBase( ) const { return _base; }
    int64_t getJitter( ) const { return _jitter; }
    // True while what arrives was held up for longer than any buffer bridges. Such packets do not count as jitter. After a second of
    // them their way is the way.
    bool isStalled( ) const { return _stalledSince != 0; }

private:
    static constexpr int SIZE = 512;
    int64_t _measure( ) const;
    bool _isHeldUp( uint64_t arrival, int64_t delay );

    std::array<int64_t, SIZE> _delays{ };
    int _count = 0;
    int _next = 0;
    bool _fresh = true;
    int64_t _base = 0;
    int64_t _jitter = 0;
    uint64_t _lastArrival = 0;
    uint64_t _stalledSince = 0;
};
