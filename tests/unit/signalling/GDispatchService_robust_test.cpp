// What the remedies of the dispatch service mend, off and on, and what strangers may try.
#include "base/GRandom.h"
#include "support/CountAllocations.h"
#include "support/TestLog.h"
#include "unit/signalling/TestDispatch.h"

#include <chrono>
#include <map>

namespace
{
constexpr char16_t MAPPED[] = u"7.7.7.7:50000";

// A gateway whose mappings the test can count.
struct Gateway
{
    static inline std::atomic<int> opened = 0;
    static inline std::atomic<int> closed = 0;
    static inline GWString outside;
    static inline GEvent closing = GEventOpen( );
    static GUPnPFunctions functions( const GWString& outside )
    {
        GEventWait( closing, 0 ); // Of an earlier test.
        opened = closed = 0;
        Gateway::outside = outside;
        GUPnPFunctions out;
        out.open = []( const GWString&, int, int )
        {
            ++opened;
            return reinterpret_cast<GNetUPnPMapping*>( 1 );
        };
        out.getGlobalHost = []( const GNetUPnPMapping* ) { return Gateway::outside; };
        out.close = []( GNetUPnPMapping* )
        {
            ++closed;
            GEventSet( closing );
        };
        return out;
    }
};

class DispatchRobust : public TestDispatch
{
protected:
    void startAs( bool robust )
    {
        if( state( ) != GDispatchService::OFFLINE )
        {
            command( u"RESET" );
            pass( );
        }
        instance->clear( u"Global_SIP_Host" );
        instance->set( u"Robust_Signalling", robust ? 1 : 0 );
        while( !notification( ).empty( ) )
        {
        }
    }
    GWString localHost( ) const { return instance->get( u"Local_Host" ); }
    GString invite( size_t content = 0 ) const
    {
        GHTTPHeaders message( u"INVITE" );
        if( content ) message.addContent( GString( content, 'x' ) );
        return message.serialize( );
    }
    GString media( int type, size_t length = 1200 ) const
    {
        GString packet( length, '\0' );
        packet[0] = '\x80';
        packet[1] = static_cast<char>( type );
        return packet;
    }
    // How many messages wait for the signalling; they are given back.
    int takeSIP( )
    {
        int count = 0;
        for( ; GMegaPortBucket* bucket = megaPort->getSIPBucket( ); ++count ) megaPort->returnEmptyBucket( bucket );
        return count;
    }
    // Passes until that many datagrams were taken from the port; how many passes that took.
    int take( int count )
    {
        int passes = 0;
        for( ; count > 0 && passes < 500; ++passes )
        {
            service->pass( ARRIVAL );
            count -= takeSIP( );
            for( ; GMegaPortBucket* bucket = megaPort->getRTPBucket( 2 ); --count )
                megaPort->returnEmptyBucket( bucket );
        }
        EXPECT_EQ( count, 0 );
        return passes;
    }
    // Says a crowd of datagrams and takes them as the services do, until nothing more is needed for it. How many of them a pass reads is
    // the system's choice: before it counts, one pass has read more of the largest than any later one can, so every bucket held one.
    template <typename Say>
    void holdsNoHeap( const Say& say )
    {
        const GString packet = media( 2 );
        const GString message = invite( 300 );
        ASSERT_LT( message.size( ), packet.size( ) );
        const auto crowd = [&]
        {
            for( int i = 0; i < 60; ++i ) say( packet );
            return take( 60 );
        };
        int crowds = 1;
        while( crowd( ) > 1 && crowds < 200 ) ++crowds;
        ASSERT_LT( crowds, 200 );
        const auto sayBoth = [&]
        {
            for( int i = 0; i < 50; ++i ) say( i % 2 ? packet : message );
        };
        for( int i = 0; i < 3; ++i )
        {
            sayBoth( );
            take( 50 );
        }
        sayBoth( );
        EXPECT_EQ( countAllocations( [&] { take( 50 ); } ), 0 );
    }
    GHTTPHeaders newest( TestUDPHost& host, GWStringView method )
    {
        GHTTPHeaders found;
        GHTTPHeaders next;
        while( host.hear( next ) )
            if( next.isMethod( method ) ) found = next;
        EXPECT_TRUE( found.isMethod( method ) );
        return found;
    }
    template <typename Condition>
    bool passWhile( Condition condition )
    {
        for( int i = 0; i < 2000 && condition( ); ++i ) service->pass( 1000 );
        return !condition( );
    }
    GStringList routes( ) const
    {
        GStringList list;
        instance->get( u"Route_List", list );
        return list;
    }
    GString relayed( const GString& data, const GWString& from ) const
    {
        GHTTPHeaders message;
        message.setResponse( 200, u"OK" );
        message.set( u"Remote-Host", from );
        message.addContent( data );
        return message.serialize( );
    }
};
} // namespace

