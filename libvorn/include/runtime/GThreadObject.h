// An object with one thread, and the base of every service. The thread holds the object's lock except while it sleeps, so any
// outside call that takes the lock runs between two rounds. A subclass's destructor must call stop( true ).
#pragma once

#include "runtime/GThreadSafeObject.h"

#include <atomic>

class GThreadObject : public GThreadSafeObject
{
public:
    GThreadObject( ) = default;
    ~GThreadObject( ) override;

    // Run on the thread, under the lock. onLoop returns the milliseconds to sleep, or a negative value to end.
    virtual void _bGThreadObject_safe_onStartup( ) {}
    virtual int _bGThreadObject_safe_onLoop( ) { return -1; }
    virtual void _bGThreadObject_safe_onShutdown( ) {}

    void start( const GWString& name );
    void stop( bool join );
    void join( );
    GThreadID getThread( ) const { return _thread; }
    const GWString& getThreadName( ) const { return _threadName; }

protected:
    void _sleep( int milliseconds ); // Drops the lock meanwhile. Asserts "ms >= 0".
    // What ends the sleep between two rounds early; stop sets it too, so that a long sleep or wait of a round on it costs no time at the
    // end. Borrowed, from before the start until the thread has ended; null, as at first, sleeps in full.
    void _setWaker( GEvent event ) { _waker = event; }

private:
    friend int GThreadObject_ThreadProc( void* data );
    GWString _threadName;
    std::atomic<bool> _stop = false; // Read once a round.
    std::atomic<GThreadID> _thread = 0;
    GEvent _waker = nullptr;
};
