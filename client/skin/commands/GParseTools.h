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
    GWString subpath; // The path after its first step.
    GWString action;
    std::map<GWString, GWString, std::less<>> args; // By name; the action stands under the empty name as well.
};
// "path?action+name=value&name=value"; the path may be missing.
GCommandText GParseTools_parseCommand( GWStringView text );
// Cuts the first step off a path with "/" and "?" between; the rest stays in `path`.
GWString GParseTools_takeStep( GWString& path );
