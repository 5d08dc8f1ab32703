// Runs beside a sound server of its own (tests/support/with-sound). The last tests take the server away.
#include "platform/GSound.h"

#include "base/GUtil.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

namespace
{
// Polls until it holds, ten seconds at most.
template <typename Condition>
bool becomes( Condition condition )
{
    for( int i = 0; i < 500; i++ )
    {
        if( condition( ) ) return true;
        std::this_thread::sleep_for( std::chrono::milliseconds( 20 ) );
    }
    return false;
}

GString waveFile( int seconds )
{
    GString samples( static_cast<size_t>( seconds * 8000 * 2 ), 0 );
    for( size_t i = 0; i < samples.size( ); i += 2 ) samples[i + 1] = i / 16 % 2 ? 32 : -32;
    GString file = "RIFF";
    GSerialize( static_cast<uint32_t>( 36 + samples.size( ) ), file );
    file += "WAVEfmt ";
    GSerialize( 16U, file );
    GSerialize( 1U | 1U << 16, file );
    GSerialize( 8000U, file );
    GSerialize( 16000U, file );
    GSerialize( 2U | 16U << 16, file );
    file += "data";
    GSerialize( static_cast<uint32_t>( samples.size( ) ), file );
    return file + samples;
}
} // namespace

TEST( GSound, TwoLinesAtHalfGiveAQuarter )
{
    GSoundSetLines( 0.5, 0.5 );
    EXPECT_NEAR( GSoundGetVolume( ), 0.25, 0.001 );
    GSoundSetVolume( 0.75 );
    EXPECT_NEAR( GSoundGetVolume( ), 0.75, 0.001 );
    GSoundSetVolume( 1.0 );
}

TEST( GSound, MuteIsReadBack )
{
    GSoundSetMute( true );
    EXPECT_TRUE( GSoundIsMuted( ) );
    GSoundSetMute( false );
    EXPECT_FALSE( GSoundIsMuted( ) );
}

TEST( GSound, BadWaveFileIsReportedAndIgnored )
{
    TestLog::expect( "WARNING Unable to play sound 'no such file.wav', ignoring." );
    TestLog::expect( "WARNING Unable to play sound 'sound_bad.wav', ignoring." );
    GSoundPlay( u"no such file.wav" );
    const GString wave = waveFile( 1 );
    ASSERT_TRUE( GFileSave( u"sound_bad.wav", wave.data( ), 40 ) );
    GSoundPlay( u"sound_bad.wav" );
}

TEST( GSound, WaveFileReachesTheSpeaker )
{
    const GString wave = waveFile( 2 );
    ASSERT_TRUE( GFileSave( u"sound_good.wav", wave.data( ), static_cast<int64_t>( wave.size( ) ) ) );
    GSoundPlay( u"sound_good.wav" );
    EXPECT_TRUE( becomes(
        [] { return std::system( "pactl list sink-inputs | grep -q 'application.name = \"Velmora\"'" ) == 0; } ) );
    EXPECT_TRUE( becomes(
        [] { return std::system( "pactl list sink-inputs | grep -q 'application.name = \"Velmora\"'" ) != 0; } ) );
}

TEST( GSoundRing, CursorsRunAroundAndStop )
{
    GSoundRing ring = GSoundRingOpen( 22000, 44000 );
    ASSERT_TRUE( ring );
    int play = -1, write = -1;
    ASSERT_TRUE( GSoundRingGetCursors( ring, play, write ) );
    EXPECT_EQ( play, 0 );
    EXPECT_EQ( write, 0 );
    const GString samples( 1000, 5 );
    EXPECT_TRUE( GSoundRingWrite( ring, 43500, samples.data( ), 1000 ) );
    GSoundRingPlay( ring );
    int64_t travelled = 0;
    int last = 0;
    EXPECT_TRUE( becomes(
        [&]
        {
            if( !GSoundRingGetCursors( ring, play, write ) ) return false;
            travelled += ( play - last + 44000 ) % 44000;
            last = play;
            EXPECT_LT( ( write - play + 44000 ) % 44000, 22000 );
            return travelled > 50000;
        } ) )
        << "more than once around";
    EXPECT_EQ( play % 2, 0 );
    EXPECT_EQ( write % 2, 0 );
    GSoundRingStop( ring );
    EXPECT_TRUE( GSoundRingIsAlive( ring ) );
    GSoundRingClose( ring );
}

TEST( GSoundServerGone, RingsReportTheLossAndCallsStayQuiet )
{
    GSoundRing ring = GSoundRingOpen( 8000, 16000 );
    ASSERT_TRUE( ring );
    GSoundRingPlay( ring );
    const char* pid = std::getenv( "VELMORA_SOUND_PID" );
    ASSERT_TRUE( pid );
    ASSERT_EQ( kill( std::atoi( pid ), SIGKILL ), 0 );
    EXPECT_TRUE( becomes( [ring] { return !GSoundRingIsAlive( ring ); } ) );
    int play = 0, write = 0;
    EXPECT_FALSE( GSoundRingGetCursors( ring, play, write ) );
    EXPECT_FALSE( GSoundRingWrite( ring, 0, "ab", 2 ) );
    GSoundRingStop( ring );
    GSoundRingClose( ring );
    EXPECT_EQ( GSoundRingOpen( 8000, 16000 ), nullptr );
    GSoundSetVolume( 0.5 );
    GSoundSetMute( true );
    EXPECT_FALSE( GSoundIsMuted( ) );
    GSoundPlay( u"sound_good.wav" );
    EXPECT_NEAR( GSoundGetVolume( ), 1.0, 0.001 );
}
