#include "client/signalling/GBuddySession.h"

#include "base/GRandom.h"
#include "client/drawing/GImageTools.h"
#include "client/signalling/GDeviceSession.h"
#include "client/signalling/GRoute.h"
#include "client/transport/GMegaPort.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

namespace
{
constexpr int ONLINE_CODE = 100;
constexpr int OFFLINE_CODE = 400;
constexpr size_t MAX_DEVICES = 16;
constexpr size_t MAX_LIST = 1024;
constexpr size_t MAX_EARLY_HOSTS = 4;
// An absent buddy is invited again after 3 to 5 minutes, so that many clients do not ask at once.
constexpr int64_t INVITE_PERIOD = 180000000;
constexpr int64_t INVITE_JITTER = 120000000;
// A picture has a format and a changed rectangle beside it.
constexpr const char16_t* SUFFIXES[] = {
    u"_Image",  u"_Image_Format", u"_Image_DirtyRect", u"_Image_BW",      u"_Image_BW_Format", u"_Image_BW_DirtyRect",
    u"_Time",   u"_Chat_Status",  u"_Device_List",     u"_Audio_Enabled", u"_Time_Zone",       u"_Time_Bias",
    u"_Online", u"_Offline" };
} // namespace

GBuddySession::GBuddySession( GInstance* instance, GSIPClient* sipClient, const GWString& buddyGUID )
    : _instance( instance ), _sipClient( sipClient ), _buddyGUID( buddyGUID ), _onlineName( _name( u"_Online" ) ),
      _offlineName( _name( u"_Offline" ) ), _chatStatusName( _name( u"_Chat_Status" ) ),
      _queueName( _name( u"_commandQueue" ) ), _offlineText( GWideToUTF8( _name( u" is offline." ) ) )
{
    GPRECONDITION( instance );
    GPRECONDITION( sipClient );
    invariantTest( );
    _instance->setWaker( _queueName, _sipClient->getPort( )->getSIPEvent( ) );
    GImageTools_instanceCopy( _instance, u"defaultprofile.png", _name( u"_Image" ) );
    GImageTools_instanceCopy( _instance, u"defaultprofile_BW.png", _name( u"_Image_BW" ) );
    _instance->set( _name( u"_Time" ), u"-:--pm" );
    _restartInviteTimer( );
}

GBuddySession::~GBuddySession( )
{
    _instance->setWaker( _queueName, nullptr );
    reset( );
}

void GBuddySession::invariantTest( ) const
{
    GHeapObject::invariantTest( );
    GASSERT( _instance );
    GASSERT( _sipClient );
    GASSERT( !_buddyGUID.empty( ) );
}

GWString GBuddySession::_name( GWStringView suffix ) const
{
    return GConcat( _buddyGUID, suffix );
}

bool GBuddySession::_isRobust( ) const
{
    return _instance->isRobust( u"Robust_Signalling" );
}

void GBuddySession::reset( )
{
    GCALL( GBuddySession );
    _instance->clear( _name( u"_Device_List" ) );
    for( auto mapIt = _deviceSessionMap.begin( ); mapIt != _deviceSessionMap.end( ); ++mapIt )
    {
        GASSERT_TEXT( GIsValidPointer( mapIt->second ), "(mapIt->second)" );
        delete mapIt->second;
    }
    _deviceSessionMap.clear( );
    _deviceOrder.clear( );
    _namedDevices.clear( );
    _instance->clear( _onlineName );
    _instance->clear( _offlineName );
}

void GBuddySession::forget( )
{
    while( !_deviceOrder.empty( ) ) _deleteDevice( GWString( _deviceOrder.front( ) ) );
    for( const char16_t* suffix : SUFFIXES ) _instance->clear( _name( suffix ) );
    _instance->clear( GDeviceSession::getRemovedTimeName( _buddyGUID ) );
    GString item;
    while( _instance->dequeue( _queueName, item ) ) continue;
}

// ---- Presence.

bool GBuddySession::isOffline( ) const
{
    for( const auto& [deviceGUID, session] : _deviceSessionMap )
        if( !session->isOffline( ) ) return false;
    return true;
}

