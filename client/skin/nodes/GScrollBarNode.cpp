#include "client/skin/nodes/GScrollBarNode.h"

#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"
#include "client/skin/nodes/GNodeKeys.h"

#include <algorithm>
#include <cmath>

namespace
{
constexpr double WHEEL_STEP = 0.1;
constexpr double ARROW_STEP = 0.05;
constexpr double PAGE_STEP = 0.25;
constexpr int THOUSANDTHS = 1000;
constexpr int TRACK_MODE = GIC_TILE_X | GIC_TILE_Y;
constexpr int HANDLE_MODE = GIC_CENTER | GIC_MIDDLE;

int toThousandths( double frac )
{
    return static_cast<int>( std::lround( frac * THOUSANDTHS ) );
}
} // namespace

GAttributeTable GScrollBarNode::getAttributeTable( )
{
    static constexpr GAttributeRow OWN[] = {
        { u"name", GAttributeKind::text, u"",
          u"The name that gets its position, 0 to 1000, for what stands around and after it." },
        { u"horiz", GAttributeKind::toggle, u"off", u"Lies, instead of standing." },
        { u"watch", GAttributeKind::valueName, u"",
          u"A blackboard list: when its length changes the bar jumps to the end." },
        { u"varname", GAttributeKind::valueName, u"",
          u"A blackboard number that it sets when it is moved, and follows: the track is its scale." },
        { u"least", GAttributeKind::number, u"0", u"That number at the begin of the track." },
        { u"greatest", GAttributeKind::number, u"1000", u"At its end." },
        { u"step", GAttributeKind::number, u"1", u"It is set to `least` plus multiples of this." },
        { u"unset", GAttributeKind::number, u"0", u"What it counts as while it is not set." },
        { u"persist", GAttributeKind::toggle, u"off", u"Keeps the number in the settings." },
        { u"handlesrc", GAttributeKind::image, u"", u"The handle." },
        { u"backsrc", GAttributeKind::image, u"", u"The track below it, repeated." },
        { u"focusable", GAttributeKind::toggle, u"off",
          u"The tab key stops here, and arrow, page, home and end keys move it." },
        { u"disabled", GAttributeKind::toggle, u"off", u"Takes no input and shows no handle." },
    };
    static constexpr auto ROWS = GAttributeRowsJoin( OWN, GHINT_ATTRIBUTES );
    return ROWS;
}

// ---- Position.

void GScrollBarNode::setFrac( double frac )
{
    const double held = std::clamp( std::isfinite( frac ) ? frac : 0.0, 0.0, 1.0 );
    if( toThousandths( held ) != toThousandths( _frac ) ) _changed = true;
    _frac = held;
    if( !_changed ) return;
    _publish( );
    // The nodes that read the position are updated by the window's next pass.
    if( _listener ) GNotify( _listener, GWATCH_UPDATE );
}

// An ancestor that bears the attribute hands it to everything below it, wherever the bar itself stands.
GTemplateNode* GScrollBarNode::_findHolder( ) const
{
    if( _name.empty( ) ) return nullptr;
    GTemplateNode* at = _parent;
    while( at && at->getAttribute( _name ).empty( ) ) at = at->getParent( );
    return at;
}

void GScrollBarNode::_publish( )
{
    if( GTemplateNode* holder = _findHolder( ) ) holder->setAttribute( _name, GNumber( toThousandths( _frac ) ) );
}

void GScrollBarNode::_updateFrac( int x, int y )
{
    const int pointer = _horiz ? x : y;
    _moveTo( _trackLength > 0 ? static_cast<double>( pointer - _trackStart ) / _trackLength : 0.0 );
}

// For input: the answer says whether anything moved.
int GScrollBarNode::_moveTo( double frac )
{
    const double before = _frac;
    const GNotifyHandle listener = _listener;
    // The answer to the event asks for the pass already.
    _listener = nullptr;
    setFrac( frac );
    _writeValue( );
    _listener = listener;
    return _frac == before ? GRESPONSE_NONE : GRESPONSE_UPDATE;
}

