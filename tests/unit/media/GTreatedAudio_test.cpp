#include "client/media/GTreatedAudio.h"

#include "CaptureFixture.h"
#include "support/CountAllocations.h"

namespace
{
struct Hearer : public IGCaptureAudioListener
{
    void onAudioFrame( uint64_t timestamp, const GAudioFormat& format, const char* buffer, int length ) override
    {
        stamp = timestamp;
        frequency = format.frequency;
        heard.assign( buffer, static_cast<size_t>( length ) );
    }
    uint64_t stamp = 0;
    int frequency = 0;
    GString heard;
};
} // namespace

class GTreatedAudioTest : public MediaFixture
{
protected:
    void SetUp( ) override
    {
        MediaFixture::SetUp( );
        treated = std::make_unique<GTreatedAudio>( instance.get( ) );
        treated->add( &first );
        treated->add( &second );
    }
    void TearDown( ) override
    {
        treated->remove( &first );
        treated->remove( &second );
        treated.reset( );
        MediaFixture::TearDown( );
    }
    void say( const GString& samples )
    {
        now += 14545;
        treated->onAudioFrame( now, { 2, 22000, 1 }, samples.data( ), static_cast<int>( samples.size( ) ) );
    }
    std::unique_ptr<GTreatedAudio> treated;
    Hearer first;
    Hearer second;
};

TEST_F( GTreatedAudioTest, WithoutTheSettingEverybodyGetsWhatWasSaid )
{
    const GString samples = tone( 320 );
    say( samples );
    EXPECT_EQ( first.heard, samples );
    EXPECT_EQ( second.heard, samples );
    EXPECT_EQ( first.stamp, now );
    EXPECT_EQ( first.frequency, 22000 );
}

TEST_F( GTreatedAudioTest, WithTheSettingEverybodyGetsTheSameTreatedSamplesFromThenOn )
{
    const GString samples = tone( 320 );
    say( samples );
    instance->set( u"Voice_Treatment", 1 );
    say( samples );
    say( samples );
    EXPECT_NE( first.heard, samples );
    EXPECT_EQ( first.heard, second.heard );
    EXPECT_EQ( first.heard.size( ), samples.size( ) );
    instance->set( u"Voice_Treatment", 0 );
    say( samples );
    EXPECT_EQ( first.heard, samples );
}

TEST_F( GTreatedAudioTest, OddBuffersLoseTheirOddByte )
{
    instance->set( u"Voice_Treatment", 1 );
    say( GString( ) );
    EXPECT_EQ( first.heard.size( ), 0U );
    say( GString( 1, 'x' ) );
    EXPECT_EQ( first.heard.size( ), 0U );
    say( GString( 641, '\0' ) );
    EXPECT_EQ( first.heard.size( ), 640U );
}

TEST_F( GTreatedAudioTest, WhoLeftHearsNothing )
{
    treated->remove( &second );
    say( tone( 320 ) );
    EXPECT_TRUE( second.heard.empty( ) );
    EXPECT_FALSE( first.heard.empty( ) );
}

TEST_F( GTreatedAudioTest, BuffersTakeNothingFromTheHeap )
{
    instance->set( u"Voice_Treatment", 1 );
    const GString samples = tone( 320 );
    const auto work = [&]
    {
        for( int i = 0; i < 100; ++i ) say( samples );
    };
    work( );
    EXPECT_EQ( countAllocations( work ), 0 );
}

// ---- In the service.

class VoiceTreatment : public GVideoCapture
{
};

TEST_F( VoiceTreatment, IsInTheWayOfSoundWithEitherSetting )
{
    start( );
    const auto listeners = [] { return FakeCapture::get( ).audioListeners( ).size( ); };
    run( command( u"OPEN" ) );
    EXPECT_EQ( listeners( ), 2U ); // The preview and the stream.
    instance->set( u"Voice_Treatment", 1 );
    run( restart( ) );
    EXPECT_EQ( listeners( ), 1U );
    EXPECT_EQ( FakeCapture::get( ).videoListeners( ).size( ), 2U );
    audio( 5000000 );
    received( ); // The report.
    EXPECT_FALSE( received( ).empty( ) );
    instance->set( u"Voice_Treatment", 0 );
    instance->set( u"Robust_Media", 1 );
    run( restart( ) );
    EXPECT_EQ( listeners( ), 1U );
    audio( 6000000 );
    EXPECT_FALSE( received( ).empty( ) );
    run( command( u"CLOSE" ) );
    audio( 7000000 );
    EXPECT_TRUE( nothingReceived( ) );
}

TEST_F( VoiceTreatment, IsSeenInThePreviewToo )
{
    instance->set( u"Voice_Treatment", 1 );
    start( );
    run( GHTTPHeaders( u"STARTAUDIOPREVIEW" ) );
    now += 2000000;
    audio( 1, 640 ); // The first samples that come out are from before: silence.
    const GString image = instance->getRaw( u"Local_Audio_Image" );
    int green = 0;
    for( int y = 0; y < 100; ++y ) green += image[static_cast<size_t>( y * 900 + 3 * 11 + 1 )] == '\xFF';
    EXPECT_EQ( green, 50 );
}

TEST_F( VoiceTreatment, BuffersAreSmallWithTheRemedyAlone )
{
    start( );
    EXPECT_EQ( FakeCapture::get( ).latency, 0 );
    instance->set( u"Robust_Media", 1 );
    run( restart( ) );
    EXPECT_EQ( FakeCapture::get( ).latency, 15 );
    instance->set( u"Robust_Media", 0 );
    run( restart( ) );
    EXPECT_EQ( FakeCapture::get( ).latency, 0 );
}

TEST_F( VoiceTreatment, APacketHoldsTwoCodecFramesWithTheRemedy )
{
    instance->set( u"Robust_Media", 1 );
    openStream( );
    for( uint64_t i = 1; i < 4; ++i )
    {
        audio( 5000000 + i * 14545, 640 );
        const GString packet = received( );
        EXPECT_EQ( sequenceOf( packet ), i );
        EXPECT_EQ( GReadU32( packet.data( ) + 4 ), ( 5000000 + i * 14545 ) / 10000 );
        EXPECT_LT( packet.size( ), 120U );
        EXPECT_TRUE( nothingReceived( ) );
    }
}
