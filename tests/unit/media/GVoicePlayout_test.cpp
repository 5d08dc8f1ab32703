// Talks over simulated networks, in virtual time, into a device that runs by the same clock.
#include "client/media/GVoicePlayout.h"

#include "FakeSound.h"
#include "base/GBytes.h"
#include "client/media/GEchoReference.h"
#include "platform/GTime.h"
#include "support/CountAllocations.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>

namespace
{
constexpr int RATE = 8000;
constexpr int PACKET = 160; // 20 ms.
constexpr int64_t PACKET_TIME = 20000;
constexpr int64_t MILLISECOND = 1000;
constexpr int LOUDEST = 20000;
constexpr int16_t CONCEALED = 1500;
constexpr uint64_t BEGIN = 13000000000000000ULL;
uint64_t now_ = 0;

// A packet is its number and whether it is quiet; each of its samples is that number.
class FakeDecoder : public IGVoiceDecoder
{
public:
    bool decode( const char* frame, int length, GString& out ) override
    {
        if( length != 8 ) return false;
        const auto value = static_cast<int16_t>( GReadU32( frame + 4 ) ? 10 : 2000 + GReadU32( frame ) % LOUDEST );
        fill( value, PACKET, out );
        return true;
    }
    void conceal( int samples, GString& out ) override { fill( CONCEALED, ( samples + 79 ) / 80 * 80, out ); }

private:
    static void fill( int16_t value, int samples, GString& out )
    {
        out.resize( static_cast<size_t>( samples ) * 2 );
        for( int i = 0; i < samples; ++i )
            GWriteU16( out.data( ) + static_cast<ptrdiff_t>( i ) * 2, static_cast<uint16_t>( value ) );
    }
};

struct Arrival
{
    int64_t time; // From the begin.
    int number;   // From 0 on.
    bool quiet = false;
    int64_t pause = 0; // What the sender has rested before it, in all.
};

class GVoicePlayoutTest : public testing::Test
{
protected:
    void SetUp( ) override
    {
        now_ = BEGIN;
        GTimeSetSource( [] { return now_; } );
        sound.reset( );
        sound.clocked = true;
        playout.reset( GSAFENEW( GVoicePlayout, ( decoder, estimate, RATE ) ) );
    }
    void TearDown( ) override
    {
        playout.reset( );
        GTimeSetSource( nullptr );
    }
    // A packet each 20 ms of a sender whose clock is off by `ppm`; `network` tells what each takes, or a negative time for a loss.
    static std::vector<Arrival> talk( int packets, const std::function<int64_t( int )>& network, int ppm = 0 )
    {
        std::vector<Arrival> arrivals;
        for( int i = 0; i < packets; ++i )
            if( const int64_t takes = network( i ); takes >= 0 ) arrivals.push_back( { sent( i, ppm ) + takes, i } );
        std::stable_sort( arrivals.begin( ), arrivals.end( ),
                          []( const Arrival& a, const Arrival& b ) { return a.time < b.time; } );
        return arrivals;
    }
    static int64_t sent( int number, int ppm = 0 )
    {
        return number * PACKET_TIME - number * PACKET_TIME / 1000000 * ppm -
               number * PACKET_TIME % 1000000 * ppm / 1000000;
    }
    void advanceTo( uint64_t time )
    {
        while( wake && wake <= time )
        {
            now_ = std::max( now_, wake );
            update( );
        }
        now_ = time;
    }
    void update( )
    {
        const int64_t wait = playout->update( );
        ++updates;
        ASSERT_TRUE( wait > 0 || wait == -1 ) << wait;
        wake = wait < 0 ? 0 : now_ + static_cast<uint64_t>( wait );
    }
    void deliver( const Arrival& arrival )
    {
        char frame[8];
        GWriteU32( frame, static_cast<uint32_t>( arrival.number ) );
        GWriteU32( frame + 4, arrival.quiet );
        const int64_t captured = sent( arrival.number ) + arrival.pause;
        playout->put( static_cast<uint16_t>( arrival.number + 1 ), static_cast<uint32_t>( captured / 10000 ), frame,
                      8 );
        update( );
    }
    void play( const std::vector<Arrival>& arrivals )
    {
        for( const Arrival& arrival : arrivals )
        {
            advanceTo( BEGIN + static_cast<uint64_t>( arrival.time ) );
            deliver( arrival );
        }
    }
    void playOut( )
    {
        advanceTo( now_ + 1000000 );
        sound.run( );
    }
    // When a packet's first full sample is heard, from the begin; -1 when it never is.
    int64_t heardTime( int number, size_t from = 0 ) const
    {
        const auto begin = sound.output.begin( ) + static_cast<ptrdiff_t>( from );
        const auto found = std::find( begin, sound.output.end( ), static_cast<int16_t>( 2000 + number % LOUDEST ) );
        if( found == sound.output.end( ) ) return -1;
        return static_cast<int64_t>( sound.startTime - BEGIN ) + ( found - sound.output.begin( ) ) * 1000000 / RATE;
    }
    // What it takes from being sent to the ear; the fade of a first one is left out.
    int64_t delayOf( int number, int ppm = 0 ) const { return heardTime( number ) - sent( number, ppm ); }
    int64_t samplesLike( int16_t value ) const
    {
        return std::count( sound.output.begin( ), sound.output.end( ), value );
    }
    // Numbers in the order in which they are heard, each with most of its samples.
    std::vector<int> heardNumbers( ) const
    {
        std::vector<int> numbers;
        int run = 0, last = 0;
        for( const int16_t sample : sound.output )
        {
            run = sample == last ? run + 1 : 1;
            last = sample;
            if( sample >= 2000 && run == PACKET / 2 ) numbers.push_back( sample - 2000 );
        }
        return numbers;
    }
    int64_t target( ) const { return playout->getTarget( ); }

