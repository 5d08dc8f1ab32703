#include "base/GRandom.h"
#include "client/drawing/GImageTools.h"
#include "unit/signalling/TestDevice.h"

#include <list>

namespace
{
using S = GDeviceSession;
class DeviceSessionHandshake : public TestDevice
{
protected:
    // Bytes of a picture on the blackboard.
    GString picture( GWStringView name ) { return peer.instance.getRaw( name ); }
    void expectMessage( const GHTTPHeaders& message )
    {
        EXPECT_EQ( u"Velmora/764", message.get( u"User-Agent" ) );
        EXPECT_EQ( u"ann@test", message.get( u"From" ) );
        EXPECT_EQ( u"D1", message.get( u"From-Device-GUID" ) );
        EXPECT_EQ( u"bob@test", message.get( u"To" ) );
        EXPECT_EQ( u"D2", message.get( u"To-Device-GUID" ) );
        EXPECT_EQ( static_cast<int64_t>( TestClock::now( ) ), message.calc( u"Time-Sent" ) );
    }
    void beRobust( )
    {
        peer.instance.set( u"Robust_Signalling", 1 );
        client->setRobust( true );
    }
};
} // namespace

TEST_F( DeviceSessionHandshake, InviteGoesToTheServerWithOwnRoutesAndMedia )
{
    GDeviceSession::sendINVITE( &peer.instance, client.get( ), u"bob@test" );
    const auto heard = server.hear( );
    ASSERT_EQ( 1u, heard.size( ) );
    const GHTTPHeaders& message = heard[0].message;
    EXPECT_TRUE( message.isMethod( u"INVITE" ) );
    EXPECT_EQ( u"ann@test", message.get( u"From" ) );
    EXPECT_EQ( u"D1", message.get( u"From-Device-GUID" ) );
    EXPECT_EQ( u"bob@test", message.get( u"To" ) );
    EXPECT_EQ( u"Velmora/764", message.get( u"User-Agent" ) );
    EXPECT_FALSE( message.contains( u"To-Device-GUID" ) );
    EXPECT_FALSE( message.contains( u"Time-Sent" ) );
    EXPECT_FALSE( message.contains( u"Sent-To-Type" ) );
    EXPECT_EQ( u"turn", message.get( u"Sent-From-Type" ) );
    EXPECT_EQ( GConcat( u"local://", peer.host( ) ), message.get( u"Try-Route-List" ) );
    EXPECT_TRUE( message.test( u"Audio-Enabled" ) );
    EXPECT_TRUE( message.test( u"Video-Enabled" ) );
    EXPECT_TRUE( message.contains( u"Time-Bias" ) );
    EXPECT_FALSE( message.get( u"Time-Zone" ).empty( ) );
}

TEST_F( DeviceSessionHandshake, HolesArePunchedAtOnceAndEachSecond )
{
    session->waitForINVITEOK( routes( ) );
    auto heard = far.hear( u"HOLEPUNCH" );
    ASSERT_EQ( 1u, heard.size( ) );
    expectMessage( heard[0].message );
    EXPECT_EQ( peer.host( ), heard[0].message.get( u"Sent-From" ) );
    clock.advance( SECOND / 2 );
    session->update( );
    EXPECT_TRUE( far.hear( ).empty( ) );
    clock.advance( SECOND );
    session->update( );
    EXPECT_EQ( 1u, far.hear( u"HOLEPUNCH" ).size( ) );
}

TEST_F( DeviceSessionHandshake, InviteIsAnsweredAlongItsRoutes )
{
    request( invite( ) );
    const auto heard = far.hear( );
    ASSERT_EQ( 1u, heard.size( ) );
    const GHTTPHeaders& message = heard[0].message;
    expectMessage( message );
    GWString text;
    EXPECT_EQ( 200, message.getResponse( text ) );
    EXPECT_EQ( u"OK", text );
    EXPECT_EQ( GConcat( u"local://", peer.host( ) ), message.get( u"Try-Route-List" ) );
    EXPECT_EQ( u"local", message.get( u"Sent-To-Type" ) );
    EXPECT_TRUE( message.contains( u"Time-Bias" ) );
    EXPECT_EQ( u"101", message.get( u"CSeq" ) );
}

