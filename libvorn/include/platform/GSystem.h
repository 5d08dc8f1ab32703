// System events, hotkeys, keys, clipboard, dialogs and programs. User-interface thread unless said otherwise. A null handle is a failed
// assertion.
#pragma once

#include "base/GTypes.h"

struct GHotkeyRecord;
using GHotkey = GHotkeyRecord*;
class IGSystemListener
{
public:
    virtual ~IGSystemListener( ) = default;
    // Before the machine sleeps, which it does at the earliest two seconds later; and after.
    virtual void onSuspend( ) = 0;
    virtual void onResume( ) = 0;
    virtual void onHotkeyDown( GHotkey hotkey, const GWString& name ) = 0;
    virtual void onHotkeyUp( GHotkey hotkey, const GWString& name ) = 0;
};
// Listeners are told in the order in which they came, in the message loop, and may resign meanwhile. Not owned; null is a failed
// assertion.
void GSystemRegisterListener( IGSystemListener* listener );
void GSystemResignListener( IGSystemListener* listener );

// "CONTROL+SPACE": null for an empty text, without any known key in it, or when the combination is taken. Modifiers alone are a
// hotkey of their own. However the lock keys stand and however often the key repeats, each press gives one onHotkeyDown with `name`,
// and one onHotkeyUp within a tenth of a second after the first of its keys is up. The hotkey belongs to the caller.
GHotkey GSystemHotkeyOpen( const GWString& text, const GWString& name );
// A hotkey that is closed while it is held gives no onHotkeyUp.
void GSystemHotkeyClose( GHotkey hotkey );
// The keys now down in the same form; empty when none.
GWString GSystemGetKeysPressed( );
// The key table: virtual-key number of a name in either case, 0 when unknown, and back; empty when unknown.
int GKeyFromName( const GWString& name );
GWString GKeyGetName( int key );
// True while that virtual key (also 1, 2 and 4 for the mouse buttons) is down.
bool GSystemIsKeyDown( int key );

// The clipboard's text; empty when it holds none.
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
// File choosers: the full path, empty on cancel. They return when the user is done; windows, timers and notifications go on meanwhile.
// Opening takes only files that exist; saving asks before one is replaced. `name` is proposed without its folder.
GWString GSystemChooseFileOpen( const GWString& title );
GWString GSystemChooseFileSave( const GWString& title, const GWString& name );

// Brings the platform up with the crash handler, and down. Main thread, once each, around everything else.
void GInitializeNonPortable( void ( *crashHandler )( ) );
void GNonPortableClose( );
