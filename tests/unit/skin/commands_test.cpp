#include "TemplateTest.h"
#include "client/skin/nodes/GEditNode.h"
#include "client/skin/nodes/GListNode.h"
#include "client/skin/nodes/GTableNode.h"
#include "client/skin/nodes/GWindowNode.h"

namespace
{
class CommandsTest : public TemplateTest
{
protected:
    // The first line and all headers of the oldest message of a queue, and its content.
    std::string next( GWStringView queue )
    {
        const GHTTPHeaders message = take( queue );
        std::string out = text( message.getMethod( ) );
        for( const auto& [name, header] : message.headers( ) )
            if( !name.empty( ) && name != u"Content-Length" ) out += " " + text( name ) + "=" + text( header );
        if( message.hasContent( ) ) out += " <" + message.getContent( 0 ) + ">";
        return out;
    }
    // The message inside the oldest broadcast to a buddy.
    std::string nextBroadcast( GWStringView buddy )
    {
        const GHTTPHeaders wrapper = take( GConcat( buddy, u"_commandQueue" ) );
        if( !wrapper.isMethod( u"DEVICEBROADCAST" ) || !wrapper.hasContent( ) ) return "";
        instance.enqueue( u"unwrapped", wrapper.getContent( 0 ) );
        return next( u"unwrapped" );
    }
    std::string client( ) { return next( u"GClient_commandQueue" ); }
    std::string sip( ) { return next( u"GSIPService_commandQueue" ); }
    std::string screen( ) { return next( u"GScreenService_commandQueue" ); }
    std::string capture( ) { return next( u"GVideoCaptureService_commandQueue" ); }
    std::string files( ) { return next( u"GFileService_commandQueue" ); }
    void hear( ) { instance.set( u"Audio_Capture_Online", 1 ); }
    void update( ) { engine->onNotification( 2, clock.now( ) ); }
    GWindowNode* windowNode( GWStringView path ) { return dynamic_cast<GWindowNode*>( node( path ) ); }
};
} // namespace

// ---- Nodes.

TEST_F( CommandsTest, AWindowFadesByMillisecondsWithEitherSeparator )
{
    load( window( "a" ) );
    GWindowNode* a = windowNode( u"/skin/window_a" );
    run( "(/skin/window_a?fadein+duration=500)" );
    clock.advance( 250000 );
    a->onTimer( nullptr );
    EXPECT_NEAR( a->getAlpha( ), 127, 2 );
    clock.advance( 500000 );
    a->onTimer( nullptr );
    EXPECT_EQ( a->getAlpha( ), 255 );
    run( "(/skin/window_a?fadeout&duration=500)" );
    clock.advance( 250000 );
    a->onTimer( nullptr );
    EXPECT_NEAR( a->getAlpha( ), 127, 2 );
}

TEST_F( CommandsTest, ACloseWithoutAPathActsOnItsSource )
{
    load( window( "a", "<Button/>" ) );
    run( "(?close)", node( u"/skin/window_a" ) );
    EXPECT_EQ( value( u"a_Window" ), "closed" );
    TestLog::expect( "WARNING Trying to 'close' non-window node '/skin/Window_a/Button', ignoring." );
    run( "(?close)", node( u"/skin/window_a/button" ) );
    run( "(../?open)", node( u"/skin/window_a/button" ) );
    EXPECT_EQ( value( u"a_Window" ), "open" );
}

TEST_F( CommandsTest, WindowActionsNeedAWindow )
{
    load( "<a/>" );
    for( const std::string action : { "fadein", "fadeout", "open", "close", "maximize", "minimize", "flash" } )
    {
        TestLog::expect( "WARNING Trying to '" + action + "' non-window node '/skin/a', ignoring." );
        run( "(/skin/a?" + action + ")" );
    }
    TestLog::expect( "WARNING Trying to 'fit' on a non-screen/window node '/skin/a', ignoring." );
    run( "(/skin/a?fit)" );
    TestLog::expect( "WARNING Unknown skin action '/skin/a', ignoring." );
    run( "(/skin/a?jumpy)" );
}

