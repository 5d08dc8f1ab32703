// The client core: construction, the tick, and all seven states against every event and command.
#include "client/app/GClient.h"

#include "base/GUtil.h"
#include "support/TestLog.h"
#include "unit/app/TestClient.h"

namespace
{
class Client : public TestClient
{
};

// Every event by its number; every command with a row in some state.
const std::vector<GWString> COMMANDS{ u"LOGON",          u"LOGOFF",           u"CONNECTED",         u"DISCONNECTED",
                                      u"BUDDYLOGGEDOFF", u"LOGFILESUPLOADED", u"UPGRADEDOWNLOADED", u"NONSENSE" };
enum Outcome
{
    IGNORED, // Nothing changes but one warning.
    PASSED,  // Nothing changes, no warning.
    RETRIES, // The logon begins.
    RESETS,  // The services start over, the client is offline.
    CHANGES, // Another state, and no reset.
    PROMPTS  // The restart prompt, no change of state.
};
struct Row
{
    int state;
    int eventID;
    GWString command;
    Outcome outcome;
    int next;
};
constexpr int OFF = GClient::OFFLINE, WAIT = GClient::WAITING, AUTH = GClient::AUTHENTICATING,
              CONN = GClient::CONNECTING, ON = GClient::ONLINE, LOGOFF = GClient::LOGGING_OFF,
              DISC = GClient::DISCONNECTING;
constexpr int SUSPEND = GClient::EVENT_SUSPEND, RESUME = GClient::EVENT_RESUME, NETWORK = GClient::EVENT_NETWORKCHANGED;

// What is not in this table is ignored.
const std::vector<Row> TABLE{
    { OFF, 0, u"LOGON", RETRIES, AUTH },
    { OFF, SUSPEND, u"", PASSED, OFF },
    { OFF, RESUME, u"", PASSED, OFF },
    { OFF, NETWORK, u"", PASSED, OFF },
    { OFF, 0, u"UPGRADEDOWNLOADED", PROMPTS, OFF },
    { OFF, 0, u"LOGFILESUPLOADED", PASSED, OFF },
    { WAIT, SUSPEND, u"", PASSED, WAIT },
    { WAIT, RESUME, u"", RETRIES, AUTH },
    { WAIT, NETWORK, u"", RETRIES, AUTH },
    { WAIT, 0, u"LOGOFF", RESETS, OFF },
    { WAIT, 0, u"UPGRADEDOWNLOADED", PROMPTS, WAIT },
    { WAIT, 0, u"LOGFILESUPLOADED", PASSED, WAIT },
    { AUTH, SUSPEND, u"", CHANGES, WAIT },
    { AUTH, RESUME, u"", RETRIES, AUTH },
    { AUTH, NETWORK, u"", RETRIES, AUTH },
    { AUTH, 0, u"LOGOFF", RESETS, OFF },
    { AUTH, 0, u"UPGRADEDOWNLOADED", PROMPTS, AUTH },
    { CONN, 0, u"CONNECTED", CHANGES, ON },
    { CONN, 0, u"DISCONNECTED", RESETS, OFF },
    { CONN, 0, u"LOGOFF", CHANGES, DISC },
    { CONN, SUSPEND, u"", CHANGES, DISC },
    { CONN, RESUME, u"", RESETS, OFF },
    { CONN, NETWORK, u"", RESETS, OFF },
    { CONN, 0, u"UPGRADEDOWNLOADED", PROMPTS, CONN },
    { ON, 0, u"LOGOFF", CHANGES, LOGOFF },
    { ON, SUSPEND, u"", CHANGES, LOGOFF },
    { ON, 0, u"DISCONNECTED", RESETS, OFF },
    { ON, RESUME, u"", RESETS, OFF },
    { ON, NETWORK, u"", RESETS, OFF },
    { ON, 0, u"UPGRADEDOWNLOADED", PROMPTS, ON },
    { LOGOFF, 0, u"BUDDYLOGGEDOFF", CHANGES, DISC },
    { LOGOFF, 0, u"DISCONNECTED", RESETS, OFF },
    { LOGOFF, 0, u"LOGOFF", RESETS, OFF },
    { LOGOFF, NETWORK, u"", RESETS, OFF },
    { LOGOFF, RESUME, u"", RESETS, OFF },
    { LOGOFF, SUSPEND, u"", PASSED, LOGOFF },
    { DISC, 0, u"DISCONNECTED", RESETS, OFF },
    { DISC, 0, u"LOGOFF", RESETS, OFF },
    { DISC, RESUME, u"", RESETS, OFF },
    { DISC, NETWORK, u"", RESETS, OFF },
    { DISC, SUSPEND, u"", PASSED, DISC },
};

const Row& findRow( int state, int eventID, const GWString& command )
{
    static Row ignored;
    ignored = { state, eventID, command, IGNORED, state };
    for( const Row& row : TABLE )
        if( row.state == state && row.eventID == eventID && row.command == command ) return row;
    return ignored;
}
} // namespace

