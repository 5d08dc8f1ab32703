#include "client/skin/nodes/GCopyNode.h"

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
    if( source )
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
