// Actions on nodes of the skin: windows open, close and fade, wizards turn pages, edits are cleared. User-interface thread.
#pragma once

#include "client/skin/commands/GCommandTable.h"

class GTemplate;
class GWindowNode;
class GWizardNode;

class GNodeCommands
{
public:
    // Both borrowed; `target` is the node that the command's path named.
    GNodeCommands( GTemplate& engine, GTemplateNode& target );
    void execute( const GCommand& command );
    static std::vector<GActionRow> getActions( );

private:
    static const GCommandRow<GNodeCommands> ROWS[];

    void _fadeIn( const GCommand& command );
    void _fadeOut( const GCommand& command );
    void _open( const GCommand& command );
    void _close( const GCommand& command );
    void _maximize( const GCommand& command );
    void _minimize( const GCommand& command );
    void _flash( const GCommand& command );
    void _refresh( const GCommand& command );
    void _next( const GCommand& command );
    void _back( const GCommand& command );
    void _done( const GCommand& command );
    void _jump( const GCommand& command );
    void _show( const GCommand& command );
    void _hide( const GCommand& command );
    void _clear( const GCommand& command );
    void _fit( const GCommand& command );
    void _submit( const GCommand& command );
    void _warn( GWStringView text ) const;

    GTemplate& _engine;
    GTemplateNode& _target;
    GWindowNode* _window;
    GWizardNode* _wizard;
};
