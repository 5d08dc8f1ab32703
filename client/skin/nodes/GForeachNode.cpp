#include "client/skin/nodes/GForeachNode.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GCellNode.h"

GAttributeTable GForeachNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"list", GAttributeKind::valueName, u"",
          u"The name of a blackboard list. Its first child is repeated for each entry." },
        { u"as", GAttributeKind::text, u"",
          u"The name of the attribute that gets the entry; the child's `id` is usually made of it." },
        { u"most", GAttributeKind::number, u"0", u"Repeats at most so many; 0 for all." },
    };
    return ROWS;
}

GForeachNode::~GForeachNode( )
{
    for( GTemplateNode* node : _retired ) delete node;
}

bool GForeachNode::_preChildUpdate( GAttributeStack& stack )
{
    // A command of a child may start another pass before this one is over: the list stays as it is until the next.
    if( _updating )
    {
        GNotify( stack.getListener( ), GWATCH_UPDATE );
        return true;
    }
    _deleteRetired( );
    _changed = false;
    // A former list stays watched: it costs a pass at most, and lists hardly ever change their names.
    if( stack.read( u"$list", _list ) ) _watches.add( _instance, _list, stack.getListener( ) );
    stack.read( u"$as", _as );
    const bool resized = stack.read( u"$most", _most );
    if( GNodeTools_readValue( _instance, _list, _text ) || resized )
    {
        _entries = GSplitList( _text );
        if( _most > 0 && _entries.size( ) > static_cast<size_t>( _most ) )
            _entries.resize( static_cast<size_t>( _most ) );
    }
    if( _as.empty( ) ) return true;
    for( const GWString& entry : _entries )
    {
        if( !_findClone( entry ) ) _addClone( stack, entry );
    }
    _removeMissing( _entries );
    return true;
}

GTemplateNode* GForeachNode::_findClone( GWStringView entry ) const
{
    for( GTemplateNode* child : _children )
    {
        if( child->getAttribute( _as ) == entry ) return child;
    }
    return nullptr;
}

void GForeachNode::_addClone( GAttributeStack& stack, const GWString& entry )
{
    GTemplateNode* pattern = _findClone( u"" );
    if( !pattern )
    {
        if( !_warned )
            GLOG( u"WARNING Foreach '", getPath( ), u"' has no child to repeat for '", entry, u"', ignoring." );
        _warned = true;
        return;
    }
    if( !_mayGrow( *pattern ) ) return;
    GTemplateNode* copy = pattern->clone( this );
    copy->setAttribute( _as, entry );
    appendChild( copy );
    _changed = true;
    if( !copy->update( stack ) ) return;
    // So that a new window shows without waiting; a cell is drawn where its row puts it.
    if( dynamic_cast<GCellNode*>( copy ) ) return;
    GImageStack images;
    copy->render( images );
}

// Asked for every entry in every pass, and warned of once.
bool GForeachNode::_mayGrow( const GTemplateNode& pattern )
{
    if( _full || mayGrow( pattern ) ) return !_full;
    _full = true;
    return false;
}

void GForeachNode::_removeMissing( const GStringList& entries )
{
    for( auto it = _children.begin( ); it != _children.end( ); )
    {
        GTemplateNode* child = *it;
        const GWString& entry = child->getAttribute( _as );
        if( entry.empty( ) || GListContains( entries, entry ) )
        {
            ++it;
            continue;
        }
        GNodeTools_retire( child );
        if( GNodeBusy::isBusy( ) )
            GLOG( u"WARNING Cannot delete '", child->getPath( ), u"' while it is in use, deleting it later." );
        it = _children.erase( it );
        _retired.push_back( child );
        _full = false;
        _changed = true;
    }
    _deleteRetired( );
}

void GForeachNode::_deleteRetired( )
{
    if( GNodeBusy::isBusy( ) ) return;
    for( GTemplateNode* node : _retired ) delete node;
    _retired.clear( );
}

bool GForeachNode::_updateChildren( GAttributeStack& stack )
{
    bool changed = false;
    const bool outer = _updating;
    _updating = true;
    for( GTemplateNode* child : _children )
    {
        if( isClone( *child ) ) changed |= child->update( stack );
    }
    _updating = outer;
    return changed;
}

bool GForeachNode::_postChildUpdate( GAttributeStack& )
{
    return _changed;
}

void GForeachNode::_renderChildren( GImageStack& images )
{
    for( GTemplateNode* child : _children )
    {
        if( isClone( *child ) ) child->render( images );
    }
}

GWString GForeachNode::findEntry( const GTemplateNode* node, GWStringView list )
{
    for( ; node && node->getParent( ); node = node->getParent( ) )
    {
        const auto* foreach = dynamic_cast<const GForeachNode*>( node->getParent( ) );
        if( foreach && GCaseEquals( foreach->_list, list ) ) return node->getAttribute( foreach->_as );
    }
    return { };
}
