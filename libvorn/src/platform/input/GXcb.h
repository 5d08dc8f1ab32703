// The one connection of our own to the X server, for the keyboard: grabs, what is down, what the keys mean; and for who owns a
// selection. It is not the toolkit's, so it hears of every change of the keyboard map. User-interface thread only; without a server
// all answers are empty.
#pragma once

#include "base/GTypes.h"

#include <vector>

struct xcb_connection_t;

xcb_connection_t* GXcbGetConnection( );
uint32_t GXcbGetRoot( );
void GXcbClose( );

// The keysym of a key without modifiers; 0 for none.
uint32_t GXcbGetPlainKeysym( uint32_t keycode );
// All keys of the keyboard that stand for this keysym.
std::vector<uint8_t> GXcbGetKeycodes( uint32_t keysym );
// One bit a key that is down, 32 bytes; false without a server.
bool GXcbQueryKeymap( uint8_t ( &keys )[32] );
// The pointer's button and modifier bits; false without a server.
bool GXcbQueryPointerMask( uint16_t& mask );
// A text property of the root window.
GString GXcbGetRootText( uint32_t property );

// Hands on all events that have come, among them those that a reply brought along: after a query, all that happened before it.
void GXcbDispatch( );

// Called for a key press that a grab brought, and after the keyboard map has changed.
void GXcbSetHandlers( void ( *onKeyPress )( uint8_t keycode, uint16_t state ), void ( *onMapping )( ) );
// Calls whenever the owner of that selection changes or goes. One selection; false when the server can't tell.
bool GXcbWatchSelection( const char* name, void ( *onChange )( ) );
