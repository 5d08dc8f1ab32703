// One UPnP mapping, opened and closed on a thread of its own, since a search for a gateway takes seconds and the dispatch loop must
// not wait for it. Its owner polls poll( ), lets go with abandon( ), and deletes the task once isDone( ), or at once if it can wait.
#pragma once

#include "platform/GNet.h"
#include "platform/GThread.h"
#include "runtime/GObject.h"

#include <atomic>

// What the task calls; tests put a gateway of their own in its place.
struct GUPnPFunctions
{
    GNetUPnPMapping* ( *open )( const GWString& localHost, int lowPort, int highPort ) = GNetUPnPMappingOpen;
    GWString ( *getGlobalHost )( const GNetUPnPMapping* mapping ) = GNetUPnPMappingGetGlobalHost;
    void ( *close )( GNetUPnPMapping* mapping ) = GNetUPnPMappingClose;
};

class GUPnPTask : public GHeapObject
{
public:
    // Ports out of 1 to 65535 or in the wrong order are brought into a range of at least one port.
    GUPnPTask( const GWString& localHost, int lowPort, int highPort, const GUPnPFunctions& functions );
    // Abandons the task and waits for its thread.
    ~GUPnPTask( ) override;

    // True once, when the search is over: `globalHost` is the address outside, "0.0.0.0:0" when the gateway tells none, and empty
    // when there is no mapping.
    bool poll( GWString& globalHost );
    // The mapping is removed as soon as the thread gets to it. Never blocks.
    void abandon( );
    bool isDone( ) const { return _done; }
    const GWString& getLocalHost( ) const { return _localHost; }

private:
    static int _threadProc( void* data );
    void _run( );

    const GWString _localHost;
    int _lowPort;
    int _highPort;
    const GUPnPFunctions _functions;
    GEvent _abandonEvent;
    std::atomic<bool> _abandoned = false;
    std::atomic<bool> _opened = false; // Publishes _globalHost.
    std::atomic<bool> _done = false;
    bool _polled = false;
    GWString _globalHost;
    GThreadID _thread = 0;
};
