#include "client/media/GMediaBudget.h"

#include <algorithm>

bool GMediaBudget::allows( uint64_t now )
{
    // A clock that was set back gives nothing.
    const uint64_t passed = _time && now > _time ? std::min<uint64_t>( now - _time, 2 * ALLOWANCE * SHARE ) : 0;
    _time = now;
    _balance = std::min( _balance + static_cast<int64_t>( passed ) / SHARE, ALLOWANCE );
    if( _refused && _balance >= ALLOWANCE / 2 ) _refused = false;
    return !_refused;
}

void GMediaBudget::charge( int64_t cost )
{
    _balance = std::max( _balance - cost, -ALLOWANCE );
    if( _balance > 0 || _refused ) return;
    _refused = _untold = true;
}

bool GMediaBudget::takeRefusal( )
{
    const bool told = _untold;
    _untold = false;
    return told;
}
