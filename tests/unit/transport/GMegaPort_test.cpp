#include "client/transport/GMegaPort.h"

#include "client/transport/GRTP.h"
#include "runtime/GHTTPHeaders.h"
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
