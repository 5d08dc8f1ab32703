// The doors of the command language to the desktop: menus, choosers, documents, hotkeys and foreign windows, as a table of
// functions. The default table is the platform's; tests put their own in its place.
#pragma once

#include "base/GRect.h"
#include "platform/GSystem.h"

#include <functional>
#include <map>

struct GSkinPlatform
{
    GSkinPlatform( );

    // The index chosen, or a negative value.
    std::function<int( const GStringVector& labels )> executeMenu;
    // Empty on cancel.
    std::function<GWString( const GWString& title )> chooseFile;
    // Opens a document by the system's association; `reason` tells why not.
    std::function<bool( const GWString& path, GWString& reason )> openDocument;
    std::function<bool( )> isLeftButtonDown;
    std::function<GHotkey( const GWString& text, const GWString& name )> openHotkey;
    std::function<void( GHotkey hotkey )> closeHotkey;
    // Windows that can be shared: number and title.
    std::function<void( std::map<uint32_t, GWString>& windows )> listWindows;
    // Brings one of them to the front; nothing happens when it has gone.
    std::function<void( uint32_t window )> raiseWindow;
    std::function<GRect( )> getWorkArea;
    // The desktop's scale, 1.0 at 96 dots an inch.
    std::function<double( )> getScale;
    // Calls when it has changed; an empty function ends that.
    std::function<void( std::function<void( )> onChange )> followScale;
    // Whether settings and scale choose the skin's file (GSkinChoice) instead of what the engine is told.
    bool followSettings = false;
    // A modal box with the stop icon and no owner.
    std::function<void( const GWString& title, const GWString& text )> showError;
    // Closes the log file under its dated name and opens a new one.
    std::function<void( )> rollLog;
};