// ---- The socket.

TEST_F( DispatchRobust, SendErrorCostsTheDatagramInsteadOfThePort )
{
    TestLog::allow( "exceeds recommended MTU" );
    for( const bool robust : { false, true } )
    {
        startAs( robust );
        toOnline( );
        TestLog::expect( robust ? ", ignoring. (Message too long)" : ", closing. (Message too long)" );
        const GString tooLong( 65508, 'x' );
        megaPort->send( localHost( ), sip.host( ), tooLong.data( ), static_cast<int>( tooLong.size( ) ) );
        sip.say( localHost( ), invite( ) );
        pass( );
        EXPECT_EQ( takeSIP( ), robust ? 1 : 0 );
    }
}

TEST_F( DispatchRobust, LargeDatagramsAreReadWhole )
{
    TestLog::allow( "exceeds recommended MTU" );
    for( const bool robust : { false, true } )
    {
        startAs( robust );
        toOnline( );
        sip.say( localHost( ), invite( 60000 ) );
        pass( );
        EXPECT_EQ( takeSIP( ), robust ? 1 : 0 );
    }
}

// ---- Numbers and records.

TEST_F( DispatchRobust, CounterStartsAtRandom )
{
    connect( );
    EXPECT_EQ( hearAt( direct, u"STUN" ).get( u"CSeq" ), u"1 (GDispatchService)" );
    startAs( true );
    service->unlock( );
    delete service;
    service = GSAFENEW( GDispatchService, ( instance, megaPort ) );
    GUPnPFunctions none;
    none.open = []( const GWString&, int, int ) -> GNetUPnPMapping* { return nullptr; };
    service->setUPnPFunctions( none );
    service->lock( );
    GRandomSeed( 4711 );
    const int first = GRandom( ) + 1;
    GRandomSeed( 4711 );
    connect( );
    EXPECT_EQ( hearAt( direct, u"STUN" ).get( u"CSeq" ), GConcat( first, u" (GDispatchService)" ) );
    // A connection later it goes on.
    startAs( true );
    connect( );
    EXPECT_GT( hearAt( direct, u"STUN" ).calc( u"CSeq" ), first );
}

TEST_F( DispatchRobust, SpentRecordsLeaveAfterAMinute )
{
    instance->set( u"Disable_Connection_Timeout", 1 );
    for( const bool robust : { false, true } )
    {
        startAs( robust );
        toChooseServer( );
        const GHTTPHeaders late = hearAt( sip2, u"PING" );
        sip.answer( hearAt( sip, u"PING" ), 200 );
        pass( );
        sip.answer( hearAt( sip, u"REGISTER" ), 200 );
        pass( );
        passes( 61, 1000000 );
        TestLog::expect( robust ? "GMAPCONTAINS( _cseqRequestMap, cseq )"
                                : "to request 'PING' ignored, no state change." );
        sip2.answer( late, 200 );
        pass( );
        EXPECT_EQ( TestLog::count( "GMAPCONTAINS" ), robust ? 1 : 0 );
    }
}

