// The frame buffer of the whole desktop: sized and typed as the display is, filled by rectangles, rebuilt when the display changes.
#pragma once

#include "base/GRect.h"
#include "image/GImageFormat.h"
#include "platform/common/GScreenPixels.h"
#include "platform/screen/GScreenMemory.h"

class GScreenFrame
{
public:
    // The connection outlives the frame.
    explicit GScreenFrame( GScreenConnection& connection ) : _connection( connection ) {}

    // As GScreenCapture.
    const char* capture( const GRect& dirtyRect, GImageFormat& format );

private:
    bool _rebuild( );
    void _release( );
    bool _readDisplay( );
    bool _hasSameSize( );
    GScreenReply<xcb_get_geometry_reply_t> _readSize( );
    bool _copy( const GRect& dirtyRect );
    bool _copyShared( const GRect& rect );
    bool _copyPlain( const GRect& rect );
    char* _at( int x, int y ) const;
    size_t _getServerStride( int width ) const;

    GScreenConnection& _connection;
    GScreenMemory _memory;
    GImageFormat _format;
    unsigned _generation = 0; // Of the connection, as is the next, when the buffer was made.
    unsigned _sizeChanges = 0;
    const GScreenPixels* _pixels = nullptr; // Of the display.
    size_t _pixelBytes = 0;
    size_t _stride = 0;     // Bytes of a row of the frame buffer, which has no padding.
    size_t _rowPadding = 1; // Rows that the server sends end at a multiple of so many bytes.
    size_t _staging = 0;    // Where in the shared memory rows arrive that can't go to their place at once.
};