TEST_F( Client, EveryStateTakesWhatItsTableSaysAndIgnoresTheRest )
{
    TestLog::allow( "WARNING Ignored input eventID #" );
    for( int from = OFF; from <= DISC; ++from )
    {
        std::vector<std::pair<int, GWString>> inputs{ { SUSPEND, u"" }, { RESUME, u"" }, { NETWORK, u"" } };
        for( const GWString& name : COMMANDS ) inputs.emplace_back( 0, name );
        for( const auto& [eventID, name] : inputs )
        {
            SCOPED_TRACE( "state " + std::to_string( from ) + ", event " + std::to_string( eventID ) + " " +
                          GWideToUTF8( name ) );
            to( from );
            ASSERT_EQ( state( ), from );
            set( u"Reconnect_On_Resume", u"" );
            set( u"Logon_Status", u"" );
            clearQueues( );
            desktop.commands.clear( );
            const int warnings = TestLog::count( "WARNING Ignored input" );
            const Row& row = findRow( from, eventID, name );
            client->input( eventID, name.empty( ) ? GHTTPHeaders( ) : GHTTPHeaders( name ) );
            EXPECT_EQ( state( ), row.next );
            EXPECT_EQ( TestLog::count( "WARNING Ignored input" ) - warnings, row.outcome == IGNORED ? 1 : 0 );
            EXPECT_EQ( get( u"Logon_Status" ) == u"-- Connecting... --", row.outcome == RETRIES );
            EXPECT_EQ( ran( u"(/system?delayrestart+delay=30)" ), row.outcome == PROMPTS );
            EXPECT_EQ( wasReset( ), row.outcome == RESETS || ( row.outcome == RETRIES && from == AUTH ) );
            close( );
        }
    }
}

TEST_F( Client, StatesHaveTheirTexts )
{
    const GStringVector texts{ u"Offline", u"Waiting...",     u"Authenticating...", u"Connecting...",
                               u"Online",  u"Logging off...", u"Disconnecting...",  u"<invalid>" };
    for( size_t i = 0; i < texts.size( ); ++i ) EXPECT_EQ( GClient::_getState( static_cast<int>( i ) ), texts[i] );
}

TEST_F( Client, EveryStateShowsItselfInTheTray )
{
    struct Case
    {
        int state, icon;
        GWString text;
    };
    for( const Case& c :
         { Case{ OFF, 0, u"Offline" }, Case{ AUTH, 1, u"Authenticating..." }, Case{ CONN, 1, u"Connecting..." },
           Case{ ON, 2, u"Online" }, Case{ LOGOFF, 1, u"Logging off..." }, Case{ DISC, 1, u"Disconnecting..." } } )
    {
        for( const bool isPublic : { true, false } )
        {
            to( c.state );
            if( !isPublic ) set( u"Video_Privacy_Choice_Mode", GCLIENT_PRIVATE );
            client->onTimer( nullptr );
            EXPECT_EQ( desktop.iconState, isPublic ? c.icon : c.icon + 3 );
            EXPECT_EQ( get( u"Client_Status" ), c.text );
            EXPECT_EQ( desktop.iconText, c.text );
            close( );
        }
    }
}

// ---- Construction and destruction.

TEST_F( Client, OwnsEverythingInTheToldOrder )
{
    settings( { } );
    open( );
    close( );
    const GStringVector expected{ u"new first",   u"new second",   u"timer 100000",  u"icon",
                                  u"listen",      u"new skin",     u"resign",        u"close icon",
                                  u"close timer", u"delete first", u"delete second", u"delete skin" };
    EXPECT_EQ( desktop.log, expected );
}

