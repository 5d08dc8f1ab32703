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
GNotifyHandle GNotifyOpen( IGNotifyListener* listener );
void GNotifyClose( GNotifyHandle notify );
void GNotify( GNotifyHandle notify, int kind );
