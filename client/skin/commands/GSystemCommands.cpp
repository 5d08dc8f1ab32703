#include "client/skin/commands/GSystemCommands.h"

#include "client/skin/GTemplate.h"
#include "platform/GThread.h"
#include "platform/GTime.h"

#include <algorithm>

namespace
{
// About thirty years: keeps the sum with the clock within range.
constexpr int64_t LONGEST_DELAY = 1000000000;

// Of a hotkey or a thread: the selection of a table, or what a button names.
GWString getName( const GCommand& command )
{
    return command.selection.empty( ) ? command.get( u"name" ) : command.selection;
}

// Passwords never show on the debug page.
constexpr GWStringView MASK = u"********";

bool isSecret( const GWString& name )
{
    return GToLower( name ).ends_with( u"password" );
}
GWString getShown( const GWString& name, const GWString& value )
{
    return isSecret( name ) && !value.empty( ) ? GWString( MASK ) : value;
}
} // namespace

GSystemCommands::GSystemCommands( GTemplate& engine ) : _engine( engine ), _instance( *engine.getInstance( ) ) {}

const GCommandRow<GSystemCommands> GSystemCommands::ROWS[] = {
    { { u"exit", u"", u"Logs off and ends the program." }, true, &GSystemCommands::_exit },
    { { u"reconnect", u"", u"Logs off and on again." }, true, &GSystemCommands::_reconnect },
    { { u"restart", u"", u"Logs off and starts the program anew." }, true, &GSystemCommands::_restart },
    { { u"delayrestart", u"delay", u"The same in `delay` seconds; a countdown shows in the last 30." },
      true,
      &GSystemCommands::_delayRestart },
    { { u"setlogfilter", u"", u"Takes `Log_Filter` for the log." }, false, &GSystemCommands::_setLogFilter },
    { { u"getvalue", u"", u"Puts the value named by `Debug_Name` into `Debug_Value`." },
      false,
      &GSystemCommands::_getValue },
    { { u"setvalue", u"", u"Sets the value named by `Debug_Name` to `Debug_Value`." },
      false,
      &GSystemCommands::_setValue },
    { { u"set", u"name,value,persist",
        u"Sets the blackboard value `name` to `value`; with `persist=1` it is kept in the settings." },
      false,
      &GSystemCommands::_set },
    { { u"assignhotkey", u"name", u"Gives `Working_Hotkey` to the talk key `name`; from a table, to the chosen one." },
      true,
      &GSystemCommands::_assignHotkey },
    { { u"clearhotkey", u"name", u"Frees that talk key." }, true, &GSystemCommands::_clearHotkey },
    { { u"uploadlogfile", u"", u"Sends the log to the maker." }, true, &GSystemCommands::_uploadLogfile },
    { { u"bugreport", u"", u"Sends `Bug_Report` and the log." }, true, &GSystemCommands::_bugReport },
    { { u"logcallstack", u"name,from",
        u"Writes where the thread `name`, the one named by the value `from`, or the one chosen in a table is into the "
        u"log." },
      true,
      &GSystemCommands::_logCallStack },
    { { u"showchanges", u"", u"Opens `CHANGELOG.txt`." }, true, &GSystemCommands::_showChanges },
    { { u"reloadskin", u"", u"Reads the skin again; windows stay where they are." },
      true,
      &GSystemCommands::_reloadSkin },
};

std::vector<GActionRow> GSystemCommands::getActions( )
{
    return GCommandGetActions( ROWS );
}

void GSystemCommands::execute( const GCommand& command )
{
    if( !GCommandRun( *this, ROWS, command, command.path ) )
        GLOG( u"WARNING Unknown system action '", command.action, u"', ignoring." );
}

void GSystemCommands::_leave( bool reconnect, bool exit, bool restart )
{
    _instance.enqueue( u"GClient_commandQueue", GHTTPHeaders( u"LOGOFF" ) );
    _instance.set( u"Reconnect_When_Offline", reconnect ? 1 : 0 );
    _instance.set( u"Exit_When_Offline", exit ? 1 : 0 );
    _instance.set( u"Restart_On_Exit", restart ? 1 : 0 );
}

void GSystemCommands::_exit( const GCommand& )
{
    _leave( false, true, false );
}

void GSystemCommands::_reconnect( const GCommand& )
{
    _leave( true, false, false );
}

void GSystemCommands::_restart( const GCommand& )
{
    _leave( false, true, true );
}

