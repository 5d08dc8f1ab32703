#include "platform/input/GXcb.h"

#include "base/GPortable.h"
#include "platform/GCrash.h"
#include "platform/desktop/GDesktop_Qt.h"

#include <QGuiApplication>
#include <QSocketNotifier>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xfixes.h>

namespace
{
struct Free
{
    void operator( )( void* memory ) const { std::free( memory ); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

xcb_connection_t* connection_ = nullptr;
bool tried_ = false;
uint32_t root_ = 0;
xcb_key_symbols_t* symbols_ = nullptr;
QSocketNotifier* notifier_ = nullptr;
void ( *onKeyPress_ )( uint8_t, uint16_t ) = nullptr;
void ( *onMapping_ )( ) = nullptr;
void ( *onSelection_ )( ) = nullptr;
int selectionEvent_ = 0; // Its number; 0 without the extension.

// Replies read on the way may have brought events along, for which the descriptor wakes no one.
void lookAfterReply( )
{
    GDesktopOnTick(
        []( )
        {
            GXcbDispatch( );
            return false;
        } );
}

void open( )
{
    tried_ = true;
    GDesktopOpen( );
    if( !GDesktopGetConnection( ) ) return;
    int screen = 0;
    connection_ = xcb_connect( nullptr, &screen );
    if( xcb_connection_has_error( connection_ ) )
    {
        GLOG( u"WARNING Cannot open a second connection to the X server, hotkeys will not work, ignoring." );
        xcb_disconnect( connection_ );
        connection_ = nullptr;
        return;
    }
    GCrashAddDisplaySocket( xcb_get_file_descriptor( connection_ ) );
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator( xcb_get_setup( connection_ ) );
    for( ; screen > 0 && screens.rem > 1; --screen ) xcb_screen_next( &screens );
    root_ = screens.data->root;
    symbols_ = xcb_key_symbols_alloc( connection_ );
    notifier_ = new QSocketNotifier( xcb_get_file_descriptor( connection_ ), QSocketNotifier::Read );
    QObject::connect( notifier_, &QSocketNotifier::activated, notifier_, []( ) { GXcbDispatch( ); } );
    lookAfterReply( );
}
} // namespace

xcb_connection_t* GXcbGetConnection( )
{
    if( !tried_ ) open( );
    return connection_;
}

uint32_t GXcbGetRoot( )
{
    return root_;
}

void GXcbClose( )
{
    tried_ = false;
    selectionEvent_ = 0;
    delete notifier_;
    notifier_ = nullptr;
    if( symbols_ ) xcb_key_symbols_free( symbols_ );
    symbols_ = nullptr;
    if( connection_ ) xcb_disconnect( connection_ );
    connection_ = nullptr;
}

uint32_t GXcbGetPlainKeysym( uint32_t keycode )
{
    if( keycode < 8 || keycode > 255 || !GXcbGetConnection( ) ) return 0;
    return xcb_key_symbols_get_keysym( symbols_, static_cast<xcb_keycode_t>( keycode ), 0 );
}

std::vector<uint8_t> GXcbGetKeycodes( uint32_t keysym )
{
    std::vector<uint8_t> keycodes;
    if( !keysym || !GXcbGetConnection( ) ) return keycodes;
    lookAfterReply( );
    const Owned<xcb_keycode_t> found( xcb_key_symbols_get_keycode( symbols_, keysym ) );
    const auto collect = [&]( bool plain )
    {
        for( const xcb_keycode_t* code = found.get( ); code && *code != XCB_NO_SYMBOL; ++code )
            if( !plain || xcb_key_symbols_get_keysym( symbols_, *code, 0 ) == keysym ) keycodes.push_back( *code );
    };
    // A sign names the key that gives it plainly; digits and letters may lie higher, as on French and Russian keyboards.
    const bool sign = keysym < 0x100;
    const bool higher = ( keysym >= '0' && keysym <= '9' ) || ( keysym >= 'a' && keysym <= 'z' );
    collect( sign );
    if( keycodes.empty( ) && higher ) collect( false );
    return keycodes;
}

bool GXcbQueryKeymap( uint8_t ( &keys )[32] )
{
    if( !GXcbGetConnection( ) ) return false;
    lookAfterReply( );
    const Owned<xcb_query_keymap_reply_t> reply(
        xcb_query_keymap_reply( connection_, xcb_query_keymap( connection_ ), nullptr ) );
    if( !reply ) return false;
    std::memcpy( keys, reply->keys, sizeof( keys ) );
    return true;
}

bool GXcbQueryPointerMask( uint16_t& mask )
{
    if( !GXcbGetConnection( ) ) return false;
    lookAfterReply( );
    const Owned<xcb_query_pointer_reply_t> reply(
        xcb_query_pointer_reply( connection_, xcb_query_pointer( connection_, root_ ), nullptr ) );
    if( !reply ) return false;
    mask = reply->mask;
    return true;
}

GString GXcbGetRootText( uint32_t property )
{
    constexpr uint32_t MOST_WORDS = 65536;
    if( !GXcbGetConnection( ) ) return { };
    lookAfterReply( );
    const Owned<xcb_get_property_reply_t> reply( xcb_get_property_reply(
        connection_, xcb_get_property( connection_, 0, root_, property, XCB_ATOM_STRING, 0, MOST_WORDS ), nullptr ) );
    if( !reply ) return { };
    return { static_cast<const char*>( xcb_get_property_value( reply.get( ) ) ),
             static_cast<size_t>( xcb_get_property_value_length( reply.get( ) ) ) };
}

void GXcbDispatch( )
{
    while( connection_ )
    {
        const Owned<xcb_generic_event_t> event( xcb_poll_for_event( connection_ ) );
        if( !event ) break;
        const int type = event->response_type & 0x7F;
        if( type == XCB_KEY_PRESS && onKeyPress_ )
        {
            const auto* press = reinterpret_cast<const xcb_key_press_event_t*>( event.get( ) );
            onKeyPress_( press->detail, press->state );
        }
        else if( type == XCB_MAPPING_NOTIFY )
        {
            xcb_refresh_keyboard_mapping( symbols_, reinterpret_cast<xcb_mapping_notify_event_t*>( event.get( ) ) );
            if( onMapping_ ) onMapping_( );
        }
        else if( selectionEvent_ && type == selectionEvent_ && onSelection_ )
            onSelection_( );
    }
    // A server that is gone stays readable for ever.
    if( connection_ && xcb_connection_has_error( connection_ ) && notifier_ ) notifier_->setEnabled( false );
}

bool GXcbWatchSelection( const char* name, void ( *onChange )( ) )
{
    constexpr uint32_t ALL = XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                             XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                             XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE;
    if( !GXcbGetConnection( ) ) return false;
    lookAfterReply( );
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data( connection_, &xcb_xfixes_id );
    if( !extension || !extension->present ) return false;
    const Owned<xcb_xfixes_query_version_reply_t> version( xcb_xfixes_query_version_reply(
        connection_, xcb_xfixes_query_version( connection_, XCB_XFIXES_MAJOR_VERSION, XCB_XFIXES_MINOR_VERSION ),
        nullptr ) );
    const Owned<xcb_intern_atom_reply_t> atom( xcb_intern_atom_reply(
        connection_, xcb_intern_atom( connection_, 0, static_cast<uint16_t>( std::strlen( name ) ), name ), nullptr ) );
    if( !version || !atom ) return false;
    selectionEvent_ = extension->first_event + XCB_XFIXES_SELECTION_NOTIFY;
    onSelection_ = onChange;
    xcb_xfixes_select_selection_input( connection_, root_, atom->atom, ALL );
    xcb_flush( connection_ );
    return true;
}

void GXcbSetHandlers( void ( *onKeyPress )( uint8_t keycode, uint16_t state ), void ( *onMapping )( ) )
{
    onKeyPress_ = onKeyPress;
    onMapping_ = onMapping;
}
