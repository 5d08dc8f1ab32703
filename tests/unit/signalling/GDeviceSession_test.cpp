// The table of the handshake and of the running state as data, and every pair of state and input that is not in it.
#include "unit/signalling/TestDevice.h"

namespace
{
using S = GDeviceSession;
class DeviceSessionTable : public TestDevice
{
};

enum Input
{
    REQ_INVITE,
    REQ_ACK,
    REQ_BYE,
    REQ_UPDATE,
    REQ_DEVICEBROADCAST,
    REQ_PING,
    REQ_OTHER,
    RESP_INVITE,
    RESP_INVITE_BUSY,
    RESP_ACK,
    RESP_ACK_FAILED,
    RESP_BYE,
    RESP_UPDATE,
    RESP_DEVICEBROADCAST,
    RESP_PING,
    RESP_OTHER,
    EV_CAPTURECHANGED,
    EV_UPDATE,
    INPUT_COUNT
};
const char16_t* const METHODS[] = {
    u"INVITE", u"ACK", u"BYE", u"UPDATE", u"DEVICEBROADCAST", u"PING", u"OTHER", u"INVITE", u"INVITE",
    u"ACK",    u"ACK", u"BYE", u"UPDATE", u"DEVICEBROADCAST", u"PING", u"OTHER" };

struct Row
{
    int state;
    Input input;
    int next;
};
// Rows that depend on a timer have their own tests; here no timer has elapsed but those that never ran.
const Row ROWS[] = {
    { S::DISCONNECTED, EV_UPDATE, S::DISCONNECTED },
    { S::DISCONNECTED, REQ_INVITE, S::WF_ACK },
    { S::DISCONNECTED, RESP_INVITE, S::WF_ACKRESPONSE },
    { S::DISCONNECTED, RESP_INVITE_BUSY, S::WT_REINVITE },
    { S::WF_INVITERESPONSE, EV_UPDATE, S::WF_INVITERESPONSE },
    { S::WF_INVITERESPONSE, RESP_INVITE, S::WF_ACKRESPONSE },
    { S::WF_INVITERESPONSE, RESP_INVITE_BUSY, S::WT_REINVITE },
    { S::WF_INVITERESPONSE, REQ_INVITE, S::WF_INVITERESPONSE },
    { S::WT_REINVITE, EV_UPDATE, S::WT_REINVITE },
    { S::WT_REINVITE, REQ_INVITE, S::WF_ACK },
    { S::WF_ACK, EV_UPDATE, S::WF_ACK },
    { S::WF_ACK, REQ_ACK, S::CONNECTED },
    { S::WF_ACK, REQ_INVITE, S::WF_ACK },
    { S::WF_ACKRESPONSE, EV_UPDATE, S::WF_ACKRESPONSE },
    { S::WF_ACKRESPONSE, RESP_ACK, S::CONNECTED },
    { S::WF_ACKRESPONSE, RESP_ACK_FAILED, S::DISCONNECTED },
    { S::WF_ACKRESPONSE, REQ_INVITE, S::WF_ACKRESPONSE },
    { S::WF_ACKRESPONSE, RESP_INVITE, S::WF_ACKRESPONSE },
    { S::WF_ACKRESPONSE, RESP_INVITE_BUSY, S::WF_ACKRESPONSE },
    { S::CONNECTED, EV_UPDATE, S::CONNECTED },
    { S::CONNECTED, EV_CAPTURECHANGED, S::CONNECTED },
    { S::CONNECTED, REQ_UPDATE, S::CONNECTED },
    { S::CONNECTED, RESP_UPDATE, S::CONNECTED },
    { S::CONNECTED, REQ_BYE, S::DISCONNECTED },
    { S::CONNECTED, REQ_DEVICEBROADCAST, S::CONNECTED },
    { S::CONNECTED, RESP_DEVICEBROADCAST, S::CONNECTED },
    { S::CONNECTED, REQ_PING, S::CONNECTED },
    { S::CONNECTED, RESP_PING, S::CONNECTED },
    { S::CONNECTED, REQ_INVITE, S::CONNECTED },
    { S::CONNECTED, RESP_INVITE, S::CONNECTED },
    { S::CONNECTED, RESP_INVITE_BUSY, S::CONNECTED },
    { S::CONNECTED, RESP_ACK, S::CONNECTED },
    { S::CONNECTED, RESP_ACK_FAILED, S::CONNECTED },
    { S::WF_BYERESPONSE, EV_UPDATE, S::WF_BYERESPONSE },
    { S::WF_BYERESPONSE, RESP_BYE, S::DISCONNECTED },
    { S::WF_BYERESPONSE, REQ_INVITE, S::WF_BYERESPONSE },
};

const Row* findRow( int state, int input )
{
    for( const Row& row : ROWS )
        if( row.state == state && row.input == input ) return &row;
    return nullptr;
}

void feed( DeviceSessionTable& test, int input )
{
    if( input == EV_UPDATE )
        test.session->update( );
    else if( input == EV_CAPTURECHANGED )
        test.session->onCaptureChanged( );
    else if( input == REQ_INVITE )
        test.request( test.invite( ) );
    else if( input == REQ_ACK )
        test.request( test.ack( ) );
    else if( input < RESP_INVITE )
        test.request( test.fromFar( GHTTPHeaders( METHODS[input] ) ) );
    else if( input == RESP_INVITE || input == RESP_INVITE_BUSY )
        test.response( u"INVITE", test.inviteResponse( input == RESP_INVITE ? 200 : 300 ) );
    else
        test.response( METHODS[input], test.proof( respond( input == RESP_ACK_FAILED ? 400 : 200, u"OK" ) ) );
}
} // namespace

