// Registered: the mapping's lifetime is learnt and proved, the registration renewed, and the remedies mend what the letter leaves.
#include "support/TestLog.h"
#include "unit/signalling/TestDispatch.h"

namespace
{
class DispatchOnline : public TestDispatch
{
protected:
    // Answers the newest mapping PING as the server would.
    void answerPING( const GWString& observed )
    {
        GHTTPHeaders ping;
        GHTTPHeaders next;
        while( sip.hear( next ) )
            if( next.isMethod( u"PING" ) ) ping = next;
        ASSERT_TRUE( ping.isMethod( u"PING" ) );
        sip.answer( ping, 200, { { u"Observed-Host", observed }, { u"Reported-Host", ping.get( u"Global-Host" ) } } );
        pass( );
    }
    int64_t answerRefresh( )
    {
        const GHTTPHeaders request = hearAt( refresh, u"STUN" );
        refresh.answer( request, 200 );
        pass( );
        return request.calc( u"Delay" );
    }
    void refuseREGISTER( int code )
    {
        TestLog::expect( "WARNING Request 'REGISTER' failed with response #" + std::to_string( code ) + " 'Refused'." );
        sip.answer( hearAt( sip, u"REGISTER" ), code );
        pass( );
    }
    int64_t period( ) const { return instance->calc( u"NAT_Refresh_Period_S" ); }
};
} // namespace

TEST_F( DispatchOnline, RegistrationArmsThePortAndStartsTheFirstTrial )
{
    toOnline( );
    EXPECT_EQ( megaPort->getLocalHost( ), instance->get( u"Local_Host" ) );
    EXPECT_EQ( period( ), 1 );
    EXPECT_EQ( hearAt( refresh, u"STUN" ).get( u"Delay" ), u"1000000" );
    // The first mapping test runs at the first UPDATE.
    EXPECT_EQ( hearAt( sip, u"PING" ).get( u"Global-Host" ), GLOBAL_HOST );
    EXPECT_EQ( instance->get( u"Dispatch_Status" ), u"Online" );
}

TEST_F( DispatchOnline, AnsweredTrialsDoubleWithoutEnd )
{
    instance->set( u"Disable_Connection_Timeout", 1 );
    toOnline( );
    for( int64_t delay = 1000000; delay < 1000000000; delay *= 2 )
    {
        EXPECT_EQ( answerRefresh( ), delay );
        EXPECT_EQ( period( ), delay * 2 / 1000000 );
    }
}

TEST_F( DispatchOnline, UnansweredTrialsHalveDownToOneSecond )
{
    instance->set( u"Disable_Connection_Timeout", 1 );
    toOnline( );
    answerRefresh( );
    answerRefresh( );
    EXPECT_EQ( hearAt( refresh, u"STUN" ).get( u"Delay" ), u"4000000" );
    passes( 1, 6100000 );
    EXPECT_EQ( period( ), 2 );
    passes( 1, 4100000 );
    EXPECT_EQ( period( ), 1 );
    passes( 1, 3100000 );
    EXPECT_EQ( period( ), 1 );
}

TEST_F( DispatchOnline, SixthUnansweredPingDisconnects )
{
    toOnline( );
    passes( 4, 1100000 );
    EXPECT_EQ( state( ), GDispatchService::ONLINE );
    TestLog::allow( "WARING PING failed 6 consecutive times, reconnecting." );
    passes( 1, 1100000 );
    EXPECT_TRUE( TestLog::contains( "WARING PING failed 6 consecutive times, reconnecting." ) );
    EXPECT_EQ( state( ), GDispatchService::OFFLINE );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
}

TEST_F( DispatchOnline, WithoutConnectionTimeoutsRegisterAndPingsGoOnForEver )
{
    instance->set( u"Disable_Connection_Timeout", 1 );
    toRegistering( );
    passes( 20, 1100000 );
    EXPECT_EQ( state( ), GDispatchService::REGISTERING );
    EXPECT_EQ( TestLog::count( "Retrying 'REGISTER'" ), 20 );
    sip.answer( hearAt( sip, u"REGISTER" ), 200 );
    passes( 20, 1100000 );
    EXPECT_EQ( state( ), GDispatchService::ONLINE );
}

