#include "client/signalling/GSIPClient.h"

#include "support/TestClock.h"
#include "support/TestLog.h"
#include "support/TestTcpServer.h"
#include "unit/signalling/TestPeer.h"

#include <gtest/gtest.h>

namespace
{
constexpr int64_t SECOND = 1000000;

struct Listener : IGSIPClientListener
{
    void onRequest( const GWString&, const GWString& remoteHost, const GHTTPHeaders& request ) override
    {
        requests.push_back( { remoteHost, { }, request } );
    }
    void onResponse( const GWString&, const GWString& remoteHost, const GHTTPHeaders& request,
                     const GHTTPHeaders& response ) override
    {
        requests.push_back( { remoteHost, { }, request } );
        responses.push_back( { remoteHost, { }, response } );
    }
    std::vector<Heard> requests;
    std::vector<Heard> responses;
};

class SIPClient : public testing::Test
{
protected:
    void dispatch( )
    {
        peer.receive( );
        client->dispatch( &listener );
    }
    // Asks for a time in steps of half a second, as the service does; how often the far host heard something.
    size_t countWithin( int64_t time )
    {
        size_t count = 0;
        for( int64_t passed = 0; passed < time; passed += SECOND / 2 )
        {
            clock.advance( SECOND / 2 );
            dispatch( );
            count += far.hear( ).size( );
        }
        return count;
    }
    void ask( GHTTPHeaders request, GWStringView cseq )
    {
        request.set( u"CSeq", cseq );
        far.send( peer.host( ), request );
        dispatch( );
    }
    void answer( const Heard& request, const GWString& group = { } )
    {
        GHTTPHeaders response = respond( 200, u"OK" );
        response.set( u"CSeq", request.message.get( u"CSeq" ) );
        if( !group.empty( ) ) response.set( u"CSeq-Group", group );
        far.send( peer.host( ), response );
        dispatch( );
    }
    GHTTPHeaders ping( GWStringView from = u"bob@test", GWStringView device = u"D2" )
    {
        GHTTPHeaders request( u"PING" );
        request.set( u"From", from );
        request.set( u"From-Device-GUID", device );
        return request;
    }
    TestClock clock;
    TestHost far;
    TestPeer peer{ u"ann@test", u"D1", u"127.0.0.1:9" };
    std::unique_ptr<GSIPClient> client{ GSAFENEW( GSIPClient, ( &peer.port ) ) };
    Listener listener;
};
} // namespace

TEST_F( SIPClient, LabelsARequestWithItsWay )
{
    client->sendRequest( peer.host( ), far.host( ), GHTTPHeaders( u"PING" ), false );
    client->sendRequest( { }, far.host( ), GHTTPHeaders( u"PING" ), false );
    const auto heard = far.hear( );
    ASSERT_EQ( 2u, heard.size( ) );
    EXPECT_EQ( u"1", heard[0].message.get( u"CSeq" ) );
    EXPECT_EQ( peer.host( ), heard[0].message.get( u"Sent-From" ) );
    EXPECT_EQ( far.host( ), heard[0].message.get( u"Sent-To" ) );
    EXPECT_EQ( u"local", heard[0].message.get( u"Sent-From-Type" ) );
    EXPECT_FALSE( heard[0].message.contains( u"Sent-To-Type" ) );
    EXPECT_EQ( u"2", heard[1].message.get( u"CSeq" ) );
    EXPECT_EQ( u"turn", heard[1].message.get( u"Sent-From-Type" ) );
    EXPECT_EQ( u"", heard[1].message.get( u"Sent-From" ) );
}

