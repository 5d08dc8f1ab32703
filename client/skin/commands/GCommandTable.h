// The shape of every command module: a table of action names and methods, in order. Warnings come from the module when no row fits.
#pragma once

#include "base/GPortable.h"
#include "client/skin/commands/GCommand.h"

template <typename MODULE>
struct GCommandRow
{
    GWStringView action;
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
        if( !GCaseEquals( row.action, command.action ) ) continue;
        if( row.activity ) GLOG( u"ACTIVITY: ", row.action, u" '", target, u"'" );
        ( module.*row.run )( command );
        return true;
    }
    return false;
}
