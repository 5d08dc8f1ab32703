#include "GImageWide.h"

namespace
{
bool machineHasWide( )
{
#ifdef GIMAGE_WIDE
    return __builtin_cpu_supports( "avx2" );
#else
    return false;
#endif
}

bool& isWide( )
{
    static bool wide = machineHasWide( );
    return wide;
}
} // namespace

bool GImageHasWide( )
{
    return isWide( );
}

void GImageAllowWide( bool allowed )
{
    isWide( ) = allowed && machineHasWide( );
}
