#include "client/signalling/GSIPService.h"

#include "base/GForeignText.h"
#include "client/signalling/GBuddySession.h"
#include "client/signalling/GContactRequests.h"
#include "client/transport/GMegaPort.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

#include <set>

namespace
{
constexpr char16_t QUEUE[] = u"GSIPService_commandQueue";
constexpr char16_t LIST[] = u"Local_Buddy_List";
constexpr char16_t CLIENT_QUEUE[] = u"GClient_commandQueue";
constexpr int64_t WAIT = 500000;
// While a handshake runs under the remedy its first repetition is due after 0.2 s.
constexpr int64_t SHORT_WAIT = 100000;
constexpr int64_t LIST_PERIOD = 10000000;
// Strangers can make sessions; the oldest that is not in use gives way.
constexpr size_t MAX_BUDDIES = 1024;
constexpr const char16_t* STATE_NAMES[] = { u"Offline", u"Getting buddy list", u"Online", u"Leaving buddies",
                                            u"Setting buddy list" };
} // namespace

GSIPService::GSIPService( GInstance* instance, GMegaPort* port )
    : _instance( instance ), _port( port ), _sipClient( GSAFENEW( GSIPClient, ( port ) ) ),
      _contactRequests( GSAFENEW( GContactRequests, ( instance, _sipClient ) ) ), _listTimer( LIST_PERIOD )
{
    invariantTest( );
    _sipClient->setRobust( _isRobust( ) );
    _instance->setWaker( QUEUE, _port->getSIPEvent( ) );
    _setWaker( _port->getSIPEvent( ) );
}

GSIPService::~GSIPService( )
{
    stop( true );
    _instance->setWaker( QUEUE, nullptr );
    GASSERT( _buddyGUIDSessionMap.empty( ) );
    delete _contactRequests;
    delete _sipClient;
}

void GSIPService::invariantTest( ) const
{
    GThreadObject::invariantTest( );
    GASSERT( _instance );
    GASSERT( _port );
    GASSERT( _sipClient );
}

GWString GSIPService::_getState( int state )
{
    return GWITHIN( 0, state, SETTING_BUDDY_LIST ) ? STATE_NAMES[state] : u"<invalid>";
}

bool GSIPService::_isRobust( ) const
{
    return _instance->isRobust( u"Robust_Signalling" );
}

bool GSIPService::_isClientRobust( ) const
{
    return _instance->isRobust( u"Robust_Client" );
}

GBuddySession* GSIPService::findBuddy( GWStringView buddyGUID ) const
{
    const auto found = _buddyGUIDSessionMap.find( buddyGUID );
    return found == _buddyGUIDSessionMap.end( ) ? nullptr : found->second;
}

// ---- The thread.

void GSIPService::_bGThreadObject_safe_onStartup( )
{
    GCALL( GSIPService );
}

void GSIPService::_bGThreadObject_safe_onShutdown( )
{
    GCALL( GSIPService );
    _reset( );
}

int GSIPService::_bGThreadObject_safe_onLoop( )
{
    GCALL( GSIPService );
    bool connecting = false;
    if( _isRobust( ) )
        for( const auto& [buddyGUID, session] : _buddyGUIDSessionMap ) connecting |= session->isConnecting( );
    pass( connecting ? SHORT_WAIT : WAIT );
    return 0;
}

void GSIPService::pass( int64_t timeout )
{
    _sipClient->setRobust( _isRobust( ) );
    for( const auto& [buddyGUID, session] : _buddyGUIDSessionMap ) session->update( );
    _port->waitForSIPBucket( timeout );
    _sipClient->dispatch( this );
    GString item;
    while( _instance->dequeue( QUEUE, item ) )
    {
        GHTTPHeaders command;
        if( command.deserialize( item ) ) _onInput( GSIPInput::ofCommand( command ) );
    }
    _onInput( GSIPInput::ofEvent( UPDATE ) );
}

