#include "client/app/GSettingsKeeper.h"

#include "platform/GTime.h"
#include "runtime/GInstance.h"
#include "runtime/GSettingsGeneration.h"

namespace
{
constexpr uint64_t REST = 2000000;
constexpr int SLEEP_MILLISECONDS = 3600000; // Ends when there is something to do.
} // namespace

GSettingsKeeper::GSettingsKeeper( GInstance* instance )
    : _instance( instance ), _wake( GEventOpen( ) ), _written( GInstanceGetSettingsGeneration( ) ), _seen( _written ),
      _seenTime( GTimeGetTime( ) )
{
    _setWaker( _wake );
}

GSettingsKeeper::~GSettingsKeeper( )
{
    stop( true );
    GEventClose( _wake );
}

void GSettingsKeeper::update( )
{
    const uint64_t now = GTimeGetTime( );
    const uint64_t generation = GInstanceGetSettingsGeneration( );
    if( generation != _seen )
    {
        _seen = generation;
        _seenTime = now;
    }
    if( _seen == _written || now - _seenTime < REST ) return;
    _written = _seen;
    ++_asked;
    _due = true;
    GVERIFY( GEventSet( _wake ) );
}

int GSettingsKeeper::_bGThreadObject_safe_onLoop( )
{
    if( _due.exchange( false ) ) _instance->save( );
    return SLEEP_MILLISECONDS;
}
