// The operator's commands beside running the server: accounts, buddy lists, status. Each prints its result and gives an exit code.
#pragma once

#include "server/core/GServerConfig.h"
#include "server/core/GServerStore.h"

#include <iosfwd>

namespace GServerCommands
{
// The text of --help.
GString usage( );
// `arguments` begins with the command ("user", "buddy", "status"). 0 done, 1 failed, 2 wrong use.
int run( const GServerConfig& config, const std::vector<GString>& arguments, std::ostream& out, std::ostream& err );
} // namespace GServerCommands
