// The desktop by way of the X server. A handle has a connection of its own; what needs no handle shares one under a lock.
#include "platform/common/GScreenBackend.h"
#include "platform/screen/GScreenDamage.h"
#include "platform/screen/GScreenFrame.h"
#include "platform/screen/GScreenTree.h"

#include <algorithm>
#include <mutex>

namespace
{
std::mutex sharedMutex_;
GScreenConnection shared_;

class Backend : public IGScreenBackend
{
public:
    const char* capture( const GRect& dirtyRect, GImageFormat& format ) override
    {
        return _frame.capture( dirtyRect, format );
    }
    bool getWindows( int& width, int& height, std::vector<GScreenWindow>& windows ) override
    {
        return _connection.run(
            [&]( )
            {
                windows.clear( );
                GScreenTree tree( _connection );
                if( !tree.read( ) ) return false;
                tree.getWindows( windows );
                width = tree.getWidth( );
                height = tree.getHeight( );
                return true;
            } );
    }
    bool getDamage( std::vector<GRect>& rects ) override { return _damage.take( rects ); }
    bool waitForDamage( int64_t microseconds ) override { return _damage.wait( microseconds ); }

private:
    GScreenConnection _connection;
    GScreenFrame _frame{ _connection };
    GScreenDamage _damage{ _connection };
};

template <typename Work>
bool withServer( Work work )
{
    const std::scoped_lock lock( sharedMutex_ );
    return shared_.run( [&]( ) { return work( shared_ ); } );
}

bool hasActiveWindows( GScreenConnection& connection )
{
    constexpr uint32_t MOST_ATOMS = 4096;
    const GScreenReply<xcb_get_property_reply_t> supported(
        xcb_get_property_reply( connection.get( ),
                                xcb_get_property( connection.get( ), 0, connection.getRoot( ),
                                                  connection.getAtom( GATOM_SUPPORTED ), XCB_ATOM_ATOM, 0, MOST_ATOMS ),
                                nullptr ) );
    if( !supported || supported->format != 32 ) return false;
    const auto* first = static_cast<const xcb_atom_t*>( xcb_get_property_value( supported.get( ) ) );
    const auto* last = first + supported->value_len;
    return std::find( first, last, connection.getAtom( GATOM_ACTIVE_WINDOW ) ) != last;
}

// Asks the window manager as a panel does when the user has picked a window there.
void activate( GScreenConnection& connection, xcb_window_t client )
{
    constexpr uint32_t FROM_PANEL = 2;
    xcb_client_message_event_t message = { };
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = client;
    message.type = connection.getAtom( GATOM_ACTIVE_WINDOW );
    message.data.data32[0] = FROM_PANEL;
    message.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event( connection.get( ), 0, connection.getRoot( ),
                    XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                    reinterpret_cast<const char*>( &message ) );
}

void stackAbove( GScreenConnection& connection, xcb_window_t window )
{
    const uint32_t mode = XCB_STACK_MODE_ABOVE;
    xcb_configure_window( connection.get( ), window, XCB_CONFIG_WINDOW_STACK_MODE, &mode );
}
} // namespace

std::unique_ptr<IGScreenBackend> GScreenBackendOpen( )
{
    return std::make_unique<Backend>( );
}

bool GScreenBackendGetTitles( int& width, int& height, std::vector<GScreenTitle>& titles )
{
    return withServer(
        [&]( GScreenConnection& connection )
        {
            titles.clear( );
            GScreenTree tree( connection );
            if( !tree.read( ) ) return false;
            tree.getTitles( titles );
            width = tree.getWidth( );
            height = tree.getHeight( );
            return true;
        } );
}

bool GScreenBackendRaise( uint32_t windowID )
{
    return withServer(
        [&]( GScreenConnection& connection )
        {
            const xcb_window_t client = GScreenTree( connection ).findClient( windowID );
            if( !client ) return false;
            const bool canActivate = hasActiveWindows( connection );
            if( canActivate ) activate( connection, client );
            // A frame is the window manager's own; any other window it restacks for us, or lets us.
            if( !canActivate || client == windowID ) stackAbove( connection, windowID );
            return xcb_flush( connection.get( ) ) > 0;
        } );
}

bool GScreenBackendGetPointer( int& x, int& y )
{
    return withServer(
        [&]( GScreenConnection& connection )
        {
            const GScreenReply<xcb_query_pointer_reply_t> reply( xcb_query_pointer_reply(
                connection.get( ), xcb_query_pointer( connection.get( ), connection.getRoot( ) ), nullptr ) );
            if( !reply ) return false;
            x = reply->root_x;
            y = reply->root_y;
            return true;
        } );
}

bool GScreenBackendSetPointer( int x, int y )
{
    const auto held = []( int position ) { return static_cast<int16_t>( std::clamp<int>( position, 0, INT16_MAX ) ); };
    return withServer(
        [&]( GScreenConnection& connection )
        {
            const xcb_void_cookie_t asked = xcb_warp_pointer_checked(
                connection.get( ), XCB_WINDOW_NONE, connection.getRoot( ), 0, 0, 0, 0, held( x ), held( y ) );
            return !GScreenReply<xcb_generic_error_t>( xcb_request_check( connection.get( ), asked ) );
        } );
}

void GScreenBackendClose( )
{
    const std::scoped_lock lock( sharedMutex_ );
    shared_.close( );
}
