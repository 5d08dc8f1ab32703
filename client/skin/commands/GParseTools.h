// The two little grammars of the command language: menus of labelled commands, and commands of a path, an action and arguments.
// What matched before a failure stands; nothing is reported.
#pragma once

#include "base/GTypes.h"

#include <map>

struct GMenuItem
{
    GWString label;
    GWString command;
};
// "Label(command);Label(command)". A ")" missing at the very end does no harm; a text without "(" gives no item.
void GParseTools_parseMenu( std::vector<GMenuItem>& items, GWStringView text );

struct GCommandText
{
    GWString path;
    // By name; the action stands under the empty name.
    std::map<GWString, GWString, std::less<>> args;
};
// "path?action+name=value&name=value"; the path may be missing.
GCommandText GParseTools_parseCommand( GWStringView text );
