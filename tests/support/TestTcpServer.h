// A listening socket on loopback for tests: it takes one connection, says what it is told and keeps what it hears. Every wait has a
// deadline and ends on what it waits for.
#pragma once

#include "runtime/GHTTPHeaders.h"

class TestTcpServer
{
public:
    // A receive buffer of this many bytes stalls a sender soon; 0 keeps the system's.
    explicit TestTcpServer( int receiveBuffer = 0 );
    ~TestTcpServer( );
    TestTcpServer( const TestTcpServer& ) = delete;
    TestTcpServer& operator=( const TestTcpServer& ) = delete;

    const GWString& host( ) const { return _host; }
    // Takes the newest connection and closes the others.
    bool accept( );
    void say( const GString& bytes ) const;
    void say( const GHTTPHeaders& message ) const { say( message.serialize( ) ); }
    // The next whole message; false after 5 s without one.
    bool hear( GHTTPHeaders& message );
    // The next message if it is there already.
    bool hearNow( GHTTPHeaders& message );
    // Closes the connection.
    void hangUp( );

private:
    bool _read( int milliseconds );
    int _listener = -1;
    int _connection = -1;
    GWString _host;
    GString _heard;
};
