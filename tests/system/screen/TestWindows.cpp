#include "system/screen/TestWindows.h"

#include "system/screen/TestServer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>

namespace
{
struct Free
{
    void operator( )( void* memory ) const { std::free( memory ); }
};
template <typename T>
using Reply = std::unique_ptr<T, Free>;

bool isAnswering( xcb_connection_t* connection )
{
    return connection && Reply<xcb_get_input_focus_reply_t>(
                             xcb_get_input_focus_reply( connection, xcb_get_input_focus( connection ), nullptr ) );
}

// One connection a display and thread for the whole run: the numbers of a client that has left are given to the next, and what the
// window manager still does to a window that has gone would meet a new one.
xcb_connection_t* connect( )
{
    thread_local std::map<std::string, xcb_connection_t*> connections;
    xcb_connection_t*& connection = connections[std::getenv( "DISPLAY" )];
    if( !isAnswering( connection ) )
    {
        if( connection ) xcb_disconnect( connection );
        connection = xcb_connect( nullptr, nullptr );
    }
    EXPECT_TRUE( isAnswering( connection ) );
    return connection;
}
} // namespace

TestWindows::TestWindows( ) : _connection( connect( ) )
{
    _screen = xcb_setup_roots_iterator( xcb_get_setup( _connection ) ).data;
}

TestWindows::~TestWindows( )
{
    for( const xcb_window_t window : _windows ) xcb_destroy_window( _connection, window );
    sync( );
}

xcb_window_t TestWindows::open( const GRect& rect, uint32_t colour, const std::string& title )
{
    const xcb_window_t window = _create( _screen->root, rect, colour, false );
    if( !title.empty( ) ) setBytes( window, "_NET_WM_NAME", "UTF8_STRING", title );
    // The place is the user's wish, so that the window manager does not choose another.
    constexpr uint32_t USER_POSITION = 1;
    const uint32_t hints[18] = { USER_POSITION };
    xcb_change_property( _connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS,
                         32, 18, hints );
    _show( window );
    return window;
}

xcb_window_t TestWindows::openMenu( const GRect& rect, uint32_t colour, int border )
{
    const xcb_window_t window = _create( _screen->root, rect, colour, true, border );
    _show( window );
    return window;
}

xcb_window_t TestWindows::openLayered( const GRect& rect, uint32_t colour )
{
    xcb_visualid_t visual = 0;
    for( auto depths = xcb_screen_allowed_depths_iterator( _screen ); depths.rem > 0; xcb_depth_next( &depths ) )
        if( depths.data->depth == 32 ) visual = xcb_depth_visuals( depths.data )->visual_id;
    EXPECT_NE( 0U, visual );
    const xcb_colormap_t map = xcb_generate_id( _connection );
    xcb_create_colormap( _connection, XCB_COLORMAP_ALLOC_NONE, map, _screen->root, visual );
    const xcb_window_t window = _windows.emplace_back( xcb_generate_id( _connection ) );
    const uint32_t values[] = { colour, 0, 1, map };
    xcb_create_window( _connection, 32, window, _screen->root, static_cast<int16_t>( rect.left ),
                       static_cast<int16_t>( rect.top ), static_cast<uint16_t>( rect.width( ) ),
                       static_cast<uint16_t>( rect.height( ) ), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, visual,
                       XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_COLORMAP, values );
    _show( window );
    return window;
}

xcb_window_t TestWindows::openChild( xcb_window_t parent, const GRect& rect, uint32_t colour )
{
    const xcb_window_t window = _create( parent, rect, colour, false );
    _show( window );
    return window;
}

xcb_window_t TestWindows::openInputOnly( const GRect& rect )
{
    const xcb_window_t window = _windows.emplace_back( xcb_generate_id( _connection ) );
    const uint32_t overrideRedirect = 1;
    xcb_create_window( _connection, 0, window, _screen->root, static_cast<int16_t>( rect.left ),
                       static_cast<int16_t>( rect.top ), static_cast<uint16_t>( rect.width( ) ),
                       static_cast<uint16_t>( rect.height( ) ), 0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT,
                       XCB_CW_OVERRIDE_REDIRECT, &overrideRedirect );
    _show( window );
    return window;
}

void TestWindows::setBytes( xcb_window_t window, const char* property, const char* type, const std::string& value )
{
    xcb_change_property( _connection, XCB_PROP_MODE_REPLACE, window, _getAtom( property ), _getAtom( type ), 8,
                         static_cast<uint32_t>( value.size( ) ), value.data( ) );
    sync( );
}

