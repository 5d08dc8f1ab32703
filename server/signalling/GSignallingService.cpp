#include "server/signalling/GSignallingService.h"

#include "platform/GNet.h"
#include "protocol/GProtocol.h"
#include "server/core/GEndpoint.h"
#include "server/core/GPassword.h"
#include "server/core/GServerMessage.h"

#include <algorithm>

namespace
{
constexpr uint64_t SECOND = 1000000;
constexpr uint64_t DAY = 86400 * SECOND;
// A request is repeated 1, 2, 4 and 8 seconds after it was first sent; a number that comes again later is another request.
constexpr uint64_t REPLY_LIFETIME = 30 * SECOND;
constexpr uint64_t INVITE_LIFETIME = 12 * SECOND;
constexpr size_t MAX_REPLIES = 65536;
constexpr int MAX_ROUTES = 8;
constexpr int DEVICE_LENGTH = 24;
constexpr int64_t REPORTS_PER_DAY = 50;
// Ids that an address has fetched and not used, and ids that a user has used: the oldest leave, and their devices ask for others.
constexpr uint64_t UNUSED_DEVICES = 1000;
constexpr uint64_t USED_DEVICES = 64;
constexpr uint64_t LOGON_PARTS = 24;

// What became of a request, as the figures call it.
constexpr std::string_view DROPPED = "dropped";
constexpr std::string_view REFUSED = "refused";
constexpr std::string_view REPEATED = "repeated";

GString narrow( const GHTTPHeaders& headers, GWStringView name )
{
    return GWideToUTF8( headers.get( name ) );
}
GString joinKey( std::initializer_list<std::string_view> parts )
{
    GString key;
    for( const std::string_view part : parts ) key.append( part ).append( 1, '\n' );
    return key;
}
} // namespace

struct GSignallingService::Row
{
    const char16_t* method;
    std::vector<GWStringView> headers; // There, and not empty; else the request is dropped.
    Handler handler;
};
const GSignallingService::Row GSignallingService::ROWS[] = {
    { GProtocol::PING, { GProtocol::GLOBAL_HOST }, &GSignallingService::_onPING },
    { GProtocol::DEVICEGUID, { }, &GSignallingService::_onDEVICEGUID },
    { GProtocol::REGISTER,
      { GProtocol::FROM, GProtocol::DEVICE_GUID, GProtocol::VERSION, GProtocol::ROUTE_LIST },
      &GSignallingService::_onREGISTER },
    { GProtocol::UNREGISTER, { GProtocol::FROM, GProtocol::DEVICE_GUID }, &GSignallingService::_onUNREGISTER },
    { GProtocol::GETBUDDYLIST, { GProtocol::FROM }, &GSignallingService::_onGETBUDDYLIST },
    { GProtocol::SETBUDDYLIST, { GProtocol::FROM }, &GSignallingService::_onSETBUDDYLIST },
    { GProtocol::ADDBUDDY, { GProtocol::FROM, GProtocol::BUDDY_GUID }, &GSignallingService::_onADDBUDDY },
    { GProtocol::CONTACTANSWER,
      { GProtocol::FROM, GProtocol::FROM_DEVICE_GUID, GProtocol::BUDDY_GUID, GProtocol::ANSWER },
      &GSignallingService::_onCONTACTANSWER },
    { GProtocol::BUGREPORT, { GProtocol::FROM, GProtocol::TEXT }, &GSignallingService::_onBUGREPORT },
    { GProtocol::INVITE,
      { GProtocol::FROM, GProtocol::FROM_DEVICE_GUID, GProtocol::TO, GProtocol::TRY_ROUTE_LIST },
      &GSignallingService::_onINVITE },
};

GSignallingService::GSignallingService( const GServerConfig& config, GServerStore& store, GMetrics& metrics )
    : _config( config ), _database( store ), _metrics( metrics ), _replies( REPLY_LIFETIME, MAX_REPLIES ),
      _invites( INVITE_LIFETIME, MAX_REPLIES ), _contacts( config, store, metrics )
{
}

void GSignallingService::load( uint64_t now )
{
    _database.expire( now - std::min( now, static_cast<uint64_t>( _config.logonSeconds ) * SECOND ), now );
    for( GRegistration& registration : _database.listRegistrations( ) )
    {
        _byHost[registration.host] = { registration.user, registration.device };
        _registrations[registration.user][registration.device] = std::move( registration );
    }
}

