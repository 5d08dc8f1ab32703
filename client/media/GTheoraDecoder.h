// Decodes Theora frames that stand by themselves. It is made from a codebook, the three set-up packets, which both sides compute
// from the edge of the picture. One thread: its stream's. Bytes of a peer that the codec refuses are told by the result.
#pragma once

#include "image/GImageFormat.h"
#include "runtime/GObject.h"

#include <theora/theora.h>

class GTheoraDecoder : public GHeapObject
{
public:
    // Precondition "headerPacketBuffer && headerPacketLength >= 0". A codebook that the codec refuses, with a size outside 16 to 1024 or
    // with other planes than those of 4:2:0 leaves the decoder invalid, after a warning, before anything is built from it.
    GTheoraDecoder( const char* headerPacketBuffer, int headerPacketLength );
    ~GTheoraDecoder( ) override;

    bool isValid( ) const { return _valid; }
    // True when a picture came: `format` is GIT_RGB24 and `pixels` holds it. A packet that is no frame is dropped with a warning; an
    // empty frame repeats the last picture. Precondition "packetBuffer && packetLength >= 0".
    bool decode( const char* packetBuffer, int packetLength, GImageFormat& format, GString& pixels );

private:
    bool _readHeaders( const char* buffer, int length );

    theora_info _info;
    theora_comment _comment;
    theora_state _state;
    bool _stateOpen = false;
    bool _valid = false;
    bool _hasReference = false;
};
