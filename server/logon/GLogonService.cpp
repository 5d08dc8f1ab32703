#include "server/logon/GLogonService.h"

#include "protocol/GProtocol.h"
#include "server/core/GServerMessage.h"

#include <algorithm>

namespace
{
constexpr size_t MAX_NAME = 64;
constexpr size_t MAX_PASSWORD = 256;
constexpr size_t MAX_EMAIL = 254;

bool printable( GWStringView text )
{
    return std::none_of( text.begin( ), text.end( ), []( char16_t c ) { return c < 0x20 || c == 0x7F; } );
}
bool validEmail( const GWString& email )
{
    const size_t at = email.find( u'@' );
    return email.size( ) <= MAX_EMAIL && printable( email ) && at != GWString::npos && at > 0 &&
           at + 1 < email.size( ) && email.find( u'@', at + 1 ) == GWString::npos &&
           email.find( u' ' ) == GWString::npos;
}
GWString listOf( const std::vector<GString>& items )
{
    GStringList list;
    for( const GString& item : items ) list.push_back( GUTF8ToWide( item ) );
    return GJoinList( list );
}
} // namespace

GLogonService::GLogonService( const GServerConfig& config, const GServerHosts& hosts, GServerStore& store,
                              GMetrics& metrics )
    : _config( config ), _hosts( hosts ), _store( store ), _metrics( metrics ), _addressLimit( 1, 1 ),
      _failureLimit( 1, 1 )
{
    reload( );
}
void GLogonService::reload( )
{
    const auto logons = static_cast<double>( _config.logonsPerMinute );
    const auto failures = static_cast<double>( _config.logonFailuresPerHour );
    _addressLimit.setRate( logons / 60, logons );
    _failureLimit.setRate( failures / 3600, failures );
}

GString GLogonService::testAccount( const GServerConfig& config, const GWString& name, const GWString& password,
                                    const GWString& email )
{
    const bool named = !name.empty( ) && name.size( ) <= MAX_NAME && GSanitizeName( name ) == name &&
                       name.find( u'@' ) == GWString::npos && name.front( ) != u'.';
    if( !named ) return "Bad name";
    if( static_cast<int64_t>( password.size( ) ) < config.passwordMinimum || password.size( ) > MAX_PASSWORD ||
        !printable( password ) )
        return "Bad password";
    if( !validEmail( email ) ) return "Bad e-mail address";
    return { };
}

bool GLogonService::begin( const GHTTPHeaders& request, const GString& address, uint64_t now, GLogonTask& task,
                           GString& reply )
{
    const GString method = GServerMessage::methodLabel( request );
    if( !request.isMethod( GProtocol::AUTHENTICATE ) || !request.contains( GProtocol::FROM ) ||
        !request.contains( GProtocol::PASSWORD ) )
    {
        _metrics.count( "logon", method, "dropped" );
        return false;
    }
    const GWString from = request.get( GProtocol::FROM );
    const GWString password = request.get( GProtocol::PASSWORD );
    const GWString domain = GUTF8ToWide( _config.domain );
    task.create = from.find( u'@' ) == GWString::npos;
    task.name = GWideToUTF8( task.create ? from + u"@" + domain : from );
    task.address = address;
    task.password = GWideToUTF8( password );
    task.email = GWideToUTF8( request.get( GProtocol::EMAIL ) );
    task.version = request.calc( GProtocol::VERSION );
    task.request = request;
    task.limits = { static_cast<uint64_t>( _config.passwordPasses ),
                    static_cast<uint64_t>( _config.passwordMemoryKiB ) * 1024 };
    if( !_addressLimit.take( address, now ) || !_failureLimit.test( task.name, now ) )
    {
        reply = _answer( request, task.name, address, 429, u"Too many logons" );
        return false;
    }
    if( task.create )
    {
        const GString bad = testAccount( _config, from, password, request.get( GProtocol::EMAIL ) );
        if( !bad.empty( ) )
            reply = _answer( request, task.name, address, 400, GUTF8ToWide( bad ) );
        else if( _store.getAccount( task.name ) )
            reply = _answer( request, task.name, address, 409, u"Name taken" );
        return reply.empty( );
    }
    const bool ours = GValidUserID( from ) && from.ends_with( u"@" + domain ) && password.size( ) <= MAX_PASSWORD;
    if( !ours )
    {
        reply = _answer( request, task.name, address, 403, u"Forbidden" );
        return false;
    }
    const auto account = _store.getAccount( task.name );
    if( account ) task.hash = account->hash;
    return true;
}

void GLogonService::run( GLogonTask& task )
{
    if( task.create )
        task.newHash = GPasswordHash( task.password, task.limits );
    else
        task.verified = GPasswordVerify( task.hash, task.password, task.limits );
}

GString GLogonService::end( const GLogonTask& task, uint64_t now )
{
    if( !task.create && !task.verified )
    {
        _failureLimit.take( task.name, now );
        return _answer( task.request, task.name, task.address, 403, u"Forbidden" );
    }
    if( task.create && task.newHash.empty( ) )
        return _answer( task.request, task.name, task.address, 503, u"Try again" );
    if( task.create && !_store.addAccount( { task.name, task.newHash, task.email, now } ) )
        return _answer( task.request, task.name, task.address, 409, u"Name taken" );
    if( !_store.addLogon( task.name, task.address, now ) )
        return _answer( task.request, task.name, task.address, 503, u"Try again" );
    return _welcome( task );
}
GString GLogonService::refuse( const GHTTPHeaders& request, const GString& address )
{
    return _answer( request, GWideToUTF8( request.get( GProtocol::FROM ) ), address, 503, u"Try again" );
}

GString GLogonService::_welcome( const GLogonTask& task )
{
    GHTTPHeaders answer = GServerMessage::reply( task.request, GHTTP_SUCCESS, u"OK" );
    answer.set( GProtocol::USER_GUID, GUTF8ToWide( task.name ) );
    answer.set( GProtocol::STUN_HOST_LIST, listOf( _hosts.stun ) );
    answer.set( GProtocol::SIP_HOST_LIST, listOf( _hosts.signalling ) );
    answer.set( GProtocol::TURN_HOST, GUTF8ToWide( _hosts.relay ) );
    answer.set( GProtocol::LOGFILE_HOST, GUTF8ToWide( _hosts.log ) );
    if( _config.upgradeVersion > task.version )
    {
        const GString url =
            _config.upgradeURL.empty( ) ? "http://" + _hosts.upgrade + "/" + _config.upgradeFile : _config.upgradeURL;
        answer.set( GProtocol::UPGRADE_URL, GUTF8ToWide( url ) );
        answer.set( GProtocol::UPGRADE_NAME, GUTF8ToWide( _config.upgradeName ) );
        answer.set( GProtocol::UPGRADE_PRIORITY, GUTF8ToWide( _config.upgradePriority ) );
    }
    GLOGPLAIN( task.create ? u"created user=" : u"logon user=", GServerMessage::loggable( GUTF8ToWide( task.name ) ),
               u" from=", task.address, u" result=200" );
    _metrics.count( "logon", "AUTHENTICATE", "200" );
    return answer.serialize( );
}
GString GLogonService::_answer( const GHTTPHeaders& request, const GString& name, const GString& address, int code,
                                GWStringView text )
{
    GLOGPLAIN( u"logon user='", GServerMessage::loggable( GUTF8ToWide( name ) ), u"' from=", address, u" result=",
               code );
    _metrics.count( "logon", "AUTHENTICATE", std::to_string( code ) );
    return GServerMessage::compose( request, code, text );
}
