// Token buckets by key: each key may spend `burst` at once and `perSecond` in the long run. Time is passed in, in microseconds.
// At most `maxKeys` keys are kept; when the table is full the one that was used longest ago leaves. A known key takes nothing from
// the heap, and every call costs the same however many keys there are.
#pragma once

#include "base/GTypes.h"

#include <unordered_map>

// Keys that strangers choose, spread by a seed that they don't know.
struct GRateLimitHash
{
    size_t operator( )( uint64_t key ) const;
    size_t operator( )( std::string_view key ) const { return std::hash<std::string_view>( )( key ); }
};

template <typename Key>
class GRateLimitBy
{
public:
    GRateLimitBy( double perSecond, double burst, size_t maxKeys = 65536 );
    void setRate( double perSecond, double burst );
    // Spends `cost` when the bucket holds it; false leaves the bucket alone.
    bool take( const Key& key, uint64_t now, double cost = 1 );
    // Whether `cost` could be spent.
    bool test( const Key& key, uint64_t now, double cost = 1 ) const;
    void forget( const Key& key );
    size_t size( ) const { return _index.size( ); }

private:
    static constexpr uint32_t NONE = UINT32_MAX;
    // Buckets in the order of their use: `older` leads to the one that leaves first.
    struct Bucket
    {
        Key key;
        double tokens;
        uint64_t time;
        uint32_t older;
        uint32_t newer;
    };
    double _fill( const Bucket& bucket, uint64_t now ) const;
    Bucket& _bucketOf( const Key& key, uint64_t now );
    void _link( uint32_t place );
    void _unlink( uint32_t place );

    double _perSecond;
    double _burst;
    size_t _maxKeys;
    std::unordered_map<Key, uint32_t, GRateLimitHash> _index;
    std::vector<Bucket> _buckets;
    std::vector<uint32_t> _free; // Places of buckets that nobody has.
    uint32_t _oldest = NONE;
    uint32_t _newest = NONE;
};
using GRateLimit = GRateLimitBy<GString>;
using GRateLimitByNumber = GRateLimitBy<uint64_t>;
