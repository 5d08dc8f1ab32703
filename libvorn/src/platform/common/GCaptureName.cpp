#include "platform/common/GCaptureName.h"

#include "base/GForeignText.h"
#include "base/GUtil.h"

namespace
{
constexpr size_t GREATEST_LENGTH = 128;

bool isControl( char16_t unit )
{
    return unit < 0x20 || ( unit >= 0x7F && unit < 0xA0 ) || unit == 0x2028 || unit == 0x2029;
}
bool isFirstOfPair( char16_t unit )
{
    return unit >= 0xD800 && unit < 0xDC00;
}
} // namespace

GWString GCaptureFriendlyName( GWStringView name )
{
    GWString plain( name );
    for( char16_t& unit : plain )
    {
        if( isControl( unit ) ) unit = u' ';
        // Names come from strangers' headsets too: what is shown must not be expanded. Other marks are common in good names.
        if( unit == u'$' ) unit = GForeignTextMark( unit );
    }
    plain = GTrim( plain );
    if( plain.size( ) <= GREATEST_LENGTH ) return plain;
    plain.resize( isFirstOfPair( plain[GREATEST_LENGTH - 1] ) ? GREATEST_LENGTH - 1 : GREATEST_LENGTH );
    return GTrim( plain );
}
