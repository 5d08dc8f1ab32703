#include "client/skin/nodes/GWindowNode.h"

#include "client/drawing/GImageStack.h"
#include "client/drawing/GImageTools.h"
#include "client/skin/GUserName.h"
#include "client/skin/nodes/GNodeTools.h"
#include "platform/GIcon.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cstring>

namespace
{
// Timers run in whole milliseconds: the next one above the interval, so that every tick may draw.
int64_t tickOf( int64_t interval )
{
    return ( interval + 999 ) / 1000 * 1000;
}
// A layer is held to what a desktop can show, whatever the skin says.
constexpr int MAX_EDGE = 16384;
constexpr int MAX_AREA = 1 << 25;

// A rectangle of that size, within bounds.
GRect sized( int left, int top, int width, int height )
{
    left = std::clamp( left, -MAX_EDGE, MAX_EDGE );
    top = std::clamp( top, -MAX_EDGE, MAX_EDGE );
    width = std::clamp( width, 0, MAX_EDGE );
    height = std::clamp( height, 0, width ? std::min( MAX_EDGE, MAX_AREA / width ) : MAX_EDGE );
    return { left, top, left + width, top + height };
}

// A value may hold what a peer wrote: nothing in it is to be expanded.
void makePlain( GWString& text )
{
    std::erase_if( text, []( char16_t c ) { return c == u'$' || c == u'{' || c == u'}'; } );
}

// Premultiplied pixels on black.
void makeOpaque( char* pixels, size_t count )
{
    for( size_t i = 0; i < count; ++i ) pixels[4 * i + 3] = static_cast<char>( 255 );
}
} // namespace

GAttributeTable GWindowNode::getAttributeTable( )
{
    static constexpr GAttributeRow OWN[] = {
        { u"title", GAttributeKind::text, u"", u"The window's title in the task bar." },
        { u"x", GAttributeKind::number, u"0", u"Its left edge on the desktop. Read once, when the window is made." },
        { u"y", GAttributeKind::number, u"0", u"Its top edge on the desktop. Read once." },
        { u"width", GAttributeKind::number, u"0", u"Its width at the start. Read once." },
        { u"height", GAttributeKind::number, u"0", u"Its height at the start. Read once." },
        { u"topmost", GAttributeKind::toggle, u"off", u"The window stays above all others. Read once." },
        { u"hidden", GAttributeKind::toggle, u"off", u"The window is made hidden, until a `fadein`. Read once." },
        { u"remember", GAttributeKind::text, u"",
          u"Keeps the window's place in the settings that begin with this text: `_Left`, `_Top`, `_Width`, `_Height`. "
          u"Read once." },
        { u"tray", GAttributeKind::toggle, u"off",
          u"The window that hides into the tray: where no tray can hold it, it minimizes instead. Read once." },
        { u"enablealpha", GAttributeKind::toggle, u"off",
          u"The desktop shines through where the window draws nothing; off, it is black there." },
        { u"minwidth", GAttributeKind::number, u"0", u"The least width that the user can give it." },
        { u"minheight", GAttributeKind::number, u"0", u"The least height that the user can give it." },
        { u"focusfade", GAttributeKind::toggle, u"off", u"Half as opaque while another window has the keyboard." },
        { u"focussrc", GAttributeKind::image, u"",
          u"A ring that is drawn over everything, in nine pieces, around what has the keyboard." },
        { u"focusslice", GAttributeKind::number, u"0", u"The corners of the ring that keep their size." },
        { u"focusout", GAttributeKind::number, u"0", u"How far the ring reaches outside what it surrounds." },
        { u"onopen", GAttributeKind::command, u"", u"Runs on the command `open`; it usually fades the window in." },
        { u"onclose", GAttributeKind::command, u"",
          u"Runs on the command `close` and when the desktop closes the window; it usually fades the window out." },
        { u"onescape", GAttributeKind::command, u"",
          u"Runs on the escape key, unless the node with the keyboard uses it." },
        { u"onreturn", GAttributeKind::command, u"",
          u"Runs on the return key, unless the node with the keyboard uses it." },
        { u"autofocus", GAttributeKind::toggle, u"off",
          u"The first stop of the tab key has the keyboard whenever the window opens; or the first that has this "
          u"attribute itself." },
        { u"of", GAttributeKind::text, u"", u"The buddy whose `values` the window gives to what stands in it." },
        { u"values", GAttributeKind::listText, u"",
          u"Ends of names: with `of=\"ann@x\"`, `values=\"Call_State\"` gives ann@x_Call_State by the name "
          u"`call_state`, also to "
          u"the window's own attributes, and follows it. `$`, `{` and `}` are left out of it." },
        { u"flashon", GAttributeKind::valueName, u"",
          u"The name of a queue: a new entry flashes the window or opens it." },
    };
    static constexpr auto ROWS = GAttributeRowsJoin( OWN, GHINT_LOOK_ATTRIBUTES );
    return ROWS;
}

