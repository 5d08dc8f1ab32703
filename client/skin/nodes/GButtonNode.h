// A push button with a sprite sheet of three columns (normal, under the pointer, disabled) and two rows (plain, latched), a
// caption, and commands for press, release and double click. Type "push" latches. With "$focusable" it is a stop of the tab key,
// and space and return press it. "$slice" draws the sheet's cells as nine pieces over the whole frame; with "$pressed" the sheet has a
// fourth column, for the time that the button is held down. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "client/skin/nodes/GNodeTools.h"

class GButtonNode : public GTemplateNode, public IGInputHandler
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    void calcMinSize( int& width, int& height ) override;
    bool isDisabled( ) const { return _disabled; }
    bool isLatched( ) const { return _latched; }

    GWStringView getHint( ) const override { return _hint; }
    bool wantsKeyboardFocus( ) override { return _focusable && !_disabled; }
    int onKeyboardFocusChanged( bool focus ) override;
    int onMouseoverChanged( bool mouseover ) override;
    int onKeyUp( GWin win, int key ) override;
    int onKeyPressed( GWin win, char16_t character ) override;
    int onLButtonDown( GWin win, int x, int y ) override;
    int onLButtonUp( GWin win, int x, int y ) override;
    int onLButtonDblClk( GWin win, int x, int y ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;
    void _postChildRender( GImageStack& images ) override;

private:
    bool _isPush( ) const;
    int _press( );
    int _release( );
    int _getColumn( ) const;
    void _drawPicture( GImageStack& images );
    void _drawCaption( GImageStack& images );

    GWString _command;
    GWString _downCommand;
    GWString _upCommand;
    GWString _dblClkCommand;
    bool _disabled = false;
    bool _focusable = false;
    GWString _type;
    GWString _text;
    GWString _hint;
    GNodeFont _font;
    GNodeFont _mouseoverFont;
    GNodeFont _disabledFont;
    GWString _src;
    GWString _focusColour;
    int _slice = 0;
    bool _hasPressed = false;
    bool _mouseover = false;
    bool _down = false;
    bool _focus = false;
    bool _clicked = false; // The focus came by a click, which needs no ring to tell where it is.
    bool _keyHeld = false;
    bool _latched = false;
};
