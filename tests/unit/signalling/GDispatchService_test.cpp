// From CONNECT to a registration: the port, the STUN test, the relay, the choice of a server.
#include "client/signalling/GDispatchService.h"

#include "support/TestLog.h"
#include "unit/signalling/TestDispatch.h"

namespace
{
class DispatchService : public TestDispatch
{
protected:
    GStringList routes( ) const
    {
        GStringList list;
        instance->get( u"Route_List", list );
        return list;
    }
    GWString localRoute( ) const { return GConcat( u"local://", instance->get( u"Local_Host" ) ); }
    GWString get( GWStringView name ) const { return instance->get( name ); }
};
constexpr char16_t ELSEWHERE[] = u"9.9.9.9:99";
} // namespace

TEST_F( DispatchService, StatesAndEventsHaveTheirNames )
{
    const GStringVector names{ u"Offline",     u"STUN",   u"TURN",           u"CHOOSESERVER",  u"DEVICEGUID",
                               u"Registering", u"Online", u"Re-registering", u"UNREGISTERING", u"<invalid>" };
    for( size_t i = 0; i < names.size( ); ++i )
        EXPECT_EQ( GDispatchService::_getState( static_cast<int>( i ) ), names[i] );
    EXPECT_EQ( GDispatchService::_getEvent( 1 ), u"UPDATE" );
    EXPECT_EQ( GDispatchService::_getEvent( 2 ), u"<invalid>" );
}

TEST_F( DispatchService, ConnectPunchesAHoleAndAsksTheDirectHost )
{
    pass( );
    EXPECT_EQ( get( u"Dispatch_Status" ), u"Offline" );
    connect( );
    EXPECT_EQ( state( ), GDispatchService::STUN );
    GString hole;
    ASSERT_TRUE( punched.hearRaw( hole ) );
    EXPECT_EQ( hole, "HOLEPUNCH" );
    EXPECT_EQ( punched.from( ), get( u"Local_Host" ) );
    const GHTTPHeaders request = hearAt( direct, u"STUN" );
    EXPECT_EQ( request.get( u"CSeq" ), u"1 (GDispatchService)" );
    GStringList hosts;
    request.get( u"Indirect-Host-List", hosts );
    EXPECT_EQ( hosts, ( GStringList{ punched.host( ), unpunched.host( ) } ) );
    EXPECT_EQ( get( u"Dispatch_Status" ), u"5 STUN" );
}

TEST_F( DispatchService, PortThatCannotBeOpenedDisconnects )
{
    instance->set( u"Local_IP", u"8.8.8.8" );
    TestLog::allow( "WARNING Could not" );
    TestLog::expect( "WARNING Can't open UDP port on IP '8.8.8.8', disconnecting." );
    connect( );
    EXPECT_EQ( state( ), GDispatchService::OFFLINE );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
}

TEST_F( DispatchService, FixedPortAndStartupSleepAreTaken )
{
    GNetUDPPort* probe = GNetUDPPortOpen( u"127.0.0.1:0" );
    const GWString host = probe->host;
    GNetUDPPortClose( probe );
    instance->set( u"Local_Port", host.substr( host.find( u':' ) + 1 ) );
    instance->set( u"Startup_Sleep", 250 );
    const uint64_t before = TestClock::now( );
    connect( );
    EXPECT_EQ( TestClock::now( ) - before, 250000u );
    EXPECT_EQ( get( u"Local_Host" ), host );
    EXPECT_TRUE( TestLog::contains( "Using fixed local port, trying host '127.0.0.1:" ) );
}

TEST_F( DispatchService, StunListWithTooFewEntriesWarnsAndGoesOn )
{
    instance->set( u"Global_STUN_Host_List", GStringList{ direct.host( ), punched.host( ) } );
    TestLog::expect( "stunHostList.size( ) >= 4" );
    connect( );
    EXPECT_EQ( state( ), GDispatchService::STUN );
    answerSTUN( GLOBAL_HOST, true, false );
    passes( 1, 5600000 );
    EXPECT_EQ( get( u"Connection_Class" ), u"RESTRICTED" );
}

