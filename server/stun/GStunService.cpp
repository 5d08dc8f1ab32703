#include "server/stun/GStunService.h"

#include "protocol/GProtocol.h"
#include "server/core/GServerMessage.h"

#include <algorithm>

void GStunService::onDatagram( GStunSocket socket, const GString& from, std::string_view bytes, uint64_t now,
                               GDatagramList& out )
{
    // The bare word opens a way through the sender's own NAT; arriving is all that it does.
    if( bytes == "HOLEPUNCH" ) return _count( "HOLEPUNCH", "taken" );
    if( !GServerMessage::readRequest( bytes, _request ) ) return _count( "other", "malformed" );
    if( !_request.isMethod( GProtocol::STUN ) ) return _count( GServerMessage::methodLabel( _request ), "dropped" );
    if( socket == STUN_DIRECT ) return _onDirect( from, out );
    if( socket == STUN_REFRESH ) return _onRefresh( from, now );
    _count( "STUN", "dropped" );
}

// "Indirect-Host-List" tells which hosts the client believes in; only our own two ever answer.
void GStunService::_onDirect( const GString& from, GDatagramList& out )
{
    GServerMessage::begin( _indirect, _request );
    GString& direct = out.add( STUN_DIRECT, from );
    direct.assign( _indirect );
    GServerMessage::append( direct, "Global-Host", from );
    GServerMessage::end( direct );
    GServerMessage::end( _indirect );
    out.add( STUN_PUNCHED, from, _indirect );
    out.add( STUN_UNPUNCHED, from, _indirect );
    _count( "STUN", "answered" );
}

void GStunService::_onRefresh( const GString& from, uint64_t now )
{
    const int64_t delay = _request.contains( GProtocol::DELAY ) ? _request.calc( GProtocol::DELAY ) : -1;
    if( delay < 0 ) return _count( "STUN", "dropped" );
    const GString address = from.substr( 0, from.find( ':' ) );
    const auto source = _pendingBySource.find( address );
    const int64_t count = source == _pendingBySource.end( ) ? 0 : source->second;
    if( count >= _config.stunPendingPerSource || static_cast<int64_t>( _pending.size( ) ) >= _config.stunPending )
        return _count( "STUN", "limited" );
    ++_pendingBySource[address];
    _pending.emplace( now + static_cast<uint64_t>( std::min( delay, MAX_DELAY ) ),
                      Pending{ from, GServerMessage::compose( _request, GHTTP_SUCCESS, u"OK" ) } );
    _count( "STUN", "delayed" );
}

void GStunService::onTime( uint64_t now, GDatagramList& out )
{
    while( !_pending.empty( ) && _pending.begin( )->first <= now )
    {
        Pending& pending = _pending.begin( )->second;
        const auto source = _pendingBySource.find( pending.to.substr( 0, pending.to.find( ':' ) ) );
        if( source != _pendingBySource.end( ) && --source->second <= 0 ) _pendingBySource.erase( source );
        out.add( STUN_REFRESH, pending.to, pending.bytes );
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
