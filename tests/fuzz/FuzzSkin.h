// A skin engine whose desktop answers nothing, for targets that run whole skins or commands.
#pragma once

#include "Fuzz.h"
#include "client/skin/GTemplate.h"

namespace FuzzSkin
{
// Thrown in place of the message that ends the program.
struct Refused
{
};

inline GSkinPlatform answersNothing( )
{
    GSkinPlatform platform;
    platform.executeMenu = []( const GStringVector& ) { return 0; };
    platform.chooseFile = []( const GWString& ) { return GWString( ); };
    platform.openDocument = []( const GWString&, GWString& ) { return true; };
    platform.isLeftButtonDown = [] { return false; };
    platform.openHotkey = []( const GWString&, const GWString& ) -> GHotkey { return nullptr; };
    platform.closeHotkey = []( GHotkey ) {};
    platform.listWindows = []( std::map<uint32_t, GWString>& windows ) {
        windows = { { 7, u"a)(/system?exit);b" }, { 8, u"$Local_Password" } };
    };
    platform.raiseWindow = []( uint32_t ) {};
    platform.getWorkArea = [] { return GRect{ 0, 0, 800, 600 }; };
    platform.showError = []( const GWString&, const GWString& ) { throw Refused( ); };
    platform.rollLog = [] {};
    return platform;
}
} // namespace FuzzSkin
