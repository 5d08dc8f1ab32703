// Takes a key combination: while it has the focus, keys that are added grow the combination; the first release freezes it until
// all keys are up. User-interface thread.
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

    bool wantsKeyboardFocus( ) override { return true; }
    int onKeyboardFocusChanged( bool focus ) override;
    int onKeyDown( GWin win, int key ) override;
    int onKeyUp( GWin win, int key ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;
    // The keys now held; the platform's answer.
    virtual GWString _getKeysPressed( ) const;

private:
    int _updateHotkey( );

    GWString _text;
    GNodeFont _font;
    GNodeField _field;
    GWString _var;
    bool _focus = false;
    bool _frozen = false;
    size_t _keyCount = 0;
};
