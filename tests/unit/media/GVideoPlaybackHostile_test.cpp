// One peer's packets, whatever they are, neither end the program nor starve what the others send.
#include "client/media/GVideoPlaybackService.h"

#include "client/media/GSpeexEncoder.h"
#include "client/media/GTheoraEncoder.h"

#include "MediaFixture.h"

#include <chrono>
#include <random>

namespace
{
constexpr char16_t BEN[] = u"10.0.0.9:5000";
constexpr char16_t EVE[] = u"10.0.0.66:6666";
constexpr char16_t EVES_NAME[] = u"eve@velmora.local@dev3";
} // namespace

// Both ways: to the letter, and with the remedy.
class GVideoPlaybackHostile : public MediaFixture, public testing::WithParamInterface<bool>
{
protected:
    void SetUp( ) override
    {
        MediaFixture::SetUp( );
        TestLog::allow( "WARNING" );
        if( GetParam( ) ) instance->set( u"Robust_Media", 1 );
        service.reset( GSAFENEW( GVideoPlaybackService, ( instance.get( ), port.get( ) ) ) );
        theora.reset( GSAFENEW( GTheoraEncoder, ( { GIT_RGB24, 48, 48 }, { 0, 0, 48, 48 }, 48, 48, 5 ) ) );
        speex.reset( GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( 8000 ) ) ) );
        open( u"ben@velmora.local@dev2", BEN );
        open( EVES_NAME, EVE );
    }
    void TearDown( ) override
    {
        service->_bGThreadObject_safe_onShutdown( );
        service.reset( );
        theora.reset( );
        speex.reset( );
        MediaFixture::TearDown( );
    }
    void open( GWStringView name, GWStringView host )
    {
        GHTTPHeaders headers = command( u"OPEN", name );
        headers.set( u"Recv-From-Host", host );
        instance->enqueue( u"GVideoPlaybackService_commandQueue", headers );
        loop( );
    }
    void loop( )
    {
        const GObjectLock scope( *service );
        service->pass( 0 );
    }
    void deliver( GWStringView host, int type, uint16_t sequence, uint32_t word, const GString& frame,
                  uint32_t ssrc = 7 )
    {
        const char prefix[4] = { static_cast<char>( word ), static_cast<char>( word >> 8 ),
                                 static_cast<char>( word >> 16 ), static_cast<char>( word >> 24 ) };
        GMegaPortBucket* bucket = port->getEmtpyBucket( );
        GRTPCompose( bucket->buffer, type, sequence, 100U * sequence, ssrc, prefix, 4, frame.data( ),
                     static_cast<int>( frame.size( ) ) );
        bucket->remoteHost = host;
        port->fillRTPBucket( bucket );
    }
    // Whether a new picture of Ben's reaches the blackboard.
    bool bensPictureShows( )
    {
        const uint64_t before = instance->getTimestamp( u"ben@velmora.local_Image" );
        GString packet;
        theora->encode( picture( 48, 48, ++bensSequence ).data( ), 48 * 48 * 3, packet );
        deliver( BEN, GRTP_VIDEO, bensSequence, 48, packet );
        loop( );
        loop( );
        return instance->getTimestamp( u"ben@velmora.local_Image" ) != before;
    }
    int listeningCommands( )
    {
        int found = 0;
        GString item;
        while( instance->dequeue( u"GClient_commandQueue", item ) ) found += item.find( "eve@" ) != GString::npos;
        return found;
    }
    GString sound( )
    {
        GString packet;
        speex->encode( tone( 1120 ).data( ), 2240, packet );
        return packet;
    }

    std::unique_ptr<GVideoPlaybackService> service;
    std::unique_ptr<GTheoraEncoder> theora;
    std::unique_ptr<GSpeexEncoder> speex;
    uint16_t bensSequence = 0;
};
INSTANTIATE_TEST_SUITE_P(, GVideoPlaybackHostile, testing::Bool( ),
                         []( const auto& which ) { return which.param ? "Remedy" : "Letter"; } );

TEST_P( GVideoPlaybackHostile, AbsurdWordsAreRefusedBeforeAnythingIsBuilt )
{
    uint16_t sequence = 0;
    for( const uint32_t word : { 0U, 1U, 15U, 40U, 47U, 1025U, 1040U, 65536U, 0x7FFFFFFFU, 0x80000030U, 0xFFFFFFF0U } )
    {
        deliver( EVE, GRTP_VIDEO, ++sequence, word, "frame" );
        loop( );
        EXPECT_EQ( sequence, TestLog::count( "WARNING Malformed RTP VIDEO DATA packet, ignoring." ) ) << word;
    }
    sequence = 0;
    for( const uint32_t word : { 1U, 7999U, 48001U, 0x80001F40U, 0xFFFFFFFFU } )
    {
        deliver( EVE, GRTP_AUDIO, ++sequence, word, "frame" );
        loop( );
        EXPECT_EQ( sequence, TestLog::count( "WARNING Malformed RTP AUDIO DATA packet, ignoring." ) ) << word;
    }
    EXPECT_EQ( 0, listeningCommands( ) );
    EXPECT_TRUE( bensPictureShows( ) );
}

