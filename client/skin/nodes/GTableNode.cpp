#include "client/skin/nodes/GTableNode.h"

#include "client/drawing/GImageStack.h"

#include <algorithm>

namespace
{
// Between the rows, half of it above and half below the text.
constexpr int ROW_GAP = 4;
constexpr int CELL_MARGIN = 4;
constexpr int BAR_HEIGHT = 4;
constexpr int LARGEST = 1000;
constexpr int FULL = 100;

void split( const GWString& text, GStringVector& out )
{
    const GStringList items = GSplitList( text, u"," );
    out.assign( items.begin( ), items.end( ) );
}
} // namespace

GAttributeTable GTableNode::getAttributeTable( )
{
    static constexpr GAttributeRow FIRST[] = {
        { u"prefixlistsrc", GAttributeKind::valueName, u"",
          u"The name of the blackboard list that holds a key for each row; or several names." },
        { u"suffixlist", GAttributeKind::listText, u"",
          u"A suffix for each column: a cell shows the blackboard value named key and suffix." },
        { u"title", GAttributeKind::listText, u"", u"The columns' titles." },
        { u"ondblclk", GAttributeKind::command, u"", u"Runs on a double click on a row." },
        { u"onrightclick", GAttributeKind::command, u"", u"Runs on a right click on a row." },
        { u"cellfont", GAttributeKind::font, u"", u"The cells' font." },
        { u"headerfont", GAttributeKind::font, u"$cellfont", u"The titles' font." },
        { u"mouseoverfont", GAttributeKind::font, u"$cellfont", u"The font of the row under the pointer." },
        { u"framecolor", GAttributeKind::colour, u"#000000FF", u"The frames of the cells." },
    };
    static constexpr GAttributeRow MORE[] = {
        { u"columns", GAttributeKind::listText, u"",
          u"Shares of the width; with them no line is kept for titles that are not there." },
        { u"groups", GAttributeKind::listText, u"", u"Headings for the lists, when `prefixlistsrc` names several." },
        { u"keysuffix", GAttributeKind::text, u"", u"The column that shows the key where there is no value." },
        { u"barsuffix", GAttributeKind::text, u"",
          u"The column that draws the percentage with which its text begins." },
        { u"barcolor", GAttributeKind::colour, u"#000000FF", u"That bar." },
        { u"barbgcolor", GAttributeKind::colour, u"", u"The ground of that bar." },
        { u"barheight", GAttributeKind::number, u"", u"The height of that bar." },
        { u"emptytext", GAttributeKind::text, u"(empty)", u"Shown while there are no rows." },
        { u"emptyfont", GAttributeKind::font, u"$cellfont", u"The font of that." },
        { u"varname", GAttributeKind::valueName, u"", u"The blackboard value bound to the selected key." },
        { u"focusable", GAttributeKind::toggle, u"off",
          u"The tab key stops here; keys choose as in a list, and return is a double click." },
    };
    static constexpr auto ROWS = GAttributeRowsJoin( FIRST, GROWVIEW_ATTRIBUTES, MORE );
    return ROWS;
}

// ---- Update.

bool GTableNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = stack.readEach( u"$onrightclick", _onRightClick, u"$ondblclk", _onDblClk );
    changed |= _readTexts( stack );
    changed |= _readBar( stack );
    if( stack.read( u"$title", _titleText ) )
    {
        split( _titleText, _titles );
        changed = true;
    }
    if( _readKeys( stack ) )
    {
        _watchCells( stack.getListener( ) );
        changed = true;
    }
    changed |= _readSelection( stack );
    return changed;
}

bool GTableNode::_readSelection( GAttributeStack& stack )
{
    stack.read( u"$varname", _varName );
    _varWatch.update( _instance, _varName, stack.getListener( ) );
    bool changed = GNodeTools_readValue( _instance, _varName, _varText ) && _varText != _selection;
    if( changed ) _selection = _varText;
    if( !_selection.empty( ) && _findLine( _selection ) < 0 )
    {
        _select( GWString( ) );
        changed = true;
    }
    return changed;
}

bool GTableNode::_readTexts( GAttributeStack& stack )
{
    bool changed = _cellFont.read( stack, u"$cellfont" );
    changed |= _headerFont.read( stack, u"$headerfont" );
    changed |= _emptyFont.read( stack, u"$emptyfont", _cellFont );
    changed |= GNodeTools_readOr( stack, u"$emptytext", u"(empty)", _emptyText );
    changed |= _readLooks( stack, _cellFont, CELL_MARGIN );
    if( !stack.read( u"$columns", _columnText ) ) return changed;
    _columns.clear( );
    for( const GWString& share : GSplitList( _columnText ) )
        _columns.push_back( static_cast<int>( std::clamp<int64_t>( GCalc( share ), 0, LARGEST ) ) );
    return true;
}

