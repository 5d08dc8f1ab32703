#include "CommandsTest.h"

using GBuddyCommandsTest = CommandsTest;

TEST_F( GBuddyCommandsTest, AnEmptyNameIsNotAdded )
{
    load( "" );
    instance.set( u"Add_Buddy_GUID", u" !?" );
    TestLog::expect( "WARNING Trying to add null buddy, ignoring." );
    run( "(/buddies?addbuddy)" );
    EXPECT_EQ( value( u"Add_Buddy_Status" ), "You gots to type first, dawg." );
    EXPECT_EQ( sip( ), "" );
}

TEST_F( GBuddyCommandsTest, OneselfIsNotAdded )
{
    load( "" );
    instance.set( u"Default_Domain", u"velmora.example" );
    instance.set( u"Local_User_GUID", u"ann@velmora.example" );
    instance.set( u"Add_Buddy_GUID", u"Ann" );
    TestLog::expect( "WARNING Trying to add self as buddy, ignoring." );
    run( "(/buddies?addbuddy)" );
    EXPECT_EQ( value( u"Add_Buddy_Status" ), "Nice try, buddy." );
    EXPECT_EQ( sip( ), "" );
}

TEST_F( GBuddyCommandsTest, ABuddyIsCleanedCompletedAndAsked )
{
    load( "" );
    instance.set( u"Default_Domain", u"velmora.example" );
    instance.set( u"Add_Buddy_GUID", u" B(o;b) " );
    run( "(/buddies?addbuddy)" );
    EXPECT_EQ( sip( ), "ADDBUDDY Buddy-GUID=bob@velmora.example" );
    EXPECT_EQ( value( u"Add_Buddy_Status" ), "Verifying..." );
    instance.set( u"Add_Buddy_GUID", u"bob@" );
    run( "(/buddies?addbuddy)" );
    EXPECT_EQ( sip( ), "ADDBUDDY Buddy-GUID=bob@velmora.example" );
    instance.set( u"Add_Buddy_GUID", u"bob@other" );
    run( "(/buddies?addbuddy)" );
    EXPECT_EQ( sip( ), "ADDBUDDY Buddy-GUID=bob@other" );
}

TEST_F( GBuddyCommandsTest, UnknownBuddyCommandsAreWarnedOf )
{
    load( "" );
    TestLog::expect( "WARNING Unknown buddy-management action 'x', ignoring." );
    run( "(/buddies?x)" );
    TestLog::expect( "WARNING Malformed buddy path '/buddies/x/y', ignoring." );
    run( "(/buddies/x/y?talk)" );
    TestLog::expect( "WARNING Unknown buddy action 'sing', ignoring." );
    run( "(/buddies/x?sing)" );
}

TEST_F( GBuddyCommandsTest, WhatIsNoNameIsNoBuddy )
{
    load( "" );
    hear( );
    for( const std::string name : { "$Local_Password", "a(b", "x*", "a b", "a%b", "a\"b" } )
    {
        TestLog::expect( "WARNING Malformed buddy path '/buddies/" + name + "', ignoring." );
        instance.set( GConcat( GUTF8ToWide( name ), u"_Audio_Enabled" ), 1 );
        run( "(/buddies/" + name + "?call)" );
        EXPECT_EQ( nextBroadcast( GUTF8ToWide( name ) ), "" );
        EXPECT_EQ( value( GConcat( GUTF8ToWide( name ), u"_Call_State" ) ), "" );
    }
    run( "(/buddies/Bob@x?showscreen)" );
    EXPECT_EQ( nextBroadcast( u"Bob@x" ), "SHARESCREEN" );
}

TEST_F( GBuddyCommandsTest, TalkTurnsUpTheMedia )
{
    load( "" );
    hear( );
    instance.set( u"bob@x_Device_List", u"d1, d2" );
    instance.set( u"bob@x@d1_Video_Enabled", 1 );
    run( "(/buddies/bob@x?talk" );
    EXPECT_EQ( capture( ), "RESET Audio-Enable=true Buddy-Device-GUID=bob@x@d1 Video-Enable=true Video-FPS=5" );
    EXPECT_EQ( capture( ), "RESET Audio-Enable=true Buddy-Device-GUID=bob@x@d2 Video-Enable=false Video-FPS=5" );
    EXPECT_EQ( value( u"Talking_Hands_Free" ), "0" );
    EXPECT_EQ( value( u"Talking_To_List" ), "bob@x" );
    EXPECT_TRUE( TestLog::contains( "ACTIVITY: talk 'bob@x'" ) );
}

