// A dispatch service on a clock of its own, with real datagrams on loopback: STUN hosts, signalling servers and a relay that say
// what the test tells them to. Nothing waits on wall time: a datagram on loopback has arrived when the send returns.
#pragma once

#include "client/signalling/GDispatchService.h"
#include "client/transport/GMegaPort.h"
#include "platform/GNet.h"
#include "runtime/GInstance.h"
#include "support/TestClock.h"
#include "support/TestTcpServer.h"

#include <gtest/gtest.h>
#include <utility>

// One host of the network, with what it heard last.
class TestUDPHost
{
public:
    TestUDPHost( ) : _port( GNetUDPPortOpen( u"127.0.0.1:0" ) ) {}
    ~TestUDPHost( ) { GNetUDPPortClose( _port ); }
    // Something was said that the service has not read yet.
    static inline bool said = false;
    static constexpr int64_t PATIENCE = 2000000;

    TestUDPHost( const TestUDPHost& ) = delete;
    TestUDPHost& operator=( const TestUDPHost& ) = delete;

    const GWString& host( ) const { return _port->host; }
    const GWString& from( ) const { return _from; }
    // Waits for a datagram that is known to be on its way; a busy machine delivers late.
    void await( ) const { GNetWait( { _port }, { }, { }, PATIENCE ); }
    // Next datagram as it is; false when there is none.
    bool hearRaw( GString& data )
    {
        GWString from;
        if( !GNetUDPPortRecv( _port, data, from ) ) return false;
        _from = from;
        return true;
    }
    // Next message, passing over what is none.
    bool hear( GHTTPHeaders& message )
    {
        GString data;
        while( hearRaw( data ) )
            if( message.deserialize( data ) ) return true;
        return false;
    }
    void say( const GWString& to, const GString& data ) const
    {
        said = true;
        GNetUDPPortSend( _port, to, data.data( ), static_cast<int>( data.size( ) ) );
    }
    // Answers that request to the host that it came from last.
    void answer( const GHTTPHeaders& request, int code, const std::map<GWString, GWString>& headers = { } ) const
    {
        answerTo( _from, request, code, headers );
    }
    void answerTo( const GWString& to, const GHTTPHeaders& request, int code,
                   const std::map<GWString, GWString>& headers = { } ) const
    {
        GHTTPHeaders response;
        response.setResponse( code, code == 200 ? u"OK" : u"Refused" );
        response.set( u"CSeq", request.get( u"CSeq" ) );
        for( const auto& [name, value] : headers ) response.set( name, value );
        say( to, response.serialize( ) );
    }

private:
    GNetUDPPort* _port;
    GWString _from;
};

class TestDispatch : public testing::Test
{
protected:
    TestDispatch( );
    ~TestDispatch( ) override;

    void pass( );
    static constexpr int64_t ARRIVAL = 20000;
    // Passes until the state is reached, for what comes over TCP; the clock stands still meanwhile.
    bool passUntil( GDispatchService::State wanted );
    void passes( int count, int64_t period );
    void command( GWStringView method )
    {
        instance->enqueue( u"GDispatchService_commandQueue", GHTTPHeaders( method ) );
    }
    // The next notification to the client; empty when there is none.
    GWString notification( );
    void connect( );
    // Answers the STUN request on its way as the three hosts would.
    void answerSTUN( const GWString& globalHost, bool punched, bool unpunched );
    // From Offline to each state, on a restricted network.
    void toChooseServer( );
    void toRegistering( );
    void toOnline( );
    // Over a relay, up to Online.
    void toRelayed( );
    void toTURN( GHTTPHeaders& openRequest );
    void answerRelayed( GWStringView method );
    // The next message of that method inside a SENDUDP.
    GHTTPHeaders hearRelayed( GWStringView method );
    void sayRelayed( const GString& data );
    GHTTPHeaders hearAt( TestUDPHost& host, GWStringView method );
    GDispatchService::State state( ) const { return service->getState( ); }

    static constexpr char16_t GLOBAL_HOST[] = u"5.5.5.5:7000";
    TestClock clock;
    TestUDPHost direct, punched, unpunched, refresh, sip, sip2;
    TestUDPHost
        fence; // Says something to itself: what was said before has arrived when it hears it, however busy the machine is.
    TestTcpServer relay;
    GInstance* instance;
    GMegaPort* megaPort;
    GDispatchService* service;
};
