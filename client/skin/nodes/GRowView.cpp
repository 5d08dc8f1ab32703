#include "client/skin/nodes/GRowView.h"

#include "client/drawing/GImageStack.h"
#include "client/skin/nodes/GNodeKeys.h"
#include "client/skin/nodes/GNodeTools.h"

#include <algorithm>

namespace
{
constexpr int LARGEST = 1000;
constexpr char16_t ELLIPSIS = u'\u2026';

int measure( GFont& font, const GWString& text )
{
    int width = 0;
    int height = 0;
    font.measureText( text, width, height );
    return width;
}

// As much of the text's beginning as fits with an ellipsis behind it.
GWString shorten( const GWString& text, GFont& font, int room )
{
    size_t fits = 0;
    size_t beyond = text.size( );
    while( fits + 1 < beyond )
    {
        const size_t middle = ( fits + beyond ) / 2;
        ( measure( font, text.substr( 0, middle ) + ELLIPSIS ) <= room ? fits : beyond ) = middle;
    }
    // Not between the halves of one character.
    if( fits > 0 && ( text[fits - 1] & 0xFC00 ) == 0xD800 ) --fits;
    return text.substr( 0, fits ) + ELLIPSIS;
}
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
    changed |= stack.read( u"$rowradius", _radius );
    changed |= stack.read( u"$ellipsis", _ellipsis );
    changed |= stack.read( u"$selectedbgcolor", _selectedColour );
    changed |= stack.read( u"$mouseoverbgcolor", _mouseoverColour );
    changed |= _scroll.read( stack ); // The thumb is that of GNodeScroll.
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

void GRowView::layout( int top, int width, int room )
{
    _room = std::max( 0, room );
    const int64_t content = std::min<int64_t>( int64_t{ _count } * _rowHeight, INT32_MAX / 2 );
    _scroll.layout( static_cast<int>( content ), top, width, _room );
    _width = width - _scroll.getWidth( );
    if( _pending < 0 ) return;
    const int row = _pending;
    _pending = -1;
    show( row );
}

GRect GRowView::getRect( int row ) const
{
    const int top = row * _rowHeight - _scroll.getOffset( );
    return { 0, top, std::max( 0, _width ), top + _rowHeight };
}

int GRowView::getRow( int y ) const
{
    if( y < 0 ) return -1;
    const int row = ( y + _scroll.getOffset( ) ) / _rowHeight;
    return row < _count ? row : -1;
}

void GRowView::show( int row )
{
    if( row < 0 ) return;
    if( _room )
        _scroll.show( row * _rowHeight, ( row + 1 ) * _rowHeight );
    else
        _pending = row;
}

int GRowView::follow( int key, int row ) const
{
    const int last = _count - 1;
    if( last < 0 ) return row;
    const int page = std::max( 1, _room / _rowHeight - 1 );
    switch( key )
    {
    case GKEY_UP: return row < 0 ? 0 : std::max( 0, row - 1 );
    case GKEY_DOWN: return row < 0 ? 0 : std::min( last, row + 1 );
    case GKEY_PAGE_UP: return std::max( 0, row - page );
    case GKEY_PAGE_DOWN: return std::min( last, std::max( 0, row ) + page );
    case GKEY_HOME: return 0;
    case GKEY_END: return last;
    default: return row;
    }
}

// ---- Drawing.

bool GRowView::drawGround( GImageStack& images, const GRect& rect, bool selected, bool mouseover ) const
{
    const GWStringView colour = selected ? _selectedColour : mouseover ? _mouseoverColour : GWStringView( );
    if( !colour.empty( ) && GRectHasVolume( rect ) ) images.fillRoundRect( rect, _radius, GColorFromText( colour ) );
    return !selected || !_selectedColour.empty( );
}

void GRowView::drawText( GImageStack& images, const GWString& text, GNodeFont& font, const GRect& rect ) const
{
    if( text.empty( ) ) return;
    const int spare = std::max( 0, rect.height( ) - font.getHeight( ) );
    const GRect box{ rect.left + _padding, rect.top + spare / 2, rect.right - _padding, rect.bottom };
    if( !GRectHasVolume( box ) ) return;
    if( _ellipsis && measure( font, text ) > box.width( ) )
        images.drawText( shorten( text, font, box.width( ) ), font, box );
    else
        images.drawText( text, font, box );
}

void GRowView::markFocus( GImageStack& images, int row ) const
{
    const GRect rect = row < 0 ? GRect( ) : getRect( row );
    const bool shows = row >= 0 && rect.bottom > 0 && rect.top < _room;
    if( shows ) images.pushTarget( rect );
    images.markFocus( );
    if( shows ) images.pop( );
}
