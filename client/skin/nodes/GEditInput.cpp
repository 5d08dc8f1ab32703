// The input half of GEditNode for "$editing" at "full": caret, selection, clipboard and history.
#include "client/skin/nodes/GEditNode.h"
#include "client/skin/nodes/GNodeKeys.h"
#include "platform/GSystem.h"

#include <algorithm>

namespace
{
// What control and a letter type.
enum Control : char16_t
{
    CONTROL_A = 1,
    CONTROL_C = 3,
    CONTROL_X = 24,
    CONTROL_Y = 25,
    CONTROL_Z = 26,
    DELETE_WORD = 127 // Control and backspace, on some keyboards.
};
constexpr int LINES_A_STEP = 3;

bool isLowSurrogate( char16_t character )
{
    return character >= 0xDC00 && character < 0xE000;
}
} // namespace

// ---- Characters.

int GEditNode::_typeFull( char16_t character )
{
    const bool shift = GNodeKeys_isDown( GKEY_SHIFT );
    switch( character )
    {
    case GKEY_BACKSPACE: return _eraseBack( GNodeKeys_isDown( GKEY_CONTROL ) );
    case DELETE_WORD: return _eraseBack( true );
    case GKEY_RETURN:
        if( _vscroll && ( shift || _onEnter.empty( ) ) ) return _change( [&] { _buffer.insert( u"\n" ); } );
        if( _onEnter.empty( ) ) return GRESPONSE_NONE;
        _executeOnEnter( );
        return GRESPONSE_RENDER;
    case GKEY_ESCAPE:
        if( _escapeIsTheWindows ) return GRESPONSE_NONE;
        return _change( [&] { _buffer.erase( 0, getText( ).size( ) ); } );
    default: break;
    }
    GWString typed;
    if( !_takeUnit( character, typed ) ) return _onControl( character );
    return _change( [&] { _buffer.insert( typed ); } );
}

int GEditNode::_onControl( char16_t character )
{
    switch( character )
    {
    case CONTROL_A:
        _buffer.select( 0, getText( ).size( ) );
        _caretMoved = true;
        return GRESPONSE_RENDER;
    case CONTROL_C: return _copy( false );
    case CONTROL_X: return _copy( true );
    case CONTROL_Y: return _change( [&] { _buffer.redo( ); } );
    case CONTROL_Z: return _change( [&] { _buffer.undo( ); } );
    default: return GRESPONSE_NONE;
    }
}

int GEditNode::_copy( bool cut )
{
    // A password never leaves its field.
    if( _password || !_buffer.hasSelection( ) ) return GRESPONSE_NONE;
    GClipboardSetText( _buffer.getSelection( ) );
    return cut ? _change( [&] { _buffer.eraseSelection( ); } ) : GRESPONSE_NONE;
}

int GEditNode::_eraseBack( bool word )
{
    return _change(
        [&]
        {
            if( _buffer.eraseSelection( ) ) return;
            const size_t caret = _buffer.getCaret( );
            _buffer.erase( _step( caret, word ? GSTEP_PREVIOUS_WORD : GSTEP_PREVIOUS ), caret );
        } );
}

// ---- Moves.

size_t GEditNode::_step( size_t from, GTextStep step )
{
    const GWString& text = getText( );
    size_t to = GTextLayoutStep( _layOut( ), from, step );
    // Behind the stars of a password pairs are still pairs.
    if( to < text.size( ) && to > 0 && isLowSurrogate( text[to] ) ) to = to > from ? to + 1 : to - 1;
    return to;
}

size_t GEditNode::_moveLines( int lines )
{
    int x = 0;
    int y = 0;
    GTextLayoutGetCaret( _layOut( ), _buffer.getCaret( ), x, y );
    if( _wantedX < 0 ) _wantedX = x;
    int width = 0;
    int height = 0;
    GTextLayoutGetSize( _layOut( ), width, height );
    const int to = y + lines * _box.getLineHeight( );
    if( to < 0 && y == 0 ) return 0;
    if( to >= height && y + _box.getLineHeight( ) >= height ) return getText( ).size( );
    return GTextLayoutHit( _layOut( ), _wantedX, std::clamp( to, 0, height - 1 ) );
}

