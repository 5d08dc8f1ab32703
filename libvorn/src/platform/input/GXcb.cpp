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
    // Replies read on the way may have brought events along, for which the descriptor wakes no one.
    GDesktopOnTick( GXcbDispatch );
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
    const Owned<xcb_query_keymap_reply_t> reply(
        xcb_query_keymap_reply( connection_, xcb_query_keymap( connection_ ), nullptr ) );
    if( !reply ) return false;
    std::memcpy( keys, reply->keys, sizeof( keys ) );
    return true;
}

bool GXcbQueryPointerMask( uint16_t& mask )
{
    if( !GXcbGetConnection( ) ) return false;
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
    }
    // A server that is gone stays readable for ever.
    if( connection_ && xcb_connection_has_error( connection_ ) && notifier_ ) notifier_->setEnabled( false );
}

void GXcbSetHandlers( void ( *onKeyPress )( uint8_t keycode, uint16_t state ), void ( *onMapping )( ) )
{
    onKeyPress_ = onKeyPress;
    onMapping_ = onMapping;
}
