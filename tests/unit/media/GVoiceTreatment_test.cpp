#include "client/media/GVoiceTreatment.h"

#include "client/media/GEchoReference.h"
#include "support/CountAllocations.h"
#include "support/TestClock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace
{
constexpr int RATE = 22000;
constexpr int BUFFER = 320; // Two codec frames.
constexpr int DELAY = 160;  // Of the treatment.
using Samples = std::vector<int16_t>;

// Noise that is the same in every run.
class Noise
{
public:
    explicit Noise( uint32_t seed ) : _state( seed ) {}
    // Effective value 1.
    double next( )
    {
        double sum = 0;
        for( int i = 0; i < 12; ++i )
        {
            _state = _state * 1664525 + 1013904223;
            sum += _state / 4294967296.0;
        }
        return sum - 6;
    }

private:
    uint32_t _state;
};

Samples noise( int count, double effective, uint32_t seed )
{
    Noise source( seed );
    Samples samples( static_cast<size_t>( count ) );
    for( int16_t& sample : samples ) sample = static_cast<int16_t>( std::lround( effective * source.next( ) ) );
    return samples;
}

// Something like speech: a buzz of a gliding pitch with two resonances and a breath, in syllables with a hiss between.
Samples speech( int count, double loudness, double pitch, uint32_t seed )
{
    Noise breath( seed );
    Samples samples( static_cast<size_t>( count ) );
    double phase = 0;
    for( int i = 0; i < count; ++i )
    {
        const double t = static_cast<double>( i ) / RATE;
        const double syllable = std::max( 0.0, std::sin( 2 * std::numbers::pi * 2.5 * t ) );
        const double hertz = pitch * ( 1 + 0.2 * std::sin( 2 * std::numbers::pi * 0.7 * t ) );
        phase += 2 * std::numbers::pi * hertz / RATE;
        double value = 0;
        for( int harmonic = 1; harmonic * hertz < 5000; ++harmonic )
        {
            const double f = harmonic * hertz;
            const double formants = 1 / ( 1 + std::pow( ( f - 600 ) / 200, 2 ) ) +
                                    0.5 / ( 1 + std::pow( ( f - 1700 - 500 * std::sin( 5 * t ) ) / 300, 2 ) ) + 0.05;
            value += formants * std::sin( harmonic * phase );
        }
        const double consonant = std::max( 0.0, std::sin( 2 * std::numbers::pi * ( 2.5 * t - 0.55 ) ) - 0.6 );
        value = syllable * ( value + 0.3 * breath.next( ) ) + consonant * breath.next( );
        samples[static_cast<size_t>( i )] =
            static_cast<int16_t>( std::lround( std::clamp( loudness * value, -32000.0, 32000.0 ) ) );
    }
    return samples;
}

double decibels( const Samples& samples, double from, double to )
{
    double sum = 1e-9;
    const size_t begin = static_cast<size_t>( from * RATE );
    const size_t end = static_cast<size_t>( to * RATE );
    for( size_t i = begin; i < end; ++i ) sum += static_cast<double>( samples[i] ) * samples[i];
    return 10 * std::log10( sum / static_cast<double>( end - begin ) );
}

class GVoiceTreatmentTest : public testing::Test
{
protected:
    GVoiceTreatmentTest( )
    {
        GEchoReference_clear( );
        instance.set( u"Voice_Treatment", 1 );
    }
    void only( GWStringView part )
    {
        for( const GWStringView name : { u"Voice_Echo", u"Voice_Noise", u"Voice_Level" } )
            instance.set( name, name == part ? 1 : 0 );
    }
    // What leaves when `microphone` is captured while `speaker`, if there is one, is heard; buffers come as they are full.
    Samples treat( const Samples& microphone, const Samples& speaker = { }, int buffer = BUFFER )
    {
        GVoiceTreatment treatment( &instance );
        Samples treated;
        const uint64_t start = TestClock::now( );
        const auto timeOf = []( size_t i ) { return i * 1000000 / RATE; };
        size_t written = 0;
        for( size_t at = 0; at + static_cast<size_t>( buffer ) <= microphone.size( );
             at += static_cast<size_t>( buffer ) )
        {
            for( ; written < at + 4400 && written + 440 <= speaker.size( ); written += 440 )
                GEchoReference_write( start + timeOf( written ), RATE, &speaker[written], 440 );
            clock.advance(
                static_cast<int64_t>( start + timeOf( at + static_cast<size_t>( buffer ) ) - TestClock::now( ) ) );
            Samples piece( microphone.begin( ) + static_cast<ptrdiff_t>( at ),
                           microphone.begin( ) + static_cast<ptrdiff_t>( at ) + buffer );
            // Stamps of capture have another epoch.
            treatment.process( 77000000 + timeOf( at ), RATE, piece.data( ), buffer );
            treated.insert( treated.end( ), piece.begin( ), piece.end( ) );
        }
        return treated;
    }
    static Samples mix( const Samples& one, const Samples& other, double share = 1, size_t delay = 0 )
    {
        Samples mixed = one;
        for( size_t i = delay; i < mixed.size( ) && i - delay < other.size( ); ++i )
            mixed[i] = static_cast<int16_t>(
                std::clamp<long>( std::lround( mixed[i] + share * other[i - delay] ), -32768, 32767 ) );
        return mixed;
    }

    TestClock clock;
    GInstance instance{ u"settings_treatment_test.ini" };
};
} // namespace