TEST_F( DeviceSessionHandshake, InviteTellsMediaAndClockOfTheBuddy )
{
    request( invite( ) );
    EXPECT_TRUE( peer.instance.test( u"bob@test_Audio_Enabled" ) );
    EXPECT_TRUE( peer.instance.test( u"bob@test@D2_Audio_Enabled" ) );
    EXPECT_TRUE( peer.instance.test( u"bob@test@D2_Video_Enabled" ) );
    EXPECT_EQ( u"CET", value( u"bob@test_Time_Zone" ) );
    EXPECT_EQ( u"60", value( u"bob@test_Time_Bias" ) );
    EXPECT_EQ( GTimeComposeTime( TestClock::now( ) - 3600 * SECOND ), value( u"bob@test_Time" ) );
    EXPECT_EQ( picture( u"defaultprofile_av.png" ), picture( u"bob@test_Image" ) );
    EXPECT_EQ( picture( u"defaultprofile_av_BW.png" ), picture( u"bob@test_Image_BW" ) );
}

TEST_F( DeviceSessionHandshake, PictureShowsWhatTheBuddyCanDo )
{
    const struct
    {
        const char16_t* audio;
        const char16_t* video;
        const char16_t* picture;
    } cases[] = { { u"false", u"false", u"defaultprofile" },
                  { u"true", u"false", u"defaultprofile_a" },
                  { u"false", u"true", u"defaultprofile_v" },
                  { u"true", u"true", u"defaultprofile_av" } };
    for( const auto& it : cases )
    {
        renew( );
        GHTTPHeaders message = invite( );
        message.set( u"Audio-Enabled", it.audio );
        message.set( u"Video-Enabled", it.video );
        request( message );
        EXPECT_EQ( picture( GConcat( it.picture, u".png" ) ), picture( u"bob@test_Image" ) );
        EXPECT_EQ( picture( GConcat( it.picture, u"_BW.png" ) ), picture( u"bob@test_Image_BW" ) );
    }
}

TEST_F( DeviceSessionHandshake, ImpossibleTimeBiasIsZero )
{
    for( const int64_t bias : { int64_t( 1440 ), int64_t( -1440 ) } )
    {
        renew( );
        GHTTPHeaders message = invite( );
        message.set( u"Time-Bias", bias );
        request( message );
        EXPECT_EQ( bias, peer.instance.calc( u"bob@test_Time_Bias" ) );
    }
    for( const int64_t bias : { int64_t( 1441 ), int64_t( -1441 ), int64_t( 9223372036854775807 ) } )
    {
        renew( );
        GHTTPHeaders message = invite( );
        message.set( u"Time-Bias", bias );
        request( message );
        EXPECT_EQ( u"0", value( u"bob@test_Time_Bias" ) );
    }
}

TEST_F( DeviceSessionHandshake, StrangersRoutesAreTestedOnce )
{
    TestLog::expect( "WARNING Received invalid route 'local://224.0.0.1:5000'" );
    GHTTPHeaders message = invite( );
    message.set( u"Try-Route-List", GStringList{ u"local://224.0.0.1:5000", GConcat( u"local://", peer.host( ) ),
                                                 GConcat( u"local://", far.host( ) ) } );
    request( message );
    EXPECT_EQ( 1u, far.hear( ).size( ) );
    clock.advance( 2 * SECOND );
    session->update( );
    EXPECT_EQ( 1u, far.hear( ).size( ) );
    EXPECT_EQ( 1, TestLog::count( "WARNING" ) );
}

TEST_F( DeviceSessionHandshake, AckNamesTheCopyThatCameThrough )
{
    bringTo( S::WF_INVITERESPONSE );
    response( u"INVITE", inviteResponse( ) );
    const auto heard = far.hear( u"ACK" );
    ASSERT_EQ( 1u, heard.size( ) );
    expectMessage( heard[0].message );
    EXPECT_EQ( far.host( ), heard[0].message.get( u"Send-From" ) );
    EXPECT_EQ( peer.host( ), heard[0].message.get( u"Send-To" ) );
    EXPECT_EQ( u"restricted", heard[0].message.get( u"Send-To-Type" ) );
    EXPECT_TRUE( heard[0].message.contains( u"CSeq-Group" ) );
}

