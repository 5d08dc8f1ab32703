// The playback ring on a sound server of its own (tests/support/with-sound).
#include "platform/GSoundRing.h"

#include "base/GTypes.h"
#include "support/TestLog.h"
#include "support/TestSound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace
{
using TestSound::becomes;

constexpr int RATE = 8000;
constexpr int SIZE = 2 * RATE; // One second.

int distance( int from, int to )
{
    return ( to - from + SIZE ) % SIZE;
}

// A tone that fits into the ring without a seam.
GString tone( int frequency )
{
    GString samples;
    for( int i = 0; i < RATE; i++ )
    {
        const auto sample = static_cast<int16_t>( 12000 * std::sin( 2 * std::numbers::pi * frequency * i / RATE ) );
        samples += static_cast<char>( sample & 255 );
        samples += static_cast<char>( sample >> 8 );
    }
    return samples;
}

int periodsOf( const std::vector<int16_t>& samples )
{
    int crossings = 0;
    for( size_t i = 1; i < samples.size( ); i++ ) crossings += ( samples[i - 1] < 0 ) != ( samples[i] < 0 );
    return crossings / 2;
}

struct GSoundRingTest : public testing::Test
{
    void SetUp( ) override
    {
        ring = GSoundRingOpen( RATE, SIZE );
        ASSERT_TRUE( ring );
    }
    ~GSoundRingTest( ) override
    {
        if( ring ) GSoundRingClose( ring );
    }
    GSoundRing ring = nullptr;
    int play = -1, write = -1;
};
} // namespace

TEST_F( GSoundRingTest, CursorsStandAtTheBeginUntilItPlays )
{
    ASSERT_TRUE( GSoundRingGetCursors( ring, play, write ) );
    EXPECT_EQ( play, 0 );
    EXPECT_EQ( write, 0 );
    EXPECT_TRUE( GSoundRingIsAlive( ring ) );
}

TEST_F( GSoundRingTest, PlayCursorFollowsTheWriteCursorAroundTheRing )
{
    GSoundRingPlay( ring );
    int64_t played = 0, written = 0, farthest = 0;
    int lastPlay = 0, lastWrite = 0;
    EXPECT_TRUE( becomes(
        [&]
        {
            if( !GSoundRingGetCursors( ring, play, write ) ) return false;
            EXPECT_EQ( play % 2, 0 );
            EXPECT_EQ( write % 2, 0 );
            EXPECT_TRUE( play >= 0 && play < SIZE && write >= 0 && write < SIZE );
            played += distance( lastPlay, play );
            written += distance( lastWrite, write );
            lastPlay = play;
            lastWrite = write;
            EXPECT_LE( played, written ) << "nothing is heard before it was taken";
            farthest = std::max( farthest, written - played );
            return played > SIZE * 5 / 4;
        } ) );
    EXPECT_GT( farthest, 0 );
    // Half of the ring stays for the owner whatever the server does.
    EXPECT_LT( farthest, SIZE / 2 );
}

TEST_F( GSoundRingTest, CursorsMoveAtTheRateOfTheSamples )
{
    GSoundRingPlay( ring );
    int first = 0;
    ASSERT_TRUE( becomes( [&] { return GSoundRingGetCursors( ring, first, write ) && first > 0; } ) );
    const auto start = std::chrono::steady_clock::now( );
    ASSERT_TRUE(
        becomes( [&] { return GSoundRingGetCursors( ring, play, write ) && distance( first, play ) > SIZE / 2; } ) );
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now( ) - start;
    const double seconds = static_cast<double>( distance( first, play ) ) / SIZE;
    // Never faster than the clock, but for a step of the server's.
    EXPECT_LT( seconds, elapsed.count( ) + 0.2 );
}

TEST_F( GSoundRingTest, WhatIsWrittenIsHeardOverTheSeam )
{
    const GString samples = tone( 500 );
    EXPECT_TRUE( GSoundRingWrite( ring, SIZE - 1000, samples.data( ), SIZE ) ) << "wraps";
    TestSound::Recorder recorder;
    GSoundRingPlay( ring );
    const std::vector<int16_t> heard = recorder.hear( RATE * 3 / 2 );
    EXPECT_EQ( heard.size( ), static_cast<size_t>( RATE * 3 / 2 ) );
    EXPECT_NEAR( periodsOf( heard ), 750, 5 );
}

TEST_F( GSoundRingTest, WhatIsWrittenAheadOfTheWriteCursorComesInTime )
{
    GSoundRingPlay( ring );
    TestSound::Recorder recorder;
    ASSERT_TRUE( becomes( [&] { return GSoundRingGetCursors( ring, play, write ) && play > 0; } ) );
    const GString samples = tone( 1000 );
    const int free = distance( write, play ) / 2 * 2;
    ASSERT_GT( free, SIZE / 2 );
    EXPECT_TRUE( GSoundRingWrite( ring, write, samples.data( ), free ) );
    EXPECT_NEAR( periodsOf( recorder.hear( RATE / 4 ) ), 250, 5 );
}

TEST_F( GSoundRingTest, StoppedRingStandsStillAndGoesOn )
{
    GSoundRingPlay( ring );
    ASSERT_TRUE( becomes( [&] { return GSoundRingGetCursors( ring, play, write ) && play > 0; } ) );
    GSoundRingStop( ring );
    int still = 0, stillWrite = 0;
    ASSERT_TRUE( GSoundRingGetCursors( ring, play, stillWrite ) );
    for( int i = 0; i < 10; i++ )
    {
        ASSERT_TRUE( GSoundRingGetCursors( ring, still, write ) );
        EXPECT_EQ( write, stillWrite );
        std::this_thread::sleep_for( std::chrono::milliseconds( 10 ) );
    }
    GSoundRingPlay( ring );
    EXPECT_TRUE( becomes( [&] { return GSoundRingGetCursors( ring, play, write ) && write != stillWrite; } ) );
}