TEST_F( GVoiceTreatmentTest, UnsetItLeavesEverySampleUntouched )
{
    instance.clear( u"Voice_Treatment" );
    const Samples voice = speech( RATE, 3000, 120, 1 );
    const Samples heard = speech( RATE, 9000, 200, 2 );
    Samples treated = treat( voice, heard );
    EXPECT_EQ( treated, Samples( voice.begin( ), voice.begin( ) + static_cast<ptrdiff_t>( treated.size( ) ) ) );
}

TEST_F( GVoiceTreatmentTest, EchoIsTakenOutAndTheNearVoicePasses )
{
    constexpr int SECONDS = 6;
    constexpr double HALF = 0.5; // -6 dB
    for( const int milliseconds : { 40, 90, 200 } )
    {
        GEchoReference_clear( );
        only( u"Voice_Echo" );
        const size_t delay = static_cast<size_t>( milliseconds * RATE / 1000 );
        // The far voice ends after four seconds, then the near one speaks.
        Samples far = speech( SECONDS * RATE, 8000, 190, 1 );
        std::fill( far.begin( ) + 4 * RATE, far.end( ), int16_t( 0 ) );
        Samples near = speech( SECONDS * RATE, 6000, 110, 2 );
        std::fill( near.begin( ), near.begin( ) + 5 * RATE - RATE / 2, int16_t( 0 ) );
        const Samples room = noise( SECONDS * RATE, 10, 3 );
        const Samples microphone = mix( mix( room, near ), far, HALF, delay );
        const Samples treated = treat( microphone, far );
        const double lowered = decibels( microphone, 2, 4 ) - decibels( treated, 2, 4 );
        const double passed = decibels( treated, 4.6, 5.9 ) - decibels( microphone, 4.6, 5.9 );
        std::printf( "    echo after %d ms: lowered by %.1f dB, near voice %+.1f dB\n", milliseconds, lowered, passed );
        EXPECT_GT( lowered, 20 ) << milliseconds;
        EXPECT_NEAR( passed, 0, 3 ) << milliseconds;
    }
}

TEST_F( GVoiceTreatmentTest, BothVoicesAtOnceLeaveTheNearOneAudible )
{
    only( u"Voice_Echo" );
    const Samples far = speech( 8 * RATE, 8000, 190, 1 );
    Samples near = speech( 8 * RATE, 6000, 110, 2 );
    std::fill( near.begin( ), near.begin( ) + 4 * RATE, int16_t( 0 ) );
    const Samples microphone = mix( mix( noise( 8 * RATE, 10, 3 ), near ), far, 0.5, RATE / 10 );
    const Samples treated = treat( microphone, far );
    const double passed = decibels( treated, 4.5, 7.9 ) - decibels( near, 4.5, 7.9 );
    std::printf( "    near voice while the far one speaks: %+.1f dB\n", passed );
    EXPECT_NEAR( passed, 0, 6 );
}

