// A table of blackboard values: a row for each key of a list, a column for each suffix; a cell shows the value named by key and
// suffix. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "client/skin/nodes/GNodeTools.h"

class GTableNode : public GTemplateNode, public IGInputHandler
{
public:
    using GTemplateNode::GTemplateNode;
    void calcMinSize( int& width, int& height ) override;
    // The key of the selected row.
    const GWString& getSelection( ) const { return _selection; }

    int onMouseoverChanged( bool mouseover ) override;
    int onMouseMove( GWin win, int x, int y ) override;
    int onLButtonDown( GWin win, int x, int y ) override;
    int onLButtonDblClk( GWin win, int x, int y ) override;
    int onRButtonDown( GWin win, int x, int y ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    bool _readKeys( GAttributeStack& stack );
    void _watchCells( GNotifyHandle listener );
    int _getRowHeight( );
    // The key of the row at `y` in layer coordinates; empty outside the rows.
    GWString _getPrefix( int y );
    void _drawTitles( GImageStack& images, int width );
    static void _drawCell( GImageStack& images, const GWString& text, GNodeFont& font, const GRect& cell );
    void _drawRow( GImageStack& images, const GWString& key, int top, int width );
    GRect _getCell( int column, int columns, int top, int width );

    GWString _prefixListSrc;
    GWString _suffixText;
    GWString _titleText;
    GWString _keyText;
    GWString _onRightClick;
    GWString _onDblClk;
    GWString _frameColour;
    GNodeFont _cellFont;
    GNodeFont _headerFont;
    GNodeFont _mouseoverFont;
    GStringVector _keys;
    GStringVector _suffixes;
    GStringVector _titles;
    GWString _selection;
    GWString _mouseoverKey;
    int _originY = 0;
    GWString _cellName; // Of the cell being drawn; kept for their capacity.
    GWString _cellText;
    GNodeWatch _keyWatch{ GWATCH_UPDATE };
    GNodeWatchList _cellWatches{ GWATCH_RENDER };
};