TEST_F( DeviceSessionTable, EveryRowLeadsToItsState )
{
    TestLog::expect( "WARNING Received INVITE while waiting already CONNECTED, responding BUSY." );
    TestLog::expect( "WARNING Received INVITE while waiting for BYE to complete, responding BUSY." );
    TestLog::expect( "WARNING Request 'ACK' failed, giving up." );
    for( const Row& row : ROWS )
    {
        renew( );
        bringTo( row.state );
        feed( *this, row.input );
        EXPECT_EQ( row.next, session->getState( ) ) << "state " << row.state << ", input " << row.input;
    }
    EXPECT_EQ( 0, TestLog::count( "ignored, no state change." ) );
}

TEST_F( DeviceSessionTable, EveryOtherPairChangesNothingButOneWarning )
{
    TestLog::allow( "ignored, no state change." );
    for( int state = S::DISCONNECTED; state <= S::WF_BYERESPONSE; ++state )
        for( int input = 0; input < INPUT_COUNT; ++input )
        {
            if( findRow( state, input ) ) continue;
            renew( );
            bringTo( state );
            const int warnings = TestLog::count( "WARNING" );
            const uint64_t generation = peer.instance.getGeneration( );
            feed( *this, input );
            EXPECT_EQ( generation, peer.instance.getGeneration( ) ) << "state " << state << ", input " << input;
            const bool silent = input == REQ_PING || input == RESP_PING;
            EXPECT_EQ( state, session->getState( ) ) << "input " << input;
            EXPECT_EQ( silent ? 0 : 1, TestLog::count( "WARNING" ) - warnings )
                << "state " << state << ", input " << input;
            EXPECT_TRUE( far.hear( ).empty( ) ) << "state " << state << ", input " << input;
            EXPECT_EQ( 0u, countQueued( ) ) << "state " << state << ", input " << input;
        }
}

TEST_F( DeviceSessionTable, GoodbyeOutsideTheConnectedStateDoesNothing )
{
    for( int state = S::DISCONNECTED; state < S::CONNECTED; ++state )
        for( const bool remove : { false, true } )
        {
            renew( );
            bringTo( state );
            session->bye( remove );
            EXPECT_EQ( state, session->getState( ) );
            EXPECT_EQ( 0u, countQueued( ) );
        }
    EXPECT_EQ( 0, TestLog::count( "WARNING" ) );
}

TEST_F( DeviceSessionTable, GoodbyeEndsAHandshakeWithTheRemedy )
{
    peer.instance.set( u"Robust_Signalling", 1 );
    client->setRobust( true );
    for( int state = S::DISCONNECTED; state <= S::WF_BYERESPONSE; ++state )
        for( const bool remove : { false, true } )
        {
            if( state == S::CONNECTED ) continue;
            renew( );
            bringTo( state );
            session->bye( remove );
            EXPECT_EQ( state == S::WF_BYERESPONSE ? S::WF_BYERESPONSE : S::DISCONNECTED, session->getState( ) );
            EXPECT_TRUE( far.hear( u"BYE" ).empty( ) );
        }
    EXPECT_EQ( 0, TestLog::count( "WARNING" ) );
}

TEST_F( DeviceSessionTable, WhereaboutsInOtherStatesRefreshTheRoutesWithoutAWarning )
{
    for( int state = S::WT_REINVITE; state <= S::WF_BYERESPONSE; ++state )
    {
        renew( );
        bringTo( state );
        session->waitForINVITEOK( routes( ) );
        EXPECT_EQ( state, session->getState( ) );
    }
    EXPECT_EQ( 0, TestLog::count( "WARNING" ) );
}

TEST_F( DeviceSessionTable, NamesOfStatesAndEvents )
{
    const char16_t* const states[] = { u"DISCONNECTED",   u"WF_INVITERESPONSE", u"WT_REINVITE",    u"WF_ACK",
                                       u"WF_ACKRESPONSE", u"CONNECTED",         u"WF_BYERESPONSE", u"<invalid>" };
    const char16_t* const events[] = {
        u"INVALID",      u"UPDATE",          u"CAPTURECHANGED", u"WAITFORINVITEOK", u"RECVSERVICESONLINE",
        u"BYEREQUESTED", u"REMOVEREQUESTED", u"<invalid>" };
    for( int i = 0; i < 8; ++i )
    {
        EXPECT_EQ( states[i], GDeviceSession::_getState( i ) );
        EXPECT_EQ( events[i], GDeviceSession::_getEvent( i ) );
    }
}

TEST_F( DeviceSessionTable, StatusLinesCountTheStatesTimerDown )
{
    session->update( );
    EXPECT_EQ( u"DISCONNECTED", value( u"bob@test@D2_Status" ) );
    bringTo( S::WF_INVITERESPONSE );
    clock.advance( 3 * SECOND );
    session->update( );
    EXPECT_EQ( u"15 WF_INVITERESPONSE", value( u"bob@test@D2_Status" ) );
    EXPECT_EQ( u"bob@test is connecting...", value( u"bob@test_Chat_Status" ) );
    renew( );
    bringTo( S::WF_BYERESPONSE );
    session->update( );
    EXPECT_EQ( u"18 WF_BYERESPONSE", value( u"bob@test@D2_Status" ) );
    EXPECT_EQ( u"bob@test is disconnecting...", value( u"bob@test_Chat_Status" ) );
    EXPECT_EQ( u"bob@test", value( u"bob@test@D2_Buddy" ) );
}
