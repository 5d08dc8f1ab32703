// Joins the tree to a layered top-level window: owns the layer its subtree draws into and the map that tells which handler owns
// each pixel, routes every event, keeps focus and pointer, holds repaints to a set rate, fades in and out. While it is hidden it has
// no layer and no timer. With "of" and "values" it gives values of one buddy to its subtree by plain names.
// User-interface thread.
#pragma once

#include "client/skin/GTemplateNode.h"
#include "client/skin/IGInputHandler.h"
#include "client/skin/nodes/GHint.h"
#include "client/skin/nodes/GNodeTools.h"
#include "image/GImageFormat.h"
#include "platform/GTimer.h"
#include "platform/GWin.h"

// Where and how a window stands, for the window that comes into its place.
struct GWindowPlace
{
    GRect rect;
    int skinWidth = 0; // As the skin had it made, before the user or a setting sized it.
    int skinHeight = 0;
    bool shown = false;
    bool minimized = false;
    bool maximized = false;
    bool active = false;
};

class GWindowNode : public GTemplateNode, public IGInputHandler, public IGNotifyListener, public IGTimerListener
{
public:
    GWindowNode( GInstance* instance, IGCommandEngine* commandEngine, GTemplateNode* parent );
    static GAttributeTable getAttributeTable( );
    static GNameTable getNameTable( );
    ~GWindowNode( ) override;

    // Runs "$onopen" or "$onclose" with this node as its source.
    void open( );
    void close( );
    // Microseconds. A fade-in of a window that shows already only raises it, from the task bar too; a fade-out of a hidden one does
    // nothing. A window with "$tray" minimizes instead of fading out when there is no tray host to bring it back.
    void fadeIn( int64_t duration );
    void fadeOut( int64_t duration );
    // Sizes the window to what its children need.
    void fit( );
    // Toggles.
    void maximize( );
    void minimize( );
    // Flashes the task bar entry of an open window and opens a closed one.
    void flash( );

    void calcMinSize( int& width, int& height ) override;
    void collectDamage( GSkinDamage& damage ) const override;

    // Takes handlers below `node` out of focus, capture, pointer and input map.
    void forget( GTemplateNode* node );
    // Takes the keyboard focus from that handler, if it has it.
    void leave( IGInputHandler* handler );
    GWindowPlace getPlace( ) const;
    // Stands where and how another one stood, without a fade and without its commands. A size that the user chose stays in the same
    // ratio to the skin's own. `focus` gets the keyboard, if it is not null.
    void takePlace( const GWindowPlace& place, IGInputHandler* focus );
    // Hides at once, without a fade, and gives the layer back.
    void hide( );
    // Asked by a node that moves while it is drawn: the window is drawn again at the next tick.
    void keepMoving( );

    // Null until the first update.
    GWin getWin( ) const { return _win; }
    // On the desktop, minimized or not.
    bool isVisible( ) const { return _win && GWinIsVisible( _win ); }
    GNotifyHandle getNotify( ) const { return _notify; }
    const GRect& getRect( ) const { return _rect; }
    int getAlpha( ) const { return _alpha; }
    bool isRenderPending( ) const { return _renderPending; }
    // True while the timer runs: during fades and while a repaint waits.
    bool isAwake( ) const { return _timer; }
    IGInputHandler* getKeyFocus( ) const { return _keyFocus; }
    IGInputHandler* getCapture( ) const { return _capture; }
    IGInputHandler* getMouseover( ) const { return _mouseover; }
    // The layer as it was drawn last: premultiplied GIT_RGBA32.
    const GImageFormat& getLayerFormat( ) const { return _format; }
    const GString& getLayerPixels( ) const { return _pixels; }
    // What of it was drawn last.
    const GRect& getPart( ) const { return _part; }
    // Who takes the pointer at each pixel of the layer, row by row; null where nobody does.
    const std::vector<IGInputHandler*>& getInputMap( ) const { return _inputMap; }
    // What says what the control under the pointer is for.
    GHint& getHintWindow( ) { return _hint; }

    int getNCHITTEST( GWin win, int x, int y ) override;
    bool getMinSize( GWin win, int& width, int& height ) override;
    void onReposition( GWin win, const GRect& rect ) override;
    int onKeyDown( GWin win, int key ) override;
    int onKeyUp( GWin win, int key ) override;
    int onKeyPressed( GWin win, char16_t character ) override;
    int onMouseMove( GWin win, int x, int y ) override;
    void onMouseLeft( GWin win ) override;
    int onLButtonDown( GWin win, int x, int y ) override;
    int onLButtonUp( GWin win, int x, int y ) override;
    int onLButtonDblClk( GWin win, int x, int y ) override;
    int onRButtonDown( GWin win, int x, int y ) override;
    void onClose( GWin win ) override;
    void onShow( GWin win ) override;
    int onPaste( GWin win, const GWString& text ) override;
    int onMouseWheel( GWin win, int steps ) override;
    void onNotification( int kind, uint64_t time ) override;
    void onTimer( GTimer timer ) override;

protected:
    bool _preChildUpdate( GAttributeStack& stack ) override;
    bool _postChildUpdate( GAttributeStack& stack ) override;
    bool _preChildRender( GImageStack& images ) override;
    void _postChildRender( GImageStack& images ) override;

private:
    using PointerEvent = int ( IGWinListener::* )( GWin, int, int );

