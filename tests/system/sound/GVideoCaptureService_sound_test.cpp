// The capture service on real devices that go and come back.
#include "CaptureListener.h"
#include "client/media/GSpeexDecoder.h"
#include "client/media/GVideoCaptureService.h"
#include "client/transport/GRTP.h"
#include "support/TestLog.h"
#include "support/TestSound.h"

#include <memory>

namespace
{
using TestSound::becomes;

GString plugIn( )
{
    return TestSound::ask( "pactl load-module module-remap-source source_name=plug master=micsink.monitor "
                           "source_properties=device.description=Plug" );
}
} // namespace

class GVideoCaptureServiceSound : public testing::Test
{
protected:
    void SetUp( ) override
    {
        TestLog::allow( "WARNING Non-ideal video match" );
        TestLog::allow( "WARNING Packet size" );
        sender = GNetUDPPortOpen( u"127.0.0.1:0" );
        receiver = GNetUDPPortOpen( u"127.0.0.1:0" );
        instance.reset( GSAFENEW( GInstance, ( u"capture-sound-test.ini" ) ) );
        instance->set( u"Local_User_GUID", u"ann@velmora.local" );
        instance->set( u"Local_Device_GUID", u"dev1" );
        instance->set( u"Video_Size", 48 );
        instance->set( u"Robust_Media", 1 );
        port.reset( GSAFENEW( GMegaPort, ( u"test" ) ) );
        port->setUDPPort( sender );
        service.reset( GSAFENEW( GVideoCaptureService, ( instance.get( ), port.get( ) ) ) );
    }
    void TearDown( ) override
    {
        service->stop( true );
        service.reset( );
        port->reset( );
        port.reset( );
        instance.reset( );
        GFileDelete( u"capture-sound-test.ini" );
        GNetUDPPortClose( sender );
        GNetUDPPortClose( receiver );
    }
    // With one stream to the test's own port.
    void start( const GWString& microphone, const GWString& camera )
    {
        instance->set( u"Audio_Capture_Device", microphone );
        instance->set( u"Video_Capture_Device", camera );
        service->start( u"GVideoCaptureService" );
        ASSERT_TRUE( isStatus( u"Audio", u"Online" ) );
        GHTTPHeaders open( u"OPEN" );
        open.set( u"Buddy-Device-GUID", u"ben@velmora.local@dev2" );
        open.set( u"Send-To", GNetUDPPortGetLocalHost( receiver ) );
        open.set( u"Send-From", GNetUDPPortGetLocalHost( sender ) );
        open.set( u"Video-FPS", u"5" );
        open.set( u"Audio-Enable", u"true" );
        open.set( u"Video-Enable", u"true" );
        instance->enqueue( u"GVideoCaptureService_commandQueue", open );
    }
    bool isStatus( GWStringView medium, GWStringView status )
    {
        return becomes( [&] { return instance->get( GConcat( medium, u"_Capture_Status" ) ) == status; } );
    }
    int peersTold( ) { return instance->length( u"GSIPService_commandQueue" ); }
    // The next packet of that type that was sent from now on; empty when none comes.
    GString next( int payloadType )
    {
        GString packet;
        GWString from;
        while( GNetUDPPortRecv( receiver, packet, from ) )
        {
        }
        const bool came = becomes(
            [&]
            {
                GNetWait( { receiver }, { }, { }, 100000 );
                return GNetUDPPortRecv( receiver, packet, from ) && packet.size( ) > 16 && packet[1] == payloadType;
            } );
        return came ? packet : GString( );
    }

    std::unique_ptr<GInstance> instance;
    std::unique_ptr<GMegaPort> port;
    std::unique_ptr<GVideoCaptureService> service;
    GNetUDPPort* sender = nullptr;
    GNetUDPPort* receiver = nullptr;
};

TEST_F( GVideoCaptureServiceSound, AMicrophoneThatIsPulledIsAnErrorAndOpenedAgainWhenItIsBack )
{
    TestLog::expect( "WARNING Capture device failed: " );
    inject( "test camera" );
    const GString plug = plugIn( );
    start( u"Plug", u"test camera" );
    EXPECT_TRUE( isStatus( u"Video", u"Online" ) );
    EXPECT_FALSE( next( GRTP_AUDIO ).empty( ) );
    const int told = peersTold( );
    ASSERT_TRUE( TestSound::run( "pactl unload-module " + plug ) );
    EXPECT_TRUE( isStatus( u"Audio", u"Error" ) );
    EXPECT_TRUE( becomes( [&] { return peersTold( ) > told; } ) );
    EXPECT_EQ( instance->get( u"Audio_Capture_Online" ), u"false" );
    EXPECT_EQ( instance->get( u"Video_Capture_Status" ), u"Online" );
    EXPECT_FALSE( next( GRTP_VIDEO ).empty( ) );
    const GString again = plugIn( );
    EXPECT_TRUE( isStatus( u"Audio", u"Online" ) );
    EXPECT_FALSE( next( GRTP_AUDIO ).empty( ) );
    EXPECT_FALSE( next( GRTP_VIDEO ).empty( ) );
    EXPECT_EQ( TestLog::count( "WARNING Capture device failed: " ), 1 );
    service->stop( true );
    EXPECT_TRUE( TestSound::run( "pactl unload-module " + again ) );
}

TEST_F( GVideoCaptureServiceSound, ACameraThatDiesIsSeenAtOnceAndTriedAgain )
{
    TestLog::expect( "WARNING Capture device failed: " );
    inject( "video:short camera=videotestsrc is-live=true num-buffers=40;tone microphone" );
    start( u"tone microphone", u"short camera" );
    EXPECT_TRUE( isStatus( u"Video", u"Error" ) );
    EXPECT_EQ( instance->get( u"Audio_Capture_Status" ), u"Online" );
    EXPECT_TRUE( isStatus( u"Video", u"Online" ) );
    EXPECT_FALSE( next( GRTP_VIDEO ).empty( ) );
    EXPECT_FALSE( next( GRTP_AUDIO ).empty( ) );
}

TEST_F( GVideoCaptureServiceSound, APacketOfARealMicrophoneHoldsTwoCodecFrames )
{
    inject( "tone microphone" );
    start( u"tone microphone", u"" );
    GString codebook;
    GSpeexEncoder_generateCodebook( codebook, 22000 );
    GSpeexDecoder decoder( codebook.data( ), static_cast<int>( codebook.size( ) ) );
    for( int i = 0; i < 5; ++i )
    {
        const GString packet = next( GRTP_AUDIO );
        ASSERT_FALSE( packet.empty( ) );
        GString samples;
        decoder.decode( packet.data( ) + 16, static_cast<int>( packet.size( ) ) - 16, samples );
        EXPECT_EQ( samples.size( ), 640U );
    }
}