TEST_F( DispatchRobust, AnswerToAnOlderTrialCountsOnlyToTheLetter )
{
    for( const bool robust : { false, true } )
    {
        startAs( robust );
        toOnline( );
        const GHTTPHeaders first = hearAt( refresh, u"STUN" );
        for( int i = 0; i < 2; ++i )
        {
            refresh.answer( first, 200 );
            pass( );
        }
        EXPECT_EQ( hearAt( refresh, u"STUN" ).get( u"Delay" ), u"2000000" );
        GHTTPHeaders second;
        EXPECT_EQ( refresh.hear( second ), !robust );
    }
}

TEST_F( DispatchRobust, DelayBeyondThirtyTwoBitsWrapsAndTheSearchGoesOn )
{
    instance->set( u"Disable_Connection_Timeout", 1 );
    toOnline( );
    for( int64_t delay = 1000000; delay <= 4096000000; delay *= 2 )
    {
        const GHTTPHeaders trial = hearAt( refresh, u"STUN" );
        ASSERT_EQ( trial.calc( u"Delay" ), delay );
        refresh.answer( trial, 200 );
        pass( );
    }
    // Twice what 4,096,000,000 is in 32 bits: it has failed before it began.
    EXPECT_EQ( hearAt( refresh, u"STUN" ).get( u"Delay" ), u"-397934592" );
    EXPECT_EQ( hearAt( refresh, u"STUN" ).get( u"Delay" ), u"1000000" );
}

// ---- The registration.

TEST_F( DispatchRobust, EveryRefusalLeadsToANewIdentityToTheLetter )
{
    toRegistering( );
    for( const GWStringView id : { u"one", u"two", u"three" } )
    {
        TestLog::expect( "WARNING 'REGISTER' failed, suspect device GUID is stale -- requesting new DEVICEGUID" );
        TestLog::allow( "WARNING Request 'REGISTER' failed" );
        sip.answer( hearAt( sip, u"REGISTER" ), 500 );
        pass( );
        ASSERT_EQ( state( ), GDispatchService::DEVICEGUID );
        sip.answer( hearAt( sip, u"DEVICEGUID" ), 200, { { u"Device-GUID", GWString( id ) } } );
        pass( );
        EXPECT_EQ( instance->get( u"Local_Device_GUID" ), id );
    }
    EXPECT_EQ( TestLog::count( "suspect device GUID is stale" ), 3 );
}

TEST_F( DispatchRobust, RefusedRenewalReconnectsOnlyForAnUnknownDevice )
{
    instance->set( u"Disable_Connection_Timeout", 1 );
    for( const bool robust : { false, true } )
        for( const int code : { 500, 404 } )
        {
            startAs( robust );
            toOnline( );
            passes( 1, 900100000 );
            TestLog::allow( "WARNING Request 'REGISTER' failed" );
            const bool lost = robust && code == 404;
            TestLog::expect( lost ? "does not know this device any more, reconnecting."
                                  : "WARNING: Assertion failed. (recvResponse.succeeded( ))" );
            sip.answer( hearAt( sip, u"REGISTER" ), code );
            pass( );
            EXPECT_EQ( state( ), lost ? GDispatchService::OFFLINE : GDispatchService::ONLINE );
        }
}

TEST_F( DispatchRobust, AcceptedRegistrationEndsTheWaitForTheNextAttempt )
{
    startAs( true );
    toRegistering( );
    const GHTTPHeaders first = hearAt( sip, u"REGISTER" );
    TestLog::allow( "WARNING" );
    for( int i = 0; i < 2; ++i )
    {
        sip.answer( first, 500 );
        pass( );
    }
    sip.answer( hearAt( sip, u"REGISTER" ), 200 );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::ONLINE );
}

// ---- Routes.

TEST_F( DispatchRobust, SymmetricHostIsOfferedOnlyWithTheRemedy )
{
    instance->set( u"Force_NAT", u"SYMMETRIC" );
    for( const bool robust : { false, true } )
    {
        startAs( robust );
        connect( );
        answerSTUN( u"6.6.6.6:6000", true, true );
        pass( );
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
        GStringList expected{ GConcat( u"local://", localHost( ) ), GConcat( u"turn://", GLOBAL_HOST ) };
        if( robust ) expected.push_back( u"symmetric://6.6.6.6:6000" );
        EXPECT_EQ( routes( ), expected );
    }
}

