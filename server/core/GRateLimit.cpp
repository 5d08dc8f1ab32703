#include "server/core/GRateLimit.h"

#include <algorithm>

GRateLimit::GRateLimit( double perSecond, double burst, size_t maxKeys )
    : _perSecond( perSecond ), _burst( burst ), _maxKeys( maxKeys )
{
}
void GRateLimit::setRate( double perSecond, double burst )
{
    _perSecond = perSecond;
    _burst = burst;
}

bool GRateLimit::take( const GString& key, uint64_t now, double cost )
{
    auto found = _buckets.find( key );
    if( found == _buckets.end( ) )
    {
        if( _buckets.size( ) >= _maxKeys ) _evict( now );
        found = _buckets.emplace( key, Bucket{ _burst, now } ).first;
    }
    Bucket& bucket = found->second;
    bucket.tokens = _fill( bucket, now );
    bucket.time = std::max( bucket.time, now );
    if( bucket.tokens < cost ) return false;
    bucket.tokens -= cost;
    return true;
}
bool GRateLimit::test( const GString& key, uint64_t now, double cost ) const
{
    const auto found = _buckets.find( key );
    return ( found == _buckets.end( ) ? _burst : _fill( found->second, now ) ) >= cost;
}

double GRateLimit::_fill( const Bucket& bucket, uint64_t now ) const
{
    const double passed = now > bucket.time ? static_cast<double>( now - bucket.time ) / 1e6 : 0;
    return std::min( _burst, bucket.tokens + passed * _perSecond );
}
void GRateLimit::_evict( uint64_t now )
{
    // A full bucket says nothing that a missing one does not.
    std::erase_if( _buckets, [this, now]( const auto& item ) { return _fill( item.second, now ) >= _burst; } );
    if( _buckets.size( ) < _maxKeys ) return;
    const auto older = []( const auto& a, const auto& b ) { return a.second.time < b.second.time; };
    _buckets.erase( std::min_element( _buckets.begin( ), _buckets.end( ), older ) );
}
