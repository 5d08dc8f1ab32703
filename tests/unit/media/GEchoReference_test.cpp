#include "client/media/GEchoReference.h"

#include "support/CountAllocations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace
{
constexpr uint64_t SECOND = 1000000;
constexpr uint64_t NOW = 13500000000000000;
using Samples = std::vector<int16_t>;

class GEchoReference : public testing::Test
{
protected:
    GEchoReference( ) { GEchoReference_clear( ); }

    static Samples tone( int count, int frequency = GECHO_RATE, double hertz = 440, int first = 0 )
    {
        Samples samples( static_cast<size_t>( count ) );
        for( int i = 0; i < count; ++i )
            samples[static_cast<size_t>( i )] = static_cast<int16_t>(
                std::lround( 8000 * std::sin( 2 * std::numbers::pi * hertz * ( first + i ) / frequency ) ) );
        return samples;
    }
    static void write( uint64_t heardAt, const Samples& samples, int frequency = GECHO_RATE,
                       const void* voice = nullptr )
    {
        GEchoReference_write( heardAt, frequency, samples.data( ), static_cast<int>( samples.size( ) ), voice );
    }
    static Samples read( uint64_t time, int count )
    {
        Samples samples( static_cast<size_t>( count ), 1 );
        GEchoReference_read( GEchoReference_position( time ), 1, samples.data( ), count );
        return samples;
    }
    // The greatest difference to a tone that is heard from NOW on.
    static int offTone( const Samples& heard, int first )
    {
        const Samples wanted = tone( static_cast<int>( heard.size( ) ), GECHO_RATE, 440, first );
        int worst = 0;
        for( size_t i = 0; i < heard.size( ); ++i ) worst = std::max( worst, std::abs( heard[i] - wanted[i] ) );
        return worst;
    }
};
} // namespace

TEST_F( GEchoReference, WhatIsWrittenIsReadAtItsTime )
{
    write( NOW, tone( 2200 ) );
    EXPECT_EQ( read( NOW, 2100 ), tone( 2100 ) );
    EXPECT_EQ( read( NOW - SECOND, 100 ), Samples( 100, 0 ) );
    EXPECT_EQ( read( NOW + SECOND, 100 ), Samples( 100, 0 ) );
}

TEST_F( GEchoReference, SilenceIsTold )
{
    Samples samples( 100 );
    EXPECT_FALSE( GEchoReference_read( GEchoReference_position( NOW ), 1, samples.data( ), 100 ) );
    write( NOW, tone( 200 ) );
    EXPECT_TRUE( GEchoReference_read( GEchoReference_position( NOW ), 1, samples.data( ), 100 ) );
}

TEST_F( GEchoReference, VoicesAreAddedUpAndHeld )
{
    const int first = 0;
    const int second = 0;
    write( NOW, Samples( 500, 20000 ), GECHO_RATE, &first );
    write( NOW, Samples( 500, -500 ), GECHO_RATE, &second );
    EXPECT_EQ( read( NOW + 10000, 10 ), Samples( 10, 19500 ) );
    const int third = 0;
    write( NOW, Samples( 500, 20000 ), GECHO_RATE, &third );
    EXPECT_EQ( read( NOW + 10000, 10 ), Samples( 10, 32767 ) );
}

// The player tells the times from the device's clock, which wavers by milliseconds.
TEST_F( GEchoReference, WaveringTimesMakeNoSeams )
{
    for( int piece = 0; piece < 100; ++piece )
        write( NOW + static_cast<uint64_t>( piece ) * SECOND / 50 + static_cast<uint64_t>( piece % 3 ) * 2000,
               tone( 440, GECHO_RATE, 440, piece * 440 ) );
    const Samples heard = read( NOW + SECOND, 20000 );
    int worst = 0;
    for( size_t i = 2; i < heard.size( ); ++i ) // A tone of 440 Hz obeys x0 = 2 cos( w ) x1 - x2.
        worst = std::max( worst, static_cast<int>( std::abs(
                                     heard[i] - 2 * std::cos( 2 * std::numbers::pi * 440 / GECHO_RATE ) * heard[i - 1] +
                                     heard[i - 2] ) ) );
    EXPECT_LT( worst, 10 );
}

TEST_F( GEchoReference, VoiceThatStopsAndBeginsAgainIsHeardAtItsNewTime )
{
    write( NOW, tone( 440 ) );
    write( NOW + SECOND, Samples( 440, 77 ) );
    EXPECT_EQ( read( NOW + SECOND / 2, 100 ), Samples( 100, 0 ) );
    EXPECT_EQ( read( NOW + SECOND + 1000, 100 ), Samples( 100, 77 ) );
}

TEST_F( GEchoReference, OtherRatesAreConverted )
{
    for( const int frequency : { 8000, 16000, 44100, 48000 } )
    {
        GEchoReference_clear( );
        for( int piece = 0; piece < 50; ++piece )
            write( NOW + static_cast<uint64_t>( piece ) * SECOND / 50,
                   tone( frequency / 50, frequency, 440, piece * frequency / 50 ), frequency );
        EXPECT_LT( offTone( read( NOW + SECOND / 2, 2200 ), GECHO_RATE / 2 ), 120 ) << frequency;
    }
}

TEST_F( GEchoReference, ClockThatIsSetBackBeginsAnew )
{
    write( NOW, tone( 440 ) );
    write( NOW - 3600 * SECOND, tone( 440 ) );
    EXPECT_EQ( read( NOW - 3600 * SECOND, 400 ), tone( 400 ) );
    EXPECT_EQ( read( NOW, 100 ), Samples( 100, 0 ) );
}

TEST_F( GEchoReference, WhatMakesNoSenseIsIgnored )
{
    write( NOW, tone( 440 ), 0 );
    write( NOW, tone( 440 ), -5 );
    write( NOW, Samples( 1, 5 ) );
    GEchoReference_write( NOW, GECHO_RATE, nullptr, 0 );
    GEchoReference_write( NOW, GECHO_RATE, nullptr, 1 << 30 );
    EXPECT_EQ( read( NOW, 100 ), Samples( 100, 0 ) );
}

TEST_F( GEchoReference, ManyVoicesTakeTheSlotsOfThoseThatAreGone )
{
    const Samples voices( 100 );
    for( size_t i = 0; i < voices.size( ); ++i )
        write( NOW + i * SECOND / 10, Samples( 440, 50 ), GECHO_RATE, &voices[i] );
    EXPECT_EQ( read( NOW + 99 * SECOND / 10 + 5000, 100 ), Samples( 100, 50 ) );
}

TEST_F( GEchoReference, WritingAndReadingAllocateNothing )
{
    const Samples piece = tone( 440 );
    Samples out( 160 );
    EXPECT_EQ( countAllocations(
                   [&]
                   {
                       for( uint64_t i = 0; i < 100; ++i )
                       {
                           write( NOW + i * 20000, piece );
                           GEchoReference_read( GEchoReference_position( NOW ), 1, out.data( ), 160 );
                       }
                   } ),
               0 );
}
