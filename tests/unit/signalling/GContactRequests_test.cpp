#include "client/signalling/GContactRequests.h"

#include "support/TestClock.h"
#include "support/TestLog.h"
#include "unit/signalling/TestClient.h"
#include "unit/signalling/TestDispatch.h"

#include <gtest/gtest.h>

namespace
{
constexpr int64_t SECOND = 1000000;
using S = GSIPService;

class ContactRequests : public testing::Test
{
protected:
    ContactRequests( )
    {
        ann.instance.set( u"Contact_Requests", 1 );
        server.hears = [this]( const GHTTPHeaders& message )
        {
            if( !message.getResponse( ) ) return !isDeaf;
            confirmed.push_back( message );
            return false;
        };
    }
    // What the server hears in a pass it answers before the next.
    void pass( )
    {
        server.answer( );
        ann.pass( );
        server.answer( );
    }
    void passFor( int seconds )
    {
        for( int i = 0; i < seconds; ++i )
        {
            clock.advance( SECOND );
            pass( );
        }
    }
    void goOnline( )
    {
        ann.command( u"BUDDYLOGON" );
        pass( );
        pass( );
        ASSERT_EQ( S::ONLINE, ann.service->getState( ) );
    }
    GHTTPHeaders request( GWStringView from, GWStringView state = u"pending" )
    {
        GHTTPHeaders message( u"CONTACTREQUEST" );
        message.set( u"CSeq", GNumber( ++_cseq ) );
        message.set( u"From", from );
        message.set( u"To", u"ann@test" );
        message.set( u"State", state );
        return message;
    }
    // The server says it; the number of times that the device said 200.
    size_t ask( const GHTTPHeaders& message )
    {
        confirmed.clear( );
        server.send( ann.host( ), message );
        pass( );
        return confirmed.size( );
    }
    size_t ask( GWStringView from, GWStringView state = u"pending" ) { return ask( request( from, state ) ); }
    void answer( const GWString& user, GWStringView text )
    {
        GHTTPHeaders message( u"CONTACTANSWER" );
        message.set( u"Buddy-GUID", user );
        message.set( u"Answer", text );
        ann.instance.enqueue( u"GSIPService_commandQueue", message );
        pass( );
    }
    GWString value( GWStringView name ) { return ann.instance.get( name ); }
    GWString shown( ) { return value( u"Contact_Request_List" ); }
    // The users that the client was told of.
    GStringVector told( )
    {
        GStringVector out;
        for( const GHTTPHeaders& note : ann.commands( u"GClient_commandQueue" ) )
            if( note.isMethod( u"NEWCONTACT" ) ) out.push_back( note.get( u"Buddy-GUID" ) );
        return out;
    }
    std::vector<GHTTPHeaders> heard( GWStringView method ) const
    {
        std::vector<GHTTPHeaders> out;
        for( const GHTTPHeaders& message : server.heard )
            if( message.isMethod( method ) ) out.push_back( message );
        return out;
    }

    TestClock clock;
    TestHost far;
    TestServer server;
    TestClient ann{ u"ann@test", u"D1", server.host( ) };
    std::vector<GHTTPHeaders> confirmed;
    bool isDeaf = false;
    int _cseq = 900;
};
class ContactCapability : public TestDispatch
{
};
} // namespace

TEST_F( ContactRequests, RequestIsShownToldAndConfirmed )
{
    goOnline( );
    EXPECT_EQ( 1u, ask( u"bob@test" ) );
    EXPECT_EQ( 200, confirmed[0].getResponse( ) );
    EXPECT_EQ( u"ann@test", confirmed[0].get( u"From" ) );
    EXPECT_EQ( u"D1", confirmed[0].get( u"From-Device-GUID" ) );
    EXPECT_EQ( GNumber( _cseq ), confirmed[0].get( u"CSeq" ) );
    EXPECT_EQ( u"bob@test", shown( ) );
    EXPECT_EQ( u"1 contact request", value( u"Contact_Request_Title" ) );
    EXPECT_EQ( GStringVector{ u"bob@test" }, told( ) );
    EXPECT_FALSE( ann.service->findBuddy( u"bob@test" ) );
    EXPECT_EQ( 1u, ask( u"cid@test" ) );
    EXPECT_EQ( u"bob@test, cid@test", shown( ) );
    EXPECT_EQ( u"2 contact requests", value( u"Contact_Request_Title" ) );
    EXPECT_EQ( GStringVector{ u"cid@test" }, told( ) );
}

