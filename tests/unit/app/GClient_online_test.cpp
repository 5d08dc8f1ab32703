// Online: hints about sound, finished transfers, and everything that buddies' devices send.
#include "base/GUtil.h"
#include "client/app/GClientNames.h"
#include "platform/GWin.h"
#include "support/TestLog.h"
#include "unit/app/TestClient.h"

namespace
{
constexpr char16_t ANN[] = u"ann@velmora.local";
constexpr char16_t SHOW_TRANSFERS[] =
    u"(/skin/window_options/copy/border/inside/wizard?jump+target=file;/skin/window_options?open)";

class ClientOnline : public TestClient
{
protected:
    void goOnline( )
    {
        to( GClient::ONLINE );
        clearQueues( );
        desktop.commands.clear( );
        set( u"ann@velmora.local@pc1_Send_From", u"1.1.1.1:1" );
        set( u"ann@velmora.local@pc1_Send_To", u"2.2.2.2:2" );
        set( u"ann@velmora.local@pc1_Recv_From", u"3.3.3.3:3" );
    }
    // Delivers everything that was posted so far.
    static void pump( )
    {
        bool quit = false;
        GWinPostQuit( 0 );
        while( GWinUpdate( quit ) )
        {
        }
    }
    void user( GWStringView method, GWStringView userGUID )
    {
        GHTTPHeaders message( method );
        message.set( u"User-GUID", userGUID );
        command( message );
    }
    void broadcast( const GHTTPHeaders& inner, GWStringView from = ANN, GWStringView device = u"pc1" )
    {
        GHTTPHeaders message( u"DEVICEBROADCAST" );
        message.set( u"From", from );
        message.set( u"From-Device-GUID", device );
        message.addContent( inner.serialize( ) );
        command( message );
    }
    void broadcast( GWStringView method ) { broadcast( GHTTPHeaders( method ) ); }
    void chat( GWStringView action )
    {
        GHTTPHeaders inner( u"CHAT" );
        inner.set( u"Action", action );
        inner.set( u"From", u"somebody@else" );
        inner.addContent( "hello" );
        broadcast( inner );
    }
    void offer( GWStringView filename )
    {
        GHTTPHeaders inner( u"SENDFILE" );
        inner.set( u"Filename", filename );
        inner.set( u"File-ID", u"77" );
        broadcast( inner );
    }
};
} // namespace

// ---- The pace of the ticks.

TEST_F( ClientOnline, TicksComeSlowlyOnceNothingIsOnItsWay )
{
    goOnline( );
    tick( );
    EXPECT_EQ( desktop.timerPeriod, 500000 );
    for( const GWStringView name : { u"Upgrade_In_Progress", u"Video_Privacy_Choice_Mode" } )
    {
        set( GWString( name ), u"0" );
        pump( );
        EXPECT_EQ( desktop.timerPeriod, 100000 ) << GWideToUTF8( name );
        tick( );
        EXPECT_EQ( desktop.timerPeriod, 500000 );
    }
    client->getInstance( )->enqueue( u"GClient_commandQueue", GHTTPHeaders( u"LOGOFF" ) );
    pump( );
    EXPECT_EQ( desktop.timerPeriod, 100000 );
    tick( );
    EXPECT_EQ( desktop.timerPeriod, 100000 );
}

TEST_F( ClientOnline, LeavingTheLineWithoutACommandWakesTheTicksToo )
{
    goOnline( );
    tick( );
    EXPECT_EQ( desktop.timerPeriod, 500000 );
    client->onSuspend( );
    EXPECT_EQ( desktop.timerPeriod, 100000 );
}

// ---- Hints.

