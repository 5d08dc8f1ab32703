#include "unit/signalling/TestDevice.h"

namespace
{
using S = GDeviceSession;
class DeviceSessionRunning : public TestDevice
{
protected:
    void SetUp( ) override { bringTo( S::CONNECTED ); }
    void again( )
    {
        renew( );
        bringTo( S::CONNECTED );
    }
    void beRobust( )
    {
        peer.instance.set( u"Robust_Signalling", 1 );
        client->setRobust( true );
        again( );
    }
    GHTTPHeaders update( GWStringView audio, GWStringView video )
    {
        GHTTPHeaders message = fromFar( GHTTPHeaders( u"UPDATE" ) );
        message.set( u"Audio-Enabled", audio );
        message.set( u"Video-Enabled", video );
        return message;
    }
    bool isVideoOpened( )
    {
        const auto commands = peer.commands( u"GVideoCaptureService_commandQueue" );
        EXPECT_FALSE( commands.empty( ) );
        return !commands.empty( ) && commands.back( ).test( u"Video-Enable" );
    }
    static GHTTPHeaders wrap( const GHTTPHeaders& inner )
    {
        GHTTPHeaders message( u"DEVICEBROADCAST" );
        message.addContent( inner.serialize( ) );
        return message;
    }
    GHTTPHeaders heardInner( )
    {
        GHTTPHeaders inner;
        const auto heard = far.hear( u"DEVICEBROADCAST" );
        EXPECT_EQ( 1u, heard.size( ) );
        if( !heard.empty( ) && heard[0].message.hasContent( ) ) inner.deserialize( heard[0].message.getContent( 0 ) );
        return inner;
    }
};
} // namespace

TEST_F( DeviceSessionRunning, PingsOnceASecondAndCountsTheLoss )
{
    session->update( );
    EXPECT_EQ( 1u, far.hear( u"PING" ).size( ) );
    EXPECT_EQ( u"100.00% (1/1)", value( u"bob@test@D2_Loss" ) );
    EXPECT_EQ( u"CONNECTED", value( u"bob@test@D2_Status" ) );
    session->update( );
    EXPECT_TRUE( far.hear( ).empty( ) );
    response( u"PING", fromFar( respond( 200, u"OK" ) ) );
    EXPECT_EQ( u"0.00% (0/1)", value( u"bob@test@D2_Loss" ) );
    EXPECT_EQ( u"30±0ms", value( u"bob@test@D2_Ping" ) );
}

TEST_F( DeviceSessionRunning, PingTimesSpreadOverTheLastThirty )
{
    for( int i = 0; i < 31; ++i )
    {
        GHTTPHeaders answer = fromFar( respond( 200, u"OK" ) );
        GHTTPHeaders original( u"PING" );
        original.set( u"CSeq", answer.get( u"CSeq" ) );
        // The first, which is dropped again, lies far off the others' 10 and 30 ms.
        const int64_t time = i == 0 ? 900000 : i % 2 ? 10000 : 30000;
        original.set( u"Time-Sent", static_cast<int64_t>( TestClock::now( ) ) - time );
        session->onResponse( peer.host( ), far.host( ), original, answer );
    }
    EXPECT_EQ( u"30±10ms", value( u"bob@test@D2_Ping" ) );
}

TEST_F( DeviceSessionRunning, FailedPingIsOnlyAWarning )
{
    TestLog::expect( "WARNING Ping failed on 'bob@test@D2', ignoring." );
    response( u"PING", fromFar( respond( 400, u"no" ) ) );
    EXPECT_FALSE( peer.instance.isSet( u"bob@test@D2_Ping" ) );
}

TEST_F( DeviceSessionRunning, PeersPingIsAnsweredAndKeepsTheLinkUp )
{
    for( int i = 0; i < 4; ++i )
    {
        clock.advance( 9 * SECOND );
        request( fromFar( GHTTPHeaders( u"PING" ) ) );
        session->update( );
    }
    EXPECT_EQ( S::CONNECTED, session->getState( ) );
    EXPECT_EQ( 8u, far.hear( u"PING" ).size( ) );
}

