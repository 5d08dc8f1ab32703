#include "client/media/GVideoRenderer.h"

#include "MediaFixture.h"
#include "client/media/GEchoReference.h"
#include "support/CountAllocations.h"

#include <chrono>
#include <thread>

namespace
{
constexpr int64_t HALF_SECOND = 500000;
constexpr int RATE = 8000;
constexpr int SECOND_BYTES = RATE * 2;

// The feeders run on threads of their own: give them a bounded time to do what the test counts on.
bool eventually( const std::function<bool( )>& condition )
{
    for( int i = 0; i < 1000; ++i )
    {
        if( condition( ) ) return true;
        std::this_thread::sleep_for( std::chrono::milliseconds( 5 ) );
    }
    return false;
}
} // namespace

class GVideoRendererTest : public MediaFixture
{
protected:
    void SetUp( ) override
    {
        MediaFixture::SetUp( );
        TestLog::allow( "WARNING Clipping audio=" );
        TestLog::allow( "WARNING Skipping ahead of danger zone" );
        // Feeders that wake often instead of five times a second keep the tests short.
        rests = 0;
        GThreadSetSleep(
            []( int64_t )
            {
                ++rests;
                std::this_thread::sleep_for( std::chrono::milliseconds( 2 ) );
            } );
        renderer.reset( GSAFENEW( GVideoRenderer, ( instance.get( ), u"ben_Image", HALF_SECOND ) ) );
    }
    void TearDown( ) override
    {
        renderer.reset( );
        GThreadSetSleep( nullptr );
        MediaFixture::TearDown( );
    }
    void queueSeconds( double seconds )
    {
        const GString samples( static_cast<size_t>( seconds * SECOND_BYTES ), 'a' );
        renderer->queueAudio( 1000000, GWaveFormatMono16( RATE ), samples.data( ),
                              static_cast<int>( samples.size( ) ) );
    }
    GString ring( )
    {
        const std::scoped_lock lock( FakeSound::get( ).mutex );
        return FakeSound::get( ).ring;
    }
    void moveCursors( int play, int write )
    {
        const std::scoped_lock lock( FakeSound::get( ).mutex );
        FakeSound::get( ).play = play;
        FakeSound::get( ).write = write;
    }

    static inline std::atomic<int> rests; // Of all feeders.
    std::unique_ptr<GVideoRenderer> renderer;
};

TEST_F( GVideoRendererTest, SoundStartsOnceThePrebufferIsFull )
{
    queueSeconds( 0.5 );
    EXPECT_EQ( 0, FakeSound::get( ).opened );
    EXPECT_EQ( 1000000, renderer->getAudioBufferedLength( ) );
    queueSeconds( 0.1 );
    EXPECT_EQ( 1, FakeSound::get( ).opened );
    EXPECT_TRUE( FakeSound::get( ).playing );
    EXPECT_EQ( RATE, FakeSound::get( ).frequency );
    const GString bytes = ring( );
    ASSERT_EQ( static_cast<size_t>( SECOND_BYTES ), bytes.size( ) );
    EXPECT_EQ( 'a', bytes[9599] );
    EXPECT_EQ( '\0', bytes[9600] );
    EXPECT_TRUE( renderer->done( ) );
}

TEST_F( GVideoRendererTest, SpurtBelowThePrebufferPlaysAfterFinish )
{
    queueSeconds( 0.2 );
    EXPECT_FALSE( renderer->done( ) );
    renderer->finish( );
    EXPECT_TRUE( FakeSound::get( ).playing );
    EXPECT_EQ( 'a', ring( )[3199] );
    EXPECT_EQ( '\0', ring( )[3200] );
}

TEST_F( GVideoRendererTest, FeederWritesBehindTheFirstFillAndSilenceAfterIt )
{
    queueSeconds( 0.6 );
    moveCursors( 100, 500 );
    const GString more( 1000, 'b' );
    renderer->queueAudio( 2000000, GWaveFormatMono16( RATE ), more.data( ), 1000 );
    ASSERT_TRUE( eventually( [this] { return ring( )[9600] == 'b'; } ) );
    const GString bytes = ring( );
    EXPECT_EQ( 'b', bytes[10599] );
    EXPECT_EQ( '\0', bytes[10600] );
    EXPECT_TRUE( renderer->done( ) );
}

TEST_F( GVideoRendererTest, WritePositionInsideTheDangerZoneSkipsToTheWriteCursor )
{
    TestLog::expect( "WARNING Skipping ahead of danger zone" );
    queueSeconds( 0.6 );
    moveCursors( 9500, 10000 ); // The next write, 9600, lies between them.
    ASSERT_TRUE( eventually( [] { return TestLog::contains( "Skipping ahead of danger zone" ); } ) );
    const GString more( 200, 'c' );
    renderer->queueAudio( 2000000, GWaveFormatMono16( RATE ), more.data( ), 200 );
    ASSERT_TRUE( eventually( [this] { return ring( )[10000] == 'c'; } ) );
    EXPECT_NE( 'c', ring( )[9999] );
}

TEST_F( GVideoRendererTest, LostRingEmptiesTheQueueAndKeepsTheFeeder )
{
    queueSeconds( 0.6 );
    {
        const std::scoped_lock lock( FakeSound::get( ).mutex );
        FakeSound::get( ).lost = true;
    }
    queueSeconds( 0.3 );
    EXPECT_TRUE( eventually( [this] { return renderer->done( ); } ) );
    const int reads = FakeSound::get( ).reads;
    EXPECT_TRUE( eventually( [reads] { return FakeSound::get( ).reads > reads + 2; } ) );
}

