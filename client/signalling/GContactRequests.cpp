#include "client/signalling/GContactRequests.h"

#include "client/signalling/GSIPClient.h"
#include "platform/GTime.h"
#include "protocol/GProtocol.h"
#include "runtime/GInstance.h"

#include <algorithm>
#include <utility>

namespace
{
// Anybody can ask: the oldest leave, and a name that no account has is none.
constexpr size_t MAX_REQUESTS = 100;
constexpr size_t MAX_ANSWERS = 100;
constexpr size_t MAX_NAME = 128;
// The transaction layer gives up after 15 s.
constexpr uint64_t PATIENCE = 20000000;
constexpr int UNKNOWN_CODE = 404;
constexpr char16_t LIST[] = u"Contact_Request_List";
constexpr char16_t TITLE[] = u"Contact_Request_Title";

GWString nameStatus( const GWString& userGUID )
{
    return GConcat( userGUID, u"_Contact_Status" );
}
} // namespace

GContactRequests::GContactRequests( GInstance* instance, GSIPClient* sipClient )
    : _instance( instance ), _sipClient( sipClient )
{
    GPRECONDITION( instance );
    GPRECONDITION( sipClient );
    invariantTest( );
}

void GContactRequests::invariantTest( ) const
{
    GHeapObject::invariantTest( );
    GASSERT( _instance );
    GASSERT( _sipClient );
}

bool GContactRequests::_isEnabled( ) const
{
    return _instance->test( u"Contact_Requests" );
}

// ---- From the host.

void GContactRequests::onRequest( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request,
                                  bool isBuddy )
{
    GCALL( GContactRequests );
    if( !_isEnabled( ) || !_isBelievable( remoteHost, request ) ) return;
    const GWString from = request.get( GProtocol::FROM );
    const GWString state = request.get( GProtocol::STATE );
    if( GCaseEquals( state, GProtocol::ANSWERED ) )
        _remove( from );
    else if( !GCaseEquals( state, GProtocol::PENDING ) )
    {
        GLOG( u"WARNING Received 'CONTACTREQUEST' of unknown state '", state, u"', ignoring." );
        return;
    }
    else if( !isBuddy && !_find( from ) && !GMAPCONTAINS( _answers, from ) )
        _add( from );
    _confirm( localHost, remoteHost, request );
}

bool GContactRequests::_isBelievable( const GWString& remoteHost, const GHTTPHeaders& request ) const
{
    const GWString from = request.get( GProtocol::FROM );
    const GWString self = _instance->get( u"Local_User_GUID" );
    GWStringView flaw;
    if( !GCaseEquals( remoteHost, _instance->get( u"Global_SIP_Host" ) ) )
        flaw = u"another host than the server";
    else if( !GCaseEquals( request.get( GProtocol::TO ), self ) )
        flaw = u"the server to another user";
    else if( !GValidUserID( from ) || from.size( ) > MAX_NAME || GCaseEquals( from, self ) )
        flaw = u"an impossible user";
    if( flaw.empty( ) ) return true;
    GLOG( u"WARNING Received 'CONTACTREQUEST' from ", flaw, u" (", remoteHost, u"), ignoring." );
    return false;
}

void GContactRequests::_confirm( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request )
{
    GHTTPHeaders response;
    response.setResponse( GHTTP_SUCCESS, u"OK" );
    response.set( GProtocol::FROM, _instance->get( u"Local_User_GUID" ) );
    response.set( GProtocol::FROM_DEVICE_GUID, _instance->get( u"Local_Device_GUID" ) );
    _sipClient->sendResponse( localHost, remoteHost, request, response );
}

// ---- From the user.

void GContactRequests::answer( const GWString& userGUID, const GWString& answer )
{
    GCALL( GContactRequests );
    const bool isAnswer = answer == GProtocol::REFUSE || answer == GProtocol::BLOCK;
    if( !isAnswer || !_remove( userGUID ) )
    {
        GLOG( u"WARNING Cannot answer '", answer, u"' to '", userGUID, u"' who has not asked, ignoring." );
        return;
    }
    GLOG( u"Answering '", answer, u"' to the contact request of '", userGUID, u"'" );
    // What could not be told to a host that never answers is asked again after the next registration.
    if( _answers.size( ) >= MAX_ANSWERS ) _answers.erase( _answers.begin( ) );
    _answers[userGUID] = { answer, 0 };
    _sendAnswer( userGUID, _answers[userGUID] );
}

