// Ends of signalling on loopback: TestHost is a bare socket that plays a server or a peer by hand, TestPeer a client's blackboard
// and shared port, whose datagrams the test hands over as the dispatch service would. Loopback delivers at once, so nothing waits.
#pragma once

#include "client/transport/GMegaPort.h"
#include "runtime/GHTTPHeaders.h"
#include "runtime/GInstance.h"

#include <functional>
#include <vector>

struct Heard
{
    GWString from;
    GString bytes;
    GHTTPHeaders message;
};

class TestHost
{
public:
    TestHost( );
    ~TestHost( );
    TestHost( const TestHost& ) = delete;
    TestHost& operator=( const TestHost& ) = delete;
    const GWString& host( ) const { return _host; }
    GNetUDPPort* port( ) const { return _port; }
    void send( const GWString& to, const GHTTPHeaders& message ) const;
    void sendBytes( const GWString& to, const GString& bytes ) const;
    // All that has come in since the last call.
    std::vector<Heard> hear( ) const;
    // The messages of that method, or the answers to it; the rest is forgotten.
    std::vector<Heard> hear( GWStringView method ) const;

private:
    GNetUDPPort* _port;
    GWString _host;
};

class TestPeer
{
public:
    TestPeer( const GWString& user, const GWString& device, const GWString& serverHost );
    ~TestPeer( );
    const GWString& host( ) const { return _udp.host( ); }
    // Moves what has come in to the signalling list.
    void receive( );
    // One datagram into the signalling list, as if received on `localHost`.
    void fill( const GWString& localHost, const Heard& heard );
    // Gives the port its socket again after a reset.
    void connect( ) { port.setUDPPort( _udp.port( ) ); }
    // Behind a firewall nothing reaches the UDP port.
    bool isDeaf = false;
    // Of what comes in, this much is lost.
    int lossPercent = 0;
    // Takes all commands off a queue.
    std::vector<GHTTPHeaders> commands( GWStringView queue );
    std::vector<GWString> methods( GWStringView queue );

private:
    // Goes after the blackboard, which saves itself at its end.
    struct SettingsFile
    {
        ~SettingsFile( ) { GFileDelete( path ); }
        GWString path;
    };
    TestHost _udp;
    SettingsFile _file;

public:
    GInstance instance;
    GMegaPort port;
};

// The signalling server in a few lines: lists, and INVITEs forwarded to whoever has registered.
class TestServer
{
public:
    struct Device
    {
        GWString user;
        GWString device;
        GWString host;
        GStringList routes;
    };
    const GWString& host( ) const { return _udp.host( ); }
    void answer( );
    void send( const GWString& to, const GHTTPHeaders& message ) const { _udp.send( to, message ); }
    std::vector<Device> devices;
    GStringList buddyList;
    int code = GHTTP_SUCCESS;
    // When set, whatever it refuses is not heard.
    std::function<bool( const GHTTPHeaders& )> hears;
    std::vector<GHTTPHeaders> heard;

private:
    void _answerInvite( const Heard& invite );
    void _reply( const Heard& to, GHTTPHeaders response ) const;
    TestHost _udp;
};

inline GHTTPHeaders respond( int code, GWStringView text )
{
    GHTTPHeaders out;
    out.setResponse( code, text );
    return out;
}
