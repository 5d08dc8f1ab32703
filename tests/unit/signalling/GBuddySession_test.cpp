#include "client/signalling/GBuddySession.h"

#include "client/signalling/GDeviceSession.h"
#include "support/TestClock.h"
#include "support/TestLog.h"
#include "unit/signalling/TestPeer.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>

namespace
{
constexpr int64_t SECOND = 1000000;

class BuddySession : public testing::Test
{
protected:
    GHTTPHeaders request( GWStringView method, GWStringView device ) const
    {
        GHTTPHeaders message( method );
        message.set( u"CSeq", GNumber( ++_cseq ) );
        message.set( u"From", u"bob@test" );
        if( !device.empty( ) ) message.set( u"From-Device-GUID", device );
        message.set( u"Sent-To", peer.host( ) );
        message.set( u"Sent-From", far.host( ) );
        message.set( u"Sent-From-Type", u"local" );
        message.set( u"Try-Route-List", GStringList{ GConcat( u"local://", far.host( ) ) } );
        return message;
    }
    GHTTPHeaders ack( GWStringView device ) const
    {
        GHTTPHeaders message = request( u"ACK", device );
        message.set( u"Send-From", peer.host( ) );
        message.set( u"Send-To", far.host( ) );
        message.set( u"Send-To-Type", u"local" );
        return message;
    }
    void give( const GHTTPHeaders& message ) { session->onRequest( peer.host( ), far.host( ), message ); }
    void connect( GWStringView device )
    {
        give( request( u"INVITE", device ) );
        give( ack( device ) );
        ASSERT_TRUE( session->findDevice( device )->isOnline( ) );
    }
    void answerInvite( const GHTTPHeaders& response )
    {
        GHTTPHeaders original( u"INVITE" );
        original.set( u"To", u"bob@test" );
        session->onResponse( peer.host( ), server.host( ), original, response );
    }
    GHTTPHeaders whereabouts( const GStringList& devices ) const
    {
        GHTTPHeaders response = respond( 100, u"Trying" );
        response.set( u"Device-List", devices );
        for( const GWString& device : devices )
            response.set( GConcat( device, u"-Route-List" ), GStringList{ GConcat( u"local://", far.host( ) ) } );
        return response;
    }
    void command( const GString& item ) { peer.instance.enqueue( u"bob@test_commandQueue", item ); }
    GWString value( GWStringView name ) { return peer.instance.get( name ); }
    bool test( GWStringView name ) { return peer.instance.test( name ); }
    void beRobust( )
    {
        peer.instance.set( u"Robust_Signalling", 1 );
        client->setRobust( true );
    }
    void renew( )
    {
        session.reset( );
        session.reset( GSAFENEW( GBuddySession, ( &peer.instance, client.get( ), u"bob@test" ) ) );
        far.hear( );
        server.hear( );
    }

    TestClock clock;
    TestHost far;
    TestHost server;
    TestPeer peer{ u"ann@test", u"D1", server.host( ) };
    std::unique_ptr<GSIPClient> client{ GSAFENEW( GSIPClient, ( &peer.port ) ) };
    std::unique_ptr<GBuddySession> session{ GSAFENEW( GBuddySession, ( &peer.instance, client.get( ), u"bob@test" ) ) };
    mutable int _cseq = 500;
};
} // namespace

TEST_F( BuddySession, BeginsWithThePlainPictureAndAnUnknownTime )
{
    EXPECT_EQ( peer.instance.getRaw( u"defaultprofile.png" ), peer.instance.getRaw( u"bob@test_Image" ) );
    EXPECT_EQ( peer.instance.getRaw( u"defaultprofile_BW.png" ), peer.instance.getRaw( u"bob@test_Image_BW" ) );
    EXPECT_EQ( u"-:--pm", value( u"bob@test_Time" ) );
}

TEST_F( BuddySession, WithoutDevicesTheBuddyIsOffline )
{
    session->update( );
    EXPECT_TRUE( session->isOffline( ) );
    EXPECT_TRUE( test( u"bob@test_Offline" ) );
    EXPECT_FALSE( test( u"bob@test_Online" ) );
    EXPECT_EQ( u"bob@test is offline.", value( u"bob@test_Chat_Status" ) );
}

TEST_F( BuddySession, OneConnectedDeviceOfTwoMakesTheBuddyOnline )
{
    connect( u"D2" );
    connect( u"D3" );
    give( request( u"BYE", u"D3" ) );
    EXPECT_TRUE( session->findDevice( u"D3" )->isOffline( ) );
    session->update( );
    EXPECT_TRUE( test( u"bob@test_Online" ) );
    EXPECT_FALSE( test( u"bob@test_Offline" ) );
    EXPECT_EQ( u"D2, D3", value( u"bob@test_Device_List" ) );
    EXPECT_EQ( u"bob@test@D2, bob@test@D3", value( u"Combined_Buddy_Device_List" ) );
}

