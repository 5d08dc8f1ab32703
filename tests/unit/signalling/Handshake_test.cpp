// What two clients do from the invitation to the goodbye, straight and through a relay.
#include "platform/GNet.h"
#include "support/TestTcpServer.h"
#include "unit/signalling/TestTalk.h"

#include <memory>

namespace
{

// A relay in a few lines: what its client sends leaves from an address of the client's own, what comes there goes to the client.
class Relay
{
public:
    explicit Relay( TestClient& client ) : _client( client ), _socket( GNetTCPSocketOpen( _tcp.host( ) ) )
    {
        EXPECT_TRUE( _tcp.accept( ) );
        client.port.setTCPSocket( _socket, host( ) );
        client.isDeaf = true;
        client.instance.set( u"Route_List",
                             GStringList{ GConcat( u"local://", client.host( ) ), GConcat( u"turn://", host( ) ) } );
    }
    ~Relay( )
    {
        _client.port.reset( );
        GNetTCPSocketClose( _socket );
    }
    const GWString& host( ) const { return _udp.host( ); }
    void pass( )
    {
        GHTTPHeaders message;
        while( _tcp.hearNow( message ) ) _udp.sendBytes( message.get( u"Remote-Host" ), message.getContent( 0 ) );
        for( const Heard& heard : _udp.hear( ) ) _client.fill( host( ), heard );
    }

private:
    TestClient& _client;
    TestTcpServer _tcp;
    TestHost _udp;
    GNetTCPSocket* _socket;
};

class Handshake : public TestTalk
{
protected:
    void step( ) override
    {
        if( relay ) relay->pass( );
        server.answer( );
        ann.pass( );
        if( relay ) relay->pass( );
        server.answer( );
        bob.pass( );
        clock.advance( SECOND / 10 );
    }
    // Puts Ann behind a firewall.
    void useRelay( )
    {
        relay = std::make_unique<Relay>( ann );
        server.devices[0].host = relay->host( );
        ann.instance.get( u"Route_List", server.devices[0].routes );
    }
    int64_t restartBob( );
    void callThroughRelay( );
    std::unique_ptr<Relay> relay;
};
} // namespace

TEST_F( Handshake, OneInvitationConnectsBothSides )
{
    connect( );
    EXPECT_EQ( bob.host( ), ann.instance.get( u"bob@test@D2_Send_To" ) );
    EXPECT_EQ( ann.host( ), ann.instance.get( u"bob@test@D2_Send_From" ) );
    EXPECT_EQ( bob.host( ), ann.instance.get( u"bob@test@D2_Recv_From" ) );
    EXPECT_EQ( u"local->local", ann.instance.get( u"bob@test@D2_Send_Route" ) );
    EXPECT_EQ( u"local<-local", ann.instance.get( u"bob@test@D2_Recv_Route" ) );
    EXPECT_EQ( ann.host( ), bob.instance.get( u"ann@test@D1_Send_To" ) );
    // The INVITE came by the server, so its own way has no type.
    EXPECT_EQ( u"<-local", bob.instance.get( u"ann@test@D1_Recv_Route" ) );
    run( SECOND );
    EXPECT_TRUE( ann.instance.test( u"bob@test_Online" ) );
    EXPECT_FALSE( ann.instance.test( u"bob@test_Offline" ) );
    EXPECT_FALSE( ann.instance.isSet( u"bob@test_Chat_Status" ) );
    EXPECT_EQ( u"CONNECTED", ann.instance.get( u"bob@test@D2_Status" ) );
    // The callee gains a buddy too.
    EXPECT_EQ( u"ann@test", bob.instance.get( u"Local_Buddy_List" ) );
}

TEST_F( Handshake, ConnectingOpensTheStreamsOfBothSides )
{
    connect( );
    const auto capture = ann.commands( u"GVideoCaptureService_commandQueue" );
    const GHTTPHeaders& open = capture.back( );
    EXPECT_EQ( u"OPEN", open.getMethod( ) );
    EXPECT_EQ( u"bob@test@D2", open.get( u"Buddy-Device-GUID" ) );
    EXPECT_EQ( bob.host( ), open.get( u"Send-To" ) );
    EXPECT_EQ( ann.host( ), open.get( u"Send-From" ) );
    EXPECT_EQ( 1, open.calc( u"Video-FPS" ) );
    EXPECT_FALSE( open.test( u"Audio-Enable" ) );
    EXPECT_TRUE( open.test( u"Video-Enable" ) );
    const auto playback = bob.commands( u"GVideoPlaybackService_commandQueue" );
    EXPECT_EQ( u"OPEN", playback.back( ).getMethod( ) );
    EXPECT_EQ( ann.host( ), playback.back( ).get( u"Recv-From-Host" ) );
}

