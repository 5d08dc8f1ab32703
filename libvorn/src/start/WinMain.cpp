#include "start/GWinMain.h"

#include "base/GDebug.h"
#include "base/GUtil.h"
#include "platform/GCrash.h"
#include "platform/GSystem.h"
#include "platform/GThread.h"
#include "runtime/GObject.h"

#include <filesystem>

namespace
{
constexpr const char16_t* VERSION_TEXT = u"Velmora/764";
constexpr const char16_t* LOG_BASE = u"velmora";
constexpr const char* CRASH_RESTART_ARGS = "-log x";
constexpr int64_t DELETE_PAUSE = 500000;
const GWString UPGRADE_PATH = u"upgrade.exe";

enum InstanceButton
{
    BUTTON_CANCEL,
    BUTTON_TRY_AGAIN,
    BUTTON_CONTINUE
};

GString ownPath( const GString& executablePath )
{
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink( "/proc/self/exe", error );
    return error ? std::filesystem::absolute( executablePath, error ).string( ) : self.string( );
}

// The log is the single-instance test. False: this instance is to end at once.
bool openLog( bool echo )
{
    while( !GLogOpen( LOG_BASE, echo ) )
    {
        const int button = GSystemMessageBox( u"Velmora Already Running",
                                              u"Another instance of Velmora might already be running:\n\n"
                                              u"- To keep the old instance and shut down the new, click Cancel\n"
                                              u"- To keep the new instance after closing the old, click Try Again\n"
                                              u"- To keep both instances, click Continue.",
                                              { u"Cancel", u"Try Again", u"Continue" }, BUTTON_TRY_AGAIN, BUTTON_CANCEL,
                                              GBOX_WARNING );
        if( button == BUTTON_CONTINUE ) return true;
        if( button != BUTTON_TRY_AGAIN ) return false;
    }
    return true;
}

void logStart( const GCommandLine& commandLine )
{
    GLOGPLAIN( u"Version: ", VERSION_TEXT );
    GLOGPLAIN( u"Command Line: ", commandLine.getLogText( ) );
    GLOGPLAIN( u"System: ", GSystemGetInfo( ) );
    const GString filter = commandLine.get( "log" );
    GLogSetFilter( filter );
    if( GLogTest( 'l' ) ) GLogLine( __FILE__, __LINE__, "WinMain", GConcat( u"Setting log filter: '", filter, u"'" ) );
}

void removeUpgrade( )
{
    GLOG( u"Started from upgrade" );
    for( int retries = 3; GFileExists( UPGRADE_PATH ) && !GFileDelete( UPGRADE_PATH ) && retries > 0; )
    {
        --retries;
        GLOG( u"WARNING: Cannot delete 'upgrade.exe', waiting a bit and trying again ", retries, u" more times." );
        GThreadSleep( DELETE_PAUSE );
    }
}

// True when the upgrade took over and this run ends.
bool executeUpgrade( )
{
    if( !GFileExists( UPGRADE_PATH ) ) return false;
    GWString reason;
    if( GSystemExecute( UPGRADE_PATH, u"", reason ) )
    {
        GLOG( u"Executed 'upgrade.exe', shutting down." );
        return true;
    }
    GLOG( u"WARNING Unable to execute 'upgrade.exe', because '", reason, u"'; deleting and ignoring." );
    GFileDelete( UPGRADE_PATH );
    return false;
}

void failUncaught( const char* what )
{
    GLOGPLAIN( u"Velmora: ERROR Uncaught 'exception' exception in thread 'WinMain'. (", what, u")" );
    GAbort( );
}
// The outer guard, for what the processor raises, is the platform's signal handler.
bool runGuarded( const GString& commandLineText )
{
    try
    {
        return GWinMain( commandLineText );
    }
    catch( const std::exception& exception )
    {
        failUncaught( exception.what( ) );
    }
    catch( ... )
    {
        failUncaught( "unknown" );
    }
    return false;
}

void restartProgram( const GString& restartPath )
{
    const GWString path = GUTF8ToWide( restartPath );
    GWString reason;
    if( GSystemExecute( path, u"", reason ) ) return;
    GSystemMessageBox( u"Auto-Restart Failed",
                       GConcat( u"Velmora was unable to automatically restart itself.\r\n", u"'", path, u"'\r\n",
                                u"Please restart Velmora manually.\r\n", u"(", reason, u")" ),
                       { u"OK" }, 0, 0, GBOX_ERROR );
}
} // namespace

int WinMain( const GString& executablePath, const GString& commandLineText )
{
    GCALL( function );
    const GCommandLine commandLine( commandLineText );
    const GString restartPath = commandLine.contains( "norestart" ) ? GString( ) : ownPath( executablePath );
    GDebugOpen( restartPath, CRASH_RESTART_ARGS );
    if( !openLog( !commandLine.contains( "silent" ) ) ) GCrashExit( 0 );
    logStart( commandLine );
    if( commandLine.contains( "upgraded" ) ) removeUpgrade( );
    const bool restart = !executeUpgrade( ) && runGuarded( commandLineText );
    GHeapObject::logStatus( );
    GLogClose( true );
    GNonPortableClose( );
    if( restart ) restartProgram( restartPath );
    return restart ? 1 : 0;
}