    FakeSound& sound = FakeSound::get( );
    FakeDecoder decoder;
    GJitterEstimate estimate;
    std::unique_ptr<GVoicePlayout> playout;
    uint64_t wake = 0;
    int updates = 0;
};

std::function<int64_t( int )> uniform( int64_t least, int64_t most, unsigned seed = 1 )
{
    auto random = std::make_shared<std::mt19937>( seed );
    return [=]( int ) { return std::uniform_int_distribution<int64_t>( least, most )( *random ); };
}
std::function<int64_t( int )> lossy( int percent, int64_t takes )
{
    auto random = std::make_shared<std::mt19937>( 7 );
    return [=]( int i ) -> int64_t
    { return i && i < 1995 && std::uniform_int_distribution<int>( 1, 100 )( *random ) <= percent ? -1 : takes; };
}
} // namespace

TEST_F( GVoicePlayoutTest, CleanLinkIsHeardAfterSixtyMilliseconds )
{
    play( talk( 500, []( int ) { return 0; } ) );
    playOut( );
    for( const int number : { 1, 5, 100, 499 } )
        EXPECT_NEAR( delayOf( number ), 60 * MILLISECOND, 3 * MILLISECOND ) << number;
    EXPECT_EQ( 60 * MILLISECOND, target( ) );
    EXPECT_EQ( 500U, heardNumbers( ).size( ) );
    EXPECT_EQ( 500, playout->getStatistics( ).played );
    EXPECT_EQ( 0, playout->getStatistics( ).concealed );
    EXPECT_EQ( 0, playout->getStatistics( ).shortened );
    EXPECT_EQ( GVoicePlayout::DEVICE_LATENCY, sound.latency );
}

TEST_F( GVoicePlayoutTest, FixedWayAddsOnlyItself )
{
    play( talk( 100, []( int ) { return 150 * MILLISECOND; } ) );
    playOut( );
    EXPECT_NEAR( delayOf( 50 ), 210 * MILLISECOND, 3 * MILLISECOND );
}

TEST_F( GVoicePlayoutTest, TargetFitsTheJitter )
{
    for( const int64_t jitter : { 30, 100, 300 } )
    {
        TearDown( );
        SetUp( );
        estimate = GJitterEstimate( );
        play( talk( 1500, uniform( 0, jitter * MILLISECOND ) ) );
        playOut( );
        // What the device and its steps take comes to it.
        EXPECT_GE( target( ), ( jitter + 20 ) * MILLISECOND );
        EXPECT_LE( target( ), ( jitter + 60 ) * MILLISECOND );
        // Once it is known, hardly anything comes too late.
        const auto numbers = heardNumbers( );
        const auto late =
            std::count_if( numbers.begin( ), numbers.end( ), []( int number ) { return number >= 1000; } );
        EXPECT_GE( late, 485 ) << jitter;
        EXPECT_TRUE( std::is_sorted( numbers.begin( ), numbers.end( ) ) );
    }
}