TEST_F( SIPClient, RefusesToSendToNowhere )
{
    TestLog::expect( "WARNING Attempting to send 'PING' but invalid destination (0.0.0.0:0), ignoring." );
    TestLog::expect( "WARNING Attempting to send 'PING' but invalid source (0.0.0.0:0), ignoring." );
    TestLog::expect( "WARNING Attempting to send 'PING' but no destination, ignoring." );
    TestLog::expect( "WARNING Attempting to respond OK to request 'PING' but invalid destination (), ignoring." );
    TestLog::expect( "WARNING Attempting to respond OK to request 'PING' but invalid source (), ignoring." );
    TestLog::expect( "WARNING Attempting to respond OK to request 'PING' but no destination, ignoring." );
    const GHTTPHeaders request( u"PING" );
    const GHTTPHeaders response = respond( 200, u"OK" );
    client->sendRequest( peer.host( ), u"0.0.0.0:0", request, false );
    client->sendRequest( u"0.0.0.0:0", far.host( ), request, false );
    client->sendRequestToRouteList( { }, request, false );
    client->sendResponse( peer.host( ), { }, request, response );
    client->sendResponse( { }, far.host( ), request, response );
    client->sendResponseToRouteList( { }, request, response );
    EXPECT_TRUE( far.hear( ).empty( ) );
}

TEST_F( SIPClient, RepeatedRequestIsAnsweredFromTheCache )
{
    ask( ping( ), u"7" );
    ASSERT_EQ( 1u, listener.requests.size( ) );
    client->sendResponse( peer.host( ), far.host( ), listener.requests[0].message, respond( 200, u"OK" ) );
    const auto first = far.hear( );
    ask( ping( ), u"7" );
    const auto second = far.hear( );
    EXPECT_EQ( 1u, listener.requests.size( ) );
    ASSERT_EQ( 1u, first.size( ) );
    ASSERT_EQ( 1u, second.size( ) );
    EXPECT_EQ( first[0].bytes, second[0].bytes );
    EXPECT_EQ( u"7", first[0].message.get( u"CSeq" ) );
    EXPECT_EQ( u"PING", first[0].message.get( u"Debug-Original-Method" ) );
    EXPECT_FALSE( first[0].message.contains( u"Sent-To-Type" ) );
}

TEST_F( SIPClient, AnswerAlongRoutesIsNotCached )
{
    ask( ping( ), u"7" );
    client->sendResponseToRouteList( { GConcat( u"restricted://", far.host( ) ) }, listener.requests[0].message,
                                     respond( 200, u"OK" ) );
    const auto heard = far.hear( );
    ASSERT_EQ( 1u, heard.size( ) );
    EXPECT_EQ( u"restricted", heard[0].message.get( u"Sent-To-Type" ) );
    EXPECT_EQ( u"local", heard[0].message.get( u"Sent-From-Type" ) );
    ask( ping( ), u"7" );
    EXPECT_EQ( 2u, listener.requests.size( ) );
}

TEST_F( SIPClient, RequestWithoutRetransmissionLeavesOnce )
{
    client->sendRequest( peer.host( ), far.host( ), GHTTPHeaders( u"PING" ), false );
    EXPECT_EQ( 1u, far.hear( ).size( ) );
    EXPECT_EQ( 0u, countWithin( 20 * SECOND ) );
}

TEST_F( SIPClient, RepeatsAfterOneTwoFourAndEightSeconds )
{
    client->sendRequest( peer.host( ), far.host( ), GHTTPHeaders( u"BYE" ), true );
    const GString first = far.hear( )[0].bytes;
    EXPECT_EQ( 0u, countWithin( SECOND ) );
    clock.advance( 1 );
    dispatch( );
    const auto again = far.hear( );
    ASSERT_EQ( 1u, again.size( ) );
    EXPECT_EQ( first, again[0].bytes );
    EXPECT_EQ( 1u, countWithin( SECOND ) );
    EXPECT_EQ( 1u, countWithin( 2 * SECOND ) );
    EXPECT_EQ( 0u, countWithin( 7 * SECOND / 2 ) );
    EXPECT_EQ( 1u, countWithin( SECOND / 2 ) );
    EXPECT_EQ( 0u, countWithin( 30 * SECOND ) );
}

