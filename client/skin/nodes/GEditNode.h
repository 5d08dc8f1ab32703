// A text field of one or several lines, bound to a blackboard value: typing writes it, a change of it shows. By itself text is taken
// at the end; with "$editing" at "full" it has a caret, a selection, the clipboard and a history, and grows to "$growlines" lines.
// User-interface thread.
#pragma once

#include "client/drawing/GTextBox.h"
#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "client/skin/nodes/GEditBuffer.h"
#include "client/skin/nodes/GNodeTools.h"

#include <functional>

class GEditNode : public GTemplateNode, public IGInputHandler
{
public:
    using GTemplateNode::GTemplateNode;
    static GAttributeTable getAttributeTable( );
    void calcMinSize( int& width, int& height ) override;
    void collectDamage( GSkinDamage& damage ) const override;

    const GWString& getText( ) const { return _buffer.getText( ); }
    // Writes the bound value as well, and runs what emptying or filling the text runs.
    void setText( const GWString& text );
    const GEditBuffer& getBuffer( ) const { return _buffer; }
    // Runs what the return key runs.
    void submit( ) { _executeOnEnter( ); }

    bool isUntouchable( ) const { return _untouchable; }
    GWStringView getHint( ) const override { return _hint; }
    bool wantsKeyboardFocus( ) override { return true; }
    int onKeyboardFocusChanged( bool focus ) override;
    int onKeyDown( GWin win, int key ) override;
    int onKeyPressed( GWin win, char16_t character ) override;
    int onPaste( GWin win, const GWString& text ) override;
    int onMouseMove( GWin win, int x, int y ) override;
    int onLButtonDown( GWin win, int x, int y ) override;
    int onLButtonUp( GWin win, int x, int y ) override;
    int onLButtonDblClk( GWin win, int x, int y ) override;
    int onMouseWheel( GWin win, int steps ) override;

protected:
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;

private:
    bool _readVariable( GAttributeStack& stack );
    void _updateVariable( );
    void _executeOnEnter( );
    void _executeOnType( );
    void _executeOnClear( );
    GWString _filter( GWStringView text ) const;
    bool _takeUnit( char16_t character, GWString& text );
    void _removeLast( );
    // Runs `call`, which changes the buffer, and tells of it.
    int _change( const std::function<void( )>& call );

    // Drawing.
    void _drawText( GImageStack& images, const GRect& box );
    void _drawFull( GImageStack& images, const GRect& box );
    void _drawSelection( GImageStack& images, GTextLayout layout );
    void _scrollToCaret( GTextLayout layout, const GRect& box );
    const GWString& _getShown( );
    GTextLayout _layOut( );
    int _getLineCount( );

    // Input with "$editing" at "full".
    int _typeFull( char16_t character );
    int _onControl( char16_t character );
    bool _onMoveKey( int key, size_t& target );
    size_t _moveLines( int lines );
    size_t _step( size_t from, GTextStep step );
    size_t _hit( int x, int y );
    int _eraseBack( bool word );
    int _copy( bool cut );

    GEditBuffer _buffer;
    char16_t _highSurrogate = 0; // The first half of a pair that is being typed.
    GNodeFont _font;
    GNodeFont _emptyFont;
    GWString _emptyText;
    GNodeField _field;
    GWString _onEnter;
    GWString _onType;
    GWString _onClear;
    bool _password = false;
    bool _vscroll = false;
    GWString _hint;
    bool _untouchable = false;
    GWString _var;
    GWString _varSeen; // What the bound value held when it was last read or written.
    bool _focus = false;
    GNodeWatch _watch{ GWATCH_UPDATE };

    GWString _editing;
    bool _full = false;
    bool _escapeIsTheWindows = false; // "$onescape" is set around the field.
    int _growLines = 0;
    int _maxLength = 0;
    GWString _selectionColour;
    GNotifyHandle _listener = nullptr;
    GTextBox _box;
    GWString _stars;
    GRect _place;        // Of the text on the layer, as it was drawn last.
    int _linesAsked = 1; // What the least height last allowed for.
    int _linesTold = 1;  // What a repaint was asked for.
    int _scrollX = 0;
    int _scrollY = 0;
    int _wantedX = -1;       // Where the caret wants to be when it moves between lines; -1 for where it is.
    bool _caretMoved = true; // It is brought into view by the next drawing.
    bool _dragging = false;
    bool _clicked = false; // The focus that comes was given by the mouse.
    std::vector<GRect> _spans;
};