void GScrollBarNode::_writeValue( )
{
    if( _value.name.empty( ) || _value.greatest <= _value.least ) return;
    const double along = _frac * ( _value.greatest - _value.least );
    const int value = _value.least + static_cast<int>( std::lround( along / _value.step ) ) * _value.step;
    if( value == _value.last ) return;
    _value.last = value;
    _instance->set( _value.name, value, _value.persist );
}

// ---- Update.

// The handle goes where the number is, unless it is what the handle gave.
void GScrollBarNode::_followValue( GAttributeStack& stack )
{
    bool changed = stack.read( u"$varname", _value.name );
    changed |= stack.read( u"$least", _value.least );
    changed |= stack.read( u"$greatest", _value.asked );
    _value.greatest = _value.asked ? _value.asked : THOUSANDTHS;
    stack.read( u"$step", _value.step );
    changed |= stack.read( u"$unset", _value.unset );
    stack.read( u"$persist", _value.persist );
    _value.step = std::max( 1, _value.step );
    _value.watch.update( _instance, _value.name, _listener );
    if( _value.name.empty( ) || _value.greatest <= _value.least ) return;
    const int64_t value = _instance->isSet( _value.name ) ? _instance->calc( _value.name ) : _value.unset;
    const int held = static_cast<int>( std::clamp<int64_t>( value, _value.least, _value.greatest ) );
    if( !changed && held == _value.last ) return;
    _value.last = held;
    setFrac( static_cast<double>( held - _value.least ) / ( _value.greatest - _value.least ) );
}

bool GScrollBarNode::_preChildUpdate( GAttributeStack& stack )
{
    _listener = stack.getListener( );
    if( stack.read( u"$name", _name ) ) _name = GToLower( _name );
    _followList( stack );
    _followValue( stack );
    if( !_name.empty( ) ) stack.set( _name, toThousandths( _frac ) );
    return true;
}

void GScrollBarNode::_followList( GAttributeStack& stack )
{
    stack.read( u"$watch", _watchName );
    _watch.update( _instance, _watchName, _listener );
    if( _watchName.empty( ) ) return;
    // A list may be a queue or a value.
    if( GNodeTools_readValue( _instance, _watchName, _watchText ) )
        _watchCount = static_cast<int>( GSplitList( _watchText ).size( ) );
    const int length = _instance->length( _watchName ) + _watchCount;
    if( length == _watchLength ) return;
    _watchLength = length;
    setFrac( 1.0 );
}

bool GScrollBarNode::_postChildUpdate( GAttributeStack& stack )
{
    bool changed = _changed;
    _changed = false;
    changed |= stack.readEach( u"$horiz", _horiz, u"$handlesrc", _handleSrc, u"$backsrc", _backSrc );
    changed |= stack.readEach( u"$focusable", _focusable, u"$disabled", _disabled, u"$hint", _hint );
    if( _name.empty( ) ) return changed;
    // Into the scope around this node, for the siblings that follow; an empty one takes its place for the pop to come.
    stack.pop( );
    stack.set( _name, toThousandths( _frac ) );
    stack.push( );
    return changed;
}

void GScrollBarNode::calcMinSize( int& width, int& height )
{
    GTemplateNode::calcMinSize( width, height );
    for( const GWString* source : { &_handleSrc, &_backSrc } )
    {
        GImageFormat format;
        GRect rect;
        if( source->empty( ) || !GImageTools_instanceReadCheck( _instance, *source, format, rect ) ) continue;
        width = std::max( width, rect.width( ) );
        height = std::max( height, rect.height( ) );
    }
}

// ---- Drawing.

