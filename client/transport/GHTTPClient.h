// One request and one response over one TCP connection, polled by its owner; it never owns a thread and never blocks but in
// update( timeout ). A dead connection shows as isAlive( ) false. Used by one thread at a time.
#pragma once

#include "platform/GNet.h"
#include "runtime/GHTTPHeaders.h"
#include "runtime/GObject.h"

#include <utility>

class GHTTPClient : public GHeapObject
{
public:
    // Connects and sends at once.
    GHTTPClient( const GWString& host, const GHTTPHeaders& request );
    ~GHTTPClient( ) override;

    void send( const GHTTPHeaders& request );
    // Bytes that are a message already, or the rest of one whose beginning another writer has sent.
    void sendRaw( const GString& bytes );
    bool recv( GHTTPHeaders& response ); // True once a whole message has arrived.
    // Pushes what is unsent, then waits for something to read. Microseconds; precondition "timeout >= 0". Closes the socket when
    // unsent bytes have not moved for 5 s, counted from the creation of the client on.
    void update( int64_t timeout );
    bool isAlive( ) const;
    void shutdown( );
    GWString getLocalHost( ) const; // "0.0.0.0:0" without a socket.
    GWString getRemoteHost( ) const;
    GNetTCPSocket* getTCPSocket( ) const { return _socket; }
    int getUnsent( ) const { return static_cast<int>( _sendBuffer.size( ) ); }
    // What is unsent, for a writer that takes over.
    GString takeUnsent( ) { return std::exchange( _sendBuffer, { } ); }
    // Ends an exchange without a byte for 30 s.
    void setRobust( bool robust ) { _robust = robust; }

private:
    bool _takeMessage( GHTTPHeaders& response );
    void _measure( const char* bytes, size_t length );
    int _sendPending( );
    void _close( );
    bool _hasTimedOut( ) const;

    GWString _host;
    GNetTCPSocket* _socket = nullptr;
    GString _sendBuffer;
    GString _recvBuffer;
    size_t _numTaken = 0;  // Bytes of _recvBuffer that are spent.
    size_t _numNeeded = 1; // Bytes beyond them that make a message, as far as is known.
    uint64_t _lastSendTime = 0;
    uint64_t _lastProgressTime = 0;
    bool _robust = false;
};
