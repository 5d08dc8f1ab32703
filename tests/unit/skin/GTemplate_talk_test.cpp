#include "CommandsTest.h"
#include "client/skin/nodes/GNodeKeys.h"

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

TEST_F( TalkTest, TheSpaceKeyHoldsWhatAButtonBegan )
{
    static bool space = true;
    GNodeKeys_setSource( []( int key ) { return key == GKEY_SPACE && space; } );
    run( "(/buddies/bob@x?talk)" );
    tickFor( 2000000 );
    EXPECT_EQ( resets( ), "bob+" );
    space = false;
    tickFor( 700000 );
    EXPECT_EQ( resets( ), "bob-" );
    // Pressed again later, for something else, it holds nothing.
    run( "(/buddies/bob@x?talk)" );
    space = true;
    tickFor( 700000 );
    EXPECT_EQ( resets( ), "bob+bob-" );
    GNodeKeys_setSource( nullptr );
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

TEST_F( TalkTest, AHotkeyTakenAwayWhileItIsHeldEndsTheTalk )
{
    for( const bool cleared : { true, false } )
    {
        engine->assignHotkey( u"bob@x", u"F5" );
        down( u"bob@x" );
        tickFor( 1000000 );
        EXPECT_EQ( value( u"Talking_To_List" ), "bob@x" );
        if( cleared )
            engine->clearHotkey( u"bob@x" );
        else
            engine->assignHotkey( u"bob@x", u"F6" );
        tickFor( 600000 );
        EXPECT_EQ( value( u"Talking_To_List" ), "" );
        EXPECT_EQ( resets( ), "bob+bob-" );
    }
    // That of somebody else does not.
    engine->assignHotkey( u"eve@x", u"F7" );
    down( u"bob@x" );
    engine->clearHotkey( u"eve@x" );
    tickFor( 1000000 );
    EXPECT_EQ( value( u"Talking_To_List" ), "bob@x" );
}

TEST_F( TalkTest, ABuddyRemovedWhileHisKeyIsHeldHearsNoMoreAfterTheRelease )
{
    down( u"bob@x" );
    instance.set( u"Local_Buddy_List", u"eve@x" );
    tickFor( 1000000 );
    up( u"mallory" );
    tickFor( 1000000 );
    EXPECT_EQ( resets( ), "bob+" );
    up( u"bob@x" );
    tickFor( 600000 );
    EXPECT_EQ( resets( ), "bob-" );
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

// ---- The timer rests while nobody talks.

TEST_F( TalkTest, TheTimerRestsUntilSomebodyTalksAndAfterTheMediaAreDown )
{
    tick( );
    EXPECT_EQ( GTimerGetPeriod( timer( ) ), 0 );
    down( u"bob@x" );
    TestDesktop::pump( );
    EXPECT_EQ( GTimerGetPeriod( timer( ) ), 50000 );
    tickFor( 2000000 );
    EXPECT_EQ( GTimerGetPeriod( timer( ) ), 50000 );
    up( u"bob@x" );
    tickFor( 500000 );
    EXPECT_EQ( GTimerGetPeriod( timer( ) ), 50000 );
    tickFor( 50000 );
    EXPECT_EQ( resets( ), "bob+bob-" );
    EXPECT_EQ( GTimerGetPeriod( timer( ) ), 0 );
}

TEST_F( TalkTest, ARestartOnItsWayAndANewBuddyWakeTheTimer )
{
    tick( );
    engine->setRestartTime( TestClock::now( ) + 60000000 );
    EXPECT_EQ( GTimerGetPeriod( timer( ) ), 50000 );
    tickFor( 1000000 );
    EXPECT_EQ( GTimerGetPeriod( timer( ) ), 50000 );
    engine->setRestartTime( 0 );
    tick( );
    EXPECT_EQ( GTimerGetPeriod( timer( ) ), 0 );
    instance.set( u"Local_Buddy_List", u"bob@x, ann@x" );
    TestDesktop::pump( );
    EXPECT_EQ( GTimerGetPeriod( timer( ) ), 50000 );
    tick( );
    TestDesktop::pump( );
    tick( );
    instance.set( u"ann@x_Online", 1 );
    TestDesktop::pump( );
    EXPECT_EQ( GTimerGetPeriod( timer( ) ), 50000 );
}