bool GScrollBarNode::_preChildRender( GImageStack& images )
{
    images.setInputHandler( this );
    if( _focus && !_clicked && wantsKeyboardFocus( ) ) images.markFocus( );
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    _draw( images, _backSrc, { 0, 0, std::max( 0, width ), std::max( 0, height ) }, TRACK_MODE );

    GImageFormat format;
    GRect handle;
    if( _handleSrc.empty( ) || !GImageTools_instanceReadCheck( _instance, _handleSrc, format, handle ) )
        handle = GRect( );
    const int room = _horiz ? width : height;
    const int extent = std::min( room, _horiz ? handle.width( ) : handle.height( ) );
    int originX = 0;
    int originY = 0;
    images.getPosition( originX, originY );
    // The middle of the handle runs from one end to the other, so that all of it stays in the frame.
    _trackStart = ( _horiz ? originX : originY ) + extent / 2;
    _trackLength = std::max( 0, room - extent );
    const int along = static_cast<int>( std::lround( _frac * _trackLength ) );
    const int across =
        GNodeTools_offset( _horiz ? height : width, _horiz ? handle.height( ) : handle.width( ), true, false );
    if( _disabled ) return true;
    if( _horiz )
        _draw( images, _handleSrc, { along, across, along + extent, std::max( across, height ) }, HANDLE_MODE );
    else
        _draw( images, _handleSrc, { across, along, std::max( across, width ), along + extent }, HANDLE_MODE );
    return true;
}

void GScrollBarNode::_draw( GImageStack& images, const GWString& source, const GRect& target, int mode )
{
    if( source.empty( ) ) return;
    GImageFormat format;
    GRect rect;
    const char* pixels = GImageTools_instanceReadOpen( _instance, source, format, rect );
    if( !pixels ) return;
    images.drawBitmap( format, pixels, rect, target, mode );
    GImageTools_instanceReadClose( _instance, source );
}

// ---- Input.

bool GScrollBarNode::_isButtonDown( ) const
{
    return GNodeKeys_isDown( GKEY_LBUTTON );
}

int GScrollBarNode::onLButtonDown( GWin, int x, int y )
{
    if( _disabled ) return GRESPONSE_NONE;
    _clicked = _held = true;
    _updateFrac( x, y );
    return GRESPONSE_UPDATE | GRESPONSE_CAPTURE;
}

int GScrollBarNode::onLButtonUp( GWin, int, int )
{
    _held = false;
    return GRESPONSE_RELEASE;
}

int GScrollBarNode::onMouseMove( GWin, int x, int y )
{
    if( _disabled ) return GRESPONSE_RELEASE;
    if( !_isButtonDown( ) ) return GRESPONSE_RELEASE;
    _updateFrac( x, y );
    return GRESPONSE_UPDATE;
}

int GScrollBarNode::onMouseWheel( GWin, int steps )
{
    if( _disabled || _trackLength < 1 ) return GRESPONSE_NONE;
    setFrac( _frac - steps * WHEEL_STEP );
    _writeValue( );
    return GRESPONSE_UPDATE;
}

int GScrollBarNode::onKeyboardFocusChanged( bool focus )
{
    _focus = focus;
    _clicked &= focus && _held;
    return _focusable ? GRESPONSE_RENDER : GRESPONSE_NONE;
}

int GScrollBarNode::onKeyDown( GWin, int key )
{
    if( !wantsKeyboardFocus( ) ) return GRESPONSE_NONE;
    double to = _frac;
    switch( key )
    {
    case GKEY_UP:
    case GKEY_LEFT: to -= ARROW_STEP; break;
    case GKEY_DOWN:
    case GKEY_RIGHT: to += ARROW_STEP; break;
    case GKEY_PAGE_UP: to -= PAGE_STEP; break;
    case GKEY_PAGE_DOWN: to += PAGE_STEP; break;
    case GKEY_HOME: to = 0; break;
    case GKEY_END: to = 1; break;
    default: return GRESPONSE_NONE;
    }
    // Who uses the keys sees where they act.
    const bool ring = _clicked;
    _clicked = false;
    return _moveTo( to ) | ( ring ? GRESPONSE_RENDER : GRESPONSE_NONE );
}
