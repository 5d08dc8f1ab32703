#include "client/skin/nodes/GForeachNode.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GCellNode.h"

#include <algorithm>

namespace
{
// The number of a clone, for a skin that sets its windows apart, begins again after so many.
constexpr int MOST_PLACES = 8;
constexpr GWStringView INDEX = u"index";

bool hasAttribute( const GTemplateNode& node, GWStringView name )
{
    const GAttributeList& attributes = node.getAttributes( );
    return std::ranges::any_of( attributes, [name]( const auto& pair ) { return GCaseEquals( pair.first, name ); } );
}
} // namespace

GAttributeTable GForeachNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"list", GAttributeKind::valueName, u"",
          u"The name of a blackboard list. Its first child is repeated for each entry." },
        { u"as", GAttributeKind::text, u"",
          u"The name of the attribute that gets the entry; the child's `id` is usually made of it. A child with an "
          u"attribute "
          u"`index` gets its number there, 0 to 7." },
        { u"most", GAttributeKind::number, u"0", u"Repeats at most so many; 0 for all." },
        { u"lazy", GAttributeKind::toggle, u"0",
          u"A child is made only when a command asks for its path, or when what `until` names comes. Needs "
          u"`as=\"id\"`." },
        { u"until", GAttributeKind::text, u"",
          u"With `lazy`: what follows the entry in the name of a value or queue; once that holds something the "
          u"child is made." },
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
    if( GNodeTools_readValue( _instance, _list, _text ) || resized ) _readEntries( );
    // Of this node alone: a list within what it repeats has its own ways.
    _lazy = stack.test( getAttribute( u"lazy" ) );
    if( _lazy ) _stale |= stack.read( getAttribute( u"until" ), _until );
    if( _as.empty( ) ) return true;
    _updating = true;
    if( _lazy )
        _addWanted( stack );
    else
        _addAll( stack );
    _updating = false;
    _removeMissing( _entries );
    return true;
}

bool GForeachNode::isPlain( GWStringView entry )
{
    return entry.find_first_of( u"${}()?&+=/\\" ) == GWStringView::npos;
}

void GForeachNode::_readEntries( )
{
    GStringList refused;
    _stale = true;
    _entries = GSplitList( _text );
    std::erase_if( _entries,
                   [&]( const GWString& entry )
                   {
                       if( isPlain( entry ) ) return false;
                       if( !GListContains( _refused, entry ) )
                           GLOG( u"WARNING Foreach '", getPath( ), u"' cannot repeat '", entry, u"', ignoring." );
                       refused.push_back( entry );
                       return true;
                   } );
    _refused.swap( refused );
    if( _most > 0 && _entries.size( ) > static_cast<size_t>( _most ) ) _entries.resize( static_cast<size_t>( _most ) );
}

// ---- Clones on demand.

void GForeachNode::_addWanted( GAttributeStack& stack )
{
    if( _stale ) _listSleepers( stack.getListener( ) );
    for( const Sleeper& sleeper : _sleepers )
    {
        if( !_instance->isSet( sleeper.name ) && _instance->length( sleeper.name ) == 0 ) continue;
        // What an earlier one did in its first pass may have asked for this one.
        if( !_findClone( sleeper.entry ) ) _addClone( stack, sleeper.entry );
    }
    if( _stale ) _listSleepers( stack.getListener( ) );
}

void GForeachNode::_listSleepers( GNotifyHandle listener )
{
    _stale = false;
    _sleepers.clear( );
    GStringList names;
    for( const GWString& entry : _entries )
        if( !_until.empty( ) && !_findClone( entry ) )
        {
            _sleepers.push_back( { entry, GConcat( entry, _until ) } );
            names.push_back( _sleepers.back( ).name );
        }
    _untilWatches.update( _instance, names, listener );
}

GTemplateNode* GForeachNode::_makeChild( GWStringView step )
{
    const GTemplateNode* pattern = _findClone( u"" );
    if( !_lazy || !pattern || !GCaseEquals( _as, u"id" ) ) return nullptr;
    // The list may have grown since the last pass.
    if( GNodeTools_readValue( _instance, _list, _text ) ) _readEntries( );
    for( const GWString& entry : _entries )
    {
        if( !GCaseEquals( step, GConcat( pattern->getName( ), u'_', entry ) ) ) continue;
        if( !_mayGrow( *pattern ) ) return nullptr;
        GTemplateNode* copy = _append( entry );
        _commandEngine->executeCommand( GConcat( u"(", copy->getPath( ), u"?refresh)" ), nullptr );
        return copy;
    }
    return nullptr;
}

// ---- Clones.

void GForeachNode::_addAll( GAttributeStack& stack )
{
    for( const GWString& entry : _entries )
    {
        if( !_findClone( entry ) ) _addClone( stack, entry );
    }
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
    const GTemplateNode* pattern = _findClone( u"" );
    if( !pattern )
    {
        if( !_warned )
            GLOG( u"WARNING Foreach '", getPath( ), u"' has no child to repeat for '", entry, u"', ignoring." );
        _warned = true;
        return;
    }
    if( !_mayGrow( *pattern ) ) return;
    GTemplateNode* copy = _append( entry );
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

GTemplateNode* GForeachNode::_append( const GWString& entry )
{
    GTemplateNode* copy = _findClone( u"" )->clone( this );
    copy->setAttribute( _as, entry );
    if( hasAttribute( *copy, INDEX ) ) copy->setAttribute( INDEX, GNumber( _made++ % MOST_PLACES ) );
    appendChild( copy );
    _stale = true;
    return copy;
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