void GSignallingService::onDatagram( size_t listener, const GString& from, std::string_view bytes, uint64_t now,
                                     GDatagramList& out )
{
    Request request{ listener, from, bytes, now, _message, out };
    if( !GServerMessage::read( bytes, _message ) ) return _metrics.count( "signalling", "other", "malformed" );
    if( request.headers.getResponse( ) ) return _onResponse( request );
    const auto present = [&request]( GWStringView name ) { return !request.headers.headers( ).get( name ).empty( ); };
    std::string_view result = DROPPED;
    for( const Row& row : ROWS )
        if( request.headers.isMethod( row.method ) && std::all_of( row.headers.begin( ), row.headers.end( ), present ) )
            result = ( this->*row.handler )( request );
    _metrics.count( "signalling", GServerMessage::methodLabel( request.headers ), result );
}

void GSignallingService::_onResponse( Request& request )
{
    const bool known = _contacts.onResponse( request.from, request.headers );
    _metrics.count( "signalling", known ? "CONTACTREQUEST" : "other", known ? "acknowledged" : "malformed" );
}

// ---- Requests that need no registration.
std::string_view GSignallingService::_onPING( Request& request )
{
    GString& answer = request.out.add( request.listener, request.from );
    GServerMessage::begin( answer, request.headers );
    GServerMessage::append( answer, "Observed-Host", request.from );
    GServerMessage::append( answer, "Reported-Host", request.headers.headers( ).get( GProtocol::GLOBAL_HOST ) );
    GServerMessage::end( answer );
    return "answered";
}

std::string_view GSignallingService::_onDEVICEGUID( Request& request )
{
    GString key;
    if( _repeats( request, key ) ) return REPEATED;
    const uint64_t since = request.now - static_cast<uint64_t>( _config.logonSeconds ) * SECOND;
    const GString address = _addressOf( request.from );
    if( !_database.hasAnyLogon( address, since ) ) return REFUSED;
    const GString device = GPasswordRandomText( DEVICE_LENGTH );
    if( !_database.addDevice( device, request.now, address, UNUSED_DEVICES ) ) return REFUSED;
    GHTTPHeaders answer = GServerMessage::reply( request.headers, GHTTP_SUCCESS, u"OK" );
    answer.set( GProtocol::DEVICE_GUID, GUTF8ToWide( device ) );
    _replies.store( key, answer.serialize( ), request.now );
    GLOGPLAIN( u"device id=", device, u" from=", request.from );
    return _send( request, answer, "answered" );
}

// Who stays on line never logs on again: a renewal counts as one, or he would be refused after a day. The store hears of it once in
// LOGON_PARTS of that time, since each word to it costs more than all else of a renewal.
bool GSignallingService::_renewLogon( const GString& user, const GString& address, uint64_t now )
{
    const uint64_t part = static_cast<uint64_t>( _config.logonSeconds ) * SECOND / LOGON_PARTS;
    return _database.hasLogon( user, address, now - part + 1 ) || _database.addLogon( user, address, now );
}