TEST_F( DeviceSessionRunning, SilenceAboveTenSecondsReinvites )
{
    TestLog::expect( "WARNING Lost contact with 'bob@test@D2', reinviting. (Loss=100.00% (1/1))" );
    session->update( );
    clock.advance( 10 * SECOND );
    session->update( );
    EXPECT_EQ( S::CONNECTED, session->getState( ) );
    peer.instance.set( u"bob@test@D2_Loss", u"100.00% (1/1)" );
    clock.advance( 1 );
    session->update( );
    EXPECT_EQ( S::WT_REINVITE, session->getState( ) );
    EXPECT_EQ( u"-:--pm", value( u"bob@test_Time" ) );
}

TEST_F( DeviceSessionRunning, DisabledTimeoutNeverReinvites )
{
    peer.instance.set( u"Disable_Connection_Timeout", 1 );
    for( int i = 0; i < 100; ++i )
    {
        clock.advance( SECOND + 1 );
        session->update( );
    }
    EXPECT_EQ( S::CONNECTED, session->getState( ) );
    EXPECT_EQ( 100u, far.hear( u"PING" ).size( ) );
}

TEST_F( DeviceSessionRunning, OwnCaptureChangeTellsThePeerAndRestarts )
{
    peer.instance.set( u"Video_Capture_Online", u"false" );
    session->onCaptureChanged( );
    const auto heard = far.hear( u"UPDATE" );
    ASSERT_EQ( 1u, heard.size( ) );
    EXPECT_TRUE( heard[0].message.test( u"Audio-Enabled" ) );
    EXPECT_FALSE( heard[0].message.test( u"Video-Enabled" ) );
    EXPECT_EQ( ( std::vector<GWString>{ u"CLOSE", u"OPEN" } ), peer.methods( u"GVideoCaptureService_commandQueue" ) );
    EXPECT_EQ( ( std::vector<GWString>{ u"CLOSE", u"OPEN" } ), peer.methods( u"GVideoPlaybackService_commandQueue" ) );
}

TEST_F( DeviceSessionRunning, RemoteUpdateWithoutVideoClosesOurVideoToThatPeer )
{
    request( update( u"true", u"false" ) );
    EXPECT_FALSE( isVideoOpened( ) );
    EXPECT_FALSE( peer.instance.test( u"bob@test@D2_Video_Enabled" ) );
    EXPECT_EQ( 200, far.hear( u"UPDATE" )[0].message.getResponse( ) );
}

TEST_F( DeviceSessionRunning, VideoFollowsThePrivacyChoices )
{
    const struct
    {
        const char16_t* mode;
        const char16_t* who;
        const char16_t* when;
        const char16_t* remoteVideo;
        bool open;
    } cases[] = {
        { u"Public - Allow some people to see me", u"Only buddies who I can see", u"Always", u"true", true },
        { u"Public - Allow some people to see me", u"Only buddies who I can see", u"Always", u"false", false },
        { u"Public - Allow some people to see me", u"All my buddies", u"Always", u"false", true },
        { u"Public - Allow some people to see me", u"All my buddies", u"Only when I'm talking", u"true", false },
        { u"Private - Allow nobody to see me", u"All my buddies", u"Always", u"true", false },
    };
    for( const auto& it : cases )
    {
        clock.advance( 2 * SECOND );
        peer.instance.set( u"Video_Privacy_Choice_Mode", it.mode );
        peer.instance.set( u"Video_Privacy_Choice_Who", it.who );
        peer.instance.set( u"Video_Privacy_Choice_When", it.when );
        request( update( u"true", it.remoteVideo ) );
        EXPECT_EQ( it.open, isVideoOpened( ) );
    }
}