TEST_F( GBuddyCommandsTest, TalkNeedsAMicrophone )
{
    load( "" );
    TestLog::expect( "WARNING Trying to 'talk' to buddy 'bob@x' but no audio capture configured, ignoring." );
    run( "(/buddies/bob@x?talk)" );
    EXPECT_EQ( client( ), "NOTIFYCANTTALK User-GUID=bob@x" );
    TestLog::expect(
        "WARNING Trying to 'starttalkhandsfree' to buddy 'bob@x' but no audio capture configured, ignoring." );
    run( "(/buddies/bob@x?starttalkhandsfree)" );
    EXPECT_EQ( client( ), "NOTIFYCANTTALK User-GUID=bob@x" );
    EXPECT_EQ( value( u"Talking_To_List" ), "" );
}

TEST_F( GBuddyCommandsTest, HandsFreeTalkIsMarkedUntilItStops )
{
    load( "" );
    hear( );
    run( "(/buddies/bob@x?starttalkhandsfree)" );
    EXPECT_EQ( value( u"Talking_Hands_Free" ), "1" );
    tickFor( 2000000 );
    EXPECT_EQ( value( u"Talking_To_List" ), "bob@x" );
    run( "(/buddies/bob@x?stoptalkhandsfree)" );
    EXPECT_EQ( value( u"Talking_Hands_Free" ), "0" );
    tick( );
    EXPECT_EQ( value( u"Talking_To_List" ), "" );
}

TEST_F( GBuddyCommandsTest, ReconnectAndRemoveGoToTheService )
{
    load( "" );
    run( "(/buddies/bob@x?reconnect;/buddies/bob@x?remove)" );
    EXPECT_EQ( sip( ), "RECONNECTBUDDY Buddy-GUID=bob@x" );
    EXPECT_EQ( sip( ), "REMOVEBUDDY Buddy-GUID=bob@x" );
}