bool GTableNode::_readBar( GAttributeStack& stack )
{
    bool changed = stack.read( u"$barsuffix", _bar.suffix );
    changed |= GNodeTools_readOr( stack, u"$barcolor", u"#000000FF", _bar.colour );
    changed |= stack.read( u"$barbgcolor", _bar.ground );
    changed |= stack.read( u"$barheight", _bar.height );
    _bar.height = std::clamp( _bar.height, 0, LARGEST );
    return changed;
}

bool GTableNode::_readKeys( GAttributeStack& stack )
{
    bool changed = false;
    if( stack.read( u"$prefixlistsrc", _prefixListSrc ) )
    {
        split( _prefixListSrc, _listNames );
        _keyWatches.update( _instance, { _listNames.begin( ), _listNames.end( ) }, stack.getListener( ) );
        _keyTexts.assign( _listNames.size( ), GWString( ) );
        _lines.clear( );
        changed = true;
    }
    if( stack.read( u"$suffixlist", _suffixText ) )
    {
        split( _suffixText, _suffixes );
        changed = true;
    }
    changed |= stack.read( u"$keysuffix", _keySuffix );
    if( stack.read( u"$groups", _groupText ) )
    {
        split( _groupText, _groups );
        changed = true;
    }
    return _readLists( ) || changed;
}

bool GTableNode::_readLists( )
{
    bool changed = false;
    auto text = _keyTexts.begin( );
    for( const GWString& name : _listNames ) changed |= GNodeTools_readValue( _instance, name, *text++ );
    if( !changed ) return false;
    _lines.clear( );
    size_t group = 0;
    for( const GWString& list : _keyTexts )
    {
        _addLines( GSplitList( list ), group < _groups.size( ) ? _groups[group] : GWString( ) );
        ++group;
    }
    return true;
}

void GTableNode::_addLines( const GStringList& keys, const GWString& heading )
{
    if( !keys.empty( ) && !heading.empty( ) ) _lines.push_back( { heading, true } );
    for( const GWString& key : keys ) _lines.push_back( { key, false } );
}

void GTableNode::_watchCells( GNotifyHandle listener )
{
    GStringList names;
    for( const Line& line : _lines )
    {
        if( line.heading ) continue;
        for( const GWString& suffix : _suffixes ) names.push_back( line.text + suffix );
    }
    _cellWatches.update( _instance, names, listener );
}

void GTableNode::calcMinSize( int& width, int& height )
{
    GTemplateNode::calcMinSize( width, height );
    height = std::max( height, _cellFont.getHeight( ) );
}

// ---- Drawing.

int GTableNode::_getRowHeight( )
{
    return _view.getRowHeight( _cellFont.getHeight( ) + ROW_GAP );
}

GRect GTableNode::_getCell( int column, int columns, const GRect& row ) const
{
    const auto edge = [&]( int index )
    {
        int64_t before = index;
        int64_t all = columns;
        if( _columns.size( ) == static_cast<size_t>( columns ) )
        {
            before = all = 0;
            for( int i = 0; i < columns; ++i ) ( i < index ? before : all ) += _columns[static_cast<size_t>( i )];
            all += before;
        }
        return row.left + static_cast<int>( all > 0 ? row.width( ) * before / all : 0 );
    };
    return { edge( column ), row.top, edge( column + 1 ), row.bottom };
}

bool GTableNode::_preChildRender( GImageStack& images )
{
    int width = 0;
    int height = 0;
    _begin( images, width, height );
    const int top = _setRows( );
    const int room = std::max( 0, height - top );
    _view.layout( top, width, room );
    _drawTitles( images, _view.getRect( 0 ).width( ) );
    images.pushTarget( { 0, top, width, top + room } );
    if( _lines.empty( ) ) _drawEmpty( images, width, room );
    for( int i = _view.getFirst( ); _view.isVisible( i ); ++i )
        _drawLine( images, _lines[static_cast<size_t>( i )], _view.getRect( i ) );
    _markFocus( images, _findLine( _selection ) );
    images.pop( );
    _view.drawThumb( images );
    return true;
}

int GTableNode::_setRows( )
{
    const int rowHeight = _getRowHeight( );
    _view.setRows( static_cast<int>( _lines.size( ) ), rowHeight );
    return _titles.empty( ) && !_columns.empty( ) ? 0 : rowHeight;
}

void GTableNode::_drawTitles( GImageStack& images, int width )
{
    const int columns = static_cast<int>( _titles.size( ) );
    for( int i = 0; i < columns; ++i )
    {
        const GRect cell = _getCell( i, columns, { 0, 0, width, _getRowHeight( ) } );
        images.drawRect( cell, _frameColour );
        _view.drawText( images, _titles[static_cast<size_t>( i )], _headerFont, cell );
    }
}

void GTableNode::_drawEmpty( GImageStack& images, int width, int height )
{
    const int margin = _view.getPadding( );
    const GRect box{ margin, ROW_GAP / 2, std::max( margin, width - margin ), std::max( ROW_GAP / 2, height ) };
    images.drawText( _emptyText, _emptyFont, box );
}