TEST_F( CommandsTest, WizardActionsNeedAWizard )
{
    load( "<a/>" );
    for( const std::string action : { "next", "back", "done" } )
    {
        TestLog::expect( "WARNING Trying to '" + action + "' on non-wizard node '/skin/a', ignoring." );
        run( "(/skin/a?" + action + ")" );
    }
    TestLog::expect( "WARNING Trying to 'jump' on non-wizard node, with no target, or with non-list source '/skin/a'" );
    run( "(/skin/a?jump+target=x)" );
}

TEST_F( CommandsTest, AWizardTurnsItsPages )
{
    load( window( "w", "<Wizard ondone=\"(/system?set+name=Done+value=1)\"><page id=\"one\" title=\"First\"/>"
                       "<page id=\"two\" title=\"Second\"/></Wizard>" ) );
    GTemplateNode* wizard = node( u"/skin/window_w/wizard" );
    const auto page = [&] { return text( wizard->getAttribute( u"page" ) ); };
    EXPECT_EQ( page( ), "one" );
    run( "(/skin/window_w/wizard?next)" );
    EXPECT_EQ( page( ), "two" );
    run( "(/skin/window_w/wizard?back)" );
    EXPECT_EQ( page( ), "one" );
    run( "(/skin/window_w/wizard?jump+target=second)" );
    EXPECT_EQ( page( ), "two" );
    run( "(/skin/window_w/wizard?done)" );
    EXPECT_EQ( value( u"Done" ), "1" );
    TestLog::expect( "WARNING Trying to 'jump' on non-wizard node, with no target" );
    run( "(/skin/window_w/wizard?jump)" );
}

TEST_F( CommandsTest, AJumpTakesTheSelectionOfAList )
{
    load( window( "w", "<Wizard><page id=\"one\" title=\"First\"/><page id=\"two\" title=\"Second\"/></Wizard>"
                       "<List list=\"First,Second\" select=\"Second\"/>" ) );
    run( "(../wizard?jump+target=First)", node( u"/skin/window_w/list" ) );
    EXPECT_EQ( text( node( u"/skin/window_w/wizard" )->getAttribute( u"page" ) ), "two" );
}

TEST_F( CommandsTest, ClearEmptiesTheSourceAndNotTheTarget )
{
    load( window( "w", "<Edit id=\"a\"/><Edit id=\"b\"/>" ) );
    auto* a = dynamic_cast<GEditNode*>( node( u"/skin/window_w/edit_a" ) );
    auto* b = dynamic_cast<GEditNode*>( node( u"/skin/window_w/edit_b" ) );
    a->setText( u"aaa" );
    b->setText( u"bbb" );
    run( "(/skin/window_w/edit_b?clear)", a );
    EXPECT_EQ( text( a->getText( ) ), "" );
    EXPECT_EQ( text( b->getText( ) ), "bbb" );
    TestLog::expect( "WARNING Trying to 'clear' on non-edit node '/skin/Window_w/Edit_b', ignoring." );
    run( "(/skin/window_w/edit_b?clear)" );
}

// ---- Buddies.

TEST_F( CommandsTest, AnEmptyNameIsNotAdded )
{
    load( "" );
    instance.set( u"Add_Buddy_GUID", u" !?" );
    TestLog::expect( "WARNING Trying to add null buddy, ignoring." );
    run( "(/buddies?addbuddy)" );
    EXPECT_EQ( value( u"Add_Buddy_Status" ), "You gots to type first, dawg." );
    EXPECT_EQ( sip( ), "" );
}

TEST_F( CommandsTest, OneselfIsNotAdded )
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

TEST_F( CommandsTest, ABuddyIsCleanedCompletedAndAsked )
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

TEST_F( CommandsTest, UnknownBuddyCommandsAreWarnedOf )
{
    load( "" );
    TestLog::expect( "WARNING Unknown buddy-management action 'x', ignoring." );
    run( "(/buddies?x)" );
    TestLog::expect( "WARNING Malformed buddy path '/buddies/x/y', ignoring." );
    run( "(/buddies/x/y?talk)" );
    TestLog::expect( "WARNING Unknown buddy action 'sing', ignoring." );
    run( "(/buddies/x?sing)" );
}