TEST_F( SIPClient, AnsweredRequestIsNotRepeatedAndEveryAnswerIsTold )
{
    client->sendRequest( peer.host( ), far.host( ), GHTTPHeaders( u"BYE" ), true );
    const Heard request = far.hear( )[0];
    answer( request );
    answer( request );
    EXPECT_EQ( 2u, listener.responses.size( ) );
    EXPECT_TRUE( listener.requests[0].message.isMethod( u"BYE" ) );
    EXPECT_EQ( far.host( ), listener.responses[0].from );
    EXPECT_EQ( 0u, countWithin( 20 * SECOND ) );
}

TEST_F( SIPClient, TwoRoutesBehindARelayGiveFourCopiesInOneGroup )
{
    TestTcpServer relay;
    GNetTCPSocket* socket = GNetTCPSocketOpen( relay.host( ) );
    ASSERT_TRUE( relay.accept( ) );
    peer.port.setTCPSocket( socket, u"50.0.0.1:4000" );
    TestHost other;
    client->sendRequestToRouteList( { GConcat( u"local://", far.host( ) ), GConcat( u"turn://", other.host( ) ) },
                                    GHTTPHeaders( u"ACK" ), true );
    const auto direct = far.hear( );
    ASSERT_EQ( 1u, direct.size( ) );
    EXPECT_EQ( u"1, 2, 3, 4", direct[0].message.get( u"CSeq-Group" ) );
    EXPECT_EQ( u"local", direct[0].message.get( u"Sent-To-Type" ) );
    ASSERT_EQ( 1u, other.hear( ).size( ) );
    GHTTPHeaders relayed;
    GHTTPHeaders copy;
    for( const char16_t* cseq : { u"3", u"4" } )
    {
        ASSERT_TRUE( relay.hear( relayed ) );
        EXPECT_TRUE( relayed.isMethod( u"SENDUDP" ) );
        ASSERT_TRUE( copy.deserialize( relayed.getContent( 0 ) ) );
        EXPECT_EQ( cseq, copy.get( u"CSeq" ) );
        EXPECT_EQ( u"50.0.0.1:4000", copy.get( u"Sent-From" ) );
        EXPECT_EQ( u"turn", copy.get( u"Sent-From-Type" ) );
    }
    EXPECT_EQ( 4u, client->getRequestCount( ) );
    peer.port.reset( );
    GNetTCPSocketClose( socket );
}

TEST_F( SIPClient, SymmetricRouteIsSkipped )
{
    TestLog::expect( "WARNING Route 'symmetric://127.0.0.1:9' not supported yet, ignoring." );
    client->sendRequestToRouteList( { u"symmetric://127.0.0.1:9" }, GHTTPHeaders( u"ACK" ), true );
    EXPECT_EQ( 0u, client->getRequestCount( ) );
}

TEST_F( SIPClient, AnswerFromBeforeAResetIsUnknown )
{
    TestLog::expect( "WARNING Received response with unknown CSEQ '1' from" );
    client->sendRequest( peer.host( ), far.host( ), GHTTPHeaders( u"BYE" ), true );
    client->reset( );
    answer( far.hear( )[0] );
    EXPECT_TRUE( listener.responses.empty( ) );
    client->sendRequest( peer.host( ), far.host( ), GHTTPHeaders( u"BYE" ), true );
    EXPECT_EQ( u"1", far.hear( )[0].message.get( u"CSeq" ) );
}

TEST_F( SIPClient, AnswerWithoutANumberIsDropped )
{
    far.send( peer.host( ), respond( 200, u"OK" ) );
    dispatch( );
    EXPECT_TRUE( listener.responses.empty( ) );
}