// A client takes any refusal for an unknown identity, so only that one is told.
std::string_view GSignallingService::_onREGISTER( Request& request )
{
    const GString user = narrow( request.headers, GProtocol::FROM );
    const GString device = narrow( request.headers, GProtocol::DEVICE_GUID );
    if( !GValidUserID( GUTF8ToWide( user ) ) || !GValidDeviceID( GUTF8ToWide( device ) ) ) return DROPPED;
    const GString address = _addressOf( request.from );
    const uint64_t since = request.now - static_cast<uint64_t>( _config.logonSeconds ) * SECOND;
    if( !_database.hasLogon( user, address, since ) )
    {
        GLOGPLAIN( u"register user=", user, u" from=", request.from,
                   u" result=refused text='no logon from this address'" );
        return REFUSED;
    }
    if( !_database.hasDevice( device ) )
    {
        GLOGPLAIN( u"register user=", user, u" device=", device, u" from=", request.from, u" result=404" );
        return _answer( request, 404, u"Unknown device" );
    }
    const GString routes = _routesOf( request, address );
    if( routes.empty( ) ) return DROPPED;
    const GRegistration* known = _registrationOf( request );
    const bool goesOn = known && known->user == user && known->device == device;
    const bool listed = goesOn && known->listed;
    if( goesOn && !_renewLogon( user, address, request.now ) ) return REFUSED;
    GStringList capabilities;
    request.headers.get( GProtocol::CAPABILITIES, capabilities );
    const bool contacts = GListContains( capabilities, GProtocol::CAPABILITY_CONTACTS );
    if( !_database.useDevice( device, user, request.now, USED_DEVICES ) ) return REFUSED;
    _removeOthersAt( request.from, user, device );
    if( !_store( { user, device, request.from,
                   _listeners.size( ) > request.listener ? _listeners[request.listener] : GString( ), routes,
                   GServerMessage::loggable( request.headers.get( GProtocol::VERSION ) ),
                   request.now + static_cast<uint64_t>( _config.registrationSeconds ) * SECOND, listed, contacts } ) )
        return REFUSED;
    _limitDevices( user, device );
    if( !goesOn )
        GLOGPLAIN( u"register user=", user, u" device=", device, u" from=", request.from, u" routes='", routes, u"'" );
    const std::string_view result = _answer( request, GHTTP_SUCCESS, u"OK" );
    if( contacts ) _contacts.tellAll( { user, device, request.listener, request.from }, request.now, request.out );
    return result;
}

// ---- Requests from the source of the user's live registration only.
std::string_view GSignallingService::_onUNREGISTER( Request& request )
{
    const GString user = narrow( request.headers, GProtocol::FROM );
    const GString device = narrow( request.headers, GProtocol::DEVICE_GUID );
    const GString key = joinKey( { request.from, user, device, narrow( request.headers, GProtocol::CSEQ ) } );
    const GRegistration* registration = _registrationOf( request );
    if( registration && registration->device == device )
    {
        _remove( user, device );
        GLOGPLAIN( u"unregister user=", user, u" device=", device, u" from=", request.from );
        const std::string_view result = _answer( request, GHTTP_SUCCESS, u"OK" );
        _replies.store( key, request.out.back( ).bytes, request.now );
        return result;
    }
    const GString* reply = _replies.find( key, request.now );
    if( !reply ) return REFUSED;
    request.out.add( request.listener, request.from, *reply );
    return REPEATED;
}

std::string_view GSignallingService::_onGETBUDDYLIST( Request& request )
{
    GRegistration* registration = _registrationOf( request );
    if( !registration ) return REFUSED;
    GStringList list;
    for( const GString& buddy : _database.getBuddies( registration->user ) ) list.push_back( GUTF8ToWide( buddy ) );
    GHTTPHeaders answer = GServerMessage::reply( request.headers, GHTTP_SUCCESS, u"OK" );
    answer.set( GProtocol::BUDDY_LIST, list );
    if( !registration->listed )
    {
        registration->listed = true;
        if( !_database.putRegistration( *registration ) ) return REFUSED;
    }
    return _send( request, answer, "answered" );
}

std::string_view GSignallingService::_onSETBUDDYLIST( Request& request )
{
    const GRegistration* registration = _registrationOf( request );
    if( !registration ) return REFUSED;
    if( !request.headers.contains( GProtocol::BUDDY_LIST ) ) return DROPPED;
    GString key;
    if( _repeats( request, key ) ) return REPEATED;
    GStringList list;
    request.headers.get( GProtocol::BUDDY_LIST, list );
    std::vector<GString> buddies;
    for( const GWString& item : list )
    {
        const GString buddy = GWideToUTF8( item );
        const bool known = std::find( buddies.begin( ), buddies.end( ), buddy ) != buddies.end( );
        if( !known && GValidUserID( item ) && static_cast<int64_t>( buddies.size( ) ) < _config.buddies )
            buddies.push_back( buddy );
    }
    // A client that never got its list has nothing to say about it.
    const bool takes = !buddies.empty( ) || ( list.empty( ) && registration->listed );
    if( takes && !_database.setBuddies( registration->user, buddies ) ) return REFUSED;
    GLOGPLAIN( u"buddies user=", registration->user, u" count=", buddies.size( ), takes ? u"" : u" result=unchanged" );
    // Whom a user has on his list he need not be asked about.
    if( takes )
        for( const GString& asker : _database.listRequests( registration->user ) )
            if( std::find( buddies.begin( ), buddies.end( ), asker ) != buddies.end( ) )
                _settle( request, asker, *registration );
    return _answerOnce( request, key, GHTTP_SUCCESS, u"OK" );
}

