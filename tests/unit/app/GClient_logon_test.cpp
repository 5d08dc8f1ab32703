// The logon: what is asked, what is stored, and what the user reads when it fails.
#include "base/GUtil.h"
#include "support/TestLog.h"
#include "unit/app/TestClient.h"

namespace
{
class ClientLogon : public TestClient
{
protected:
    GString saved( ) const
    {
        GString text;
        GFileLoad( SETTINGS, text );
        return text;
    }
    static GHTTPHeaders refusal( int code )
    {
        GHTTPHeaders reply;
        reply.setResponse( code, u"No" );
        return reply;
    }
};
} // namespace

TEST_F( ClientLogon, ExistingAccountLogsOnAndConnects )
{
    open( );
    EXPECT_EQ( state( ), GClient::AUTHENTICATING );
    EXPECT_EQ( get( u"Logon_Status" ), u"-- Connecting... --" );
    const GHTTPHeaders request = answerLogon( goodReply( ) );
    EXPECT_EQ( request.getMethod( ), u"AUTHENTICATE" );
    EXPECT_EQ( request.get( u"From" ), u"me@velmora.local" );
    EXPECT_EQ( request.get( u"Password" ), u"secret" );
    EXPECT_EQ( request.get( u"Version" ), u"764" );
    EXPECT_EQ( state( ), GClient::CONNECTING );
    EXPECT_EQ( get( u"Logon_Status" ), u"-- Logon successful --" );
    EXPECT_EQ( get( u"Local_IP" ), u"127.0.0.1" );
    EXPECT_EQ( get( u"Global_SIP_Host_List" ), u"2.2.2.2:2" );
    EXPECT_EQ( get( u"Global_TURN_Host" ), u"3.3.3.3:3" );
    EXPECT_EQ( get( u"Global_Logfile_Host" ), u"4.4.4.4:4" );
    EXPECT_EQ( get( u"Global_STUN_Host_List" ), u"1.1.1.1:1, 1.1.1.2:2, 1.1.1.3:3, 1.1.1.4:4" );
    EXPECT_EQ( nextMethod( u"GLogfileService_commandQueue" ), u"UPLOADLOGFILES" );
    EXPECT_EQ( nextMethod( u"GDispatchService_commandQueue" ), u"CONNECT" );
    EXPECT_TRUE( TestLog::contains( "Request 'AUTHENTICATE' succeeded, logged into account 'me@velmora.local'" ) );
    EXPECT_TRUE( desktop.bubbles.empty( ) );
    // No first-time window: that was long ago.
    EXPECT_TRUE( desktop.commands.empty( ) );
    command( u"CONNECTED" );
    EXPECT_EQ( nextMethod( u"GSIPService_commandQueue" ), u"BUDDYLOGON" );
    command( u"LOGOFF" );
    EXPECT_EQ( nextMethod( u"GSIPService_commandQueue" ), u"BUDDYLOGOFF" );
    command( u"BUDDYLOGGEDOFF" );
    EXPECT_EQ( nextMethod( u"GDispatchService_commandQueue" ), u"DISCONNECT" );
}

TEST_F( ClientLogon, NewAccountCarriesTheTypedNameAndKeepsTheServersId )
{
    settings( { } );
    open( );
    set( u"Local_Username", u"ann" );
    set( u"Local_Password", u"secret" );
    set( u"Local_Email", u"ann@example.org" );
    command( u"LOGON" );
    EXPECT_EQ( saved( ).find( "secret" ), GString::npos );
    const GHTTPHeaders request = answerLogon( goodReply( u"ann@velmora.local" ) );
    EXPECT_EQ( request.get( u"From" ), u"ann" );
    EXPECT_EQ( request.get( u"Email" ), u"ann@example.org" );
    EXPECT_EQ( get( u"Local_User_GUID" ), u"ann@velmora.local" );
    EXPECT_EQ( get( u"Logon_Status" ), u"-- Account created --" );
    EXPECT_TRUE( TestLog::contains( "Request 'AUTHENTICATE' succeeded, created new account 'ann@velmora.local'" ) );
    // Only now does the password reach the disk.
    EXPECT_NE( saved( ).find( "local_password: secret" ), GString::npos );
    EXPECT_NE( saved( ).find( "local_email: ann@example.org" ), GString::npos );
    EXPECT_NE( saved( ).find( "local_user_guid: ann@velmora.local" ), GString::npos );
    EXPECT_FALSE( TestLog::contains( "secret" ) );
}

