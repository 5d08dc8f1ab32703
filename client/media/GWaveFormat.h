// The shape of a stream of PCM samples, field by field as sound interfaces know it.
#pragma once

#include <cstdint>

struct GWaveFormat
{
    uint16_t wFormatTag = 1; // PCM.
    uint16_t nChannels = 1;
    uint32_t nSamplesPerSec = 0;
    uint32_t nAvgBytesPerSec = 0;
    uint16_t nBlockAlign = 2;
    uint16_t wBitsPerSample = 16;
    uint16_t cbSize = 0;
    friend bool operator==( const GWaveFormat&, const GWaveFormat& ) = default;
};

// 16-bit mono at `rate` hertz.
constexpr GWaveFormat GWaveFormatMono16( uint32_t rate )
{
    GWaveFormat format;
    format.nSamplesPerSec = rate;
    format.nAvgBytesPerSec = rate * 2;
    return format;
}
