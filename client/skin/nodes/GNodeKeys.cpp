#include "client/skin/nodes/GNodeKeys.h"

#include "platform/GSystem.h"

namespace
{
GNodeKeySource source_ = GSystemIsKeyDown;
} // namespace

bool GNodeKeys_isDown( int key )
{
    return source_( key );
}

void GNodeKeys_setSource( GNodeKeySource source )
{
    source_ = source ? source : GSystemIsKeyDown;
}
