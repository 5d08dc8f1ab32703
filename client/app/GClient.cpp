#include "client/app/GClient.h"

#include "base/GDebug.h"
#include "client/app/GCountryList.h"
#include "client/app/GSettingsKeeper.h"
#include "client/transport/GHTTPClient.h"
#include "client/transport/GMegaPort.h"
#include "platform/GNet.h"
#include "runtime/GInstance.h"
#include "runtime/GThreadObject.h"

#include <algorithm>

namespace
{
constexpr int64_t TICK = 100000;
constexpr int64_t CALM_TICK = 500000;
constexpr int64_t SECOND = 1000000;
constexpr int64_t RETRY_PERIOD = 30 * SECOND;
constexpr int64_t NETWORK_LOST_PERIOD = 5 * SECOND;
constexpr int64_t CONTACT_PERIOD = 30 * SECOND;
constexpr int64_t HTTP_WAIT = 50000;
constexpr size_t MAX_THREADS_LOGGED = 50;
constexpr int MAX_COMMANDS_PER_TICK = 1000;
} // namespace

GClient::GClient( const GWString& settingsPath, const GWString& avi, const GWString& host, const GWString& keepLogfiles,
                  bool upgraded, bool uploadlogfiles, bool forceturn, const GClientPlatform& platform )
    : _platform( platform ), _powerGate( SECOND ), _networkCheck( SECOND ), _retryWait( RETRY_PERIOD ),
      _networkLost( NETWORK_LOST_PERIOD ), _contactGate( CONTACT_PERIOD )
{
    GCALL( GClient );
    _instance = GSAFENEW( GInstance, ( settingsPath ) );
    _port = GSAFENEW( GMegaPort, ( _instance->get( u"Local_User_GUID" ) ) );
    _applyLogFilter( );
    GTextKeepAstral( _isRobust( ) );
    if( _isRobust( ) && _platform.repeatOptions ) _platform.repeatOptions( );
    GClientSettingsApplyOptions( _instance,
                                 { settingsPath, avi, host, keepLogfiles, upgraded, uploadlogfiles, forceturn } );
    GClientSettingsApplyDefaults( _instance );
    _instance->logDump( );
    _instance->set( u"Country_List", GCountryListGet( _isRobust( ) ) );
    _startServicesWhenShown( );
    if( _isRobust( ) ) _keeper = std::make_unique<GSettingsKeeper>( _instance );
    if( _keeper ) _keeper->start( u"GClient.GSettingsKeeper" );
    _instance->set( u"FSM_List", u"Client,SIP,Dispatch" );
    if( _isRobust( ) ) _listIPs( _localIPs );
    _timer = _platform.openTimer( TICK, this );
    _wakeWatches = std::make_unique<GWatchGroup>( _instance, [this] { _wakeTimer( ); } );
    _wakeWatches->watch( { u"GClient_commandQueue", u"Upgrade_In_Progress", u"Video_Privacy_Choice_Mode" } );
    _icon = _platform.openIcon( this );
    if( upgraded )
        _bubble( u"Update complete",
                 GConcat( u"You have successfully upgraded Velmora to version ", GCLIENT_VERSION,
                          u".  Click here to see what has changed." ),
                 EVENT_CHANGELOG );
    _platform.registerListener( this );
    _template = _platform.openSkin( _instance );
    if( !_instance->isSet( u"Local_User_GUID" ) || !_instance->isSet( u"Local_Password" ) )
        _template->command( u"(/skin/window_login?open)" );
    else if( _isRobust( ) )
        _retry( );
    else
        _onInput( EVENT_COMMAND, GHTTPHeaders( u"LOGON" ) );
}

GClient::~GClient( )
{
    _platform.resignListener( this );
    delete _httpClient;
    _platform.closeIcon( _icon );
    _wakeWatches.reset( );
    _platform.closeTimer( _timer );
    _stopServices( );
    _keeper.reset( );
    _template.reset( );
    delete _port;
    delete _instance;
}

void GClient::invariantTest( ) const
{
    GHeapObject::invariantTest( );
    GVALIDPTR( _instance );
    GVALIDPTR( _port );
}

// The first run logs everything.
void GClient::_applyLogFilter( )
{
    GString filter = GLogGetFilter( ) + GWideToUTF8( _instance->get( u"Log_Filter" ) );
    if( !_instance->test( u"First_Run_Complete" ) ) filter += "x";
    GLogSetFilter( filter );
}

// They compete with the first window for the processor, and look for devices and interfaces longer than it takes to show.
void GClient::_startServicesWhenShown( )
{
    if( !_platform.whenShown ) return _startServices( );
    _platform.whenShown(
        [this, alive = std::weak_ptr<int>( _alive )]
        {
            if( !alive.expired( ) && _services.empty( ) ) _startServices( );
        } );
}

