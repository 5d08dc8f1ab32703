#include "server/signalling/GContactService.h"

#include "base/GRandom.h"
#include "protocol/GProtocol.h"
#include "server/core/GServerMessage.h"

#include <algorithm>

namespace
{
constexpr uint64_t SECOND = 1000000;
constexpr uint64_t REPEAT_PERIOD = 2 * SECOND;
constexpr int REPEATS = 5;
constexpr size_t MAX_TOLD = 10000;
constexpr uint64_t MAX_BLOCKS = 1000;
// Who was refused may ask again, but not all day long.
constexpr double ASKS_A_DAY = 5;
constexpr double DAY = 86400;
constexpr char16_t SUFFIX[] = u" (GContactService)";
} // namespace

GContactService::GContactService( const GServerConfig& config, GServerStore& store, GMetrics& metrics )
    : _config( config ), _store( store ), _metrics( metrics ), _asking( 1, 1 ), _pairs( ASKS_A_DAY / DAY, ASKS_A_DAY ),
      _number( static_cast<uint64_t>( GRandom( ) ) * static_cast<uint64_t>( GRandom( ) ) + 1 )
{
    reload( );
}
void GContactService::reload( )
{
    const auto asks = static_cast<double>( _config.contactRequestsPerHour );
    _asking.setRate( asks / 3600, asks );
}

bool GContactService::mayInvite( const GString& caller, const GString& to )
{
    if( caller == to ) return true;
    return ( !_config.isAgreed( ) || _store.hasBuddy( to, caller ) ) && !_store.hasBlock( to, caller );
}
bool GContactService::mayAsk( const GString& user, uint64_t now )
{
    return _asking.take( user, now );
}
bool GContactService::ask( const GString& asker, const GString& asked, uint64_t now )
{
    if( !_config.isAgreed( ) || asker == asked || _store.hasBuddy( asked, asker ) || _store.hasBlock( asked, asker ) )
        return false;
    const std::vector<GString> waiting = _store.listRequests( asked );
    if( std::find( waiting.begin( ), waiting.end( ), asker ) != waiting.end( ) ) return false;
    if( !_pairs.take( asker + "\n" + asked, now ) ||
        static_cast<int64_t>( waiting.size( ) ) >= _config.contactRequests )
    {
        GLOGPLAIN( u"contact asker=", asker, u" asked=", asked, u" result=limited" );
        _metrics.count( "signalling", "CONTACTREQUEST", "limited" );
        return false;
    }
    if( !_store.addRequest( asker, asked, now ) ) return false;
    GLOGPLAIN( u"contact asker=", asker, u" asked=", asked, u" result=waiting" );
    _metrics.setGauge( "velmora_contact_requests", _store.countRequests( ) );
    return true;
}
bool GContactService::settle( const GString& asker, const GString& asked )
{
    if( !_store.removeRequest( asker, asked ) ) return false;
    _metrics.setGauge( "velmora_contact_requests", _store.countRequests( ) );
    for( auto it = _told.lower_bound( { asked } ); it != _told.end( ) && it->first[0] == asked; )
    {
        const auto telling = it++;
        if( telling->second.asker == asker ) _drop( telling );
    }
    return true;
}
bool GContactService::block( const GString& user, const GString& blocked )
{
    return _store.addBlock( user, blocked, MAX_BLOCKS );
}
void GContactService::unblock( const GString& user, const GString& blocked )
{
    _store.removeBlock( user, blocked );
}

void GContactService::tell( const GContactDevice& device, const GString& asker, GWStringView state, uint64_t now,
                            GDatagramList& out )
{
    const Key key{ device.user, device.device, asker };
    const auto found = _told.find( key );
    if( found != _told.end( ) ) _drop( found );
    if( _told.size( ) >= MAX_TOLD ) return _metrics.count( "signalling", "CONTACTREQUEST", "shed" );
    GHTTPHeaders message( GProtocol::CONTACTREQUEST );
    message.set( GProtocol::CSEQ, GConcat( ++_number, SUFFIX ) );
    message.set( GProtocol::FROM, GUTF8ToWide( asker ) );
    message.set( GProtocol::TO, GUTF8ToWide( device.user ) );
    message.set( GProtocol::STATE, state );
    const auto told = _told.emplace( key, Telling{ device, asker, message.serialize( ), _number, REPEATS } ).first;
    _byNumber.emplace( _number, key );
    _due.emplace_back( now + REPEAT_PERIOD, _number );
    out.add( device.listener, device.host, told->second.bytes );
    _metrics.count( "signalling", "CONTACTREQUEST", "sent" );
}
void GContactService::tellAll( const GContactDevice& device, uint64_t now, GDatagramList& out )
{
    if( !_config.isAgreed( ) ) return;
    for( const GString& asker : _store.listRequests( device.user ) )
    {
        // A REGISTER that is repeated because its answer was lost starts nothing anew.
        const auto found = _told.find( { device.user, device.device, asker } );
        if( found == _told.end( ) || found->second.device.host != device.host )
            tell( device, asker, GProtocol::PENDING, now, out );
    }
}

bool GContactService::onResponse( const GString& from, const GHTTPHeaders& response )
{
    const GWString cseq = response.get( GProtocol::CSEQ );
    const int64_t number = GCalc( cseq );
    const auto found = number < 0 ? _byNumber.end( ) : _byNumber.find( static_cast<uint64_t>( number ) );
    if( found == _byNumber.end( ) || cseq != GConcat( number, SUFFIX ) ) return false;
    const auto telling = _told.find( found->second );
    if( telling->second.device.host != from ) return false;
    _drop( telling );
    return true;
}
void GContactService::forget( const GString& user, const GString& device )
{
    for( auto it = _told.lower_bound( { user, device } );
         it != _told.end( ) && it->first[0] == user && it->first[1] == device; )
        _drop( it++ );
}
void GContactService::update( uint64_t now, GDatagramList& out )
{
    while( !_due.empty( ) && _due.front( ).first <= now )
    {
        const uint64_t number = _due.front( ).second;
        _due.pop_front( );
        const auto found = _byNumber.find( number );
        if( found == _byNumber.end( ) ) continue;
        const auto telling = _told.find( found->second );
        if( telling->second.left-- <= 0 )
        {
            _metrics.count( "signalling", "CONTACTREQUEST", "unanswered" );
            _drop( telling );
            continue;
        }
        out.add( telling->second.device.listener, telling->second.device.host, telling->second.bytes );
        _due.emplace_back( now + REPEAT_PERIOD, number );
    }
}

void GContactService::_drop( const std::map<Key, Telling>::iterator& telling )
{
    _byNumber.erase( telling->second.number );
    _told.erase( telling );
}
