#include "client/transport/GMegaPort.h"

#include "client/transport/GRTP.h"
#include "runtime/GHTTPHeaders.h"
#include "support/CountAllocations.h"
#include "support/TestClock.h"
#include "support/TestLog.h"
#include "support/TestTcpServer.h"

#include <gtest/gtest.h>

namespace
{
constexpr char16_t GLOBAL_HOST[] = u"5.5.5.5:7000";

GString makePacket( int secondByte )
{
    GString packet( 12, '\0' );
    packet[0] = '\x80';
    packet[1] = static_cast<char>( secondByte );
    return packet;
}

class MegaPort : public testing::Test
{
protected:
    MegaPort( ) : _port( GSAFENEW( GMegaPort, ( u"me@velmora.local" ) ) ) {}
    ~MegaPort( ) override
    {
        if( _port ) delete _port;
        if( _udp ) GNetUDPPortClose( _udp );
        if( _peer ) GNetUDPPortClose( _peer );
        if( _tcp ) GNetTCPSocketClose( _tcp );
    }
    void openUDP( )
    {
        _udp = GNetUDPPortOpen( u"127.0.0.1:0" );
        _peer = GNetUDPPortOpen( u"127.0.0.1:0" );
        ASSERT_TRUE( _udp && _peer );
        _port->setUDPPort( _udp );
    }
    void openRelay( )
    {
        _tcp = GNetTCPSocketOpen( _relay.host( ) );
        ASSERT_TRUE( _tcp );
        ASSERT_TRUE( _relay.accept( ) );
        _port->setTCPSocket( _tcp, GLOBAL_HOST );
    }
    bool peerGot( GString& data )
    {
        GNetWait( { _peer }, { }, { }, 1000000 );
        GWString from;
        return GNetUDPPortRecv( _peer, data, from );
    }
    void fillRTP( int secondByte )
    {
        GMegaPortBucket* bucket = _port->getEmtpyBucket( );
        bucket->buffer = makePacket( secondByte );
        _port->fillRTPBucket( bucket );
    }
    // Takes and gives back; false when the list is empty.
    bool takeRTP( int type )
    {
        GMegaPortBucket* bucket = _port->getRTPBucket( type );
        if( !bucket ) return false;
        _port->returnEmptyBucket( bucket );
        return true;
    }
    void send( const GWString& from, const GString& data )
    {
        _port->send( from, _peer->host, data.data( ), static_cast<int>( data.size( ) ) );
    }

    TestTcpServer _relay;
    GMegaPort* _port;
    GNetUDPPort* _udp = nullptr;
    GNetUDPPort* _peer = nullptr;
    GNetTCPSocket* _tcp = nullptr;
};
} // namespace

TEST_F( MegaPort, PacketOfElevenBytesIsNoMedia )
{
    GRTPHeader header;
    int remaining = 0;
    const GString packet = makePacket( GRTP_AUDIO );
    EXPECT_TRUE( GDecomposeRTP( packet.data( ), 12, header, remaining ) );
    EXPECT_FALSE( GDecomposeRTP( packet.data( ), 11, header, remaining ) );
    TestLog::expect( "WARNING Trying to fill bucket with malformed RTP buffer; ignoring." );
    GMegaPortBucket* bucket = _port->getEmtpyBucket( );
    bucket->buffer = packet.substr( 0, 11 );
    _port->fillRTPBucket( bucket );
    EXPECT_FALSE( takeRTP( GRTP_AUDIO ) );
}

TEST_F( MegaPort, EachTypeHasItsListAndSenderReportsTravelWithTheSound )
{
    for( const int type : { GRTP_AUDIO, GRTP_VIDEO, GRTP_FILE, GRTP_SCREEN } )
    {
        fillRTP( type );
        EXPECT_TRUE( takeRTP( type ) );
        EXPECT_FALSE( takeRTP( type ) );
    }
    fillRTP( GRTP_RTCPSR );
    EXPECT_TRUE( takeRTP( GRTP_AUDIO ) );
}

TEST_F( MegaPort, UnsupportedTypeIsRefusedAndItsBucketReturnsToThePool )
{
    TestLog::expect( "WARNING Attempting to fill RTP bucket for unsupported payload type #5, ignoring." );
    fillRTP( 5 );
    EXPECT_FALSE( takeRTP( 5 ) );
}

