#include "client/skin/nodes/GButtonNode.h"

#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"
#include "client/skin/nodes/GNodeKeys.h"

#include <algorithm>

namespace
{
constexpr int COLUMN_MOUSEOVER = 1;
constexpr int COLUMN_DISABLED = 2;
constexpr int COLUMN_PRESSED = 3;
} // namespace

GAttributeTable GButtonNode::getAttributeTable( )
{
    static constexpr GAttributeRow OWN[] = {
        { u"command", GAttributeKind::command, u"", u"Runs on release; not for the type `push`." },
        { u"downcommand", GAttributeKind::command, u"", u"Runs on the press; for the type `push` when it latches." },
        { u"upcommand", GAttributeKind::command, u"",
          u"Runs on release, after `command`; for the type `push` when it unlatches." },
        { u"dblclkcommand", GAttributeKind::command, u"", u"Runs on a double click." },
        { u"disabled", GAttributeKind::toggle, u"off", u"Shows the disabled state and ignores the mouse." },
        { u"type", GAttributeKind::choice, u"", u"`push` latches: each click flips it." },
        { u"text", GAttributeKind::text, u"", u"The caption, in the middle of the height." },
        { u"font", GAttributeKind::font, u"", u"The caption's font." },
        { u"mouseoverfont", GAttributeKind::font, u"$font", u"The caption's font under the pointer." },
        { u"src", GAttributeKind::image, u"",
          u"A sheet of states: its part is the plain one; to its right stand \"under the pointer\" and \"disabled\", "
          u"below these the latched ones." },
        { u"slice", GAttributeKind::number, u"0",
          u"Draws the state in nine pieces over the whole frame: corners of that many pixels keep their size." },
        { u"pressed", GAttributeKind::toggle, u"off",
          u"The sheet has a fourth column, for the time that the button is held down." },
        { u"disabledfont", GAttributeKind::font, u"$font", u"The caption's font while it is disabled." },
        { u"focusable", GAttributeKind::toggle, u"off", u"The tab key stops here, and space and return press it." },
        { u"focuscolor", GAttributeKind::colour, u"#000000FF", u"The frame while it has the keyboard." },
    };
    static constexpr auto ROWS = GAttributeRowsJoin( OWN, GHINT_ATTRIBUTES );
    return ROWS;
}

bool GButtonNode::_isPush( ) const
{
    return GCaseEquals( _type, u"push" );
}

bool GButtonNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = stack.readEach( u"$command", _command, u"$downcommand", _downCommand, u"$upcommand", _upCommand,
                                   u"$dblclkcommand", _dblClkCommand );
    changed |= stack.readEach( u"$disabled", _disabled, u"$focusable", _focusable, u"$type", _type );
    changed |= stack.readEach( u"$text", _text, u"$hint", _hint );
    changed |= _font.read( stack, u"$font" );
    changed |= _mouseoverFont.read( stack, u"$mouseoverfont", _font );
    changed |= _disabledFont.read( stack, u"$disabledfont", _font );
    changed |= stack.readEach( u"$src", _src, u"$slice", _slice, u"$pressed", _hasPressed );
    changed |= GNodeTools_readOr( stack, u"$focuscolor", u"#000000FF", _focusColour );
    return changed;
}

void GButtonNode::calcMinSize( int& width, int& height )
{
    GTemplateNode::calcMinSize( width, height );
    GImageFormat format;
    GRect rect;
    if( !_src.empty( ) && GImageTools_instanceReadCheck( _instance, _src, format, rect ) )
    {
        width = std::max( width, rect.width( ) );
        height = std::max( height, rect.height( ) );
    }
    if( !_text.empty( ) ) height = std::max( height, _font.getHeight( ) );
}

// ---- Drawing.

bool GButtonNode::_preChildRender( GImageStack& images )
{
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    GImageFormat format;
    GRect rect;
    if( _slice <= 0 && !_src.empty( ) && GImageTools_instanceReadCheck( _instance, _src, format, rect ) )
    {
        width = std::min( width, rect.width( ) );
        height = std::min( height, rect.height( ) );
    }
    images.pushTarget( { 0, 0, std::max( 0, width ), std::max( 0, height ) } );
    images.setInputHandler( this );
    _drawPicture( images );
    _drawCaption( images );
    if( !_focus || !_focusable ) return true;
    // One that is all transparent leaves the picture whole.
    if( const uint32_t colour = GColorFromText( _focusColour ); colour >> 24 )
        images.drawRect( { 0, 0, std::max( 0, width ), std::max( 0, height ) }, colour );
    if( !_clicked ) images.markFocus( );
    return true;
}

