#include "client/skin/GTemplateNode.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/GTemplateFactory.h"

#include <algorithm>

namespace
{
const GWString empty_;
// Rises whenever a path may have changed anywhere in the tree, so that kept paths are built again.
uint64_t pathGeneration_ = 1;
// Nodes that live, of all trees.
size_t nodeCount_ = 0;
// That nothing more may grow was said since a node went.
bool isFullTold_ = false;

constexpr GWStringView ID = u"id";

const GWString* findAttribute( const GAttributeList& attributes, GWStringView name )
{
    for( const auto& [key, value] : attributes )
        if( GCaseEquals( key, name ) ) return &value;
    return nullptr;
}

// Whether `step` is "name_id", or the name alone without an id.
bool matchesID( const GTemplateNode& node, GWStringView step )
{
    const GWString& name = node.getName( );
    const GWString& id = node.getAttribute( ID );
    if( id.empty( ) ) return GCaseEquals( name, step );
    return step.size( ) == name.size( ) + 1 + id.size( ) && step[name.size( )] == u'_' &&
           GCaseEquals( name, step.substr( 0, name.size( ) ) ) && GCaseEquals( id, step.substr( name.size( ) + 1 ) );
}
} // namespace

GTemplateNode::GTemplateNode( GInstance* instance, IGCommandEngine* commandEngine, GTemplateNode* parent )
    : _instance( instance ), _commandEngine( commandEngine ), _parent( parent )
{
    GPRECONDITION( instance && commandEngine );
    ++nodeCount_;
}

void GTemplateNode::invariantTest( ) const
{
    GASSERT( _instance );
    GASSERT( _commandEngine );
    GHeapObject::invariantTest( );
}

GTemplateNode::~GTemplateNode( )
{
    for( GTemplateNode* child : _children ) delete child;
    --nodeCount_;
    isFullTold_ = false;
}

void GTemplateNode::calcMinSize( int& width, int& height )
{
    for( GTemplateNode* child : _children ) child->calcMinSize( width, height );
}

bool GTemplateNode::update( GAttributeStack& stack )
{
    invariantTest( );
    stack.push( getPath( ), _attributes );
    bool changed = false;
    if( _preChildUpdate( stack ) ) changed = _updateChildren( stack );
    changed |= _postChildUpdate( stack );
    stack.pop( );
    return changed;
}

void GTemplateNode::render( GImageStack& images )
{
    invariantTest( );
    if( !images.isWanted( ) ) return;
    _drawn = images.getFrame( );
    if( !_preChildRender( images ) ) return;
    _renderChildren( images );
    _postChildRender( images );
}

void GTemplateNode::collectDamage( GSkinDamage& damage ) const
{
    for( const GTemplateNode* child : _children ) child->collectDamage( damage );
}

bool GTemplateNode::_preChildUpdate( GAttributeStack& )
{
    return true;
}

bool GTemplateNode::_updateChildren( GAttributeStack& stack )
{
    bool changed = false;
    for( GTemplateNode* child : _children ) changed |= child->update( stack );
    return changed;
}

bool GTemplateNode::_postChildUpdate( GAttributeStack& )
{
    return false;
}

bool GTemplateNode::_preChildRender( GImageStack& )
{
    return true;
}

void GTemplateNode::_renderChildren( GImageStack& images )
{
    for( GTemplateNode* child : _children ) child->render( images );
}

void GTemplateNode::_postChildRender( GImageStack& ) {}

GTemplateNode* GTemplateNode::_makeChild( GWStringView )
{
    return nullptr;
}

bool GTemplateNode::isNamed( GWStringView name ) const
{
    return GCaseEquals( _name, name );
}

GWString GTemplateNode::getID( ) const
{
    const GWString& id = getAttribute( ID );
    return id.empty( ) ? _name : GConcat( _name, u'_', id );
}

GWString GTemplateNode::getParentPath( ) const
{
    return _parent ? _parent->getPath( ) : GWString( );
}

