// One command on its way to the module that carries it out: the parsed text, and what its source node is.
#pragma once

#include "base/GUtil.h"
#include "client/skin/commands/GParseTools.h"

class GEditNode;
class GListNode;
class GTableNode;
class GTemplateNode;

struct GCommand
{
    GWString path;
    GWString subpath; // The path after its first step.
    GWString action;
    std::map<GWString, GWString, std::less<>> args;
    // The node that issued it, or null, and the same node by its class. Borrowed.
    GTemplateNode* source = nullptr;
    GEditNode* edit = nullptr;
    GListNode* list = nullptr;
    GTableNode* table = nullptr;
    GWString selection; // Of the table.

    GWString get( GWStringView name ) const
    {
        const auto found = args.find( name );
        return found == args.end( ) ? GWString( ) : found->second;
    }
    int64_t calc( GWStringView name ) const { return GCalc( get( name ) ); }
};

// Cuts the first step off a path with "/" and "?" between; the rest stays in `path`.
GWString GCommandTakeStep( GWString& path );
// Parses one command and classifies its source.
GCommand GCommandMake( GWStringView text, GTemplateNode* source );
