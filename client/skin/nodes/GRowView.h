// What lists and tables share: rows of one height below each other, their grounds, and scrolling when they do not fit. All of it is
// switched on by attributes of its own; without them rows are as high as their text, stand from the top and are cut at the end.
// User-interface thread.
#pragma once

#include "base/GRect.h"
#include "client/skin/GSkinTable.h"
#include "client/skin/nodes/GNodeScroll.h"

class GNodeFont;

// What GRowView::read reads, for the tables of the elements.
constexpr GAttributeRow GROWVIEW_ATTRIBUTES[] = {
    { u"rowheight", GAttributeKind::number, u"", u"The height of a row; empty for that of its text." },
    { u"padding", GAttributeKind::number, u"4", u"The room left and right of the texts." },
    { u"selectedbgcolor", GAttributeKind::colour, u"", u"The ground of the chosen row; empty: the row is inverted." },
    { u"mouseoverbgcolor", GAttributeKind::colour, u"", u"The ground of the row under the pointer; empty: none." },
    { u"thumbcolor", GAttributeKind::colour, u"",
      u"With it the rows scroll when they do not fit, and a thumb of that colour tells where." },
    { u"thumbwidth", GAttributeKind::number, u"6", u"The width of that thumb." },
    { u"ellipsis", GAttributeKind::toggle, u"off", u"Texts that do not fit end in dots." },
    { u"rowradius", GAttributeKind::number, u"0", u"The corners of the rows' grounds." },
};

class GRowView
{
public:
    // "$rowheight" (pixels, what the node says without it), "$padding" (pixels left and right of the text, `padding` without it),
    // "$selectedbgcolor" and "$mouseoverbgcolor" with corners of "$rowradius", "$ellipsis" (texts that do not fit end in "..."), and
    // what GNodeScroll reads. True when one changed.
    bool read( GAttributeStack& stack, int padding );

    // The height of a row, at least 1; `natural` is what it is without "$rowheight".
    int getRowHeight( int natural ) const;
    int getPadding( ) const { return _padding; }

    // How many rows there are, and their height.
    void setRows( int count, int rowHeight );
    // Told at each render: the rows' room, which begins `top` below the node's frame. Keeps the position within its bounds.
    void layout( int top, int width, int room );
    // The frame of a row, relative to the room.
    GRect getRect( int row ) const;
    // The row at that pixel of the room, -1 outside the rows.
    int getRow( int y ) const;
    // The rows of which something shows: from `first` on, up to the end or the first that begins below the room.
    int getFirst( ) const { return _scroll.getOffset( ) / _rowHeight; }
    bool isVisible( int row ) const { return row < _count && getRect( row ).top < _room; }

    // Wheel steps, upward above 0; true when the position moved.
    bool scroll( int steps ) { return _scroll.turn( steps, _rowHeight ); }
    // The thumb, in pixels of the node's frame: taken, dragged (true when the position moved) and let go (true when it was held).
    bool press( int x, int y ) { return _scroll.press( x, y ); }
    bool isHeld( ) const { return _scroll.isHeld( ); }
    bool drag( int y ) { return _scroll.drag( y ); }
    void release( ) { _scroll.release( ); }
    // Brings a row into the room; before the first layout it is remembered.
    void show( int row );
    // Where a key leads from `row` (-1: none): arrows, page keys, home and end; `row` itself for other keys.
    int follow( int key, int row ) const;

    // The ground of a row. True when it was drawn, so that the row need not be inverted.
    bool drawGround( GImageStack& images, const GRect& rect, bool selected, bool mouseover ) const;
    // One line of text in the middle of its row.
    void drawText( GImageStack& images, const GWString& text, GNodeFont& font, const GRect& rect ) const;
    // Within the room: puts the mark of the focus around that row, or around all when it does not show.
    void markFocus( GImageStack& images, int row ) const;
    // In the node's frame.
    void drawThumb( GImageStack& images ) const { _scroll.draw( images ); }

private:
    int _wantedHeight = 0;
    int _padding = 0;
    int _radius = 0;
    bool _ellipsis = false;
    GWString _selectedColour;
    GWString _mouseoverColour;
    GNodeScroll _scroll;
    int _width = 0;
    int _room = 0;
    int _count = 0;
    int _rowHeight = 1;
    int _pending = -1; // The row to bring into view at the next layout.
};
