#include "image/GColor.h"

namespace
{
int hexDigit( char16_t c )
{
    if( c >= u'0' && c <= u'9' ) return c - u'0';
    if( c >= u'a' && c <= u'f' ) return c - u'a' + 10;
    if( c >= u'A' && c <= u'F' ) return c - u'A' + 10;
    return -1;
}

uint32_t multiply( uint32_t channel, uint32_t alpha )
{
    const uint32_t product = channel * alpha + 128;
    return ( product + ( product >> 8 ) ) >> 8;
}
} // namespace

uint32_t GColorFromText( GWStringView text, uint32_t fallback )
{
    if( !text.empty( ) && text.front( ) == u'#' ) text.remove_prefix( 1 );
    if( text.size( ) != 6 && text.size( ) != 8 ) return fallback;
    uint32_t value = 0;
    for( const char16_t c : text )
    {
        const int digit = hexDigit( c );
        if( digit < 0 ) return fallback;
        value = value << 4 | static_cast<uint32_t>( digit );
    }
    if( text.size( ) == 6 ) return 0xFF000000U | value;
    return value << 24 | value >> 8;
}

uint32_t GColorPremultiply( uint32_t colour )
{
    const uint32_t alpha = colour >> 24;
    return alpha << 24 | multiply( colour >> 16 & 255, alpha ) << 16 | multiply( colour >> 8 & 255, alpha ) << 8 |
           multiply( colour & 255, alpha );
}