TEST_F( GVoicePlayoutTest, TargetFallsAgainWhenTheNetworkCalmsDown )
{
    const auto network = uniform( 0, 200 * MILLISECOND );
    play( talk( 4000, [&]( int i ) { return i < 1000 ? network( i ) : int64_t( 0 ); } ) );
    playOut( );
    EXPECT_EQ( 60 * MILLISECOND, target( ) );
    // Loud all the time: only the pitch may give.
    EXPECT_NEAR( delayOf( 3990 ), 60 * MILLISECOND, 15 * MILLISECOND );
    EXPECT_GT( delayOf( 1100 ), 180 * MILLISECOND );
}

TEST_F( GVoicePlayoutTest, DelayFallsQuicklyInSilence )
{
    const auto network = uniform( 0, 200 * MILLISECOND );
    auto arrivals = talk( 2600, [&]( int i ) { return i < 500 ? network( i ) : int64_t( 0 ); } );
    for( Arrival& arrival : arrivals ) arrival.quiet = arrival.number % 100 < 20;
    play( arrivals );
    playOut( );
    EXPECT_NEAR( delayOf( 1930 ), 60 * MILLISECOND, 15 * MILLISECOND );
}

TEST_F( GVoicePlayoutTest, LostPacketsAreConcealedAndTakeTheirTime )
{
    for( const int percent : { 1, 5, 20 } )
    {
        TearDown( );
        SetUp( );
        play( talk( 2000, lossy( percent, 5 * MILLISECOND ) ) );
        playOut( );
        const GVoicePlayout::Statistics& statistics = playout->getStatistics( );
        const int lost = 2000 - static_cast<int>( heardNumbers( ).size( ) );
        EXPECT_NEAR( lost, 20 * percent, 10 + 4 * percent );
        EXPECT_EQ( 2000 - statistics.played, lost );
        EXPECT_NEAR( statistics.concealed, lost, 2 );
        EXPECT_EQ( 0, statistics.skipped );
        // The sound took exactly its time, but for what a dry ring may have added.
        EXPECT_NEAR( delayOf( 1999 ) - 5 * MILLISECOND, 60 * MILLISECOND, 20 * MILLISECOND ) << percent;
        EXPECT_GT( samplesLike( CONCEALED ), lost * PACKET / 2 );
    }
}

TEST_F( GVoicePlayoutTest, PacketsOutOfOrderWithinReachAreHeardInOrder )
{
    // Each fourth one is overtaken by the next.
    play( talk( 400, []( int i ) { return i % 4 == 2 ? 21 * MILLISECOND : int64_t( 0 ); } ) );
    playOut( );
    const auto numbers = heardNumbers( );
    EXPECT_EQ( 400U, numbers.size( ) );
    EXPECT_TRUE( std::is_sorted( numbers.begin( ), numbers.end( ) ) );
    EXPECT_EQ( 0, playout->getStatistics( ).concealed );
}

TEST_F( GVoicePlayoutTest, DuplicatesAreHeardOnceAndAreNoJitter )
{
    auto arrivals = talk( 300, []( int ) { return 0; } );
    const auto again = talk( 300, []( int ) { return 400 * MILLISECOND; } );
    arrivals.insert( arrivals.end( ), again.begin( ), again.end( ) );
    std::stable_sort( arrivals.begin( ), arrivals.end( ),
                      []( const Arrival& a, const Arrival& b ) { return a.time < b.time; } );
    play( arrivals );
    playOut( );
    EXPECT_EQ( 300U, heardNumbers( ).size( ) );
    EXPECT_EQ( 60 * MILLISECOND, target( ) );
    EXPECT_EQ( 0, playout->getStatistics( ).late );
}