TEST_F( DeviceSessionHandshake, SecondCopyOfTheResponseIsLate )
{
    bringTo( S::WF_INVITERESPONSE );
    GHTTPHeaders first = inviteResponse( );
    first.set( u"Sent-To-Type", u"unrestricted" );
    response( u"INVITE", first );
    far.hear( );
    GLogSetFilter( "d" );
    response( u"INVITE", inviteResponse( ) );
    GLogSetFilter( "" );
    EXPECT_TRUE( TestLog::contains( "Request 'INVITE' received late response OK, ignoring." ) );
    EXPECT_TRUE( far.hear( ).empty( ) );
    response( u"ACK", proof( respond( 200, u"OK" ) ) );
    EXPECT_EQ( u"unrestricted<-local", value( u"bob@test@D2_Recv_Route" ) );
}

TEST_F( DeviceSessionHandshake, AckGivesTheCalleeItsRouteAndIsAnswered )
{
    bringTo( S::WF_ACK );
    peer.instance.set( u"bob@test_Chat_Status", u"x" );
    request( ack( ) );
    EXPECT_EQ( peer.host( ), value( u"bob@test@D2_Send_From" ) );
    EXPECT_EQ( far.host( ), value( u"bob@test@D2_Send_To" ) );
    EXPECT_EQ( far.host( ), value( u"bob@test@D2_Recv_From" ) );
    EXPECT_EQ( u"local->unrestricted", value( u"bob@test@D2_Send_Route" ) );
    EXPECT_EQ( u"<-local", value( u"bob@test@D2_Recv_Route" ) );
    EXPECT_FALSE( peer.instance.isSet( u"bob@test_Chat_Status" ) );
    const auto heard = far.hear( u"ACK" );
    ASSERT_EQ( 1u, heard.size( ) );
    expectMessage( heard[0].message );
    EXPECT_EQ( 200, heard[0].message.getResponse( ) );
    EXPECT_EQ( far.host( ), heard[0].message.get( u"Send-From" ) );
    EXPECT_EQ( peer.host( ), heard[0].message.get( u"Send-To" ) );
    EXPECT_EQ( u"restricted", heard[0].message.get( u"Send-To-Type" ) );
    EXPECT_EQ( u"unrestricted", heard[0].message.get( u"Sent-To-Type" ) );
}

TEST_F( DeviceSessionHandshake, AckWithoutAUsableRouteIsIgnored )
{
    TestLog::expect( "WARNING Received ACK or its answer without a usable route" );
    const struct
    {
        const char16_t* header;
        const char16_t* value;
    } cases[] = { { u"Send-From", u"" },          { u"Send-From", u"99.0.0.1:5000" }, { u"Send-To", u"" },
                  { u"Send-To", u"224.0.0.1:9" }, { u"Send-To", u"0.0.0.0:0" },       { u"Send-To-Type", u"" },
                  { u"Send-To-Type", u"a b" } };
    for( const auto& it : cases )
    {
        renew( );
        bringTo( S::WF_ACK );
        GHTTPHeaders message = ack( );
        message.set( it.header, it.value );
        request( message );
        EXPECT_EQ( S::WF_ACK, session->getState( ) );
        renew( );
        bringTo( S::WF_ACKRESPONSE );
        message = proof( respond( 200, u"OK" ) );
        message.set( it.header, it.value );
        response( u"ACK", message );
        EXPECT_EQ( S::WF_ACKRESPONSE, session->getState( ) );
    }
    EXPECT_EQ( 14, TestLog::count( "without a usable route" ) );
}

TEST_F( DeviceSessionHandshake, AckThatSendsUsToOurselvesIsIgnored )
{
    TestLog::expect( "WARNING Received ACK or its answer without a usable route" );
    bringTo( S::WF_ACK );
    GHTTPHeaders message = ack( );
    message.set( u"Send-To", peer.host( ) );
    request( message );
    EXPECT_EQ( S::WF_ACK, session->getState( ) );
}