TEST_F( BuddySession, BroadcastReachesAllDevicesButTheExceptedOne )
{
    connect( u"D2" );
    connect( u"D3" );
    far.hear( );
    GHTTPHeaders wrapper( u"DEVICEBROADCAST" );
    wrapper.addContent( GHTTPHeaders( u"CALLCANCEL" ).serialize( ) );
    command( wrapper.serialize( ) );
    wrapper.set( u"Except-Device-GUID", u"D2" );
    command( wrapper.serialize( ) );
    session->update( );
    GStringVector devices;
    for( const Heard& heard : far.hear( u"DEVICEBROADCAST" ) )
        devices.push_back( heard.message.get( u"To-Device-GUID" ) );
    EXPECT_EQ( ( GStringVector{ u"D2", u"D3", u"D3" } ), devices );
}

TEST_F( BuddySession, RequestWithoutDeviceIsAnswered400 )
{
    TestLog::expect( GWideToUTF8( GConcat( u"WARNING Unexpected request 'INVITE' from '", far.host( ), u"'" ) ) );
    give( request( u"INVITE", u"" ) );
    const auto heard = far.hear( );
    ASSERT_EQ( 1u, heard.size( ) );
    GWString text;
    EXPECT_EQ( 400, heard[0].message.getResponse( text ) );
    EXPECT_EQ( u"Invalid request", text );
}

TEST_F( BuddySession, InviteAsksTheServerAndAddsTheBuddyOnce )
{
    session->invite( );
    session->invite( );
    EXPECT_EQ( 2u, server.hear( u"INVITE" ).size( ) );
    EXPECT_EQ( u"bob@test", value( u"Local_Buddy_List" ) );
}

TEST_F( BuddySession, WhereaboutsMakeSessionsAndPunchHoles )
{
    answerInvite( whereabouts( { u"D2", u"D3" } ) );
    EXPECT_EQ( 2u, far.hear( u"HOLEPUNCH" ).size( ) );
    EXPECT_EQ( GDeviceSession::WF_INVITERESPONSE, session->findDevice( u"D2" )->getState( ) );
    EXPECT_EQ( GConcat( u"local://", far.host( ) ), value( u"D2_Route_List" ) );
}

TEST_F( BuddySession, DeviceWithoutRoutesIsSkipped )
{
    GHTTPHeaders response = whereabouts( { u"D2", u"D3" } );
    response.erase( u"D2-Route-List" );
    answerInvite( response );
    EXPECT_FALSE( session->findDevice( u"D2" ) );
    EXPECT_TRUE( session->findDevice( u"D3" ) );
}

TEST_F( BuddySession, OwnAndInvalidDevicesAreNoSessions )
{
    TestLog::expect( "WARNING Received invalid device list of 'bob@test', ignoring." );
    answerInvite( whereabouts( { u"D1", u"a/b", GWString( 65, u'x' ), u"D2" } ) );
    EXPECT_EQ( u"D2", value( u"bob@test_Device_List" ) );
}

TEST_F( BuddySession, OtherAnswersOfTheServer )
{
    TestLog::expect( "WARNING Received invalid response #500 (Broken) to INVITE request for 'bob@test', ignoring." );
    TestLog::expect( "WARNING Received response #200 (OK) to unknown request 'OTHER' for 'bob@test', ignoring." );
    GLogSetFilter( "b" );
    answerInvite( respond( 400, u"Offline" ) );
    GLogSetFilter( "" );
    EXPECT_TRUE( TestLog::contains( "Buddy 'bob@test' is offline." ) );
    answerInvite( respond( 500, u"Broken" ) );
    session->onResponse( peer.host( ), server.host( ), GHTTPHeaders( u"OTHER" ), respond( 200, u"OK" ) );
    EXPECT_TRUE( session->isOffline( ) );
}

TEST_F( BuddySession, DevicesAnswerReachesItsSession )
{
    GHTTPHeaders response = respond( 300, u"Busy" );
    response.set( u"From-Device-GUID", u"D2" );
    answerInvite( response );
    EXPECT_EQ( GDeviceSession::WT_REINVITE, session->findDevice( u"D2" )->getState( ) );
}

TEST_F( BuddySession, SelfCheckComparesWithANameThatNobodyWrites )
{
    GHTTPHeaders response = respond( 300, u"Busy" );
    response.set( u"From-Device-GUID", u"D1" );
    answerInvite( response );
    EXPECT_TRUE( session->findDevice( u"D1" ) );
    TestLog::expect( "WARNING Somehow received a response from ourselves; ignoring." );
    peer.instance.set( u"Local_GUID", u"D9" );
    response.set( u"From-Device-GUID", u"D9" );
    answerInvite( response );
    EXPECT_FALSE( session->findDevice( u"D9" ) );
}

