#include "client/skin/nodes/GHint.h"

#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"
#include "image/GImageFormat.h"
#include "platform/GTime.h"

#include <algorithm>

namespace
{
// How exactly the rest is measured.
constexpr int64_t TICK = 50000;
constexpr int DEFAULT_PAD = 4;
constexpr int LARGEST_PAD = 100;
constexpr GWStringView DEFAULT_GROUND = u"#FFFFE1FF";
constexpr GWStringView DEFAULT_FRAME = u"#000000FF";
constexpr int OPAQUE = 255;
} // namespace

GHint::GHint( GInstance* instance, Finder finder ) : _instance( instance ), _finder( std::move( finder ) ) {}

GHint::~GHint( )
{
    leave( );
}

void GHint::read( GAttributeStack& stack )
{
    _font.read( stack, u"$hintfont" );
    stack.readEach( u"$hintsrc", _src, u"$hintslice", _slice, u"$hintpad", _pad );
    _pad = std::clamp( _pad > 0 ? _pad : DEFAULT_PAD, 1, LARGEST_PAD );
}

// ---- When.

void GHint::point( const IGInputHandler* control, GWStringView text, int x, int y )
{
    if( !control || text.empty( ) || control != _control || text != _text )
    {
        _hide( );
        _stopWaiting( );
        const bool same = control && control == _control;
        _control = control;
        _text = text;
        _dismissed &= same;
        if( !control || text.empty( ) || _dismissed ) return;
        _wait( );
    }
    else if( _timer && ( x != _x || y != _y ) )
        _since = GTimeGetTime( );
    _x = x;
    _y = y;
}

void GHint::dismiss( )
{
    _dismissed = true;
    _hide( );
    _stopWaiting( );
}

void GHint::_wait( )
{
    _since = GTimeGetTime( );
    if( !_timer ) _timer = GTimerOpen( TICK, this );
}

void GHint::_stopWaiting( )
{
    if( _timer ) GTimerClose( _timer );
    _timer = nullptr;
}

void GHint::onTimer( GTimer )
{
    if( static_cast<int64_t>( GTimeGetTime( ) - _since ) < REST ) return;
    _stopWaiting( );
    _show( );
}

// ---- Where and how.

void GHint::_show( )
{
    const GRect control = _finder( _control );
    if( !GRectHasVolume( control ) ) return;
    const GRect area = GWinGetWorkArea( ( control.left + control.right ) / 2, ( control.top + control.bottom ) / 2 );
    int width = std::max( 1, area.width( ) - 2 * _pad );
    int height = 0;
    const int room = width;
    _font.get( ).measureText( _text, width, height );
    _rect = _place( control, std::clamp( width, 1, room ) + 2 * _pad, std::max( 1, height ) + 2 * _pad, area );
    _win = GWinOpen( GWString( ), _rect, true, this );
    _draw( );
    GWinShow( _win );
}

void GHint::_hide( )
{
    if( _win ) GWinClose( _win );
    _win = nullptr;
    _rect = GRect( );
    GString( ).swap( _pixels );
}

// In the middle below the control, above it where there is no room; within the screen in any case.
GRect GHint::_place( const GRect& control, int width, int height, const GRect& area ) const
{
    const int middle = ( control.left + control.right ) / 2;
    int top = control.bottom + _pad;
    if( top + height > area.bottom ) top = control.top - _pad - height;
    top = std::max( area.top, std::min( top, area.bottom - height ) );
    const int left = std::max( area.left, std::min( middle - width / 2, area.right - width ) );
    return { left, top, left + width, top + height };
}

void GHint::_draw( )
{
    const GImageFormat format{ GIT_RGBA32, _rect.width( ), _rect.height( ) };
    const GRect all{ 0, 0, format.width, format.height };
    _pixels.assign( static_cast<size_t>( format.width ) * static_cast<size_t>( format.height ) * 4, '\0' );
    GImageStack images;
    images.pushLayer( format, _pixels.data( ), nullptr );
    GImageFormat source;
    GRect part;
    const char* picture = _src.empty( ) ? nullptr : GImageTools_instanceReadOpen( _instance, _src, source, part );
    if( picture )
    {
        GNodeTools_drawSliced( images, source, picture, part, all, _slice );
        GImageTools_instanceReadClose( _instance, _src );
    }
    else
    {
        images.fillRect( all, DEFAULT_GROUND );
        images.drawRect( all, DEFAULT_FRAME );
    }
    images.drawText( _text, _font, { _pad, _pad, all.right - _pad, all.bottom - _pad } );
    images.pop( );
    GWinRepaint( _win, format.width, format.height, _pixels.data( ), OPAQUE );
}
