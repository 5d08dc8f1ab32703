// A text as it lies on the screen, for editing: where a caret stands, what a point hits, how far a key goes, and its pixels. Indexes
// count UTF-16 units and lie between graphemes: combining marks and surrogate pairs are never split, and right-to-left runs are
// followed as they are seen. A layout never changes and is independent of the font that it was made from. User-interface thread only.
#pragma once

#include "base/GRect.h"
#include "platform/GText.h"

#include <vector>

struct GTextLayoutRecord;
using GTextLayout = GTextLayoutRecord*;

enum GTextStep
{
    GSTEP_LEFT, // As it is seen.
    GSTEP_RIGHT,
    GSTEP_PREVIOUS, // As it is read.
    GSTEP_NEXT,
    GSTEP_PREVIOUS_WORD,
    GSTEP_NEXT_WORD,
    GSTEP_LINE_START,
    GSTEP_LINE_END
};

// Never fails; the caller closes. GTEXT_WORDBREAK: several lines, broken at '\n' and at `width` when that is above 0. Without it line
// ends count as blanks. Text that reads from the right stands at the right end of `width`. At most 65536 units count.
GTextLayout GTextLayoutOpen( GText text, const GWString& string, int flags, int width );
void GTextLayoutClose( GTextLayout layout );
// In pixels, blanks at the end included; an empty text is one line high.
void GTextLayoutGetSize( GTextLayout layout, int& width, int& height );
// The upper end of a caret before that unit; an index beyond the text is its end.
void GTextLayoutGetCaret( GTextLayout layout, size_t index, int& x, int& y );
// The index nearest to a point; outside of the text, that of the nearest line.
size_t GTextLayoutHit( GTextLayout layout, int x, int y );
// Where a step from `index` leads; the ends of the text end it.
size_t GTextLayoutStep( GTextLayout layout, size_t index, GTextStep step );
// The word or the row of blanks or signs at an index.
void GTextLayoutGetWord( GTextLayout layout, size_t index, size_t& begin, size_t& end );
// What the units from `begin` to `end` cover, at most one rectangle for each direction change and line.
void GTextLayoutGetSpans( GTextLayout layout, size_t begin, size_t end, std::vector<GRect>& spans );
// Draws the part that begins at (`left`, `top`) of the layout into `coverage`, `height` rows of `stride` bytes of which `width` count;
// all of them are written. Preconditions: width, height > 0, stride >= width, a buffer.
void GTextLayoutDraw( GTextLayout layout, int left, int top, int width, int height, uint8_t* coverage, int stride );