std::string_view GSignallingService::_onADDBUDDY( Request& request )
{
    const GRegistration* registration = _registrationOf( request );
    if( !registration ) return REFUSED;
    const GString user = registration->user;
    GString key;
    if( _repeats( request, key ) ) return REPEATED;
    // Whoever asks learns which accounts there are: not faster than a person would.
    if( !_contacts.mayAsk( user, request.now ) ) return _answerOnce( request, key, 429, u"Too many requests" );
    GString buddy = narrow( request.headers, GProtocol::BUDDY_GUID );
    if( buddy.find( '@' ) == GString::npos ) buddy += "@" + _config.domain;
    if( !GValidUserID( GUTF8ToWide( buddy ) ) || !_database.getAccount( buddy ) )
        return _answerOnce( request, key, 404, u"Unknown user" );
    const bool known = _database.hasBuddy( user, buddy );
    if( !known && static_cast<int64_t>( _database.getBuddies( user ).size( ) ) >= _config.buddies )
        return _answerOnce( request, key, 400, u"Too many buddies" );
    if( !known && !_database.addBuddy( user, buddy ) ) return REFUSED;
    if( !known ) GLOGPLAIN( u"buddy user=", user, u" added=", buddy );
    const std::string_view result = _answerOnce( request, key, GHTTP_SUCCESS, u"OK" );
    _contacts.unblock( user, buddy );
    _settle( request, buddy, *registration );
    _ask( request, user, buddy );
    return result;
}

std::string_view GSignallingService::_onCONTACTANSWER( Request& request )
{
    const GRegistration* registration = _registrationOf( request );
    if( !registration || registration->device != narrow( request.headers, GProtocol::FROM_DEVICE_GUID ) )
        return REFUSED;
    const GString asker = narrow( request.headers, GProtocol::BUDDY_GUID );
    const GWString answer = request.headers.get( GProtocol::ANSWER );
    const bool blocks = answer == GProtocol::BLOCK;
    if( !GValidUserID( GUTF8ToWide( asker ) ) || ( !blocks && answer != GProtocol::REFUSE ) ) return DROPPED;
    GString key;
    if( _repeats( request, key ) ) return REPEATED;
    // Only accounts are blocked, so that nobody fills the store with names; whether there is one isn't told.
    if( blocks && asker != registration->user && _database.getAccount( asker ) &&
        !_contacts.block( registration->user, asker ) )
        return REFUSED;
    GLOGPLAIN( u"contact asker=", asker, u" asked=", registration->user,
               blocks ? u" result=blocked" : u" result=refused" );
    const std::string_view result = _answerOnce( request, key, GHTTP_SUCCESS, u"OK" );
    _settle( request, asker, *registration );
    return result;
}

// The asked user's devices learn of it now; those that come later, when they register.
void GSignallingService::_ask( Request& request, const GString& asker, const GString& asked )
{
    if( !_contacts.ask( asker, asked, request.now ) ) return;
    for( const GContactDevice& device : _devicesOf( asked, request.now ) )
        _contacts.tell( device, asker, GProtocol::PENDING, request.now, request.out );
}
// The user's other devices need not ask him any more.
void GSignallingService::_settle( Request& request, const GString& asker, const GRegistration& answering )
{
    if( !_contacts.settle( asker, answering.user ) ) return;
    for( const GContactDevice& device : _devicesOf( answering.user, request.now ) )
        if( device.device != answering.device )
            _contacts.tell( device, asker, GProtocol::ANSWERED, request.now, request.out );
}
GContactService::Devices GSignallingService::_devicesOf( const GString& user, uint64_t now ) const
{
    GContactService::Devices devices;
    const auto found = _registrations.find( user );
    if( found == _registrations.end( ) ) return devices;
    for( const auto& [device, registration] : found->second )
        if( registration.contacts && registration.expires >= now )
            devices.push_back( { user, device, _listenerOf( registration ), registration.host } );
    return devices;
}