bool GBuddySession::isConnecting( ) const
{
    for( const auto& [deviceGUID, session] : _deviceSessionMap )
        if( !session->isOffline( ) && !session->isOnline( ) ) return true;
    return false;
}

void GBuddySession::update( )
{
    bool online = false;
    bool offline = true;
    for( const auto& [deviceGUID, session] : _deviceSessionMap )
    {
        session->update( );
        online = online || session->isOnline( );
        offline = offline && session->isOffline( );
    }
    _instance->set( _onlineName, online ? u"true" : u"false" );
    _instance->set( _offlineName, offline ? u"true" : u"false" );
    if( offline ) _instance->set( _chatStatusName, _offlineText );
    _runCommands( );
    if( offline && !_leaving && _isRobust( ) ) _inviteAgain( );
}

void GBuddySession::_runCommands( )
{
    GString item;
    while( _instance->dequeue( _queueName, item ) )
    {
        GHTTPHeaders command;
        if( !command.deserialize( item ) )
            GLOG( u"WARNING Malformed command to '", _buddyGUID, u"@GSIPService_commandQueue', ignoring." );
        else if( !command.isMethod( GProtocol::DEVICEBROADCAST ) )
            GLOG( u"WARNING Unrecognized command '", command.getMethod( ), u"' to GSIPService, ignoring." );
        else
            _broadcast( command );
    }
}

// To every device, or to all but the one that the command excepts.
void GBuddySession::_broadcast( const GHTTPHeaders& command )
{
    const GWString excepted = command.get( u"Except-Device-GUID" );
    for( const auto& [deviceGUID, session] : _deviceSessionMap )
        if( excepted.empty( ) || !GCaseEquals( deviceGUID, excepted ) ) session->broadcast( command );
}

void GBuddySession::onCaptureChanged( )
{
    for( const auto& [deviceGUID, session] : _deviceSessionMap ) session->onCaptureChanged( );
}

// ---- Inviting and parting.

void GBuddySession::invite( )
{
    GCALL( GBuddySession );
    _leaving = false;
    _invite( );
    if( !_instance->contains( u"Local_Buddy_List", _buddyGUID ) ) _instance->insert( u"Local_Buddy_List", _buddyGUID );
}

void GBuddySession::_invite( )
{
    GLOGIF( 'b', u"Sending 'INVITE'" );
    GDeviceSession::sendINVITE( _instance, _sipClient, _buddyGUID );
    _restartInviteTimer( );
}

void GBuddySession::_inviteAgain( )
{
    if( !_inviteTimer.hasElapsed( ) ) return;
    if( _instance->contains( u"Local_Buddy_List", _buddyGUID ) )
        _invite( );
    else
        _restartInviteTimer( );
}

void GBuddySession::_restartInviteTimer( )
{
    const int64_t jitter = static_cast<int64_t>( GRandom( ) ) * GRandom( ) % INVITE_JITTER;
    _inviteTimer.start( INVITE_PERIOD + jitter );
}

void GBuddySession::bye( bool remove )
{
    GCALL( GBuddySession );
    if( !remove ) _leaving = true;
    if( remove ) GDeviceSession::removeFromBuddyList( _instance, _buddyGUID );
    for( const auto& [deviceGUID, session] : _deviceSessionMap ) session->bye( remove );
}

// ---- Devices.

GDeviceSession* GBuddySession::findDevice( GWStringView deviceGUID ) const
{
    const auto found = _deviceSessionMap.find( deviceGUID );
    return found == _deviceSessionMap.end( ) ? nullptr : found->second;
}

