// What layered windows ask of the X server itself, on the toolkit's connection.
#include "platform/desktop/GDesktop_Qt.h"
#include "platform/input/GXcb.h"
#include "platform/window/GWin_Qt.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <xcb/shape.h>
#include <xcb/xcb.h>

namespace
{
struct Free
{
    void operator( )( void* reply ) const { std::free( reply ); }
};
template <typename T>
using Reply = std::unique_ptr<T, Free>;

constexpr qint64 ASK_AGAIN_MILLISECONDS = 500;
// Owned by the manager of the first screen; the toolkit knows no other.
constexpr char COMPOSITOR[] = "_NET_WM_CM_S0";

xcb_atom_t getAtom( xcb_connection_t* connection, const std::string& name )
{
    const Reply<xcb_intern_atom_reply_t> reply( xcb_intern_atom_reply(
        connection, xcb_intern_atom( connection, 0, static_cast<uint16_t>( name.size( ) ), name.data( ) ), nullptr ) );
    return reply ? reply->atom : xcb_atom_t{ XCB_ATOM_NONE };
}

xcb_atom_t getStateAtom( xcb_connection_t* connection )
{
    static const xcb_atom_t atom = getAtom( connection, "WM_STATE" );
    return atom;
}

xcb_atom_t getActiveAtom( xcb_connection_t* connection )
{
    static const xcb_atom_t atom = getAtom( connection, "_NET_ACTIVE_WINDOW" );
    return atom;
}

bool composited_ = true;

void askComposited( )
{
    composited_ = true;
    xcb_connection_t* connection = GDesktopGetConnection( );
    if( !connection ) return;
    static const xcb_atom_t atom = getAtom( connection, COMPOSITOR );
    const Reply<xcb_get_selection_owner_reply_t> reply(
        xcb_get_selection_owner_reply( connection, xcb_get_selection_owner( connection, atom ), nullptr ) );
    composited_ = reply && reply->owner != XCB_WINDOW_NONE;
}
} // namespace

bool GWinIsComposited( )
{
    return composited_;
}

void GWinFollowCompositor( void ( *onChange )( ) )
{
    static void ( *changed )( ) = nullptr;
    static const auto ask = []( )
    {
        const bool was = composited_;
        askComposited( );
        if( composited_ != was && changed ) changed( );
    };
    static bool follows = false;
    changed = onChange;
    if( follows || !GDesktopGetConnection( ) ) return;
    // Watched before it is asked for, so that no change falls between.
    follows = true;
    const bool tells = GXcbWatchSelection( COMPOSITOR, ask );
    askComposited( );
    if( tells ) return;
    GDesktopOnTick(
        []( )
        {
            static QElapsedTimer asked;
            if( asked.isValid( ) && asked.elapsed( ) < ASK_AGAIN_MILLISECONDS ) return true;
            asked.start( );
            ask( );
            return true;
        } );
}

void GWinShapeInput( QWindow& window, const std::vector<GRect>& bands )
{
    xcb_connection_t* connection = GDesktopGetConnection( );
    if( !connection ) return;
    std::vector<xcb_rectangle_t> rectangles;
    rectangles.reserve( bands.size( ) );
    for( const GRect& band : bands )
        rectangles.push_back( { static_cast<int16_t>( band.left ), static_cast<int16_t>( band.top ),
                                static_cast<uint16_t>( band.width( ) ), static_cast<uint16_t>( band.height( ) ) } );
    xcb_shape_rectangles( connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_YX_BANDED,
                          static_cast<xcb_window_t>( window.winId( ) ), 0, 0,
                          static_cast<uint32_t>( rectangles.size( ) ), rectangles.data( ) );
    GDesktopFlush( );
}

