#include "client/skin/nodes/GNodeTools.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/GTemplateNode.h"
#include "client/skin/nodes/GWindowNode.h"
#include "image/GImage.h"

#include <algorithm>

// ---- Watches.

bool GNodeWatch::update( GInstance* instance, GWStringView name, GNotifyHandle listener )
{
    if( name == _name ) return false;
    clear( );
    _instance = instance;
    _listener = listener;
    _name = name;
    if( !_name.empty( ) ) _instance->watch( _name, _listener, _kind );
    return true;
}

void GNodeWatch::clear( )
{
    if( !_name.empty( ) ) _instance->unwatch( _name, _listener, _kind );
    _name.clear( );
}

void GNodeWatchList::update( GInstance* instance, const GStringList& names, GNotifyHandle listener )
{
    for( auto it = _names.begin( ); it != _names.end( ); )
    {
        if( GListContains( names, *it ) )
        {
            ++it;
            continue;
        }
        _instance->unwatch( *it, _listener, _kind );
        it = _names.erase( it );
    }
    for( const GWString& name : names ) add( instance, name, listener );
}

void GNodeWatchList::add( GInstance* instance, const GWString& name, GNotifyHandle listener )
{
    if( name.empty( ) || GListContains( _names, name ) ) return;
    // One listener for all: a node keeps its window for life.
    if( _names.empty( ) ) _listener = listener;
    _instance = instance;
    _instance->watch( name, _listener, _kind );
    _names.push_back( name );
}

void GNodeWatchList::clear( )
{
    for( const GWString& name : _names ) _instance->unwatch( name, _listener, _kind );
    _names.clear( );
}

// ---- Fonts.

GNodeFont::~GNodeFont( )
{
    delete _font;
}

GFont& GNodeFont::get( )
{
    if( !_font ) _update( );
    return *_font;
}

bool GNodeFont::_update( )
{
    const bool first = !_font;
    if( first ) _font = GSAFENEW( GFont, ( ) );
    return _font->update( _text ) || first;
}

bool GNodeFont::read( GAttributeStack& stack, GWStringView expression )
{
    return stack.read( expression, _text ) && _update( );
}

bool GNodeFont::read( GAttributeStack& stack, GWStringView expression, const GNodeFont& fallback )
{
    return GNodeTools_readOr( stack, expression, fallback._text, _text ) && _update( );
}

// ---- Attributes.

bool GNodeTools_readOr( GAttributeStack& stack, GWStringView expression, GWStringView fallback, GWString& value )
{
    // The scratch keeps its capacity, so an unchanged pass allocates nothing. It is never held across another read.
    static GWString scratch;
    stack.read( expression, scratch );
    const GWStringView text = scratch.empty( ) ? fallback : GWStringView( scratch );
    if( value == text ) return false;
    value = text;
    return true;
}

bool GNodeTools_readValue( GInstance* instance, GWStringView name, GWString& value )
{
    static GWString scratch;
    scratch.clear( );
    if( !name.empty( ) ) instance->get( name, scratch );
    if( value == scratch ) return false;
    value = scratch;
    return true;
}

namespace
{
struct AlignFlag
{
    GWStringView text;
    int horizontal;
    int vertical;
};
// "fit" holds for both axes and stands in "$align" alone.
constexpr AlignFlag ALIGN_FLAGS[] = {
    { u"center", GIC_CENTER, GIC_MIDDLE },        { u"right", GIC_RIGHT, 0 },          { u"bottom", 0, GIC_BOTTOM },
    { u"stretch", GIC_STRETCH_X, GIC_STRETCH_Y }, { u"tile", GIC_TILE_X, GIC_TILE_Y }, { u"fit", GIC_ASPECT, 0 },
};
} // namespace

