// Talks and pictures with the remedy, through the service, in virtual time.
#include "PlaybackFixture.h"

#include <algorithm>

namespace
{
constexpr uint64_t MILLISECOND = 1000;
constexpr int RATE = 22000;
constexpr int SAMPLES = 320;
constexpr uint64_t PACKET_TIME = SAMPLES * 1000000ULL / RATE;
} // namespace

class GVideoPlaybackTalk : public PlaybackFixture
{
protected:
    void SetUp( ) override
    {
        PlaybackFixture::SetUp( );
        instance->set( u"Robust_Media", u"1" );
        sound.clocked = true;
        begin = now;
        open( );
    }
    GString voice( uint16_t number, uint32_t rate = RATE, uint32_t ssrc = 7 )
    {
        GString frame;
        speex->encode( tone( SAMPLES ).data( ), SAMPLES * 2, frame );
        return media( GRTP_AUDIO, number, static_cast<uint32_t>( captured( ) / 10000 ), rate, frame, ssrc );
    }
    GString picture( uint16_t number, int64_t ahead = 0 )
    {
        const auto stamp = static_cast<uint32_t>( ( captured( ) + ahead ) / 1000 );
        return media( GRTP_VIDEO, number, stamp, 48, videoFrame( number ) );
    }
    // The sender's clock has nothing to do with ours.
    int64_t captured( ) const { return 5000000000LL + static_cast<int64_t>( now - begin ); }
    // The service runs each millisecond.
    void runUntil( uint64_t time )
    {
        while( now < time )
        {
            now += std::min<uint64_t>( MILLISECOND, time - now );
            loop( );
        }
    }
    void talk( int packets, uint32_t rate = RATE )
    {
        for( int i = 0; i < packets; ++i )
        {
            deliver( voice( ++sequence, rate ) );
            loop( );
            runUntil( now + PACKET_TIME );
        }
    }
    // Microseconds from the begin until the first sample that is loud.
    int64_t firstHeard( ) const
    {
        const auto found =
            std::find_if( sound.output.begin( ), sound.output.end( ), []( int16_t s ) { return s > 2000; } );
        return static_cast<int64_t>( sound.startTime - begin ) + ( found - sound.output.begin( ) ) * 1000000 / RATE;
    }
    bool isShown( uint64_t before ) { return instance->getTimestamp( u"ben@velmora.local_Image" ) > before; }
    GWString value( GWStringView suffix ) { return instance->get( GConcat( u"ben@velmora.local", suffix ) ); }
    bool isListening( ) { return instance->contains( u"Listening_To_List", u"ben@velmora.local" ); }

    FakeSound& sound = FakeSound::get( );
    uint64_t begin = 0;
    uint16_t sequence = 0;
};

TEST_F( GVideoPlaybackTalk, WordIsHeardSixtyMillisecondsAfterItsArrival )
{
    talk( 30 );
    EXPECT_NEAR( 60000, firstHeard( ), 8000 ) << "the codec takes five of them to come up";
    EXPECT_EQ( u"60", value( u"_Prebuffer_MS" ) );
    EXPECT_EQ( 1, listeningCommands( ) );
    EXPECT_GT( instance->calc( u"ben@velmora.local_Audio_Buffer_Length" ), 30 );
    instance->enqueue( u"GVideoPlaybackService_commandQueue", command( u"CLOSE" ) );
    loop( );
    EXPECT_EQ( u"", value( u"_Prebuffer_MS" ) );
}

TEST_F( GVideoPlaybackTalk, PictureIsShownWithItsSound )
{
    talk( 30 );
    const uint64_t asked = now;
    deliver( picture( 1 ) );
    loop( );
    EXPECT_FALSE( hasImage( ) );
    EXPECT_NEAR( 60, instance->calc( u"ben@velmora.local_Video_Buffer_Length" ), 12 );
    runUntil( asked + 200 * MILLISECOND );
    ASSERT_TRUE( hasImage( ) );
    const auto waited = static_cast<int64_t>( instance->getTimestamp( u"ben@velmora.local_Image" ) - asked );
    // A stamp of sound is up to 10 ms before its capture.
    EXPECT_NEAR( 60000, waited, 12000 );
    EXPECT_EQ( 0, instance->calc( u"ben@velmora.local_Video_Buffer_Length" ) );
}

TEST_F( GVideoPlaybackTalk, PictureNeverWaitsLongerThanHalfASecond )
{
    talk( 30 );
    const uint64_t asked = now;
    deliver( picture( 1, 1500000 ) );
    loop( );
    runUntil( asked + 499 * MILLISECOND );
    EXPECT_FALSE( hasImage( ) );
    runUntil( asked + 501 * MILLISECOND );
    EXPECT_TRUE( hasImage( ) );
    // Clocks that have nothing in common.
    const uint64_t before = instance->getTimestamp( u"ben@velmora.local_Image" );
    deliver( picture( 2, 3600000000LL ) );
    loop( );
    EXPECT_TRUE( isShown( before ) );
}

