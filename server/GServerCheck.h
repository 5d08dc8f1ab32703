// What an operator got wrong, told before the server runs: settings that read well one by one, but not together or not on this machine.
#pragma once

#include "server/core/GServerConfig.h"

#include <vector>

enum GFindingKind
{
    GFINDING_NOTE,    // Worth knowing.
    GFINDING_WARNING, // It runs, but not for everyone or not as safely as it could.
    GFINDING_ERROR    // It would not run, or a role of it would fail.
};
struct GFinding
{
    GFindingKind kind;
    GString text;
};

namespace GServerCheck
{
// Looks at finished settings, this machine's addresses and the folders that are named. Opens each host for a moment and closes it
// again; leaves no file behind. Findings come in the order of the roles.
std::vector<GFinding> run( const GServerConfig& config );
// "ERROR ...", "WARNING ..." or "NOTE ...".
GString compose( const GFinding& finding );
} // namespace GServerCheck
