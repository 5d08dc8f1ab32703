#include "platform/input/GHotkey.h"

#include "base/GPortable.h"
#include "platform/desktop/GDesktop_Qt.h"
#include "platform/input/GKeyTable.h"
#include "platform/input/GXcb.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <vector>
#include <xcb/xcb.h>

struct GHotkeyRecord
{
    GWString text;
    int modifiers = 0;
    int key = 0; // 0: modifiers alone.
    int id = 0;
    GWString name;
    std::vector<uint8_t> keycodes; // Of the key that is grabbed.
    uint16_t state = 0;            // X modifiers that must be there beside it.
    uint64_t released = 0;         // The last press that came before it was seen up.
};

namespace
{
std::map<int, std::unique_ptr<GHotkeyRecord>> hotkeys_;
std::set<int> pressed_;
int nextId_ = 1;
uint64_t presses_ = 0; // Counts the presses that came from the server.

// With caps lock and number lock a key carries their bits too, so each combination is a grab of its own.
constexpr uint16_t LOCKS[] = { 0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2, XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2 };
constexpr uint16_t COUNTED = XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;

constexpr struct
{
    int bit;
    int key;
    uint16_t mask;
} modifierMasks_[] = { { GKM_WINDOWS, GVK_LWIN, XCB_MOD_MASK_4 },
                       { GKM_SHIFT, GVK_SHIFT, XCB_MOD_MASK_SHIFT },
                       { GKM_CONTROL, GVK_CONTROL, XCB_MOD_MASK_CONTROL },
                       { GKM_ALT, GVK_ALT, XCB_MOD_MASK_1 } };

// Finds what to grab: the main key, or for modifiers alone one of them while the others are held.
void resolve( GHotkeyRecord& hotkey )
{
    int grabbed = hotkey.key;
    hotkey.state = 0;
    for( const auto& modifier : modifierMasks_ )
        if( hotkey.modifiers & modifier.bit )
        {
            if( !grabbed )
                grabbed = modifier.key;
            else
                hotkey.state |= modifier.mask;
        }
    hotkey.keycodes.clear( );
    const GKeyRow* row = GKeyTableFind( grabbed );
    if( !row ) return;
    for( const uint32_t keysym : { row->keysym, row->otherKeysym } )
        for( const uint8_t keycode : GXcbGetKeycodes( keysym ) )
            if( std::find( hotkey.keycodes.begin( ), hotkey.keycodes.end( ), keycode ) == hotkey.keycodes.end( ) )
                hotkey.keycodes.push_back( keycode );
}

void ungrab( const GHotkeyRecord& hotkey )
{
    xcb_connection_t* connection = GXcbGetConnection( );
    if( !connection ) return;
    for( const uint8_t keycode : hotkey.keycodes )
        for( const uint16_t lock : LOCKS ) xcb_ungrab_key( connection, keycode, GXcbGetRoot( ), hotkey.state | lock );
    xcb_flush( connection );
}

bool grab( const GHotkeyRecord& hotkey )
{
    xcb_connection_t* connection = GXcbGetConnection( );
    if( !connection || hotkey.keycodes.empty( ) ) return false;
    std::vector<xcb_void_cookie_t> cookies;
    for( const uint8_t keycode : hotkey.keycodes )
        for( const uint16_t lock : LOCKS )
            cookies.push_back( xcb_grab_key_checked( connection, 0, GXcbGetRoot( ), hotkey.state | lock, keycode,
                                                     XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC ) );
    bool refused = false;
    for( const xcb_void_cookie_t cookie : cookies )
        if( xcb_generic_error_t* error = xcb_request_check( connection, cookie ) )
        {
            refused = true;
            std::free( error );
        }
    return !refused;
}

// Another hotkey of ours has the same keys: the X server would not refuse that.
bool isTakenByUs( const GHotkeyRecord& wanted )
{
    for( const auto& [id, hotkey] : hotkeys_ )
        if( hotkey->key == wanted.key && hotkey->modifiers == wanted.modifiers ) return true;
    return false;
}

// A repeat that was on its way while the key went up is no new press.
void onPress( int id, uint64_t press )
{
    const auto found = hotkeys_.find( id );
    if( found == hotkeys_.end( ) || press > found->second->released ) GHotkeyOnMessage( id );
}

void onKeyPress( uint8_t keycode, uint16_t state )
{
    // The grab would swallow every other key for as long as this one is held.
    xcb_ungrab_keyboard( GXcbGetConnection( ), XCB_CURRENT_TIME );
    xcb_flush( GXcbGetConnection( ) );
    for( const auto& [id, hotkey] : hotkeys_ )
    {
        const auto& keycodes = hotkey->keycodes;
        if( std::find( keycodes.begin( ), keycodes.end( ), keycode ) == keycodes.end( ) ||
            ( state & COUNTED ) != hotkey->state )
            continue;
        GDesktopPost( [number = id, press = ++presses_]( ) { onPress( number, press ); } );
        return;
    }
}

// The keys mean something else now: the grabs move along.
void onMapping( )
{
    for( const auto& [id, hotkey] : hotkeys_ )
    {
        ungrab( *hotkey );
        resolve( *hotkey );
        if( !grab( *hotkey ) )
            GLOG( u"WARNING Hotkey '", hotkey->text, u"' is not to be had on the new keyboard, ignoring." );
    }
}

bool isDown( const GHotkeyRecord& hotkey )
{
    if( hotkey.key && !GSystemIsKeyDown( hotkey.key ) ) return false;
    for( const auto& modifier : modifierMasks_ )
    {
        if( !( hotkey.modifiers & modifier.bit ) || GSystemIsKeyDown( modifier.key ) ) continue;
        if( modifier.key != GVK_LWIN || !GSystemIsKeyDown( GVK_RWIN ) ) return false;
    }
    return true;
}
} // namespace

