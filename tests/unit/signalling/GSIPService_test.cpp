#include "client/signalling/GSIPService.h"

#include "support/TestClock.h"
#include "support/TestLog.h"
#include "unit/signalling/TestClient.h"

#include <gtest/gtest.h>

namespace
{
constexpr int64_t SECOND = 1000000;
using S = GSIPService;

class SIPService : public testing::Test
{
protected:
    void pass( )
    {
        server.answer( );
        ann.pass( );
    }
    void command( GWStringView method, const GWString& buddy = { } )
    {
        ann.command( method, buddy );
        pass( );
        pass( );
    }
    void goOnline( )
    {
        command( u"BUDDYLOGON" );
        ASSERT_EQ( S::ONLINE, ann.service->getState( ) );
    }
    void bringTo( int state )
    {
        server.hears = nullptr;
        if( state == S::GETTING_BUDDY_LIST )
        {
            server.hears = []( const GHTTPHeaders& ) { return false; };
            command( u"BUDDYLOGON" );
        }
        if( state >= S::ONLINE ) goOnline( );
        if( state == S::LEAVING_BUDDIES )
        {
            connectFar( );
            server.hears = []( const GHTTPHeaders& ) { return false; };
            command( u"BUDDYLOGOFF" );
        }
        if( state == S::SETTING_BUDDY_LIST )
        {
            server.hears = []( const GHTTPHeaders& ) { return false; };
            command( u"BUDDYLOGOFF" );
        }
        ASSERT_EQ( state, ann.service->getState( ) );
        far.hear( );
        ann.commands( u"GClient_commandQueue" );
    }
    void reset( )
    {
        ann.command( u"RESET" );
        pass( );
        ASSERT_EQ( S::OFFLINE, ann.service->getState( ) );
    }
    GHTTPHeaders fromFar( GWStringView method, GWStringView from = u"bob@test", GWStringView device = u"D2" )
    {
        GHTTPHeaders message( method );
        message.set( u"CSeq", GNumber( ++_cseq ) );
        message.set( u"From", from );
        message.set( u"From-Device-GUID", device );
        message.set( u"Sent-From", far.host( ) );
        message.set( u"Sent-From-Type", u"local" );
        message.set( u"Sent-To", ann.host( ) );
        message.set( u"Try-Route-List", GStringList{ GConcat( u"local://", far.host( ) ) } );
        message.set( u"Send-From", ann.host( ) );
        message.set( u"Send-To", far.host( ) );
        message.set( u"Send-To-Type", u"local" );
        return message;
    }
    void hearFar( const GHTTPHeaders& message )
    {
        far.send( ann.host( ), message );
        ann.pass( );
    }
    void connectFar( )
    {
        hearFar( fromFar( u"INVITE" ) );
        hearFar( fromFar( u"ACK" ) );
        ASSERT_EQ( GDeviceSession::CONNECTED, ann.stateOf( u"bob@test", u"D2" ) );
    }
    GWString value( GWStringView name ) { return ann.instance.get( name ); }
    size_t countHeard( GWStringView method ) const
    {
        size_t count = 0;
        for( const GHTTPHeaders& message : server.heard ) count += message.isMethod( method );
        return count;
    }
    void beRobust( ) { ann.instance.set( u"Robust_Signalling", 1 ); }

    TestClock clock;
    TestHost far;
    TestServer server;
    TestClient ann{ u"ann@test", u"D1", server.host( ) };
    int _cseq = 700;
};
} // namespace

