// System events, hotkeys, keys, clipboard, dialogs and programs. User-interface thread unless said otherwise.
#pragma once

#include "base/GTypes.h"

struct GHotkeyRecord;
using GHotkey = GHotkeyRecord*;
class IGSystemListener
{
public:
    virtual ~IGSystemListener( ) = default;
    virtual void onSuspend( ) = 0;
    virtual void onResume( ) = 0;
    virtual void onHotkeyDown( GHotkey hotkey, const GWString& name ) = 0;
    virtual void onHotkeyUp( GHotkey hotkey, const GWString& name ) = 0;
};
void GSystemRegisterListener( IGSystemListener* listener );
void GSystemResignListener( IGSystemListener* listener );

// "CONTROL+SPACE": null for an empty text or when the combination is taken.
GHotkey GSystemHotkeyOpen( const GWString& text, const GWString& name );
void GSystemHotkeyClose( GHotkey hotkey );
// The keys now down in the same form; empty when none.
GWString GSystemGetKeysPressed( );
// The key table: virtual-key number of a name, 0 when unknown, and back.
int GKeyFromName( const GWString& name );
GWString GKeyGetName( int key );
// True while that virtual key (also 1, 2 and 4 for the mouse buttons) is down.
bool GSystemIsKeyDown( int key );

GWString GClipboardGetText( );
void GClipboardSetText( const GWString& text );

// One line for the log: system, language, CPU, RAM, monitors, screen, depth, country.
GWString GSystemGetInfo( );
// Opens a program, document or address; `reason` tells why not. Any thread.
bool GSystemExecute( const GWString& path, const GWString& args, GWString& reason );
// Modal boxes. The buttons are numbered from 0; `cancel` is what closing gives.
enum GBoxIcon
{
    GBOX_INFORMATION,
    GBOX_WARNING,
    GBOX_ERROR
};
int GSystemMessageBox( const GWString& title, const GWString& text, const GStringVector& buttons, int defaultButton,
                       int cancel, GBoxIcon icon );
// File choosers; empty on cancel.
GWString GSystemChooseFileOpen( const GWString& title );
GWString GSystemChooseFileSave( const GWString& title, const GWString& name );

// Brings the platform up with the crash handler, and down. Main thread, once each, around everything else.
void GInitializeNonPortable( void ( *crashHandler )( ) );
void GNonPortableClose( );
