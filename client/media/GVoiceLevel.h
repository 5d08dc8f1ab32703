// Brings voices to a common level, block by block: raises the quiet ones by at most 18 dB and lowers the loud ones by at most 12, slowly
// upward and fast downward. Only what stands out from the background by 10 dB, and is louder than -60 dB of full scale, counts as a
// voice, so that pauses and steady noise are never pumped up. One thread at a time; allocates nothing.
#pragma once

#include <cstdint>

class GVoiceLevel
{
public:
    // `frequency`: samples a second; `block`: samples a call.
    GVoiceLevel( int frequency, int block );
    // In place. While `hold` is set the block may be an echo: the gain does not rise.
    void process( int16_t* samples, bool hold );
    // The present gain, in decibels.
    double gain( ) const { return _gain; }

private:
    bool _isVoice( double level );
    void _follow( double level );
    void _apply( int16_t* samples );

    const int _block;
    const double _seconds; // Of a block.
    double _smooth = -96;  // Level of the last tenth of a second.
    double _floor = -96;   // Level of the background.
    double _voice = 0;     // Level of the voice, once there was one.
    bool _hasVoice = false;
    double _gain = 0;
    double _applied = 1; // Factor at the end of the last block.
};
