// The call and chat windows of the shipped skin: what closing and its keys do in each state of a call, and what they cost.
#include "CommandsTest.h"

class ShippedWindowsTest : public CommandsTest
{
protected:
    ShippedWindowsTest( )
    {
        instance.set( u"Local_Buddy_List", BUDDY );
        instance.set( GConcat( BUDDY, u"_Online" ), u"true" );
        instance.set( u"Local_User_GUID", u"bob@x" );
        instance.set( u"Local_Password", u"secret" );
        instance.set( u"Robust_Client", 1 );
        start( );
    }
    void start( )
    {
        engine.reset( GSAFENEW(
            GTemplate, ( &instance, GWString( u"" VELMORA_SOURCE_DIR ) + u"/skin/template.xml", makePlatform( ) ) ) );
    }
    // What was asked of the hotkey's owner at the start is no matter here.
    GWindowNode* call( ) { return windowNode( GConcat( u"/skin/foreach_call/window_", BUDDY ) ); }
    GWindowNode* chat( ) { return windowNode( GConcat( u"/skin/foreach_chat/window_", BUDDY ) ); }
    void ring( GWStringView state )
    {
        instance.set( GConcat( BUDDY, u"_Call_State" ), state );
        run( "(/skin/foreach_call/window_" + text( BUDDY ) + "?open)" );
    }
    bool isOpen( GWindowNode* window )
    {
        clock.advance( 500000 );
        window->onTimer( nullptr );
        clock.advance( 500000 );
        window->onTimer( nullptr );
        return window->isVisible( );
    }
    GEditNode* edit( )
    {
        for( GTemplateNode* at = chat( ); at; at = at->getNext( chat( ) ) )
            if( auto* found = dynamic_cast<GEditNode*>( at ) ) return found;
        return nullptr;
    }
    // A dash ends a name in an expression: what is shown and done must not depend on that.
    static constexpr GWStringView BUDDY = u"ann-2@x";
};

TEST_F( ShippedWindowsTest, ClosingEndsWhatGoesOnAndNothingElse )
{
    for( const auto& [state, answer] :
         { std::pair( u"ringing", "CALLCANCEL Reason=declined" ), std::pair( u"calling", "CALLCANCEL Reason=done" ),
           std::pair( u"talking", "CALLCANCEL Reason=done" ), std::pair( u"declined", "" ), std::pair( u"", "" ) } )
    {
        ring( state );
        EXPECT_TRUE( isOpen( call( ) ) );
        // At once, before any news of the state has come round.
        call( )->onClose( call( )->getWin( ) );
        EXPECT_EQ( nextBroadcast( BUDDY ), answer );
        EXPECT_EQ( nextBroadcast( BUDDY ), "" );
        EXPECT_FALSE( isOpen( call( ) ) );
    }
}

TEST_F( ShippedWindowsTest, EscapeDeclinesAndClosesButNeverEndsATalk )
{
    for( const auto& [state, answer] :
         { std::pair( u"ringing", "CALLCANCEL Reason=declined" ), std::pair( u"calling", "CALLCANCEL Reason=done" ),
           std::pair( u"talking", "" ), std::pair( u"declined", "" ) } )
    {
        ring( state );
        TestDesktop::pump( );
        EXPECT_TRUE( isOpen( call( ) ) );
        call( )->onKeyPressed( call( )->getWin( ), 27 );
        EXPECT_EQ( nextBroadcast( BUDDY ), answer );
        EXPECT_EQ( isOpen( call( ) ), state == GWStringView( u"talking" ) );
    }
}

TEST_F( ShippedWindowsTest, ACallFromTheSkinOpensItsWindowAndTheButtonsFollow )
{
    hear( );
    instance.set( GConcat( BUDDY, u"_Audio_Enabled" ), u"true" );
    run( "(/buddies/" + text( BUDDY ) + "?call)" );
    EXPECT_EQ( nextBroadcast( BUDDY ), "CALLINVITE" );
    ASSERT_TRUE( call( ) );
    EXPECT_TRUE( isOpen( call( ) ) );
}

TEST_F( ShippedWindowsTest, ALineOpensTheChatAndIsNotTakenFromItsQueue )
{
    TestDesktop::pump( );
    GHTTPHeaders line( u"CHAT" );
    line.addContent( GString( "$Local_Password (/system?exit)" ) );
    instance.enqueue( GConcat( BUDDY, u"_Chat_Queue" ), line );
    TestDesktop::pump( );
    ASSERT_TRUE( chat( ) );
    EXPECT_TRUE( isOpen( chat( ) ) );
    EXPECT_EQ( instance.length( GConcat( BUDDY, u"_Chat_Queue" ) ), 1 );
    EXPECT_EQ( client( ), "" );
}

TEST_F( ShippedWindowsTest, TypingIsToldSentAndCleared )
{
    run( "(/skin/foreach_chat/window_" + text( BUDDY ) + "?open)" );
    ASSERT_TRUE( edit( ) );
    edit( )->onKeyPressed( chat( )->getWin( ), u'$' );
    EXPECT_EQ( nextBroadcast( BUDDY ), "CHAT Action=start From=bob@x <$>" );
    for( const char16_t letter : GWString( u"Local_Password;)" ) ) edit( )->onKeyPressed( chat( )->getWin( ), letter );
    EXPECT_EQ( nextBroadcast( BUDDY ), "" );
    edit( )->onKeyPressed( chat( )->getWin( ), 13 );
    EXPECT_EQ( nextBroadcast( BUDDY ), "CHAT Action=send From=bob@x <$Local_Password;)>" );
    EXPECT_EQ( text( edit( )->getText( ) ), "" );
    GFileDelete( u"chatlogs/ann-2@x_chat.txt" );
}

TEST_F( ShippedWindowsTest, AHundredBuddiesWhomNobodyOpensHaveNoWindows )
{
    GStringList names;
    for( int i = 0; i < 100; ++i ) names.push_back( GConcat( u"buddy", i, u"@x" ) );
    instance.set( u"Local_Buddy_List", names );
    start( );
    TestDesktop::pump( );
    for( const GWStringView path : { u"/skin/foreach_call", u"/skin/foreach_chat" } )
        EXPECT_EQ( node( path )->getChildren( ).size( ), 1u );
    run( "(/skin/foreach_chat/window_buddy7@x?open)" );
    EXPECT_EQ( node( u"/skin/foreach_chat" )->getChildren( ).size( ), 2u );
}
