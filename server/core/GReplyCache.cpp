#include "server/core/GReplyCache.h"

const GString* GReplyCache::find( const GString& key, uint64_t now )
{
    _expire( now );
    const auto found = _replies.find( key );
    return found == _replies.end( ) ? nullptr : &found->second.bytes;
}
void GReplyCache::store( const GString& key, const GString& reply, uint64_t now )
{
    _expire( now );
    _replies.insert_or_assign( key, Reply{ reply, now } );
    _order.emplace_back( now, key );
}
void GReplyCache::_expire( uint64_t now )
{
    while( !_order.empty( ) && ( _order.size( ) >= _maximum || _order.front( ).first + _lifetime < now ) )
    {
        const auto found = _replies.find( _order.front( ).second );
        if( found != _replies.end( ) && found->second.time <= _order.front( ).first ) _replies.erase( found );
        _order.pop_front( );
    }
}
