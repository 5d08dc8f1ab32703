// When a capture device that was lost is tried again: a second later, then after pauses that grow, six times in all; and anew when it comes
// back into the list of devices. A device that is not in the list is not tried. Times are microseconds of GTimeGetTime. One thread.
#pragma once

#include "base/GTypes.h"

class GCaptureRetry
{
public:
    // The device of that name is lost, or did not work. One that is lost soon after it came back goes on with its pauses.
    void start( const GWString& name, bool isListed, uint64_t now );
    // It works again.
    void onSuccess( uint64_t now );
    void onFailure( uint64_t now );
    // Nobody wants it any more.
    void stop( ) { *this = GCaptureRetry( ); }
    // The list of devices was read again.
    void onList( bool isListed, uint64_t now );

    bool isWaiting( ) const { return _isWaiting; }
    const GWString& getName( ) const { return _name; }
    bool isDue( uint64_t now ) const { return _willTry( ) && now >= _next; }
    // Milliseconds until the next try, at most `rest`.
    int getRest( uint64_t now, int rest ) const;

private:
    bool _willTry( ) const;
    void _pause( uint64_t now );

    GWString _name;
    bool _isWaiting = false;
    bool _isListed = false;
    int _tries = 0;
    uint64_t _next = 0;
    uint64_t _worksSince = 0;
};
