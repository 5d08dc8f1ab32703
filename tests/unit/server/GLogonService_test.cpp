#include "server/logon/GLogonService.h"

#include "support/TestLog.h"
#include "unit/server/ServerFixture.h"

namespace
{
constexpr char ADDRESS[] = "198.51.100.1";

class GLogonServiceTest : public ServerFixture
{
protected:
    GLogonServiceTest( ) : service( config, hosts, store, metrics )
    {
        hosts = { { "1.1.1.1:1", "2.2.2.2:2", "3.3.3.3:3", "4.4.4.4:4" },
                  { "5.5.5.5:5" },
                  "6.6.6.6:6",
                  "7.7.7.7:7",
                  "8.8.8.8:8" };
    }
    // The whole exchange; an empty message when there was no answer.
    GHTTPHeaders logon( const GWString& from, const GWString& password, const GWString& email = u"a@b.c",
                        const GWString& version = u"764" )
    {
        return exchange(
            request( u"AUTHENTICATE", 0,
                     { { u"From", from }, { u"Password", password }, { u"Email", email }, { u"Version", version } } ) );
    }
    GHTTPHeaders exchange( const GHTTPHeaders& message )
    {
        GLogonTask task;
        GString reply;
        if( service.begin( message, ADDRESS, now, task, reply ) )
        {
            GLogonService::run( task );
            reply = service.end( task, now );
        }
        return reply.empty( ) ? GHTTPHeaders( ) : parsed( reply );
    }
    GServerHosts hosts;
    GLogonService service;
};
} // namespace

