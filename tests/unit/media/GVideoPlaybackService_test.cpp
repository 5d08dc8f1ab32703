#include "client/media/GVideoPlaybackService.h"

#include "client/media/GSpeexEncoder.h"
#include "client/media/GTheoraEncoder.h"

#include "MediaFixture.h"

namespace
{
constexpr char16_t BEN[] = u"ben@velmora.local@dev2";
constexpr char16_t HOST[] = u"10.0.0.9:5000";
} // namespace

class GVideoPlayback : public MediaFixture
{
protected:
    void SetUp( ) override
    {
        MediaFixture::SetUp( );
        TestLog::allow( "WARNING Clipping audio=" );
        service.reset( GSAFENEW( GVideoPlaybackService, ( instance.get( ), port.get( ) ) ) );
        theora.reset( GSAFENEW( GTheoraEncoder, ( { GIT_RGB24, 48, 48 }, { 0, 0, 48, 48 }, 48, 48, 5 ) ) );
        speex.reset( GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( 22000 ) ) ) );
    }
    void TearDown( ) override
    {
        if( service ) service->_bGThreadObject_safe_onShutdown( );
        service.reset( );
        theora.reset( );
        speex.reset( );
        MediaFixture::TearDown( );
    }
    void loop( )
    {
        const GObjectLock scope( *service );
        service->pass( 0 );
    }
    void open( )
    {
        instance->enqueue( u"GVideoPlaybackService_commandQueue", command( u"OPEN" ) );
        loop( );
    }
    void deliver( const GString& packet, GWStringView host = HOST )
    {
        GMegaPortBucket* bucket = port->getEmtpyBucket( );
        bucket->buffer = packet;
        bucket->remoteHost = host;
        port->fillRTPBucket( bucket );
    }
    static GString media( int type, uint16_t sequence, uint32_t word, const GString& frame )
    {
        GString out;
        const char prefix[4] = { static_cast<char>( word ), static_cast<char>( word >> 8 ),
                                 static_cast<char>( word >> 16 ), static_cast<char>( word >> 24 ) };
        GRTPCompose( out, type, sequence, 100U * sequence, 7, prefix, 4, frame.data( ),
                     static_cast<int>( frame.size( ) ) );
        return out;
    }
    GString videoFrame( int phase )
    {
        GString packet;
        theora->encode( picture( 48, 48, phase ).data( ), 48 * 48 * 3, packet );
        return packet;
    }
    GString audioFrame( )
    {
        GString packet;
        speex->encode( tone( 1120 ).data( ), 2240, packet );
        return packet;
    }
    bool hasImage( ) { return instance->isSet( u"ben@velmora.local_Image" ); }
    int listeningCommands( )
    {
        int found = 0;
        GString item;
        while( instance->dequeue( u"GClient_commandQueue", item ) )
        {
            GHTTPHeaders message;
            message.deserialize( item );
            found += message.isMethod( u"LISTENINGTO" ) && message.get( u"User-GUID" ) == u"ben@velmora.local";
        }
        return found;
    }

    std::unique_ptr<GVideoPlaybackService> service;
    std::unique_ptr<GTheoraEncoder> theora;
    std::unique_ptr<GSpeexEncoder> speex;
};

TEST_F( GVideoPlayback, OpenStreamIsOnlineUntilItCloses )
{
    open( );
    EXPECT_EQ( u"true", instance->get( u"ben@velmora.local_Video_Playback_Online" ) );
    EXPECT_EQ( 500, instance->calc( u"Prebuffer_MS" ) );
    instance->enqueue( u"GVideoPlaybackService_commandQueue", command( u"CLOSE" ) );
    loop( );
    EXPECT_FALSE( instance->isSet( u"ben@velmora.local_Video_Playback_Online" ) );
}

TEST_F( GVideoPlayback, PictureReachesTheBlackboard )
{
    open( );
    deliver( media( GRTP_VIDEO, 1, 48, videoFrame( 1 ) ) );
    loop( );
    EXPECT_EQ( 48U * 48U * 3U, instance->getRaw( u"ben@velmora.local_Image" ).size( ) );
}

TEST_F( GVideoPlayback, LatePacketHasNoEffectAtAll )
{
    open( );
    deliver( media( GRTP_VIDEO, 1, 48, videoFrame( 1 ) ) );
    loop( );
    const uint64_t stamp = instance->getTimestamp( u"ben@velmora.local_Image" );
    now += 1000;
    deliver( media( GRTP_VIDEO, 1, 64, videoFrame( 2 ) ) );
    loop( );
    EXPECT_EQ( stamp, instance->getTimestamp( u"ben@velmora.local_Image" ) );
    // The edge did not change either: a frame of the old edge still shows.
    deliver( media( GRTP_VIDEO, 2, 48, videoFrame( 3 ) ) );
    loop( );
    EXPECT_NE( stamp, instance->getTimestamp( u"ben@velmora.local_Image" ) );
}

TEST_F( GVideoPlayback, GapIsToldAndPlayGoesOn )
{
    TestLog::expect( "WARNING Expecting video packet #1 but actually received #5" );
    open( );
    deliver( media( GRTP_VIDEO, 5, 48, videoFrame( 1 ) ) );
    loop( );
    EXPECT_TRUE( hasImage( ) );
}