void GSIPService::onRequest( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request )
{
    const GObjectLock lock( *this );
    if( _isOwnDevice( request ) )
    {
        GLOG( u"WARNING Received '", request.getMethod( ), u"' from (", remoteHost,
              u") that bears our own device, ignoring." );
        return;
    }
    if( !request.isMethod( GProtocol::HOLEPUNCH ) )
    {
        _onInput( GSIPInput::ofRequest( localHost, remoteHost, request ) );
        return;
    }
    const GWString from = request.get( GProtocol::FROM );
    if( !GCaseEquals( request.get( u"Sent-From" ), remoteHost ) )
        GLOGIF( 'S', u"Remote buddy '", from, u"' thinks it's sending from (", request.get( u"Sent-From" ),
                u") but is actually sending from (", remoteHost, u"), maybe behind a NAT; ignoring." );
    GBuddySession* session = _isRobust( ) ? findBuddy( from ) : nullptr;
    if( session ) session->onHOLEPUNCH( remoteHost, request );
}

void GSIPService::onResponse( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request,
                              const GHTTPHeaders& response )
{
    const GObjectLock lock( *this );
    if( _isOwnDevice( response ) )
        GLOG( u"WARNING Received response from (", remoteHost, u") that bears our own device, ignoring." );
    else
        _onInput( GSIPInput::ofResponse( localHost, remoteHost, request, response ) );
}

bool GSIPService::_isOwnDevice( const GHTTPHeaders& message ) const
{
    const GWString device = message.get( GProtocol::FROM_DEVICE_GUID );
    return !device.empty( ) && GCaseEquals( device, _instance->get( u"Local_Device_GUID" ) );
}

// ---- The machine.

bool GSIPService::_onInput( const GSIPInput& in )
{
    _logInput( in );
    _instance->set( u"SIP_Status", _getState( _state ) );
    const bool handled = _onContact( in ) || _onState( in ) || _onLateBye( in );
    if( !handled ) _ignoreInput( in );
    return handled;
}

bool GSIPService::_onState( const GSIPInput& in )
{
    switch( _state )
    {
    case OFFLINE: return _onOffline( in );
    case GETTING_BUDDY_LIST: return _onGettingBuddyList( in );
    case ONLINE: return _onOnline( in );
    case LEAVING_BUDDIES: return _onLeavingBuddies( in );
    case SETTING_BUDDY_LIST: return _onSettingBuddyList( in );
    }
    return false;
}

// Contact requests pass by the table: they come as soon as the device is registered, and no session ever sees them.
bool GSIPService::_onContact( const GSIPInput& in )
{
    if( in.isRequest( GProtocol::CONTACTREQUEST ) )
    {
        const bool isBuddy = _state == ONLINE && _instance->contains( LIST, in.request.get( GProtocol::FROM ) );
        if( _state == ONLINE || _state == GETTING_BUDDY_LIST )
            _contactRequests->onRequest( in.localHost, in.remoteHost, in.request, isBuddy );
        else
            GLOGIF( 's', u"Received 'CONTACTREQUEST' but not online, ignoring." );
        return true;
    }
    if( in.isResponseTo( GProtocol::CONTACTANSWER ) )
    {
        if( _isFromServer( in ) ) _contactRequests->onResponse( in.originalRequest, in.response );
        return true;
    }
    if( !in.isCommand( GProtocol::CONTACTANSWER ) || _state != ONLINE ) return false;
    _contactRequests->answer( in.command.get( GProtocol::BUDDY_GUID ), in.command.get( GProtocol::ANSWER ) );
    return true;
}

bool GSIPService::_updateContacts( )
{
    _contactRequests->update( );
    return true;
}

bool GSIPService::_onOffline( const GSIPInput& in )
{
    if( in.is( UPDATE ) || in.isCommand( u"UPDATECAPTURE" ) ) return true;
    if( in.isCommand( u"BUDDYLOGON" ) ) return _beginGettingBuddyList( );
    if( in.isCommand( u"RESET" ) ) return _goOffline( false );
    return false;
}

bool GSIPService::_onGettingBuddyList( const GSIPInput& in )
{
    if( in.is( UPDATE ) && _isRobust( ) && _listTimer.hasElapsed( ) ) return _beginGettingBuddyList( );
    if( in.is( UPDATE ) || in.isCommand( u"UPDATECAPTURE" ) ) return true;
    if( in.isResponseTo( GProtocol::GETBUDDYLIST ) )
        return !_isFromServer( in ) || _processGETBUDDYLISTResponse( in.response );
    if( in.isCommand( u"BUDDYLOGOFF" ) ) return _goOffline( true );
    if( in.isCommand( u"RESET" ) ) return _goOffline( false );
    return false;
}

