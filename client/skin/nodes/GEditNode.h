// A text field of one or several lines, bound to a blackboard value: typing writes it, a change of it shows. Text is taken at the
// end. User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "client/skin/nodes/GNodeTools.h"

class GEditNode : public GTemplateNode, public IGInputHandler
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    void calcMinSize( int& width, int& height ) override;

    const GWString& getText( ) const { return _text; }
    // Writes the bound value as well, and runs what emptying or filling the text runs.
    void setText( const GWString& text );

    bool wantsKeyboardFocus( ) override { return true; }
    int onKeyboardFocusChanged( bool focus ) override;
    int onKeyPressed( GWin win, char16_t character ) override;
    int onPaste( GWin win, const GWString& text ) override;
    int onLButtonDown( GWin win, int x, int y ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    bool _readVariable( GAttributeStack& stack );
    void _updateVariable( );
    void _executeOnEnter( );
    void _executeOnType( );
    void _executeOnClear( );
    static void _removeLast( GWString& text );
    void _drawText( GImageStack& images, const GRect& box );

    GWString _text;
    GNodeFont _font;
    GNodeFont _emptyFont;
    GWString _emptyText;
    GNodeField _field;
    GWString _onEnter;
    GWString _onType;
    GWString _onClear;
    bool _password = false;
    bool _vscroll = false;
    bool _untouchable = false;
    GWString _var;
    GWString _varSeen; // What the bound value held when it was last read or written.
    bool _focus = false;
    GNodeWatch _watch{ GWATCH_UPDATE };
};
