// The doors of the client core to the desktop, the services and the skin, as a table of functions. GClientPlatformGet gives the
// real one; tests put their own in its place.
#pragma once

#include "client/app/IGClientSkin.h"
#include "platform/GIcon.h"
#include "platform/GTimer.h"

#include <functional>
#include <memory>

class GInstance;
class GMegaPort;
class GThreadObject;

// One row a service: its thread's name, and how it is made.
struct GServiceRow
{
    const char16_t* threadName;
    GThreadObject* ( *create )( GInstance* instance, GMegaPort* port );
};

struct GClientPlatform
{
    // In the order in which they are created, started and stopped.
    std::vector<GServiceRow> services;
    std::function<std::unique_ptr<IGClientSkin>( GInstance* instance )> openSkin;

    // Runs it when the first window has been painted. Empty: nothing waits.
    std::function<void( std::function<void( )> task )> whenShown;

    std::function<GTimer( int64_t microseconds, IGTimerListener* listener )> openTimer;
    std::function<void( GTimer timer )> closeTimer;
    std::function<void( GTimer timer, int64_t microseconds )> setTimerPeriod;
    std::function<GIcon( IGIconListener* listener )> openIcon;
    std::function<void( GIcon icon )> closeIcon;
    std::function<void( GIcon icon, int state )> setIconState;
    std::function<void( GIcon icon, const GWString& text )> setIconText;
    std::function<void( GIcon icon, const GWString& title, const GWString& text, int eventID )> setIconBubble;
    // False when nothing would lead back to a hidden window.
    std::function<bool( )> hasTray;
    std::function<bool( )> isAnyWindowShown;
    std::function<int( const GStringVector& labels )> executeMenu;
    std::function<bool( const GWString& path, GWString& reason )> openDocument;
    // Empty on cancel.
    std::function<GWString( const GWString& title, const GWString& name )> chooseFileSave;
    std::function<void( IGSystemListener* listener )> registerListener;
    std::function<void( IGSystemListener* listener )> resignListener;
    std::function<void( int parameter )> postQuit;
    // Makes a restart after a crash repeat what this start was given. Empty: it starts as the foundation has set it.
    std::function<void( )> repeatOptions;
    // The system has asked the program to end.
    std::function<bool( )> isTerminating;
    std::function<bool( GStringList& list )> listIPs;
    std::function<bool( GStringList& list )> listInterfaceIPs;
    std::function<void( const GWString& path )> playSound;
    std::function<bool( )> isMuted;
    std::function<void( bool mute )> setMute;
    std::function<double( )> getVolume;
    std::function<void( double speaker, double wave )> setVolumeLines;
};

GClientPlatform GClientPlatformGet( );
