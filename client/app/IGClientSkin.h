// What the client core asks of the skin. The shipped one is the template; tests put their own in its place.
// User-interface thread.
#pragma once

#include "platform/GSystem.h"
#include "runtime/GHTTPHeaders.h"

class IGClientSkin
{
public:
    virtual ~IGClientSkin( ) = default;
    // Runs a command text such as "(/skin/window_login?open)".
    virtual void command( const GWString& text ) = 0;
    virtual void onHotkeyDown( GHotkey hotkey, const GWString& name ) = 0;
    virtual void onHotkeyUp( GHotkey hotkey, const GWString& name ) = 0;
    // Sends the message to every device of the buddy.
    virtual void broadcastToBuddy( const GWString& buddy, const GHTTPHeaders& message ) = 0;
    // Appends a line to the buddy's chat log.
    virtual void logCHAT( const GWString& buddy, const GHTTPHeaders& message ) = 0;
};
