#include "client/media/GCaptureRetry.h"

#include <algorithm>

namespace
{
constexpr uint64_t FIRST_PAUSE = 1000000;
constexpr int MAXIMUM_TRIES = 6;
// Who works that long is as good as new.
constexpr uint64_t STEADY = 30000000;
} // namespace

void GCaptureRetry::start( const GWString& name, bool isListed, uint64_t now )
{
    if( now - _worksSince > STEADY || name != _name ) _tries = 0;
    _name = name;
    _isWaiting = true;
    _isListed = isListed;
    _pause( now );
}

void GCaptureRetry::onSuccess( uint64_t now )
{
    ++_tries;
    _isWaiting = false;
    _worksSince = now;
}

void GCaptureRetry::onFailure( uint64_t now )
{
    ++_tries;
    _pause( now );
}

void GCaptureRetry::onList( bool isListed, uint64_t now )
{
    if( isListed && !_isListed )
    {
        _tries = 0;
        _pause( now );
    }
    _isListed = isListed;
}

bool GCaptureRetry::_willTry( ) const
{
    return _isWaiting && _isListed && _tries < MAXIMUM_TRIES;
}

void GCaptureRetry::_pause( uint64_t now )
{
    _next = now + ( FIRST_PAUSE << std::min( _tries, MAXIMUM_TRIES ) );
}

int GCaptureRetry::getRest( uint64_t now, int rest ) const
{
    if( !_willTry( ) ) return rest;
    if( now >= _next ) return 0;
    constexpr uint64_t MILLISECOND = 1000;
    return static_cast<int>( std::min<uint64_t>( ( _next - now ) / MILLISECOND + 1, static_cast<uint64_t>( rest ) ) );
}