GDeviceSession* GBuddySession::_createDevice( const GWString& deviceGUID )
{
    if( GDeviceSession* session = findDevice( deviceGUID ) ) return session;
    if( !_makeRoomForDevice( ) ) return nullptr;
    GDeviceSession* session = GSAFENEW( GDeviceSession, ( _instance, _sipClient, _buddyGUID, deviceGUID ) );
    _deviceSessionMap[deviceGUID] = session;
    _deviceOrder.push_back( deviceGUID );
    _instance->insert( _name( u"_Device_List" ), deviceGUID );
    _instance->insert( u"Combined_Buddy_Device_List", GConcat( _buddyGUID, u"@", deviceGUID ) );
    for( const auto& [device, host] : _earlyHosts )
        if( device == deviceGUID ) session->noteHost( host );
    std::erase_if( _earlyHosts, [&]( const auto& early ) { return early.first == deviceGUID; } );
    return session;
}

// The oldest device that is not in use gives way to a new one.
bool GBuddySession::_makeRoomForDevice( )
{
    if( _deviceSessionMap.size( ) < MAX_DEVICES ) return true;
    for( const GWString& deviceGUID : _deviceOrder )
        if( findDevice( deviceGUID )->isOffline( ) )
        {
            _deleteDevice( GWString( deviceGUID ) );
            return true;
        }
    GLOG( u"WARNING Too many devices of '", _buddyGUID, u"', ignoring." );
    return false;
}

void GBuddySession::_deleteDevice( const GWString& deviceGUID )
{
    delete findDevice( deviceGUID );
    _deviceSessionMap.erase( deviceGUID );
    std::erase( _deviceOrder, deviceGUID );
    _instance->remove( _name( u"_Device_List" ), deviceGUID );
    const GWString buddyDeviceGUID = GConcat( _buddyGUID, u"@", deviceGUID );
    _instance->remove( u"Combined_Buddy_Device_List", buddyDeviceGUID );
    // Names of devices that came and went would add up.
    _instance->clear( GConcat( buddyDeviceGUID, u"_*" ) );
    _instance->clear( GConcat( deviceGUID, u"_Route_List" ) );
}

// ---- Messages.

// A person who contacts this user becomes a buddy. With the remedy only an INVITE does that, and not within a minute of the
// removal: the messages that were still under way would bring the buddy back.
void GBuddySession::_addToBuddyList( const GHTTPHeaders& request )
{
    if( _instance->contains( u"Local_Buddy_List", _buddyGUID ) ) return;
    if( _isRobust( ) )
    {
        if( !request.isMethod( GProtocol::INVITE ) || !request.contains( GProtocol::FROM_DEVICE_GUID ) ) return;
        if( GDeviceSession::wasRemovedLately( _instance, _buddyGUID ) ) return;
    }
    GStringList list;
    _instance->get( u"Local_Buddy_List", list );
    if( list.size( ) >= MAX_LIST )
        GLOG( u"WARNING Buddy list is full, not adding '", _buddyGUID, u"', ignoring." );
    else
        _instance->insert( u"Local_Buddy_List", _buddyGUID );
}

bool GBuddySession::_mayBegin( const GWString& remoteHost, const GHTTPHeaders& request,
                               const GWString& deviceGUID ) const
{
    if( !_isRobust( ) || findDevice( deviceGUID ) ) return true;
    if( !request.isMethod( GProtocol::INVITE ) ) return false;
    return GMAPCONTAINS( _namedDevices, deviceGUID ) || GCaseEquals( remoteHost, _instance->get( u"Global_SIP_Host" ) );
}

void GBuddySession::onRequest( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request )
{
    GCALL( GBuddySession );
    const GWString deviceGUID = request.get( GProtocol::FROM_DEVICE_GUID );
    if( !deviceGUID.empty( ) && !_mayBegin( remoteHost, request, deviceGUID ) )
    {
        GLOG( u"WARNING Received request '", request.getMethod( ), u"' from unknown device of '", _buddyGUID, u"' (",
              remoteHost, u"), ignoring." );
        return;
    }
    _addToBuddyList( request );
    if( deviceGUID.empty( ) )
    {
        GLOG( u"WARNING Unexpected request '", request.getMethod( ), u"' from '", remoteHost, u"'" );
        GHTTPHeaders response;
        response.setResponse( OFFLINE_CODE, u"Invalid request" );
        _sipClient->sendResponse( localHost, remoteHost, request, response );
    }
    else if( GDeviceSession* session = _createDevice( deviceGUID ) )
        session->onRequest( localHost, remoteHost, request );
}

