#include "platform/GSoundRing.h"

#include "base/GPortable.h"

GSoundRing GSoundRingOpen( int frequency, int bytes )
{
    GPRECONDITION( frequency > 0 && bytes > 0 && bytes % 2 == 0 );
    return nullptr;
}
void GSoundRingClose( GSoundRing ring )
{
    GPRECONDITION( ring );
}
void GSoundRingPlay( GSoundRing ring )
{
    GPRECONDITION( ring );
}
void GSoundRingStop( GSoundRing ring )
{
    GPRECONDITION( ring );
}
bool GSoundRingGetCursors( GSoundRing ring, int&, int& )
{
    GPRECONDITION( ring );
    return false;
}
bool GSoundRingWrite( GSoundRing ring, int, const char*, int )
{
    GPRECONDITION( ring );
    return false;
}
bool GSoundRingIsAlive( GSoundRing )
{
    return false;
}