TEST_F( DeviceSessionHandshake, BusyMeansToWaitAtMostTenSeconds )
{
    for( uint32_t seed = 1; seed < 20; ++seed )
    {
        renew( );
        GRandomSeed( seed );
        bringTo( S::WT_REINVITE );
        int64_t waited = 0;
        for( ; session->getState( ) == S::WT_REINVITE && waited <= 10 * SECOND; waited += SECOND / 10 )
        {
            clock.advance( SECOND / 10 );
            session->update( );
        }
        EXPECT_EQ( S::WF_INVITERESPONSE, session->getState( ) );
        EXPECT_EQ( 1u, server.hear( u"INVITE" ).size( ) );
    }
}

TEST_F( DeviceSessionHandshake, BusyResponseResetsTheSession )
{
    bringTo( S::WF_INVITERESPONSE );
    response( u"INVITE", inviteResponse( 300 ) );
    EXPECT_EQ( ( std::vector<GWString>{ u"CLOSE" } ), peer.methods( u"GVideoCaptureService_commandQueue" ) );
    EXPECT_EQ( ( std::vector<GWString>{ u"CLOSE" } ), peer.methods( u"GVideoPlaybackService_commandQueue" ) );
    EXPECT_EQ( ( std::vector<GWString>{ u"CANCEL" } ), peer.methods( u"GFileService_commandQueue" ) );
    EXPECT_EQ( ( std::vector<GWString>{ u"CLOSESEND", u"CLOSERECV" } ),
               peer.methods( u"GScreenService_commandQueue" ) );
    EXPECT_EQ( u"-:--pm", value( u"bob@test_Time" ) );
}

TEST_F( DeviceSessionHandshake, ForeignInviteWhileWaitingGetsBusy )
{
    for( const int state : { S::WF_INVITERESPONSE, S::WF_ACK, S::WF_ACKRESPONSE } )
    {
        renew( );
        bringTo( state );
        request( invite( ) );
        const auto heard = far.hear( u"INVITE" );
        ASSERT_EQ( 1u, heard.size( ) );
        GWString text;
        EXPECT_EQ( 300, heard[0].message.getResponse( text ) );
        EXPECT_EQ( u"Busy", text );
        EXPECT_EQ( state, session->getState( ) );
    }
}

TEST_F( DeviceSessionHandshake, UnansweredInviteDropsAfterEighteenSeconds )
{
    bringTo( S::WF_INVITERESPONSE );
    clock.advance( 18 * SECOND );
    session->update( );
    EXPECT_EQ( S::WF_INVITERESPONSE, session->getState( ) );
    clock.advance( 1 );
    session->update( );
    EXPECT_EQ( S::DISCONNECTED, session->getState( ) );
    EXPECT_TRUE( server.hear( ).empty( ) );
}

TEST_F( DeviceSessionHandshake, ResponseIsRepeatedEachSecondUntilItTimesOut )
{
    bringTo( S::WF_ACK );
    size_t repeats = 0;
    for( int i = 0; i < 35; ++i )
    {
        clock.advance( SECOND / 2 );
        session->update( );
        repeats += far.hear( u"INVITE" ).size( );
    }
    EXPECT_GE( repeats, 11u );
    EXPECT_LE( repeats, 18u );
    for( int i = 0; i < 4 && session->getState( ) == S::WF_ACK; ++i )
    {
        clock.advance( SECOND / 2 );
        session->update( );
    }
    EXPECT_EQ( S::WT_REINVITE, session->getState( ) );
}

TEST_F( DeviceSessionHandshake, AckIsRepeatedWithFreshNumbersUntilItTimesOut )
{
    bringTo( S::WF_INVITERESPONSE );
    response( u"INVITE", inviteResponse( ) );
    const GWString first = far.hear( u"ACK" )[0].message.get( u"CSeq" );
    session->update( );
    clock.advance( SECOND + 1 );
    session->update( );
    const auto again = far.hear( u"ACK" );
    ASSERT_FALSE( again.empty( ) );
    EXPECT_NE( first, again.back( ).message.get( u"CSeq" ) );
    for( int i = 0; i < 40; ++i )
    {
        clock.advance( SECOND / 2 );
        session->update( );
        if( session->getState( ) == S::WT_REINVITE ) break;
    }
    EXPECT_EQ( S::WT_REINVITE, session->getState( ) );
}