GNameTable GWindowNode::getNameTable( )
{
    static constexpr GNameRow ROWS[] = {
        { u"x", u"0: what stands in the window is placed from its own corner." },
        { u"y", u"0." },
        { u"width", u"The window's present width." },
        { u"height", u"The window's present height." },
        { u"windowpath", u"The window's path, for commands: `($windowpath?close)`." },
        { u"buddyname", u"The buddy of `of` as people read him: without the domain that names have without one." },
    };
    return ROWS;
}

GWindowNode::GWindowNode( GInstance* instance, IGCommandEngine* commandEngine, GTemplateNode* parent )
    : GTemplateNode( instance, commandEngine, parent ),
      _hint( instance, [this]( const IGInputHandler* handler ) { return _findOnDesktop( handler ); } )
{
}

GWindowNode::~GWindowNode( )
{
    // Watches below report here, from any thread: they end before their target does.
    for( GTemplateNode* child : _children ) delete child;
    _children.clear( );
    _watches.clear( );
    if( _timer ) GTimerClose( _timer );
    if( _notify ) GNotifyClose( _notify );
    if( _win ) GWinClose( _win );
}

// ---- Update.

bool GWindowNode::_preChildUpdate( GAttributeStack& stack )
{
    if( !_notify ) _notify = GNotifyOpen( this );
    _giveValues( stack );
    if( !_isMade ) _create( stack );
    stack.set( u"x", 0 );
    stack.set( u"y", 0 );
    stack.set( u"width", _rect.width( ) );
    stack.set( u"height", _rect.height( ) );
    stack.set( u"windowpath", getPath( ) );
    stack.push( _notify );
    return true;
}

void GWindowNode::_create( GAttributeStack& stack )
{
    const GWString path = stack.eval( u"$path" );
    const size_t slash = path.rfind( u'/' );
    _path = slash == GWString::npos ? GWString( ) : path.substr( 0, slash );
    _rect = sized( stack.calc( u"$x" ), stack.calc( u"$y" ), stack.calc( u"$width" ), stack.calc( u"$height" ) );
    _skinWidth = _rect.width( );
    _skinHeight = _rect.height( );
    stack.read( u"$remember", _remember );
    _inTray = stack.test( u"$tray" );
    _restorePlace( );
    const bool hidden = stack.test( u"$hidden" );
    stack.read( u"$title", _title );
    _topmost = stack.test( u"$topmost" );
    _isMade = _firstUpdate = true;
    _alpha = hidden ? 0 : 255;
    _obtainWin( );
    if( hidden ) return;
    GWinShow( _win );
    _wake( );
}

void GWindowNode::_obtainWin( )
{
    if( !_win ) _win = GWinOpen( _title, _rect, _topmost, this );
}

// A timer costs wake-ups, so it runs only while there is something to wait for: with a window a buddy there are many.
void GWindowNode::_wake( )
{
    if( !_timer ) _timer = GTimerOpen( tickOf( _renderInterval ), this );
}

bool GWindowNode::_postChildUpdate( GAttributeStack& stack )
{
    stack.pop( );
    bool changed = _firstUpdate;
    _firstUpdate = false;
    changed |= stack.readEach( u"$enablealpha", _enableAlpha, u"$autofocus", _autoFocus, u"$focusfade", _focusFade );
    changed |=
        stack.readEach( u"$onopen", _onOpen, u"$onclose", _onClose, u"$onescape", _onEscape, u"$onreturn", _onReturn );
    changed |= stack.readEach( u"$minwidth", _minWidth, u"$minheight", _minHeight );
    changed |= stack.readEach( u"$focussrc", _focusSrc, u"$focusslice", _focusSlice, u"$focusout", _focusOut );
    _hint.read( stack );
    _flashForNews( );
    return changed;
}

