// Takes a key combination: while it has the focus, keys that are added grow the combination; the first release freezes it until
// all keys are up. With "$editing" at "full" the tab key moves on, escape leaves the field and backspace empties it, each alone; with
// others they are keys of a combination. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "client/skin/nodes/GNodeTools.h"

class GHotkeyNode : public GTemplateNode, public IGInputHandler
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    void calcMinSize( int& width, int& height ) override;
    const GWString& getText( ) const { return _text; }

    GWStringView getHint( ) const override { return _hint; }
    bool wantsKeyboardFocus( ) override { return true; }
    int onKeyboardFocusChanged( bool focus ) override;
    int onKeyDown( GWin win, int key ) override;
    int onKeyUp( GWin win, int key ) override;
    int onKeyPressed( GWin win, char16_t character ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;
    // The keys now held; the platform's answer.
    virtual GWString _getKeysPressed( ) const;

private:
    int _updateHotkey( );
    bool _isAlone( GWStringView keys, int key ) const;
    int _edit( int key );
    void _setText( const GWString& text );

    GWString _text;
    GWString _before; // What stood there before the combination that is being pressed.
    GNodeFont _font;
    GNodeField _field;
    GWString _var;
    GWString _hint;
    GWString _editing;
    bool _full = false; // "$editing" is "full".
    bool _focus = false;
    bool _leaving = false; // Escape went down alone; the character follows.
    bool _frozen = false;
    size_t _keyCount = 0;
};
