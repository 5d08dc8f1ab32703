// Pictures of a camera into frames of one size: the largest centred square of the source, brought to the edge of the setting
// `Video_Size`. One thread at a time.
#pragma once

#include "client/media/GTheoraEncoder.h"
#include "runtime/GInstance.h"

#include <memory>

// Pixels along an edge of the pictures that are sent: `Video_Size`, brought to a multiple of 16 from 16 to 1024, with a WARNING when it
// is none.
int GVideoEncoding_getEdge( GInstance* instance );

class GVideoEncoding
{
public:
    explicit GVideoEncoding( GInstance* instance ) : _instance( instance ) {}

    void reset( );
    bool isMadeFor( const GImageFormat& format ) const { return _theoraEncoder && format == _imageFormat; }
    // Makes the encoder for a source anew. A source without a square of 16 pixels gets none. `videoEnabled` and `fps` are logged.
    void make( const GImageFormat& format, bool videoEnabled, int fps );
    bool isMade( ) const { return _theoraEncoder != nullptr; }
    // The next frame stands by itself; the encoder is made anew when `Video_Size` is another by now. It must have been made.
    void startAfresh( bool videoEnabled, int fps );
    // An encoded picture, or nothing when the source was too short, which is logged. It is valid until the next call.
    const GString& encode( const char* buffer, int length );
    int getEdge( ) const { return _theoraEncoder->getOutputWidth( ); }
    // Whether the last picture stands by itself.
    bool isKeyPicture( ) const { return _theoraEncoder && _theoraEncoder->isKeyPicture( ); }

private:
    GInstance* _instance;
    GImageFormat _imageFormat;
    std::unique_ptr<GTheoraEncoder> _theoraEncoder;
    GString _frame;
};
