// Lines and wave files on a sound server of its own (tests/support/with-sound).
#include "platform/GSound.h"

#include "base/GUtil.h"
#include "platform/GSoundRing.h"
#include "support/TestFolder.h"
#include "support/TestLog.h"
#include "support/TestSound.h"

#include <cmath>
#include <numbers>

namespace
{
using TestSound::ask;
using TestSound::becomes;
using TestSound::run;

constexpr int RATE = 8000;

// A tone as a mono wave file of 16 bits.
GString waveFile( double seconds, double frequency = 500 )
{
    GString samples;
    for( int i = 0; i < static_cast<int>( seconds * RATE ); i++ )
    {
        const auto sample = static_cast<int16_t>( 12000 * std::sin( 2 * std::numbers::pi * frequency * i / RATE ) );
        samples += static_cast<char>( sample & 255 );
        samples += static_cast<char>( sample >> 8 );
    }
    GString file = "RIFF";
    GSerialize( static_cast<uint32_t>( 36 + samples.size( ) ), file );
    file += "WAVEfmt ";
    GSerialize( 16U, file );
    GSerialize( 1U | 1U << 16, file );
    GSerialize( static_cast<uint32_t>( RATE ), file );
    GSerialize( static_cast<uint32_t>( RATE ) * 2, file );
    GSerialize( 2U | 16U << 16, file );
    file += "data";
    GSerialize( static_cast<uint32_t>( samples.size( ) ), file );
    return file + samples;
}

// Half the crossings of zero: the periods of a tone.
int periodsOf( const std::vector<int16_t>& samples )
{
    int crossings = 0;
    for( size_t i = 1; i < samples.size( ); i++ ) crossings += ( samples[i - 1] < 0 ) != ( samples[i] < 0 );
    return crossings / 2;
}

int greatestOf( const std::vector<int16_t>& samples )
{
    int greatest = 0;
    for( const int16_t sample : samples ) greatest = std::max( greatest, std::abs( sample ) );
    return greatest;
}

// Own streams that the server knows.
int streams( )
{
    return std::atoi( ask( "pactl list sink-inputs | grep -c 'application.name = \"Velmora\"'" ).c_str( ) );
}

int entriesOf( const char* folder )
{
    int count = 0;
    for( const auto& entry : std::filesystem::directory_iterator( folder ) ) count += !entry.path( ).empty( );
    return count;
}

class GSound : public TestFolder
{
protected:
    void TearDown( ) override
    {
        EXPECT_TRUE( becomes( [] { return streams( ) == 0; } ) );
        GSoundSetMute( false );
        GSoundSetVolume( 1.0 );
        TestFolder::TearDown( );
    }
};
} // namespace

TEST_F( GSound, TwoLinesAtHalfGiveAQuarter )
{
    GSoundSetLines( 0.5, 0.5 );
    EXPECT_NEAR( GSoundGetVolume( ), 0.25, 0.001 );
    EXPECT_NE( ask( "pactl get-sink-volume spk" ).find( "50%" ), GString::npos );
}

TEST_F( GSound, SettingTheVolumePutsTheWaveLineAtFull )
{
    GSoundSetLines( 0.5, 0.5 );
    GSoundSetVolume( 0.75 );
    EXPECT_NEAR( GSoundGetVolume( ), 0.75, 0.001 );
    EXPECT_NE( ask( "pactl get-sink-volume spk" ).find( "75%" ), GString::npos );
}

TEST_F( GSound, VolumesAreHeldInTheirRange )
{
    GSoundSetVolume( 7.0 );
    EXPECT_NEAR( GSoundGetVolume( ), 1.0, 0.001 );
    GSoundSetVolume( -1.0 );
    EXPECT_NEAR( GSoundGetVolume( ), 0.0, 0.001 );
    GSoundSetLines( std::nan( "" ), std::nan( "" ) );
    EXPECT_NEAR( GSoundGetVolume( ), 0.0, 0.001 );
    ASSERT_TRUE( run( "pactl set-sink-volume spk 150%" ) );
    GSoundSetLines( 1.0, 0.5 );
    EXPECT_NEAR( GSoundGetVolume( ), 0.5, 0.001 );
}

TEST_F( GSound, MuteOfTheSpeakerIsSetAndReadBack )
{
    GSoundSetMute( true );
    EXPECT_TRUE( GSoundIsMuted( ) );
    EXPECT_EQ( ask( "pactl get-sink-mute spk" ), "Mute: yes" );
    GSoundSetMute( false );
    EXPECT_FALSE( GSoundIsMuted( ) );
    ASSERT_TRUE( run( "pactl set-sink-mute spk 1" ) );
    EXPECT_TRUE( GSoundIsMuted( ) ) << "whoever muted it";
}

