// Brings the desktop up and down around everything else.
#include "base/GPortable.h"
#include "platform/GCrash.h"
#include "platform/GSystem.h"
#include "platform/GThread.h"
#include "platform/common/GScreenBackend.h"
#include "platform/desktop/GDesktop_Qt.h"
#include "platform/input/GHotkey.h"
#include "platform/input/GXcb.h"
#include "platform/system/GSystem_Logind.h"

#include <xcb/xcb.h>

void GInitializeNonPortable( void ( *crashHandler )( ) )
{
    GCrashInstall( crashHandler );
    GDesktopOpen( );
    if( xcb_connection_t* connection = GDesktopGetConnection( ) )
        GCrashAddDisplaySocket( xcb_get_file_descriptor( connection ) );
    GSleepWatchOpen( );
    GThreadRegister( u"(main)" );
}

void GNonPortableClose( )
{
    GCrashForgetDisplaySockets( );
    GScreenBackendClose( );
    GHotkeyCloseAll( );
    GXcbClose( );
    GDesktopClose( );
}