TEST_F( GVideoPlayback, NewEdgeMakesANewDecoderThatShowsNothingUntilItsFirstFrame )
{
    TestLog::expect( "WARNING Received invalid video frame packet, ignoring." );
    TestLog::allow( "WARNING Malformed Theora frame, ignoring." );
    open( );
    deliver( media( GRTP_VIDEO, 1, 48, videoFrame( 1 ) ) );
    loop( );
    const uint64_t stamp = instance->getTimestamp( u"ben@velmora.local_Image" );
    GTheoraEncoder* large = GSAFENEW( GTheoraEncoder, ( { GIT_RGB24, 64, 64 }, { 0, 0, 64, 64 }, 64, 64, 5 ) );
    GString first;
    GString second;
    large->encode( picture( 64, 64, 1 ).data( ), 64 * 64 * 3, first );
    large->encode( picture( 64, 64, 1 ).data( ), 64 * 64 * 3, second );
    delete large;
    now += 1000;
    // The word alone, and then a frame that builds on one that the new decoder has not seen.
    deliver( media( GRTP_VIDEO, 2, 64, "" ) );
    deliver( media( GRTP_VIDEO, 3, 64, "broken" ) );
    loop( );
    EXPECT_EQ( stamp, instance->getTimestamp( u"ben@velmora.local_Image" ) );
    deliver( media( GRTP_VIDEO, 4, 64, first ) );
    deliver( media( GRTP_VIDEO, 5, 64, second ) );
    loop( );
    EXPECT_EQ( 64U * 64U * 3U, instance->getRaw( u"ben@velmora.local_Image" ).size( ) );
}

TEST_F( GVideoPlayback, FormatWordWithoutAFrameShowsNothing )
{
    open( );
    deliver( media( GRTP_VIDEO, 1, 48, "" ) );
    loop( );
    EXPECT_FALSE( hasImage( ) );
}

TEST_F( GVideoPlayback, AbsurdFormatWordsAreMalformed )
{
    TestLog::expect( "WARNING Malformed RTP VIDEO DATA packet, ignoring." );
    TestLog::expect( "WARNING Malformed RTP AUDIO DATA packet, ignoring." );
    open( );
    uint16_t sequence = 0;
    for( const uint32_t edge : { 0U, 1U, 8U, 47U, 1040U, 0x7FFFFFFFU, 0xFFFFFFF0U } )
        deliver( media( GRTP_VIDEO, ++sequence, edge, videoFrame( 1 ) ) );
    sequence = 0;
    for( const uint32_t rate : { 1U, 7999U, 48001U, 0xFFFFFFFFU } )
        deliver( media( GRTP_AUDIO, ++sequence, rate, audioFrame( ) ) );
    loop( );
    EXPECT_FALSE( hasImage( ) );
    EXPECT_FALSE( instance->contains( u"Listening_To_List", u"ben@velmora.local" ) );
    EXPECT_EQ( 11, TestLog::count( "WARNING Malformed RTP" ) );
}

TEST_F( GVideoPlayback, GarbageFrameIsDroppedAndTheStreamGoesOn )
{
    TestLog::expect( "WARNING Received invalid video frame packet, ignoring." );
    TestLog::allow( "WARNING Malformed Theora frame, ignoring." );
    open( );
    deliver( media( GRTP_VIDEO, 1, 48, "garbage" ) );
    deliver( media( GRTP_VIDEO, 2, 48, videoFrame( 1 ) ) );
    loop( );
    EXPECT_TRUE( hasImage( ) );
}

TEST_F( GVideoPlayback, NoVideoWhileTheOwnScreenIsShared )
{
    instance->set( u"GScreenService_sendStreamActive", u"true" );
    open( );
    deliver( media( GRTP_VIDEO, 1, 48, videoFrame( 1 ) ) );
    loop( );
    EXPECT_FALSE( hasImage( ) );
}

TEST_F( GVideoPlayback, FirstAudioStartsListeningAndSilenceEndsIt )
{
    TestLog::expect( "WARNING Inactivity timeout (1001ms), resetting audio." );
    open( );
    deliver( media( GRTP_AUDIO, 1, 22000, audioFrame( ) ) );
    loop( );
    EXPECT_TRUE( instance->contains( u"Listening_To_List", u"ben@velmora.local" ) );
    EXPECT_EQ( 1, listeningCommands( ) );
    EXPECT_GT( instance->calc( u"ben@velmora.local_Audio_Buffer_Length" ), 0 );
    now += 1001000;
    loop( );
    EXPECT_FALSE( instance->contains( u"Listening_To_List", u"ben@velmora.local" ) );
    deliver( media( GRTP_AUDIO, 2, 22000, audioFrame( ) ) );
    loop( );
    EXPECT_EQ( 1, listeningCommands( ) );
}

