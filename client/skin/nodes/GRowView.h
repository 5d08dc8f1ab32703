// What lists and tables share: rows of one height below each other, their grounds, and scrolling when they do not fit. All of it is
// switched on by attributes of its own; without them rows are as high as their text, stand from the top and are cut at the end.
// User-interface thread.
#pragma once

#include "base/GRect.h"
#include "client/skin/GAttributeStack.h"

class GImageStack;
class GNodeFont;

class GRowView
{
public:
    // "$rowheight" (pixels, the font's and a node's own gap without it), "$padding" (pixels left and right of the text, `padding`
    // without it), "$selectedbgcolor", "$mouseoverbgcolor", and "$thumbcolor": with it the rows scroll. True when one changed.
    bool read( GAttributeStack& stack, int padding );

    // The height of a row, at least 1; `natural` is what it is without "$rowheight".
    int getRowHeight( int natural ) const;
    int getPadding( ) const { return _padding; }

    // How many rows there are, and their height.
    void setRows( int count, int rowHeight );
    // Told at each render: the room in pixels. Keeps the position within its bounds.
    void layout( int room );
    // Where a row begins, relative to the first visible pixel.
    int getTop( int row ) const { return row * _rowHeight - _offset; }
    // The row at that pixel of the room, -1 outside the rows.
    int getRow( int y ) const;
    // The first row of which something shows.
    int getFirst( ) const { return _offset / _rowHeight; }
    bool isScrolling( ) const { return _overflow > 0; }

    // Wheel steps, upward above 0; true when the position moved.
    bool scroll( int steps );
    // Brings a row into the room; before the first layout it is remembered.
    void show( int row );
    // Where a key leads from `row` (-1: none): arrows, page keys, home and end; `row` itself for other keys.
    int follow( int key, int row ) const;

    // The ground of a row. True when it was drawn, so that the row need not be inverted.
    bool drawGround( GImageStack& images, const GRect& rect, bool selected, bool mouseover ) const;
    // One line of text in the middle of its row.
    void drawText( GImageStack& images, const GWString& text, GNodeFont& font, const GRect& rect ) const;
    // The thumb at the right edge of the room that begins at `top`, when not all rows fit.
    void drawThumb( GImageStack& images, int top, int width ) const;

private:
    void _hold( );

    int _wantedHeight = 0;
    int _padding = 0;
    GWString _selectedColour;
    GWString _mouseoverColour;
    GWString _thumbColour;
    int _room = 0;
    int _count = 0;
    int _rowHeight = 1;
    int _offset = 0;   // Pixels above the room.
    int _overflow = 0; // How far the offset may go.
    int _pending = -1; // The row to bring into view at the next layout.
};

// A bar with round ends.
void GRowView_drawPill( GImageStack& images, const GRect& rect, uint32_t colour );
