#include "base/GPortable.h"
#include "platform/GIcon.h"

struct GIconRecord
{
    int state = GIS_PUBLIC_OFFLINE;
};

GIcon GIconOpen( IGIconListener* )
{
    return new GIconRecord;
}
void GIconClose( GIcon icon )
{
    GVALIDPTR( icon );
    delete icon;
}
void GIconSetState( GIcon icon, int state )
{
    GASSERT( GWITHIN( GIS_PUBLIC_OFFLINE, state, GIS_PRIVATE_ONLINE ) );
    icon->state = state;
}
void GIconSetText( GIcon, const GWString& ) {}
void GIconSetBubble( GIcon, const GWString&, const GWString&, int ) {}
bool GIconHasHost( )
{
    return true;
}
int GMenuExecute( const GStringVector& )
{
    return -1;
}