TEST_F( DispatchOnline, AnsweredPingTellsItsTimeAndWaitsForTheLearntPeriod )
{
    toOnline( );
    answerRefresh( );
    answerRefresh( );
    ASSERT_EQ( period( ), 4 );
    clock.advance( 25000 );
    answerPING( GLOBAL_HOST );
    EXPECT_EQ( instance->get( u"SIP_Ping" ), u"25ms" );
    EXPECT_EQ( instance->get( u"NAT_Mapping_Age" ), u"0s" );
    GHTTPHeaders ping;
    passes( 1, 3900000 );
    EXPECT_FALSE( sip.hear( ping ) );
    passes( 1, 200000 );
    EXPECT_TRUE( sip.hear( ping ) );
}

TEST_F( DispatchOnline, ChangedMappingDisconnectsAtOnce )
{
    toOnline( );
    TestLog::expect(
        "WARNING Global mapping has changed after 0s, was (5.5.5.5:7000) but is now (5.5.5.5:7001), reconnecting." );
    answerPING( u"5.5.5.5:7001" );
    EXPECT_EQ( state( ), GDispatchService::OFFLINE );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
}

TEST_F( DispatchOnline, LateAnswerOfTheServerChoiceDoesNotEnterTheInterval )
{
    toChooseServer( );
    const GHTTPHeaders late = hearAt( sip2, u"PING" );
    sip.answer( hearAt( sip, u"PING" ), 200 );
    pass( );
    sip.answer( hearAt( sip, u"REGISTER" ), 200 );
    pass( );
    ASSERT_EQ( state( ), GDispatchService::ONLINE );
    instance->set( u"NAT_Refresh_Period_S", 60 );
    TestLog::expect( "to request 'PING' ignored, no state change." );
    sip2.answer( late, 200 );
    pass( );
    EXPECT_EQ( instance->get( u"SIP_Ping" ), u"" );
    GHTTPHeaders ping;
    while( sip.hear( ping ) )
    {
    }
    passes( 1, 1100000 );
    EXPECT_TRUE( sip.hear( ping ) );
}

TEST_F( DispatchOnline, RefusedRegisterLeadsToANewIdentity )
{
    toRegistering( );
    TestLog::expect( "WARNING 'REGISTER' failed, suspect device GUID is stale -- requesting new DEVICEGUID" );
    refuseREGISTER( 500 );
    EXPECT_EQ( state( ), GDispatchService::DEVICEGUID );
    sip.answer( hearAt( sip, u"DEVICEGUID" ), 200, { { u"Device-GUID", u"fresh" } } );
    pass( );
    EXPECT_EQ( hearAt( sip, u"REGISTER" ).get( u"Device-GUID" ), u"fresh" );
    EXPECT_EQ( state( ), GDispatchService::REGISTERING );
}

TEST_F( DispatchOnline, RegistrationThatTimesOutDisconnects )
{
    toRegistering( );
    passes( 1, 1100000 );
    EXPECT_EQ( instance->get( u"Dispatch_Status" ), u"5 REGISTER" );
    TestLog::expect( "WARNING 'REGISTER' request timed out, reconnecting." );
    passes( 1, 5600000 );
    EXPECT_EQ( state( ), GDispatchService::OFFLINE );
}

TEST_F( DispatchOnline, RegistrationIsRenewedAfterFifteenMinutesEachSecondUntilItIsAnswered )
{
    instance->set( u"Disable_Connection_Timeout", 1 );
    toOnline( );
    passes( 1, 900100000 );
    EXPECT_EQ( state( ), GDispatchService::REREGISTERING );
    const GHTTPHeaders first = hearAt( sip, u"REGISTER" );
    passes( 1, 1100000 );
    const GHTTPHeaders second = hearAt( sip, u"REGISTER" );
    EXPECT_NE( first.get( u"CSeq" ), second.get( u"CSeq" ) );
    TestLog::expect( "WARNING Re-registration timed out.  Wtf?" );
    passes( 1, 6000000 );
    EXPECT_EQ( state( ), GDispatchService::REREGISTERING );
    sip.answer( second, 200 );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::ONLINE );
    EXPECT_TRUE( TestLog::contains( "Re-registration successful" ) );
}