TEST_F( Handshake, SimultaneousInvitationsEndInOneSession )
{
    goOnline( );
    ann.command( u"ADDBUDDY", BOB );
    bob.command( u"ADDBUDDY", ANN );
    TestLog::allow( "ignored, no state change." );
    TestLog::allow( "WARNING Received response with unknown CSEQ" );
    TestLog::allow( "WARNING Received INVITE while waiting already CONNECTED" );
    GLogSetFilter( "d" );
    EXPECT_TRUE( runUntil( [this] { return areConnected( ); }, 120 * SECOND ) );
    GLogSetFilter( "" );
    EXPECT_TRUE( TestLog::contains( "Received INVITE while waiting for ours to complete, responding BUSY." ) );
}

TEST_F( Handshake, LinkIsMeasuredOnceASecond )
{
    connect( );
    run( 5 * SECOND );
    EXPECT_NE( GWString::npos, ann.instance.get( u"bob@test@D2_Ping" ).find( u"±" ) );
    EXPECT_EQ( u"0.00% (0/", ann.instance.get( u"bob@test@D2_Loss" ).substr( 0, 9 ) );
}

TEST_F( Handshake, LogoffSaysGoodbyeAndSavesTheList )
{
    connect( );
    ann.command( u"BUDDYLOGOFF" );
    EXPECT_TRUE( runUntil( [this] { return ann.service->getState( ) == 0; } ) );
    EXPECT_EQ( GDeviceSession::DISCONNECTED, bob.stateOf( ANN, u"D1" ) );
    ASSERT_TRUE( server.heard.back( ).isMethod( u"SETBUDDYLIST" ) );
    EXPECT_EQ( u"bob@test", server.heard.back( ).get( u"Buddy-List" ) );
    EXPECT_EQ( u"BUDDYLOGGEDOFF", ann.methods( u"GClient_commandQueue" ).back( ) );
}

TEST_F( Handshake, RemovalTakesBothOffTheirLists )
{
    connect( );
    ann.command( u"REMOVEBUDDY", BOB );
    EXPECT_TRUE( runUntil( [this] { return ann.stateOf( BOB, u"D2" ) == 0; } ) );
    EXPECT_FALSE( ann.instance.contains( u"Local_Buddy_List", BOB ) );
    EXPECT_FALSE( bob.instance.contains( u"Local_Buddy_List", ANN ) );
}

TEST_F( Handshake, SilenceOfTenSecondsLeadsToANewHandshake )
{
    connect( );
    TestLog::expect( "WARNING Lost contact with" );
    TestLog::allow( "WARNING Received INVITE while waiting already CONNECTED" );
    TestLog::allow( "WARNING Received response with unknown CSEQ" );
    TestLog::allow( "ignored, no state change." );
    clock.advance( 11 * SECOND );
    ann.service->pass( 0 );
    EXPECT_EQ( GDeviceSession::WT_REINVITE, ann.stateOf( BOB, u"D2" ) );
    bob.service->pass( 0 );
    EXPECT_TRUE( runUntil( [this] { return areConnected( ); }, 120 * SECOND ) );
}

void Handshake::callThroughRelay( )
{
    useRelay( );
    connect( );
    // Both directions run through the relay's address, the only one at which anything reaches Ann.
    EXPECT_EQ( relay->host( ), bob.instance.get( u"ann@test@D1_Send_To" ) );
    EXPECT_EQ( u"local->turn", bob.instance.get( u"ann@test@D1_Send_Route" ) );
    EXPECT_EQ( bob.host( ), ann.instance.get( u"bob@test@D2_Recv_From" ) );
    run( 15 * SECOND );
    EXPECT_TRUE( areConnected( ) );
    ann.command( u"RESET" );
    run( SECOND );
    relay.reset( );
}

TEST_F( Handshake, CallerBehindAFirewallTalksThroughItsRelay )
{
    callThroughRelay( );
}

TEST_F( Handshake, CallerBehindAFirewallTalksThroughItsRelayWithTheRemedy )
{
    beRobust( );
    callThroughRelay( );
}

