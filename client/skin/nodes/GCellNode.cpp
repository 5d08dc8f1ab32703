#include "client/skin/nodes/GCellNode.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GNodeTools.h"

#include <algorithm>

namespace
{
struct Span
{
    int offset;
    int size;
};

Span place( int frame, int min, bool fill, bool stretch, bool middle, bool end )
{
    if( fill || frame <= min || stretch ) return { 0, frame };
    return { GNodeTools_offset( frame, min, middle, end ), min };
}
} // namespace

GAttributeTable GCellNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"fixedwidth", GAttributeKind::number, u"0", u"The cell's width; 0 for what its content needs." },
        { u"fixedheight", GAttributeKind::number, u"0", u"The cell's height; 0 for what its content needs." },
        { u"extra", GAttributeKind::number, u"0",
          u"Its share, 0 to 100, of the room that is left along the row or column." },
        { u"x", GAttributeKind::number, u"0", u"Moves the content to the right." },
        { u"y", GAttributeKind::number, u"0", u"Moves the content down." },
        { u"align", GAttributeKind::choice, u"left",
          u"Where the content stands when it is narrower than the cell: `left`, `center`, `right`, `stretch`. With an "
          u"`extra` it fills the cell." },
        { u"valign", GAttributeKind::choice, u"top",
          u"The same for the height: `top`, `center`, `bottom`, `stretch`." },
    };
    return ROWS;
}

GNameTable GCellNode::getNameTable( )
{
    static constexpr GNameRow ROWS[] = {
        { u"x", u"0, so that the content does not move again." },
        { u"y", u"0." },
    };
    return ROWS;
}

int GCellNode::getExtra( ) const
{
    return std::clamp( _extra, 0, 100 );
}

bool GCellNode::_preChildUpdate( GAttributeStack& stack )
{
    stack.push( );
    stack.set( u"x", 0 );
    stack.set( u"y", 0 );
    return true;
}

bool GCellNode::_postChildUpdate( GAttributeStack& stack )
{
    stack.pop( );
    bool changed = stack.readEach( u"$fixedwidth", _fixedWidth, u"$fixedheight", _fixedHeight, u"$extra", _extra );
    changed |= stack.readEach( u"$x", _x, u"$y", _y );
    changed |= GNodeTools_readAlign( stack, _flags );
    return changed;
}

void GCellNode::calcMinSize( int& width, int& height )
{
    int childWidth = 0;
    int childHeight = 0;
    GTemplateNode::calcMinSize( childWidth, childHeight );
    width = std::max( width, _fixedWidth ? _fixedWidth : childWidth );
    height = std::max( height, _fixedHeight ? _fixedHeight : childHeight );
}

bool GCellNode::_preChildRender( GImageStack& images )
{
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    if( _fixedWidth ) width = _fixedWidth;
    if( _fixedHeight ) height = _fixedHeight;
    int minWidth = 0;
    int minHeight = 0;
    calcMinSize( minWidth, minHeight );

    const bool fill = _extra != 0;
    const Span x = place( width, minWidth, fill, _flags & GIC_STRETCH_X, _flags & GIC_CENTER, _flags & GIC_RIGHT );
    const Span y = place( height, minHeight, fill, _flags & GIC_STRETCH_Y, _flags & GIC_MIDDLE, _flags & GIC_BOTTOM );
    const int left = x.offset + _x;
    const int top = y.offset + _y;
    images.pushTarget( { left, top, left + std::max( 0, x.size ), top + std::max( 0, y.size ) } );
    return true;
}

void GCellNode::_postChildRender( GImageStack& images )
{
    images.pop( );
}