TEST_F( Client, ServicesWaitForTheFirstWindowAndAreNotStartedWithoutTheirClient )
{
    std::vector<std::function<void( )>> waiting;
    platform.whenShown = [&waiting]( std::function<void( )> task ) { waiting.push_back( std::move( task ) ); };
    open( );
    const auto started = [this]
    { return std::count( desktop.log.begin( ), desktop.log.end( ), GWString( u"new first" ) ); };
    ASSERT_EQ( waiting.size( ), 1u );
    EXPECT_EQ( started( ), 0 );
    waiting.front( )( );
    EXPECT_EQ( started( ), 1 );
    close( );
    open( );
    close( );
    ASSERT_EQ( waiting.size( ), 2u );
    waiting.back( )( );
    EXPECT_EQ( started( ), 1 );
}

TEST_F( Client, SettingsOfTheFileWinOverDefaultsButNotOverFixedValues )
{
    settings( { { "video_size", "64" },
                { "current_version", "1" },
                { "talk_again_hotkey", "F5" },
                { "local_user_guid", "ME@Velmora.local" } } );
    open( );
    EXPECT_EQ( get( u"Video_Size" ), u"64" );
    EXPECT_EQ( get( u"Current_Version" ), u"764" );
    EXPECT_EQ( get( u"User_Agent_String" ), u"Velmora/764" );
    EXPECT_EQ( get( u"Talk_Again_Hotkey" ), u"F5" );
    EXPECT_EQ( get( u"Local_User_GUID" ), u"me@velmora.local" );
    EXPECT_EQ( get( u"UPnP_Low_Port" ), u"49152" );
    EXPECT_EQ( get( u"UPnP_High_Port" ), u"65535" );
    EXPECT_EQ( get( u"NAT_Refresh_Period_S" ), u"1" );
    EXPECT_EQ( get( u"Screen_Share_Fullscreen_Delay" ), u"1000" );
    EXPECT_EQ( get( u"Video_Privacy_Choice_Mode" ), u"Public - Allow some people to see me" );
    EXPECT_EQ( get( u"Video_Privacy_Choice_Who" ), u"Only buddies who I can see" );
    EXPECT_EQ( get( u"Video_Privacy_Choice_When" ), u"Always" );
    EXPECT_EQ( get( u"FSM_List" ), u"Client,SIP,Dispatch" );
}

TEST_F( Client, VideoSizeThatIsNoMultipleOfSixteenRunsAsSixteen )
{
    for( const GString& size : { GString( "40" ), GString( "-16" ), GString( "1000000" ) } )
    {
        settings( { { "video_size", size } } );
        open( );
        EXPECT_EQ( get( u"Video_Size" ), u"16" );
        close( );
    }
}

TEST_F( Client, FirstRunLogsEverything )
{
    GFileDelete( SETTINGS );
    open( );
    EXPECT_EQ( GLogGetFilter( ), "x" );
    close( );
    GLogSetFilter( "a" );
    settings( { { "log_filter", "cd" } } );
    open( );
    EXPECT_EQ( GLogGetFilter( ), "acd" );
}

TEST_F( Client, FacesSurviveInTextsWithTheRemedyOnly )
{
    open( );
    EXPECT_EQ( u"X", GUTF8ToWide( "\xF0\x9F\x98\x80" ) );
    close( );
    settings( { { "Robust_Client", "1" } } );
    open( );
    EXPECT_EQ( 2U, GUTF8ToWide( "\xF0\x9F\x98\x80" ).size( ) );
    GTextKeepAstral( false );
}

TEST_F( Client, OptionsAreRepeatedAfterACrashWithTheRemedyOnly )
{
    int repeats = 0;
    platform.repeatOptions = [&]( ) { ++repeats; };
    open( );
    EXPECT_EQ( 0, repeats );
    close( );
    settings( { { "Robust_Client", "1" } } );
    open( );
    EXPECT_EQ( 1, repeats );
}

TEST_F( Client, OptionsBecomeSettingsThatAreNotSaved )
{
    settings( { } );
    client = GSAFENEW( GClient, ( SETTINGS, u"clip.avi", u"1.2.3.4:5", u"1", false, true, true, platform ) );
    EXPECT_EQ( get( u"avi_source" ), u"clip.avi" );
    EXPECT_EQ( get( u"AUTHENTICATE_Host" ), u"1.2.3.4:5" );
    EXPECT_EQ( get( u"Keep_Logfiles" ), u"1" );
    for( const GWStringView name : { u"Exit_When_Logfiles_Uploaded", u"Pretend_Firewall", u"Disable_UDP_Recv" } )
        EXPECT_EQ( get( name ), u"1" );
    close( );
    GString saved;
    ASSERT_TRUE( GFileLoad( SETTINGS, saved ) );
    EXPECT_EQ( saved.find( "clip.avi" ), GString::npos );
    EXPECT_EQ( saved.find( "pretend_firewall" ), GString::npos );
}

