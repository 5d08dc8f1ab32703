#include "client/skin/commands/GAccountCommands.h"

#include "client/skin/GTemplate.h"
#include "client/skin/GUserName.h"

namespace
{
bool isValidName( const GWString& name )
{
    return GCaseEquals( name, GSanitizeName( name ) );
}
} // namespace

GAccountCommands::GAccountCommands( GTemplate& engine ) : _engine( engine ), _instance( *engine.getInstance( ) ) {}

const GCommandRow<GAccountCommands> GAccountCommands::ROWS[] = {
    { { u"new", u"", u"Makes an account from `Local_Email`, `Local_Username`, `Local_Password` and logs on." },
      true,
      &GAccountCommands::_new },
    { { u"login", u"", u"Logs on with `Local_User_GUID` and `Local_Password`." }, true, &GAccountCommands::_login },
    { { u"updatecapture", u"", u"Tells the buddies what this device can send." },
      true,
      &GAccountCommands::_updateCapture },
};

std::vector<GActionRow> GAccountCommands::getActions( )
{
    return GCommandGetActions( ROWS );
}

void GAccountCommands::execute( const GCommand& command )
{
    if( !GCommandRun( *this, ROWS, command, command.path ) )
        GLOG( u"WARNING Unknown account action '", command.action, u"', ignoring." );
}

GWStringView GAccountCommands::_getNewError( )
{
    if( !_instance.isSet( u"Local_Email" ) ) return u"-- Missing email --";
    if( !_instance.isSet( u"Local_Username" ) ) return u"-- Missing username --";
    if( !_instance.isSet( u"Local_Password" ) ) return u"-- Missing password --";
    const GWString name = _instance.get( u"Local_Username" );
    if( !isValidName( name ) || name.find( u'@' ) != GWString::npos ) return u"-- Invalid name (a-z0-9_.-) --";
    return { };
}

void GAccountCommands::_new( const GCommand& )
{
    const GWStringView error = _getNewError( );
    if( !error.empty( ) )
    {
        _instance.set( u"Logon_Status", error );
        GLOG( u"WARNING Cannot 'new': '", error, u"', ignoring." );
        return;
    }
    _instance.clear( u"Local_User_GUID" );
    _engine.command( u"(/skin/window_new?close)" );
    _instance.enqueue( u"GClient_commandQueue", GHTTPHeaders( u"LOGON" ) );
}

void GAccountCommands::_login( const GCommand& )
{
    const GWString name = _instance.get( u"Local_User_GUID" );
    const bool missing = name.empty( ) || !_instance.isSet( u"Local_Password" );
    if( missing || !isValidName( name ) )
    {
        _instance.set( u"Logon_Status",
                       missing ? u"-- Missing name or password --" : u"-- Invalid name (a-z0-9@_.-) --" );
        return;
    }
    const GWString cleaned = GSanitizeName( name );
    const GWString completed = GUserNameComplete( _instance, cleaned );
    if( completed == cleaned )
        _instance.set( u"Local_User_GUID", cleaned );
    else
        _instance.set( u"Local_User_GUID", completed, true );
    _engine.command( u"(/skin/window_login?close)" );
    _instance.enqueue( u"GClient_commandQueue", GHTTPHeaders( u"LOGON" ) );
}

void GAccountCommands::_updateCapture( const GCommand& )
{
    _instance.enqueue( u"GSIPService_commandQueue", GHTTPHeaders( u"UPDATECAPTURE" ) );
}