bool GSIPService::_onOnline( const GSIPInput& in )
{
    if( in.is( UPDATE ) ) return _updateContacts( );
    if( in.isCommand( u"BUDDYLOGOFF" ) ) return _leaveBuddies( );
    if( in.isCommand( GProtocol::ADDBUDDY ) ) return _addBuddy( in.command.get( GProtocol::BUDDY_GUID ) );
    if( in.isResponseTo( GProtocol::ADDBUDDY ) ) return !_isFromServer( in ) || _onAddBuddyResponse( in );
    if( in.isCommand( u"RECONNECTBUDDY" ) ) return _reconnectBuddy( in.command.get( GProtocol::BUDDY_GUID ) );
    if( in.isCommand( u"REMOVEBUDDY" ) ) return _removeBuddy( in.command.get( GProtocol::BUDDY_GUID ) );
    if( in.isCommand( GProtocol::BUGREPORT ) ) return _reportBug( );
    if( in.isResponseTo( GProtocol::BUGREPORT ) ) return !_isFromServer( in ) || _onBugReportResponse( in.response );
    if( in.isCommand( u"UPDATECAPTURE" ) ) return _captureChanged( );
    if( in.isRequest( ) ) return _passRequest( in );
    if( in.isResponse( ) ) return _passResponse( in );
    if( in.isCommand( u"RESET" ) ) return _goOffline( false );
    return false;
}

bool GSIPService::_onLeavingBuddies( const GSIPInput& in )
{
    if( in.is( UPDATE ) || in.isCommand( u"UPDATECAPTURE" ) ) return !_areAllOffline( ) || _saveBuddyList( );
    if( in.isCommand( u"BUDDYLOGOFF" ) ) return _goOffline( true );
    if( in.isRequest( GProtocol::INVITE ) )
    {
        GLOGIF( 's', u"Received 'INVITE' but trying to say 'BYE', ignoring." );
        return true;
    }
    if( _isRobust( ) && in.isResponseTo( GProtocol::INVITE ) )
    {
        GLOGIF( 's', u"Received an answer to 'INVITE' but trying to say 'BYE', ignoring." );
        return true;
    }
    if( in.isRequest( ) ) return _passRequest( in );
    if( in.isResponse( ) ) return _passResponse( in );
    if( in.isCommand( u"RESET" ) ) return _goOffline( false );
    return false;
}

bool GSIPService::_onSettingBuddyList( const GSIPInput& in )
{
    if( in.is( UPDATE ) && _isRobust( ) && _listTimer.hasElapsed( ) ) return _goOffline( true );
    if( in.is( UPDATE ) || in.isCommand( u"UPDATECAPTURE" ) ) return true;
    if( in.isResponseTo( GProtocol::SETBUDDYLIST ) ) return !_isFromServer( in ) || _goOffline( true );
    if( in.isCommand( u"RESET" ) ) return _goOffline( false );
    return false;
}

void GSIPService::_logInput( const GSIPInput& in ) const
{
    GWString text;
    if( in.isRequest( ) && !in.isRequest( GProtocol::PING ) )
        GLOGIF( 's', u"Recieved '", in.request.getMethod( ), u"' request" );
    if( in.isResponse( ) && !in.isResponseTo( GProtocol::PING ) )
    {
        in.response.getResponse( text );
        GLOGIF( 's', u"Received response ", text, u" to '", in.originalRequest.getMethod( ), u"' request" );
    }
    if( in.isCommand( ) ) GLOGIF( 's', u"Received '", in.command.getMethod( ), u"' command" );
}

void GSIPService::_ignoreInput( const GSIPInput& in ) const
{
    if( in.isRequest( GProtocol::INVITE ) )
    {
        GLOGIF( 's', u"Received 'INVITE' but not online, ignoring." );
        return;
    }
    if( in.isRequest( GProtocol::PING ) || in.isResponseTo( GProtocol::PING ) ) return;
    GLOG( u"WARNING: Ignored input, recvMethod='", in.request.getMethod( ), u"', originalMethod='",
          in.originalRequest.getMethod( ), u"', recvResponse=", in.response.getResponse( ), u", commandMethod='",
          in.command.getMethod( ), u"', eventID=", in.event, u", ignoring." );
}

// With the remedy a peer whose BYE finds no session here, as after a restart, does not wait for its time-out. A stranger learns
// nothing from it.
bool GSIPService::_onLateBye( const GSIPInput& in )
{
    if( !_isRobust( ) || !in.isRequest( GProtocol::BYE ) ) return false;
    GHTTPHeaders response;
    response.setResponse( GHTTP_SUCCESS, u"OK" );
    _sipClient->sendResponse( in.localHost, in.remoteHost, in.request, response );
    return true;
}

