#include "platform/window/GWin_Qt.h"

#include "base/GPortable.h"
#include "platform/desktop/GDesktop_Qt.h"
#include "platform/window/GLayer.h"

#include <QApplication>
#include <QPainter>
#include <QScreen>
#include <QSurfaceFormat>

#include <algorithm>
#include <atomic>
#include <set>

namespace
{
constexpr int SETTLE_MILLISECONDS = 300;
constexpr int FLASH_MILLISECONDS = 2000; // Twice on and off, at the usual pace of task bars.
constexpr int UNDO_MILLISECONDS = 2000;  // Long enough for a window manager to get round to what it was asked.
constexpr int MASK_ALPHA = 128;

std::set<GWinRecord*> windows_;
std::atomic<int> quitParameter_ = 0;

QRect toQt( const GRect& rect )
{
    return { rect.left, rect.top, std::max( 1, rect.width( ) ), std::max( 1, rect.height( ) ) };
}
GRect fromQt( const QRect& rect )
{
    return { rect.left( ), rect.top( ), rect.left( ) + rect.width( ), rect.top( ) + rect.height( ) };
}

void followCompositor( )
{
    for( GWinRecord* window : windows_ ) window->updateShape( );
}
} // namespace

GWinRecord::GWinRecord( const GRect& rect, bool topmost, IGWinListener* listener )
    : _listener( listener ), _topmost( topmost ), _store( this )
{
    QSurfaceFormat format;
    format.setAlphaBufferSize( 8 );
    setSurfaceType( RasterSurface );
    setFormat( format );
    setFlags( topmost ? Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus
                      : Qt::Window | Qt::FramelessWindowHint );
    setGeometry( toQt( rect ) );
    create( );
    GASSERT( handle( ) );
    GWinSetClass( *this );
    _reported = getRect( );
    _settleTimer.setSingleShot( true );
    _settleTimer.setInterval( SETTLE_MILLISECONDS );
    QObject::connect( &_settleTimer, &QTimer::timeout, this, [this]( ) { _settle( ); } );
    // The toolkit's own end of the alert stays in its buffer.
    _flashTimer.setSingleShot( true );
    // The toolkit ends the flashing by a coarse timer, up to a twentieth late, and does not send it off.
    _flashTimer.setInterval( FLASH_MILLISECONDS + FLASH_MILLISECONDS / 10 + 100 );
    QObject::connect( &_flashTimer, &QTimer::timeout, this, []( ) { GDesktopFlush( ); } );
    windows_.insert( this );
}

void GWinRecord::release( )
{
    windows_.erase( this );
    _listener = nullptr;
    setMouseCapture( false );
    setVisible( false );
    if( _depth )
        deleteLater( );
    else
        delete this;
}

GRect GWinRecord::getRect( ) const
{
    return _expecting ? _reported : fromQt( geometry( ) );
}

void GWinRecord::_report( const GRect& rect )
{
    if( rect == _reported ) return;
    _reported = rect;
    if( _listener ) _listener->onReposition( this, rect );
}

void GWinRecord::_expect( const GRect& rect )
{
    if( fromQt( geometry( ) ) == rect ) return;
    _expecting = true;
    _settleTimer.start( );
    setGeometry( toQt( rect ) );
    GDesktopFlush( );
}

// Moves and sizes; the listener hears of it before this returns.
void GWinRecord::place( const GRect& rect )
{
    const GRect wanted = fromQt( toQt( rect ) );
    _expect( wanted );
    _report( wanted );
}

void GWinRecord::_onGeometry( )
{
    const GRect rect = fromQt( geometry( ) );
    if( _expecting && rect != _reported ) return;
    if( _expecting && !_dragHit )
    {
        _expecting = false;
        _settleTimer.stop( );
    }
    _report( rect );
}

// What we asked for did not come: the window manager had its own mind.
void GWinRecord::_settle( )
{
    if( _dragHit ) return _settleTimer.start( );
    _expecting = false;
    _report( fromQt( geometry( ) ) );
}

void GWinRecord::getTrackSize( int& width, int& height )
{
    constexpr int MOST = 1000;
    constexpr int INSTEAD = 100;
    width = height = 0;
    if( !_listener || !_listener->getMinSize( this, width, height ) ) return;
    if( width > MOST ) width = INSTEAD;
    if( height > MOST ) height = INSTEAD;
}