TEST_F( GVoicePlayoutTest, ClockOfTheSenderThatIsOffIsFollowedForAnHour )
{
    for( const int ppm : { 200, -200 } )
    {
        TearDown( );
        SetUp( );
        estimate = GJitterEstimate( );
        play( talk( 180000, uniform( 0, 3 * MILLISECOND ), ppm ) );
        playOut( );
        const GVoicePlayout::Statistics& statistics = playout->getStatistics( );
        EXPECT_EQ( 180000, statistics.played );
        EXPECT_EQ( 0, statistics.concealed ) << ppm;
        EXPECT_EQ( 1, statistics.dry ) << "at the end";
        EXPECT_EQ( 0, statistics.skipped ) << ppm;
        // 720 ms in an hour.
        EXPECT_NEAR( statistics.shortened, ppm * RATE * 3600LL / 1000000, 200 );
        EXPECT_NEAR( playout->getBufferedLength( ), 0, 1 );
        const int64_t last = static_cast<int64_t>( sound.startTime - BEGIN ) +
                             ( sound.output.rend( ) - std::find_if( sound.output.rbegin( ), sound.output.rend( ),
                                                                    []( int16_t s ) { return s > CONCEALED; } ) ) *
                                 1000000 / RATE;
        EXPECT_NEAR( last - sent( 180000, ppm ), 60 * MILLISECOND, 15 * MILLISECOND );
    }
}

TEST_F( GVoicePlayoutTest, ShortHoldUpIsHeardWholeAfterIt )
{
    // Nothing for 300 ms, then all of it at once.
    const auto held = []( int i ) { return i >= 100 && i < 115 ? sent( 115 ) - sent( i ) : int64_t( 0 ); };
    play( talk( 400, held ) );
    playOut( );
    EXPECT_EQ( 400U, heardNumbers( ).size( ) );
    EXPECT_EQ( 0, playout->getStatistics( ).skipped );
    EXPECT_GE( playout->getStatistics( ).dry, 1 );
    EXPECT_LE( delayOf( 399 ), 500 * MILLISECOND );
}

TEST_F( GVoicePlayoutTest, BurstAfterAStallLeavesNoDelay )
{
    const auto held = []( int i ) { return i >= 100 && i < 200 ? sent( 200 ) - sent( i ) : int64_t( 0 ); };
    play( talk( 400, held ) );
    playOut( );
    EXPECT_NEAR( delayOf( 201 ), 60 * MILLISECOND, 15 * MILLISECOND );
    EXPECT_NEAR( delayOf( 399 ), 60 * MILLISECOND, 15 * MILLISECOND );
    EXPECT_EQ( 60 * MILLISECOND, target( ) );
    EXPECT_GT( playout->getStatistics( ).skipped, 80 * PACKET );
}

TEST_F( GVoicePlayoutTest, LongerWayIsFollowed )
{
    for( const int64_t longer : { 300 * MILLISECOND, 2000 * MILLISECOND } )
    {
        TearDown( );
        SetUp( );
        estimate = GJitterEstimate( );
        play( talk( 3000, [=]( int i ) { return i < 500 ? 0 : longer; } ) );
        playOut( );
        EXPECT_NEAR( delayOf( 2990 ), longer + 60 * MILLISECOND, 15 * MILLISECOND );
        EXPECT_GT( heardTime( 700 ), 0 ) << "heard again within two seconds";
    }
}

TEST_F( GVoicePlayoutTest, RestOfTheTalkerIsNoJitter )
{
    // The key was let go for 400 ms, and the count went on.
    std::vector<Arrival> arrivals;
    for( int i = 0; i < 300; ++i )
    {
        const int64_t pause = i < 100 ? 0 : 400 * MILLISECOND;
        arrivals.push_back( { sent( i ) + pause, i, false, pause } );
    }
    play( arrivals );
    playOut( );
    EXPECT_EQ( 60 * MILLISECOND, target( ) );
    EXPECT_NEAR( delayOf( 299 ), 460 * MILLISECOND, 5 * MILLISECOND );
    EXPECT_NEAR( delayOf( 102 ), 460 * MILLISECOND, 5 * MILLISECOND );
}

TEST_F( GVoicePlayoutTest, CountThatBeginsAnewIsHeardAtOnce )
{
    play( talk( 100, []( int ) { return 0; } ) );
    char frame[8];
    GWriteU32( frame, 500 );
    GWriteU32( frame + 4, 0 );
    advanceTo( now_ + 20 * MILLISECOND );
    EXPECT_TRUE( playout->isWelcome( 1, 300 ) );
    EXPECT_FALSE( playout->isWelcome( 50, 100 ) ) << "only an old one";
    playout->put( 1, 300, frame, 8 );
    update( );
    playOut( );
    EXPECT_GE( heardTime( 500 ), 0 );
}