TEST_F( GVoiceTreatmentTest, SteadyNoiseIsLoweredAndSpeechPasses )
{
    only( u"Voice_Noise" );
    const Samples hiss = noise( 6 * RATE, 300, 5 );
    const double lowered = decibels( hiss, 2, 6 ) - decibels( treat( hiss ), 2, 5.9 );
    std::printf( "    white noise lowered by %.1f dB\n", lowered );
    EXPECT_GT( lowered, 10 );
    const Samples voice = speech( 6 * RATE, 6000, 120, 1 );
    const double passed = decibels( treat( mix( hiss, voice ) ), 2, 5.9 ) - decibels( voice, 2, 5.9 );
    std::printf( "    speech in it %+.1f dB\n", passed );
    EXPECT_NEAR( passed, 0, 3 );
}

TEST_F( GVoiceTreatmentTest, QuietVoicesAreRaisedAndLoudOnesLowered )
{
    only( u"Voice_Level" );
    const auto levelOf = [this]( double loudness )
    { return decibels( treat( speech( 8 * RATE, loudness, 120, 1 ) ), 5, 7.9 ); };
    const double quiet = levelOf( 350 );
    const double middle = levelOf( 1500 );
    const double loud = levelOf( 15000 );
    std::printf( "    out of voices 33 dB apart: %.1f, %.1f, %.1f dB\n", quiet, middle, loud );
    EXPECT_NEAR( quiet, middle, 6 );
    EXPECT_NEAR( loud, middle, 6 );
}

TEST_F( GVoiceTreatmentTest, SilenceIsNotPumpedUp )
{
    only( u"Voice_Level" );
    // A quiet voice for four seconds, then the room alone.
    Samples voice = speech( 12 * RATE, 400, 120, 1 );
    std::fill( voice.begin( ) + 4 * RATE, voice.end( ), int16_t( 0 ) );
    const Samples microphone = mix( noise( 12 * RATE, 12, 7 ), voice );
    const Samples treated = treat( microphone );
    const double early = decibels( treated, 4.5, 6 );
    const double late = decibels( treated, 10, 11.9 );
    EXPECT_NEAR( late, early, 1 );
    EXPECT_LT( late - decibels( microphone, 10, 11.9 ), 18.1 );
    // Without a voice there is no gain at all.
    const Samples room = noise( 8 * RATE, 20, 9 );
    EXPECT_NEAR( decibels( treat( room ), 4, 7.9 ), decibels( room, 4, 7.9 ), 1 );
}

TEST_F( GVoiceTreatmentTest, LoudestVoiceIsNotClipped )
{
    only( u"Voice_Level" );
    Samples voice = speech( 6 * RATE, 300, 120, 1 );
    for( size_t i = 5 * RATE; i < voice.size( ); ++i ) voice[i] = static_cast<int16_t>( i % 100 < 50 ? 29000 : -29000 );
    for( const int16_t sample : treat( voice ) ) EXPECT_LT( std::abs( static_cast<int>( sample ) ), 30500 );
}

// All parts off: what comes out is what went in, later.
TEST_F( GVoiceTreatmentTest, BuffersOfAnySizeLeaveInOrderWithAConstantDelay )
{
    only( u"" );
    const Samples voice = speech( 2 * RATE, 3000, 120, 1 );
    for( const int buffer : { 160, 320, 1120, 100, 441, 7 } )
    {
        const Samples treated = treat( voice, { }, buffer );
        const size_t delay = DELAY + ( buffer % 160 ? 160 : 0 );
        long worst = 0;
        for( size_t i = 2000; i < treated.size( ); ++i )
            worst = std::max( worst, std::abs( static_cast<long>( treated[i] ) - voice[i - delay] ) );
        EXPECT_LT( worst, 20 ) << buffer;
    }
}

TEST_F( GVoiceTreatmentTest, SteadyStateAllocatesNothing )
{
    GVoiceTreatment treatment( &instance );
    Samples piece = speech( BUFFER, 3000, 120, 1 );
    const auto work = [&]
    {
        for( uint64_t i = 0; i < 200; ++i )
        {
            GEchoReference_write( TestClock::now( ), RATE, piece.data( ), BUFFER );
            clock.advance( BUFFER * 1000000 / RATE );
            treatment.process( i * BUFFER * 1000000 / RATE, RATE, piece.data( ), BUFFER );
        }
    };
    work( );
    EXPECT_EQ( countAllocations( work ), 0 );
}