void GWindowNode::keepMoving( )
{
    _moving = true;
    _wake( );
}

// ---- Values of one buddy, by plain names: what an expression reads as a name ends at characters that names of buddies may hold.

void GWindowNode::_giveValues( GAttributeStack& stack )
{
    // Of this node alone: a window inside another would have its own.
    bool renamed = stack.read( getAttribute( u"of" ), _of );
    renamed |= stack.read( getAttribute( u"values" ), _values );
    renamed |= stack.read( getAttribute( u"flashon" ), _flashOn );
    if( renamed ) _bindValues( );
    if( _bound.empty( ) ) return;
    stack.set( u"buddyname", _shownName );
    for( BoundValue& bound : _bound )
    {
        GNodeTools_readValue( _instance, bound.source, bound.value );
        if( bound.value.find_first_of( u"${}" ) == GWString::npos )
            stack.set( bound.name, bound.value );
        else
        {
            GWString plain = bound.value;
            makePlain( plain );
            stack.set( bound.name, plain );
        }
    }
    _evaluateOwn( stack );
}

// Once more, now that what they are made of is there; and again, for those that stand before what they are made of.
void GWindowNode::_evaluateOwn( GAttributeStack& stack )
{
    for( int round = 0; round < 2; ++round )
        for( const auto& [name, value] : _attributes )
        {
            if( value.find( u'$' ) == GWString::npos ) continue;
            stack.read( value, _scratch );
            stack.set( name, _scratch );
        }
}

void GWindowNode::_bindValues( )
{
    _bound.clear( );
    _shownName = GUserNameShorten( *_instance, _of );
    GStringList names;
    for( const GWString& suffix : GSplitList( _of.empty( ) ? GWString( ) : _values ) )
    {
        _bound.push_back( { GConcat( _of, u'_', suffix ), GToLower( suffix ), {} } );
        names.push_back( _bound.back( ).source );
    }
    if( !_flashOn.empty( ) ) names.push_back( _flashOn );
    _watches.update( _instance, names, _notify );
}

// A new entry on the queue brings the window to the user's notice.
void GWindowNode::_flashForNews( )
{
    if( _flashOn.empty( ) ) return;
    const int length = _instance->length( _flashOn );
    const bool news = length > _newsSeen;
    _newsSeen = length;
    if( news ) flash( );
}

// ---- Place on the desktop. A window with "$remember" keeps its rectangle in settings that begin with that name.

void GWindowNode::_restorePlace( )
{
    if( _remember.empty( ) || !_instance->isSet( _remember + u"_Width" ) ) return;
    const auto read = [&]( const char16_t* suffix )
    { return static_cast<int>( std::clamp<int64_t>( _instance->calc( _remember + suffix ), -MAX_EDGE, MAX_EDGE ) ); };
    GRect rect{ read( u"_Left" ), read( u"_Top" ), 0, 0 };
    const int width = read( u"_Width" );
    const int height = read( u"_Height" );
    if( width < 1 || height < 1 || width > MAX_AREA / height ) return;
    // Screens come and go: a window that would lie outside stays where the skin puts it.
    const GRect area = GWinGetWorkArea( rect.left, rect.top );
    rect.right = rect.left + width;
    rect.bottom = rect.top + height;
    if( GRectHasVolume( GRectIntersect( area, rect ) ) ) _rect = rect;
}

void GWindowNode::_rememberPlace( )
{
    if( _remember.empty( ) || GWinIsMaximized( _win ) || GWinIsMinimized( _win ) ) return;
    _instance->set( _remember + u"_Left", _rect.left, true );
    _instance->set( _remember + u"_Top", _rect.top, true );
    _instance->set( _remember + u"_Width", _rect.width( ), true );
    _instance->set( _remember + u"_Height", _rect.height( ), true );
}

GWindowPlace GWindowNode::getPlace( ) const
{
    GWindowPlace place{ _rect, _skinWidth, _skinHeight, _win && _alpha > 0 };
    if( !place.shown ) return place;
    place.minimized = GWinIsMinimized( _win );
    place.maximized = GWinIsMaximized( _win );
    place.active = GWinHasKeyFocus( _win );
    return place;
}