TEST_F( DispatchService, ThreeAnswersAreClassifiedAtTheNextPassWithoutARetry )
{
    connect( );
    answerSTUN( GLOBAL_HOST, true, true );
    passes( 1, 500000 );
    EXPECT_EQ( state( ), GDispatchService::CHOOSESERVER );
    EXPECT_EQ( get( u"Connection_Class" ), u"UNRESTRICTED" );
    EXPECT_EQ( get( u"Global_Host" ), GLOBAL_HOST );
    EXPECT_EQ( routes( ), ( GStringList{ localRoute( ), u"unrestricted://5.5.5.5:7000" } ) );
    EXPECT_EQ( static_cast<uint64_t>( instance->calc( u"Global_Host_Timestamp" ) ), TestClock::now( ) );
    GHTTPHeaders again;
    EXPECT_FALSE( direct.hear( again ) );
    EXPECT_EQ( TestLog::count( "Retrying 'STUN'" ), 0 );
}

TEST_F( DispatchService, OpenNetworkOnLoopbackIsPublic )
{
    connect( );
    const GWString localHost = get( u"Local_Host" );
    answerSTUN( localHost, true, true );
    pass( );
    EXPECT_EQ( get( u"Connection_Class" ), u"PUBLIC" );
    EXPECT_EQ( get( u"Global_Host" ), localHost );
    EXPECT_EQ( routes( ), GStringList{ localRoute( ) } );
}

TEST_F( DispatchService, PublicWithoutTheIndirectAnswersWarnsAfterTheWholeTime )
{
    connect( );
    answerSTUN( get( u"Local_Host" ), false, false );
    passes( 5, 1100000 );
    EXPECT_EQ( state( ), GDispatchService::STUN );
    TestLog::expect( "_indirectPunchedSTUNResponse.succeeded( )" );
    TestLog::expect( "_indirectUnpunchedSTUNResponse.succeeded( )" );
    passes( 1, 100000 );
    EXPECT_EQ( get( u"Connection_Class" ), u"PUBLIC" );
}

TEST_F( DispatchService, PunchedAnswerAloneIsRestricted )
{
    connect( );
    answerSTUN( GLOBAL_HOST, true, false );
    passes( 5, 1100000 );
    EXPECT_EQ( state( ), GDispatchService::STUN );
    passes( 1, 100000 );
    EXPECT_EQ( get( u"Connection_Class" ), u"RESTRICTED" );
    EXPECT_EQ( routes( ), ( GStringList{ localRoute( ), u"restricted://5.5.5.5:7000" } ) );
}

TEST_F( DispatchService, RetriesKeepTheNumberAndPunchTheHoleAgain )
{
    connect( );
    const GHTTPHeaders first = hearAt( direct, u"STUN" );
    GString hole;
    ASSERT_TRUE( punched.hearRaw( hole ) );
    passes( 1, 1100000 );
    EXPECT_EQ( hearAt( direct, u"STUN" ).get( u"CSeq" ), first.get( u"CSeq" ) );
    EXPECT_TRUE( punched.hearRaw( hole ) );
    EXPECT_EQ( TestLog::count( "Retrying 'STUN' to (" ), 1 );
}

TEST_F( DispatchService, DirectAnswerAloneIsSymmetricAndTriesTheRelay )
{
    connect( );
    answerSTUN( GLOBAL_HOST, false, false );
    passes( 1, 5600000 );
    EXPECT_EQ( get( u"Connection_Class" ), u"SYMMETRIC" );
    EXPECT_EQ( state( ), GDispatchService::TURN );
    EXPECT_TRUE( TestLog::contains( "STUN found 'SYMMETRIC' NAT, treating it like firewall." ) );
    EXPECT_TRUE( relay.accept( ) );
}

