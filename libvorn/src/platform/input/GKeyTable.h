// The one table of keys: names as hotkey texts use them, virtual-key numbers as the skin engine uses them, X keysyms.
#pragma once

#include "base/GTypes.h"

enum GVirtualKey
{
    GVK_LBUTTON = 1,
    GVK_RBUTTON = 2,
    GVK_MBUTTON = 4,
    GVK_SHIFT = 16,
    GVK_CONTROL = 17,
    GVK_ALT = 18,
    GVK_V = 86,
    GVK_LWIN = 91,
    GVK_RWIN = 92
};
// The modifier bits of a hotkey.
enum GKeyModifier
{
    GKM_ALT = 1,
    GKM_CONTROL = 2,
    GKM_SHIFT = 4,
    GKM_WINDOWS = 8
};

struct GKeyRow
{
    const char16_t* name;
    int key;
    uint32_t keysym;      // On the plain level.
    uint32_t otherKeysym; // Its second key on the keyboard, or the keypad's other meaning; 0 for none.
};
// All rows, ended by one without a name.
const GKeyRow* GKeyTableBegin( );
// The row of a virtual key, or null.
const GKeyRow* GKeyTableFind( int key );
// The virtual key of a keysym, upper or lower case; 0 when it has none.
int GKeyFromKeysym( uint32_t keysym );

// The modifier bit of a virtual key, 0 for other keys; and whether the key is a modifier or a mouse button.
int GKeyGetModifier( int key );
bool GKeyIsNoMainKey( int key );
// What a hotkey text means. `mainKey` is 0 when the text holds modifiers alone; unknown names are skipped.
void GKeyParseHotkey( const GWString& text, int& modifiers, int& mainKey );
// Alt, control, shift and windows in front of the key's name, joined with "+".
GWString GKeyComposeHotkey( int modifiers, int mainKey );
