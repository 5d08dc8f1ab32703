// What somebody else on the wire may try against two who talk: nobody's words count as theirs, nothing of theirs ends, nothing grows.
#include "unit/signalling/TestTalk.h"

namespace
{
class Attacks : public TestTalk
{
protected:
    // A message as Bob's device would send it.
    GHTTPHeaders asBob( GHTTPHeaders message ) const
    {
        message.set( u"From", BOB );
        message.set( u"From-Device-GUID", u"D2" );
        message.set( u"To", ANN );
        message.set( u"To-Device-GUID", u"D1" );
        if( !message.contains( u"CSeq" ) ) message.set( u"CSeq", GNumber( ++_cseq ) );
        message.set( u"Sent-From", eve.host( ) );
        message.set( u"Sent-From-Type", u"local" );
        message.set( u"Sent-To", ann.host( ) );
        message.set( u"Sent-To-Type", u"local" );
        message.set( u"Try-Route-List", GStringList{ GConcat( u"local://", eve.host( ) ) } );
        return message;
    }
    // Loses what is on its way to her.
    void deafenAnn( )
    {
        ann.isDeaf = true;
        ann.receive( );
        ann.isDeaf = false;
    }
    void attack( const GHTTPHeaders& message )
    {
        eve.send( ann.host( ), message );
        ann.pass( );
    }
    std::vector<GHTTPHeaders> forgeries( ) const
    {
        std::vector<GHTTPHeaders> out;
        for( const char16_t* method : { u"BYE", u"CANCEL", u"PING", u"UPDATE", u"DEVICEBROADCAST" } )
        {
            GHTTPHeaders message( method );
            message.set( u"Removed", u"true" );
            message.set( u"Video-Enabled", u"false" );
            message.addContent( GHTTPHeaders( u"CHAT" ).serialize( ) );
            out.push_back( asBob( message ) );
        }
        return out;
    }
    void emptyQueues( )
    {
        for( const char16_t* queue : QUEUES ) ann.commands( queue );
        eve.hear( );
    }
    int countQueued( )
    {
        int count = 0;
        for( const char16_t* queue : QUEUES ) count += ann.instance.length( queue );
        return count;
    }
    void allowStrangersWarnings( )
    {
        for( const char* text : { "from unexpected host", "ignored, no state change.", "unknown CSEQ", "from stranger",
                                  "from unknown device", "responding BUSY", "without a usable route" } )
            TestLog::allow( text );
    }
    template <typename Test>
    void expectOffAndOn( Test test )
    {
        allowStrangersWarnings( );
        test( );
        for( TestClient* client : { &ann, &bob } ) client->command( u"RESET" );
        run( SECOND );
        for( TestClient* client : { &ann, &bob } ) client->instance.clear( u"Local_Buddy_List" );
        beRobust( );
        test( );
    }
    void endNothing( );
    void forgeAnswers( );
    void guessNumbers( );
    void forgeAck( );
    void inviteAsBob( );

    static constexpr const char16_t* QUEUES[] = { u"GClient_commandQueue", u"GVideoCaptureService_commandQueue",
                                                  u"GVideoPlaybackService_commandQueue", u"GFileService_commandQueue",
                                                  u"GScreenService_commandQueue" };
    TestHost eve;
    mutable int _cseq = 90000;
};
} // namespace

void Attacks::endNothing( )
{
    connect( );
    emptyQueues( );
    for( const GHTTPHeaders& message : forgeries( ) ) attack( message );
    EXPECT_TRUE( areConnected( ) );
    EXPECT_EQ( 0, countQueued( ) );
    EXPECT_TRUE( ann.instance.contains( u"Local_Buddy_List", BOB ) );
    EXPECT_TRUE( eve.hear( ).empty( ) );
    run( 15 * SECOND );
    EXPECT_TRUE( areConnected( ) );
}

TEST_F( Attacks, StrangersGoodbyeAndMessagesInAUsersNameDoNothing )
{
    expectOffAndOn( [this] { endNothing( ); } );
}

