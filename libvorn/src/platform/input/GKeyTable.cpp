#include "platform/input/GKeyTable.h"

#include "base/GUtil.h"
#include "platform/GSystem.h"

#include <X11/XF86keysym.h>
#include <X11/keysym.h>

namespace
{
const GKeyRow rows_[] = {
    { u"BACKSPACE", 8, XK_BackSpace, 0 },
    { u"TAB", 9, XK_Tab, XK_ISO_Left_Tab },
    { u"CLEAR", 12, XK_Clear, 0 },
    { u"ENTER", 13, XK_Return, XK_KP_Enter },
    { u"SHIFT", 16, XK_Shift_L, XK_Shift_R },
    { u"CONTROL", 17, XK_Control_L, XK_Control_R },
    { u"ALT", 18, XK_Alt_L, XK_Alt_R },
    { u"PAUSE", 19, XK_Pause, XK_Break },
    { u"CAPSLOCK", 20, XK_Caps_Lock, 0 },
    { u"ESCAPE", 27, XK_Escape, 0 },
    { u"SPACE", 32, XK_space, 0 },
    { u"PAGEUP", 33, XK_Page_Up, XK_KP_Page_Up },
    { u"PAGEDOWN", 34, XK_Page_Down, XK_KP_Page_Down },
    { u"END", 35, XK_End, XK_KP_End },
    { u"HOME", 36, XK_Home, XK_KP_Home },
    { u"LEFT", 37, XK_Left, XK_KP_Left },
    { u"UP", 38, XK_Up, XK_KP_Up },
    { u"RIGHT", 39, XK_Right, XK_KP_Right },
    { u"DOWN", 40, XK_Down, XK_KP_Down },
    { u"PRINTSCREEN", 44, XK_Print, XK_Sys_Req },
    { u"INSERT", 45, XK_Insert, XK_KP_Insert },
    { u"DELETE", 46, XK_Delete, XK_KP_Delete },
    { u"HELP", 47, XK_Help, 0 },
    { u"0", 48, XK_0, 0 },
    { u"1", 49, XK_1, 0 },
    { u"2", 50, XK_2, 0 },
    { u"3", 51, XK_3, 0 },
    { u"4", 52, XK_4, 0 },
    { u"5", 53, XK_5, 0 },
    { u"6", 54, XK_6, 0 },
    { u"7", 55, XK_7, 0 },
    { u"8", 56, XK_8, 0 },
    { u"9", 57, XK_9, 0 },
    { u"A", 65, XK_a, 0 },
    { u"B", 66, XK_b, 0 },
    { u"C", 67, XK_c, 0 },
    { u"D", 68, XK_d, 0 },
    { u"E", 69, XK_e, 0 },
    { u"F", 70, XK_f, 0 },
    { u"G", 71, XK_g, 0 },
    { u"H", 72, XK_h, 0 },
    { u"I", 73, XK_i, 0 },
    { u"J", 74, XK_j, 0 },
    { u"K", 75, XK_k, 0 },
    { u"L", 76, XK_l, 0 },
    { u"M", 77, XK_m, 0 },
    { u"N", 78, XK_n, 0 },
    { u"O", 79, XK_o, 0 },
    { u"P", 80, XK_p, 0 },
    { u"Q", 81, XK_q, 0 },
    { u"R", 82, XK_r, 0 },
    { u"S", 83, XK_s, 0 },
    { u"T", 84, XK_t, 0 },
    { u"U", 85, XK_u, 0 },
    { u"V", 86, XK_v, 0 },
    { u"W", 87, XK_w, 0 },
    { u"X", 88, XK_x, 0 },
    { u"Y", 89, XK_y, 0 },
    { u"Z", 90, XK_z, 0 },
    { u"WINDOWS", 91, XK_Super_L, 0 },
    { u"RIGHTWINDOWS", 92, XK_Super_R, 0 },
    { u"MENU", 93, XK_Menu, 0 },
    { u"NUMPAD0", 96, XK_KP_0, 0 },
    { u"NUMPAD1", 97, XK_KP_1, 0 },
    { u"NUMPAD2", 98, XK_KP_2, 0 },
    { u"NUMPAD3", 99, XK_KP_3, 0 },
    { u"NUMPAD4", 100, XK_KP_4, 0 },
    { u"NUMPAD5", 101, XK_KP_5, 0 },
    { u"NUMPAD6", 102, XK_KP_6, 0 },
    { u"NUMPAD7", 103, XK_KP_7, 0 },
    { u"NUMPAD8", 104, XK_KP_8, 0 },
    { u"NUMPAD9", 105, XK_KP_9, 0 },
    { u"MULTIPLY", 106, XK_KP_Multiply, 0 },
    { u"ADD", 107, XK_KP_Add, 0 },
    { u"SEPARATOR", 108, XK_KP_Separator, 0 },
    { u"SUBTRACT", 109, XK_KP_Subtract, 0 },
    { u"DECIMAL", 110, XK_KP_Decimal, 0 },
    { u"DIVIDE", 111, XK_KP_Divide, 0 },
    { u"F1", 112, XK_F1, 0 },
    { u"F2", 113, XK_F2, 0 },
    { u"F3", 114, XK_F3, 0 },
    { u"F4", 115, XK_F4, 0 },
    { u"F5", 116, XK_F5, 0 },
    { u"F6", 117, XK_F6, 0 },
    { u"F7", 118, XK_F7, 0 },
    { u"F8", 119, XK_F8, 0 },
    { u"F9", 120, XK_F9, 0 },
    { u"F10", 121, XK_F10, 0 },
    { u"F11", 122, XK_F11, 0 },
    { u"F12", 123, XK_F12, 0 },
    { u"F13", 124, XK_F13, 0 },
    { u"F14", 125, XK_F14, 0 },
    { u"F15", 126, XK_F15, 0 },
    { u"F16", 127, XK_F16, 0 },
    { u"F17", 128, XK_F17, 0 },
    { u"F18", 129, XK_F18, 0 },
    { u"F19", 130, XK_F19, 0 },
    { u"F20", 131, XK_F20, 0 },
    { u"F21", 132, XK_F21, 0 },
    { u"F22", 133, XK_F22, 0 },
    { u"F23", 134, XK_F23, 0 },
    { u"F24", 135, XK_F24, 0 },
    { u"NUMLOCK", 144, XK_Num_Lock, 0 },
    { u"SCROLLLOCK", 145, XK_Scroll_Lock, 0 },
    { u"BROWSERBACK", 166, XF86XK_Back, 0 },
    { u"BROWSERFORWARD", 167, XF86XK_Forward, 0 },
    { u"VOLUMEMUTE", 173, XF86XK_AudioMute, 0 },
    { u"VOLUMEDOWN", 174, XF86XK_AudioLowerVolume, 0 },
    { u"VOLUMEUP", 175, XF86XK_AudioRaiseVolume, 0 },
    { u"MEDIANEXT", 176, XF86XK_AudioNext, 0 },
    { u"MEDIAPREVIOUS", 177, XF86XK_AudioPrev, 0 },
    { u"MEDIASTOP", 178, XF86XK_AudioStop, 0 },
    { u"MEDIAPLAY", 179, XF86XK_AudioPlay, 0 },
    { u"SEMICOLON", 186, XK_semicolon, 0 },
    { u"EQUALS", 187, XK_equal, 0 },
    { u"COMMA", 188, XK_comma, 0 },
    { u"MINUS", 189, XK_minus, 0 },
    { u"PERIOD", 190, XK_period, 0 },
    { u"SLASH", 191, XK_slash, 0 },
    { u"GRAVE", 192, XK_grave, 0 },
    { u"LEFTBRACKET", 219, XK_bracketleft, 0 },
    { u"BACKSLASH", 220, XK_backslash, 0 },
    { u"RIGHTBRACKET", 221, XK_bracketright, 0 },
    { u"QUOTE", 222, XK_apostrophe, 0 },
    { u"LESS", 226, XK_less, 0 },
    { nullptr, 0, 0, 0 },
};
// In front of a hotkey's main key, in this order.
constexpr struct
{
    int bit;
    int key;
} modifiers_[] = {
    { GKM_ALT, GVK_ALT }, { GKM_CONTROL, GVK_CONTROL }, { GKM_SHIFT, GVK_SHIFT }, { GKM_WINDOWS, GVK_LWIN } };
} // namespace