TEST_F( ContactRequests, RepeatedRequestIsConfirmedAgainAndShownOnce )
{
    for( const bool robust : { false, true } )
    {
        ann.instance.set( u"Robust_Signalling", robust );
        goOnline( );
        const GHTTPHeaders first = request( u"bob@test" );
        EXPECT_EQ( 1u, ask( first ) );
        EXPECT_EQ( 1u, ask( first ) );
        // After the next registration it has another number.
        EXPECT_EQ( 1u, ask( u"bob@test" ) );
        EXPECT_EQ( u"bob@test", shown( ) );
        EXPECT_EQ( GStringVector{ u"bob@test" }, told( ) );
        ann.command( u"RESET" );
        pass( );
    }
}

TEST_F( ContactRequests, RequestThatComesBeforeTheListIsShownWithIt )
{
    isDeaf = true;
    server.buddyList = { u"bob@test" };
    ann.command( u"BUDDYLOGON" );
    pass( );
    ASSERT_EQ( S::GETTING_BUDDY_LIST, ann.service->getState( ) );
    EXPECT_EQ( 1u, ask( u"bob@test" ) );
    EXPECT_EQ( 1u, ask( u"cid@test" ) );
    EXPECT_EQ( u"", shown( ) );
    EXPECT_TRUE( told( ).empty( ) );
    isDeaf = false;
    passFor( 3 );
    ASSERT_EQ( S::ONLINE, ann.service->getState( ) );
    // The list tells that one of them is a buddy.
    EXPECT_EQ( u"cid@test", shown( ) );
    EXPECT_EQ( GStringVector{ u"cid@test" }, told( ) );
}

TEST_F( ContactRequests, RequestsWhileOfflineStayUnconfirmed )
{
    EXPECT_EQ( 0u, ask( u"bob@test" ) );
    goOnline( );
    ann.command( u"BUDDYLOGOFF" );
    isDeaf = true;
    pass( );
    ASSERT_EQ( S::SETTING_BUDDY_LIST, ann.service->getState( ) );
    EXPECT_EQ( 0u, ask( u"bob@test" ) );
    EXPECT_EQ( u"", shown( ) );
}

TEST_F( ContactRequests, OnlyTheServerIsBelievedAndOnlyAboutThisUser )
{
    TestLog::expect( "WARNING Received 'CONTACTREQUEST' from another host than the server" );
    TestLog::expect( "WARNING Received 'CONTACTREQUEST' from the server to another user" );
    TestLog::expect( "WARNING Received 'CONTACTREQUEST' from an impossible user" );
    TestLog::expect( "WARNING Received 'CONTACTREQUEST' of unknown state 'maybe', ignoring." );
    goOnline( );
    far.send( ann.host( ), request( u"bob@test" ) );
    pass( );
    EXPECT_TRUE( far.hear( ).empty( ) );
    GHTTPHeaders other = request( u"bob@test" );
    other.set( u"To", u"eve@test" );
    EXPECT_EQ( 0u, ask( other ) );
    other.set( u"To", u"" );
    EXPECT_EQ( 0u, ask( other ) );
    for( const char16_t* name : { u"", u"bob", u"@test", u"bob@", u"Bob@Test", u"bob@a@b", u"b b@test",
                                  u"x)(/system?exit)@test", u"ann@test" } )
        EXPECT_EQ( 0u, ask( name ) ) << GWideToUTF8( name );
    EXPECT_EQ( 0u, ask( GConcat( GWString( 128, u'x' ), u"@test" ) ) );
    EXPECT_EQ( 0u, ask( u"bob@test", u"maybe" ) );
    EXPECT_EQ( u"", shown( ) );
    EXPECT_TRUE( told( ).empty( ) );
    EXPECT_FALSE( ann.instance.isSet( u"Local_Buddy_List" ) );
}

TEST_F( ContactRequests, WithoutTheSettingNothingIsShownOrSaid )
{
    ann.instance.clear( u"Contact_Requests" );
    goOnline( );
    EXPECT_EQ( 0u, ask( u"bob@test" ) );
    EXPECT_EQ( u"", shown( ) );
    EXPECT_TRUE( told( ).empty( ) );
    EXPECT_FALSE( ann.service->findBuddy( u"bob@test" ) );
}