void GWindowNode::takePlace( const GWindowPlace& place, IGInputHandler* focus )
{
    if( !_isMade ) return;
    if( !place.shown )
    {
        if( _alpha ) hide( );
        return;
    }
    _obtainWin( );
    const auto scale = []( int size, int from, int to )
    { return from > 0 ? static_cast<int>( int64_t{ size } * to / from ) : to; };
    const int width = std::clamp( scale( place.rect.width( ), place.skinWidth, _skinWidth ), 1, MAX_EDGE );
    const int height = std::clamp( scale( place.rect.height( ), place.skinHeight, _skinHeight ), 1, MAX_EDGE );
    _rect = { place.rect.left, place.rect.top, place.rect.left + width, place.rect.top + height };
    GWinMove( _win, GRect( _rect ) );
    _alpha = 255;
    _wake( );
    GWinShow( _win );
    if( place.maximized ) maximize( );
    if( place.minimized ) GWinMinimize( _win );
    if( place.active ) GWinSetForeground( _win );
    if( focus ) _setKeyFocus( focus );
    _respond( GRESPONSE_UPDATE | GRESPONSE_RENDER );
}

// ---- Responses.

void GWindowNode::_respond( int flags, IGInputHandler* handler )
{
    // Taken before the passes: they may remove the handler, and then forget( ) takes it back.
    if( flags & GRESPONSE_CAPTURE ) _capture = handler;
    if( ( flags & GRESPONSE_UPDATE ) && _updateSelf( ) ) flags |= GRESPONSE_RENDER;
    if( flags & GRESPONSE_RENDER )
    {
        _drawsAll = true;
        _renderSelf( );
    }
    if( ( flags & GRESPONSE_CAPTURE ) && _win ) GWinMouseCapture( _win );
    if( flags & GRESPONSE_RELEASE )
    {
        _capture = nullptr;
        if( _win ) GWinMouseRelease( _win );
    }
}

bool GWindowNode::_updateSelf( )
{
    if( _updating || !_notify ) return false;
    _updating = true;
    GAttributeStack stack( _instance, _commandEngine->getNotifyListener( ) );
    stack.set( u"path", _path );
    stack.push( _notify );
    const bool changed = update( stack );
    stack.pop( );
    _updating = false;
    return changed;
}

void GWindowNode::_renderSelf( )
{
    // A hidden window has nothing to draw, and opening draws it.
    if( !_alpha && !_fadeInEnd ) return;
    const uint64_t now = GTimeGetTime( );
    if( _rendering || _firstUpdate || static_cast<int64_t>( now - _lastRender ) <= _renderInterval )
    {
        _renderPending = true;
        _wake( );
        return;
    }
    const uint64_t before = _lastRender;
    _lastRender = now;
    _renderPending = false;
    _rendering = true;
    _mayDrawPart = !_drawsAll;
    GImageStack images;
    render( images );
    _mayDrawPart = false;
    _rendering = false;
    // The first moment of a fade shows nothing: the next need not keep its distance from it.
    if( !_alpha ) _lastRender = before;
}

void GWindowNode::onNotification( int kind, uint64_t time )
{
    if( kind < 0 || kind > 2 ) return;
    if( time < _notifyTimes[kind] ) return;
    _notifyTimes[kind] = GTimeGetTime( );
    if( kind != GWATCH_RENDER ) return _respond( kind );
    _isAsked = true;
    _renderSelf( );
}

void GWindowNode::onTimer( GTimer )
{
    if( _fadeInEnd || _fadeOutEnd ) return _respond( GRESPONSE_RENDER );
    if( _renderPending || _moving ) return _renderSelf( );
    if( _timer ) GTimerClose( _timer );
    _timer = nullptr;
}

// ---- Render.

void GWindowNode::_advanceFade( uint64_t now )
{
    if( _fadeInEnd && now >= _fadeInStart )
    {
        if( now < _fadeInEnd )
        {
            _alpha = static_cast<int>( 255 * ( now - _fadeInStart ) / ( _fadeInEnd - _fadeInStart ) );
            return;
        }
        _fadeInStart = _fadeInEnd = 0;
        _alpha = 255;
        return;
    }
    if( !_fadeOutEnd ) return;
    if( now < _fadeOutStart )
        _alpha = 255;
    else if( now < _fadeOutEnd )
        _alpha = static_cast<int>( 255 * ( _fadeOutEnd - now ) / ( _fadeOutEnd - _fadeOutStart ) );
    else
        hide( );
}

