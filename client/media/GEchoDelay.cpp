#include "client/media/GEchoDelay.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace
{
constexpr int DECIMATION = 8;
constexpr float SECOND = 1; // Over which the correlation is taken.
// Of the greatest that is possible: below this it may be chance.
constexpr float SURE = 0.2F;
// Seconds.
constexpr float PATIENCE = 0.2F;
constexpr float SAME = 0.004F;

// Their mean: enough of a low pass for speech, of which little lies above.
float reduced( const int16_t* samples )
{
    float sum = 0;
    for( int i = 0; i < DECIMATION; ++i ) sum += samples[i];
    return sum / DECIMATION;
}
} // namespace

GEchoDelay::GEchoDelay( int frequency ) : _frequency( frequency ) {}

void GEchoDelay::take( const int16_t* microphone, const int16_t* played, int count )
{
    const int reducedCount = std::min( count / DECIMATION, MOST );
    const float forget =
        std::exp( -static_cast<float>( reducedCount * DECIMATION ) / ( SECOND * static_cast<float>( _frequency ) ) );
    for( float& value : _correlation ) value *= forget;
    _playedEnergy *= forget;
    _energy *= forget;
    std::copy( _played.begin( ) + reducedCount, _played.end( ), _played.begin( ) );
    for( int i = 0; i < reducedCount; ++i )
    {
        const std::ptrdiff_t at = static_cast<std::ptrdiff_t>( i ) * DECIMATION;
        float* const now = &_played[_played.size( ) - static_cast<size_t>( reducedCount - i )];
        *now = reduced( played + at );
        _add( reduced( microphone + at ), now );
    }
    _decide( count );
}

void GEchoDelay::_add( float microphone, const float* now )
{
    for( int lag = 0; lag < LAGS; ++lag ) _correlation[static_cast<size_t>( lag )] += microphone * now[-lag];
    _energy += microphone * microphone;
    _playedEnergy += *now * *now;
}

void GEchoDelay::_decide( int count )
{
    const auto isLess = []( float one, float other ) { return std::abs( one ) < std::abs( other ); };
    const auto best = std::max_element( _correlation.begin( ), _correlation.end( ), isLess );
    const int lag = static_cast<int>( best - _correlation.begin( ) ) * DECIMATION;
    const int same = static_cast<int>( SAME * static_cast<float>( _frequency ) );
    const bool isSure = std::abs( *best ) > SURE * std::sqrt( _energy * _playedEnergy ) + 1;
    _patience = isSure && std::abs( lag - _candidate ) <= same ? _patience + count : 0;
    _candidate = lag;
    if( _patience > static_cast<int>( PATIENCE * static_cast<float>( _frequency ) ) ) _delay = lag;
}
