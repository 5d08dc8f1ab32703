#include "client/skin/nodes/GTableNode.h"

#include "client/drawing/GImageStack.h"

#include <algorithm>

namespace
{
// Between the rows, half of it above and half below the text.
constexpr int ROW_GAP = 4;
constexpr int CELL_MARGIN = 4;

void split( const GWString& text, GStringVector& out )
{
    const GStringList items = GSplitList( text, u"," );
    out.assign( items.begin( ), items.end( ) );
}
} // namespace

// ---- Update.

bool GTableNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = stack.read( u"$onrightclick", _onRightClick );
    changed |= stack.read( u"$ondblclk", _onDblClk );
    changed |= _cellFont.read( stack, u"$cellfont" );
    changed |= _headerFont.read( stack, u"$headerfont" );
    changed |= _mouseoverFont.read( stack, u"$mouseoverfont", _cellFont );
    changed |= GNodeTools_readOr( stack, u"$framecolor", u"#000000FF", _frameColour );
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
    return changed;
}

bool GTableNode::_readKeys( GAttributeStack& stack )
{
    bool changed = stack.read( u"$prefixlistsrc", _prefixListSrc );
    _keyWatch.update( _instance, _prefixListSrc, stack.getListener( ) );
    if( stack.read( u"$suffixlist", _suffixText ) )
    {
        split( _suffixText, _suffixes );
        changed = true;
    }
    if( !GNodeTools_readValue( _instance, _prefixListSrc, _keyText ) ) return changed;
    const GStringList keys = GSplitList( _keyText );
    _keys.assign( keys.begin( ), keys.end( ) );
    if( std::find( _keys.begin( ), _keys.end( ), _selection ) == _keys.end( ) ) _selection.clear( );
    return true;
}

void GTableNode::_watchCells( GNotifyHandle listener )
{
    GStringList names;
    for( const GWString& key : _keys )
    {
        for( const GWString& suffix : _suffixes ) names.push_back( key + suffix );
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
    return _cellFont.getHeight( ) + ROW_GAP;
}

GRect GTableNode::_getCell( int column, int columns, int top, int width )
{
    return { width * column / columns, top, width * ( column + 1 ) / columns, top + _getRowHeight( ) };
}

bool GTableNode::_preChildRender( GImageStack& images )
{
    images.setInputHandler( this );
    int originX = 0;
    images.getPosition( originX, _originY );
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    width = std::max( 0, width );
    _drawTitles( images, width );
    int top = _getRowHeight( );
    if( _keys.empty( ) )
    {
        images.drawText( u"(empty)", _cellFont,
                         { CELL_MARGIN, top + ROW_GAP / 2, std::max( CELL_MARGIN, width ), top + _getRowHeight( ) } );
        return true;
    }
    for( const GWString& key : _keys )
    {
        if( top >= height ) break;
        _drawRow( images, key, top, width );
        top += _getRowHeight( );
    }
    return true;
}

void GTableNode::_drawTitles( GImageStack& images, int width )
{
    const int columns = static_cast<int>( _titles.size( ) );
    for( int i = 0; i < columns; ++i )
    {
        const GRect cell = _getCell( i, columns, 0, width );
        images.drawRect( cell, _frameColour );
        _drawCell( images, _titles[static_cast<size_t>( i )], _headerFont, cell );
    }
}

void GTableNode::_drawCell( GImageStack& images, const GWString& text, GNodeFont& font, const GRect& cell )
{
    const GRect box{ cell.left + CELL_MARGIN, cell.top + ROW_GAP / 2, cell.right - CELL_MARGIN, cell.bottom };
    if( !text.empty( ) && GRectHasVolume( box ) ) images.drawText( text, font, box );
}

void GTableNode::_drawRow( GImageStack& images, const GWString& key, int top, int width )
{
    GNodeFont& font = key == _mouseoverKey ? _mouseoverFont : _cellFont;
    const int columns = static_cast<int>( _suffixes.size( ) );
    for( int i = 0; i < columns; ++i )
    {
        _cellName = key;
        _cellName += _suffixes[static_cast<size_t>( i )];
        _instance->get( _cellName, _cellText );
        _drawCell( images, _cellText, font, _getCell( i, columns, top, width ) );
    }
    if( key == _selection ) images.invertRect( { 0, top, width, top + _getRowHeight( ) } );
}

// ---- Input.

GWString GTableNode::_getPrefix( int y )
{
    const int height = _getRowHeight( );
    if( height < 1 || y < _originY + height ) return { };
    const size_t row = static_cast<size_t>( ( y - _originY ) / height - 1 );
    return row < _keys.size( ) ? _keys[row] : GWString( );
}

int GTableNode::onLButtonDown( GWin, int, int y )
{
    _selection = _getPrefix( y );
    return GRESPONSE_RENDER;
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

int GTableNode::onMouseMove( GWin, int, int y )
{
    const GWString key = _getPrefix( y );
    if( key == _mouseoverKey ) return GRESPONSE_NONE;
    _mouseoverKey = key;
    return GRESPONSE_RENDER;
}

int GTableNode::onMouseoverChanged( bool mouseover )
{
    if( mouseover || _mouseoverKey.empty( ) ) return GRESPONSE_NONE;
    _mouseoverKey.clear( );
    return GRESPONSE_RENDER;
}