TEST_F( MegaPort, MarkerBitMakesAnotherTypeThatHasNoList )
{
    TestLog::expect( "WARNING Attempting to fill RTP bucket for unsupported payload type #129, ignoring." );
    fillRTP( GRTP_AUDIO | 0x80 );
    EXPECT_FALSE( takeRTP( GRTP_AUDIO ) );
}

TEST_F( MegaPort, ListsAreBoundedAndLoseTheOldest )
{
    for( int i = 0; i < 3000; ++i )
    {
        GMegaPortBucket* bucket = _port->getEmtpyBucket( );
        bucket->buffer = std::to_string( i );
        _port->fillSIPBucket( bucket );
    }
    GMegaPortBucket* bucket = _port->getSIPBucket( );
    ASSERT_TRUE( bucket );
    EXPECT_EQ( bucket->buffer, std::to_string( 3000 - 2048 ) );
    _port->returnEmptyBucket( bucket );
    _port->reset( );
}

TEST_F( MegaPort, SendBeforeThePortIsSetWarns )
{
    TestLog::expect( "WARNING Cannot send from () to (1.2.3.4:5) because not connected, ignoring." );
    _port->send( { }, u"1.2.3.4:5", "x", 1 );
    EXPECT_EQ( _port->getLocalHost( ), u"0.0.0.0:0" );
    EXPECT_EQ( _port->getGlobalHost( ), u"0.0.0.0:0" );
}

TEST_F( MegaPort, LocalHostGoesByUDPAndEmptyOrGlobalByTheRelay )
{
    openUDP( );
    openRelay( );
    GString data;
    send( _port->getLocalHost( ), "direct" );
    ASSERT_TRUE( peerGot( data ) );
    EXPECT_EQ( data, "direct" );
    for( const GWString& from : { GWString( ), GWString( GLOBAL_HOST ) } )
    {
        send( from, "relayed" );
        GHTTPHeaders message;
        ASSERT_TRUE( _relay.hear( message ) );
        EXPECT_TRUE( message.isMethod( u"SENDUDP" ) );
        EXPECT_EQ( message.get( u"Remote-Host" ), _peer->host );
        EXPECT_EQ( message.getContent( 0 ), "relayed" );
    }
    _port->reset( );
}

TEST_F( MegaPort, StrangeSenderIsWarnedOfAndGoesByUDPAllTheSame )
{
    openUDP( );
    TestLog::expect( "WARNING Possibly send from mismatch: from=(9.9.9.9:9), localHost=(" );
    send( u"9.9.9.9:9", "x" );
    GString data;
    EXPECT_TRUE( peerGot( data ) );
    _port->reset( );
}

TEST_F( MegaPort, ResetReturnsWaitingBucketsAndForgetsTheHosts )
{
    openUDP( );
    fillRTP( GRTP_AUDIO );
    fillRTP( GRTP_SCREEN );
    _port->fillSIPBucket( _port->getEmtpyBucket( ) );
    _port->reset( );
    EXPECT_EQ( _port->getLocalHost( ), u"0.0.0.0:0" );
    // The destructor counts the buckets.
    delete _port;
    _port = nullptr;
}

TEST_F( MegaPort, BucketThatNobodyReturnedShowsAtDestruction )
{
    TestLog::expect( "_numBucketsCreated == (int)_emptyBucketList.size( )" );
    GMegaPortBucket* bucket = _port->getEmtpyBucket( );
    delete _port;
    _port = nullptr;
    delete bucket;
}

TEST_F( MegaPort, BucketsKeepTheirCapacityThroughReuse )
{
    GMegaPortBucket* bucket = _port->getEmtpyBucket( );
    bucket->buffer.assign( 1472, 'x' );
    const char* data = bucket->buffer.data( );
    _port->returnEmptyBucket( bucket );
    GMegaPortBucket* again = _port->getEmtpyBucket( );
    EXPECT_EQ( again, bucket );
    EXPECT_EQ( again->buffer.data( ), data );
    _port->returnEmptyBucket( again );
}