int GButtonNode::_getColumn( ) const
{
    if( _disabled ) return COLUMN_DISABLED;
    if( _down && _hasPressed ) return COLUMN_PRESSED;
    return _mouseover ? COLUMN_MOUSEOVER : 0;
}

void GButtonNode::_drawPicture( GImageStack& images )
{
    if( _src.empty( ) ) return;
    GImageFormat format;
    GRect rect;
    const char* pixels = GImageTools_instanceReadOpen( _instance, _src, format, rect, _getColumn( ), _latched );
    if( !pixels ) return;
    if( GRectEmpty( rect ) )
    {
        // A picture without that state shows its first one.
        GImageTools_instanceReadClose( _instance, _src );
        pixels = GImageTools_instanceReadOpen( _instance, _src, format, rect );
        if( !pixels ) return;
    }
    if( _slice > 0 )
    {
        int width = 0;
        int height = 0;
        images.getDimensions( width, height );
        GNodeTools_drawSliced( images, format, pixels, rect, { 0, 0, width, height }, _slice );
    }
    else
        images.drawBitmap( format, pixels, rect, 0 );
    GImageTools_instanceReadClose( _instance, _src );
}

void GButtonNode::_drawCaption( GImageStack& images )
{
    if( _text.empty( ) ) return;
    GNodeFont& font = _disabled ? _disabledFont : _mouseover ? _mouseoverFont : _font;
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    const int top = ( height - font.getHeight( ) ) / 2;
    images.drawText( _text, font, { 0, top, std::max( 0, width ), std::max( top, height ) } );
}

void GButtonNode::_postChildRender( GImageStack& images )
{
    images.pop( );
}

// ---- Input.

int GButtonNode::_press( )
{
    if( !_isPush( ) ) GNodeTools_execute( this, _downCommand );
    return GRESPONSE_NONE;
}

int GButtonNode::_release( )
{
    if( _isPush( ) )
    {
        _latched = !_latched;
        GNodeTools_execute( this, _latched ? _downCommand : _upCommand );
        return GRESPONSE_RENDER;
    }
    // Taken before the first command runs: it may change what this button is.
    const GWString up = _upCommand;
    GNodeTools_execute( this, _command );
    GNodeTools_execute( this, up );
    return GRESPONSE_NONE;
}

int GButtonNode::onLButtonDown( GWin, int, int )
{
    if( _disabled ) return GRESPONSE_NONE;
    _down = true;
    _clicked = true;
    // The release belongs to this button wherever the pointer is by then.
    return _press( ) | GRESPONSE_CAPTURE | ( _hasPressed ? GRESPONSE_RENDER : 0 );
}

int GButtonNode::onLButtonUp( GWin, int, int )
{
    _down = false;
    // A button that was disabled while it was down still lets go of the mouse.
    return ( _disabled ? GRESPONSE_NONE : _release( ) ) | GRESPONSE_RELEASE | ( _hasPressed ? GRESPONSE_RENDER : 0 );
}

int GButtonNode::onLButtonDblClk( GWin, int, int )
{
    if( !_disabled ) GNodeTools_execute( this, _dblClkCommand );
    return GRESPONSE_NONE;
}

int GButtonNode::onMouseoverChanged( bool mouseover )
{
    _mouseover = mouseover;
    return GRESPONSE_RENDER;
}

int GButtonNode::onKeyboardFocusChanged( bool focus )
{
    _focus = focus;
    _keyHeld = false;
    _clicked &= focus && _down;
    return _focusable ? GRESPONSE_RENDER : GRESPONSE_NONE;
}

int GButtonNode::onKeyUp( GWin, int key )
{
    if( key == GKEY_SPACE || key == GKEY_RETURN ) _keyHeld = false;
    return GRESPONSE_NONE;
}

int GButtonNode::onKeyPressed( GWin, char16_t character )
{
    if( !_focusable || _disabled || ( character != u' ' && character != u'\r' ) ) return GRESPONSE_NONE;
    _clicked = false;
    // A key that is held repeats; it is one press.
    if( _keyHeld ) return GRESPONSE_RENDER;
    _keyHeld = true;
    return _press( ) | _release( ) | GRESPONSE_RENDER;
}
