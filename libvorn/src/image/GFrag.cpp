#include "image/GFrag.h"
#include "base/GPortable.h"

#include <algorithm>

namespace
{
int64_t widthOf( const GRect& rect )
{
    return static_cast<int64_t>( rect.right ) - rect.left;
}
int64_t heightOf( const GRect& rect )
{
    return static_cast<int64_t>( rect.bottom ) - rect.top;
}
int32_t edge( int64_t from, int64_t distance, int32_t limit )
{
    return static_cast<int32_t>( std::min<int64_t>( from + distance, limit ) );
}

bool overlap( const GRect& a, const GRect& b )
{
    return !( a.right <= b.left || b.right <= a.left || a.bottom <= b.top || b.bottom <= a.top );
}

// What `sub` leaves of `frag`, which it overlaps but does not cover, in front of `place`.
void insertRemains( GFragList& list, GFragList::iterator place, const GFrag& frag, const GRect& sub )
{
    const GRect& rect = frag.rect;
    const int32_t top = std::max( rect.top, sub.top );
    const int32_t bottom = std::min( rect.bottom, sub.bottom );
    const GRect pieces[] = { { rect.left, rect.top, rect.right, sub.top },
                             { rect.left, sub.bottom, rect.right, rect.bottom },
                             { rect.left, top, sub.left, bottom },
                             { sub.right, top, rect.right, bottom } };
    for( const GRect& piece : pieces )
        if( GRectHasVolume( piece ) ) list.insert( place, { frag.id, piece } );
}
} // namespace

void GFragExplodeList( GFragList& list, int tileWidth, int tileHeight )
{
    GPRECONDITION( tileWidth > 0 && tileHeight > 0 );
    for( auto frag = list.begin( ); frag != list.end( ); )
    {
        const GRect rect = frag->rect;
        const int64_t width = widthOf( rect ), height = heightOf( rect );
        if( width <= tileWidth && height <= tileHeight )
        {
            ++frag;
            continue;
        }
        const int64_t numWide = ( width + tileWidth - 1 ) / tileWidth;
        const int64_t numHigh = ( height + tileHeight - 1 ) / tileHeight;
        GASSERT( numWide > 0 && numHigh > 0 );
        for( int64_t row = 0; row < numHigh; row++ )
            for( int64_t column = 0; column < numWide; column++ )
            {
                const int32_t left = edge( rect.left, column * tileWidth, rect.right );
                const int32_t top = edge( rect.top, row * tileHeight, rect.bottom );
                list.insert( frag, { frag->id,
                                     { left, top, edge( left, tileWidth, rect.right ),
                                       edge( top, tileHeight, rect.bottom ) } } );
            }
        frag = list.erase( frag );
    }
}

void GFragSubtract( GFragList& list, GFrag subFrag )
{
    const GRect& sub = subFrag.rect;
    GFragList rest;
    for( auto frag = list.begin( ); frag != list.end( ); )
    {
        const auto next = std::next( frag );
        const GRect& rect = frag->rect;
        if( rect.left >= sub.left && rect.right <= sub.right && rect.top >= sub.top && rect.bottom <= sub.bottom )
            GASSERT_TEXT( GRectContains( sub, rect ), "GRectContains( subFrag.rect, frag.rect )" );
        else if( !overlap( rect, sub ) )
            rest.splice( rest.end( ), list, frag );
        else
            insertRemains( rest, rest.end( ), *frag, sub );
        frag = next;
    }
    list.swap( rest );
}

void GFragAddOver( GFragList& list, GFrag frag )
{
    for( const GFrag& other : list )
        if( other.id == frag.id && GRectContains( other.rect, frag.rect ) ) return;
    GFragSubtract( list, frag );
    list.push_back( frag );
}

void GFragAddUnder( GFragList& list, GFrag frag )
{
    GFragList pieces{ frag };
    for( const GFrag& over : list )
    {
        GFragSubtract( pieces, over );
        if( pieces.empty( ) ) return;
    }
    list.splice( list.end( ), pieces );
}