TEST_F( ClientOnline, MutedSpeakersAreToldAndAClickUnmutesThem )
{
    goOnline( );
    user( u"LISTENINGTO", ANN );
    EXPECT_TRUE( desktop.bubbles.empty( ) );
    desktop.muted = true;
    user( u"LISTENINGTO", ANN );
    ASSERT_EQ( desktop.bubbles.size( ), 1u );
    EXPECT_EQ( desktop.bubbles[0].title, u"Speakers are muted" );
    EXPECT_EQ( desktop.bubbles[0].text,
               u"You cannot hear ann@velmora.local talking because your speakers are muted.  Click "
               u"here to unmute your speakers." );
    client->onBubbleClick( nullptr, desktop.bubbles[0].eventID );
    EXPECT_FALSE( desktop.muted );
    EXPECT_TRUE( TestLog::contains( "ACTIVITY: UNMUTE" ) );
}

TEST_F( ClientOnline, LowVolumeIsToldAndAClickBumpsIt )
{
    goOnline( );
    desktop.volume = 0.1;
    user( u"LISTENINGTO", ANN );
    EXPECT_TRUE( desktop.bubbles.empty( ) );
    desktop.volume = 0.09;
    user( u"LISTENINGTO", ANN );
    ASSERT_EQ( desktop.bubbles.size( ), 1u );
    EXPECT_EQ( desktop.bubbles[0].title, u"Volume is very low" );
    EXPECT_EQ( desktop.bubbles[0].text,
               u"You might be unable to hear ann@velmora.local talking because your volume is set very "
               u"low.  Click here to bump up your volume." );
    client->onBubbleClick( nullptr, desktop.bubbles[0].eventID );
    EXPECT_EQ( desktop.speaker, 0.5 );
    EXPECT_EQ( desktop.wave, 1.0 );
}

TEST_F( ClientOnline, MissingMicrophoneIsToldAndAClickConfiguresIt )
{
    goOnline( );
    user( u"NOTIFYCANTTALK", ANN );
    ASSERT_EQ( desktop.bubbles.size( ), 1u );
    EXPECT_EQ( desktop.bubbles[0].title, u"No microphone configured" );
    EXPECT_EQ( desktop.bubbles[0].text,
               u"You cannot talk to ann@velmora.local because you have no microphone configured.  Click "
               u"here to configure your audio." );
    client->onBubbleClick( nullptr, desktop.bubbles[0].eventID );
    EXPECT_TRUE(
        ran( u"(/skin/window_options/copy/border/inside/wizard?jump+target=audio;/skin/window_options?open)" ) );
    TestLog::expect( "!_instance->test( L\"Audio_Capture_Online\" )" );
    set( u"Audio_Capture_Online", u"1" );
    user( u"NOTIFYCANTTALK", ANN );
}

TEST_F( ClientOnline, BuddyWithoutAMicrophoneIsToldAndAClickPushesToTalk )
{
    goOnline( );
    TestLog::expect( "!buddy.empty( )" );
    event( GClient::EVENT_PUSHTOTALK );
    user( u"NOTIFYREMOTECANTTALK", ANN );
    ASSERT_EQ( desktop.bubbles.size( ), 1u );
    EXPECT_EQ( desktop.bubbles[0].title, u"Buddy has no microphone configured" );
    EXPECT_EQ( desktop.bubbles[0].text,
               u"You cannot call ann@velmora.local because your buddy has no microphone configured.  "
               u"Click here to 'push to talk'." );
    client->onBubbleClick( nullptr, desktop.bubbles[0].eventID );
    EXPECT_TRUE( ran( u"(/buddies/ann@velmora.local?starttalkhandsfree" ) );
}

TEST_F( ClientOnline, FinishedTransfersAreToldAndAClickShowsThem )
{
    goOnline( );
    for( const bool received : { true, false } )
    {
        GHTTPHeaders message( received ? u"RECVFILECOMPLETE" : u"SENDFILECOMPLETE" );
        message.set( u"Path", u"/home/me/picture.png" );
        message.set( u"Buddy-Device-GUID", u"ann@velmora.local@pc1" );
        command( message );
    }
    ASSERT_EQ( desktop.bubbles.size( ), 2u );
    EXPECT_EQ( desktop.bubbles[0].title, u"File transfer complete" );
    EXPECT_EQ( desktop.bubbles[0].text,
               u"You have received 'picture.png' from ann.  Click here to open the file transfer dialog." );
    EXPECT_EQ( desktop.bubbles[1].text,
               u"You have sent 'picture.png' to ann.  Click here to open the file transfer dialog." );
    client->onBubbleClick( nullptr, desktop.bubbles[0].eventID );
    EXPECT_TRUE( ran( SHOW_TRANSFERS ) );
    EXPECT_TRUE( TestLog::contains( "ACTIVITY: SHOWTRANSFER" ) );
}