void GClient::_startServices( )
{
    for( const GServiceRow& row : _platform.services )
    {
        GThreadObject* service = row.create( _instance, _port );
        _services.push_back( service );
        service->start( row.threadName );
    }
}

// All are told first, so that they stop side by side.
void GClient::_stopServices( )
{
    for( GThreadObject* service : _services ) service->stop( false );
    for( GThreadObject* service : _services )
    {
        service->stop( true );
        delete service;
    }
    _services.clear( );
}

bool GClient::_isRobust( ) const
{
    return _instance->isRobust( u"Robust_Client" );
}

// ---- The tick.

void GClient::onTimer( GTimer timer )
{
    GCALL( GClient );
    GVERIFY( timer == _timer );
    invariantTest( );
    _drainCommandQueue( );
    _leaveWhenTerminating( );
    // Only a logon on its way is worth waiting for.
    if( _httpClient ) _httpClient->update( _state == AUTHENTICATING ? HTTP_WAIT : 0 );
    _onInput( EVENT_TICK, { } );
    _retireHTTPClient( );
    if( _networkCheck.hasElapsed( ) )
    {
        _checkNetwork( );
        _checkCPU( );
    }
    _updateIconText( );
    _announceContacts( );
    _stayReachable( );
    if( _keeper ) _keeper->update( );
    _platform.setTimerPeriod( _timer, _isCalm( ) ? CALM_TICK : TICK );
}

void GClient::_wakeTimer( )
{
    _platform.setTimerPeriod( _timer, TICK );
}

bool GClient::_isCalm( ) const
{
    return _state == ONLINE && !_httpClient && !_isLeaving && _newContacts.empty( ) && !_lostTicks &&
           !_instance->test( u"Upgrade_In_Progress" );
}

// An exchange that is over is read until the server hangs up.
void GClient::_retireHTTPClient( )
{
    GHTTPHeaders rest;
    if( _httpClient && _state != AUTHENTICATING ) _httpClient->recv( rest );
    if( !_httpClient || _httpClient->isAlive( ) ) return;
    delete _httpClient;
    _httpClient = nullptr;
}

// The end of the desktop session is a wish to exit: with the remedy the client logs off and leaves a clean log behind.
void GClient::_leaveWhenTerminating( )
{
    if( _isLeaving || !_isRobust( ) || !_platform.isTerminating( ) ) return;
    _isLeaving = true;
    _instance->set( u"Reconnect_When_Offline", 0 );
    _instance->set( u"Exit_When_Offline", 1 );
    _instance->set( u"Restart_On_Exit", 0 );
    if( _state != OFFLINE ) _onInput( EVENT_COMMAND, GHTTPHeaders( u"LOGOFF" ) );
}

void GClient::_drainCommandQueue( )
{
    GString item;
    for( int i = 0; i < MAX_COMMANDS_PER_TICK && _instance->dequeue( u"GClient_commandQueue", item ); ++i )
    {
        GHTTPHeaders message;
        if( message.deserialize( item ) ) _onInput( EVENT_COMMAND, message );
    }
}

// With the remedy the list is that of the interfaces and has one order, and a moment without a network is no change yet: then only
// the machine itself is left on the list.
bool GClient::_listIPs( GStringList& list )
{
    if( !_isRobust( ) )
    {
        _platform.listIPs( list );
        return true;
    }
    _platform.listInterfaceIPs( list );
    list.sort( );
    if( !std::all_of( list.begin( ), list.end( ), GNetIsLoopbackHost ) || _localIPs.empty( ) )
    {
        _networkLost.expire( );
        return true;
    }
    if( _networkLost.getStart( ) == 0 ) _networkLost.start( );
    return _networkLost.isOver( );
}

void GClient::_checkNetwork( )
{
    GStringList list;
    if( !_listIPs( list ) || list == _localIPs ) return;
    GLOG( u"ACTIVITY: ", u"NETWORK CHANGE" );
    _onInput( EVENT_NETWORKCHANGED, { } );
    _localIPs = list;
}