TEST_F( GVideoPlayback, SpurtAfterASecondOfSilencePrebuffersAnew )
{
    TestLog::expect( "WARNING Inactivity timeout (1001ms), resetting audio." );
    const auto spurt = [&]( uint16_t from, uint16_t to )
    {
        for( uint16_t sequence = from; sequence <= to; ++sequence )
            deliver( media( GRTP_AUDIO, sequence, 22000, audioFrame( ) ) );
        loop( );
    };
    open( );
    // A packet holds 51 ms; eleven pass the prebuffer of half a second.
    spurt( 1, 11 );
    EXPECT_EQ( 1, FakeSound::get( ).opened );
    now += 1001000;
    loop( );
    spurt( 12, 13 );
    EXPECT_EQ( 1, FakeSound::get( ).opened );
    spurt( 14, 22 );
    EXPECT_EQ( 2, FakeSound::get( ).opened );
}

TEST_F( GVideoPlayback, GapInTheSoundIsToldAndPlayGoesOn )
{
    TestLog::expect( "WARNING Expecting audio packet #2 but actually received #4" );
    TestLog::expect( "WARNING Received invalid audio frame packet, ignoring." );
    TestLog::expect( "WARNING Speex packet of 7 bytes tells another length, ignoring." );
    open( );
    deliver( media( GRTP_AUDIO, 1, 22000, audioFrame( ) ) );
    loop( );
    const int64_t length = instance->calc( u"ben@velmora.local_Audio_Buffer_Length" );
    deliver( media( GRTP_AUDIO, 4, 22000, audioFrame( ) ) );
    deliver( media( GRTP_AUDIO, 5, 22000, "garbage" ) );
    loop( );
    EXPECT_NEAR( 2 * length, instance->calc( u"ben@velmora.local_Audio_Buffer_Length" ), 1 );
}

TEST_F( GVideoPlayback, NextSpurtCountingAnewIsDroppedToTheLetterAndHeardWithTheRemedy )
{
    TestLog::allow( "WARNING Inactivity timeout" );
    for( const bool robust : { false, true } )
    {
        instance->set( u"Robust_Media", robust ? u"1" : u"0" );
        instance->clear( u"Listening_To_List" );
        open( );
        for( uint16_t sequence = 1; sequence <= 3; ++sequence )
            deliver( media( GRTP_AUDIO, sequence, 22000, audioFrame( ) ) );
        loop( );
        now += 1001000;
        loop( );
        deliver( media( GRTP_AUDIO, 1, 22000, audioFrame( ) ) );
        loop( );
        EXPECT_EQ( robust, instance->contains( u"Listening_To_List", u"ben@velmora.local" ) );
    }
}

TEST_F( GVideoPlayback, SenderReportOfTheStreamHasNoEffect )
{
    open( );
    GString report;
    GRTCPSRCompose( report, 1, "ben@velmora.local@dev2" );
    deliver( report );
    loop( );
    EXPECT_FALSE( hasImage( ) );
}

TEST_F( GVideoPlayback, SenderReportOfAnotherNameOrHostIsAWarning )
{
    TestLog::expect( "WARNING: Assertion failed. (GCaseEquals( stream->getName( ), cname ))" );
    TestLog::expect( "WARNING Received unexpected RTCP-SR from 'eve@velmora.local@x' (10.6.6.6:1), ignoring." );
    TestLog::expect( "WARNING Received malformed RTCP-SR from 'ben@velmora.local@dev2' (10.0.0.9:5000), ignoring." );
    open( );
    GString report;
    GRTCPSRCompose( report, 1, "eve@velmora.local@x" );
    deliver( report );
    deliver( report, u"10.6.6.6:1" );
    deliver( report.substr( 0, 38 ) );
    loop( );
}

TEST_F( GVideoPlayback, BytesOfStrangersAreDropped )
{
    TestLog::expect( "WARNING Received unexpected 16bytes from (10.6.6.6:1), ignoring." );
    open( );
    deliver( media( GRTP_VIDEO, 1, 48, "" ), u"10.6.6.6:1" );
    loop( );
    EXPECT_FALSE( hasImage( ) );
}

TEST_F( GVideoPlayback, UnknownAndMalformedCommandsAreDropped )
{
    TestLog::expect( "WARNING Malformed command sent to 'GVideoPlaybackService_commandQueue', ignoring." );
    TestLog::expect( "WARNING Unsupported command 'DANCE' sent to GVideoPlaybackService_commandQueue, ignoring." );
    instance->enqueue( u"GVideoPlaybackService_commandQueue", GString( "not a message" ) );
    instance->enqueue( u"GVideoPlaybackService_commandQueue", command( u"DANCE" ) );
    instance->enqueue( u"GVideoPlaybackService_commandQueue", command( u"CLOSE" ) );
    loop( );
    EXPECT_TRUE(
        TestLog::contains( "Received 'CLOSE' request, but no stream named 'ben@velmora.local@dev2'; ignoring." ) );
}

TEST_F( GVideoPlayback, ReopeningReplacesTheStream )
{
    open( );
    open( );
    EXPECT_TRUE( TestLog::contains( "that is already open, resetting." ) );
    deliver( media( GRTP_VIDEO, 1, 48, videoFrame( 1 ) ) );
    loop( );
    EXPECT_TRUE( hasImage( ) );
}