TEST_F( ClientOnline, OnlineCommandsElsewhereAreIgnored )
{
    to( GClient::CONNECTING );
    TestLog::expect( "WARNING Ignored input eventID #0, eventHeaders='LISTENINGTO" );
    user( u"LISTENINGTO", ANN );
    TestLog::expect( "WARNING Ignored input eventID #5" );
    event( GClient::EVENT_UNMUTE );
}

// ---- Broadcasts.

TEST_F( ClientOnline, CallRingsOnceUntilItIsAnswered )
{
    goOnline( );
    broadcast( u"CALLINVITE" );
    EXPECT_EQ( get( u"ann@velmora.local_Call_State" ), u"ringing" );
    EXPECT_EQ( get( u"ann@velmora.local_Call_Status" ), u"ann is calling." );
    EXPECT_TRUE( ran( u"(/skin/foreach_call/window_ann@velmora.local?open)" ) );
    EXPECT_EQ( desktop.sounds, GStringVector{ u"phone.wav" } );
    broadcast( u"CALLINVITE" );
    EXPECT_EQ( desktop.sounds.size( ), 1u );
    broadcast( u"CALLACCEPT" );
    EXPECT_EQ( get( u"ann@velmora.local_Call_State" ), u"talking" );
    EXPECT_EQ( get( u"ann@velmora.local_Call_Status" ), u"" );
    EXPECT_TRUE( ran( u"(/buddies/ann@velmora.local?starttalkhandsfree)" ) );
}

TEST_F( ClientOnline, AnsweredCallStopsTheOtherDevicesOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
        for( const GWStringView answer : { u"CALLACCEPT", u"CALLCANCEL" } )
        {
            goOnline( );
            set( u"Robust_Client", robust ? u"1" : u"0" );
            set( u"ann@velmora.local_Call_State", u"calling" );
            broadcast( answer );
            EXPECT_EQ( get( u"ann@velmora.local_Call_State" ), answer == u"CALLACCEPT" ? u"talking" : u"declined" );
            const GHTTPHeaders told = next( u"ann@velmora.local_commandQueue" );
            EXPECT_EQ( told.getMethod( ), robust ? u"DEVICEBROADCAST" : u"" );
            if( robust )
            {
                EXPECT_EQ( told.get( u"Except-Device-GUID" ), u"pc1" );
                GHTTPHeaders inner;
                ASSERT_TRUE( inner.deserialize( told.getContent( 0 ) ) );
                EXPECT_EQ( inner.getMethod( ), u"CALLCANCEL" );
                EXPECT_EQ( inner.get( u"Reason" ), u"done" );
            }
            // Told once, by the device that called.
            broadcast( answer );
            EXPECT_EQ( nextMethod( u"ann@velmora.local_commandQueue" ), u"" );
            close( );
        }
}

TEST_F( ClientOnline, AcceptOfACallThatWasNotMadeHereTalksOnlyByTheLetter )
{
    for( const GWStringView callState : { u"", u"ringing", u"declined" } )
        for( const bool robust : { false, true } )
        {
            goOnline( );
            set( u"Robust_Client", robust ? u"1" : u"0" );
            set( u"ann@velmora.local_Call_State", callState );
            broadcast( u"CALLACCEPT" );
            EXPECT_EQ( get( u"ann@velmora.local_Call_State" ), robust ? callState : u"talking" );
            EXPECT_EQ( ran( u"(/buddies/ann@velmora.local?starttalkhandsfree)" ), !robust );
            close( );
        }
}