TEST_P( GVideoPlaybackHostile, TalksThatBeginWithEveryPacketAreSoonRefused )
{
    for( uint16_t sequence = 1; sequence <= 400; ++sequence )
    {
        deliver( EVE, GRTP_AUDIO, sequence, 8000U + sequence % 2, sound( ), sequence );
        loop( );
    }
    EXPECT_LE( listeningCommands( ), 10 );
    EXPECT_LE( FakeSound::get( ).opened - FakeSound::get( ).closed, 5 );
    EXPECT_EQ( 1,
               TestLog::count( "WARNING Packets of 'eve@velmora.local@dev3' cost more than a stream may, ignoring." ) );
    EXPECT_TRUE( bensPictureShows( ) );
    // A little later she is heard again.
    now += 2000000;
    deliver( EVE, GRTP_AUDIO, 401, 16000, sound( ), 1 );
    loop( );
    EXPECT_EQ( 1, listeningCommands( ) );
}

TEST_P( GVideoPlaybackHostile, SizesThatChangeWithEveryPacketAreSoonRefused )
{
    for( uint16_t sequence = 1; sequence <= 400; ++sequence )
    {
        deliver( EVE, GRTP_VIDEO, sequence, sequence % 2 ? 1024 : 1008, "" );
        loop( );
    }
    EXPECT_EQ( 1, TestLog::count( "cost more than a stream may" ) );
    EXPECT_TRUE( bensPictureShows( ) );
}

TEST_P( GVideoPlaybackHostile, FloodOfSoundIsRefusedAndOthersAreSeen )
{
    // Nearly 64 KiB of the shortest frames that there are.
    GString frame( 60004, '\0' );
    frame[0] = static_cast<char>( 60000 & 0xFF );
    frame[1] = static_cast<char>( 60000 >> 8 );
    for( uint16_t sequence = 1; sequence <= 50; ++sequence ) deliver( EVE, GRTP_AUDIO, sequence, 8000, frame );
    loop( );
    EXPECT_LE( TestLog::count( "WARNING Speex packet holds 257 frames, ignoring." ), 2 );
    EXPECT_EQ( 1, TestLog::count( "cost more than a stream may" ) );
    EXPECT_TRUE( bensPictureShows( ) );
}

TEST_P( GVideoPlaybackHostile, CommandsAreObeyedAmidAFlood )
{
    for( uint16_t sequence = 1; sequence <= 300; ++sequence ) deliver( EVE, GRTP_AUDIO, sequence, 0, "" );
    instance->enqueue( u"GVideoPlaybackService_commandQueue", command( u"CLOSE", EVES_NAME ) );
    loop( );
    EXPECT_FALSE( instance->isSet( u"eve@velmora.local_Video_Playback_Online" ) );
    // What was left of the flood belongs to nobody.
    loop( );
    EXPECT_EQ( 300 - 256, TestLog::count( "WARNING Received unexpected 16bytes from (10.0.0.66:6666), ignoring." ) );
}

TEST_P( GVideoPlaybackHostile, WhatARoundLeavesIsTakenWithoutWaiting )
{
    for( uint16_t sequence = 1; sequence <= 513; ++sequence ) deliver( u"10.9.9.9:1", GRTP_AUDIO, sequence, 0, "" );
    // The first round takes the event; a second one that waited for another would take all of its five seconds.
    const auto begin = std::chrono::steady_clock::now( );
    for( int round = 0; round < 2; ++round )
    {
        const GObjectLock scope( *service );
        service->pass( 60000000 );
    }
    EXPECT_LT( std::chrono::steady_clock::now( ) - begin, std::chrono::seconds( 4 ) );
    loop( );
    EXPECT_EQ( 513, TestLog::count( "WARNING Received unexpected 16bytes" ) );
}

TEST_P( GVideoPlaybackHostile, StrangersOnlyEarnWarnings )
{
    std::mt19937 random( 5 );
    for( int i = 0; i < 200; ++i )
        deliver( u"10.9.9.9:1", static_cast<int>( random( ) % 3 ), static_cast<uint16_t>( i ), 48, "frame" );
    loop( );
    EXPECT_FALSE( instance->isSet( u"ben@velmora.local_Image" ) );
    EXPECT_TRUE( bensPictureShows( ) );
}

TEST_P( GVideoPlaybackHostile, ReplayedPacketsDoNothing )
{
    ASSERT_TRUE( bensPictureShows( ) );
    GString packet;
    theora->encode( picture( 48, 48, 9 ).data( ), 48 * 48 * 3, packet );
    deliver( BEN, GRTP_VIDEO, 5, 48, packet );
    loop( );
    const uint64_t shown = instance->getTimestamp( u"ben@velmora.local_Image" );
    now += 50000;
    for( const uint16_t sequence : { 5, 4, 1, 0, 65535 } ) deliver( BEN, GRTP_VIDEO, sequence, 64, packet );
    loop( );
    EXPECT_EQ( shown, instance->getTimestamp( u"ben@velmora.local_Image" ) );
}