const GWString& GTemplateNode::getPath( ) const
{
    if( _cachedPathGeneration != pathGeneration_ )
    {
        _cachedPath = GConcat( getParentPath( ), u'/', getID( ) );
        _cachedPathGeneration = pathGeneration_;
    }
    return _cachedPath;
}

GTemplateNode* GTemplateNode::getChild( GWStringView path )
{
    GPRECONDITION( !path.empty( ) );
    const size_t slash = path.find( u'/' );
    const GWStringView step = path.substr( 0, slash );
    GASSERT( step.size( ) );
    const auto found =
        std::ranges::find_if( _children, [step]( const GTemplateNode* child ) { return matchesID( *child, step ); } );
    GTemplateNode* child = found == _children.end( ) ? _makeChild( step ) : *found;
    const GWStringView rest = slash == GWStringView::npos ? GWStringView( ) : path.substr( slash + 1 );
    return !child || rest.empty( ) ? child : child->getChild( rest );
}

GTemplateNode* GTemplateNode::getNext( GTemplateNode* stop )
{
    if( !_children.empty( ) ) return _children.front( );
    for( GTemplateNode* node = this; node != stop && node->_parent; node = node->_parent )
    {
        const ChildList& siblings = node->_parent->_children;
        auto place = std::ranges::find( siblings, node );
        if( place != siblings.end( ) && ++place != siblings.end( ) ) return *place;
    }
    return nullptr;
}

const GWString& GTemplateNode::getAttribute( GWStringView name ) const
{
    const GWString* value = findAttribute( _attributes, name );
    return value ? *value : empty_;
}

void GTemplateNode::setAttribute( GWStringView name, GWStringView value )
{
    if( GCaseEquals( name, ID ) ) ++pathGeneration_;
    _obtainAttribute( name ).assign( value );
}

GWString& GTemplateNode::_obtainAttribute( GWStringView name )
{
    const auto found =
        std::ranges::find_if( _attributes, [name]( const auto& pair ) { return GCaseEquals( pair.first, name ); } );
    return found != _attributes.end( ) ? found->second : _attributes.emplace_back( name, GWString( ) ).second;
}

void GTemplateNode::_measure( size_t& count, int& depth ) const
{
    int deepest = 0;
    for( const GTemplateNode* child : _children )
    {
        int below = 0;
        child->_measure( count, below );
        deepest = std::max( deepest, below );
    }
    ++count;
    depth = deepest + 1;
}

bool GTemplateNode::mayGrow( const GTemplateNode& source ) const
{
    size_t count = 0;
    int depth = 0;
    source._measure( count, depth );
    for( const GTemplateNode* node = this; node; node = node->_parent ) ++depth;
    if( nodeCount_ + count <= MAX_NODES && depth <= MAX_DEPTH ) return true;
    if( !isFullTold_ )
        GLOG( u"WARNING A copy of '", source.getPath( ), u"' would make the skin too large or too deep at '",
              getPath( ), u"', ignoring." );
    isFullTold_ = true;
    return false;
}

GTemplateNode* GTemplateNode::clone( GTemplateNode* parent ) const
{
    GTemplateNode* copy = GTemplateFactory::create( _instance, _commandEngine, parent, _name, _attributes );
    for( const GTemplateNode* child : _children ) copy->appendChild( child->clone( copy ) );
    return copy;
}

void GTemplateNode::appendChild( GTemplateNode* child )
{
    if( child->_parent != this ) ++pathGeneration_;
    child->_parent = this;
    _children.push_back( child );
}

bool GTemplateNode::removeChild( GTemplateNode* child )
{
    return _children.remove( child ) > 0;
}

void GTemplateNode::adoptChildren( GTemplateNode& other )
{
    ++pathGeneration_;
    for( GTemplateNode* child : other._children ) child->_parent = this;
    _children.splice( _children.end( ), other._children );
}