TEST_F( GVoicePlayoutTest, NextTalkBeginsWithTheJitterThatIsKnown )
{
    play( talk( 800, uniform( 0, 150 * MILLISECOND ) ) );
    const int64_t before = target( );
    sound.run( );
    playout.reset( GSAFENEW( GVoicePlayout, ( decoder, estimate, RATE ) ) );
    sound.output.clear( );
    now_ += 5000000;
    wake = 0;
    deliver( { 0, 900 } );
    EXPECT_NEAR( target( ), before, 5 * MILLISECOND );
    EXPECT_GT( before, 150 * MILLISECOND );
}

TEST_F( GVoicePlayoutTest, EndOfATalkFadesAndWakesNobody )
{
    play( talk( 50, []( int ) { return 0; } ) );
    advanceTo( now_ + 300 * MILLISECOND );
    EXPECT_EQ( 0U, wake );
    const int before = updates;
    advanceTo( now_ + 5000 * MILLISECOND );
    EXPECT_EQ( before, updates );
    sound.run( );
    EXPECT_EQ( 0, sound.output.back( ) );
    EXPECT_TRUE( playout->done( ) );
    // The bridge goes down to silence.
    EXPECT_LT( samplesLike( CONCEALED ), PACKET );
}

TEST_F( GVoicePlayoutTest, SteadyTalkNeedsNoTimer )
{
    play( talk( 100, []( int ) { return 0; } ) );
    const int before = updates;
    auto arrivals = talk( 300, []( int ) { return 0; } );
    arrivals.erase( arrivals.begin( ), arrivals.begin( ) + 100 );
    play( arrivals );
    EXPECT_EQ( before + 200, updates ) << "one for each packet";
}

TEST_F( GVoicePlayoutTest, FinishedTalkIsPlayedOutAndNotGoneOnWith )
{
    play( talk( 20, []( int ) { return 0; } ) );
    playout->finish( );
    EXPECT_FALSE( playout->done( ) );
    playOut( );
    EXPECT_TRUE( playout->done( ) );
    EXPECT_EQ( 20U, heardNumbers( ).size( ) );
    EXPECT_LE( samplesLike( CONCEALED ), 1 ) << "but for the fade of the begin";
}

TEST_F( GVoicePlayoutTest, SlowDeviceLosesNothingOfTheBegin )
{
    sound.startDelay = 120 * MILLISECOND;
    play( talk( 300, []( int ) { return 0; } ) );
    playOut( );
    EXPECT_EQ( 300U, heardNumbers( ).size( ) );
    EXPECT_LT( delayOf( 299 ), 200 * MILLISECOND );
}

TEST_F( GVoicePlayoutTest, AbsentServerIsAskedOnceASecondAndFoundAgain )
{
    TestLog::expect( "WARNING Cannot play audio, ignoring." );
    sound.available = false;
    auto arrivals = talk( 300, []( int ) { return 0; } );
    play( { arrivals.begin( ), arrivals.begin( ) + 150 } );
    EXPECT_EQ( 1, TestLog::count( "WARNING Cannot play audio" ) );
    sound.available = true;
    play( { arrivals.begin( ) + 150, arrivals.end( ) } );
    playOut( );
    EXPECT_LE( heardNumbers( ).front( ), 201 );
    EXPECT_NEAR( delayOf( 299 ), 60 * MILLISECOND, 5 * MILLISECOND );
}

TEST_F( GVoicePlayoutTest, LostServerIsFoundAgainWithinTheTalk )
{
    TestLog::expect( "WARNING Sound output lost, trying again." );
    auto arrivals = talk( 400, []( int ) { return 0; } );
    play( { arrivals.begin( ), arrivals.begin( ) + 100 } );
    sound.lost = true;
    sound.available = false;
    play( { arrivals.begin( ) + 100, arrivals.begin( ) + 200 } );
    sound.lost = false;
    sound.available = true;
    sound.output.clear( );
    play( { arrivals.begin( ) + 200, arrivals.end( ) } );
    playOut( );
    EXPECT_EQ( 2, sound.opened );
    EXPECT_EQ( 1, sound.closed );
    EXPECT_LE( heardNumbers( ).front( ), 260 );
    EXPECT_EQ( 399, heardNumbers( ).back( ) );
}