bool GWinIsIconic( QWindow& window )
{
    constexpr uint32_t ICONIC = 3; // IconicState, by the conventions of X clients (4.1.3.1).
    xcb_connection_t* connection = GDesktopGetConnection( );
    if( !connection ) return false;
    const xcb_atom_t atom = getStateAtom( connection );
    const Reply<xcb_get_property_reply_t> reply( xcb_get_property_reply(
        connection, xcb_get_property( connection, 0, static_cast<xcb_window_t>( window.winId( ) ), atom, atom, 0, 1 ),
        nullptr ) );
    return reply && reply->format == 32 && xcb_get_property_value_length( reply.get( ) ) >= 4 &&
           *static_cast<const uint32_t*>( xcb_get_property_value( reply.get( ) ) ) == ICONIC;
}

void GWinMap( QWindow& window )
{
    xcb_connection_t* connection = GDesktopGetConnection( );
    if( !connection ) return;
    xcb_map_window( connection, static_cast<xcb_window_t>( window.winId( ) ) );
    GDesktopFlush( );
}

void GWinActivate( QWindow& window )
{
    constexpr uint32_t BY_THE_USER = 2; // The source of a request, by the window manager hints 1.5.
    xcb_connection_t* connection = GDesktopGetConnection( );
    if( !connection ) return;
    xcb_client_message_event_t message = { };
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = static_cast<xcb_window_t>( window.winId( ) );
    message.type = getActiveAtom( connection );
    message.data.data32[0] = BY_THE_USER;
    const xcb_window_t root = xcb_setup_roots_iterator( xcb_get_setup( connection ) ).data->root;
    xcb_send_event( connection, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                    reinterpret_cast<const char*>( &message ) );
    GDesktopFlush( );
}

void GWinWantShown( QWindow& window )
{
    // The window manager's hints: nine words, of which the third is the state to begin in when the flags say so.
    constexpr uint32_t WORDS = 9;
    constexpr uint32_t NORMAL = 1;
    xcb_connection_t* connection = GDesktopGetConnection( );
    if( !connection ) return;
    const auto id = static_cast<xcb_window_t>( window.winId( ) );
    const Reply<xcb_get_property_reply_t> reply( xcb_get_property_reply(
        connection, xcb_get_property( connection, 0, id, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, 0, WORDS ), nullptr ) );
    if( !reply || reply->format != 32 || xcb_get_property_value_length( reply.get( ) ) < 12 ) return;
    auto* words = static_cast<uint32_t*>( xcb_get_property_value( reply.get( ) ) );
    words[2] = NORMAL;
    xcb_change_property( connection, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, 32,
                         static_cast<uint32_t>( xcb_get_property_value_length( reply.get( ) ) / 4 ), words );
    GDesktopFlush( );
}

bool GWinIsIconicNews( const void* nativeEvent )
{
    xcb_connection_t* connection = GDesktopGetConnection( );
    const auto* event = static_cast<const xcb_property_notify_event_t*>( nativeEvent );
    return connection && ( event->response_type & 0x7F ) == XCB_PROPERTY_NOTIFY &&
           event->atom == getStateAtom( connection );
}

bool GWinIsWishForFocus( const void* nativeEvent )
{
    xcb_connection_t* connection = GDesktopGetConnection( );
    const auto* event = static_cast<const xcb_client_message_event_t*>( nativeEvent );
    return connection && ( event->response_type & 0x7F ) == XCB_CLIENT_MESSAGE &&
           event->type == getActiveAtom( connection );
}

void GWinSetClass( QWindow& window )
{
    xcb_connection_t* connection = GDesktopGetConnection( );
    if( !connection ) return;
    using namespace std::string_literals;
    const std::string value = QCoreApplication::applicationName( ).toStdString( ) + "\0GWIN_LAYERED_CLASS\0"s;
    xcb_change_property( connection, XCB_PROP_MODE_REPLACE, static_cast<xcb_window_t>( window.winId( ) ),
                         XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8, static_cast<uint32_t>( value.size( ) ), value.data( ) );
    GDesktopFlush( );
}