void TestWindows::setAtom( xcb_window_t window, const char* property, const char* value )
{
    const xcb_atom_t atom = _getAtom( value );
    xcb_change_property( _connection, XCB_PROP_MODE_REPLACE, window, _getAtom( property ), XCB_ATOM_ATOM, 32, 1,
                         &atom );
    sync( );
}

void TestWindows::setRootColour( uint32_t colour )
{
    const uint32_t pixel = getPixel( colour );
    xcb_change_window_attributes( _connection, _screen->root, XCB_CW_BACK_PIXEL, &pixel );
    xcb_clear_area( _connection, 0, _screen->root, 0, 0, 0, 0 );
    sync( );
}

void TestWindows::hide( xcb_window_t window )
{
    xcb_unmap_window( _connection, window );
    sync( );
}

void TestWindows::minimise( xcb_window_t window )
{
    constexpr uint32_t ICONIC = 3;
    xcb_client_message_event_t message = { };
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = _getAtom( "WM_CHANGE_STATE" );
    message.data.data32[0] = ICONIC;
    xcb_send_event( _connection, 0, _screen->root,
                    XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                    reinterpret_cast<const char*>( &message ) );
    sync( );
}

void TestWindows::close( xcb_window_t window )
{
    std::erase( _windows, window );
    xcb_destroy_window( _connection, window );
    sync( );
}

void TestWindows::sync( )
{
    Reply<xcb_get_input_focus_reply_t>(
        xcb_get_input_focus_reply( _connection, xcb_get_input_focus( _connection ), nullptr ) );
}

xcb_window_t TestWindows::getTop( xcb_window_t window )
{
    for( ;; )
    {
        const Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply( _connection, xcb_query_tree( _connection, window ), nullptr ) );
        if( !tree || tree->parent == 0 || tree->parent == tree->root ) return tree ? window : 0;
        window = tree->parent;
    }
}

GRect TestWindows::getTopRect( xcb_window_t window )
{
    const Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply( _connection, xcb_get_geometry( _connection, getTop( window ) ), nullptr ) );
    if( !geometry ) return { };
    return { geometry->x, geometry->y, geometry->x + geometry->width + 2 * geometry->border_width,
             geometry->y + geometry->height + 2 * geometry->border_width };
}

uint32_t TestWindows::getPixel( uint32_t colour )
{
    const auto part = [&]( int shift ) { return static_cast<uint16_t>( ( ( colour >> shift ) & 0xFF ) * 257 ); };
    const Reply<xcb_alloc_color_reply_t> reply( xcb_alloc_color_reply(
        _connection, xcb_alloc_color( _connection, _screen->default_colormap, part( 16 ), part( 8 ), part( 0 ) ),
        nullptr ) );
    return reply ? reply->pixel : 0;
}

xcb_window_t TestWindows::_create( xcb_window_t parent, const GRect& rect, uint32_t colour, bool isMenu, int border )
{
    const xcb_window_t window = _windows.emplace_back( xcb_generate_id( _connection ) );
    const uint32_t values[] = { getPixel( colour ), getPixel( colour ), isMenu };
    xcb_create_window( _connection, XCB_COPY_FROM_PARENT, window, parent, static_cast<int16_t>( rect.left ),
                       static_cast<int16_t>( rect.top ), static_cast<uint16_t>( rect.width( ) ),
                       static_cast<uint16_t>( rect.height( ) ), static_cast<uint16_t>( border ),
                       XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                       XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values );
    return window;
}

xcb_atom_t TestWindows::_getAtom( const std::string& name )
{
    const Reply<xcb_intern_atom_reply_t> reply( xcb_intern_atom_reply(
        _connection, xcb_intern_atom( _connection, 0, static_cast<uint16_t>( name.size( ) ), name.data( ) ),
        nullptr ) );
    return reply ? reply->atom : xcb_atom_t{ XCB_ATOM_NONE };
}

void TestWindows::_show( xcb_window_t window )
{
    constexpr int TRIES_A_MAP = 100;
    int tries = 0;
    EXPECT_TRUE( awaitUntil(
        [&]
        {
            // A window manager that has just started may miss the first request.
            if( tries++ % TRIES_A_MAP == 0 ) xcb_map_window( _connection, window );
            const Reply<xcb_get_window_attributes_reply_t> attributes( xcb_get_window_attributes_reply(
                _connection, xcb_get_window_attributes( _connection, window ), nullptr ) );
            return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
        } ) );
}