TEST_F( GVideoPlaybackTalk, PictureIsShownAtOnceWithoutSoundAndWhenItIsLate )
{
    deliver( picture( 1 ) );
    loop( );
    EXPECT_TRUE( hasImage( ) );
    talk( 30 );
    const uint64_t before = instance->getTimestamp( u"ben@velmora.local_Image" );
    deliver( picture( 2, -1000000 ) );
    loop( );
    EXPECT_TRUE( isShown( before ) );
}

TEST_F( GVideoPlaybackTalk, SilenceEndsTheTalkAndNothingWakesTheServiceThen )
{
    TestLog::expect( "WARNING Inactivity timeout (1001ms), resetting audio." );
    talk( 20 );
    EXPECT_TRUE( isListening( ) );
    runUntil( now + 1100 * MILLISECOND );
    EXPECT_FALSE( isListening( ) );
    EXPECT_FALSE( sound.playing && !sound.closed );
    EXPECT_EQ( u"", value( u"_Audio_Buffer_Length" ) );
    GHTTPHeaders headers = command( u"OPEN", u"eve@velmora.local@dev3" );
    const std::unique_ptr<GVideoPlaybackStream> stream(
        GSAFENEW( GVideoPlaybackStream, ( instance.get( ), port.get( ), headers ) ) );
    stream->update( );
    EXPECT_EQ( UINT64_MAX, stream->getNextUpdate( ) );
    instance->set( u"Robust_Media", u"0" );
    stream->update( );
    EXPECT_EQ( now + 100 * MILLISECOND, stream->getNextUpdate( ) );
}

TEST_F( GVideoPlaybackTalk, EndThatIsToldIsHeardOut )
{
    talk( 20 );
    deliver( media( GRTP_AUDIO, ++sequence, static_cast<uint32_t>( captured( ) / 10000 ), 0, "" ) );
    loop( );
    EXPECT_FALSE( isListening( ) );
    EXPECT_EQ( 0, sound.closed );
    runUntil( now + 100 * MILLISECOND );
    EXPECT_EQ( 1, sound.closed );
    EXPECT_GT( std::count_if( sound.output.begin( ), sound.output.end( ), []( int16_t s ) { return s != 0; } ),
               19 * SAMPLES );
    // One that was overtaken by the end begins no new talk.
    now -= 500 * MILLISECOND;
    GString late = voice( static_cast<uint16_t>( sequence - 1 ) );
    now += 500 * MILLISECOND;
    deliver( late );
    loop( );
    EXPECT_FALSE( isListening( ) );
}

TEST_F( GVideoPlaybackTalk, NewRateIsANewTalkAndAnOldPacketIsNone )
{
    talk( 10 );
    now -= 5 * PACKET_TIME;
    const GString late = voice( 5, RATE );
    now += 5 * PACKET_TIME;
    talk( 10, 16000 );
    EXPECT_EQ( 2, listeningCommands( ) );
    EXPECT_EQ( 16000, sound.frequency );
    deliver( late );
    loop( );
    EXPECT_EQ( 0, listeningCommands( ) );
    EXPECT_EQ( 16000, sound.frequency );
}

TEST_F( GVideoPlaybackTalk, AnotherSenderIsHeardAtOnce )
{
    talk( 10 );
    EXPECT_EQ( 1, listeningCommands( ) );
    deliver( voice( 1, RATE, 8 ) );
    loop( );
    EXPECT_EQ( 1, listeningCommands( ) );
}

TEST_F( GVideoPlaybackTalk, GainIsHeardWithinTheTalk )
{
    const auto peak = [&]( size_t from )
    { return *std::max_element( sound.output.begin( ) + static_cast<ptrdiff_t>( from ), sound.output.end( ) ); };
    talk( 30 );
    const int whole = peak( 0 );
    instance->set( u"ben@velmora.local_Gain", 50 );
    talk( 10 );
    const size_t from = sound.output.size( );
    talk( 10 );
    EXPECT_NEAR( whole / 2, peak( from ), whole / 10 );
}

TEST_F( GVideoPlaybackTalk, HundredPicturesAtOnceAreBoundedAndInOrder )
{
    talk( 30 );
    for( uint16_t i = 1; i <= 100; ++i ) deliver( picture( i, 400000 - i ) );
    loop( );
    EXPECT_TRUE( hasImage( ) ) << "what does not fit is shown early";
    const GString early = instance->getRaw( u"ben@velmora.local_Image" );
    runUntil( now + 500 * MILLISECOND );
    EXPECT_NE( early, instance->getRaw( u"ben@velmora.local_Image" ) );
    EXPECT_EQ( 0, instance->calc( u"ben@velmora.local_Video_Buffer_Length" ) );
}