TEST_F( GVoicePlayoutTest, ClockThatIsSetDisturbsLittle )
{
    play( talk( 100, []( int ) { return 0; } ) );
    auto arrivals = talk( 1000, []( int ) { return 0; } );
    arrivals.erase( arrivals.begin( ), arrivals.begin( ) + 100 );
    // The device goes by its own clock.
    for( Arrival& arrival : arrivals ) arrival.time += 3600000000LL;
    sound.startTime += 3600000000ULL;
    wake += 3600000000ULL;
    play( arrivals );
    playOut( );
    const auto numbers = heardNumbers( );
    EXPECT_GE( numbers.size( ), 940U );
    EXPECT_EQ( 999, numbers.back( ) );
    EXPECT_LT( heardTime( 999 ) - 3600000000LL - sent( 999 ), 3600000000LL + 200 * MILLISECOND );
}

TEST_F( GVoicePlayoutTest, BytesThatAreNoPacketAreConcealed )
{
    TestLog::expect( "WARNING Received invalid audio frame packet, ignoring." );
    play( talk( 20, []( int ) { return 0; } ) );
    advanceTo( now_ + 20 * MILLISECOND );
    playout->put( 21, 40, "garbage", 7 );
    update( );
    advanceTo( now_ + 20 * MILLISECOND );
    deliver( { 0, 21 } );
    playOut( );
    EXPECT_NEAR( delayOf( 21 ), 60 * MILLISECOND, 3 * MILLISECOND );
    EXPECT_EQ( 1, playout->getStatistics( ).concealed );
}

TEST_F( GVoicePlayoutTest, AnyNumbersAndStampsAreBorne )
{
    std::mt19937 random( 3 );
    for( int i = 0; i < 20000; ++i )
    {
        char frame[8];
        GWriteU32( frame, random( ) );
        GWriteU32( frame + 4, random( ) % 2 );
        const auto sequence = static_cast<uint16_t>( random( ) % 3 ? i : random( ) );
        const uint32_t stamp = random( ) % 3 ? static_cast<uint32_t>( i * 2 ) : random( );
        playout->put( sequence, stamp, frame, 8 );
        update( );
        EXPECT_LE( playout->getBufferedLength( ), 1000000 );
        advanceTo( now_ + random( ) % 40000 );
    }
}

TEST_F( GVoicePlayoutTest, WhatIsHeardIsHeldAgainstTheMicrophone )
{
    GEchoReference_clear( );
    play( talk( 50, []( int ) { return 0; } ) );
    int16_t samples[50] = { };
    // In the middle of the packet, when it is heard.
    const auto heard = BEGIN + static_cast<uint64_t>( sent( 30 ) + 60 * MILLISECOND + PACKET_TIME / 2 );
    ASSERT_TRUE( GEchoReference_read( GEchoReference_position( heard ), 1.0, samples, 50 ) );
    EXPECT_NEAR( 2030, samples[25], 3 );
    GEchoReference_clear( );
}

TEST_F( GVoicePlayoutTest, SteadyTalkTakesNothingFromTheHeap )
{
    sound.output.reserve( 1000000 );
    auto arrivals = talk( 600, lossy( 5, 0 ) );
    const auto half = arrivals.begin( ) + static_cast<ptrdiff_t>( arrivals.size( ) / 2 );
    play( { arrivals.begin( ), half } );
    const std::vector<Arrival> rest( half, arrivals.end( ) );
    EXPECT_LE( countAllocations( [&] { play( rest ); } ), 0 );
}

TEST_F( GVoicePlayoutTest, WhatTheDevicePassesOnTheWayIsNotHeardARoundLater )
{
    play( talk( 100, []( int ) { return 0; } ) );
    advanceTo( now_ + PACKET_TIME );
    // A busy machine: 100 ms between looking at the ring and writing.
    sound.beforeWrite = []
    {
        now_ += 100 * MILLISECOND;
        FakeSound::get( ).beforeWrite = nullptr;
    };
    deliver( { 0, 100 } );
    playOut( );
    advanceTo( now_ + 2000 * MILLISECOND );
    sound.run( );
    EXPECT_EQ( -1, heardTime( 100 ) );
}
