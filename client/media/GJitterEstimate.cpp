#include "client/media/GJitterEstimate.h"

#include <algorithm>

namespace
{
constexpr int64_t BIN = 2000;
constexpr int BINS = static_cast<int>( GJitterEstimate::MAXIMUM / BIN ) + 1;
constexpr int LATE_PERCENT = 2;
// A way that stays longer for a second is no hold-up.
constexpr uint64_t STALL_TIME = 1000000;
constexpr int64_t STALL_END = 10000;
// Microseconds of jitter that are forgotten in a second.
constexpr int64_t FALL = 30000;
constexpr int64_t SECOND = 1000000;
} // namespace

void GJitterEstimate::restart( )
{
    // What is kept counts from the base, whatever that will be.
    for( int i = 0; i < _count; ++i ) _delays[static_cast<size_t>( i )] -= _base;
    _base = 0;
    _fresh = true;
    _stalledSince = 0;
}

bool GJitterEstimate::_isHeldUp( uint64_t arrival, int64_t delay )
{
    const int64_t late = delay - _base;
    // No way becomes that much shorter: a clock was set.
    if( late < -MAXIMUM ) restart( );
    if( !_stalledSince && late <= MAXIMUM ) return false;
    if( !_stalledSince ) _stalledSince = arrival;
    const bool stays = arrival - _stalledSince > STALL_TIME;
    if( !stays && late > _jitter + STALL_END ) return true;
    _stalledSince = 0;
    if( stays && late > _jitter + STALL_END ) restart( );
    return false;
}

void GJitterEstimate::add( uint64_t arrival, int64_t mediaTime )
{
    const int64_t delay = static_cast<int64_t>( arrival ) - mediaTime;
    if( !_fresh && _isHeldUp( arrival, delay ) ) return;
    if( _fresh )
        for( int i = 0; i < _count; ++i ) _delays[static_cast<size_t>( i )] += delay;
    const int64_t elapsed = _fresh ? 0 : static_cast<int64_t>( arrival - _lastArrival );
    _fresh = false;
    _lastArrival = arrival;
    _delays[static_cast<size_t>( _next )] = delay;
    _next = ( _next + 1 ) % SIZE;
    _count = std::min( _count + 1, SIZE );
    _base = *std::min_element( _delays.begin( ), _delays.begin( ) + _count );
    const int64_t fallen = _jitter - std::clamp<int64_t>( elapsed, 0, SECOND ) * FALL / SECOND;
    _jitter = std::max( _measure( ), fallen );
}

int64_t GJitterEstimate::_measure( ) const
{
    std::array<int, BINS> bins{ };
    for( int i = 0; i < _count; ++i )
    {
        const int64_t bin = ( _delays[static_cast<size_t>( i )] - _base + BIN - 1 ) / BIN;
        ++bins[static_cast<size_t>( std::min<int64_t>( bin, BINS - 1 ) )];
    }
    int later = _count * LATE_PERCENT / 100;
    int bin = BINS - 1;
    while( bin > 0 && ( later -= bins[static_cast<size_t>( bin )] ) >= 0 ) --bin;
    return bin * BIN;
}
