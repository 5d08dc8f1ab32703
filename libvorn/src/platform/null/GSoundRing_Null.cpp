#include "platform/GSoundRing.h"

#include "base/GPortable.h"

GSoundRing GSoundRingOpen( int frequency, int bytes, int latency )
{
    GPRECONDITION( frequency > 0 && bytes > 0 && bytes % 2 == 0 && latency > 0 );
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
void GSoundRingClearTaken( GSoundRing ring )
{
    GPRECONDITION( ring );
}
bool GSoundRingGetPositions( GSoundRing ring, int64_t&, int64_t& )
{
    GPRECONDITION( ring );
    return false;
}
bool GSoundRingWrite( GSoundRing ring, int, const char*, int )
{
    GPRECONDITION( ring );
    return false;
}
bool GSoundRingWriteAt( GSoundRing ring, int64_t, const int16_t*, int )
{
    GPRECONDITION( ring );
    return false;
}
bool GSoundRingIsAlive( GSoundRing )
{
    return false;
}
