// A skin file as a flat list of elements with their lines, for checks that need to say where something stands.
#pragma once

#include "base/GTypes.h"

#include <utility>

struct GSkinElement
{
    GWString name;
    int line = 0;
    int parent = -1;                                       // Index of the element around it, -1 at the root.
    std::vector<std::pair<GWString, GWString>> attributes; // Names in lower case.

    // Null when absent.
    const GWString* find( GWStringView attribute ) const;
};

// False, with `error` and `line` set, when the file cannot be parsed.
bool GSkinRead( const GWString& filename, std::vector<GSkinElement>& elements, GWString& error, int& line );