bool GWindowNode::_prepareLayer( )
{
    const GImageFormat format{ GIT_RGBA32, std::min( _rect.width( ), MAX_EDGE ),
                               std::min( _rect.height( ), MAX_EDGE ) };
    const size_t count = static_cast<size_t>( format.width ) * format.height;
    const bool same = format == _format;
    if( !same )
    {
        _format = format;
        _pixels.resize( count * 4 );
        _inputMap.resize( count );
    }
    const GRect layer{ 0, 0, format.width, format.height };
    // Before the look at the values: what changes meanwhile, on other threads, counts as changed the next time.
    const uint64_t now = GTimeGetTime( );
    _part = same && _mayDrawPart ? _collectPart( layer ) : layer;
    _drawsAll = _isAsked = false;
    _drawnAt = now;
    if( GRectEmpty( _part ) ) return false;
    // The window's own handler fills the input map first.
    _forRows( [&]( size_t first, size_t length ) { std::memset( _pixels.data( ) + first * 4, 0, length * 4 ); } );
    return true;
}

// Empty when nothing that changed shows.
GRect GWindowNode::_collectPart( const GRect& layer ) const
{
    GSkinDamage damage( _drawnAt );
    GTemplateNode::collectDamage( damage );
    // Somebody asked whom no node knows.
    if( _isAsked && !damage.isKnown( ) ) return layer;
    return GRectIntersect( damage.getRect( ), layer );
}

// Its subtree draws on a layer of its own.
void GWindowNode::collectDamage( GSkinDamage& ) const {}

bool GWindowNode::_preChildRender( GImageStack& images )
{
    _moving = false;
    _advanceFade( GTimeGetTime( ) );
    if( _alpha ) GASSERT( _win );
    if( !_alpha || GRectEmpty( _rect ) || GWinIsMinimized( _win ) )
    {
        _drawsAll = true;
        return false;
    }
    if( !_prepareLayer( ) ) return false;
    if( _drawsPart( ) )
        images.pushLayer( _format, _pixels.data( ), _inputMap.data( ), _part );
    else
        images.pushLayer( _format, _pixels.data( ), _inputMap.data( ) );
    images.setInputHandler( this );
    return true;
}

void GWindowNode::_drawFocus( GImageStack& images )
{
    GRect ring;
    // What has the focus may lie beside the part that is drawn, and its ring reach into it.
    if( images.getFocus( ring ) || !_drawsPart( ) ) _ring = ring;
    ring = _ring;
    GImageFormat format;
    GRect source;
    if( _focusSrc.empty( ) || GRectEmpty( ring ) ) return;
    const char* pixels = GImageTools_instanceReadOpen( _instance, _focusSrc, format, source );
    if( !pixels ) return;
    ring = { ring.left - _focusOut, ring.top - _focusOut, ring.right + _focusOut, ring.bottom + _focusOut };
    GNodeTools_drawSliced( images, format, pixels, source, ring, _focusSlice );
    GImageTools_instanceReadClose( _instance, _focusSrc );
}

void GWindowNode::_postChildRender( GImageStack& images )
{
    if( !_alpha ) return;
    GASSERT( _win );
    _drawFocus( images );
    images.pop( );
    if( !_enableAlpha )
        _forRows( [&]( size_t first, size_t length ) { makeOpaque( _pixels.data( ) + first * 4, length ); } );
    const int alpha = _focusFade && !GWinHasKeyFocus( _win ) ? _alpha / 2 : _alpha;
    GWinRepaintPart( _win, _format.width, _format.height, _pixels.data( ), alpha, _part );
    _logRate( GTimeGetTime( ) );
    _takeFirstFocus( );
}

// Which stops there are is known once they are drawn.
void GWindowNode::_takeFirstFocus( )
{
    if( !_focusWanted ) return;
    _focusWanted = false;
    if( !_autoFocus || _keyFocus ) return;
    for( GTemplateNode* node = getNext( this ); node; node = node->getNext( this ) )
        if( !node->getAttribute( u"autofocus" ).empty( ) && _isFocusable( node ) )
        {
            auto* handler = dynamic_cast<IGInputHandler*>( node );
            return _respond( _setKeyFocus( handler ), handler );
        }
    _moveKeyFocus( false );
}

