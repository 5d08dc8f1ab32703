#include "platform/GNotify.h"

#include "base/GPortable.h"
#include "platform/GTime.h"
#include "platform/desktop/GDesktop_Qt.h"

#include <map>
#include <mutex>

struct GNotifyRecord
{
    IGNotifyListener* listener = nullptr;
    uint64_t serial = 0; // Tells a handle from an earlier one at the same address.
};

namespace
{
std::mutex mutex_;
std::map<GNotifyHandle, uint64_t> open_;
uint64_t nextSerial_ = 1;

uint64_t findSerial( GNotifyHandle notify )
{
    const std::scoped_lock lock( mutex_ );
    const auto found = open_.find( notify );
    return found == open_.end( ) ? 0 : found->second;
}

// Only the user-interface thread closes handles, so the record stays during the call.
void deliver( GNotifyHandle notify, uint64_t serial, int kind, uint64_t time )
{
    if( findSerial( notify ) == serial ) notify->listener->onNotification( kind, time );
}
} // namespace

GNotifyHandle GNotifyOpen( IGNotifyListener* listener )
{
    GCALL( function );
    GPRECONDITION( listener );
    GDesktopOpen( );
    auto* notify = new GNotifyRecord;
    notify->listener = listener;
    const std::scoped_lock lock( mutex_ );
    notify->serial = nextSerial_++;
    open_[notify] = notify->serial;
    return notify;
}

void GNotifyClose( GNotifyHandle notify )
{
    GCALL( function );
    GPRECONDITION( notify );
    {
        const std::scoped_lock lock( mutex_ );
        open_.erase( notify );
    }
    delete notify;
}

void GNotify( GNotifyHandle notify, int kind )
{
    GPRECONDITION( notify );
    if( GDesktopIsDown( ) ) return;
    const uint64_t serial = findSerial( notify );
    if( !serial ) return;
    const uint64_t time = GTimeGetTime( );
    GDesktopPost( [notify, serial, kind, time]( ) { deliver( notify, serial, kind, time ); } );
}