TEST_F( GVideoRendererTest, WithoutASoundDeviceOnlyTheSoundIsLost )
{
    TestLog::expect( "WARNING Cannot play audio, ignoring." );
    FakeSound::get( ).available = false;
    queueSeconds( 0.6 );
    EXPECT_EQ( 0, FakeSound::get( ).opened );
}

TEST_F( GVideoRendererTest, VideoAlonePassesAtOnceWithoutFeeders )
{
    renderer->queueVideo( 5, { GIT_RGB24, 4, 2 }, GString( 24, 'p' ) );
    EXPECT_EQ( GString( 24, 'p' ), instance->getRaw( u"ben_Image" ) );
    EXPECT_EQ( 0, FakeSound::get( ).opened );
    EXPECT_EQ( 0, renderer->getVideoBufferedLength( ) );
}

TEST_F( GVideoRendererTest, VideoWaitsForTheAudioClockAndThenRunsOut )
{
    queueSeconds( 0.1 );
    renderer->queueVideo( 1000, { GIT_RGB24, 4, 2 }, GString( 24, 'p' ) );
    renderer->queueVideo( 201000, { GIT_RGB24, 4, 2 }, GString( 24, 'q' ) );
    EXPECT_EQ( 200000, renderer->getVideoBufferedLength( ) );
    ASSERT_TRUE( eventually( [] { return rests > 2; } ) );
    EXPECT_FALSE( instance->isSet( u"ben_Image" ) ) << "the feeder looked and waits";
    queueSeconds( 0.5 );
    EXPECT_TRUE( eventually( [this] { return instance->getRaw( u"ben_Image" ) == GString( 24, 'q' ); } ) );
}

TEST_F( GVideoRendererTest, DryQueueKeepsTheVideoGateOpen )
{
    queueSeconds( 0.6 );
    ASSERT_TRUE( eventually( [this] { return renderer->done( ) && FakeSound::get( ).reads > 2; } ) );
    renderer->queueVideo( 1000, { GIT_RGB24, 4, 2 }, GString( 24, 'r' ) );
    EXPECT_TRUE( eventually( [this] { return instance->getRaw( u"ben_Image" ) == GString( 24, 'r' ); } ) );
}

TEST_F( GVideoRendererTest, DestructionStopsAndClosesTheRing )
{
    queueSeconds( 0.6 );
    renderer.reset( );
    EXPECT_FALSE( FakeSound::get( ).playing );
    EXPECT_EQ( 1, FakeSound::get( ).closed );
}

using GVideoRendererDeathTest = GVideoRendererTest;
TEST_F( GVideoRendererDeathTest, NewFormatOnAnOldRendererAborts )
{
    EXPECT_DEATH(
        {
            renderer->queueAudio( 0, GWaveFormatMono16( 8000 ), "aa", 2 );
            renderer->queueAudio( 0, GWaveFormatMono16( 16000 ), "aa", 2 );
        },
        "memcmp\\( &_audioFormat, &format" );
}

TEST_F( GVideoRendererTest, FeederWritesOverTheSeamOfTheRingInOneRound )
{
    // A feeder rests until it is let go.
    static std::atomic<int> rounds;
    rounds = 1;
    GThreadSetSleep(
        []( int64_t )
        {
            ++rests;
            while( rests >= rounds ) std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
        } );
    queueSeconds( 0.95 );
    ASSERT_TRUE( eventually( [] { return rests == 1; } ) );
    // All of the first fill has been heard; the next stands before the end of the ring.
    moveCursors( 15000, 15100 );
    const GString more( 3000, 'd' );
    renderer->queueAudio( 2000000, GWaveFormatMono16( RATE ), more.data( ), 3000 );
    rounds = 2;
    ASSERT_TRUE( eventually( [] { return rests == 2; } ) );
    const GString bytes = ring( );
    rounds = 1000000;
    EXPECT_EQ( 'a', bytes[15199] );
    EXPECT_EQ( 'd', bytes[15200] );
    EXPECT_EQ( 'd', bytes[15999] );
    EXPECT_EQ( 'd', bytes[2199] );
    EXPECT_EQ( '\0', bytes[2200] );
}

TEST_F( GVideoRendererTest, WhatIsPlayedIsHeldAgainstTheMicrophone )
{
    GEchoReference_clear( );
    const uint64_t start = now;
    queueSeconds( 0.6 );
    int16_t samples[100] = { };
    const double at = GEchoReference_position( start + 300000 );
    ASSERT_TRUE( GEchoReference_read( at, 1.0, samples, 100 ) );
    EXPECT_NE( 0, samples[50] );
    GEchoReference_clear( );
}

TEST_F( GVideoRendererTest, PictureAndSoundTakeNothingFromTheHeapWhenTheyAreQueued )
{
    const GString sound( 400, 'a' );
    const GString pixels( 24, 'p' );
    const auto queue = [&]( int count )
    {
        for( int i = 0; i < count; ++i )
        {
            renderer->queueAudio( 1000000, GWaveFormatMono16( RATE ), sound.data( ), 400 );
            renderer->queueVideo( 1000000, { GIT_RGB24, 4, 2 }, pixels );
        }
    };
    FakeSound::get( ).available = false;
    TestLog::expect( "WARNING Cannot play audio, ignoring." );
    queue( 100 );
    EXPECT_LE( countAllocations( [&] { queue( 100 ); } ), 0 );
}