TEST_F( Client, CountryListBeginsWithTheUnitedStates )
{
    settings( { } );
    open( );
    const GWString list = get( u"Country_List" );
    EXPECT_EQ( list.substr( 0, 28 ), u"United States, Afghanistan, " );
    EXPECT_NE( list.find( u"Korea, North, Korea, South, Kuwait" ), GWString::npos );
    close( );
    settings( { { "robust_client", "1" } } );
    open( );
    GStringList items;
    client->getInstance( )->get( u"Country_List", items );
    EXPECT_EQ( items.size( ), 268u );
    EXPECT_TRUE( GListContains( items, u"North Korea" ) );
    EXPECT_EQ( items.back( ), u"Zimbabwe" );
}

TEST_F( Client, UpgradeIsAnnouncedAndItsBubbleOpensTheChangeLog )
{
    settings( { } );
    open( true );
    ASSERT_EQ( desktop.bubbles.size( ), 1u );
    EXPECT_EQ( desktop.bubbles[0].title, u"Update complete" );
    EXPECT_EQ( desktop.bubbles[0].text,
               u"You have successfully upgraded Velmora to version 764.  Click here to see what has changed." );
    client->onBubbleClick( nullptr, desktop.bubbles[0].eventID );
    EXPECT_EQ( desktop.documents, GStringVector{ u"CHANGELOG.txt" } );
    desktop.opens = false;
    TestLog::expect( "WARNING Cannot open 'CHANGELOG.txt' because 'it is not there', ignoring." );
    event( GClient::EVENT_CHANGELOG );
    // A bubble without an event does nothing.
    client->onBubbleClick( nullptr, 0 );
}

TEST_F( Client, WithoutAnAccountTheLogonWindowOpens )
{
    settings( { { "local_user_guid", "me@velmora.local" } } );
    open( );
    EXPECT_EQ( state( ), OFF );
    EXPECT_EQ( desktop.commands, GStringVector{ u"(/skin/window_login?open)" } );
}

// ---- The tick.

TEST_F( Client, TickRunsTheQueueAndDropsWhatIsNoMessage )
{
    settings( { } );
    open( );
    client->getInstance( )->enqueue( u"GClient_commandQueue", GString( "nonsense" ) );
    client->getInstance( )->enqueue( u"GClient_commandQueue", GHTTPHeaders( u"UPGRADEDOWNLOADED" ) );
    tick( );
    EXPECT_TRUE( ran( u"(/system?delayrestart+delay=30)" ) );
}

TEST_F( Client, UpgradeInProgressIsShownInTheTray )
{
    settings( { } );
    open( );
    set( u"Upgrade_In_Progress", u"1" );
    set( u"Upgrade_Bytes_Downloaded", u"2048" );
    tick( );
    EXPECT_EQ( desktop.iconText, GConcat( u"Upgrading: ", GFormatSize( 2048 ), u" downloaded..." ) );
}

TEST_F( Client, NetworkChangeOnlineGoesThroughOfflineAndReconnects )
{
    to( ON );
    tick( );
    ASSERT_EQ( state( ), ON );
    desktop.ips = { u"10.0.0.2" };
    clock.advance( 1000000 );
    tick( );
    EXPECT_TRUE( TestLog::contains( "ACTIVITY: NETWORK CHANGE" ) );
    EXPECT_EQ( state( ), OFF );
    tick( );
    EXPECT_TRUE( TestLog::contains( "'Reconnect_When_Offline' set, reconnecting." ) );
    EXPECT_EQ( state( ), AUTH );
    EXPECT_EQ( get( u"Reconnect_When_Offline" ), u"" );
}

