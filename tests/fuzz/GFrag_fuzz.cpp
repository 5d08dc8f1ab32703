// Lists of fragments under any sequence of operations: areas add up, tiles fit, and what is added over or under others never overlaps.
#include "Fuzz.h"
#include "image/GFrag.h"

namespace
{
constexpr int EDGE = 40;

GFrag frag( Fuzz::Input& input )
{
    const int left = input.byte( ) % EDGE - EDGE / 4, top = input.byte( ) % EDGE - EDGE / 4;
    const int width = 1 + input.byte( ) % EDGE, height = 1 + input.byte( ) % EDGE;
    return { static_cast<uint32_t>( input.byte( ) % 3 ), { left, top, left + width, top + height } };
}

int64_t areaOf( const GRect& rect )
{
    return GRectEmpty( rect ) ? 0 : int64_t{ rect.width( ) } * rect.height( );
}
int64_t areaOf( const GFragList& list )
{
    int64_t area = 0;
    for( const GFrag& each : list ) area += areaOf( each.rect );
    return area;
}
int64_t commonArea( const GFragList& list, const GRect& rect )
{
    int64_t area = 0;
    for( const GFrag& each : list ) area += areaOf( GRectIntersect( each.rect, rect ) );
    return area;
}
void requireApart( const GFragList& list )
{
    for( auto one = list.begin( ); one != list.end( ); ++one )
    {
        Fuzz::require( GRectHasVolume( one->rect ) );
        for( auto other = std::next( one ); other != list.end( ); ++other )
            Fuzz::require( GRectEmpty( GRectIntersect( one->rect, other->rect ) ) );
    }
}

void explode( GFragList& list, Fuzz::Input& input )
{
    const int width = 8 + input.byte( ) % 56, height = 8 + input.byte( ) % 56;
    const int64_t before = areaOf( list );
    GFragExplodeList( list, width, height );
    Fuzz::require( areaOf( list ) == before );
    for( const GFrag& tile : list ) Fuzz::require( tile.rect.width( ) <= width && tile.rect.height( ) <= height );
}
void subtract( GFragList& list, const GFrag& hole )
{
    const int64_t before = areaOf( list ), common = commonArea( list, hole.rect );
    GFragSubtract( list, hole );
    Fuzz::require( areaOf( list ) == before - common && commonArea( list, hole.rect ) == 0 );
}
void addOver( GFragList& list, const GFrag& each )
{
    const int64_t before = areaOf( list ), common = commonArea( list, each.rect );
    GFragAddOver( list, each );
    Fuzz::require( areaOf( list ) == before - common + areaOf( each.rect ) );
}
void addUnder( GFragList& list, const GFrag& each )
{
    const int64_t before = areaOf( list ), common = commonArea( list, each.rect );
    GFragAddUnder( list, each );
    Fuzz::require( areaOf( list ) == before - common + areaOf( each.rect ) );
    Fuzz::require( commonArea( list, each.rect ) == areaOf( each.rect ) );
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size )
{
    Fuzz::Input input( data, size );
    GFragList list;
    for( int steps = 0; !input.empty( ) && steps < 24; steps++ )
    {
        switch( input.byte( ) % 4 )
        {
        case 0: explode( list, input ); break;
        case 1: subtract( list, frag( input ) ); break;
        case 2: addOver( list, frag( input ) ); break;
        default: addUnder( list, frag( input ) ); break;
        }
        requireApart( list );
    }
    return 0;
}
