#include "client/skin/nodes/GNodeScroll.h"

#include "client/drawing/GImageStack.h"

#include <algorithm>

namespace
{
constexpr int DEFAULT_WIDTH = 6;
constexpr int LEAST_THUMB = 24;
constexpr int LINES_A_STEP = 3;
} // namespace

bool GNodeScroll::read( GAttributeStack& stack )
{
    bool changed = stack.read( u"$thumbcolor", _colour );
    const int width = stack.calc( u"$thumbwidth" );
    const int held = width > 0 ? std::min( width, 100 ) : DEFAULT_WIDTH;
    changed |= held != _thumbWidth;
    _thumbWidth = held;
    return changed;
}

void GNodeScroll::layout( int content, int top, int width, int height )
{
    _content = std::max( 0, content );
    _top = top;
    _width = width;
    _height = std::max( 0, height );
    scrollTo( _offset );
}

bool GNodeScroll::scrollTo( int offset )
{
    const int held = isOn( ) ? std::clamp( offset, 0, std::max( 0, _content - _height ) ) : 0;
    if( held == _offset ) return false;
    _offset = held;
    return true;
}

bool GNodeScroll::show( int top, int bottom )
{
    const int lower = std::max( _offset, bottom - _height );
    return scrollTo( std::min( lower, top ) );
}

bool GNodeScroll::turn( int steps, int line )
{
    return scrollTo( _offset - std::clamp( steps, -100, 100 ) * LINES_A_STEP * std::clamp( line, 1, 1000 ) );
}

// ---- The thumb.

GRect GNodeScroll::_getThumb( ) const
{
    const auto part = [this]( int64_t of, int64_t whole )
    { return static_cast<int>( of * _height / std::max<int64_t>( whole, 1 ) ); };
    const int length = std::clamp( part( _height, _content ), std::min( LEAST_THUMB, _height ), _height );
    const int room = _height - length;
    const int range = std::max( 1, _content - _height );
    const int from = _top + static_cast<int>( static_cast<int64_t>( room ) * _offset / range );
    return { _width - _thumbWidth, from, _width, from + length };
}

bool GNodeScroll::press( int x, int y )
{
    if( !isNeeded( ) || x < _width - getWidth( ) || x >= _width || y < _top ) return false;
    const GRect thumb = _getThumb( );
    _held = true;
    // Beside the thumb its middle comes to the pointer.
    _grip = thumb.contains( thumb.left, y ) ? y - thumb.top : thumb.height( ) / 2;
    drag( y );
    return true;
}

bool GNodeScroll::drag( int y )
{
    if( !_held ) return false;
    const int room = _height - _getThumb( ).height( );
    if( room < 1 ) return false;
    const int64_t along = std::clamp( y - _grip - _top, 0, room );
    return scrollTo( static_cast<int>( along * ( _content - _height ) / room ) );
}

void GNodeScroll::draw( GImageStack& images ) const
{
    if( isNeeded( ) ) images.fillRoundRect( _getThumb( ), _thumbWidth / 2, GColorFromText( _colour ) );
}