void GContactRequests::_sendAnswer( const GWString& userGUID, Answer& answer )
{
    GHTTPHeaders request( GProtocol::CONTACTANSWER );
    request.set( GProtocol::FROM, _instance->get( u"Local_User_GUID" ) );
    request.set( GProtocol::FROM_DEVICE_GUID, _instance->get( u"Local_Device_GUID" ) );
    request.set( GProtocol::BUDDY_GUID, userGUID );
    request.set( GProtocol::ANSWER, answer.answer );
    answer.sentTime = GTimeGetTime( );
    _sipClient->sendRequest( { }, _instance->get( u"Global_SIP_Host" ), request, true );
}

// A request that the host does not know any more needs no answer.
void GContactRequests::onResponse( const GHTTPHeaders& request, const GHTTPHeaders& response )
{
    const GWString userGUID = request.get( GProtocol::BUDDY_GUID );
    const int code = response.getResponse( );
    if( code == GHTTP_SUCCESS || code == UNKNOWN_CODE )
        _answers.erase( userGUID );
    else
        GLOG( u"WARNING Request 'CONTACTANSWER' for '", userGUID, u"' failed with response ", code,
              u", trying again later." );
}

void GContactRequests::beginAccept( const GWString& userGUID )
{
    Request* request = _find( userGUID );
    if( !request ) return;
    request->acceptTime = GTimeGetTime( );
    _instance->set( nameStatus( userGUID ), u"Adding..." );
    _instance->set( TITLE, u"Adding..." );
}

void GContactRequests::failAccept( const GWString& userGUID )
{
    Request* request = _find( userGUID );
    if( !request ) return;
    request->acceptTime = 0;
    _instance->clear( nameStatus( userGUID ) );
    _isChanged = true;
}

// ---- The list.

void GContactRequests::update( )
{
    const uint64_t now = GTimeGetTime( );
    _dropBuddies( );
    for( const Request& request : _requests )
        if( request.acceptTime && now - request.acceptTime > PATIENCE ) failAccept( request.userGUID );
    for( auto& [userGUID, answer] : _answers )
        if( now - answer.sentTime > PATIENCE ) _sendAnswer( userGUID, answer );
    if( _isChanged ) _publish( );
}

// However they became buddies: by the user's answer here or at another device, or by an invitation.
void GContactRequests::_dropBuddies( )
{
    GStringVector done;
    for( const Request& request : _requests )
        if( _instance->contains( u"Local_Buddy_List", request.userGUID ) ) done.push_back( request.userGUID );
    for( const GWString& userGUID : done ) _remove( userGUID );
}

GContactRequests::Request* GContactRequests::_find( const GWString& userGUID )
{
    const auto found =
        std::ranges::find_if( _requests, [&]( const Request& request ) { return request.userGUID == userGUID; } );
    return found == _requests.end( ) ? nullptr : &*found;
}

void GContactRequests::_add( const GWString& userGUID )
{
    GLOG( u"'", userGUID, u"' asks to become a buddy." );
    if( _requests.size( ) >= MAX_REQUESTS )
    {
        _instance->clear( nameStatus( _requests.front( ).userGUID ) );
        _requests.pop_front( );
    }
    // An answer to an earlier request may have come too late for it.
    _instance->clear( nameStatus( userGUID ) );
    _requests.push_back( { userGUID } );
    _isChanged = true;
}

bool GContactRequests::_remove( const GWString& userGUID )
{
    if( !std::erase_if( _requests, [&]( const Request& request ) { return request.userGUID == userGUID; } ) )
        return false;
    _instance->clear( nameStatus( userGUID ) );
    _isChanged = true;
    return true;
}

void GContactRequests::reset( )
{
    for( const Request& request : _requests ) _instance->clear( nameStatus( request.userGUID ) );
    _requests.clear( );
    _answers.clear( );
    _publish( );
}

void GContactRequests::_publish( )
{
    _isChanged = false;
    if( _requests.empty( ) )
    {
        for( const GWStringView name : { LIST, TITLE } )
            if( _instance->isSet( name ) ) _instance->clear( name );
        return;
    }
    GStringList list;
    for( Request& request : _requests )
    {
        list.push_back( request.userGUID );
        if( !std::exchange( request.isNew, false ) ) continue;
        GHTTPHeaders notification( u"NEWCONTACT" );
        notification.set( GProtocol::BUDDY_GUID, request.userGUID );
        _instance->enqueue( u"GClient_commandQueue", notification );
    }
    _instance->set( LIST, list );
    _instance->set( TITLE, list.size( ) == 1 ? GWString( u"1 contact request" )
                                             : GConcat( list.size( ), u" contact requests" ) );
}
