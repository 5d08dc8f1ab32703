#include "client/media/GEchoReference.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>

namespace
{
// A power of two: 5.9 seconds.
constexpr int64_t SIZE = 1 << 17;
constexpr int64_t MASK = SIZE - 1;
constexpr size_t VOICES = 32;
// Microseconds; near enough to now that positions keep their fractions.
constexpr int64_t EPOCH = 13400000000000000;
constexpr double SECOND = 1000000;
// Samples of GECHO_RATE by which the told time of a piece may be off the end of the one before: 20 ms.
constexpr double JOIN = GECHO_RATE * 0.02;
// How a voice follows the times that it is told: what is off is averaged over twenty pieces and made good within seconds, at most half
// a thousandth faster or slower.
constexpr double ERROR_SHARE = 0.05;
constexpr double CORRECTION = 1.0 / ( 4.0 * GECHO_RATE );
constexpr double GREATEST_CORRECTION = 0.0005;
// Samples before a piece that its interpolation looks at.
constexpr int HISTORY = 3;

struct Voice
{
    const void* id = nullptr;
    int frequency = 0; // 0 for a slot that was never used.
    double next = 0;   // Position of the sample that follows.
    int64_t nextSlot = 0;
    double error = 0;
    std::array<int16_t, HISTORY> history{ };
};

std::mutex mutex_;
std::array<int16_t, SIZE> ring_;
int64_t end_ = 0; // Slots from end_ - SIZE on, below end_, are valid.
std::array<Voice, VOICES> voices_;

// Catmull-Rom: through x0 at t = 0 and x1 at t = 1.
double between( double before, double x0, double x1, double after, double t )
{
    return x0 + 0.5 * t *
                    ( x1 - before +
                      t * ( 2 * before - 5 * x0 + 4 * x1 - after + t * ( 3 * ( x0 - x1 ) + after - before ) ) );
}

int16_t held( double value )
{
    return static_cast<int16_t>( std::lround( std::clamp<double>( value, INT16_MIN, INT16_MAX ) ) );
}

// These run under the lock.

Voice& voiceOf( const void* id, int frequency )
{
    Voice* oldest = voices_.data( );
    for( Voice& voice : voices_ )
    {
        if( voice.id == id && voice.frequency == frequency ) return voice;
        if( !voice.frequency || voice.next < oldest->next ) oldest = &voice;
        if( !oldest->frequency ) break;
    }
    *oldest = { id, frequency, -1e300, 0, 0, {} };
    return *oldest;
}

// Makes the slots below `end` valid. What lies more than the whole ring behind is the clock's that was set back: all begins anew.
void extend( int64_t end )
{
    if( end < end_ - SIZE || end > end_ + SIZE )
    {
        ring_.fill( 0 );
        end_ = end;
    }
    for( ; end_ < end; ++end_ ) ring_[static_cast<size_t>( end_ & MASK )] = 0;
}

int16_t slotAt( int64_t at )
{
    return at >= end_ || at < end_ - SIZE ? int16_t( 0 ) : ring_[static_cast<size_t>( at & MASK )];
}

void begin( Voice& voice, double at )
{
    voice.next = at;
    voice.nextSlot = static_cast<int64_t>( std::ceil( at ) );
    voice.error = 0;
    voice.history.fill( 0 );
}

// Sample `i` of a piece, or of what came before it.
double sampleOf( const Voice& voice, const int16_t* samples, int i )
{
    return i < 0 ? voice.history[static_cast<size_t>( i + HISTORY )] : samples[i];
}

// Adds the slots that lie within the piece, up to the last two samples, which wait for what follows them.
void add( Voice& voice, double step, const int16_t* samples, int count )
{
    const double last = voice.next + step * ( count - 2 );
    extend( static_cast<int64_t>( std::ceil( last ) ) );
    for( ; static_cast<double>( voice.nextSlot ) < last; ++voice.nextSlot )
    {
        const double at = std::max( -2.0, ( static_cast<double>( voice.nextSlot ) - voice.next ) / step );
        const int i = static_cast<int>( std::floor( at ) );
        const double value = between( sampleOf( voice, samples, i - 1 ), sampleOf( voice, samples, i ),
                                      sampleOf( voice, samples, i + 1 ), sampleOf( voice, samples, i + 2 ), at - i );
        int16_t& slot = ring_[static_cast<size_t>( voice.nextSlot & MASK )];
        slot = held( slot + value );
    }
    for( int i = 0; i < HISTORY; ++i )
        voice.history[static_cast<size_t>( i )] =
            static_cast<int16_t>( sampleOf( voice, samples, count - HISTORY + i ) );
}
} // namespace

double GEchoReference_position( uint64_t time )
{
    return static_cast<double>( static_cast<int64_t>( time ) - EPOCH ) * ( GECHO_RATE / SECOND );
}

void GEchoReference_write( uint64_t heardAt, int frequency, const int16_t* samples, int count, const void* id )
{
    if( frequency <= 0 || count < HISTORY || count > SIZE / 2 ) return;
    const double at = GEchoReference_position( heardAt );
    double step = static_cast<double>( GECHO_RATE ) / frequency;
    const std::scoped_lock lock( mutex_ );
    Voice& voice = voiceOf( id, frequency );
    if( std::abs( at - voice.next ) > JOIN )
        begin( voice, at );
    else
    {
        voice.error += ERROR_SHARE * ( at - voice.next - voice.error );
        step *= 1 + std::clamp( voice.error * CORRECTION, -GREATEST_CORRECTION, GREATEST_CORRECTION );
    }
    add( voice, step, samples, count );
    voice.next += step * count;
}

bool GEchoReference_read( double at, double step, int16_t* samples, int count )
{
    bool sounds = false;
    const std::scoped_lock lock( mutex_ );
    for( int i = 0; i < count; ++i, at += step )
    {
        const double floor = std::floor( at );
        const int64_t slot = static_cast<int64_t>( floor );
        samples[i] =
            held( between( slotAt( slot - 1 ), slotAt( slot ), slotAt( slot + 1 ), slotAt( slot + 2 ), at - floor ) );
        sounds = sounds || samples[i];
    }
    return sounds;
}

void GEchoReference_clear( )
{
    const std::scoped_lock lock( mutex_ );
    ring_.fill( 0 );
    end_ = 0;
    voices_.fill( { } );
}