TEST_F( ContactRequests, BuddyHasNothingToAsk )
{
    server.buddyList = { u"bob@test" };
    goOnline( );
    EXPECT_EQ( 1u, ask( u"bob@test" ) );
    EXPECT_EQ( u"", shown( ) );
    EXPECT_TRUE( told( ).empty( ) );
}

TEST_F( ContactRequests, AnswerElsewhereTakesTheRequestAway )
{
    goOnline( );
    ask( u"bob@test" );
    ask( u"cid@test" );
    EXPECT_EQ( 1u, ask( u"bob@test", u"answered" ) );
    EXPECT_EQ( u"cid@test", shown( ) );
    // Nothing is known of this one, and the server shall be quiet all the same.
    EXPECT_EQ( 1u, ask( u"dan@test", u"answered" ) );
    EXPECT_EQ( u"cid@test", shown( ) );
    EXPECT_EQ( 1u, ask( u"cid@test", u"answered" ) );
    EXPECT_FALSE( ann.instance.isSet( u"Contact_Request_List" ) );
    EXPECT_FALSE( ann.instance.isSet( u"Contact_Request_Title" ) );
}

TEST_F( ContactRequests, OldestLeavesAHundred )
{
    goOnline( );
    for( int i = 0; i < 150; ++i ) ask( GConcat( u"eve", i, u"@test" ) );
    GStringList list;
    ann.instance.get( u"Contact_Request_List", list );
    EXPECT_EQ( 100u, list.size( ) );
    EXPECT_EQ( u"eve50@test", list.front( ) );
    EXPECT_EQ( u"eve149@test", list.back( ) );
}

// ---- The user's answers.

TEST_F( ContactRequests, RefusalAndBlockGoToTheServer )
{
    goOnline( );
    for( const GWString text : { u"refuse", u"block" } )
    {
        server.heard.clear( );
        ask( u"bob@test" );
        answer( u"bob@test", text );
        EXPECT_EQ( u"", shown( ) );
        const auto messages = heard( u"CONTACTANSWER" );
        ASSERT_EQ( 1u, messages.size( ) );
        EXPECT_EQ( u"ann@test", messages[0].get( u"From" ) );
        EXPECT_EQ( u"D1", messages[0].get( u"From-Device-GUID" ) );
        EXPECT_EQ( u"bob@test", messages[0].get( u"Buddy-GUID" ) );
        EXPECT_EQ( text, messages[0].get( u"Answer" ) );
        // It has been heard and is never said again.
        passFor( 90 );
        EXPECT_EQ( 1u, heard( u"CONTACTANSWER" ).size( ) );
    }
    // Who was refused may ask again.
    ask( u"bob@test" );
    EXPECT_EQ( u"bob@test", shown( ) );
}

TEST_F( ContactRequests, AnswerIsRepeatedUntilItIsHeard )
{
    goOnline( );
    ask( u"bob@test" );
    isDeaf = true;
    answer( u"bob@test", u"refuse" );
    passFor( 90 );
    // Meanwhile the server asks on, and the user is not asked again.
    EXPECT_EQ( 1u, ask( u"bob@test" ) );
    EXPECT_EQ( u"", shown( ) );
    isDeaf = false;
    passFor( 25 );
    const size_t count = heard( u"CONTACTANSWER" ).size( );
    EXPECT_GE( count, 1u );
    passFor( 90 );
    EXPECT_EQ( count, heard( u"CONTACTANSWER" ).size( ) );
}

TEST_F( ContactRequests, RefusedAnswerIsTriedAgainAndAForgottenOneIsNot )
{
    TestLog::expect( "WARNING Request 'CONTACTANSWER' for 'bob@test' failed with response 503, trying again later." );
    goOnline( );
    for( const int code : { 503, 404 } )
    {
        server.heard.clear( );
        ask( u"bob@test" );
        server.code = code;
        answer( u"bob@test", u"block" );
        passFor( 41 );
        server.code = GHTTP_SUCCESS;
        passFor( 21 );
        EXPECT_EQ( code == 404 ? 1u : 3u, heard( u"CONTACTANSWER" ).size( ) );
    }
}

