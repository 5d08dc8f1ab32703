#include "base/GForeignText.h"

#include <algorithm>

namespace
{
// Unicode keeps U+FDD0 to U+FDEF for the inside of programs.
constexpr char16_t FIRST = 0xFDD0;
constexpr char16_t LAST = 0xFDEF;
constexpr GWStringView SPECIAL = u"${}();,?+&=/\\*%\"";

bool isMark( char16_t unit )
{
    return unit >= FIRST && unit <= LAST;
}
bool isBlank( char16_t unit )
{
    return unit == u'\t' || unit == u'\n' || unit == u'\r' || unit == 0x2028 || unit == 0x2029;
}
bool isControl( char16_t unit )
{
    return unit < 0x20 || ( unit >= 0x7F && unit < 0xA0 ) || unit == 0xFFFE || unit == 0xFFFF;
}
bool isFirstOfPair( char16_t unit )
{
    return unit >= 0xD800 && unit < 0xDC00;
}
} // namespace

GWString GForeignText( GWStringView text, size_t maxLength )
{
    GWString out;
    for( const char16_t unit : text )
    {
        if( out.size( ) >= maxLength ) break;
        if( isBlank( unit ) )
            out += u' ';
        else if( !isMark( unit ) && !isControl( unit ) )
            out += GForeignTextMark( unit );
    }
    if( !out.empty( ) && isFirstOfPair( out.back( ) ) ) out.pop_back( );
    return out;
}

bool GForeignTextIsMarked( GWStringView text )
{
    return std::any_of( text.begin( ), text.end( ), isMark );
}

GWString GForeignTextShown( GWStringView text )
{
    GWString out;
    for( const char16_t unit : text )
        if( !isMark( unit ) )
            out += unit;
        else if( static_cast<size_t>( unit - FIRST ) < SPECIAL.size( ) )
            out += SPECIAL[unit - FIRST];
    return out;
}

char16_t GForeignTextMark( char16_t unit )
{
    const size_t special = SPECIAL.find( unit );
    return special == GWStringView::npos ? unit : static_cast<char16_t>( FIRST + special );
}