TEST_F( DeviceSessionHandshake, ReinviteKnowsTheRoutesOfBefore )
{
    bringTo( S::WT_REINVITE );
    clock.advance( 11 * SECOND );
    session->update( );
    EXPECT_EQ( S::WF_INVITERESPONSE, session->getState( ) );
    session->update( );
    EXPECT_EQ( 1u, far.hear( u"HOLEPUNCH" ).size( ) );
}

// ---- The remedies, off and on.

TEST_F( DeviceSessionHandshake, RepeatedInviteGetsBusyByTheLetterAndTheAnswerAgainWithTheRemedy )
{
    for( const int code : { 300, 200 } )
    {
        if( code == 200 ) beRobust( );
        renew( );
        const GHTTPHeaders message = invite( );
        request( message );
        far.hear( );
        request( message );
        const auto heard = far.hear( u"INVITE" );
        ASSERT_EQ( 1u, heard.size( ) );
        EXPECT_EQ( code, heard[0].message.getResponse( ) );
        EXPECT_EQ( S::WF_ACK, session->getState( ) );
    }
}

// Who comes back while the other side still invites him where he was.
TEST_F( DeviceSessionHandshake, InviteOfADeviceThatNeverAnsweredIsTakenAfterTwoSecondsWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        renew( );
        bringTo( S::WF_INVITERESPONSE );
        clock.advance( 2 * SECOND );
        request( invite( ) );
        EXPECT_EQ( S::WF_INVITERESPONSE, session->getState( ) );
        clock.advance( SECOND / 10 );
        request( invite( ) );
        EXPECT_EQ( robust ? S::WF_ACK : S::WF_INVITERESPONSE, session->getState( ) );
        const auto heard = far.hear( u"INVITE" );
        ASSERT_EQ( 2u, heard.size( ) );
        EXPECT_EQ( 300, heard[0].message.getResponse( ) );
        EXPECT_EQ( robust ? 200 : 300, heard[1].message.getResponse( ) );
    }
}

TEST_F( DeviceSessionHandshake, InviteIsTakenToTheEndOfTheSecondWaitWithTheRemedy )
{
    beRobust( );
    bringTo( S::WF_INVITERESPONSE );
    clock.advance( 18 * SECOND + 1 );
    session->update( );
    ASSERT_EQ( S::WF_INVITERESPONSE, session->getState( ) );
    request( invite( ) );
    EXPECT_EQ( S::WF_ACK, session->getState( ) );
}

// Both sides have taken the other's INVITE; this one is D1, so it calls before D2 and waits for D0.
TEST_F( DeviceSessionHandshake, CrossedInvitationsAreDecidedByTheDevicesIdsWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        renew( );
        bringTo( S::WF_ACK );
        if( !robust ) TestLog::expect( "WARNING Response #200 'OK'" );
        response( u"INVITE", inviteResponse( ) );
        EXPECT_EQ( robust ? S::WF_ACKRESPONSE : S::WF_ACK, session->getState( ) );
        EXPECT_EQ( robust ? 1u : 0u, far.hear( u"ACK" ).size( ) );
    }
    response( u"ACK", proof( respond( 200, u"OK" ) ) );
    EXPECT_EQ( S::CONNECTED, session->getState( ) );

    renew( );
    bringTo( S::WF_ACK );
    response( u"INVITE", inviteResponse( 300 ) );
    EXPECT_EQ( S::WF_ACK, session->getState( ) );
    peer.instance.set( u"Local_Device_GUID", u"D3" );
    response( u"INVITE", inviteResponse( ) );
    EXPECT_EQ( S::WF_ACK, session->getState( ) );
    request( ack( ) );
    EXPECT_EQ( S::CONNECTED, session->getState( ) );
}