void GSIPService::_changeState( State state )
{
    GLOGIF( 's', u"Changing state to '", _getState( state ), u"'" );
    _state = state;
}

void GSIPService::_reset( )
{
    for( auto deadIt = _buddyGUIDSessionMap.begin( ); deadIt != _buddyGUIDSessionMap.end( ); ++deadIt )
    {
        GASSERT_TEXT( GIsValidPointer( deadIt->second ), "(deadIt->second)" );
        delete deadIt->second;
    }
    _buddyGUIDSessionMap.clear( );
    _buddyOrder.clear( );
    _contactRequests->reset( );
    // The next registration may be another user's: nothing of this one is sent again or answered for.
    if( _isRobust( ) ) _sipClient->reset( );
    _instance->clear( u"Combined_Buddy_Device_List" );
}

// ---- Actions.

bool GSIPService::_beginGettingBuddyList( )
{
    _isListFetched = false;
    _requestGETBUDDYLIST( );
    _listTimer.start( );
    if( _state != GETTING_BUDDY_LIST ) _changeState( GETTING_BUDDY_LIST );
    return true;
}

bool GSIPService::_goOffline( bool notify )
{
    if( notify ) _notifyClient( u"BUDDYLOGGEDOFF" );
    _changeState( OFFLINE );
    _reset( );
    return true;
}

bool GSIPService::_leaveBuddies( )
{
    for( const auto& [buddyGUID, session] : _buddyGUIDSessionMap ) session->bye( false );
    _changeState( LEAVING_BUDDIES );
    return true;
}

bool GSIPService::_areAllOffline( ) const
{
    for( const auto& [buddyGUID, session] : _buddyGUIDSessionMap )
        if( !session->isOffline( ) ) return false;
    return true;
}

// With the remedy of the client a list that was never fetched is not written over the server's.
bool GSIPService::_saveBuddyList( )
{
    if( !_isListFetched && _isClientRobust( ) )
    {
        GLOG( u"All buddies are offline, their list was never fetched, leaving the server's as it is." );
        return _goOffline( true );
    }
    GLOGIF( 's', u"All buddies are offline, sending 'SETTINGBUDDYLIST'" );
    _requestSETBUDDYLIST( );
    _listTimer.start( );
    _changeState( SETTING_BUDDY_LIST );
    return true;
}

bool GSIPService::_addBuddy( const GWString& buddyGUID )
{
    if( !GVERIFY( !buddyGUID.empty( ) ) ) return true;
    _contactRequests->beginAccept( buddyGUID );
    _requestADDBUDDY( buddyGUID );
    return true;
}

bool GSIPService::_onAddBuddyResponse( const GSIPInput& in )
{
    const GWString buddyGUID = in.originalRequest.get( GProtocol::BUDDY_GUID );
    if( in.response.getResponse( ) != GHTTP_SUCCESS || !GValidUserID( buddyGUID ) )
    {
        _instance->set( u"Add_Buddy_Status", u"Unknown user." );
        _contactRequests->failAccept( buddyGUID );
    }
    else if( _instance->contains( u"Local_Buddy_List", buddyGUID ) )
    {
        _instance->set( u"Add_Buddy_Status", u"Already in buddy list." );
        GLOG( u"WARNING Trying to add '", buddyGUID, u"' to buddy list, but already added." );
    }
    else
    {
        _instance->set( u"Add_Buddy_Status", u"Added to buddy list." );
        GLOGIF( 's', u"'ADDBUDDY' adding '", buddyGUID, u"'" );
        _inviteBuddy( buddyGUID );
    }
    return true;
}

// Both commands on a buddy warn alike.
GBuddySession* GSIPService::_findListed( const GWString& buddyGUID ) const
{
    GBuddySession* session = findBuddy( buddyGUID );
    if( !session ) GLOG( u"WARNING Trying to remove '", buddyGUID, u"' from buddy list, but doesn't exist." );
    return session;
}

bool GSIPService::_reconnectBuddy( const GWString& buddyGUID )
{
    GBuddySession* session = _findListed( buddyGUID );
    if( !session ) return true;
    GLOGIF( 's', u"'RECONNECTBUDDY' reinviting '", buddyGUID, u"'" );
    session->reset( );
    session->invite( );
    return true;
}

