#include "client/skin/GUserName.h"

#include "base/GUtil.h"
#include "runtime/GInstance.h"

bool GUserNameIsSafe( GWStringView name )
{
    return !name.empty( ) && name == GSanitizeName( name );
}

GWString GUserNameGetUser( const GWString& name )
{
    return name.substr( 0, name.find( u'@' ) );
}

GWString GUserNameComplete( GInstance& instance, const GWString& name )
{
    const size_t at = name.find( u'@' );
    if( at != GWString::npos && at + 1 < name.size( ) ) return name;
    const GWString domain = instance.get( u"Default_Domain" );
    return domain.empty( ) ? name : GConcat( GUserNameGetUser( name ), u'@', domain );
}

GWString GUserNameShorten( GInstance& instance, const GWString& name )
{
    const size_t at = name.find( u'@' );
    if( at == GWString::npos || at == 0 ) return name;
    const GWString domain = instance.get( u"Default_Domain" );
    return !domain.empty( ) && GCaseEquals( GWStringView( name ).substr( at + 1 ), domain ) ? name.substr( 0, at )
                                                                                            : name;
}

GWString GUserNameGetChatLog( const GWString& buddy )
{
    if( GUserNameIsSafe( buddy ) ) return GConcat( u"chatlogs/", buddy, u"_chat.txt" );
    GLOG( u"WARNING Invalid name '", buddy, u"' for a chat log, ignoring." );
    return { };
}