// She has seen the numbers of the requests that wait for their answers.
void Attacks::forgeAnswers( )
{
    connect( );
    run( 2 * SECOND );
    const GWString ping = ann.instance.get( u"bob@test@D2_Ping" );
    ann.command( u"UPDATECAPTURE" );
    ann.command( u"BUDDYLOGOFF" );
    bob.isDeaf = true;
    ann.pass( );
    const TestHost wire;
    std::vector<GWString> numbers;
    for( int i = 0; i < 40; ++i ) numbers.push_back( GNumber( i ) );
    for( const GWString& number : numbers )
        for( const int code : { 200, 400 } )
        {
            GHTTPHeaders message = respond( code, u"text" );
            message.set( u"CSeq", number );
            attack( asBob( message ) );
        }
    EXPECT_EQ( GDeviceSession::WF_BYERESPONSE, ann.stateOf( BOB, u"D2" ) );
    EXPECT_EQ( ping, ann.instance.get( u"bob@test@D2_Ping" ) );
    bob.isDeaf = false;
    EXPECT_TRUE( runUntil( [this] { return ann.service->getState( ) == 0; } ) );
}

TEST_F( Attacks, ForgedAnswersEndNoSession )
{
    // A guessed number may be that of the logon's own requests.
    TestLog::allow( "sent to unidentified destination, ignoring." );
    allowStrangersWarnings( );
    forgeAnswers( );
}

void Attacks::guessNumbers( )
{
    connect( );
    TestLog::expect( "WARNING Received response with unknown CSEQ '" );
    for( int i = 0; i < 200; ++i )
    {
        GHTTPHeaders message = respond( 300, u"Busy" );
        message.set( u"CSeq", GNumber( i ) );
        attack( asBob( message ) );
    }
    EXPECT_EQ( 200, TestLog::count( "unknown CSEQ" ) );
    EXPECT_TRUE( areConnected( ) );
}

TEST_F( Attacks, NumbersCannotBeGuessedWithTheRemedy )
{
    beRobust( );
    allowStrangersWarnings( );
    guessNumbers( );
}

// While Ann waits for Bob's ACK a stranger names a way of her own.
void Attacks::forgeAck( )
{
    goOnline( );
    bob.command( u"ADDBUDDY", ANN );
    ASSERT_TRUE( runUntil( [this] { return ann.stateOf( BOB, u"D2" ) == GDeviceSession::WF_ACK; } ) );
    deafenAnn( );
    TestHost victim;
    const struct
    {
        GWString from;
        GWString to;
        const char16_t* type;
    } cases[] = { { ann.host( ), victim.host( ), u"local" },  { ann.host( ), ann.host( ), u"local" },
                  { ann.host( ), server.host( ), u"local" },  { eve.host( ), bob.host( ), u"local" },
                  { ann.host( ), u"224.0.0.1:9", u"local" },  { ann.host( ), u"255.255.255.255:9", u"local" },
                  { ann.host( ), bob.host( ), u"no scheme" }, { u"", bob.host( ), u"local" } };
    for( const auto& it : cases )
    {
        GHTTPHeaders ack( u"ACK" );
        ack.set( u"Send-From", it.from );
        ack.set( u"Send-To", it.to );
        ack.set( u"Send-To-Type", it.type );
        attack( asBob( ack ) );
        EXPECT_EQ( GDeviceSession::WF_ACK, ann.stateOf( BOB, u"D2" ) ) << GWideToUTF8( it.to );
    }
    EXPECT_TRUE( victim.hear( ).empty( ) );
    EXPECT_TRUE( runUntil( [this] { return areConnected( ); } ) );
    EXPECT_EQ( bob.host( ), ann.instance.get( u"bob@test@D2_Send_To" ) );
    EXPECT_EQ( bob.host( ), ann.instance.get( u"bob@test@D2_Recv_From" ) );
}

TEST_F( Attacks, ForgedAckTurnsNoMediaOnAnybody )
{
    TestLog::expect( "WARNING Received ACK or its answer without a usable route" );
    expectOffAndOn( [this] { forgeAck( ); } );
}

