// Fonts and text as coverage: a font is opened from a description, text is measured and drawn into 8-bit coverage (0 none, 255
// full), which the caller tints. Shaping, bidirectional order and missing glyphs are settled inside. User-interface thread only.
#pragma once

#include "base/GTypes.h"

struct GTextRecord;
using GText = GTextRecord*;

struct GTextFont
{
    GWString face = u"Tahoma"; // A face that is not there becomes the nearest installed one.
    int size = 16;             // Height in pixels.
    int weight = 400;          // 400 is plain, 700 bold.
    bool italic = false;
    bool underline = false;
    bool strikeOut = false;
    bool antialiased = true; // Without it coverage is 0 or 255.
};

// How a text lies in its rectangle. Without word break it is one line: line ends count as blanks. Other control characters have no
// look; marks of foreign text (GForeignText.h) look like what they stand for.
enum GTextFlags
{
    GTEXT_CENTER = 1,
    GTEXT_RIGHT = 2,
    GTEXT_WORDBREAK = 16,      // Several lines: broken at line ends, and between words at the width.
    GTEXT_END_ELLIPSIS = 32768 // A line that is too wide is cut and ends in an ellipsis.
};

// Never fails; the caller closes. A size below 1 counts as 1, above 512 as 512.
GText GTextOpen( const GTextFont& font );
void GTextClose( GText text );
// Pixels from one base line to the next, and from the top of a line to its base line.
int GTextGetHeight( GText text );
int GTextGetAscent( GText text );
// The pixels that `string` takes, blanks at the end included. `wrapWidth` above 0 breaks lines there under GTEXT_WORDBREAK.
// An empty text is 0 wide and one line high. At most 65536 units of a text count.
void GTextMeasure( GText text, const GWString& string, int flags, int wrapWidth, int& width, int& height );
// Draws into `coverage`, `height` rows of `stride` bytes of which `width` count; all of them are written. What does not fit is
// cut. Returns the height of the whole text. Preconditions: width, height > 0, stride >= width, a buffer.
int GTextDraw( GText text, const GWString& string, int flags, int width, int height, uint8_t* coverage, int stride );

// Adds the faces of a font file to those that can be opened; false when it holds none.
bool GTextAddFontFile( const GWString& path );
// True when the face is there by its own name.
bool GTextHasFace( const GWString& face );