TEST_F( DispatchService, NoAnswerIsAFirewallAndTriesTheRelay )
{
    connect( );
    passes( 1, 5600000 );
    EXPECT_EQ( get( u"Connection_Class" ), u"FIREWALL" );
    EXPECT_EQ( state( ), GDispatchService::TURN );
    EXPECT_TRUE( relay.accept( ) );
}

TEST_F( DispatchService, AnswerOfAStrangerIsRefusedAndTheTestGoesOn )
{
    connect( );
    const GHTTPHeaders request = hearAt( direct, u"STUN" );
    TestLog::expect( "WARNING Received 'STUN' response from unknown remote host (" );
    sip.answerTo( direct.from( ), request, 200, { { u"Global-Host", ELSEWHERE } } );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::STUN );
    direct.answer( request, 200, { { u"Global-Host", GLOBAL_HOST } } );
    punched.answerTo( direct.from( ), request, 200 );
    unpunched.answerTo( direct.from( ), request, 200 );
    pass( );
    EXPECT_EQ( get( u"Global_Host" ), GLOBAL_HOST );
}

TEST_F( DispatchService, GlobalHostThatIsNoneIsRefused )
{
    connect( );
    const GHTTPHeaders request = hearAt( direct, u"STUN" );
    for( const GWString& host :
         { GWString( ), GWString( u"0.0.0.0:0" ), GWString( u"255.255.255.255:1" ), GWString( u"x, y" ) } )
    {
        TestLog::expect( "WARNING Received 'STUN' response with invalid global host (" );
        direct.answer( request, 200, { { u"Global-Host", host } } );
    }
    pass( );
    passes( 1, 5600000 );
    EXPECT_EQ( get( u"Connection_Class" ), u"FIREWALL" );
}

TEST_F( DispatchService, ForcedSymmetricOnAnOpenNetworkTakesTheRelay )
{
    instance->set( u"Force_NAT", u"SYMMETRIC" );
    connect( );
    answerSTUN( get( u"Local_Host" ), true, true );
    pass( );
    EXPECT_EQ( get( u"Connection_Class" ), u"SYMMETRIC" );
    EXPECT_EQ( state( ), GDispatchService::TURN );
}

TEST_F( DispatchService, ForcedClassNamesTheRoute )
{
    instance->set( u"Force_NAT", u"RESTRICTED" );
    connect( );
    answerSTUN( GLOBAL_HOST, true, true );
    pass( );
    EXPECT_EQ( routes( ), ( GStringList{ localRoute( ), u"restricted://5.5.5.5:7000" } ) );
}

// ---- The relay.

TEST_F( DispatchService, RelayThatRefusesTimesOut )
{
    GHTTPHeaders open;
    toTURN( open );
    GHTTPHeaders refusal;
    refusal.setResponse( 403, u"Forbidden" );
    refusal.set( u"CSeq", open.get( u"CSeq" ) );
    relay.say( refusal );
    for( int i = 0; i < 20; ++i ) service->pass( 1000 );
    EXPECT_EQ( state( ), GDispatchService::TURN );
    TestLog::expect( "WARNING 'TURN' request failed (or timed out), logon process failed." );
    passes( 1, 5600000 );
    EXPECT_EQ( state( ), GDispatchService::OFFLINE );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
}

TEST_F( DispatchService, RelayIsVerifiedAgainstTheClassThatNeedsIt )
{
    GHTTPHeaders open;
    toTURN( open );
    TestLog::expect(
        "WARNING: Assertion failed. (GCaseEquals( _instance->get( L\"Connection_Class\" ), L\"FIREWALL\" ) || "
        "GCaseEquals( _instance->get( L\"Connection_Class\" ), L\"SYMMETRIC\" ))" );
    instance->set( u"Connection_Class", u"PUBLIC" );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::TURN );
}