TEST_F( DispatchRobust, MappingIsOfferedOnlyWithTheRemedyAndOnlyWhenItIsPublic )
{
    struct Case
    {
        bool robust;
        GWString outside;
        bool offered;
    };
    for( const Case& c : { Case{ false, MAPPED, false }, Case{ true, MAPPED, true },
                           Case{ true, u"192.168.1.7:50000", false }, Case{ true, u"0.0.0.0:0", false },
                           Case{ true, u"127.0.0.1:50000", false }, Case{ true, u"rubbish", false } } )
    {
        startAs( c.robust );
        service->setUPnPFunctions( Gateway::functions( c.outside ) );
        TestLog::clear( );
        connect( );
        ASSERT_TRUE( passWhile( [] { return !TestLog::contains( "Opened UPnP mapping for (" ); } ) );
        EXPECT_TRUE( TestLog::contains( "with (<invalid>)" ) );
        answerSTUN( GLOBAL_HOST, true, true );
        pass( );
        GStringList expected{ GConcat( u"local://", localHost( ) ), GConcat( u"unrestricted://", GLOBAL_HOST ) };
        if( c.offered ) expected.push_back( GConcat( u"unrestricted://", MAPPED ) );
        EXPECT_EQ( routes( ), expected ) << GWideToUTF8( c.outside );
    }
}

TEST_F( DispatchRobust, MappingIsRemovedWhenTheClientGoesOffline )
{
    for( const bool logsOff : { true, false } )
    {
        startAs( false );
        service->setUPnPFunctions( Gateway::functions( MAPPED ) );
        toOnline( );
        ASSERT_TRUE( passWhile( [] { return Gateway::opened == 0; } ) );
        EXPECT_EQ( Gateway::closed, 0 );
        command( logsOff ? u"DISCONNECT" : u"RESET" );
        pass( );
        if( logsOff )
        {
            EXPECT_EQ( Gateway::closed, 0 ) << "the server has not answered yet";
            sip.answer( hearAt( sip, u"UNREGISTER" ), 200 );
            pass( );
        }
        EXPECT_EQ( state( ), GDispatchService::OFFLINE );
        EXPECT_TRUE( GEventWait( Gateway::closing, 10000000 ) );
        EXPECT_EQ( Gateway::closed, 1 );
    }
}

// ---- The relay.

TEST_F( DispatchRobust, RelayIsKeptAliveOnlyWithTheRemedy )
{
    for( const bool robust : { false, true } )
    {
        startAs( robust );
        toRelayed( );
        passes( 29, 1000000 );
        GHTTPHeaders message;
        EXPECT_FALSE( relay.hearNow( message ) );
        passes( 2, 1000000 );
        if( robust )
        {
            ASSERT_TRUE( relay.hear( message ) );
            EXPECT_EQ( message.getContent( 0 ), "HOLEPUNCH" );
        }
        EXPECT_FALSE( relay.hearNow( message ) );
    }
}

TEST_F( DispatchRobust, RelayThatSendsWhatIsNoMessageIsLeft )
{
    toRelayed( );
    TestLog::expect( "sends what is no message, closing." );
    TestLog::expect( "WARNING 'TURN' request failed (or timed out), disconnected." );
    relay.say( GString( "HTTP/1.1 200 OK\r\nno header\r\n\r\n" ) );
    EXPECT_TRUE( passUntil( GDispatchService::OFFLINE ) );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
}

TEST_F( DispatchRobust, RelayedDataOfNoUnicastHostIsDropped )
{
    toRelayed( );
    const GStringVector bad{ u"",        u"0.0.0.0:0", u"255.255.255.255:7", u"224.0.0.1:7", u"1.2.3.4:0",
                             u"1.2.3.4", u"a.b:7" };
    for( const GWString& host : bad ) relay.say( relayed( invite( ), host ) );
    relay.say( relayed( invite( ), u"1.2.3.4:5" ) );
    TestLog::expect( "WARNING Received relay data from TURN server with invalid remote host (224.0.0.1:7), ignoring." );
    TestLog::allow( "with invalid remote host (" );
    int taken = 0;
    EXPECT_TRUE( passWhile( [&] { return ( taken += takeSIP( ) ) < 1; } ) );
    EXPECT_EQ( taken, 1 );
    EXPECT_EQ( TestLog::count( "with invalid remote host (" ), static_cast<int>( bad.size( ) ) );
}

