#include "client/skin/nodes/GListNode.h"

#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"

#include <algorithm>

namespace
{
constexpr int TEXT_MARGIN = 4;
} // namespace

GAttributeTable GListNode::getAttributeTable( )
{
    static constexpr GAttributeRow FIRST[] = {
        { u"list", GAttributeKind::listText, u"", u"The rows, with commas between." },
        { u"listname", GAttributeKind::valueName, u"", u"The name of a blackboard list; it comes before `list`." },
        { u"varname", GAttributeKind::valueName, u"",
          u"The blackboard value that gets what is chosen, and is followed." },
        { u"persist", GAttributeKind::toggle, u"off", u"Keeps that value in the settings." },
        { u"select", GAttributeKind::text, u"", u"The row chosen at the start." },
        { u"onselect", GAttributeKind::command, u"", u"Runs on a click on a row." },
        { u"font", GAttributeKind::font, u"", u"The rows' font." },
        { u"mouseoverfont", GAttributeKind::font, u"$font", u"The font of the row under the pointer." },
        { u"framecolor", GAttributeKind::colour, u"#000000FF", u"The frame around it." },
        { u"focusable", GAttributeKind::toggle, u"off",
          u"The tab key stops here, and arrow, page, home and end keys choose." },
    };
    static constexpr GAttributeRow MORE[] = {
        { u"labels", GAttributeKind::listText, u"", u"Texts to show for the rows, in their order." },
        { u"marksrc", GAttributeKind::image, u"",
          u"A picture before each row; the part to its right stands before the chosen one." },
        { u"iconsrc", GAttributeKind::image, u"",
          u"A picture for each row: the first one's part, with the others to its right, and below them the same for a "
          u"chosen row." },
    };
    static constexpr auto ROWS = GAttributeRowsJoin( FIRST, GROWVIEW_ATTRIBUTES, MORE );
    return ROWS;
}

// ---- Update.

bool GListNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = _font.read( stack, u"$font" );
    changed |= stack.readEach( u"$onselect", _onSelect, u"$persist", _persist );
    changed |= _readLooks( stack, _font, TEXT_MARGIN );
    changed |= _readPictures( stack );
    changed |= _readRows( stack );
    if( _readSelection( stack ) )
    {
        _view.show( _getSelectedRow( ) );
        changed = true;
    }
    return changed;
}

bool GListNode::_readPictures( GAttributeStack& stack )
{
    const bool changed = stack.readEach( u"$marksrc", _markSrc, u"$iconsrc", _iconSrc );
    if( !stack.read( u"$labels", _labelText ) ) return changed;
    const GStringList labels = GSplitList( _labelText );
    _labels.assign( labels.begin( ), labels.end( ) );
    return true;
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
    int width = 0;
    int height = 0;
    _begin( images, width, height );
    _setRows( );
    _view.layout( 0, width, height );
    images.pushTarget( { 0, 0, width, height } );
    for( int row = _view.getFirst( ); _view.isVisible( row ); ++row ) _drawRow( images, row, _view.getRect( row ) );
    _markFocus( images, _getSelectedRow( ) );
    images.pop( );
    _view.drawThumb( images );
    images.drawRect( { 0, 0, width, height }, _frameColour );
    return true;
}

void GListNode::_setRows( )
{
    _view.setRows( static_cast<int>( _rows.size( ) ), _view.getRowHeight( _font.getHeight( ) ) );
}

void GListNode::_drawRow( GImageStack& images, int row, const GRect& rect )
{
    const size_t index = static_cast<size_t>( row );
    const bool selected = _rows[index] == _selection;
    const bool grounded = _view.drawGround( images, rect, selected, row == _mouseoverRow );
    GRect rest = rect;
    rest.left += _drawPicture( images, _markSrc, selected ? 1 : 0, false, rest );
    rest.left += _drawPicture( images, _iconSrc, row, selected, rest );
    const GWString& text = index < _labels.size( ) ? _labels[index] : _rows[index];
    _view.drawText( images, text, row == _mouseoverRow ? _mouseoverFont : _font, rest );
    if( selected && !grounded ) images.invertRect( rect );
}

int GListNode::_drawPicture( GImageStack& images, const GWString& source, int column, bool selected, const GRect& rect )
{
    if( source.empty( ) ) return 0;
    GImageFormat format;
    GRect part;
    const char* pixels = GImageTools_instanceReadOpen( _instance, source, format, part, column, selected ? 1 : 0 );
    if( !pixels ) return 0;
    const int left = rect.left + _view.getPadding( );
    const int top = rect.top + ( rect.height( ) - part.height( ) ) / 2;
    // A sheet without that cell leaves its place empty.
    if( GRectHasVolume( part ) )
        images.drawBitmap( format, pixels, part, { left, top, left + part.width( ), top + part.height( ) }, 0 );
    GImageTools_instanceReadClose( _instance, source );
    return _view.getPadding( ) + part.width( );
}

// ---- Input.

int GListNode::_getRow( int y )
{
    _setRows( );
    return y < _originY ? -1 : _view.getRow( y - _originY );
}

int GListNode::_getSelectedRow( ) const
{
    const auto at = std::find( _rows.begin( ), _rows.end( ), _selection );
    return at == _rows.end( ) ? -1 : static_cast<int>( at - _rows.begin( ) );
}

int GListNode::_select( int row )
{
    if( row < 0 || row >= static_cast<int>( _rows.size( ) ) ) return GRESPONSE_NONE;
    _selection = _rows[static_cast<size_t>( row )];
    _view.show( row );
    if( !_varName.empty( ) ) _instance->set( _varName, _selection, _persist );
    GNodeTools_execute( this, _onSelect );
    return GRESPONSE_RENDER;
}

int GListNode::_clickAt( int y )
{
    return _select( _getRow( y ) );
}

bool GListNode::_pointAt( int y )
{
    const int row = _getRow( y );
    if( row == _mouseoverRow ) return false;
    _mouseoverRow = row;
    return true;
}

int GListNode::onKeyDown( GWin, int key )
{
    if( !_focusable ) return GRESPONSE_NONE;
    _setRows( );
    const int row = _getSelectedRow( );
    const int next = _view.follow( key, row );
    return next == row ? GRESPONSE_NONE : _select( next );
}