TEST_F( DispatchService, RelayWithoutAUsableAddressDisconnects )
{
    GHTTPHeaders open;
    toTURN( open );
    GHTTPHeaders opened;
    opened.setResponse( 200, u"OK" );
    opened.set( u"CSeq", open.get( u"CSeq" ) );
    opened.set( u"Global-Host", u"0.0.0.0:0" );
    TestLog::expect( "WARNING 'TURN' request failed with response OK, disconnecting." );
    relay.say( opened );
    EXPECT_TRUE( passUntil( GDispatchService::OFFLINE ) );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
}

TEST_F( DispatchService, RelayLeadsOnlineAndNeitherPingsNorRefreshes )
{
    toRelayed( );
    EXPECT_EQ( get( u"Connection_Class" ), u"FIREWALL" );
    EXPECT_EQ( routes( ), ( GStringList{ localRoute( ), u"turn://5.5.5.5:7000" } ) );
    EXPECT_EQ( megaPort->getGlobalHost( ), GLOBAL_HOST );
    for( const GWStringView name : { u"SIP_Ping", u"NAT_Refresh_Period_S", u"NAT_Mapping_Age" } )
        EXPECT_EQ( get( name ), u"-" );
    passes( 20, 2000000 );
    GString data;
    EXPECT_FALSE( sip.hearRaw( data ) );
    EXPECT_FALSE( refresh.hearRaw( data ) );
    EXPECT_EQ( get( u"SIP_Ping" ), u"-" );
    EXPECT_EQ( state( ), GDispatchService::ONLINE );
}

TEST_F( DispatchService, RelayedDataReachesTheBuckets )
{
    toRelayed( );
    sayRelayed( GHTTPHeaders( u"INVITE" ).serialize( ) );
    GMegaPortBucket* bucket = nullptr;
    for( int i = 0; i < 2000 && !bucket; ++i )
    {
        service->pass( 1000 );
        bucket = megaPort->getSIPBucket( );
    }
    ASSERT_TRUE( bucket );
    EXPECT_EQ( bucket->remoteHost, sip.host( ) );
    EXPECT_EQ( bucket->localHost, GLOBAL_HOST );
    megaPort->returnEmptyBucket( bucket );
}

TEST_F( DispatchService, RelayedDataOfNobodyIsDropped )
{
    toRelayed( );
    GHTTPHeaders message;
    message.setResponse( 200, u"OK" );
    message.set( u"Remote-Host", u"0.0.0.0:0" );
    message.addContent( GHTTPHeaders( u"INVITE" ).serialize( ) );
    relay.say( message );
    TestLog::expect( "WARNING Received relay data from TURN server with invalid remote host (0.0.0.0:0), ignoring." );
    for( int i = 0; i < 2000 && !TestLog::contains( "invalid remote host" ); ++i ) service->pass( 1000 );
    EXPECT_EQ( megaPort->getSIPBucket( ), nullptr );
}

TEST_F( DispatchService, LossOfTheRelayDisconnectsInAnyState )
{
    TestLog::expect( "WARNING 'TURN' request failed (or timed out), disconnected." );
    GHTTPHeaders open;
    toTURN( open );
    relay.hangUp( );
    EXPECT_TRUE( passUntil( GDispatchService::OFFLINE ) );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
    toRelayed( );
    relay.hangUp( );
    EXPECT_TRUE( passUntil( GDispatchService::OFFLINE ) );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
    EXPECT_EQ( megaPort->getGlobalHost( ), u"0.0.0.0:0" );
}

// ---- The choice of a server.