TEST_F( GLogonServiceTest, ANewNameBecomesAnAccountOfTheDomain )
{
    const GHTTPHeaders answer = logon( u"ann", u"secret" );
    EXPECT_EQ( answer.getResponse( ), 200 );
    EXPECT_EQ( answer.get( u"User-GUID" ), u"ann@velmora.local" );
    EXPECT_EQ( answer.get( u"STUN-Host-List" ), u"1.1.1.1:1, 2.2.2.2:2, 3.3.3.3:3, 4.4.4.4:4" );
    EXPECT_EQ( answer.get( u"SIP-Host-List" ), u"5.5.5.5:5" );
    EXPECT_EQ( answer.get( u"TURN-Host" ), u"6.6.6.6:6" );
    EXPECT_EQ( answer.get( u"Logfile-Host" ), u"7.7.7.7:7" );
    EXPECT_FALSE( answer.contains( u"Upgrade-URL" ) );
    EXPECT_TRUE( store.hasLogon( "ann@velmora.local", ADDRESS, now ) );
    EXPECT_EQ( store.getAccount( "ann@velmora.local" )->hash.find( "secret" ), GString::npos );
}
TEST_F( GLogonServiceTest, ATakenNameIs409 )
{
    logon( u"ann", u"secret" );
    EXPECT_EQ( logon( u"ann", u"other" ).getResponse( ), 409 );
    EXPECT_EQ( logon( u"ann@velmora.local", u"secret" ).getResponse( ), 200 );
}
TEST_F( GLogonServiceTest, TwoWhoAskForANameAtOnceAreTwo )
{
    GLogonTask first;
    GLogonTask second;
    GString reply;
    const GHTTPHeaders message =
        request( u"AUTHENTICATE", 0, { { u"From", u"ann" }, { u"Password", u"p" }, { u"Email", u"a@b" } } );
    ASSERT_TRUE( service.begin( message, ADDRESS, now, first, reply ) );
    ASSERT_TRUE( service.begin( message, ADDRESS, now, second, reply ) );
    GLogonService::run( first );
    GLogonService::run( second );
    EXPECT_EQ( parsed( service.end( first, now ) ).getResponse( ), 200 );
    EXPECT_EQ( parsed( service.end( second, now ) ).getResponse( ), 409 );
}
TEST_F( GLogonServiceTest, WhatCannotBeAcceptedIs400 )
{
    for( const GWString name : { u"", u"Ann", u"a b", u"a/b", u".ann", u"ä" } )
        EXPECT_EQ( logon( name, u"secret" ).getResponse( ), 400 );
    EXPECT_EQ( logon( u"ann", u"" ).getResponse( ), 400 );
    EXPECT_EQ( logon( u"ann", GWString( 257, u'x' ) ).getResponse( ), 400 );
    EXPECT_EQ( logon( GWString( 65, u'a' ), u"secret" ).getResponse( ), 400 );
    for( const GWString email : { u"", u"a", u"@b", u"a@", u"a@b@c", u"a b@c", u"a@b\r\nx" } )
        EXPECT_EQ( logon( u"ann", u"secret", email ).getResponse( ), 400 );
    EXPECT_TRUE( store.listAccounts( ).empty( ) );
}
TEST_F( GLogonServiceTest, AWrongPasswordAnUnknownNameAndAForeignDomainAre403 )
{
    logon( u"ann", u"secret" );
    EXPECT_EQ( logon( u"ann@velmora.local", u"wrong" ).getResponse( ), 403 );
    EXPECT_EQ( logon( u"nobody@velmora.local", u"secret" ).getResponse( ), 403 );
    EXPECT_EQ( logon( u"ann@other.org", u"secret" ).getResponse( ), 403 );
    EXPECT_EQ( logon( u"@velmora.local", u"secret" ).getResponse( ), 403 );
}
TEST_F( GLogonServiceTest, AnOlderClientIsOfferedTheUpgrade )
{
    config.upgradeVersion = 765;
    config.upgradeName = "Velmora 7.65";
    config.upgradePriority = "critical";
    const GHTTPHeaders answer = logon( u"ann", u"secret" );
    EXPECT_EQ( answer.get( u"Upgrade-URL" ), u"http://8.8.8.8:8/upgrade.exe" );
    EXPECT_EQ( answer.get( u"Upgrade-Name" ), u"Velmora 7.65" );
    EXPECT_EQ( answer.get( u"Upgrade-Priority" ), u"critical" );
    EXPECT_FALSE( logon( u"ann@velmora.local", u"secret", u"", u"765" ).contains( u"Upgrade-URL" ) );
}
TEST_F( GLogonServiceTest, RequestsThatLackAHeaderGetNoAnswer )
{
    EXPECT_TRUE( exchange( request( u"AUTHENTICATE", 0, { { u"From", u"ann" } } ) ).headers( ).empty( ) );
    EXPECT_TRUE( exchange( request( u"AUTHENTICATE", 0, { { u"Password", u"x" } } ) ).headers( ).empty( ) );
    EXPECT_TRUE( exchange( request( u"GET", 0, { { u"From", u"ann" }, { u"Password", u"x" } } ) ).headers( ).empty( ) );
}
TEST_F( GLogonServiceTest, AnAddressThatTriesTooOftenIsRefused )
{
    config.logonsPerMinute = 5;
    service.reload( );
    for( int i = 0; i < 5; ++i ) EXPECT_EQ( logon( u"ann@velmora.local", u"x" ).getResponse( ), 403 );
    EXPECT_EQ( logon( u"ann@velmora.local", u"x" ).getResponse( ), 429 );
    now += 12 * SECOND;
    EXPECT_EQ( logon( u"ann@velmora.local", u"x" ).getResponse( ), 403 );
}
TEST_F( GLogonServiceTest, AnAccountThatFailsTooOftenRests )
{
    logon( u"ann", u"secret" );
    config.logonFailuresPerHour = 3;
    service.reload( );
    for( int i = 0; i < 3; ++i ) EXPECT_EQ( logon( u"ann@velmora.local", u"wrong" ).getResponse( ), 403 );
    EXPECT_EQ( logon( u"ann@velmora.local", u"secret" ).getResponse( ), 429 );
    now += 1201 * SECOND;
    EXPECT_EQ( logon( u"ann@velmora.local", u"secret" ).getResponse( ), 200 );
}
TEST_F( GLogonServiceTest, PasswordsNeverReachTheLog )
{
    logon( u"ann", u"hunter2hunter2" );
    logon( u"ann@velmora.local", u"hunter3hunter3" );
    EXPECT_FALSE( TestLog::contains( "hunter" ) );
    EXPECT_TRUE( TestLog::contains( "created user=ann@velmora.local" ) );
}