const GKeyRow* GKeyTableBegin( )
{
    return rows_;
}

const GKeyRow* GKeyTableFind( int key )
{
    for( const GKeyRow* row = rows_; row->name; ++row )
        if( row->key == key ) return row;
    return nullptr;
}

int GKeyFromKeysym( uint32_t keysym )
{
    if( !keysym ) return 0;
    if( keysym >= XK_A && keysym <= XK_Z ) keysym += XK_a - XK_A;
    if( keysym == XK_Meta_L || keysym == XK_Meta_R ) return GVK_ALT;
    for( const GKeyRow* row = rows_; row->name; ++row )
        if( row->keysym == keysym || row->otherKeysym == keysym ) return row->key;
    return 0;
}

int GKeyFromName( const GWString& name )
{
    const GWString wanted = GTrim( name );
    for( const GKeyRow* row = rows_; row->name; ++row )
        if( GCaseEquals( row->name, wanted ) ) return row->key;
    return 0;
}

GWString GKeyGetName( int key )
{
    const GKeyRow* row = GKeyTableFind( key );
    return row ? GWString( row->name ) : GWString( );
}

int GKeyGetModifier( int key )
{
    if( key == GVK_RWIN ) return GKM_WINDOWS;
    for( const auto& modifier : modifiers_ )
        if( modifier.key == key ) return modifier.bit;
    return 0;
}

bool GKeyIsNoMainKey( int key )
{
    return GKeyGetModifier( key ) != 0 || key == GVK_LBUTTON || key == GVK_RBUTTON || key == GVK_MBUTTON;
}

void GKeyParseHotkey( const GWString& text, int& modifiers, int& mainKey )
{
    modifiers = 0;
    mainKey = 0;
    for( const GWString& name : GSplitList( text, u"+" ) )
    {
        const int key = GKeyFromName( name );
        const int modifier = GKeyGetModifier( key );
        modifiers |= modifier;
        if( key && !modifier ) mainKey = key;
    }
}

GWString GKeyComposeHotkey( int modifiers, int mainKey )
{
    GWString text;
    const auto append = [&text]( int key )
    {
        if( !text.empty( ) ) text += u'+';
        text += GKeyGetName( key );
    };
    for( const auto& modifier : modifiers_ )
        if( modifiers & modifier.bit ) append( modifier.key );
    if( mainKey ) append( mainKey );
    return text;
}