TEST_F( ClientLogon, FirstTickLogsOnAgainUnlessTheAddressesAreKnownBefore )
{
    for( const bool robust : { false, true } )
    {
        settings( { { "local_user_guid", "me@velmora.local" },
                    { "local_password", "x" },
                    { "robust_client", robust ? "1" : "0" } } );
        desktop.ips = { u"10.0.0.1" };
        open( );
        clearQueues( );
        tick( );
        EXPECT_EQ( wasReset( ), !robust );
        EXPECT_EQ( state( ), GClient::AUTHENTICATING );
        close( );
    }
}

TEST_F( ClientLogon, ThreeStunHostsAreAnInvalidReplyEvenWithCode200 )
{
    open( );
    GHTTPHeaders reply = goodReply( );
    reply.set( u"STUN-Host-List", GStringList{ u"1.1.1.1:1", u"1.1.1.2:2", u"1.1.1.3:3" } );
    answerLogon( reply );
    EXPECT_EQ( get( u"Logon_Status" ), u"-- Invalid server reply --" );
    EXPECT_TRUE(
        TestLog::contains( "Request 'AUTHENTICATE' failed with response 200 (valid=FALSE), staying offline." ) );
    EXPECT_EQ( state( ), GClient::OFFLINE );
}

TEST_F( ClientLogon, ReplyThatLacksAHostOrAUsableIdIsInvalid )
{
    for( const GWString name : { u"SIP-Host-List", u"TURN-Host", u"Logfile-Host", u"User-GUID" } )
    {
        open( );
        GHTTPHeaders reply = goodReply( );
        reply.set( name, name == u"User-GUID" ? GWStringView( u"../me@x, y" ) : GWStringView( ) );
        answerLogon( reply );
        EXPECT_EQ( get( u"Logon_Status" ), u"-- Invalid server reply --" ) << GWideToUTF8( name );
        EXPECT_TRUE( wasReset( ) );
        close( );
    }
}

TEST_F( ClientLogon, ReplyWithAHostThatIsNotDottedIsInvalid )
{
    for( const GWString name : { u"SIP-Host-List", u"TURN-Host", u"Logfile-Host", u"STUN-Host-List" } )
    {
        open( );
        GHTTPHeaders reply = goodReply( );
        if( name == u"STUN-Host-List" )
            reply.set( name, GStringList{ u"1.1.1.1:1", u"1.1.1.2:2", u"1.1.1.3:3", u"stun.example:4" } );
        else
            reply.set( name, u"server.example:443" );
        answerLogon( reply );
        EXPECT_EQ( get( u"Logon_Status" ), u"-- Invalid server reply --" ) << GWideToUTF8( name );
        close( );
    }
}

TEST_F( ClientLogon, RefusalTellsWhetherTheAccountOrTheNameIsWrong )
{
    open( );
    desktop.commands.clear( );
    answerLogon( refusal( 403 ) );
    EXPECT_EQ( get( u"Logon_Status" ), u"-- Incorrect name/password --" );
    EXPECT_EQ( desktop.commands, GStringVector{ u"(/skin/window_login?open)" } );
    close( );
    settings( { } );
    open( );
    desktop.commands.clear( );
    set( u"Local_Username", u"ann" );
    command( u"LOGON" );
    answerLogon( refusal( 409 ) );
    EXPECT_EQ( get( u"Logon_Status" ), u"-- Username already in use --" );
    EXPECT_EQ( desktop.commands, GStringVector{ u"(/skin/window_new?open)" } );
    EXPECT_EQ( state( ), GClient::OFFLINE );
}

TEST_F( ClientLogon, ServerThatIsNotThereLeadsToASilentRetryOnceThePromptIsSpent )
{
    open( );
    desktop.commands.clear( );
    const auto hangUp = [&]
    {
        ASSERT_TRUE( server.accept( ) );
        server.hangUp( );
        for( int i = 0; i < 200 && state( ) == GClient::AUTHENTICATING; ++i ) client->onTimer( nullptr );
    };
    hangUp( );
    EXPECT_TRUE( TestLog::contains( "'AUTHENTICATE' request failed prematurely, going offlne." ) );
    EXPECT_EQ( get( u"Logon_Status" ), u"-- Server unavailable --" );
    EXPECT_EQ( state( ), GClient::OFFLINE );
    EXPECT_EQ( desktop.commands.size( ), 1u );
    // The prompt flag went with the reset: from now on it is the clock that retries.
    EXPECT_EQ( get( u"Prompt_On_AUTHENTICATE_Failure" ), u"" );
    set( u"Reconnect_When_Offline", u"1" );
    tick( );
    ASSERT_EQ( state( ), GClient::AUTHENTICATING );
    hangUp( );
    EXPECT_EQ( state( ), GClient::WAITING );
    EXPECT_EQ( desktop.commands.size( ), 1u );
}

