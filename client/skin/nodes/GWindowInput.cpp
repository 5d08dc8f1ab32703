// The input half of GWindowNode: which handler an event belongs to, focus and pointer.
#include "client/skin/nodes/GNodeKeys.h"
#include "client/skin/nodes/GNodeTools.h"
#include "client/skin/nodes/GWindowNode.h"

#include <algorithm>

namespace
{
// The answer of a handler that may be removed, but not deleted, by what it runs.
template <typename Call>
int ask( IGInputHandler* handler, Call call )
{
    if( !handler ) return GRESPONSE_NONE;
    const GNodeBusy busy;
    return call( *handler );
}
} // namespace

// ---- Who takes an event.

IGInputHandler* GWindowNode::_getHandler( int x, int y ) const
{
    if( x < 0 || y < 0 || x >= _format.width || y >= _format.height ) return nullptr;
    return _inputMap[static_cast<size_t>( y ) * _format.width + x];
}

// Null for what belongs to the window itself.
IGInputHandler* GWindowNode::_getTarget( int x, int y ) const
{
    IGInputHandler* target = _capture ? _capture : _getHandler( x, y );
    return target == this ? nullptr : target;
}

void GWindowNode::forget( GTemplateNode* node )
{
    for( GTemplateNode* at = node; at; at = at->getNext( node ) )
    {
        auto* handler = dynamic_cast<IGInputHandler*>( at );
        if( !handler ) continue;
        _hint.forget( handler );
        if( _keyFocus == handler ) _keyFocus = nullptr;
        if( _mouseover == handler ) _mouseover = nullptr;
        if( _capture == handler ) _capture = nullptr;
        std::replace( _inputMap.begin( ), _inputMap.end( ), handler, static_cast<IGInputHandler*>( this ) );
    }
}

// ---- Pointer.

int GWindowNode::_pointer( PointerEvent event, int x, int y )
{
    IGInputHandler* target = _getTarget( x, y );
    const int flags = ask( target, [&]( IGInputHandler& handler ) { return ( handler.*event )( _win, x, y ); } );
    _respond( flags, target );
    return flags;
}

int GWindowNode::getNCHITTEST( GWin win, int x, int y )
{
    IGInputHandler* target = _getTarget( x, y );
    const int code = target ? target->getNCHITTEST( win, x, y ) : GHIT_CAPTION;
    _respond( _updateMouseover( x, y ) );
    _updateHint( x, y );
    return code;
}

void GWindowNode::_updateHint( int x, int y )
{
    const IGInputHandler* handler = _mouseover;
    _hint.point( handler, handler ? handler->getHint( ) : GWStringView( ), x, y );
}

GRect GWindowNode::_findOnDesktop( const IGInputHandler* handler ) const
{
    GRect place = GRectAccumulator( );
    for( int y = 0; y < _format.height; ++y )
    {
        const auto row = _inputMap.begin( ) + static_cast<ptrdiff_t>( y ) * _format.width;
        const auto first = std::find( row, row + _format.width, handler );
        if( first == row + _format.width ) continue;
        auto last = row + _format.width;
        while( *( last - 1 ) != handler ) --last;
        place = GRectUnion( place, { static_cast<int>( first - row ), y, static_cast<int>( last - row ), y + 1 } );
    }
    if( place.left > place.right ) return { };
    return { place.left + _rect.left, place.top + _rect.top, place.right + _rect.left, place.bottom + _rect.top };
}

bool GWindowNode::getMinSize( GWin, int& width, int& height )
{
    // The platform takes more than this for a mistake, and a window would shrink to nothing: at twice the scale some need more.
    constexpr int MOST = 1000;
    width = 0;
    height = 0;
    calcMinSize( width, height );
    width = std::min( width, MOST );
    height = std::min( height, MOST );
    return true;
}

void GWindowNode::onReposition( GWin, const GRect& rect )
{
    _rect = rect;
    _rememberPlace( );
    _respond( GRESPONSE_RENDER );
}

int GWindowNode::onMouseMove( GWin, int x, int y )
{
    return _pointer( &IGWinListener::onMouseMove, x, y );
}

void GWindowNode::onMouseLeft( GWin )
{
    _hint.leave( );
    _respond( _setMouseover( nullptr ) );
}

int GWindowNode::onLButtonDown( GWin win, int x, int y )
{
    _hint.dismiss( );
    IGInputHandler* target = _getTarget( x, y );
    const int flags = ask( target, [&]( IGInputHandler& handler ) { return handler.onLButtonDown( win, x, y ); } );
    const int result = std::max( flags, _updateKeyFocus( x, y ) );
    _respond( result, target );
    return result;
}

int GWindowNode::onLButtonUp( GWin, int x, int y )
{
    return _pointer( &IGWinListener::onLButtonUp, x, y );
}

int GWindowNode::onLButtonDblClk( GWin, int x, int y )
{
    _hint.dismiss( );
    return _pointer( &IGWinListener::onLButtonDblClk, x, y );
}

int GWindowNode::onRButtonDown( GWin, int x, int y )
{
    _hint.dismiss( );
    return _pointer( &IGWinListener::onRButtonDown, x, y );
}

