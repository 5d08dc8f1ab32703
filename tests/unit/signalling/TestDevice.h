// One GDeviceSession and, by hand, the device at the other end: brings the session to any state by the messages of the handshake.
#pragma once

#include "client/signalling/GDeviceSession.h"
#include "client/signalling/GSIPClient.h"
#include "support/TestClock.h"
#include "support/TestLog.h"
#include "unit/signalling/TestPeer.h"

#include <gtest/gtest.h>

#include <memory>

class TestDevice : public testing::Test
{
public:
    static constexpr int64_t SECOND = 1000000;
    using S = GDeviceSession;

    GStringList routes( ) const { return { GConcat( u"local://", far.host( ) ) }; }
    // A message of the far device.
    GHTTPHeaders fromFar( GHTTPHeaders message ) const
    {
        message.set( u"From", u"bob@test" );
        message.set( u"From-Device-GUID", u"D2" );
        message.set( u"CSeq", GNumber( ++_cseq ) );
        message.set( u"Sent-From", far.host( ) );
        message.set( u"Sent-From-Type", u"local" );
        message.set( u"Sent-To", peer.host( ) );
        return message;
    }
    GHTTPHeaders invite( ) const
    {
        GHTTPHeaders message = fromFar( GHTTPHeaders( u"INVITE" ) );
        message.set( u"Try-Route-List", routes( ) );
        message.set( u"Audio-Enabled", u"true" );
        message.set( u"Video-Enabled", u"true" );
        message.set( u"Time-Bias", int64_t( 60 ) );
        message.set( u"Time-Zone", u"CET" );
        return message;
    }
    GHTTPHeaders inviteResponse( int code = 200 ) const
    {
        GHTTPHeaders message = fromFar( respond( code, u"OK" ) );
        message.set( u"Try-Route-List", routes( ) );
        message.set( u"Sent-To-Type", u"restricted" );
        return message;
    }
    GHTTPHeaders proof( GHTTPHeaders message ) const
    {
        message = fromFar( message );
        message.set( u"Send-From", peer.host( ) );
        message.set( u"Send-To", far.host( ) );
        message.set( u"Send-To-Type", u"unrestricted" );
        message.set( u"Sent-To-Type", u"restricted" );
        return message;
    }
    GHTTPHeaders ack( ) const { return proof( GHTTPHeaders( u"ACK" ) ); }
    void request( const GHTTPHeaders& message ) { session->onRequest( peer.host( ), far.host( ), message ); }
    // The stored request carries the answer's number, as the transaction layer sees to it.
    void response( GWStringView method, GHTTPHeaders message, const GWString& from = { } )
    {
        GHTTPHeaders original( method );
        original.set( u"CSeq", message.get( u"CSeq" ) );
        original.set( u"Time-Sent", static_cast<int64_t>( TestClock::now( ) - 30000 ) );
        session->onResponse( peer.host( ), from.empty( ) ? far.host( ) : from, original, message );
    }
    void bringTo( int state )
    {
        switch( state )
        {
        case S::WF_INVITERESPONSE: session->waitForINVITEOK( routes( ) ); break;
        case S::WT_REINVITE:
            bringTo( S::WF_INVITERESPONSE );
            response( u"INVITE", inviteResponse( 300 ) );
            break;
        case S::WF_ACK: request( invite( ) ); break;
        case S::WF_ACKRESPONSE:
            bringTo( S::WF_INVITERESPONSE );
            response( u"INVITE", inviteResponse( ) );
            break;
        case S::CONNECTED:
            bringTo( S::WF_ACK );
            request( ack( ) );
            break;
        case S::WF_BYERESPONSE:
            bringTo( S::CONNECTED );
            session->bye( false );
            break;
        }
        ASSERT_EQ( state, session->getState( ) );
        forget( );
    }
    // Empties the far socket and all queues.
    void forget( )
    {
        far.hear( );
        server.hear( );
        for( const char16_t* queue : QUEUES ) peer.commands( queue );
    }
    size_t countQueued( )
    {
        size_t count = 0;
        for( const char16_t* queue : QUEUES ) count += static_cast<size_t>( peer.instance.length( queue ) );
        return count;
    }
    GWString value( GWStringView name ) { return peer.instance.get( name ); }
    void renew( )
    {
        session.reset( );
        session.reset( make( ) );
        forget( );
    }
    GDeviceSession* make( )
    {
        return GSAFENEW( GDeviceSession, ( &peer.instance, client.get( ), u"bob@test", u"D2" ) );
    }

    static constexpr const char16_t* QUEUES[] = { u"GClient_commandQueue", u"GVideoCaptureService_commandQueue",
                                                  u"GVideoPlaybackService_commandQueue", u"GFileService_commandQueue",
                                                  u"GScreenService_commandQueue" };
    TestClock clock;
    TestHost far;
    TestHost server;
    TestPeer peer{ u"ann@test", u"D1", server.host( ) };
    std::unique_ptr<GSIPClient> client{ GSAFENEW( GSIPClient, ( &peer.port ) ) };
    std::unique_ptr<GDeviceSession> session{ make( ) };

private:
    mutable int _cseq = 100;
};