void GSystemCommands::_delayRestart( const GCommand& command )
{
    const int64_t delay = std::clamp<int64_t>( command.calc( u"delay" ), 0, LONGEST_DELAY );
    _engine.setRestartTime( GTimeGetTime( ) + static_cast<uint64_t>( delay ) * 1000000 );
}

void GSystemCommands::_setLogFilter( const GCommand& )
{
    const GWString value = _instance.get( u"Log_Filter" );
    GLogSetFilter( GWideToUTF8( value ) );
    _instance.set( u"Debug_Result", GConcat( u"Set log filter to '", value, u"'  " ) );
}

void GSystemCommands::_getValue( const GCommand& )
{
    const GWString name = _instance.get( u"Debug_Name" );
    const GWString value = getShown( name, _instance.get( name ) );
    _instance.set( u"Debug_Value", value );
    _instance.set( u"Debug_Result", GConcat( u"Getting '", name, u"' = '", value, u"'" ) );
}

void GSystemCommands::_setValue( const GCommand& )
{
    const GWString name = _instance.get( u"Debug_Name" );
    const GWString value = _instance.get( u"Debug_Value" );
    // What was read as a mask is not to be written back as the password.
    if( !isSecret( name ) || value != MASK ) _instance.set( name, value );
    _instance.set( u"Debug_Result", GConcat( u"Setting '", name, u"' = '", getShown( name, value ), u"'" ) );
}

void GSystemCommands::_set( const GCommand& command )
{
    const GWString name = command.get( u"name" );
    const GWString value = command.get( u"value" );
    if( name.empty( ) )
        GLOG( u"WARNING Cannot set value '", value, u"' because no name specificed; ignoring." );
    else
        _instance.set( name, value, command.get( u"persist" ) == u"1" );
}

void GSystemCommands::_assignHotkey( const GCommand& command )
{
    const GWString name = getName( command );
    if( name.empty( ) )
        GLOG( u"WARNING Trying to assign hotkey, but nothing selected" );
    else
        _engine.assignHotkey( name, _instance.get( u"Working_Hotkey" ) );
}

void GSystemCommands::_clearHotkey( const GCommand& command )
{
    const GWString name = getName( command );
    if( name.empty( ) )
        GLOG( u"WARNING Trying to clear hotkey, but nothing selected" );
    else
        _engine.clearHotkey( name );
}

void GSystemCommands::_uploadLogfile( const GCommand& )
{
    _engine.getPlatform( ).rollLog( );
    _instance.set( u"Exit_When_Logfiles_Uploaded", 0 );
    GHTTPHeaders message( u"UPLOADLOGFILES" );
    if( _instance.isRobust( u"Robust_Client" ) )
        message.set( u"Logfile-Host", _instance.get( u"Global_Logfile_Host" ) );
    _instance.enqueue( u"GLogfileService_commandQueue", message );
}

void GSystemCommands::_bugReport( const GCommand& )
{
    if( _instance.get( u"Bug_Report" ).empty( ) )
    {
        _instance.set( u"Bug_Report_Status", u"Please enter bug report or suggestion." );
        return;
    }
    _instance.enqueue( u"GSIPService_commandQueue", GHTTPHeaders( u"BUGREPORT" ) );
    _instance.set( u"Bug_Report_Status", u"Uploading report..." );
    _engine.command( u"(/system?uploadlogfile)" );
}

void GSystemCommands::_logCallStack( const GCommand& command )
{
    // Names of threads may hold what has a meaning in commands.
    const GWString from = command.get( u"from" );
    const GWString name = from.empty( ) ? getName( command ) : _instance.get( from );
    const auto threads = GThreadListTimes( );
    const auto found =
        std::ranges::find_if( threads, [&]( const GThreadTime& thread ) { return thread.name == name; } );
    if( found == threads.end( ) )
        GLOG( u"WARNING Unknown thread '", name, u"', cannot log call stack; ignoring." );
    else
        GCallDump( found->thread );
}

void GSystemCommands::_showChanges( const GCommand& )
{
    constexpr const char16_t* DOCUMENT = u"CHANGELOG.txt";
    GWString reason;
    if( !_engine.getPlatform( ).openDocument( DOCUMENT, reason ) )
        GLOG( u"WARNING Can't open '", DOCUMENT, u"' ('", reason, u"'), ignoring." );
}

void GSystemCommands::_reloadSkin( const GCommand& )
{
    _engine.reloadSkin( );
}
