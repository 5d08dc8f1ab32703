// A list of texts with one selected, taken from the skin or from a blackboard list; the selection is bound to a blackboard value.
// Beside the rows' texts: "$labels" shows other texts for them in the same order, "$marksrc" puts a picture in front of each (a sheet
// whose second column is for the selected row), "$iconsrc" one of its own for each (a column for each row, the second line of the
// sheet for the selected one). Rows look and scroll as GRowView tells. User-interface thread.
#pragma once

#include "client/skin/nodes/GRowsNode.h"

class GListNode : public GRowsNode
{
public:
    using GRowsNode::GRowsNode;
    static GAttributeTable getAttributeTable( );
    void calcMinSize( int& width, int& height ) override;
    const GWString& getSelection( ) const { return _selection; }

    int onKeyDown( GWin win, int key ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;
    int _clickAt( int y ) override;
    bool _pointAt( int y ) override;

private:
    bool _readRows( GAttributeStack& stack );
    bool _readSelection( GAttributeStack& stack );
    bool _readPictures( GAttributeStack& stack );
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
    GWString _onSelect;
    GWString _list;
    GWString _listName;
    GWString _listText; // The text the rows were split from.
    GWString _varName;
    GWString _varText;
    GWString _selectAttribute;
    GWString _labelText;
    GWString _markSrc;
    GWString _iconSrc;
    bool _persist = false;
    GStringVector _rows;
    GStringVector _labels;
    GWString _selection;
    int _mouseoverRow = -1;
    GNodeWatch _listWatch{ GWATCH_UPDATE };
    GNodeWatch _varWatch{ GWATCH_UPDATE };
};
