// The client's own entry: builds the client on the main thread and pumps its messages.
#include "base/GDebug.h"
#include "base/GUtil.h"
#include "client/app/GClient.h"
#include "platform/GWin.h"
#include "start/GWinMain.h"

bool GWinMain( const GString& commandLineText )
{
    GCALL( function );
    const GCommandLine commandLine( commandLineText );
    const GClientOptions options = GClientOptionsRead( commandLine );
    GClientPlatform platform = GClientPlatformGet( );
    platform.repeatOptions = [&commandLine]( ) { GDebugSetRestartArgs( GClientGetRestartArgs( commandLine ) ); };
    GClient* client =
        GTRACK( GClient, ( new GClient( options.settingsPath, options.avi, options.host, options.keepLogfiles,
                                        options.upgraded, options.uploadlogfiles, options.forceturn, platform ) ) );
    bool restart = false;
    while( GWinUpdate( restart ) )
    {
    }
    GVALIDPTR( client );
    delete client;
    return restart;
}