TEST_F( SIPService, CommandsLeadThroughTheTable )
{
    const struct
    {
        int state;
        const char16_t* command;
        int next;
        bool notifies;
    } rows[] = {
        { S::OFFLINE, u"UPDATECAPTURE", S::OFFLINE, false },
        { S::OFFLINE, u"RESET", S::OFFLINE, false },
        { S::OFFLINE, u"BUDDYLOGON", S::ONLINE, false },
        { S::GETTING_BUDDY_LIST, u"UPDATECAPTURE", S::GETTING_BUDDY_LIST, false },
        { S::GETTING_BUDDY_LIST, u"BUDDYLOGOFF", S::OFFLINE, true },
        { S::GETTING_BUDDY_LIST, u"RESET", S::OFFLINE, false },
        { S::ONLINE, u"UPDATECAPTURE", S::ONLINE, false },
        { S::ONLINE, u"RESET", S::OFFLINE, false },
        { S::LEAVING_BUDDIES, u"UPDATECAPTURE", S::LEAVING_BUDDIES, false },
        { S::LEAVING_BUDDIES, u"BUDDYLOGOFF", S::OFFLINE, true },
        { S::LEAVING_BUDDIES, u"RESET", S::OFFLINE, false },
        { S::SETTING_BUDDY_LIST, u"UPDATECAPTURE", S::SETTING_BUDDY_LIST, false },
        { S::SETTING_BUDDY_LIST, u"RESET", S::OFFLINE, false },
    };
    for( const auto& row : rows )
    {
        bringTo( row.state );
        command( row.command );
        EXPECT_EQ( row.next, ann.service->getState( ) ) << row.state << " " << GWideToUTF8( row.command );
        const auto notes = ann.methods( u"GClient_commandQueue" );
        EXPECT_EQ( row.notifies ? 1u : 0u, notes.size( ) );
        if( row.notifies )
        {
            EXPECT_EQ( u"BUDDYLOGGEDOFF", notes.back( ) );
        }
        reset( );
    }
}

TEST_F( SIPService, CommandsOutsideTheTableAreOneWarning )
{
    TestLog::expect( "WARNING: Ignored input, recvMethod='', originalMethod='', recvResponse=0, commandMethod='" );
    const struct
    {
        int state;
        std::vector<const char16_t*> commands;
    } cases[] = {
        { S::OFFLINE, { u"BUDDYLOGOFF", u"ADDBUDDY", u"REMOVEBUDDY", u"RECONNECTBUDDY", u"BUGREPORT", u"OTHER" } },
        { S::GETTING_BUDDY_LIST,
          { u"BUDDYLOGON", u"ADDBUDDY", u"REMOVEBUDDY", u"RECONNECTBUDDY", u"BUGREPORT", u"OTHER" } },
        { S::ONLINE, { u"BUDDYLOGON", u"OTHER" } },
        { S::LEAVING_BUDDIES,
          { u"BUDDYLOGON", u"ADDBUDDY", u"REMOVEBUDDY", u"RECONNECTBUDDY", u"BUGREPORT", u"OTHER" } },
        { S::SETTING_BUDDY_LIST,
          { u"BUDDYLOGON", u"BUDDYLOGOFF", u"ADDBUDDY", u"REMOVEBUDDY", u"BUGREPORT", u"OTHER" } },
    };
    for( const auto& it : cases )
        for( const char16_t* method : it.commands )
        {
            bringTo( it.state );
            const int before = TestLog::count( "WARNING" );
            command( method, u"bob@test" );
            EXPECT_EQ( it.state, ann.service->getState( ) );
            EXPECT_EQ( 1, TestLog::count( "WARNING" ) - before ) << it.state << " " << GWideToUTF8( method );
            reset( );
        }
}

TEST_F( SIPService, MessagesWhileNotOnlineAreRefused )
{
    TestLog::expect( "WARNING: Ignored input, recvMethod='OTHER'" );
    for( const int state : { S::OFFLINE, S::GETTING_BUDDY_LIST, S::SETTING_BUDDY_LIST } )
    {
        bringTo( state );
        const int before = TestLog::count( "WARNING" );
        hearFar( fromFar( u"INVITE" ) );
        hearFar( fromFar( u"PING" ) );
        hearFar( fromFar( u"OTHER" ) );
        EXPECT_EQ( 1, TestLog::count( "WARNING" ) - before );
        EXPECT_FALSE( ann.service->findBuddy( u"bob@test" ) );
        reset( );
    }
}

TEST_F( SIPService, LogonInvitesTheWholeList )
{
    server.buddyList = { u"bob@test", u"cid@test" };
    command( u"BUDDYLOGON" );
    pass( );
    EXPECT_EQ( 1u, countHeard( u"GETBUDDYLIST" ) );
    EXPECT_EQ( 2u, countHeard( u"INVITE" ) );
    EXPECT_EQ( u"ann@test", server.heard[0].get( u"From" ) );
    EXPECT_EQ( u"bob@test, cid@test", value( u"Local_Buddy_List" ) );
    const auto notes = ann.commands( u"GClient_commandQueue" );
    ASSERT_EQ( 2u, notes.size( ) );
    EXPECT_EQ( u"NEWBUDDY", notes[0].getMethod( ) );
    EXPECT_EQ( u"bob@test", notes[0].get( u"Buddy-GUID" ) );
    EXPECT_EQ( u"Online", value( u"SIP_Status" ) );
}