TEST_F( BuddySession, CommandsOfTheSkinReachEveryDevice )
{
    TestLog::expect( "WARNING Malformed command to 'bob@test@GSIPService_commandQueue', ignoring." );
    TestLog::expect( "WARNING Unrecognized command 'OTHER' to GSIPService, ignoring." );
    connect( u"D2" );
    connect( u"D3" );
    far.hear( );
    GHTTPHeaders broadcast( u"DEVICEBROADCAST" );
    broadcast.addContent( GHTTPHeaders( u"CHAT" ).serialize( ) );
    command( "rubbish" );
    command( GHTTPHeaders( u"OTHER" ).serialize( ) );
    command( broadcast.serialize( ) );
    session->update( );
    EXPECT_EQ( 2u, far.hear( u"DEVICEBROADCAST" ).size( ) );
}

TEST_F( BuddySession, EachDeviceGetsItsOwnFileIdentifier )
{
    connect( u"D2" );
    connect( u"D3" );
    peer.commands( u"GFileService_commandQueue" );
    GHTTPHeaders offer( u"SENDFILE" );
    offer.set( u"Path", u"/tmp/x" );
    GHTTPHeaders broadcast( u"DEVICEBROADCAST" );
    broadcast.addContent( offer.serialize( ) );
    command( broadcast.serialize( ) );
    session->update( );
    const auto commands = peer.commands( u"GFileService_commandQueue" );
    ASSERT_EQ( 2u, commands.size( ) );
    EXPECT_NE( commands[0].get( u"File-ID" ), commands[1].get( u"File-ID" ) );
}

TEST_F( BuddySession, RemovalByOneDeviceLeavesTheOthersConnected )
{
    connect( u"D2" );
    connect( u"D3" );
    GHTTPHeaders bye = request( u"BYE", u"D2" );
    bye.set( u"Removed", u"true" );
    give( bye );
    EXPECT_FALSE( peer.instance.contains( u"Local_Buddy_List", u"bob@test" ) );
    EXPECT_TRUE( session->findDevice( u"D3" )->isOnline( ) );
}

TEST_F( BuddySession, GoodbyeReachesEveryDevice )
{
    connect( u"D2" );
    connect( u"D3" );
    far.hear( );
    session->bye( true );
    EXPECT_EQ( 2u, far.hear( u"BYE" ).size( ) );
    EXPECT_FALSE( peer.instance.contains( u"Local_Buddy_List", u"bob@test" ) );
    EXPECT_FALSE( session->isOffline( ) );
}

TEST_F( BuddySession, ResetForgetsTheDevices )
{
    connect( u"D2" );
    session->update( );
    session->reset( );
    EXPECT_FALSE( session->findDevice( u"D2" ) );
    for( const char16_t* name : { u"bob@test_Device_List", u"bob@test_Online", u"bob@test_Offline" } )
        EXPECT_FALSE( peer.instance.isSet( name ) );
}

TEST_F( BuddySession, OldestIdleDeviceGivesWayAndBusyOnesStay )
{
    TestLog::expect( "WARNING Too many devices of 'bob@test', ignoring." );
    TestLog::allow( "ignored, no state change." );
    for( int i = 0; i < 16; ++i ) give( request( u"OTHER", GConcat( u"E", i ) ) );
    give( request( u"OTHER", u"E16" ) );
    EXPECT_FALSE( session->findDevice( u"E0" ) );
    EXPECT_TRUE( session->findDevice( u"E1" ) );
    EXPECT_TRUE( session->findDevice( u"E16" ) );
    for( int i = 1; i <= 16; ++i ) give( request( u"INVITE", GConcat( u"E", i ) ) );
    give( request( u"INVITE", u"E17" ) );
    EXPECT_FALSE( session->findDevice( u"E17" ) );
}

// ---- The remedies, off and on.

TEST_F( BuddySession, AnyRequestAddsTheBuddyByTheLetterAndOnlyAnInviteWithTheRemedy )
{
    TestLog::allow( "ignored, no state change." );
    TestLog::expect( "WARNING Received request 'PING' from unknown device of 'bob@test'" );
    give( request( u"PING", u"D2" ) );
    EXPECT_TRUE( peer.instance.contains( u"Local_Buddy_List", u"bob@test" ) );
    beRobust( );
    renew( );
    peer.instance.clear( u"Local_Buddy_List" );
    give( request( u"PING", u"D2" ) );
    EXPECT_FALSE( peer.instance.contains( u"Local_Buddy_List", u"bob@test" ) );
    session->onRequest( peer.host( ), server.host( ), request( u"INVITE", u"D2" ) );
    EXPECT_TRUE( peer.instance.contains( u"Local_Buddy_List", u"bob@test" ) );
}