TEST_F( ClientOnline, CrossedCallsMeet )
{
    goOnline( );
    set( u"Robust_Client", u"1" );
    set( u"ann@velmora.local_Call_State", u"calling" );
    broadcast( u"CALLINVITE" );
    EXPECT_EQ( get( u"ann@velmora.local_Call_State" ), u"ringing" );
    broadcast( u"CALLACCEPT" );
    EXPECT_EQ( get( u"ann@velmora.local_Call_State" ), u"talking" );
    // The next call is ann's alone: it can't be accepted by her.
    broadcast( u"CALLINVITE" );
    broadcast( u"CALLACCEPT" );
    EXPECT_EQ( get( u"ann@velmora.local_Call_State" ), u"ringing" );
}

TEST_F( ClientOnline, CancelledCallTellsTheReason )
{
    struct Case
    {
        GWString reason, status;
    };
    for( const Case& c :
         { Case{ u"done", u"ann is done." }, Case{ u"", u"ann has declined." }, Case{ u"x", u"ann has declined." } } )
    {
        goOnline( );
        GHTTPHeaders inner( u"CALLCANCEL" );
        inner.set( u"Reason", c.reason );
        broadcast( inner );
        EXPECT_EQ( get( u"ann@velmora.local_Call_State" ), u"declined" );
        EXPECT_EQ( get( u"ann@velmora.local_Call_Status" ), c.status );
        EXPECT_TRUE( ran( u"(/buddies/ann@velmora.local?stoptalkhandsfree)" ) );
        close( );
    }
    goOnline( );
    GHTTPHeaders inner( u"CALLCANCEL" );
    inner.set( u"Reason", u"chat" );
    broadcast( inner );
    EXPECT_TRUE( ran( u"(/skin/foreach_call/window_ann@velmora.local?close)" ) );
    EXPECT_TRUE( ran( u"(/skin/foreach_chat/window_ann@velmora.local?open)" ) );
}

TEST_F( ClientOnline, ChatIsQueuedLoggedAndKnowsItsSender )
{
    goOnline( );
    chat( u"start" );
    EXPECT_EQ( get( u"ann@velmora.local_Chat_Status" ), u"ann is typing..." );
    chat( u"cancel" );
    EXPECT_EQ( get( u"ann@velmora.local_Chat_Status" ), u"" );
    chat( u"start" );
    chat( u"send" );
    EXPECT_EQ( get( u"ann@velmora.local_Chat_Status" ), u"" );
    EXPECT_EQ( desktop.chats, GStringVector{ u"ann@velmora.local: hello" } );
    const GHTTPHeaders line = next( u"ann@velmora.local_Chat_Queue" );
    EXPECT_EQ( line.get( u"From" ), ANN );
    EXPECT_EQ( line.getContent( 0 ), "hello" );
    TestLog::expect( "WARNING Invalid chat action 'shout', ignoring." );
    chat( u"shout" );
    broadcast( u"CHATDONE" );
    EXPECT_TRUE( ran( u"(/skin/foreach_chat/window_ann@velmora.local?close" ) );
}

TEST_F( ClientOnline, ChatWithoutATextIsDropped )
{
    goOnline( );
    GHTTPHeaders inner( u"CHAT" );
    inner.set( u"Action", u"send" );
    TestLog::expect( "WARNING Received chat without text from 'ann@velmora.local', ignoring." );
    broadcast( inner );
    EXPECT_TRUE( desktop.chats.empty( ) );
}

TEST_F( ClientOnline, ChatQueueIsBounded )
{
    goOnline( );
    for( int i = 0; i < 1100; ++i ) chat( u"send" );
    EXPECT_EQ( client->getInstance( )->length( u"ann@velmora.local_Chat_Queue" ), 1000 );
}