TEST_F( DispatchRobust, FloodOfThePortDoesNotKeepTheRelayFromBeingRead )
{
    instance->set( u"Local_Port", u"" );
    toRelayed( );
    instance->clear( u"Disable_UDP_Recv" );
    relay.say( relayed( media( 2 ), u"1.2.3.4:5" ) );
    // It has come before the pass begins.
    GMegaPortBucket* bucket = nullptr;
    for( int i = 0; i < 2000 && !bucket; ++i )
    {
        for( int j = 0; j < 300; ++j ) sip.say( localHost( ), "x" );
        service->pass( 1000 );
        bucket = megaPort->getRTPBucket( 2 );
        // All that was said is still in the socket: a reader of the port alone would have no turn left.
        if( !bucket ) continue;
        EXPECT_EQ( bucket->remoteHost, u"1.2.3.4:5" );
        megaPort->returnEmptyBucket( bucket );
    }
    EXPECT_TRUE( bucket );
}

TEST_F( DispatchRobust, MessagesThatThePassLeftBehindAreReadWithoutWaiting )
{
    toRelayed( );
    GString stream;
    for( int i = 0; i < 400; ++i ) stream += relayed( media( 2, 20 ), u"1.2.3.4:5" );
    relay.say( stream );
    int taken = 0;
    const auto take = [&]
    {
        for( ; GMegaPortBucket* bucket = megaPort->getRTPBucket( 2 ); ++taken ) megaPort->returnEmptyBucket( bucket );
    };
    for( int i = 0; i < 2000 && taken < 256; ++i )
    {
        service->pass( 1000 );
        take( );
    }
    // Nothing more comes: a wait for the socket would take the whole of its time.
    const uint64_t begin = GTimeGetTime( );
    for( int i = 0; i < 3 && taken < 400; ++i )
    {
        service->pass( 60000000 );
        take( );
    }
    EXPECT_EQ( taken, 400 );
    EXPECT_EQ( GTimeGetTime( ), begin );
}

// ---- Strangers.

TEST_F( DispatchRobust, AnswersCountOnlyFromTheHostThatWasAsked )
{
    startAs( true );
    instance->clear( u"Local_Device_GUID" );
    const auto tryAll = [&]( const GHTTPHeaders& request, int code )
    {
        const GDispatchService::State before = state( );
        for( TestUDPHost* host : { &sip2, &punched } )
            host->answerTo( localHost( ), request, code,
                            { { u"Device-GUID", u"stolen" },
                              { u"Observed-Host", u"6.6.6.6:6" },
                              { u"Reported-Host", request.get( u"Global-Host" ) } } );
        TestLog::clear( );
        TestLog::allow( "WARNING" );
        pass( );
        EXPECT_EQ( TestLog::count( "WARNING Received response from (" ), 2 ) << GWideToUTF8( request.getMethod( ) );
        EXPECT_EQ( state( ), before ) << GWideToUTF8( request.getMethod( ) );
    };
    toChooseServer( );
    const GHTTPHeaders ping = hearAt( sip, u"PING" );
    tryAll( ping, 200 );
    sip.answer( ping, 200 );
    pass( );
    const GHTTPHeaders identity = hearAt( sip, u"DEVICEGUID" );
    tryAll( identity, 200 );
    tryAll( identity, 500 );
    EXPECT_FALSE( instance->isSet( u"Local_Device_GUID" ) );
    sip.answer( identity, 200, { { u"Device-GUID", u"mine" } } );
    pass( );
    const GHTTPHeaders registration = hearAt( sip, u"REGISTER" );
    tryAll( registration, 404 );
    tryAll( registration, 200 );
    sip.answer( registration, 200 );
    pass( );
    ASSERT_EQ( state( ), GDispatchService::ONLINE );
    tryAll( hearAt( sip, u"PING" ), 200 );
    tryAll( hearAt( refresh, u"STUN" ), 200 );
    EXPECT_EQ( instance->get( u"NAT_Refresh_Period_S" ), u"1" );
    command( u"DISCONNECT" );
    pass( );
    tryAll( hearAt( sip, u"UNREGISTER" ), 200 );
    EXPECT_EQ( instance->get( u"Local_Device_GUID" ), u"mine" );
}