TEST_F( DeviceSessionHandshake, CallerInvitesAnewAtThreeAndEighteenSecondsWithTheRemedy )
{
    for( const size_t invites : { 0u, 2u } )
    {
        if( invites ) beRobust( );
        renew( );
        bringTo( S::WF_INVITERESPONSE );
        std::vector<int64_t> times;
        for( int64_t time = 0; time < 40 * SECOND; time += SECOND / 2 )
        {
            clock.advance( SECOND / 2 );
            session->update( );
            for( size_t n = server.hear( u"INVITE" ).size( ); n; --n ) times.push_back( time + SECOND / 2 );
        }
        ASSERT_EQ( invites, times.size( ) );
        if( !invites ) continue;
        EXPECT_NEAR( 3.0 * SECOND, static_cast<double>( times[0] ), 0.6 * SECOND );
        EXPECT_NEAR( 18.0 * SECOND, static_cast<double>( times[1] ), 0.6 * SECOND );
        EXPECT_EQ( S::DISCONNECTED, session->getState( ) );
    }
}

TEST_F( DeviceSessionHandshake, ResponseThatOvertakesTheServersTimesOutAtOnceByTheLetterAndInTimeWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        renew( );
        if( robust ) beRobust( );
        response( u"INVITE", inviteResponse( ) );
        session->waitForINVITEOK( routes( ) );
        for( int i = 0; i < 3; ++i )
        {
            session->update( );
            clock.advance( SECOND / 10 );
        }
        EXPECT_EQ( robust ? S::WF_ACKRESPONSE : S::WT_REINVITE, session->getState( ) );
        for( int i = 0; i < 18 * 10; ++i )
        {
            session->update( );
            clock.advance( SECOND / 10 );
        }
        EXPECT_NE( S::WF_ACKRESPONSE, session->getState( ) );
    }
}

TEST_F( DeviceSessionHandshake, AckIsRepeatedAtOnceByTheLetterAndAfterASecondWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        renew( );
        bringTo( S::WF_ACKRESPONSE );
        session->update( );
        EXPECT_EQ( robust ? 0u : 1u, far.hear( u"ACK" ).size( ) );
        clock.advance( SECOND + 1 );
        session->update( );
        EXPECT_EQ( 1u, far.hear( u"ACK" ).size( ) );
    }
}

TEST_F( DeviceSessionHandshake, ConnectingSilencesTheCopiesOfTheAckOnlyWithTheRemedy )
{
    struct Nobody : IGSIPClientListener
    {
        void onRequest( const GWString&, const GWString&, const GHTTPHeaders& ) override {}
        void onResponse( const GWString&, const GWString&, const GHTTPHeaders&, const GHTTPHeaders& ) override {}
    } nobody;
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        renew( );
        bringTo( S::WF_ACKRESPONSE );
        response( u"ACK", proof( respond( 200, u"OK" ) ) );
        ASSERT_TRUE( session->isOnline( ) );
        clock.advance( SECOND + 1 );
        client->dispatch( &nobody );
        EXPECT_EQ( robust ? 0u : 1u, far.hear( u"ACK" ).size( ) );
    }
}

TEST_F( DeviceSessionHandshake, LostAnswerToTheAckIsGivenAgainOnlyWithTheRemedy )
{
    TestLog::expect( "WARNING Request 'ACK' from" );
    TestHost other;
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        renew( );
        bringTo( S::CONNECTED );
        const GHTTPHeaders again = ack( );
        request( again );
        const auto heard = far.hear( u"ACK" );
        ASSERT_EQ( robust ? 1u : 0u, heard.size( ) );
        if( robust )
        {
            EXPECT_EQ( again.get( u"CSeq" ), heard[0].message.get( u"CSeq" ) );
            EXPECT_EQ( far.host( ), heard[0].message.get( u"Send-From" ) );
        }
        // By another way it proves nothing, since this one is in use.
        if( robust ) session->onRequest( peer.host( ), other.host( ), ack( ) );
        EXPECT_TRUE( far.hear( ).empty( ) );
        EXPECT_EQ( S::CONNECTED, session->getState( ) );
    }
    EXPECT_EQ( 1, TestLog::count( "WARNING" ) );
}

TEST_F( DeviceSessionHandshake, CalleeRepeatsItsFirstResponseEarlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        renew( );
        request( invite( ) );
        session->update( );
        far.hear( );
        clock.advance( SECOND / 4 );
        session->update( );
        EXPECT_EQ( robust ? 1u : 0u, far.hear( u"INVITE" ).size( ) );
        session->update( );
        EXPECT_TRUE( far.hear( ).empty( ) );
    }
}

