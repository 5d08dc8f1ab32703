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
GSoundRing GSoundRingOpen( int, int )
{
    return nullptr;
}
void GSoundRingClose( GSoundRing ) {}
void GSoundRingPlay( GSoundRing ) {}
void GSoundRingStop( GSoundRing ) {}
bool GSoundRingGetCursors( GSoundRing, int&, int& )
{
    return false;
}
bool GSoundRingWrite( GSoundRing, int, const char*, int )
{
    return false;
}
bool GSoundRingIsAlive( GSoundRing )
{
    return false;
}
