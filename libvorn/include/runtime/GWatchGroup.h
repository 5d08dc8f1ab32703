// Watches of several names on the blackboard that have one answer: a call on the user-interface thread. For what would otherwise ask
// by a timer. User-interface thread; the watches end with the object.
#pragma once

#include "platform/GNotify.h"
#include "runtime/GInstance.h"

#include <functional>

class GWatchGroup : private IGNotifyListener
{
public:
    // `instance` is borrowed for the object's life. Values and queues are watched alike.
    GWatchGroup( GInstance* instance, std::function<void( )> onChange );
    ~GWatchGroup( ) override;
    GWatchGroup( const GWatchGroup& ) = delete;
    GWatchGroup& operator=( const GWatchGroup& ) = delete;

    // Watches these instead of the former names; what stays is not touched.
    void watch( GStringVector names );

private:
    void onNotification( int kind, uint64_t time ) override;

    GInstance* _instance;
    std::function<void( )> _onChange;
    GNotifyHandle _notify;
    GStringVector _names; // Sorted, each once.
};
