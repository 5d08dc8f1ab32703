// What lists and tables are both: rows below each other with a frame, which scroll by wheel and thumb, take the keyboard where the skin
// lets them ("$focusable"), and know which row is under the pointer. Rows look and scroll as GRowView tells. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "client/skin/nodes/GNodeTools.h"
#include "client/skin/nodes/GRowView.h"

class GRowsNode : public GTemplateNode, public IGInputHandler
{
public:
    using GTemplateNode::GTemplateNode;

    bool wantsKeyboardFocus( ) override { return _focusable; }
    int onKeyboardFocusChanged( bool focus ) override;
    int onMouseoverChanged( bool mouseover ) override;
    int onMouseMove( GWin win, int x, int y ) override;
    int onMouseWheel( GWin win, int steps ) override;
    int onLButtonDown( GWin win, int x, int y ) override;
    int onLButtonUp( GWin win, int x, int y ) override;

protected:
    // No row is there.
    static constexpr int NOWHERE = INT32_MIN;

    // The font of the row under the pointer is that of the others where the skin says nothing. `padding` is what stands left and right
    // of texts without "$padding".
    bool _readLooks( GAttributeStack& stack, const GNodeFont& font, int padding );
    // Takes the frame at the beginning of a render; its size, never below 0.
    void _begin( GImageStack& images, int& width, int& height );
    // The row on which the focus is to be marked, -1 for none, once the rows are drawn.
    void _markFocus( GImageStack& images, int row );
    // A click, and the pointer, at that pixel of the layer; of the pointer whether it has come to another row.
    virtual int _clickAt( int y ) = 0;
    virtual bool _pointAt( int y ) = 0;

    GRowView _view;
    GNodeFont _mouseoverFont;
    GWString _frameColour;
    bool _focusable = false;
    bool _focus = false;
    int _originX = 0;
    int _originY = 0;
};