TEST_F( SIPClient, AnswerThatNamesTheGroupSilencesAllItsCopies )
{
    TestHost other;
    client->sendRequestToRouteList( { GConcat( u"local://", far.host( ) ), GConcat( u"turn://", other.host( ) ) },
                                    GHTTPHeaders( u"ACK" ), true );
    answer( far.hear( )[0], u"1, 2" );
    other.hear( );
    EXPECT_EQ( 0u, countWithin( 20 * SECOND ) );
    EXPECT_TRUE( other.hear( ).empty( ) );
}

TEST_F( SIPClient, AnswerWithoutTheGroupSilencesOnlyItsOwnCopy )
{
    TestHost other;
    client->sendRequestToRouteList( { GConcat( u"local://", far.host( ) ), GConcat( u"turn://", other.host( ) ) },
                                    GHTTPHeaders( u"ACK" ), true );
    answer( far.hear( )[0] );
    other.hear( );
    EXPECT_EQ( 0u, countWithin( 20 * SECOND ) );
    EXPECT_EQ( 4u, other.hear( ).size( ) );
}

TEST_F( SIPClient, GroupOfAStrangerMarksNothingElse )
{
    TestLog::expect( "WARNING Trying to record response to invalid member '1' of CSeq-Group '1, 2, 99'" );
    TestLog::expect( "WARNING Trying to record response to invalid member '99' of CSeq-Group '1, 2, 99'" );
    TestHost other;
    client->sendRequest( peer.host( ), other.host( ), GHTTPHeaders( u"BYE" ), true );
    client->sendRequestToRouteList( { GConcat( u"local://", far.host( ) ) }, GHTTPHeaders( u"ACK" ), true );
    answer( far.hear( )[0], u"1, 2, 99" );
    other.hear( );
    countWithin( 3 * SECOND / 2 );
    EXPECT_EQ( 1u, other.hear( ).size( ) );
}

TEST_F( SIPClient, UnparsableBucketIsAnEmptyRequest )
{
    TestLog::expect( "WARNING: Assertion failed. (headers.deserialize( bucket->buffer ))" );
    far.sendBytes( peer.host( ), "rubbish" );
    dispatch( );
    ASSERT_EQ( 1u, listener.requests.size( ) );
    EXPECT_EQ( u"", listener.requests[0].message.getMethod( ) );
}

TEST_F( SIPClient, RecordsHaveALimit )
{
    for( int i = 0; i < 5000; ++i )
    {
        GHTTPHeaders request = ping( );
        request.set( u"CSeq", static_cast<int64_t>( i ) );
        client->sendResponse( peer.host( ), far.host( ), request, respond( 200, u"OK" ) );
        client->sendRequest( peer.host( ), far.host( ), request, false );
    }
    EXPECT_EQ( 4096u, client->getRequestCount( ) );
    EXPECT_EQ( 4096u, client->getResponseCount( ) );
}

TEST_F( SIPClient, EndlessNumbersMethodsAndGroupsAreDropped )
{
    TestLog::expect( "WARNING Received request with an endless number or method from" );
    TestLog::expect( "WARNING Received response with an endless CSeq-Group, ignoring." );
    ask( ping( ), GWString( 64, u'7' ) );
    EXPECT_EQ( 1u, listener.requests.size( ) );
    ask( ping( ), GWString( 65, u'7' ) );
    ask( GHTTPHeaders( GWString( 65, u'P' ) ), u"7" );
    EXPECT_EQ( 1u, listener.requests.size( ) );
    client->sendRequestToRouteList( { GConcat( u"local://", far.host( ) ) }, GHTTPHeaders( u"ACK" ), true );
    GWString group = u"1";
    while( group.size( ) <= 1024 ) group += u", 99";
    answer( far.hear( )[0], group );
    EXPECT_EQ( 1, TestLog::count( "CSeq-Group" ) );
}

