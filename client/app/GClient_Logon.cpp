// The logon: one exchange with the logon server that both logs on to an account and creates one, and whose answer names the servers
// for the rest of the session.
#include "base/GForeignText.h"
#include "client/app/GClient.h"
#include "client/app/GClientNames.h"
#include "client/transport/GHTTPClient.h"
#include "platform/GNet.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

#include <algorithm>

namespace
{
constexpr size_t NUM_STUN_HOSTS = 4;
constexpr char16_t DISPATCH_QUEUE[] = u"GDispatchService_commandQueue";
constexpr char16_t SIP_QUEUE[] = u"GSIPService_commandQueue";

// Hosts are dotted: a name would be looked up on threads that must not wait.
bool areHosts( const GHTTPHeaders& response, const GWString& name, size_t least )
{
    GStringList hosts;
    response.get( name, hosts );
    return hosts.size( ) >= least && std::all_of( hosts.begin( ), hosts.end( ), GNetIsUnicastHost );
}

bool isValidReply( const GHTTPHeaders& response )
{
    return areHosts( response, GProtocol::STUN_HOST_LIST, NUM_STUN_HOSTS ) &&
           areHosts( response, GProtocol::SIP_HOST_LIST, 1 ) &&
           GNetIsUnicastHost( response.get( GProtocol::TURN_HOST ) ) &&
           GNetIsUnicastHost( response.get( GProtocol::LOGFILE_HOST ) );
}
} // namespace

void GClient::_requestAUTHENTICATE( )
{
    GCALL( GClient );
    if( _httpClient )
    {
        GVALIDPTR( _httpClient );
        delete _httpClient;
        _httpClient = nullptr;
    }
    GLOGIF( 'c', u"Sending 'AUTHENTICATE' request" );
    GHTTPHeaders request( GProtocol::AUTHENTICATE );
    const bool hasAccount = _instance->isSet( u"Local_User_GUID" );
    request.set( GProtocol::FROM, _instance->get( hasAccount ? u"Local_User_GUID" : u"Local_Username" ) );
    request.set( GProtocol::PASSWORD, _instance->get( u"Local_Password" ) );
    request.set( GProtocol::EMAIL, _instance->get( u"Local_Email" ) );
    request.set( GProtocol::VERSION, _instance->get( u"Current_Version" ) );
    _httpClient = GTRACK( GHTTPClient, ( new GHTTPClient( _instance->get( u"AUTHENTICATE_Host" ), request ) ) );
    _httpClient->setRobust( _isRobust( ) );
    _instance->set( u"Logon_Status", u"-- Connecting... --" );
}

// An empty message stands for a dead connection. An id that could not be a name on the blackboard is no account.
void GClient::_processAUTHENTICATEResponse( const GHTTPHeaders& response )
{
    GCALL( GClient );
    const bool valid = isValidReply( response );
    const GWString userGUID = response.get( GProtocol::USER_GUID );
    if( response.getResponse( ) == GHTTP_SUCCESS && valid && GValidUserID( userGUID ) )
        _acceptLogon( response, userGUID );
    else
        _refuseLogon( response, valid );
}

void GClient::_acceptLogon( const GHTTPHeaders& response, const GWString& userGUID )
{
    _storeAccount( userGUID );
    if( _announceUpgrade( response ) )
    {
        _resetToOffline( );
        return;
    }
    _storeHosts( response );
    GHTTPHeaders upload( u"UPLOADLOGFILES" );
    if( _isRobust( ) ) upload.set( GProtocol::LOGFILE_HOST, response.get( GProtocol::LOGFILE_HOST ) );
    _instance->enqueue( u"GLogfileService_commandQueue", upload );
    if( _instance->test( u"Exit_When_Logfiles_Uploaded" ) )
    {
        GLOG( u"ACTIVITY: ", u"Uploading logfiles; will exit when complete." );
        _bubble( u"Logfile upload in progress", u"Velmora is uploading its logfiles and will exit when complete.", 0 );
        _resetToOffline( );
        return;
    }
    _openFirstWindows( );
    _requestCONNECT( );
    _changeState( CONNECTING );
}

// A password reaches the disk only after the server has accepted it.
void GClient::_storeAccount( const GWString& userGUID )
{
    if( _instance->isSet( u"Local_User_GUID" ) )
    {
        GLOG( u"Request 'AUTHENTICATE' succeeded, logged into account '", userGUID, u"'" );
        _instance->set( u"Logon_Status", u"-- Logon successful --" );
    }
    else
    {
        GLOG( u"Request 'AUTHENTICATE' succeeded, created new account '", userGUID, u"'" );
        _instance->set( u"Local_User_GUID", userGUID, true );
        _instance->set( u"Logon_Status", u"-- Account created --" );
    }
    for( const GWStringView name : { u"Local_Password", u"Local_Email" } )
    {
        const GWString value = _instance->get( name );
        _instance->clear( name );
        _instance->set( name, value, true );
    }
    _instance->save( );
}

