// What layered windows ask of the X server itself, on the toolkit's connection.
#include "platform/desktop/GDesktop_Qt.h"
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

xcb_atom_t getAtom( xcb_connection_t* connection, const std::string& name )
{
    const Reply<xcb_intern_atom_reply_t> reply( xcb_intern_atom_reply(
        connection, xcb_intern_atom( connection, 0, static_cast<uint16_t>( name.size( ) ), name.data( ) ), nullptr ) );
    return reply ? reply->atom : xcb_atom_t{ XCB_ATOM_NONE };
}

bool askComposited( xcb_connection_t* connection )
{
    // The manager of the first screen; the toolkit knows no other.
    static const xcb_atom_t atom = getAtom( connection, "_NET_WM_CM_S0" );
    const Reply<xcb_get_selection_owner_reply_t> reply(
        xcb_get_selection_owner_reply( connection, xcb_get_selection_owner( connection, atom ), nullptr ) );
    return reply && reply->owner != XCB_WINDOW_NONE;
}
} // namespace

bool GWinIsComposited( )
{
    static QElapsedTimer asked;
    static bool composited = true;
    xcb_connection_t* connection = GDesktopGetConnection( );
    if( !connection ) return true;
    if( asked.isValid( ) && asked.elapsed( ) < ASK_AGAIN_MILLISECONDS ) return composited;
    composited = askComposited( connection );
    asked.start( );
    return composited;
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
