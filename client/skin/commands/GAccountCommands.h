// "/account": logging on, opening an account, and telling the services of a change of capture. User-interface thread.
#pragma once

#include "client/skin/commands/GCommandTable.h"

class GInstance;
class GTemplate;

class GAccountCommands
{
public:
    explicit GAccountCommands( GTemplate& engine );
    void execute( const GCommand& command );
    static std::vector<GActionRow> getActions( );

private:
    static const GCommandRow<GAccountCommands> ROWS[];

    void _new( const GCommand& command );
    void _login( const GCommand& command );
    void _updateCapture( const GCommand& command );
    // What is wrong with the form of a new account; empty when it is complete.
    GWStringView _getNewError( );

    GTemplate& _engine;
    GInstance& _instance;
};