void GClient::_checkCPU( )
{
    std::vector<std::pair<double, GWString>> threads;
    const double total = GDebugGetPerformance( threads );
    if( _instance->test( u"Enable_Tread_CPU_Tracking" ) )
    {
        GStringList names;
        for( const auto& [percent, name] : threads )
        {
            _instance->set( GConcat( name, u"_CPU" ), GConcat( GFormatDouble( percent, 2 ), u"%" ) );
            names.push_back( name );
        }
        _instance->set( u"Thread_List", names );
        _instance->set( u"Process_CPU", GConcat( GFormatDouble( total, 2 ), u"%" ) );
    }
    if( total <= static_cast<double>( _instance->calc( u"CPU_Log_Threshold" ) ) ) return;
    std::sort( threads.begin( ), threads.end( ), []( const auto& a, const auto& b ) { return a.first > b.first; } );
    if( threads.size( ) > MAX_THREADS_LOGGED ) threads.resize( MAX_THREADS_LOGGED );
    GWString text;
    for( const auto& [percent, name] : threads )
        if( percent > 0 ) text += GConcat( u"'", name, u"'=", GFormatDouble( percent, 2 ), u"% " );
    GLOG( u"WARNING CPU at ", GFormatDouble( total, 2 ), u"% (", text, u")" );
}

// One bubble for all who asked since the last one: strangers must not be able to fill the screen.
void GClient::_announceContacts( )
{
    if( _newContacts.empty( ) || !_contactGate.hasElapsed( ) ) return;
    GStringVector asking;
    for( const GWString& contact : _newContacts )
        if( _instance->contains( u"Contact_Request_List", contact ) ) asking.push_back( contact );
    _newContacts.clear( );
    if( asking.empty( ) ) return;
    GWString text = GConcat( asking[0], u" wants to be your buddy." );
    if( asking.size( ) == 2 ) text = GConcat( asking[0], u" and ", asking[1], u" want to be your buddies." );
    if( asking.size( ) > 2 )
        text = GConcat( asking[0], u" and ", asking.size( ) - 1, u" others want to be your buddies." );
    _bubble( u"Contact request", GConcat( text, u"  Click here to answer." ), EVENT_SHOWCONTACTS );
}

// Without a tray host nothing leads back to a hidden window. A host may come late, as the session starts.
void GClient::_stayReachable( )
{
    constexpr int PATIENCE = 30; // Ticks.
    if( _platform.hasTray( ) || _platform.isAnyWindowShown( ) )
        _lostTicks = 0;
    else if( ++_lostTicks == PATIENCE )
    {
        GLOG( u"There is no tray to come back from, showing the buddy list." );
        _onInput( EVENT_OPEN, { } );
    }
}

void GClient::_updateIconText( )
{
    GWString text = _instance->get( u"Client_Status" );
    if( _instance->test( u"Upgrade_In_Progress" ) )
        text =
            GConcat( u"Upgrading: ", GFormatSize( _instance->calc( u"Upgrade_Bytes_Downloaded" ) ), u" downloaded..." );
    if( text == _iconText ) return;
    _iconText = text;
    _platform.setIconText( _icon, text );
}

// 0, 1 and 2 are offline, busy and online; a private client has the same three of its own.
void GClient::_updateIcon( int n )
{
    if( !GWITHIN( 0, n, 2 ) )
    {
        GLOG( u"ERROR Invalid icon state #", n );
        GAbort( );
    }
    _platform.setIconState( _icon, _isPublic( ) ? n : n + 3 );
}

void GClient::_bubble( const GWString& title, const GWString& text, int eventID )
{
    _platform.setIconBubble( _icon, title, text, eventID );
}

// ---- The listeners.

void GClient::onLButtonDblClk( GIcon icon )
{
    GVERIFY( icon == _icon );
    _onInput( EVENT_OPEN, { } );
}

void GClient::onRButtonDown( GIcon icon )
{
    GVERIFY( icon == _icon );
    _onInput( EVENT_MENU, { } );
}

void GClient::onBubbleClick( GIcon icon, int eventID )
{
    GVERIFY( icon == _icon );
    if( eventID ) _onInput( eventID, { } );
}

void GClient::onSuspend( )
{
    invariantTest( );
    if( !_powerGate.hasElapsed( ) ) return;
    GLOG( u"ACTIVITY: ", u"SUSPEND" );
    _onInput( EVENT_SUSPEND, { } );
}

// What the network is now, it counts as having been: a resume is no change of network too.
void GClient::onResume( )
{
    invariantTest( );
    if( !_powerGate.hasElapsed( ) ) return;
    _listIPs( _localIPs );
    GLOG( u"ACTIVITY: ", u"RESUME" );
    _onInput( EVENT_RESUME, { } );
}

void GClient::onHotkeyDown( GHotkey hotkey, const GWString& name )
{
    if( _template ) _template->onHotkeyDown( hotkey, name );
}

void GClient::onHotkeyUp( GHotkey hotkey, const GWString& name )
{
    if( _template ) _template->onHotkeyUp( hotkey, name );
}
