#include "client/skin/nodes/GHotkeyNode.h"

#include "client/drawing/GImageStack.h"
#include "platform/GSystem.h"

#include <algorithm>

GAttributeTable GHotkeyNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"var", GAttributeKind::valueName, u"", u"The blackboard value that gets the key combination." },
        { u"font", GAttributeKind::font, u"", u"The text's font." },
        { u"inner", GAttributeKind::number, u"0", u"The margin inside its frame." },
        { u"outer", GAttributeKind::number, u"0", u"The margin outside its frame." },
        { u"framecolor", GAttributeKind::colour, u"#000000FF", u"The frame." },
        { u"focuscolor", GAttributeKind::colour, u"$framecolor", u"The frame while it takes keys." },
        { u"refresh", GAttributeKind::toggle, u"off", u"Reads `var` again at every pass." },
    };
    return ROWS;
}

bool GHotkeyNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = _font.read( stack, u"$font" );
    changed |= _field.read( stack );
    const bool renamed = stack.read( u"$var", _var );
    if( renamed || stack.test( u"$refresh" ) ) changed |= GNodeTools_readValue( _instance, _var, _text ) || renamed;
    return changed;
}

void GHotkeyNode::calcMinSize( int& width, int& height )
{
    GTemplateNode::calcMinSize( width, height );
    width = std::max( width, _field.getMargin( ) );
    height = std::max( height, _font.getHeight( ) + _field.getMargin( ) );
}

bool GHotkeyNode::_preChildRender( GImageStack& images )
{
    images.setInputHandler( this );
    if( _focus ) images.markFocus( );
    const GRect box = _field.draw( images, _focus, _font.getHeight( ) );
    images.pushTarget( box );
    if( !_text.empty( ) ) images.drawText( _text, _font );
    images.pop( );
    return true;
}

int GHotkeyNode::onKeyboardFocusChanged( bool focus )
{
    _focus = focus;
    _frozen = false;
    _keyCount = 0;
    return GRESPONSE_RENDER;
}

int GHotkeyNode::onKeyDown( GWin, int )
{
    return _updateHotkey( );
}

int GHotkeyNode::onKeyUp( GWin, int )
{
    return _updateHotkey( );
}

GWString GHotkeyNode::_getKeysPressed( ) const
{
    return GSystemGetKeysPressed( );
}

int GHotkeyNode::_updateHotkey( )
{
    if( !_focus ) return GRESPONSE_NONE;
    const GWString keys = _getKeysPressed( );
    if( keys.empty( ) )
    {
        _frozen = false;
        _keyCount = 0;
        return GRESPONSE_NONE;
    }
    const size_t count = 1 + static_cast<size_t>( std::count( keys.begin( ), keys.end( ), u'+' ) );
    if( count < _keyCount ) _frozen = true;
    if( _frozen || count == _keyCount ) return GRESPONSE_NONE;
    _keyCount = count;
    _text = keys;
    if( !_var.empty( ) ) _instance->set( _var, _text );
    return GRESPONSE_RENDER;
}
