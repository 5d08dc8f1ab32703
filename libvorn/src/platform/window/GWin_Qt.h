// One layered window on the toolkit: its bitmap, its own moving and sizing by hit code, and the events that it hands on.
#pragma once

#include "platform/GWin.h"

#include <QBackingStore>
#include <QDeadlineTimer>
#include <QImage>
#include <QTimer>
#include <QWindow>

#include <vector>

class QInputMethodEvent;

struct GWinRecord : public QWindow
{
public:
    GWinRecord( const GRect& rect, bool topmost, IGWinListener* listener );

    // Ends the window; the record goes as soon as no event of it is under way.
    void release( );

    void place( const GRect& rect );
    // Nothing outside of `changed` differs from the last time.
    void repaint( int width, int height, const char* pixels, int alpha, GRect changed );
    GRect getRect( ) const;
    void flashTwice( );
    void display( );
    void minimize( );
    void restore( );
    // Follows the coming and going of a compositor.
    void updateShape( );

    bool isTopmost( ) const { return _topmost; }
    void setMouseCapture( bool capture );
    // The smallest size the window may be given: the listener's, where a side above 1000 becomes 100.
    void getTrackSize( int& width, int& height );

protected:
    bool event( QEvent* event ) override;
    bool nativeEvent( const QByteArray& type, void* message, qintptr* result ) override;

private:
    bool _dispatch( QEvent* event );
    void _onExposed( );
    void _paint( const QRect& part );
    void _shape( const char* pixels, int width, int height );
    void _onGeometry( );
    void _settle( );
    void _report( const GRect& rect );
    void _expect( const GRect& rect );
    void _apply( const GRect& rect );

    void _onPress( QMouseEvent* event );
    void _onRelease( QMouseEvent* event );
    void _onMove( QMouseEvent* event );
    void _onWheel( QWheelEvent* event );
    void _leave( );
    int _hitTest( const QPoint& point );
    void _showCursor( int hit );
    void _startDrag( int hit, const QPoint& global );
    void _drag( const QPoint& global );
    void _endDrag( );

    void _onKeyPress( QKeyEvent* event );
    void _onKeyRelease( QKeyEvent* event );
    void _onText( const QString& text );
    bool _onPasteKey( QKeyEvent* event, int key );

    IGWinListener* _listener;
    const bool _topmost;
    int _depth = 0; // Events under way.

    QBackingStore _store;
    QImage _layer; // B,G,R,A premultiplied, constant alpha included.
    int _layerAlpha = -1;
    std::vector<GRect> _inputBands;
    std::vector<GRect> _maskBands;
    std::vector<GRect> _bands; // Work space.
    bool _masked = false;
    bool _shaped = false;
    bool _framed = false;

    GRect _reported;
    // After a placing of our own, older positions are still on their way from the X server; they are not news.
    bool _expecting = false;
    QTimer _settleTimer;
    QTimer _flashTimer;
    // Restored before the window manager had minimized it: what it still does about that is to be undone.
    QDeadlineTimer _undoMinimize{ 0 };

    bool _capture = false;
    bool _tracking = false; // A move was handed on and a leave is owed.
    int _cursorHit = GHIT_CLIENT;
    int _dragHit = 0;
    QPoint _dragStart;
    GRect _dragRect;
    quint64 _lastPress = 0; // Milliseconds, 0 when the next press can't be a second one.
    QPoint _lastPressPoint;
    int _wheel = 0;
};

// The virtual key of a key event; 0 when it has none.
int GKeyFromEvent( const QKeyEvent* event );
// True when the platform shows per-pixel alpha, as it is known since GWinFollowCompositor; that calls when it changes.
bool GWinIsComposited( );
void GWinFollowCompositor( void ( *onChange )( ) );
// Pointer input passes through all but these rectangles.
void GWinShapeInput( QWindow& window, const std::vector<GRect>& bands );
// True when the window manager shows the window as an icon; and its request to show it again.
bool GWinIsIconic( QWindow& window );
void GWinMap( QWindow& window );
// The user wants to see it: it comes to the front, and back from being minimized. Taken in its turn with what was asked before.
void GWinActivate( QWindow& window );
// Shown the next time it is no icon, though it was one before: the toolkit leaves that wish behind.
void GWinWantShown( QWindow& window );
// True for the news that the window manager has changed that.
bool GWinIsIconicNews( const void* nativeEvent );
// True for a request for the focus to the window manager, which comes back to the sender too; it is not an answer.
bool GWinIsWishForFocus( const void* nativeEvent );
// The class by which other programs find layered windows.
void GWinSetClass( QWindow& window );
