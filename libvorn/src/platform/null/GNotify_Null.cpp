#include "platform/null/GNotify_Null.h"

#include "base/GPortable.h"
#include "platform/GNotify.h"
#include "platform/GTime.h"

#include <deque>
#include <memory>
#include <mutex>

struct GNotifyRecord
{
    // Shared with what is on its way: a closed target keeps an empty listener.
    std::shared_ptr<IGNotifyListener*> listener;
};

namespace
{
struct Posted
{
    std::shared_ptr<IGNotifyListener*> listener;
    int kind;
    uint64_t time;
};
std::mutex mutex_;
std::deque<Posted>& queue( )
{
    static auto* const posted = new std::deque<Posted>;
    return *posted;
}
} // namespace

GNotifyHandle GNotifyOpen( IGNotifyListener* listener )
{
    GPRECONDITION( listener );
    return new GNotifyRecord{ std::make_shared<IGNotifyListener*>( listener ) };
}
void GNotifyClose( GNotifyHandle notify )
{
    GPRECONDITION( notify );
    *notify->listener = nullptr;
    delete notify;
}
void GNotify( GNotifyHandle notify, int kind )
{
    GPRECONDITION( notify );
    if( GIsShuttingDown( ) ) return;
    const std::scoped_lock lock( mutex_ );
    queue( ).push_back( { notify->listener, kind, GTimeGetTime( ) } );
}

bool GNotifyDeliver( )
{
    std::deque<Posted> posted;
    {
        const std::scoped_lock lock( mutex_ );
        posted.swap( queue( ) );
    }
    for( const Posted& one : posted )
        if( *one.listener ) ( *one.listener )->onNotification( one.kind, one.time );
    return !posted.empty( );
}