TEST_F( SIPService, FailedListStillGoesOnline )
{
    TestLog::expect( "WARNING Request 'GETBUDDYLIST' failed, ignoring." );
    server.code = 500;
    server.buddyList = { u"bob@test" };
    goOnline( );
    EXPECT_FALSE( ann.service->findBuddy( u"bob@test" ) );
}

TEST_F( SIPService, InvalidNamesInTheListAreNoSessions )
{
    TestLog::expect( "WARNING Received invalid buddy in the buddy list, ignoring." );
    server.buddyList = { u"no-at", u"../x@y z", u"bob@test" };
    goOnline( );
    EXPECT_EQ( u"bob@test", value( u"Local_Buddy_List" ) );
}

TEST_F( SIPService, ServersAnswerCountsOnlyFromTheServer )
{
    TestLog::expect( "WARNING Received response to 'GETBUDDYLIST' from unexpected host" );
    bringTo( S::GETTING_BUDDY_LIST );
    GHTTPHeaders response = respond( 200, u"OK" );
    response.set( u"CSeq", u"1" );
    response.set( u"Buddy-List", u"eve@test" );
    hearFar( response );
    EXPECT_EQ( S::GETTING_BUDDY_LIST, ann.service->getState( ) );
}

TEST_F( SIPService, StrangersInviteMakesASession )
{
    goOnline( );
    ann.commands( u"GClient_commandQueue" );
    hearFar( fromFar( u"INVITE", u"eve@test" ) );
    EXPECT_TRUE( ann.service->findBuddy( u"eve@test" ) );
    const auto notes = ann.commands( u"GClient_commandQueue" );
    ASSERT_EQ( 1u, notes.size( ) );
    EXPECT_EQ( u"NEWBUDDY", notes[0].getMethod( ) );
    EXPECT_EQ( u"eve@test", notes[0].get( u"Buddy-GUID" ) );
}

TEST_F( SIPService, NamesFromTheWireAreTested )
{
    TestLog::expect( "WARNING Received request 'INVITE' from unidentified source" );
    TestLog::expect( "WARNING Received request 'INVITE' with invalid sender" );
    TestLog::expect( "that bears our own device, ignoring." );
    goOnline( );
    hearFar( fromFar( u"INVITE", u"" ) );
    for( const char16_t* name :
         { u"nobody", u"@test", u"eve@", u"Eve@Test", u"eve@a@b", u"eve@te st", u"eve@test/.." } )
        hearFar( fromFar( u"INVITE", name ) );
    for( const char16_t* device : { u"a_b", u"../..", u"a b" } ) hearFar( fromFar( u"INVITE", u"eve@test", device ) );
    hearFar( fromFar( u"INVITE", u"eve@test", GWString( 65, u'a' ) ) );
    EXPECT_EQ( 11, TestLog::count( "with invalid sender" ) );
    hearFar( fromFar( u"INVITE", u"eve@test", u"D1" ) );
    EXPECT_EQ( 0, ann.instance.length( u"GClient_commandQueue" ) );
    EXPECT_FALSE( ann.instance.isSet( u"Local_Buddy_List" ) );
}

TEST_F( SIPService, AnswersWithBadDevicesAreDropped )
{
    TestLog::expect( "WARNING Received response with invalid device from" );
    TestLog::expect( "that bears our own device, ignoring." );
    server.buddyList = { u"bob@test" };
    goOnline( );
    pass( );
    for( const char16_t* device : { u"a/b", u"D1" } )
    {
        GHTTPHeaders response = respond( 200, u"OK" );
        response.set( u"CSeq", u"2" );
        response.set( u"From-Device-GUID", device );
        hearFar( response );
    }
    EXPECT_FALSE( ann.instance.isSet( u"bob@test_Device_List" ) );
}

TEST_F( SIPService, HolepunchNeverReachesASession )
{
    goOnline( );
    GLogSetFilter( "S" );
    GHTTPHeaders message = fromFar( u"HOLEPUNCH" );
    message.set( u"Sent-From", u"10.0.0.1:5" );
    hearFar( message );
    GLogSetFilter( "" );
    EXPECT_FALSE( ann.service->findBuddy( u"bob@test" ) );
    EXPECT_TRUE( TestLog::contains( "Remote buddy 'bob@test' thinks it's sending from (10.0.0.1:5)" ) );
}