// An interface that loses its address leaves the loopback; a change of radio cell takes a few seconds.
TEST_F( Client, NetworkThatComesBackWithinFiveSecondsIsNoChangeWithTheRemedy )
{
    settings( { { "robust_client", "1" } } );
    desktop.ips = { u"10.0.0.1" };
    open( );
    for( const int seconds : { 3, 4, 7 } )
    {
        desktop.ips = { u"127.0.0.1" };
        for( int i = 0; i < seconds; ++i )
        {
            clock.advance( 1100000 );
            tick( );
        }
        EXPECT_EQ( TestLog::count( "NETWORK CHANGE" ), seconds < 5 ? 0 : 1 );
        desktop.ips = { u"10.0.0.1" };
        clock.advance( 1100000 );
        tick( );
        EXPECT_EQ( TestLog::count( "NETWORK CHANGE" ), seconds < 5 ? 0 : 2 );
    }
}

TEST_F( Client, EmptyAddressListIsIgnoredForFiveSecondsOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        settings( { { "robust_client", robust ? "1" : "0" } } );
        desktop.ips = { u"10.0.0.2", u"10.0.0.1" };
        TestLog::clear( );
        open( );
        tick( );
        EXPECT_EQ( TestLog::count( "NETWORK CHANGE" ), robust ? 0 : 1 );
        // The order of the addresses is no change.
        desktop.ips = { u"10.0.0.1", u"10.0.0.2" };
        clock.advance( 1100000 );
        tick( );
        EXPECT_EQ( TestLog::count( "NETWORK CHANGE" ), robust ? 0 : 2 );
        desktop.ips.clear( );
        for( int i = 0; i < 4; ++i )
        {
            clock.advance( 1100000 );
            tick( );
        }
        EXPECT_EQ( TestLog::count( "NETWORK CHANGE" ), robust ? 0 : 3 );
        clock.advance( 1100000 );
        tick( );
        clock.advance( 1100000 );
        tick( );
        EXPECT_EQ( TestLog::count( "NETWORK CHANGE" ), robust ? 1 : 3 );
        close( );
        EXPECT_EQ( desktop.lookUps > 0, !robust ) << "the interfaces are asked, not a name";
        desktop.lookUps = 0;
    }
}

TEST_F( Client, BusyProcessorIsLoggedAndTrackedWhenAskedFor )
{
    settings( { } );
    open( );
    set( u"CPU_Log_Threshold", u"-1" );
    set( u"Enable_Tread_CPU_Tracking", u"1" );
    TestLog::expect( "WARNING CPU at " );
    clock.advance( 1100000 );
    tick( );
    EXPECT_NE( get( u"Process_CPU" ), u"" );
}

// ---- Suspend and resume.

TEST_F( Client, TwoResumesWithinASecondGiveOneEvent )
{
    settings( { } );
    open( );
    client->onResume( );
    client->onResume( );
    EXPECT_EQ( TestLog::count( "ACTIVITY: RESUME" ), 1 );
    clock.advance( 1100000 );
    client->onResume( );
    EXPECT_EQ( TestLog::count( "ACTIVITY: RESUME" ), 2 );
}

TEST_F( Client, SuspendWhileLoggingOffLeavesTheStateAsItIs )
{
    to( LOGOFF );
    client->onSuspend( );
    EXPECT_EQ( state( ), LOGOFF );
    EXPECT_TRUE( TestLog::contains( "ACTIVITY: SUSPEND" ) );
}

TEST_F( Client, SuspendOnlineLogsOffAndResumeLogsOnAgain )
{
    to( ON );
    client->onSuspend( );
    EXPECT_EQ( state( ), LOGOFF );
    command( u"BUDDYLOGGEDOFF" );
    command( u"DISCONNECTED" );
    EXPECT_EQ( state( ), OFF );
    tick( );
    EXPECT_EQ( state( ), OFF );
    clock.advance( 1100000 );
    client->onResume( );
    EXPECT_EQ( state( ), AUTH );
    EXPECT_EQ( get( u"Reconnect_On_Resume" ), u"" );
}

TEST_F( Client, ResumeDoesNotCountAsAChangeOfNetwork )
{
    to( OFF );
    desktop.ips = { u"10.9.9.9" };
    clock.advance( 1100000 );
    client->onResume( );
    tick( );
    EXPECT_EQ( TestLog::count( "NETWORK CHANGE" ), 0 );
}

TEST_F( Client, ResumeWhileLoggingOffReconnectsOnlyAfterASuspend )
{
    for( const bool suspended : { false, true } )
    {
        to( ON );
        if( suspended )
            event( SUSPEND );
        else
            command( u"LOGOFF" );
        event( RESUME );
        EXPECT_EQ( state( ), OFF );
        tick( );
        EXPECT_EQ( state( ), suspended ? AUTH : OFF );
        close( );
    }
}