TEST_F( GSoundRingTest, PositionsRiseWithTheCursors )
{
    int64_t heard = -1, taken = -1;
    ASSERT_TRUE( GSoundRingGetPositions( ring, heard, taken ) );
    EXPECT_EQ( heard, 0 );
    EXPECT_EQ( taken, 0 );
    GSoundRingPlay( ring );
    int64_t before = 0;
    EXPECT_TRUE( becomes(
        [&]
        {
            EXPECT_TRUE( GSoundRingGetPositions( ring, heard, taken ) );
            EXPECT_GE( heard, before );
            EXPECT_LE( heard, taken );
            before = heard;
            return heard > RATE * 5 / 4;
        } ) )
        << "beyond the ring's size";
}

TEST_F( GSoundRingTest, WhatWasTakenIsSilenceAfterwards )
{
    GSoundRingClearTaken( ring );
    const GString samples = tone( 500 );
    EXPECT_TRUE( GSoundRingWrite( ring, 0, samples.data( ), SIZE ) );
    TestSound::Recorder recorder;
    GSoundRingPlay( ring );
    std::vector<int16_t> heard = recorder.hear( RATE * 2 );
    heard.erase( heard.begin( ), heard.begin( ) + RATE * 3 / 2 );
    EXPECT_EQ( *std::max_element( heard.begin( ), heard.end( ) ), 0 );
}

TEST_F( GSoundRingTest, WhatTheDeviceHasPassedIsLeftOut )
{
    GSoundRingClearTaken( ring );
    GSoundRingPlay( ring );
    int64_t heard = 0, taken = 0;
    ASSERT_TRUE( becomes( [&] { return GSoundRingGetPositions( ring, heard, taken ) && heard > RATE / 10; } ) );
    const std::vector<int16_t> loud( RATE / 50, 12000 );
    EXPECT_TRUE( GSoundRingWriteAt( ring, 0, loud.data( ), RATE / 50 ) ) << "passed";
    EXPECT_TRUE( GSoundRingWriteAt( ring, taken + RATE / 2, loud.data( ), RATE / 50 ) ) << "to come";
    TestSound::Recorder recorder;
    const std::vector<int16_t> samples = recorder.hear( RATE );
    const auto count = std::count_if( samples.begin( ), samples.end( ), []( int16_t s ) { return s > 500; } );
    EXPECT_NEAR( static_cast<double>( count ), RATE / 50, RATE / 100 );
}

TEST_F( GSoundRingTest, LittleLatencyIsGivenWhenItIsAskedFor )
{
    GSoundRing quick = GSoundRingOpen( RATE, SIZE, 25000 );
    ASSERT_TRUE( quick );
    GSoundRingPlay( quick );
    GSoundRingPlay( ring );
    int64_t heard = 0, taken = 0, most = 0, mostOfOther = 0;
    EXPECT_TRUE( becomes(
        [&]
        {
            EXPECT_TRUE( GSoundRingGetPositions( ring, heard, taken ) );
            if( heard > 0 ) mostOfOther = std::max( mostOfOther, taken - heard );
            EXPECT_TRUE( GSoundRingGetPositions( quick, heard, taken ) );
            if( heard > 0 ) most = std::max( most, taken - heard );
            return heard > RATE;
        } ) );
    EXPECT_LT( most, mostOfOther ) << "samples";
    GSoundRingClose( quick );
}

TEST_F( GSoundRingTest, RingsPlayBesideEachOther )
{
    GSoundRing other = GSoundRingOpen( 22000, 44000 );
    ASSERT_TRUE( other );
    GSoundRingPlay( other );
    GSoundRingPlay( ring );
    EXPECT_TRUE( becomes( [&] { return GSoundRingGetCursors( ring, play, write ) && play > 0; } ) );
    EXPECT_TRUE( becomes( [&] { return GSoundRingGetCursors( other, play, write ) && play > 0; } ) );
    GSoundRingClose( other );
}

TEST( GSoundRing, RateThatTheServerRefusesGivesNoRing )
{
    EXPECT_EQ( GSoundRingOpen( 100000000, 2 ), nullptr );
    EXPECT_FALSE( GSoundRingIsAlive( nullptr ) );
}

TEST( GSoundRingDeathTest, MistakesOfTheOwnerAbort )
{
    const auto writeTooMuch = []
    {
        GSoundRing ring = GSoundRingOpen( RATE, SIZE );
        GSoundRingWrite( ring, 0, GString( SIZE + 2, 'x' ).data( ), SIZE + 2 );
    };
    EXPECT_DEATH( writeTooMuch( ), "at < size && left <= size" );
    EXPECT_DEATH( GSoundRingOpen( 0, 2 ), "frequency > 0" );
    EXPECT_DEATH( GSoundRingOpen( RATE, 2, 0 ), "latency > 0" );
    EXPECT_DEATH( GSoundRingOpen( RATE, 3 ), "bytes % 2|BYTES_PER_SAMPLE" );
    EXPECT_DEATH( GSoundRingClose( nullptr ), "ring" );
}