GHotkey GSystemHotkeyOpen( const GWString& text, const GWString& name )
{
    GCALL( function );
    auto hotkey = std::make_unique<GHotkeyRecord>( );
    hotkey->text = text;
    hotkey->name = name;
    GKeyParseHotkey( text, hotkey->modifiers, hotkey->key );
    if( !hotkey->key && !hotkey->modifiers ) return nullptr;
    GXcbSetHandlers( onKeyPress, onMapping );
    resolve( *hotkey );
    if( isTakenByUs( *hotkey ) ) return nullptr;
    if( !grab( *hotkey ) )
    {
        ungrab( *hotkey );
        return nullptr;
    }
    hotkey->id = nextId_++;
    GHotkey handle = hotkey.get( );
    hotkeys_.emplace( handle->id, std::move( hotkey ) );
    return handle;
}

void GSystemHotkeyClose( GHotkey hotkey )
{
    GCALL( function );
    GPRECONDITION( hotkey );
    ungrab( *hotkey );
    pressed_.erase( hotkey->id );
    hotkeys_.erase( hotkey->id );
}

void GHotkeyCloseAll( )
{
    while( !hotkeys_.empty( ) ) GSystemHotkeyClose( hotkeys_.begin( )->second.get( ) );
}

void GHotkeyOnMessage( int id )
{
    const auto found = hotkeys_.find( id );
    if( found == hotkeys_.end( ) )
    {
        GLOG( u"WARNING Unrecognzied hotkey #", id, u" pressed, ignoring." );
        return;
    }
    // Auto-repeat sends more while the key is held.
    if( !pressed_.insert( id ).second ) return;
    GDesktopOnTick( GHotkeyPoll );
    GHotkey hotkey = found->second.get( );
    GSystemTellHotkey( hotkey, GWString( hotkey->name ), true );
}

bool GHotkeyPoll( )
{
    const std::set<int> pressed = pressed_; // Listeners may close hotkeys.
    for( const int id : pressed )
    {
        const auto found = hotkeys_.find( id );
        if( found == hotkeys_.end( ) || isDown( *found->second ) ) continue;
        // Presses older than that answer have arrived by now and belong to this hold, unless it began anew meanwhile.
        GXcbDispatch( );
        if( isDown( *found->second ) ) continue;
        found->second->released = presses_;
        pressed_.erase( id );
        GHotkey hotkey = found->second.get( );
        GSystemTellHotkey( hotkey, GWString( hotkey->name ), false );
    }
    return !pressed_.empty( );
}