void GTableNode::_drawLine( GImageStack& images, const Line& line, const GRect& rect )
{
    if( line.heading ) return _view.drawText( images, line.text, _headerFont, rect );
    const bool selected = line.text == _selection;
    const bool mouseover = line.text == _mouseoverKey;
    const bool grounded = _view.drawGround( images, rect, selected, mouseover );
    _drawCells( images, line.text, mouseover ? _mouseoverFont : _cellFont, rect );
    if( selected && !grounded ) images.invertRect( rect );
}

void GTableNode::_drawCells( GImageStack& images, const GWString& key, GNodeFont& font, const GRect& rect )
{
    const int columns = static_cast<int>( _suffixes.size( ) );
    for( int i = 0; i < columns; ++i )
    {
        const GWString& suffix = _suffixes[static_cast<size_t>( i )];
        _cellName = key;
        _cellName += suffix;
        _instance->get( _cellName, _cellText );
        if( _cellText.empty( ) && suffix == _keySuffix ) _cellText = key;
        GRect cell = _getCell( i, columns, rect );
        if( suffix == _bar.suffix && !_cellText.empty( ) )
        {
            _drawBar( images, cell );
            cell.bottom -= ( _bar.height ? _bar.height : BAR_HEIGHT ) * 2;
        }
        _view.drawText( images, _cellText, font, cell );
    }
}

// Below the text, as long as the number that the text begins with.
void GTableNode::_drawBar( GImageStack& images, const GRect& cell )
{
    const int height = _bar.height ? _bar.height : BAR_HEIGHT;
    const int bottom = cell.bottom - height;
    GRect track{ cell.left + _view.getPadding( ), bottom - height, cell.right - _view.getPadding( ), bottom };
    if( !GRectHasVolume( track ) ) return;
    if( !_bar.ground.empty( ) ) images.fillRoundRect( track, height / 2, GColorFromText( _bar.ground ) );
    const int64_t done = std::clamp<int64_t>( GCalc( _cellText ), 0, FULL );
    track.right = track.left + static_cast<int>( track.width( ) * done / FULL );
    if( GRectHasVolume( track ) ) images.fillRoundRect( track, height / 2, GColorFromText( _bar.colour ) );
}

// ---- Input.

int GTableNode::_findLine( const GWString& key ) const
{
    const auto is = [&]( const Line& line ) { return !line.heading && line.text == key; };
    const auto found = std::find_if( _lines.begin( ), _lines.end( ), is );
    return found == _lines.end( ) ? -1 : static_cast<int>( found - _lines.begin( ) );
}

GWString GTableNode::_getPrefix( int y )
{
    const int top = _originY + _setRows( );
    const int row = y < top ? -1 : _view.getRow( y - top );
    if( row < 0 || static_cast<size_t>( row ) >= _lines.size( ) ) return { };
    const Line& line = _lines[static_cast<size_t>( row )];
    return line.heading ? GWString( ) : line.text;
}

void GTableNode::_select( const GWString& key )
{
    _selection = key;
    _view.show( _findLine( key ) );
    if( !_varName.empty( ) ) _instance->set( _varName, _selection );
}

int GTableNode::_clickAt( int y )
{
    _select( _getPrefix( y ) );
    return GRESPONSE_RENDER;
}

bool GTableNode::_pointAt( int y )
{
    const GWString key = _getPrefix( y );
    if( key == _mouseoverKey ) return false;
    _mouseoverKey = key;
    return true;
}

int GTableNode::onLButtonDblClk( GWin, int, int )
{
    GNodeTools_execute( this, _onDblClk );
    return GRESPONSE_NONE;
}

int GTableNode::onRButtonDown( GWin, int, int )
{
    GNodeTools_execute( this, _onRightClick );
    return GRESPONSE_NONE;
}

// ---- Keyboard.

int GTableNode::onKeyDown( GWin, int key )
{
    if( !_focusable ) return GRESPONSE_NONE;
    _setRows( );
    const int from = _findLine( _selection );
    int to = _view.follow( key, from );
    if( to == from ) return GRESPONSE_NONE;
    // Past a heading in the way one went, and back when there is nothing behind it.
    const int step = to < from ? -1 : 1;
    const int count = static_cast<int>( _lines.size( ) );
    while( to >= 0 && to < count && _lines[static_cast<size_t>( to )].heading ) to += step;
    if( to < 0 ) to = 1;
    if( to >= count || to == from ) return GRESPONSE_NONE;
    _select( _lines[static_cast<size_t>( to )].text );
    return GRESPONSE_RENDER;
}

int GTableNode::onKeyPressed( GWin, char16_t character )
{
    if( !_focusable || character != u'\r' || _selection.empty( ) ) return GRESPONSE_NONE;
    GNodeTools_execute( this, _onDblClk );
    return GRESPONSE_RENDER;
}

void GTableNode::collectDamage( GSkinDamage& damage ) const
{
    GTemplateNode::collectDamage( damage );
    const GStringList& names = _cellWatches.getNames( );
    const bool changed =
        std::any_of( names.begin( ), names.end( ),
                     [&]( const GWString& name ) { return _instance->getTimestamp( name ) >= damage.getSince( ); } );
    if( changed ) damage.add( _drawn );
}