void GWinRecord::repaint( int width, int height, const char* pixels, int alpha, GRect changed )
{
    const GRect whole{ 0, 0, width, height };
    const bool sameSize = _layer.width( ) == width && _layer.height( ) == height;
    if( !sameSize ) _layer = QImage( width, height, QImage::Format_ARGB32_Premultiplied );
    changed = sameSize && alpha == _layerAlpha ? GRectIntersect( changed, whole ) : whole;
    // Scaled by a constant alpha the layer no longer tells which pixels showed.
    const bool tells = sameSize && _shaped && alpha == 255 && _layerAlpha == 255;
    _layerAlpha = alpha;
    if( GRectEmpty( changed ) ) return;
    const bool sameShape =
        GLayerCopy( pixels, reinterpret_cast<uint32_t*>( _layer.bits( ) ), width, changed, alpha ) && tells;
    // A layer brings its size along, but where the window manager has given the window its own.
    const GRect now = getRect( );
    if( !( windowStates( ) & ( Qt::WindowMaximized | Qt::WindowMinimized ) ) &&
        ( now.width( ) != width || now.height( ) != height ) )
    {
        _reported = { now.left, now.top, now.left + width, now.top + height };
        _expect( _reported );
    }
    if( !sameShape ) _shape( pixels, width, height );
    updateShape( );
    if( isExposed( ) ) _paint( toQt( changed ) );
}

void GWinRecord::_shape( const char* pixels, int width, int height )
{
    GLayerFindBands( pixels, width, height, 1, _bands );
    if( _bands != _inputBands || !_shaped )
    {
        _shaped = true;
        _inputBands.swap( _bands );
        GWinShapeInput( *this, _inputBands );
    }
    GLayerFindBands( pixels, width, height, MASK_ALPHA, _bands );
    const bool changed = _bands != _maskBands;
    if( changed ) _maskBands.swap( _bands );
    if( changed && _masked ) _masked = false; // Set anew by updateShape.
}

void GWinRecord::updateShape( )
{
    const bool wanted = !GWinIsComposited( );
    if( wanted == _masked ) return;
    _masked = wanted;
    QRegion region;
    if( wanted )
    {
        std::vector<QRect> rects;
        rects.reserve( _maskBands.size( ) );
        for( const GRect& band : _maskBands ) rects.push_back( toQt( band ) );
        // An empty region would mean no mask at all.
        if( rects.empty( ) ) rects.emplace_back( -1, -1, 1, 1 );
        region.setRects( rects.data( ), static_cast<int>( rects.size( ) ) );
    }
    setMask( region );
    // The mask may have reset what input passes through.
    GWinShapeInput( *this, _inputBands );
    GDesktopFlush( );
}

void GWinRecord::_onExposed( )
{
    _paint( QRect( QPoint( 0, 0 ), size( ) ) );
}

void GWinRecord::_paint( const QRect& part )
{
    QRect dirty = part;
    if( _store.size( ) != size( ) )
    {
        _store.resize( size( ) );
        dirty = QRect( QPoint( 0, 0 ), size( ) );
    }
    _store.beginPaint( dirty );
    {
        QPainter painter( _store.paintDevice( ) );
        painter.setCompositionMode( QPainter::CompositionMode_Source );
        if( _layer.width( ) < width( ) || _layer.height( ) < height( ) ) painter.fillRect( dirty, Qt::transparent );
        if( !_layer.isNull( ) ) painter.drawImage( dirty.topLeft( ), _layer, dirty );
    }
    _store.endPaint( );
    _store.flush( dirty );
    GDesktopFlush( );
    if( !_layer.isNull( ) ) GDesktopTellShown( );
}

void GWinRecord::flashTwice( )
{
    alert( FLASH_MILLISECONDS );
    _flashTimer.start( );
    GDesktopFlush( );
}

void GWinRecord::display( )
{
    if( !isVisible( ) && !windowStates( ).testFlag( Qt::WindowMinimized ) ) GWinWantShown( *this );
    setVisible( true );
    GDesktopFlush( );
}

void GWinRecord::minimize( )
{
    _undoMinimize = QDeadlineTimer( 0 );
    setWindowStates( windowStates( ) | Qt::WindowMinimized );
    setVisible( true );
    GDesktopFlush( );
}

void GWinRecord::restore( )
{
    const bool minimized = windowStates( ).testFlag( Qt::WindowMinimized );
    // A maximized window that was minimized comes back maximized.
    setWindowStates( minimized ? windowStates( ) & ~Qt::WindowStates( Qt::WindowMinimized ) : Qt::WindowNoState );
    display( );
    if( !minimized ) return;
    // A window that is still shown can't be asked to be shown: the window manager would minimize it after that.
    if( !GWinIsIconic( *this ) ) _undoMinimize.setRemainingTime( UNDO_MILLISECONDS );
    GWinActivate( *this );
}

bool GWinRecord::nativeEvent( const QByteArray&, void* message, qintptr* )
{
    // The toolkit would take what it asks for as given: a window manager that refuses, or is late, would leave it with a wrong idea
    // of where the keyboard is, which no event would ever put right.
    if( GWinIsWishForFocus( message ) ) return true;
    if( _undoMinimize.hasExpired( ) || !GWinIsIconicNews( message ) || !GWinIsIconic( *this ) ) return false;
    _undoMinimize = QDeadlineTimer( 0 );
    GWinMap( *this );
    return true; // To the toolkit the window was never an icon.
}

