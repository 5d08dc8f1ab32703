// Reads from the echo reference what was heard while a microphone's samples were taken. Stamps of capture have a clock of their own: the
// buffers that came with the least delay tell how it stands to that of the reference, and the reader follows slowly, without seams. What
// it reads is a little ahead, so that an echo always comes later than its cause. One thread at a time; allocates nothing.
#pragma once

#include <cstdint>

class GEchoReader
{
public:
    explicit GEchoReader( int frequency );
    // A buffer of `count` samples, of which the first has the stamp `timestamp` (microseconds), came now.
    void take( uint64_t timestamp, int count );
    // What belongs to the next `count` samples since the last call of take and of this, into `samples`, and what was heard `delay` of
    // them earlier, into `delayed`. False when the latter is silent.
    bool read( int16_t* samples, int16_t* delayed, int count, int delay );

private:
    void _learn( int64_t offset );

    const int _frequency;
    const double _step; // Samples of the reference for one of ours.
    bool _hasOffset = false;
    int64_t _least = 0;  // Offset of the reference's clock to that of the stamps: the least of this period
    int64_t _before = 0; // and of the one before.
    uint64_t _periodEnd = 0;
    double _next = 0;   // Position of the sample to read.
    double _wanted = 0; // Where it should be by the stamps.
    double _error = 0;
};
