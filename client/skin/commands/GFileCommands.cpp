#include "client/skin/commands/GFileCommands.h"

#include "client/skin/GTemplate.h"

namespace
{
// A button has no selection of its own: it names the transfer.
GWString getFile( const GCommand& command )
{
    return command.selection.empty( ) ? command.get( u"id" ) : command.selection;
}
} // namespace

GFileCommands::GFileCommands( GTemplate& engine ) : _instance( *engine.getInstance( ) ) {}

const GCommandRow<GFileCommands> GFileCommands::ROWS[] = {
    { { u"open", u"id", u"Opens the transfer that is chosen in the table, or the one with the key `id`." },
      true,
      &GFileCommands::_open },
    { { u"cancel", u"id", u"Ends it." }, true, &GFileCommands::_cancel },
};

std::vector<GActionRow> GFileCommands::getActions( )
{
    return GCommandGetActions( ROWS );
}

void GFileCommands::execute( const GCommand& command )
{
    if( !GCommandRun( *this, ROWS, command, getFile( command ) ) )
        GLOG( u"WARNING Unrecognized fileservice action '", command.action, u"', ignoring." );
}

void GFileCommands::_open( const GCommand& command )
{
    _send( u"OPEN", command );
}

void GFileCommands::_cancel( const GCommand& command )
{
    _send( u"CANCEL", command );
}

void GFileCommands::_send( GWStringView method, const GCommand& command )
{
    const GWString file = getFile( command );
    if( file.empty( ) )
    {
        GLOG( u"WARNING Unable to 'OPEN' because nothing selected, ignoring." );
        return;
    }
    GHTTPHeaders message( method );
    message.set( u"File-ID", file );
    _instance.enqueue( u"GFileService_commandQueue", message );
}
