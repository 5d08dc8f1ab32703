// Decodes Speex packets into 16-bit mono samples. All decoders share one float buffer, which is safe only because all of them run
// on the playback service's thread. Bytes of a peer that the codec refuses are told by the result.
#pragma once

#include "client/media/GWaveFormat.h"
#include "client/media/IGVoiceDecoder.h"
#include "runtime/GObject.h"

#include <speex/speex.h>

class GSpeexDecoder : public GHeapObject, public IGVoiceDecoder
{
public:
    // The codebook: the sample rate in 4 bytes, 8000 to 48000 tested by the caller. Assertion "headerPacketLength == sizeof(int)".
    GSpeexDecoder( const char* headerPacket, int headerPacketLength );
    ~GSpeexDecoder( ) override;

    // Replaces `out` with the samples of one packet, held to 16 bits. False, after a warning and with nothing in `out`, for a packet whose
    // length does not match, whose bits the codec refuses, or that holds fewer than two frames or more than 256. Precondition
    // "fromSpeexBytes && numSpeexBytes". Allocates nothing once its buffers have grown.
    bool decode( const char* fromSpeexBytes, int numSpeexBytes, GString& out ) override;
    // What the codec guesses of a lost packet: goes on with what was decoded last, ever softer.
    void conceal( int samples, GString& out ) override;
    const GWaveFormat& getWaveFormat( ) const { return _waveFormat; }

private:
    int _decodeFrames( );
    void _writeFrames( int frameCount, GString& out ) const;

    GWaveFormat _waveFormat;
    SpeexBits _bits;
    void* _decoderState;
    int _frameSize = 0;
};