bool GSIPService::_removeBuddy( const GWString& buddyGUID )
{
    GBuddySession* session = _findListed( buddyGUID );
    if( !session ) return true;
    GLOGIF( 's', u"'REMOVEBUDDY' removing '", buddyGUID, u"'" );
    session->bye( true );
    return true;
}

bool GSIPService::_reportBug( )
{
    _instance->set( u"Bug_Report_Status", u"Report sent..." );
    _requestBUGREPORT( );
    return true;
}

bool GSIPService::_onBugReportResponse( const GHTTPHeaders& response )
{
    GWString text;
    if( response.getResponse( text ) == GHTTP_SUCCESS )
    {
        _instance->set( u"Bug_Report_Status", u"Report submitted." );
        _instance->clear( u"Bug_Report" );
    }
    else
        _instance->set( u"Bug_Report_Status", GConcat( u"Report submission failed: ", GForeignText( text ) ) );
    return true;
}

bool GSIPService::_captureChanged( )
{
    for( const auto& [buddyGUID, session] : _buddyGUIDSessionMap ) session->onCaptureChanged( );
    return true;
}

// With the remedy of the client the list is what the server has, not also what is left of an earlier logon.
bool GSIPService::_processGETBUDDYLISTResponse( const GHTTPHeaders& response )
{
    _isListFetched = response.getResponse( ) == GHTTP_SUCCESS;
    GStringList buddyList;
    if( _isListFetched )
        buddyList = _readBuddyList( response );
    else
        GLOG( u"WARNING Request 'GETBUDDYLIST' failed, ignoring." );
    if( _isListFetched && _isClientRobust( ) ) _instance->set( LIST, buddyList );
    for( const GWString& buddyGUID : buddyList ) _inviteBuddy( buddyGUID );
    _changeState( ONLINE );
    return true;
}

// The usable names, each once.
GStringList GSIPService::_readBuddyList( const GHTTPHeaders& response ) const
{
    GStringList buddyList;
    GStringList out;
    std::set<GWString> known;
    response.get( GProtocol::BUDDY_LIST, buddyList );
    for( const GWString& buddyGUID : buddyList )
    {
        GVERIFY( !buddyGUID.empty( ) );
        if( !GValidUserID( buddyGUID ) )
            GLOG( u"WARNING Received invalid buddy in the buddy list, ignoring." );
        else if( known.insert( buddyGUID ).second )
            out.push_back( buddyGUID );
    }
    return out;
}

// ---- Passing messages to the sessions.

bool GSIPService::_passRequest( const GSIPInput& in )
{
    const GWString from = in.request.get( GProtocol::FROM );
    const GWString device = in.request.get( GProtocol::FROM_DEVICE_GUID );
    if( from.empty( ) )
    {
        GLOG( u"WARNING Received request '", in.request.getMethod( ), u"' from unidentified source (", in.remoteHost,
              u"), ignoring." );
        return true;
    }
    if( !GValidUserID( from ) || ( !device.empty( ) && !GValidDeviceID( device ) ) )
    {
        GLOG( u"WARNING Received request '", in.request.getMethod( ), u"' with invalid sender from (", in.remoteHost,
              u"), ignoring." );
        return true;
    }
    if( !_mayBegin( in, from ) )
    {
        if( _onLateBye( in ) ) return true;
        GLOG( u"WARNING Received request '", in.request.getMethod( ), u"' from stranger '", from, u"' (", in.remoteHost,
              u"), ignoring." );
        return true;
    }
    if( GBuddySession* session = _createBuddy( from ) ) session->onRequest( in.localHost, in.remoteHost, in.request );
    return true;
}

bool GSIPService::_passResponse( const GSIPInput& in )
{
    const GWString to = in.originalRequest.get( GProtocol::TO );
    const GWString device = in.response.get( GProtocol::FROM_DEVICE_GUID );
    if( to.empty( ) )
    {
        GWString text;
        in.response.getResponse( text );
        GLOG( u"WARNING Received recvResponse ", text, u" to originalRequest '", in.originalRequest.getMethod( ),
              u"' sent to unidentified destination, ignoring." );
        return true;
    }
    if( !device.empty( ) && !GValidDeviceID( device ) )
    {
        GLOG( u"WARNING Received response with invalid device from (", in.remoteHost, u"), ignoring." );
        return true;
    }
    // Without a device on either side it is the server's own answer.
    if( device.empty( ) && !in.originalRequest.contains( u"To-Device-GUID" ) && !_isFromServer( in ) ) return true;
    if( GBuddySession* session = _createBuddy( to ) )
        session->onResponse( in.localHost, in.remoteHost, in.originalRequest, in.response );
    return true;
}

