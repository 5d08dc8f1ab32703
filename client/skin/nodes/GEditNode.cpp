#include "client/skin/nodes/GEditNode.h"

#include "client/drawing/GImageStack.h"

#include <algorithm>

namespace
{
// More than anyone types; a paste is cut there.
constexpr size_t MAX_TEXT = 32768;
constexpr char16_t KEY_BACKSPACE = 8;
constexpr char16_t KEY_TAB = 9;
constexpr char16_t KEY_RETURN = 13;
constexpr char16_t KEY_ESCAPE = 27;
constexpr int CARET_WIDTH = 1;

bool isControl( char16_t character )
{
    return character < 32 || character == 127;
}
bool isLowSurrogate( char16_t character )
{
    return character >= 0xDC00 && character < 0xE000;
}
} // namespace

GAttributeTable GEditNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"var", GAttributeKind::valueName, u"", u"The blackboard value that it shows and writes." },
        { u"font", GAttributeKind::font, u"", u"The text's font." },
        { u"emptytext", GAttributeKind::text, u"", u"Shown while it is empty and has no keyboard." },
        { u"emptyfont", GAttributeKind::font, u"$font", u"The font of that." },
        { u"inner", GAttributeKind::number, u"0", u"The margin inside its frame." },
        { u"outer", GAttributeKind::number, u"0", u"The margin outside its frame." },
        { u"framecolor", GAttributeKind::colour, u"#000000FF", u"The frame." },
        { u"focuscolor", GAttributeKind::colour, u"$framecolor", u"The frame while it has the keyboard." },
        { u"password", GAttributeKind::toggle, u"off", u"Shows a `*` for each character." },
        { u"vscroll", GAttributeKind::toggle, u"off", u"Several lines, which scroll." },
        { u"untouchable", GAttributeKind::toggle, u"off", u"Takes no input." },
        { u"refresh", GAttributeKind::toggle, u"off", u"Reads `var` again at every pass." },
        { u"onenter", GAttributeKind::command, u"", u"Runs on the return key." },
        { u"ontype", GAttributeKind::command, u"", u"Runs when it ceases to be empty." },
        { u"onclear", GAttributeKind::command, u"", u"Runs when it becomes empty." },
    };
    return ROWS;
}

bool GEditNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = _font.read( stack, u"$font" );
    changed |= _emptyFont.read( stack, u"$emptyfont", _font );
    changed |= stack.read( u"$emptytext", _emptyText );
    changed |= _field.read( stack );
    changed |= stack.read( u"$onenter", _onEnter );
    changed |= stack.read( u"$ontype", _onType );
    changed |= stack.read( u"$onclear", _onClear );
    changed |= stack.read( u"$password", _password );
    changed |= stack.read( u"$vscroll", _vscroll );
    changed |= stack.read( u"$untouchable", _untouchable );
    changed |= _readVariable( stack );
    return changed;
}

bool GEditNode::_readVariable( GAttributeStack& stack )
{
    const bool renamed = stack.read( u"$var", _var );
    _watch.update( _instance, _var, stack.getListener( ) );
    if( _var.empty( ) ) return renamed;
    const bool renewed = GNodeTools_readValue( _instance, _var, _varSeen );
    if( !renamed && !renewed && !stack.test( u"$refresh" ) ) return false;
    const GWStringView text = GWStringView( _varSeen ).substr( 0, MAX_TEXT );
    if( text == _text ) return renamed;
    _text = text;
    return true;
}

void GEditNode::_updateVariable( )
{
    if( _var.empty( ) ) return;
    _varSeen = _text;
    _instance->set( _var, _text );
}

void GEditNode::calcMinSize( int& width, int& height )
{
    GTemplateNode::calcMinSize( width, height );
    width = std::max( width, _field.getMargin( ) );
    height = std::max( height, _font.getHeight( ) + _field.getMargin( ) );
}

// ---- Drawing.

bool GEditNode::_preChildRender( GImageStack& images )
{
    images.setInputHandler( this );
    const GRect box = _field.draw( images, _focus, _vscroll ? 0 : _font.getHeight( ) );
    images.pushTarget( box );
    _drawText( images, box );
    images.pop( );
    return true;
}

// The end of the text is where typing goes on, so that is what shows when there is too little room.
void GEditNode::_drawText( GImageStack& images, const GRect& box )
{
    if( _text.empty( ) && !_focus )
    {
        if( !_emptyText.empty( ) ) images.drawText( _emptyText, _emptyFont, { 0, 0, box.width( ), box.height( ) } );
        return;
    }
    const GWString shown = _password ? GWString( _text.size( ), u'*' ) : _text;
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

// ---- Input.

int GEditNode::onKeyboardFocusChanged( bool focus )
{
    _focus = focus;
    return GRESPONSE_RENDER;
}

int GEditNode::onLButtonDown( GWin, int, int )
{
    return GRESPONSE_RENDER;
}

int GEditNode::onKeyPressed( GWin, char16_t character )
{
    if( _untouchable || character == KEY_TAB ) return GRESPONSE_NONE;
    if( character == KEY_RETURN )
    {
        _executeOnEnter( );
        return GRESPONSE_RENDER;
    }
    GWString text = _text;
    if( character == KEY_BACKSPACE )
        _removeLast( text );
    else if( character == KEY_ESCAPE )
        text.clear( );
    else if( !isControl( character ) && text.size( ) < MAX_TEXT )
        text += character;
    setText( text );
    return GRESPONSE_RENDER;
}

void GEditNode::_removeLast( GWString& text )
{
    if( text.empty( ) ) return;
    const bool pair = isLowSurrogate( text.back( ) ) && text.size( ) > 1;
    text.resize( text.size( ) - ( pair ? 2 : 1 ) );
}

int GEditNode::onPaste( GWin, const GWString& text )
{
    if( _untouchable ) return GRESPONSE_NONE;
    GWString result = _text;
    for( const char16_t character : text )
    {
        if( result.size( ) >= MAX_TEXT ) break;
        // A single line has no room for line ends and tabs.
        if( !isControl( character ) || ( _vscroll && character == u'\n' ) ) result += character;
    }
    setText( result );
    return GRESPONSE_RENDER;
}

void GEditNode::setText( const GWString& text )
{
    const bool wasEmpty = _text.empty( );
    _text = text.substr( 0, MAX_TEXT );
    _updateVariable( );
    if( wasEmpty && !_text.empty( ) ) _executeOnType( );
    if( !wasEmpty && _text.empty( ) ) _executeOnClear( );
}

void GEditNode::_executeOnEnter( )
{
    GNodeTools_execute( this, _onEnter );
}

void GEditNode::_executeOnType( )
{
    GNodeTools_execute( this, _onType );
}

void GEditNode::_executeOnClear( )
{
    GNodeTools_execute( this, _onClear );
}
