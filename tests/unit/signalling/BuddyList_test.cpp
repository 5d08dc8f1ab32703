// The buddy list of the blackboard and that of the server: what a logon takes over and what a logoff stores, without and with the
// remedy of the client.
#include "support/TestClock.h"
#include "support/TestLog.h"
#include "unit/signalling/TestClient.h"

#include <gtest/gtest.h>

namespace
{
using S = GSIPService;

class BuddyList : public testing::Test
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
        for( int i = 0; i < 3; ++i ) pass( );
    }
    // The lists that were stored since the last call.
    GStringVector stored( )
    {
        GStringVector out;
        for( const GHTTPHeaders& message : server.heard )
            if( message.isMethod( u"SETBUDDYLIST" ) ) out.push_back( message.get( u"Buddy-List" ) );
        server.heard.clear( );
        return out;
    }
    GWString list( ) { return ann.instance.get( u"Local_Buddy_List" ); }

    TestClock clock;
    TestServer server;
    TestClient ann{ u"ann@test", u"D1", server.host( ) };
};
} // namespace

TEST_F( BuddyList, FetchedListReplacesThatOfAnEarlierLogonOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        ann.instance.set( u"Robust_Client", robust );
        ann.instance.set( u"Local_Buddy_List", u"old@test" );
        server.buddyList = { u"bob@test", u"cid@test", u"bob@test" };
        command( u"BUDDYLOGON" );
        EXPECT_EQ( robust ? u"bob@test, cid@test" : u"old@test, bob@test, cid@test", list( ) );
        EXPECT_FALSE( ann.service->findBuddy( u"old@test" ) );
        command( u"BUDDYLOGOFF" );
        EXPECT_EQ( GStringVector{ robust ? u"bob@test, cid@test" : u"old@test, bob@test, cid@test" }, stored( ) );
    }
}

TEST_F( BuddyList, EmptyListIsAFetchedOneToo )
{
    ann.instance.set( u"Robust_Client", 1 );
    ann.instance.set( u"Local_Buddy_List", u"old@test" );
    command( u"BUDDYLOGON" );
    EXPECT_EQ( u"", list( ) );
    command( u"BUDDYLOGOFF" );
    EXPECT_EQ( GStringVector{ u"" }, stored( ) );
}

TEST_F( BuddyList, ListThatCouldNotBeFetchedIsNotStoredWithTheRemedy )
{
    TestLog::expect( "WARNING Request 'GETBUDDYLIST' failed, ignoring." );
    for( const bool robust : { false, true } )
    {
        ann.instance.set( u"Robust_Client", robust );
        ann.instance.set( u"Local_Buddy_List", u"old@test" );
        server.code = 500;
        command( u"BUDDYLOGON" );
        ASSERT_EQ( S::ONLINE, ann.service->getState( ) );
        EXPECT_EQ( u"old@test", list( ) );
        server.code = GHTTP_SUCCESS;
        command( u"BUDDYLOGOFF" );
        EXPECT_EQ( S::OFFLINE, ann.service->getState( ) );
        EXPECT_EQ( u"BUDDYLOGGEDOFF", ann.methods( u"GClient_commandQueue" ).back( ) );
        EXPECT_EQ( robust ? 0u : 1u, stored( ).size( ) );
    }
}

TEST_F( BuddyList, OneGoodFetchDoesNotCountForTheNextLogon )
{
    TestLog::expect( "WARNING Request 'GETBUDDYLIST' failed, ignoring." );
    ann.instance.set( u"Robust_Client", 1 );
    server.buddyList = { u"bob@test" };
    command( u"BUDDYLOGON" );
    command( u"BUDDYLOGOFF" );
    EXPECT_EQ( 1u, stored( ).size( ) );
    server.code = 500;
    command( u"BUDDYLOGON" );
    server.code = GHTTP_SUCCESS;
    command( u"BUDDYLOGOFF" );
    EXPECT_TRUE( stored( ).empty( ) );
}
