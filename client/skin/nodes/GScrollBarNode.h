// A track with a handle: gives its position in thousandths as an attribute to the nodes below, after and around it, and jumps to
// the end when the list that it follows changes its length. With "$focusable" it is a stop of the tab key, and arrow, page, home and end
// keys move it; while it is disabled it takes no input and shows no handle. With "$varname" it is a slider of a number on the
// blackboard. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "client/skin/nodes/GNodeTools.h"

class GScrollBarNode : public GTemplateNode, public IGInputHandler
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    void calcMinSize( int& width, int& height ) override;

    // 0 to 1, held within. Seen by the other nodes at the next update.
    void setFrac( double frac );
    double getFrac( ) const { return _frac; }
    bool isDisabled( ) const { return _disabled; }

    GWStringView getHint( ) const override { return _hint; }
    bool wantsKeyboardFocus( ) override { return _focusable && !_disabled; }
    int onKeyboardFocusChanged( bool focus ) override;
    int onKeyDown( GWin win, int key ) override;
    int onMouseMove( GWin win, int x, int y ) override;
    int onLButtonDown( GWin win, int x, int y ) override;
    int onLButtonUp( GWin win, int x, int y ) override;
    int onMouseWheel( GWin win, int steps ) override;

protected:
    bool _preChildUpdate( GAttributeStack& stack ) override;
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;
    // True while the left mouse button is down; the platform's answer.
    virtual bool _isButtonDown( ) const;

private:
    void _updateFrac( int x, int y );
    int _moveTo( double frac );
    void _followList( GAttributeStack& stack );
    void _followValue( GAttributeStack& stack );
    void _writeValue( );
    void _draw( GImageStack& images, const GWString& source, const GRect& target, int mode );
    void _publish( );
    GTemplateNode* _findHolder( ) const;

    double _frac = 0;
    GWString _name;
    GWString _hint;
    bool _horiz = false;
    bool _focusable = false;
    bool _disabled = false;
    bool _focus = false;
    bool _clicked = false; // The focus came by a click, which needs no ring to tell where it is.
    bool _held = false;    // By the mouse.
    GWString _handleSrc;
    GWString _backSrc;
    GWString _watchName;
    GWString _watchText;
    int _watchCount = 0; // Items of the text.
    int _watchLength = 0;
    GNotifyHandle _listener = nullptr; // Of the last update.
    bool _changed = false;
    int _trackStart = 0;
    int _trackLength = 0;
    GNodeWatch _watch{ GWATCH_UPDATE };
    // The number that it sets and follows; none without a name.
    struct Value
    {
        GWString name;
        int least = 0;
        int asked = 0; // As the attribute says; 0 when it says nothing.
        int greatest = 0;
        int step = 1;
        int unset = 0;
        bool persist = false;
        int last = 0; // As it was read or written.
        GNodeWatch watch{ GWATCH_UPDATE };
    };
    Value _value;
};
