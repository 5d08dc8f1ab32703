// A table of blackboard values: a row for each key of a list, a column for each suffix; a cell shows the value named by key and
// suffix. Beside that, each by an attribute of its own: "$prefixlistsrc" may name several lists, whose rows stand below the headings
// "$groups"; "$columns" are shares of the width; the column "$barsuffix" draws the percentage that its text begins with; the column
// "$keysuffix" shows the key where it has no value; "$varname" is bound to the selection; "$emptytext" in "$emptyfont" stands for no
// rows; "$focusable" gives it the keyboard. Rows look and scroll as GRowView tells. User-interface thread.
#pragma once

#include "client/skin/nodes/GRowsNode.h"

class GTableNode : public GRowsNode
{
public:
    using GRowsNode::GRowsNode;
    static GAttributeTable getAttributeTable( );
    void calcMinSize( int& width, int& height ) override;
    void collectDamage( GSkinDamage& damage ) const override;
    // The key of the selected row.
    const GWString& getSelection( ) const { return _selection; }

    int onKeyDown( GWin win, int key ) override;
    int onKeyPressed( GWin win, char16_t character ) override;
    int onLButtonDblClk( GWin win, int x, int y ) override;
    int onRButtonDown( GWin win, int x, int y ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;
    int _clickAt( int y ) override;
    bool _pointAt( int y ) override;

private:
    // One line below the titles: a row of values, or the heading of a group.
    struct Line
    {
        GWString text; // The key, or the heading.
        bool heading = false;
    };
    // The progress of a row, drawn below its text.
    struct Bar
    {
        GWString suffix;
        GWString colour;
        GWString ground;
        int height = 0;
    };

    bool _readTexts( GAttributeStack& stack );
    bool _readBar( GAttributeStack& stack );
    bool _readKeys( GAttributeStack& stack );
    bool _readLists( );
    bool _readSelection( GAttributeStack& stack );
    void _addLines( const GStringList& keys, const GWString& heading );
    void _watchCells( GNotifyHandle listener );
    int _getRowHeight( );
    // Tells the view of the rows; how much room the titles take.
    int _setRows( );
    // The line of that key, -1 when there is none.
    int _findLine( const GWString& key ) const;
    // The key of the row at `y` in layer coordinates; empty outside the rows and on a heading.
    GWString _getPrefix( int y );
    void _select( const GWString& key );
    void _drawTitles( GImageStack& images, int width );
    void _drawEmpty( GImageStack& images, int width, int height );
    void _drawLine( GImageStack& images, const Line& line, const GRect& rect );
    void _drawCells( GImageStack& images, const GWString& key, GNodeFont& font, const GRect& rect );
    void _drawBar( GImageStack& images, const GRect& cell );
    GRect _getCell( int column, int columns, const GRect& row ) const;

    GWString _prefixListSrc;
    GWString _suffixText;
    GWString _titleText;
    GWString _columnText;
    GWString _groupText;
    GStringList _keyTexts; // The lists as they were read, one for each name.
    GWString _onRightClick;
    GWString _onDblClk;
    GWString _emptyText;
    GWString _varName;
    GWString _varText;
    GWString _keySuffix;
    Bar _bar;
    GNodeFont _cellFont;
    GNodeFont _headerFont;
    GNodeFont _emptyFont;
    std::vector<Line> _lines;
    GStringVector _listNames;
    GStringVector _groups;
    GStringVector _suffixes;
    GStringVector _titles;
    std::vector<int> _columns;
    GWString _selection;
    GWString _mouseoverKey;
    GWString _cellName; // Of the cell being drawn; kept for their capacity.
    GWString _cellText;
    GNodeWatchList _keyWatches{ GWATCH_UPDATE };
    GNodeWatch _varWatch{ GWATCH_UPDATE };
    GNodeWatchList _cellWatches{ GWATCH_RENDER };
};