TEST_F( DeviceSessionRunning, PeerMayRestartMediaOnceASecondAndTheLastCounts )
{
    request( update( u"true", u"true" ) );
    peer.commands( u"GVideoCaptureService_commandQueue" );
    clock.advance( SECOND / 4 );
    request( update( u"true", u"true" ) );
    request( update( u"true", u"false" ) );
    EXPECT_EQ( 0, peer.instance.length( u"GVideoCaptureService_commandQueue" ) );
    EXPECT_EQ( 3u, far.hear( u"UPDATE" ).size( ) );
    clock.advance( SECOND );
    session->update( );
    EXPECT_EQ( 2, peer.instance.length( u"GVideoCaptureService_commandQueue" ) );
    EXPECT_FALSE( isVideoOpened( ) );
    clock.advance( 2 * SECOND );
    session->update( );
    EXPECT_EQ( 0, peer.instance.length( u"GVideoCaptureService_commandQueue" ) );
}

TEST_F( DeviceSessionRunning, StrangersHostsAreIgnored )
{
    TestLog::expect( "of 'bob@test@D2' from unexpected host" );
    for( const char16_t* method : { u"PING", u"UPDATE", u"DEVICEBROADCAST", u"BYE" } )
    {
        session->onRequest( peer.host( ), u"127.0.0.1:1", fromFar( GHTTPHeaders( method ) ) );
        response( method, fromFar( respond( 400, u"no" ) ), u"127.0.0.1:1" );
    }
    EXPECT_EQ( 8, TestLog::count( "from unexpected host" ) );
    EXPECT_EQ( S::CONNECTED, session->getState( ) );
    EXPECT_EQ( 0u, countQueued( ) );
    EXPECT_TRUE( far.hear( ).empty( ) );
    session->bye( false );
    response( u"BYE", fromFar( respond( 200, u"OK" ) ), u"127.0.0.1:1" );
    EXPECT_EQ( S::WF_BYERESPONSE, session->getState( ) );
}

TEST_F( DeviceSessionRunning, BroadcastFromThePeerGoesToTheClient )
{
    GHTTPHeaders message = fromFar( wrap( GHTTPHeaders( u"CHAT" ) ) );
    request( message );
    const auto commands = peer.commands( u"GClient_commandQueue" );
    ASSERT_EQ( 1u, commands.size( ) );
    EXPECT_EQ( message.serialize( ), commands[0].serialize( ) );
    EXPECT_EQ( 200, far.hear( u"DEVICEBROADCAST" )[0].message.getResponse( ) );
}

TEST_F( DeviceSessionRunning, FloodOfBroadcastsEndsAtALimit )
{
    TestLog::expect( "WARNING Too many messages from 'bob@test@D2', ignoring." );
    int second = 0;
    for( ; second < 12; ++second )
    {
        for( int i = 0; i < 150; ++i ) request( fromFar( wrap( GHTTPHeaders( u"CHAT" ) ) ) );
        // One peer's share; what is above it goes unanswered and so comes again.
        EXPECT_EQ( std::min( 1000, 100 * ( second + 1 ) ), peer.instance.length( u"GClient_commandQueue" ) );
        EXPECT_EQ( second < 10 ? 100u : 0u, far.hear( u"DEVICEBROADCAST" ).size( ) );
        clock.advance( SECOND + 1 );
    }
}

TEST_F( DeviceSessionRunning, ChatLineLeavesUnchanged )
{
    GHTTPHeaders chat( u"CHAT" );
    chat.set( u"Text", u"hello" );
    session->broadcast( wrap( chat ) );
    EXPECT_EQ( chat.serialize( ), heardInner( ).serialize( ) );
}

