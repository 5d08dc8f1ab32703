// Notifications posted to the user-interface thread. GNotify may be called from any thread and never blocks; delivery happens in
// the message loop, and a closed handle drops what is still on its way.
#pragma once

#include <cstdint>

struct GNotifyRecord;
using GNotifyHandle = GNotifyRecord*;
class IGNotifyListener
{
public:
    virtual ~IGNotifyListener( ) = default;
    // `time`: microseconds at which the notification was posted.
    virtual void onNotification( int kind, uint64_t time ) = 0;
};
// User-interface thread. The listener must not be null and has to outlive the handle.
GNotifyHandle GNotifyOpen( IGNotifyListener* listener );
void GNotifyClose( GNotifyHandle notify );
// Any thread, for as long as the handle is open. Notifications of one thread arrive in their order; none once the platform shuts down.
void GNotify( GNotifyHandle notify, int kind );