bool GNodeTools_readAlign( GAttributeStack& stack, int& flags )
{
    static GWString align;
    static GWString valign;
    stack.read( u"$align", align );
    stack.read( u"$valign", valign );
    int found = flags;
    for( const AlignFlag& flag : ALIGN_FLAGS )
    {
        if( GCaseEquals( align, flag.text ) ) found |= flag.horizontal;
        if( GCaseEquals( valign, flag.text ) ) found |= flag.vertical;
    }
    const bool changed = found != flags;
    flags = found;
    return changed;
}

int GNodeTools_offset( int room, int size, bool middle, bool end )
{
    if( size >= room ) return 0;
    if( middle ) return ( room - size ) / 2;
    return end ? room - size : 0;
}

GWStringView GNodeTools_imageName( GWStringView source )
{
    return source.substr( 0, source.find( u'(' ) );
}

void GNodeTools_drawSliced( GImageStack& images, const GImageFormat& format, const char* pixels, const GRect& source,
                            const GRect& target, int slice )
{
    if( GRectEmpty( source ) || GRectEmpty( target ) ) return;
    // What is stretched needs a middle to come from.
    int from = std::clamp( slice, 0, ( std::min( source.width( ), source.height( ) ) - 1 ) / 2 );
    int to = std::clamp( slice, 0, std::min( target.width( ), target.height( ) ) / 2 );
    if( !from || !to ) from = to = 0;
    const int fromX[4] = { source.left, source.left + from, source.right - from, source.right };
    const int fromY[4] = { source.top, source.top + from, source.bottom - from, source.bottom };
    const int toX[4] = { target.left, target.left + to, target.right - to, target.right };
    const int toY[4] = { target.top, target.top + to, target.bottom - to, target.bottom };
    for( int row = 0; row < 3; ++row )
        for( int column = 0; column < 3; ++column )
            images.drawBitmap( format, pixels, { fromX[column], fromY[row], fromX[column + 1], fromY[row + 1] },
                               { toX[column], toY[row], toX[column + 1], toY[row + 1] },
                               GIC_STRETCH_X | GIC_STRETCH_Y );
}

void GNodeTools_execute( GTemplateNode* node, const GWString& command )
{
    if( command.empty( ) ) return;
    const GNodeBusy busy;
    node->getCommandEngine( )->executeCommand( command, node );
}

// ---- Fields.

bool GNodeField::read( GAttributeStack& stack )
{
    bool changed = stack.read( u"$inner", inner );
    changed |= stack.read( u"$outer", outer );
    inner = std::clamp( inner, 0, 1000 );
    outer = std::clamp( outer, 0, 1000 );
    changed |= GNodeTools_readOr( stack, u"$framecolor", u"#000000FF", frameColour );
    changed |= GNodeTools_readOr( stack, u"$focuscolor", frameColour, focusColour );
    return changed;
}

GRect GNodeField::draw( GImageStack& images, bool focus, int lineHeight ) const
{
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    const GRect frame{ outer, outer, width - outer, height - outer };
    // A picture below shows the field when the frame is all transparent: it would cut a line into that.
    const uint32_t colour = GColorFromText( focus ? focusColour : frameColour );
    if( GRectHasVolume( frame ) && colour >> 24 ) images.drawRect( frame, colour );
    const int margin = getMargin( ) / 2;
    GRect box{ margin, margin, std::max( margin, width - margin ), std::max( margin, height - margin ) };
    if( !lineHeight ) return box;
    box.top = std::max( outer + 1, ( height - lineHeight ) / 2 );
    box.bottom = std::max( box.top, std::min( box.top + lineHeight, height - outer - 1 ) );
    return box;
}

// ---- Removal.

int GNodeBusy::_depth = 0;

void GNodeTools_retire( GTemplateNode* node )
{
    if( !node ) return;
    for( GTemplateNode* at = node; at; at = at->getNext( node ) )
    {
        if( auto* window = dynamic_cast<GWindowNode*>( at ) ) window->hide( );
    }
    for( GTemplateNode* at = node->getParent( ); at; at = at->getParent( ) )
    {
        if( auto* window = dynamic_cast<GWindowNode*>( at ) ) window->forget( node );
    }
}
