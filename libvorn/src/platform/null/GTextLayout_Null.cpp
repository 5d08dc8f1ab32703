// One line without pixels: every unit is half as wide as the font is high.
#include "platform/GTextLayout.h"

#include "base/GPortable.h"

#include <algorithm>
#include <cstring>

struct GTextLayoutRecord
{
    size_t length;
    int height;
    int unit;
};

GTextLayout GTextLayoutOpen( GText text, const GWString& string, int, int )
{
    const int height = GTextGetHeight( text );
    return new GTextLayoutRecord{ std::min<size_t>( string.size( ), 65536 ), height, std::max( 1, height / 2 ) };
}
void GTextLayoutClose( GTextLayout layout )
{
    GVALIDPTR( layout );
    delete layout;
}
void GTextLayoutGetSize( GTextLayout layout, int& width, int& height )
{
    width = static_cast<int>( layout->length ) * layout->unit;
    height = layout->height;
}
void GTextLayoutGetCaret( GTextLayout layout, size_t index, int& x, int& y )
{
    x = static_cast<int>( std::min( index, layout->length ) ) * layout->unit;
    y = 0;
}
size_t GTextLayoutHit( GTextLayout layout, int x, int )
{
    return std::min( layout->length, static_cast<size_t>( ( std::max( 0, x ) + layout->unit / 2 ) / layout->unit ) );
}
size_t GTextLayoutStep( GTextLayout layout, size_t index, GTextStep step )
{
    const size_t at = std::min( index, layout->length );
    switch( step )
    {
    case GSTEP_LEFT:
    case GSTEP_PREVIOUS: return at ? at - 1 : 0;
    case GSTEP_RIGHT:
    case GSTEP_NEXT: return std::min( at + 1, layout->length );
    case GSTEP_PREVIOUS_WORD:
    case GSTEP_LINE_START: return 0;
    default: return layout->length;
    }
}
void GTextLayoutGetWord( GTextLayout layout, size_t, size_t& begin, size_t& end )
{
    begin = 0;
    end = layout->length;
}
void GTextLayoutGetSpans( GTextLayout layout, size_t begin, size_t end, std::vector<GRect>& spans )
{
    spans.clear( );
    const int from = static_cast<int>( std::min( begin, layout->length ) );
    const int to = static_cast<int>( std::min( end, layout->length ) );
    if( from < to ) spans.push_back( { from * layout->unit, 0, to * layout->unit, layout->height } );
}
void GTextLayoutDraw( GTextLayout, int, int, int width, int height, uint8_t* coverage, int stride )
{
    GPRECONDITION( width > 0 && height > 0 && stride >= width && coverage );
    for( int y = 0; y < height; ++y )
        memset( coverage + static_cast<ptrdiff_t>( y ) * stride, 0, static_cast<size_t>( width ) );
}
