#include "CommandsTest.h"

using GSystemCommandsTest = CommandsTest;

TEST_F( GSystemCommandsTest, LeavingSetsWhatHappensWhenOffline )
{
    load( "" );
    const auto flags = [this]
    { return value( u"Reconnect_When_Offline" ) + value( u"Exit_When_Offline" ) + value( u"Restart_On_Exit" ); };
    run( "(/system?exit)" );
    EXPECT_EQ( client( ) + flags( ), "LOGOFF010" );
    run( "(/system?reconnect)" );
    EXPECT_EQ( client( ) + flags( ), "LOGOFF100" );
    run( "(/system?restart)" );
    EXPECT_EQ( client( ) + flags( ), "LOGOFF011" );
    EXPECT_TRUE( TestLog::contains( "ACTIVITY: restart" ) );
}

TEST_F( GSystemCommandsTest, ValuesAreShownAndSetByName )
{
    load( "" );
    instance.set( u"Debug_Name", u"Thing" );
    instance.set( u"Thing", u"old" );
    run( "(/system?getvalue)" );
    EXPECT_EQ( value( u"Debug_Value" ), "old" );
    EXPECT_EQ( value( u"Debug_Result" ), "Getting 'Thing' = 'old'" );
    instance.set( u"Debug_Value", u"new" );
    run( "(/system?setvalue)" );
    EXPECT_EQ( value( u"Thing" ), "new" );
    EXPECT_EQ( value( u"Debug_Result" ), "Setting 'Thing' = 'new'" );
    run( "(/system?set+name=Thing+value=third)" );
    EXPECT_EQ( value( u"Thing" ), "third" );
    run( "(/system?set+name=Thing+value=kept+persist=1)" );
    instance.save( );
    GString saved;
    EXPECT_TRUE( GFileLoad( settings, saved ) );
    EXPECT_NE( saved.find( "thing: kept" ), GString::npos );
    TestLog::expect( "WARNING Cannot set value 'x' because no name specificed; ignoring." );
    run( "(/system?set+value=x)" );
}

TEST_F( GSystemCommandsTest, PasswordsDoNotShow )
{
    load( "" );
    instance.set( u"Debug_Name", u"Local_Password" );
    instance.set( u"Local_Password", u"hunter2" );
    run( "(/system?getvalue)" );
    EXPECT_EQ( value( u"Debug_Value" ).find( "hunter2" ), std::string::npos );
    EXPECT_EQ( value( u"Debug_Result" ).find( "hunter2" ), std::string::npos );
    instance.set( u"Debug_Value", u"secret3" );
    run( "(/system?setvalue)" );
    EXPECT_EQ( value( u"Local_Password" ), "secret3" );
    EXPECT_EQ( value( u"Debug_Result" ).find( "secret3" ), std::string::npos );
    EXPECT_FALSE( TestLog::contains( "hunter2" ) || TestLog::contains( "secret3" ) );
}

TEST_F( GSystemCommandsTest, AMaskIsNotWrittenBackAsAPassword )
{
    load( "" );
    instance.set( u"Debug_Name", u"Local_Password" );
    instance.set( u"Local_Password", u"hunter2" );
    run( "(/system?getvalue;/system?setvalue)" );
    EXPECT_EQ( value( u"Local_Password" ), "hunter2" );
    // Elsewhere the same text is a value as any other.
    instance.set( u"Debug_Name", u"Other" );
    run( "(/system?setvalue)" );
    EXPECT_EQ( value( u"Other" ), "********" );
}

TEST_F( GSystemCommandsTest, TheLogFilterIsApplied )
{
    load( "" );
    const GString before = GLogGetFilter( );
    instance.set( u"Log_Filter", u"kc" );
    run( "(/system?setlogfilter)" );
    EXPECT_EQ( GLogGetFilter( ), "kc" );
    EXPECT_EQ( value( u"Debug_Result" ), "Set log filter to 'kc'  " );
    GLogSetFilter( before );
}

