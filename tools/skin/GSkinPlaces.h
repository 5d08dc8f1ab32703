// Where the parts of a drawn window take the pointer, for programs that press them.
#pragma once

class GWindowNode;

// Prints a line for each: x, y, width, height within the window, its path, and its attributes as they stand in the template, with
// tabs between. The last line is "content", with the least size that the window's content asks for.
void GSkinPrintPlaces( GWindowNode& window );
