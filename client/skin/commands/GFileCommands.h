// "/fileservice": opening and cancelling the transfer that is selected in a table. User-interface thread.
#pragma once

#include "client/skin/commands/GCommandTable.h"

class GInstance;
class GTemplate;

class GFileCommands
{
public:
    explicit GFileCommands( GTemplate& engine );
    void execute( const GCommand& command );
    static std::vector<GActionRow> getActions( );

private:
    static const GCommandRow<GFileCommands> ROWS[];

    void _open( const GCommand& command );
    void _cancel( const GCommand& command );
    void _send( GWStringView method, const GCommand& command );

    GInstance& _instance;
};
