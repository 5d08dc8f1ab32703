// The seven states of the client: one handler a state, one line a row.
#include "client/app/GClient.h"
#include "client/transport/GHTTPClient.h"
#include "runtime/GInstance.h"

namespace
{
constexpr const char16_t* STATES[] = { u"Offline", u"Waiting...",     u"Authenticating...", u"Connecting...",
                                       u"Online",  u"Logging off...", u"Disconnecting..." };
constexpr char16_t SHOW_BUDDYLIST[] = u"(/skin/window_buddylist?open)";
} // namespace

GWString GClient::_getState( int state )
{
    return GWITHIN( 0, state, static_cast<int>( std::size( STATES ) ) - 1 ) ? STATES[state] : u"<invalid>";
}

void GClient::_changeState( int state )
{
    GLOGIF( 'c', u"Changing state to '", _getState( state ), u"'" );
    _state = state;
    _wakeTimer( );
}

void GClient::_onInput( int eventID, const GHTTPHeaders& eventHeaders )
{
    GCALL( GClient );
    const Input in{ eventID, eventHeaders, eventID == EVENT_COMMAND ? eventHeaders.getMethod( ) : GWString( ) };
    if( eventID == EVENT_COMMAND ) GLOGIF( 'c', u"Received '", in.method, u"' event" );
    if( _onEveryState( in ) || _onState( in ) || _onAnyState( in ) ) return;
    GLOG( u"WARNING Ignored input eventID #", eventID, u", eventHeaders='", eventHeaders.getDebugText( ), u"'" );
}

bool GClient::_onEveryState( const Input& in )
{
    if( in.eventID == EVENT_CHANGELOG ) return _showChangeLog( );
    if( in.eventID == EVENT_SHOWCONTACTS ) return _showContacts( );
    if( in.is( u"NEWBUDDY" ) ) return _onNewBuddy( in.headers );
    if( in.is( u"NEWCONTACT" ) ) return _onNewContact( in.headers );
    return false;
}

bool GClient::_onState( const Input& in )
{
    switch( _state )
    {
    case OFFLINE: return _onOffline( in );
    case WAITING: return _onWaiting( in );
    case AUTHENTICATING: return _onAuthenticating( in );
    case CONNECTING: return _onConnecting( in );
    case ONLINE: return _onOnline( in );
    case LOGGING_OFF: return _onLoggingOff( in );
    case DISCONNECTING: return _onDisconnecting( in );
    default: return false;
    }
}

bool GClient::_onAnyState( const Input& in )
{
    if( in.eventID == EVENT_OPEN )
    {
        _template->command( SHOW_BUDDYLIST );
        return true;
    }
    if( in.eventID == EVENT_MENU ) return _showMenu( );
    return false;
}

// ---- The states.

bool GClient::_onOffline( const Input& in )
{
    if( in.isTick( ) ) return _tickOffline( );
    if( in.is( u"LOGON" ) )
    {
        _instance->set( u"Prompt_On_AUTHENTICATE_Failure", 1 );
        return _retry( );
    }
    if( in.eventID == EVENT_RESUME && _instance->test( u"Reconnect_On_Resume" ) )
    {
        _instance->clear( u"Reconnect_On_Resume" );
        return _retry( );
    }
    if( in.is( u"UPGRADEDOWNLOADED" ) ) return _promptForUpgrade( );
    if( GWITHIN( EVENT_SUSPEND, in.eventID, EVENT_NETWORKCHANGED ) ) return true;
    if( in.is( u"LOGFILESUPLOADED" ) ) return _onLogfilesUploaded( );
    return false;
}

bool GClient::_onWaiting( const Input& in )
{
    if( in.isTick( ) ) return _tickWaiting( );
    if( in.eventID == EVENT_RESUME || in.eventID == EVENT_NETWORKCHANGED ) return _retry( );
    if( in.is( u"LOGOFF" ) ) return _resetToOffline( );
    if( in.is( u"UPGRADEDOWNLOADED" ) ) return _promptForUpgrade( );
    if( in.eventID == EVENT_SUSPEND || in.is( u"LOGFILESUPLOADED" ) ) return true;
    return false;
}

bool GClient::_onAuthenticating( const Input& in )
{
    if( in.isTick( ) ) return _tickAuthenticating( );
    if( in.eventID == EVENT_SUSPEND )
    {
        _stopHTTPClient( );
        _changeState( WAITING );
        return true;
    }
    if( in.eventID == EVENT_RESUME || in.eventID == EVENT_NETWORKCHANGED ) return _restartLogon( );
    if( in.is( u"LOGOFF" ) )
    {
        _stopHTTPClient( );
        return _resetToOffline( );
    }
    if( in.is( u"UPGRADEDOWNLOADED" ) ) return _promptForUpgrade( );
    return false;
}