// ---- Wishes for the time after.

TEST_F( Client, ExitWhenOfflinePostsTheQuitMessageWithTheRestartWish )
{
    for( const bool restarts : { false, true } )
    {
        to( OFF );
        desktop.quits.clear( );
        set( u"Exit_When_Offline", u"1" );
        set( u"Restart_On_Exit", restarts ? u"1" : u"0" );
        tick( );
        EXPECT_EQ( desktop.quits, std::vector<int>{ restarts } );
        EXPECT_EQ( get( u"Exit_When_Offline" ), u"" );
        EXPECT_EQ( get( u"Restart_On_Exit" ), u"" );
        tick( );
        EXPECT_EQ( desktop.quits.size( ), 1u );
        close( );
    }
}

TEST_F( Client, EndOfTheLogUploadExitsWhenThatWasAskedFor )
{
    to( OFF );
    command( u"LOGFILESUPLOADED" );
    EXPECT_TRUE( desktop.quits.empty( ) );
    set( u"Exit_When_Logfiles_Uploaded", u"1" );
    command( u"LOGFILESUPLOADED" );
    EXPECT_EQ( desktop.quits, std::vector<int>{ 0 } );
}

// One slip costs no time; a server that is not there is not asked more often than every 30 s.
TEST_F( Client, RemedyRetriesOnceAndThenWaitsWhenTheConnectionFails )
{
    settings( { { "local_user_guid", "me@velmora.local" }, { "local_password", "x" }, { "robust_client", "1" } } );
    to( CONN );
    command( u"DISCONNECTED" );
    EXPECT_EQ( state( ), WAIT );
    tick( );
    EXPECT_EQ( state( ), AUTH );
    answerLogon( goodReply( ) );
    command( u"DISCONNECTED" );
    EXPECT_EQ( state( ), WAIT );
    tick( );
    EXPECT_EQ( get( u"Client_Status" ), u"29 Waiting..." );
    clock.advance( 30000000 );
    tick( );
    EXPECT_EQ( state( ), AUTH );
}

TEST_F( Client, RemedyResetsAtOnceWhenLoggingOffWhileConnecting )
{
    settings( { { "local_user_guid", "me@velmora.local" }, { "local_password", "x" }, { "robust_client", "1" } } );
    to( CONN );
    set( u"Exit_When_Offline", u"1" );
    command( u"LOGOFF" );
    EXPECT_EQ( state( ), OFF );
    tick( );
    EXPECT_EQ( desktop.quits, std::vector<int>{ 0 } );
}

TEST_F( Client, RemedyKeepsTheWishToComeBackWhenSuspendedWhileConnecting )
{
    for( const bool robust : { false, true } )
    {
        settings( { { "local_user_guid", "me@velmora.local" },
                    { "local_password", "x" },
                    { "robust_client", robust ? "1" : "0" } } );
        to( CONN );
        event( SUSPEND );
        EXPECT_EQ( state( ), robust ? OFF : DISC );
        tick( );
        event( RESUME );
        tick( );
        EXPECT_EQ( state( ), AUTH );
        close( );
    }
}

TEST_F( Client, TerminationLogsOffAndExitsOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        settings( { { "local_user_guid", "me@velmora.local" },
                    { "local_password", "x" },
                    { "robust_client", robust ? "1" : "0" } } );
        desktop.terminating = false;
        to( ON );
        desktop.terminating = true;
        tick( 2 );
        EXPECT_EQ( state( ), robust ? LOGOFF : ON );
        if( robust )
        {
            command( u"BUDDYLOGGEDOFF" );
            command( u"DISCONNECTED" );
            tick( );
            EXPECT_EQ( desktop.quits, std::vector<int>{ 0 } );
        }
        close( );
    }
}

// ---- The tray.

TEST_F( Client, DoubleClickShowsTheBuddyList )
{
    settings( { } );
    open( );
    client->onLButtonDblClk( nullptr );
    EXPECT_TRUE( ran( u"(/skin/window_buddylist?open)" ) );
}