TEST_F( DispatchService, FirstServerToAnswerWinsAndTheSecondIsIgnored )
{
    toChooseServer( );
    const GHTTPHeaders ping = hearAt( sip, u"PING" );
    const GHTTPHeaders ping2 = hearAt( sip2, u"PING" );
    EXPECT_EQ( ping.get( u"Global-Host" ), GLOBAL_HOST );
    EXPECT_NE( ping.get( u"CSeq" ), ping2.get( u"CSeq" ) );
    TestLog::expect( "to request 'PING' ignored, no state change." );
    sip2.answer( ping2, 200 );
    sip.answer( ping, 200 );
    pass( );
    EXPECT_EQ( get( u"Global_SIP_Host" ), sip2.host( ) );
    EXPECT_EQ( state( ), GDispatchService::REGISTERING );
    EXPECT_TRUE( TestLog::contains( "first to respond, choosing it." ) );
}

TEST_F( DispatchService, AnswerOfAnotherHostThanTheAskedOneIsRefused )
{
    toChooseServer( );
    const GHTTPHeaders ping = hearAt( sip, u"PING" );
    TestLog::expect( "WARNING Received response from (" );
    direct.answerTo( sip.from( ), ping, 200 );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::CHOOSESERVER );
}

TEST_F( DispatchService, AnswerToNothingIsRefused )
{
    toChooseServer( );
    TestLog::expect( "GMAPCONTAINS( _cseqRequestMap, cseq )" );
    GHTTPHeaders invented( u"PING" );
    invented.set( u"CSeq", u"4711 (GDispatchService)" );
    sip.answerTo( get( u"Local_Host" ), invented, 200 );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::CHOOSESERVER );
}

TEST_F( DispatchService, ServersAreAskedAgainWithFreshNumbersAndTimeOut )
{
    toChooseServer( );
    const GHTTPHeaders first = hearAt( sip, u"PING" );
    passes( 1, 1100000 );
    EXPECT_NE( hearAt( sip, u"PING" ).get( u"CSeq" ), first.get( u"CSeq" ) );
    TestLog::expect( "WARNING 'PING' requests timed out to '" );
    passes( 1, 5000000 );
    EXPECT_EQ( state( ), GDispatchService::OFFLINE );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
}

TEST_F( DispatchService, ClientWithoutAnIdentityAsksForOneAndKeepsIt )
{
    instance->clear( u"Local_Device_GUID" );
    toChooseServer( );
    sip.answer( hearAt( sip, u"PING" ), 200 );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::DEVICEGUID );
    sip.answer( hearAt( sip, u"DEVICEGUID" ), 200, { { u"Device-GUID", u"abc123" } } );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::REGISTERING );
    EXPECT_EQ( get( u"Local_Device_GUID" ), u"abc123" );
    GString settings;
    ASSERT_TRUE( GFileLoad( u"test_dispatch_settings.ini", settings ) );
    EXPECT_NE( settings.find( "local_device_guid: abc123" ), GString::npos );
    const GHTTPHeaders request = hearAt( sip, u"REGISTER" );
    EXPECT_EQ( request.get( u"From" ), u"me@velmora.local" );
    EXPECT_EQ( request.get( u"Device-GUID" ), u"abc123" );
    EXPECT_EQ( request.get( u"Version" ), u"764" );
    EXPECT_EQ( request.get( u"Route-List" ), get( u"Route_List" ) );
}

TEST_F( DispatchService, RefusedIdentityAndInvalidIdentityDisconnect )
{
    for( const bool refused : { true, false } )
    {
        instance->clear( u"Local_Device_GUID" );
        instance->clear( u"Global_SIP_Host" );
        toChooseServer( );
        sip.answer( hearAt( sip, u"PING" ), 200 );
        pass( );
        if( refused )
            TestLog::expect( "WARNING Request 'DEVICEGUID' failed with response #500 'Refused'." );
        else
            TestLog::expect( "WARNING Received invalid device GUID '../x', disconnecting." );
        sip.answer( hearAt( sip, u"DEVICEGUID" ), refused ? 500 : 200, { { u"Device-GUID", u"../x" } } );
        pass( );
        EXPECT_EQ( state( ), GDispatchService::OFFLINE );
        EXPECT_EQ( notification( ), u"DISCONNECTED" );
        EXPECT_EQ( get( u"Local_Device_GUID" ), u"" );
    }
}

