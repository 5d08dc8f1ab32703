// Apart from GSystem_Null: a backend may share its key table instead.
#include "platform/GSystem.h"

int GKeyFromName( const GWString& )
{
    return 0;
}
GWString GKeyGetName( int )
{
    return { };
}
