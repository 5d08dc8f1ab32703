#include "client/media/GVoiceGain.h"

#include <algorithm>

namespace
{
constexpr int UNCHANGED = 100;
constexpr int GREATEST = 400;
} // namespace

void GVoiceGain( int16_t* samples, int count, int percent )
{
    percent = std::clamp( percent, 0, GREATEST );
    if( percent == UNCHANGED ) return;
    for( int i = 0; i < count; ++i )
        samples[i] = static_cast<int16_t>( std::clamp( samples[i] * percent / UNCHANGED, INT16_MIN, INT16_MAX ) );
}