// ---- Inputs that no row takes.

TEST_F( DispatchService, CommandsOutOfPlaceChangeNothing )
{
    TestLog::expect( "WARNING Command 'DISCONNECT' ignored, no state change." );
    command( u"DISCONNECT" );
    pass( );
    toRegistering( );
    for( const GWStringView method : { u"DISCONNECT", u"CONNECT" } ) command( method );
    TestLog::expect( "WARNING Command 'CONNECT' ignored, no state change." );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::REGISTERING );
    TestLog::expect( "WARNING Malformed command sent to 'GDispatchService_commandQueue', ignoring." );
    instance->enqueue( u"GDispatchService_commandQueue", GString( "nonsense" ) );
    pass( );
}

TEST_F( DispatchService, ResetForgetsEverythingInAnyState )
{
    const auto check = [&]
    {
        instance->clear( u"Global_SIP_Host" );
        command( u"RESET" );
        pass( );
        EXPECT_EQ( state( ), GDispatchService::OFFLINE );
        for( const GWStringView name : { u"Local_Host", u"Global_Host", u"Connection_Class", u"Route_List" } )
            EXPECT_FALSE( instance->isSet( name ) );
        EXPECT_EQ( megaPort->getLocalHost( ), u"0.0.0.0:0" );
        while( !notification( ).empty( ) )
        {
        }
    };
    check( );
    connect( );
    check( );
    toChooseServer( );
    check( );
    toRegistering( );
    check( );
    toOnline( );
    check( );
    toOnline( );
    command( u"DISCONNECT" );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::UNREGISTERING );
    check( );
}

TEST_F( DispatchService, TrafficBeforeOnlineIsRefused )
{
    connect( );
    GString packet( 12, '\0' );
    packet[0] = '\x80';
    packet[1] = 1;
    TestLog::expect( "WARNING Received 12 RTP bytes but not ONLINE, ignoring." );
    sip.say( get( u"Local_Host" ), packet );
    TestLog::expect( "WARNING Recieved request 'INVITE' but not ONLINE, ignoring." );
    sip.say( get( u"Local_Host" ), GHTTPHeaders( u"INVITE" ).serialize( ) );
    TestLog::expect( "WARNING Received response 200 but not ONLINE, ignoring." );
    sip.answerTo( get( u"Local_Host" ), GHTTPHeaders( u"INVITE" ), 200 );
    TestLog::expect( "WARNING Received unexpected 'PING' request from (" );
    GHTTPHeaders request( u"PING" );
    request.set( u"CSeq", u"1 (GDispatchService)" );
    sip.say( get( u"Local_Host" ), request.serialize( ) );
    sip.say( get( u"Local_Host" ), "garbage" );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::STUN );
    EXPECT_EQ( megaPort->getSIPBucket( ), nullptr );
    EXPECT_EQ( megaPort->getRTPBucket( 1 ), nullptr );
}

TEST_F( DispatchService, APassReadsABoundedNumberOfDatagrams )
{
    toOnline( );
    for( int i = 0; i < 300; ++i ) sip.say( get( u"Local_Host" ), GHTTPHeaders( u"INVITE" ).serialize( ) );
    pass( );
    int count = 0;
    while( GMegaPortBucket* bucket = megaPort->getSIPBucket( ) )
    {
        megaPort->returnEmptyBucket( bucket );
        ++count;
    }
    EXPECT_EQ( count, 256 );
}

TEST_F( DispatchService, DisabledReceivingDropsEveryDatagram )
{
    toOnline( );
    instance->set( u"Disable_UDP_Recv", 1 );
    sip.say( get( u"Local_Host" ), GHTTPHeaders( u"INVITE" ).serialize( ) );
    pass( );
    EXPECT_EQ( megaPort->getSIPBucket( ), nullptr );
}
