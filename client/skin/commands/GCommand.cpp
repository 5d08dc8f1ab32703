#include "client/skin/commands/GCommand.h"

#include "client/skin/nodes/GEditNode.h"
#include "client/skin/nodes/GListNode.h"
#include "client/skin/nodes/GTableNode.h"

GWString GCommandTakeStep( GWString& path )
{
    constexpr GWStringView DELIMITERS = u"/?";
    const size_t first = path.find_first_not_of( DELIMITERS );
    if( first == GWString::npos )
    {
        path.clear( );
        return { };
    }
    const size_t last = path.find_first_of( DELIMITERS, first );
    GWString step = path.substr( first, last == GWString::npos ? last : last - first );
    path = last == GWString::npos ? GWString( ) : path.substr( last + 1 );
    return step;
}

GCommand GCommandMake( GWStringView text, GTemplateNode* source )
{
    GCommandText parsed = GParseTools_parseCommand( text );
    GCommand command;
    command.path = std::move( parsed.path );
    command.subpath = command.path;
    GCommandTakeStep( command.subpath );
    command.args = std::move( parsed.args );
    command.action = command.get( u"" );
    command.source = source;
    command.edit = dynamic_cast<GEditNode*>( source );
    command.list = dynamic_cast<GListNode*>( source );
    command.table = dynamic_cast<GTableNode*>( source );
    if( command.table ) command.selection = command.table->getSelection( );
    return command;
}
