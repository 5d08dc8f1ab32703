// What a source of the network family tells of itself, whatever backend opened it.
#include "platform/GNet.h"
#include "platform/common/GNetLimits.h"

#include "base/GPortable.h"

int GNetUDPPortGetMTU( const GNetUDPPort* port )
{
    GPRECONDITION( port );
    return GNetLimits::MTU;
}

bool GNetUDPPortIsAlive( const GNetUDPPort* port )
{
    GPRECONDITION( port );
    return port->alive;
}

GWString GNetUDPPortGetLocalHost( const GNetUDPPort* port )
{
    GPRECONDITION( port );
    return port->host;
}

void GNetUDPPortSetLargeReads( GNetUDPPort* port, bool large )
{
    GPRECONDITION( port );
    port->largeReads = large;
}

void GNetUDPPortSetForgiving( GNetUDPPort* port, bool forgiving )
{
    GPRECONDITION( port );
    port->forgiving = forgiving;
}

bool GNetTCPSocketIsAlive( const GNetTCPSocket* socket )
{
    GPRECONDITION( socket );
    return socket->alive;
}