TEST_F( BuddySession, RemovedBuddyComesBackAtOnceByTheLetterAndAfterAMinuteWithTheRemedy )
{
    session->bye( true );
    give( request( u"INVITE", u"D2" ) );
    EXPECT_TRUE( peer.instance.contains( u"Local_Buddy_List", u"bob@test" ) );
    beRobust( );
    renew( );
    session->bye( true );
    clock.advance( 59 * SECOND );
    session->onRequest( peer.host( ), server.host( ), request( u"INVITE", u"D2" ) );
    EXPECT_FALSE( peer.instance.contains( u"Local_Buddy_List", u"bob@test" ) );
    clock.advance( SECOND );
    session->onRequest( peer.host( ), server.host( ), request( u"INVITE", u"D2" ) );
    EXPECT_TRUE( peer.instance.contains( u"Local_Buddy_List", u"bob@test" ) );
}

TEST_F( BuddySession, OfflineBuddyIsInvitedAgainOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        renew( );
        session->invite( );
        server.hear( );
        size_t invites = 0;
        for( int i = 0; i < 3600; ++i )
        {
            clock.advance( SECOND );
            session->update( );
            invites += server.hear( u"INVITE" ).size( );
        }
        EXPECT_GE( invites, robust ? 11u : 0u );
        EXPECT_LE( invites, robust ? 20u : 0u );
        session->bye( false );
        clock.advance( 600 * SECOND );
        session->update( );
        EXPECT_TRUE( server.hear( ).empty( ) );
    }
}

TEST_F( BuddySession, AbsentBuddiesAreNotInvitedAllAtOnce )
{
    beRobust( );
    renew( );
    session->invite( );
    server.hear( );
    std::set<int> waits;
    int waited = 0;
    while( waits.size( ) < 4 && waited <= 301 )
    {
        clock.advance( SECOND );
        session->update( );
        ++waited;
        if( server.hear( u"INVITE" ).empty( ) ) continue;
        EXPECT_GE( waited, 180 );
        waits.insert( waited );
        waited = 0;
    }
    EXPECT_EQ( 4u, waits.size( ) );
}

TEST_F( BuddySession, DeviceBeginsAnywhereByTheLetterAndByTheServerWithTheRemedy )
{
    TestLog::expect( "WARNING Received request 'INVITE' from unknown device of 'bob@test'" );
    give( request( u"INVITE", u"D2" ) );
    EXPECT_TRUE( session->findDevice( u"D2" ) );
    beRobust( );
    renew( );
    give( request( u"INVITE", u"D2" ) );
    EXPECT_FALSE( session->findDevice( u"D2" ) );
    answerInvite( whereabouts( { u"D2" } ) );
    give( request( u"INVITE", u"D2" ) );
    EXPECT_TRUE( session->findDevice( u"D2" ) );
}

TEST_F( BuddySession, HolePunchThatOvertakesItsInviteNamesARouteOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        renew( );
        TestHost seen;
        session->onHOLEPUNCH( seen.host( ), request( u"HOLEPUNCH", u"D2" ) );
        answerInvite( whereabouts( { u"D2" } ) );
        EXPECT_EQ( robust ? 1u : 0u, seen.hear( u"HOLEPUNCH" ).size( ) );
    }
}

TEST_F( BuddySession, HolePunchesThatCameEarlyAreFewAndOfTheirOwnDevice )
{
    beRobust( );
    TestHost oldest;
    TestHost newest;
    TestHost others;
    session->onHOLEPUNCH( oldest.host( ), request( u"HOLEPUNCH", u"D2" ) );
    for( int i = 0; i < 2; ++i ) session->onHOLEPUNCH( others.host( ), request( u"HOLEPUNCH", u"D3" ) );
    session->onHOLEPUNCH( others.host( ), request( u"HOLEPUNCH", u"not a device" ) );
    session->onHOLEPUNCH( others.host( ), request( u"HOLEPUNCH", u"D4" ) );
    session->onHOLEPUNCH( newest.host( ), request( u"HOLEPUNCH", u"D2" ) );
    answerInvite( whereabouts( { u"D2" } ) );
    EXPECT_EQ( 0u, oldest.hear( u"HOLEPUNCH" ).size( ) );
    EXPECT_EQ( 1u, newest.hear( u"HOLEPUNCH" ).size( ) );
    EXPECT_EQ( 0u, others.hear( u"HOLEPUNCH" ).size( ) );
}
