#include "client/media/GVideoPlaybackService.h"

#include "PlaybackFixture.h"
#include "support/CountAllocations.h"

#include <algorithm>
#include <chrono>
#include <thread>

using GVideoPlayback = PlaybackFixture;

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

TEST_F( GVideoPlayback, LateSoundHasNoEffectAtAll )
{
    open( );
    deliver( media( GRTP_AUDIO, 1, 22000, audioFrame( ) ) );
    loop( );
    EXPECT_EQ( 1, listeningCommands( ) );
    const int64_t length = instance->calc( u"ben@velmora.local_Audio_Buffer_Length" );
    deliver( media( GRTP_AUDIO, 1, 16000, audioFrame( ) ) );
    deliver( media( GRTP_AUDIO, 0, 0, "" ) );
    loop( );
    EXPECT_EQ( 0, listeningCommands( ) );
    EXPECT_TRUE( instance->contains( u"Listening_To_List", u"ben@velmora.local" ) );
    EXPECT_EQ( length, instance->calc( u"ben@velmora.local_Audio_Buffer_Length" ) );
}

TEST_F( GVideoPlayback, GainIsHeard )
{
    const auto peakAt = [&]( int percent )
    {
        now += 1000;
        instance->set( u"ben@velmora.local_Gain", percent );
        open( );
        for( uint16_t sequence = 1; sequence <= 12; ++sequence )
            deliver( media( GRTP_AUDIO, sequence, 22000, audioFrame( ) ) );
        loop( );
        const std::scoped_lock lock( FakeSound::get( ).mutex );
        const auto* samples = reinterpret_cast<const int16_t*>( FakeSound::get( ).ring.data( ) );
        return *std::max_element( samples + 5000, samples + 10000 );
    };
    const int whole = peakAt( 100 );
    EXPECT_GT( whole, 5000 );
    EXPECT_EQ( 0, peakAt( 0 ) );
    EXPECT_NEAR( whole / 2, peakAt( 50 ), 1000 );
    EXPECT_EQ( 32767, peakAt( 1000 ) );
}

TEST_F( GVideoPlayback, SteadyTalkAndPicturesTakeNothingFromTheHeap )
{
    // The letter's feeders run by the machine's clock: without a device they touch nothing.
    TestLog::expect( "WARNING Cannot play audio, ignoring." );
    TestLog::expect( "WARNING Received unexpected 4016bytes from" );
    static std::atomic<int> rests;
    rests = 0;
    GThreadSetSleep(
        []( int64_t )
        {
            ++rests;
            std::this_thread::sleep_for( std::chrono::milliseconds( 2 ) );
        } );
    for( const bool robust : { false, true } )
    {
        FakeSound::get( ).reset( );
        FakeSound::get( ).clocked = FakeSound::get( ).available = robust;
        FakeSound::get( ).output.reserve( 1 << 20 );
        instance->set( u"Robust_Media", robust );
        open( );
        std::vector<GString> packets;
        const GString sound = audioFrame( );
        for( uint16_t i = 1; i <= 120; ++i )
        {
            packets.push_back( media( GRTP_AUDIO, i, i * 5U, 22000, sound ) );
            packets.push_back( media( GRTP_VIDEO, i, i * 51U, 48, videoFrame( i % 8 ) ) );
        }
        // The port's buckets grow with the largest.
        deliver( media( GRTP_VIDEO, 1, 48, GString( 4000, 'x' ) ), u"10.6.6.6:1" );
        deliver( media( GRTP_VIDEO, 1, 48, GString( 4000, 'x' ) ), u"10.6.6.6:1" );
        loop( );
        size_t next = 0;
        const auto play = [&]( size_t end )
        {
            for( ; next < end; next += 2, now += 50909 )
            {
                deliver( packets[next] );
                deliver( packets[next + 1] );
                loop( );
            }
        };
        play( 160 );
        // The feeder of pictures has begun.
        for( int i = 0; i < 5000 && !rests; ++i ) std::this_thread::sleep_for( std::chrono::milliseconds( 2 ) );
        // But for the room of a picture when one more than ever before waits for its sound.
        EXPECT_LE( countAllocations( [&] { play( 240 ); } ), robust ? 2 : 0 ) << robust;
    }
    instance->enqueue( u"GVideoPlaybackService_commandQueue", command( u"CLOSE" ) );
    loop( );
    GThreadSetSleep( nullptr );
}

TEST_F( GVideoPlayback, TalksThatNobodyHeardAreNotKept )
{
    TestLog::expect( "WARNING Cannot play audio, ignoring." );
    FakeSound::get( ).available = false;
    open( );
    for( uint16_t sequence = 1; sequence <= 12; ++sequence )
        deliver( media( GRTP_AUDIO, sequence, 22000, audioFrame( ) ) );
    loop( );
    EXPECT_EQ( 0, instance->calc( u"ben@velmora.local_Audio_Buffer_Length" ) );
    deliver( media( GRTP_AUDIO, 13, 22000, audioFrame( ) ) );
    deliver( media( GRTP_AUDIO, 14, 0, "" ) );
    loop( );
    EXPECT_FALSE( TestLog::contains( "Adding video renderer to sunset list" ) );
}
