// Text without fonts: every unit is half as wide as the font is high, and nothing is drawn.
#include "base/GPortable.h"
#include "platform/GText.h"

#include <algorithm>
#include <cstring>

struct GTextRecord
{
    int size;
};

GText GTextOpen( const GTextFont& font )
{
    return new GTextRecord{ std::clamp( font.size, 1, 512 ) };
}
void GTextClose( GText text )
{
    GVALIDPTR( text );
    delete text;
}
int GTextGetHeight( GText text )
{
    return text->size;
}
int GTextGetAscent( GText text )
{
    return text->size * 4 / 5;
}
void GTextMeasure( GText text, const GWString& string, int, int, int& width, int& height )
{
    width = static_cast<int>( std::min<size_t>( string.size( ), 65536 ) ) * text->size / 2;
    height = text->size;
}
int GTextDraw( GText text, const GWString&, int, int width, int height, uint8_t* coverage, int stride )
{
    GPRECONDITION( width > 0 && height > 0 && stride >= width && coverage );
    for( int y = 0; y < height; ++y )
        memset( coverage + static_cast<ptrdiff_t>( y ) * stride, 0, static_cast<size_t>( width ) );
    return text->size;
}
bool GTextAddFontFile( const GWString& )
{
    return false;
}
bool GTextHasFace( const GWString& )
{
    return false;
}