TEST_F( MegaPort, WaitEndsOnceForEachFillAndForEitherOfTwoTypes )
{
    fillRTP( GRTP_VIDEO );
    _port->waitForRTPBucket( 60000000, GRTP_AUDIO, GRTP_VIDEO );
    EXPECT_TRUE( takeRTP( GRTP_VIDEO ) );
    fillRTP( GRTP_FILE );
    _port->waitForRTPBucket( 60000000, GRTP_FILE );
    EXPECT_TRUE( takeRTP( GRTP_FILE ) );
    fillRTP( GRTP_FILE );
    _port->waitForRTPBucket( 60000000, 5, GRTP_FILE );
    EXPECT_TRUE( takeRTP( GRTP_FILE ) );
    _port->fillSIPBucket( _port->getEmtpyBucket( ) );
    _port->waitForSIPBucket( 60000000 );
    _port->reset( );
}

TEST_F( MegaPort, WaitOnUnsupportedTypesSleepsTheWholeTime )
{
    TestClock clock;
    const uint64_t before = TestClock::now( );
    TestLog::expect( "WARNING Trying to wait on unsupported RTP payload type #9, ignoring." );
    _port->waitForRTPBucket( 1000, 9 );
    TestLog::expect( "WARNING Trying to wait on unsupported RTP payload types #9 and #10, ignoring." );
    _port->waitForRTPBucket( 2000, 9, 10 );
    EXPECT_EQ( TestClock::now( ), before + 3000 );
}

TEST_F( MegaPort, WithTheRemedyWholeMessagesAreDroppedWhenTheRelayIsBusy )
{
    TestTcpServer slow( 4096 );
    openUDP( );
    GNetTCPSocket* socket = GNetTCPSocketOpen( slow.host( ) );
    ASSERT_TRUE( socket && slow.accept( ) );
    _port->setRobust( true );
    _port->setTCPSocket( socket, GLOBAL_HOST );
    constexpr int COUNT = 8000;
    for( int i = 0; i < COUNT; ++i ) send( { }, GString( 1024, static_cast<char>( 'a' + i % 26 ) ) );
    // Whatever came through is whole, although far less than everything did.
    int heard = 0;
    GHTTPHeaders message;
    for( ;; )
    {
        _port->flush( );
        if( !slow.hearNow( message ) ) break;
        ++heard;
        ASSERT_EQ( message.getContent( 0 ).size( ), 1024u );
    }
    EXPECT_GT( heard, 100 );
    EXPECT_LT( heard, COUNT );
    _port->reset( );
    GNetTCPSocketClose( socket );
}

TEST_F( MegaPort, WithoutTheRemedyABusyRelayLosesPartsOfMessages )
{
    TestTcpServer slow( 4096 );
    openUDP( );
    GNetTCPSocket* socket = GNetTCPSocketOpen( slow.host( ) );
    ASSERT_TRUE( socket && slow.accept( ) );
    _port->setTCPSocket( socket, GLOBAL_HOST );
    for( int i = 0; i < 8000; ++i ) send( { }, GString( 1024, 'x' ) );
    // Room again: what follows a message that was cut is not where it is looked for.
    int broken = 0;
    GHTTPHeaders message;
    for( int round = 0; round < 200 && !broken; ++round )
    {
        while( slow.hearNow( message ) )
            if( !message.isMethod( u"SENDUDP" ) || message.getContent( 0 ) != GString( 1024, 'x' ) ) ++broken;
        send( { }, GString( 1024, 'x' ) );
    }
    EXPECT_GT( broken, 0 );
    _port->reset( );
    GNetTCPSocketClose( socket );
}

TEST_F( MegaPort, WriterOfTheRelayHoldsNoMoreThanItsBound )
{
    TestTcpServer slow( 4096 );
    openUDP( );
    GNetTCPSocket* socket = GNetTCPSocketOpen( slow.host( ) );
    ASSERT_TRUE( socket && slow.accept( ) );
    _port->setRobust( true );
    _port->setTCPSocket( socket, GLOBAL_HOST );
    for( int i = 0; i < 20000; ++i ) send( { }, GString( 1024, 'x' ) );
    const size_t held = _port->takeUnsent( ).size( );
    // Full up to less than one message more.
    EXPECT_LE( held, 262144u );
    EXPECT_GT( held, 262144u - 1200 );
    _port->reset( );
    GNetTCPSocketClose( socket );
}

