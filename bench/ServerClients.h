// The clients of the server's benchmark: plain sockets, requests of each kind, and loads that keep a server busy.
#pragma once

#include "runtime/GHTTPHeaders.h"

#include <memory>
#include <netinet/in.h>
#include <string>
#include <vector>

namespace Bench
{
[[noreturn]] void fail( const std::string& text );

// A blocking socket on loopback with a deadline.
class Socket
{
public:
    explicit Socket( int type );
    Socket( int type, const std::string& connectedTo );
    ~Socket( );
    Socket( const Socket& ) = delete;
    Socket& operator=( const Socket& ) = delete;
    int handle( ) const { return _handle; }
    std::string localHost( ) const;
    void setTimeout( int milliseconds );
    void sendTo( const std::string& host, const std::string& bytes );
    void send( const std::string& bytes );
    std::string receive( ); // Empty after the deadline.
    std::string receiveExactly( size_t length );
    // Fills the bytes; how many came before the deadline.
    size_t receiveUpTo( std::string& bytes );

private:
    int _handle;
};
sockaddr_in addressOf( const std::string& host );

std::string message( const char16_t* method, int cseq, const std::vector<std::pair<GWString, std::string>>& headers );
std::string stunBinding( uint32_t number );
std::string sipRegister( const std::string& contact, int user, int cseq );

// Sends `request` in batches of 32 by each of eight sockets by turns, until `count` answers of `answersEach` a request came.
// The answers that came; some may be lost.
long ask( const std::string& host, const std::string& request, long count, int answersEach );

// Devices that are logged on and registered at our server, each with a socket of its own.
class Devices
{
public:
    Devices( const std::string& logonHost, const std::string& signallingHost, int count );
    // Each registers again, `atOnce` of them at a time. Exits the benchmark when one is not answered.
    void registerAll( int atOnce );

private:
    std::string _register( size_t device ) const;
    std::string _host;
    std::vector<std::unique_ptr<Socket>> _sockets;
    std::vector<std::string> _ids;
    int _cseq = 10;
};
// The same number of users of the registrar.
class SipUsers
{
public:
    SipUsers( const std::string& host, int count );
    void registerAll( int atOnce );

private:
    std::string _host;
    std::vector<std::unique_ptr<Socket>> _sockets;
    int _cseq = 1;
};

// One client of a relay by TCP and a peer by UDP.
class RelayClient
{
public:
    virtual ~RelayClient( ) = default;
    // Carries `count` frames of 1,052 bytes from the client to the peer, and back. The frames that the relay has carried.
    long outward( long count );
    long inward( long count );

protected:
    RelayClient( const std::string& host );
    virtual std::string frame( ) const = 0;  // As the client sends it to the peer.
    virtual size_t relayedSize( ) const = 0; // As the client receives it from the peer.
    virtual void roundTrip( ) = 0;           // An exchange with the relay: what was sent before has been carried.
    Socket _client;
    Socket _peer;
    std::string _relayed; // The client's address at the relay.
    std::string _content;
};
class VelmoraRelayClient : public RelayClient
{
public:
    VelmoraRelayClient( const std::string& logonHost, const std::string& relayHost );

private:
    std::string frame( ) const override;
    size_t relayedSize( ) const override;
    void roundTrip( ) override;
};
class TurnRelayClient : public RelayClient
{
public:
    explicit TurnRelayClient( const std::string& host );

private:
    std::string frame( ) const override;
    size_t relayedSize( ) const override { return _content.size( ) + 4; }
    void roundTrip( ) override;
};
// One account of our server, made and logged on.
std::string logOn( const std::string& logonHost, const std::string& name );
} // namespace Bench
