// What the author asks for on the command line.
#pragma once

#include "base/GTypes.h"

struct GSkinOptions
{
    GString action; // "--render" and its like; empty when the command line makes no sense.
    GWString window;
    GString out;
    GString directory;
    GWString file = u"template.xml";
    GString palette;
    GString scale;
    GString background = "#8A93A0";
    GWString page;
    GString sample = "day";
    GString dataFile;
    int width = 0;
    int height = 0;
    int buddies = -1; // As many as the sample has.
    bool empty = false;
    // Places: "x,y" within the window, or a text in a part's path or attributes.
    GString hover;
    GString press;
    GString click;
    GString focus;
    GWString typed;
    std::vector<GString> settings; // "name=value"
};

GSkinOptions GSkinOptionsRead( int argc, char** argv );
GString GSkinOptionsUsage( );
