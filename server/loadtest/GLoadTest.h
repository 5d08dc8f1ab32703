// Many devices that ask a server: they log on and register one after another, then send requests at a steady rate, whatever the
// answers do, and wait for what is under way. Blocking, one thread.
#pragma once

#include "runtime/GHTTPHeaders.h"
#include "server/loadtest/GLoadOptions.h"

#include <chrono>
#include <deque>
#include <unordered_map>

class GLoadTest
{
public:
    explicit GLoadTest( const GLoadOptions& options ) : _options( options ) {}
    ~GLoadTest( );
    GLoadTest( const GLoadTest& ) = delete;
    GLoadTest& operator=( const GLoadTest& ) = delete;
    // Logs all accounts on and registers all devices; false with the reason.
    bool enter( GString& error );
    // Asks for as long as the options say.
    GLoadFigures run( );

private:
    using Clock = std::chrono::steady_clock;
    struct Device
    {
        int handle;
        GString host; // As the device sees itself.
        GWString user;
        GWString id;
    };
    struct Waiting
    {
        GLoadKind kind;
        Clock::time_point sent;
    };
    bool _logOn( const GString& from, GHTTPHeaders& answer, GString& error ) const;
    bool _logOnAccount( int64_t number, GWString& user, GString& error );
    bool _addDevice( const GWString& user, GString& error );
    bool _ask( const Device& device, const GHTTPHeaders& request, GHTTPHeaders& answer ) const;
    GHTTPHeaders _compose( const Device& device, GLoadKind kind );
    GLoadKind _nextKind( );
    void _send( Clock::time_point now );
    void _receiveAll( int milliseconds );
    void _onDatagram( const char* data, size_t length, Clock::time_point now );
    void _expire( Clock::time_point now );

    const GLoadOptions& _options;
    GString _signalling;
    GString _stun;
    std::vector<Device> _devices;
    int _poll = -1;
    int64_t _cseq = 0;
    size_t _next = 0;
    uint64_t _seed = 1;
    GHTTPHeaders _answer;
    std::unordered_map<int64_t, Waiting> _waiting;
    std::deque<std::pair<Clock::time_point, int64_t>> _order;
    GLoadFigures _figures;
};
