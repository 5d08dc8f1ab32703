#include "client/skin/nodes/GRowView.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GNodeTools.h"

#include <algorithm>
#include <cmath>

namespace
{
constexpr int LARGEST = 1000;
constexpr int WHEEL_ROWS = 3;
constexpr int THUMB_LEAST = 16;

enum Key
{
    KEY_PAGE_UP = 33,
    KEY_PAGE_DOWN = 34,
    KEY_END = 35,
    KEY_HOME = 36,
    KEY_UP = 38,
    KEY_DOWN = 40
};
} // namespace

bool GRowView::read( GAttributeStack& stack, int padding )
{
    static GWString text;
    bool changed = stack.read( u"$rowheight", _wantedHeight );
    _wantedHeight = std::clamp( _wantedHeight, 0, LARGEST );
    stack.read( u"$padding", text );
    const int wanted = text.empty( ) ? padding : static_cast<int>( std::clamp<int64_t>( GCalc( text ), 0, LARGEST ) );
    changed |= wanted != _padding;
    _padding = wanted;
    changed |= stack.read( u"$selectedbgcolor", _selectedColour );
    changed |= stack.read( u"$mouseoverbgcolor", _mouseoverColour );
    changed |= stack.read( u"$thumbcolor", _thumbColour );
    return changed;
}

// ---- Where the rows stand.

int GRowView::getRowHeight( int natural ) const
{
    return std::max( 1, _wantedHeight ? _wantedHeight : natural );
}

void GRowView::setRows( int count, int rowHeight )
{
    _count = count;
    _rowHeight = std::max( 1, rowHeight );
}

void GRowView::layout( int room )
{
    _room = std::max( 0, room );
    const int64_t whole = std::min<int64_t>( int64_t{ _count } * _rowHeight, INT32_MAX / 2 );
    _overflow = _thumbColour.empty( ) ? 0 : std::max( 0, static_cast<int>( whole ) - _room );
    _hold( );
    if( _pending < 0 ) return;
    const int row = _pending;
    _pending = -1;
    show( row );
}

void GRowView::_hold( )
{
    _offset = std::clamp( _offset, 0, _overflow );
}

int GRowView::getRow( int y ) const
{
    if( y < 0 ) return -1;
    const int row = ( y + _offset ) / _rowHeight;
    return row < _count ? row : -1;
}

bool GRowView::scroll( int steps )
{
    const int before = _offset;
    const int64_t moved = _offset - static_cast<int64_t>( steps ) * WHEEL_ROWS * _rowHeight;
    _offset = static_cast<int>( std::clamp<int64_t>( moved, 0, _overflow ) );
    return _offset != before;
}

void GRowView::show( int row )
{
    if( row < 0 ) return;
    if( !_room )
    {
        _pending = row;
        return;
    }
    const int top = row * _rowHeight;
    _offset = std::clamp( _offset, std::min( top, top + _rowHeight - _room ), top );
    _hold( );
}

int GRowView::follow( int key, int row ) const
{
    const int last = _count - 1;
    if( last < 0 ) return row;
    const int page = std::max( 1, _room / _rowHeight - 1 );
    switch( key )
    {
    case KEY_UP: return row < 0 ? 0 : std::max( 0, row - 1 );
    case KEY_DOWN: return row < 0 ? 0 : std::min( last, row + 1 );
    case KEY_PAGE_UP: return std::max( 0, row - page );
    case KEY_PAGE_DOWN: return std::min( last, std::max( 0, row ) + page );
    case KEY_HOME: return 0;
    case KEY_END: return last;
    default: return row;
    }
}

// ---- Drawing.

bool GRowView::drawGround( GImageStack& images, const GRect& rect, bool selected, bool mouseover ) const
{
    const GWStringView colour = selected ? _selectedColour : mouseover ? _mouseoverColour : GWStringView( );
    if( !colour.empty( ) && GRectHasVolume( rect ) ) images.fillRect( rect, colour );
    return !selected || !_selectedColour.empty( );
}

void GRowView::drawText( GImageStack& images, const GWString& text, GNodeFont& font, const GRect& rect ) const
{
    if( text.empty( ) ) return;
    const int spare = std::max( 0, rect.height( ) - font.getHeight( ) );
    const GRect box{ rect.left + _padding, rect.top + spare / 2, rect.right - _padding, rect.bottom };
    if( GRectHasVolume( box ) ) images.drawText( text, font, box );
}

void GRowView::drawThumb( GImageStack& images, int top, int width ) const
{
    if( _overflow < 1 || _room < 1 ) return;
    const int64_t whole = int64_t{ _room } + _overflow;
    const int length = std::min( _room, std::max( THUMB_LEAST, static_cast<int>( int64_t{ _room } * _room / whole ) ) );
    const int at = top + static_cast<int>( int64_t{ _room - length } * _offset / _overflow );
    const int thick = std::max( 4, _rowHeight / 8 );
    const GRect thumb{ width - thick - thick / 2, at, width - thick / 2, at + length };
    if( thumb.left >= 0 ) GRowView_drawPill( images, thumb, GColorFromText( _thumbColour ) );
}

void GRowView_drawPill( GImageStack& images, const GRect& rect, uint32_t colour )
{
    const double radius = std::min( rect.width( ), rect.height( ) ) / 2.0;
    for( int y = 0; y < rect.height( ); ++y )
    {
        // How far this line lies within one of the round ends.
        const double middle = y + 0.5;
        const double depth = std::max( { radius - middle, middle - ( rect.height( ) - radius ), 0.0 } );
        const int inset = static_cast<int>( std::lround( radius - std::sqrt( radius * radius - depth * depth ) ) );
        const int length = rect.width( ) - 2 * inset;
        if( length > 0 ) images.drawHorizLine( rect.left + inset, rect.top + y, length, colour );
    }
}
