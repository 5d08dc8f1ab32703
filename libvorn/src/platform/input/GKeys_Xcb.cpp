#include "platform/GSystem.h"
#include "platform/input/GKeyTable.h"
#include "platform/input/GXcb.h"

#include <xcb/xcb.h>

namespace
{
bool isRowDown( const GKeyRow& row, const uint8_t ( &keys )[32] )
{
    for( const uint32_t keysym : { row.keysym, row.otherKeysym } )
        for( const uint8_t keycode : GXcbGetKeycodes( keysym ) )
            if( keys[keycode / 8] & ( 1 << ( keycode % 8 ) ) ) return true;
    return false;
}

int getDownModifiers( const uint8_t ( &keys )[32] )
{
    int modifiers = 0;
    for( const int key : { int( GVK_ALT ), int( GVK_CONTROL ), int( GVK_SHIFT ), int( GVK_LWIN ), int( GVK_RWIN ) } )
        if( isRowDown( *GKeyTableFind( key ), keys ) ) modifiers |= GKeyGetModifier( key );
    return modifiers;
}
} // namespace

bool GSystemIsKeyDown( int key )
{
    if( key == GVK_LBUTTON || key == GVK_RBUTTON || key == GVK_MBUTTON )
    {
        const uint16_t bit = key == GVK_LBUTTON   ? XCB_BUTTON_MASK_1
                             : key == GVK_RBUTTON ? XCB_BUTTON_MASK_3
                                                  : XCB_BUTTON_MASK_2;
        uint16_t mask = 0;
        return GXcbQueryPointerMask( mask ) && ( mask & bit );
    }
    const GKeyRow* row = GKeyTableFind( key );
    uint8_t keys[32] = { };
    return row && GXcbQueryKeymap( keys ) && isRowDown( *row, keys );
}

GWString GSystemGetKeysPressed( )
{
    constexpr int HIGHEST = 240;
    uint8_t keys[32] = { };
    if( !GXcbQueryKeymap( keys ) ) return { };
    int mainKey = 0;
    for( int key = HIGHEST; key > 0 && !mainKey; --key )
    {
        if( GKeyIsNoMainKey( key ) ) continue;
        const GKeyRow* row = GKeyTableFind( key );
        if( row && isRowDown( *row, keys ) ) mainKey = key;
    }
    return GKeyComposeHotkey( getDownModifiers( keys ), mainKey );
}
