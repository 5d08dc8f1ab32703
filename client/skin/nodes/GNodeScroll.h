// Scrolling of what is taller than its frame: the offset, the wheel, keeping a row in view, and a slim thumb at the right edge that
// can be dragged. All in pixels, positions relative to the frame's top left corner. Off unless the skin sets "$thumbcolor".
// User-interface thread.
#pragma once

#include "base/GRect.h"
#include "client/skin/GAttributeStack.h"

class GImageStack;

class GNodeScroll
{
public:
    // "$thumbcolor" and "$thumbwidth" (6 when empty); true when one changed.
    bool read( GAttributeStack& stack );
    bool isOn( ) const { return !_colour.empty( ); }

    // What is to be shown and the room for it; holds the offset within both. The content starts `top` below the frame.
    void layout( int content, int top, int width, int height );
    // Subtracted from positions in the content.
    int getOffset( ) const { return _offset; }
    bool isNeeded( ) const { return isOn( ) && _content > _height; }
    int getRoom( ) const { return _height; }
    // The width that the thumb takes from rows.
    int getWidth( ) const { return isNeeded( ) ? _thumbWidth + 2 : 0; }

    // True when the offset changed.
    bool scrollTo( int offset );
    // The least movement that brings these rows of the content into view; the upper end wins.
    bool show( int top, int bottom );
    // Steps of the wheel, away from the user positive; `line` is the height of a row.
    bool turn( int steps, int line );

    // True when the point is on the track: the thumb is held until release.
    bool press( int x, int y );
    // Follows the pointer while the thumb is held.
    bool drag( int y );
    void release( ) { _held = false; }
    bool isHeld( ) const { return _held; }
    void draw( GImageStack& images ) const;

private:
    GRect _getThumb( ) const;

    GWString _colour;
    int _thumbWidth = 0;
    int _content = 0;
    int _top = 0;
    int _width = 0;
    int _height = 0;
    int _offset = 0;
    bool _held = false;
    int _grip = 0; // Where in the thumb it was taken.
};