// True when the client has to stay offline until the upgrade is there.
bool GClient::_announceUpgrade( const GHTTPHeaders& response )
{
    const GWString name = GForeignText( response.get( GProtocol::UPGRADE_NAME ) );
    const GWString priority = GForeignText( response.get( GProtocol::UPGRADE_PRIORITY ) );
    _instance->set( u"Local_Upgrade_URL", GClientCleanAddress( response.get( GProtocol::UPGRADE_URL ) ) );
    _instance->set( u"Local_Upgrade_Name", name );
    _instance->set( u"Local_Upgrade_Priority", priority );
    if( GCaseEquals( priority, u"critical" ) )
    {
        _bubble( u"Critical update in progress",
                 GConcat( u"Velmora is downloading the critical update '", name,
                          u"'.  You will automatically go online when prompted to upgrade." ),
                 0 );
        return true;
    }
    if( _instance->isSet( u"Local_Upgrade_URL" ) )
        _bubble( u"Update in progress",
                 GConcat( u"Velmora is downloading the service update '", name, u"'.",
                          u"  You can use Velmora as normal, and upgrade when prompted." ),
                 0 );
    return false;
}

void GClient::_storeHosts( const GHTTPHeaders& response )
{
    const GWString localHost = _httpClient ? _httpClient->getLocalHost( ) : GWString( u"0.0.0.0:0" );
    _instance->set( u"Local_IP", localHost.substr( 0, localHost.find( u':' ) ) );
    _instance->set( u"Global_SIP_Host_List", GClientCleanAddress( response.get( GProtocol::SIP_HOST_LIST ) ) );
    _instance->set( u"Global_TURN_Host", GClientCleanAddress( response.get( GProtocol::TURN_HOST ) ) );
    _instance->set( u"Global_Logfile_Host", GClientCleanAddress( response.get( GProtocol::LOGFILE_HOST ) ) );
    _instance->set( u"Global_STUN_Host_List", GClientCleanAddress( response.get( GProtocol::STUN_HOST_LIST ) ) );
}

void GClient::_openFirstWindows( )
{
    if( !_instance->test( u"First_Logon_Complete" ) )
    {
        _template->command( u"(/skin/window_buddylist?open)" );
        _instance->set( u"First_Logon_Complete", 1, true );
    }
    if( !_instance->test( u"First_Run_Complete" ) )
    {
        _template->command( u"(/skin/window_options?open)" );
        _instance->set( u"First_Run_Complete", 1, true );
    }
}

void GClient::_refuseLogon( const GHTTPHeaders& response, bool valid )
{
    const int code = response.getResponse( );
    const bool hasAccount = _instance->isSet( u"Local_User_GUID" );
    GLOG( u"Request 'AUTHENTICATE' failed with response ", code, u" (valid=", valid ? u"TRUE" : u"FALSE",
          u"), staying offline." );
    GLOG( u"Response='", response.getDebugText( ), u"'" );
    if( code == 0 )
        _instance->set( u"Logon_Status", u"-- Server unavailable --" );
    else if( code == GHTTP_SUCCESS )
        _instance->set( u"Logon_Status", u"-- Invalid server reply --" );
    else if( hasAccount )
        _instance->set( u"Logon_Status", u"-- Incorrect name/password --" );
    else
        _instance->set( u"Logon_Status", u"-- Username already in use --" );
    if( _instance->test( u"Prompt_On_AUTHENTICATE_Failure" ) )
    {
        _template->command( hasAccount ? u"(/skin/window_login?open)" : u"(/skin/window_new?open)" );
        _changeState( OFFLINE );
    }
    else
        _changeState( WAITING );
    _reset( );
}

// ---- What the services are told.

void GClient::_enqueue( GWStringView queue, GWStringView method )
{
    _instance->enqueue( queue, GHTTPHeaders( method ) );
}

void GClient::_requestCONNECT( )
{
    _enqueue( DISPATCH_QUEUE, u"CONNECT" );
}

void GClient::_requestDISCONNECT( )
{
    _enqueue( DISPATCH_QUEUE, u"DISCONNECT" );
}

void GClient::_requestBUDDYLOGON( )
{
    _enqueue( SIP_QUEUE, u"BUDDYLOGON" );
}

void GClient::_requestBUDDYLOGOFF( )
{
    _enqueue( SIP_QUEUE, u"BUDDYLOGOFF" );
}

// All services start over. The STUN hosts and the local address stay until the next logon overwrites them.
void GClient::_reset( )
{
    for( const GWStringView queue : { DISPATCH_QUEUE, SIP_QUEUE, u"GFileService_commandQueue" } )
        _enqueue( queue, u"RESET" );
    for( const GWStringView name : { u"Prompt_On_AUTHENTICATE_Failure", u"Global_SIP_Host", u"Global_SIP_Host_List",
                                     u"Global_TURN_Host", u"Global_Logfile_Host" } )
        _instance->clear( name );
}
