#include "base/GUtil.h"
#include "platform/GTime.h"

#include <ctime>

GWString GTimeGetZone( )
{
    const time_t now = time( nullptr );
    tm split = { };
    if( !localtime_r( &now, &split ) || !split.tm_zone || !*split.tm_zone ) return u"UTC";
    return GUTF8ToWide( split.tm_zone );
}