TEST_F( GSound, WaveLineIsThisProgramsOwnStreamsAndUnmutedWithTheSpeaker )
{
    GSoundRing ring = GSoundRingOpen( RATE, 2 * RATE );
    ASSERT_TRUE( ring );
    const GString stream = ask(
        "pactl list sink-inputs | awk '/^Sink Input/ {n=substr($3,2)} /application.name = \"Velmora\"/ {print n}'" );
    EXPECT_FALSE( GSoundIsMuted( ) );
    ASSERT_TRUE( run( "pactl set-sink-input-mute " + stream + " 1" ) );
    EXPECT_TRUE( GSoundIsMuted( ) );
    GSoundSetMute( true );
    GSoundSetMute( false );
    EXPECT_FALSE( GSoundIsMuted( ) );
    EXPECT_EQ( ask( "pactl list sink-inputs | grep -A20 'Sink Input #" + stream + "$' | grep -c 'Mute: no'" ), "1" );
    ASSERT_TRUE( run( "pactl set-sink-input-volume " + stream + " 50%" ) );
    EXPECT_NEAR( GSoundGetVolume( ), 0.5, 0.001 );
    GSoundSetLines( 0.5, 0.25 );
    EXPECT_NEAR( GSoundGetVolume( ), 0.125, 0.001 );
    GSoundRingClose( ring );
    EXPECT_NEAR( GSoundGetVolume( ), 0.125, 0.001 ) << "remembered while nothing plays";
}

TEST_F( GSound, WaveLineReachesStreamsThatBeginLater )
{
    const GString wave = waveFile( 1 );
    write( "tone.wav", wave );
    GSoundSetLines( 1.0, 0.5 );
    TestSound::Recorder recorder;
    GSoundPlay( u"tone.wav" );
    // The server's half is an eighth of the amplitude.
    EXPECT_NEAR( greatestOf( recorder.hear( RATE / 4 ) ), 12000 / 8, 200 );
}

TEST_F( GSound, WaveFileIsHeard )
{
    write( "tone.wav", waveFile( 1 ) );
    TestSound::Recorder recorder;
    GSoundPlay( u"tone.wav" );
    const std::vector<int16_t> heard = recorder.hear( RATE / 2 );
    EXPECT_EQ( heard.size( ), static_cast<size_t>( RATE / 2 ) );
    EXPECT_NEAR( periodsOf( heard ), 250, 5 );
    EXPECT_GT( greatestOf( heard ), 10000 );
}

TEST_F( GSound, SecondSoundPlaysBesideTheFirst )
{
    write( "low.wav", waveFile( 2, 400 ) );
    write( "high.wav", waveFile( 2, 1000 ) );
    GSoundPlay( u"low.wav" );
    GSoundPlay( u"high.wav" );
    EXPECT_TRUE( becomes( [] { return streams( ) == 2; } ) );
    EXPECT_TRUE( becomes( [] { return streams( ) == 0; } ) );
}

TEST_F( GSound, ManySoundsAtOnceAreRefused )
{
    TestLog::expect( "WARNING Unable to play sound 'tone.wav', ignoring." );
    write( "tone.wav", waveFile( 1 ) );
    for( int i = 0; i < 9; i++ ) GSoundPlay( u"tone.wav" );
    EXPECT_EQ( TestLog::count( "WARNING Unable to play sound" ), 1 );
    EXPECT_TRUE( becomes( [] { return streams( ) == 0; } ) );
    GSoundPlay( u"tone.wav" );
    EXPECT_EQ( TestLog::count( "WARNING Unable to play sound" ), 1 );
}

TEST_F( GSound, PlayedSoundsLeaveNothingBehind )
{
    write( "click.wav", waveFile( 0.01 ) );
    GSoundPlay( u"click.wav" );
    EXPECT_TRUE( becomes( [] { return streams( ) == 0; } ) );
    const int files = entriesOf( "/proc/self/fd" );
    const int threads = entriesOf( "/proc/self/task" );
    for( int i = 0; i < 20; i++ )
    {
        GSoundPlay( u"click.wav" );
        EXPECT_TRUE( becomes( [] { return streams( ) == 0; } ) );
    }
    EXPECT_LE( entriesOf( "/proc/self/fd" ), files );
    EXPECT_LE( entriesOf( "/proc/self/task" ), threads );
}

TEST_F( GSound, WhatIsNoWaveFileIsReportedAndIgnored )
{
    const GString wave = waveFile( 1 );
    write( "cut.wav", wave.substr( 0, 40 ) );
    write( "empty.wav", "" );
    write( "text.wav", "no sound" );
    std::filesystem::create_directory( "folder.wav" );
    std::filesystem::create_symlink( "/dev/zero", "endless.wav" );
    const int pipe = openPipe( "pipe.wav" );
    write( "huge.wav", wave );
    std::filesystem::resize_file( "huge.wav", ( 64 << 20 ) + 1 );
    for( const GWString path : { u"missing.wav", u"cut.wav", u"empty.wav", u"text.wav", u"folder.wav", u"endless.wav",
                                 u"pipe.wav", u"huge.wav", u"" } )
    {
        TestLog::expect( GWideToUTF8( u"WARNING Unable to play sound '" + path + u"', ignoring." ) );
        GSoundPlay( path );
    }
    close( pipe );
    EXPECT_EQ( streams( ), 0 );
}
