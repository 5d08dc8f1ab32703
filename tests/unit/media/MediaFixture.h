// What the tests of the media classes share: a fresh blackboard, a port whose datagrams arrive at a socket of the test, a clock, and
// synthetic pictures and sound.
#pragma once

#include "FakeCapture.h"
#include "FakeSound.h"
#include "client/transport/GMegaPort.h"
#include "client/transport/GRTP.h"
#include "platform/GTime.h"
#include "runtime/GInstance.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <memory>

class MediaFixture : public testing::Test
{
protected:
    static inline std::atomic<uint64_t> now{ 0 };

    void SetUp( ) override
    {
        now = 13000000000000000ULL;
        GTimeSetSource( [] { return now.load( ); } );
        FakeSound::get( ).reset( );
        FakeCapture::get( ).reset( );
        instance.reset( GSAFENEW( GInstance, ( u"media-test-settings.ini" ) ) );
        instance->set( u"Local_User_GUID", u"ann@velmora.local" );
        instance->set( u"Local_Device_GUID", u"dev1" );
        instance->set( u"Video_Size", 48 );
        port.reset( GSAFENEW( GMegaPort, ( u"test" ) ) );
        sender = GNetUDPPortOpen( u"127.0.0.1:0" );
        receiver = GNetUDPPortOpen( u"127.0.0.1:0" );
        port->setUDPPort( sender );
    }
    void TearDown( ) override
    {
        port->reset( );
        port.reset( );
        GNetUDPPortClose( sender );
        GNetUDPPortClose( receiver );
        instance.reset( );
        GFileDelete( u"media-test-settings.ini" );
        GTimeSetSource( nullptr );
    }

    // The next datagram that the port sent, or empty when none has come.
    GString received( )
    {
        GString buffer;
        GWString from;
        GNetWait( { receiver }, { }, { }, 200000 );
        GNetUDPPortRecv( receiver, buffer, from );
        return buffer;
    }
    bool nothingReceived( )
    {
        GString buffer;
        GWString from;
        return !GNetUDPPortRecv( receiver, buffer, from );
    }
    GHTTPHeaders command( GWStringView method, GWStringView name = u"ben@velmora.local@dev2" )
    {
        GHTTPHeaders headers( method );
        headers.set( u"Buddy-Device-GUID", name );
        headers.set( u"Send-To", GNetUDPPortGetLocalHost( receiver ) );
        headers.set( u"Send-From", GNetUDPPortGetLocalHost( sender ) );
        headers.set( u"Recv-From-Host", u"10.0.0.9:5000" );
        headers.set( u"Video-FPS", u"5" );
        headers.set( u"Audio-Enable", u"true" );
        headers.set( u"Video-Enable", u"true" );
        return headers;
    }
    // A picture whose brightness moves with `phase`.
    static GString picture( int width, int height, int phase )
    {
        GString pixels( static_cast<size_t>( width * height * 3 ), '\0' );
        for( int y = 0; y < height; ++y )
            for( int x = 0; x < width; ++x )
                for( int c = 0; c < 3; ++c )
                    pixels[static_cast<size_t>( ( y * width + x ) * 3 + c )] =
                        static_cast<char>( ( x * 2 + y + phase * 16 + c * 40 ) & 0xFF );
        return pixels;
    }
    static GString tone( int samples )
    {
        GString out;
        for( int i = 0; i < samples; ++i )
        {
            const int16_t value = static_cast<int16_t>( 8000 * std::sin( i * 0.14 ) );
            out.append( reinterpret_cast<const char*>( &value ), 2 );
        }
        return out;
    }

    std::unique_ptr<GInstance> instance;
    std::unique_ptr<GMegaPort> port;
    GNetUDPPort* sender = nullptr;
    GNetUDPPort* receiver = nullptr;
};