TEST_F( Handshake, CalleeBehindAFirewallIsReachedThroughItsRelay )
{
    useRelay( );
    goOnline( );
    bob.command( u"ADDBUDDY", ANN );
    ASSERT_TRUE( runUntil( [this] { return areConnected( ); } ) );
    EXPECT_EQ( relay->host( ), bob.instance.get( u"ann@test@D1_Send_To" ) );
    run( 15 * SECOND );
    EXPECT_TRUE( areConnected( ) );
    ann.command( u"RESET" );
    run( SECOND );
    relay.reset( );
}

TEST_F( Handshake, RemediesConnectOverALossyNetwork )
{
    for( const char16_t* text :
         { u"ignored, no state change.", u"responding BUSY", u"unknown CSEQ", u"Lost contact", u"already added" } )
        TestLog::allow( GWideToUTF8( text ) );
    beRobust( );
    for( int round = 0; round < 20; ++round )
    {
        for( TestClient* client : { &ann, &bob } ) client->lossPercent = 15;
        connect( );
        for( TestClient* client : { &ann, &bob } ) client->command( u"RESET" );
        run( 70 * SECOND );
        ann.instance.clear( u"Local_Buddy_List" );
        bob.instance.clear( u"Local_Buddy_List" );
    }
}

TEST_F( Handshake, ChatLineReachesTheOtherClient )
{
    connect( );
    bob.commands( u"GClient_commandQueue" );
    GHTTPHeaders chat( u"CHAT" );
    chat.set( u"Text", u"hello" );
    GHTTPHeaders broadcast( u"DEVICEBROADCAST" );
    broadcast.addContent( chat.serialize( ) );
    ann.instance.enqueue( u"bob@test_commandQueue", broadcast );
    run( SECOND );
    const auto commands = bob.commands( u"GClient_commandQueue" );
    ASSERT_EQ( 1u, commands.size( ) );
    EXPECT_EQ( ANN, commands[0].get( u"From" ) );
    EXPECT_EQ( u"D1", commands[0].get( u"From-Device-GUID" ) );
    GHTTPHeaders inner;
    ASSERT_TRUE( inner.deserialize( commands[0].getContent( 0 ) ) );
    EXPECT_EQ( u"hello", inner.get( u"Text" ) );
}

TEST_F( Handshake, RemediesConnectWithoutAWarning )
{
    beRobust( );
    connect( );
    run( 70 * SECOND );
    EXPECT_TRUE( areConnected( ) );
    EXPECT_EQ( 0, TestLog::count( "WARNING" ) );
}

// The program of one side dies without a word and comes back after 3 s; how long until the sessions stand again.
int64_t Handshake::restartBob( )
{
    connect( );
    run( 3 * SECOND );
    bob.service->_bGThreadObject_safe_onShutdown( );
    delete bob.service;
    for( int64_t passed = 0; passed < 3 * SECOND; passed += SECOND / 10 )
    {
        server.answer( );
        ann.pass( );
        clock.advance( SECOND / 10 );
    }
    bob.service = GSAFENEW( GSIPService, ( &bob.instance, &bob.port ) );
    bob.receive( );
    while( GMegaPortBucket* bucket = bob.port.getSIPBucket( ) ) bob.port.returnEmptyBucket( bucket );
    server.buddyList = { ANN };
    bob.command( u"BUDDYLOGON" );
    const uint64_t start = GTimeGetTime( );
    EXPECT_TRUE( runUntil( [this] { return areConnected( ) && bob.service->getState( ) == 2; }, 120 * SECOND ) );
    return static_cast<int64_t>( GTimeGetTime( ) - start );
}

TEST_F( Handshake, RestartedPeerWaitsForTheTimeOutByTheLetter )
{
    TestLog::allow( "WARNING Lost contact with" );
    TestLog::allow( "WARNING Received INVITE while waiting already CONNECTED" );
    TestLog::allow( "WARNING Received response with unknown CSEQ" );
    // The fresh count meets answers that were remembered for the run before.
    TestLog::allow( "WARNING: Assertion failed. (inviteResponse.isSet( L\"Sent-To-Type\" ))" );
    TestLog::allow( "WARNING Attempting to send 'ACK' but no destination" );
    TestLog::allow( "ignored, no state change." );
    EXPECT_GT( restartBob( ), 5 * SECOND );
}

TEST_F( Handshake, RestartedPeerIsTakenBackAtOnceWithTheRemedy )
{
    beRobust( );
    TestLog::allow( "WARNING Received response with unknown CSEQ" );
    EXPECT_LT( restartBob( ), 2 * SECOND );
}
