#include "platform/common/GCaptureSample.h"

#include "base/GPortable.h"
#include "platform/GTime.h"

namespace
{
constexpr int64_t UNITS_PER_MICROSECOND = 10;
}

uint64_t GCaptureStamps::read( const GCaptureSample& sample )
{
    if( !sample.hasTime || sample.time < 0 )
    {
        if( !_reported ) GLOG( u"WARNING Failed to get timestamp, only reporting once.  Error ", sample.error );
        _reported = true;
        return GTimeGetTime( );
    }
    if( _reported ) GLOG( u"WARNING Succeeded getting timestamp after previous failure." );
    _reported = false;
    return static_cast<uint64_t>( sample.time / UNITS_PER_MICROSECOND );
}

uint64_t GCaptureStamps::next( uint64_t time )
{
    uint64_t stamp = time + _offset;
    if( _hasLast && stamp <= _last )
    {
        _offset += _last - stamp + _increment;
        stamp = _last + _increment;
    }
    else if( _hasLast )
        _increment = stamp - _last;
    _hasLast = true;
    _last = stamp;
    return stamp;
}