TEST_F( DispatchRobust, NumbersThatNobodyAskedUnderAreRefused )
{
    toOnline( );
    for( const GWStringView cseq : { u"0", u"-1", u"99999999999999999999", u"x", u"4294967297" } )
    {
        GHTTPHeaders invented( u"PING" );
        invented.set( u"CSeq", GConcat( cseq, u" (GDispatchService)" ) );
        sip.answerTo( localHost( ), invented, 200, { { u"Observed-Host", u"6.6.6.6:6" } } );
    }
    TestLog::expect( "GMAPCONTAINS( _cseqRequestMap, cseq )" );
    pass( );
    EXPECT_EQ( TestLog::count( "GMAPCONTAINS( _cseqRequestMap, cseq )" ), 5 );
    EXPECT_EQ( state( ), GDispatchService::ONLINE );
}

TEST_F( DispatchRobust, WhatFollowsTheDatagramThatDisconnectsIsDropped )
{
    toOnline( );
    const GHTTPHeaders ping = hearAt( sip, u"PING" );
    TestLog::expect( "WARNING Global mapping has changed after 0s" );
    sip.answer( ping, 200, { { u"Observed-Host", u"6.6.6.6:6" }, { u"Reported-Host", ping.get( u"Global-Host" ) } } );
    sip.answer( ping, 200, { { u"Observed-Host", u"6.6.6.6:6" }, { u"Reported-Host", ping.get( u"Global-Host" ) } } );
    for( int i = 0; i < 40; ++i ) sip.say( localHost( ), i % 2 ? invite( ) : media( 2 ) );
    pass( );
    EXPECT_EQ( state( ), GDispatchService::OFFLINE );
    EXPECT_EQ( notification( ), u"DISCONNECTED" );
    EXPECT_EQ( notification( ), u"" );
    EXPECT_EQ( takeSIP( ), 0 );
}

TEST_F( DispatchRobust, ServerChoiceTellsTheTimeAndTheGlobalHost )
{
    toChooseServer( );
    const GHTTPHeaders ping = hearAt( sip, u"PING" );
    EXPECT_EQ( static_cast<uint64_t>( ping.calc( u"Timestamp" ) ), TestClock::now( ) );
    EXPECT_EQ( ping.get( u"Global-Host" ), GLOBAL_HOST );
}

// ---- The heap.

TEST_F( DispatchRobust, DatagramsFromThePortToTheirConsumersTakeNothingFromTheHeap )
{
    instance->set( u"Disable_Connection_Timeout", 1 );
    toOnline( );
    const GWString host = localHost( );
    // The gateway's thread ends by itself, and its end is told in the log.
    const auto deadline = std::chrono::steady_clock::now( ) + std::chrono::seconds( 20 );
    while( !TestLog::contains( "UPnP failed, ignoring." ) && std::chrono::steady_clock::now( ) < deadline ) pass( );
    ASSERT_TRUE( TestLog::contains( "UPnP failed, ignoring." ) );
    holdsNoHeap( [&]( const GString& datagram ) { sip.say( host, datagram ); } );
}

TEST_F( DispatchRobust, RelayedDatagramsTakeNothingFromTheHeap )
{
    startAs( true );
    toRelayed( );
    holdsNoHeap( [&]( const GString& datagram ) { relay.say( relayed( datagram, u"1.2.3.4:55555" ) ); } );
}
