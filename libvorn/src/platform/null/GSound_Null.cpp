#include "platform/GSound.h"

void GSoundPlay( const GWString& ) {}
bool GSoundIsMuted( )
{
    return false;
}
void GSoundSetMute( bool ) {}
double GSoundGetVolume( )
{
    return 0.0;
}
void GSoundSetVolume( double ) {}
void GSoundSetLines( double, double ) {}
