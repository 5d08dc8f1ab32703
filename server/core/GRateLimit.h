// Token buckets by key: each key may spend `burst` at once and `perSecond` in the long run. Time is passed in, in microseconds.
// At most `maxKeys` keys are kept; when the table is full, full buckets leave, and then the one that was used longest ago.
#pragma once

#include "base/GTypes.h"

#include <unordered_map>

class GRateLimit
{
public:
    GRateLimit( double perSecond, double burst, size_t maxKeys = 65536 );
    void setRate( double perSecond, double burst );
    // Spends `cost` when the bucket holds it; false leaves the bucket alone.
    bool take( const GString& key, uint64_t now, double cost = 1 );
    // Whether `cost` could be spent.
    bool test( const GString& key, uint64_t now, double cost = 1 ) const;
    size_t size( ) const { return _buckets.size( ); }

private:
    struct Bucket
    {
        double tokens;
        uint64_t time;
    };
    double _fill( const Bucket& bucket, uint64_t now ) const;
    void _evict( uint64_t now );

    double _perSecond;
    double _burst;
    size_t _maxKeys;
    std::unordered_map<GString, Bucket> _buckets;
};
