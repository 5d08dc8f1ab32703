#include "client/media/GVoiceStretch.h"

#include <algorithm>
#include <cstdlib>

namespace
{
constexpr int LOUD_SHARE = 200;
constexpr int FULL = 256;

void append( GString& out, const int16_t* samples, int count )
{
    out.append( reinterpret_cast<const char*>( samples ), static_cast<size_t>( count ) * sizeof( int16_t ) );
}

int shortenQuiet( const int16_t* samples, int count, int less, GString& out )
{
    less = std::clamp( less, -( count / 2 ), count / 2 );
    const int head = ( count - std::abs( less ) ) / 2;
    append( out, samples, less < 0 ? head - less : head );
    const int tail = less < 0 ? head : head + less;
    append( out, samples + tail, count - tail );
    return less;
}

int shortenLoud( const int16_t* samples, int count, int less, GString& out )
{
    const int most = std::max( count / LOUD_SHARE, 1 );
    less = std::clamp( less, -most, most );
    const int made = count - less;
    for( int i = 0; i < made; ++i )
    {
        const int64_t place = made < 2 ? 0 : static_cast<int64_t>( i ) * ( count - 1 ) * FULL / ( made - 1 );
        const int at = static_cast<int>( place / FULL );
        const int part = static_cast<int>( place % FULL );
        const int next = std::min( at + 1, count - 1 );
        const auto sample = static_cast<int16_t>( ( samples[at] * ( FULL - part ) + samples[next] * part ) / FULL );
        append( out, &sample, 1 );
    }
    return less;
}
} // namespace

int GVoicePeak( const int16_t* samples, int count )
{
    int peak = 0;
    for( int i = 0; i < count; ++i ) peak = std::max( peak, std::abs( static_cast<int>( samples[i] ) ) );
    return peak;
}

int GVoiceShorten( const int16_t* samples, int count, int less, bool quiet, GString& out )
{
    if( count < 2 ) less = 0;
    if( less ) return quiet ? shortenQuiet( samples, count, less, out ) : shortenLoud( samples, count, less, out );
    append( out, samples, count );
    return 0;
}

void GVoiceFade( int16_t* samples, int count, int from, int to )
{
    for( int i = 0; i < count; ++i )
        samples[i] = static_cast<int16_t>( samples[i] * ( from + ( to - from ) * i / count ) / FULL );
}
