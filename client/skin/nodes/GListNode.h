// A list of texts with one selected, taken from the skin or from a blackboard list; the selection is bound to a blackboard value.
// User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "client/skin/nodes/GNodeTools.h"

class GListNode : public GTemplateNode, public IGInputHandler
{
public:
    using GTemplateNode::GTemplateNode;
    void calcMinSize( int& width, int& height ) override;
    const GWString& getSelection( ) const { return _selection; }

    bool wantsKeyboardFocus( ) override { return _focusable; }
    int onKeyboardFocusChanged( bool focus ) override;
    int onMouseoverChanged( bool mouseover ) override;
    int onKeyDown( GWin win, int key ) override;
    int onMouseMove( GWin win, int x, int y ) override;
    int onLButtonDown( GWin win, int x, int y ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    bool _readRows( GAttributeStack& stack );
    bool _readSelection( GAttributeStack& stack );
    // -1 outside the rows.
    int _getRow( int y );
    int _select( int row );

    GNodeFont _font;
    GNodeFont _mouseoverFont;
    GWString _onSelect;
    GWString _list;
    GWString _listName;
    GWString _listText; // The text the rows were split from.
    GWString _varName;
    GWString _varText;
    GWString _selectAttribute;
    GWString _frameColour;
    bool _persist = false;
    bool _focusable = false;
    GStringVector _rows;
    GWString _selection;
    int _mouseoverRow = -1;
    int _originX = 0;
    int _originY = 0;
    GNodeWatch _listWatch{ GWATCH_UPDATE };
    GNodeWatch _varWatch{ GWATCH_UPDATE };
};
