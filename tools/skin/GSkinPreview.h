// Brings a window into the state that the author asked for, and draws or shows it.
#pragma once

#include "GSkinOptions.h"

class GWindowNode;

// From here on the program has a clock of its own, so that a picture is the same whenever it is drawn.
void GSkinPreviewStart( );
// Opens and sizes the window, turns its page, and puts keyboard and pointer where they are asked for.
void GSkinPreviewPrepare( const GSkinOptions& options, GWindowNode& window );
// To a PNG file. These two give the program's exit code.
int GSkinPreviewRender( const GSkinOptions& options, GWindowNode& window );
// On the desktop, until its windows are closed. A change of the file is shown at once, and `check` runs over it.
int GSkinPreviewShow( const GSkinOptions& options, GWindowNode& window,
                      void ( *check )( const GSkinOptions& options ) );