TEST_F( DeviceSessionRunning, FileOfferHidesThePathAndStartsTheSender )
{
    GHTTPHeaders offer( u"SENDFILE" );
    offer.set( u"Path", u"/home/ann/secret.txt" );
    offer.set( u"Filename", u"secret.txt" );
    session->broadcast( wrap( offer ) );
    const GHTTPHeaders inner = heardInner( );
    EXPECT_FALSE( inner.contains( u"Path" ) );
    EXPECT_EQ( u"secret.txt", inner.get( u"Filename" ) );
    const auto commands = peer.commands( u"GFileService_commandQueue" );
    ASSERT_EQ( 1u, commands.size( ) );
    EXPECT_EQ( u"SENDFILE", commands[0].getMethod( ) );
    EXPECT_EQ( inner.get( u"File-ID" ), commands[0].get( u"File-ID" ) );
    EXPECT_EQ( u"/home/ann/secret.txt", commands[0].get( u"Path" ) );
    EXPECT_EQ( far.host( ), commands[0].get( u"Send-To" ) );
    EXPECT_EQ( peer.host( ), commands[0].get( u"Send-From" ) );
    EXPECT_EQ( u"bob@test@D2", commands[0].get( u"Buddy-Device-GUID" ) );
}

TEST_F( DeviceSessionRunning, ScreenOfferStartsTheSendStream )
{
    GHTTPHeaders offer( u"SHARESCREEN" );
    offer.set( u"Window-ID", u"7" );
    session->broadcast( wrap( offer ) );
    const GHTTPHeaders inner = heardInner( );
    const auto commands = peer.commands( u"GScreenService_commandQueue" );
    ASSERT_EQ( 1u, commands.size( ) );
    EXPECT_EQ( u"OPENSEND", commands[0].getMethod( ) );
    EXPECT_FALSE( inner.get( u"SSRC" ).empty( ) );
    EXPECT_EQ( inner.get( u"SSRC" ), commands[0].get( u"SSRC" ) );
    EXPECT_EQ( u"7", commands[0].get( u"Window-ID" ) );
    EXPECT_EQ( u"bob@test", commands[0].get( u"Buddy-GUID" ) );
    EXPECT_EQ( far.host( ), commands[0].get( u"Send-To" ) );
    EXPECT_EQ( peer.host( ), commands[0].get( u"Send-From" ) );
}

TEST_F( DeviceSessionRunning, EmptyOrMalformedBroadcastIsRefused )
{
    TestLog::expect( "WARNING Malformed broadcast to 'bob@test@D2', ignoring." );
    session->broadcast( GHTTPHeaders( u"DEVICEBROADCAST" ) );
    GHTTPHeaders empty( u"DEVICEBROADCAST" );
    empty.addContent( GString( ) );
    session->broadcast( empty );
    GHTTPHeaders rubbish( u"DEVICEBROADCAST" );
    rubbish.addContent( GString( "rubbish" ) );
    session->broadcast( rubbish );
    EXPECT_EQ( 3, TestLog::count( "WARNING Malformed broadcast" ) );
    EXPECT_TRUE( far.hear( ).empty( ) );
}

TEST_F( DeviceSessionRunning, BroadcastWhileNotConnectedIsRefused )
{
    TestLog::expect( "WARNING Tried to broadcast to 'bob@test@D2' while not connected, ignoring." );
    renew( );
    session->broadcast( wrap( GHTTPHeaders( u"CHAT" ) ) );
    EXPECT_TRUE( far.hear( ).empty( ) );
}

TEST_F( DeviceSessionRunning, GoodbyeWaitsForItsAnswer )
{
    for( const bool remove : { false, true } )
    {
        again( );
        session->bye( remove );
        const auto heard = far.hear( u"BYE" );
        ASSERT_EQ( 1u, heard.size( ) );
        EXPECT_EQ( remove ? u"true" : u"false", heard[0].message.get( u"Removed" ) );
        EXPECT_EQ( ( std::vector<GWString>{ u"CLOSE" } ), peer.methods( u"GVideoCaptureService_commandQueue" ) );
        response( u"BYE", fromFar( respond( 200, u"OK" ) ) );
        EXPECT_TRUE( session->isOffline( ) );
    }
}

