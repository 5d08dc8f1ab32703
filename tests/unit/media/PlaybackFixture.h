// What the tests of playing share: a service, the packets of a sender, and what the client is told.
#pragma once

#include "client/media/GSpeexEncoder.h"
#include "client/media/GTheoraEncoder.h"
#include "client/media/GVideoPlaybackService.h"

#include "MediaFixture.h"

class PlaybackFixture : public MediaFixture
{
protected:
    static constexpr char16_t BEN[] = u"ben@velmora.local@dev2";
    static constexpr char16_t HOST[] = u"10.0.0.9:5000";

    void SetUp( ) override
    {
        MediaFixture::SetUp( );
        TestLog::allow( "WARNING Clipping audio=" );
        service.reset( GSAFENEW( GVideoPlaybackService, ( instance.get( ), port.get( ) ) ) );
        theora.reset( GSAFENEW( GTheoraEncoder, ( { GIT_RGB24, 48, 48 }, { 0, 0, 48, 48 }, 48, 48, 5 ) ) );
        speex.reset( GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( 22000 ) ) ) );
    }
    void TearDown( ) override
    {
        if( service ) service->_bGThreadObject_safe_onShutdown( );
        service.reset( );
        theora.reset( );
        speex.reset( );
        MediaFixture::TearDown( );
    }
    void loop( )
    {
        const GObjectLock scope( *service );
        service->pass( 0 );
    }
    void open( )
    {
        instance->enqueue( u"GVideoPlaybackService_commandQueue", command( u"OPEN" ) );
        loop( );
    }
    void deliver( const GString& packet, GWStringView host = HOST )
    {
        GMegaPortBucket* bucket = port->getEmtpyBucket( );
        bucket->buffer = packet;
        bucket->remoteHost = host;
        port->fillRTPBucket( bucket );
    }
    static GString media( int type, uint16_t sequence, uint32_t word, const GString& frame )
    {
        return media( type, sequence, 100U * sequence, word, frame );
    }
    static GString media( int type, uint16_t sequence, uint32_t stamp, uint32_t word, const GString& frame,
                          uint32_t ssrc = 7 )
    {
        GString out;
        const char prefix[4] = { static_cast<char>( word ), static_cast<char>( word >> 8 ),
                                 static_cast<char>( word >> 16 ), static_cast<char>( word >> 24 ) };
        GRTPCompose( out, type, sequence, stamp, ssrc, prefix, 4, frame.data( ), static_cast<int>( frame.size( ) ) );
        return out;
    }
    GString videoFrame( int phase )
    {
        GString packet;
        theora->encode( picture( 48, 48, phase ).data( ), 48 * 48 * 3, packet );
        return packet;
    }
    GString audioFrame( )
    {
        GString packet;
        speex->encode( tone( 1120 ).data( ), 2240, packet );
        return packet;
    }
    bool hasImage( ) { return instance->isSet( u"ben@velmora.local_Image" ); }
    int listeningCommands( )
    {
        int found = 0;
        GString item;
        while( instance->dequeue( u"GClient_commandQueue", item ) )
        {
            GHTTPHeaders message;
            message.deserialize( item );
            found += message.isMethod( u"LISTENINGTO" ) && message.get( u"User-GUID" ) == u"ben@velmora.local";
        }
        return found;
    }

    std::unique_ptr<GVideoPlaybackService> service;
    std::unique_ptr<GTheoraEncoder> theora;
    std::unique_ptr<GSpeexEncoder> speex;
};
