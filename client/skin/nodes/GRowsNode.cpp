#include "client/skin/nodes/GRowsNode.h"

#include "client/drawing/GImageStack.h"

#include <algorithm>

bool GRowsNode::_readLooks( GAttributeStack& stack, const GNodeFont& font, int padding )
{
    bool changed = _mouseoverFont.read( stack, u"$mouseoverfont", font );
    changed |= stack.read( u"$focusable", _focusable );
    changed |= GNodeTools_readOr( stack, u"$framecolor", u"#000000FF", _frameColour );
    changed |= _view.read( stack, padding );
    return changed;
}

void GRowsNode::_begin( GImageStack& images, int& width, int& height )
{
    images.setInputHandler( this );
    images.getPosition( _originX, _originY );
    images.getDimensions( width, height );
    width = std::max( 0, width );
    height = std::max( 0, height );
}

void GRowsNode::_markFocus( GImageStack& images, int row )
{
    if( _focus && _focusable ) _view.markFocus( images, row );
}

// ---- Input.

int GRowsNode::onLButtonDown( GWin, int x, int y )
{
    if( _view.press( x - _originX, y - _originY ) ) return GRESPONSE_RENDER | GRESPONSE_CAPTURE;
    return _clickAt( y );
}

int GRowsNode::onLButtonUp( GWin, int, int )
{
    if( !_view.isHeld( ) ) return GRESPONSE_NONE;
    _view.release( );
    return GRESPONSE_RELEASE;
}

int GRowsNode::onMouseMove( GWin, int, int y )
{
    const bool moved = _view.isHeld( ) ? _view.drag( y - _originY ) : _pointAt( y );
    return moved ? GRESPONSE_RENDER : GRESPONSE_NONE;
}

int GRowsNode::onMouseoverChanged( bool mouseover )
{
    return !mouseover && _pointAt( NOWHERE ) ? GRESPONSE_RENDER : GRESPONSE_NONE;
}

int GRowsNode::onMouseWheel( GWin, int steps )
{
    return _view.scroll( steps ) ? GRESPONSE_RENDER : GRESPONSE_NONE;
}

int GRowsNode::onKeyboardFocusChanged( bool focus )
{
    _focus = focus;
    return _focusable ? GRESPONSE_RENDER : GRESPONSE_NONE;
}