std::string_view GSignallingService::_onBUGREPORT( Request& request )
{
    const GRegistration* registration = _registrationOf( request );
    if( !registration ) return REFUSED;
    GString key;
    if( _repeats( request, key ) ) return REPEATED;
    if( _database.countBugReports( registration->user, request.now - DAY ) >= REPORTS_PER_DAY )
        return _answerOnce( request, key, 429, u"Too many reports" );
    if( !_database.addBugReport( registration->user, narrow( request.headers, GProtocol::EMAIL ),
                                 narrow( request.headers, GProtocol::TEXT ), request.now ) )
        return REFUSED;
    GLOGPLAIN( u"report user=", registration->user );
    return _answerOnce( request, key, GHTTP_SUCCESS, u"OK" );
}

std::string_view GSignallingService::_onINVITE( Request& request )
{
    const GString device = narrow( request.headers, GProtocol::FROM_DEVICE_GUID );
    const GString to = narrow( request.headers, GProtocol::TO );
    const GRegistration* registration = _registrationOf( request );
    if( !registration || registration->device != device ) return REFUSED;
    if( !GValidUserID( GUTF8ToWide( to ) ) ) return DROPPED;
    const GString key = joinKey( { registration->user, device, to, narrow( request.headers, GProtocol::CSEQ ) } );
    if( const GString* reply = _invites.find( key, request.now ) )
    {
        request.out.add( request.listener, request.from, *reply );
        return REPEATED;
    }
    GHTTPHeaders answer = GServerMessage::reply( request.headers, 100, u"Trying" );
    if( _contacts.mayInvite( registration->user, to ) ) _forwardINVITE( request, to, device, answer );
    if( answer.get( GProtocol::DEVICE_LIST ).empty( ) )
        answer = GServerMessage::reply( request.headers, 400, u"Offline" );
    const int code = answer.getResponse( );
    const GString bytes = answer.serialize( );
    _invites.store( key, bytes, request.now );
    request.out.add( request.listener, request.from, bytes );
    GLOGPLAIN( u"invite from=", registration->user, u" to=", to, u" devices='", answer.get( GProtocol::DEVICE_LIST ),
               u"' result=", code );
    return code == 100 ? "100" : "400";
}

// Names each device of the user in the answer, and sends it the INVITE as it came.
void GSignallingService::_forwardINVITE( Request& request, const GString& to, const GString& callerDevice,
                                         GHTTPHeaders& answer )
{
    const auto found = _registrations.find( to );
    if( found == _registrations.end( ) ) return;
    const bool self = to == narrow( request.headers, GProtocol::FROM );
    for( const auto& [device, registration] : found->second )
    {
        if( registration.expires < request.now || ( self && device == callerDevice ) ) continue;
        answer.insert( GProtocol::DEVICE_LIST, GUTF8ToWide( device ) );
        answer.set( GUTF8ToWide( device + "-Route-List" ), GUTF8ToWide( registration.routes ) );
        request.out.add( _listenerOf( registration ), registration.host, request.bytes );
    }
}

// ---- Answers.
// A request that came a moment ago changes nothing again, whatever has happened since: its answer goes out once more.
bool GSignallingService::_repeats( Request& request, GString& key )
{
    key = GPasswordDigest( joinKey( { request.from, request.bytes } ) );
    const GString* reply = _replies.find( key, request.now );
    if( reply ) request.out.add( request.listener, request.from, *reply );
    return reply;
}
std::string_view GSignallingService::_answerOnce( Request& request, const GString& key, int code, GWStringView text )
{
    const std::string_view result = _answer( request, code, text );
    _replies.store( key, request.out.back( ).bytes, request.now );
    return result;
}
std::string_view GSignallingService::_send( Request& request, const GHTTPHeaders& answer, std::string_view result )
{
    request.out.add( request.listener, request.from, answer.serialize( ) );
    return result;
}
std::string_view GSignallingService::_answer( Request& request, int code, GWStringView text )
{
    const std::string_view result = code == GHTTP_SUCCESS ? "200" : code == 404 ? "404" : code == 429 ? "429" : "400";
    return _send( request, GServerMessage::reply( request.headers, code, text ), result );
}