TEST_F( Attacks, ForgedAckOkTurnsNoMediaOnAnybody )
{
    TestLog::expect( "WARNING Received ACK or its answer without a usable route" );
    // A guessed number silences the repetitions of its request, so that the two have to begin anew.
    TestLog::allow( "sent to unidentified destination, ignoring." );
    TestLog::allow( "WARNING Lost contact with" );
    allowStrangersWarnings( );
    goOnline( );
    ann.command( u"ADDBUDDY", BOB );
    ASSERT_TRUE( runUntil( [this] { return ann.stateOf( BOB, u"D2" ) == GDeviceSession::WF_ACKRESPONSE; } ) );
    deafenAnn( );
    TestHost victim;
    for( int number = 0; number < 40; ++number )
    {
        GHTTPHeaders answer = respond( 200, u"OK" );
        answer.set( u"CSeq", GNumber( number ) );
        answer.set( u"Send-From", ann.host( ) );
        answer.set( u"Send-To", victim.host( ) );
        answer.set( u"Send-To-Type", u"local" );
        attack( asBob( answer ) );
    }
    EXPECT_EQ( GDeviceSession::WF_ACKRESPONSE, ann.stateOf( BOB, u"D2" ) );
    EXPECT_TRUE( runUntil( [this] { return areConnected( ); } ) );
    EXPECT_EQ( bob.host( ), ann.instance.get( u"bob@test@D2_Send_To" ) );
}

void Attacks::inviteAsBob( )
{
    connect( );
    emptyQueues( );
    // Also while Bob is silent for a while: his own INVITE would come by the server.
    deafenAnn( );
    clock.advance( 3 * SECOND );
    attack( asBob( GHTTPHeaders( u"INVITE" ) ) );
    EXPECT_EQ( GDeviceSession::CONNECTED, ann.stateOf( BOB, u"D2" ) );
    GHTTPHeaders other = asBob( GHTTPHeaders( u"INVITE" ) );
    other.set( u"From-Device-GUID", u"D1" );
    attack( other );
    EXPECT_EQ( 0, countQueued( ) );
    run( 5 * SECOND );
    EXPECT_TRUE( areConnected( ) );
}

TEST_F( Attacks, StrangersInviteInAUsersNameBreaksNoSession )
{
    TestLog::expect( "that bears our own device, ignoring." );
    expectOffAndOn( [this] { inviteAsBob( ); } );
}

TEST_F( Attacks, StrangersInviteBeginsNothingAndAddsNobodyWithTheRemedy )
{
    beRobust( );
    TestLog::expect( "WARNING Received request 'INVITE' from stranger 'eve@test'" );
    TestLog::expect( "WARNING Received request 'INVITE' from unknown device of 'bob@test'" );
    TestLog::expect( "WARNING Unexpected request 'INVITE' from" );
    connect( );
    ann.command( u"REMOVEBUDDY", BOB );
    run( 65 * SECOND );
    emptyQueues( );
    GHTTPHeaders message = asBob( GHTTPHeaders( u"INVITE" ) );
    message.set( u"From", u"eve@test" );
    attack( message );
    message.set( u"From", BOB );
    message.set( u"From-Device-GUID", u"D3" );
    attack( message );
    message.erase( u"From-Device-GUID" );
    attack( message );
    EXPECT_FALSE( ann.service->findBuddy( u"eve@test" ) );
    EXPECT_EQ( -1, ann.stateOf( BOB, u"D3" ) );
    EXPECT_EQ( u"", ann.instance.get( u"Local_Buddy_List" ) );
    EXPECT_EQ( 0, countQueued( ) );
}

// ---- Nothing grows.

