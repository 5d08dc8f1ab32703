// Encodes 16-bit mono samples with Speex in narrow-band mode; all frames of one call make one packet:
//   0 u32 numSpeexBytes | 4 the frames in one bit stream with its terminator
// The codebook is the sample rate in 4 bytes. One thread: its stream's.
#pragma once

#include "client/media/GWaveFormat.h"
#include "runtime/GObject.h"

#include <speex/speex.h>

#include <vector>

// Empties `buffer` and writes the rate; aborts on a rate of 0.
void GSpeexEncoder_generateCodebook( GString& buffer, int sampleRate );

class GSpeexEncoder : public GHeapObject
{
public:
    explicit GSpeexEncoder( const GWaveFormat& waveFormat );
    ~GSpeexEncoder( ) override;

    // Appends a packet. `length` bytes must be whole codec frames. Allocates nothing once its buffers have grown.
    void encode( const char* sampleBuffer, int length, GString& packetBuffer );
    // Bytes of one codec frame.
    int getFrameSize( ) const { return _frameSize * 2; }

private:
    GWaveFormat _waveFormat;
    SpeexBits _bits;
    void* _encoderState;
    int _frameSize = 0; // Samples.
    GString _codebook;
    std::vector<float> _samples;
};
