#include "platform/screen/GScreenConnection.h"

#include <csignal>
#include <string_view>

namespace
{
constexpr std::string_view ATOM_NAMES[GATOM_COUNT] = {
    "_NET_CLIENT_LIST",
    "_NET_SUPPORTED",
    "_NET_ACTIVE_WINDOW",
    "WM_STATE",
    "_NET_WM_NAME",
    "UTF8_STRING",
    "_NET_WM_WINDOW_TYPE",
    "_NET_WM_WINDOW_TYPE_DESKTOP",
    "_NET_WM_WINDOW_TYPE_DOCK",
};

// Writing to a server that has gone would end the process. A handler that someone has set stays.
void ignoreBrokenPipe( )
{
    struct sigaction action = { };
    if( sigaction( SIGPIPE, nullptr, &action ) == 0 && action.sa_handler == SIG_DFL ) std::signal( SIGPIPE, SIG_IGN );
}
} // namespace

bool GScreenConnection::open( )
{
    if( isAlive( ) ) return true;
    close( );
    ignoreBrokenPipe( );
    int number = 0;
    _connection = xcb_connect( nullptr, &number );
    ++_generation;
    _seen.reset( );
    if( isAlive( ) )
    {
        xcb_screen_iterator_t screens = xcb_setup_roots_iterator( xcb_get_setup( _connection ) );
        for( ; number > 0 && screens.rem > 1; --number ) xcb_screen_next( &screens );
        _screen = screens.rem > 0 ? screens.data : nullptr;
    }
    if( _screen )
    {
        const uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_change_window_attributes( _connection, _screen->root, XCB_CW_EVENT_MASK, &mask );
        if( _readAtoms( ) ) return true;
    }
    close( );
    return false;
}

void GScreenConnection::close( )
{
    if( _connection ) xcb_disconnect( _connection );
    _connection = nullptr;
    _screen = nullptr;
}

bool GScreenConnection::isAlive( ) const
{
    return _connection && !xcb_connection_has_error( _connection );
}

bool GScreenConnection::has( xcb_extension_t& extension ) const
{
    const xcb_query_extension_reply_t* reply = xcb_get_extension_data( _connection, &extension );
    return reply && reply->present;
}

void GScreenConnection::dropEvents( )
{
    if( !_connection ) return;
    while( const GScreenReply<xcb_generic_event_t> event{ xcb_poll_for_queued_event( _connection ) } ) _note( *event );
}

void GScreenConnection::readEvents( )
{
    if( !_connection ) return;
    while( const GScreenReply<xcb_generic_event_t> event{ xcb_poll_for_event( _connection ) } ) _note( *event );
}

bool GScreenConnection::takeSeen( uint8_t type )
{
    const bool seen = _seen[type & 0x7F];
    _seen.reset( type & 0x7F );
    return seen;
}

// The eighth bit tells that another program sent it; only the server's own count.
void GScreenConnection::_note( const xcb_generic_event_t& event )
{
    if( event.response_type & 0x80 ) return;
    _seen.set( event.response_type );
    if( event.response_type == XCB_CONFIGURE_NOTIFY ) ++_sizeChanges;
}

bool GScreenConnection::_readAtoms( )
{
    xcb_intern_atom_cookie_t cookies[GATOM_COUNT];
    for( int i = 0; i < GATOM_COUNT; ++i )
        cookies[i] =
            xcb_intern_atom( _connection, 0, static_cast<uint16_t>( ATOM_NAMES[i].size( ) ), ATOM_NAMES[i].data( ) );
    bool good = true;
    for( int i = 0; i < GATOM_COUNT; ++i )
    {
        const GScreenReply<xcb_intern_atom_reply_t> reply( xcb_intern_atom_reply( _connection, cookies[i], nullptr ) );
        good = good && reply;
        _atoms[i] = reply ? reply->atom : xcb_atom_t{ XCB_ATOM_NONE };
    }
    return good;
}
