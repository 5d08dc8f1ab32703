// What is wrong with a skin file that the engine would pass over in silence: unknown elements and attributes, files that are not
// there, cells outside their pictures, commands without parentheses, paths that lead nowhere, and attributes that a window cannot
// see when it updates by itself.
#pragma once

#include "GSkinReader.h"

struct GSkinFinding
{
    int line;
    GWString text;
};

// Findings in the order of the file. Files are looked for in the working directory.
std::vector<GSkinFinding> GSkinCheck( const std::vector<GSkinElement>& elements );