TEST_F( SIPClient, CallersMessageIsNeverChanged )
{
    GHTTPHeaders request = ping( );
    GHTTPHeaders response = respond( 200, u"OK" );
    const GString requestText = request.serialize( );
    const GString responseText = response.serialize( );
    const GStringList routes = { GConcat( u"local://", far.host( ) ) };
    client->sendRequest( peer.host( ), far.host( ), request, true );
    client->sendRequestToRouteList( routes, request, true );
    client->sendResponse( peer.host( ), far.host( ), request, response );
    client->sendResponseToRouteList( routes, request, response );
    EXPECT_EQ( requestText, request.serialize( ) );
    EXPECT_EQ( responseText, response.serialize( ) );
}

// ---- The remedy, off and on.

TEST_F( SIPClient, RequestWithoutPreferenceIsRepeatedByTheRelayThatCameMeanwhile )
{
    client->sendRequest( { }, far.host( ), GHTTPHeaders( u"GETBUDDYLIST" ), true );
    client->sendRequest( peer.host( ), far.host( ), GHTTPHeaders( u"BYE" ), true );
    EXPECT_EQ( 2u, far.hear( ).size( ) );
    TestTcpServer relay;
    GNetTCPSocket* socket = GNetTCPSocketOpen( relay.host( ) );
    ASSERT_TRUE( relay.accept( ) );
    peer.port.setTCPSocket( socket, u"50.0.0.1:4000" );
    clock.advance( SECOND + 1 );
    dispatch( );
    // The other one belongs to a route, which its receiver holds it to.
    EXPECT_EQ( 1u, far.hear( u"BYE" ).size( ) );
    GHTTPHeaders relayed;
    GHTTPHeaders copy;
    ASSERT_TRUE( relay.hear( relayed ) );
    ASSERT_TRUE( copy.deserialize( relayed.getContent( 0 ) ) );
    EXPECT_TRUE( copy.isMethod( u"GETBUDDYLIST" ) );
    peer.port.reset( );
    GNetTCPSocketClose( socket );
}

TEST_F( SIPClient, PeersWithTheSameNumberShareACachedAnswerByTheLetter )
{
    for( const bool robust : { false, true } )
    {
        client->setRobust( robust );
        ask( ping( ), u"7" );
        client->sendResponse( peer.host( ), far.host( ), listener.requests.back( ).message, respond( 200, u"OK" ) );
        listener.requests.clear( );
        ask( ping( u"cid@test", u"D3" ), u"7" );
        EXPECT_EQ( robust ? 1u : 0u, listener.requests.size( ) );
        client->reset( );
        listener.requests.clear( );
    }
}

TEST_F( SIPClient, SymmetricRouteIsTriedWithTheRemedy )
{
    client->setRobust( true );
    client->sendRequestToRouteList( { GConcat( u"symmetric://", far.host( ) ) }, GHTTPHeaders( u"ACK" ), true );
    EXPECT_EQ( 1u, far.hear( u"ACK" ).size( ) );
}

TEST_F( SIPClient, CopiesToARelayStandBackWithTheRemedy )
{
    client->setRobust( true );
    client->sendRequestToRouteList( { GConcat( u"turn://", far.host( ) ) }, GHTTPHeaders( u"ACK" ), false );
    EXPECT_TRUE( far.hear( ).empty( ) );
    clock.advance( SECOND );
    dispatch( );
    EXPECT_EQ( 1u, far.hear( ).size( ) );
}

TEST_F( SIPClient, SpentRecordsStayByTheLetterAndLeaveWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        client->setRobust( robust );
        client->sendRequest( peer.host( ), far.host( ), ping( ), false );
        ask( ping( ), u"7" );
        client->sendResponse( peer.host( ), far.host( ), listener.requests.back( ).message, respond( 200, u"OK" ) );
        clock.advance( 61 * SECOND );
        dispatch( );
        EXPECT_EQ( robust ? 0u : 1u, client->getRequestCount( ) );
        EXPECT_EQ( robust ? 0u : 1u, client->getResponseCount( ) );
        client->reset( );
    }
}

