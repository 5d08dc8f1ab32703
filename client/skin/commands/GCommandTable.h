// The shape of every command module: a table of action names and methods, in order. Warnings come from the module when no row fits.
#pragma once

#include "base/GPortable.h"
#include "client/skin/GSkinTable.h"
#include "client/skin/commands/GCommand.h"

template <typename MODULE>
struct GCommandRow
{
    GActionRow is;
    // Whether the action starts something: it then leaves an "ACTIVITY: " line.
    bool activity;
    void ( MODULE::*run )( const GCommand& command );
};

// Runs the row of the command's action; false when there is none. `target` is for the log.
template <typename MODULE, size_t COUNT>
bool GCommandRun( MODULE& module, const GCommandRow<MODULE> ( &rows )[COUNT], const GCommand& command,
                  GWStringView target )
{
    for( const GCommandRow<MODULE>& row : rows )
    {
        if( !GCaseEquals( row.is.action, command.action ) ) continue;
        if( row.activity ) GLOG( u"ACTIVITY: ", row.is.action, u" '", target, u"'" );
        ( module.*row.run )( command );
        return true;
    }
    return false;
}

// What the rows are for, for those who read and not run them.
template <typename MODULE, size_t COUNT>
std::vector<GActionRow> GCommandGetActions( const GCommandRow<MODULE> ( &rows )[COUNT] )
{
    std::vector<GActionRow> out;
    for( const GCommandRow<MODULE>& row : rows ) out.push_back( row.is );
    return out;
}
