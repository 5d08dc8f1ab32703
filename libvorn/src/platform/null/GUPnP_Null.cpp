#include "platform/GNet.h"

GNetUPnPMapping* GNetUPnPMappingOpen( const GWString&, int, int )
{
    return nullptr;
}
GWString GNetUPnPMappingGetGlobalHost( const GNetUPnPMapping* )
{
    return u"0.0.0.0:0";
}
void GNetUPnPMappingClose( GNetUPnPMapping* ) {}