bool GClient::_onConnecting( const Input& in )
{
    if( in.isTick( ) ) return _showStatus( 1 );
    if( in.is( u"CONNECTED" ) )
    {
        _requestBUDDYLOGON( );
        _changeState( ONLINE );
        return true;
    }
    if( in.is( u"DISCONNECTED" ) )
    {
        if( !_isRobust( ) ) return _resetToOffline( );
        // As after a logon that failed: the first retry of 30 s comes at once.
        _changeState( WAITING );
        _reset( );
        return true;
    }
    if( in.is( u"LOGOFF" ) ) return _hangUp( );
    if( in.eventID == EVENT_SUSPEND )
    {
        _instance->set( u"Reconnect_On_Resume", 1 );
        return _hangUp( );
    }
    if( in.eventID == EVENT_RESUME || in.eventID == EVENT_NETWORKCHANGED ) return _reconnect( );
    if( in.is( u"UPGRADEDOWNLOADED" ) ) return _promptForUpgrade( );
    return false;
}

bool GClient::_onOnline( const Input& in )
{
    if( in.isTick( ) ) return _showStatus( 2 );
    if( in.is( u"LOGOFF" ) ) return _logOff( );
    if( in.eventID == EVENT_SUSPEND )
    {
        _instance->set( u"Reconnect_On_Resume", 1 );
        return _logOff( );
    }
    if( in.is( u"DISCONNECTED" ) || in.eventID == EVENT_RESUME || in.eventID == EVENT_NETWORKCHANGED )
        return _reconnect( );
    if( in.is( u"UPGRADEDOWNLOADED" ) ) return _promptForUpgrade( );
    return _onOnlineCommand( in );
}

bool GClient::_onLoggingOff( const Input& in )
{
    if( in.isTick( ) ) return _showStatus( 1 );
    if( in.is( u"BUDDYLOGGEDOFF" ) )
    {
        _requestDISCONNECT( );
        _changeState( DISCONNECTING );
        return true;
    }
    if( in.is( u"DISCONNECTED" ) || in.is( u"LOGOFF" ) || in.eventID == EVENT_NETWORKCHANGED )
        return _resetToOffline( );
    if( in.eventID == EVENT_RESUME ) return _reconnectIfResumed( );
    return in.eventID == EVENT_SUSPEND;
}

bool GClient::_onDisconnecting( const Input& in )
{
    if( in.isTick( ) ) return _showStatus( 1 );
    if( in.is( u"DISCONNECTED" ) || in.is( u"LOGOFF" ) ) return _resetToOffline( );
    if( in.eventID == EVENT_RESUME || in.eventID == EVENT_NETWORKCHANGED ) return _reconnectIfResumed( );
    return in.eventID == EVENT_SUSPEND;
}

// ---- Ticks.

bool GClient::_showStatus( int icon )
{
    _instance->set( u"Client_Status", _getState( _state ) );
    _updateIcon( icon );
    _updateIconText( );
    return true;
}

bool GClient::_tickOffline( )
{
    _showStatus( 0 );
    const bool reconnects = _instance->test( u"Reconnect_When_Offline" );
    const bool exits = _instance->test( u"Exit_When_Offline" );
    const bool restarts = _instance->test( u"Restart_On_Exit" );
    for( const GWStringView name : { u"Reconnect_When_Offline", u"Exit_When_Offline", u"Restart_On_Exit" } )
        if( _instance->isSet( name ) ) _instance->clear( name );
    if( reconnects )
    {
        GLOG( u"'Reconnect_When_Offline' set, reconnecting." );
        return _retry( );
    }
    if( exits )
    {
        GLOG( u"'Exit_When_Offline' set, exiting with 'Restart_On_Exit'=", restarts );
        _platform.postQuit( restarts );
    }
    return true;
}

bool GClient::_tickWaiting( )
{
    _updateIcon( 0 );
    if( _retryWait.hasElapsed( ) )
    {
        GLOGIF( 'c', u"Retrying AUTHENTICATE" );
        return _retry( );
    }
    _instance->set( u"Client_Status", GConcat( _retryWait.getRemaining( ) / 1000000, u" Waiting..." ) );
    return true;
}

bool GClient::_tickAuthenticating( )
{
    _showStatus( 1 );
    if( !_httpClient )
    {
        GLOG( u"'AUTHENTICATE' request failed prematurely, going offlne." );
        _processAUTHENTICATEResponse( { } );
        return true;
    }
    GHTTPHeaders response;
    if( !_httpClient->recv( response ) ) return true;
    _processAUTHENTICATEResponse( response );
    if( _httpClient ) _httpClient->shutdown( );
    return true;
}

// ---- Actions that the rows share.

bool GClient::_resetToOffline( )
{
    _changeState( OFFLINE );
    _reset( );
    return true;
}

bool GClient::_retry( )
{
    _requestAUTHENTICATE( );
    _changeState( AUTHENTICATING );
    return true;
}

