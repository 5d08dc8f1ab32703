#include "server/core/GRateLimit.h"

#include <algorithm>
#include <random>

size_t GRateLimitHash::operator( )( uint64_t key ) const
{
    static const uint64_t seed = std::random_device( )( ) | static_cast<uint64_t>( std::random_device( )( ) ) << 32;
    // The finishing steps of SplitMix64, public domain, Sebastiano Vigna.
    key ^= seed;
    key = ( key ^ key >> 30 ) * 0xBF58476D1CE4E5B9u;
    key = ( key ^ key >> 27 ) * 0x94D049BB133111EBu;
    return static_cast<size_t>( key ^ key >> 31 );
}

template <typename Key>
GRateLimitBy<Key>::GRateLimitBy( double perSecond, double burst, size_t maxKeys )
    : _perSecond( perSecond ), _burst( burst ), _maxKeys( maxKeys )
{
}
template <typename Key>
void GRateLimitBy<Key>::setRate( double perSecond, double burst )
{
    _perSecond = perSecond;
    _burst = burst;
}

template <typename Key>
bool GRateLimitBy<Key>::take( const Key& key, uint64_t now, double cost )
{
    Bucket& bucket = _bucketOf( key, now );
    bucket.tokens = _fill( bucket, now );
    bucket.time = std::max( bucket.time, now );
    if( bucket.tokens < cost ) return false;
    bucket.tokens -= cost;
    return true;
}
template <typename Key>
bool GRateLimitBy<Key>::test( const Key& key, uint64_t now, double cost ) const
{
    const auto found = _index.find( key );
    return ( found == _index.end( ) ? _burst : _fill( _buckets[found->second], now ) ) >= cost;
}
template <typename Key>
void GRateLimitBy<Key>::forget( const Key& key )
{
    const auto found = _index.find( key );
    if( found == _index.end( ) ) return;
    _unlink( found->second );
    _free.push_back( found->second );
    _index.erase( found );
}

template <typename Key>
double GRateLimitBy<Key>::_fill( const Bucket& bucket, uint64_t now ) const
{
    const double passed = now > bucket.time ? static_cast<double>( now - bucket.time ) / 1e6 : 0;
    return std::min( _burst, bucket.tokens + passed * _perSecond );
}
// The key's bucket, as the newest; a new one is full.
template <typename Key>
typename GRateLimitBy<Key>::Bucket& GRateLimitBy<Key>::_bucketOf( const Key& key, uint64_t now )
{
    const auto found = _index.find( key );
    uint32_t place = found == _index.end( ) ? NONE : found->second;
    if( place == NONE )
    {
        if( _index.size( ) >= _maxKeys && _oldest != NONE ) forget( Key( _buckets[_oldest].key ) );
        if( _free.empty( ) )
        {
            _free.push_back( static_cast<uint32_t>( _buckets.size( ) ) );
            _buckets.emplace_back( );
        }
        place = _free.back( );
        _free.pop_back( );
        _buckets[place] = { key, _burst, now, NONE, NONE };
        _index.emplace( key, place );
        _link( place );
    }
    else if( place != _newest )
    {
        _unlink( place );
        _link( place );
    }
    return _buckets[place];
}
template <typename Key>
void GRateLimitBy<Key>::_link( uint32_t place )
{
    _buckets[place].older = _newest;
    _buckets[place].newer = NONE;
    ( _newest == NONE ? _oldest : _buckets[_newest].newer ) = place;
    _newest = place;
}
template <typename Key>
void GRateLimitBy<Key>::_unlink( uint32_t place )
{
    const Bucket& bucket = _buckets[place];
    ( bucket.older == NONE ? _oldest : _buckets[bucket.older].newer ) = bucket.newer;
    ( bucket.newer == NONE ? _newest : _buckets[bucket.newer].older ) = bucket.older;
}

template class GRateLimitBy<GString>;
template class GRateLimitBy<uint64_t>;
