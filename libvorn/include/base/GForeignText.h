// Texts of strangers: names, titles, file names, reasons and whatever else a peer, a server or another program writes. The characters
// that an expression, a command, a menu, a list or a path gives a meaning to stand in them as noncharacters of Unicode, so that a text
// stays a text wherever it is pasted, through any number of expansions and copies; what is drawn or shown by the desktop shows the
// characters themselves. A text without such characters is unchanged. To be called where a text enters the program, on what the skin
// shows. Plain values, any thread.
#pragma once

#include "base/GTypes.h"

// The text with its marks: line ends and tabs are blanks, other control characters and marks of the sender's own are gone, at most
// `maxLength` units are kept and no half of a pair.
GWString GForeignText( GWStringView text, size_t maxLength = 1024 );
// True when there is any mark in it.
bool GForeignTextIsMarked( GWStringView text );
// The text as people read it: for drawing, and for what leaves the program again.
GWString GForeignTextShown( GWStringView text );
// The mark that stands for one such character; any other as it is.
char16_t GForeignTextMark( char16_t unit );
