// What one peer's packets may cost: one thread decodes for all peers, and none of them may take it from the others. Costs are counted, not
// measured: microseconds that a piece of work takes on a slow machine, paid from an allowance that grows with the time. Who has spent it
// is refused until half of it is back. No clock of its own; one thread.
#pragma once

#include <cstdint>

class GMediaBudget
{
public:
    // A quarter of the time, and two seconds of that at once: an honest stream with a picture of 1024 by 1024 stays below.
    static constexpr int64_t ALLOWANCE = 500000;
    static constexpr int SHARE = 4;
    // Decoding is told by macro blocks of pictures and bytes of sound, in which a frame may be as short as five bits.
    static constexpr int64_t MACRO_BLOCK = 4;
    static constexpr int64_t SOUND_BYTE = 8;
    static constexpr int64_t PACKET = 5;
    // New decoders. A talk has threads, a sound ring and commands to the rest of the client besides.
    static constexpr int64_t NEW_PICTURE = 2000;
    static constexpr int64_t NEW_TALK = 50000;

    // Whether the next packet, at `now`, may be worked on.
    bool allows( uint64_t now );
    void charge( int64_t cost );
    // True once after each time that the allowance was spent.
    bool takeRefusal( );

private:
    uint64_t _time = 0;
    int64_t _balance = ALLOWANCE;
    bool _refused = false;
    bool _untold = false;
};