TEST_F( DispatchOnline, LoggingOffUnregistersAndSilencesThePort )
{
    toOnline( );
    command( u"DISCONNECT" );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::UNREGISTERING );
    EXPECT_EQ( megaPort->getLocalHost( ), u"0.0.0.0:0" );
    const GHTTPHeaders request = hearAt( sip, u"UNREGISTER" );
    EXPECT_EQ( request.get( u"From" ), u"me@velmora.local" );
    EXPECT_EQ( request.get( u"Device-GUID" ), u"device1" );
    sip.answer( request, 200 );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::OFFLINE );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
}

TEST_F( DispatchOnline, LoggingOffWithoutAnAnswerEndsHard )
{
    toOnline( );
    command( u"DISCONNECT" );
    pass( );
    passes( 1, 1100000 );
    EXPECT_TRUE( TestLog::contains( "Retrying 'UNREGISTER'" ) );
    TestLog::expect( "WARNING 'UNREGISTER' request timed out, hard logoff." );
    passes( 1, 5600000 );
    EXPECT_EQ( state( ), GDispatchService::OFFLINE );
}

TEST_F( DispatchOnline, OnlineTrafficReachesTheBuckets )
{
    toOnline( );
    GString packet( 12, '\0' );
    packet[0] = '\x80';
    packet[1] = 2;
    sip.say( instance->get( u"Local_Host" ), packet );
    // One byte less is no media, and no message either.
    sip.say( instance->get( u"Local_Host" ), packet.substr( 0, 11 ) );
    sip.say( instance->get( u"Local_Host" ), GHTTPHeaders( u"INVITE" ).serialize( ) );
    pass( );
    GMegaPortBucket* media = megaPort->getRTPBucket( 2 );
    GMegaPortBucket* message = megaPort->getSIPBucket( );
    ASSERT_TRUE( media && message );
    EXPECT_EQ( media->buffer, packet );
    EXPECT_EQ( message->remoteHost, sip.host( ) );
    EXPECT_EQ( message->localHost, instance->get( u"Local_Host" ) );
    EXPECT_EQ( megaPort->getSIPBucket( ), nullptr );
    megaPort->returnEmptyBucket( media );
    megaPort->returnEmptyBucket( message );
}

// ---- The remedies, off and on.

TEST_F( DispatchOnline, RemedyClassifiesSoonAfterTheDirectAnswer )
{
    for( const bool robust : { false, true } )
    {
        instance->set( u"Robust_Signalling", robust ? 1 : 0 );
        instance->clear( u"Global_SIP_Host" );
        connect( );
        answerSTUN( GLOBAL_HOST, true, false );
        pass( );
        passes( 1, 1600000 );
        EXPECT_EQ( state( ), robust ? GDispatchService::CHOOSESERVER : GDispatchService::STUN );
        command( u"RESET" );
        pass( );
    }
}

TEST_F( DispatchOnline, RemedyTakesTrafficWhileRegisteringAgain )
{
    for( const bool robust : { false, true } )
    {
        instance->set( u"Robust_Signalling", robust ? 1 : 0 );
        instance->set( u"Disable_Connection_Timeout", 1 );
        instance->clear( u"Global_SIP_Host" );
        toOnline( );
        passes( 1, 900100000 );
        ASSERT_EQ( state( ), GDispatchService::REREGISTERING );
        if( !robust ) TestLog::expect( "WARNING Recieved request 'INVITE' but not ONLINE, ignoring." );
        sip.say( instance->get( u"Local_Host" ), GHTTPHeaders( u"INVITE" ).serialize( ) );
        pass( );
        GMegaPortBucket* bucket = megaPort->getSIPBucket( );
        EXPECT_EQ( bucket != nullptr, robust );
        if( bucket ) megaPort->returnEmptyBucket( bucket );
        command( u"RESET" );
        pass( );
        while( !notification( ).empty( ) )
        {
        }
        GHTTPHeaders old;
        while( sip.hear( old ) || sip2.hear( old ) || direct.hear( old ) || refresh.hear( old ) )
        {
        }
    }
}

