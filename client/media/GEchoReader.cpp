#include "client/media/GEchoReader.h"

#include "client/media/GEchoReference.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cmath>

namespace
{
constexpr int64_t SECOND = 1000000;
constexpr uint64_t PERIOD = 5 * SECOND;
constexpr double LEAD = GECHO_RATE * 0.005;
// What is further off is read anew; less is made good within ten seconds, and at most a five-thousandth faster or slower.
constexpr double JUMP = GECHO_RATE * 0.03;
constexpr double ERROR_SHARE = 0.01;
constexpr double CORRECTION = 1.0 / ( 10.0 * GECHO_RATE );
constexpr double GREATEST_CORRECTION = 0.0002;
} // namespace

GEchoReader::GEchoReader( int frequency )
    : _frequency( frequency ), _step( static_cast<double>( GECHO_RATE ) / frequency )
{
}

void GEchoReader::_learn( int64_t offset )
{
    const uint64_t now = GTimeGetTime( );
    // A clock that was set begins anew.
    const bool isStrange = _hasOffset && std::abs( offset - _least ) > SECOND;
    if( !_hasOffset || isStrange )
    {
        _hasOffset = true;
        _before = _least = offset;
        _periodEnd = now + PERIOD;
    }
    if( now >= _periodEnd )
    {
        _before = _least;
        _least = offset;
        _periodEnd = now + PERIOD;
    }
    _least = std::min( _least, offset );
}

void GEchoReader::take( uint64_t timestamp, int count )
{
    const int64_t duration = count * SECOND / _frequency;
    _learn( static_cast<int64_t>( GTimeGetTime( ) - timestamp ) - duration );
    const int64_t offset = std::min( _least, _before );
    _wanted = GEchoReference_position( timestamp + static_cast<uint64_t>( offset ) ) + LEAD;
    if( std::abs( _wanted - _next ) <= JUMP ) return;
    _next = _wanted;
    _error = 0;
}

bool GEchoReader::read( int16_t* samples, int16_t* delayed, int count, int delay )
{
    _error += ERROR_SHARE * ( _wanted - _next - _error );
    const double step = _step * ( 1 + std::clamp( _error * CORRECTION, -GREATEST_CORRECTION, GREATEST_CORRECTION ) );
    GEchoReference_read( _next, step, samples, count );
    const bool sounds = GEchoReference_read( _next - delay * _step, step, delayed, count );
    _next += step * count;
    _wanted += _step * count;
    return sounds;
}