TEST_F( ClientLogon, ServerThatCannotBeAskedIsUnavailable )
{
    TestLog::allow( "WARNING" );
    settings( { { "local_user_guid", "me@velmora.local" },
                { "local_password", "x" },
                { "authenticate_host", "999.1.1.1:443" } } );
    open( );
    for( int i = 0; i < 200 && state( ) == GClient::AUTHENTICATING; ++i ) client->onTimer( nullptr );
    EXPECT_TRUE( TestLog::contains( "WARNING Cannot contact '999.1.1.1:443', ignoring request." ) );
    EXPECT_EQ( get( u"Logon_Status" ), u"-- Server unavailable --" );
    EXPECT_TRUE( TestLog::contains( "Request 'AUTHENTICATE' failed with response 0 (valid=FALSE), staying offline." ) );
    EXPECT_TRUE( TestLog::contains( "Response='" ) );
}

TEST_F( ClientLogon, ServerThatSaysNothingIsGivenUpAfterThirtySecondsOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        settings( { { "local_user_guid", "me@velmora.local" },
                    { "local_password", "x" },
                    { "robust_client", robust ? "1" : "0" } } );
        open( );
        ASSERT_TRUE( server.accept( ) );
        GHTTPHeaders request;
        client->onTimer( nullptr );
        ASSERT_TRUE( server.hear( request ) );
        if( robust ) TestLog::expect( "timed out, cancelling." );
        clock.advance( 31000000 );
        for( int i = 0; i < 3 && state( ) == GClient::AUTHENTICATING; ++i ) client->onTimer( nullptr );
        EXPECT_EQ( state( ), robust ? GClient::WAITING : GClient::AUTHENTICATING );
        EXPECT_EQ( get( u"Logon_Status" ), robust ? u"-- Server unavailable --" : u"-- Connecting... --" );
        server.hangUp( );
        close( );
    }
}

TEST_F( ClientLogon, WaitingCountsDownAndRetriesEveryThirtySeconds )
{
    to( GClient::WAITING );
    tick( );
    ASSERT_EQ( state( ), GClient::AUTHENTICATING );
    event( GClient::EVENT_SUSPEND );
    ASSERT_EQ( state( ), GClient::WAITING );
    tick( );
    EXPECT_EQ( get( u"Client_Status" ), u"29 Waiting..." );
    EXPECT_EQ( desktop.iconState, 0 );
    clock.advance( 30000000 );
    tick( );
    EXPECT_EQ( state( ), GClient::AUTHENTICATING );
}

TEST_F( ClientLogon, LogonAtStartIsASilentOneOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        settings( { { "local_user_guid", "me@velmora.local" },
                    { "local_password", "x" },
                    { "robust_client", robust ? "1" : "0" } } );
        open( );
        EXPECT_EQ( get( u"Prompt_On_AUTHENTICATE_Failure" ), robust ? u"" : u"1" );
        answerLogon( refusal( 403 ) );
        EXPECT_EQ( state( ), robust ? GClient::WAITING : GClient::OFFLINE );
        close( );
    }
}

TEST_F( ClientLogon, LogHostTravelsWithTheUploadCommandOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        settings( { { "local_user_guid", "me@velmora.local" },
                    { "local_password", "x" },
                    { "robust_client", robust ? "1" : "0" } } );
        open( );
        answerLogon( goodReply( ) );
        EXPECT_EQ( next( u"GLogfileService_commandQueue" ).get( u"Logfile-Host" ), robust ? u"4.4.4.4:4" : u"" );
        close( );
    }
}