TEST_F( DispatchOnline, RemedyPingsByTheLastSuccessAndStopsDoublingAtSixtyFourSeconds )
{
    instance->set( u"Robust_Signalling", 1 );
    instance->set( u"Disable_Connection_Timeout", 1 );
    toOnline( );
    for( int i = 0; i < 9; ++i ) answerRefresh( );
    EXPECT_EQ( period( ), 64 );
    answerPING( GLOBAL_HOST );
    GHTTPHeaders ping;
    passes( 1, 24900000 );
    EXPECT_FALSE( sip.hear( ping ) );
    passes( 1, 200000 );
    EXPECT_TRUE( sip.hear( ping ) );
}

TEST_F( DispatchOnline, RemedyCountsOnlyTheNewestTrial )
{
    instance->set( u"Robust_Signalling", 1 );
    toOnline( );
    const GHTTPHeaders first = hearAt( refresh, u"STUN" );
    refresh.answer( first, 200 );
    pass( );
    EXPECT_EQ( period( ), 2 );
    refresh.answer( first, 200 );
    pass( );
    EXPECT_EQ( period( ), 2 );
    EXPECT_EQ( hearAt( refresh, u"STUN" ).get( u"Delay" ), u"2000000" );
    GHTTPHeaders none;
    EXPECT_FALSE( refresh.hear( none ) );
}

TEST_F( DispatchOnline, RemedyKeepsTheIdentityUnlessItIsUnknown )
{
    instance->set( u"Robust_Signalling", 1 );
    toRegistering( );
    TestLog::expect( "WARNING 'REGISTER' failed, trying again with the same device GUID." );
    refuseREGISTER( 500 );
    EXPECT_EQ( state( ), GDispatchService::REGISTERING );
    TestLog::expect( "WARNING 'REGISTER' failed, trying again in a while." );
    refuseREGISTER( 500 );
    GHTTPHeaders none;
    passes( 10, 2000000 );
    EXPECT_FALSE( sip.hear( none ) );
    EXPECT_EQ( state( ), GDispatchService::REGISTERING );
    passes( 1, 11000000 );
    EXPECT_EQ( hearAt( sip, u"REGISTER" ).get( u"Device-GUID" ), u"device1" );
}

TEST_F( DispatchOnline, RemedyAsksForANewIdentityOnceAndThenEveryThirtySeconds )
{
    instance->set( u"Robust_Signalling", 1 );
    toRegistering( );
    TestLog::expect( "suspect device GUID is stale -- requesting new DEVICEGUID" );
    refuseREGISTER( 404 );
    sip.answer( hearAt( sip, u"DEVICEGUID" ), 200, { { u"Device-GUID", u"fresh1" } } );
    pass( );
    TestLog::expect( "WARNING 'REGISTER' failed, trying again in a while." );
    refuseREGISTER( 404 );
    EXPECT_EQ( state( ), GDispatchService::REGISTERING );
    passes( 1, 29000000 );
    EXPECT_EQ( state( ), GDispatchService::REGISTERING );
    passes( 1, 2000000 );
    EXPECT_EQ( state( ), GDispatchService::DEVICEGUID );
}

TEST_F( DispatchOnline, RemedyReconnectsWhenTheServerHasForgottenTheDevice )
{
    instance->set( u"Robust_Signalling", 1 );
    instance->set( u"Disable_Connection_Timeout", 1 );
    toOnline( );
    passes( 1, 900100000 );
    TestLog::expect( "the server does not know this device any more, reconnecting." );
    refuseREGISTER( 404 );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
}