TEST_F( ClientOnline, AcceptedOfferIsReceivedUnderItsBaseName )
{
    goOnline( );
    desktop.savePath = u"/home/me/x.png";
    offer( u"..\\..\\etc/.bash\u0007rc" );
    EXPECT_EQ( desktop.questions, GStringVector{ u"Please choose where to save the file from ann / bashrc" } );
    const GHTTPHeaders receive = next( u"GFileService_commandQueue" );
    EXPECT_EQ( receive.getMethod( ), u"RECVFILE" );
    EXPECT_EQ( receive.get( u"File-ID" ), u"77" );
    EXPECT_EQ( receive.get( u"Path" ), u"/home/me/x.png" );
    EXPECT_EQ( receive.get( u"Send-From" ), u"1.1.1.1:1" );
    EXPECT_EQ( receive.get( u"Send-To" ), u"2.2.2.2:2" );
    EXPECT_EQ( receive.get( u"Buddy-Device-GUID" ), u"ann@velmora.local@pc1" );
    EXPECT_TRUE( ran( SHOW_TRANSFERS ) );
}

TEST_F( ClientOnline, DeclinedOfferIsCancelledAtTheSender )
{
    goOnline( );
    offer( u"x.png" );
    ASSERT_EQ( desktop.broadcasts.size( ), 1u );
    EXPECT_EQ( desktop.broadcasts[0].first, ANN );
    EXPECT_EQ( desktop.broadcasts[0].second.getMethod( ), u"CANCELSENDFILE" );
    EXPECT_EQ( desktop.broadcasts[0].second.get( u"File-ID" ), u"77" );
    GHTTPHeaders inner( u"CANCELSENDFILE" );
    inner.set( u"File-ID", u"78" );
    broadcast( inner );
    const GHTTPHeaders cancel = next( u"GFileService_commandQueue" );
    EXPECT_EQ( cancel.getMethod( ), u"CANCEL" );
    EXPECT_EQ( cancel.get( u"File-ID" ), u"78" );
}

TEST_F( ClientOnline, FourOffersOfABuddyAreOpenAtMost )
{
    goOnline( );
    TestLog::expect( "WARNING Too many open offers of files from 'ann@velmora.local', ignoring." );
    int depth = 0;
    desktop.onQuestion = [&]
    {
        if( ++depth < 10 ) offer( u"x.png" );
    };
    offer( u"x.png" );
    EXPECT_EQ( desktop.questions.size( ), 4u );
    desktop.onQuestion = nullptr;
    offer( u"x.png" );
    EXPECT_EQ( desktop.questions.size( ), 5u );
}

TEST_F( ClientOnline, SharedScreenIsOpenedOverTheDevicesRoute )
{
    goOnline( );
    GHTTPHeaders inner( u"SHARESCREEN" );
    inner.set( u"SSRC", u"9" );
    inner.set( u"Window-ID", u"5" );
    broadcast( inner );
    const GHTTPHeaders open = next( u"GScreenService_commandQueue" );
    EXPECT_EQ( open.getMethod( ), u"OPENRECV" );
    EXPECT_EQ( open.get( u"Buddy-GUID" ), ANN );
    EXPECT_EQ( open.get( u"SSRC" ), u"9" );
    EXPECT_EQ( open.get( u"Window-ID" ), u"5" );
    EXPECT_EQ( open.get( u"Send-From" ), u"1.1.1.1:1" );
    EXPECT_EQ( open.get( u"Send-To" ), u"2.2.2.2:2" );
    EXPECT_EQ( open.get( u"Recv-From" ), u"3.3.3.3:3" );
    EXPECT_TRUE( TestLog::contains( "Receiving screen share from 'ann@velmora.local'" ) );
}

TEST_F( ClientOnline, BroadcastsThatAreNoneAreDropped )
{
    goOnline( );
    TestLog::expect( "WARNING Received malformed 'DEVICEBROADCAST' from 'ann@velmora.local', ignoring." );
    GHTTPHeaders empty( u"DEVICEBROADCAST" );
    empty.set( u"From", ANN );
    empty.set( u"From-Device-GUID", u"pc1" );
    command( empty );
    TestLog::expect(
        "WARNING Unable to deserialize payload via 'DEVICEBROADCAST' from 'ann@velmora.local', ignoring." );
    empty.addContent( "nonsense" );
    command( empty );
    TestLog::expect(
        "WARNING Received unknown request 'DANCE' via 'DEVICEBROADCAST' from 'ann@velmora.local', ignoring." );
    broadcast( u"DANCE" );
    TestLog::expect( "WARNING Received malformed 'DEVICEBROADCAST' from 'a;/system?exit@b', ignoring." );
    broadcast( GHTTPHeaders( u"CALLINVITE" ), u"a;/system?exit@b" );
    broadcast( GHTTPHeaders( u"CALLINVITE" ), ANN, u"../pc" );
    EXPECT_TRUE( desktop.commands.empty( ) );
    EXPECT_TRUE( desktop.sounds.empty( ) );
}

