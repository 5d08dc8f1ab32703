// The volume of one buddy's voice. Pure, any thread.
#pragma once

#include <cstdint>

// Multiplies samples by `percent` of a hundred; what leaves 16 bits is held at their ends. 100 changes nothing, 0 is silence, and
// anything beyond 0 to 400 counts as the nearer of these.
void GVoiceGain( int16_t* samples, int count, int percent );
