#include "client/skin/nodes/GEditNode.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GNodeKeys.h"

#include <algorithm>

namespace
{
constexpr int MAX_GROW_LINES = 100;

bool isControl( char16_t character )
{
    return character < 32 || character == 127;
}
bool isHighSurrogate( char16_t character )
{
    return character >= 0xD800 && character < 0xDC00;
}
bool isLowSurrogate( char16_t character )
{
    return character >= 0xDC00 && character < 0xE000;
}
} // namespace

GAttributeTable GEditNode::getAttributeTable( )
{
    static constexpr GAttributeRow OWN[] = {
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
        { u"editing", GAttributeKind::text, u"",
          u"`full`: a caret that moves, a selection, cut, copy and paste, undo, steps over words. Otherwise text is "
          u"taken at "
          u"the end. With `vscroll`, shift and return break the line." },
        { u"growlines", GAttributeKind::number, u"0",
          u"Grows with its text up to that many lines, with `vscroll` and full editing. Its cell must leave it the "
          u"height." },
        { u"maxlength", GAttributeKind::number, u"32768", u"The most characters that it takes." },
        { u"selectioncolor", GAttributeKind::colour, u"#5AA9FF80", u"The ground of the selection." },
        { u"onescape", GAttributeKind::command, u"",
          u"The window's: where it is set, the escape key goes there and clears nothing." },
    };
    static constexpr auto ROWS = GAttributeRowsJoin( OWN, GHINT_ATTRIBUTES );
    return ROWS;
}

// ---- Update.

bool GEditNode::_postChildUpdate( GAttributeStack& stack )
{
    _listener = stack.getListener( );
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
    changed |= stack.readEach( u"$editing", _editing, u"$hint", _hint );
    changed |= stack.read( u"$growlines", _growLines );
    changed |= stack.read( u"$maxlength", _maxLength );
    changed |= GNodeTools_readOr( stack, u"$selectioncolor", u"#5AA9FF80", _selectionColour );
    static GWString escape;
    stack.read( u"$onescape", escape );
    _escapeIsTheWindows = !escape.empty( );
    _full = GCaseEquals( _editing, u"full" );
    _growLines = std::clamp( _growLines, 0, MAX_GROW_LINES );
    _buffer.setLimit( static_cast<size_t>( std::max( 0, _maxLength ) ) );
    _buffer.keepHistory( _full && !_password );
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
    const GWStringView text = GWStringView( _varSeen ).substr( 0, GEditBuffer::MAX_TEXT );
    if( text == getText( ) ) return renamed;
    _buffer.setText( text );
    _caretMoved = true;
    return true;
}

void GEditNode::_updateVariable( )
{
    if( _var.empty( ) ) return;
    _varSeen = getText( );
    _instance->set( _var, _varSeen );
}

void GEditNode::calcMinSize( int& width, int& height )
{
    GTemplateNode::calcMinSize( width, height );
    width = std::max( width, _field.getMargin( ) );
    _linesAsked = _getLineCount( );
    height = std::max( height, _linesAsked * _font.getHeight( ) + _field.getMargin( ) );
}

// ---- Changes.

int GEditNode::_change( const std::function<void( )>& call )
{
    const bool wasEmpty = getText( ).empty( );
    call( );
    _caretMoved = true;
    _wantedX = -1;
    _updateVariable( );
    if( wasEmpty && !getText( ).empty( ) ) _executeOnType( );
    if( !wasEmpty && getText( ).empty( ) ) _executeOnClear( );
    return GRESPONSE_RENDER;
}

void GEditNode::setText( const GWString& text )
{
    _change( [&] { _buffer.setText( text ); } );
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

// ---- Input.

int GEditNode::onKeyboardFocusChanged( bool focus )
{
    _focus = focus;
    _dragging = false;
    // What the tab key reaches is replaced by typing; a message that is being written is not.
    if( _full && focus && !_clicked && !_vscroll ) _buffer.select( 0, getText( ).size( ) );
    if( _full && !focus ) _buffer.moveTo( _buffer.getCaret( ), false );
    _clicked = false;
    _caretMoved = true;
    return GRESPONSE_RENDER;
}

// A character beyond the first 65536 comes in two halves; one half alone is no text.
bool GEditNode::_takeUnit( char16_t character, GWString& text )
{
    const char16_t high = _highSurrogate;
    _highSurrogate = isHighSurrogate( character ) ? character : u'\0';
    if( _highSurrogate || isControl( character ) || ( isLowSurrogate( character ) && !high ) ) return false;
    if( isLowSurrogate( character ) ) text += high;
    text += character;
    return true;
}

int GEditNode::onKeyPressed( GWin, char16_t character )
{
    if( _untouchable || character == GKEY_TAB ) return GRESPONSE_NONE;
    if( _full ) return _typeFull( character );
    if( character == GKEY_RETURN )
    {
        // Without a command return is the window's.
        if( _onEnter.empty( ) ) return GRESPONSE_NONE;
        _executeOnEnter( );
        return GRESPONSE_RENDER;
    }
    if( character == GKEY_ESCAPE && _escapeIsTheWindows ) return GRESPONSE_NONE;
    return _change(
        [&]
        {
            GWString typed;
            _buffer.moveTo( getText( ).size( ), false );
            if( character == GKEY_BACKSPACE )
                _removeLast( );
            else if( character == GKEY_ESCAPE )
                _buffer.setText( u"" );
            else if( _takeUnit( character, typed ) )
                _buffer.insert( typed );
        } );
}

void GEditNode::_removeLast( )
{
    const size_t size = getText( ).size( );
    if( !size ) return;
    const bool pair = size > 1 && isLowSurrogate( getText( ).back( ) );
    _buffer.erase( size - ( pair ? 2 : 1 ), size );
}

GWString GEditNode::_filter( GWStringView text ) const
{
    GWString out;
    for( const char16_t character : text )
    {
        if( out.size( ) >= GEditBuffer::MAX_TEXT ) break;
        // A single line has no room for line ends and tabs.
        if( !isControl( character ) || ( _vscroll && character == u'\n' ) ) out += character;
    }
    return out;
}

int GEditNode::onPaste( GWin, const GWString& text )
{
    if( _untouchable ) return GRESPONSE_NONE;
    return _change(
        [&]
        {
            if( !_full ) _buffer.moveTo( getText( ).size( ), false );
            _buffer.insert( _filter( text ) );
        } );
}