TEST_F( GBuddyCommandsTest, ACallRingsAndOpensItsWindow )
{
    instance.set( u"Calls", u"bob@x" );
    load( "<Foreach id=\"call\" as=\"id\" list=\"Calls\"><Window id=\"\" hidden=\"true\" width=\"9\" height=\"9\" "
          "onopen=\"(/system?set+name=Opened+value=$id)\"/></Foreach>" );
    hear( );
    instance.set( u"bob@x_Audio_Enabled", 1 );
    run( "(/buddies/bob@x?call)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "CALLINVITE" );
    EXPECT_EQ( value( u"bob@x_Call_State" ), "calling" );
    EXPECT_EQ( value( u"bob@x_Call_Status" ), "Calling bob@x..." );
    EXPECT_EQ( value( u"Opened" ), "bob@x" );
}

TEST_F( GBuddyCommandsTest, ACallNeedsTwoMicrophones )
{
    load( "" );
    TestLog::expect( "WARNING Trying to 'call' to buddy 'bob@x' but no audio capture configured, ignoring." );
    run( "(/buddies/bob@x?call)" );
    EXPECT_EQ( client( ), "NOTIFYCANTTALK User-GUID=bob@x" );
    hear( );
    TestLog::expect(
        "WARNING Trying to 'call' to buddy 'bob@x' but remote side has no audio capture configured, ignoring." );
    run( "(/buddies/bob@x?call)" );
    EXPECT_EQ( client( ), "NOTIFYREMOTECANTTALK User-GUID=bob@x" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "" );
}

TEST_F( GBuddyCommandsTest, AHangupSaysWhyAndEndsHandsFreeTalk )
{
    load( "" );
    instance.set( u"bob@x_Call_State", u"talking" );
    instance.set( u"Talking_Hands_Free", 1 );
    run( "(/buddies/bob@x?hangup+reason=done)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "CALLCANCEL Reason=done" );
    EXPECT_FALSE( instance.isSet( u"bob@x_Call_State" ) );
    EXPECT_EQ( value( u"bob@x_Call_Status" ), "Call complete." );
    EXPECT_EQ( value( u"Talking_Hands_Free" ), "0" );
    run( "(/buddies/bob@x?hangup+reason=chat)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "CALLCANCEL Reason=chat" );
    EXPECT_FALSE( instance.isSet( u"bob@x_Call_Status" ) );
}

TEST_F( GBuddyCommandsTest, APickupTalksHandsFree )
{
    load( "" );
    hear( );
    instance.set( u"bob@x_Call_Status", u"ringing" );
    run( "(/buddies/bob@x?pickup)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "CALLACCEPT" );
    EXPECT_EQ( value( u"bob@x_Call_State" ), "talking" );
    EXPECT_FALSE( instance.isSet( u"bob@x_Call_Status" ) );
    EXPECT_EQ( value( u"Talking_Hands_Free" ), "1" );
}

TEST_F( GBuddyCommandsTest, AChatLineIsSentShownAndLogged )
{
    load( window( "w", "<Edit/>" ) );
    instance.set( u"Local_User_GUID", u"ann@x" );
    auto* edit = dynamic_cast<GEditNode*>( node( u"/skin/window_w/edit" ) );
    edit->setText( u"hi) (/system?exit); there" );
    run( "(/buddies/chat_test@x?chat+action=send;?clear)", edit );
    EXPECT_EQ( nextBroadcast( u"chat_test@x" ), "CHAT Action=send From=ann@x <hi) (/system?exit); there>" );
    EXPECT_EQ( next( u"chat_test@x_Chat_Queue" ), "CHAT Action=send From=ann@x <hi) (/system?exit); there>" );
    EXPECT_EQ( client( ), "" );
    EXPECT_EQ( text( edit->getText( ) ), "" );
    GString log;
    ASSERT_TRUE( GFileLoad( u"chatlogs/chat_test@x_chat.txt", log ) );
    GFileDelete( u"chatlogs/chat_test@x_chat.txt" );
    EXPECT_NE( log.find( "] ann: hi) (/system?exit); there\r\n" ), std::string::npos );
}

TEST_F( GBuddyCommandsTest, TypingIsToldButNeitherShownNorLogged )
{
    load( "" );
    instance.set( u"Local_User_GUID", u"ann@x" );
    run( "(/buddies/bob@x?chat+action=start+message=text)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "CHAT Action=start From=ann@x <text>" );
    EXPECT_EQ( instance.length( u"bob@x_Chat_Queue" ), 0 );
    run( "(/buddies/bob@x?chatdone)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "CHATDONE" );
}

TEST_F( GBuddyCommandsTest, AMissingChatLogIsMadeBeforeItIsOpened )
{
    load( "" );
    const GWString path = u"chatlogs/load_test@x_chat.txt";
    desktop.openFailures = 1;
    run( "(/buddies/load_test@x?chatload)" );
    EXPECT_EQ( desktop.opened, std::vector<std::string>( 2, text( path ) ) );
    GString log;
    ASSERT_TRUE( GFileLoad( path, log ) );
    EXPECT_EQ( log, "(empty chat log)\r\n" );
    GFileSave( path, "said", 4 );
    desktop.openFailures = 2;
    TestLog::expect( "WARNING Can't open chat log '" + text( path ) + "' ('no program'), ignoring." );
    run( "(/buddies/load_test@x?chatload)" );
    GFileLoad( path, log );
    EXPECT_EQ( log, "said" );
    GFileDelete( path );
}

TEST_F( GBuddyCommandsTest, AFileIsChosenAndOffered )
{
    load( window(
        "options",
        "<copy><border><inside><Wizard><page id=\"a\"/><page id=\"file\"/></Wizard></inside></border></copy>" ) );
    desktop.chosenFile = file->path;
    run( "(/buddies/bob@x?sendfile)" );
    EXPECT_EQ( desktop.chooserTitle, "Please choose the file to send to bob@x" );
    const std::string path = text( file->path );
    EXPECT_EQ( nextBroadcast( u"bob@x" ),
               "SENDFILE Filename=" + path.substr( path.rfind( '/' ) + 1 ) + " Path=" + path );
    EXPECT_EQ( text( node( u"/skin/window_options/copy/border/inside/wizard" )->getAttribute( u"page" ) ), "file" );
    EXPECT_EQ( value( u"options_Window" ), "open" );
}

TEST_F( GBuddyCommandsTest, AFileThatIsNotThereIsNotOffered )
{
    load( "" );
    TestLog::expect( "WARNING Cannot send file '', ignoring." );
    run( "(/buddies/bob@x?sendfile)" );
    desktop.chosenFile = u"/no/such/file";
    TestLog::expect( "WARNING Cannot send file '/no/such/file', ignoring." );
    run( "(/buddies/bob@x?sendfile)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "" );
}

TEST_F( GBuddyCommandsTest, TheScreenOrAWindowIsShared )
{
    load( "" );
    run( "(/buddies/bob@x?showscreen)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "SHARESCREEN" );
    run( "(/buddies/bob@x?showwindow+id=77)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "SHARESCREEN Window-ID=77" );
    EXPECT_EQ( desktop.raised, 77u );
}

TEST_F( GBuddyCommandsTest, WindowsToShareAreOfferedByTitlesThatCannotCommand )
{
    load( "" );
    desktop.windows = { { 5, u"Editor" }, { 7, u"x)(/system?exit);y" }, { 9, u"$Local_Password" } };
    desktop.choice = 1;
    run( "(/buddies/bob@x?showwindow)" );
    EXPECT_EQ( desktop.labels,
               ( std::vector<std::string>{ "Show 'Editor'", "Show 'x/system?exit;y'", "Show '$Local_Password'" } ) )
        << "as people read it";
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "SHARESCREEN Window-ID=7" );
    EXPECT_EQ( client( ), "" );
    desktop.windows.clear( );
    TestLog::expect( "WARNING Cannot share window because no windows found, ignoring." );
    run( "(/buddies/bob@x?showwindow)" );
}

TEST_F( GBuddyCommandsTest, RemoteControlAndEndsGoToTheScreenService )
{
    load( "" );
    run( "(/buddies/bob@x?setremotecontrol+enable=true)" );
    EXPECT_EQ( screen( ), "SETREMOTECONTROL Buddy-GUID=bob@x Enable=true" );
    run( "(/buddies/bob@x?stopscreenfrom)" );
    EXPECT_EQ( screen( ), "CLOSERECV Buddy-GUID=bob@x" );
    run( "(/buddies/bob@x?stopscreento)" );
    EXPECT_EQ( screen( ), "CLOSESEND Buddy-GUID=bob@x" );
}

TEST_F( GBuddyCommandsTest, ChatTextIsSentShownAndLoggedAsItStands )
{
    load( window( "w", "<Edit/>" ) );
    instance.set( u"Local_User_GUID", u"ann@x" );
    instance.set( u"Local_Password", u"secret" );
    auto* edit = dynamic_cast<GEditNode*>( node( u"/skin/window_w/edit" ) );
    const char16_t* line = u"$Local_Password {$x} a;b, (/system?exit); ${Local_Password}";
    edit->setText( line );
    update( );
    run( "(/buddies/letters_test@x?chat+action=send;?clear)", edit );
    const std::string whole = "CHAT Action=send From=ann@x <" + text( line ) + ">";
    EXPECT_EQ( nextBroadcast( u"letters_test@x" ), whole );
    EXPECT_EQ( next( u"letters_test@x_Chat_Queue" ), whole );
    GString log;
    ASSERT_TRUE( GFileLoad( u"chatlogs/letters_test@x_chat.txt", log ) );
    GFileDelete( u"chatlogs/letters_test@x_chat.txt" );
    EXPECT_NE( log.find( "] ann: " + text( line ) + "\r\n" ), std::string::npos );
}

TEST_F( GBuddyCommandsTest, ReturnInAnEmptyFieldSendsAnEmptyLineToTheLetterAndNothingWhenMended )
{
    load( window( "w", "<Edit/>" ) );
    for( const bool mended : { false, true } )
    {
        instance.set( u"Robust_Client", mended ? 1 : 0 );
        run( "(/buddies/empty_test@x?chat+action=send)", node( u"/skin/window_w/edit" ) );
        EXPECT_EQ( nextBroadcast( u"empty_test@x" ).empty( ), mended );
        GFileDelete( u"chatlogs/empty_test@x_chat.txt" );
    }
}

// A name on a list that is more than a name stops at the part that is repeated: no clone, no command, no path.
TEST_F( GBuddyCommandsTest, AHostileNameOnTheListNeitherExpandsNorActs )
{
    instance.set( u"Local_Password", u"secret" );
    instance.set( u"Local_Buddy_List", u"bob@x, $Local_Password, x?remove&y=, a)b(/system?exit, ../../x, {bob@x}" );
    for( const char* what : { "$Local_Password", "x?remove&y=", "a)b(/system?exit", "../../x", "{bob@x}" } )
        TestLog::expect( std::string( "WARNING Foreach '/skin/Foreach_call' cannot repeat '" ) + what +
                         "', ignoring." );
    load( "<Foreach id=\"call\" list=\"Local_Buddy_List\" as=\"id\"><Window id=\"\" buddy=\"$id\" hidden=\"true\" "
          "width=\"9\" height=\"9\" "
          "title=\"$buddy\" onopen=\"(/buddies/$buddy?reconnect)\" onclose=\"(/buddies/$buddy?remove)\"/></Foreach>" );
    GTemplateNode* foreach = node( u"/skin/foreach_call" );
    EXPECT_EQ( foreach->getChildren( ).size( ), 2u );
    run( "(/skin/foreach_call/window_bob@x?open)" );
    EXPECT_EQ( sip( ), "RECONNECTBUDDY Buddy-GUID=bob@x" );
    TestLog::expect( "WARNING Invalid path '/skin/foreach_call/window_$Local_Password', ignoring." );
    TestLog::expect( "WARNING Invalid path '/skin/foreach_call/window_secret', ignoring." );
    run( "(/skin/foreach_call/window_$Local_Password?open)" );
    run( "(/skin/foreach_call/window_secret?open)" );
    EXPECT_EQ( sip( ), "" );
    EXPECT_EQ( client( ), "" );
}
