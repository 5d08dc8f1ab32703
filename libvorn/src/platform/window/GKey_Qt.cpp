#include "platform/input/GKeyTable.h"
#include "platform/input/GXcb.h"
#include "platform/window/GWin_Qt.h"

#include <QKeyEvent>

#include <X11/keysym.h>

namespace
{
// For events without a key of the X keyboard behind them.
constexpr struct
{
    int toolkit;
    uint32_t keysym;
} special_[] = {
    { Qt::Key_Backspace, XK_BackSpace },
    { Qt::Key_Tab, XK_Tab },
    { Qt::Key_Backtab, XK_Tab },
    { Qt::Key_Return, XK_Return },
    { Qt::Key_Enter, XK_Return },
    { Qt::Key_Shift, XK_Shift_L },
    { Qt::Key_Control, XK_Control_L },
    { Qt::Key_Alt, XK_Alt_L },
    { Qt::Key_Pause, XK_Pause },
    { Qt::Key_CapsLock, XK_Caps_Lock },
    { Qt::Key_Escape, XK_Escape },
    { Qt::Key_PageUp, XK_Page_Up },
    { Qt::Key_PageDown, XK_Page_Down },
    { Qt::Key_End, XK_End },
    { Qt::Key_Home, XK_Home },
    { Qt::Key_Left, XK_Left },
    { Qt::Key_Up, XK_Up },
    { Qt::Key_Right, XK_Right },
    { Qt::Key_Down, XK_Down },
    { Qt::Key_Print, XK_Print },
    { Qt::Key_Insert, XK_Insert },
    { Qt::Key_Delete, XK_Delete },
    { Qt::Key_Meta, XK_Super_L },
    { Qt::Key_Super_L, XK_Super_L },
    { Qt::Key_Super_R, XK_Super_R },
    { Qt::Key_Menu, XK_Menu },
    { Qt::Key_NumLock, XK_Num_Lock },
    { Qt::Key_ScrollLock, XK_Scroll_Lock },
};

int keyFromToolkit( int toolkit )
{
    if( toolkit >= Qt::Key_F1 && toolkit <= Qt::Key_F24 )
        return GKeyFromKeysym( XK_F1 + static_cast<uint32_t>( toolkit - Qt::Key_F1 ) );
    for( const auto& row : special_ )
        if( row.toolkit == toolkit ) return GKeyFromKeysym( row.keysym );
    // Letters, digits and signs have the number of their character in both worlds.
    return toolkit < 0x100 ? GKeyFromKeysym( static_cast<uint32_t>( toolkit ) ) : 0;
}

bool isKeypad( uint32_t keysym )
{
    return keysym >= XK_KP_Space && keysym <= XK_KP_9;
}
} // namespace

int GKeyFromEvent( const QKeyEvent* event )
{
    const uint32_t keysym = event->nativeVirtualKey( );
    // The keypad's keys change with the number lock, all others are named by their plain level.
    if( !isKeypad( keysym ) )
        if( const int key = GKeyFromKeysym( GXcbGetPlainKeysym( event->nativeScanCode( ) ) ) ) return key;
    if( const int key = GKeyFromKeysym( keysym ) ) return key;
    return keyFromToolkit( event->key( ) );
}
