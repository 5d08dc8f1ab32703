#include "platform/GTime.h"

#include <atomic>
#include <ctime>

namespace
{
constexpr uint64_t EPOCH_SECONDS = 11644473600; // 1601-01-01 to 1970-01-01
constexpr uint64_t MICROSECONDS = 1000000;

uint64_t systemTime( )
{
    timespec now = { };
    clock_gettime( CLOCK_REALTIME, &now );
    return ( static_cast<uint64_t>( now.tv_sec ) + EPOCH_SECONDS ) * MICROSECONDS +
           static_cast<uint64_t>( now.tv_nsec ) / 1000;
}
std::atomic<GTimeSource> source_ = systemTime;

time_t unixTime( uint64_t time )
{
    return static_cast<time_t>( time / MICROSECONDS ) - static_cast<time_t>( EPOCH_SECONDS );
}
GTimeFields fieldsOf( const tm& split )
{
    return { split.tm_year + 1900, split.tm_mon + 1, split.tm_mday, split.tm_hour, split.tm_min, split.tm_sec };
}
} // namespace

uint64_t GTimeGetTime( )
{
    return source_.load( std::memory_order_relaxed )( );
}
void GTimeSetSource( GTimeSource source )
{
    source_.store( source ? source : systemTime, std::memory_order_relaxed );
}
int GTimeGetBias( )
{
    const time_t now = unixTime( GTimeGetTime( ) );
    tm split = { };
    localtime_r( &now, &split );
    return static_cast<int>( -split.tm_gmtoff / 60 );
}
GTimeFields GTimeSplitUTC( uint64_t time )
{
    const time_t seconds = unixTime( time );
    tm split = { };
    gmtime_r( &seconds, &split );
    return fieldsOf( split );
}
GTimeFields GTimeSplitLocal( uint64_t time )
{
    const time_t seconds = unixTime( time );
    tm split = { };
    localtime_r( &seconds, &split );
    return fieldsOf( split );
}
