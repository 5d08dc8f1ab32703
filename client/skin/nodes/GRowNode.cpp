#include "client/skin/nodes/GRowNode.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GCellNode.h"
#include "client/skin/nodes/GForeachNode.h"

#include <algorithm>

GNameTable GRowNode::getNameTable( )
{
    static constexpr GNameRow ROWS[] = {
        { u"extra", u"Cleared, so that cells do not take it from outside." },
        { u"align", u"Cleared." },
        { u"valign", u"Cleared." },
    };
    return ROWS;
}

bool GRowNode::_isColumn( ) const
{
    return isNamed( u"Col" );
}

template <typename Call>
void GRowNode::_forEachCell( Call call ) const
{
    for( GTemplateNode* child : _children )
    {
        if( auto* cell = dynamic_cast<GCellNode*>( child ) ) call( *cell );
        const auto* foreach = dynamic_cast<const GForeachNode*>( child );
        if( !foreach ) continue;
        for( GTemplateNode* clone : foreach->getChildren( ) )
        {
            auto* cell = dynamic_cast<GCellNode*>( clone );
            if( cell && foreach->isClone( *cell ) ) call( *cell );
        }
    }
}

bool GRowNode::_preChildUpdate( GAttributeStack& stack )
{
    stack.set( u"extra", u"" );
    stack.set( u"align", u"" );
    stack.set( u"valign", u"" );
    return true;
}

void GRowNode::calcMinSize( int& width, int& height )
{
    const bool column = _isColumn( );
    int along = 0;
    int across = 0;
    _forEachCell(
        [&]( GCellNode& cell )
        {
            int cellWidth = 0;
            int cellHeight = 0;
            cell.calcMinSize( cellWidth, cellHeight );
            along += column ? cellHeight : cellWidth;
            across = std::max( across, column ? cellWidth : cellHeight );
        } );
    width = std::max( width, column ? across : along );
    height = std::max( height, column ? along : across );
}

int GRowNode::_measure( bool column )
{
    _items.clear( );
    int sum = 0;
    _forEachCell(
        [&]( GCellNode& cell )
        {
            int width = 0;
            int height = 0;
            cell.calcMinSize( width, height );
            _items.push_back( { &cell, column ? height : width, cell.getExtra( ) } );
            sum += _items.back( ).size;
        } );
    return sum;
}

void GRowNode::_renderChildren( GImageStack& images )
{
    const bool column = _isColumn( );
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    const int across = column ? width : height;
    const int spare = ( column ? height : width ) - _measure( column );
    int totalExtra = 0;
    for( const Item& item : _items ) totalExtra += item.extra;

    int pos = 0;
    int left = spare;
    int extraLeft = totalExtra;
    size_t cellsLeft = _items.size( );
    for( const Item& item : _items )
    {
        int share = totalExtra ? static_cast<int>( static_cast<int64_t>( item.extra ) * spare / totalExtra ) : 0;
        extraLeft -= item.extra;
        --cellsLeft;
        const bool lastExtra = item.extra && !extraLeft;
        // What rounding left over goes to the last cell that takes extra space.
        if( !cellsLeft || lastExtra ) share = left;
        left -= share;
        const int size = item.size + share;
        const int end = std::max( pos, pos + size );
        images.pushTarget( column ? GRect{ 0, pos, std::max( 0, across ), end }
                                  : GRect{ pos, 0, end, std::max( 0, across ) } );
        item.cell->render( images );
        images.pop( );
        pos += size;
    }
}