TEST_F( Attacks, DevicesThatComeAndGoLeaveNothingBehind )
{
    allowStrangersWarnings( );
    goOnline( );
    GHTTPHeaders bye = asBob( GHTTPHeaders( u"OTHER" ) );
    for( int i = 0; i < 40; ++i )
    {
        bye.set( u"From-Device-GUID", GConcat( u"E", i ) );
        bye.set( u"CSeq", GNumber( ++_cseq ) );
        attack( bye );
    }
    ann.instance.logDump( );
    EXPECT_TRUE( TestLog::contains( "SETTINGS: bob@test@e39_buddy" ) );
    EXPECT_FALSE( TestLog::contains( "SETTINGS: bob@test@e0_" ) );
    GStringList devices;
    ann.instance.get( u"bob@test_Device_List", devices );
    EXPECT_EQ( 16u, devices.size( ) );
    ann.instance.get( u"Combined_Buddy_Device_List", devices );
    EXPECT_EQ( 16u, devices.size( ) );
}

TEST_F( Attacks, EndlessNamesAndNumbersAreDropped )
{
    TestLog::expect( "WARNING Received request with an endless number or method from" );
    TestLog::expect( "WARNING Received request 'INVITE' with invalid sender" );
    goOnline( );
    const GWString endless( 1000, u'7' );
    GHTTPHeaders message = asBob( GHTTPHeaders( u"PING" ) );
    message.set( u"CSeq", endless );
    attack( message );
    attack( asBob( GHTTPHeaders( endless ) ) );
    message = asBob( GHTTPHeaders( u"INVITE" ) );
    message.set( u"From", GConcat( endless, u"@test" ) );
    attack( message );
    EXPECT_EQ( 2, TestLog::count( "endless number or method" ) );
    EXPECT_FALSE( ann.service->findBuddy( BOB ) );
    EXPECT_EQ( 0, countQueued( ) );
}

TEST_F( Attacks, HolesThatStrangersPunchAddAtMostFourRoutes )
{
    beRobust( );
    allowStrangersWarnings( );
    goOnline( );
    bob.command( u"ADDBUDDY", ANN );
    ASSERT_TRUE( runUntil( [this] { return ann.stateOf( BOB, u"D2" ) == GDeviceSession::WF_ACK; } ) );
    deafenAnn( );
    std::vector<std::unique_ptr<TestHost>> hosts;
    for( int i = 0; i < 10; ++i )
    {
        hosts.push_back( std::make_unique<TestHost>( ) );
        hosts.back( )->send( ann.host( ), asBob( GHTTPHeaders( u"HOLEPUNCH" ) ) );
        ann.pass( );
    }
    for( const auto& host : hosts ) host->hear( );
    clock.advance( 2 * SECOND );
    ann.pass( );
    size_t reached = 0;
    for( const auto& host : hosts ) reached += !host->hear( ).empty( );
    EXPECT_EQ( 4u, reached );
}

// ---- Names on the blackboard.

TEST_F( Attacks, NameThatLooksLikeAnothersEntryTouchesNothingOfIt )
{
    TestLog::allow( "ignored, no state change." );
    beRobust( );
    connect( );
    ann.command( u"REMOVEBUDDY", BOB );
    run( 2 * SECOND );
    // "<buddy>_removed" has a "_Time" of his own.
    GHTTPHeaders message = asBob( GHTTPHeaders( u"INVITE" ) );
    message.set( u"From", u"bob@test_removed" );
    ann.instance.set( u"Global_SIP_Host", eve.host( ) );
    attack( message );
    EXPECT_TRUE( ann.service->findBuddy( u"bob@test_removed" ) );
    message.set( u"From", BOB );
    message.set( u"CSeq", GNumber( ++_cseq ) );
    attack( message );
    EXPECT_FALSE( ann.instance.contains( u"Local_Buddy_List", BOB ) );
}

TEST_F( Attacks, WordsOfAPeerAreShownWithoutControlCharacters )
{
    goOnline( );
    GHTTPHeaders message = asBob( GHTTPHeaders( u"INVITE" ) );
    message.set( u"Time-Zone", GConcat( u"C\x07"
                                        u"E\x9bT",
                                        GWString( 200, u'x' ) ) );
    attack( message );
    const GWString zone = ann.instance.get( u"bob@test_Time_Zone" );
    EXPECT_EQ( u"CETx", zone.substr( 0, 4 ) );
    EXPECT_EQ( 64u, zone.size( ) );
}
