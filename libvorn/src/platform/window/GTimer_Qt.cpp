#include "platform/GTimer.h"

#include "base/GPortable.h"
#include "platform/desktop/GDesktop_Qt.h"

#include <QCoreApplication>
#include <QTimerEvent>

#include <algorithm>
#include <map>
#include <memory>

struct GTimerRecord
{
    IGTimerListener* listener = nullptr;
    int id = 0;
};

namespace
{
class Clock : public QObject
{
public:
    explicit Clock( QObject* parent ) : QObject( parent ) {}
    std::map<int, std::unique_ptr<GTimerRecord>> timers; // By the platform's timer id.

protected:
    void timerEvent( QTimerEvent* event ) override
    {
        const auto found = timers.find( event->timerId( ) );
        if( found == timers.end( ) || GDesktopIsDown( ) ) return;
        GTimer timer = found->second.get( ); // It may be closed by its own tick.
        timer->listener->onTimer( timer );
    }
};

Clock* getClock( )
{
    QObject* hidden = GDesktopGetHidden( );
    for( QObject* child : hidden->children( ) )
        if( auto* clock = dynamic_cast<Clock*>( child ) ) return clock;
    return new Clock( hidden );
}
} // namespace

GTimer GTimerOpen( int64_t microseconds, IGTimerListener* listener )
{
    GCALL( function );
    GPRECONDITION( microseconds > 0 );
    GPRECONDITION( listener );
    Clock* clock = getClock( );
    // A period below a millisecond would keep the loop spinning.
    const int64_t milliseconds = std::clamp<int64_t>( microseconds / 1000, 1, INT32_MAX );
    auto record = std::make_unique<GTimerRecord>( );
    record->listener = listener;
    record->id = clock->startTimer( static_cast<int>( milliseconds ), Qt::PreciseTimer );
    GTimer timer = record.get( );
    clock->timers.emplace( timer->id, std::move( record ) );
    return timer;
}

void GTimerClose( GTimer timer )
{
    GCALL( function );
    GPRECONDITION( timer );
    if( !QCoreApplication::instance( ) ) return; // The desktop took it along.
    Clock* clock = getClock( );
    clock->killTimer( timer->id );
    clock->timers.erase( timer->id );
}