TEST_F( MegaPort, BatchGoesTheWayOfASingleDatagram )
{
    openUDP( );
    const std::vector<GNetOutgoing> batch{ { _peer->host, "one" }, { _peer->host, "two" } };
    _port->send( { }, batch );
    GString data;
    for( const char* text : { "one", "two" } )
    {
        ASSERT_TRUE( peerGot( data ) );
        EXPECT_EQ( data, text );
    }
    openRelay( );
    for( const bool robust : { false, true } )
    {
        _port->setRobust( robust );
        _port->send( GLOBAL_HOST, batch );
        GHTTPHeaders message;
        for( const char* text : { "one", "two" } )
        {
            ASSERT_TRUE( _relay.hear( message ) );
            EXPECT_EQ( message.getContent( 0 ), text );
        }
    }
    TestLog::expect( "WARNING Possibly send from mismatch: from=(9.9.9.9:9), localHost=(" );
    _port->send( u"9.9.9.9:9", batch );
    EXPECT_EQ( TestLog::count( "send from mismatch" ), 1 );
    EXPECT_TRUE( peerGot( data ) );
    _port->send( u"9.9.9.9:9", std::span<const GNetOutgoing>( ) );
    _port->reset( );
    TestLog::expect( "WARNING Cannot send from () to (" );
    _port->send( { }, batch );
}

TEST_F( MegaPort, FillsOfABatchWakeTheirWaitersOnceAtTheEnd )
{
    TestClock clock;
    _port->beginFill( );
    fillRTP( GRTP_VIDEO );
    fillRTP( GRTP_VIDEO );
    fillRTP( GRTP_AUDIO );
    _port->fillSIPBucket( _port->getEmtpyBucket( ) );
    _port->waitForRTPBucket( 0, GRTP_VIDEO ); // Nobody has been woken so far: the next wait would end at once.
    _port->endFill( );
    for( const int type : { GRTP_VIDEO, GRTP_AUDIO } ) _port->waitForRTPBucket( 60000000, type );
    _port->waitForSIPBucket( 60000000 );
    // What is filled later wakes by itself again.
    fillRTP( GRTP_VIDEO );
    _port->waitForRTPBucket( 60000000, GRTP_VIDEO );
    _port->reset( );
}

TEST_F( MegaPort, ListOfTheLargestDatagramsIsBoundedByItsBytes )
{
    GString packet( 65507, 'x' );
    packet.replace( 0, 12, makePacket( GRTP_FILE ) );
    for( int i = 0; i < 300; ++i )
    {
        packet.back( ) = static_cast<char>( i );
        GMegaPortBucket* bucket = _port->getEmtpyBucket( );
        bucket->buffer = packet;
        _port->fillRTPBucket( bucket );
    }
    size_t bytes = 0;
    while( GMegaPortBucket* bucket = _port->getRTPBucket( GRTP_FILE ) )
    {
        bytes += bucket->buffer.size( );
        packet = bucket->buffer;
        _port->returnEmptyBucket( bucket );
    }
    EXPECT_LE( bytes, 4u << 20 );
    EXPECT_GT( bytes, ( 4u << 20 ) - 2 * 65507 );
    EXPECT_EQ( packet.back( ), static_cast<char>( 299 ) ) << "the newest stay";
}

TEST_F( MegaPort, PoolDoesNotKeepTheRoomOfTheLargestDatagrams )
{
    GMegaPortBucket* bucket = _port->getEmtpyBucket( );
    bucket->buffer.assign( 65507, 'x' );
    _port->returnEmptyBucket( bucket );
    EXPECT_LE( bucket->buffer.capacity( ), 16384u );
}

TEST_F( MegaPort, BucketsLeaveThePoolAtTheFrontAndEnterAtTheEnd )
{
    GMegaPortBucket* buckets[3] = { };
    _port->getEmptyBuckets( buckets, 3 );
    GMegaPortBucket* const kept = buckets[1];
    _port->returnEmptyBucket( buckets[2] );
    _port->returnEmptyBucket( buckets[0] );
    EXPECT_EQ( _port->getEmtpyBucket( ), buckets[2] );
    // Only what is missing is filled in.
    GMegaPortBucket* again[3] = { kept, nullptr, buckets[2] };
    _port->getEmptyBuckets( again, 3 );
    EXPECT_EQ( again[0], kept );
    EXPECT_EQ( again[1], buckets[0] );
    EXPECT_EQ( again[2], buckets[2] );
    for( GMegaPortBucket* bucket : again ) _port->returnEmptyBucket( bucket );
}

