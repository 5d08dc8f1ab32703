// Encodes camera pictures into Theora frames that stand by themselves: the codec's set-up, the codebook, depends only on the
// output size, so it never travels with the frames. One thread: its stream's.
#pragma once

#include "base/GRect.h"
#include "client/media/GTheoraDecoder.h"
#include "image/GImageFormat.h"

#include <memory>

// The one set of codec parameters for a size: the codebook and the encoder must agree on it, and both ends of a call compute it.
// Initialises `info`, which the caller clears.
void GTheoraEncoder_fillInfo( theora_info& info, int width, int height );

// Writes the three set-up packets. Preconditions "width && height", "!(width % 16)", "!(height % 16)", "!buffer.size( )".
void GTheoraEncoder_generateCodebook( int width, int height, GString& buffer );

class GTheoraEncoder : public GHeapObject
{
public:
    // Crops the source to `cropRect` and scales that to the output size, a multiple of 16.
    GTheoraEncoder( const GImageFormat& srcImageFormat, const GRect& cropRect, int outputWidth, int outputHeight,
                    int fps );
    ~GTheoraEncoder( ) override;

    // Replaces `packetBuffer` with one serialized frame; empty for a source that is neither GIT_RGB24 nor GIT_YUY2 and for one shorter
    // than its format says, after a warning. Precondition "sampleBuffer && length >= 0". Allocates nothing once its buffers have grown.
    // In log category E each frame is decoded once more, to see that it can be.
    void encode( const char* sampleBuffer, int length, GString& packetBuffer );
    // The next frame stands by itself, as the first one does.
    void startAfresh( ) { _isAfresh = true; }
    // Whether the last frame that `encode` gave stands by itself.
    bool isKeyPicture( ) const { return _isKeyPicture; }
    int getOutputWidth( ) const { return _outputWidth; }
    int getOutputHeight( ) const { return _outputHeight; }

private:
    void _setKeyPeriod( ogg_uint32_t pictures );
    bool _fillPlanes( const char* sampleBuffer, int length );
    void _verify( const GString& packetBuffer );

    GImageFormat _srcImageFormat;
    GRect _cropRect;
    int _outputWidth;
    int _outputHeight;
    theora_info _encoderInfo;
    theora_state _theoraState;
    std::unique_ptr<GTheoraDecoder> _debug_decoder;
    bool _isAfresh = false;
    bool _isKeyPicture = false;
    GString _planes;
};