// A server's answer counts only from the host that was asked.
bool GSIPService::_isFromServer( const GSIPInput& in ) const
{
    if( GCaseEquals( in.remoteHost, in.originalRequest.get( u"Sent-To" ) ) ) return true;
    GLOG( u"WARNING Received response to '", in.originalRequest.getMethod( ), u"' from unexpected host (",
          in.remoteHost, u"), ignoring." );
    return false;
}

// With the remedy a session begins only with an INVITE that the signalling host brought.
bool GSIPService::_mayBegin( const GSIPInput& in, const GWString& buddyGUID ) const
{
    if( !_isRobust( ) || findBuddy( buddyGUID ) ) return true;
    return in.isRequest( GProtocol::INVITE ) && in.request.contains( GProtocol::FROM_DEVICE_GUID ) &&
           GCaseEquals( in.remoteHost, _instance->get( u"Global_SIP_Host" ) );
}

GBuddySession* GSIPService::_createBuddy( const GWString& buddyGUID )
{
    GVERIFY( !buddyGUID.empty( ) );
    if( GBuddySession* session = findBuddy( buddyGUID ) ) return session;
    if( buddyGUID.empty( ) || !_makeRoomForBuddy( ) ) return nullptr;
    GLOGIF( 's', u"Creating buddy for '", buddyGUID, u"'" );
    GBuddySession* session = GSAFENEW( GBuddySession, ( _instance, _sipClient, buddyGUID ) );
    _buddyGUIDSessionMap[buddyGUID] = session;
    _buddyOrder.push_back( buddyGUID );
    GHTTPHeaders notification( u"NEWBUDDY" );
    notification.set( GProtocol::BUDDY_GUID, buddyGUID );
    _instance->enqueue( CLIENT_QUEUE, notification );
    return session;
}

bool GSIPService::_makeRoomForBuddy( )
{
    if( _buddyGUIDSessionMap.size( ) < MAX_BUDDIES ) return true;
    for( auto it = _buddyOrder.begin( ); it != _buddyOrder.end( ); ++it )
    {
        const auto session = _buddyGUIDSessionMap.find( *it );
        if( session == _buddyGUIDSessionMap.end( ) || !session->second->isOffline( ) ) continue;
        session->second->forget( );
        delete session->second;
        _buddyGUIDSessionMap.erase( session );
        _buddyOrder.erase( it );
        return true;
    }
    GLOG( u"WARNING Too many buddy sessions, ignoring." );
    return false;
}

void GSIPService::_inviteBuddy( const GWString& buddyGUID )
{
    if( GBuddySession* session = _createBuddy( buddyGUID ) ) session->invite( );
}

// ---- Messages.

void GSIPService::_requestGETBUDDYLIST( )
{
    GHTTPHeaders request( GProtocol::GETBUDDYLIST );
    _requestServer( request );
}

void GSIPService::_requestSETBUDDYLIST( )
{
    GHTTPHeaders request( GProtocol::SETBUDDYLIST );
    request.set( GProtocol::BUDDY_LIST, _instance->get( u"Local_Buddy_List" ) );
    _requestServer( request );
}

void GSIPService::_requestADDBUDDY( const GWString& buddyGUID )
{
    GHTTPHeaders request( GProtocol::ADDBUDDY );
    request.set( GProtocol::BUDDY_GUID, buddyGUID );
    _requestServer( request );
}

void GSIPService::_requestBUGREPORT( )
{
    GHTTPHeaders request( GProtocol::BUGREPORT );
    request.set( GProtocol::EMAIL, _instance->get( u"Local_Email" ) );
    request.set( GProtocol::TEXT, _instance->get( u"Bug_Report" ) );
    _requestServer( request );
}

void GSIPService::_requestServer( GHTTPHeaders& request )
{
    request.set( GProtocol::FROM, _instance->get( u"Local_User_GUID" ) );
    _sipClient->sendRequest( { }, _instance->get( u"Global_SIP_Host" ), request, true );
}

void GSIPService::_notifyClient( GWStringView method )
{
    _instance->enqueue( CLIENT_QUEUE, GHTTPHeaders( method ) );
}
