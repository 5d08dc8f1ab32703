#include "client/skin/nodes/GCopyNode.h"

GAttributeTable GCopyNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"src", GAttributeKind::path, u"",
          u"The path of the node to copy; this node's own children stand at the copy's end." },
        { u"done", GAttributeKind::toggle, u"off",
          u"Set by the engine once it is done; set from the start it keeps the node from copying." },
    };
    return ROWS;
}

bool GCopyNode::_isAncestor( const GTemplateNode* node ) const
{
    const GTemplateNode* at = this;
    while( at && at != node ) at = at->getParent( );
    return at;
}

bool GCopyNode::_preChildUpdate( GAttributeStack& stack )
{
    stack.read( u"$src", _src );
    // The node's own mark: a copy below a finished copy is still to do.
    if( _src.empty( ) || GTest( getAttribute( u"done" ) ) ) return true;
    GTemplateNode* source = _commandEngine->getNode( _src, this );
    if( source && _isAncestor( source ) )
    {
        GLOG( u"WARNING '", getPath( ), u"' would copy itself from '", _src, u"', ignoring." );
        source = nullptr;
    }
    if( source && mayGrow( *source ) )
    {
        GTemplateNode* copy = source->clone( this );
        copy->adoptChildren( *this );
        appendChild( copy );
        GAttributeStack fresh( _instance, _commandEngine->getNotifyListener( ) );
        fresh.push( stack.getListener( ) );
        copy->update( fresh );
        fresh.pop( );
    }
    setAttribute( u"done", u"true" );
    return true;
}