// ---- Registrations.
GRegistration* GSignallingService::_registrationOf( const Request& request )
{
    const auto at = _byHost.find( request.from );
    if( at == _byHost.end( ) || at->second.first != narrow( request.headers, GProtocol::FROM ) ) return nullptr;
    GRegistration& registration = _registrations[at->second.first][at->second.second];
    return registration.expires >= request.now ? &registration : nullptr;
}
bool GSignallingService::_store( const GRegistration& registration )
{
    if( !_database.putRegistration( registration ) ) return false;
    GRegistration& known = _registrations[registration.user][registration.device];
    if( !known.host.empty( ) && known.host != registration.host ) _byHost.erase( known.host );
    known = registration;
    _byHost[registration.host] = { registration.user, registration.device };
    return true;
}
void GSignallingService::_remove( const GString& user, const GString& device )
{
    const auto found = _registrations.find( user );
    if( found == _registrations.end( ) ) return;
    const auto it = found->second.find( device );
    if( it == found->second.end( ) ) return;
    const GString host = it->second.host;
    found->second.erase( it );
    if( found->second.empty( ) ) _registrations.erase( found );
    const auto at = _byHost.find( host );
    if( at != _byHost.end( ) && at->second == std::make_pair( user, device ) ) _byHost.erase( at );
    _database.removeRegistration( user, device );
    _contacts.forget( user, device );
}
// One address and port is one program: what it was before is over.
void GSignallingService::_removeOthersAt( const GString& host, const GString& user, const GString& device )
{
    const auto at = _byHost.find( host );
    if( at == _byHost.end( ) || at->second == std::make_pair( user, device ) ) return;
    const auto [oldUser, oldDevice] = at->second;
    _remove( oldUser, oldDevice );
}
void GSignallingService::_limitDevices( const GString& user, const GString& keep )
{
    DeviceMap& devices = _registrations[user];
    while( static_cast<int64_t>( devices.size( ) ) > _config.devicesPerUser )
    {
        const GRegistration* oldest = nullptr;
        for( const auto& [device, registration] : devices )
            if( device != keep && ( !oldest || registration.expires < oldest->expires ) ) oldest = &registration;
        if( !oldest ) return;
        const GString device = oldest->device;
        _remove( user, device );
    }
}
void GSignallingService::expire( uint64_t now )
{
    std::vector<std::pair<GString, GString>> over;
    for( const auto& [user, devices] : _registrations )
    {
        const bool gone = !_database.getAccount( user );
        for( const auto& [device, registration] : devices )
            if( gone || registration.expires < now ) over.emplace_back( user, device );
    }
    for( const auto& [user, device] : over )
    {
        _remove( user, device );
        GLOGPLAIN( u"expired user=", user, u" device=", device );
    }
}
size_t GSignallingService::registrationCount( ) const
{
    return _byHost.size( );
}

// Behind the relay the address that counts is that of the relay's connection.
GString GSignallingService::_addressOf( const GString& host )
{
    const GString relayed = _database.getAllocationAddress( host );
    return relayed.empty( ) ? GEndpoint::addressOf( host ) : relayed;
}
// The routes that a peer could use: unicast, with a port, loopback only from loopback itself.
GString GSignallingService::_routesOf( const Request& request, const GString& address ) const
{
    GStringList given;
    request.headers.get( GProtocol::ROUTE_LIST, given );
    GStringList kept;
    for( const GWString& route : given )
    {
        const size_t mark = route.find( u"://" );
        const bool letters = mark != GWString::npos && mark > 0 && mark <= 16 &&
                             std::all_of( route.begin( ), route.begin( ) + static_cast<int>( mark ),
                                          []( char16_t c ) { return c >= u'a' && c <= u'z'; } );
        if( !letters || kept.size( ) >= MAX_ROUTES ) continue;
        const GWString host = route.substr( mark + 3 );
        if( GNetIsUnicastHost( host ) && ( !GNetIsLoopbackHost( host ) || GEndpoint::isLoopback( address ) ) )
            kept.push_back( route );
    }
    return GWideToUTF8( GJoinList( kept ) );
}
size_t GSignallingService::_listenerOf( const GRegistration& registration ) const
{
    const auto found = std::find( _listeners.begin( ), _listeners.end( ), registration.listener );
    return found == _listeners.end( ) ? 0 : static_cast<size_t>( found - _listeners.begin( ) );
}
