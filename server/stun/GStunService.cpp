#include "server/stun/GStunService.h"

#include "protocol/GProtocol.h"
#include "server/core/GServerMessage.h"

#include <algorithm>

void GStunService::onDatagram( GStunSocket socket, const GString& from, const GString& bytes, uint64_t now,
                               std::vector<GStunDatagram>& out )
{
    // The bare word opens a way through the sender's own NAT; arriving is all that it does.
    if( bytes == "HOLEPUNCH" ) return _count( "HOLEPUNCH", "taken" );
    GHTTPHeaders request;
    if( !GServerMessage::readRequest( bytes, request ) ) return _count( "other", "malformed" );
    if( !request.isMethod( GProtocol::STUN ) ) return _count( GServerMessage::methodLabel( request ), "dropped" );
    if( socket == STUN_DIRECT ) return _onDirect( from, request, out );
    if( socket == STUN_REFRESH ) return _onRefresh( from, request, now );
    _count( "STUN", "dropped" );
}

// "Indirect-Host-List" tells which hosts the client believes in; only our own two ever answer.
void GStunService::_onDirect( const GString& from, const GHTTPHeaders& request, std::vector<GStunDatagram>& out )
{
    GHTTPHeaders answer = GServerMessage::reply( request, GHTTP_SUCCESS, u"OK" );
    const GString indirect = answer.serialize( );
    answer.set( GProtocol::GLOBAL_HOST, GUTF8ToWide( from ) );
    out.push_back( { STUN_DIRECT, from, answer.serialize( ) } );
    out.push_back( { STUN_PUNCHED, from, indirect } );
    out.push_back( { STUN_UNPUNCHED, from, indirect } );
    _count( "STUN", "answered" );
}

void GStunService::_onRefresh( const GString& from, const GHTTPHeaders& request, uint64_t now )
{
    const int64_t delay = request.contains( GProtocol::DELAY ) ? request.calc( GProtocol::DELAY ) : -1;
    if( delay < 0 ) return _count( "STUN", "dropped" );
    const GString address = from.substr( 0, from.find( ':' ) );
    const auto source = _pendingBySource.find( address );
    const int64_t count = source == _pendingBySource.end( ) ? 0 : source->second;
    if( count >= _config.stunPendingPerSource || static_cast<int64_t>( _pending.size( ) ) >= _config.stunPending )
        return _count( "STUN", "limited" );
    ++_pendingBySource[address];
    _pending.emplace( now + static_cast<uint64_t>( std::min( delay, MAX_DELAY ) ),
                      Pending{ from, GServerMessage::compose( request, GHTTP_SUCCESS, u"OK" ) } );
    _count( "STUN", "delayed" );
}

void GStunService::onTime( uint64_t now, std::vector<GStunDatagram>& out )
{
    while( !_pending.empty( ) && _pending.begin( )->first <= now )
    {
        Pending& pending = _pending.begin( )->second;
        const auto source = _pendingBySource.find( pending.to.substr( 0, pending.to.find( ':' ) ) );
        if( source != _pendingBySource.end( ) && --source->second <= 0 ) _pendingBySource.erase( source );
        out.push_back( { STUN_REFRESH, std::move( pending.to ), std::move( pending.bytes ) } );
        _pending.erase( _pending.begin( ) );
        _count( "STUN", "answered" );
    }
}
int64_t GStunService::nextDue( uint64_t now ) const
{
    if( _pending.empty( ) ) return -1;
    const uint64_t due = _pending.begin( )->first;
    return due > now ? static_cast<int64_t>( due - now ) : 0;
}
