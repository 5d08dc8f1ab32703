// What turns the packets of one talk into 16-bit mono samples.
#pragma once

#include "base/GTypes.h"

class IGVoiceDecoder
{
public:
    virtual ~IGVoiceDecoder( ) = default;
    // Replaces `out` with the samples of one packet. False, after a warning, for bytes that are no packet.
    virtual bool decode( const char* frame, int length, GString& out ) = 0;
    // Replaces `out` with what may have been said, in as many whole codec frames as hold `samples`.
    virtual void conceal( int samples, GString& out ) = 0;
};