TEST_F( DeviceSessionRunning, RefusedGoodbyeStillEndsTheSession )
{
    TestLog::expect( "WARNING: Assertion failed. (responseCode == GHTTP_SUCCESS)" );
    session->bye( false );
    response( u"BYE", fromFar( respond( 500, u"no" ) ) );
    EXPECT_TRUE( session->isOffline( ) );
}

TEST_F( DeviceSessionRunning, UnansweredGoodbyeTimesOut )
{
    session->bye( false );
    clock.advance( 18 * SECOND + 1 );
    session->update( );
    EXPECT_TRUE( session->isOffline( ) );
}

TEST_F( DeviceSessionRunning, PeersGoodbyeEndsTheSessionAndMayRemoveTheBuddy )
{
    peer.instance.set( u"Local_Buddy_List", GStringList{ u"bob@test", u"cid@test" } );
    for( const bool removed : { false, true } )
    {
        again( );
        GHTTPHeaders message = fromFar( GHTTPHeaders( u"BYE" ) );
        message.set( u"Removed", removed ? u"true" : u"false" );
        request( message );
        EXPECT_TRUE( session->isOffline( ) );
        EXPECT_EQ( 200, far.hear( u"BYE" )[0].message.getResponse( ) );
        EXPECT_NE( removed, peer.instance.contains( u"Local_Buddy_List", u"bob@test" ) );
        EXPECT_TRUE( peer.instance.contains( u"Local_Buddy_List", u"cid@test" ) );
    }
}

TEST_F( DeviceSessionRunning, RefusedUpdateIsOnlyAWarning )
{
    TestLog::expect( "WARNING: Assertion failed. (recvResponse.succeeded( ))" );
    response( u"UPDATE", fromFar( respond( 500, u"no" ) ) );
    EXPECT_EQ( S::CONNECTED, session->getState( ) );
}

// ---- The remedies, off and on.

TEST_F( DeviceSessionRunning, SilentDevicesInviteIsBusyByTheLetter )
{
    TestLog::expect( "WARNING Received INVITE while waiting already CONNECTED, responding BUSY." );
    clock.advance( 3 * SECOND );
    request( invite( ) );
    EXPECT_EQ( 300, far.hear( u"INVITE" )[0].message.getResponse( ) );
    EXPECT_EQ( S::CONNECTED, session->getState( ) );
}

TEST_F( DeviceSessionRunning, SilentDevicesInviteIsTakenWithTheRemedy )
{
    TestLog::expect( "WARNING Received INVITE while waiting already CONNECTED, responding BUSY." );
    beRobust( );
    clock.advance( 2 * SECOND );
    request( invite( ) );
    EXPECT_EQ( 300, far.hear( u"INVITE" )[0].message.getResponse( ) );
    EXPECT_EQ( S::CONNECTED, session->getState( ) );
    clock.advance( 1 );
    request( invite( ) );
    EXPECT_EQ( 200, far.hear( u"INVITE" )[0].message.getResponse( ) );
    EXPECT_EQ( S::WF_ACK, session->getState( ) );
}

TEST_F( DeviceSessionRunning, CaptureChangeStopsFilesAndScreensOnlyByTheLetter )
{
    session->onCaptureChanged( );
    EXPECT_EQ( 1, peer.instance.length( u"GFileService_commandQueue" ) );
    EXPECT_EQ( 2, peer.instance.length( u"GScreenService_commandQueue" ) );
    beRobust( );
    session->onCaptureChanged( );
    request( update( u"true", u"true" ) );
    EXPECT_EQ( 0, peer.instance.length( u"GFileService_commandQueue" ) );
    EXPECT_EQ( 0, peer.instance.length( u"GScreenService_commandQueue" ) );
    EXPECT_EQ( 4, peer.instance.length( u"GVideoCaptureService_commandQueue" ) );
}