TEST_F( SIPService, AddingABuddyTellsItsResult )
{
    TestLog::expect( "WARNING Trying to add 'bob@test' to buddy list, but already added." );
    TestLog::expect( "WARNING: Assertion failed. (!buddyGUID.empty( ))" );
    goOnline( );
    command( u"ADDBUDDY", u"bob@test" );
    EXPECT_EQ( u"bob@test", server.heard.back( ).get( u"Buddy-GUID" ) );
    EXPECT_EQ( u"Added to buddy list.", value( u"Add_Buddy_Status" ) );
    EXPECT_EQ( u"bob@test", value( u"Local_Buddy_List" ) );
    command( u"ADDBUDDY", u"bob@test" );
    EXPECT_EQ( u"Already in buddy list.", value( u"Add_Buddy_Status" ) );
    server.code = 404;
    command( u"ADDBUDDY", u"eve@test" );
    EXPECT_EQ( u"Unknown user.", value( u"Add_Buddy_Status" ) );
    EXPECT_FALSE( ann.service->findBuddy( u"eve@test" ) );
    command( u"ADDBUDDY" );
}

TEST_F( SIPService, ReconnectAndRemoveNeedABuddy )
{
    TestLog::expect( "WARNING Trying to remove 'eve@test' from buddy list, but doesn't exist." );
    goOnline( );
    command( u"RECONNECTBUDDY", u"eve@test" );
    command( u"REMOVEBUDDY", u"eve@test" );
    EXPECT_EQ( 2, TestLog::count( "WARNING Trying to remove" ) );
    connectFar( );
    command( u"RECONNECTBUDDY", u"bob@test" );
    EXPECT_EQ( -1, ann.stateOf( u"bob@test", u"D2" ) );
    EXPECT_EQ( 1u, countHeard( u"INVITE" ) );
    connectFar( );
    far.hear( );
    command( u"REMOVEBUDDY", u"bob@test" );
    EXPECT_EQ( 1u, far.hear( u"BYE" ).size( ) );
    EXPECT_FALSE( ann.instance.contains( u"Local_Buddy_List", u"bob@test" ) );
}

TEST_F( SIPService, BugReportTellsItsResult )
{
    goOnline( );
    ann.instance.set( u"Bug_Report", u"it broke" );
    ann.instance.set( u"Local_Email", u"ann@mail.test" );
    ann.command( u"BUGREPORT" );
    ann.pass( );
    EXPECT_EQ( u"Report sent...", value( u"Bug_Report_Status" ) );
    pass( );
    EXPECT_EQ( u"Report submitted.", value( u"Bug_Report_Status" ) );
    EXPECT_FALSE( ann.instance.isSet( u"Bug_Report" ) );
    EXPECT_EQ( u"it broke", server.heard.back( ).get( u"Text" ) );
    EXPECT_EQ( u"ann@mail.test", server.heard.back( ).get( u"Email" ) );
    server.code = 500;
    command( u"BUGREPORT" );
    EXPECT_EQ( u"Report submission failed: Refused", value( u"Bug_Report_Status" ) );
}

TEST_F( SIPService, CaptureChangeReachesEverySession )
{
    goOnline( );
    connectFar( );
    far.hear( );
    command( u"UPDATECAPTURE" );
    EXPECT_EQ( 1u, far.hear( u"UPDATE" ).size( ) );
}

TEST_F( SIPService, LogoffWithoutBuddiesSavesTheListAtTheNextUpdate )
{
    goOnline( );
    ann.command( u"BUDDYLOGOFF" );
    ann.pass( );
    EXPECT_EQ( S::SETTING_BUDDY_LIST, ann.service->getState( ) );
    pass( );
    EXPECT_EQ( S::OFFLINE, ann.service->getState( ) );
    EXPECT_EQ( 1u, countHeard( u"SETBUDDYLIST" ) );
    EXPECT_EQ( u"BUDDYLOGGEDOFF", ann.methods( u"GClient_commandQueue" ).back( ) );
}

TEST_F( SIPService, GoodbyesFinishWhileLeavingButNobodyIsLetIn )
{
    bringTo( S::LEAVING_BUDDIES );
    hearFar( fromFar( u"INVITE", u"eve@test", u"D9" ) );
    EXPECT_FALSE( ann.service->findBuddy( u"eve@test" ) );
    EXPECT_EQ( GDeviceSession::WF_BYERESPONSE, ann.stateOf( u"bob@test", u"D2" ) );
    clock.advance( 19 * SECOND );
    ann.pass( );
    EXPECT_EQ( S::SETTING_BUDDY_LIST, ann.service->getState( ) );
}

