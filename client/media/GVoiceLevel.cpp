#include "client/media/GVoiceLevel.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace
{
// Decibels of the effective value to full scale, and decibels a second.
constexpr double TARGET = -21;
constexpr double GREATEST = 18;
constexpr double LEAST = -12;
constexpr double QUIETEST_VOICE = -60;
constexpr double ABOVE_FLOOR = 10;
constexpr double SILENCE = -96;
constexpr double RISE = 9;
constexpr double FALL = 60;
constexpr double FLOOR_RISE = 1;
// Seconds.
constexpr double SMOOTHING = 0.1;
constexpr double ATTACK = 0.1;
constexpr double RELEASE = 1;

constexpr double FULL_SCALE = 32768;
constexpr double PEAK = 30000;

double levelOf( const int16_t* samples, int count )
{
    double sum = 0;
    for( int i = 0; i < count; ++i ) sum += static_cast<double>( samples[i] ) * samples[i];
    return sum > 0 ? std::max( SILENCE, 10 * std::log10( sum / count / ( FULL_SCALE * FULL_SCALE ) ) ) : SILENCE;
}
} // namespace

GVoiceLevel::GVoiceLevel( int frequency, int block )
    : _block( block ), _seconds( static_cast<double>( block ) / frequency )
{
}

void GVoiceLevel::process( int16_t* samples, bool hold )
{
    const double level = levelOf( samples, _block );
    if( _isVoice( level ) && !hold ) _follow( level );
    _apply( samples );
}

// The background is what is there in pauses: it falls at once to the quietest and rises slowly. It begins with the first block.
bool GVoiceLevel::_isVoice( double level )
{
    _smooth += std::min( 1.0, _seconds / SMOOTHING ) * ( level - _smooth );
    _floor = std::min( _smooth, _floor + FLOOR_RISE * _seconds );
    return level > QUIETEST_VOICE && level > _floor + ABOVE_FLOOR;
}

void GVoiceLevel::_follow( double level )
{
    if( !_hasVoice ) _voice = level;
    _hasVoice = true;
    _voice += std::min( 1.0, _seconds / ( level > _voice ? ATTACK : RELEASE ) ) * ( level - _voice );
    const double wanted = std::clamp( TARGET - _voice, LEAST, GREATEST );
    _gain = std::clamp( wanted, _gain - FALL * _seconds, _gain + RISE * _seconds );
}

// From factor to factor without a step, and never beyond full scale.
void GVoiceLevel::_apply( int16_t* samples )
{
    int loudest = 1;
    for( int i = 0; i < _block; ++i ) loudest = std::max( loudest, std::abs( static_cast<int>( samples[i] ) ) );
    const double limit = std::max( 1.0, PEAK / loudest );
    const double wanted = std::min( std::pow( 10.0, _gain / 20 ), limit );
    const double from = std::min( _applied, limit );
    for( int i = 0; i < _block; ++i )
    {
        const double factor = from + ( wanted - from ) * ( i + 1 ) / _block;
        const double value = std::clamp<double>( samples[i] * factor, INT16_MIN, INT16_MAX );
        samples[i] = static_cast<int16_t>( std::lround( value ) );
    }
    _applied = wanted;
}