TEST_F( ContactRequests, AnswerCountsOnlyFromTheServer )
{
    TestLog::expect( "WARNING Received response to 'CONTACTANSWER' from unexpected host" );
    goOnline( );
    ask( u"bob@test" );
    isDeaf = true;
    answer( u"bob@test", u"refuse" );
    GHTTPHeaders forged = respond( 200, u"OK" );
    forged.set( u"CSeq", u"2" );
    far.send( ann.host( ), forged );
    pass( );
    isDeaf = false;
    passFor( 25 );
    EXPECT_GE( heard( u"CONTACTANSWER" ).size( ), 1u );
}

TEST_F( ContactRequests, NobodyIsAnsweredWhoHasNotAsked )
{
    TestLog::expect( "WARNING Cannot answer 'refuse' to 'eve@test' who has not asked, ignoring." );
    TestLog::expect( "WARNING Cannot answer 'accept' to 'bob@test' who has not asked, ignoring." );
    goOnline( );
    ask( u"bob@test" );
    answer( u"eve@test", u"refuse" );
    answer( u"bob@test", u"accept" );
    EXPECT_TRUE( heard( u"CONTACTANSWER" ).empty( ) );
    EXPECT_EQ( u"bob@test", shown( ) );
}

TEST_F( ContactRequests, AcceptingAddsTheBuddyAndInvitesAtOnce )
{
    goOnline( );
    ask( u"bob@test" );
    isDeaf = true;
    ann.command( u"ADDBUDDY", u"bob@test" );
    pass( );
    EXPECT_EQ( u"bob@test", shown( ) );
    EXPECT_EQ( u"Adding...", value( u"bob@test_Contact_Status" ) );
    EXPECT_EQ( u"Adding...", value( u"Contact_Request_Title" ) );
    isDeaf = false;
    passFor( 3 );
    EXPECT_EQ( u"", shown( ) );
    EXPECT_EQ( u"", value( u"bob@test_Contact_Status" ) );
    EXPECT_EQ( u"bob@test", value( u"Local_Buddy_List" ) );
    EXPECT_EQ( u"bob@test", heard( u"ADDBUDDY" ).front( ).get( u"Buddy-GUID" ) );
    ASSERT_EQ( 1u, heard( u"INVITE" ).size( ) );
    EXPECT_EQ( u"bob@test", heard( u"INVITE" ).front( ).get( u"To" ) );
    // A late repeat finds a buddy.
    EXPECT_EQ( 1u, ask( u"bob@test" ) );
    EXPECT_EQ( u"", shown( ) );
}

TEST_F( ContactRequests, FailedAcceptGivesTheChoiceBack )
{
    goOnline( );
    ask( u"bob@test" );
    server.code = 404;
    ann.command( u"ADDBUDDY", u"bob@test" );
    pass( );
    pass( );
    EXPECT_EQ( u"bob@test", shown( ) );
    EXPECT_EQ( u"", value( u"bob@test_Contact_Status" ) );
    server.code = GHTTP_SUCCESS;
    isDeaf = true;
    ann.command( u"ADDBUDDY", u"bob@test" );
    pass( );
    EXPECT_EQ( u"Adding...", value( u"bob@test_Contact_Status" ) );
    passFor( 21 );
    EXPECT_EQ( u"", value( u"bob@test_Contact_Status" ) );
    EXPECT_EQ( u"1 contact request", value( u"Contact_Request_Title" ) );
    EXPECT_EQ( u"bob@test", shown( ) );
}

TEST_F( ContactRequests, LogoffForgetsWhatTheServerWillSayAgain )
{
    goOnline( );
    ask( u"bob@test" );
    ann.command( u"ADDBUDDY", u"bob@test" );
    isDeaf = true;
    pass( );
    ann.command( u"RESET" );
    pass( );
    EXPECT_FALSE( ann.instance.isSet( u"Contact_Request_List" ) );
    EXPECT_FALSE( ann.instance.isSet( u"bob@test_Contact_Status" ) );
    isDeaf = false;
    goOnline( );
    told( );
    ask( u"bob@test" );
    EXPECT_EQ( GStringVector{ u"bob@test" }, told( ) );
}

// ---- The registration.

TEST_F( ContactCapability, DeviceNamesItWithTheSetting )
{
    instance->set( u"Contact_Requests", 1 );
    toRegistering( );
    EXPECT_EQ( u"contacts", hearAt( sip, u"REGISTER" ).get( u"Capabilities" ) );
}

TEST_F( ContactCapability, DeviceNamesNothingWithoutTheSetting )
{
    toRegistering( );
    EXPECT_FALSE( hearAt( sip, u"REGISTER" ).contains( u"Capabilities" ) );
}
