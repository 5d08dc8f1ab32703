// "/system": leaving, reconnecting and restarting, hotkeys, settings by name, logs and bug reports. User-interface thread.
#pragma once

#include "client/skin/commands/GCommandTable.h"

class GInstance;
class GTemplate;

class GSystemCommands
{
public:
    explicit GSystemCommands( GTemplate& engine );
    void execute( const GCommand& command );
    static std::vector<GActionRow> getActions( );

private:
    static const GCommandRow<GSystemCommands> ROWS[];

    void _exit( const GCommand& command );
    void _reconnect( const GCommand& command );
    void _restart( const GCommand& command );
    void _delayRestart( const GCommand& command );
    void _setLogFilter( const GCommand& command );
    void _getValue( const GCommand& command );
    void _setValue( const GCommand& command );
    void _set( const GCommand& command );
    void _assignHotkey( const GCommand& command );
    void _clearHotkey( const GCommand& command );
    void _uploadLogfile( const GCommand& command );
    void _bugReport( const GCommand& command );
    void _logCallStack( const GCommand& command );
    void _showChanges( const GCommand& command );
    void _reloadSkin( const GCommand& command );
    // Logs off, with what is to happen then.
    void _leave( bool reconnect, bool exit, bool restart );

    GTemplate& _engine;
    GInstance& _instance;
};