TEST_F( MegaPort, FromBucketToConsumerAndBackTakesNothingFromTheHeap )
{
    const GString packet = makePacket( GRTP_VIDEO ) + GString( 1200, 'x' );
    const auto circulate = [&]
    {
        // More at once than one block of a queue would hold.
        for( int i = 0; i < 300; ++i )
        {
            GMegaPortBucket* bucket = _port->getEmtpyBucket( );
            bucket->buffer = packet;
            bucket->localHost = u"127.0.0.1:12345";
            bucket->remoteHost = u"127.0.0.1:54321";
            i % 2 ? _port->fillRTPBucket( bucket ) : _port->fillSIPBucket( bucket );
        }
        while( takeRTP( GRTP_VIDEO ) )
        {
        }
        while( GMegaPortBucket* bucket = _port->getSIPBucket( ) ) _port->returnEmptyBucket( bucket );
    };
    circulate( );
    EXPECT_EQ( countAllocations( circulate ), 0 );
}

TEST_F( MegaPort, SendingTakesNothingFromTheHeap )
{
    openUDP( );
    const GString packet( 1200, 'x' );
    const GWString direct = _port->getLocalHost( );
    const GWString relayed = GLOBAL_HOST;
    const std::vector<GNetOutgoing> batch( 40, { _peer->host, packet } );
    const auto sendDirect = [&]
    {
        send( direct, packet );
        _port->send( direct, batch );
    };
    sendDirect( );
    EXPECT_EQ( countAllocations( sendDirect ), 0 );
    openRelay( );
    for( const bool robust : { false, true } )
    {
        _port->setRobust( robust );
        const auto sendRelayed = [&]
        {
            send( relayed, packet );
            _port->send( relayed, batch );
        };
        sendRelayed( );
        EXPECT_EQ( countAllocations( sendRelayed ), 0 ) << robust;
    }
    _port->reset( );
}

TEST_F( MegaPort, WithTheRemedyTheWriterGoesOnWithTheRestOfAMessage )
{
    openUDP( );
    openRelay( );
    _port->reset( );
    _port->setRobust( true );
    GHTTPHeaders begun( u"SENDUDP" );
    begun.addContent( "begun by another" );
    const GString bytes = begun.serialize( );
    ASSERT_EQ( GNetTCPSocketSend( _tcp, bytes.data( ), 10 ), 10 );
    _port->setTCPSocket( _tcp, GLOBAL_HOST, bytes.substr( 10 ) );
    send( { }, "next" );
    GHTTPHeaders message;
    for( const char* text : { "begun by another", "next" } )
    {
        ASSERT_TRUE( _relay.hear( message ) );
        EXPECT_EQ( message.getContent( 0 ), text );
    }
    _port->reset( );
}

TEST_F( MegaPort, TakingTheUnsentLetsGoOfTheRelay )
{
    openUDP( );
    openRelay( );
    _port->setRobust( true );
    EXPECT_EQ( _port->takeUnsent( ), "" );
    send( { }, "direct now" );
    GString data;
    EXPECT_TRUE( peerGot( data ) );
    _port->reset( );
}

TEST( MegaPortDeathTest, NullPortAndNoHostAreRefused )
{
    EXPECT_DEATH( GMegaPort( u"" ).setUDPPort( nullptr ), "udpPort" );
    EXPECT_DEATH( GMegaPort( u"" ).setTCPSocket( nullptr, u"1.2.3.4:5" ), "tcpSocket" );
    GNetTCPSocket socket;
    EXPECT_DEATH( GMegaPort( u"" ).setTCPSocket( &socket, u"0.0.0.0:0" ), "GValidHost\\( globalHost \\)" );
    EXPECT_DEATH( GMegaPort( u"" ).waitForRTPBucket( 0, 256 ), "GWITHIN\\( 0, payloadType, 255 \\)" );
    EXPECT_DEATH( GMegaPort( u"" ).waitForSIPBucket( -1 ), "timeout >= 0" );
}