    struct BoundValue
    {
        GWString source; // On the blackboard.
        GWString name;   // In the scope.
        GWString value;
    };

    void _create( GAttributeStack& stack );
    void _obtainWin( );
    void _giveValues( GAttributeStack& stack );
    void _bindValues( );
    void _evaluateOwn( GAttributeStack& stack );
    void _refreshValues( );
    void _flashForNews( );
    void _restorePlace( );
    void _rememberPlace( );
    void _respond( int flags, IGInputHandler* handler = nullptr );
    void _wake( );
    void _takeFirstFocus( );
    bool _updateSelf( );
    void _renderSelf( );
    void _advanceFade( uint64_t now );
    // False when there is nothing to draw.
    bool _prepareLayer( );
    bool _drawsPart( ) const { return _part != GRect{ 0, 0, _format.width, _format.height }; }
    void _drawFocus( GImageStack& images );
    GRect _collectPart( const GRect& layer ) const;
    // Calls with the first pixel and the length of each row of the part.
    template <typename Call>
    void _forRows( Call call ) const
    {
        for( int y = _part.top; y < _part.bottom; ++y )
            call( static_cast<size_t>( y ) * _format.width + _part.left, static_cast<size_t>( _part.width( ) ) );
    }
    void _logRate( uint64_t now );
    int _pointer( PointerEvent event, int x, int y );
    IGInputHandler* _getHandler( int x, int y ) const;
    IGInputHandler* _getTarget( int x, int y ) const;
    int _setKeyFocus( IGInputHandler* handler );
    int _setMouseover( IGInputHandler* handler );
    int _updateKeyFocus( int x, int y );
    int _updateMouseover( int x, int y );
    void _updateHint( int x, int y );
    GRect _findOnDesktop( const IGInputHandler* handler ) const;
    bool _moveKeyFocus( bool backward );
    bool _isDrawn( const IGInputHandler* handler ) const;
    bool _isFocusable( GTemplateNode* node ) const;

    GHint _hint;
    GWin _win = nullptr;
    bool _isMade = false;
    bool _topmost = false;
    GWString _title;
    GTimer _timer = nullptr;
    GNotifyHandle _notify = nullptr;
    std::vector<IGInputHandler*> _inputMap;
    GRect _rect;
    int _skinWidth = 0;
    int _skinHeight = 0;
    GImageFormat _format;
    GString _pixels;
    // What is drawn anew: all, unless nothing but values that are watched for a repaint alone have changed since the last time.
    GRect _part;
    GRect _ring; // Around what has the focus.
    bool _drawsAll = true;
    bool _mayDrawPart = false;
    bool _isAsked = false; // By a value that is watched for a repaint.
    uint64_t _drawnAt = 0;
    int _alpha = 0;
    bool _enableAlpha = false;
    GWString _onOpen;
    GWString _onClose;
    GWString _onEscape; // "$onescape", "$onreturn": keys that no node with the focus took.
    GWString _onReturn;
    bool _autoFocus = false;  // "$autofocus": the first stop of the tab key has the focus whenever the window opens.
    bool _focusWanted = true; // The window has opened and not been drawn since.
    IGInputHandler* _keyFocus = nullptr;
    IGInputHandler* _capture = nullptr;
    IGInputHandler* _mouseover = nullptr;
    GWString _path;
    GWString _remember;
    GWString _of;
    GWString _values;
    std::vector<BoundValue> _bound;
    GWString _shownName;
    GWString _scratch;
    GWString _flashOn;
    int _newsSeen = 0;
    GNodeWatchList _watches{ GWATCH_UPDATE };
    bool _inTray = false;
    bool _firstUpdate = false;
    int _minWidth = 0;
    int _minHeight = 0;
    uint64_t _fadeInStart = 0;
    uint64_t _fadeInEnd = 0;
    uint64_t _fadeOutStart = 0;
    uint64_t _fadeOutEnd = 0;
    uint64_t _notifyTimes[3] = { };
    int64_t _logInterval = 2000000;
    uint64_t _lastLog = 0;
    int _frameCount = 0;
    int64_t _renderInterval = 66666;
    uint64_t _lastRender = 0;
    bool _focusFade = false;
    GWString _focusSrc; // The ring around what has the focus, drawn as nine pieces over everything; none by default.
    int _focusSlice = 0;
    int _focusOut = 0; // Pixels between it and the ring's outer edge.
    bool _renderPending = false;
    bool _moving = false;
    bool _updating = false;
    bool _rendering = false;
};
