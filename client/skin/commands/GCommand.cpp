#include "client/skin/commands/GCommand.h"

#include "client/skin/nodes/GEditNode.h"
#include "client/skin/nodes/GListNode.h"
#include "client/skin/nodes/GTableNode.h"

GCommand::GCommand( const GCommandText& text, GTemplateNode* source_ )
    : path( text.path ), subpath( text.subpath ), action( text.action ), source( source_ ),
      edit( dynamic_cast<GEditNode*>( source_ ) ), list( dynamic_cast<GListNode*>( source_ ) ),
      table( dynamic_cast<GTableNode*>( source_ ) ), _text( text )
{
    if( table ) selection = table->getSelection( );
}

const GWString& GCommand::get( GWStringView name ) const
{
    static const GWString empty;
    const auto found = _text.args.find( name );
    return found == _text.args.end( ) ? empty : found->second;
}
