// The events of a layered window: hit test before every pointer message, own moving and sizing, keys as virtual keys.
#include "base/GPortable.h"
#include "platform/GSystem.h"
#include "platform/desktop/GDesktop_Qt.h"
#include "platform/input/GKeyTable.h"
#include "platform/input/GXcb.h"
#include "platform/window/GWin_Qt.h"

#include <QGuiApplication>
#include <QInputMethodEvent>
#include <QStyleHints>

#include <algorithm>

namespace
{
constexpr int DOUBLE_CLICK_PIXELS = 4;

bool isSizing( int hit )
{
    return GWITHIN( GHIT_LEFT, hit, GHIT_BOTTOMRIGHT );
}
bool movesLeft( int hit )
{
    return hit == GHIT_LEFT || hit == GHIT_TOPLEFT || hit == GHIT_BOTTOMLEFT;
}
bool movesRight( int hit )
{
    return hit == GHIT_RIGHT || hit == GHIT_TOPRIGHT || hit == GHIT_BOTTOMRIGHT;
}
bool movesTop( int hit )
{
    return hit == GHIT_TOP || hit == GHIT_TOPLEFT || hit == GHIT_TOPRIGHT;
}
bool movesBottom( int hit )
{
    return hit == GHIT_BOTTOM || hit == GHIT_BOTTOMLEFT || hit == GHIT_BOTTOMRIGHT;
}

bool isHeld( uint32_t keycode )
{
    uint8_t keys[32] = { };
    return GWITHIN( 8u, keycode, 255u ) && GXcbQueryKeymap( keys ) && ( keys[keycode / 8] & ( 1 << keycode % 8 ) );
}

Qt::CursorShape cursorOf( int hit )
{
    switch( hit )
    {
    case GHIT_LEFT:
    case GHIT_RIGHT: return Qt::SizeHorCursor;
    case GHIT_TOP:
    case GHIT_BOTTOM: return Qt::SizeVerCursor;
    case GHIT_TOPLEFT:
    case GHIT_BOTTOMRIGHT: return Qt::SizeFDiagCursor;
    case GHIT_TOPRIGHT:
    case GHIT_BOTTOMLEFT: return Qt::SizeBDiagCursor;
    default: return Qt::ArrowCursor;
    }
}
} // namespace

bool GWinRecord::event( QEvent* event )
{
    // A listener may close the window from within its own event.
    ++_depth;
    const bool done = _listener && _dispatch( event );
    --_depth;
    return done || QWindow::event( event );
}

// True when the event ends here.
bool GWinRecord::_dispatch( QEvent* event )
{
    switch( event->type( ) )
    {
    case QEvent::MouseButtonPress: _onPress( static_cast<QMouseEvent*>( event ) ); return true;
    case QEvent::MouseButtonDblClick: return true; // Told apart by ourselves: the toolkit sends a press as well.
    case QEvent::MouseButtonRelease: _onRelease( static_cast<QMouseEvent*>( event ) ); return true;
    case QEvent::MouseMove: _onMove( static_cast<QMouseEvent*>( event ) ); return true;
    case QEvent::Wheel: _onWheel( static_cast<QWheelEvent*>( event ) ); return true;
    case QEvent::Leave: _leave( ); return false;
    case QEvent::KeyPress: _onKeyPress( static_cast<QKeyEvent*>( event ) ); return true;
    case QEvent::KeyRelease: _onKeyRelease( static_cast<QKeyEvent*>( event ) ); return true;
    case QEvent::InputMethodQuery:
        // Dead keys and composed letters come only to who says that he takes text.
        static_cast<QInputMethodQueryEvent*>( event )->setValue( Qt::ImEnabled, !_topmost );
        event->accept( );
        return true;
    case QEvent::InputMethod: _onText( static_cast<QInputMethodEvent*>( event )->commitString( ) ); return true;
    case QEvent::Close:
        event->ignore( );
        _listener->onClose( this );
        return true;
    case QEvent::Expose:
        // The window manager's frame takes over a shape only from a window that it shows already.
        if( isExposed( ) && !_framed && _shaped ) GWinShapeInput( *this, _inputBands );
        _framed = isExposed( );
        if( _framed ) _onExposed( );
        return true;
    case QEvent::Move:
    case QEvent::Resize: _onGeometry( ); return false;
    case QEvent::Show:
    case QEvent::Hide:
    case QEvent::FocusIn:
    case QEvent::FocusOut: _listener->onShow( this ); return false;
    default: return false;
    }
}

// ---- Pointer.

int GWinRecord::_hitTest( const QPoint& point )
{
    return _listener->getNCHITTEST( this, point.x( ), point.y( ) );
}

void GWinRecord::setMouseCapture( bool capture )
{
    if( _capture == capture ) return;
    _capture = capture;
    // While a button is down the X server grabs for us.
    if( !capture || !QGuiApplication::mouseButtons( ) ) setMouseGrabEnabled( capture );
    GDesktopFlush( );
}

void GWinRecord::_leave( )
{
    if( !_tracking || _capture ) return;
    _tracking = false;
    _listener->onMouseLeft( this );
}

void GWinRecord::_showCursor( int hit )
{
    if( hit == _cursorHit ) return;
    _cursorHit = hit;
    setCursor( cursorOf( hit ) );
}