bool GClient::_stopHTTPClient( )
{
    if( _httpClient ) _httpClient->shutdown( );
    return true;
}

bool GClient::_restartLogon( )
{
    _stopHTTPClient( );
    _reset( );
    return _retry( );
}

// Below Online the dispatch service refuses to log off: with the remedy the client starts over at once, and a wish to exit stays.
bool GClient::_hangUp( )
{
    if( _isRobust( ) ) return _resetToOffline( );
    _requestDISCONNECT( );
    _changeState( DISCONNECTING );
    return true;
}

bool GClient::_logOff( )
{
    _requestBUDDYLOGOFF( );
    _changeState( LOGGING_OFF );
    return true;
}

bool GClient::_reconnect( )
{
    _instance->set( u"Reconnect_When_Offline", 1 );
    return _resetToOffline( );
}

bool GClient::_reconnectIfResumed( )
{
    _instance->set( u"Reconnect_When_Offline", _instance->get( u"Reconnect_On_Resume" ) );
    return _resetToOffline( );
}

bool GClient::_onLogfilesUploaded( )
{
    if( !_instance->test( u"Exit_When_Logfiles_Uploaded" ) ) return true;
    GLOG( u"ACTIVITY: ", u"Logfiles uploaded, exiting." );
    _platform.postQuit( 0 );
    return true;
}

bool GClient::_promptForUpgrade( )
{
    _template->command( u"(/system?delayrestart+delay=30)" );
    return true;
}

bool GClient::_showChangeLog( )
{
    GWString reason;
    if( !_platform.openDocument( u"CHANGELOG.txt", reason ) )
        GLOG( u"WARNING Cannot open 'CHANGELOG.txt' because '", reason, u"', ignoring." );
    return true;
}

bool GClient::_onNewBuddy( const GHTTPHeaders& command )
{
    const GWString buddy = command.get( u"Buddy-GUID" );
    if( !GValidUserID( buddy ) )
    {
        GLOG( u"WARNING Received 'NEWBUDDY' for invalid user '", buddy, u"', ignoring." );
        return true;
    }
    const GWString hotkey = _instance->get( GConcat( buddy, u"_Hotkey" ) );
    if( hotkey.empty( ) ) return true;
    GLOGIF( 'c', u"Assigning hotkey '", hotkey, u"' to '", buddy, u"'" );
    _instance->set( u"Working_Hotkey", hotkey );
    _template->command( GConcat( u"(/system?assignhotkey+name=", buddy, u")" ) );
    _instance->set( u"Working_Hotkey", u"    (click here and press keys)" );
    return true;
}

// Told by the next tick whose bubble is due.
bool GClient::_onNewContact( const GHTTPHeaders& command )
{
    constexpr size_t MAX_NEW_CONTACTS = 100;
    const GWString contact = command.get( u"Buddy-GUID" );
    if( !GValidUserID( contact ) )
        GLOG( u"WARNING Received 'NEWCONTACT' for invalid user '", contact, u"', ignoring." );
    else if( _newContacts.size( ) < MAX_NEW_CONTACTS )
        _newContacts.push_back( contact );
    return true;
}

bool GClient::_showContacts( )
{
    GLOG( u"ACTIVITY: ", u"SHOWCONTACTS" );
    _template->command( SHOW_BUDDYLIST );
    return true;
}

// ---- The tray menu.

bool GClient::_showMenu( )
{
    constexpr int TOGGLE = 4;
    constexpr const char16_t* COMMANDS[] = { SHOW_BUDDYLIST,
                                             u"(/skin/window_addbuddy?open)",
                                             u"(/skin/window_options?open)",
                                             u"(/system?reconnect)",
                                             nullptr,
                                             u"(/skin/window_buddylist?close;/system?exit)" };
    const GStringVector labels{ u"&Show Buddylist",
                                u"&Add Buddy",
                                u"&Options",
                                u"&Reconnect",
                                _isPublic( ) ? u"Go P&rivate (disable video)" : u"Go P&ublic (see and be seen)",
                                u"E&xit" };
    const int choice = _platform.executeMenu( labels );
    if( choice == TOGGLE )
        _togglePrivacy( );
    else if( GWITHIN( 0, choice, static_cast<int>( std::size( COMMANDS ) ) - 1 ) )
        _template->command( COMMANDS[choice] );
    return true;
}

bool GClient::_isPublic( ) const
{
    return GCaseEquals( _instance->get( u"Video_Privacy_Choice_Mode" ), GCLIENT_PUBLIC );
}

void GClient::_togglePrivacy( )
{
    _instance->set( u"Video_Privacy_Choice_Mode", _isPublic( ) ? GCLIENT_PRIVATE : GCLIENT_PUBLIC, true );
    _template->command( u"(/account?updatecapture)" );
}
