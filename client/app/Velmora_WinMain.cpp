// The client's own entry: builds the client on the main thread and pumps its messages.
#include "base/GUtil.h"
#include "client/app/GClient.h"
#include "platform/GWin.h"
#include "start/GWinMain.h"

bool GWinMain( const GString& commandLineText )
{
    GCALL( function );
    const GCommandLine commandLine( commandLineText );
    GString settingsPath;
    if( !commandLine.get( "property", settingsPath ) ) settingsPath = "settings.ini";
    if( commandLine.contains( "reset" ) ) GFileDelete( GUTF8ToWide( settingsPath ) );
    GClient* client = GTRACK(
        GClient, ( new GClient( GUTF8ToWide( settingsPath ), GUTF8ToWide( commandLine.get( "avi" ) ),
                                GUTF8ToWide( commandLine.get( "host" ) ),
                                GUTF8ToWide( commandLine.get( "keeplogfiles" ) ), commandLine.contains( "upgraded" ),
                                commandLine.contains( "uploadlogfiles" ), commandLine.contains( "forceturn" ) ) ) );
    bool restart = false;
    while( GWinUpdate( restart ) )
    {
    }
    GVALIDPTR( client );
    delete client;
    return restart;
}
