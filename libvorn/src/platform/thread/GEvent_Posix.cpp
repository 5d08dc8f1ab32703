#include "base/GPortable.h"
#include "platform/GThread.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

struct GEventRecord
{
    int descriptor;
};

namespace
{
constexpr int64_t NANOSECONDS = 1000000000;

int64_t monotonicTime( )
{
    timespec now = { };
    clock_gettime( CLOCK_MONOTONIC, &now );
    return now.tv_sec * NANOSECONDS + now.tv_nsec;
}
// False when another waiter took the event first.
bool take( int descriptor )
{
    uint64_t count;
    return read( descriptor, &count, sizeof( count ) ) == sizeof( count );
}
bool waitFor( pollfd* sources, nfds_t count, int64_t timeout )
{
    const int64_t end = monotonicTime( ) + timeout * 1000;
    for( ;; )
    {
        const int64_t left = std::max<int64_t>( end - monotonicTime( ), 0 );
        const timespec wait = { static_cast<time_t>( left / NANOSECONDS ), static_cast<long>( left % NANOSECONDS ) };
        const int ready = ppoll( sources, count, timeout < 0 ? nullptr : &wait, nullptr );
        if( !ready || ( ready < 0 && errno != EINTR ) ) return false;
        for( nfds_t i = 0; ready > 0 && i < count; ++i )
            if( sources[i].revents & POLLIN && take( sources[i].fd ) ) return true;
    }
}
} // namespace

GEvent GEventOpen( )
{
    const int descriptor = eventfd( 0, EFD_NONBLOCK | EFD_CLOEXEC );
    GASSERT( descriptor >= 0 );
    return new GEventRecord{ descriptor };
}
bool GEventSet( GEvent event )
{
    GVALIDPTR( event );
    const uint64_t one = 1;
    return write( event->descriptor, &one, sizeof( one ) ) == sizeof( one );
}
bool GEventWait( GEvent event, int64_t timeout )
{
    GVALIDPTR( event );
    pollfd source = { event->descriptor, POLLIN, 0 };
    return waitFor( &source, 1, timeout );
}
bool GEventWaitAny( GEvent first, GEvent second, int64_t timeout )
{
    GVALIDPTR( first );
    GVALIDPTR( second );
    pollfd sources[2] = { { first->descriptor, POLLIN, 0 }, { second->descriptor, POLLIN, 0 } };
    return waitFor( sources, 2, timeout );
}
void GEventClose( GEvent event )
{
    GVALIDPTR( event );
    GVERIFY( !close( event->descriptor ) );
    delete event;
}
