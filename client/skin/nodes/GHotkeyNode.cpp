#include "client/skin/nodes/GHotkeyNode.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GNodeKeys.h"
#include "client/skin/nodes/GWindowNode.h"
#include "platform/GSystem.h"

#include <algorithm>

GAttributeTable GHotkeyNode::getAttributeTable( )
{
    static constexpr GAttributeRow OWN[] = {
        { u"var", GAttributeKind::valueName, u"", u"The blackboard value that gets the key combination." },
        { u"font", GAttributeKind::font, u"", u"The text's font." },
        { u"inner", GAttributeKind::number, u"0", u"The margin inside its frame." },
        { u"outer", GAttributeKind::number, u"0", u"The margin outside its frame." },
        { u"framecolor", GAttributeKind::colour, u"#000000FF", u"The frame." },
        { u"focuscolor", GAttributeKind::colour, u"$framecolor", u"The frame while it takes keys." },
        { u"refresh", GAttributeKind::toggle, u"off", u"Reads `var` again at every pass." },
        { u"editing", GAttributeKind::text, u"",
          u"`full`: the tab key moves on, escape leaves the field, backspace empties it. Otherwise these are taken as "
          u"any other key." },
    };
    static constexpr auto ROWS = GAttributeRowsJoin( OWN, GHINT_ATTRIBUTES );
    return ROWS;
}

bool GHotkeyNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = _font.read( stack, u"$font" );
    changed |= _field.read( stack );
    changed |= stack.readEach( u"$editing", _editing, u"$hint", _hint );
    _full = GCaseEquals( _editing, u"full" );
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
    // The keys that led here are no part of a combination.
    _frozen = focus && _full && !_getKeysPressed( ).empty( );
    _leaving = false;
    _keyCount = 0;
    return GRESPONSE_RENDER;
}

int GHotkeyNode::onKeyDown( GWin, int key )
{
    if( _full && _focus && _isAlone( _getKeysPressed( ), key ) ) return _edit( key );
    return _updateHotkey( );
}

// Of the keys that edit: whether no other is held. A quick one may be up again by now.
bool GHotkeyNode::_isAlone( GWStringView keys, int key ) const
{
    switch( key )
    {
    case GKEY_TAB: return keys.empty( ) || keys == u"TAB" || keys == u"SHIFT+TAB";
    case GKEY_ESCAPE: return keys.empty( ) || keys == u"ESCAPE";
    case GKEY_BACKSPACE: return keys.empty( ) || keys == u"BACKSPACE";
    default: return false;
    }
}

int GHotkeyNode::_edit( int key )
{
    if( key == GKEY_TAB )
    {
        // Shift came first and was taken for the beginning of a combination.
        if( _keyCount ) _setText( GWString( _before ) );
        return GRESPONSE_NONE;
    }
    _leaving = key == GKEY_ESCAPE;
    if( key == GKEY_BACKSPACE ) _setText( GWString( ) );
    _frozen = true;
    return GRESPONSE_RENDER;
}

// Nothing that is typed here is for the window.
int GHotkeyNode::onKeyPressed( GWin, char16_t character )
{
    if( !_full || !_focus ) return GRESPONSE_NONE;
    if( character != GKEY_ESCAPE || !_leaving ) return GRESPONSE_RENDER;
    for( GTemplateNode* at = _parent; at; at = at->getParent( ) )
        if( auto* window = dynamic_cast<GWindowNode*>( at ) ) window->leave( this );
    _leaving = false;
    return GRESPONSE_RENDER;
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
    if( !_keyCount ) _before = _text;
    _keyCount = count;
    _setText( keys );
    return GRESPONSE_RENDER;
}

void GHotkeyNode::_setText( const GWString& text )
{
    _text = text;
    if( !_var.empty( ) ) _instance->set( _var, _text );
}
