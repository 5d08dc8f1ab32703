#include "client/app/GClientNames.h"

#include <algorithm>

GWString GClientGetUserName( const GWString& userGUID )
{
    return userGUID.substr( 0, userGUID.find( u'@' ) );
}

GWString GClientGetBaseName( const GWString& path )
{
    const size_t separator = path.find_last_of( u"/\\" );
    GWString name = separator == GWString::npos ? path : path.substr( separator + 1 );
    std::erase_if( name, []( char16_t c ) { return c < 0x20 || c == 0x7F || ( c >= 0x80 && c < 0xA0 ); } );
    name.erase( 0, std::min( name.find_first_not_of( u'.' ), name.size( ) ) );
    return name.empty( ) ? GWString( u"file" ) : name;
}
