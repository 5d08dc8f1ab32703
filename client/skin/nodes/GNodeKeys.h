// Virtual keys that nodes know, and which of them are held now. User-interface thread.
#pragma once

enum GNodeKey
{
    GKEY_LBUTTON = 1,
    GKEY_BACKSPACE = 8,
    GKEY_TAB = 9,
    GKEY_RETURN = 13,
    GKEY_SHIFT = 16,
    GKEY_CONTROL = 17,
    GKEY_ESCAPE = 27,
    GKEY_SPACE = 32,
    GKEY_PAGE_UP = 33,
    GKEY_PAGE_DOWN = 34,
    GKEY_END = 35,
    GKEY_HOME = 36,
    GKEY_LEFT = 37,
    GKEY_UP = 38,
    GKEY_RIGHT = 39,
    GKEY_DOWN = 40,
    GKEY_DELETE = 46,
    GKEY_MENU = 93,
    GKEY_F10 = 121
};

using GNodeKeySource = bool ( * )( int key );

// True while the key or mouse button is down.
bool GNodeKeys_isDown( int key );
// What answers instead of the platform; null gives it back. For tests.
void GNodeKeys_setSource( GNodeKeySource source );