// False for a key that moves no caret.
bool GEditNode::_onMoveKey( int key, size_t& target )
{
    const bool control = GNodeKeys_isDown( GKEY_CONTROL );
    const size_t caret = _buffer.getCaret( );
    // Without shift an arrow leaves a selection at its end.
    const bool leaves = _buffer.hasSelection( ) && !control && !GNodeKeys_isDown( GKEY_SHIFT );
    const int page = std::max( 1, _place.height( ) / std::max( 1, _box.getLineHeight( ) ) - 1 );
    const int wantedX = _wantedX;
    _wantedX = -1;
    switch( key )
    {
    case GKEY_LEFT:
        target = leaves ? _buffer.getBegin( ) : _step( caret, control ? GSTEP_PREVIOUS_WORD : GSTEP_LEFT );
        return true;
    case GKEY_RIGHT:
        target = leaves ? _buffer.getEnd( ) : _step( caret, control ? GSTEP_NEXT_WORD : GSTEP_RIGHT );
        return true;
    case GKEY_HOME: target = control ? 0 : _step( caret, GSTEP_LINE_START ); return true;
    case GKEY_END: target = control ? getText( ).size( ) : _step( caret, GSTEP_LINE_END ); return true;
    default: break;
    }
    if( !_vscroll ) return false;
    _wantedX = wantedX;
    switch( key )
    {
    case GKEY_UP: target = _moveLines( -1 ); return true;
    case GKEY_DOWN: target = _moveLines( 1 ); return true;
    case GKEY_PAGE_UP: target = _moveLines( -page ); return true;
    case GKEY_PAGE_DOWN: target = _moveLines( page ); return true;
    default: return false;
    }
}

int GEditNode::onKeyDown( GWin, int key )
{
    if( !_full ) return GRESPONSE_NONE;
    if( key == GKEY_DELETE )
    {
        if( _untouchable ) return GRESPONSE_NONE;
        const GTextStep step = GNodeKeys_isDown( GKEY_CONTROL ) ? GSTEP_NEXT_WORD : GSTEP_NEXT;
        return _change(
            [&]
            {
                if( _buffer.eraseSelection( ) ) return;
                const size_t caret = _buffer.getCaret( );
                _buffer.erase( caret, _step( caret, step ) );
            } );
    }
    size_t target = 0;
    if( !_onMoveKey( key, target ) ) return GRESPONSE_NONE;
    _buffer.moveTo( target, GNodeKeys_isDown( GKEY_SHIFT ) );
    _caretMoved = true;
    return GRESPONSE_RENDER;
}

// ---- Mouse.

size_t GEditNode::_hit( int x, int y )
{
    const size_t index = GTextLayoutHit( _layOut( ), x - _place.left + _scrollX, y - _place.top + _scrollY );
    const bool within = index > 0 && index < getText( ).size( ) && isLowSurrogate( getText( )[index] );
    return within ? index - 1 : index;
}

int GEditNode::onLButtonDown( GWin, int x, int y )
{
    if( !_full ) return GRESPONSE_RENDER;
    _clicked = !_focus;
    _dragging = true;
    _wantedX = -1;
    _buffer.moveTo( _hit( x, y ), _focus && GNodeKeys_isDown( GKEY_SHIFT ) );
    _caretMoved = true;
    return GRESPONSE_RENDER | GRESPONSE_CAPTURE;
}

int GEditNode::onMouseMove( GWin, int x, int y )
{
    if( !_dragging ) return GRESPONSE_NONE;
    if( !GNodeKeys_isDown( GKEY_LBUTTON ) )
    {
        // The release went elsewhere.
        _dragging = false;
        return GRESPONSE_RELEASE;
    }
    _buffer.moveTo( _hit( x, y ), true );
    _caretMoved = true;
    return GRESPONSE_RENDER;
}

int GEditNode::onLButtonUp( GWin, int, int )
{
    if( !_dragging ) return GRESPONSE_NONE;
    _dragging = false;
    return GRESPONSE_RELEASE;
}

int GEditNode::onLButtonDblClk( GWin, int x, int y )
{
    if( !_full ) return GRESPONSE_NONE;
    size_t begin = 0;
    size_t end = getText( ).size( );
    // The words of a password are nobody's business.
    if( !_password ) GTextLayoutGetWord( _layOut( ), _hit( x, y ), begin, end );
    _buffer.select( begin, end );
    _caretMoved = true;
    return GRESPONSE_RENDER;
}

int GEditNode::onMouseWheel( GWin, int steps )
{
    if( !_full || !_vscroll ) return GRESPONSE_NONE;
    int width = 0;
    int height = 0;
    GTextLayoutGetSize( _layOut( ), width, height );
    const int most = std::max( 0, height - _place.height( ) );
    const int by = std::clamp( steps, -100, 100 ) * LINES_A_STEP * _box.getLineHeight( );
    const int to = std::clamp( _scrollY - by, 0, most );
    if( to == _scrollY ) return GRESPONSE_NONE;
    _scrollY = to;
    return GRESPONSE_RENDER;
}
