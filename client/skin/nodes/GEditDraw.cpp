// The drawing half of GEditNode.
#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GEditNode.h"

#include <algorithm>

namespace
{
constexpr int CARET_WIDTH = 1;
} // namespace

bool GEditNode::_preChildRender( GImageStack& images )
{
    images.setInputHandler( this );
    if( _focus ) images.markFocus( );
    const GRect box = _field.draw( images, _focus, _vscroll ? 0 : _font.getHeight( ) );
    images.pushTarget( box );
    images.getPosition( _place.left, _place.top );
    images.getDimensions( _place.right, _place.bottom );
    _place.right += _place.left;
    _place.bottom += _place.top;
    if( getText( ).empty( ) && !_focus )
    {
        if( !_emptyText.empty( ) ) images.drawText( _emptyText, _emptyFont, { 0, 0, box.width( ), box.height( ) } );
    }
    else if( _full )
        _drawFull( images, box );
    else
        _drawText( images, box );
    images.pop( );
    return true;
}

const GWString& GEditNode::_getShown( )
{
    if( !_password ) return getText( );
    _stars.assign( getText( ).size( ), u'*' );
    return _stars;
}

// The end of the text is where typing goes on, so that is what shows when there is too little room.
void GEditNode::_drawText( GImageStack& images, const GRect& box )
{
    const GWString& shown = _getShown( );
    int width = _vscroll ? box.width( ) : 0;
    int height = _font.getHeight( );
    if( !shown.empty( ) ) _font.get( ).measureText( shown, width, height );
    const int room = std::max( 0, box.width( ) - CARET_WIDTH - 1 );
    const int left = _vscroll ? 0 : std::min( 0, room - width );
    const int top = _vscroll ? std::min( 0, box.height( ) - height ) : 0;
    const int right = std::max( left + width + CARET_WIDTH, box.width( ) );
    if( !shown.empty( ) )
        images.drawText( shown, _font, { left, top, right, std::max( top + height, box.height( ) ) } );
    if( !_focus || _untouchable ) return;
    const int caret = std::min( left + width + 1, room );
    const int bottom = std::min( top + height, box.height( ) );
    const GRect line{ caret, bottom - _font.getHeight( ), caret + CARET_WIDTH, bottom };
    images.fillRect( line, _font.get( ).getColour( ) );
}

// ---- With a caret.

GTextLayout GEditNode::_layOut( )
{
    return _box.layout( _font, _getShown( ), _vscroll, std::max( 0, _place.width( ) - CARET_WIDTH ) );
}

// How many lines the field asks for: as many as its text takes at the width that it was last drawn with.
int GEditNode::_getLineCount( )
{
    if( !_full || !_vscroll || _growLines < 2 || _place.width( ) < 1 ) return 1;
    int width = 0;
    int height = 0;
    GTextLayoutGetSize( _layOut( ), width, height );
    return std::clamp( height / std::max( 1, _box.getLineHeight( ) ), 1, _growLines );
}

void GEditNode::_scrollToCaret( GTextLayout layout, const GRect& box )
{
    int width = 0;
    int height = 0;
    GTextLayoutGetSize( layout, width, height );
    int x = 0;
    int y = 0;
    GTextLayoutGetCaret( layout, _buffer.getCaret( ), x, y );
    const int mostX = _vscroll ? 0 : std::max( 0, width + CARET_WIDTH - box.width( ) );
    const int mostY = std::max( 0, height - box.height( ) );
    if( _caretMoved && _focus )
    {
        _scrollX = std::min( std::max( _scrollX, x + CARET_WIDTH - box.width( ) ), x );
        _scrollY = std::min( std::max( _scrollY, y + _box.getLineHeight( ) - box.height( ) ), y );
    }
    // Without the focus a field shows its beginning.
    if( !_focus ) _scrollX = 0;
    _caretMoved = false;
    _scrollX = std::clamp( _scrollX, 0, mostX );
    _scrollY = std::clamp( _scrollY, 0, mostY );
}

void GEditNode::_drawSelection( GImageStack& images, GTextLayout layout )
{
    GTextLayoutGetSpans( layout, _buffer.getBegin( ), _buffer.getEnd( ), _spans );
    const uint32_t colour = GColorFromText( _selectionColour );
    for( const GRect& span : _spans )
        images.fillRoundRect(
            { span.left - _scrollX, span.top - _scrollY, span.right - _scrollX, span.bottom - _scrollY }, 0, colour );
}

void GEditNode::_drawFull( GImageStack& images, const GRect& box )
{
    const GTextLayout layout = _layOut( );
    _scrollToCaret( layout, box );
    if( _focus && _buffer.hasSelection( ) ) _drawSelection( images, layout );
    _box.draw( images, _scrollX, _scrollY );
    if( _focus && !_untouchable )
    {
        int x = 0;
        int y = 0;
        GTextLayoutGetCaret( layout, _buffer.getCaret( ), x, y );
        x = std::min( x - _scrollX, std::max( 0, box.width( ) - CARET_WIDTH ) );
        y -= _scrollY;
        images.fillRect( { x, y, x + CARET_WIDTH, y + _box.getLineHeight( ) }, _font.get( ).getColour( ) );
    }
    // The width was not known when the height was asked for.
    const int lines = _getLineCount( );
    if( lines != _linesAsked && lines != _linesTold && _listener ) GNotify( _listener, GWATCH_RENDER );
    _linesTold = lines;
}

// A field that grows moves what stands beside it.
void GEditNode::collectDamage( GSkinDamage& damage ) const
{
    GTemplateNode::collectDamage( damage );
    if( _linesTold != _linesAsked ) damage.addAll( );
}