// An answer that comes after the goodbye would begin a session that nobody ends.
TEST_F( SIPService, AnInvitationThatIsAnsweredWhileLeavingConnectsNobodyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        const GWString buddy = robust ? u"dan@test" : u"cid@test";
        goOnline( );
        connectFar( );
        if( robust ) beRobust( );
        command( u"ADDBUDDY", buddy );
        pass( );
        ASSERT_TRUE( server.heard.back( ).isMethod( u"INVITE" ) );
        const GWString cseq = server.heard.back( ).get( u"CSeq" );
        command( u"BUDDYLOGOFF" );
        ann.pass( );
        ASSERT_EQ( S::LEAVING_BUDDIES, ann.service->getState( ) );
        GHTTPHeaders answer = fromFar( u"INVITE", buddy, u"D3" );
        answer.setResponse( 200, u"OK" );
        answer.set( u"CSeq", cseq );
        answer.set( u"Sent-To-Type", u"local" );
        hearFar( answer );
        EXPECT_EQ( robust ? -1 : int( GDeviceSession::WF_ACKRESPONSE ), ann.stateOf( buddy, u"D3" ) );
        reset( );
    }
}

TEST_F( SIPService, ResetForgetsEverySession )
{
    goOnline( );
    connectFar( );
    EXPECT_TRUE( ann.instance.isSet( u"Combined_Buddy_Device_List" ) );
    reset( );
    EXPECT_FALSE( ann.service->findBuddy( u"bob@test" ) );
    EXPECT_FALSE( ann.instance.isSet( u"Combined_Buddy_Device_List" ) );
}

TEST_F( SIPService, MalformedCommandIsDroppedInSilence )
{
    ann.instance.enqueue( u"GSIPService_commandQueue", GString( "rubbish" ) );
    pass( );
    EXPECT_EQ( S::OFFLINE, ann.service->getState( ) );
}

TEST_F( SIPService, SessionsOfStrangersHaveALimitAndLeaveNothingBehind )
{
    goOnline( );
    TestLog::allow( "ignored, no state change." );
    TestLog::allow( "WARNING Buddy list is full" );
    for( int i = 0; i < 1100; ++i )
    {
        far.send( ann.host( ), fromFar( u"OTHER", GConcat( u"eve", i, u"@test" ) ) );
        if( i % 32 == 31 ) ann.pass( );
    }
    ann.pass( );
    EXPECT_FALSE( ann.service->findBuddy( u"eve0@test" ) );
    EXPECT_TRUE( ann.service->findBuddy( u"eve1099@test" ) );
    EXPECT_TRUE( ann.instance.isSet( u"eve1099@test_Image" ) );
    ann.instance.logDump( );
    EXPECT_TRUE( TestLog::contains( "SETTINGS: eve1099@test@d2_buddy" ) );
    for( const auto& line : TestLog::lines( ) )
        EXPECT_EQ( std::string::npos, line.find( "SETTINGS: eve0@test" ) ) << line;
    GStringList list;
    ann.instance.get( u"Local_Buddy_List", list );
    EXPECT_EQ( 1024u, list.size( ) );
}

TEST_F( SIPService, NamesOfStates )
{
    const char16_t* const names[] = { u"Offline",         u"Getting buddy list", u"Online",
                                      u"Leaving buddies", u"Setting buddy list", u"<invalid>" };
    for( int i = 0; i < 6; ++i ) EXPECT_EQ( names[i], GSIPService::_getState( i ) );
}

TEST_F( SIPService, CommandsAndMessagesOfTheSkinWakeTheService )
{
    TestLog::expect( "WARNING Malformed broadcast to 'bob@test@D2', ignoring." );
    const GEvent event = ann.port.getSIPEvent( );
    GEventWait( event, 0 );
    ann.command( u"BUDDYLOGON" );
    EXPECT_TRUE( GEventWait( event, 0 ) );
    pass( );
    pass( );
    connectFar( );
    GEventWait( event, 0 );
    ann.instance.enqueue( u"bob@test_commandQueue", GHTTPHeaders( u"DEVICEBROADCAST" ) );
    EXPECT_TRUE( GEventWait( event, 0 ) );
    reset( );
    GEventWait( event, 0 );
    ann.instance.enqueue( u"bob@test_commandQueue", GHTTPHeaders( u"DEVICEBROADCAST" ) );
    EXPECT_FALSE( GEventWait( event, 0 ) );
}

