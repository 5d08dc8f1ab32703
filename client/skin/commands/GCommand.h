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
    // Both borrowed for the command's life; `source` is the node that issued it, or null.
    GCommand( const GCommandText& text, GTemplateNode* source );

    const GWString& path;
    const GWString& subpath; // The path after its first step.
    const GWString& action;
    GTemplateNode* source;
    // The source by its class, or null.
    GEditNode* edit;
    GListNode* list;
    GTableNode* table;
    GWString selection; // Of the table.

    // An argument; empty when it is not there.
    const GWString& get( GWStringView name ) const;
    int64_t calc( GWStringView name ) const { return GCalc( get( name ) ); }

private:
    const GCommandText& _text;
};
