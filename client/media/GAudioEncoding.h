// Buffers of a microphone into Speex packets: one buffer makes one packet, a long one two, four, ... of equal length. Makes its encoder
// anew when the format of the source changes. One thread at a time.
#pragma once

#include "client/media/GSpeexEncoder.h"
#include "platform/GAVCapture.h"

#include <memory>

class GAudioEncoding
{
public:
    void reset( );
    bool isMade( ) const { return _speexEncoder != nullptr; }
    bool isMadeFor( const GAudioFormat& format ) const
    {
        return _speexEncoder && format.bytesPerSample == _format.bytesPerSample &&
               format.frequency == _format.frequency;
    }
    // Takes a buffer, which must stay for the calls of next. 16-bit mono samples. `audioEnabled` is logged.
    void begin( const GAudioFormat& format, const char* buffer, int length, bool audioEnabled );
    // The next packet of the buffer, valid until the next call, or null at its end. A rest that is no whole codec frame goes on with
    // silence, after a warning.
    const GString* next( );
    // Bytes of samples that the last packet holds.
    int getChunkLength( ) const { return _thisChunkSize; }

private:
    void _make( const GAudioFormat& format, bool audioEnabled );
    void _encode( const char* chunk );

    GAudioFormat _format = { 0, 0, 0 };
    std::unique_ptr<GSpeexEncoder> _speexEncoder;
    const char* _buffer = nullptr;
    int _remaining = 0;
    int _chunkSize = 0;
    int _thisChunkSize = 0;
    GString _padded;
    GString _frame;
};