// ---- The remedies, off and on.

TEST_F( SIPService, GoodbyeThatFindsNoSessionIsAnsweredOnlyWithTheRemedy )
{
    TestLog::allow( "WARNING: Ignored input, recvMethod='BYE'" );
    TestLog::allow( "ignored, no state change." );
    for( const bool robust : { false, true } )
        for( const int state : { S::OFFLINE, S::GETTING_BUDDY_LIST, S::ONLINE, S::SETTING_BUDDY_LIST } )
        {
            if( robust ) beRobust( );
            bringTo( state );
            hearFar( fromFar( u"BYE" ) );
            const auto heard = far.hear( u"BYE" );
            ASSERT_EQ( robust ? 1u : 0u, heard.size( ) ) << state;
            if( robust )
            {
                EXPECT_EQ( 200, heard[0].message.getResponse( ) );
                // It tells a stranger nothing of us.
                EXPECT_FALSE( heard[0].message.contains( u"From-Device-GUID" ) );
                EXPECT_FALSE( ann.service->findBuddy( u"bob@test" ) );
            }
            EXPECT_EQ( state, ann.service->getState( ) );
            reset( );
        }
}

TEST_F( SIPService, WhatAFormerRegistrationAskedIsForgottenOnlyWithTheRemedy )
{
    TestLog::allow( "WARNING: Ignored input, recvMethod='', originalMethod='GETBUDDYLIST'" );
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        bringTo( S::GETTING_BUDDY_LIST );
        reset( );
        server.hears = nullptr;
        server.heard.clear( );
        clock.advance( 2 * SECOND );
        pass( );
        server.answer( );
        EXPECT_EQ( robust ? 0u : 1u, countHeard( u"GETBUDDYLIST" ) );
        pass( );
    }
}

TEST_F( SIPService, InviteOfTheServerWithoutADeviceBeginsNothingWithTheRemedy )
{
    TestLog::expect( "WARNING Received request 'INVITE' from stranger 'eve@test'" );
    beRobust( );
    goOnline( );
    ann.instance.set( u"Global_SIP_Host", far.host( ) );
    GHTTPHeaders message = fromFar( u"INVITE", u"eve@test" );
    message.erase( u"From-Device-GUID" );
    hearFar( message );
    EXPECT_FALSE( ann.service->findBuddy( u"eve@test" ) );
}

TEST_F( SIPService, UnansweredListIsAskedForAgainOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        server.hears = []( const GHTTPHeaders& ) { return false; };
        command( u"BUDDYLOGON" );
        // The transaction layer has given up long before.
        for( int i = 0; i < 22; ++i )
        {
            clock.advance( SECOND );
            pass( );
        }
        server.hears = nullptr;
        for( int i = 0; i < 12; ++i )
        {
            clock.advance( SECOND );
            pass( );
        }
        EXPECT_EQ( robust ? S::ONLINE : S::GETTING_BUDDY_LIST, ann.service->getState( ) );
        reset( );
    }
}

TEST_F( SIPService, UnansweredSaveEndsAfterTenSecondsOnlyWithTheRemedy )
{
    // The answer to a repetition comes when the service has gone offline.
    TestLog::allow( "WARNING: Ignored input, recvMethod='', originalMethod='SETBUDDYLIST'" );
    for( const bool robust : { false, true } )
    {
        if( robust ) beRobust( );
        bringTo( S::SETTING_BUDDY_LIST );
        clock.advance( 11 * SECOND );
        pass( );
        EXPECT_EQ( robust ? S::OFFLINE : S::SETTING_BUDDY_LIST, ann.service->getState( ) );
        reset( );
    }
}

TEST_F( SIPService, StrangerBeginsOnlyByTheServerWithTheRemedy )
{
    TestLog::expect( "WARNING Received request 'INVITE' from stranger 'eve@test'" );
    TestLog::expect( "WARNING Received request 'PING' from stranger 'eve@test'" );
    beRobust( );
    goOnline( );
    hearFar( fromFar( u"INVITE", u"eve@test" ) );
    hearFar( fromFar( u"PING", u"eve@test" ) );
    EXPECT_FALSE( ann.service->findBuddy( u"eve@test" ) );
    ann.instance.set( u"Global_SIP_Host", far.host( ) );
    hearFar( fromFar( u"INVITE", u"eve@test" ) );
    EXPECT_TRUE( ann.service->findBuddy( u"eve@test" ) );
}
