#include "client/skin/nodes/GEditBuffer.h"

#include <algorithm>

namespace
{
bool isHighSurrogate( char16_t unit )
{
    return unit >= 0xD800 && unit < 0xDC00;
}
} // namespace

// How many units of the text fit; a pair stays whole.
size_t GEditBuffer::_fit( GWStringView text, size_t room ) const
{
    if( text.size( ) <= room ) return text.size( );
    return room > 0 && isHighSurrogate( text[room - 1] ) ? room - 1 : room;
}

void GEditBuffer::setLimit( size_t units )
{
    _limit = units ? std::min( units, MAX_TEXT ) : MAX_TEXT;
}

void GEditBuffer::keepHistory( bool keep )
{
    _keepsHistory = keep;
    if( keep ) return;
    _undo.clear( );
    _redo.clear( );
}

void GEditBuffer::setText( GWStringView text )
{
    // A value that is bound may be longer than what may be typed.
    _text = text.substr( 0, _fit( text, MAX_TEXT ) );
    _caret = _anchor = _text.size( );
    _last = NOTHING;
    _undo.clear( );
    _redo.clear( );
}

void GEditBuffer::_remember( Change change )
{
    _redo.clear( );
    if( !_keepsHistory ) return;
    const bool same = change == _last && change != OTHER && !hasSelection( );
    _last = change;
    if( same && !_undo.empty( ) ) return;
    _undo.push_back( { _text, _caret, _anchor } );
    size_t kept = 0;
    for( const State& state : _undo ) kept += state.text.size( );
    while( _undo.size( ) > 1 && ( kept > MAX_KEPT || _undo.size( ) > MAX_STATES ) )
    {
        kept -= _undo.front( ).text.size( );
        _undo.erase( _undo.begin( ) );
    }
}

void GEditBuffer::insert( GWStringView text )
{
    const size_t selected = getEnd( ) - getBegin( );
    const size_t taken = _text.size( ) - selected;
    const size_t count = _fit( text, taken < _limit ? _limit - taken : 0 );
    if( !count && !selected ) return;
    _remember( text.size( ) > 2 || text == u" " || text == u"\n" ? OTHER : TYPING );
    const size_t begin = getBegin( );
    _text.replace( begin, selected, text.data( ), count );
    _caret = _anchor = begin + count;
}

bool GEditBuffer::erase( size_t begin, size_t end )
{
    end = std::min( end, _text.size( ) );
    if( begin >= end ) return false;
    _remember( end - begin == 1 ? ERASING : OTHER );
    _text.erase( begin, end - begin );
    _caret = _anchor = begin;
    return true;
}

void GEditBuffer::moveTo( size_t index, bool extend )
{
    _caret = std::min( index, _text.size( ) );
    if( !extend ) _anchor = _caret;
    _last = NOTHING;
}

void GEditBuffer::select( size_t begin, size_t end )
{
    _anchor = std::min( begin, _text.size( ) );
    moveTo( end, true );
}

bool GEditBuffer::_exchange( std::vector<State>& from, std::vector<State>& to )
{
    if( from.empty( ) ) return false;
    to.push_back( { std::move( _text ), _caret, _anchor } );
    _text = std::move( from.back( ).text );
    _caret = from.back( ).caret;
    _anchor = from.back( ).anchor;
    from.pop_back( );
    _last = NOTHING;
    return true;
}

bool GEditBuffer::undo( )
{
    return _exchange( _undo, _redo );
}

bool GEditBuffer::redo( )
{
    return _exchange( _redo, _undo );
}