void GBuddySession::onHOLEPUNCH( const GWString& remoteHost, const GHTTPHeaders& request )
{
    const GWString deviceGUID = request.get( GProtocol::FROM_DEVICE_GUID );
    if( GDeviceSession* session = findDevice( deviceGUID ) )
    {
        session->onHOLEPUNCH( remoteHost );
        return;
    }
    if( !GValidDeviceID( deviceGUID ) ) return;
    _earlyHosts.emplace_back( deviceGUID, remoteHost );
    if( _earlyHosts.size( ) > MAX_EARLY_HOSTS ) _earlyHosts.pop_front( );
}

void GBuddySession::onResponse( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request,
                                const GHTTPHeaders& response )
{
    GCALL( GBuddySession );
    if( request.contains( u"To-Device-GUID" ) || response.contains( GProtocol::FROM_DEVICE_GUID ) )
    {
        _onDeviceResponse( localHost, remoteHost, request, response );
        return;
    }
    if( request.isMethod( GProtocol::INVITE ) )
    {
        _onServerResponse( remoteHost, response );
        return;
    }
    GWString text;
    const int code = response.getResponse( text );
    GLOG( u"WARNING Received response #", code, u" (", text, u") to unknown request '", request.getMethod( ),
          u"' for '", _buddyGUID, u"', ignoring." );
}

void GBuddySession::_onDeviceResponse( const GWString& localHost, const GWString& remoteHost,
                                       const GHTTPHeaders& request, const GHTTPHeaders& response )
{
    GWString deviceGUID = request.get( u"To-Device-GUID" );
    if( deviceGUID.empty( ) ) deviceGUID = response.get( GProtocol::FROM_DEVICE_GUID );
    if( deviceGUID == _instance->get( u"Local_GUID" ) )
    {
        GLOG( u"WARNING Somehow received a response from ourselves; ignoring." );
        return;
    }
    if( GDeviceSession* session = _createDevice( deviceGUID ) )
        session->onResponse( localHost, remoteHost, request, response );
}

// The server's own answer to an INVITE tells the buddy's whereabouts.
void GBuddySession::_onServerResponse( const GWString& remoteHost, const GHTTPHeaders& response )
{
    GWString text;
    const int code = response.getResponse( text );
    if( code == ONLINE_CODE )
        _onWhereabouts( remoteHost, response );
    else if( code == OFFLINE_CODE )
        GLOGIF( 'b', u"Buddy '", _buddyGUID, u"' is offline." );
    else
        GLOG( u"WARNING Received invalid response #", code, u" (", text, u") to INVITE request for '", _buddyGUID,
              u"', ignoring." );
}

void GBuddySession::_onWhereabouts( const GWString& remoteHost, const GHTTPHeaders& response )
{
    GStringList deviceList;
    response.get( GProtocol::DEVICE_LIST, deviceList );
    GLOGIF( 'b', u"Buddy '", _buddyGUID, u"' is online at ", deviceList.size( ),
            u" locations, sending HOLEPUNCH to each." );
    _namedDevices.clear( );
    for( const GWString& deviceGUID : deviceList )
    {
        GStringList routeList;
        if( !response.get( GConcat( deviceGUID, u"-Route-List" ), routeList ) ) continue;
        if( GCaseEquals( deviceGUID, _instance->get( u"Local_Device_GUID" ) ) ) continue;
        if( !GValidDeviceID( deviceGUID ) || _namedDevices.size( ) == MAX_DEVICES )
        {
            GLOG( u"WARNING Received invalid device list of '", _buddyGUID, u"', ignoring." );
            continue;
        }
        _namedDevices.insert( deviceGUID );
        GDeviceSession* session = _createDevice( deviceGUID );
        if( !session ) continue;
        routeList = GRouteListFilter( routeList, remoteHost, _sipClient->getOwnHosts( ) );
        session->waitForINVITEOK( routeList );
        _instance->set( GConcat( deviceGUID, u"_Route_List" ), routeList );
    }
}