TEST_F( DeviceSessionHandshake, CallerPunchesHolesOnceMoreEarlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        renew( );
        session->waitForINVITEOK( routes( ) );
        EXPECT_EQ( 1u, far.hear( u"HOLEPUNCH" ).size( ) );
        clock.advance( SECOND / 4 );
        session->update( );
        EXPECT_EQ( robust ? 1u : 0u, far.hear( u"HOLEPUNCH" ).size( ) );
        session->update( );
        EXPECT_TRUE( far.hear( ).empty( ) );
    }
}

TEST_F( DeviceSessionHandshake, CalleeAnswersAtOnceWhereTheCallerOpenedAWayWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        renew( );
        bringTo( S::WF_ACK );
        TestHost opened;
        session->onHOLEPUNCH( opened.host( ) );
        const auto heard = opened.hear( u"INVITE" );
        ASSERT_EQ( robust ? 1u : 0u, heard.size( ) );
        if( robust )
        {
            EXPECT_EQ( 200, heard[0].message.getResponse( ) );
            EXPECT_EQ( opened.host( ), heard[0].message.get( u"Sent-To" ) );
        }
        session->onHOLEPUNCH( opened.host( ) );
        EXPECT_TRUE( opened.hear( ).empty( ) );
        EXPECT_TRUE( far.hear( ).empty( ) );
    }
}

TEST_F( DeviceSessionHandshake, CalleeAnswersFewOpenedWaysAndOnlyWhileTheCallerWaits )
{
    beRobust( );
    TestHost early;
    session->onHOLEPUNCH( early.host( ) );
    EXPECT_TRUE( early.hear( ).empty( ) );
    bringTo( S::WF_ACK );
    std::list<TestHost> hosts( 6 );
    size_t heard = 0;
    for( TestHost& host : hosts )
    {
        session->onHOLEPUNCH( host.host( ) );
        heard += host.hear( u"INVITE" ).size( );
    }
    EXPECT_EQ( 4u, heard );
    TestHost own;
    session->onHOLEPUNCH( peer.host( ) );
    request( ack( ) );
    session->onHOLEPUNCH( own.host( ) );
    EXPECT_TRUE( own.hear( ).empty( ) );
}

TEST_F( DeviceSessionHandshake, GoodbyeIsAnsweredInEveryStateWithTheRemedy )
{
    beRobust( );
    for( int state = S::DISCONNECTED; state <= S::WF_BYERESPONSE; ++state )
    {
        renew( );
        bringTo( state );
        request( fromFar( GHTTPHeaders( u"BYE" ) ) );
        const auto heard = far.hear( u"BYE" );
        ASSERT_EQ( 1u, heard.size( ) ) << state;
        EXPECT_EQ( 200, heard[0].message.getResponse( ) );
    }
}

TEST_F( DeviceSessionHandshake, HostsSeenBecomeRoutesWithTheRemedy )
{
    TestHost seen;
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        renew( );
        session->noteHost( seen.host( ) );
        session->waitForINVITEOK( routes( ) );
        EXPECT_EQ( robust ? 1u : 0u, seen.hear( u"HOLEPUNCH" ).size( ) );
        EXPECT_EQ( 1u, far.hear( u"HOLEPUNCH" ).size( ) );
        response( u"INVITE", inviteResponse( ) );
        EXPECT_EQ( robust ? 1u : 0u, seen.hear( u"ACK" ).size( ) );
    }
}

TEST_F( DeviceSessionHandshake, AtMostFourSeenHostsAreKept )
{
    beRobust( );
    renew( );
    std::vector<std::unique_ptr<TestHost>> hosts;
    for( int i = 0; i < 6; ++i )
    {
        hosts.push_back( std::make_unique<TestHost>( ) );
        session->noteHost( hosts.back( )->host( ) );
    }
    session->noteHost( peer.host( ) );
    session->waitForINVITEOK( routes( ) );
    size_t count = 0;
    for( const auto& host : hosts ) count += host->hear( ).size( );
    EXPECT_EQ( 4u, count );
    EXPECT_TRUE( hosts[1]->hear( ).empty( ) );
}