TEST_F( CommandsTest, TalkTurnsUpTheMedia )
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

TEST_F( CommandsTest, TalkNeedsAMicrophone )
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

TEST_F( CommandsTest, HandsFreeTalkIsMarkedUntilItStops )
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

TEST_F( CommandsTest, ReconnectAndRemoveGoToTheService )
{
    load( "" );
    run( "(/buddies/bob@x?reconnect;/buddies/bob@x?remove)" );
    EXPECT_EQ( sip( ), "RECONNECTBUDDY Buddy-GUID=bob@x" );
    EXPECT_EQ( sip( ), "REMOVEBUDDY Buddy-GUID=bob@x" );
}

TEST_F( CommandsTest, ACallRingsAndOpensItsWindow )
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

TEST_F( CommandsTest, ACallNeedsTwoMicrophones )
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

TEST_F( CommandsTest, AHangupSaysWhyAndEndsHandsFreeTalk )
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

TEST_F( CommandsTest, APickupTalksHandsFree )
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

TEST_F( CommandsTest, AChatLineIsSentShownAndLogged )
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

TEST_F( CommandsTest, TypingIsToldButNeitherShownNorLogged )
{
    load( "" );
    instance.set( u"Local_User_GUID", u"ann@x" );
    run( "(/buddies/bob@x?chat+action=start+message=text)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "CHAT Action=start From=ann@x <text>" );
    EXPECT_EQ( instance.length( u"bob@x_Chat_Queue" ), 0 );
    run( "(/buddies/bob@x?chatdone)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "CHATDONE" );
}

TEST_F( CommandsTest, AMissingChatLogIsMadeBeforeItIsOpened )
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

TEST_F( CommandsTest, AFileIsChosenAndOffered )
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

TEST_F( CommandsTest, AFileThatIsNotThereIsNotOffered )
{
    load( "" );
    TestLog::expect( "WARNING Cannot send file '', ignoring." );
    run( "(/buddies/bob@x?sendfile)" );
    desktop.chosenFile = u"/no/such/file";
    TestLog::expect( "WARNING Cannot send file '/no/such/file', ignoring." );
    run( "(/buddies/bob@x?sendfile)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "" );
}

TEST_F( CommandsTest, TheScreenOrAWindowIsShared )
{
    load( "" );
    run( "(/buddies/bob@x?showscreen)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "SHARESCREEN" );
    run( "(/buddies/bob@x?showwindow+id=77)" );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "SHARESCREEN Window-ID=77" );
    EXPECT_EQ( desktop.raised, 77u );
}

TEST_F( CommandsTest, WindowsToShareAreOfferedByTitlesThatCannotCommand )
{
    load( "" );
    desktop.windows = { { 5, u"Editor" }, { 7, u"x)(/system?exit);y" } };
    desktop.choice = 1;
    run( "(/buddies/bob@x?showwindow)" );
    EXPECT_EQ( desktop.labels, ( std::vector<std::string>{ "Show 'Editor'", "Show 'x/system?exit;y'" } ) );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "SHARESCREEN Window-ID=7" );
    EXPECT_EQ( client( ), "" );
    desktop.windows.clear( );
    TestLog::expect( "WARNING Cannot share window because no windows found, ignoring." );
    run( "(/buddies/bob@x?showwindow)" );
}

TEST_F( CommandsTest, RemoteControlAndEndsGoToTheScreenService )
{
    load( "" );
    run( "(/buddies/bob@x?setremotecontrol+enable=true)" );
    EXPECT_EQ( screen( ), "SETREMOTECONTROL Buddy-GUID=bob@x Enable=true" );
    run( "(/buddies/bob@x?stopscreenfrom)" );
    EXPECT_EQ( screen( ), "CLOSERECV Buddy-GUID=bob@x" );
    run( "(/buddies/bob@x?stopscreento)" );
    EXPECT_EQ( screen( ), "CLOSESEND Buddy-GUID=bob@x" );
}

// ---- Accounts.

TEST_F( CommandsTest, ANewAccountNeedsItsForm )
{
    load( window( "new" ) );
    const auto expectStatus = [this]( const std::string& status )
    {
        TestLog::expect( "WARNING Cannot 'new': '" + status + "', ignoring." );
        run( "(/account?new)" );
        EXPECT_EQ( value( u"Logon_Status" ), status );
    };
    expectStatus( "-- Missing email --" );
    instance.set( u"Local_Email", u"a@b" );
    expectStatus( "-- Missing username --" );
    instance.set( u"Local_Username", u"Ann" );
    expectStatus( "-- Missing password --" );
    instance.set( u"Local_Password", u"p" );
    instance.set( u"Local_Username", u"Ann@x" );
    expectStatus( "-- Invalid name (a-z0-9_.-) --" );
    instance.set( u"Local_Username", u"Ann B" );
    expectStatus( "-- Invalid name (a-z0-9_.-) --" );
    EXPECT_EQ( client( ), "" );
    EXPECT_EQ( value( u"new_Window" ), "" );
}

TEST_F( CommandsTest, ANewAccountLogsOn )
{
    load( window( "new" ) );
    for( const GWStringView name : { u"Local_Email", u"Local_Username", u"Local_Password", u"Local_User_GUID" } )
        instance.set( name, u"Ann" );
    run( "(/account?new)" );
    EXPECT_FALSE( instance.isSet( u"Local_User_GUID" ) );
    EXPECT_EQ( value( u"new_Window" ), "closed" );
    EXPECT_EQ( client( ), "LOGON" );
}

TEST_F( CommandsTest, ALoginCleansAndCompletesTheName )
{
    load( window( "login" ) );
    instance.set( u"Default_Domain", u"velmora.example" );
    instance.set( u"Local_User_GUID", u"Ann" );
    instance.set( u"Local_Password", u"p" );
    run( "(/account?login)" );
    EXPECT_EQ( value( u"Local_User_GUID" ), "ann@velmora.example" );
    EXPECT_EQ( value( u"login_Window" ), "closed" );
    EXPECT_EQ( client( ), "LOGON" );
    instance.set( u"Local_User_GUID", u"Ann@Other" );
    run( "(/account?login)" );
    EXPECT_EQ( value( u"Local_User_GUID" ), "ann@other" );
    EXPECT_EQ( client( ), "LOGON" );
}

TEST_F( CommandsTest, ALoginNeedsAValidNameAndAPassword )
{
    load( window( "login" ) );
    run( "(/account?login)" );
    EXPECT_EQ( value( u"Logon_Status" ), "-- Missing name or password --" );
    instance.set( u"Local_User_GUID", u"a n n" );
    run( "(/account?login)" );
    EXPECT_EQ( value( u"Logon_Status" ), "-- Missing name or password --" );
    instance.set( u"Local_Password", u"p" );
    run( "(/account?login)" );
    EXPECT_EQ( value( u"Logon_Status" ), "-- Invalid name (a-z0-9@_.-) --" );
    EXPECT_EQ( client( ), "" );
    EXPECT_EQ( value( u"login_Window" ), "" );
}

TEST_F( CommandsTest, OtherAccountActions )
{
    load( "" );
    run( "(/account?updatecapture)" );
    EXPECT_EQ( sip( ), "UPDATECAPTURE" );
    TestLog::expect( "WARNING Unknown account action 'x', ignoring." );
    run( "(/account?x)" );
}

// ---- Devices and files.

TEST_F( CommandsTest, PreviewsOfBothDevices )
{
    load( "" );
    run( "(/dev/audio?startpreview;/dev/audio?stoppreview;/dev/video?startpreview;/dev/video?stoppreview)" );
    EXPECT_EQ( capture( ), "STARTAUDIOPREVIEW" );
    EXPECT_EQ( capture( ), "STOPAUDIOPREVIEW" );
    EXPECT_EQ( capture( ), "STARTVIDEOPREVIEW" );
    EXPECT_EQ( capture( ), "STOPVIDEOPREVIEW" );
}

TEST_F( CommandsTest, ADeviceIsResetFromAList )
{
    load( window( "w", "<List/>" ) );
    instance.set( u"Video_Capture_Device", u"Cam" );
    instance.set( u"Audio_Capture_Device", u"Mic" );
    run( "(/dev/video?reset)", node( u"/skin/window_w/list" ) );
    EXPECT_EQ( capture( ), "START Audio_Capture_Device=Mic Video_Capture_Device=Cam" );
    TestLog::expect( "WARNING Tried to 'reset' device '/dev/video' from non-list source, ignoring." );
    run( "(/dev/video?reset)" );
    TestLog::expect( "WARNING Tried to address non-existent device '/dev/nose', ignoring." );
    run( "(/dev/nose?reset)" );
    TestLog::expect( "WARNING Unknown '/dev/audio' action 'x', ignoring." );
    run( "(/dev/audio?x)" );
    EXPECT_EQ( capture( ), "" );
}

TEST_F( CommandsTest, TheSelectedTransferIsOpenedAndCancelled )
{
    instance.set( u"Transfers", u"f1, f2" );
    instance.set( u"f1_Name", u"one" );
    load( window( "w", "<Table prefixlistsrc=\"Transfers\" suffixlist=\"_Name\" title=\"Name\"/>" ) );
    GTemplateNode* table = node( u"/skin/window_w/table" );
    TestLog::expect( "WARNING Unable to 'OPEN' because nothing selected, ignoring." );
    run( "(/fileservice?cancel)", table );
    // A click into the second line, below the titles, selects the first transfer.
    auto* handler = dynamic_cast<GTableNode*>( table );
    for( int y = 0; y < 200 && handler->getSelection( ).empty( ); ++y ) handler->onLButtonDown( nullptr, 1, y );
    const std::string selection = text( handler->getSelection( ) );
    ASSERT_NE( selection, "" );
    run( "(/fileservice?open)", table );
    EXPECT_EQ( files( ), "OPEN File-ID=" + selection );
    run( "(/fileservice?cancel)", table );
    EXPECT_EQ( files( ), "CANCEL File-ID=" + selection );
    TestLog::expect( "WARNING Unrecognized fileservice action 'x', ignoring." );
    run( "(/fileservice?x)", table );
}

// ---- The system.

TEST_F( CommandsTest, LeavingSetsWhatHappensWhenOffline )
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

TEST_F( CommandsTest, ValuesAreShownAndSetByName )
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
    TestLog::expect( "WARNING Cannot set value 'x' because no name specificed; ignoring." );
    run( "(/system?set+value=x)" );
}

TEST_F( CommandsTest, PasswordsDoNotShow )
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

TEST_F( CommandsTest, TheLogFilterIsApplied )
{
    load( "" );
    const GString before = GLogGetFilter( );
    instance.set( u"Log_Filter", u"kc" );
    run( "(/system?setlogfilter)" );
    EXPECT_EQ( GLogGetFilter( ), "kc" );
    EXPECT_EQ( value( u"Debug_Result" ), "Set log filter to 'kc'  " );
    GLogSetFilter( before );
}

TEST_F( CommandsTest, AHotkeyIsAssignedReplacedAndCleared )
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

TEST_F( CommandsTest, AnAssignedHotkeyIsAPersistentSetting )
{
    load( "" );
    instance.set( u"Working_Hotkey", u"CONTROL+B" );
    run( "(/system?assignhotkey+name=bob@x)" );
    instance.save( );
    const std::unique_ptr<GInstance> reloaded( GSAFENEW( GInstance, ( settings ) ) );
    EXPECT_EQ( text( reloaded->get( u"bob@x_Hotkey" ) ), "CONTROL+B" );
}

TEST_F( CommandsTest, LogsAndReportsAreSent )
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

TEST_F( CommandsTest, TheLogHostTravelsWithTheUploadWhenTheClientIsRobust )
{
    load( "" );
    instance.set( u"Global_Logfile_Host", u"10.0.0.1:80" );
    run( "(/system?uploadlogfile)" );
    EXPECT_EQ( next( u"GLogfileService_commandQueue" ), "UPLOADLOGFILES" );
    instance.set( u"Robust_Client", 1 );
    run( "(/system?uploadlogfile)" );
    EXPECT_EQ( next( u"GLogfileService_commandQueue" ), "UPLOADLOGFILES Logfile-Host=10.0.0.1:80" );
}

TEST_F( CommandsTest, UnknownThreadsAndActionsAreWarnedOf )
{
    load( "" );
    TestLog::expect( "WARNING Unknown thread '', cannot log call stack; ignoring." );
    run( "(/system?logcallstack)" );
    TestLog::expect( "WARNING Unknown system action 'dance', ignoring." );
    run( "(/system?dance)" );
}

// ---- Talk by hotkey.

namespace
{
class TalkTest : public CommandsTest
{
protected:
    void SetUp( ) override
    {
        load( "" );
        hear( );
        instance.set( u"Local_Buddy_List", u"bob@x, eve@x" );
        for( const GWStringView buddy : { u"bob@x", u"eve@x" } )
        {
            instance.set( GConcat( buddy, u"_Online" ), 1 );
            instance.set( GConcat( buddy, u"_Device_List" ), u"d" );
        }
    }
    void down( GWStringView name ) { engine->onHotkeyDown( nullptr, GWString( name ) ); }
    void up( GWStringView name ) { engine->onHotkeyUp( nullptr, GWString( name ) ); }
    // "bob+" for a stream turned up, "bob-" for one turned down.
    std::string resets( )
    {
        std::string out;
        for( GHTTPHeaders message = take( QUEUE ); message.isMethod( u"RESET" ); message = take( QUEUE ) )
            out += text( message.get( u"Buddy-Device-GUID" ) ).substr( 0, 3 ) +
                   ( message.test( u"Audio-Enable" ) && message.calc( u"Video-FPS" ) == 5 ? "+" : "-" );
        return out;
    }
    static constexpr GWStringView QUEUE = u"GVideoCaptureService_commandQueue";
};
} // namespace

TEST_F( TalkTest, AHeldKeyTalksAndItsReleaseStopsHalfASecondLater )
{
    down( u"bob@x" );
    EXPECT_TRUE( TestLog::contains( "STARTTALK(bob@x)" ) );
    tickFor( 3000000 );
    EXPECT_EQ( resets( ), "bob+" );
    up( u"bob@x" );
    EXPECT_TRUE( TestLog::contains( "STOPTALK(bob@x)" ) );
    EXPECT_TRUE( TestLog::contains( "Hotkey up, stopping talk to 'bob@x'" ) );
    EXPECT_EQ( value( u"Talking_To_List" ), "" );
    tickFor( 500000 );
    EXPECT_EQ( resets( ), "" );
    tickFor( 50000 );
    EXPECT_EQ( resets( ), "bob-" );
    tickFor( 2000000 );
    EXPECT_EQ( resets( ), "" );
}

TEST_F( TalkTest, APressWithinTheDelayLeavesTheStreamUp )
{
    down( u"bob@x" );
    up( u"bob@x" );
    tickFor( 300000 );
    down( u"bob@x" );
    tickFor( 3000000 );
    EXPECT_EQ( resets( ), "bob+bob+" );
    up( u"bob@x" );
    tickFor( 600000 );
    EXPECT_EQ( resets( ), "bob-" );
}

TEST_F( TalkTest, TwoReleasesInARowStopBoth )
{
    down( u"bob@x" );
    up( u"bob@x" );
    down( u"eve@x" );
    up( u"eve@x" );
    tickFor( 600000 );
    EXPECT_EQ( resets( ), "bob+eve+bob-eve-" );
}

TEST_F( TalkTest, TheLeftButtonHoldsLikeTheKey )
{
    desktop.leftButton = true;
    run( "(/buddies/bob@x?talk)" );
    tickFor( 2000000 );
    EXPECT_EQ( resets( ), "bob+" );
    EXPECT_EQ( value( u"Talking_To_List" ), "bob@x" );
    desktop.leftButton = false;
    tickFor( 700000 );
    EXPECT_EQ( resets( ), "bob-" );
}

TEST_F( TalkTest, TalkAgainTalksToTheLastOnes )
{
    down( u"bob@x" );
    down( u"eve@x" );
    up( u"bob@x" );
    tickFor( 600000 );
    resets( );
    down( u"Talk_Again" );
    EXPECT_TRUE( TestLog::contains( "STARTTALKAGAIN(bob@x, eve@x)" ) );
    EXPECT_EQ( resets( ), "bob+eve+" );
    up( u"Talk_Again" );
    EXPECT_TRUE( TestLog::contains( "STOPTALKAGAIN" ) );
    tickFor( 600000 );
    EXPECT_EQ( resets( ), "bob-eve-" );
}

TEST_F( TalkTest, TalkAgainWarnsWhenTheListComesOutChanged )
{
    down( u"bob@x" );
    up( u"bob@x" );
    tickFor( 600000 );
    instance.set( u"Talking_To_List", u"eve@x" );
    TestLog::expect( "WARNING: Assertion failed. (talkToList == _lastTalkToList)" );
    down( u"Talk_Again" );
}

TEST_F( TalkTest, TalkAgainWithNobodyDoesNothing )
{
    down( u"Talk_Again" );
    EXPECT_EQ( resets( ), "" );
    EXPECT_TRUE( TestLog::contains( "STARTTALKAGAIN()" ) );
}

TEST_F( TalkTest, TalkAgainWithNobodyTalksToTheFirstWhoIsThereWithTheRemedy )
{
    instance.set( u"Robust_Client", 1 );
    tickFor( 50000 );
    EXPECT_EQ( value( u"Talk_Again_Buddy" ), "bob@x" );
    down( u"Talk_Again" );
    EXPECT_EQ( resets( ), "bob+" );
    up( u"Talk_Again" );
    instance.clear( u"bob@x_Online" );
    tickFor( 600000 );
    EXPECT_EQ( value( u"Talk_Again_Buddy" ), "bob@x" ); // The one talked to last, there or not.
}

TEST_F( TalkTest, WithoutAMicrophoneNobodyIsTalkedTo )
{
    instance.set( u"Audio_Capture_Online", 0 );
    TestLog::expect( "WARNING Trying to 'TALKAGAIN' but no audio device configured, ignoring." );
    down( u"Talk_Again" );
    TestLog::expect( "WARNING Cannot talk to 'bob@x' as no audio device is configured, ignoring." );
    down( u"bob@x" );
    EXPECT_EQ( resets( ), "" );
}

TEST_F( TalkTest, OfflineAndUnknownNamesAreWarnedOf )
{
    instance.clear( u"bob@x_Online" );
    TestLog::expect( "WARNING Cannot talk to 'bob@x' as buddy is not online, ignoring." );
    down( u"bob@x" );
    TestLog::expect( "WARNING Unrecognized hotkey 'mallory', ignoring." );
    down( u"mallory" );
    up( u"mallory" );
    EXPECT_EQ( resets( ), "" );
}

TEST_F( TalkTest, PrivacyDecidesAboutThePicture )
{
    const auto video = [this]( bool enable )
    {
        engine->resetBuddyTalk( u"bob@x", enable );
        return take( QUEUE ).test( u"Video-Enable" );
    };
    EXPECT_FALSE( video( true ) );
    instance.set( u"bob@x@d_Video_Enabled", 1 );
    EXPECT_TRUE( video( true ) );
    EXPECT_FALSE( video( false ) );
    instance.set( u"Video_Privacy_Choice_When", u"Always" );
    EXPECT_TRUE( video( false ) );
    instance.clear( u"bob@x@d_Video_Enabled" );
    EXPECT_FALSE( video( true ) );
    instance.set( u"Video_Privacy_Choice_Who", u"All my buddies" );
    EXPECT_TRUE( video( true ) );
    instance.set( u"Video_Privacy_Choice_Mode", u"Private - Allow nobody to see me" );
    EXPECT_FALSE( video( true ) );
}
