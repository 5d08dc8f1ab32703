// The text of a field with its caret, selection and history. Knows nothing of pixels. User-interface thread.
#pragma once

#include "base/GTypes.h"

#include <vector>

class GEditBuffer
{
public:
    // More than anyone types, in units; what comes in above the limit is cut, never within a surrogate pair.
    static constexpr size_t MAX_TEXT = 32768;

    const GWString& getText( ) const { return _text; }
    size_t getCaret( ) const { return _caret; }
    bool hasSelection( ) const { return _caret != _anchor; }
    size_t getBegin( ) const { return _caret < _anchor ? _caret : _anchor; }
    size_t getEnd( ) const { return _caret < _anchor ? _anchor : _caret; }
    GWString getSelection( ) const { return _text.substr( getBegin( ), getEnd( ) - getBegin( ) ); }

    // 0 for MAX_TEXT.
    void setLimit( size_t units );
    // Without it, as at first, nothing can be undone and no former text is kept.
    void keepHistory( bool keep );
    // Another text from outside: the caret goes to its end and the history is forgotten.
    void setText( GWStringView text );
    // In the place of the selection; the caret stands behind it.
    void insert( GWStringView text );
    // True when anything went.
    bool erase( size_t begin, size_t end );
    bool eraseSelection( ) { return erase( getBegin( ), getEnd( ) ); }
    // Without `extend` nothing is selected afterwards.
    void moveTo( size_t index, bool extend );
    void select( size_t begin, size_t end );
    bool undo( );
    bool redo( );

private:
    struct State
    {
        GWString text;
        size_t caret;
        size_t anchor;
    };
    enum Change
    {
        NOTHING,
        TYPING,
        ERASING,
        OTHER
    };
    static constexpr size_t MAX_STATES = 100;
    static constexpr size_t MAX_KEPT = 1u << 19u; // Units of all states together.

    void _remember( Change change );
    bool _exchange( std::vector<State>& from, std::vector<State>& to );
    size_t _fit( GWStringView text, size_t room ) const;

    GWString _text;
    size_t _caret = 0;
    size_t _anchor = 0;
    size_t _limit = MAX_TEXT;
    bool _keepsHistory = false;
    Change _last = NOTHING; // What came last; typing in a row is one step back.
    std::vector<State> _undo;
    std::vector<State> _redo;
};
