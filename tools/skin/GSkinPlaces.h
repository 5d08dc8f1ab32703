// Where the parts of a drawn window take the pointer, for programs that press them.
#pragma once

class GWindowNode;

// Prints a line for each: x, y, width, height within the window, its path, and its attributes as they stand in the template, with
// tabs between.
void GSkinPrintPlaces( const GWindowNode& window );
