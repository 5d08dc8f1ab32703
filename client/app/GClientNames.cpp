#include "client/app/GClientNames.h"

#include "base/GForeignText.h"
#include "base/GPortable.h"

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

GWString GClientCleanAddress( const GWString& text )
{
    static constexpr GWStringView MARKS = u"-._~:/?#[]@!&'*+,;=% ";
    const auto isPlain = []( char16_t c )
    {
        return GWITHIN( u'a', c, u'z' ) || GWITHIN( u'A', c, u'Z' ) || GWITHIN( u'0', c, u'9' ) ||
               MARKS.find( c ) != GWStringView::npos;
    };
    if( std::all_of( text.begin( ), text.end( ), isPlain ) ) return text;
    GLOG( u"WARNING Received invalid address '", GForeignText( text, 64 ), u"', ignoring." );
    return { };
}
