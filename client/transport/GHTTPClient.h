// One request and one response over one TCP connection, polled by its owner; it never owns a thread and never blocks but in
// update( timeout ). A dead connection shows as isAlive( ) false. Used by one thread at a time.
#pragma once

#include "platform/GNet.h"
#include "runtime/GHTTPHeaders.h"
#include "runtime/GObject.h"

class GHTTPClient : public GHeapObject
{
public:
    // Connects and sends at once.
    GHTTPClient( const GWString& host, const GHTTPHeaders& request );
    ~GHTTPClient( ) override;

    void send( const GHTTPHeaders& request );
    bool recv( GHTTPHeaders& response ); // True once a whole message has arrived.
    void update( int64_t timeout );      // Microseconds; precondition "timeout >= 0".
    bool isAlive( ) const;
    void shutdown( );
    GWString getLocalHost( ) const; // "0.0.0.0:0" without a socket.
    GWString getRemoteHost( ) const;
    GNetTCPSocket* getTCPSocket( ) const { return _socket; }
    // Ends an exchange without a byte for 30 s.
    void setRobust( bool robust ) { _robust = robust; }

private:
    GWString _host;
    GNetTCPSocket* _socket = nullptr;
    GString _sendBuffer;
    GString _recvBuffer;
    uint64_t _lastSendTime = 0;
    uint64_t _lastProgressTime = 0;
    bool _robust = false;
};
