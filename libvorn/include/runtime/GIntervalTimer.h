// A start and a duration in microseconds. hasElapsed answers true once a period and restarts itself; a start of 0 counts as
// elapsed at once. Not thread-safe.
#pragma once

#include "platform/GTime.h"

class GIntervalTimer
{
public:
    explicit GIntervalTimer( int64_t duration = 0 ) : _duration( duration ) {}
    void start( ) { _start = GTimeGetTime( ); }
    void start( int64_t duration )
    {
        _duration = duration;
        start( );
    }
    // As if started at `time`: a moment in the past shortens the period that runs now.
    void startAt( uint64_t time ) { _start = time; }
    // The next test answers true.
    void expire( ) { _start = 0; }
    void setDuration( int64_t duration ) { _duration = duration; }
    int64_t getDuration( ) const { return _duration; }
    uint64_t getStart( ) const { return _start; }
    bool hasElapsed( )
    {
        const uint64_t now = GTimeGetTime( );
        if( !_isOver( now ) ) return false;
        _start = now;
        return true;
    }
    // The same without restarting.
    bool isOver( ) const { return _isOver( GTimeGetTime( ) ); }
    int64_t getElapsed( ) const { return static_cast<int64_t>( GTimeGetTime( ) - _start ); }
    int64_t getRemaining( ) const
    {
        return static_cast<int64_t>( _start + static_cast<uint64_t>( _duration ) - GTimeGetTime( ) );
    }

private:
    bool _isOver( uint64_t now ) const { return _start == 0 || static_cast<int64_t>( now - _start ) > _duration; }
    uint64_t _start = 0;
    int64_t _duration;
};
