#include "client/skin/commands/GNodeCommands.h"

#include "client/skin/GTemplate.h"
#include "client/skin/nodes/GEditNode.h"
#include "client/skin/nodes/GListNode.h"
#include "client/skin/nodes/GWindowNode.h"
#include "client/skin/nodes/GWizardNode.h"

#include <algorithm>

namespace
{
// A day is as long as any fade may take.
constexpr int64_t LONGEST_FADE = 86400000;

int64_t getDuration( const GCommand& command )
{
    return std::clamp<int64_t>( command.calc( u"duration" ), 0, LONGEST_FADE ) * 1000;
}
} // namespace

GNodeCommands::GNodeCommands( GTemplate& engine, GTemplateNode& target )
    : _engine( engine ), _target( target ), _window( dynamic_cast<GWindowNode*>( &target ) ),
      _wizard( dynamic_cast<GWizardNode*>( &target ) )
{
}

const GCommandRow<GNodeCommands> GNodeCommands::ROWS[] = {
    { { u"fadein", u"duration",
        u"A window: shows it, within `duration` milliseconds; one that shows comes to the front." },
      false,
      &GNodeCommands::_fadeIn },
    { { u"fadeout", u"duration", u"A window: hides it, within `duration` milliseconds." },
      false,
      &GNodeCommands::_fadeOut },
    { { u"open", u"", u"A window: runs its `onopen`." }, false, &GNodeCommands::_open },
    { { u"close", u"", u"A window: runs its `onclose`." }, false, &GNodeCommands::_close },
    { { u"maximize", u"", u"A window: fills the desktop; again: as before." }, false, &GNodeCommands::_maximize },
    { { u"minimize", u"", u"A window: into the task bar; again: back." }, false, &GNodeCommands::_minimize },
    { { u"flash", u"", u"A window: draws attention in the task bar; a closed one opens." },
      false,
      &GNodeCommands::_flash },
    { { u"refresh", u"", u"Any node: updates it at once." }, false, &GNodeCommands::_refresh },
    { { u"next", u"", u"A wizard: the next page." }, false, &GNodeCommands::_next },
    { { u"back", u"", u"A wizard: the page before." }, false, &GNodeCommands::_back },
    { { u"done", u"", u"A wizard: runs its `ondone`." }, false, &GNodeCommands::_done },
    { { u"jump", u"target",
        u"A wizard: the page with the title or id `target`; from a list, the one that is chosen there." },
      false,
      &GNodeCommands::_jump },
    { { u"show", u"", u"A wizard: runs the `onshow` of its page, for a window that opens." },
      false,
      &GNodeCommands::_show },
    { { u"hide", u"", u"A wizard: runs the `onhide` of its page, for a window that closes." },
      false,
      &GNodeCommands::_hide },
    { { u"clear", u"", u"Empties the edit that issued the command." }, false, &GNodeCommands::_clear },
    { { u"fit", u"", u"A window: takes the least size that its content needs." }, false, &GNodeCommands::_fit },
    { { u"submit", u"", u"An edit: runs its `onenter`, as the return key does; for a button beside it." },
      false,
      &GNodeCommands::_submit },
};

std::vector<GActionRow> GNodeCommands::getActions( )
{
    return GCommandGetActions( ROWS );
}

void GNodeCommands::execute( const GCommand& command )
{
    if( !GCommandRun( *this, ROWS, command, _target.getPath( ) ) ) _warn( u"WARNING Unknown skin action '" );
}

void GNodeCommands::_warn( GWStringView text ) const
{
    GLOG( text, _target.getPath( ), u"', ignoring." );
}

void GNodeCommands::_fadeIn( const GCommand& command )
{
    if( !_window ) return _warn( u"WARNING Trying to 'fadein' non-window node '" );
    _window->fadeIn( getDuration( command ) );
}

void GNodeCommands::_fadeOut( const GCommand& command )
{
    if( !_window ) return _warn( u"WARNING Trying to 'fadeout' non-window node '" );
    _window->fadeOut( getDuration( command ) );
}

void GNodeCommands::_open( const GCommand& )
{
    if( !_window ) return _warn( u"WARNING Trying to 'open' non-window node '" );
    _window->open( );
}

void GNodeCommands::_close( const GCommand& )
{
    if( !_window ) return _warn( u"WARNING Trying to 'close' non-window node '" );
    _window->close( );
}

void GNodeCommands::_maximize( const GCommand& )
{
    if( !_window ) return _warn( u"WARNING Trying to 'maximize' non-window node '" );
    _window->maximize( );
}

void GNodeCommands::_minimize( const GCommand& )
{
    if( !_window ) return _warn( u"WARNING Trying to 'minimize' non-window node '" );
    _window->minimize( );
}

void GNodeCommands::_flash( const GCommand& )
{
    if( !_window ) return _warn( u"WARNING Trying to 'flash' non-window node '" );
    _window->flash( );
}

void GNodeCommands::_refresh( const GCommand& )
{
    _engine.refresh( _target.getParentPath( ), &_target, true );
}

void GNodeCommands::_next( const GCommand& )
{
    if( !_wizard ) return _warn( u"WARNING Trying to 'next' on non-wizard node '" );
    _wizard->next( );
}

void GNodeCommands::_back( const GCommand& )
{
    if( !_wizard ) return _warn( u"WARNING Trying to 'back' on non-wizard node '" );
    _wizard->back( );
}

void GNodeCommands::_done( const GCommand& )
{
    if( !_wizard ) return _warn( u"WARNING Trying to 'done' on non-wizard node '" );
    _wizard->done( );
}

void GNodeCommands::_jump( const GCommand& command )
{
    const GWString target = command.list ? command.list->getSelection( ) : command.get( u"target" );
    if( !_wizard || target.empty( ) )
        return _warn( u"WARNING Trying to 'jump' on non-wizard node, with no target, or with non-list source '" );
    _wizard->jump( target );
}

void GNodeCommands::_show( const GCommand& )
{
    if( !_wizard ) return _warn( u"WARNING Trying to 'show' on non-wizard node '" );
    _wizard->show( );
}

void GNodeCommands::_hide( const GCommand& )
{
    if( !_wizard ) return _warn( u"WARNING Trying to 'hide' on non-wizard node '" );
    _wizard->hide( );
}

void GNodeCommands::_clear( const GCommand& command )
{
    // The edit that issued the command is emptied, whatever node the path names.
    if( !command.edit ) return _warn( u"WARNING Trying to 'clear' on non-edit node '" );
    command.edit->setText( GWString( ) );
}

// For a button beside a field: what the field's return key does, with the field as the source.
void GNodeCommands::_submit( const GCommand& )
{
    auto* edit = dynamic_cast<GEditNode*>( &_target );
    if( !edit ) return _warn( u"WARNING Trying to 'submit' non-edit node '" );
    edit->submit( );
}

void GNodeCommands::_fit( const GCommand& )
{
    if( !_window ) return _warn( u"WARNING Trying to 'fit' on a non-screen/window node '" );
    _window->fit( );
}
