#include "client/skin/nodes/GListNode.h"

#include "client/drawing/GImageStack.h"

#include <algorithm>

namespace
{
constexpr int TEXT_MARGIN = 4;
constexpr int KEY_UP = 38;
constexpr int KEY_DOWN = 40;
} // namespace

// ---- Update.

bool GListNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = _font.read( stack, u"$font" );
    changed |= _mouseoverFont.read( stack, u"$mouseoverfont", _font );
    changed |= stack.read( u"$onselect", _onSelect );
    changed |= stack.read( u"$persist", _persist );
    changed |= stack.read( u"$focusable", _focusable );
    changed |= GNodeTools_readOr( stack, u"$framecolor", u"#000000FF", _frameColour );
    changed |= _readRows( stack );
    changed |= _readSelection( stack );
    return changed;
}

bool GListNode::_readRows( GAttributeStack& stack )
{
    bool changed = stack.read( u"$listname", _listName );
    _listWatch.update( _instance, _listName, stack.getListener( ) );
    changed |= stack.read( u"$list", _list );
    if( _listName.empty( ) )
    {
        if( _listText == _list ) return changed;
        _listText = _list;
    }
    else if( !GNodeTools_readValue( _instance, _listName, _listText ) )
        return changed;
    const GStringList items = GSplitList( _listText );
    _rows.assign( items.begin( ), items.end( ) );
    _mouseoverRow = -1;
    return true;
}

bool GListNode::_readSelection( GAttributeStack& stack )
{
    bool changed = stack.read( u"$varname", _varName );
    _varWatch.update( _instance, _varName, stack.getListener( ) );
    const bool renewed = stack.read( u"$select", _selectAttribute );
    GNodeTools_readValue( _instance, _varName, _varText );
    const GWString* selection = &_selection;
    if( renewed && !_selectAttribute.empty( ) ) selection = &_selectAttribute;
    if( !_varText.empty( ) ) selection = &_varText;
    if( *selection == _selection ) return changed;
    _selection = *selection;
    return true;
}

void GListNode::calcMinSize( int& width, int& height )
{
    GTemplateNode::calcMinSize( width, height );
    height = std::max( height, _font.getHeight( ) );
}

// ---- Drawing.

bool GListNode::_preChildRender( GImageStack& images )
{
    images.setInputHandler( this );
    images.getPosition( _originX, _originY );
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    const int rowHeight = _font.getHeight( );
    int top = 0;
    for( size_t i = 0; i < _rows.size( ) && top < height; ++i, top += rowHeight )
    {
        const GRect row{ 0, top, std::max( 0, width ), top + rowHeight };
        GNodeFont& font = static_cast<int>( i ) == _mouseoverRow ? _mouseoverFont : _font;
        images.drawText( _rows[i], font, { TEXT_MARGIN, top, std::max( TEXT_MARGIN, row.right ), row.bottom } );
        if( _rows[i] == _selection ) images.invertRect( row );
    }
    images.drawRect( { 0, 0, std::max( 0, width ), std::max( 0, height ) }, _frameColour );
    return true;
}

// ---- Input.

int GListNode::_getRow( int y )
{
    const int height = _font.getHeight( );
    if( height < 1 || y < _originY ) return -1;
    const int row = ( y - _originY ) / height;
    return row < static_cast<int>( _rows.size( ) ) ? row : -1;
}

int GListNode::_select( int row )
{
    if( row < 0 || row >= static_cast<int>( _rows.size( ) ) ) return GRESPONSE_NONE;
    _selection = _rows[static_cast<size_t>( row )];
    if( !_varName.empty( ) ) _instance->set( _varName, _selection, _persist );
    GNodeTools_execute( this, _onSelect );
    return GRESPONSE_RENDER;
}

int GListNode::onLButtonDown( GWin, int, int y )
{
    return _select( _getRow( y ) );
}

int GListNode::onMouseMove( GWin, int, int y )
{
    const int row = _getRow( y );
    if( row == _mouseoverRow ) return GRESPONSE_NONE;
    _mouseoverRow = row;
    return GRESPONSE_RENDER;
}

int GListNode::onMouseoverChanged( bool mouseover )
{
    if( mouseover || _mouseoverRow < 0 ) return GRESPONSE_NONE;
    _mouseoverRow = -1;
    return GRESPONSE_RENDER;
}

int GListNode::onKeyboardFocusChanged( bool )
{
    return _focusable ? GRESPONSE_RENDER : GRESPONSE_NONE;
}

int GListNode::onKeyDown( GWin, int key )
{
    if( !_focusable || ( key != KEY_UP && key != KEY_DOWN ) ) return GRESPONSE_NONE;
    const auto at = std::find( _rows.begin( ), _rows.end( ), _selection );
    const int row = at == _rows.end( ) ? -1 : static_cast<int>( at - _rows.begin( ) );
    if( row < 0 ) return _select( 0 );
    return _select( key == KEY_UP ? row - 1 : row + 1 );
}