TEST_F( DispatchOnline, RemedyOffersTheSymmetricHost )
{
    instance->set( u"Robust_Signalling", 1 );
    instance->set( u"Force_NAT", u"SYMMETRIC" );
    instance->set( u"Global_SIP_Host_List", GStringList{ sip.host( ) } );
    connect( );
    answerSTUN( u"6.6.6.6:6000", true, true );
    pass( );
    ASSERT_EQ( state( ), GDispatchService::TURN );
    ASSERT_TRUE( relay.accept( ) );
    pass( );
    GHTTPHeaders open;
    ASSERT_TRUE( relay.hear( open ) );
    GHTTPHeaders opened;
    opened.setResponse( 200, u"OK" );
    opened.set( u"CSeq", open.get( u"CSeq" ) );
    opened.set( u"Global-Host", GLOBAL_HOST );
    relay.say( opened );
    ASSERT_TRUE( passUntil( GDispatchService::CHOOSESERVER ) );
    GStringList routes;
    instance->get( u"Route_List", routes );
    EXPECT_EQ( routes.size( ), 3u );
    EXPECT_EQ( routes.back( ), u"symmetric://6.6.6.6:6000" );
}

TEST_F( DispatchOnline, RemedyRetriesAndUnregistersByTheRelay )
{
    instance->set( u"Robust_Signalling", 1 );
    toRelayed( );
    command( u"DISCONNECT" );
    pass( );
    const GHTTPHeaders first = hearRelayed( u"UNREGISTER" );
    passes( 1, 1100000 );
    EXPECT_EQ( hearRelayed( u"UNREGISTER" ).get( u"CSeq" ), first.get( u"CSeq" ) );
    GString data;
    EXPECT_FALSE( sip.hearRaw( data ) );
}

TEST_F( DispatchOnline, WithoutTheRemedyRetriesGoByUDPEvenBehindARelay )
{
    toRelayed( );
    command( u"DISCONNECT" );
    pass( );
    hearRelayed( u"UNREGISTER" );
    passes( 1, 1100000 );
    hearAt( sip, u"UNREGISTER" );
}

TEST_F( DispatchOnline, RemedyKeepsTheRelayAlive )
{
    instance->set( u"Robust_Signalling", 1 );
    toRelayed( );
    passes( 1, 31000000 );
    GHTTPHeaders message;
    ASSERT_TRUE( relay.hear( message ) );
    EXPECT_TRUE( message.isMethod( u"SENDUDP" ) );
    EXPECT_EQ( message.getContent( 0 ), "HOLEPUNCH" );
    EXPECT_EQ( message.get( u"Remote-Host" ), sip.host( ) );
}

TEST_F( DispatchOnline, RemedyOffersAPublicMappingAsARoute )
{
    instance->set( u"Robust_Signalling", 1 );
    // The gateway answers once the client is on line.
    static GEvent online = nullptr;
    online = GEventOpen( );
    GUPnPFunctions gateway;
    gateway.open = []( const GWString&, int, int )
    {
        GEventWait( online, 10000000 );
        return reinterpret_cast<GNetUPnPMapping*>( 1 );
    };
    gateway.getGlobalHost = []( const GNetUPnPMapping* ) { return GWString( u"7.7.7.7:50000" ); };
    gateway.close = []( GNetUPnPMapping* ) {};
    service->setUPnPFunctions( gateway );
    toOnline( );
    GEventSet( online );
    GStringList routes;
    for( int i = 0; i < 2000 && routes.size( ) < 3; ++i )
    {
        service->pass( 1000 );
        instance->get( u"Route_List", routes );
    }
    EXPECT_EQ( routes.back( ), u"unrestricted://7.7.7.7:50000" );
    // The server hears of it with the next registration.
    passes( 2, 100000 );
    GHTTPHeaders newest;
    GHTTPHeaders next;
    while( sip.hear( next ) )
        if( next.isMethod( u"REGISTER" ) ) newest = next;
    EXPECT_TRUE( newest.get( u"Route-List" ).find( u"unrestricted://7.7.7.7:50000" ) != GWString::npos );
    GEventClose( online );
}