void GWinRecord::_onPress( QMouseEvent* event )
{
    const QPoint point = event->position( ).toPoint( );
    const bool left = event->button( ) == Qt::LeftButton;
    if( !left && event->button( ) != Qt::RightButton ) return;
    const int hit = _capture ? GHIT_CLIENT : _hitTest( point );
    if( !_listener ) return;
    if( !_topmost && !isActive( ) ) requestActivate( );
    if( left && ( hit == GHIT_CAPTION || isSizing( hit ) ) )
        return _startDrag( hit, event->globalPosition( ).toPoint( ) );
    if( hit != GHIT_CLIENT ) return;
    if( !left )
    {
        _listener->onRButtonDown( this, point.x( ), point.y( ) );
        return;
    }
    const auto interval = static_cast<quint64>( QGuiApplication::styleHints( )->mouseDoubleClickInterval( ) );
    const bool second = _lastPress && event->timestamp( ) - _lastPress <= interval &&
                        ( point - _lastPressPoint ).manhattanLength( ) <= DOUBLE_CLICK_PIXELS;
    _lastPress = second ? 0 : std::max<quint64>( 1, event->timestamp( ) );
    _lastPressPoint = point;
    if( second )
        _listener->onLButtonDblClk( this, point.x( ), point.y( ) );
    else
        _listener->onLButtonDown( this, point.x( ), point.y( ) );
}

void GWinRecord::_onRelease( QMouseEvent* event )
{
    if( event->button( ) != Qt::LeftButton ) return;
    if( _dragHit ) return _endDrag( );
    const QPoint point = event->position( ).toPoint( );
    const bool inside = QRect( QPoint( 0, 0 ), size( ) ).contains( point );
    if( !_capture && ( !inside || _hitTest( point ) != GHIT_CLIENT ) ) return;
    if( _listener ) _listener->onLButtonUp( this, point.x( ), point.y( ) );
}

void GWinRecord::_onMove( QMouseEvent* event )
{
    if( _dragHit ) return _drag( event->globalPosition( ).toPoint( ) );
    const QPoint point = event->position( ).toPoint( );
    if( !_capture )
    {
        // With a button down the X server reports the pointer outside too.
        if( !QRect( QPoint( 0, 0 ), size( ) ).contains( point ) ) return _leave( );
        const int hit = _hitTest( point );
        if( !_listener ) return;
        _showCursor( hit );
        if( hit != GHIT_CLIENT ) return _leave( );
    }
    _tracking = true;
    _listener->onMouseMove( this, point.x( ), point.y( ) );
}

void GWinRecord::_onWheel( QWheelEvent* event )
{
    constexpr int STEP = 120;
    _wheel += event->angleDelta( ).y( );
    const int steps = _wheel / STEP;
    _wheel -= steps * STEP;
    if( steps ) _listener->onMouseWheel( this, steps );
}

void GWinRecord::_startDrag( int hit, const QPoint& global )
{
    if( isSizing( hit ) && windowStates( ).testFlag( Qt::WindowMaximized ) ) return;
    _leave( );
    if( !_listener ) return;
    _dragHit = hit;
    _dragStart = global;
    _dragRect = getRect( );
}

// The proposed rectangle goes to the listener first, then to the X server.
void GWinRecord::_drag( const QPoint& global )
{
    const QPoint by = global - _dragStart;
    GRect rect = _dragRect;
    if( _dragHit == GHIT_CAPTION )
    {
        // A maximized window stays where it is.
        if( windowStates( ).testFlag( Qt::WindowMaximized ) ) return;
        rect = { rect.left + by.x( ), rect.top + by.y( ), rect.right + by.x( ), rect.bottom + by.y( ) };
    }
    else
    {
        int width = 0;
        int height = 0;
        getTrackSize( width, height );
        width = std::max( 1, width );
        height = std::max( 1, height );
        if( movesLeft( _dragHit ) ) rect.left = std::min( rect.left + by.x( ), rect.right - width );
        if( movesRight( _dragHit ) ) rect.right = std::max( rect.right + by.x( ), rect.left + width );
        if( movesTop( _dragHit ) ) rect.top = std::min( rect.top + by.y( ), rect.bottom - height );
        if( movesBottom( _dragHit ) ) rect.bottom = std::max( rect.bottom + by.y( ), rect.top + height );
    }
    if( rect == getRect( ) ) return;
    _expect( rect );
    _report( rect );
}

void GWinRecord::_endDrag( )
{
    _dragHit = 0;
    if( _expecting ) _settleTimer.start( );
}

// ---- Keys.

void GWinRecord::_onKeyPress( QKeyEvent* event )
{
    const int key = GKeyFromEvent( event );
    if( _onPasteKey( event, key ) ) return;
    if( key ) _listener->onKeyDown( this, key );
    const bool alt =
        event->modifiers( ).testFlag( Qt::AltModifier ) && !event->modifiers( ).testFlag( Qt::ControlModifier );
    // The delete key and keys with alt are no characters.
    if( !alt && event->key( ) != Qt::Key_Delete )
        _onText( event->key( ) == Qt::Key_Backtab ? QStringLiteral( "\t" ) : event->text( ) );
}

void GWinRecord::_onKeyRelease( QKeyEvent* event )
{
    // The toolkit takes a repeat for a release when the press that follows has not come in yet.
    if( event->isAutoRepeat( ) || isHeld( event->nativeScanCode( ) ) ) return;
    if( const int key = GKeyFromEvent( event ) ) _listener->onKeyUp( this, key );
}

void GWinRecord::_onText( const QString& text )
{
    for( const QChar character : text )
        if( _listener ) _listener->onKeyPressed( this, character.unicode( ) );
}

// Control-V is an accelerator: the window sees the text, not the key.
bool GWinRecord::_onPasteKey( QKeyEvent* event, int key )
{
    constexpr auto MODIFIERS = Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier | Qt::MetaModifier;
    if( key != GVK_V || ( event->modifiers( ) & MODIFIERS ) != Qt::ControlModifier ) return false;
    const GWString text = GClipboardGetText( );
    if( !text.empty( ) ) _listener->onPaste( this, text );
    return true;
}
