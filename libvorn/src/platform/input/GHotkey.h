// System listeners and hotkeys, as the sources of their events reach them.
#pragma once

#include "platform/GSystem.h"

#include <cstdint>

// Tells all listeners; each may resign meanwhile.
void GSystemTellSuspend( );
void GSystemTellResume( );
void GSystemTellHotkey( GHotkey hotkey, const GWString& name, bool down );
// A hotkey's message, and the poll for its end; false when none is held any more.
void GHotkeyOnMessage( int id );
bool GHotkeyPoll( );
// Closes all that are still open.
void GHotkeyCloseAll( );