TEST_F( GSystemCommandsTest, AHotkeyIsAssignedReplacedAndCleared )
{
    load( "" );
    instance.set( u"Working_Hotkey", u"CONTROL+B" );
    run( "(/system?assignhotkey+name=bob@x)" );
    EXPECT_EQ( hotkeys( ), std::vector<std::string>{ "CONTROL+B bob@x" } );
    EXPECT_EQ( value( u"bob@x_Hotkey" ), "CONTROL+B" );
    instance.set( u"Working_Hotkey", u"CONTROL+C" );
    run( "(/system?assignhotkey+name=bob@x)" );
    EXPECT_EQ( hotkeys( ), std::vector<std::string>{ "CONTROL+C bob@x" } );
    desktop.refuseHotkeys = true;
    run( "(/system?assignhotkey+name=bob@x)" );
    EXPECT_TRUE( desktop.hotkeys.empty( ) );
    EXPECT_EQ( value( u"bob@x_Hotkey" ), "<key combination in use>" );
    desktop.refuseHotkeys = false;
    run( "(/system?assignhotkey+name=bob@x;/system?clearhotkey+name=bob@x)" );
    EXPECT_TRUE( desktop.hotkeys.empty( ) );
    EXPECT_FALSE( instance.isSet( u"bob@x_Hotkey" ) );
    TestLog::expect( "WARNING Trying to assign hotkey, but nothing selected" );
    run( "(/system?assignhotkey)" );
    TestLog::expect( "WARNING Trying to clear hotkey, but nothing selected" );
    run( "(/system?clearhotkey)" );
}

TEST_F( GSystemCommandsTest, AnAssignedHotkeyIsAPersistentSetting )
{
    load( "" );
    instance.set( u"Working_Hotkey", u"CONTROL+B" );
    run( "(/system?assignhotkey+name=bob@x)" );
    instance.save( );
    const std::unique_ptr<GInstance> reloaded( GSAFENEW( GInstance, ( settings ) ) );
    EXPECT_EQ( text( reloaded->get( u"bob@x_Hotkey" ) ), "CONTROL+B" );
}

TEST_F( GSystemCommandsTest, LogsAndReportsAreSent )
{
    load( "" );
    run( "(/system?bugreport)" );
    EXPECT_EQ( value( u"Bug_Report_Status" ), "Please enter bug report or suggestion." );
    EXPECT_EQ( sip( ), "" );
    instance.set( u"Bug_Report", u"it broke" );
    instance.set( u"Exit_When_Logfiles_Uploaded", 1 );
    run( "(/system?bugreport)" );
    EXPECT_EQ( sip( ), "BUGREPORT" );
    EXPECT_EQ( value( u"Bug_Report_Status" ), "Uploading report..." );
    EXPECT_EQ( desktop.rolls, 1 );
    EXPECT_EQ( value( u"Exit_When_Logfiles_Uploaded" ), "0" );
    EXPECT_EQ( next( u"GLogfileService_commandQueue" ), "UPLOADLOGFILES" );
}

TEST_F( GSystemCommandsTest, TheLogHostTravelsWithTheUploadWhenTheClientIsRobust )
{
    load( "" );
    instance.set( u"Global_Logfile_Host", u"10.0.0.1:80" );
    run( "(/system?uploadlogfile)" );
    EXPECT_EQ( next( u"GLogfileService_commandQueue" ), "UPLOADLOGFILES" );
    instance.set( u"Robust_Client", 1 );
    run( "(/system?uploadlogfile)" );
    EXPECT_EQ( next( u"GLogfileService_commandQueue" ), "UPLOADLOGFILES Logfile-Host=10.0.0.1:80" );
}

TEST_F( GSystemCommandsTest, UnknownThreadsAndActionsAreWarnedOf )
{
    load( "" );
    TestLog::expect( "WARNING Unknown thread '', cannot log call stack; ignoring." );
    run( "(/system?logcallstack)" );
    TestLog::expect( "WARNING Unknown thread 'nobody', cannot log call stack; ignoring." );
    run( "(/system?logcallstack+name=nobody)" );
    TestLog::expect( "WARNING Unknown thread '(some)', cannot log call stack; ignoring." );
    instance.set( u"Thread_Choice", u"(some)" );
    run( "(/system?logcallstack+from=Thread_Choice)" );
    TestLog::expect( "WARNING Unknown system action 'dance', ignoring." );
    run( "(/system?dance)" );
}

TEST_F( GSystemCommandsTest, TheChangesOpenAsADocument )
{
    load( "" );
    run( "(/system?showchanges)" );
    EXPECT_EQ( desktop.opened, std::vector<std::string>{ "CHANGELOG.txt" } );
}