// The wheel goes to the handler below the pointer, and failing that to the nearest handler beside or above it that takes it.
int GWindowNode::onMouseWheel( GWin win, int steps )
{
    _hint.dismiss( );
    std::vector<IGInputHandler*> asked;
    const auto turn = [&]( IGInputHandler* handler ) -> int
    {
        const bool first = std::find( asked.begin( ), asked.end( ), handler ) == asked.end( );
        if( !handler || handler == this || !first || !_isDrawn( handler ) ) return GRESPONSE_NONE;
        asked.push_back( handler );
        const int flags = ask( handler, [&]( IGInputHandler& node ) { return node.onMouseWheel( win, steps ); } );
        if( flags ) _respond( flags, handler );
        return flags;
    };
    if( const int flags = turn( _mouseover ) ) return flags;
    GTemplateNode* scope = dynamic_cast<GTemplateNode*>( _mouseover );
    while( scope && scope != this )
    {
        scope = scope->getParent( );
        for( GTemplateNode* node = scope; node; node = node->getNext( scope ) )
            if( const int flags = turn( dynamic_cast<IGInputHandler*>( node ) ) ) return flags;
    }
    return GRESPONSE_NONE;
}

int GWindowNode::_setMouseover( IGInputHandler* handler )
{
    if( handler == this ) handler = nullptr;
    if( handler == _mouseover ) return GRESPONSE_NONE;
    IGInputHandler* old = _mouseover;
    _mouseover = handler;
    const int left = ask( old, []( IGInputHandler& node ) { return node.onMouseoverChanged( false ); } );
    const int entered = ask( handler, []( IGInputHandler& node ) { return node.onMouseoverChanged( true ); } );
    return std::max( left, entered );
}

int GWindowNode::_updateMouseover( int x, int y )
{
    return _setMouseover( _getHandler( x, y ) );
}

// ---- Keyboard.

int GWindowNode::_setKeyFocus( IGInputHandler* handler )
{
    if( handler == this ) handler = nullptr;
    if( handler == _keyFocus ) return GRESPONSE_NONE;
    IGInputHandler* old = _keyFocus;
    _keyFocus = handler;
    const int lost = ask( old, []( IGInputHandler& node ) { return node.onKeyboardFocusChanged( false ); } );
    const int gained = ask( handler, []( IGInputHandler& node ) { return node.onKeyboardFocusChanged( true ); } );
    return std::max( lost, gained );
}

int GWindowNode::_updateKeyFocus( int x, int y )
{
    return _setKeyFocus( _getHandler( x, y ) );
}

// A layer that was never drawn hides nothing.
bool GWindowNode::_isDrawn( const IGInputHandler* handler ) const
{
    return _inputMap.empty( ) || std::find( _inputMap.begin( ), _inputMap.end( ), handler ) != _inputMap.end( );
}

// What is not on the screen, such as a field on another page, is no stop of the tab key.
bool GWindowNode::_isFocusable( GTemplateNode* node ) const
{
    auto* handler = dynamic_cast<IGInputHandler*>( node );
    return handler && handler != this && handler->wantsKeyboardFocus( ) && _isDrawn( handler );
}

bool GWindowNode::_moveKeyFocus( bool backward )
{
    std::vector<GTemplateNode*> stops;
    auto* current = dynamic_cast<GTemplateNode*>( _keyFocus );
    size_t next = 0; // The stop after the one that has the focus, wherever in the tree that is.
    for( GTemplateNode* node = getNext( this ); node; node = node->getNext( this ) )
    {
        GTemplateNode* const stop = node;
        if( stop == current )
            next = stops.size( );
        else if( _isFocusable( stop ) )
            stops.push_back( stop );
    }
    if( stops.empty( ) ) return false;
    const size_t index = backward ? ( next + stops.size( ) - 1 ) % stops.size( ) : next % stops.size( );
    auto* handler = dynamic_cast<IGInputHandler*>( stops[index] );
    _respond( _setKeyFocus( handler ), handler );
    return true;
}

void GWindowNode::leave( IGInputHandler* handler )
{
    if( handler && handler == _keyFocus ) _respond( _setKeyFocus( nullptr ) );
}

int GWindowNode::onKeyDown( GWin win, int key )
{
    _hint.dismiss( );
    IGInputHandler* focus = _keyFocus;
    const int flags = ask( focus, [&]( IGInputHandler& handler ) { return handler.onKeyDown( win, key ); } );
    if( flags )
    {
        _respond( flags, focus );
        return flags;
    }
    if( key == GKEY_TAB && !_children.empty( ) ) _moveKeyFocus( GNodeKeys_isDown( GKEY_SHIFT ) );
    return GRESPONSE_NONE;
}

int GWindowNode::onKeyUp( GWin win, int key )
{
    IGInputHandler* focus = _keyFocus;
    const int flags = ask( focus, [&]( IGInputHandler& handler ) { return handler.onKeyUp( win, key ); } );
    _respond( flags, focus );
    return flags;
}

int GWindowNode::onKeyPressed( GWin win, char16_t character )
{
    IGInputHandler* focus = _keyFocus;
    const int flags = ask( focus, [&]( IGInputHandler& handler ) { return handler.onKeyPressed( win, character ); } );
    _respond( flags, focus );
    // What the focus has no use for is the window's.
    if( !flags && character == GKEY_ESCAPE ) GNodeTools_execute( this, _onEscape );
    if( !flags && character == GKEY_RETURN ) GNodeTools_execute( this, _onReturn );
    return flags;
}

int GWindowNode::onPaste( GWin win, const GWString& text )
{
    IGInputHandler* focus = _keyFocus;
    const int flags = ask( focus, [&]( IGInputHandler& handler ) { return handler.onPaste( win, text ); } );
    _respond( flags, focus );
    return flags;
}

// ---- The window itself.

void GWindowNode::onClose( GWin )
{
    close( );
}

void GWindowNode::onShow( GWin win )
{
    // Who holds a key down does not hear of its release once the window has lost the keyboard.
    if( _keyFocus )
    {
        const GNodeBusy busy;
        _keyFocus->onShow( win );
    }
    _respond( GRESPONSE_RENDER );
}
