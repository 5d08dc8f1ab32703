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
    int64_t period = 0; // 0 while it rests.
    int id = 0;         // The platform's, of a timer that runs.
};

namespace
{
class Clock : public QObject
{
public:
    explicit Clock( QObject* parent ) : QObject( parent ) {}
    std::map<GTimer, std::unique_ptr<GTimerRecord>> timers;

    void run( GTimerRecord& timer, int64_t period )
    {
        if( timer.period ) rest( timer );
        timer.period = period;
        if( !period ) return;
        // A period below a millisecond would keep the loop spinning.
        const int64_t milliseconds = std::clamp<int64_t>( period / 1000, 1, INT32_MAX );
        timer.id = startTimer( static_cast<int>( milliseconds ), Qt::PreciseTimer );
        _running.emplace( timer.id, &timer );
    }
    void rest( const GTimerRecord& timer )
    {
        killTimer( timer.id );
        _running.erase( timer.id );
    }

protected:
    void timerEvent( QTimerEvent* event ) override
    {
        const auto found = _running.find( event->timerId( ) );
        if( found == _running.end( ) || GDesktopIsDown( ) ) return;
        GTimer timer = found->second; // It may be closed by its own tick.
        timer->listener->onTimer( timer );
    }

private:
    std::map<int, GTimer> _running; // By the platform's timer id.
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
    auto record = std::make_unique<GTimerRecord>( );
    record->listener = listener;
    GTimer timer = record.get( );
    clock->timers.emplace( timer, std::move( record ) );
    clock->run( *timer, microseconds );
    return timer;
}

void GTimerSetPeriod( GTimer timer, int64_t microseconds )
{
    GPRECONDITION( timer );
    GPRECONDITION( microseconds >= 0 );
    if( microseconds == timer->period || !QCoreApplication::instance( ) ) return;
    getClock( )->run( *timer, microseconds );
}

int64_t GTimerGetPeriod( GTimer timer )
{
    GPRECONDITION( timer );
    return timer->period;
}

void GTimerClose( GTimer timer )
{
    GCALL( function );
    GPRECONDITION( timer );
    if( !QCoreApplication::instance( ) ) return; // The desktop took it along.
    Clock* clock = getClock( );
    if( timer->period ) clock->rest( *timer );
    clock->timers.erase( timer );
}