// ---- The flat interface.

GWin GWinOpen( const GWString& title, const GRect& rect, bool topmost, IGWinListener* listener )
{
    GCALL( function );
    GPRECONDITION( listener );
    GWinFollowCompositor( followCompositor );
    auto* win = new GWinRecord( rect, topmost, listener );
    win->setTitle( GDesktopText( title ) );
    return win;
}

void GWinClose( GWin win )
{
    GCALL( function );
    GPRECONDITION( win );
    win->release( );
}

void GWinShow( GWin win )
{
    GPRECONDITION( win );
    win->display( );
}
void GWinHide( GWin win )
{
    GPRECONDITION( win );
    win->setVisible( false );
    GDesktopFlush( );
}
void GWinMinimize( GWin win )
{
    GPRECONDITION( win );
    win->minimize( );
}
void GWinMaximize( GWin win )
{
    GPRECONDITION( win );
    win->showMaximized( );
    GDesktopFlush( );
}
void GWinRestore( GWin win )
{
    GPRECONDITION( win );
    win->restore( );
}
bool GWinIsMaximized( GWin win )
{
    GPRECONDITION( win );
    return win->windowStates( ).testFlag( Qt::WindowMaximized ) &&
           !win->windowStates( ).testFlag( Qt::WindowMinimized );
}
bool GWinIsMinimized( GWin win )
{
    GPRECONDITION( win );
    return win->windowStates( ).testFlag( Qt::WindowMinimized );
}
bool GWinIsVisible( GWin win )
{
    GPRECONDITION( win );
    return win->isVisible( );
}
bool GWinHasKeyFocus( GWin win )
{
    GPRECONDITION( win );
    return win->isActive( );
}

void GWinSetForeground( GWin win )
{
    GPRECONDITION( win );
    win->raise( );
    // A window that takes no focus is not to be activated.
    if( !win->isTopmost( ) && win->isVisible( ) ) win->requestActivate( );
    GDesktopFlush( );
}

void GWinMove( GWin win, const GRect& rect )
{
    GPRECONDITION( win );
    GPRECONDITION( GVALIDRECT( rect ) );
    win->place( rect );
}

void GWinMouseCapture( GWin win )
{
    GPRECONDITION( win );
    win->setMouseCapture( true );
}
void GWinMouseRelease( GWin win )
{
    GPRECONDITION( win );
    win->setMouseCapture( false );
}
void GWinGetScreenPosition( GWin win, GRect& rect )
{
    GPRECONDITION( win );
    rect = win->getRect( );
}
void GWinFlash( GWin win )
{
    GPRECONDITION( win );
    win->flashTwice( );
}

void GWinRepaint( GWin win, int width, int height, const char* pixels, int alpha )
{
    GPRECONDITION( win );
    GPRECONDITION( width > 0 && height > 0 && pixels );
    GPRECONDITION( GWITHIN( 0, alpha, 255 ) );
    win->repaint( width, height, pixels, alpha, { 0, 0, width, height } );
}

void GWinRepaintPart( GWin win, int width, int height, const char* pixels, int alpha, const GRect& changed )
{
    GPRECONDITION( win );
    GPRECONDITION( width > 0 && height > 0 && pixels );
    GPRECONDITION( GWITHIN( 0, alpha, 255 ) );
    win->repaint( width, height, pixels, alpha, changed );
}

void GWinWhenShown( std::function<void( )> task )
{
    GDesktopWhenShown( std::move( task ) );
}

void GWinSetTitle( GWin win, const GWString& title )
{
    GPRECONDITION( win );
    win->setTitle( GDesktopText( title ) );
    GDesktopFlush( );
}

bool GWinUpdate( bool& quit )
{
    GDesktopOpen( );
    QCoreApplication::exec( );
    quit = quitParameter_.exchange( 0 ) != 0;
    return false;
}

void GWinPostQuit( int parameter )
{
    quitParameter_ = parameter;
    GDesktopPost( []( ) { QCoreApplication::exit( 0 ); } );
}

bool GWinIsAnyShown( )
{
    return std::any_of( windows_.begin( ), windows_.end( ),
                        []( const GWinRecord* window ) { return window->isVisible( ) && !window->isTopmost( ); } );
}

GRect GWinGetWorkArea( int x, int y )
{
    GDesktopOpen( );
    const QScreen* screen = QGuiApplication::screenAt( { x, y } );
    if( !screen ) screen = QGuiApplication::primaryScreen( );
    return screen ? fromQt( screen->availableGeometry( ) ) : GRect{ 0, 0, 1024, 768 };
}
