#include "client/signalling/GNatRefresh.h"

#include <algorithm>

namespace
{
constexpr int64_t LONGEST_TRIAL = 64000000;
constexpr int64_t LONGEST_PING_PERIOD_S = 25;
} // namespace

void GNatRefresh::clear( )
{
    _lastSuccess = FIRST_DELAY;
    _cseq = 0;
}

void GNatRefresh::begin( int64_t delay, int cseq )
{
    _cseq = cseq;
    _natRefreshTimer.start( delay + GRACE );
}

int64_t GNatRefresh::afterSuccess( int32_t delay )
{
    _lastSuccess = delay;
    const int64_t doubled = int64_t( delay ) * 2;
    return _robust ? std::min( doubled, LONGEST_TRIAL ) : doubled;
}

int64_t GNatRefresh::afterFailure( ) const
{
    return std::max( getDelayOnTrial( ) / 2, FIRST_DELAY );
}

int64_t GNatRefresh::getPingPeriod( int64_t onTrial ) const
{
    if( !_robust ) return onTrial;
    return std::clamp( _lastSuccess / 1000000, int64_t( 1 ), LONGEST_PING_PERIOD_S );
}