void GWindowNode::_logRate( uint64_t now )
{
    ++_frameCount;
    const int64_t elapsed = static_cast<int64_t>( now - _lastLog );
    if( elapsed < _logInterval ) return;
    if( _lastLog ) GLOGIF( 'W', u"'", getPath( ), u"' draws ", _frameCount * 1000000LL / elapsed, u" frames a second" );
    _lastLog = now;
    _frameCount = 0;
}

// ---- Operations.

void GWindowNode::open( )
{
    _refreshValues( );
    GNodeTools_execute( this, _onOpen );
}

// What to do may depend on a value whose change has not come round yet.
void GWindowNode::_refreshValues( )
{
    if( !_bound.empty( ) ) _respond( GRESPONSE_UPDATE );
}

void GWindowNode::close( )
{
    _refreshValues( );
    GNodeTools_execute( this, _onClose );
}

void GWindowNode::fadeIn( int64_t duration )
{
    if( !_isMade ) return;
    _obtainWin( );
    if( _alpha && GWinIsMinimized( _win ) ) minimize( );
    GWinSetForeground( _win );
    // A window that was on its way out comes back at once.
    if( _fadeOutEnd && _instance->isRobust( u"Robust_Client" ) )
    {
        _fadeOutStart = _fadeOutEnd = 0;
        _alpha = 255;
        _respond( GRESPONSE_RENDER );
    }
    if( _alpha ) return;
    _fadeInStart = GTimeGetTime( );
    _fadeInEnd = _fadeInStart + static_cast<uint64_t>( std::max<int64_t>( duration, 0 ) );
    _focusWanted = true;
    _wake( );
    GWinShow( _win );
    GWinSetForeground( _win );
}

void GWindowNode::fadeOut( int64_t duration )
{
    if( !_win || !_alpha ) return;
    // Without a tray host nothing would lead back to it.
    if( _inTray && !GIconHasHost( ) )
    {
        if( !GWinIsMinimized( _win ) ) minimize( );
        return;
    }
    _fadeOutStart = GTimeGetTime( );
    _fadeOutEnd = _fadeOutStart + static_cast<uint64_t>( std::max<int64_t>( duration, 0 ) );
    _wake( );
    _respond( GRESPONSE_RENDER );
}

void GWindowNode::hide( )
{
    _hint.leave( );
    _fadeInStart = _fadeInEnd = _fadeOutStart = _fadeOutEnd = 0;
    _alpha = 0;
    _renderPending = _moving = false;
    if( _win ) GWinHide( _win );
    // Some megabytes a window.
    _format = GImageFormat( );
    GString( ).swap( _pixels );
    std::vector<IGInputHandler*>( ).swap( _inputMap );
}

void GWindowNode::calcMinSize( int& width, int& height )
{
    width = std::max( width, _minWidth );
    height = std::max( height, _minHeight );
    GTemplateNode::calcMinSize( width, height );
}

void GWindowNode::fit( )
{
    if( !_isMade ) return;
    int width = 0;
    int height = 0;
    calcMinSize( width, height );
    _rect = sized( _rect.left, _rect.top, width, height );
    if( _win && GRectHasVolume( _rect ) ) GWinMove( _win, GRect( _rect ) );
    _respond( GRESPONSE_RENDER );
}

void GWindowNode::maximize( )
{
    if( !_isMade ) return;
    _obtainWin( );
    GWinIsMaximized( _win ) ? GWinRestore( _win ) : GWinMaximize( _win );
    GWinGetScreenPosition( _win, _rect );
    _respond( GRESPONSE_RENDER );
}

void GWindowNode::minimize( )
{
    if( !_isMade ) return;
    _obtainWin( );
    GWinIsMinimized( _win ) ? GWinRestore( _win ) : GWinMinimize( _win );
    GWinGetScreenPosition( _win, _rect );
    _respond( GRESPONSE_RENDER );
}

void GWindowNode::flash( )
{
    if( _alpha && isVisible( ) )
        GWinFlash( _win );
    else
        open( );
}