TEST_F( ClientLogon, CriticalUpgradeLeavesTheClientOffline )
{
    open( );
    GHTTPHeaders reply = goodReply( );
    reply.set( u"Upgrade-URL", u"http://1.2.3.4:80/upgrade" );
    reply.set( u"Upgrade-Name", u"Velmora 765" );
    reply.set( u"Upgrade-Priority", u"critical" );
    answerLogon( reply );
    EXPECT_EQ( state( ), GClient::OFFLINE );
    EXPECT_EQ( get( u"Local_Upgrade_URL" ), u"http://1.2.3.4:80/upgrade" );
    EXPECT_EQ( get( u"Local_Upgrade_Name" ), u"Velmora 765" );
    EXPECT_EQ( get( u"Local_Upgrade_Priority" ), u"critical" );
    EXPECT_EQ( get( u"Logon_Status" ), u"-- Logon successful --" );
    // Neither hosts nor log upload: nothing of this logon is used.
    EXPECT_EQ( get( u"Global_STUN_Host_List" ), u"" );
    EXPECT_EQ( nextMethod( u"GLogfileService_commandQueue" ), u"" );
    ASSERT_EQ( desktop.bubbles.size( ), 1u );
    EXPECT_EQ( desktop.bubbles[0].title, u"Critical update in progress" );
    EXPECT_EQ( desktop.bubbles[0].text,
               u"Velmora is downloading the critical update 'Velmora 765'.  You will automatically go "
               u"online when prompted to upgrade." );
    EXPECT_TRUE( wasReset( ) );
}

TEST_F( ClientLogon, OrdinaryUpgradeGoesOnline )
{
    open( );
    GHTTPHeaders reply = goodReply( );
    reply.set( u"Upgrade-URL", u"http://1.2.3.4:80/upgrade" );
    reply.set( u"Upgrade-Name", u"Velmora 765" );
    answerLogon( reply );
    EXPECT_EQ( state( ), GClient::CONNECTING );
    ASSERT_EQ( desktop.bubbles.size( ), 1u );
    EXPECT_EQ( desktop.bubbles[0].title, u"Update in progress" );
    EXPECT_EQ( desktop.bubbles[0].text,
               u"Velmora is downloading the service update 'Velmora 765'.  You can use Velmora as "
               u"normal, and upgrade when prompted." );
}

TEST_F( ClientLogon, UploadRunStaysOffline )
{
    open( false, true );
    answerLogon( goodReply( ) );
    EXPECT_EQ( state( ), GClient::OFFLINE );
    EXPECT_TRUE( TestLog::contains( "ACTIVITY: Uploading logfiles; will exit when complete." ) );
    ASSERT_EQ( desktop.bubbles.size( ), 1u );
    EXPECT_EQ( desktop.bubbles[0].title, u"Logfile upload in progress" );
    EXPECT_EQ( nextMethod( u"GLogfileService_commandQueue" ), u"UPLOADLOGFILES" );
    EXPECT_TRUE( wasReset( ) );
}

TEST_F( ClientLogon, FirstLogonOpensTheBuddyListAndFirstRunTheOptions )
{
    settings( { { "local_user_guid", "me@velmora.local" },
                { "local_password", "x" },
                { "first_run_complete", "0" },
                { "first_logon_complete", "0" } } );
    open( );
    answerLogon( goodReply( ) );
    EXPECT_TRUE( ran( u"(/skin/window_buddylist?open)" ) );
    EXPECT_TRUE( ran( u"(/skin/window_options?open)" ) );
    close( );
    EXPECT_NE( saved( ).find( "first_logon_complete: 1" ), GString::npos );
    EXPECT_NE( saved( ).find( "first_run_complete: 1" ), GString::npos );
}

TEST_F( ClientLogon, ResetForgetsTheServersButNotTheStunHosts )
{
    open( );
    answerLogon( goodReply( ) );
    clearQueues( );
    set( u"Global_SIP_Host", u"2.2.2.2:2" );
    set( u"Prompt_On_AUTHENTICATE_Failure", u"1" );
    command( u"DISCONNECTED" );
    EXPECT_TRUE( wasReset( ) );
    for( const GWStringView name : { u"Global_SIP_Host", u"Global_SIP_Host_List", u"Global_TURN_Host",
                                     u"Global_Logfile_Host", u"Prompt_On_AUTHENTICATE_Failure" } )
        EXPECT_EQ( get( name ), u"" );
    EXPECT_NE( get( u"Global_STUN_Host_List" ), u"" );
    EXPECT_EQ( get( u"Local_IP" ), u"127.0.0.1" );
}