TEST_F( Client, BuddyListIsShownWhenThereIsNeitherTrayNorWindow )
{
    settings( { } );
    open( );
    desktop.commands.clear( );
    desktop.tray = false;
    tick( 29 );
    EXPECT_TRUE( desktop.commands.empty( ) );
    tick( );
    EXPECT_EQ( desktop.commands, GStringVector{ u"(/skin/window_buddylist?open)" } );
    EXPECT_TRUE( TestLog::contains( "There is no tray to come back from, showing the buddy list." ) );
    tick( 100 );
    EXPECT_EQ( desktop.commands.size( ), 1u );
}

TEST_F( Client, TrayThatComesLateOrAWindowKeepsTheBuddyListHidden )
{
    settings( { } );
    open( );
    desktop.commands.clear( );
    desktop.tray = false;
    tick( 29 );
    desktop.tray = true;
    tick( );
    desktop.tray = false;
    tick( 29 );
    desktop.windowShown = true;
    tick( 100 );
    EXPECT_TRUE( desktop.commands.empty( ) );
    // The tray is gone, and the last window closes.
    desktop.windowShown = false;
    tick( 30 );
    EXPECT_EQ( desktop.commands.size( ), 1u );
}

TEST_F( Client, MenuRunsWhatIsChosen )
{
    settings( { } );
    open( );
    const GStringVector expected{ u"(/skin/window_buddylist?open)", u"(/skin/window_addbuddy?open)",
                                  u"(/skin/window_options?open)",   u"(/system?reconnect)",
                                  u"(/account?updatecapture)",      u"(/skin/window_buddylist?close;/system?exit)" };
    for( int i = 0; i < 6; ++i )
    {
        desktop.commands.clear( );
        desktop.menuChoice = i;
        client->onRButtonDown( nullptr );
        EXPECT_EQ( desktop.commands, GStringVector{ expected[static_cast<size_t>( i )] } );
    }
    EXPECT_EQ( desktop.menu, ( GStringVector{ u"&Show Buddylist", u"&Add Buddy", u"&Options", u"&Reconnect",
                                              u"Go P&ublic (see and be seen)", u"E&xit" } ) );
    desktop.commands.clear( );
    desktop.menuChoice = -1;
    client->onRButtonDown( nullptr );
    EXPECT_TRUE( desktop.commands.empty( ) );
}

TEST_F( Client, PrivacyToggleIsSavedAndChangesTheIcon )
{
    settings( { } );
    open( );
    desktop.menuChoice = 4;
    client->onRButtonDown( nullptr );
    EXPECT_EQ( desktop.menu[4], u"Go P&rivate (disable video)" );
    EXPECT_EQ( get( u"Video_Privacy_Choice_Mode" ), u"Private - Allow nobody to see me" );
    tick( );
    EXPECT_EQ( desktop.iconState, 3 );
    client->onRButtonDown( nullptr );
    EXPECT_EQ( get( u"Video_Privacy_Choice_Mode" ), u"Public - Allow some people to see me" );
    client->onRButtonDown( nullptr );
    close( );
    GString saved;
    ASSERT_TRUE( GFileLoad( SETTINGS, saved ) );
    EXPECT_NE( saved.find( "video_privacy_choice_mode: Private - Allow nobody to see me" ), GString::npos );
}

TEST_F( Client, HotkeysGoToTheSkin )
{
    settings( { } );
    open( );
    client->onHotkeyDown( nullptr, u"Talk_Again" );
    client->onHotkeyUp( nullptr, u"Talk_Again" );
    EXPECT_EQ( desktop.hotkeys, ( GStringVector{ u"+Talk_Again", u"-Talk_Again" } ) );
}

TEST_F( Client, NewBuddyWithAHotkeyGetsIt )
{
    settings( { } );
    open( );
    desktop.commands.clear( );
    GHTTPHeaders message( u"NEWBUDDY" );
    message.set( u"Buddy-GUID", u"ann@velmora.local" );
    command( message );
    EXPECT_TRUE( desktop.commands.empty( ) );
    set( u"ann@velmora.local_Hotkey", u"F7" );
    command( message );
    EXPECT_EQ( desktop.commands, GStringVector{ u"(/system?assignhotkey+name=ann@velmora.local)" } );
    EXPECT_EQ( get( u"Working_Hotkey" ), u"    (click here and press keys)" );
    TestLog::expect( "WARNING Received 'NEWBUDDY' for invalid user 'x;/system?exit', ignoring." );
    message.set( u"Buddy-GUID", u"x;/system?exit" );
    command( message );
}
