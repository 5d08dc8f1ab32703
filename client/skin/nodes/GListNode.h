// A list of texts with one selected, taken from the skin or from a blackboard list; the selection is bound to a blackboard value.
// Beside the rows' texts: "$labels" shows other texts for them in the same order, "$marksrc" puts a picture in front of each (a sheet
// whose second column is for the selected row), "$iconsrc" one of its own for each (a column for each row, the second line of the
// sheet for the selected one). Rows look and scroll as GRowView tells. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "client/skin/nodes/GNodeTools.h"
#include "client/skin/nodes/GRowView.h"

class GListNode : public GTemplateNode, public IGInputHandler
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    void calcMinSize( int& width, int& height ) override;
    const GWString& getSelection( ) const { return _selection; }

    bool wantsKeyboardFocus( ) override { return _focusable; }
    int onKeyboardFocusChanged( bool focus ) override;
    int onMouseoverChanged( bool mouseover ) override;
    int onKeyDown( GWin win, int key ) override;
    int onMouseMove( GWin win, int x, int y ) override;
    int onLButtonDown( GWin win, int x, int y ) override;
    int onLButtonUp( GWin win, int x, int y ) override;
    int onMouseWheel( GWin win, int steps ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    bool _readRows( GAttributeStack& stack );
    bool _readSelection( GAttributeStack& stack );
    bool _readLooks( GAttributeStack& stack );
    int _getSelectedRow( ) const;
    // Tells the view of the rows.
    void _setRows( );
    void _drawRow( GImageStack& images, int row, const GRect& rect );
    // Draws a picture of the sheet in the middle of the row's height; how much room it took.
    int _drawPicture( GImageStack& images, const GWString& source, int column, bool selected, const GRect& rect );
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
    GWString _labelText;
    GWString _markSrc;
    GWString _iconSrc;
    bool _persist = false;
    bool _focusable = false;
    bool _focus = false;
    GStringVector _rows;
    GStringVector _labels;
    GRowView _view;
    GWString _selection;
    int _mouseoverRow = -1;
    int _originX = 0;
    int _originY = 0;
    GNodeWatch _listWatch{ GWATCH_UPDATE };
    GNodeWatch _varWatch{ GWATCH_UPDATE };
};