TEST_F( ClientOnline, DeviceWithoutARouteIsWarnedOf )
{
    goOnline( );
    TestLog::expect( "!sendFrom.empty( ) && !sendTo.empty( ) && !recvFrom.empty( )" );
    broadcast( GHTTPHeaders( u"CALLINVITE" ), ANN, u"pc2" );
    EXPECT_EQ( desktop.sounds.size( ), 1u );
}

TEST( ClientNames, BaseNamesNeverLeaveTheirFolder )
{
    EXPECT_EQ( GClientGetBaseName( u"a/b\\c.txt" ), u"c.txt" );
    EXPECT_EQ( GClientGetBaseName( u"C:\\x\\..hidden" ), u"hidden" );
    EXPECT_EQ( GClientGetBaseName( u"../.." ), u"file" );
    EXPECT_EQ( GClientGetBaseName( u"" ), u"file" );
    EXPECT_EQ( GClientGetBaseName( u"a\n\u0085b" ), u"ab" );
    EXPECT_EQ( GClientGetUserName( u"ann@velmora.local" ), u"ann" );
    EXPECT_EQ( GClientGetUserName( u"ann" ), u"ann" );
}

// ---- Contact requests.

TEST_F( ClientOnline, NewContactsAreToldInOneBubbleWhoseClickShowsThem )
{
    goOnline( );
    const auto ask = [this]( const GWString& contact )
    {
        client->getInstance( )->insert( u"Contact_Request_List", contact );
        GHTTPHeaders message( u"NEWCONTACT" );
        message.set( u"Buddy-GUID", contact );
        client->getInstance( )->enqueue( u"GClient_commandQueue", message );
    };
    ask( u"bob@x" );
    tick( );
    ASSERT_EQ( desktop.bubbles.size( ), 1u );
    EXPECT_EQ( desktop.bubbles[0].title, u"Contact request" );
    EXPECT_EQ( desktop.bubbles[0].text, u"bob@x wants to be your buddy.  Click here to answer." );
    client->onBubbleClick( nullptr, desktop.bubbles[0].eventID );
    EXPECT_TRUE( ran( u"(/skin/window_buddylist?open)" ) );
    // Those who come soon after wait for each other.
    ask( u"cid@x" );
    ask( u"dan@x" );
    ask( u"gone@x" );
    client->getInstance( )->remove( u"Contact_Request_List", u"gone@x" );
    tick( );
    EXPECT_EQ( desktop.bubbles.size( ), 1u );
    clock.advance( 30000000 );
    tick( );
    ASSERT_EQ( desktop.bubbles.size( ), 2u );
    EXPECT_EQ( desktop.bubbles[1].text, u"cid@x and dan@x want to be your buddies.  Click here to answer." );
    for( int i = 0; i < 150; ++i ) ask( GConcat( u"eve", i, u"@x" ) );
    clock.advance( 31000000 );
    tick( );
    ASSERT_EQ( desktop.bubbles.size( ), 3u );
    EXPECT_EQ( desktop.bubbles[2].text, u"eve0@x and 99 others want to be your buddies.  Click here to answer." );
}

TEST_F( ClientOnline, NewContactWithAnImpossibleNameIsDropped )
{
    goOnline( );
    TestLog::expect( "WARNING Received 'NEWCONTACT' for invalid user 'x)(/system?exit)', ignoring." );
    GHTTPHeaders message( u"NEWCONTACT" );
    message.set( u"Buddy-GUID", u"x)(/system?exit)" );
    command( message );
    tick( );
    EXPECT_TRUE( desktop.bubbles.empty( ) );
}