TEST_F( SIPClient, CounterNeverGoesBackWithTheRemedy )
{
    client->setRobust( true );
    client->sendRequest( peer.host( ), far.host( ), ping( ), false );
    client->reset( );
    client->sendRequest( peer.host( ), far.host( ), ping( ), false );
    const auto heard = far.hear( );
    EXPECT_EQ( heard[0].message.calc( u"CSeq" ) + 1, heard[1].message.calc( u"CSeq" ) );
    EXPECT_NE( 1, heard[0].message.calc( u"CSeq" ) );
}

TEST_F( SIPClient, ResetOfOneSessionForgetsAllByTheLetterAndItsOwnWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        client->setRobust( robust );
        for( const char16_t* device : { u"D2", u"D3" } )
        {
            GHTTPHeaders request( u"BYE" );
            request.set( u"To", u"bob@test" );
            request.set( u"To-Device-GUID", device );
            client->sendRequest( peer.host( ), far.host( ), request, true );
        }
        client->reset( u"bob@test", u"D2" );
        EXPECT_EQ( robust ? 1u : 0u, client->getRequestCount( ) );
        client->reset( );
    }
}

TEST_F( SIPClient, AnswersRepeatTheGroupWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        client->setRobust( robust );
        far.hear( );
        GHTTPHeaders request = ping( );
        request.set( u"CSeq", u"8" );
        request.set( u"CSeq-Group", u"8, 9" );
        client->sendResponse( peer.host( ), far.host( ), request, respond( 200, u"OK" ) );
        EXPECT_EQ( robust ? u"8, 9" : u"", far.hear( )[0].message.get( u"CSeq-Group" ) );
        client->sendResponseToRouteList( { GConcat( u"local://", far.host( ) ) }, request, respond( 200, u"OK" ) );
        EXPECT_EQ( robust ? u"8, 9" : u"", far.hear( )[0].message.get( u"CSeq-Group" ) );
        request.set( u"CSeq-Group", GWString( 1025, u'9' ) );
        client->sendResponse( peer.host( ), far.host( ), request, respond( 200, u"OK" ) );
        EXPECT_EQ( u"", far.hear( )[0].message.get( u"CSeq-Group" ) );
    }
}

TEST_F( SIPClient, CopiesThroughARelayStandBackOnlyWithTheRemedy )
{
    TestTcpServer relay;
    GNetTCPSocket* socket = GNetTCPSocketOpen( relay.host( ) );
    ASSERT_TRUE( relay.accept( ) );
    peer.port.setTCPSocket( socket, u"50.0.0.1:4000" );
    const GStringList routes = { GConcat( u"local://", far.host( ) ) };
    GHTTPHeaders relayed;
    client->sendRequestToRouteList( routes, GHTTPHeaders( u"ACK" ), false );
    EXPECT_TRUE( relay.hear( relayed ) );

    client->setRobust( true );
    client->sendRequestToRouteList( routes, GHTTPHeaders( u"ACK" ), false );
    client->sendResponseToRouteList( routes, ping( ), respond( 200, u"OK" ) );
    EXPECT_EQ( 3u, far.hear( ).size( ) );
    clock.advance( 2 * SECOND / 5 - 1 );
    dispatch( );
    EXPECT_FALSE( relay.hearNow( relayed ) );
    clock.advance( 1 );
    dispatch( );
    EXPECT_TRUE( relay.hear( relayed ) );
    EXPECT_TRUE( relay.hear( relayed ) );

    // An answer that came meanwhile makes the relayed copy superfluous.
    client->sendRequestToRouteList( routes, GHTTPHeaders( u"ACK" ), false );
    const Heard direct = far.hear( )[0];
    answer( direct, direct.message.get( u"CSeq-Group" ) );
    clock.advance( SECOND );
    dispatch( );
    EXPECT_FALSE( relay.hearNow( relayed ) );
    peer.port.reset( );
    GNetTCPSocketClose( socket );
}
